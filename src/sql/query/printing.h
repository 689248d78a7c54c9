// Printing of query results through the system driver: header line, rows, column formats.
#pragma once

#include "sql/query/query.h"

namespace tovik {

// Sets width and value format of a result column from its other fields.
void print_format_column(ResultColumn &column);

void print_header(const Query &query);

// The whole result of an open query, header first when HVI_SQL_SEL_HDR. Closes the cursor.
[[nodiscard]] bool print_result(Query &query);

// The items of a TEST_STMT: one line of compact values.
[[nodiscard]] bool print_items(Query &query);

}  // namespace tovik
