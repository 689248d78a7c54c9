// The units that characters of Unicode are written with.
#pragma once

#include <bit>
#include <cstdint>

namespace tovik {

// Leading 1 bits of a byte of UTF-8: none in ASCII, one in a continuation byte, else as many as the character
// that it starts has bytes.
inline int utf8_leading_ones(char byte) {
  return std::countl_one(static_cast<unsigned char>(byte));
}
inline bool utf8_is_continuation(char byte) {
  return (byte & 0xC0) == 0x80;
}

// A high surrogate and a low one after it are one character of UTF-16.
constexpr bool is_high_surrogate(uint32_t unit) {
  return unit >= 0xD800 && unit <= 0xDBFF;
}
constexpr bool is_low_surrogate(uint32_t unit) {
  return unit >= 0xDC00 && unit <= 0xDFFF;
}

}  // namespace tovik
