// The 76 built-in functions: one sorted table, argument checks at preparation, one evaluator per category.
// Character functions work on whole characters of the current character set.
#pragma once

#include "data/memory_pool.h"
#include "data/value.h"

namespace tovik {

enum class BuiltinCategory : uint16_t {
  mathematics = 0,
  text = 1,
  datetime = 2,
  conversion = 3,
  aggregate = 4
};

struct BuiltinRow {
  const char *name;
  uint16_t number;  // the row's index
  BuiltinCategory category;
  uint16_t rule;     // argument rule
  TypeCode result;   // 0: the first argument's type
  TypeCode display;  // date-time type shown for the result, else 0
};

inline constexpr int builtin_count = 76;
inline constexpr int builtin_argument_limit = 16;

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

// Checks argument count and classes (only types and NULL flags of the arguments are looked at) and sets the
// result's type, declared (display) type and value_aggregate flag. 53001, 153001 to 153004, 153011, 153012.
[[nodiscard]] bool builtin_prepare(int number, const Value *arguments, int count, Value &result);

// Computes the result of a function that is no aggregate; texts come from pool. 53001 to 53003, 153007.
[[nodiscard]] bool builtin_evaluate(int number, const Value *arguments, int count, MemoryPool &pool,
                                    Value &result);

[[nodiscard]] bool builtin_start(int number, const Value *arguments, int count,
                                 Accumulator &accumulator);  // 153001
[[nodiscard]] bool builtin_accumulate(int number, const Value *arguments, int count,
                                      Accumulator &accumulator);
void builtin_finish(int number, const Accumulator &accumulator, Value &result);

// The evaluators of one category each (builtin_evaluate dispatches to them).
[[nodiscard]] bool builtin_mathematics(int number, const Value *arguments, int count, Value &result);
[[nodiscard]] bool builtin_text(int number, const Value *arguments, int count, MemoryPool &pool,
                                Value &result);
[[nodiscard]] bool builtin_datetime(int number, const Value *arguments, int count, MemoryPool &pool,
                                    Value &result);
[[nodiscard]] bool builtin_conversion(int number, const Value *arguments, int count, MemoryPool &pool,
                                      Value &result);

}  // namespace tovik
