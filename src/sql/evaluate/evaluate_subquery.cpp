// The rules of conditions that test a subquery: what the quantifier, or NOT before IN, makes of the test that
// the layer above carries out. For all values a comparison holds unless its complement does for one of them.
#include "sql/evaluate/evaluate_rules.h"

namespace tovik {

namespace {

uint16_t complement(uint16_t comparison) {
  switch (comparison) {
    case node::equal:
      return node::not_equal;
    case node::not_equal:
      return node::equal;
    case node::less:
      return node::greater_equal;
    case node::greater:
      return node::less_equal;
    case node::less_equal:
      return node::greater;
    default:
      return node::less;
  }
}

bool test(Evaluation &evaluation, const Node &subquery, uint16_t comparison, const Value *tested,
          Truth *truth) {
  EvalContext &context = evaluation.context;
  return context.scope->ops->test(context, node_subquery(subquery), comparison, tested, truth);
}

}  // namespace

bool evaluate_subquery_comparison(Evaluation &evaluation, const Node *node, Truth *truth) {
  const OperatorTree tree = OperatorTree::of(*node);
  const bool all = SubqueryTree::of(*tree.right).quantifier == Quantifier::all;
  const Operand tested(evaluation, tree.left);
  if (tested.failed()) return false;
  if (!test(evaluation, *tree.right, all ? complement(node->kind) : node->kind, &*tested, truth))
    return false;
  if (all) *truth = opposite(*truth);
  return true;
}

bool evaluate_in_subquery(Evaluation &evaluation, const Node *node, Truth *truth) {
  const InTree tree = InTree::of(*node);
  const Operand tested(evaluation, tree.tested);
  if (tested.failed() || !test(evaluation, *tree.subquery, node::equal, &*tested, truth)) return false;
  if (tree.negated) *truth = opposite(*truth);
  return true;
}

bool evaluate_exists(Evaluation &evaluation, const Node *node, Truth *truth) {
  return test(evaluation, *node, node::equal, nullptr, truth);
}

}  // namespace tovik
