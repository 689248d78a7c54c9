#include "sql/query/join.h"

#include "frame/error.h"

namespace tovik {

namespace {

class JoinStep {
 public:
  JoinStep(Join &join, EvalContext &context) : join_(join), context_(context) {}

  // From before the first row of access and the tables inside it: every table but the innermost stands on a
  // row afterwards, those of the first combination that the parts of the condition let stand. no: there is
  // none.
  Found start(TableAccess &access, int place) {
    if (!look_up(place)) return Found::failed;
    return access.next == nullptr ? Found::yes : move_on(access, place);
  }

  // The next combination of access and the tables inside it. An exhausted table is before its first row
  // again.
  Found next_combination(TableAccess &access, int place) {
    if (access.next == nullptr) return next_row(access, place);
    for (;;) {
      const Found stands = still_meets(access, place);
      if (stands == Found::failed) return Found::failed;
      if (stands == Found::yes) {
        const Found inner = next_combination(*access.next, place + 1);
        if (inner != Found::no) return inner;
      } else {
        for (TableAccess *inside = access.next; inside != nullptr; inside = inside->next)
          access_rewind(*inside);
      }
      const Found moved = move_on(access, place);
      if (moved != Found::yes) return moved;
    }
  }

 private:
  Found read(Found fetched) const {
    if (fetched == Found::failed && join_.read_failure != 0) err_set(join_.read_failure);
    return fetched;
  }

  bool look_up(int place) {
    const JoinLookup *lookups = join_.plan.lookups;
    return lookups == nullptr || lookups[place].access == nullptr || join_lookup(lookups[place]);
  }

  // To the next row of access for which the tables inside it can start.
  Found move_on(TableAccess &access, int place) {
    for (;;) {
      const Found outer = next_row(access, place);
      if (outer != Found::yes) return outer;
      const Found started = start(*access.next, place + 1);
      if (started != Found::no) return started;
    }
  }

  Found met(int place) {
    bool met;
    if (!conjuncts_met(context_, join_.plan.conjuncts.of_table[place], &met)) return Found::failed;
    return met ? Found::yes : Found::no;
  }

  Found next_row(TableAccess &access, int place) {
    for (;;) {
      const Found fetched = read(access_next(access));
      if (fetched != Found::yes) return fetched;
      const Found meets = met(place);
      if (meets != Found::no) return meets;
    }
  }

  // no: the row is deleted, or was written and does not meet the condition any more.
  Found still_meets(TableAccess &access, int place) {
    if (access.handle->state == row_state(*access.handle->table->rows)) return Found::yes;
    const Found stands = read(row_handle_refresh(*access.handle));
    return stands == Found::yes ? met(place) : stands;
  }

  Join &join_;
  EvalContext &context_;
};

}  // namespace

Found join_next(Join &join, EvalContext &context) {
  const bool first = !join.started;
  join.started = true;
  if (join.tables == nullptr) return first ? Found::yes : Found::no;
  JoinStep step(join, context);
  const Found started = first ? step.start(*join.tables, 0) : Found::yes;
  return started == Found::yes ? step.next_combination(*join.tables, 0) : started;
}

}  // namespace tovik
