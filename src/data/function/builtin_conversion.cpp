// NVL, TOCHAR and TODATE.
//
// Date formats are made of YYYY MM DD HH24 MI SS FF (microseconds), in either case, and of literal characters
// that are no ASCII letters or digits. Number formats are made of
//   9   a digit; blank in front of the number
//   0   a digit; from here on zeros are written in front of the number
//   ,   between digits; blank in front of the number
//   .   the decimal point; every digit place after it is written
// and give a text one longer than the format: the sign stands directly before the number. Values are rounded
// half away from zero in their shortest decimal form. What does not fit its format is argument_2_value.
#include <charconv>
#include <cmath>
#include <cstring>

#include "data/function/builtin.h"
#include "data/value/datetime.h"
#include "data/value/literal.h"
#include "data/value/number_text.h"
#include "frame/charset_current.h"
#include "frame/error.h"
#include "platform/ascii.h"

namespace tovik {

namespace {

bool mismatch() {
  return fail(status::argument_2_value);
}

void give_text(Value &result, char *text, char *end) {
  *end = '\0';
  result.text = TextRef{text, static_cast<int32_t>(end - text)};
}

bool is_digit(char c) {
  return c >= '0' && c <= '9';
}

// ---- date formats ----

struct DateElement {
  const char *name;
  int part;    // as datetime_part takes it
  int digits;  // written
};
constexpr DateElement date_elements[] = {
    {"YYYY", part_year, 4}, {"MM", part_month, 2},  {"DD", part_day, 2},         {"HH24", part_hour, 2},
    {"MI", part_minute, 2}, {"SS", part_second, 2}, {"FF", part_microsecond, 6},
};

// The element at format, null when a literal character stands there.
const DateElement *element_at(const char *format) {
  for (const DateElement &element : date_elements) {
    size_t i = 0;
    while (element.name[i] != '\0' && ascii_upper(format[i]) == element.name[i]) ++i;
    if (element.name[i] == '\0') return &element;
  }
  return nullptr;
}

bool is_literal(char c) {
  return !is_digit(c) && !(ascii_upper(c) >= 'A' && ascii_upper(c) <= 'Z');
}

void put_digits(char *target, int value, int digits) {
  for (int i = digits - 1; i >= 0; --i, value /= 10) target[i] = static_cast<char>('0' + value % 10);
}

bool date_to_text(const DateTimeRec &date, const char *format, MemoryPool &pool, Value &result) {
  constexpr int64_t widest = 3;  // FF: six digits from two characters
  char *text = builtin_allocate(pool, widest * static_cast<int64_t>(strlen(format)) + 1);
  if (text == nullptr) return false;
  const Charset &charset = charset_current();
  char *end = text;
  bool element_seen = false;
  while (*format != '\0') {
    if (const DateElement *element = element_at(format)) {
      put_digits(end, datetime_part(date, element->part), element->digits);
      end += element->digits;
      format += strlen(element->name);
      element_seen = true;
    } else if (is_literal(*format)) {
      for (const char *next = charset.next(format); format != next; ++format) *end++ = *format;
    } else {
      return mismatch();
    }
  }
  if (!element_seen) return mismatch();
  give_text(result, text, end);
  return true;
}

// The element's digits at *text: as many as it writes; of a microsecond the leading ones suffice.
bool read_element(const DateElement &element, const char **text, int *value) {
  int digits = 0;
  *value = 0;
  for (; digits < element.digits && is_digit(**text); ++digits, ++*text)
    *value = *value * 10 + (**text - '0');
  if (element.part != part_microsecond) return digits == element.digits;
  for (int missing = element.digits - digits; missing > 0; --missing) *value *= 10;
  return digits > 0;
}

bool text_to_date(const char *text, const char *format, DateTimeRec *date) {
  int fields[7] = {0, 1, 1, 0, 0, 0, 0};
  bool year_seen = false;
  const Charset &charset = charset_current();
  while (*format != '\0') {
    if (const DateElement *element = element_at(format)) {
      if (!read_element(*element, &text, &fields[element->part - part_year])) return mismatch();
      year_seen = year_seen || element->part == part_year;
      format += strlen(element->name);
    } else if (is_literal(*format)) {
      for (const char *next = charset.next(format); format != next; ++format, ++text)
        if (*format != *text) return mismatch();
    } else {
      return mismatch();
    }
  }
  if (*text != '\0' || !year_seen) return mismatch();
  *date = DateTimeRec{static_cast<int16_t>(fields[0]),
                      static_cast<int8_t>(fields[1]),
                      static_cast<int8_t>(fields[2]),
                      static_cast<int8_t>(fields[3]),
                      static_cast<int8_t>(fields[4]),
                      static_cast<int8_t>(fields[5]),
                      0,
                      fields[6]};
  return check_datetime(type::microtimestamp, *date);
}

// ---- number formats ----

struct NumberFormat {
  int whole = 0;       // digit places before the point
  int first_zero = 0;  // of those, the first that is always written; whole when none is
  int decimals = 0;
};

bool is_number_format(const char *format) {
  return format[strspn(format, "09.,")] == '\0';
}

bool parse_number_format(const char *format, NumberFormat *parsed) {
  bool point = false, zero = false;
  for (const char *at = format; *at != '\0'; ++at) {
    if (*at == ',' && (point || parsed->whole == 0)) return false;
    if (*at == '.') {
      if (point) return false;
      point = true;
    }
    if (!is_digit(*at)) continue;
    zero = zero || (!point && *at == '0');
    ++(point ? parsed->decimals : parsed->whole);
    if (!zero && !point) parsed->first_zero = parsed->whole;
  }
  if (parsed->decimals == 0 && parsed->first_zero == parsed->whole) parsed->first_zero = parsed->whole - 1;
  return parsed->whole + parsed->decimals > 0;
}

// The decimal digits of a number: at least one place before the point, a spare zero in front for a carry.
struct Decimal {
  static constexpr int size = 400;  // the longest shortest form in fixed notation has 326 characters
  char digits[size];
  int whole;  // digits before the point
  int count;
  bool negative;
};

bool decimal_of(const Value &value, Decimal *decimal) {
  char text[Decimal::size];
  char *end = text;
  if ((value.type & TYPE_INTEGER) != 0) {
    end = std::to_chars(text, text + sizeof text, value.integer).ptr;
  } else {
    if (!std::isfinite(value.real)) return false;
    end = std::to_chars(text, text + sizeof text, value.real, std::chars_format::fixed).ptr;
  }
  decimal->negative = *text == '-';
  decimal->digits[0] = '0';
  decimal->count = 1;
  decimal->whole = -1;
  for (const char *at = text; at != end; ++at) {
    if (*at == '.') decimal->whole = decimal->count;
    if (is_digit(*at)) decimal->digits[decimal->count++] = *at;
  }
  if (decimal->whole < 0) decimal->whole = decimal->count;
  return true;
}

void round_decimal(Decimal *decimal, int decimals) {
  const int kept = decimal->whole + decimals;
  if (kept >= decimal->count) return;
  const bool up = decimal->digits[kept] >= '5';
  decimal->count = kept;
  if (!up) return;
  int at = kept - 1;
  for (; decimal->digits[at] == '9'; --at) decimal->digits[at] = '0';
  ++decimal->digits[at];
}

bool is_zero(const Decimal &decimal) {
  for (int i = 0; i < decimal.count; ++i)
    if (decimal.digits[i] != '0') return false;
  return true;
}

// One character per character of the format, after the column of the sign.
char *write_number(const Decimal &decimal, const NumberFormat &parsed, const char *format, char *target) {
  int leading = 0;  // zeros in front of the number
  while (leading < decimal.whole && decimal.digits[leading] == '0') ++leading;
  char *const sign = target++;
  char *first = nullptr;  // of the number
  int place = 0, digit = decimal.whole;
  bool point = false;
  *sign = ' ';
  for (; *format != '\0'; ++format, ++target) {
    char c = *format;
    if (is_digit(c) && !point) {
      const int index = decimal.whole - parsed.whole + place;
      const bool written = index >= leading || place >= parsed.first_zero;
      c = !written ? ' ' : index < 0 ? '0' : decimal.digits[index];
      ++place;
    } else if (is_digit(c)) {
      c = digit < decimal.count ? decimal.digits[digit] : '0';
      ++digit;
    } else if (c == '.') {
      point = true;
    } else if (first == nullptr) {
      c = ' ';
    }
    if (first == nullptr && c != ' ') first = target;
    *target = c;
  }
  if (decimal.negative && !is_zero(decimal)) first[-1] = '-';
  return target;
}

bool number_to_text(const Value &value, const char *format, MemoryPool &pool, Value &result) {
  NumberFormat parsed;
  Decimal decimal;
  if (!parse_number_format(format, &parsed) || !decimal_of(value, &decimal)) return mismatch();
  round_decimal(&decimal, parsed.decimals);
  for (int i = 0; i < decimal.whole - parsed.whole; ++i)
    if (decimal.digits[i] != '0') return mismatch();
  char *text = builtin_allocate(pool, static_cast<int64_t>(strlen(format)) + 2);
  if (text == nullptr) return false;
  give_text(result, text, write_number(decimal, parsed, format, text));
  return true;
}

// ---- the functions ----

void give_value(const Value &source, Value &result) {
  const char *label = result.label;
  result = source;
  result.kind = value_kind::computed;
  result.flags &= value_null | value_decimal;
  result.label = label;
}

// The text of a format argument.
bool format_of(const Value &argument, const char **format) {
  if ((argument.type & TYPE_CHARACTER) == 0) return fail(status::argument_2_type);
  if (argument.text.text == nullptr) return fail(status::function_string);
  *format = argument.text.text;
  return true;
}

// A text stands for the number or the date that the format asks for.
bool to_char(const Value &value, const char *format, MemoryPool &pool, Value &result) {
  Value source = value;
  const bool number_asked = is_number_format(format);
  if ((value.type & TYPE_CHARACTER) != 0) {
    if (value.text.text == nullptr) return fail(status::function_string);
    source.type = number_asked ? type::float64 : type::microtimestamp;
    if (!parse_literal(source.type, value.text.text, Mishap::silent, &source.integer)) return mismatch();
  }
  if (number_asked != type_numeric(source.type)) return mismatch();
  if (number_asked) return number_to_text(source, format, pool, result);
  return date_to_text(source.datetime, format, pool, result);
}

bool to_date(const Value &value, const char *format, Value &result) {
  if ((value.type & TYPE_DATETIME) != 0) {
    result.datetime = value.datetime;
    return true;
  }
  char digits[number_text_size];
  const char *text = digits;
  if ((value.type & TYPE_INTEGER) != 0) {
    integer_to_text(value.integer, digits);
  } else if ((value.type & TYPE_CHARACTER) != 0) {
    if (value.text.text == nullptr) return fail(status::function_string);
    text = value.text.text;
  } else {
    return fail(status::argument_1_type);
  }
  return text_to_date(text, format, &result.datetime);
}

}  // namespace

bool builtin_conversion(int number, const Value *arguments, int, MemoryPool &pool, Value &result) {
  if (number == builtin::nvl) {
    give_value(arguments[0].is_null() ? arguments[1] : arguments[0], result);
    return true;
  }
  if (number != builtin::tochar && number != builtin::todate) return fail(status::function_argument);
  if (arguments[0].is_null() || arguments[1].is_null()) {
    result.flags = value_null;
    return true;
  }
  const char *format = nullptr;
  if (!format_of(arguments[1], &format)) return false;
  if (number == builtin::tochar) return to_char(arguments[0], format, pool, result);
  return to_date(arguments[0], format, result);
}

}  // namespace tovik
