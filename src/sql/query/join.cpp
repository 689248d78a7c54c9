#include "sql/query/join.h"

namespace tovik {

namespace {

// Every table but the innermost stands on its first row afterwards. no: one of them has none.
Found start_join(TableAccess *tables) {
  for (; tables->next != nullptr; tables = tables->next) {
    const Found first = access_next(*tables);
    if (first != Found::yes) return first;
  }
  return Found::yes;
}

// The next combination of access and the tables inside it. An exhausted table is before its first row again.
Found next_combination(TableAccess &access) {
  if (access.next == nullptr) return access_next(access);
  for (;;) {
    const Found stands = row_handle_refresh(*access.handle);
    if (stands == Found::failed) return Found::failed;
    if (stands == Found::yes) {
      const Found inner = next_combination(*access.next);
      if (inner != Found::no) return inner;
    } else {
      for (TableAccess *inside = access.next; inside != nullptr; inside = inside->next)
        access_rewind(*inside);
    }
    const Found outer = access_next(access);
    if (outer != Found::yes) return outer;
    const Found restarted = start_join(access.next);
    if (restarted != Found::yes) return restarted;
  }
}

}  // namespace

Found join_next(Join &join) {
  const bool first = !join.started;
  if (join.tables == nullptr) {
    join.started = true;
    return first ? Found::yes : Found::no;
  }
  if (first) {
    const Found outer = start_join(join.tables);
    if (outer != Found::yes) return outer;
    join.started = true;
  }
  return next_combination(*join.tables);
}

}  // namespace tovik
