// The evaluator: computes expressions and conditions of a statement tree. The check pass, once per statement,
// binds column names, types and coerces literals, checks operand types and rewrites the tree in place; the
// evaluation pass, once per row, does no name look-up, no parsing of literals and no allocation but for new
// texts. Conditions are three-valued: a truth value is 1, 0 or -1 (unknown).
//
// Integer arithmetic is that of 64-bit two's complement: a result outside the range wraps around.
#pragma once

#include "data/function/builtin.h"
#include "platform/array.h"
#include "sql/evaluate/scope.h"

namespace tovik {

// Operands pass from node to node in the callers' frames; the stack holds the arguments of the function calls
// that are being computed, and is empty between two expressions.
struct ValueStack {
  Array<Value> values;
};

inline constexpr int value_stack_start = 64;

[[nodiscard]] bool value_stack_push(ValueStack &stack, const Value &value);  // 1

// A call of an aggregate function. It has an accumulator in every group of rows.
struct AggregateCall {
  const Node *node;
  int number;         // of the accumulator among those of a group
  Accumulator start;  // before the first row
  AggregateCall *next;
};

// Those in the expressions of a query, in the order of their check. They live in the pool.
struct AggregateCalls {
  AggregateCall *first, *last;
  int count;
};

// A group of rows after its last row, as expressions see it.
struct Group {
  const Accumulator *accumulators;
  const ColumnRef *keys;  // the columns in which its rows are equal
  const Value *values;    // of the keys
  int key_count;
};

// The value of a column in a group: NULL, unless it is a key.
void group_value(const Group &group, const ColumnRef &column, Value *value);

struct EvalContext {
  ValueStack *stack;
  MemoryPool *pool;
  TableAccess *tables;                   // FROM order; null for TEST_STMT and INSERT
  QueryScope *scope = nullptr;           // of these tables; null: no queries around, and none inside
  AggregateCalls *aggregates = nullptr;  // check pass: takes up aggregate calls; null: they are refused
  const Group *group = nullptr;          // evaluation pass: what is evaluated; null: a row
};

enum class CheckLabels { none, build };

// A further flag of checked values: the value's class is known in each row only, and may be another than the
// checked one (NVL).
inline constexpr uint16_t value_mixed = 32;

// Expressions inside expressions: operands to the right of an operator, and arguments. What only follows - a
// chain of operators, a row of signs or of NOT - counts once. A deeper tree is refused by its check with
// 150004; a subquery counts as subquery_levels. The walks over the deepest take 33 KiB of the thread's stack
// in an optimised build, 80 KiB in a plain one.
inline constexpr int expression_depth_limit = 300;
inline constexpr int subquery_levels = 30;

// Check pass over the tree under expression; *result (optional) tells type, flags and label of its value. A
// literal result is typed and carries its datum. The label is built for every expression, or with none only
// known for columns and literals (else null); it stays valid as long as the pool does. The tree may be
// checked once only. Statuses 50001, 50010, 50012, 50013, 150002 to 150008, 153xxx.
[[nodiscard]] bool expr_check(EvalContext &context, Node *expression, CheckLabels labels, Value *result);

// The condition that rows or groups must meet: a truth value, 150004 otherwise.
[[nodiscard]] bool condition_check(EvalContext &context, Node *condition);

// Evaluation pass over a checked tree. Texts in *result live in the tree, in the handles' records or in the
// pool. A column value keeps its own type in declared, a date-time result the type it is shown as. 150003 to
// 150006, 151001, 50010, 110002 and the statuses of functions and dates.
[[nodiscard]] bool expr_evaluate(EvalContext &context, const Node *expression, Value *result);

// Takes the row into the accumulators of its group: evaluates the calls' arguments.
[[nodiscard]] bool aggregates_add(EvalContext &context, const AggregateCalls &calls,
                                  Accumulator *accumulators);

// The text form of a value that is not NULL: a text or the bytes of a blob as they are, digits written into
// buffer (number_text_size bytes) for any other. 13001, 13002.
[[nodiscard]] bool value_text(const Value &value, char *buffer, TextRef *text);

inline Truth either(Truth left, Truth right) {
  if (left == Truth::yes || right == Truth::yes) return Truth::yes;
  return left == Truth::unknown ? left : right;
}

[[nodiscard]] bool condition_evaluate(EvalContext &context, const Node *condition, Truth *truth);
// Whether it is true; gives back what it needed from the pool.
[[nodiscard]] bool condition_met(EvalContext &context, const Node *condition, bool *met);

// left = right, or whichever comparison the kind of node tells. 150003.
[[nodiscard]] bool value_compare(uint16_t comparison, const Value &left, const Value &right, Truth *truth);

// The type in which values of a column are computed with.
TypeCode computing_type(TypeCode declared);

// A column by name among the tables in FROM order; table (alias or name) is null for an unqualified name.
// False with 150008, or 50001 without a name or tables.
[[nodiscard]] bool column_lookup(TableAccess *tables, const char *table, const char *name, ColumnRef *found);

}  // namespace tovik
