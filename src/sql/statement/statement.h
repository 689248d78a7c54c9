// A statement object carries one SQL statement through its life: it owns the memory pool in which tree, query
// and work areas live, the value stack, and the query of a SELECT. Execution goes through the dispatcher,
// which takes the database for reading or opens an automatic transaction as the statement's kind asks.
//
//   empty --sql_prepare--> prepared --sql_execute--> executed (cursor open) --sql_clear--> empty
//   sql_execute_text goes the whole way and ends empty; so does a preparation that fails. An execution that
//   fails leaves the statement prepared.
//
// A statement belongs to one thread at a time; a prepared SELECT keeps its thread's read hold until it is
// cleared or its execution fails. A query is prepared again from its text when the definition of a table was
// replaced since, or an execution failed: replaced parts of the condition would spoil another one.
#pragma once

#include "data/database.h"
#include "sql/query/query.h"

namespace tovik {

struct Statement {
  Database *db;
  ValueStack stack;
  MemoryPool *pool;
  Node *root;        // null: empty, or nothing to execute
  Query *query;      // SELECT and TEST_STMT only
  bool prepared;     // for execution and fetching by the caller
  bool spent;        // by an execution that failed
  Array<char> text;  // of a prepared query
  bool read_held;    // the SELECT's read hold, taken when it was parsed
  ThreadId reader;   // whose hold it is
  Clock start;       // with HVI_SQL_TIME_WATCH
};

Statement *sql_create(Database *db);  // 70001, 70003, 1
void sql_destroy(Statement *statement);

enum class SqlResult { done, nothing, failed };  // nothing: the text holds nothing to execute

SqlResult sql_execute_text(Statement &statement, const char *text);  // parse, execute, clear
// stepwise: execution and fetching are the caller's.
enum class Execution { at_once, stepwise };
SqlResult sql_prepare(Statement &statement, const char *text, Execution execution);
[[nodiscard]] bool sql_execute(Statement &statement);
Found sql_fetch(Statement &statement);  // the cursor is open
void sql_clear(Statement &statement);

inline EvalContext sql_context(Statement &statement, TableAccess *tables) {
  return {&statement.stack, statement.pool, tables};
}

}  // namespace tovik
