// Both byte orders of UTF-16. A high surrogate followed by a low one is a character of four bytes; any other
// unit, unpaired surrogates among them, is one of two bytes.
#include <cstring>

#include "platform/charset/character_ops.h"
#include "platform/charset/handlers.h"
#include "platform/charset/unicode.h"
#include "platform/charset/unicode_folds.h"

namespace tovik {

namespace {

constexpr int unit_size = 2;

struct LittleEndian {
  static constexpr int low = 0;  // place of the less significant byte
};

struct BigEndian {
  static constexpr int low = 1;
};

bool at_end(const char *text) {
  return text[0] == '\0' && text[1] == '\0';
}

// What the two orders share.
struct UnitText {
  static constexpr int unit = unit_size;
  static constexpr const FoldTable &folds = unicode_folds;

  static int byte_length(const char *text) {
    int length = 0;
    while (!at_end(text + length)) length += unit_size;
    return length;
  }
  static char *copy(char *target, const char *source) {
    memcpy(target, source, static_cast<size_t>(byte_length(source) + unit_size));
    return target;
  }
  static char *append(char *target, const char *source) {
    copy(target + byte_length(target), source);
    return target;
  }
  static bool valid(const char *) { return true; }
};

template <class Order>
struct Utf16 : UnitText {
  static uint32_t unit_at(const char *text) {
    const uint32_t low = static_cast<unsigned char>(text[Order::low]);
    const uint32_t high = static_cast<unsigned char>(text[1 - Order::low]);
    return high << 8 | low;
  }

  static bool is_pair(const char *text) {
    return is_high_surrogate(unit_at(text)) && is_low_surrogate(unit_at(text + unit_size));
  }

  static int length(const char *text) {
    if (at_end(text)) return 0;
    return is_pair(text) ? 2 * unit_size : unit_size;
  }

  static uint32_t code(const char *text, int length) {
    return length == unit_size ? unit_at(text) : code_without_folds;
  }

  static int store(char *target, uint32_t code) {
    target[Order::low] = static_cast<char>(code);
    target[1 - Order::low] = static_cast<char>(code >> 8);
    return unit_size;
  }

  static int compare(const char *a, const char *b) {
    for (;; a += unit_size, b += unit_size) {
      const uint32_t left = unit_at(a);
      const uint32_t right = unit_at(b);
      if (left != right) return left < right ? -1 : 1;
      if (left == 0) return 0;
    }
  }

  static const char *previous(const char *start, const char *text) {
    const bool pair = text - start >= 2 * unit_size && is_pair(text - 2 * unit_size);
    return pair ? text - 2 * unit_size : text - unit_size;
  }
};

}  // namespace

constinit const Charset utf16le_charset = charset_of<Utf16<LittleEndian>>("UTF-16LE");
constinit const Charset utf16be_charset = charset_of<Utf16<BigEndian>>("UTF-16BE");

}  // namespace tovik
