// The bytes: type code, type code of the shown type, the datum; a text with its terminator.
#include "sql/query/mixed_value.h"

#include <cmath>
#include <cstring>

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

}  // namespace

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
