// The rules of nodes that have a value: operators and calls.
#include "frame/error.h"
#include "sql/evaluate/evaluate_rules.h"

namespace tovik {

bool evaluate_spine(Evaluation &evaluation, const Node *top, Value *result) {
  Value space;
  const Node *node = spine_lowest(*top);
  const Value *left = operand_of(evaluation, OperatorTree::of(*node).leading(), result);
  if (left == nullptr) return false;
  for (;; node = spine_above(*node), left = result) {
    const OperatorTree tree = OperatorTree::of(*node);
    const Value *right = tree.is_unary() ? left : operand_of(evaluation, tree.right, &space);
    if (right == nullptr || !compute(*node, *left, *right, result)) return false;
    if (node == top) return true;
  }
}

// Onto the value stack; computed into space.
static bool push_operand(Evaluation &evaluation, const Node *node, Value *space) {
  const Value *operand = operand_of(evaluation, node, space);
  return operand != nullptr && value_stack_push(*evaluation.context.stack, *operand);
}

// All operands of the chain are joined at once: no partial result takes room in the pool.
bool evaluate_concatenation(Evaluation &evaluation, const Node *top, Value *result) {
  const StackScope scope(*evaluation.context.stack);
  const Node *node = spine_lowest(*top);
  if (!push_operand(evaluation, OperatorTree::of(*node).left, result)) return false;
  for (int count = 2;; ++count, node = spine_above(*node)) {
    if (!push_operand(evaluation, OperatorTree::of(*node).right, result)) return false;
    if (node == top) return join_texts(*evaluation.context.pool, scope.values(), count, result);
  }
}

static bool call(Evaluation &evaluation, const Node &node, const Value *arguments, int count, Value *result) {
  *result = {};
  result->kind = value_kind::computed;
  const uint16_t function = CallTree::of(node).function;
  if (node.value->accumulator == nullptr)
    return builtin_evaluate(function, arguments, count, *evaluation.context.pool, *result);
  set_null(result, node.value->declared);
  return builtin_accumulate(function, arguments, count, *node.value->accumulator);
}

bool evaluate_call(Evaluation &evaluation, const Node *node, Value *result) {
  if (node->value->accumulator != nullptr && evaluation.mode == EvalMode::total) {
    *result = {};
    builtin_finish(CallTree::of(*node).function, *node->value->accumulator, *result);
    return true;
  }
  const StackScope scope(*evaluation.context.stack);
  int count = 0;
  for (const Node *item = CallTree::of(*node).arguments; item != nullptr; item = node_next(*item), ++count) {
    if (!push_operand(evaluation, ValueItemTree::of(*item).value, result)) return false;
  }
  return call(evaluation, *node, scope.values(), count, result);
}

}  // namespace tovik
