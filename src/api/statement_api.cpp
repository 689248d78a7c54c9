// The statement interface: checks handles and arguments, keeps the call order of the prepared style and calls
// the statement objects. What each function promises stands in kld_api.h.
#include <cstring>

#include "api/convert.h"
#include "api/handle.h"
#include "api/library.h"
#include "frame/error.h"
#include "kld_api.h"
#include "sql/statement.h"

using namespace tovik;

namespace {

Database *database_of(const kld_db *db) {
  return handle_object<Database>(db, HandleKind::statement_database);
}
Statement *statement_of(const kld_stmt *stmt) {
  return handle_object<Statement>(stmt, HandleKind::statement);
}

int failure(StatusCode code) {
  err_set(code);
  return -1;
}

bool prepared(const Statement &statement) {
  return statement.root != nullptr && statement.query != nullptr;
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

// What the two spellings of a statement text share: run takes the statement and its UTF-8 text.
template <class Run>
int with_wide_text(Statement &statement, const uint16_t *sql, Run run) {
  if (sql == nullptr || sql[0] == 0) return failure(status::api_argument_2);
  char *text = utf8_from_wide(sql);
  if (text == nullptr) return -1;
  const SqlResult result = run(statement, text);
  mem_free(text);
  return result_of(result);
}

SqlResult run_text(Statement &statement, const char *sql) {
  return sql_execute_text(statement, sql);
}
SqlResult prepare_text(Statement &statement, const char *sql) {
  return sql_prepare(statement, sql, true);
}

// The result column numbered column, or null with the status of what is wrong.
const ResultColumn *result_column(const Statement *statement, int column) {
  if (statement == nullptr) return fail_null(status::api_argument_1);
  if (!prepared(*statement)) return fail_null(status::statement_not_prepared);
  if (column < 1 || column > statement->query->column_count) return fail_null(status::api_argument_2);
  return &statement->query->columns[column - 1];
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
  Handle *handle = handle_new(HandleKind::statement_database, nullptr);
  if (handle == nullptr) return fail_null(status::out_of_memory);
  handle->object = db_open(params);
  if (handle->object == nullptr) {
    handle_free(handle);
    return nullptr;
  }
  return reinterpret_cast<kld_db *>(handle);
}

void kld_api_close_db(kld_db *db) {
  Database *database = database_of(db);
  if (database == nullptr) return;
  db_close(database);
  handle_free(reinterpret_cast<Handle *>(db));
}

kld_stmt *kld_api_create_stmt(kld_db *db) {
  err_clear();
  Database *database = database_of(db);
  if (database == nullptr) return fail_null(status::api_argument_1);
  Handle *handle = handle_new(HandleKind::statement, nullptr);
  if (handle == nullptr) return fail_null(status::out_of_memory);
  handle->object = sql_create(database);
  if (handle->object == nullptr) {
    handle_free(handle);
    return nullptr;
  }
  return reinterpret_cast<kld_stmt *>(handle);
}

void kld_api_clear_stmt(kld_stmt *stmt) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement != nullptr) sql_clear(*statement);
}

void kld_api_destroy_stmt(kld_stmt *stmt) {
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return;
  sql_destroy(statement);
  handle_free(reinterpret_cast<Handle *>(stmt));
}

int kld_api_exec_sql_char(kld_stmt *stmt, const char *sql) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (sql == nullptr || sql[0] == 0) return failure(status::api_argument_2);
  return result_of(run_text(*statement, sql));
}

int kld_api_exec_sql_wchar(kld_stmt *stmt, const uint16_t *sql) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  return with_wide_text(*statement, sql, run_text);
}

int kld_api_pre_stmt_char(kld_stmt *stmt, const char *sql) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (prepared(*statement)) return failure(status::statement_prepared);
  if (sql == nullptr || sql[0] == 0) return failure(status::api_argument_2);
  return result_of(prepare_text(*statement, sql));
}

int kld_api_pre_stmt_wchar(kld_stmt *stmt, const uint16_t *sql) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (prepared(*statement)) return failure(status::statement_prepared);
  return with_wide_text(*statement, sql, prepare_text);
}

int kld_api_exec_stmt(kld_stmt *stmt) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (!prepared(*statement)) return failure(status::statement_not_prepared);
  if (statement->query->cursor != nullptr) return failure(status::statement_executed);
  return sql_execute(*statement) ? 0 : -1;
}

int kld_api_fetch_stmt(kld_stmt *stmt) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (!prepared(*statement)) return failure(status::statement_not_prepared);
  if (statement->query->cursor == nullptr) return failure(status::statement_not_executed);
  switch (sql_fetch(*statement)) {
    case RowFetch::row:
      return 1;
    case RowFetch::end:
      return 0;
    default:
      return -1;
  }
}

int kld_api_get_data(kld_stmt *stmt, int column, int type, void *buffer, int size, int32_t *length,
                     int32_t *not_null) {
  err_clear();
  Statement *statement = statement_of(stmt);
  const ResultColumn *result = result_column(statement, column);
  if (result == nullptr) return -1;
  if (buffer == nullptr) return failure(status::api_argument_4);
  if (size <= 0) return failure(status::api_argument_5);
  if (not_null == nullptr) return failure(status::api_argument_7);
  Cursor *cursor = statement->query->cursor;
  if (cursor == nullptr) return failure(status::statement_not_executed);
  Value value;
  if (!cursor_value(*cursor, *result, &value)) return failure(status::column_value_read);
  *not_null = value.is_null() ? 0 : 1;
  if (value.is_null()) return 0;
  const TypeCode code = value.declared != 0 ? value.declared : value.type;
  return convert_value(value, code, type, {buffer, size, length}) ? 0 : -1;
}

int kld_api_get_cols_count(kld_stmt *stmt, int32_t *count) {
  err_clear();
  Statement *statement = statement_of(stmt);
  if (statement == nullptr) return failure(status::api_argument_1);
  if (count == nullptr) return failure(status::api_argument_2);
  if (!prepared(*statement)) return failure(status::statement_not_prepared);
  *count = statement->query->column_count;
  return 0;
}

int kld_api_get_cols_desc(kld_stmt *stmt, int column, char *name, int name_size, int32_t *declared_type,
                          int32_t *value_type, int32_t *data_size, int32_t *not_null) {
  err_clear();
  const ResultColumn *result = result_column(statement_of(stmt), column);
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
