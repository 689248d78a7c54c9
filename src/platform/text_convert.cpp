#include "platform/text_convert.h"

#include <cstdint>

#include "platform/charset/charset.h"
#include "platform/charset/unicode.h"

namespace tovik {

namespace {

constexpr uint32_t malformed = 0xFFFFFFFF;
constexpr uint32_t first_supplementary = 0x10000;
constexpr uint32_t last_code_point = 0x10FFFF;

uint32_t utf8_read(const unsigned char **text) {
  static constexpr uint32_t smallest[5] = {0, 0, 0x80, 0x800, first_supplementary};
  const unsigned char *p = *text;
  const uint32_t lead = *p++;
  if (lead < 0x80) {
    *text = p;
    return lead;
  }
  const int length = utf8_leading_ones(static_cast<char>(lead));
  if (length < 2 || length > 4) return malformed;
  uint32_t code = lead & (0x7Fu >> length);
  for (int i = 1; i < length; ++i, ++p) {
    if (!utf8_is_continuation(static_cast<char>(*p))) return malformed;  // also at the terminator
    code = code << 6 | (*p & 0x3Fu);
  }
  if (code < smallest[length] || code > last_code_point || is_high_surrogate(code) ||
      is_low_surrogate(code)) {
    return malformed;
  }
  *text = p;
  return code;
}

int utf8_size(uint32_t code) {
  return code < 0x80 ? 1 : code < 0x800 ? 2 : code < first_supplementary ? 3 : 4;
}

void utf8_write(unsigned char *target, uint32_t code, int size) {
  static constexpr unsigned char lead[5] = {0, 0, 0xC0, 0xE0, 0xF0};
  for (int i = size - 1; i > 0; --i, code >>= 6) target[i] = static_cast<unsigned char>(0x80 | (code & 0x3F));
  target[0] = static_cast<unsigned char>(lead[size] | code);
}

uint32_t unit_read(const unsigned char *p) {
  return p[0] | static_cast<uint32_t>(p[1]) << 8;
}

void unit_write(unsigned char *target, uint32_t unit) {
  target[0] = static_cast<unsigned char>(unit);
  target[1] = static_cast<unsigned char>(unit >> 8);
}

uint32_t utf16_read(const unsigned char **text) {
  const uint32_t unit = unit_read(*text);
  *text += 2;
  if (is_low_surrogate(unit)) return malformed;
  if (!is_high_surrogate(unit)) return unit;
  const uint32_t low = unit_read(*text);
  if (!is_low_surrogate(low)) return malformed;
  *text += 2;
  return first_supplementary + ((unit - 0xD800) << 10) + (low - 0xDC00);
}

// Both give the units written with the terminator (bytes or 16-bit units), or -1.
int utf16_to_utf8(const unsigned char *source, unsigned char *target, int target_size) {
  int used = 0;
  for (;;) {
    const uint32_t code = utf16_read(&source);
    if (code == malformed) return -1;
    const int size = utf8_size(code);
    if (size > target_size - used) return -1;
    utf8_write(target + used, code, size);
    used += size;
    if (code == 0) return used;
  }
}

int utf8_to_utf16(const unsigned char *source, unsigned char *target, int unit_limit) {
  int used = 0;
  for (;;) {
    const uint32_t code = utf8_read(&source);
    if (code == malformed) return -1;
    const int units = code < first_supplementary ? 1 : 2;
    if (units > unit_limit - used) return -1;
    unsigned char *position = target + 2 * static_cast<int64_t>(used);
    if (units == 1) {
      unit_write(position, code);
    } else {
      unit_write(position, 0xD800 + ((code - first_supplementary) >> 10));
      unit_write(position + 2, 0xDC00 + (code & 0x3FF));
    }
    used += units;
    if (code == 0) return used;
  }
}

}  // namespace

int text_convert(int target_set, int source_set, const void *source, int, void *target, int target_size,
                 int) {
  if (source == nullptr || target == nullptr || target_size <= 0) return -1;
  const unsigned char *from = static_cast<const unsigned char *>(source);
  unsigned char *to = static_cast<unsigned char *>(target);
  if (target_set == charset_utf8) return utf16_to_utf8(from, to, target_size);
  if (target_set != charset_utf16le && source_set != charset_utf8) return -1;
  const int units = utf8_to_utf16(from, to, target_size / 2);
  if (units < 0 || target_set != charset_utf16le) return units;
  return units > INT32_MAX / 2 ? -1 : units * 2;
}

}  // namespace tovik
