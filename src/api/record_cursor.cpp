// Opening, fetching and closing cursors.
//
// Cost of a point read with a warm database: the read hold, a search of the index, one row; memory comes from
// the work area, the table's spare row handle and the free handles.
#include "api/record_cursor.h"

#include <cstring>

#include "api/convert.h"
#include "api/record_tree.h"
#include "platform/ascii.h"

namespace tovik {

// ---- rows ----

bool tables_open(Database &db, MemoryPool &pool, const char *const *names, int count, TableAccess **first) {
  *first = nullptr;
  if (count > from_table_limit) return fail(status::too_many_from_tables);
  for (int i = 0; i < count; ++i, first = &(*first)->next) {
    if (names[i] == nullptr || names[i][0] == 0) return fail(status::record_api_cursor_tables);
    Table *table = table_open(db, names[i]);
    if (table == nullptr) return false;
    *first = access_open(pool, table, nullptr);
    if (*first == nullptr) return false;
  }
  return true;
}

bool request_rows(WorkArea &area, TableAccess *tables, const tovik_cond *condition, CursorRequest &request) {
  request.context = {&area.stack, area.pool, tables};
  if (condition == nullptr) return true;
  request.condition = condition_tree(*area.pool, *condition);
  return request.condition != nullptr && condition_check(request.context, request.condition);
}

// ---- opening ----

namespace {

// What tovik_opencur is given.
struct Wanted {
  const char *const *tables;
  int table_count;
  const tovik_cond *condition;
  const tovik_order *order;
  const char *const *distinct;
  int distinct_count;
};

RecordCursor *cursor_new(RecordDatabase &database, CursorState state) {
  WorkArea *area = area_take(database);
  if (area == nullptr) return nullptr;
  const HandlesGuard guard;
  RecordCursor *cursor = memory_pool_new<RecordCursor>(*area->pool);
  void *handle = cursor == nullptr ? nullptr : handle_new(HandleKind::record_cursor, cursor);
  if (handle == nullptr) {
    area_give_back(database, area);
    return fail_primary(status::record_api_memory);
  }
  cursor->state = state;
  cursor->database = &database;
  cursor->area = area;
  cursor->reader = no_thread;
  cursor->handle = handle;
  cursor->next = database.cursors;
  database.cursors = cursor;
  return cursor;
}

void free_texts(RecordCursor &cursor) {
  while (cursor.texts != nullptr) {
    TextBuffer *next = cursor.texts->next;
    mem_free(cursor.texts);
    cursor.texts = next;
  }
}

void leave_list(RecordDatabase &database, RecordCursor *cursor) {
  RecordCursor **link = &database.cursors;
  while (*link != cursor) link = &(*link)->next;
  *link = cursor->next;
}

// The read hold goes last: what it protects is in use until then.
void cursor_free(RecordCursor *cursor) {
  const HandlesGuard guard;
  RecordDatabase &database = *cursor->database;
  WorkArea *area = cursor->area;
  const ThreadId reader = cursor->reader;
  leave_list(database, cursor);
  (void)handle_take(cursor->handle, HandleKind::record_cursor);
  free_texts(*cursor);
  if (cursor->statement != nullptr) {
    sql_destroy(cursor->statement);
  } else {
    if (cursor->rows != nullptr) cursor_close(cursor->rows);
    access_close(cursor->tables);
  }
  area_give_back(database, area);
  if (reader != no_thread) db_read_end(*database.db, reader);
}

bool request_distinct(RecordCursor &cursor, const Wanted &wanted, CursorRequest &request) {
  if (wanted.distinct == nullptr || wanted.distinct_count < 1) return true;
  cursor.columns = memory_pool_new<ResultColumn>(*cursor.area->pool, wanted.distinct_count);
  if (cursor.columns == nullptr) return false;
  cursor.column_count = wanted.distinct_count;
  for (int i = 0; i < wanted.distinct_count; ++i) {
    if (!name_given(wanted.distinct[i], column_reference_limit))
      return fail(status::record_api_column_reference);
    const ColumnReference name(wanted.distinct[i]);
    ResultColumn &column = cursor.columns[i];
    column.kind = ResultKind::column;
    if (!column_lookup(cursor.tables, name.table, name.column, &column.column)) return false;
    column.type = column.column.column->type;
  }
  cursor.state = CursorState::distinct;
  request.distinct = true;
  request.columns = cursor.columns;
  request.column_count = cursor.column_count;
  return true;
}

bool request_order(RecordCursor &cursor, const Wanted &wanted, CursorRequest &request) {
  if (wanted.order == nullptr) return true;
  OrderKey *keys = memory_pool_new<OrderKey>(*cursor.area->pool, record_order_limit);
  request.order = keys;
  return keys != nullptr && order_keys(cursor.tables, *wanted.order, keys, &request.order_count);
}

bool reserve_names(RecordCursor &cursor) {
  int count = cursor.column_count;
  for (const TableAccess *access = cursor.tables; access != nullptr; access = access->next)
    count += access->handle->table->column_count;
  return names_reserve(*cursor.area->pool, count, &cursor.names);
}

bool open_rows(RecordCursor &cursor, const Wanted &wanted) {
  Database &db = *cursor.database->db;
  const ThreadId thread = current_thread();
  if (!db_read_begin(db, thread)) return false;
  cursor.reader = thread;
  if (wanted.tables == nullptr) return fail(status::record_api_cursor_tables);
  if (wanted.table_count < 1) return fail(status::record_api_cursor_table_count);
  CursorRequest request{};
  if (!tables_open(db, *cursor.area->pool, wanted.tables, wanted.table_count, &cursor.tables) ||
      !request_rows(*cursor.area, cursor.tables, wanted.condition, request) ||
      !request_order(cursor, wanted, request) || !request_distinct(cursor, wanted, request) ||
      !reserve_names(cursor))
    return false;
  cursor.rows = cursor_open(request);
  return cursor.rows != nullptr;
}

tovik_cur *handle_of(RecordCursor *cursor) {
  return static_cast<tovik_cur *>(cursor->handle);
}

tovik_cur *open(const tovik_db *db, const Wanted &wanted) {
  RecordDatabase *database = database_of(db);
  if (database == nullptr) return nullptr;
  RecordCursor *cursor = cursor_new(*database, CursorState::table);
  if (cursor == nullptr) return nullptr;
  if (open_rows(*cursor, wanted)) return handle_of(cursor);
  cursor_free(cursor);
  return nullptr;
}

Found fetch(RecordCursor &cursor) {
  free_texts(cursor);
  return cursor_fetch(*cursor.rows);
}

// ---- SQL text ----

enum class SqlKind { query, other };

bool starts_with_select(const char *text) {
  for (const char *word = "select"; *word != 0; ++word, ++text)
    if ((*text | 0x20) != *word) return false;
  return true;
}

// 202136, 202142, 202143.
bool check_text(const char *sql, SqlKind kind) {
  if (sql == nullptr || *skip_blanks(sql) == 0) return fail(status::record_api_sql_text);
  const bool query = starts_with_select(skip_blanks(sql));
  if (query == (kind == SqlKind::query)) return true;
  return fail(query ? status::record_api_query_text : status::record_api_no_query_text);
}

bool execute(RecordDatabase &database, const char *sql) {
  if (!check_text(sql, SqlKind::other)) return false;
  Statement *statement = sql_create(database.db);
  if (statement == nullptr) return false;
  const SqlResult result = sql_execute_text(*statement, sql);
  sql_destroy(statement);
  return result != SqlResult::failed;
}

bool open_query(RecordCursor &cursor, const char *sql) {
  cursor.statement = sql_create(cursor.database->db);
  if (cursor.statement == nullptr) return false;
  Statement &statement = *cursor.statement;
  if (sql_prepare(statement, sql, Execution::stepwise) != SqlResult::done || !sql_execute(statement))
    return false;
  cursor.columns = statement.query->columns;
  cursor.column_count = statement.query->column_count;
  cursor.rows = statement.query->cursor;
  return reserve_names(cursor);
}

RecordCursor *select(RecordDatabase &database, const char *sql) {
  if (!check_text(sql, SqlKind::query)) return nullptr;
  RecordCursor *cursor = cursor_new(database, CursorState::sql);
  if (cursor == nullptr || open_query(*cursor, sql)) return cursor;
  cursor_free(cursor);
  return nullptr;
}

// Runs what takes a statement text with the UTF-8 of a wide one; the callee refuses a null text.
template <class Run>
auto with_wide_text(const uint16_t *sql, Run run) -> decltype(run(nullptr)) {
  if (sql == nullptr) return run(nullptr);
  const Utf8Text text = utf8_from_wide(sql);
  return text == nullptr ? decltype(run(nullptr)){} : run(text.get());
}

// The handle of the cursor that open gives for the database.
template <class Open>
tovik_cur *select_call(tovik_db *db, Open open) {
  tovik_cur *handle = nullptr;
  (void)database_call(db, [&](RecordDatabase &database) {
    RecordCursor *cursor = open(database);
    handle = cursor == nullptr ? nullptr : handle_of(cursor);
    return handle != nullptr;
  });
  return handle;
}

}  // namespace

void cursors_close(RecordDatabase &database) {
  while (database.cursors != nullptr) cursor_free(database.cursors);
}

void *text_buffer(RecordCursor &cursor, int64_t size) {
  TextBuffer *buffer = static_cast<TextBuffer *>(mem_alloc(sizeof(TextBuffer) + static_cast<size_t>(size)));
  if (buffer == nullptr) return fail_null(status::record_api_memory);
  buffer->next = cursor.texts;
  cursor.texts = buffer;
  return buffer + 1;
}

}  // namespace tovik

using namespace tovik;

tovik_cur *tovik_opencur(tovik_db *db, const char *const *tables, int count, const tovik_cond *cond,
                         const tovik_order *order) {
  return tovik_opencur_dist(db, tables, count, cond, order, nullptr, 0);
}

tovik_cur *tovik_opencur_dist(tovik_db *db, const char *const *tables, int count, const tovik_cond *cond,
                              const tovik_order *order, const char *const *distinct, int distinct_count) {
  call_begin();
  return call_end(open(db, {tables, count, cond, order, distinct, distinct_count}));
}

int tovik_fetchcur(tovik_cur *cursor) {
  call_begin();
  RecordCursor *open = cursor_of(cursor);
  if (open == nullptr) return call_failed();
  const Found fetched = fetch(*open);
  if (fetched == Found::failed) return call_failed();
  return fetched == Found::yes ? 1 : 0;
}

void tovik_closecur(tovik_cur *cursor) {
  const HandlesGuard guard;
  RecordCursor *open = static_cast<RecordCursor *>(handle_find(cursor, HandleKind::record_cursor));
  if (open != nullptr) cursor_free(open);
}

int tovik_execsql_char(tovik_db *db, const char *sql) {
  return database_call(db, [&](RecordDatabase &database) { return execute(database, sql); });
}

int tovik_execsql_wchar(tovik_db *db, const uint16_t *sql) {
  return database_call(db, [&](RecordDatabase &database) {
    return with_wide_text(sql, [&](const char *text) { return execute(database, text); });
  });
}

tovik_cur *tovik_selectsql_char(tovik_db *db, const char *sql) {
  return select_call(db, [&](RecordDatabase &database) { return select(database, sql); });
}

tovik_cur *tovik_selectsql_wchar(tovik_db *db, const uint16_t *sql) {
  return select_call(db, [&](RecordDatabase &database) {
    return with_wide_text(sql, [&](const char *text) { return select(database, text); });
  });
}
