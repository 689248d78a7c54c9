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

// Onto the value stack, as which *count values lie there then.
static bool push_arguments(Evaluation &evaluation, const CallTree &call, Value *space, int *count) {
  *count = 0;
  for (const Node *item = call.arguments; item != nullptr; item = node_next(*item), ++*count)
    if (!push_operand(evaluation, ValueItemTree::of(*item).value, space)) return false;
  return true;
}

static bool evaluate_aggregate(const Evaluation &evaluation, const Node &node, Value *result) {
  const Group *group = evaluation.context.group;
  if (group == nullptr) return fail(status::expression_syntax);
  *result = {};
  builtin_finish(CallTree::of(node).function, group->accumulators[node.value->aggregate->number], *result);
  return true;
}

bool evaluate_call(Evaluation &evaluation, const Node *node, Value *result) {
  if (node->value->aggregate != nullptr) return evaluate_aggregate(evaluation, *node, result);
  const CallTree call = CallTree::of(*node);
  const StackScope scope(*evaluation.context.stack);
  int count;
  if (!push_arguments(evaluation, call, result, &count)) return false;
  *result = {};
  result->kind = value_kind::computed;
  return builtin_evaluate(call.function, scope.values(), count, *evaluation.context.pool, *result);
}

bool aggregates_add(EvalContext &context, const AggregateCalls &calls, Accumulator *accumulators) {
  Evaluation evaluation{context};
  for (const AggregateCall *each = calls.first; each != nullptr; each = each->next) {
    const CallTree call = CallTree::of(*each->node);
    const StackScope scope(*context.stack);
    Value space;
    int count;
    if (!push_arguments(evaluation, call, &space, &count) ||
        !builtin_accumulate(call.function, scope.values(), count, accumulators[each->number]))
      return false;
  }
  return true;
}

}  // namespace tovik
