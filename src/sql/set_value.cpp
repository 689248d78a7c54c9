#include "sql/set_value.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "frame/error.h"

namespace tovik {

namespace {

constexpr int number_text_size = 64;

// Which kind of column refused a value.
StatusCode refusal_of(const Column &column) {
  if ((column.type & TYPE_INTEGER) != 0) return status::set_integer_text;
  if ((column.type & TYPE_FLOAT) != 0) return status::set_float_text;
  if ((column.type & TYPE_DATETIME) != 0) return status::set_datetime_text;
  if ((column.type & TYPE_BINARY) != 0) return status::set_hex;
  return status::set_text;
}

bool refused(const Column &column) {
  return fail(refusal_of(column));
}

bool set_null(RowHandle &row, const Column &column) {
  return row_handle_set(row, column, ValueMode::null, nullptr) || fail(status::set_null);
}

// Hexadecimal digits of any length: half as many bytes, taken from the statement's pool.
bool set_hex(EvalContext &context, const TextRef &digits, RowHandle &row, const Column &column) {
  const PoolScope scope(*context.pool);
  void *binary = memory_pool_alloc(*context.pool, 4 + (static_cast<int64_t>(digits.length) + 1) / 2);
  if (binary == nullptr || !hex_to_binary(digits.text, binary)) return false;
  int32_t length;
  memcpy(&length, binary, sizeof length);
  return row_handle_set_large(row, column, static_cast<const char *>(binary) + sizeof length, length);
}

// A text through the column's type.
bool set_text(EvalContext &context, const TextRef &text, RowHandle &row, const Column &column) {
  if (column_is_rowid(column)) return fail(status::rowid_not_assignable);
  if (column.type == type::blob) return set_hex(context, text, row, column);
  if (column.type == type::text) return row_handle_set_large(row, column, text.text, text.length);
  return row_handle_set(row, column, ValueMode::text, text.text);
}

bool set_digits(EvalContext &context, const char *digits, int length, RowHandle &row, const Column &column) {
  if (column.type == type::blob) return fail(status::value_type_mismatch);
  return set_text(context, {digits, length}, row, column);
}

bool set_integer(EvalContext &context, int64_t integer, RowHandle &row, const Column &column) {
  if ((column.type & TYPE_INTEGER) != 0) return row_handle_set(row, column, ValueMode::binary, &integer);
  char digits[number_text_size];
  const int length = snprintf(digits, sizeof digits, "%" PRId64, integer);
  return set_digits(context, digits, length, row, column);
}

bool set_real(EvalContext &context, double real, RowHandle &row, const Column &column) {
  if ((column.type & TYPE_FLOAT) != 0) return row_handle_set(row, column, ValueMode::binary, &real);
  if ((column.type & TYPE_INTEGER) != 0) {
    if (!(real > -9223372036854775808.0 && real < 9223372036854775808.0))
      return fail(status::input_number_range);
    const int64_t integer = static_cast<int64_t>(real);
    return row_handle_set(row, column, ValueMode::binary, &integer);
  }
  char digits[number_text_size];
  const int length = snprintf(digits, sizeof digits, "%e", real);
  return set_digits(context, digits, length, row, column);
}

bool set_evaluated(EvalContext &context, const Value &value, RowHandle &row, const Column &column) {
  if ((value.type & TYPE_INTEGER) != 0) return set_integer(context, value.integer, row, column);
  if ((value.type & TYPE_FLOAT) != 0) return set_real(context, value.real, row, column);
  if ((value.type & TYPE_DATETIME) != 0) {
    if ((column.type & TYPE_DATETIME) == 0) return fail(status::value_type_mismatch);
    return row_handle_set(row, column, ValueMode::binary, &value.datetime);
  }
  // The bytes of another blob column are bytes, not digits.
  if (value.declared == type::blob && column.type == type::blob) {
    return row_handle_set_large(row, column, value.text.text, value.text.length);
  }
  return set_text(context, value.text, row, column);
}

bool is_plain_leaf(const Node &expression) {
  return expression.kind == value_kind::null || expression.kind == value_kind::string;
}

}  // namespace

bool set_value_check(EvalContext &context, Node *expression) {
  return is_plain_leaf(*expression) || expr_check(context, expression, CheckLabels::none, nullptr);
}

bool set_value(EvalContext &context, const Node &expression, RowHandle &row, const Column &column) {
  if (expression.kind == value_kind::null) return set_null(row, column);
  if (expression.kind == value_kind::string) {
    const char *text = node_name(expression);
    if (*text == 0) return set_null(row, column);
    const TextRef literal = {text, static_cast<int32_t>(strlen(text))};
    return set_text(context, literal, row, column) || refused(column);
  }
  Value value;
  if (!expr_evaluate(context, &expression, EvalMode::row, &value)) return false;
  if (value.is_null()) return set_null(row, column);
  return set_evaluated(context, value, row, column) || refused(column);
}

}  // namespace tovik
