// Numbers to text and back, in the C notation whatever the process's locale says. Nothing here records a
// status or touches errno.
#pragma once

#include <cstdint>

namespace tovik {

enum class NumberText {
  whole,         // the whole text is a number
  out_of_range,  // it is a number too large for the type; the value is the limit it passed
  partial        // there is no number, or something follows it
};

// Blanks before the number and a sign are allowed. In every case *value is what the number at the start of
// the text amounts to, 0 when there is none.
NumberText text_to_integer(const char *text, int64_t *value);

// Also accepts hexadecimal, infinite and not-a-number forms. A number too small is 0, not out of range.
NumberText text_to_double(const char *text, double *value);

inline constexpr int number_text_size = 32;  // bytes that hold every result below

char *integer_to_text(int64_t value, char *text);               // "%lld"
char *double_to_text(double value, int precision, char *text);  // "%.<precision>e", precision up to 17
char *double_to_exact_text(double value, char *text);  // the shortest that text_to_double reads as value
inline constexpr int float32_precision = 6, float64_precision = 14;

// The whole part, the nearest limit for what is outside 64 bits, 0 for what is no number.
int64_t double_to_integer(double value);

// A single as it is handed out and compared: rounded to seven significant digits.
double float32_rounded(float value);

}  // namespace tovik
