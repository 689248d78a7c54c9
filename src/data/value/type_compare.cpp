// Comparison of stored and exchange values (types.h). Two roads lead to the same order: compare_stored and
// compare_values take any two types, the functions that stored_compare_of hands out read two values of one
// type in place.
#include <cmath>
#include <cstring>

#include "data/value/number_text.h"
#include "data/value/stored_form.h"
#include "data/value/types.h"
#include "frame/error.h"

namespace tovik {

namespace {

template <class T>
int order(T a, T b) {
  return (a > b) - (a < b);
}

// Not-a-number is above every number and equal to itself.
int order_doubles(double a, double b) {
  if (a < b) return -1;
  if (a > b) return 1;
  return order(static_cast<int>(std::isnan(a)), static_cast<int>(std::isnan(b)));
}

int order_texts(const void *a, const void *b, int length) {
  const char *left = static_cast<const char *>(a), *right = static_cast<const char *>(b);
  const int difference = length > 0 ? strncmp(left, right, static_cast<size_t>(length)) : strcmp(left, right);
  return order(difference, 0);
}

int order_bytes(const void *a, const void *b, int64_t length) {
  return length > 0 ? order(memcmp(a, b, static_cast<size_t>(length)), 0) : 0;
}

// Both forms begin with a 32-bit length; the shorter value is the smaller.
int order_binaries(const void *a, const void *b) {
  int32_t length_a, length_b;
  memcpy(&length_a, a, sizeof length_a);
  memcpy(&length_b, b, sizeof length_b);
  if (length_a != length_b) return order(length_a, length_b);
  return order_bytes(static_cast<const uint8_t *>(a) + sizeof length_a,
                     static_cast<const uint8_t *>(b) + sizeof length_b, length_a);
}

// Date and time of day without the microsecond, most significant field first.
uint64_t second_key(const DateTimeRec &record) {
  const int8_t fields[] = {record.month, record.day, record.hour, record.minute, record.second};
  uint64_t key = static_cast<uint16_t>(record.year);
  for (const int8_t field : fields) key = key << 8 | static_cast<uint8_t>(field);
  return key;
}

// Compared to the precision that both types keep.
int order_datetimes(TypeCode code_a, const DateTimeRec &a, TypeCode code_b, const DateTimeRec &b) {
  const int date = type_index(type::date), time = type_index(type::time);
  const int index_a = type_index(code_a), index_b = type_index(code_b);
  const uint64_t key_a = second_key(a), key_b = second_key(b);
  if (index_a == date || index_b == date) return order(key_a >> 24, key_b >> 24);
  if (key_a != key_b) return order(key_a, key_b);
  if (index_a == time || index_b == time) return 0;
  return order(static_cast<uint32_t>(a.microseconds), static_cast<uint32_t>(b.microseconds));
}

double exchange_double(TypeCode code, const void *value) {
  if ((code & TYPE_INTEGER) != 0) {
    int64_t integer;
    memcpy(&integer, value, sizeof integer);
    return static_cast<double>(integer);
  }
  double real;
  memcpy(&real, value, sizeof real);
  return real;
}

int order_numbers(TypeCode code_a, const void *a, TypeCode code_b, const void *b) {
  if ((code_a & code_b & TYPE_INTEGER) == 0)
    return order_doubles(exchange_double(code_a, a), exchange_double(code_b, b));
  int64_t integer_a, integer_b;
  memcpy(&integer_a, a, sizeof integer_a);
  memcpy(&integer_b, b, sizeof integer_b);
  return order(integer_a, integer_b);
}

// A stored value made ready for compare_values: its exchange form, or the stored bytes where those serve.
struct Operand {
  bool null;
  const void *datum;
  union {
    int64_t integer;
    double real;
    DateTimeRec datetime;
  };
};

bool read_number(TypeCode code, const uint8_t *stored, Operand *operand) {
  operand->datum = &operand->integer;
  if ((code & TYPE_INTEGER) != 0) {
    const IntegerForm *form = integer_form(code);
    if (form == nullptr) return fail(status::data_type_unknown);
    operand->null = integer_form_is_null(*form, stored);
    operand->integer = load_integer_form(*form, stored);
    return true;
  }
  operand->null = *stored == null_flag;
  if (operand->null) return true;
  const bool single = type_index(code) == type_index(type::float32);
  operand->real = single ? float32_rounded(load_single(stored + 1)) : load_double(stored + 1);
  return true;
}

bool small_text(TypeCode code) {
  return (code & TYPE_CHARACTER) != 0 && (code & TYPE_LARGE) == 0;
}

bool is_byte(TypeCode code) {
  return type_index(code) == type_index(type::byte);
}

bool read_operand(TypeCode code, const uint8_t *stored, Operand *operand) {
  if (type_numeric(code)) return read_number(code, stored, operand);
  if (small_text(code)) {
    operand->null = *stored == null_flag;
    operand->datum = stored;
  } else if ((code & TYPE_DATETIME) != 0) {
    operand->null = datetime_form_is_null(stored);
    operand->datetime = load_datetime_form(code, stored);
    operand->datum = &operand->datetime;
  } else {
    operand->null = false;
    operand->datum = stored;
  }
  return true;
}

bool stored_comparable(TypeCode a, TypeCode b) {
  return (type_numeric(a) && type_numeric(b)) || (small_text(a) && small_text(b)) ||
         (a & b & TYPE_DATETIME) != 0 || (is_byte(a) && is_byte(b));
}

// ---- two stored values of one type ----

// NULL against a value; 2 when both are values.
constexpr int both_values = 2;
int order_nulls(bool null_a, bool null_b) {
  return null_a || null_b ? null_b - null_a : both_values;
}

template <TypeCode code>
int compare_integer(const uint8_t *a, const uint8_t *b, int) {
  constexpr IntegerForm form = integer_forms[type_index(code) - 1];
  if constexpr (form.flagged) {
    const int nulls = order_nulls(*a == null_flag, *b == null_flag);
    if (nulls != both_values) return nulls;
  }
  return order(load_integer_form(form, a), load_integer_form(form, b));  // without flag NULL is the minimum
}

int compare_double(const uint8_t *a, const uint8_t *b, int) {
  const int nulls = order_nulls(*a == null_flag, *b == null_flag);
  return nulls != both_values ? nulls : order_doubles(load_double(a + 1), load_double(b + 1));
}

// Rounding to seven digits moves each value by at most 5e-7 of itself, so that values further apart than that
// keep their order and need no rounding.
int compare_single(const uint8_t *a, const uint8_t *b, int) {
  const int nulls = order_nulls(*a == null_flag, *b == null_flag);
  if (nulls != both_values) return nulls;
  const float single_a = load_single(a + 1), single_b = load_single(b + 1);
  const double x = single_a, y = single_b;
  if (x == y) return 0;
  if (std::fabs(x - y) > 2e-6 * std::fmax(std::fabs(x), std::fabs(y))) return x < y ? -1 : 1;
  return order_doubles(float32_rounded(single_a), float32_rounded(single_b));
}

int compare_text(const uint8_t *a, const uint8_t *b, int length) {
  const int nulls = order_nulls(*a == null_flag, *b == null_flag);
  return nulls != both_values ? nulls : order_texts(a, b, length);
}

template <TypeCode code>
int compare_datetime(const uint8_t *a, const uint8_t *b, int) {
  const int nulls = order_nulls(datetime_form_is_null(a), datetime_form_is_null(b));
  if (nulls != both_values) return nulls;
  const auto seconds = [](const uint8_t *stored) {
    uint64_t key = static_cast<uint64_t>(load_u16(stored)) << 16 | stored[2] << 8 | stored[3];
    if constexpr (code != type::date) key = key << 24 | stored[4] << 16 | stored[5] << 8 | stored[6];
    return key;
  };
  const uint64_t key_a = seconds(a), key_b = seconds(b);
  if constexpr (code == type::microtimestamp)
    if (key_a == key_b) return order(load_u32(a + 8), load_u32(b + 8));
  return order(key_a, key_b);
}

int compare_bytes(const uint8_t *a, const uint8_t *b, int length) {
  return order_bytes(a, b, length);
}

}  // namespace

bool compare_stored(TypeCode code_a, const uint8_t *a, int length, TypeCode code_b, const uint8_t *b,
                    int *result) {
  if (!stored_comparable(code_a, code_b)) return fail(status::data_not_comparable);
  Operand left, right;
  if (!read_operand(code_a, a, &left) || !read_operand(code_b, b, &right)) return false;
  *result = order_nulls(left.null, right.null);
  if (*result != both_values) return true;
  return compare_values(code_a, left.datum, length, code_b, right.datum, result);
}

StoredCompare stored_compare_of(TypeCode code) {
  switch (code) {
    case type::tinyint:
      return compare_integer<type::tinyint>;
    case type::smallint:
      return compare_integer<type::smallint>;
    case type::int32:
      return compare_integer<type::int32>;
    case type::bigint:
      return compare_integer<type::bigint>;
    case type::ctinyint:
      return compare_integer<type::ctinyint>;
    case type::csmallint:
      return compare_integer<type::csmallint>;
    case type::cint:
      return compare_integer<type::cint>;
    case type::cbigint:
      return compare_integer<type::cbigint>;
    case type::float32:
      return compare_single;
    case type::float64:
      return compare_double;
    case type::decimal:
    case type::character:
    case type::varchar:
      return compare_text;
    case type::time:
      return compare_datetime<type::time>;
    case type::date:
      return compare_datetime<type::date>;
    case type::microtimestamp:
      return compare_datetime<type::microtimestamp>;
    case type::byte:
      return compare_bytes;
    default:
      return nullptr;
  }
}

bool compare_values(TypeCode code_a, const void *a, int length, TypeCode code_b, const void *b, int *result) {
  if (type_numeric(code_a) && type_numeric(code_b)) {
    *result = order_numbers(code_a, a, code_b, b);
  } else if ((code_a & code_b & TYPE_CHARACTER) != 0) {
    *result = order_texts(a, b, length);
  } else if ((code_a & code_b & TYPE_DATETIME) != 0) {
    DateTimeRec left, right;
    memcpy(&left, a, sizeof left);
    memcpy(&right, b, sizeof right);
    *result = order_datetimes(code_a, left, code_b, right);
  } else if (is_byte(code_a) && is_byte(code_b)) {
    *result = order_bytes(a, b, length);
  } else if ((code_a & code_b & TYPE_BINARY) != 0) {
    *result = order_binaries(a, b);
  } else {
    return fail(status::data_not_comparable);
  }
  return true;
}

}  // namespace tovik
