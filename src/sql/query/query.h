// Queries: the prepared form of a SELECT (or of a TEST_STMT item list) and the cursor that delivers its rows
// - filtered, joined in FROM order, sorted, made distinct or aggregated. Direct execution prints the whole
// result, prepared execution is fetched row by row. Plain results are delivered as they are found: memory
// does not grow with the result; only ORDER BY and DISTINCT copy rows, into a sort store.
#pragma once

#include "sql/evaluate/evaluator.h"
#include "sql/query/planner.h"
#include "sql/query/sort.h"

namespace tovik {

inline constexpr int from_table_limit = 16;
inline constexpr int select_item_limit = 128;
inline constexpr int order_key_limit = 8;

enum class ResultKind { column, typed_constant, string_constant, computed };

struct ResultColumn {
  ResultKind kind;
  ColumnRef column;  // kind column: the table column and its handle
  Node *expression;  // other kinds
  TypeCode type;     // of the value (a column: its declared type); NVL may give another
  uint16_t flags;    // value_decimal, value_aggregate, value_distinct, value_mixed
  const char *label;
  int expression_number;  // from 1 over items without alias that are no columns, else 0
};

struct OrderKey {
  ColumnRef column;
  SortDirection direction;
};

// Appends a key. 161001: its column is a key already.
[[nodiscard]] bool sort_add_key(OrderKey *keys, int *count, const OrderKey &key);

// The name under which a caller knows a result column: the table column's, "EXPRESSION_n" (written into
// buffer) or the label.
inline constexpr int result_name_size = 32;
const char *result_name(const ResultColumn &column, char (&buffer)[result_name_size]);

enum class OutputMode { none = 0, into = 1, dump_into = 2 };

struct Query {
  Catalog *catalog;   // of the tables
  ValueStack *stack;  // the statement's, as the pool in which the query lives
  MemoryPool *pool;
  bool items_only;  // TEST_STMT
  TableAccess *tables;
  Node *condition;  // null without WHERE
  OrderKey order[order_key_limit];
  int order_count;
  ResultColumn *columns;
  int column_count;
  int aggregate_count;
  bool distinct;
  const char *output_file;  // null without INTO
  OutputMode output_mode;
  const char *separator;
  struct Cursor *cursor;  // open after execution
};

// What a cursor needs; a query fills it, UPDATE, DELETE and the record interface give it without a query.
struct CursorRequest {
  EvalContext context;  // tables: the chain to read
  Node *condition;      // checked; null: every row
  const OrderKey *order;
  int order_count;
  ResultColumn *columns;  // for DISTINCT and aggregates; null without a query
  int column_count;
  bool aggregate;  // some column depends on an aggregate: one row is delivered
  bool distinct;
};

enum class CursorPlace { before, on_row, ended };

struct Cursor {
  CursorRequest request;
  CursorPlace place;
  bool started;  // the join is inside its first table
  Guaranteed guaranteed;
  SortStore *sorted;              // ORDER BY: row numbers of the tables; owned
  SortStore *results;             // DISTINCT: result values; owned
  Value *totals;                  // aggregates: the values of the only row; in the pool
  int next_row;                   // in what is read from
  int32_t pool_used, pool_count;  // what a row takes from the pool beyond this ends with the next fetch
};

// From the root of a statement tree, in the stack and the pool of the context. *query is to be released, also
// after a failure, and null when it could not be made. 70002, 70008, 70009, 172001, 172002, 161001, 150008
// ...
[[nodiscard]] bool query_prepare_select(Catalog &catalog, const EvalContext &context, const Node &root,
                                        Query **query);
[[nodiscard]] bool query_prepare_items(Catalog &catalog, const EvalContext &context, const Node &root,
                                       Query **query);
void query_release(Query *query);  // cursor, tables; the record itself lives in the statement's pool

[[nodiscard]] bool query_open(
    Query &query);  // opens the cursor: 172019, 143101, planner and evaluation statuses
[[nodiscard]] RowFetch query_fetch(Query &query);

// A cursor outlives what its own thread does between two fetches. Rows that were written meanwhile are
// delivered as they are then, if they still meet the condition, and skipped if they do not or are deleted. A
// table that is dropped or emptied, or whose creation is rolled back, ends the cursor with 141004; other
// changes of its definition do not show.
Cursor *cursor_open(const CursorRequest &request);
[[nodiscard]] RowFetch cursor_fetch(Cursor &cursor);  // after the end or a failure: the end
// The value of a result column in the current row; texts in it stay valid until the next fetch. 43010 without
// a current row.
[[nodiscard]] bool cursor_value(Cursor &cursor, const ResultColumn &column, Value *value);
void cursor_close(Cursor *cursor);
using CursorHold = Held<Cursor, cursor_close>;

}  // namespace tovik
