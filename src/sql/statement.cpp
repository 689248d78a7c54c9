#include "sql/statement.h"

#include "frame/env.h"
#include "frame/error.h"
#include "sql/dispatcher.h"
#include "sql/parser.h"

namespace tovik {

Statement *sql_create(Database *db) {
  if (db == nullptr) return fail_null(status::sql_argument);
  Statement *statement = mem_new<Statement>();
  if (statement == nullptr) return fail_null(status::out_of_memory);
  statement->db = db;
  statement->pool = memory_pool_create(env_number(Env::sql_buf_size));
  if (statement->pool == nullptr) {
    sql_destroy(statement);
    return nullptr;
  }
  if (!statement->stack.values.reserve(value_stack_start)) {
    err_set(status::out_of_memory);
    err_set(status::sql_init_memory);
    sql_destroy(statement);
    return nullptr;
  }
  return statement;
}

void sql_destroy(Statement *statement) {
  sql_clear(*statement);
  memory_pool_destroy(statement->pool);
  mem_delete(statement);
}

void sql_clear(Statement &statement) {
  query_release(statement.query);
  statement.query = nullptr;
  if (statement.read_held) db_read_end(*statement.db, statement.reader);
  statement.read_held = false;
  statement.root = nullptr;
  statement.stack.values.clear();
  if (statement.pool != nullptr) memory_pool_empty(*statement.pool);
}

// A query reads the catalog while it is prepared, so the hold comes first.
static bool prepare_select(Statement &statement) {
  statement.reader = current_thread();
  if (!db_read_begin(*statement.db, statement.reader)) return false;
  statement.read_held = true;
  return query_prepare_select(statement);
}

static bool prepare(Statement &statement, const char *text) {
  if (!parse(*statement.pool, text, &statement.root)) return false;
  if (statement.root == nullptr) return true;
  if (statement.root->kind == node::select) return prepare_select(statement);
  if (statement.root->kind == node::test_stmt) return query_prepare_items(statement);
  return true;
}

static bool nothing_to_execute(const char *text) {
  while (*text == ' ' || *text == '\t') ++text;
  return *text == 0 || (text[0] == '-' && text[1] == '-');
}

SqlResult sql_prepare(Statement &statement, const char *text, bool prepared) {
  sql_clear(statement);
  if (env_on(Env::sql_debug_print)) system_driver.print("%s\n", text);
  statement.prepared = prepared;
  if (nothing_to_execute(text)) return SqlResult::nothing;
  if (env_on(Env::sql_time_watch)) system_driver.utc_now(&statement.start);
  if (prepare(statement, text)) return SqlResult::done;
  sql_clear(statement);
  return SqlResult::failed;
}

static void print_elapsed(const Clock &start) {
  Clock now;
  system_driver.utc_now(&now);
  int32_t seconds = now.seconds - start.seconds;
  int32_t microseconds = now.microseconds - start.microseconds;
  if (microseconds < 0) {
    microseconds += 1000000;
    --seconds;
  }
  system_driver.print("%s[SQL] ELAPSED TIME in sec: %d.%06d%s", "\n", seconds, microseconds, "\n");
}

bool sql_execute(Statement &statement) {
  if (statement.root == nullptr) return true;
  const bool done = dispatch(statement);
  // Accumulators and replaced parts of the condition would spoil another execution.
  if (!done) sql_clear(statement);
  if (env_on(Env::sql_time_watch)) print_elapsed(statement.start);
  return done;
}

SqlResult sql_execute_text(Statement &statement, const char *text) {
  err_clear();
  SqlResult result = sql_prepare(statement, text, false);
  if (result == SqlResult::done && !sql_execute(statement)) result = SqlResult::failed;
  sql_clear(statement);
  return result;
}

RowFetch sql_fetch(Statement &statement) {
  return query_fetch(*statement.query);
}

}  // namespace tovik
