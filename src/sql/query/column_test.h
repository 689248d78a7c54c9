// A comparison of a column with a literal, made ready once for all rows of a query: it looks at the stored
// bytes of a record and makes no values.
#pragma once

#include "data/table/row_handle.h"
#include "data/value/stored_form.h"
#include "sql/parse/tree.h"

namespace tovik {

struct ColumnTest {
  // Is the comparison true for the stored value? Neither false nor unknown is.
  bool (*holds)(const ColumnTest &test, const uint8_t *stored);
  const RowHandle *row;
  const IntegerForm *form;  // of an integer column
  int32_t offset, size;     // of the stored value in the record
  uint8_t orders;           // a bit for each order that makes it true: below, equal, above
  union {                   // what the column is compared with
    int64_t integer;
    double real;
    TextRef text;  // lent by the tree
  };
};

// comparison: a checked condition. False, without a status, unless it compares a column that is an integer, a
// double or a text within its record with a literal of that class.
[[nodiscard]] bool column_test_of(const Node &comparison, ColumnTest *test);

inline bool column_test_holds(const ColumnTest &test) {
  return test.holds(test, test.row->record + test.offset);
}

}  // namespace tovik
