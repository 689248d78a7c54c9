// The pattern languages of LIKE, MATCH and SMATCH. Characters are whole characters of the current character
// set. No pattern makes the time grow faster than (bytes of the text) x (bytes of the pattern).
//
// Match patterns
//   *        any sequence, also none
//   ?        one character
//   [abx-z]  one character of a set; [^...] one that is not in it. A set with a range whose end is below its
//            start, with a "-" before its "]", or without "]" matches nothing.
//   {abc}    optional: characters ("|" and "&" too), "?", sets and escapes, matched here or left out
//   \        makes the next character literal
//   |        separates alternatives; one of them must match
//   &        separates parts; all of them must match
//
// Every alternative and every part is matched from the start of the text; only the last one must match the
// whole text, the others match when they reach their separator. When an alternative fails, the next "|"
// behind the furthest place that matching reached goes on with the next one; an escaped "|" there ends the
// search instead, and the pattern does not match. A "}" without "{" or a "{" without "}" that is reached
// makes the whole pattern fail.
#pragma once

namespace tovik {

// "%" any sequence, "_" one character, backslash makes the next literal; the whole text must match.
bool pattern_like(const char *text, const char *pattern);

// fold: ASCII letters match in either case. False with 1, for patterns of hundreds of bytes with groups only.
[[nodiscard]] bool pattern_match(const char *text, const char *pattern, bool fold, bool *matches);

}  // namespace tovik
