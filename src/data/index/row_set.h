// Sets of row numbers, as index searches give them.
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
void rowset_make_distinct(RowSet &set);  // sorted, each row once

}  // namespace tovik
