// Little-endian loads and stores for everything that lies in a block.
#pragma once

#include <cstdint>
#include <cstring>

namespace tovik {

inline uint16_t load_u16(const void *at) {
  const uint8_t *b = static_cast<const uint8_t *>(at);
  return static_cast<uint16_t>(b[0] | b[1] << 8);
}
inline uint32_t load_u32(const void *at) {
  const uint8_t *b = static_cast<const uint8_t *>(at);
  return static_cast<uint32_t>(b[0]) | static_cast<uint32_t>(b[1]) << 8 | static_cast<uint32_t>(b[2]) << 16 |
         static_cast<uint32_t>(b[3]) << 24;
}
inline uint64_t load_u64(const void *at) {
  const uint8_t *b = static_cast<const uint8_t *>(at);
  return load_u32(b) | static_cast<uint64_t>(load_u32(b + 4)) << 32;
}
inline int16_t load_i16(const void *at) {
  return static_cast<int16_t>(load_u16(at));
}
inline int32_t load_i32(const void *at) {
  return static_cast<int32_t>(load_u32(at));
}
inline int64_t load_i64(const void *at) {
  return static_cast<int64_t>(load_u64(at));
}

inline void store_u16(void *at, uint16_t value) {
  uint8_t *b = static_cast<uint8_t *>(at);
  b[0] = static_cast<uint8_t>(value);
  b[1] = static_cast<uint8_t>(value >> 8);
}
inline void store_u32(void *at, uint32_t value) {
  uint8_t *b = static_cast<uint8_t *>(at);
  b[0] = static_cast<uint8_t>(value);
  b[1] = static_cast<uint8_t>(value >> 8);
  b[2] = static_cast<uint8_t>(value >> 16);
  b[3] = static_cast<uint8_t>(value >> 24);
}
inline void store_u64(void *at, uint64_t value) {
  uint8_t *b = static_cast<uint8_t *>(at);
  store_u32(b, static_cast<uint32_t>(value));
  store_u32(b + 4, static_cast<uint32_t>(value >> 32));
}
inline void store_i16(void *at, int16_t value) {
  store_u16(at, static_cast<uint16_t>(value));
}
inline void store_i32(void *at, int32_t value) {
  store_u32(at, static_cast<uint32_t>(value));
}
inline void store_i64(void *at, int64_t value) {
  store_u64(at, static_cast<uint64_t>(value));
}

}  // namespace tovik
