// Aggregate functions. A sum of integers that passes 64 bits goes on from the other end, as addition does.
#include "data/function/builtin.h"
#include "data/value/number_text.h"
#include "frame/error.h"

namespace tovik {

namespace {

bool is_aggregate(int number) {
  const BuiltinRow *row = builtin_row(number);
  return row != nullptr && row->category == BuiltinCategory::aggregate;
}

void add(Accumulator &accumulator, int64_t integer, double real) {
  if (accumulator.type == type::bigint) {
    accumulator.integer =
        static_cast<int64_t>(static_cast<uint64_t>(accumulator.integer) + static_cast<uint64_t>(integer));
  } else {
    accumulator.real += real;
  }
}

void keep_extreme(Accumulator &accumulator, int64_t integer, double real, bool greatest) {
  if (accumulator.type == type::bigint) {
    const bool beyond = greatest ? integer > accumulator.integer : integer < accumulator.integer;
    if (accumulator.count == 0 || beyond) accumulator.integer = integer;
  } else {
    const bool beyond = greatest ? real > accumulator.real : real < accumulator.real;
    if (accumulator.count == 0 || beyond) accumulator.real = real;
  }
}

}  // namespace

bool builtin_start(int number, const Value *arguments, int count, Accumulator &accumulator) {
  if (!is_aggregate(number)) return fail(status::function_argument);
  accumulator = Accumulator{};
  accumulator.type = type::bigint;
  if (number == builtin::count) return true;
  if (count < 1 || !type_numeric(arguments[0].type)) return fail(status::argument_1_type);
  if ((arguments[0].type & TYPE_INTEGER) == 0) accumulator.type = type::float64;
  return true;
}

bool builtin_accumulate(int number, const Value *arguments, int count, Accumulator &accumulator) {
  if (!is_aggregate(number)) return fail(status::function_argument);
  if (count > 0 && arguments[0].is_null()) return true;
  if (number != builtin::count) {
    const Value &value = arguments[0];
    if (!type_numeric(value.type)) return fail(status::argument_1_type);
    const bool integral = (value.type & TYPE_INTEGER) != 0;
    // An argument may change its kind from row to row (NVL); the first row's kind stays that of the result.
    const int64_t integer = integral ? value.integer : double_to_integer(value.real);
    const double real = integral ? static_cast<double>(value.integer) : value.real;
    if (number == builtin::max || number == builtin::min) {
      keep_extreme(accumulator, integer, real, number == builtin::max);
    } else {
      add(accumulator, integer, real);
    }
  }
  ++accumulator.count;
  return true;
}

void builtin_finish(int number, const Accumulator &accumulator, Value &result) {
  result.kind = value_kind::computed;
  result.declared = 0;
  result.flags = value_aggregate;
  if (number == builtin::count) {
    result.type = type::bigint;
    result.integer = accumulator.count;
    return;
  }
  const bool integral = accumulator.type == type::bigint;
  result.type = number == builtin::avg ? type::float64 : accumulator.type;
  if (accumulator.count == 0) {
    result.flags |= value_null;
  } else if (number == builtin::avg) {
    const double sum = integral ? static_cast<double>(accumulator.integer) : accumulator.real;
    result.real = sum / static_cast<double>(accumulator.count);
  } else if (integral) {
    result.integer = accumulator.integer;
  } else {
    result.real = accumulator.real;
  }
}

}  // namespace tovik
