// The cursor delivers the rows of a chain of tables: joined in FROM order, filtered, sorted, grouped or made
// distinct. Plain results are delivered as they are found: memory does not grow with the result; only ORDER
// BY, GROUP BY and DISTINCT copy rows, into a sort store.
#pragma once

#include "sql/evaluate/evaluator.h"
#include "sql/query/group.h"
#include "sql/query/join.h"
#include "sql/query/planner.h"
#include "sql/query/sort.h"

namespace tovik {

enum class ResultKind { column, typed_constant, string_constant, computed };

struct ResultColumn {
  ResultKind kind;
  ColumnRef column;  // kind column: the table column and its handle
  Node *expression;  // other kinds
  TypeCode type;     // of the value (a column: its declared type); NVL may give another
  uint16_t flags;    // value_decimal, value_aggregate, value_mixed
  const char *label;
  int expression_number;  // from 1 over items without alias that are no columns, else 0
};

// What a cursor needs; a query fills it, UPDATE, DELETE and the record interface give it without a query.
struct CursorRequest {
  EvalContext context;  // tables: the chain to read
  Node *condition;      // checked; null: every row
  const OrderKey *order;
  int order_count;
  ResultColumn *columns;  // for DISTINCT and groups; null without a query
  int column_count;
  Grouping *grouping;  // null: rows are delivered, not groups of them
  bool distinct;
  Planning planning;
};

enum class CursorPlace { before, on_row, ended };

struct Cursor {
  CursorRequest request;
  CursorPlace place;
  Join join;
  SortStore *sorted;              // ORDER BY: row numbers of the tables, and what it carries; owned
  const int *carried;             // the columns of sorted that hold the result columns; null: it carries none
  bool from_sorted;               // the current row's values are those that sorted carries
  Groups *groups;                 // of a grouping; owned
  SortStore *results;             // DISTINCT: result values; owned
  int next_row;                   // in sorted or results
  int32_t pool_used, pool_count;  // what a row takes from the pool beyond this ends with the next fetch
};

// A cursor outlives what its own thread does between two fetches. Rows that were written meanwhile are
// delivered as they are then, if they still meet the condition, and skipped if they do not or are deleted. A
// table that is dropped or emptied, or whose creation is rolled back, ends the cursor with 141004; other
// changes of its definition do not show.
Cursor *cursor_open(const CursorRequest &request);
Found cursor_fetch(Cursor &cursor);  // after the end or a failure: no
// The value of a result column in the current row; texts in it stay valid until the next fetch. 43010 without
// a current row.
[[nodiscard]] bool cursor_value(Cursor &cursor, const ResultColumn &column, Value *value);
// What the current row took from the pool stays until the cursor is closed.
void cursor_keep(Cursor &cursor);
void cursor_close(Cursor *cursor);  // the condition is as it was before
using CursorHold = Held<Cursor, cursor_close>;

}  // namespace tovik
