// Parameter strings: items "key=value" or bare keys, separated by ";". Used for the init text and for
// database parameter strings.
#pragma once

#include <cstdint>

namespace tovik {

// Reads the next item of text into key and value (cut to their buffers, always terminated; value is empty for
// a bare key). Returns the position after the item, or null when no item is left. A value in quotes or braces
// keeps its blanks and may hold ";".
const char *next_pair(const char *text, char *key, int key_size, char *value, int value_size);

// A copy of text from the memory table (release with mem_free), or null.
char *text_dup(const char *text);

// The number that text starts with, clamped to its range; 0 without digits. base 0 goes by the prefix (0x,
// 0). What follows the digits is ignored.
int32_t text_number(const char *text, int base);

// Comparison without regard to the case of ASCII letters.
bool text_equal_nocase(const char *a, const char *b);

}  // namespace tovik
