#include "api/record_tree.h"

#include "api/record.h"
#include "api/record_operand.h"
#include "sql/parse/shapes.h"

namespace tovik {

namespace {

// The caller's name without its fixed length: what fills it wholly is cut.
ColumnReference reference(const char (&name)[42]) {
  return ColumnReference(name);
}

Node *column_node(MemoryPool &pool, const char (&name)[42]) {
  const ColumnReference split = reference(name);
  const char *column = memory_pool_text(pool, split.column);
  if (column == nullptr) return nullptr;
  if (split.table == nullptr) return ColumnNameTree{nullptr, column}.make(pool);
  const char *table = memory_pool_text(pool, split.table);
  return table == nullptr ? nullptr : ColumnNameTree{table, column}.make(pool);
}

Node *literal_node(MemoryPool &pool, int type, const tovik_value &operand) {
  Value value;
  if (!operand_value(pool, type, operand, &value)) return nullptr;
  if ((value.type & TYPE_CHARACTER) != 0) return node_text(pool, value_kind::string, value.text.text);
  Node *literal = node_integers(pool, value_kind::literal, 0);
  if (literal == nullptr) return nullptr;
  if ((value.type & TYPE_DATETIME) != 0) literal->kind = value_kind::date_literal;
  value.kind = literal->kind;
  *literal->value = value;
  return literal;
}

// Column op literal.
Node *comparison_node(MemoryPool &pool, uint16_t op, Node *column, int type, const tovik_value &operand) {
  Node *literal = literal_node(pool, type, operand);
  return literal == nullptr ? nullptr : OperatorTree{column, literal}.make(pool, op);
}

Node *range_node(MemoryPool &pool, const tovik_cond &condition, Node *column) {
  const uint16_t above = condition.lower_inclusive != 0 ? node::greater_equal : node::greater;
  const uint16_t below = condition.upper_inclusive != 0 ? node::less_equal : node::less;
  Node *lower = comparison_node(pool, above, column, condition.type, condition.value);
  if (lower == nullptr) return nullptr;
  Node *upper = comparison_node(pool, below, column, condition.type, condition.upper);
  return upper == nullptr ? nullptr : BetweenTree{lower, upper, false}.make(pool);
}

bool is_predicate(int op) {
  return (op >= TOVIK_EQ && op <= TOVIK_GE) || op == TOVIK_MATCH || op == TOVIK_LIKE || op == TOVIK_RANGE;
}

// A condition on one column, or on two.
Node *predicate_node(MemoryPool &pool, const tovik_cond &condition) {
  if (!is_predicate(condition.op)) return fail_null(status::record_api_condition_operator);
  Node *column = column_node(pool, condition.column);
  if (column == nullptr) return nullptr;
  const uint16_t op = static_cast<uint16_t>(condition.op);
  if (condition.type == condition_two_columns) {
    Node *second = column_node(pool, condition.second_column);
    return second == nullptr ? nullptr : OperatorTree{column, second}.make(pool, op);
  }
  if (condition.type < operand_null || condition.type > TOVIK_DATETIME)
    return fail_null(status::record_api_operand_type);
  if (condition.type == operand_null) return IsNullTree{column, condition.op == TOVIK_NE}.make(pool);
  if (condition.op == TOVIK_RANGE) return range_node(pool, condition, column);
  return comparison_node(pool, op, column, condition.type, condition.value);
}

// Conditions in conditions; a ring of records ends here.
constexpr int chain_limit = 1000;

// Goes down the leading operands in a loop, into the others by calls: what the check of the tree bounds.
Node *tree(MemoryPool &pool, const tovik_cond *condition, int depth) {
  Node *top = nullptr, **place = &top;
  for (int chained = 0;; ++chained) {
    if (condition == nullptr) return fail_null(status::record_api_condition_operand);
    if (chained == chain_limit || depth > expression_depth_limit) return fail_null(status::expression_syntax);
    const bool junction = condition->op == TOVIK_AND || condition->op == TOVIK_OR;
    if (!junction && condition->op != TOVIK_NOT) break;
    Node *right = junction ? tree(pool, condition->right, depth + 1) : nullptr;
    if (junction && right == nullptr) return nullptr;
    Node *made = *place = OperatorTree{nullptr, right}.make(pool, static_cast<uint16_t>(condition->op));
    if (made == nullptr) return nullptr;
    place = OperatorTree::leading_place(*made, !junction);
    condition = junction ? condition->left : condition->right;
  }
  return (*place = predicate_node(pool, *condition)) == nullptr ? nullptr : top;
}

}  // namespace

Node *condition_tree(MemoryPool &pool, const tovik_cond &condition) {
  return tree(pool, &condition, 0);
}

bool order_keys(TableAccess *tables, const tovik_order &order, OrderKey *keys, int *count) {
  *count = 0;
  if (order.count < 1 || order.count > record_order_limit) return fail(status::record_api_sort_count);
  for (int i = 0; i < order.count; ++i) {
    const ColumnReference name = reference(order.column[i]);
    OrderKey key;
    if (!column_lookup(tables, name.table, name.column, &key.column)) return false;
    key.direction = order.descending[i] != 0 ? SortDirection::descending : SortDirection::ascending;
    if (!sort_add_key(keys, count, key)) return false;
  }
  return true;
}

}  // namespace tovik
