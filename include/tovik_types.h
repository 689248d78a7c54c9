/* What the statement interface (kld_api.h) and the record interface (tovik.h) share: the export macro, the
 * date-time record, the API data types and the codes of column types. Compiles as C11 and as C++.
 *
 * HANDLES
 *   Handles of both interfaces are opaque. They end when they are closed, when their database is closed or
 *   when the library ends, in any order; from then on every call refuses them with the code of an invalid
 *   handle, and clearing or closing them once more does nothing. A handle that has ended is never taken for
 *   a later one (on 32-bit builds: as long as fewer than 65,535 others are given out after it).
 *
 *   kld_api_clear_stmt, kld_api_destroy_stmt, kld_api_close_db, tovik_closecur and tovik_close may run
 *   beside each other, also on the same statement, cursor or database. No other call may run with a handle
 *   that is being ended, or whose database is being closed.
 *
 * FORK
 *   The library belongs to the process that started it. In a process that fork made it is not started:
 *   every call with one of the parent's handles fails with the code of a library that is not started
 *   (190010, 202101), closing and clearing do nothing, and no file, lock or memory of the parent is
 *   touched. The child may start the library for itself and then open databases of its own; until it does,
 *   or ends the library, or calls exec, it keeps the parent's files open, and with them the locks of a
 *   parent that dies. What the parent had in memory is not released in the child. */
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

/* API data types: how the caller names the type of a buffer, or of a value in a record. */
enum {
  TOVIK_NULL = 0,     /* in records: no value */
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

/* Codes of column types: in column definitions, and in what a column description tells. */
enum {
  TOVIK_COL_TINYINT = 0x41, /* 8 to 64 bits; the smallest number of each width is not available */
  TOVIK_COL_SMALLINT = 0x42,
  TOVIK_COL_INT = 0x43,
  TOVIK_COL_BIGINT = 0x44,
  TOVIK_COL_CTINYINT = 0x45, /* the same with the full range, a byte longer */
  TOVIK_COL_CSMALLINT = 0x46,
  TOVIK_COL_CINT = 0x47,
  TOVIK_COL_CBIGINT = 0x48,
  TOVIK_COL_FLOAT = 0x89,
  TOVIK_COL_DOUBLE = 0x8a,
  TOVIK_COL_DECIMAL = 0x20b, /* kept as text; only by SQL */
  TOVIK_COL_CHAR = 0x20c,    /* p1: bytes */
  TOVIK_COL_VARCHAR = 0x20d, /* the same; only by SQL */
  TOVIK_COL_TEXT = 0x120e,   /* of any length; p2: bytes kept in the row itself, the others lie in chunks */
  TOVIK_COL_TIME = 0x80f,    /* date and time to the second */
  TOVIK_COL_DATE = 0x810,
  TOVIK_COL_MICROTIMESTAMP = 0x811, /* date and time to the microsecond */
  TOVIK_COL_BLOB = 0x1412           /* bytes of any number; p2 as for text */
};

#ifdef __cplusplus
}
static_assert(sizeof(DateTimeRec) == 12, "DateTimeRec is 12 bytes on every platform");
#endif

#endif
