// What is known of a result when its operands have been checked.
#include "sql/evaluate/check_rules.h"

namespace tovik {

namespace {

bool numeric_or_null(const Value &value) {
  return value.is_null() || type_numeric(value.type);
}
bool date_like_or_null(const Value &value) {
  return value.is_null() || (value.type & (TYPE_CHARACTER | TYPE_DATETIME)) != 0;
}

// --- Operators of values

bool check_negation(const Value &operand, Value *result) {
  if (!numeric_or_null(operand)) return fail(status::not_numeric);
  set_result(result, value_kind::computed, operand.type,
             operand.flags & (inherited | value_null | value_decimal | value_mixed));
  return true;
}

bool check_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  if (!numeric_or_null(left) || !numeric_or_null(right)) return fail(status::not_numeric);
  const bool integer = (left.type & right.type & TYPE_INTEGER) != 0;
  const bool divides = node.kind == node::divide || node.kind == node::remainder;
  uint16_t flags = (left.flags | right.flags) & (inherited | value_null | value_mixed);
  flags |= left.flags & value_decimal;
  if (divides) flags |= value_can_fail;
  set_result(result, value_kind::computed, integer ? type::bigint : type::float64, flags);
  return true;
}

bool check_concatenation(const Value &left, const Value &right, Value *result) {
  if ((!left.is_null() && type_numeric(left.type)) || (!right.is_null() && type_numeric(right.type)))
    return fail(status::not_concatenable);
  set_result(result, value_kind::computed, type::character,
             ((left.flags | right.flags) & inherited) | (left.flags & right.flags & value_null));
  return true;
}

bool check_date_part(const Node &node, const Value &operand, Value *result) {
  if (!date_like_or_null(operand)) return fail(status::not_numeric);
  read_date_operand(OperatorTree::of(node).right);
  set_result(result, value_kind::computed, type::bigint,
             (operand.flags & (inherited | value_null)) | value_can_fail);
  return true;
}

bool check_date_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  if (!date_like_or_null(left) || !numeric_or_null(right)) return fail(status::not_numeric);
  read_date_operand(DateTree::of(node).date);
  set_result(result, value_kind::computed, type::microtimestamp,
             ((left.flags | right.flags) & (inherited | value_null)) | value_can_fail);
  result->declared = type::microtimestamp;
  return true;
}

// --- Function calls

// An aggregate call has its value in a group of rows only. BETWEEN checks what it tests twice.
bool take_up_aggregate(EvalContext &context, Node *node, const Value *arguments, int count) {
  if (context.aggregates == nullptr) return fail(status::expression_syntax);
  if (node->value->aggregate != nullptr) return true;
  AggregateCall *call = memory_pool_new<AggregateCall>(*context.pool);
  if (call == nullptr || !builtin_start(CallTree::of(*node).function, arguments, count, call->start))
    return false;
  AggregateCalls &calls = *context.aggregates;
  call->node = node;
  call->number = calls.count++;
  (calls.last == nullptr ? calls.first : calls.last->next) = call;
  calls.last = node->value->aggregate = call;
  return true;
}

// Of two classes, so that it matters in each row which of them NVL chooses.
bool differ(const Value &a, const Value &b) {
  if (a.is_null() || b.is_null()) return false;
  const TypeCode shown_a = a.declared != 0 ? a.declared : a.type,
                 shown_b = b.declared != 0 ? b.declared : b.type;
  if (datum_kind(a.type) != datum_kind(b.type)) return true;
  return shown_a != shown_b && ((shown_a | shown_b) & (TYPE_BINARY | TYPE_DATETIME)) != 0;
}

}  // namespace

bool check_logical(Node &node, const Value &left, const Value &right, Value *result) {
  if (!is_truth(left) || !is_truth(right)) return false;
  if ((right.flags & (value_aggregate | value_can_fail)) == 0) node.flags |= node_stops_early;
  set_truth(result, left.flags | right.flags);
  return true;
}

bool check_operator(Node &node, const Value &left, const Value &right, Value *result) {
  switch (node.kind) {
    case node::negation:
      return check_negation(left, result);
    case node::concat:
      return check_concatenation(left, right, result);
    case node::date_add:
    case node::date_subtract:
      return check_date_arithmetic(node, left, right, result);
    case node::logical_and:
    case node::logical_or:
      return check_logical(node, left, right, result);
    case node::logical_not:
      set_truth(result, left.flags);
      return is_truth(left);
    default:
      return node_is_date_part(node.kind) ? check_date_part(node, left, result)
                                          : check_arithmetic(node, left, right, result);
  }
}

bool check_function(EvalContext &context, Node *node, const Value *arguments, int count, uint16_t flags,
                    Value *result) {
  const CallTree tree = CallTree::of(*node);
  set_result(result, value_kind::computed, 0, 0);
  if (!builtin_prepare(tree.function, arguments, count, *result)) return false;
  const BuiltinRow &row = *builtin_row(tree.function);
  if (row.category == BuiltinCategory::aggregate) {
    if ((flags & value_aggregate) != 0)
      return fail(status::expression_syntax);  // known after the last row only
    if (!take_up_aggregate(context, node, arguments, count)) return false;
  }
  if (row.number == builtin::nvl && differ(arguments[0], arguments[1])) {
    flags |= value_mixed;
    if (type_numeric(arguments[0].type) && type_numeric(arguments[1].type)) {  // a real number holds either
      result->type = type::float64;
      result->declared = 0;
    }
  }
  result->flags |= (flags & inherited) | value_can_fail;
  if (row.result == 0) result->flags |= flags & value_mixed;
  node->value->declared = result->type;
  return true;
}

}  // namespace tovik
