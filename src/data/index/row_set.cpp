#include "data/index/row_set.h"

#include <algorithm>

#include "frame/error.h"

namespace tovik {

RowSet *rowset_new() {
  RowSet *set = mem_new<RowSet>();
  if (set == nullptr) return fail_null(status::out_of_memory);
  return set;
}

void rowset_free(RowSet *set) {
  mem_delete(set);
}

bool rowset_add(RowSet &set, RowNo row) {
  if (!set.rows.push(row)) return fail(status::out_of_memory);
  set.sorted = false;
  return true;
}

void rowset_sort(RowSet &set) {
  if (!std::is_sorted(set.rows.begin(), set.rows.end())) std::sort(set.rows.begin(), set.rows.end());
  set.sorted = true;
}

void rowset_make_distinct(RowSet &set) {
  rowset_sort(set);
  const RowNo *end = std::unique(set.rows.begin(), set.rows.end());
  while (set.rows.end() != end) set.rows.pop();
}

}  // namespace tovik
