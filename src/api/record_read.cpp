// Reading columns of the current row.
//
// A read finds its column by name, takes the value as the engine computes with it and converts it straight
// into the caller's variable; only texts that the cursor gives out in another form than the engine's own are
// copied, into buffers that end with the row.
#include <cstring>

#include "api/convert.h"
#include "api/record_cursor.h"
#include "data/value/number_text.h"
#include "data/value/stored_form.h"

using namespace tovik;

namespace {

int call_end(Stored read) {
  if (read == Stored::failed) err_save();
  return static_cast<int>(read);
}

struct ColumnValue {
  Value value;
  TypeCode code;  // the column's own type, or that of a computed value
};

// ---- finding the value ----

bool table_value(RecordCursor &cursor, const char *name, ColumnValue *read) {
  ColumnRef found;
  if (!cursor_table_column(cursor, name, &found)) return false;
  if (cursor.rows->place != CursorPlace::on_row) return fail(status::record_not_found);
  read->code = found.column->type;
  return row_handle_value(*found.row, *found.column, &read->value);
}

bool result_value(RecordCursor &cursor, const ResultColumn *column, ColumnValue *read) {
  if (column == nullptr) return false;
  if (!cursor_value(*cursor.rows, *column, &read->value)) {
    if (cursor.state == CursorState::sql) fail_primary(status::record_api_result_value);
    return false;
  }
  const Value &value = read->value;
  read->code = value.is_null() ? column->type : value.declared != 0 ? value.declared : value.type;
  return true;
}

bool find_value(RecordCursor &cursor, const char *name, ColumnValue *read) {
  if (cursor.state == CursorState::table) return table_value(cursor, name, read);
  return result_value(cursor, cursor_result_column(cursor, name), read);
}

// ---- what a column may be read as ----

bool fits(CursorState state, TypeCode code, int type) {
  switch (type) {
    case TOVIK_INT8:
    case TOVIK_INT16:
    case TOVIK_INT32:
    case TOVIK_INT64: {
      if (state != CursorState::table) return type_numeric(code);
      const IntegerForm *form = integer_form(code);
      return form != nullptr && form->width <= 1 << (type - TOVIK_INT8);
    }
    case TOVIK_FLOAT:
    case TOVIK_DOUBLE:
      return (code & (state == CursorState::table ? TYPE_FLOAT : TYPE_NUMERIC)) != 0;
    case TOVIK_CHAR:
    case TOVIK_WCHAR:
      return true;
    case TOVIK_DATETIME:
      return (code & TYPE_DATETIME) != 0;
    case TOVIK_BINARY:
      return code == type::blob;
    default:
      return false;
  }
}

// Which texts are wanted: those of a character column only, where they lie, or of any column.
enum class TextForm { any, own };

StatusCode refusal(CursorState state, TypeCode code, int type, TextForm form) {
  if (form == TextForm::own && code == type::blob) return status::record_api_blob_as_text;
  const bool has_form = form == TextForm::any || (code & TYPE_CHARACTER) != 0;
  return has_form && fits(state, code, type) ? 0 : status::record_api_type_mismatch;
}

// The value of a column that is to be read as type. A NULL that an expression computed may have no type.
Stored column_value(RecordCursor &cursor, const char *name, int type, TextForm form, ColumnValue *read) {
  if (!find_value(cursor, name, read)) return Stored::failed;
  const bool untyped = read->value.is_null() && read->code == 0;
  const StatusCode refused = untyped ? 0 : refusal(cursor.state, read->code, type, form);
  if (refused != 0) {
    err_set(refused);
    return Stored::failed;
  }
  return read->value.is_null() ? Stored::null : Stored::value;
}

// Runs give, a bool(RecordCursor &, const ColumnValue &), for a value that is not NULL; one call of the
// interface that has begun. 202116, 202113 and the statuses of column_value.
template <class Give>
int read_call(tovik_cur *handle, const char *name, int type, Give give, TextForm form = TextForm::any) {
  RecordCursor *cursor = cursor_of(handle);
  if (cursor == nullptr) return call_end(Stored::failed);
  if (!name_given(name, column_reference_limit)) return call_failed(status::record_api_column_reference);
  ColumnValue read;
  const Stored found = column_value(*cursor, name, type, form, &read);
  if (found != Stored::value) return call_end(found);
  return call_end(give(*cursor, read) ? Stored::value : Stored::failed);
}

// ---- texts ----

// The value as a text value of the type that convert_value takes: a blob gives its hexadecimal digits there.
bool text_source(const ColumnValue &read, char (&buffer)[number_text_size], Value *source) {
  *source = read.value;
  if (read.code == type::blob) return true;
  source->type = source->declared = type::character;
  return value_text(read.value, buffer, &source->text);
}

// Bytes of a text that text_source gave, with its terminator; for a wide text at least as many.
int64_t text_size(const Value &source, int type) {
  const int64_t units = (source.declared == type::blob ? 2 : 1) * int64_t{source.text.length} + 1;
  return type == TOVIK_WCHAR ? 2 * units : units;
}

bool copy_text(const ColumnValue &read, int type, void *buffer, int size) {
  char digits[number_text_size];
  Value source;
  if (!text_source(read, digits, &source)) return false;
  if (type == TOVIK_CHAR && text_size(source, type) > size) return fail(status::record_api_buffer_small);
  return convert_value(source, source.declared, type, {buffer, size, nullptr});
}

// The text, where it is or in a buffer of the cursor.
bool give_text(RecordCursor &cursor, const ColumnValue &read, int type, tovik_value *value) {
  const bool character = (read.code & TYPE_CHARACTER) != 0;
  *value = {};
  value->read.column_type = character ? type::character : read.code;
  if (character && type == TOVIK_CHAR) {
    value->read.text = read.value.text.text;
    return true;
  }
  char digits[number_text_size];
  Value source;
  if (!text_source(read, digits, &source)) return false;
  const int64_t size = text_size(source, type);
  if (size > INT32_MAX) return fail(status::record_api_buffer_small);
  void *buffer = text_buffer(cursor, size);
  value->read.text = buffer;
  return buffer != nullptr &&
         convert_value(source, source.declared, type, {buffer, static_cast<int>(size), nullptr});
}

// ---- values ----

bool give_value(RecordCursor &cursor, const ColumnValue &read, int type, tovik_value *value) {
  const Value &source = read.value;
  const bool real = datum_kind(read.code) == DatumKind::real;
  const auto integer = [&] { return real ? double_to_integer(source.real) : source.integer; };
  const auto number = [&] { return real ? source.real : static_cast<double>(source.integer); };
  switch (type) {
    case TOVIK_INT8:
      value->i8 = static_cast<int8_t>(integer());
      return true;
    case TOVIK_INT16:
      value->i16 = static_cast<int16_t>(integer());
      return true;
    case TOVIK_INT32:
      value->i32 = static_cast<int32_t>(integer());
      return true;
    case TOVIK_INT64:
      value->i64 = integer();
      return true;
    case TOVIK_FLOAT:
      value->f = static_cast<float>(number());
      return true;
    case TOVIK_DOUBLE:
      value->d = number();
      return true;
    case TOVIK_DATETIME:
      value->datetime = source.datetime;
      return true;
    case TOVIK_BINARY:
      value->bytes = {source.text.text, source.text.length};
      return true;
    default:
      return give_text(cursor, read, type, value);
  }
}

// The typed forms: member of the value record into the caller's variable.
template <class T>
int read_into(tovik_cur *handle, const char *name, int type, T tovik_value::*member, T *target) {
  call_begin();
  if (target == nullptr && handle_find(handle, HandleKind::record_cursor) != nullptr &&
      name_given(name, column_reference_limit))
    return call_failed(status::record_api_output_missing);
  return read_call(handle, name, type, [&](RecordCursor &cursor, const ColumnValue &read) {
    tovik_value value;
    if (!give_value(cursor, read, type, &value)) return false;
    *target = value.*member;
    return true;
  });
}

// What the forms that copy into a buffer check first.
int check_buffer(const void *buffer, int size) {
  if (size < 1) return call_failed(status::record_api_buffer_size);
  return buffer == nullptr ? call_failed(status::record_api_output_missing) : 0;
}

int read_text(tovik_cur *handle, const char *name, int type, void *buffer, int size) {
  call_begin();
  if (check_buffer(buffer, size) < 0) return -1;
  return read_call(handle, name, type, [&](RecordCursor &, const ColumnValue &read) {
    return copy_text(read, type, buffer, size);
  });
}

// What the forms without a copy check first.
int check_outputs(const void *data, const int32_t *length) {
  if (data == nullptr) return call_failed(status::record_api_data_missing);
  return length == nullptr ? call_failed(status::record_api_data_length_missing) : 0;
}

}  // namespace

int tovik_getcol(tovik_cur *cursor, const char *column, int type, tovik_value *value) {
  call_begin();
  return read_call(cursor, column, type, [&](RecordCursor &open, const ColumnValue &read) {
    return value == nullptr || give_value(open, read, type, value);
  });
}

int tovik_getcol_i8(tovik_cur *cursor, const char *column, int8_t *value) {
  return read_into(cursor, column, TOVIK_INT8, &tovik_value::i8, value);
}

int tovik_getcol_i16(tovik_cur *cursor, const char *column, int16_t *value) {
  return read_into(cursor, column, TOVIK_INT16, &tovik_value::i16, value);
}

int tovik_getcol_i32(tovik_cur *cursor, const char *column, int32_t *value) {
  return read_into(cursor, column, TOVIK_INT32, &tovik_value::i32, value);
}

int tovik_getcol_i64(tovik_cur *cursor, const char *column, int64_t *value) {
  return read_into(cursor, column, TOVIK_INT64, &tovik_value::i64, value);
}

int tovik_getcol_float(tovik_cur *cursor, const char *column, float *value) {
  return read_into(cursor, column, TOVIK_FLOAT, &tovik_value::f, value);
}

int tovik_getcol_double(tovik_cur *cursor, const char *column, double *value) {
  return read_into(cursor, column, TOVIK_DOUBLE, &tovik_value::d, value);
}

int tovik_getcol_ctime(tovik_cur *cursor, const char *column, DateTimeRec *value) {
  return read_into(cursor, column, TOVIK_DATETIME, &tovik_value::datetime, value);
}

int tovik_getcol_char(tovik_cur *cursor, const char *column, char *buffer, int size) {
  return read_text(cursor, column, TOVIK_CHAR, buffer, size);
}

int tovik_getcol_wchar(tovik_cur *cursor, const char *column, uint16_t *buffer, int size) {
  return read_text(cursor, column, TOVIK_WCHAR, buffer, size);
}

int tovik_getcol_binary(tovik_cur *cursor, const char *column, void *buffer, int size, int32_t *length) {
  call_begin();
  if (size < 1) return call_failed(status::record_api_buffer_size);
  if (length == nullptr) return call_failed(status::record_api_length_missing);
  if (check_buffer(buffer, size) < 0) return -1;
  return read_call(cursor, column, TOVIK_BINARY, [&](RecordCursor &, const ColumnValue &read) {
    const TextRef &bytes = read.value.text;
    if (bytes.length > size) return fail(status::record_api_buffer_small);
    memcpy(buffer, bytes.text, static_cast<size_t>(bytes.length));
    *length = bytes.length;
    return true;
  });
}

int tovik_getcol_ibuf_char(tovik_cur *cursor, const char *column, const char **text, int32_t *length) {
  call_begin();
  if (check_outputs(text, length) < 0) return -1;
  const auto give = [&](RecordCursor &, const ColumnValue &read) {
    *text = read.value.text.text;
    *length = read.value.text.length;
    return true;
  };
  return read_call(cursor, column, TOVIK_CHAR, give, TextForm::own);
}

int tovik_getcol_ibuf_binary(tovik_cur *cursor, const char *column, const void **data, int32_t *length) {
  call_begin();
  if (check_outputs(data, length) < 0) return -1;
  return read_call(cursor, column, TOVIK_BINARY, [&](RecordCursor &, const ColumnValue &read) {
    *data = read.value.text.text;
    *length = read.value.text.length;
    return true;
  });
}
