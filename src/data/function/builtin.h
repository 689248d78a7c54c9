// The 76 built-in functions: one sorted table, argument checks at preparation, one evaluator per category.
// Character functions work on whole characters of the current character set.
//
// Functions of the first three categories give NULL for a NULL argument without being evaluated. No
// function's result may be one of its arguments.
#pragma once

#include "data/value/value.h"
#include "frame/memory_pool.h"

namespace tovik {

enum class BuiltinCategory : uint16_t {
  mathematics = 0,
  text = 1,
  datetime = 2,
  conversion = 3,
  aggregate = 4
};

// The functions by number, which is their place in the table.
// clang-format off
namespace builtin {
enum Number : uint16_t {
  abs, acos, add_months, ascii, asin, atan, atan2, avg, ceiling, char_length, chr, cos, cosh, count,
  current_date, current_time, current_timestamp, dayname, dayofweek, dayofyear, erf, erfc, exp, fabs,
  floor, fmod, gamma, hypot, instr, j0, j1, jn, last_day, left, length, lengthb, log, log10, lower, lpad,
  ltrim, max, min, next_day, now, nvl, pow, repeat, replace, reverse, right, round, rpad, rtrim, sign,
  sin, sinh, space, sqrt, substr, substring, sum, tan, tanh, tochar, todate, tolower, toupper, translate,
  trim, trunnc, upper, weekofyear, y0, y1, yn, count_of_all
};
}  // namespace builtin
// clang-format on

struct BuiltinRow {
  const char *name;
  uint16_t number;  // the row's index
  BuiltinCategory category;
  uint16_t rule;  // argument count: 0 to 3 that many, 4: 1 or 2, 5: 2 or 3, 6: 1 to 3, 7: 2 to 4, 8: any
  const char *classes;  // one letter per argument: N numeric, I integer, S character, D date-time, ? any
  TypeCode result;      // 0: the first argument's type
  TypeCode display;     // date-time type shown for the result, else 0
};

inline constexpr int builtin_count = 76;
inline constexpr int builtin_argument_limit = 16;
static_assert(builtin::count_of_all == builtin_count);

const BuiltinRow *builtin_row(int number);         // null for 76 and above
const BuiltinRow *builtin_find(const char *name);  // any case; null when none

// One aggregate call's state over the rows of a query.
struct Accumulator {
  TypeCode type;  // bigint or float64
  int64_t count;  // values seen
  union {
    int64_t integer;
    double real;
  };
};

// Checks argument count and classes (only types and NULL flags of the arguments are looked at; NULL is of
// every class) and sets the result's kind, type, declared (display) type and the flags value_null and
// value_aggregate. 53001, 153001 to 153004, 153011, 153012.
[[nodiscard]] bool builtin_prepare(int number, const Value *arguments, int count, Value &result);

// Computes the result of a function that is no aggregate; texts come from pool. An argument may be of another
// class than it was prepared with (what NVL chooses is known per row): it is checked again. 53001 to 53003,
// 153001 to 153004, 153007, 113004 where a date leaves the calendar, 113004 to 113019 where TODATE reads an
// impossible one.
[[nodiscard]] bool builtin_evaluate(int number, const Value *arguments, int count, MemoryPool &pool,
                                    Value &result);

// An aggregate call before the first row (looks at types only), for each row, and after the last.
[[nodiscard]] bool builtin_start(int number, const Value *arguments, int count,
                                 Accumulator &accumulator);  // 53001, 153001
[[nodiscard]] bool builtin_accumulate(int number, const Value *arguments, int count,
                                      Accumulator &accumulator);  // 53001
void builtin_finish(int number, const Accumulator &accumulator, Value &result);

// size bytes for a function's text. Null with 53002, which the pool's own status follows.
char *builtin_allocate(MemoryPool &pool, int64_t size);

// The evaluators of one category each (builtin_evaluate dispatches to them). The arguments are checked and
// not NULL, save those of builtin_conversion.
[[nodiscard]] bool builtin_mathematics(int number, const Value *arguments, int count, Value &result);
[[nodiscard]] bool builtin_text(int number, const Value *arguments, int count, MemoryPool &pool,
                                Value &result);
[[nodiscard]] bool builtin_datetime(int number, const Value *arguments, int count, MemoryPool &pool,
                                    Value &result);
[[nodiscard]] bool builtin_conversion(int number, const Value *arguments, int count, MemoryPool &pool,
                                      Value &result);

}  // namespace tovik
