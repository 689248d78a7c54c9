#include "sql/evaluate/set_value.h"

#include <cstring>

#include "data/value/literal.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "sql/evaluate/file_text.h"

namespace tovik {

namespace {

constexpr int stored_precision = 6;  // of a real number that becomes a text

// Adds which kind of column refused a value.
bool refused(const Column &column) {
  if ((column.type & TYPE_INTEGER) != 0) return fail(status::set_integer_text);
  if ((column.type & TYPE_FLOAT) != 0) return fail(status::set_float_text);
  if ((column.type & TYPE_DATETIME) != 0) return fail(status::set_datetime_text);
  if ((column.type & TYPE_BINARY) != 0) return fail(status::set_hex);
  return fail(column.type == type::decimal ? status::set_numeric_text : status::set_text);
}

bool mismatched() {
  err_set(status::value_type_mismatch);
  return fail(status::set_type);
}

bool set_null(RowHandle &row, const Column &column) {
  return row_handle_set(row, column, ValueMode::null, nullptr) || fail(status::set_null);
}

bool set_binary(const void *datum, RowHandle &row, const Column &column) {
  return row_handle_set(row, column, ValueMode::binary, datum) || refused(column);
}

// Hexadecimal digits of any length: half as many bytes, taken from the statement's pool.
bool set_hex(MemoryPool &pool, const TextRef &digits, RowHandle &row, const Column &column) {
  const PoolScope scope(pool);
  void *binary = memory_pool_alloc(pool, 4 + (static_cast<int64_t>(digits.length) + 1) / 2);
  if (binary == nullptr || !hex_to_binary(digits.text, binary)) return false;
  int32_t length;
  memcpy(&length, binary, sizeof length);
  return row_handle_set_large(row, column, static_cast<const char *>(binary) + sizeof length, length);
}

// A text through the column's type.
bool set_text(MemoryPool &pool, const TextRef &text, RowHandle &row, const Column &column) {
  bool stored;
  if (column.type == type::blob) {
    stored = set_hex(pool, text, row, column);
  } else if (column.type == type::text) {
    stored = row_handle_set_large(row, column, text.text, text.length);
  } else {
    stored = row_handle_set(row, column, ValueMode::text, text.text);
  }
  return stored || refused(column);
}

bool set_text(MemoryPool &pool, const char *text, RowHandle &row, const Column &column) {
  return set_text(pool, TextRef{text, static_cast<int32_t>(strlen(text))}, row, column);
}

bool set_integer(MemoryPool &pool, int64_t integer, RowHandle &row, const Column &column) {
  if ((column.type & TYPE_INTEGER) != 0) return set_binary(&integer, row, column);
  if (column.type == type::blob) return mismatched();
  char digits[number_text_size];
  return set_text(pool, integer_to_text(integer, digits), row, column);
}

bool set_real(MemoryPool &pool, double real, RowHandle &row, const Column &column) {
  if ((column.type & TYPE_FLOAT) != 0) return set_binary(&real, row, column);
  if ((column.type & TYPE_INTEGER) != 0) {
    if (real >= -0x1p63 && real < 0x1p63) return set_integer(pool, double_to_integer(real), row, column);
    err_set(status::input_number_range);
    return refused(column);
  }
  if (column.type == type::blob) return mismatched();
  char digits[number_text_size];
  return set_text(pool, double_to_text(real, stored_precision, digits), row, column);
}

bool set_evaluated(MemoryPool &pool, const Value &value, RowHandle &row, const Column &column) {
  switch (datum_kind(value.type)) {
    case DatumKind::integer:
      return set_integer(pool, value.integer, row, column);
    case DatumKind::real:
      return set_real(pool, value.real, row, column);
    case DatumKind::datetime:
      return (column.type & TYPE_DATETIME) != 0 ? set_binary(&value.datetime, row, column) : mismatched();
    default:
      break;
  }
  // The bytes of another blob column are bytes, not digits.
  if (value.declared == type::blob && column.type == type::blob)
    return row_handle_set_large(row, column, value.text.text, value.text.length) || refused(column);
  return set_text(pool, value.text, row, column);
}

bool is_plain_leaf(const Node &expression) {
  return expression.kind == value_kind::null || expression.kind == value_kind::string ||
         expression.kind == node::file_name;
}

}  // namespace

bool set_value_check(EvalContext &context, Node *expression) {
  return is_plain_leaf(*expression) || expr_check(context, expression, CheckLabels::none, nullptr);
}

bool set_value(EvalContext &context, const Node &expression, RowHandle &row, const Column &column) {
  if (expression.kind == value_kind::null) return set_null(row, column);
  if (expression.kind == value_kind::string) {
    const char *text = node_name(expression);
    return *text == 0 ? set_null(row, column) : set_text(*context.pool, text, row, column);
  }
  if (expression.kind == node::file_name) return set_file(*context.pool, expression, row, column);
  Value value;
  if (!expr_evaluate(context, &expression, &value)) return false;
  return set_computed(*context.pool, value, row, column);
}

bool set_computed(MemoryPool &pool, const Value &value, RowHandle &row, const Column &column) {
  return value.is_null() ? set_null(row, column) : set_evaluated(pool, value, row, column);
}

}  // namespace tovik
