#include "data/value/literal.h"

#include <cerrno>
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "platform/ascii.h"

namespace tovik {

namespace {

bool refuse(Mishap mishap, StatusCode code) {
  if (mishap == Mishap::recorded) {
    if (code == status::input_conversion) errno = 0;
    err_set(code);
  }
  return false;
}

bool read_hex(const char *text, Mishap mishap, uint8_t *bytes, int32_t *length) {
  *length = 0;
  while (*text != '\0') {
    int value = 0;
    for (int nibble = 0; nibble < 2 && *text != '\0'; ++nibble, ++text) {
      const int digit = hex_digit(*text);
      if (digit < 0) return refuse(mishap, status::input_hex_digit);
      value = value << 4 | digit;
    }
    bytes[(*length)++] = static_cast<uint8_t>(value);
  }
  return true;
}

bool parse_hex(const char *text, Mishap mishap, void *target) {
  if (text == nullptr || target == nullptr) return refuse(mishap, status::data_argument);
  int32_t length;
  if (!read_hex(text, mishap, static_cast<uint8_t *>(target) + sizeof length, &length)) return false;
  memcpy(target, &length, sizeof length);
  return true;
}

}  // namespace

bool parse_literal(TypeCode classes, const char *text, Mishap mishap, void *target) {
  if (text == nullptr || target == nullptr) return refuse(mishap, status::data_argument);
  if ((classes & TYPE_INTEGER) != 0) {
    int64_t value = 0;
    if (text_to_integer(text, &value) != NumberText::whole) return refuse(mishap, status::input_conversion);
    memcpy(target, &value, sizeof value);
    return true;
  }
  if ((classes & TYPE_FLOAT) != 0) {
    double value = 0.0;
    if (text_to_double(text, &value) != NumberText::whole) return refuse(mishap, status::input_conversion);
    memcpy(target, &value, sizeof value);
    return true;
  }
  if ((classes & TYPE_DATETIME) != 0) {
    DateTimeRec record{};
    if (!parse_datetime(classes, text, mishap, &record)) return false;
    memcpy(target, &record, sizeof record);
    return true;
  }
  if ((classes & TYPE_BINARY) != 0) return parse_hex(text, mishap, target);
  return refuse(mishap, status::data_type_unknown);
}

bool hex_to_bytes(const char *text, uint8_t *bytes, int32_t *length) {
  return read_hex(text, Mishap::recorded, bytes, length);
}

bool hex_to_binary(const char *text, void *target) {
  return parse_hex(text, Mishap::recorded, target);
}

}  // namespace tovik
