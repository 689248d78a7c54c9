// Puts the value of an expression into a column of a row being built, for INSERT and UPDATE.
#pragma once

#include "sql/evaluate/evaluator.h"

namespace tovik {

// Check pass of a value to be stored, once per statement. NULL, string literals and DIRECT_FROM stay. The
// statuses of expr_check; 150004 for an aggregate.
[[nodiscard]] bool set_value_check(EvalContext &context, Node *expression);

// Evaluates expression on the current rows of the context's tables and sets column of row with it. The status
// of a conversion (113xxx, 144001, 150001) is followed by 50002 to 50009, which tells what could not be set.
// A file that DIRECT_FROM names is read each time.
[[nodiscard]] bool set_value(EvalContext &context, const Node &expression, RowHandle &row,
                             const Column &column);

// Sets column of row with a value that was computed before; pool lends what its conversion needs.
[[nodiscard]] bool set_computed(MemoryPool &pool, const Value &value, RowHandle &row, const Column &column);

}  // namespace tovik
