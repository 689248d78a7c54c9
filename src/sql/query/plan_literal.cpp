// Invariant: a literal fits a column only if the rows whose key is equal to, below or above the literal's key
// are those for which the comparison is true. None of these fits:
//   - A real number for an integer column, unless it is whole and below 2^53: from there on several integers
//     are equal to one real number.
//   - A number with more than seven digits for a float column, whose values are compared by seven digits.
//   - A text that begins with the byte that marks a NULL text.
//   - A local time that is not that of exactly one instant, for a column whose keys are universal time: where
//     clocks are set forward it is that of none, where they are set back that of two.
// A date column is compared by its days, a time column by its seconds, with or without an index. A literal
// that fits but is out of its column's range (a number too large, a text that is too long) has no key.
#include "sql/query/plan_literal.h"

#include <cmath>

#include "data/index/btree.h"
#include "data/table/row_handle.h"
#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "data/value/stored_form.h"
#include "frame/error.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

void negate(Value &number) {
  if ((number.type & TYPE_INTEGER) != 0) {
    number.integer = static_cast<int64_t>(0 - static_cast<uint64_t>(number.integer));
  } else {
    number.real = -number.real;
  }
}

constexpr double exact_integers = 0x1p53;  // below, no two integers are the same real number

bool is_exact_integer(double real) {
  return real == std::floor(real) && std::fabs(real) < exact_integers;
}

double as_real(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? static_cast<double>(value.integer) : value.real;
}

bool same_time(const Column &column, const DateTimeRec &a, const DateTimeRec &b) {
  int order;
  return compare_values(column.type, &a, 0, column.type, &b, &order) && order == 0;
}

int64_t seconds_of(const DateTimeRec &time) {
  return ((day_number(time.year, time.month, time.day) * 24 + time.hour) * 60 + time.minute) * 60 +
         time.second;
}

bool local_at(const DateTimeRec &utc, int64_t amount, int unit, DateTimeRec *moved, DateTimeRec *local) {
  if (!datetime_add(utc, amount, unit, moved)) return false;
  *local = *moved;
  return datetime_to_local(local);
}

// Would the zone's offset of the day before or after make literal the local time of a second instant?
bool names_one_instant(const Column &column, const DateTimeRec &literal) {
  const ErrorScope no_failure_of_the_query;
  uint8_t key[btree_key_limit];
  DateTimeRec back, utc, near, local;
  if (store_value(column, ValueMode::binary, &literal, key) != Stored::value ||
      fetch_value(column, ValueMode::binary, key, &back) != Stored::value ||
      !same_time(column, back, literal))
    return false;
  const DateTimeRec instant = load_datetime_form(column.type, key);
  for (const int days : {-1, 1}) {
    if (!local_at(instant, days, unit_day, &near, &local)) return false;
    const int64_t shift = seconds_of(back) - seconds_of(instant) - (seconds_of(local) - seconds_of(near));
    if (!local_at(instant, shift, unit_second, &utc, &local)) return false;
    if (shift != 0 && same_time(column, local, literal)) return false;
  }
  return true;
}

}  // namespace

bool is_literal(const Node &node) {
  return node.kind == value_kind::literal || node.kind == value_kind::string ||
         node.kind == value_kind::date_literal;
}

bool literal_read(const Node &node, Signs signs, Value *value) {
  const bool negated = signs == Signs::accepted && node.kind == node::negation;
  const Node &literal = negated ? *OperatorTree::of(node).right : node;
  if (!is_literal(literal)) return false;
  *value = *literal.value;
  if (negated) negate(*value);
  return true;
}

bool literal_fits(const KeyLiteral &literal) {
  const Column &column = *literal.column;
  const Value &value = literal.value;
  switch (datum_kind(column.type)) {
    case DatumKind::integer:
      return (value.type & TYPE_INTEGER) != 0 ||
             ((value.type & TYPE_FLOAT) != 0 && is_exact_integer(value.real));
    case DatumKind::real:
      if (!type_numeric(value.type)) return false;
      return column.type == type::float64 ||
             float32_rounded(static_cast<float>(as_real(value))) == as_real(value);
    case DatumKind::datetime:
      return (value.type & TYPE_DATETIME) != 0 &&
             (column.type == type::date || names_one_instant(column, value.datetime));
    default:
      return (value.type & TYPE_CHARACTER) != 0 && static_cast<uint8_t>(*value.text.text) != null_flag;
  }
}

// Values of one kind, each of which is compared as it is stored.
static bool same_kind(const Column &a, const Column &b) {
  if (column_is_large(a)) return false;
  const TypeCode both = a.type & b.type;
  return a.type == b.type || (both & (TYPE_INTEGER | TYPE_CHARACTER)) != 0;
}

bool outer_read(const ColumnRef &outer, KeyLiteral *literal) {
  const ErrorScope no_failure_of_the_query;
  if (!same_kind(*outer.column, *literal->column)) return false;
  if (!row_handle_value(*outer.row, *outer.column, &literal->value)) return false;
  uint8_t key[btree_key_limit];
  return literal->value.is_null() || (literal_fits(*literal) && literal_store(*literal, key));
}

bool literal_store(const KeyLiteral &literal, uint8_t *key) {
  const Column &column = *literal.column;
  Value converted = literal.value;
  if ((column.type & TYPE_INTEGER) != 0 && (converted.type & TYPE_FLOAT) != 0) {
    converted.integer = static_cast<int64_t>(literal.value.real);
  } else if ((column.type & TYPE_FLOAT) != 0) {
    converted.real = as_real(literal.value);
  }
  return store_value(column, ValueMode::binary, value_datum(converted), key) != Stored::failed;
}

RowNo row_number_of(const Value &value) {
  if (value.is_null() || !type_numeric(value.type)) return 0;
  const double number = as_real(value);
  return is_exact_integer(number) && number > 0 && number <= UINT32_MAX ? static_cast<RowNo>(number) : 0;
}

}  // namespace tovik
