// The length of a character is the number of leading 1 bits of its first byte, up to 6; a byte below 0x80 or
// with a single leading 1 bit is a character of its own.
#include "platform/charset/byte_text.h"
#include "platform/charset/character_ops.h"
#include "platform/charset/handlers.h"
#include "platform/charset/unicode.h"
#include "platform/charset/unicode_folds.h"

namespace tovik {

namespace {

constexpr int longest = 6;

int lead_length(char c) {
  const int ones = utf8_leading_ones(c);
  return ones < 2 ? 1 : ones > longest ? longest : ones;
}

struct Utf8 : ByteText {
  static constexpr const FoldTable &folds = unicode_folds;

  static int length(const char *text) { return bounded_length(text, lead_length(text[0])); }

  // Everything that folds is ASCII or takes three bytes.
  static uint32_t code(const char *text, int length) {
    if (length == 1 && static_cast<unsigned char>(text[0]) < 0x80) return static_cast<unsigned char>(text[0]);
    if (length != 3 || (text[0] & 0xF0) != 0xE0 || !utf8_is_continuation(text[1]) ||
        !utf8_is_continuation(text[2])) {
      return code_without_folds;
    }
    return (text[0] & 0x0Fu) << 12 | (text[1] & 0x3Fu) << 6 | (text[2] & 0x3Fu);
  }

  static int store(char *target, uint32_t code) {
    if (code < 0x80) {
      target[0] = static_cast<char>(code);
      return 1;
    }
    target[0] = static_cast<char>(0xE0 | code >> 12);
    target[1] = static_cast<char>(0x80 | (code >> 6 & 0x3F));
    target[2] = static_cast<char>(0x80 | (code & 0x3F));
    return 3;
  }

  static const char *previous(const char *start, const char *text) {
    do {
      --text;
    } while (text > start && utf8_is_continuation(*text));
    return text;
  }

  static bool valid(const char *text) {
    while (*text != '\0') {
      const int ones = utf8_leading_ones(*text);
      if (ones == 1 || ones > longest) return false;
      ++text;
      for (int i = 1; i < ones; ++i, ++text) {
        if (!utf8_is_continuation(*text)) return false;
      }
    }
    return true;
  }
};

}  // namespace

constinit const Charset utf8_charset = charset_of<Utf8>("UTF-8");

}  // namespace tovik
