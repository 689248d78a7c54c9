// The pattern languages of LIKE, MATCH and SMATCH. Characters are whole characters of the current character
// set.
#pragma once

namespace tovik {

// "%" any sequence, "_" one character, backslash makes the next literal; the whole text must match.
bool pattern_like(const char *text, const char *pattern);

// "*" "?" "[set]" "{optional group}" "|" "&" and backslash; fold: ASCII letters match in either case.
bool pattern_match(const char *text, const char *pattern, bool fold);

}  // namespace tovik
