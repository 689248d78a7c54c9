// What the sources of the check pass share. check_node only hands a node on to the rule of its kind; the
// rules go down to the operands by it, and leave what is known of the result to functions that go down no
// further. As in the evaluation pass each of the three stands in a source of its own, which keeps their
// frames apart.
//
// A rule checks its node's operands first and says in *result what the node's value will be like. Checking a
// node that was checked already changes nothing, because BETWEEN holds the tested expression under both of
// its comparisons.
#pragma once

#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"

namespace tovik {

// Of the values of this pass only: evaluating can fail, apart from lack of memory and a damaged database.
inline constexpr uint16_t value_can_fail = 0x8000;

// What a result takes over from its operands.
inline constexpr uint16_t inherited = value_aggregate | value_can_fail;

struct Check {  // passed in registers
  EvalContext &context;
  int depth;
};

bool check_node(Check check, Node *node, Value *result);

inline void set_result(Value *result, uint16_t kind, TypeCode type, uint16_t flags) {
  *result = {};
  result->kind = kind;
  result->type = type;
  result->flags = flags;
}

inline void set_truth(Value *result, uint16_t flags) {
  set_result(result, value_kind::truth, type::bigint, flags & inherited);
}

inline bool is_truth(const Value &value) {
  return value.kind == value_kind::truth || fail(status::expression_syntax);
}

// --- Rules

bool check_spine(Check check, Node *top, Value *result);
bool check_comparison(Check check, Node *node, Value *result);
bool check_matching(Check check, Node *node, Value *result);
bool check_in(Check check, Node *node, Value *result);
bool check_is_null(Check check, Node *node, Value *result);
bool check_between(Check check, Node *node, Value *result);
bool check_call(Check check, Node *node, Value *result);
bool check_exists(Check check, Node *node, Value *result);

// --- Leaves. A checked one holds in its value what the evaluation pass needs: the column, or the typed
// datum; the label of a literal is the text it was written as.

// A column by name, here or in a query around.
bool column_in_scope(EvalContext &context, const ColumnNameTree &name, ColumnRef *found);
bool bind_column(Check check, Node *node, Value *result);
bool check_string(Node *node, Value *result);
bool check_number(Node *node, Value *result);

inline bool is_literal_text(const Node &node) {
  return node.kind >= value_kind::string && node.kind <= value_kind::exponent_text;
}
inline bool is_number_text(const Node &node) {
  return node.kind >= value_kind::integer_text && node.kind <= value_kind::exponent_text;
}

void take_as_string(Node *node);

// What a negation stands before: the magnitude of the smallest integer, one more than the largest, is a
// literal there only.
void take_negated(Node *operand);

// A literal that is a date as it stands is read here; "now" and "today" are read when they are evaluated, and
// a text that is no date fails there.
void read_date_operand(Node *operand);

// Gives a literal the type of the column it is compared with.
bool coerce_literal(const Value &column, Node *literal);

// --- Results of checked operands; result may be left

// right of an operator with one operand is that operand.
bool check_operator(Node &node, const Value &left, const Value &right, Value *result);
bool check_logical(Node &node, const Value &left, const Value &right, Value *result);

// flags: what the arguments' values have together.
bool check_function(EvalContext &context, Node *node, const Value *arguments, int count, uint16_t flags,
                    Value *result);

}  // namespace tovik
