// Printing of query results through the system driver: header line and rows.
#pragma once

#include "sql/query/query.h"

namespace tovik {

// The whole result of an open query, header first when HVI_SQL_SEL_HDR. Closes the cursor.
[[nodiscard]] bool print_result(Query &query);

// The items of a TEST_STMT: one line of compact values.
[[nodiscard]] bool print_items(Query &query);

}  // namespace tovik
