// The bytes of a mixed form: type code, type code of the shown type, the datum; a text with its terminator.
#include "sql/query/sort_form.h"

#include <cmath>
#include <cstring>

#include "frame/error.h"

namespace tovik {

namespace {

constexpr int header_size = 2 * sizeof(TypeCode);

struct Datum {
  const void *bytes;
  int32_t size;
};

// number gets a real number whose bytes tell whether it is equal to another.
Datum datum_of(const Value &value, double *number) {
  switch (datum_kind(value.type)) {
    case DatumKind::integer:
      return {&value.integer, sizeof value.integer};
    case DatumKind::real:
      *number = std::isnan(value.real) ? NAN : value.real + 0.0;  // no negative zero
      return {number, sizeof *number};
    case DatumKind::datetime:
      return {&value.datetime, sizeof value.datetime};
    default:
      return {value.text.text, value.text.length};
  }
}

// Integers of any width are shown alike, and texts; of the others the type tells how.
TypeCode shown_type(const Value &value) {
  const bool told = (value.declared & (TYPE_BINARY | TYPE_DATETIME | TYPE_FLOAT)) != 0;
  return told ? value.declared : value.type;
}

TextRef text_of_form(TypeCode type, const void *form) {
  const char *bytes = static_cast<const char *>(form);
  if ((type & TYPE_BINARY) == 0) return {bytes, static_cast<int32_t>(strlen(bytes))};
  int32_t length;
  memcpy(&length, bytes, sizeof length);
  return {bytes + sizeof length, length};
}

}  // namespace

bool sort_form(MemoryPool &pool, const Value &value, TypeCode type, const void **form) {
  *form = nullptr;
  if (value.is_null()) return true;
  if (datum_kind(value.type) != datum_kind(type)) return fail(status::not_comparable);
  if ((type & TYPE_BINARY) == 0) {
    *form = value_datum(value);
    return true;
  }
  uint8_t *copy = static_cast<uint8_t *>(memory_pool_alloc(pool, int64_t{4} + value.text.length));
  if (copy == nullptr) return false;
  memcpy(copy, &value.text.length, sizeof value.text.length);
  memcpy(copy + 4, value.text.text, static_cast<size_t>(value.text.length));
  *form = copy;
  return true;
}

Value value_of_sort_form(TypeCode type, const void *form) {
  Value value{};
  value.kind = value_kind::computed;
  value.declared = value.type = type;
  if (form == nullptr) {
    value.flags = value_null;
    return value;
  }
  switch (datum_kind(type)) {
    case DatumKind::integer:
      memcpy(&value.integer, form, sizeof value.integer);
      break;
    case DatumKind::real:
      memcpy(&value.real, form, sizeof value.real);
      break;
    case DatumKind::datetime:
      memcpy(&value.datetime, form, sizeof value.datetime);
      break;
    case DatumKind::text:
      value.text = text_of_form(type, form);
      break;
  }
  return value;
}

bool row_forms_new(MemoryPool &pool, int count, RowForms *row) {
  row->values = memory_pool_new<Value>(pool, count);
  row->forms = memory_pool_new<const void *>(pool, count);
  return row->values != nullptr && row->forms != nullptr;
}

bool row_forms_read(MemoryPool &pool, const ColumnRef &column, int index, const RowForms &row) {
  Value &value = row.values[index];
  return row_handle_value(*column.row, *column.column, &value) &&
         sort_form(pool, value, column.column->type, &row.forms[index]);
}

const void *mixed_form(MemoryPool &pool, const Value &value) {
  double number;
  const Datum datum = datum_of(value, &number);
  const TypeCode types[2] = {value.type, shown_type(value)};
  int32_t size;
  char *form = static_cast<char *>(
      memory_pool_alloc(pool, static_cast<int64_t>(sizeof size) + header_size + datum.size + 1));
  if (form == nullptr) return nullptr;
  size = header_size + datum.size + 1;
  memcpy(form, &size, sizeof size);
  memcpy(form + sizeof size, types, header_size);
  memcpy(form + sizeof size + header_size, datum.bytes, static_cast<size_t>(datum.size));
  form[sizeof size + header_size + static_cast<size_t>(datum.size)] = '\0';
  return form;
}

Value value_of_mixed_form(const void *form) {
  const char *bytes = static_cast<const char *>(form);
  int32_t size;
  memcpy(&size, bytes, sizeof size);
  bytes += sizeof size;
  TypeCode types[2];
  memcpy(types, bytes, header_size);
  bytes += header_size;
  Value value{};
  value.kind = value_kind::computed;
  value.type = types[0];
  value.declared = types[1];
  if (datum_kind(value.type) == DatumKind::text) {
    value.text = {bytes, size - header_size - 1};
  } else {
    memcpy(&value.integer, bytes, static_cast<size_t>(size - header_size - 1));
  }
  return value;
}

}  // namespace tovik
