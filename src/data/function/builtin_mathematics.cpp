// Mathematical functions, in double precision. What is outside a function's domain gives what the library's
// function gives.
#include <cmath>
#include <cstdint>

#include "data/function/builtin.h"
#include "frame/error.h"

#if defined(_WIN32)
// The Bessel functions under the names of that runtime library, whose header hides them from strict C++.
extern "C" {
double _j0(double);
double _j1(double);
double _jn(int, double);
double _y0(double);
double _y1(double);
double _yn(int, double);
}
#define BESSEL(name) _##name
#else
#define BESSEL(name) name
#endif

namespace tovik {

namespace {

double real_of(const Value &value) {
  return (value.type & TYPE_INTEGER) != 0 ? static_cast<double>(value.integer) : value.real;
}

// The whole part, held within the range of an int.
int truncated_int(const Value &value) {
  const double whole = trunc(real_of(value));
  if (std::isnan(whole)) return 0;
  return whole <= -INT32_MAX ? -INT32_MAX : whole >= INT32_MAX ? INT32_MAX : static_cast<int>(whole);
}

double round_half_away(double value) {
  return value >= 0 ? floor(value + 0.5) : ceil(value - 0.5);
}

// Rounds at the decimal place that the second argument names.
double scaled(double (*round_whole)(double), const Value *arguments, int count) {
  const double value = real_of(arguments[0]);
  const int places = count > 1 ? truncated_int(arguments[1]) : 0;
  if (places == 0) return round_whole(value);
  const double scale = pow(10.0, places);
  return round_whole(value * scale) / scale;
}

bool absolute(const Value &value, Value &result) {
  if ((value.type & TYPE_INTEGER) != 0) {
    const uint64_t bits = static_cast<uint64_t>(value.integer);
    result.integer = value.integer < 0 ? static_cast<int64_t>(0 - bits) : value.integer;
  } else {
    result.real = fabs(value.real);
  }
  return true;
}

bool sign(const Value &value, Value &result) {
  const double real = real_of(value);
  result.integer = (real > 0) - (real < 0);
  return true;
}

using OneArgument = double (*)(double);
using TwoArguments = double (*)(double, double);
using WithOrder = double (*)(int, double);

OneArgument one_argument(int number) {
  switch (number) {
    case builtin::acos:
      return acos;
    case builtin::asin:
      return asin;
    case builtin::atan:
      return atan;
    case builtin::cos:
      return cos;
    case builtin::cosh:
      return cosh;
    case builtin::erf:
      return erf;
    case builtin::erfc:
      return erfc;
    case builtin::exp:
      return exp;
    case builtin::fabs:
      return fabs;
    case builtin::gamma:
      return tgamma;
    case builtin::j0:
      return BESSEL(j0);
    case builtin::j1:
      return BESSEL(j1);
    case builtin::log:
      return log;
    case builtin::log10:
      return log10;
    case builtin::sin:
      return sin;
    case builtin::sinh:
      return sinh;
    case builtin::sqrt:
      return sqrt;
    case builtin::tan:
      return tan;
    case builtin::tanh:
      return tanh;
    case builtin::y0:
      return BESSEL(y0);
    case builtin::y1:
      return BESSEL(y1);
    default:
      return nullptr;
  }
}

TwoArguments two_arguments(int number) {
  switch (number) {
    case builtin::atan2:
      return atan2;
    case builtin::fmod:
      return fmod;
    case builtin::hypot:
      return hypot;
    case builtin::pow:
      return pow;
    default:
      return nullptr;
  }
}

// The library takes one step per order, those of the second kind only up to orders of the size of the
// argument. Where that would be more than a million steps nothing is computed, and the result is not a
// number.
constexpr double bessel_step_limit = 1e6;

bool bessel_takes_too_long(int order, double value) {
  return fabs(static_cast<double>(order)) > bessel_step_limit && fabs(value) > bessel_step_limit;
}

// |J(n, x)| <= (e |x| / 2n)^n, which far above the argument is below every double.
double first_kind(int order, double value) {
  constexpr double log_of_least = -745;
  const double n = fabs(static_cast<double>(order));
  if (n * (1 + log(fabs(value) / (2 * n))) < log_of_least) return 0.0;
  return bessel_takes_too_long(order, value) ? NAN : BESSEL(jn)(order, value);
}

double second_kind(int order, double value) {
  return bessel_takes_too_long(order, value) ? NAN : BESSEL(yn)(order, value);
}

WithOrder with_order(int number) {
  return number == builtin::jn ? first_kind : number == builtin::yn ? second_kind : nullptr;
}

OneArgument rounding(int number) {
  switch (number) {
    case builtin::ceiling:
      return ceil;
    case builtin::floor:
      return floor;
    case builtin::round:
      return round_half_away;
    case builtin::trunnc:
      return trunc;
    default:
      return nullptr;
  }
}

}  // namespace

bool builtin_mathematics(int number, const Value *arguments, int count, Value &result) {
  if (number == builtin::abs) return absolute(arguments[0], result);
  if (number == builtin::sign) return sign(arguments[0], result);
  if (const OneArgument function = one_argument(number)) {
    result.real = function(real_of(arguments[0]));
  } else if (const OneArgument round_whole = rounding(number)) {
    result.real = scaled(round_whole, arguments, count);
  } else if (const TwoArguments function = two_arguments(number)) {
    result.real = function(real_of(arguments[0]), real_of(arguments[1]));
  } else if (const WithOrder function = with_order(number)) {
    result.real = function(truncated_int(arguments[0]), real_of(arguments[1]));
  } else {
    return fail(status::function_argument);
  }
  return true;
}

}  // namespace tovik
