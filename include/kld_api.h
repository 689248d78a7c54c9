/* The statement interface of the Tovik database engine, and the command interpreter.
 *
 * MODEL
 *   kld_api_init once per process; then any number of databases, each opened from a parameter string
 *   ("NAME=orders;PATH=/data;CACHE_SIZE_DAT=1024"); then any number of statements per database. SQL runs in
 *   one call (kld_api_exec_sql_char; the engine prints a query's rows to standard output), or step by step:
 *
 *     kld_api_pre_stmt_char -> [kld_api_get_cols_count, kld_api_get_cols_desc] -> kld_api_exec_stmt
 *       -> kld_api_fetch_stmt until 0, kld_api_get_data for the columns of each row
 *       -> kld_api_clear_stmt (prepare again) or kld_api_destroy_stmt
 *
 *   Only queries (SELECT, TEST_STMT) are prepared; every other statement runs through
 *   kld_api_exec_sql_char.
 *
 * THREADS
 *   kld_api_init and kld_api_end run while no other thread uses the library. A database handle may be
 *   shared by threads (at most 16 of them at a time work on one database); a statement handle belongs to
 *   one thread at a time. A transaction belongs to the thread that began it. A prepared SELECT keeps its
 *   thread's read hold on the database until it is cleared or its execution fails: meanwhile no other
 *   thread or process can finish a commit (it waits and then fails with 140003). The life of handles, which
 *   calls may run beside each other, and what a process that fork made may do: tovik_types.h.
 *
 * ERRORS
 *   Functions that return int give 0 (or what is stated) on success and -1 on failure; functions that
 *   return a handle give null on failure. The cause is in the calling thread's error record, read with
 *   kld_api_get_error; every function below empties the record first, except kld_api_init, kld_api_end,
 *   kld_api_close_db, kld_api_destroy_stmt and the error queries. Bad arguments are reported by position:
 *   190001 for the first argument to 190009 for the ninth; 190001 is also what a handle gives that has
 *   ended, and 190010 what every handle gives in a process that fork made. The codes told with a function
 *   are those that its caller can cause or should expect; any function may also fail with the code of the
 *   system service that failed beneath it. All codes with their texts: src/frame/status_table.inc, in
 *   ranges: docs/ERRORS.md.
 *
 * TEXTS are zero-terminated, in the database's character set (UTF-8 unless HVI_LANG says otherwise); wide
 * texts are UTF-16LE. Texts and handles passed in stay the caller's; nothing passed in is kept after the
 * call.
 *
 * Compiles as C11 and as C++. */
#ifndef KLD_API_H
#define KLD_API_H

#include <stdint.h>
#include <stdio.h>

#include "tovik_types.h"

#ifdef __cplusplus
extern "C" {
#endif

typedef struct kld_db kld_db;     /* a database handle */
typedef struct kld_stmt kld_stmt; /* a statement handle */

/* ---- library ---- */

/* Starts the library in this process. params: environment settings
 * "HVI_CACHE_SIZE_DAT=256;HVI_LOG_FILE=/tmp/t.log", null or
 * "" for none; they override environment variables of the same names. HVI_MEM_LIMIT_SIZE (megabytes) makes
 * all engine memory come from one pool of that size. Once started, a further call returns 0 and changes
 * nothing. Result: 0; -1 with 2 (no memory for the pool), 10, 14, 110 or 11103 (the platform did not start).
 */
TOVIK_API int kld_api_init(const char *params);

/* Ends the library: closes every database that is still open, as kld_api_close_db and tovik_close do, and
 * releases everything. Does nothing before kld_api_init. The library can be started again; handles of before
 * have ended. In a process that fork made it lets go of the parent's files. */
TOVIK_API void kld_api_end(void);

/* ---- errors of the calling thread ---- */

/* The first failure recorded since the record was last emptied. Each pointer may be null. category: 0 system,
 * 1 internal, 2 the caller's, 3 storage driver. text: valid until the thread's next call; Shift-JIS. Result:
 * 1 and the values; 0 when nothing is recorded, the values untouched. */
TOVIK_API int kld_api_get_error(int32_t *category, int32_t *code, int32_t *sys_errno, const char **text);

/* Prints title (unless null or empty) and every recorded failure to standard output. The record stays. */
TOVIK_API void kld_api_print_error(const char *title);

/* Empties the record. */
TOVIK_API void kld_api_clear_error(void);

/* ---- databases ---- */

/* Creates the database that params describes (docs/PARAMETERS.md) and closes it again; a creation that fails
 * leaves no file. 190010: the library is not started in this process; 120101: it exists (and OVERWRITE is not
 * true); 20006: OVERWRITE while somebody has it open; 112xxx: a parameter is wrong; 101: no such directory, or
 * no right to write there. */
TOVIK_API int kld_api_create_db(const char *params);

/* Removes the database with all its files. 190010; 112xxx; 120102: there is none; 108: somebody, in
 * this process or another, has it open, or the system refused. */
TOVIK_API int kld_api_remove_db(const char *params);

/* Opens a database; a commit cut short by a crash is completed first. docs/PARAMETERS.md tells which
 * parameters must be those of the creation. Result: a handle, to be closed with kld_api_close_db; null with
 * 190010 (library not started in this process), 112xxx, 120102 (there is none), 20003 to 20020 (not a
 * database of this kind, or of another block size), 120111 (of another character set), 120109, 120110 (key),
 * 140003 (busy), 1. */
TOVIK_API kld_db *kld_api_open_db(const char *params);

/* Closes the database: its statements end, prepared or not, an open transaction, of whatever thread, is
 * rolled back, and the handle ends. Gives no code; an invalid handle is ignored. */
TOVIK_API void kld_api_close_db(kld_db *db);

/* ---- statements ---- */

/* Result: an empty statement, to be destroyed with kld_api_destroy_stmt or with its database; null with
 * 190001, 190010, 1, 10001 (HVI_SQL_BUF_SIZE). */
TOVIK_API kld_stmt *kld_api_create_stmt(kld_db *db);

/* Ends the prepared query, gives its hold for reading back and makes the statement empty again. Gives no
 * code; an invalid handle is ignored. */
TOVIK_API void kld_api_clear_stmt(kld_stmt *stmt);

/* Clears the statement and ends its handle. Gives no code; an invalid handle is ignored. */
TOVIK_API void kld_api_destroy_stmt(kld_stmt *stmt);

/* Runs one SQL statement; a query prints its whole result. Outside a transaction and with HVI_AUTO_COMMIT ON
 * (the default) the statement is a transaction of its own. Result: 0; 1 when the text holds nothing to
 * execute; -1 with 190001, 190002 (null or empty text), 171001 (syntax) or the statement's own code. A
 * commit, also that of a statement of its own, that fails has changed nothing, but for two codes: 22015
 * (committed and durable, not yet copied) and 22008 (not known yet), see tovik_commit. A statement that holds
 * a prepared query is cleared by this call. */
TOVIK_API int kld_api_exec_sql_char(kld_stmt *stmt, const char *sql);

/* The same for a UTF-16LE text. 301: it is not valid UTF-16. */
TOVIK_API int kld_api_exec_sql_wchar(kld_stmt *stmt, const uint16_t *sql);

/* Prepares a query. Result: 0; 1 when the text holds nothing to execute; -1 with 190001, 190011 (already
 * prepared: clear it first), 190002, 140003 (database busy), 171001 or the query's own code. */
TOVIK_API int kld_api_pre_stmt_char(kld_stmt *stmt, const char *sql);
TOVIK_API int kld_api_pre_stmt_wchar(kld_stmt *stmt, const uint16_t *sql);

/* Executes the prepared query: afterwards its rows can be fetched. 190013: not prepared; 190012: already
 * executed; 143101: the area for ORDER BY, GROUP BY or DISTINCT (HVI_TMP_BUF_SIZE) is too small. A statement
 * that fails here stays prepared, without its hold for reading. A query whose tables or indices have changed
 * since is prepared again. */
TOVIK_API int kld_api_exec_stmt(kld_stmt *stmt);

/* Result: 1 when the next row is current, 0 when there is none, -1 with 190013, 190014 (not executed) or the
 * cause. */
TOVIK_API int kld_api_fetch_stmt(kld_stmt *stmt);

/* Reads a column of the current row, converted to type (TOVIK_INT8 .. TOVIK_BINARY). column: from 1. buffer:
 * size bytes. length (may be null): receives the fixed size of targets 1 to 6 and 9; for texts the length
 * before conversion to UTF-16; for a blob its number of bytes. not_null: 0 for NULL (buffer and length
 * untouched), else 1.
 *
 *   column          targets                                     text form
 *   integers        1 to 4 (low bytes), 5, 6, 7, 8              digits
 *   float, double   1 to 4 (toward zero), 5, 6, 7, 8            "%g"
 *   char .. text    7, 8                                        itself; decimal too, whose values are texts
 *   date and time   7, 8, 9                                     8, 14 or 20 digits
 *   blob            7, 8, 10                                    two lower-case hex digits per byte
 *
 * Result: 0; -1 with 190001, 190013, 190002 (column), 190004 (buffer), 190005 (size), 190007 (not_null),
 * 190014, 190015 (the value cannot be read), 190016 (size too small), 190017 (no such conversion), 301. */
TOVIK_API int kld_api_get_data(kld_stmt *stmt, int column, int type, void *buffer, int size, int32_t *length,
                               int32_t *not_null);

/* The number of result columns. 190001, 190002 (null pointer), 190013. */
TOVIK_API int kld_api_get_cols_count(kld_stmt *stmt, int32_t *count);

/* Describes a result column of a prepared query; every output may be null. name: its name, or "EXPRESSION_n"
 * (190016 when it does not fit name_size). declared_type, value_type: codes (TOVIK_COL_TINYINT ..) of the
 * column's type and of the type in which its values are handed out: bigint for integers, double for floats
 * and decimal (which kld_api_get_data gives as text all the same), char for the other texts, microtimestamp
 * for dates and times, blob. Both are the result type of an expression, 0 when it has none. data_size: bytes
 * of the stored form; of decimal, char and varchar the declared length; of an expression 0. not_null: 1 for
 * NOT NULL, of an expression 0. 190001, 190013, 190002 (column). */
TOVIK_API int kld_api_get_cols_desc(kld_stmt *stmt, int column, char *name, int name_size,
                                    int32_t *declared_type, int32_t *value_type, int32_t *data_size,
                                    int32_t *not_null);

/* ---- command interpreter ---- */

enum {
  KLD_CMD_CREATE = 0,      /* create the database of params */
  KLD_CMD_REMOVE = 1,      /* remove it */
  KLD_CMD_STATEMENT = 2,   /* run sql once */
  KLD_CMD_SCRIPT = 3,      /* run the statements and commands read from in */
  KLD_CMD_INTERACTIVE = 4, /* the same with prompts */
  KLD_CMD_VERSION = 5,     /* print the version; needs no started library */
  KLD_CMD_EXISTS = 6       /* does the database exist? */
};

/* What a console front end is made of. mode: KLD_CMD_CREATE .. KLD_CMD_EXISTS; in counts for a script and the
 * interactive mode, sql for a statement. Output goes to standard output; a failure prints the error record.
 * Result: 0, -1 on failure; KLD_CMD_EXISTS: 1 or 0. Failures of single statements do not end a script or the
 * interactive loop. 91001 (mode), 90001 (in or sql null), 11001 (library not started), 190010 (process that
 * fork made), and the codes of creating, removing, opening and of the statement. */
TOVIK_API int kld_cmd_exec(FILE *in, int mode, const char *params, const char *sql);

#ifdef __cplusplus
}
#endif

#endif
