// The evaluation pass. A node's value goes into the caller's Value; conditions give a Truth. An operand that
// is a literal is used where it lies in the tree.
//
// Cost of a comparison of a column with a literal: one fetch of the column's value, one comparison. Recursion
// takes the stack that evaluator.h tells, with one or two frames of about 100 bytes for each level.
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "sql/evaluate/expr_internal.h"
#include "sql/evaluate/pattern.h"

namespace tovik {

namespace {

struct Evaluation {
  EvalContext &context;
  EvalMode mode;
};

bool evaluate(Evaluation &evaluation, const Node *node, Value *result);
bool evaluate_truth(Evaluation &evaluation, const Node *node, Truth *truth);

constexpr Value null_value{value_kind::null, 0, 0, value_null, {}, nullptr};

// The value of a node: in the tree when it is a literal, else computed into space. Null on failure.
const Value *operand_of(Evaluation &evaluation, const Node *node, Value *space) {
  switch (node->kind) {
    case value_kind::literal:
    case value_kind::string:
    case value_kind::date_literal:
      return node->value;
    case value_kind::null:
      return &null_value;
    default:
      return evaluate(evaluation, node, space) ? space : nullptr;
  }
}

void set_null(Value *result, TypeCode type) {
  *result = null_value;
  result->kind = value_kind::computed;
  result->type = type;
}

void set_computed(Value *result, TypeCode type, uint16_t flags) {
  result->kind = value_kind::computed;
  result->type = type;
  result->declared = 0;
  result->flags = flags;
  result->label = nullptr;
}

void set_integer(Value *result, int64_t integer, uint16_t flags) {
  set_computed(result, type::bigint, flags);
  result->integer = integer;
}

void set_real(Value *result, double real, uint16_t flags) {
  set_computed(result, type::float64, flags);
  result->real = real;
}

double as_double(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? static_cast<double>(value.integer) : value.real;
}

int64_t as_integer(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? value.integer : double_to_integer(value.real);
}

// --- Arithmetic

int64_t wrap(uint64_t bits) {
  return static_cast<int64_t>(bits);
}

bool compute_integers(uint16_t kind, int64_t left, int64_t right, int64_t *result) {
  const uint64_t a = static_cast<uint64_t>(left), b = static_cast<uint64_t>(right);
  switch (kind) {
    case node::add:
      *result = wrap(a + b);
      return true;
    case node::subtract:
      *result = wrap(a - b);
      return true;
    case node::multiply:
      *result = wrap(a * b);
      return true;
    default:
      if (right == 0) return fail(status::division_by_zero);
      if (right == -1) {  // the quotient of the smallest integer wraps
        *result = kind == node::divide ? wrap(0 - a) : 0;
      } else {
        *result = kind == node::divide ? left / right : left % right;
      }
      return true;
  }
}

// a - b x t, where t is the quotient as a 32-bit integer; a quotient outside of that range becomes its lowest
// number.
double remainder_of(double a, double b) {
  const double quotient = a / b;
  const bool in_range = quotient > -2147483649.0 && quotient < 2147483648.0;
  return a - b * (in_range ? static_cast<int32_t>(quotient) : INT32_MIN);
}

bool compute_reals(uint16_t kind, double left, double right, double *result) {
  switch (kind) {
    case node::add:
      *result = left + right;
      return true;
    case node::subtract:
      *result = left - right;
      return true;
    case node::multiply:
      *result = left * right;
      return true;
    default:
      if (right == 0.0) return fail(status::division_by_zero);
      *result = kind == node::divide ? left / right : remainder_of(left, right);
      return true;
  }
}

// result may be left itself, here and below.
bool compute_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  const uint16_t flags = left.flags & value_decimal;
  const bool integers = (left.type & right.type & TYPE_INTEGER) != 0;
  if (left.is_null() || right.is_null()) {
    set_null(result, integers ? type::bigint : type::float64);
    return true;
  }
  if (integers) {
    int64_t computed;
    if (!compute_integers(node.kind, left.integer, right.integer, &computed)) return false;
    set_integer(result, computed, flags);
    return true;
  }
  if (!type_numeric(left.type) || !type_numeric(right.type)) return fail(status::not_numeric);
  double computed;
  if (!compute_reals(node.kind, as_double(left), as_double(right), &computed)) return false;
  set_real(result, computed, flags);
  return true;
}

bool compute_negation(const Value &operand, Value *result) {
  const uint16_t flags = operand.flags & value_decimal;
  if (operand.is_null()) {
    set_null(result, operand.type);
  } else if ((operand.type & TYPE_INTEGER) != 0) {
    set_integer(result, wrap(0 - static_cast<uint64_t>(operand.integer)), flags);
  } else if (type_numeric(operand.type)) {
    set_real(result, -operand.real, flags);
  } else {
    return fail(status::not_numeric);
  }
  return true;
}

// --- Texts

// Calls take for the text of each of the values, leaving NULLs out.
template <class Take>
bool each_text(const Value *values, int count, Take take) {
  for (const Value *value = values; value != values + count; ++value) {
    if (value->is_null()) continue;
    if (type_numeric(value->type)) return fail(status::not_concatenable);
    char buffer[number_text_size];
    TextRef text;
    if (!value_text(*value, buffer, &text)) return false;
    take(text);
  }
  return true;
}

TOVIK_OWN_FRAME bool join(MemoryPool &pool, const Value *values, int count, Value *result) {
  int64_t length = 0;
  bool null = true;
  const auto measure = [&](const TextRef &text) {
    length += text.length;
    null = false;
  };
  if (!each_text(values, count, measure)) return false;
  if (null) {
    set_null(result, type::character);
    return true;
  }
  char *joined = static_cast<char *>(memory_pool_alloc(pool, length + 1));
  if (joined == nullptr) return false;
  char *end = joined;
  const auto append = [&end](const TextRef &text) {
    memcpy(end, text.text, static_cast<size_t>(text.length));
    end += text.length;
  };
  if (!each_text(values, count, append)) return false;
  *end = '\0';
  set_computed(result, type::character, 0);
  result->text = {joined, static_cast<int32_t>(length)};
  return true;
}

// --- Dates

bool as_datetime(const Value &value, DateTimeRec *record) {
  if ((value.type & TYPE_CHARACTER) != 0)
    return parse_datetime(type::microtimestamp, value.text.text, true, record);
  *record = value.datetime;
  return (value.type & TYPE_DATETIME) != 0 || fail(status::not_numeric);
}

bool compute_date_part(const Node &node, const Value &operand, Value *result) {
  if (operand.is_null()) {
    set_null(result, type::bigint);
    return true;
  }
  DateTimeRec record{};
  if (!as_datetime(operand, &record)) return false;
  set_integer(result, datetime_part(record, node.kind), 0);
  return true;
}

bool compute_date_arithmetic(const Node &node, const Value &left, const Value &right, Value *result) {
  if (left.is_null() || right.is_null()) {
    set_null(result, type::microtimestamp);
    return true;
  }
  if (!type_numeric(right.type)) return fail(status::not_numeric);
  DateTimeRec record{}, moved{};
  if (!as_datetime(left, &record)) return false;
  int64_t amount = as_integer(right);
  if (node.kind == node::date_subtract) amount = amount == INT64_MIN ? INT64_MAX : -amount;
  if (!datetime_add(record, amount, DateTree::of(node).unit, &moved)) return false;
  set_computed(result, type::microtimestamp, 0);
  result->declared = type::microtimestamp;
  result->datetime = moved;
  return true;
}

// --- Spines of values

// right of an operator with one operand is that operand.
TOVIK_OWN_FRAME bool compute(const Node &node, const Value &left, const Value &right, Value *result) {
  if (node_is_arithmetic(node.kind)) return compute_arithmetic(node, left, right, result);
  if (node.kind == node::negation) return compute_negation(left, result);
  if (node_is_date_part(node.kind)) return compute_date_part(node, left, result);
  return compute_date_arithmetic(node, left, right, result);
}

TOVIK_OWN_FRAME bool evaluate_spine(Evaluation &evaluation, const Node *top, Value *result) {
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
bool push_operand(Evaluation &evaluation, const Node *node, Value *space) {
  const Value *operand = operand_of(evaluation, node, space);
  return operand != nullptr && value_stack_push(*evaluation.context.stack, *operand);
}

// All operands of the chain are joined at once: no partial result takes room in the pool.
TOVIK_OWN_FRAME bool evaluate_concatenation(Evaluation &evaluation, const Node *top, Value *result) {
  const StackScope scope(*evaluation.context.stack);
  const Node *node = spine_lowest(*top);
  if (!push_operand(evaluation, OperatorTree::of(*node).left, result)) return false;
  for (int count = 2;; ++count, node = spine_above(*node)) {
    if (!push_operand(evaluation, OperatorTree::of(*node).right, result)) return false;
    if (node == top) return join(*evaluation.context.pool, scope.values(), count, result);
  }
}

// --- Columns and calls

bool evaluate_column(Evaluation &evaluation, const Node *node, Value *result) {
  const Value &bound = *node->value;
  if (evaluation.mode == EvalMode::total) {
    set_null(result, bound.type);
    return true;
  }
  if (!row_handle_value(*bound.column.row, *bound.column.column, result)) return false;
  result->kind = value_kind::column;
  result->type = bound.type;  // the bytes of a blob count as text
  result->declared = bound.declared;
  result->label = nullptr;
  return true;
}

TOVIK_OWN_FRAME bool call(Evaluation &evaluation, const Node &node, const Value *arguments, int count,
                          Value *result) {
  *result = {};
  result->kind = value_kind::computed;
  const uint16_t function = CallTree::of(node).function;
  if (node.value->accumulator == nullptr)
    return builtin_evaluate(function, arguments, count, *evaluation.context.pool, *result);
  set_null(result, node.value->declared);
  return builtin_accumulate(function, arguments, count, *node.value->accumulator);
}

TOVIK_OWN_FRAME bool evaluate_call(Evaluation &evaluation, const Node *node, Value *result) {
  if (node->value->accumulator != nullptr && evaluation.mode == EvalMode::total) {
    *result = {};
    builtin_finish(CallTree::of(*node).function, *node->value->accumulator, *result);
    return true;
  }
  const StackScope scope(*evaluation.context.stack);
  int count = 0;
  for (const Node *item : chain(CallTree::of(*node).arguments)) {
    if (!push_operand(evaluation, ValueItemTree::of(*item).value, result)) return false;
    ++count;
  }
  return call(evaluation, *node, scope.values(), count, result);
}

// --- Conditions

Truth truth_of(bool holds) {
  return holds ? Truth::yes : Truth::no;
}

Truth opposite(Truth truth) {
  return static_cast<Truth>(truth == Truth::unknown ? -1 : 1 - static_cast<int>(truth));
}

// A date column is compared to the precision that it keeps.
TypeCode compared_type(const Value &value) {
  const bool date_column = value.kind == value_kind::column && (value.declared & TYPE_DATETIME) != 0;
  return date_column ? value.declared : value.type;
}

bool order_of(const Value &left, const Value &right, int *order) {
  if ((left.type & right.type & TYPE_INTEGER) != 0) {
    *order = (left.integer > right.integer) - (left.integer < right.integer);
    return true;
  }
  if (!type_same_class(left.type, right.type)) return fail(status::not_comparable);
  return compare_values(compared_type(left), value_datum(left), 0, compared_type(right), value_datum(right),
                        order);
}

bool holds(uint16_t kind, int order) {
  switch (kind) {
    case node::equal:
      return order == 0;
    case node::not_equal:
      return order != 0;
    case node::less:
      return order < 0;
    case node::greater:
      return order > 0;
    case node::less_equal:
      return order <= 0;
    default:
      return order >= 0;
  }
}

bool compare(uint16_t kind, const Value &left, const Value &right, Truth *truth) {
  *truth = Truth::unknown;
  if (left.is_null() || right.is_null()) return true;
  int order;
  if (!order_of(left, right, &order)) return false;
  *truth = truth_of(holds(kind, order));
  return true;
}

TOVIK_OWN_FRAME bool evaluate_comparison(Evaluation &evaluation, const Node *node, Truth *truth) {
  const OperatorTree tree = OperatorTree::of(*node);
  Value left_space, right_space;
  const Value *left = operand_of(evaluation, tree.left, &left_space);
  if (left == nullptr) return false;
  const Value *right = operand_of(evaluation, tree.right, &right_space);
  return right != nullptr && compare(node->kind, *left, *right, truth);
}

TOVIK_OWN_FRAME bool match_texts(uint16_t kind, const Value &left, const Value &right, bool *matches) {
  char left_buffer[number_text_size], right_buffer[number_text_size];
  TextRef text, pattern;
  if (!value_text(left, left_buffer, &text) || !value_text(right, right_buffer, &pattern)) return false;
  if (kind == node::like) {
    *matches = pattern_like(text.text, pattern.text);
    return true;
  }
  const bool fold = kind == node::match || kind == node::not_match;
  return pattern_match(text.text, pattern.text, fold, matches);
}

bool match_values(uint16_t kind, const Value &left, const Value &right, bool *matches) {
  if (type_numeric(left.type) && type_numeric(right.type)) {
    int order;
    if (!order_of(left, right, &order)) return false;
    *matches = order == 0;
  } else if (!match_texts(kind, left, right, matches)) {
    return false;
  }
  if (kind == node::not_match || kind == node::not_smatch) *matches = !*matches;
  return true;
}

TOVIK_OWN_FRAME bool evaluate_matching(Evaluation &evaluation, const Node *node, Truth *truth) {
  const MatchTree tree = MatchTree::of(*node);
  Value left_space, right_space;
  const Value *left = operand_of(evaluation, tree.text, &left_space);
  if (left == nullptr) return false;
  const Value *right = operand_of(evaluation, tree.pattern, &right_space);
  if (right == nullptr) return false;
  *truth = Truth::unknown;
  if (left->is_null() || right->is_null()) return true;
  bool matches;
  if (!match_values(node->kind, *left, *right, &matches)) return false;
  *truth = truth_of(matches != tree.negated);
  return true;
}

TOVIK_OWN_FRAME bool evaluate_in(Evaluation &evaluation, const Node *node, Truth *truth) {
  const InTree tree = InTree::of(*node);
  Value tested_space;
  const Value *tested = operand_of(evaluation, tree.tested, &tested_space);
  if (tested == nullptr) return false;
  const bool stops_early = (node->flags & node_stops_early) != 0;
  Truth found = Truth::no;
  for (const Node *item : chain(tree.items)) {
    Value space;
    Truth equal;
    const Value *value = operand_of(evaluation, ValueItemTree::of(*item).value, &space);
    if (value == nullptr || !compare(node::equal, *tested, *value, &equal)) return false;
    if (equal == Truth::no || found == Truth::yes) continue;
    found = equal;
    if (found == Truth::yes && stops_early) break;
  }
  *truth = tree.negated ? opposite(found) : found;
  return true;
}

TOVIK_OWN_FRAME bool evaluate_is_null(Evaluation &evaluation, const Node *node, Truth *truth) {
  const IsNullTree tree = IsNullTree::of(*node);
  Value space;
  const Value *operand = operand_of(evaluation, tree.operand, &space);
  if (operand == nullptr) return false;
  *truth = truth_of(operand->is_null() != tree.negated);
  return true;
}

Truth both(Truth left, Truth right) {
  if (left == Truth::no || right == Truth::no) return Truth::no;
  return left == Truth::unknown ? left : right;
}

Truth either(Truth left, Truth right) {
  if (left == Truth::yes || right == Truth::yes) return Truth::yes;
  return left == Truth::unknown ? left : right;
}

// What the operator makes of the truth of its leading operand.
TOVIK_OWN_FRAME bool apply_logical(Evaluation &evaluation, const Node *node, Truth *truth) {
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

// An index may guarantee the conjunction of two comparisons, which only the lowest node of a spine can be.
TOVIK_OWN_FRAME bool evaluate_logical(Evaluation &evaluation, const Node *top, Truth *truth) {
  const Node *node = spine_lowest(*top);
  const Node *leading = node->kind == node::always_true ? node : OperatorTree::of(*node).leading();
  if (!evaluate_truth(evaluation, leading, truth)) return false;
  if (leading == node) node = spine_above(*node);
  for (;; node = spine_above(*node)) {
    if (!apply_logical(evaluation, node, truth)) return false;
    if (node == top) return true;
  }
}

// One of the comparisons of a BETWEEN, whose tested value is known.
bool compare_bound(Evaluation &evaluation, const Node &comparison, const Value &tested, Truth *truth) {
  Value space;
  const Value *bound = operand_of(evaluation, OperatorTree::of(comparison).right, &space);
  return bound != nullptr && compare(comparison.kind, tested, *bound, truth);
}

// Both comparisons hold the same tested expression, whose value is computed once.
TOVIK_OWN_FRAME bool evaluate_shared_between(Evaluation &evaluation, const BetweenTree &tree, Truth *above,
                                             Truth *below) {
  Value space;
  const Value *tested = operand_of(evaluation, OperatorTree::of(*tree.lower).left, &space);
  return tested != nullptr && compare_bound(evaluation, *tree.lower, *tested, above) &&
         compare_bound(evaluation, *tree.upper, *tested, below);
}

bool shares_tested(const BetweenTree &tree) {
  return node_is_comparison(tree.lower->kind) && node_is_comparison(tree.upper->kind) &&
         OperatorTree::of(*tree.lower).left == OperatorTree::of(*tree.upper).left;
}

// An index may guarantee one of the comparisons.
TOVIK_OWN_FRAME bool evaluate_between(Evaluation &evaluation, const Node *node, Truth *truth) {
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

TOVIK_OWN_FRAME bool evaluate_condition(Evaluation &evaluation, const Node *node, Value *result) {
  Truth truth;
  if (!evaluate_truth(evaluation, node, &truth)) return false;
  set_integer(result, static_cast<int>(truth), 0);
  result->kind = value_kind::truth;
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

}  // namespace

bool value_text(const Value &value, char *buffer, TextRef *text) {
  const TypeCode code = value.declared != 0 ? value.declared : value.type;
  switch (datum_kind(value.type)) {
    case DatumKind::text:
      *text = value.text;
      return true;
    case DatumKind::integer:
      integer_to_text(value.integer, buffer);
      break;
    case DatumKind::real:
      double_to_text(value.real, code == type::float32 ? float32_precision : float64_precision, buffer);
      break;
    case DatumKind::datetime:
      if (!format_datetime((code & TYPE_DATETIME) != 0 ? code : value.type, value.datetime, buffer))
        return false;
      break;
  }
  *text = {buffer, static_cast<int32_t>(strlen(buffer))};
  return true;
}

bool value_stack_push(ValueStack &stack, const Value &value) {
  return stack.values.push(value) || fail(status::out_of_memory);
}

bool expr_evaluate(EvalContext &context, const Node *expression, EvalMode mode, Value *result) {
  Evaluation evaluation{context, mode};
  return evaluate(evaluation, expression, result);
}

bool condition_evaluate(EvalContext &context, const Node *condition, Truth *truth) {
  Evaluation evaluation{context, EvalMode::row};
  return evaluate_truth(evaluation, condition, truth);
}

}  // namespace tovik
