// Literals of a condition as keys of a column, and the values that columns of the queries around have while
// the query runs: whether an index finds with the literal's key exactly the rows for which the comparison
// with the literal holds, and the key. Values lend texts of the tree.
#pragma once

#include "data/table/table.h"
#include "data/value/value.h"
#include "sql/parse/tree.h"

namespace tovik {

// Does a number with a sign in front of it count as a literal?
enum class Signs { refused, accepted };

// A column and the value that it is compared with.
struct KeyLiteral {
  const Column *column;
  Value value;
};

bool is_literal(const Node &node);  // without a sign; NULL is none

// The value of a literal, with its sign; false, without a status, when node counts as none.
[[nodiscard]] bool literal_read(const Node &node, Signs signs, Value *value);

// Can the value be a key of the column without losing anything? Records nothing.
bool literal_fits(const KeyLiteral &literal);

// The stored form of a value that fits, at key. Statuses of the conversion: the column cannot hold the value.
[[nodiscard]] bool literal_store(const KeyLiteral &literal, uint8_t *key);

// Reads the value of a column of a query around into literal; it may be NULL, which no key is equal to.
// False, without a status, when it cannot be a key of the literal's column, be it for a lack of room.
[[nodiscard]] bool outer_read(const ColumnRef &outer, KeyLiteral *literal);

// The row that a value numbers; 0 when it is no row number.
RowNo row_number_of(const Value &value);

}  // namespace tovik
