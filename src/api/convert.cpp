#include "api/convert.h"

#include <cinttypes>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "frame/error.h"
#include "platform/charset/charset.h"
#include "platform/charset/unicode.h"

namespace tovik {

static bool put_bytes(const TargetBuffer &target, const void *bytes, int size, int reported_length) {
  if (target.size < size) return fail(status::value_buffer_small);
  memcpy(target.data, bytes, static_cast<size_t>(size));
  if (target.length != nullptr) *target.length = reported_length;
  return true;
}

template <class Number>
static bool put_number(const TargetBuffer &target, Number number) {
  return put_bytes(target, &number, sizeof number, sizeof number);
}

static bool put_integer(const TargetBuffer &target, int64_t integer, int api_type) {
  switch (api_type) {
    case TOVIK_INT8:
      return put_number(target, static_cast<int8_t>(integer));
    case TOVIK_INT16:
      return put_number(target, static_cast<int16_t>(integer));
    case TOVIK_INT32:
      return put_number(target, static_cast<int32_t>(integer));
    default:
      return put_number(target, integer);
  }
}

// UTF-16 code units of a valid UTF-8 text: a four-byte character takes two.
static int wide_units(const char *text) {
  int units = 0;
  for (; *text != 0; ++text) {
    if (!utf8_is_continuation(*text)) units += utf8_leading_ones(*text) >= 4 ? 2 : 1;
  }
  return units;
}

static bool put_wide(const TargetBuffer &target, const char *text, int length) {
  if (!charset_table[charset_utf8]->valid(text)) return fail(status::code_conversion);
  const int size = 2 * wide_units(text) + 2;
  if (target.size < size) return fail(status::value_buffer_small);
  if (system_driver.text_convert(charset_utf16le, charset_utf8, text, length, target.data, size, 0) < 0) {
    return fail(status::code_conversion);
  }
  if (target.length != nullptr) *target.length = length;
  return true;
}

// text is NUL-terminated; length bytes before the NUL.
static bool put_text(const TargetBuffer &target, const char *text, int length, int api_type) {
  return api_type == TOVIK_CHAR ? put_bytes(target, text, length + 1, length)
                                : put_wide(target, text, length);
}

static bool convert_integer(int64_t integer, int api_type, const TargetBuffer &target) {
  switch (api_type) {
    case TOVIK_INT8:
    case TOVIK_INT16:
    case TOVIK_INT32:
    case TOVIK_INT64:
      return put_integer(target, integer, api_type);
    case TOVIK_FLOAT:
      return put_number(target, static_cast<float>(integer));
    case TOVIK_DOUBLE:
      return put_number(target, static_cast<double>(integer));
    case TOVIK_CHAR:
    case TOVIK_WCHAR: {
      char digits[number_text_size];
      return put_text(target, digits, snprintf(digits, sizeof digits, "%" PRId64, integer), api_type);
    }
    default:
      return fail(status::value_target_type);
  }
}

static bool convert_real(double real, int api_type, const TargetBuffer &target) {
  switch (api_type) {
    case TOVIK_INT8:
    case TOVIK_INT16:
    case TOVIK_INT32:
    case TOVIK_INT64:
      return put_integer(target, double_to_integer(real), api_type);
    case TOVIK_FLOAT:
      return put_number(target, static_cast<float>(real));
    case TOVIK_DOUBLE:
      return put_number(target, real);
    case TOVIK_CHAR:
    case TOVIK_WCHAR: {
      char digits[number_text_size];
      const double shown = std::isnan(real) ? NAN : real;  // without the sign that the machine gave it
      return put_text(target, digits, snprintf(digits, sizeof digits, "%g", shown), api_type);
    }
    default:
      return fail(status::value_target_type);
  }
}

// Two digits per byte, written straight into the caller's buffer: bytes of one unit or of two.
static bool put_hex(const TargetBuffer &target, const TextRef &bytes, int unit) {
  const int64_t size = static_cast<int64_t>(unit) * (2 * static_cast<int64_t>(bytes.length) + 1);
  if (target.size < size) return fail(status::value_buffer_small);
  char *out = static_cast<char *>(target.data);
  auto put = [&out, unit](char c) {
    *out++ = c;
    if (unit == 2) *out++ = 0;
  };
  for (int i = 0; i < bytes.length; ++i) {
    static constexpr char digits[] = "0123456789abcdef";
    const unsigned char byte = static_cast<unsigned char>(bytes.text[i]);
    put(digits[byte >> 4]);
    put(digits[byte & 15]);
  }
  put(0);
  if (target.length != nullptr) *target.length = bytes.length;
  return true;
}

static bool convert_binary(const TextRef &bytes, int api_type, const TargetBuffer &target) {
  switch (api_type) {
    case TOVIK_CHAR:
      return put_hex(target, bytes, 1);
    case TOVIK_WCHAR:
      return put_hex(target, bytes, 2);
    case TOVIK_BINARY:
      return put_bytes(target, bytes.text, bytes.length, bytes.length);
    default:
      return fail(status::value_target_type);
  }
}

static bool convert_datetime(const DateTimeRec &record, TypeCode code, int api_type,
                             const TargetBuffer &target) {
  if (api_type == TOVIK_DATETIME) return put_bytes(target, &record, sizeof record, sizeof record);
  if (api_type != TOVIK_CHAR && api_type != TOVIK_WCHAR) return fail(status::value_target_type);
  char digits[number_text_size];
  if (!format_datetime(code, record, digits)) return false;
  return put_text(target, digits, static_cast<int>(strlen(digits)), api_type);
}

bool convert_value(const Value &value, TypeCode code, int api_type, const TargetBuffer &target) {
  if ((code & TYPE_INTEGER) != 0) return convert_integer(value.integer, api_type, target);
  if ((code & TYPE_FLOAT) != 0) return convert_real(value.real, api_type, target);
  if ((code & TYPE_DATETIME) != 0) return convert_datetime(value.datetime, code, api_type, target);
  if ((code & TYPE_BINARY) != 0) return convert_binary(value.text, api_type, target);
  if ((code & TYPE_CHARACTER) == 0 || (api_type != TOVIK_CHAR && api_type != TOVIK_WCHAR)) {
    return fail(status::value_target_type);
  }
  return put_text(target, value.text.text, value.text.length, api_type);
}

Utf8Text utf8_from_wide(const uint16_t *text) {
  // A unit takes at most three bytes of UTF-8, a pair four.
  const int size =
      charset_table[charset_utf16le]->byte_length(reinterpret_cast<const char *>(text)) / 2 * 3 + 1;
  Utf8Text converted(static_cast<char *>(mem_alloc(static_cast<size_t>(size))));
  if (converted == nullptr) return fail_null(status::out_of_memory);
  if (system_driver.text_convert(charset_utf8, charset_utf16le, text, 0, converted.get(), size, 0) < 0) {
    return fail_null(status::code_conversion);
  }
  return converted;
}

}  // namespace tovik
