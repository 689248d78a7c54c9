// What a column of each type may be declared with: its size parameters, their bounds, and what they are where
// the declaration leaves them open. Every interface that declares columns goes by these rules.
#pragma once

#include "data/value/types.h"

namespace tovik {

// Is code a type that the columns of a table may have?
bool column_type_allowed(int32_t code);

// A declaration as it was given, 0 for a parameter that was not: a parameter outside its bounds, or one that
// the type does not have, becomes the type's default.
void column_take_defaults(ColumnType &column);

// The same for a definition that the catalog is about to record. 142005; 142007 and 142008 for a parameter
// that must have been settled before.
[[nodiscard]] bool column_type_check(ColumnType &column);

}  // namespace tovik
