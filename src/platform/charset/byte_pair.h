// What the character sets share whose characters are known by their bytes read as one big-endian number.
#pragma once

#include <cstdint>

#include "platform/charset/fold.h"

namespace tovik {

inline unsigned char byte_at(const char *text, int index) {
  return static_cast<unsigned char>(text[index]);
}

constexpr bool byte_within(unsigned char byte, unsigned first, unsigned last) {
  return byte >= first && byte <= last;
}

// Characters of three bytes never fold.
inline uint32_t byte_pair_code(const char *text, int length) {
  if (length == 1) return byte_at(text, 0);
  return length == 2 ? static_cast<uint32_t>(byte_at(text, 0) << 8 | byte_at(text, 1)) : code_without_folds;
}

inline int byte_pair_store(char *target, uint32_t code) {
  int size = 0;
  if (code > 0xFF) target[size++] = static_cast<char>(code >> 8);
  target[size++] = static_cast<char>(code);
  return size;
}

// wanted bytes, or fewer when the terminator comes first; 0 at the terminator.
inline int bounded_length(const char *text, int wanted) {
  int length = 0;
  while (length < wanted && text[length] != '\0') ++length;
  return length;
}

}  // namespace tovik
