// How the numbers and dates of a stored value lie in its bytes (layouts: types.h), shared by the operations
// that store and fetch values and by those that compare them in place.
#pragma once

#include "data/value/types.h"
#include "platform/bytes.h"

namespace tovik {

inline constexpr uint8_t null_flag = 255;         // first byte of a flagged number or a character string
inline constexpr uint16_t null_year = 0xFFFF;     // year of a date
inline constexpr int32_t large_null_length = -1;  // length in a large-object reference
inline constexpr int large_reference_size = 8;

constexpr int type_index(TypeCode code) {
  return code & type_index_mask;
}

// An integer type: its width in bytes, whether a NULL flag stands before the value, and its usable range. The
// NULL of a type without flag is the number below low.
struct IntegerForm {
  int width;
  bool flagged;
  int64_t low, high;
};

inline constexpr IntegerForm integer_forms[] = {
    {1, false, -INT8_MAX, INT8_MAX},   {2, false, -INT16_MAX, INT16_MAX}, {4, false, -INT32_MAX, INT32_MAX},
    {8, false, -INT64_MAX, INT64_MAX}, {1, true, INT8_MIN, INT8_MAX},     {2, true, INT16_MIN, INT16_MAX},
    {4, true, INT32_MIN, INT32_MAX},   {8, true, INT64_MIN, INT64_MAX},
};

inline const IntegerForm *integer_form(TypeCode code) {  // null: no integer type
  return code < type::tinyint || code > type::cbigint ? nullptr : &integer_forms[type_index(code) - 1];
}

inline int64_t load_integer_form(const IntegerForm &form, const uint8_t *stored) {
  const uint8_t *value = stored + (form.flagged ? 1 : 0);
  switch (form.width) {
    case 1:
      return static_cast<int8_t>(*value);
    case 2:
      return load_i16(value);
    case 4:
      return load_i32(value);
    default:
      return load_i64(value);
  }
}

inline void store_integer_form(const IntegerForm &form, int64_t value, uint8_t *stored) {
  if (form.flagged) *stored++ = 0;
  switch (form.width) {
    case 1:
      *stored = static_cast<uint8_t>(value);
      break;
    case 2:
      store_i16(stored, static_cast<int16_t>(value));
      break;
    case 4:
      store_i32(stored, static_cast<int32_t>(value));
      break;
    default:
      store_i64(stored, value);
      break;
  }
}

inline bool integer_form_is_null(const IntegerForm &form, const uint8_t *stored) {
  return form.flagged ? *stored == null_flag : load_integer_form(form, stored) < form.low;
}

inline float load_single(const uint8_t *stored) {
  const uint32_t bits = load_u32(stored);
  float value;
  memcpy(&value, &bits, sizeof value);
  return value;
}
inline double load_double(const uint8_t *stored) {
  const uint64_t bits = load_u64(stored);
  double value;
  memcpy(&value, &bits, sizeof value);
  return value;
}
inline void store_single(uint8_t *stored, float value) {
  uint32_t bits;
  memcpy(&bits, &value, sizeof bits);
  store_u32(stored, bits);
}
inline void store_double(uint8_t *stored, double value) {
  uint64_t bits;
  memcpy(&bits, &value, sizeof bits);
  store_u64(stored, bits);
}

inline bool datetime_form_is_null(const uint8_t *stored) {
  return load_u16(stored) == null_year;
}

// The fields as they lie there, in UTC unless HVI_GMT_TIME was on; those that the type does not keep are
// zero.
inline DateTimeRec load_datetime_form(TypeCode code, const uint8_t *stored) {
  const int index = type_index(code);
  DateTimeRec record{};
  record.year = load_i16(stored);
  record.month = static_cast<int8_t>(stored[2]);
  record.day = static_cast<int8_t>(stored[3]);
  if (index == type_index(type::date)) return record;
  record.hour = static_cast<int8_t>(stored[4]);
  record.minute = static_cast<int8_t>(stored[5]);
  record.second = static_cast<int8_t>(stored[6]);
  if (index == type_index(type::microtimestamp)) record.microseconds = load_i32(stored + 8);
  return record;
}

inline void store_datetime_form(TypeCode code, const DateTimeRec &record, uint8_t *stored) {
  const int index = type_index(code);
  store_i16(stored, record.year);
  stored[2] = static_cast<uint8_t>(record.month);
  stored[3] = static_cast<uint8_t>(record.day);
  if (index == type_index(type::date)) return;
  stored[4] = static_cast<uint8_t>(record.hour);
  stored[5] = static_cast<uint8_t>(record.minute);
  stored[6] = static_cast<uint8_t>(record.second);
  stored[7] = 0;
  if (index == type_index(type::microtimestamp)) store_i32(stored + 8, record.microseconds);
}

inline void store_datetime_null(TypeCode code, uint8_t *stored) {
  DateTimeRec record{};
  record.year = static_cast<int16_t>(null_year);
  store_datetime_form(code, record, stored);
}

}  // namespace tovik
