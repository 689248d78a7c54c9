// Stepping over characters where most are ASCII: in every 8-bit character set a character that starts with a
// byte below 0x80 is that byte alone, and the handler need not be asked.
#pragma once

#include <cstring>

#include "platform/charset/charset.h"

namespace tovik {

// Bytes of the character at text, which is not the terminator.
inline int character_size(const Charset &charset, const char *text) {
  if (static_cast<unsigned char>(*text) < 0x80) return 1;
  const char *next = charset.next(text);
  return next == nullptr ? 1 : static_cast<int>(next - text);
}

struct Character {
  const char *bytes;
  int size;
};

inline Character character_at(const Charset &charset, const char *text) {
  return {text, character_size(charset, text)};
}

inline bool character_equal(Character a, Character b) {
  return a.size == b.size && *a.bytes == *b.bytes &&
         (a.size == 1 || memcmp(a.bytes, b.bytes, static_cast<size_t>(a.size)) == 0);
}

}  // namespace tovik
