/* The record interface of the Tovik database engine: databases, schema, transactions, conditions, cursors and
 * row changes without SQL text, and SQL text where that is shorter.
 *
 * MODEL
 *   tovik_init once per process; then any number of databases, each opened by name. Rows are written from
 *   arrays of column values, and read through a cursor over one or more tables:
 *
 *     tovik_open -> tovik_opencur -> tovik_fetchcur until 0, tovik_getcol_* for the columns of each row
 *       -> tovik_closecur -> tovik_close
 *
 *   Conditions, sort orders and column values are records that the caller owns and may reuse; builders fill
 *   them. What such a record points to (texts, bytes, the operands of AND, OR and NOT) must stay where it
 *   is until the call that takes the record - tovik_opencur, tovik_insert, ... - has returned; no longer.
 *
 *     tovik_cond is_adult;
 *     tovik_comp_i32(&is_adult, "age", TOVIK_GE, 18);
 *     const char *tables[] = {"person"};
 *     tovik_cur *cursor = tovik_opencur(db, tables, 1, &is_adult, NULL);
 *     while (tovik_fetchcur(cursor) == 1) { int32_t age; tovik_getcol_i32(cursor, "age", &age); ... }
 *     tovik_closecur(cursor);
 *
 *   A condition on an indexed column, alone or joined by AND, reads the rows that the index gives; no other
 *   rows are looked at. A column is named "column", or "table.column" where several tables have it.
 *
 * TRANSACTIONS
 *   A transaction belongs to the thread that began it. Outside one, and with HVI_AUTO_COMMIT ON (the
 *   default), every changing call is a transaction of its own: committed when it succeeds, rolled back when
 *   it fails. Inside one a failed call keeps what it had changed until then; roll back to undo it.
 *
 * THREADS
 *   tovik_init and tovik_end run while no other thread uses the library. A database handle may be shared by
 *   threads (at most 16 of them at a time work on one database); a cursor belongs to the thread that opened
 *   it, and may be closed by any other. An open cursor, over tables or of a SELECT, holds the database for
 *   reading: meanwhile no other thread or process can finish a commit (it waits and then fails with
 *   140003). The life of handles, which calls may run beside each other, and what a process that fork made
 *   may do: tovik_types.h.
 *
 * ERRORS
 *   Functions that return int give 0 (or what is stated) on success and -1 on failure; functions that
 *   return a handle give null on failure. tovik_geterr then gives the code, tovik_geterrinfo the whole
 *   record. The codes 202101 to 202161 are this interface's own and are listed with the functions, with
 *   those of the engine that their caller can cause or should expect; any function may also fail with the
 *   code of the system service that failed beneath it (docs/ERRORS.md). Handles are checked: null, ended
 *   and foreign ones give their code (202115, 202116) or are ignored. In a process that fork made every
 *   handle gives 202101.
 *
 * TEXTS are zero-terminated, in the database's character set (UTF-8 unless HVI_LANG says otherwise); wide
 *   texts are UTF-16LE, surrogate pairs included. Sizes and lengths are in bytes.
 *
 * Compiles as C11 and as C++. */
#ifndef TOVIK_H
#define TOVIK_H

#include <stdint.h>

#include "tovik_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct tovik_db tovik_db;   /* a database handle */
typedef struct tovik_cur tovik_cur; /* a cursor */

/* Operators of conditions: all that there are. */
enum {
  TOVIK_EQ = 101, /* with TOVIK_NULL: IS NULL */
  TOVIK_NE = 102, /* with TOVIK_NULL: IS NOT NULL */
  TOVIK_LT = 103,
  TOVIK_GT = 104,
  TOVIK_LE = 105,
  TOVIK_GE = 106,
  TOVIK_MATCH = 107, /* the pattern of SQL's MATCH */
  TOVIK_LIKE = 115,  /* the pattern of SQL's LIKE */
  TOVIK_RANGE = 110, /* between two bounds */
  TOVIK_AND = 400,
  TOVIK_OR = 401,
  TOVIK_NOT = 402
};

/* A column of a table being created, or listed. */
typedef struct tovik_coldef {
  char name[20];    /* at most 19 bytes and the terminator */
  int32_t type;     /* TOVIK_COL_TINYINT .. TOVIK_COL_BLOB */
  int32_t not_null; /* 1 for NOT NULL, else 0 */
  int32_t p1;       /* char: bytes; text, blob: kept, without effect. 20 when below 1, at most 32767 */
  int32_t p2;       /* text, blob: bytes in the row. 20 when below 1, at most 32767. Other types: ignored */
  int32_t p3;       /* ignored; tovik_getcolilst tells the bytes of a chunk */
} tovik_coldef;

typedef struct tovik_autoinc {
  int32_t column; /* from 1; any other number: no column counts by itself */
  int32_t init;   /* the first value, at least 1 */
  int32_t step;   /* 1 to 65535 */
} tovik_autoinc;

/* Bytes of a blob. */
typedef struct tovik_bytes {
  const void *data;
  int32_t length;
} tovik_bytes;

/* A value in its natural form, 16 bytes. Which member counts is told by an API data type. */
typedef union tovik_value {
  int8_t i8;
  int16_t i16;
  int32_t i32;
  int64_t i64;
  float f;
  double d;
  DateTimeRec datetime;
  const char *text;     /* TOVIK_CHAR */
  const uint16_t *wide; /* TOVIK_WCHAR */
  tovik_bytes bytes;    /* TOVIK_BINARY */
  struct {
    const void *text;    /* char or UTF-16LE units */
    int32_t column_type; /* TOVIK_COL_CHAR for every character column, else the column's own type */
  } read;                /* what tovik_getcol gives for TOVIK_CHAR and TOVIK_WCHAR */
  int64_t whole[2];
} tovik_value;

/* A condition. Filled by the builders below, never by hand. */
typedef struct tovik_cond {
  char column[42];
  char second_column[42]; /* comparison of two columns */
  int32_t op;             /* TOVIK_EQ .. TOVIK_NOT */
  int32_t type;           /* API data type of the operand; TOVIK_NULL a test for NULL, 100 two columns */
  tovik_value value;      /* the operand, or the lower bound */
  tovik_value upper;
  char lower_inclusive;
  char upper_inclusive;
  const struct tovik_cond *left;  /* AND, OR */
  const struct tovik_cond *right; /* AND, OR, NOT */
} tovik_cond;

/* A sort order of up to four keys. Filled by tovik_sort. */
typedef struct tovik_order {
  char column[4][42];
  char descending[4];
  int32_t count;
} tovik_order;

/* The value of one column of a row to be written. Filled by tovik_setcol and its typed forms. */
typedef struct tovik_colval {
  char name[24];
  int32_t type; /* API data type; TOVIK_NULL is NULL */
  tovik_value value;
} tovik_colval;

/* ---- library and errors ---- */

/* As kld_api_init (kld_api.h), with HVI_TRAN_FILE_REUSE=ON set unless params says otherwise. params: at most
 * 487 characters. Result: 0; -1 with 112012 (params too long) or the codes of kld_api_init. */
TOVIK_API int tovik_init(const char *params);

/* The same as kld_api_end: every database that is still open is closed. */
TOVIK_API void tovik_end(void);

/* The code of the first failure of the calling thread's last record-interface call, 0 after one that
 * succeeded. Typed forms count as the call that they stand for; tovik_close and tovik_closecur do not. */
TOVIK_API int32_t tovik_geterr(void);

/* Writes the calling thread's error record as text lines into buffer (size bytes, cut to fit), or prints it
 * to standard output when buffer is null. */
TOVIK_API void tovik_geterrinfo(char *buffer, int size);

/* ---- databases ----
 * name: the database's name (NAME of the parameter string). params: further parameters ("PATH=/data;
 * CACHE_SIZE_DAT=1024"; all of them: docs/PARAMETERS.md), null or "" for none; both together at most 505
 * characters. All: 202114 (name null or empty), 202101 (library not started), 112012 (texts too long), other
 * 112xxx (a parameter is wrong). */

/* Creates the database and closes it again. 120101: it exists (and OVERWRITE is not true); 20006:
 * OVERWRITE while somebody has it open; 101 (no such directory, no right to write there). */
TOVIK_API int tovik_create(const char *name, const char *params);

/* Removes the database of that name, with all its files; a directory stands in the name ("/data/shop").
 * 120102: there is none; 108: somebody has it open, or the system refused. */
TOVIK_API int tovik_drop(const char *name);

/* Opens a database; a commit cut short by a crash is completed first. Result: a handle, to be closed with
 * tovik_close; null with 202102 (no memory), 120102 (there is none), 20003 to 20020 (not a database of this
 * kind, or of another block size), 120111 (of another character set), 120109, 120110 (key), 140003 (busy). */
TOVIK_API tovik_db *tovik_open(const char *name, const char *params);

/* Closes the database: its open cursors end, an open transaction, of whatever thread, is rolled back, and the
 * handle ends. An invalid handle is ignored. The error record is left as it is. */
TOVIK_API void tovik_close(tovik_db *db);

/* ---- transactions of the calling thread ---- All: 202115 (database handle), 202101 (process that fork
 * made). */

/* Begins a transaction. 140004: the thread has one already; 140003: another writer is at work. */
TOVIK_API int tovik_begin(tovik_db *db);

/* Makes the transaction's changes durable. A transaction whose commit fails is rolled back, but for two
 * codes: 22015: it is committed, and durable, but could not be copied into the data storage yet; nobody reads
 * or writes before that is done. 22008: a failing disk took neither the commit nor the way back; which of the
 * two shows at the next use. 140002: there is none; 140003: readers did not leave in time; 120103: no room.
 */
TOVIK_API int tovik_commit(tovik_db *db);

/* Undoes the transaction's changes. 140002: there is none. */
TOVIK_API int tovik_rollback(tovik_db *db);

/* ---- schema ----
 * Names of tables and columns that are being made, and the table name of a new index, have at most 20 bytes
 * (a column's 19 in tovik_coldef); blanks around them are dropped; they are not empty, do not start with a
 * digit, hold no blank and no ".", and are no SQL keyword. Everywhere else, the name and the columns of an
 * index included, a name is taken as it stands: 1 to 20 bytes. All: 202115 (database handle), 202101 (process
 * that fork made), 140003 (database busy). */

/* Creates a table of count columns (1 to 200). 202110 (table name), 202117 (columns null), 202120 (count),
 * 202111 (a column's name), 202152 (varchar, decimal), 202153 (any other type code), 142007, 142008 (p1, p2
 * above 32767), 202102, 110002 (HVI_SQL_BUF_SIZE), 141003 (the table exists), 141002 (128 tables), 142003
 * (two columns of one name), 142004 (rowid). */
TOVIK_API int tovik_createtbl(tovik_db *db, const char *table, const tovik_coldef *columns, int count);

/* The same; autoinc (may be null) names an integer column that counts by itself: left unset by an insert, it
 * gets the next number, and has a unique index. 141006 (no integer column), 141007 to 141009 (init, step). */
TOVIK_API int tovik_createtbl_ex(tovik_db *db, const char *table, const tovik_coldef *columns, int count,
                                 const tovik_autoinc *autoinc);

/* Drops a table with its indices and rows. 202110 (name null or empty), 141004 (no such table). */
TOVIK_API int tovik_droptbl(tovik_db *db, const char *table);

/* Creates an index over count (1 or 2) columns of a table. unique: not 0 for an index without equal keys.
 * master_count (not unique): how many rows of equal keys lie in the tree itself before the others move to a
 * list of their own, 2 when below 2, at most 16. 202110 (index name), 202121 (columns null, a column's name),
 * 202122 (count), 202112 (table name), 141004 (no such table), 143001 (the rows have equal keys, as two NULLs
 * are), 145001 (16 indices), 145003 (an index of that name), 145004 (no such column), 145005 (an index of
 * these columns), 145008 (master_count), 145010 (text or blob), 145011 (key above 128 bytes). */
TOVIK_API int tovik_createidx(tovik_db *db, const char *index, const char *const *columns, int count,
                              const char *table, char unique, int master_count);

/* Drops an index. 145006 (no such index), 45001 (index null or empty). */
TOVIK_API int tovik_dropidx(tovik_db *db, const char *index);

/* Writes the names of all tables, each with its terminator, into buffer (size bytes; one byte more than the
 * names take is needed), in the order of the catalog: that of their creation, but that a new table may take
 * the place of a dropped one. Result: the number of names; -1 with 202144 (buffer null), 202127 (size below
 * 1), 146001 (buffer too small). */
TOVIK_API int tovik_gettbllst(tovik_db *db, char *buffer, int size);

/* Describes the first max columns of a table. A name of 20 bytes, as only SQL makes it, is cut to 19. Result:
 * the number of columns described; -1 with 202117 (columns null), 202120 (max below 1), 141004 (no such
 * table), 41001 (table null or empty). */
TOVIK_API int tovik_getcolilst(tovik_db *db, const char *table, tovik_coldef *columns, int max);

/* ---- conditions ----
 * Each builder fills cond with zeros and then with the condition. column: at most 41 bytes. A row meets a
 * condition or not as in SQL: a comparison with NULL is met by no row. All: 202129 (cond null), 202113
 * (column null, empty or too long).
 *
 * value: points to the operand - int8_t to double, DateTimeRec - or, for TOVIK_CHAR and TOVIK_WCHAR, to a
 * variable that holds the text's address. */

/* column op value. op TOVIK_EQ and TOVIK_NE with types 0 to 9 (0, without value: IS NULL, IS NOT NULL);
 * TOVIK_LT to TOVIK_GE with types 1 to 9; TOVIK_MATCH and TOVIK_LIKE with texts. 202131 (other operator),
 * 202132 (type does not go with the operator), 202133 (value or text missing). */
TOVIK_API int tovik_comp(tovik_cond *cond, const char *column, int op, int type, const void *value);
TOVIK_API int tovik_comp_i8(tovik_cond *cond, const char *column, int op, int8_t value);
TOVIK_API int tovik_comp_i16(tovik_cond *cond, const char *column, int op, int16_t value);
TOVIK_API int tovik_comp_i32(tovik_cond *cond, const char *column, int op, int32_t value);
TOVIK_API int tovik_comp_i64(tovik_cond *cond, const char *column, int op, int64_t value);
TOVIK_API int tovik_comp_float(tovik_cond *cond, const char *column, int op, float value);
TOVIK_API int tovik_comp_double(tovik_cond *cond, const char *column, int op, double value);
TOVIK_API int tovik_comp_ctime(tovik_cond *cond, const char *column, int op, const DateTimeRec *value);
TOVIK_API int tovik_comp_char(tovik_cond *cond, const char *column, int op, const char *text);
TOVIK_API int tovik_comp_wchar(tovik_cond *cond, const char *column, int op, const uint16_t *text);

TOVIK_API int tovik_isnull(tovik_cond *cond, const char *column);
TOVIK_API int tovik_isnotnull(tovik_cond *cond, const char *column);

/* lower to upper, each bound included when its flag is not 0. type: 1 to 9, else 202132. 202133 (bound or
 * text missing). */
TOVIK_API int tovik_range(tovik_cond *cond, const char *column, int type, const void *lower,
                          char lower_inclusive, const void *upper, char upper_inclusive);
TOVIK_API int tovik_range_i8(tovik_cond *cond, const char *column, int8_t lower, char lower_inclusive,
                             int8_t upper, char upper_inclusive);
TOVIK_API int tovik_range_i16(tovik_cond *cond, const char *column, int16_t lower, char lower_inclusive,
                              int16_t upper, char upper_inclusive);
TOVIK_API int tovik_range_i32(tovik_cond *cond, const char *column, int32_t lower, char lower_inclusive,
                              int32_t upper, char upper_inclusive);
TOVIK_API int tovik_range_i64(tovik_cond *cond, const char *column, int64_t lower, char lower_inclusive,
                              int64_t upper, char upper_inclusive);
TOVIK_API int tovik_range_float(tovik_cond *cond, const char *column, float lower, char lower_inclusive,
                                float upper, char upper_inclusive);
TOVIK_API int tovik_range_double(tovik_cond *cond, const char *column, double lower, char lower_inclusive,
                                 double upper, char upper_inclusive);
TOVIK_API int tovik_range_wchar(tovik_cond *cond, const char *column, const uint16_t *lower,
                                char lower_inclusive, const uint16_t *upper, char upper_inclusive);
TOVIK_API int tovik_range_ctime(tovik_cond *cond, const char *column, const DateTimeRec *lower,
                                char lower_inclusive, const DateTimeRec *upper, char upper_inclusive);

/* column op second, TOVIK_EQ to TOVIK_GE: for joins. 202131. */
TOVIK_API int tovik_compcol(tovik_cond *cond, const char *column, int op, const char *second);

/* Join conditions; cond is a record of its own and points to its operands. 202134 (left null), 202135 (right
 * null), 202130 (operand null). */
TOVIK_API int tovik_and(tovik_cond *cond, const tovik_cond *left, const tovik_cond *right);
TOVIK_API int tovik_or(tovik_cond *cond, const tovik_cond *left, const tovik_cond *right);
TOVIK_API int tovik_not(tovik_cond *cond, const tovik_cond *operand);

/* count (1 to 4) pairs of further arguments: a column name (const char *) and a flag (int), not 0 to sort
 * that key in descending order. NULL sorts lowest. A column that stands twice fails where the order is used
 * (161001). 202137 (order null), 202138 (count), 202113. */
TOVIK_API int tovik_sort(tovik_order *order, int count, ...);

/* ---- cursors ---- */

/* Opens a cursor over count tables: over every combination of their rows, the first table outermost, that
 * meets cond (null: all), in the order of order (null: as the rows lie). Result: a cursor, to be closed with
 * tovik_closecur; null with 202115 (database handle), 140003 (database busy), 202125 (tables null, a name
 * null or empty), 202126 (count below 1), 172002 (more than 16 tables), 202102, 141004 (no such table),
 * 202160 (an operand of cond missing), 202161 (a cond that no builder filled), 150008 (no such column),
 * 150003 (column and value cannot be compared), 202138 (an order that tovik_sort did not fill), 161001 (a
 * column twice in order), 113xxx (a value that an indexed column cannot hold), 110002 (HVI_SQL_BUF_SIZE),
 * 143101 (the area of the sort, HVI_TMP_BUF_SIZE, is too small), 301. */
TOVIK_API tovik_cur *tovik_opencur(tovik_db *db, const char *const *tables, int count, const tovik_cond *cond,
                                   const tovik_order *order);

/* The same; with distinct columns only these can be read, and each combination of their values comes once.
 * 202113 (a distinct column's name). */
TOVIK_API tovik_cur *tovik_opencur_dist(tovik_db *db, const char *const *tables, int count,
                                        const tovik_cond *cond, const tovik_order *order,
                                        const char *const *distinct, int distinct_count);

/* Moves to the next row. Result: 1 when a row is current, 0 at the end, -1 with 202116 (cursor), 202101
 * (process that fork made) or the cause; the cursor then stays open without a row. */
TOVIK_API int tovik_fetchcur(tovik_cur *cursor);

/* Closes the cursor and frees what it gave out. Any thread may do it. An invalid handle is ignored. The error
 * record is left as it is. */
TOVIK_API void tovik_closecur(tovik_cur *cursor);

/* ---- columns of the current row ----
 * column: a name, at most 41 bytes; of an SQL cursor: the exact name of a result column (an alias, a column,
 * "EXPRESSION_n" for the nth expression without alias).
 *
 *   read as               columns of a cursor over tables     of a DISTINCT or SQL cursor
 *   i8, i16, i32, i64     integers at most that wide          any number: low bytes, toward zero
 *   float, double         float, double                       any number
 *   char, wchar           any: numbers as digits, dates as 8, 14 or 20 digits, bytes as hex digits
 *   ctime                 date, time, microtimestamp
 *   binary                blob
 *
 * Result: 1 for a value; 0 for NULL, the outputs untouched; -1 with 202116 (cursor), 202101 (process that
 * fork made), 202113 (column name), 202119 (output null), 202154 (column does not fit the request), 150008
 * (no such column), 202140 (not among the result columns), 202141 (no current row of an SQL cursor, or its
 * value cannot be computed), 43010 (no current row), 301. */

/* type: TOVIK_INT8 .. TOVIK_BINARY. value may be null. Texts and bytes: value->read or value->bytes points to
 * what the cursor owns until its next fetch or its close. */
TOVIK_API int tovik_getcol(tovik_cur *cursor, const char *column, int type, tovik_value *value);

TOVIK_API int tovik_getcol_i8(tovik_cur *cursor, const char *column, int8_t *value);
TOVIK_API int tovik_getcol_i16(tovik_cur *cursor, const char *column, int16_t *value);
TOVIK_API int tovik_getcol_i32(tovik_cur *cursor, const char *column, int32_t *value);
TOVIK_API int tovik_getcol_i64(tovik_cur *cursor, const char *column, int64_t *value);
TOVIK_API int tovik_getcol_float(tovik_cur *cursor, const char *column, float *value);
TOVIK_API int tovik_getcol_double(tovik_cur *cursor, const char *column, double *value);
TOVIK_API int tovik_getcol_ctime(tovik_cur *cursor, const char *column, DateTimeRec *value);

/* Copy into buffer (size bytes), texts with their terminator. 202127 (size below 1); a value that does not
 * fit: 202128, wide texts 190016. length: receives the number of bytes; 202139 when null. */
TOVIK_API int tovik_getcol_char(tovik_cur *cursor, const char *column, char *buffer, int size);
TOVIK_API int tovik_getcol_wchar(tovik_cur *cursor, const char *column, uint16_t *buffer, int size);
TOVIK_API int tovik_getcol_binary(tovik_cur *cursor, const char *column, void *buffer, int size,
                                  int32_t *length);

/* Without a copy: the engine's own text of a character column, or bytes of a blob column, valid until the
 * next fetch or the close. 202145 (data null), 202146 (length null), 202147 (a blob read as text). */
TOVIK_API int tovik_getcol_ibuf_char(tovik_cur *cursor, const char *column, const char **text,
                                     int32_t *length);
TOVIK_API int tovik_getcol_ibuf_binary(tovik_cur *cursor, const char *column, const void **data,
                                       int32_t *length);

/* ---- column values to be written ----
 * Each fills the record with zeros and then with name (at most 20 bytes) and value. All: 202118 (record
 * null), 202111 (name null, empty or too long). */

/* type: TOVIK_NULL to TOVIK_BINARY. value: as for conditions; TOVIK_BINARY: points to a tovik_bytes. 202151
 * (type), 202103 (no number or date: value null), 202123 (no text), 202124 (no bytes or length below 1). */
TOVIK_API int tovik_setcol(tovik_colval *record, const char *name, int type, const void *value);
TOVIK_API int tovik_setcol_i8(tovik_colval *record, const char *name, int8_t value);
TOVIK_API int tovik_setcol_i16(tovik_colval *record, const char *name, int16_t value);
TOVIK_API int tovik_setcol_i32(tovik_colval *record, const char *name, int32_t value);
TOVIK_API int tovik_setcol_i64(tovik_colval *record, const char *name, int64_t value);
TOVIK_API int tovik_setcol_float(tovik_colval *record, const char *name, float value);
TOVIK_API int tovik_setcol_double(tovik_colval *record, const char *name, double value);
TOVIK_API int tovik_setcol_char(tovik_colval *record, const char *name, const char *text);
TOVIK_API int tovik_setcol_wchar(tovik_colval *record, const char *name, const uint16_t *text);
TOVIK_API int tovik_setcol_ctime(tovik_colval *record, const char *name, const DateTimeRec *value);
TOVIK_API int tovik_setcol_binary(tovik_colval *record, const char *name, const void *data, int length);
TOVIK_API int tovik_setcolnull(tovik_colval *record, const char *name);

/* ---- row changes ----
 * table: at most 20 bytes. All: 202115 (database handle), 202101 (process that fork made), 202110 (table
 * name), 202118 (values null), 202120 (count not 1 to 200), 202150 (the table has no such column), 140003
 * (database busy), 141004 (no such table), 143001 (equal keys), 143002 (NULL in a NOT NULL column or in a
 * unique key), 113xxx (a value that its column cannot hold), 144001 (an empty text for a text or blob
 * column), 142010 (rowid), 172007 (a column named twice), 150001 (a number or date for a column of another
 * kind), 202154 (bytes for a column that is no blob). Numbers go into number and text columns, texts into any
 * column (hex digits into a blob), dates into date columns, bytes into blobs. */

/* Inserts one row; columns not named are NULL, or the next number of one that counts by itself. A row in
 * which nothing but NULL is set is not stored, though 0 is returned, unless a column of the table counts by
 * itself. */
TOVIK_API int tovik_insert(tovik_db *db, const char *table, const tovik_colval *values, int count);

/* Sets the given columns in every row that meets cond (null: in every row). */
TOVIK_API int tovik_update(tovik_db *db, const char *table, const tovik_colval *values, int count,
                           const tovik_cond *cond);

/* Deletes every row that meets cond (null: every row). */
TOVIK_API int tovik_delete(tovik_db *db, const char *table, const tovik_cond *cond);

/* ---- SQL text ---- All: 202115 (database handle), 202101 (process that fork made), 202136 (text null, empty
 * or blank), 171001 (syntax) and the statement's own codes; the wide forms: 301 (no valid UTF-16). */

/* Runs one statement that is no SELECT (202142). */
TOVIK_API int tovik_execsql_char(tovik_db *db, const char *sql);
TOVIK_API int tovik_execsql_wchar(tovik_db *db, const uint16_t *sql);

/* Runs a SELECT (202143) and gives a cursor over its result, to be closed with tovik_closecur, or null. */
TOVIK_API tovik_cur *tovik_selectsql_char(tovik_db *db, const char *sql);
TOVIK_API tovik_cur *tovik_selectsql_wchar(tovik_db *db, const uint16_t *sql);

#ifdef __cplusplus
}
static_assert(sizeof(tovik_coldef) == 40 && sizeof(tovik_autoinc) == 12 && sizeof(tovik_value) == 16 &&
                  sizeof(tovik_cond) == (sizeof(void *) == 8 ? 152 : 144) && sizeof(tovik_order) == 176 &&
                  sizeof(tovik_colval) == 48,
              "records are laid out as callers were compiled with");
#endif

#endif
