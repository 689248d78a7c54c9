// Single characters of ASCII, whatever the character set and the C locale.
#pragma once

namespace tovik {

// What may stand around names, numbers and items in the texts that a caller gives.
inline bool is_blank(char c) {
  return c == ' ' || c == '\t' || c == '\r' || c == '\n';
}
inline const char *skip_blanks(const char *text) {
  while (is_blank(*text)) ++text;
  return text;
}

constexpr char ascii_lower(char c) {
  return c >= 'A' && c <= 'Z' ? static_cast<char>(c - 'A' + 'a') : c;
}
constexpr char ascii_upper(char c) {
  return c >= 'a' && c <= 'z' ? static_cast<char>(c - 'a' + 'A') : c;
}

// The value of a hexadecimal digit, or -1.
constexpr int hex_digit(char c) {
  if (c >= '0' && c <= '9') return c - '0';
  const char small = ascii_lower(c);
  return small >= 'a' && small <= 'f' ? small - 'a' + 10 : -1;
}

}  // namespace tovik
