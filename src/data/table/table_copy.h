// Copies all rows of one table into another, as bytes: nothing is decoded or checked.
#pragma once

#include "data/table/table.h"

namespace tovik {

// Each column of to takes the bytes of from's column of exactly the same name, which has the same type and
// parameters; the others are NULL, but for an auto-increment column, which takes the next number of to's
// counter. The order of the rows stays. to belongs to another database, has no rows and no indices. Takes
// memory for two records and for the longest large value. 43004, 43005, 43011, 44001, 44007, 44009,
// 113002, 1.
[[nodiscard]] bool table_copy(const Table &from, Table &to);

}  // namespace tovik
