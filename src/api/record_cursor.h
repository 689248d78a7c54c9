// The cursor of the record interface: over the combinations of rows of tables that meet a condition, over the
// distinct values of some of their columns, or over the result of a SELECT. It and its text buffers live in a
// work area; the texts of one row end with the next fetch.
#pragma once

#include "api/record.h"
#include "api/record_names.h"
#include "sql/statement/statement.h"

namespace tovik {

enum class CursorState { table = 0, distinct = 1, sql = 2 };

struct TextBuffer {
  TextBuffer *next;  // its bytes follow
};

struct RecordCursor {
  CursorState state;
  RecordDatabase *database;
  WorkArea *area;
  ThreadId reader;        // whose read hold a table or DISTINCT cursor has
  TableAccess *tables;    // owned; SQL: none
  ResultColumn *columns;  // DISTINCT and SQL
  int column_count;
  Cursor *rows;          // SQL: the statement's
  Statement *statement;  // SQL: owned
  KnownNames names;      // by which columns were read
  TextBuffer *texts;     // given out for the current row; owned
  void *handle;
  RecordCursor *next;  // in the database's list
};

// 202116, 202101.
inline RecordCursor *cursor_of(const tovik_cur *cursor) {
  return object_of<RecordCursor>(cursor, HandleKind::record_cursor, status::record_api_cursor_handle);
}

// size bytes that stay valid until the next fetch; null with 202102.
void *text_buffer(RecordCursor &cursor, int64_t size);

// Opens the tables by name, in the order given, into a chain in pool; the caller closes what it has got, even
// after a failure. 202125, 172002 (more than 16), 141004.
[[nodiscard]] bool tables_open(Database &db, MemoryPool &pool, const char *const *names, int count,
                               TableAccess **first);

// Makes request, which is empty, one for the rows of the tables that meet condition (null: all), with what a
// cursor needs from the area's pool. Statuses of condition_tree and of the check pass.
[[nodiscard]] bool request_rows(WorkArea &area, TableAccess *tables, const tovik_cond *condition,
                                CursorRequest &request);

}  // namespace tovik
