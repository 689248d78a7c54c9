// The evaluation pass: which rule evaluates a node, and the value of a column in its row.
#include <algorithm>

#include "frame/error.h"
#include "sql/evaluate/evaluate_rules.h"

namespace tovik {

static bool evaluate_column(Evaluation &evaluation, const Node *node, Value *result) {
  const Value &bound = *node->value;
  const Group *group = evaluation.context.group;
  if (group != nullptr && own_column(evaluation.context, bound.column)) {
    group_value(*group, bound.column, result);
  } else if (!row_handle_value(*bound.column.row, *bound.column.column, result)) {
    return false;
  }
  result->kind = value_kind::column;
  result->type = bound.type;  // the bytes of a blob count as text
  result->declared = bound.declared;
  result->label = nullptr;
  return true;
}

bool evaluate(Evaluation &evaluation, const Node *node, Value *result) {
  switch (node->kind) {
    case value_kind::column:
      return evaluate_column(evaluation, node, result);
    case value_kind::null:
      *result = null_value;
      return true;
    case value_kind::literal:
    case value_kind::string:
    case value_kind::date_literal:
    case node::file_name:
      *result = *node->value;
      return true;
    case node::concat:
      return evaluate_concatenation(evaluation, node, result);
    case node::function_call:
      return evaluate_call(evaluation, node, result);
    case node::column_name:
    case node::qualified_column:
      return fail(status::expression_syntax);  // never bound
    default:
      if (spine_of(node->kind) == Spine::value) return evaluate_spine(evaluation, node, result);
      return evaluate_condition(evaluation, node, result);
  }
}

bool evaluate_truth(Evaluation &evaluation, const Node *node, Truth *truth) {
  if (node_is_comparison(node->kind)) return evaluate_comparison(evaluation, node, truth);
  if (node_is_matching(node->kind)) return evaluate_matching(evaluation, node, truth);
  switch (node->kind) {
    case node::in:
      return evaluate_in(evaluation, node, truth);
    case node::is_null:
      return evaluate_is_null(evaluation, node, truth);
    case node::between:
      return evaluate_between(evaluation, node, truth);
    case node::query:
      return evaluate_exists(evaluation, node, truth);
    case node::logical_and:
    case node::logical_or:
    case node::logical_not:
      return evaluate_logical(evaluation, node, truth);
    case node::always_true:
      *truth = Truth::yes;
      return true;
    default:
      return fail(status::expr_operator);
  }
}

bool value_stack_push(ValueStack &stack, const Value &value) {
  return stack.values.push(value) || fail(status::out_of_memory);
}

void group_value(const Group &group, const ColumnRef &column, Value *value) {
  const ColumnRef *const end = group.keys + group.key_count, *key = std::find(group.keys, end, column);
  *value = key == end ? null_value : group.values[key - group.keys];
}

bool expr_evaluate(EvalContext &context, const Node *expression, Value *result) {
  Evaluation evaluation{context};
  return evaluate(evaluation, expression, result);
}

bool condition_evaluate(EvalContext &context, const Node *condition, Truth *truth) {
  Evaluation evaluation{context};
  return evaluate_truth(evaluation, condition, truth);
}

bool condition_met(EvalContext &context, const Node *condition, bool *met) {
  const PoolScope scope(*context.pool);
  Truth truth;
  if (!condition_evaluate(context, condition, &truth)) return false;
  *met = truth == Truth::yes;
  return true;
}

}  // namespace tovik
