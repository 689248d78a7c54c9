// Values in the caller's records: read by API data type when a record is filled, and turned into the engine's
// values when it is used.
#pragma once

#include "data/value/value.h"
#include "frame/memory_pool.h"
#include "tovik.h"

namespace tovik {

inline constexpr int operand_null = 0;  // beside the API data types

inline bool operand_is_text(int type) {
  return type == TOVIK_CHAR || type == TOVIK_WCHAR;
}

// Copies the value of an API data type from 1 to 10 that source points to; false when source, or the text or
// the bytes that it names, is missing.
[[nodiscard]] bool operand_read(int type, const void *source, tovik_value *operand);

// The engine's value: NULL, bigint, float64, character, microtimestamp or blob. A single is rounded to its
// seven digits, as values of float columns are; wide texts become UTF-8 in pool, other texts and bytes stay
// where they are. 110002, 301; 202123, 202124, 202151 for a record that nobody filled.
[[nodiscard]] bool operand_value(MemoryPool &pool, int type, const tovik_value &operand, Value *value);

}  // namespace tovik
