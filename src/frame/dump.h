// Bounded writers of formatted text, used by every dump, listing and report of the engine.
//
// With a null position both print to standard output and return null. Otherwise they write at position, of
// which remaining bytes may be used, and return the new end; a text that does not fit is cut, and later calls
// that pass the returned position and the room left write nothing.
#pragma once

namespace tovik {

inline constexpr int dump_text_limit = 1023;  // characters of one formatted text

// The text and a line feed. Cut: the first remaining - 1 characters, no line feed.
char *dump_line(char *position, int remaining, const char *format, ...) __attribute__((format(printf, 3, 4)));

// The line on standard output.
void print_line(const char *format, ...) __attribute__((format(printf, 1, 2)));

// The text without a line feed.
char *dump_text(char *position, int remaining, const char *format, ...) __attribute__((format(printf, 3, 4)));

}  // namespace tovik
