// The rules of nodes that have operands.
#include "sql/evaluate/check_rules.h"

namespace tovik {

namespace {

// Links the spine under top; its lowest node.
Node *link_spine(Node *top) {
  const Spine spine = spine_of(top->kind);
  Node *node = top;
  for (Node *below; (below = OperatorTree::of(*node).leading()) != nullptr && spine_of(below->kind) == spine;
       node = below)
    spine_link(*below, node);
  spine_link(*top, node);
  return node;
}

bool is_column(const Node *checked) {
  return checked->kind == value_kind::column;
}

// Can values of the two be compared?
bool check_classes(const Value &left, const Value &right) {
  return left.is_null() || right.is_null() || type_same_class(left.type, right.type) ||
         fail(status::not_comparable);
}

// Prepares the query under node, which is that query itself or holds it.
bool prepare_subquery(Check check, Node &node, const Node &query, SubqueryUse use, Value *column) {
  EvalContext &context = check.context;
  const SubqueryPlace place{query, use, check.depth + subquery_levels};
  Subquery *prepared = context.scope->ops->prepare(context, place, column);
  return prepared != nullptr && node_keep_subquery(*context.pool, node, prepared);
}

bool takes_subqueries(const EvalContext &context) {
  return context.scope != nullptr && context.scope->ops != nullptr;
}

// A subquery counts as an operand that cannot fail: it is not run for a row for which the rest of the
// condition has the result settled.
bool check_subquery(Check check, const Value &left, Node &node, SubqueryUse use, Value *result) {
  if (!takes_subqueries(check.context)) return fail(status::not_comparable);
  Value column;
  if (!prepare_subquery(check, node, *SubqueryTree::of(node).query, use, &column)) return false;
  set_truth(result, left.flags);
  return check_classes(left, column);
}

// Checks what is compared with left, whose check has been done.
bool check_compared(Check check, const Value &left, Node *right_node, Value *result) {
  if (right_node == nullptr) return fail(status::not_comparable);
  if (right_node->kind == node::subquery) {
    const bool one = SubqueryTree::of(*right_node).quantifier == Quantifier::none;
    return check_subquery(check, left, *right_node, one ? SubqueryUse::value : SubqueryUse::list, result);
  }
  if (left.kind == value_kind::column && is_literal_text(*right_node) && !coerce_literal(left, right_node))
    return false;
  Value right;
  if (!check_node(check, right_node, &right)) return false;
  set_truth(result, left.flags | right.flags);
  return check_classes(left, right);
}

}  // namespace

bool check_spine(Check check, Node *top, Value *result) {
  Node *node = link_spine(top);
  Node *leading = OperatorTree::of(*node).leading();
  if (leading != nullptr && node->kind == node::negation) take_negated(leading);
  if (!check_node(check, leading, result)) return false;
  Value right;
  for (;; node = spine_above(*node)) {
    const OperatorTree tree = OperatorTree::of(*node);
    if (!tree.is_unary() && !check_node(check, tree.right, &right)) return false;
    if (!check_operator(*node, *result, tree.is_unary() ? *result : right, result)) return false;
    if (node == top) return true;
  }
}

// An equality with a column of a query around has the query's own column on its left, where an index of it
// can be used.
bool check_comparison(Check check, Node *node, Value *result) {
  const OperatorTree tree = OperatorTree::of(*node);
  Value left;
  if (!check_node(check, tree.left, &left) || !check_compared(check, left, tree.right, result)) return false;
  if (node->kind == node::equal && is_column(tree.left) && is_column(tree.right) &&
      !own_column(check.context, tree.left->value->column) &&
      own_column(check.context, tree.right->value->column))
    operator_swap(*node);
  return true;
}

bool check_matching(Check check, Node *node, Value *result) {
  const MatchTree tree = MatchTree::of(*node);
  Value left, right;
  if (!check_node(check, tree.text, &left)) return false;
  if (left.kind == value_kind::column && left.type == type::character && is_number_text(*tree.pattern))
    take_as_string(tree.pattern);
  if (!check_node(check, tree.pattern, &right)) return false;
  set_truth(result, left.flags | right.flags);
  return true;
}

bool check_in(Check check, Node *node, Value *result) {
  const InTree tree = InTree::of(*node);
  Value left;
  if (!check_node(check, tree.tested, &left)) return false;
  if (tree.items == nullptr) return check_subquery(check, left, *tree.subquery, SubqueryUse::list, result);
  uint16_t flags = left.flags;
  for (const Node *item : chain(tree.items)) {
    Value compared;
    if (!check_compared(check, left, ValueItemTree::of(*item).value, &compared)) return false;
    flags |= compared.flags;
  }
  set_truth(result, flags);
  if ((flags & value_aggregate) == 0) node->flags |= node_stops_early;
  return true;
}

bool check_exists(Check check, Node *node, Value *result) {
  if (!takes_subqueries(check.context)) return fail(status::expr_operator);
  Value ignored;
  set_truth(result, 0);
  return prepare_subquery(check, *node, *node, SubqueryUse::existence, &ignored);
}

bool check_is_null(Check check, Node *node, Value *result) {
  Value operand;
  if (!check_node(check, IsNullTree::of(*node).operand, &operand)) return false;
  set_truth(result, operand.flags);
  return true;
}

// Both comparisons are truth values.
bool check_between(Check check, Node *node, Value *result) {
  const BetweenTree tree = BetweenTree::of(*node);
  Value lower, upper;
  if (!check_node(check, tree.lower, &lower) || !check_node(check, tree.upper, &upper)) return false;
  return check_logical(*node, lower, upper, result);
}

bool check_call(Check check, Node *node, Value *result) {
  const StackScope scope(*check.context.stack);
  uint16_t flags = 0;
  int count = 0;
  for (const Node *item = CallTree::of(*node).arguments; item != nullptr; item = node_next(*item), ++count) {
    if (count == builtin_argument_limit) return fail(status::too_many_arguments);
    if (!check_node(check, ValueItemTree::of(*item).value, result)) return false;
    if (!value_stack_push(*check.context.stack, *result)) return false;
    flags |= result->flags;
  }
  return check_function(check.context, node, scope.values(), count, flags, result);
}

}  // namespace tovik
