#include "api/record_operand.h"

#include <cstring>

#include "api/convert.h"
#include "data/value/number_text.h"
#include "frame/error.h"

namespace tovik {

static size_t operand_size(int type) {
  switch (type) {
    case TOVIK_INT8:
      return sizeof(int8_t);
    case TOVIK_INT16:
      return sizeof(int16_t);
    case TOVIK_INT32:
    case TOVIK_FLOAT:
      return sizeof(int32_t);
    case TOVIK_INT64:
    case TOVIK_DOUBLE:
      return sizeof(int64_t);
    case TOVIK_DATETIME:
      return sizeof(DateTimeRec);
    case TOVIK_BINARY:
      return sizeof(tovik_bytes);
    default:
      return sizeof(const char *);
  }
}

// Is the text, or are the bytes, that the operand names there?
static bool complete(int type, const tovik_value &operand) {
  if (operand_is_text(type)) return operand.text != nullptr;
  return type != TOVIK_BINARY || (operand.bytes.data != nullptr && operand.bytes.length >= 1);
}

bool operand_read(int type, const void *source, tovik_value *operand) {
  if (source == nullptr) return false;
  memcpy(operand, source, operand_size(type));
  return complete(type, *operand);
}

static TextRef utf8_in_pool(MemoryPool &pool, const uint16_t *wide) {
  const Utf8Text text = utf8_from_wide(wide);
  if (text == nullptr) return {};
  const int length = static_cast<int>(strlen(text.get()));
  return {memory_pool_text(pool, text.get(), length), length};
}

static bool set_integer(Value *value, int64_t integer) {
  value->type = type::bigint;
  value->integer = integer;
  return true;
}

static bool set_real(Value *value, double real) {
  value->type = type::float64;
  value->real = real;
  return true;
}

bool operand_value(MemoryPool &pool, int type, const tovik_value &operand, Value *value) {
  *value = {};
  value->kind = value_kind::computed;
  if (!complete(type, operand)) {
    return fail(operand_is_text(type) ? status::record_api_text_missing : status::record_api_bytes_missing);
  }
  switch (type) {
    case operand_null:
      value->flags = value_null;
      return true;
    case TOVIK_INT8:
      return set_integer(value, operand.i8);
    case TOVIK_INT16:
      return set_integer(value, operand.i16);
    case TOVIK_INT32:
      return set_integer(value, operand.i32);
    case TOVIK_INT64:
      return set_integer(value, operand.i64);
    case TOVIK_FLOAT:
      return set_real(value, float32_rounded(operand.f));
    case TOVIK_DOUBLE:
      return set_real(value, operand.d);
    case TOVIK_CHAR:
      value->type = type::character;
      value->text = {operand.text, static_cast<int32_t>(strlen(operand.text))};
      return true;
    case TOVIK_WCHAR:
      value->type = type::character;
      value->text = utf8_in_pool(pool, operand.wide);
      return value->text.text != nullptr;
    case TOVIK_DATETIME:
      value->type = type::microtimestamp;
      value->datetime = operand.datetime;
      return true;
    case TOVIK_BINARY:
      value->type = value->declared = type::blob;
      value->text = {static_cast<const char *>(operand.bytes.data), operand.bytes.length};
      return true;
    default:
      return fail(status::record_api_data_type);
  }
}

}  // namespace tovik
