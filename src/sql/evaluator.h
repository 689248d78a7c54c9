// The evaluator: computes expressions and conditions of a statement tree. The check pass, once per statement,
// binds column names, types and coerces literals, checks operand types and rewrites the tree in place; the
// evaluation pass, once per row, does no name look-up, no parsing of literals and no allocation but for new
// texts. Conditions are three-valued: a truth value is 1, 0 or -1 (unknown).
#pragma once

#include "data/builtin.h"
#include "platform/array.h"
#include "sql/access.h"
#include "sql/tree.h"

namespace tovik {

struct ValueStack {
  Array<Value> values;
};

inline constexpr int value_stack_start = 64;

[[nodiscard]] bool value_stack_push(ValueStack &stack, const Value &value);  // 1
[[nodiscard]] bool value_stack_pop(ValueStack &stack, Value *value);         // 50011

struct EvalContext {
  ValueStack *stack;
  MemoryPool *pool;
  TableAccess *tables;  // FROM order; null for TEST_STMT and INSERT
};

enum class CheckLabels { none, build };

// Check pass over the tree under expression; *result (optional) tells type, flags and label of its value. A
// literal result is typed. The tree may be checked once only. Statuses 50001, 50012, 50013, 150002 to 150008,
// 153xxx.
[[nodiscard]] bool expr_check(EvalContext &context, Node *expression, CheckLabels labels, Value *result);
[[nodiscard]] bool condition_check(EvalContext &context, Node *condition);  // must be a truth value: 150004

enum class EvalMode {
  row,   // evaluates a row; an aggregate call folds the row into its accumulator
  total  // after the last row: aggregate calls give their final values
};

// Evaluation pass. Texts in *result live in the handles' records or in the pool. 151001, 50010, 150004 ...
[[nodiscard]] bool expr_evaluate(EvalContext &context, const Node *expression, EvalMode mode, Value *result);

enum class Truth : int { unknown = -1, no = 0, yes = 1 };
[[nodiscard]] bool condition_evaluate(EvalContext &context, const Node *condition, Truth *truth);

// A column by name among the tables in FROM order; table is null for an unqualified name. False with 150008
// (50001 without a name or tables).
[[nodiscard]] bool column_lookup(TableAccess *tables, const char *table, const char *name, ColumnRef *found,
                                 TableAccess **access);

}  // namespace tovik
