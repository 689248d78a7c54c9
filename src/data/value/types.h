// The nineteen data types: how a value lies inside a stored record, how it converts to and from its exchange
// and text forms, and how two values compare. Every column value that is stored, compared, read back or
// printed passes through here.
//
// Stored forms (little-endian):
//   tinyint .. bigint      the value; the type's minimum marks NULL
//   ctinyint .. cbigint    flag byte (0 value, 255 NULL), then the value with its full range
//   float, double          flag byte, then IEEE single or double
//   decimal, char, varchar p1 bytes, NUL-filled; first byte 255 marks NULL
//   text, blob             int32 length (-1 NULL), uint32 first chunk, then p2 bytes of the value
//   date                   uint16 year (0xFFFF NULL), month, day
//   time                   date, hour, minute, second, zero byte
//   microtimestamp         time, uint32 microsecond
//   byte                   p1 raw bytes, no NULL
#pragma once

#include <cstdint>

#include "tovik_types.h"

namespace tovik {

using TypeCode = uint16_t;  // low six bits: row of the type table; above: class bits

inline constexpr TypeCode type_index_mask = 0x3f;
inline constexpr TypeCode TYPE_INTEGER = 0x40;
inline constexpr TypeCode TYPE_FLOAT = 0x80;
inline constexpr TypeCode TYPE_CHARACTER = 0x200;
inline constexpr TypeCode TYPE_BINARY = 0x400;
inline constexpr TypeCode TYPE_DATETIME = 0x800;
inline constexpr TypeCode TYPE_LARGE = 0x1000;
inline constexpr TypeCode TYPE_NUMERIC = TYPE_INTEGER | TYPE_FLOAT;

namespace type {
inline constexpr TypeCode tinyint = 0x41, smallint = 0x42, int32 = 0x43, bigint = 0x44;
inline constexpr TypeCode ctinyint = 0x45, csmallint = 0x46, cint = 0x47, cbigint = 0x48;
inline constexpr TypeCode float32 = 0x89, float64 = 0x8a;
inline constexpr TypeCode decimal = 0x20b, character = 0x20c, varchar = 0x20d, text = 0x120e;
inline constexpr TypeCode time = 0x80f, date = 0x810, microtimestamp = 0x811;
inline constexpr TypeCode blob = 0x1412, byte = 0x13;
}  // namespace type

inline bool type_numeric(TypeCode code) {
  return (code & TYPE_NUMERIC) != 0;
}

// What a column declares of its values: the type and its size parameters (table/column_rules.h).
struct ColumnType {
  TypeCode type = 0;
  int16_t p1 = 0, p2 = 0, p3 = 0;
};

// How store_value takes and fetch_value gives a value.
enum class ValueMode {
  null = 0,  // store: make it NULL; fetch: only tell whether it is
  binary =
      1,    // exchange form: int64_t, double, NUL-terminated text, DateTimeRec, 8-byte reference, raw bytes
  text = 2  // NUL-terminated text
};

enum class Stored { failed = -1, null = 0, value = 1 };

struct TypeRow {
  TypeCode code;
  int16_t parameter_count;  // size parameters of a column declaration
  int16_t text_width;       // longest text form, 0: p1 governs
  int16_t exchange_size;    // bytes, 0: follows p1 or the value
  int16_t stored_size;      // bytes, 0: p1
  const char *name;
  Stored (*store)(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target);
  Stored (*fetch)(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target);
};

inline constexpr int type_count = 19;

const TypeRow *type_row(TypeCode code);          // by the index bits; null for index 0 or above 19
int type_stored_size(const ColumnType &column);  // bytes in a record

// source (as mode says) into the stored form at target, and back. value or null tells what was stored or
// found; failed has its status recorded (13001, 13002, 113xxx). A text target holds the text_width of the
// type and two bytes more, or p1 and one. An empty text stored into a character column answers null though an
// empty text is what the column holds then. Fetching without a target only tells whether the value is NULL.
Stored store_value(const ColumnType &column, ValueMode mode, const void *source, uint8_t *target);
Stored fetch_value(const ColumnType &column, ValueMode mode, const uint8_t *stored, void *target);

// Two stored values, NULL lowest: -1, 0 or 1. length: bytes of a character or byte value in its column, above
// 0. A double that is not a number is above every number and equal to itself, so that the order is total.
// False with 13002 or 13003.
[[nodiscard]] bool compare_stored(TypeCode code_a, const uint8_t *a, int length, TypeCode code_b,
                                  const uint8_t *b, int *result);

// The same for two values of one type, chosen once: no failure, no dispatch per comparison. Null for a type
// that cannot be compared (text, blob).
using StoredCompare = int (*)(const uint8_t *a, const uint8_t *b, int length);
StoredCompare stored_compare_of(TypeCode code);

// Two non-NULL values in exchange form; length 0: whole texts.
[[nodiscard]] bool compare_values(TypeCode code_a, const void *a, int length, TypeCode code_b, const void *b,
                                  int *result);

}  // namespace tovik
