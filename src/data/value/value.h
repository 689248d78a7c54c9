// The value record in which expressions are computed: on the evaluator's stack, as the leaf of a tree node,
// and as argument and result of built-in functions.
#pragma once

#include "data/value/types.h"

namespace tovik {

struct Column;
struct RowHandle;
struct AggregateCall;
struct Subquery;

namespace value_kind {
inline constexpr uint16_t column = 1000, null = 1001, literal = 1002, string = 1003, integer_text = 1004,
                          decimal_text = 1005, exponent_text = 1006, date_literal = 1007, truth = 1008,
                          computed = 1009;
}

inline constexpr uint16_t value_null = 1;     // the value is NULL
inline constexpr uint16_t value_decimal = 2;  // from a decimal literal, or arithmetic whose left operand was
inline constexpr uint16_t value_aggregate = 4;  // depends on an aggregate function

// A text with its length in bytes; NUL-terminated (a blob's bytes may hold NULs before that).
struct TextRef {
  const char *text;
  int32_t length;
};

struct ColumnRef {
  const Column *column;
  RowHandle *row;

  bool operator==(const ColumnRef &) const = default;
};

// Computes with bigint, float64, character and microtimestamp. A truth value is bigint 1, 0 or -1 (unknown).
struct Value {
  uint16_t kind;
  TypeCode type;
  TypeCode declared;  // of a column value: the column's own type
  uint16_t flags;
  union {
    int64_t integer;
    double real;
    TextRef text;
    DateTimeRec datetime;
    ColumnRef column;
    AggregateCall *aggregate;  // a call of an aggregate function
    Subquery *subquery;        // in the tree: of a node that holds a query inside a condition
    const char *texts[2];      // names in the tree: table and column, table and alias
    int64_t integers[3];       // type parameters in the tree
  };
  const char *label;  // check pass with labels

  bool is_null() const { return (flags & value_null) != 0; }
};
static_assert(sizeof(Value) <= 40, "values are copied on every push and pop");

// Which member of a value of that type holds the datum.
enum class DatumKind { integer, real, datetime, text };

inline DatumKind datum_kind(TypeCode type) {
  if ((type & TYPE_INTEGER) != 0) return DatumKind::integer;
  if ((type & TYPE_FLOAT) != 0) return DatumKind::real;
  return (type & TYPE_DATETIME) != 0 ? DatumKind::datetime : DatumKind::text;
}

// The datum as compare_values and the store operations take it.
inline const void *value_datum(const Value &value) {
  return (value.type & TYPE_CHARACTER) != 0 ? static_cast<const void *>(value.text.text)
                                            : static_cast<const void *>(&value.integer);
}

}  // namespace tovik
