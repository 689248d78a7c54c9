// What the character sets share whose characters are known by their bytes read as one big-endian number.
#pragma once

#include <cstdint>

#include "platform/charset/byte_text.h"
#include "platform/charset/fold.h"

namespace tovik {

constexpr bool byte_within(unsigned char byte, unsigned first, unsigned last) {
  return byte >= first && byte <= last;
}

struct BytePairText : ByteText {
  // Characters of three bytes never fold.
  static uint32_t code(const char *text, int length) {
    if (length == 1) return byte_at(text, 0);
    return length == 2 ? static_cast<uint32_t>(byte_at(text, 0) << 8 | byte_at(text, 1)) : code_without_folds;
  }

  static int store(char *target, uint32_t code) {
    int size = 0;
    if (code > 0xFF) target[size++] = static_cast<char>(code >> 8);
    target[size++] = static_cast<char>(code);
    return size;
  }
};

}  // namespace tovik
