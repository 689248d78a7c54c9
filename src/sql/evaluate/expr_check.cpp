// The check pass. Each function checks one kind of node, its operands first, and says in *result what the
// node's value will be like; the rule of an operator finds its leading operand's value there. Checking a node
// that was checked already changes nothing, because BETWEEN holds the tested expression under both of its
// comparisons.
//
// A checked leaf holds in its value what the evaluation pass needs: the column, or the typed datum; the label
// of a literal is the text it was written as.
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/literal.h"
#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"

namespace tovik {

namespace {

// Of the values of this pass only: evaluating can fail, apart from lack of memory and a damaged database.
constexpr uint16_t value_can_fail = 0x8000;

// What a result takes over from its operands.
constexpr uint16_t inherited = value_aggregate | value_distinct | value_can_fail;

struct Check {  // passed in registers
  EvalContext &context;
  int depth;
};

bool check_node(Check check, Node *node, Value *result);

bool numeric_or_null(const Value &value) {
  return value.is_null() || type_numeric(value.type);
}
bool date_like_or_null(const Value &value) {
  return value.is_null() || (value.type & (TYPE_CHARACTER | TYPE_DATETIME)) != 0;
}

void set_result(Value *result, uint16_t kind, TypeCode type, uint16_t flags) {
  *result = {};
  result->kind = kind;
  result->type = type;
  result->flags = flags;
}

void set_truth(Value *result, uint16_t flags) {
  set_result(result, value_kind::truth, type::bigint, flags & inherited);
}

// --- Leaves

TypeCode computing_type(TypeCode column_type) {
  if ((column_type & TYPE_INTEGER) != 0) return type::bigint;
  if ((column_type & TYPE_FLOAT) != 0) return type::float64;
  if ((column_type & TYPE_DATETIME) != 0) return type::microtimestamp;
  return type::character;
}

TOVIK_OWN_FRAME bool bind_column(Check check, Node *node, Value *result) {
  if (node->value == nullptr) return fail(status::expr_argument);
  const ColumnNameTree name = ColumnNameTree::of(*node);
  ColumnRef found;
  if (!column_lookup(check.context.tables, name.table, name.column, &found)) return false;
  Value &leaf = *node->value;
  set_result(&leaf, value_kind::column, computing_type(found.column->type), 0);
  leaf.declared = found.column->type;
  leaf.column = found;
  leaf.label = found.column->name;
  node->kind = value_kind::column;
  *result = leaf;
  return true;
}

TOVIK_OWN_FRAME void take_as_string(Node *node) {
  Value &leaf = *node->value;
  const char *text = leaf.texts[0];
  set_result(&leaf, value_kind::string, type::character, 0);
  leaf.text = {text, static_cast<int32_t>(strlen(text))};
  leaf.label = text;
  node->kind = value_kind::string;
}

TOVIK_OWN_FRAME bool check_string(Node *node, Value *result) {
  take_as_string(node);
  *result = *node->value;
  return true;
}

// Reads the literal's text as a value of the type and makes it a typed literal of that kind; false when it
// cannot be read, with nothing recorded.
bool read_literal(Node *node, TypeCode type, uint16_t kind) {
  Value &leaf = *node->value;
  const char *text = leaf.texts[0];
  Value read;
  set_result(&read, kind, type, 0);
  if (!parse_literal(type, text, false, &read.integer)) return false;
  read.label = text;
  leaf = read;
  node->kind = kind;
  return true;
}

TOVIK_OWN_FRAME bool check_number(Node *node, Value *result) {
  const bool integer = node->kind == value_kind::integer_text;
  const bool decimal = node->kind == value_kind::decimal_text;
  if (!read_literal(node, integer ? type::bigint : type::float64, value_kind::literal))
    return fail(status::literal_invalid);
  if (decimal) node->value->flags |= value_decimal;
  *result = *node->value;
  return true;
}

bool is_literal_text(const Node &node) {
  return node.kind >= value_kind::string && node.kind <= value_kind::exponent_text;
}
bool is_number_text(const Node &node) {
  return node.kind >= value_kind::integer_text && node.kind <= value_kind::exponent_text;
}

// --- Operators of values

// The magnitude of the smallest integer is one more than the largest: it is a literal under a negation only.
bool is_smallest_integer(const Node &operand) {
  return operand.kind == value_kind::integer_text &&
         strcmp(operand.value->texts[0], "9223372036854775808") == 0;
}

void take_as_smallest_integer(Node &operand) {
  Value &leaf = *operand.value;
  const char *text = leaf.texts[0];
  set_result(&leaf, value_kind::literal, type::bigint, 0);
  leaf.integer = INT64_MIN;  // its own negative
  leaf.label = text;
  operand.kind = value_kind::literal;
}

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

// A literal that is a date as it stands is read here; "now" and "today" are read when they are evaluated, and
// a text that is no date fails there.
void read_date_operand(Node *operand) {
  if (operand->kind != value_kind::string) return;
  const char first = *operand->value->text.text;
  if (first >= '0' && first <= '9')
    (void)read_literal(operand, type::microtimestamp, value_kind::date_literal);
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

bool is_truth(const Value &value) {
  return value.kind == value_kind::truth || fail(status::expression_syntax);
}

bool check_logical(Node &node, const Value &left, const Value &right, Value *result) {
  if (!is_truth(left) || !is_truth(right)) return false;
  if ((right.flags & (value_aggregate | value_can_fail)) == 0) node.flags |= node_stops_early;
  set_truth(result, left.flags | right.flags);
  return true;
}

// right of an operator with one operand is that operand; result may be left.
TOVIK_OWN_FRAME bool check_operator(Node &node, const Value &left, const Value &right, Value *result) {
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

TOVIK_OWN_FRAME bool check_spine(Check check, Node *top, Value *result) {
  Node *node = link_spine(top);
  Node *leading = OperatorTree::of(*node).leading();
  if (leading != nullptr && node->kind == node::negation && is_smallest_integer(*leading))
    take_as_smallest_integer(*leading);
  if (!check_node(check, leading, result)) return false;
  Value right;
  for (;; node = spine_above(*node)) {
    const OperatorTree tree = OperatorTree::of(*node);
    if (!tree.is_unary() && !check_node(check, tree.right, &right)) return false;
    if (!check_operator(*node, *result, tree.is_unary() ? *result : right, result)) return false;
    if (node == top) return true;
  }
}

// --- Conditions

// Gives a literal the type of the column it is compared with.
bool coerce_literal(const Value &column, Node *literal) {
  switch (column.type) {
    case type::microtimestamp:
      if (literal->kind != value_kind::integer_text && literal->kind != value_kind::string) return true;
      return read_literal(literal, type::microtimestamp, value_kind::date_literal) ||
             fail(status::literal_invalid);
    case type::character:
      if (is_number_text(*literal)) take_as_string(literal);
      return true;
    default:  // when it is no number, the class test fails
      if (literal->kind == value_kind::string) (void)read_literal(literal, column.type, value_kind::literal);
      return true;
  }
}

// Checks what is compared with left, whose check has been done.
TOVIK_OWN_FRAME bool check_compared(Check check, const Value &left, Node *right_node, Value *result) {
  if (right_node == nullptr || right_node->kind == node::subquery) return fail(status::not_comparable);
  if (left.kind == value_kind::column && is_literal_text(*right_node) && !coerce_literal(left, right_node))
    return false;
  Value right;
  if (!check_node(check, right_node, &right)) return false;
  if (!left.is_null() && !right.is_null() && !type_same_class(left.type, right.type))
    return fail(status::not_comparable);
  set_truth(result, left.flags | right.flags);
  return true;
}

TOVIK_OWN_FRAME bool check_comparison(Check check, Node *node, Value *result) {
  const OperatorTree tree = OperatorTree::of(*node);
  Value left;
  return check_node(check, tree.left, &left) && check_compared(check, left, tree.right, result);
}

TOVIK_OWN_FRAME bool check_matching(Check check, Node *node, Value *result) {
  const MatchTree tree = MatchTree::of(*node);
  Value left, right;
  if (!check_node(check, tree.text, &left)) return false;
  if (left.kind == value_kind::column && left.type == type::character && is_number_text(*tree.pattern))
    take_as_string(tree.pattern);
  if (!check_node(check, tree.pattern, &right)) return false;
  set_truth(result, left.flags | right.flags);
  return true;
}

TOVIK_OWN_FRAME bool check_in(Check check, Node *node, Value *result) {
  const InTree tree = InTree::of(*node);
  Value left;
  if (!check_node(check, tree.tested, &left)) return false;
  if (tree.items == nullptr) return fail(status::not_comparable);  // a subquery
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

TOVIK_OWN_FRAME bool check_is_null(Check check, Node *node, Value *result) {
  Value operand;
  if (!check_node(check, IsNullTree::of(*node).operand, &operand)) return false;
  set_truth(result, operand.flags);
  return true;
}

// Both comparisons are truth values.
TOVIK_OWN_FRAME bool check_between(Check check, Node *node, Value *result) {
  const BetweenTree tree = BetweenTree::of(*node);
  Value lower, upper;
  if (!check_node(check, tree.lower, &lower) || !check_node(check, tree.upper, &upper)) return false;
  return check_logical(*node, lower, upper, result);
}

// --- Function calls

// An aggregate call keeps its state over the rows of the query.
bool start_aggregate(EvalContext &context, Node *node, const Value *arguments, int count) {
  Value &leaf = *node->value;
  if (leaf.accumulator == nullptr) leaf.accumulator = memory_pool_new<Accumulator>(*context.pool);
  return leaf.accumulator != nullptr &&
         builtin_start(CallTree::of(*node).function, arguments, count, *leaf.accumulator);
}

// Of two classes, so that it matters in each row which of them NVL chooses.
bool differ(const Value &a, const Value &b) {
  if (a.is_null() || b.is_null()) return false;
  const TypeCode shown_a = a.declared != 0 ? a.declared : a.type,
                 shown_b = b.declared != 0 ? b.declared : b.type;
  if (datum_kind(a.type) != datum_kind(b.type)) return true;
  return shown_a != shown_b && ((shown_a | shown_b) & (TYPE_BINARY | TYPE_DATETIME)) != 0;
}

// flags: what the arguments' values have together.
TOVIK_OWN_FRAME bool check_function(EvalContext &context, Node *node, const Value *arguments, int count,
                                    uint16_t flags, Value *result) {
  const CallTree tree = CallTree::of(*node);
  set_result(result, value_kind::computed, 0, 0);
  if (!builtin_prepare(tree.function, arguments, count, *result)) return false;
  const BuiltinRow &row = *builtin_row(tree.function);
  if (row.category == BuiltinCategory::aggregate) {
    if ((flags & value_aggregate) != 0)
      return fail(status::expression_syntax);  // known after the last row only
    if (!start_aggregate(context, node, arguments, count)) return false;
    if (tree.distinct) flags |= value_distinct;
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

TOVIK_OWN_FRAME bool check_call(Check check, Node *node, Value *result) {
  const StackScope scope(*check.context.stack);
  uint16_t flags = 0;
  int count = 0;
  for (const Node *item : chain(CallTree::of(*node).arguments)) {
    if (count == builtin_argument_limit) return fail(status::too_many_arguments);
    if (!check_node(check, ValueItemTree::of(*item).value, result)) return false;
    if (!value_stack_push(*check.context.stack, *result)) return false;
    flags |= result->flags;
    ++count;
  }
  return check_function(check.context, node, scope.values(), count, flags, result);
}

// Only hands on, so that the compiler can let the called function take over the frame.
bool check_node(Check check, Node *node, Value *result) {
  if (node == nullptr || check.depth == expression_depth_limit) return fail(status::expression_syntax);
  ++check.depth;
  switch (node->kind) {
    case node::column_name:
    case node::qualified_column:
      return bind_column(check, node, result);
    case value_kind::column:
    case value_kind::literal:
    case value_kind::date_literal:
      *result = *node->value;
      return true;
    case value_kind::null:
      set_result(result, value_kind::null, 0, value_null);
      return true;
    case value_kind::string:
      return check_string(node, result);
    case value_kind::integer_text:
    case value_kind::decimal_text:
    case value_kind::exponent_text:
      return check_number(node, result);
    case node::in:
      return check_in(check, node, result);
    case node::is_null:
      return check_is_null(check, node, result);
    case node::between:
      return check_between(check, node, result);
    case node::always_true:
      set_truth(result, 0);
      return true;
    case node::function_call:
      return check_call(check, node, result);
    default:
      if (spine_of(node->kind) != Spine::none) return check_spine(check, node, result);
      if (node_is_comparison(node->kind)) return check_comparison(check, node, result);
      if (node_is_matching(node->kind)) return check_matching(check, node, result);
      return fail(status::expr_operator);
  }
}

bool same_text(const char *a, const char *b) {
  return a != nullptr && strcmp(a, b) == 0;
}

// The first of the tables that match tells yes for and that has the column.
template <class Matches>
bool find_column(const TableAccess *tables, const char *name, Matches matches, ColumnRef *found) {
  for (const TableAccess *each = tables; each != nullptr; each = each->next) {
    if (!matches(*each)) continue;
    const Column *column = table_find_column(*each->handle->table, name);
    if (column == nullptr) continue;
    *found = {column, each->handle};
    return true;
  }
  return false;
}

}  // namespace

bool column_lookup(TableAccess *tables, const char *table, const char *name, ColumnRef *found) {
  if (tables == nullptr || name == nullptr || *name == '\0') return fail(status::expr_argument);
  const auto any = [](const TableAccess &) { return true; };
  const auto by_alias = [table](const TableAccess &each) { return same_text(each.alias, table); };
  const auto by_name = [table](const TableAccess &each) {
    return same_text(each.handle->table->name, table);
  };
  const bool known = table == nullptr ? find_column(tables, name, any, found)
                                      : find_column(tables, name, by_alias, found) ||
                                            find_column(tables, name, by_name, found);
  return known || fail(status::no_such_column);
}

bool expr_check(EvalContext &context, Node *expression, CheckLabels labels, Value *result) {
  const Check check{context, 0};
  Value value;
  if (!check_node(check, expression, &value)) return false;
  value.flags &= static_cast<uint16_t>(~value_can_fail);
  if (labels == CheckLabels::build) {
    value.label = expr_label(*context.pool, expression);
    if (value.label == nullptr) return false;
  }
  if (result != nullptr) *result = value;
  return true;
}

bool condition_check(EvalContext &context, Node *condition) {
  const Check check{context, 0};
  Value value;
  if (!check_node(check, condition, &value) || !is_truth(value)) return false;
  return (value.flags & value_aggregate) == 0 || fail(status::expression_syntax);
}

}  // namespace tovik
