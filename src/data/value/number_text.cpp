#include "data/value/number_text.h"

#include <charconv>
#include <cmath>
#include <cstring>
#include <limits>

#include "platform/ascii.h"

namespace tovik {

namespace {

// What strtoll and strtod skip in the C locale.
const char *skip_spaces(const char *text) {
  while (*text == ' ' || (*text >= '\t' && *text <= '\r')) ++text;
  return text;
}

bool sign_at(char c) {
  return c == '-' || c == '+';
}

int hex_or_decimal_digit(char c, bool hex) {
  const int digit = hex_digit(c);
  return hex || digit < 10 ? digit : -1;
}

// Whether a number that no double holds is above the range (else it is below): the exponent of its first
// significant digit is positive.
bool exceeds_range(const char *digits, bool hex) {
  int64_t exponent = 0;
  bool significant = false, fraction = false;
  for (;; ++digits) {
    if (*digits == '.' && !fraction) {
      fraction = true;
      continue;
    }
    const int digit = hex_or_decimal_digit(*digits, hex);
    if (digit < 0) break;
    significant = significant || digit != 0;
    if (significant && !fraction) ++exponent;
    if (!significant && fraction) --exponent;
  }
  if (hex) exponent *= 4;
  const bool marked = (*digits | 0x20) == (hex ? 'p' : 'e');
  if (!marked) return exponent > 0;
  int64_t written = 0;
  if (text_to_integer(digits + 1, &written) == NumberText::out_of_range) return written > 0;
  return written > -exponent;
}

}  // namespace

NumberText text_to_integer(const char *text, int64_t *value) {
  *value = 0;
  const char *start = skip_spaces(text);
  const bool negative = *start == '-';
  if (*start == '+' && *++start == '-') return NumberText::partial;
  const char *end = start + strlen(start);
  const std::from_chars_result result = std::from_chars(start, end, *value, 10);
  if (result.ec == std::errc::result_out_of_range) {
    *value = negative ? std::numeric_limits<int64_t>::min() : std::numeric_limits<int64_t>::max();
    return NumberText::out_of_range;
  }
  return result.ec == std::errc() && result.ptr == end ? NumberText::whole : NumberText::partial;
}

NumberText text_to_double(const char *text, double *value) {
  *value = 0.0;
  const char *start = skip_spaces(text);
  const bool negative = *start == '-';
  if (sign_at(*start)) ++start;
  if (sign_at(*start)) return NumberText::partial;
  const bool hex = start[0] == '0' && (start[1] | 0x20) == 'x';
  if (hex) start += 2;
  if (hex && hex_digit(*start) < 0 && *start != '.') return NumberText::partial;
  if (hex && strstr(start, "+-") != nullptr) return NumberText::partial;  // from_chars would take both signs

  const char *end = start + strlen(start);
  const std::chars_format format = hex ? std::chars_format::hex : std::chars_format::general;
  const std::from_chars_result result = std::from_chars(start, end, *value, format);
  const bool digits = hex || *start == '.' || (*start >= '0' && *start <= '9');
  NumberText outcome = NumberText::whole;
  if (result.ec == std::errc::result_out_of_range) {
    *value = exceeds_range(start, hex) ? HUGE_VAL : 0.0;
  } else if (result.ec != std::errc()) {
    return NumberText::partial;
  }
  if (digits && std::isinf(*value)) outcome = NumberText::out_of_range;
  if (negative) *value = -*value;
  return result.ptr == end ? outcome : NumberText::partial;
}

char *integer_to_text(int64_t value, char *text) {
  *std::to_chars(text, text + number_text_size - 1, value).ptr = '\0';
  return text;
}

char *double_to_text(double value, int precision, char *text) {
  if (std::isnan(value)) value = NAN;  // without the sign that the machine gave it
  *std::to_chars(text, text + number_text_size - 1, value, std::chars_format::scientific, precision).ptr =
      '\0';
  return text;
}

char *double_to_exact_text(double value, char *text) {
  if (std::isnan(value)) value = NAN;
  *std::to_chars(text, text + number_text_size - 1, value).ptr = '\0';
  return text;
}

int64_t double_to_integer(double value) {
  constexpr double limit = 9223372036854775808.0;
  if (std::isnan(value)) return 0;
  if (value >= limit) return std::numeric_limits<int64_t>::max();
  return value < -limit ? std::numeric_limits<int64_t>::min() : static_cast<int64_t>(value);
}

double float32_rounded(float value) {
  char text[number_text_size];
  const char *end =
      std::to_chars(text, text + sizeof text, value, std::chars_format::scientific, float32_precision).ptr;
  double rounded = value;  // stays for the forms that are no number
  std::from_chars(text, end, rounded);
  return rounded;
}

}  // namespace tovik
