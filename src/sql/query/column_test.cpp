// Cost of a test: one call, one load, one comparison.
#include "sql/query/column_test.h"

#include <cstring>

#include "data/table/table.h"
#include "sql/evaluate/expr_internal.h"
#include "sql/query/plan_literal.h"

namespace tovik {

namespace {

constexpr uint8_t below = 0b001, equal = 0b010, above = 0b100;  // as in orders_met

bool meets(const ColumnTest &test, uint8_t order) {
  return (test.orders & order) != 0;
}

template <class T>
uint8_t order_of(T stored, T compared) {
  return stored < compared ? below : stored == compared ? equal : above;  // not-a-number is the highest
}

bool integer_holds(const ColumnTest &test, const uint8_t *stored) {
  return !integer_form_is_null(*test.form, stored) &&
         meets(test, order_of(load_integer_form(*test.form, stored), test.integer));
}

bool integer_as_real_holds(const ColumnTest &test, const uint8_t *stored) {
  return !integer_form_is_null(*test.form, stored) &&
         meets(test, order_of(static_cast<double>(load_integer_form(*test.form, stored)), test.real));
}

bool real_holds(const ColumnTest &test, const uint8_t *stored) {
  return *stored != null_flag && meets(test, order_of(load_double(stored + 1), test.real));
}

// A text that fills its column has no terminator.
bool text_holds(const ColumnTest &test, const uint8_t *stored) {
  if (*stored == null_flag) return false;
  int order = strncmp(reinterpret_cast<const char *>(stored), test.text.text, static_cast<size_t>(test.size));
  if (order == 0 && test.text.length > test.size) order = -1;
  return meets(test, order_of(order, 0));
}

uint8_t mirrored(uint8_t orders) {
  return static_cast<uint8_t>((orders & equal) | (orders & below ? above : 0) | (orders & above ? below : 0));
}

bool take_number(const Value &literal, ColumnTest *test) {
  const bool integer = (literal.type & TYPE_INTEGER) != 0;
  if (test->form == nullptr || !integer)
    test->real = integer ? static_cast<double>(literal.integer) : literal.real;
  else
    test->integer = literal.integer;
  test->holds = test->form == nullptr ? real_holds : integer ? integer_holds : integer_as_real_holds;
  return type_numeric(literal.type);
}

bool take_literal(const Column &column, const Value &literal, ColumnTest *test) {
  test->form = integer_form(column.type);
  if (test->form != nullptr || column.type == type::float64) return take_number(literal, test);
  test->text = literal.text;
  test->holds = text_holds;
  return (column.type & TYPE_CHARACTER) != 0 && !column_is_large(column) &&
         (literal.type & TYPE_CHARACTER) != 0;
}

}  // namespace

bool column_test_of(const Node &comparison, ColumnTest *test) {
  if (!node_is_comparison(comparison.kind)) return false;
  test->orders = orders_met[comparison.kind - node::equal];
  OperatorTree tree = OperatorTree::of(comparison);
  if (tree.left->kind != value_kind::column) {
    std::swap(tree.left, tree.right);
    test->orders = mirrored(test->orders);
  }
  Value literal;
  if (tree.left->kind != value_kind::column || !literal_read(*tree.right, Signs::accepted, &literal))
    return false;
  const ColumnRef &column = tree.left->value->column;
  if (column_is_rowid(*column.column)) return false;
  test->row = column.row;
  test->offset = column.column->offset;
  test->size = column.column->stored_size;
  return take_literal(*column.column, literal, test);
}

}  // namespace tovik
