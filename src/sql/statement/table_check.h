// The table check of INFO CHECK: reads every row and looks its key up in every index.
#pragma once

#include "data/database.h"

namespace tovik {

// Prints the row count and, per index, how many rows' keys it holds: a table in good order shows one number
// everywhere. 141004 and read failures.
[[nodiscard]] bool table_check(Database &db, const char *table_name);

}  // namespace tovik
