// SQL literals: from their text to an exchange value (types.h).
#pragma once

#include "data/value/datetime.h"

namespace tovik {

// The text of an SQL literal to an exchange value of its class at target (int64_t, double, DateTimeRec, or
// 32-bit length and bytes).
[[nodiscard]] bool parse_literal(TypeCode classes, const char *text, Mishap mishap, void *target);

// Hexadecimal digits to a 32-bit length and the bytes; an odd last digit is a byte of its own. 113013.
[[nodiscard]] bool hex_to_binary(const char *text, void *target);
// The same with the length beside the bytes, which may take the place of the digits.
[[nodiscard]] bool hex_to_bytes(const char *text, uint8_t *bytes, int32_t *length);

}  // namespace tovik
