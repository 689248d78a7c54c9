// The rules of nodes that have a truth value.
//
// Cost of a comparison of a column with a literal: one fetch of the column's value, one comparison.
#include "frame/error.h"
#include "sql/evaluate/evaluate_rules.h"

namespace tovik {

namespace {

// --- Truth values

Truth truth_of(bool holds) {
  return holds ? Truth::yes : Truth::no;
}

Truth both(Truth left, Truth right) {
  if (left == Truth::no || right == Truth::no) return Truth::no;
  return left == Truth::unknown ? left : right;
}

// --- Comparisons

// A date column is compared to the precision that it keeps.
TypeCode compared_type(const Value &value) {
  const bool date_column = value.kind == value_kind::column && (value.declared & TYPE_DATETIME) != 0;
  return date_column ? value.declared : value.type;
}

Truth meets(uint16_t kind, int order) {
  const int place = order < 0 ? 0 : order == 0 ? 1 : 2;
  return truth_of((orders_met[kind - node::equal] >> place & 1) != 0);
}

bool compare_in_class(uint16_t kind, const Value &left, const Value &right, Truth *truth) {
  if (!type_same_class(left.type, right.type)) return fail(status::not_comparable);
  int order;
  if (!compare_values(compared_type(left), value_datum(left), 0, compared_type(right), value_datum(right),
                      &order))
    return false;
  *truth = meets(kind, order);
  return true;
}

inline bool compare(uint16_t kind, const Value &left, const Value &right, Truth *truth) {
  if (left.is_null() || right.is_null()) {
    *truth = Truth::unknown;
    return true;
  }
  if ((left.type & right.type & TYPE_INTEGER) == 0) return compare_in_class(kind, left, right, truth);
  *truth = meets(kind, (left.integer > right.integer) - (left.integer < right.integer));
  return true;
}

// Calls take with the values of both operands.
template <class Take>
bool take_operands(Evaluation &evaluation, const Node *left_node, const Node *right_node, Take take) {
  const Operand left(evaluation, left_node);
  if (left.failed()) return false;
  const Operand right(evaluation, right_node);
  return !right.failed() && take(*left, *right);
}

// Two numbers match when they are equal.
bool match(uint16_t kind, const Value &text, const Value &pattern, bool *matches) {
  if (!type_numeric(text.type) || !type_numeric(pattern.type))
    return match_texts(kind, text, pattern, matches);
  const bool negated = kind == node::not_match || kind == node::not_smatch;
  Truth truth;
  if (!compare(negated ? node::not_equal : node::equal, text, pattern, &truth)) return false;
  *matches = truth == Truth::yes;
  return true;
}

// One of the comparisons of a BETWEEN, whose tested value is known.
bool compare_bound(Evaluation &evaluation, const Node &comparison, const Value &tested, Truth *truth) {
  const Operand bound(evaluation, OperatorTree::of(comparison).right);
  return !bound.failed() && compare(comparison.kind, tested, *bound, truth);
}

// Both comparisons hold the same tested expression, whose value is computed once.
bool evaluate_shared_between(Evaluation &evaluation, const BetweenTree &tree, Truth *above, Truth *below) {
  const Operand tested(evaluation, OperatorTree::of(*tree.lower).left);
  return !tested.failed() && compare_bound(evaluation, *tree.lower, *tested, above) &&
         compare_bound(evaluation, *tree.upper, *tested, below);
}

bool shares_tested(const BetweenTree &tree) {
  return node_is_comparison(tree.lower->kind) && node_is_comparison(tree.upper->kind) &&
         OperatorTree::of(*tree.lower).left == OperatorTree::of(*tree.upper).left;
}

// What the operator makes of the truth of its leading operand.
bool apply_logical(Evaluation &evaluation, const Node *node, Truth *truth) {
  if (node->kind == node::logical_not) {
    *truth = opposite(*truth);
    return true;
  }
  const bool conjunction = node->kind == node::logical_and;
  const Truth settled = conjunction ? Truth::no : Truth::yes;
  if (*truth == settled && (node->flags & node_stops_early) != 0) return true;
  Truth right;
  if (!evaluate_truth(evaluation, OperatorTree::of(*node).right, &right)) return false;
  *truth = conjunction ? both(*truth, right) : either(*truth, right);
  return true;
}

}  // namespace

bool evaluate_comparison(Evaluation &evaluation, const Node *node, Truth *truth) {
  const OperatorTree tree = OperatorTree::of(*node);
  if (tree.right->kind == node::subquery) return evaluate_subquery_comparison(evaluation, node, truth);
  return take_operands(evaluation, tree.left, tree.right, [&](const Value &left, const Value &right) {
    return compare(node->kind, left, right, truth);
  });
}

bool evaluate_matching(Evaluation &evaluation, const Node *node, Truth *truth) {
  const MatchTree tree = MatchTree::of(*node);
  return take_operands(evaluation, tree.text, tree.pattern, [&](const Value &text, const Value &pattern) {
    *truth = Truth::unknown;
    if (text.is_null() || pattern.is_null()) return true;
    bool matches;
    if (!match(node->kind, text, pattern, &matches)) return false;
    *truth = truth_of(matches != tree.negated);
    return true;
  });
}

bool evaluate_in(Evaluation &evaluation, const Node *node, Truth *truth) {
  const InTree tree = InTree::of(*node);
  if (tree.items == nullptr) return evaluate_in_subquery(evaluation, node, truth);
  const Operand tested(evaluation, tree.tested);
  if (tested.failed()) return false;
  const bool stops_early = (node->flags & node_stops_early) != 0;
  Truth found = Truth::no;
  for (const Node *item : chain(tree.items)) {
    const Operand value(evaluation, ValueItemTree::of(*item).value);
    Truth equal;
    if (value.failed() || !compare(node::equal, *tested, *value, &equal)) return false;
    if (equal == Truth::no || found == Truth::yes) continue;
    found = equal;
    if (found == Truth::yes && stops_early) break;
  }
  *truth = tree.negated ? opposite(found) : found;
  return true;
}

bool evaluate_is_null(Evaluation &evaluation, const Node *node, Truth *truth) {
  const IsNullTree tree = IsNullTree::of(*node);
  const Operand operand(evaluation, tree.operand);
  if (operand.failed()) return false;
  *truth = truth_of((*operand).is_null() != tree.negated);
  return true;
}

// An index may guarantee one of the comparisons.
bool evaluate_between(Evaluation &evaluation, const Node *node, Truth *truth) {
  const BetweenTree tree = BetweenTree::of(*node);
  Truth above, below;
  if (!(shares_tested(tree) ? evaluate_shared_between(evaluation, tree, &above, &below)
                            : evaluate_truth(evaluation, tree.lower, &above) &&
                                  evaluate_truth(evaluation, tree.upper, &below)))
    return false;
  const Truth within = both(above, below);
  *truth = tree.negated ? opposite(within) : within;
  return true;
}

// An index may guarantee the conjunction of two comparisons, which only the lowest node of a spine can be.
bool evaluate_logical(Evaluation &evaluation, const Node *top, Truth *truth) {
  const Node *node = spine_lowest(*top);
  const Node *leading = node->kind == node::always_true ? node : OperatorTree::of(*node).leading();
  if (!evaluate_truth(evaluation, leading, truth)) return false;
  if (leading == node) node = spine_above(*node);
  for (;; node = spine_above(*node)) {
    if (!apply_logical(evaluation, node, truth)) return false;
    if (node == top) return true;
  }
}

bool value_compare(uint16_t comparison, const Value &left, const Value &right, Truth *truth) {
  return compare(comparison, left, right, truth);
}

bool evaluate_condition(Evaluation &evaluation, const Node *node, Value *result) {
  Truth truth;
  if (!evaluate_truth(evaluation, node, &truth)) return false;
  set_number(result, int64_t{static_cast<int>(truth)}, 0);
  result->kind = value_kind::truth;
  return true;
}

}  // namespace tovik
