#include "sql/statement/statement.h"

#include <cstring>
#include <utility>

#include "frame/env.h"
#include "frame/error.h"
#include "sql/parse/parser.h"
#include "sql/statement/dispatcher.h"

namespace tovik {

Statement *sql_create(Database *db) {
  if (db == nullptr) return fail_null(status::sql_argument);
  Statement *statement = mem_new<Statement>();
  if (statement == nullptr) return fail_null(status::out_of_memory);
  statement->db = db;
  statement->pool = memory_pool_create(memory_pool_scaled(env_number(Env::sql_buf_size)));
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

static void end_reading(Statement &statement) {
  if (statement.read_held) db_read_end(*statement.db, statement.reader);
  statement.read_held = false;
}

void sql_clear(Statement &statement) {
  query_release(statement.query);
  statement.query = nullptr;
  end_reading(statement);
  statement.root = nullptr;
  statement.prepared = statement.spent = false;
  statement.stack.values.clear();
  if (statement.pool != nullptr) memory_pool_empty(*statement.pool);
}

// A query reads the catalog while it is prepared, so the hold comes first.
static bool prepare_select(Statement &statement) {
  statement.reader = current_thread();
  if (!db_read_begin(*statement.db, statement.reader)) return false;
  statement.read_held = true;
  return query_prepare_select(*statement.db, sql_context(statement, nullptr), *statement.root,
                              &statement.query);
}

static bool prepare(Statement &statement, const char *text) {
  if (!parse(*statement.pool, text, &statement.root)) return false;
  if (statement.root == nullptr) return true;
  if (statement.root->kind == node::select) return prepare_select(statement);
  if (statement.root->kind == node::test_stmt)
    return query_prepare_items(*statement.db, sql_context(statement, nullptr), *statement.root,
                               &statement.query);
  return true;
}

static bool nothing_to_execute(const char *text) {
  while (*text == ' ' || *text == '\t') ++text;
  return *text == 0 || (text[0] == '-' && text[1] == '-');
}

static bool keep_text(Statement &statement, const char *text) {
  if (!statement.prepared || statement.query == nullptr) return true;
  const size_t size = strlen(text) + 1;
  if (!statement.text.resize(static_cast<int>(size))) return fail(status::out_of_memory);
  memcpy(statement.text.data(), text, size);
  return true;
}

SqlResult sql_prepare(Statement &statement, const char *text, Execution execution) {
  sql_clear(statement);
  if (env_on(Env::sql_debug_print)) system_driver.print("%s\n", text);
  statement.prepared = execution == Execution::stepwise;
  if (nothing_to_execute(text)) return SqlResult::nothing;
  system_driver.utc_now(&statement.start);
  if (prepare(statement, text) && keep_text(statement, text)) return SqlResult::done;
  sql_clear(statement);
  return SqlResult::failed;
}

static bool outdated(const Statement &statement) {
  if (statement.query == nullptr || !statement.prepared) return false;
  return statement.spent || query_outdated(*statement.query);
}

// A failure leaves the statement as it was.
static bool prepare_again(Statement &statement) {
  Statement *fresh = sql_create(statement.db);
  if (fresh == nullptr) return false;
  const bool done = sql_prepare(*fresh, statement.text.data(), Execution::stepwise) == SqlResult::done;
  if (done) {
    std::swap(statement.pool, fresh->pool);
    std::swap(statement.root, fresh->root);
    std::swap(statement.query, fresh->query);
    std::swap(statement.read_held, fresh->read_held);
    std::swap(statement.reader, fresh->reader);
    statement.query->stack = &statement.stack;
    statement.spent = false;
  }
  sql_destroy(fresh);
  return done;
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
  if (outdated(statement) && !prepare_again(statement)) return false;
  const bool done = dispatch(statement);
  if (!done) {
    statement.spent = true;
    end_reading(statement);
  }
  if (env_on(Env::sql_time_watch)) print_elapsed(statement.start);
  return done;
}

SqlResult sql_execute_text(Statement &statement, const char *text) {
  err_clear();
  SqlResult result = sql_prepare(statement, text, Execution::at_once);
  if (result == SqlResult::done && !sql_execute(statement)) result = SqlResult::failed;
  sql_clear(statement);
  return result;
}

Found sql_fetch(Statement &statement) {
  return query_fetch(*statement.query);
}

}  // namespace tovik
