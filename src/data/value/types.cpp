// The type table and the store and fetch operations of each family of types. Comparison: type_compare.cpp.
#include "data/value/types.h"

#include <cerrno>
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/number_text.h"
#include "data/value/stored_form.h"
#include "frame/error.h"

namespace tovik {

namespace {

Stored failed(StatusCode code) {
  err_set(code);
  return Stored::failed;
}

// A number's text that does not convert: a stale error number must not decorate the status.
Stored conversion_failed() {
  errno = 0;
  return failed(status::input_conversion);
}

template <class T>
T load_exchange(const void *source) {
  T value;
  memcpy(&value, source, sizeof value);
  return value;
}

template <class T>
void store_exchange(void *target, T value) {
  memcpy(target, &value, sizeof value);
}

// What fetching NULL writes: an empty text, or zero.
template <class T>
Stored fetch_null(ValueMode mode, void *target) {
  if (mode == ValueMode::text) *static_cast<char *>(target) = '\0';
  if (mode == ValueMode::binary) store_exchange(target, T{});
  return Stored::null;
}

// ---- integers ----

Stored store_integer_null(const IntegerForm &form, uint8_t *target) {
  if (form.flagged) {
    *target = null_flag;
  } else {
    store_integer_form(form, form.low - 1, target);
  }
  return Stored::null;
}

Stored store_integer(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  const IntegerForm *form = integer_form(column.type);
  if (form == nullptr) return failed(status::data_type_unknown);
  if (mode == ValueMode::null) return store_integer_null(*form, target);
  int64_t value = 0;
  if (mode == ValueMode::text) {
    const char *text = static_cast<const char *>(source);
    if (text == nullptr || *text == '\0') return failed(status::input_empty);
    // The lowest number is left to the range check, also where it stands for one that passed it.
    if (text_to_integer(text, &value) != NumberText::whole && value != INT64_MIN) return conversion_failed();
  } else {
    if (source == nullptr) return failed(status::data_argument);
    value = load_exchange<int64_t>(source);
  }
  if (value < form->low || value > form->high) return failed(status::input_number_range);
  store_integer_form(*form, value, target);
  return Stored::value;
}

Stored fetch_integer(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  const IntegerForm *form = integer_form(column.type);
  if (form == nullptr) return failed(status::data_type_unknown);
  if (integer_form_is_null(*form, stored)) return fetch_null<int64_t>(mode, target);
  const int64_t value = load_integer_form(*form, stored);
  if (mode == ValueMode::text) integer_to_text(value, static_cast<char *>(target));
  if (mode == ValueMode::binary) store_exchange(target, value);
  return Stored::value;
}

// ---- floating point ----

bool is_single(TypeCode code) {
  return type_index(code) == type_index(type::float32);
}

Stored store_float(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  if (mode == ValueMode::null) {
    *target = null_flag;
    return Stored::null;
  }
  double value = 0.0;
  if (mode == ValueMode::text) {
    const char *text = static_cast<const char *>(source);
    if (text == nullptr || *text == '\0') return failed(status::input_empty);
    if (text_to_double(text, &value) != NumberText::whole) return conversion_failed();
  } else {
    if (source == nullptr) return failed(status::data_argument);
    value = load_exchange<double>(source);
  }
  *target = 0;
  if (is_single(column.type)) {
    store_single(target + 1, static_cast<float>(value));
  } else {
    store_double(target + 1, value);
  }
  return Stored::value;
}

Stored fetch_float(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  if (*stored == null_flag) return fetch_null<double>(mode, target);
  const bool single = is_single(column.type);
  if (mode == ValueMode::text) {
    const double value = single ? load_single(stored + 1) : load_double(stored + 1);
    double_to_text(value, single ? float32_precision : float64_precision, static_cast<char *>(target));
  } else if (mode == ValueMode::binary) {
    store_exchange(target, single ? float32_rounded(load_single(stored + 1)) : load_double(stored + 1));
  }
  return Stored::value;
}

// ---- character strings ----

Stored store_text(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  if (mode == ValueMode::null) {
    *target = null_flag;
    return Stored::null;
  }
  if (source == nullptr) return failed(status::input_empty);
  const size_t size = static_cast<size_t>(column.p1);
  // No character of a byte-oriented character set holds a zero byte.
  const size_t length = strlen(static_cast<const char *>(source));
  if (length > size) return failed(status::input_text_length);
  memcpy(target, source, length);
  memset(target + length, 0, size - length);
  return length == 0 ? Stored::null : Stored::value;
}

Stored fetch_text(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  const bool null = *stored == null_flag;
  if (mode == ValueMode::null) return null ? Stored::null : Stored::value;
  char *text = static_cast<char *>(target);
  if (null) {
    *text = '\0';
    return Stored::null;
  }
  memcpy(text, stored, static_cast<size_t>(column.p1));
  text[column.p1] = '\0';
  return Stored::value;
}

// ---- references to large objects ----

Stored store_reference(const ColumnType &, ValueMode mode, const void *source, uint8_t *target) {
  if (mode == ValueMode::null) {
    store_i32(target, large_null_length);
    store_u32(target + 4, 0);
    return Stored::null;
  }
  if (source == nullptr) return failed(status::data_argument);
  memcpy(target, source, large_reference_size);
  return Stored::value;
}

Stored fetch_reference(const ColumnType &, ValueMode mode, const uint8_t *stored, void *target) {
  if (mode != ValueMode::null) memcpy(target, stored, large_reference_size);
  return load_i32(stored) == large_null_length ? Stored::null : Stored::value;
}

// ---- dates and times ----

bool keeps_time(TypeCode code) {
  return type_index(code) != type_index(type::date);
}

void clear_unkept(TypeCode code, DateTimeRec *record) {
  if (type_index(code) != type_index(type::microtimestamp)) record->microseconds = 0;
}

Stored store_datetime(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  if (mode == ValueMode::null) {
    store_datetime_null(column.type, target);
    return Stored::null;
  }
  DateTimeRec record{};
  if (mode == ValueMode::text) {
    if (!parse_datetime(column.type, static_cast<const char *>(source), Mishap::recorded, &record))
      return Stored::failed;
  } else {
    if (source == nullptr) return failed(status::data_argument);
    record = load_exchange<DateTimeRec>(source);
    if (!check_datetime(column.type, record)) return Stored::failed;
  }
  clear_unkept(column.type, &record);
  if (keeps_time(column.type) && !datetime_to_utc(&record)) return Stored::failed;
  store_datetime_form(column.type, record, target);
  return Stored::value;
}

Stored fetch_datetime(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  const bool null = datetime_form_is_null(stored);
  if (mode == ValueMode::null) return null ? Stored::null : Stored::value;
  DateTimeRec record = load_datetime_form(column.type, stored);
  if (null) {
    record.year = 0;
    if (mode == ValueMode::text) {
      *static_cast<char *>(target) = '\0';
    } else {
      store_exchange(target, record);
    }
    return Stored::null;
  }
  if (!datetime_fields_valid(record)) return failed(status::data_argument);
  if (keeps_time(column.type) && !datetime_to_local(&record)) return Stored::failed;
  clear_unkept(column.type, &record);
  if (mode == ValueMode::binary) {
    store_exchange(target, record);
  } else if (!format_datetime(column.type, record, static_cast<char *>(target))) {
    return Stored::failed;
  }
  return Stored::value;
}

// ---- raw bytes ----

Stored store_bytes(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  if (mode == ValueMode::null || source == nullptr) return failed(status::data_argument);
  memcpy(target, source, static_cast<size_t>(column.p1));
  return Stored::value;
}

Stored fetch_bytes(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  if (mode != ValueMode::null) memcpy(target, stored, static_cast<size_t>(column.p1));
  return Stored::value;
}

constexpr TypeRow type_table[type_count] = {
    {type::tinyint, 0, 4, 8, 1, "tinyint", store_integer, fetch_integer},
    {type::smallint, 0, 6, 8, 2, "smallint", store_integer, fetch_integer},
    {type::int32, 0, 11, 8, 4, "int", store_integer, fetch_integer},
    {type::bigint, 0, 20, 8, 8, "bigint", store_integer, fetch_integer},
    {type::ctinyint, 0, 4, 8, 2, "ctinyint", store_integer, fetch_integer},
    {type::csmallint, 0, 6, 8, 3, "csmallint", store_integer, fetch_integer},
    {type::cint, 0, 11, 8, 5, "cint", store_integer, fetch_integer},
    {type::cbigint, 0, 20, 8, 9, "cbigint", store_integer, fetch_integer},
    {type::float32, 0, 13, 8, 5, "float", store_float, fetch_float},
    {type::float64, 0, 21, 8, 9, "double", store_float, fetch_float},
    {type::decimal, 2, 0, 0, 0, "decimal", store_text, fetch_text},
    {type::character, 1, 0, 0, 0, "char", store_text, fetch_text},
    {type::varchar, 1, 0, 0, 0, "varchar", store_text, fetch_text},
    {type::text, 3, 0, 0, 8, "text", store_reference, fetch_reference},
    {type::time, 1, 14, 12, 8, "time", store_datetime, fetch_datetime},
    {type::date, 1, 8, 12, 4, "date", store_datetime, fetch_datetime},
    {type::microtimestamp, 1, 20, 12, 12, "microtimestamp", store_datetime, fetch_datetime},
    {type::blob, 3, 0, 0, 8, "blob", store_reference, fetch_reference},
    {type::byte, 1, 0, 0, 0, "byte", store_bytes, fetch_bytes},
};

constexpr bool table_in_index_order() {
  for (int i = 0; i < type_count; ++i)
    if (type_index(type_table[i].code) != i + 1) return false;
  return true;
}
static_assert(table_in_index_order());

}  // namespace

const TypeRow *type_row(TypeCode code) {
  const int index = type_index(code);
  return index < 1 || index > type_count ? nullptr : &type_table[index - 1];
}

int type_stored_size(const ColumnType &column) {
  const TypeRow *row = type_row(column.type);
  if (row == nullptr) return 0;
  if ((row->code & TYPE_LARGE) != 0) return row->stored_size + column.p2;
  return row->stored_size != 0 ? row->stored_size : column.p1;
}

Stored store_value(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target) {
  if (target == nullptr) return failed(status::data_argument);
  const TypeRow *row = type_row(column.type);
  if (row == nullptr) return failed(status::data_type_unknown);
  return row->store(column, mode, source, target);
}

Stored fetch_value(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target) {
  if (stored == nullptr) return failed(status::data_argument);
  const TypeRow *row = type_row(column.type);
  if (row == nullptr) return failed(status::data_type_unknown);
  return row->fetch(column, target == nullptr ? ValueMode::null : mode, stored, target);
}

}  // namespace tovik
