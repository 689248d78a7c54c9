// Values in the form in which a sort store keeps them, and back: the exchange form of a column's class, or,
// for a result column whose class is known per row only (value_mixed), bytes of a column of type blob that
// tell the class. Equal values of one class give equal bytes. A form made from a value may point into it, a
// value's text into its form; copies lie in pool.
#pragma once

#include "data/table/row_handle.h"
#include "frame/memory_pool.h"
#include "sql/query/sort.h"

namespace tovik {

// *form is null for NULL. False when the value's class is not that of type, or when a blob's copy finds no
// room: not_comparable, 110002.
[[nodiscard]] bool sort_form(MemoryPool &pool, const Value &value, TypeCode type, const void **form);
Value value_of_sort_form(TypeCode type, const void *form);

// How a store keeps the values of a column.
inline SortColumn sort_column(const Column &column) {
  return {column.type, column.p1};
}

// The row being stored: its values and their forms.
struct RowForms {
  Value *values;
  const void **forms;
};
[[nodiscard]] bool row_forms_new(MemoryPool &pool, int count, RowForms *row);  // 110002

// Reads a column of the row on which its table stands into the place numbered index.
[[nodiscard]] bool row_forms_read(MemoryPool &pool, const ColumnRef &column, int index, const RowForms &row);

// Of a value that is not NULL; null when there is no room: 110002.
const void *mixed_form(MemoryPool &pool, const Value &value);
Value value_of_mixed_form(const void *form);

}  // namespace tovik
