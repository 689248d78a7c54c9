// The statement interface: checks handles and arguments, keeps the call order of the prepared style and calls
// the statement objects. What each function promises stands in kld_api.h.
#include <cstring>

#include "api/convert.h"
#include "api/library.h"
#include "api/statement_database.h"
#include "frame/error.h"
#include "kld_api.h"

using namespace tovik;

namespace {

// ---- handles ----

int failure(StatusCode code) {
  err_set(code);
  return -1;
}

// The object behind a caller's handle, or null with 190001, or 190010 in a process that fork made.
template <class Object>
Object *object_of(const void *handle, HandleKind kind) {
  Object *object = static_cast<Object *>(handle_find(handle, kind));
  if (object != nullptr) return object;
  return fail_null(library_left_by_fork() ? status::api_not_initialised : status::api_argument_1);
}

// How a call on a statement begins.
OpenStatement *called_statement(const kld_stmt *stmt) {
  err_clear();
  return object_of<OpenStatement>(stmt, HandleKind::statement);
}

// The handle has been taken.
void statement_free(OpenStatement *open) {
  OpenStatement **link = &open->database->statements;
  while (*link != open) link = &(*link)->next;
  *link = open->next;
  sql_destroy(open->statement);
  mem_delete(open);
}

OpenStatement *statement_new(StatementDatabase &database) {
  Statement *statement = sql_create(database.db);
  if (statement == nullptr) return nullptr;
  OpenStatement *open = mem_new<OpenStatement>();
  const void *handle = open == nullptr ? nullptr : handle_new(HandleKind::statement, open);
  if (handle == nullptr) {
    mem_delete(open);
    sql_destroy(statement);
    return fail_null(status::out_of_memory);
  }
  open->statement = statement;
  open->database = &database;
  open->handle = handle;
  open->next = database.statements;
  return database.statements = open;
}

// ---- states ----

bool prepared(const OpenStatement &open) {
  return open.statement->root != nullptr && open.statement->query != nullptr;
}

// Each passes a null pointer on; null with the status that tells what the statement is instead.
OpenStatement *unprepared(OpenStatement *open) {
  return open == nullptr || !prepared(*open) ? open : fail_null(status::statement_prepared);
}
Query *query_of(const OpenStatement *open) {
  if (open == nullptr) return nullptr;
  return prepared(*open) ? open->statement->query : fail_null(status::statement_not_prepared);
}
Cursor *cursor_of(const Query *query) {
  if (query == nullptr) return nullptr;
  return query->cursor != nullptr ? query->cursor : fail_null(status::statement_not_executed);
}

int result_of(SqlResult result) {
  switch (result) {
    case SqlResult::done:
      return 0;
    case SqlResult::nothing:
      return 1;
    default:
      return -1;
  }
}

// What executing and preparing share: run takes the text as UTF-8.
using Run = SqlResult (*)(Statement &statement, const char *sql);

int with_text(const OpenStatement *open, const char *sql, Run run) {
  if (open == nullptr) return -1;
  if (sql == nullptr || sql[0] == 0) return failure(status::api_argument_2);
  return result_of(run(*open->statement, sql));
}

int with_text(const OpenStatement *open, const uint16_t *sql, Run run) {
  if (open == nullptr) return -1;
  if (sql == nullptr || sql[0] == 0) return failure(status::api_argument_2);
  const Utf8Text text = utf8_from_wide(sql);
  return text == nullptr ? -1 : result_of(run(*open->statement, text.get()));
}

SqlResult prepare_text(Statement &statement, const char *sql) {
  return sql_prepare(statement, sql, Execution::stepwise);
}

// The result column numbered column, or null with the status of what is wrong.
const ResultColumn *result_column(const Query *query, int column) {
  if (query == nullptr) return nullptr;
  if (column < 1 || column > query->column_count) return fail_null(status::api_argument_2);
  return &query->columns[column - 1];
}

// The type in which values of a declared type are handed out.
TypeCode handed_out_type(TypeCode declared) {
  if ((declared & TYPE_INTEGER) != 0) return type::bigint;
  if ((declared & TYPE_FLOAT) != 0 || declared == type::decimal) return type::float64;
  if ((declared & TYPE_CHARACTER) != 0) return type::character;
  if ((declared & TYPE_DATETIME) != 0) return type::microtimestamp;
  return declared == type::blob ? type::blob : TypeCode{0};
}

template <class T>
void put(int32_t *out, T value) {
  if (out != nullptr) *out = static_cast<int32_t>(value);
}

}  // namespace

int kld_api_create_db(const char *params) {
  err_clear();
  if (!library_started()) return failure(status::api_not_initialised);
  Database *db = db_create(params);
  if (db == nullptr) return -1;
  db_close(db);
  return 0;
}

int kld_api_remove_db(const char *params) {
  err_clear();
  if (!library_started()) return failure(status::api_not_initialised);
  return db_remove(params) ? 0 : -1;
}

kld_db *kld_api_open_db(const char *params) {
  err_clear();
  if (!library_started()) return fail_null(status::api_not_initialised);
  StatementDatabase *database = mem_new<StatementDatabase>();
  if (database == nullptr) return fail_null(status::out_of_memory);
  database->db = db_open(params);
  void *handle = database->db == nullptr ? nullptr : handle_new(HandleKind::statement_database, database);
  if (handle != nullptr) return static_cast<kld_db *>(handle);
  if (database->db != nullptr) err_set(status::out_of_memory);
  db_close(database->db);
  mem_delete(database);
  return nullptr;
}

void kld_api_close_db(kld_db *db) {
  StatementDatabase *database;
  {
    const HandlesGuard guard;
    database = static_cast<StatementDatabase *>(handle_take(db, HandleKind::statement_database));
    if (database == nullptr) return;
    while (database->statements != nullptr) {
      (void)handle_take(database->statements->handle, HandleKind::statement);
      statement_free(database->statements);
    }
  }
  db_close(database->db);
  mem_delete(database);
}

void tovik::statement_databases_close() {
  while (const void *handle = handle_any(HandleKind::statement_database))
    kld_api_close_db(static_cast<kld_db *>(const_cast<void *>(handle)));
}

kld_stmt *kld_api_create_stmt(kld_db *db) {
  err_clear();
  StatementDatabase *database = object_of<StatementDatabase>(db, HandleKind::statement_database);
  if (database == nullptr) return nullptr;
  const HandlesGuard guard;
  const OpenStatement *open = statement_new(*database);
  return open == nullptr ? nullptr : static_cast<kld_stmt *>(const_cast<void *>(open->handle));
}

void kld_api_clear_stmt(kld_stmt *stmt) {
  err_clear();
  const HandlesGuard guard;
  OpenStatement *open = static_cast<OpenStatement *>(handle_find(stmt, HandleKind::statement));
  if (open != nullptr) sql_clear(*open->statement);
}

void kld_api_destroy_stmt(kld_stmt *stmt) {
  const HandlesGuard guard;
  OpenStatement *open = static_cast<OpenStatement *>(handle_take(stmt, HandleKind::statement));
  if (open != nullptr) statement_free(open);
}

int kld_api_exec_sql_char(kld_stmt *stmt, const char *sql) {
  return with_text(called_statement(stmt), sql, sql_execute_text);
}

int kld_api_exec_sql_wchar(kld_stmt *stmt, const uint16_t *sql) {
  return with_text(called_statement(stmt), sql, sql_execute_text);
}

int kld_api_pre_stmt_char(kld_stmt *stmt, const char *sql) {
  return with_text(unprepared(called_statement(stmt)), sql, prepare_text);
}

int kld_api_pre_stmt_wchar(kld_stmt *stmt, const uint16_t *sql) {
  return with_text(unprepared(called_statement(stmt)), sql, prepare_text);
}

int kld_api_exec_stmt(kld_stmt *stmt) {
  OpenStatement *open = called_statement(stmt);
  const Query *query = query_of(open);
  if (query == nullptr) return -1;
  if (query->cursor != nullptr) return failure(status::statement_executed);
  return sql_execute(*open->statement) ? 0 : -1;
}

int kld_api_fetch_stmt(kld_stmt *stmt) {
  OpenStatement *open = called_statement(stmt);
  if (cursor_of(query_of(open)) == nullptr) return -1;
  switch (sql_fetch(*open->statement)) {
    case Found::yes:
      return 1;
    case Found::no:
      return 0;
    default:
      return -1;
  }
}

int kld_api_get_data(kld_stmt *stmt, int column, int type, void *buffer, int size, int32_t *length,
                     int32_t *not_null) {
  const Query *query = query_of(called_statement(stmt));
  const ResultColumn *result = result_column(query, column);
  if (result == nullptr) return -1;
  if (buffer == nullptr) return failure(status::api_argument_4);
  if (size <= 0) return failure(status::api_argument_5);
  if (not_null == nullptr) return failure(status::api_argument_7);
  Cursor *cursor = cursor_of(query);
  if (cursor == nullptr) return -1;
  Value value;
  if (!cursor_value(*cursor, *result, &value)) return failure(status::column_value_read);
  *not_null = value.is_null() ? 0 : 1;
  if (value.is_null()) return 0;
  const TypeCode code = value.declared != 0 ? value.declared : value.type;
  return convert_value(value, code, type, {buffer, size, length}) ? 0 : -1;
}

int kld_api_get_cols_count(kld_stmt *stmt, int32_t *count) {
  const OpenStatement *open = called_statement(stmt);
  if (open == nullptr) return -1;
  if (count == nullptr) return failure(status::api_argument_2);
  const Query *query = query_of(open);
  if (query == nullptr) return -1;
  *count = query->column_count;
  return 0;
}

int kld_api_get_cols_desc(kld_stmt *stmt, int column, char *name, int name_size, int32_t *declared_type,
                          int32_t *value_type, int32_t *data_size, int32_t *not_null) {
  const ResultColumn *result = result_column(query_of(called_statement(stmt)), column);
  if (result == nullptr) return -1;
  const Column *source = result->kind == ResultKind::column ? result->column.column : nullptr;
  if (name != nullptr) {
    char buffer[result_name_size];
    const char *text = result_name(*result, buffer);
    if (static_cast<int>(strlen(text)) > name_size - 1) return failure(status::value_buffer_small);
    memcpy(name, text, strlen(text) + 1);
  }
  put(declared_type, source != nullptr ? source->type : result->type);
  put(value_type, source != nullptr ? handed_out_type(source->type) : result->type);
  const TypeRow *row = source != nullptr ? type_row(source->type) : nullptr;
  put(data_size, row == nullptr ? 0 : row->stored_size != 0 ? row->stored_size : source->p1);
  put(not_null, source != nullptr && source->not_null ? 1 : 0);
  return 0;
}
