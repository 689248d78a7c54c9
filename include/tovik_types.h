/* What the statement interface (kld_api.h) and the record interface (tovik.h) share: the export macro,
 * the date-time record and the API data types. Compiles as C11 and as C++. */
#ifndef TOVIK_TYPES_H
#define TOVIK_TYPES_H

#include <stdint.h>

#if defined(_WIN32)
#if defined(TOVIK_BUILD)
#define TOVIK_API __declspec(dllexport)
#else
#define TOVIK_API __declspec(dllimport)
#endif
#else
#define TOVIK_API __attribute__((visibility("default")))
#endif

#ifdef __cplusplus
extern "C" {
#endif

/* A date and time, 12 bytes. Fields that a type does not keep are zero. */
typedef struct DateTimeRec {
  int16_t year;         /* 1 to 9999 */
  int8_t month;         /* 1 to 12 */
  int8_t day;           /* 1 to 31 */
  int8_t hour;          /* 0 to 23 */
  int8_t minute;        /* 0 to 59 */
  int8_t second;        /* 0 to 59 */
  int8_t zero;          /* always 0 */
  int32_t microseconds; /* 0 to 999999 */
} DateTimeRec;

/* API data types: how the caller names the type of a buffer. */
enum {
  TOVIK_INT8 = 1,     /* int8_t */
  TOVIK_INT16 = 2,    /* int16_t */
  TOVIK_INT32 = 3,    /* int32_t */
  TOVIK_INT64 = 4,    /* int64_t */
  TOVIK_FLOAT = 5,    /* float */
  TOVIK_DOUBLE = 6,   /* double */
  TOVIK_CHAR = 7,     /* zero-terminated text in the database's character set */
  TOVIK_WCHAR = 8,    /* zero-terminated UTF-16LE text */
  TOVIK_DATETIME = 9, /* DateTimeRec */
  TOVIK_BINARY = 10   /* raw bytes, no terminator */
};

#ifdef __cplusplus
}
static_assert(sizeof(DateTimeRec) == 12, "DateTimeRec is 12 bytes on every platform");
#endif

#endif
