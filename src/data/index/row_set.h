// Sets of row numbers, as index searches give them and the planner combines them.
#pragma once

#include "data/row/row_system.h"
#include "platform/array.h"

namespace tovik {

struct RowSet {
  bool sorted;
  Array<RowNo> rows;
};

RowSet *rowset_new();  // null with 1
void rowset_free(RowSet *set);
[[nodiscard]] bool rowset_add(RowSet &set, RowNo row);  // 1; the set stays as it was
void rowset_sort(RowSet &set);

// Both sets sorted; both are used up. The result is one of them, or null when nothing is common.
RowSet *rowset_intersect(RowSet *a, RowSet *b);
// The result is sorted and without duplicates. False with 1; then both sets are freed.
[[nodiscard]] bool rowset_union(RowSet *a, RowSet *b, RowSet **result);

}  // namespace tovik
