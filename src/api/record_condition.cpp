// The builders of conditions and sort orders: they check their arguments and fill the caller's records.
#include <cstdarg>
#include <cstring>

#include "api/record.h"
#include "api/record_operand.h"
#include "api/record_tree.h"

using namespace tovik;

namespace {

bool start(tovik_cond *cond) {
  if (cond == nullptr) return fail(status::record_api_condition_missing);
  *cond = {};
  return true;
}

bool start(tovik_cond *cond, const char *column) {
  if (!start(cond)) return false;
  if (!name_given(column, column_reference_limit)) return fail(status::record_api_column_reference);
  strcpy(cond->column, column);
  return true;
}

bool is_comparison(int op) {
  return op >= TOVIK_EQ && op <= TOVIK_GE;
}
bool is_match(int op) {
  return op == TOVIK_MATCH || op == TOVIK_LIKE;
}

bool type_goes_with(int op, int type) {
  if (is_match(op)) return operand_is_text(type);
  const int least = op <= TOVIK_NE ? operand_null : TOVIK_INT8;
  return type >= least && type <= TOVIK_DATETIME;
}

bool compare(tovik_cond *cond, const char *column, int op, int type, const void *value) {
  if (!start(cond, column)) return false;
  if (!is_comparison(op) && !is_match(op)) return fail(status::record_api_operator_refused);
  if (!type_goes_with(op, type)) return fail(status::record_api_operand_type);
  if (type != operand_null && !operand_read(type, value, &cond->value))
    return fail(status::record_api_operand_missing);
  cond->op = op;
  cond->type = type;
  return true;
}

bool range(tovik_cond *cond, const char *column, int type, const void *lower, char lower_inclusive,
           const void *upper, char upper_inclusive) {
  if (!start(cond, column)) return false;
  if (type < TOVIK_INT8 || type > TOVIK_DATETIME) return fail(status::record_api_operand_type);
  if (!operand_read(type, lower, &cond->value) || !operand_read(type, upper, &cond->upper))
    return fail(status::record_api_operand_missing);
  cond->op = TOVIK_RANGE;
  cond->type = type;
  cond->lower_inclusive = lower_inclusive;
  cond->upper_inclusive = upper_inclusive;
  return true;
}

bool compare_columns(tovik_cond *cond, const char *column, int op, const char *second) {
  if (!start(cond, column)) return false;
  if (!name_given(second, column_reference_limit)) return fail(status::record_api_column_reference);
  if (!is_comparison(op)) return fail(status::record_api_operator_refused);
  strcpy(cond->second_column, second);
  cond->op = op;
  cond->type = condition_two_columns;
  return true;
}

int join(tovik_cond *cond, int op, const tovik_cond *left, const tovik_cond *right) {
  call_begin();
  if (!start(cond)) return call_failed();
  if (left == nullptr) return call_failed(status::record_api_left_operand);
  if (right == nullptr) return call_failed(status::record_api_right_operand);
  cond->op = op;
  cond->left = left;
  cond->right = right;
  return 0;
}

bool read_sort(tovik_order *order, int count, va_list arguments) {
  if (order == nullptr) return fail(status::record_api_sort_missing);
  *order = {};
  if (count < 1 || count > record_order_limit) return fail(status::record_api_sort_count);
  for (int key = 0; key < count; ++key) {
    const char *column = va_arg(arguments, const char *);
    if (!name_given(column, column_reference_limit)) return fail(status::record_api_column_reference);
    strcpy(order->column[key], column);
    order->descending[key] = va_arg(arguments, int) != 0 ? 1 : 0;
  }
  order->count = count;
  return true;
}

}  // namespace

int tovik_comp(tovik_cond *cond, const char *column, int op, int type, const void *value) {
  call_begin();
  return call_end(compare(cond, column, op, type, value));
}

int tovik_comp_i8(tovik_cond *cond, const char *column, int op, int8_t value) {
  return tovik_comp(cond, column, op, TOVIK_INT8, &value);
}

int tovik_comp_i16(tovik_cond *cond, const char *column, int op, int16_t value) {
  return tovik_comp(cond, column, op, TOVIK_INT16, &value);
}

int tovik_comp_i32(tovik_cond *cond, const char *column, int op, int32_t value) {
  return tovik_comp(cond, column, op, TOVIK_INT32, &value);
}

int tovik_comp_i64(tovik_cond *cond, const char *column, int op, int64_t value) {
  return tovik_comp(cond, column, op, TOVIK_INT64, &value);
}

int tovik_comp_float(tovik_cond *cond, const char *column, int op, float value) {
  return tovik_comp(cond, column, op, TOVIK_FLOAT, &value);
}

int tovik_comp_double(tovik_cond *cond, const char *column, int op, double value) {
  return tovik_comp(cond, column, op, TOVIK_DOUBLE, &value);
}

int tovik_comp_ctime(tovik_cond *cond, const char *column, int op, const DateTimeRec *value) {
  return tovik_comp(cond, column, op, TOVIK_DATETIME, value);
}

int tovik_comp_char(tovik_cond *cond, const char *column, int op, const char *text) {
  return tovik_comp(cond, column, op, TOVIK_CHAR, &text);
}

int tovik_comp_wchar(tovik_cond *cond, const char *column, int op, const uint16_t *text) {
  return tovik_comp(cond, column, op, TOVIK_WCHAR, &text);
}

int tovik_isnull(tovik_cond *cond, const char *column) {
  return tovik_comp(cond, column, TOVIK_EQ, operand_null, nullptr);
}

int tovik_isnotnull(tovik_cond *cond, const char *column) {
  return tovik_comp(cond, column, TOVIK_NE, operand_null, nullptr);
}

int tovik_range(tovik_cond *cond, const char *column, int type, const void *lower, char lower_inclusive,
                const void *upper, char upper_inclusive) {
  call_begin();
  return call_end(range(cond, column, type, lower, lower_inclusive, upper, upper_inclusive));
}

int tovik_range_i8(tovik_cond *cond, const char *column, int8_t lower, char lower_inclusive, int8_t upper,
                   char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_INT8, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_i16(tovik_cond *cond, const char *column, int16_t lower, char lower_inclusive, int16_t upper,
                    char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_INT16, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_i32(tovik_cond *cond, const char *column, int32_t lower, char lower_inclusive, int32_t upper,
                    char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_INT32, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_i64(tovik_cond *cond, const char *column, int64_t lower, char lower_inclusive, int64_t upper,
                    char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_INT64, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_float(tovik_cond *cond, const char *column, float lower, char lower_inclusive, float upper,
                      char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_FLOAT, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_double(tovik_cond *cond, const char *column, double lower, char lower_inclusive, double upper,
                       char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_DOUBLE, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_wchar(tovik_cond *cond, const char *column, const uint16_t *lower, char lower_inclusive,
                      const uint16_t *upper, char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_WCHAR, &lower, lower_inclusive, &upper, upper_inclusive);
}

int tovik_range_ctime(tovik_cond *cond, const char *column, const DateTimeRec *lower, char lower_inclusive,
                      const DateTimeRec *upper, char upper_inclusive) {
  return tovik_range(cond, column, TOVIK_DATETIME, lower, lower_inclusive, upper, upper_inclusive);
}

int tovik_compcol(tovik_cond *cond, const char *column, int op, const char *second) {
  call_begin();
  return call_end(compare_columns(cond, column, op, second));
}

int tovik_and(tovik_cond *cond, const tovik_cond *left, const tovik_cond *right) {
  return join(cond, TOVIK_AND, left, right);
}

int tovik_or(tovik_cond *cond, const tovik_cond *left, const tovik_cond *right) {
  return join(cond, TOVIK_OR, left, right);
}

int tovik_not(tovik_cond *cond, const tovik_cond *operand) {
  call_begin();
  if (!start(cond)) return call_failed();
  if (operand == nullptr) return call_failed(status::record_api_not_operand);
  cond->op = TOVIK_NOT;
  cond->right = operand;
  return 0;
}

int tovik_sort(tovik_order *order, int count, ...) {
  call_begin();
  va_list arguments;
  va_start(arguments, count);
  const bool done = read_sort(order, count, arguments);
  va_end(arguments);
  return call_end(done);
}
