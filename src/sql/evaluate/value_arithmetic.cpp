// Operators of numbers and dates.
#include <type_traits>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "sql/evaluate/evaluate_rules.h"

namespace tovik {

namespace {

// --- Numbers

double as_double(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? static_cast<double>(value.integer) : value.real;
}

int64_t as_integer(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? value.integer : double_to_integer(value.real);
}

int64_t negative(int64_t integer) {
  return static_cast<int64_t>(0 - static_cast<uint64_t>(integer));
}

// The quotient of the smallest integer and -1 wraps.
int64_t quotient(int64_t a, int64_t b) {
  return b == -1 ? negative(a) : a / b;
}
int64_t remainder(int64_t a, int64_t b) {
  return b == -1 ? 0 : a % b;
}

double quotient(double a, double b) {
  return a / b;
}

// a - b x t, where t is the quotient as a 32-bit integer; a quotient outside of that range becomes its lowest
// number.
double remainder(double a, double b) {
  const double quotient = a / b;
  const bool in_range = quotient > -2147483649.0 && quotient < 2147483648.0;
  return a - b * (in_range ? static_cast<int32_t>(quotient) : INT32_MIN);
}

template <class Number>
bool compute_numbers(uint16_t kind, Number left, Number right, Number *result) {
  using Wrapping = std::conditional_t<std::is_integral_v<Number>, uint64_t, Number>;
  const Wrapping a = static_cast<Wrapping>(left), b = static_cast<Wrapping>(right);
  switch (kind) {
    case node::add:
      *result = static_cast<Number>(a + b);
      return true;
    case node::subtract:
      *result = static_cast<Number>(a - b);
      return true;
    case node::multiply:
      *result = static_cast<Number>(a * b);
      return true;
    default:
      if (right == 0) return fail(status::division_by_zero);
      *result = kind == node::divide ? quotient(left, right) : remainder(left, right);
      return true;
  }
}

template <class Number>
bool compute_as(uint16_t kind, Number left, Number right, uint16_t flags, Value *result) {
  Number computed;
  if (!compute_numbers(kind, left, right, &computed)) return false;
  set_number(result, computed, flags);
  return true;
}

bool compute_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  const uint16_t flags = left.flags & value_decimal;
  const bool integers = (left.type & right.type & TYPE_INTEGER) != 0;
  if (left.is_null() || right.is_null()) {
    set_null(result, integers ? type::bigint : type::float64);
    return true;
  }
  if (integers) return compute_as(node.kind, left.integer, right.integer, flags, result);
  if (!type_numeric(left.type) || !type_numeric(right.type)) return fail(status::not_numeric);
  return compute_as(node.kind, as_double(left), as_double(right), flags, result);
}

bool compute_negation(const Value &operand, Value *result) {
  const uint16_t flags = operand.flags & value_decimal;
  if (operand.is_null()) {
    set_null(result, operand.type);
  } else if ((operand.type & TYPE_INTEGER) != 0) {
    set_number(result, negative(operand.integer), flags);
  } else if (type_numeric(operand.type)) {
    set_number(result, -operand.real, flags);
  } else {
    return fail(status::not_numeric);
  }
  return true;
}

// --- Dates

bool as_datetime(const Value &value, DateTimeRec *record) {
  if ((value.type & TYPE_CHARACTER) != 0)
    return parse_datetime(type::microtimestamp, value.text.text, Mishap::recorded, record);
  *record = value.datetime;
  return (value.type & TYPE_DATETIME) != 0 || fail(status::not_numeric);
}

bool compute_date_part(const Node &node, const Value &operand, Value *result) {
  if (operand.is_null()) {
    set_null(result, type::bigint);
    return true;
  }
  DateTimeRec record{};
  if (!as_datetime(operand, &record)) return false;
  set_number(result, int64_t{datetime_part(record, node.kind)}, 0);
  return true;
}

bool compute_date_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  if (left.is_null() || right.is_null()) {
    set_null(result, type::microtimestamp);
    return true;
  }
  if (!type_numeric(right.type)) return fail(status::not_numeric);
  DateTimeRec record{}, moved{};
  if (!as_datetime(left, &record)) return false;
  int64_t amount = as_integer(right);
  if (node.kind == node::date_subtract) amount = amount == INT64_MIN ? INT64_MAX : -amount;
  if (!datetime_add(record, amount, DateTree::of(node).unit, &moved)) return false;
  set_computed(result, type::microtimestamp, 0);
  result->declared = type::microtimestamp;
  result->datetime = moved;
  return true;
}

}  // namespace

bool compute(const Node &node, const Value &left, const Value &right, Value *result) {
  if (node_is_arithmetic(node.kind)) return compute_arithmetic(node, left, right, result);
  if (node.kind == node::negation) return compute_negation(left, result);
  if (node_is_date_part(node.kind)) return compute_date_part(node, left, result);
  return compute_date_arithmetic(node, left, right, result);
}

}  // namespace tovik
