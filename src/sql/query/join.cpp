#include "sql/query/join.h"

namespace tovik {

namespace {

// Every table but the innermost stands on its first row afterwards. end: one of them has none.
RowFetch start_join(TableAccess *tables) {
  for (; tables->next != nullptr; tables = tables->next) {
    const RowFetch first = access_next(*tables);
    if (first != RowFetch::row) return first;
  }
  return RowFetch::row;
}

// The next combination of access and the tables inside it. An exhausted table is before its first row again.
RowFetch next_combination(TableAccess &access) {
  if (access.next == nullptr) return access_next(access);
  for (;;) {
    const RowLoad stands = row_handle_refresh(*access.handle);
    if (stands == RowLoad::failed) return RowFetch::failed;
    if (stands == RowLoad::loaded) {
      const RowFetch inner = next_combination(*access.next);
      if (inner != RowFetch::end) return inner;
    } else {
      for (TableAccess *inside = access.next; inside != nullptr; inside = inside->next)
        access_rewind(*inside);
    }
    const RowFetch outer = access_next(access);
    if (outer != RowFetch::row) return outer;
    const RowFetch restarted = start_join(access.next);
    if (restarted != RowFetch::row) return restarted;
  }
}

}  // namespace

RowFetch join_next(Join &join) {
  const bool first = !join.started;
  if (join.tables == nullptr) {
    join.started = true;
    return first ? RowFetch::row : RowFetch::end;
  }
  if (first) {
    const RowFetch outer = start_join(join.tables);
    if (outer != RowFetch::row) return outer;
    join.started = true;
  }
  return next_combination(*join.tables);
}

}  // namespace tovik
