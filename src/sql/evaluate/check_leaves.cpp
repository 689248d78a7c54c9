// Columns and literals: what a leaf is taken as.
#include <cstring>

#include "data/value/literal.h"
#include "sql/evaluate/check_rules.h"

namespace tovik {

TypeCode computing_type(TypeCode declared) {
  if ((declared & TYPE_INTEGER) != 0) return type::bigint;
  if ((declared & TYPE_FLOAT) != 0) return type::float64;
  if ((declared & TYPE_DATETIME) != 0) return type::microtimestamp;
  return type::character;
}

namespace {

// Reads the literal's text as a value of the type and makes it a typed literal of that kind; false when it
// cannot be read, with nothing recorded.
bool read_literal(Node *node, TypeCode type, uint16_t kind) {
  Value &leaf = *node->value;
  const char *text = leaf.texts[0];
  Value read;
  set_result(&read, kind, type, 0);
  if (!parse_literal(type, text, Mishap::silent, &read.integer)) return false;
  read.label = text;
  leaf = read;
  node->kind = kind;
  return true;
}

bool is_smallest_integer(const Node &operand) {
  return operand.kind == value_kind::integer_text &&
         strcmp(operand.value->texts[0], "9223372036854775808") == 0;
}

}  // namespace

bool bind_column(Check check, Node *node, Value *result) {
  if (node->value == nullptr) return fail(status::expr_argument);
  const ColumnNameTree name = ColumnNameTree::of(*node);
  ColumnRef found;
  if (!column_in_scope(check.context, name, &found)) return false;
  Value &leaf = *node->value;
  set_result(&leaf, value_kind::column, computing_type(found.column->type), 0);
  leaf.declared = found.column->type;
  leaf.column = found;
  leaf.label = found.column->name;
  node->kind = value_kind::column;
  *result = leaf;
  return true;
}

void take_as_string(Node *node) {
  Value &leaf = *node->value;
  const char *text = leaf.texts[0];
  set_result(&leaf, value_kind::string, type::character, 0);
  leaf.text = {text, static_cast<int32_t>(strlen(text))};
  leaf.label = text;
  node->kind = value_kind::string;
}

bool check_string(Node *node, Value *result) {
  take_as_string(node);
  *result = *node->value;
  return true;
}

bool check_number(Node *node, Value *result) {
  const bool integer = node->kind == value_kind::integer_text;
  const bool decimal = node->kind == value_kind::decimal_text;
  if (!read_literal(node, integer ? type::bigint : type::float64, value_kind::literal))
    return fail(status::literal_invalid);
  if (decimal) node->value->flags |= value_decimal;
  *result = *node->value;
  return true;
}

void take_negated(Node *operand) {
  if (!is_smallest_integer(*operand)) return;
  Value &leaf = *operand->value;
  const char *text = leaf.texts[0];
  set_result(&leaf, value_kind::literal, type::bigint, 0);
  leaf.integer = INT64_MIN;  // its own negative
  leaf.label = text;
  operand->kind = value_kind::literal;
}

void read_date_operand(Node *operand) {
  if (operand->kind != value_kind::string) return;
  const char first = *operand->value->text.text;
  if (first >= '0' && first <= '9')
    (void)read_literal(operand, type::microtimestamp, value_kind::date_literal);
}

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

}  // namespace tovik
