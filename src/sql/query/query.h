// Queries: the prepared form of a SELECT (or of a TEST_STMT item list), whose rows a cursor delivers. Direct
// execution prints the whole result, prepared execution is fetched row by row.
#pragma once

#include "data/table/catalog.h"
#include "sql/query/cursor.h"
#include "sql/query/subquery.h"

namespace tovik {

inline constexpr int select_item_limit = 128;

// The name under which a caller knows a result column: the table column's, "EXPRESSION_n" (written into
// buffer) or the label.
inline constexpr int result_name_size = 32;
const char *result_name(const ResultColumn &column, char (&buffer)[result_name_size]);

enum class OutputMode { none = 0, into = 1, dump_into = 2 };

struct Query {
  ValueStack *stack;  // the statement's, as the pool in which the query lives
  MemoryPool *pool;
  QueryScope scope;
  bool items_only;  // TEST_STMT
  TableAccess *tables;
  Node *condition;  // null without WHERE
  Grouping grouping;
  bool grouped;  // by GROUP BY, HAVING or an aggregate among the columns
  OrderKey order[order_key_limit];
  int order_count;
  ResultColumn *columns;
  int column_count;
  bool distinct;
  const char *output_file;  // null without INTO
  OutputMode output_mode;
  const char *separator;
  Planning planning;
  Cursor *cursor;  // open after execution
};

// From the root of a statement tree, in the stack and the pool of the context. *query is to be released, also
// after a failure, and null when it could not be made. 70002, 70008, 70009, 172001, 172002, 161001, 150008
// ...
[[nodiscard]] bool query_prepare_select(Catalog &catalog, const EvalContext &context, const Node &root,
                                        Query **query);
[[nodiscard]] bool query_prepare_items(Catalog &catalog, const EvalContext &context, const Node &root,
                                       Query **query);
// A query inside a condition, in the scope of the context. Values of which it does not matter how often they
// come may repeat.
[[nodiscard]] bool query_prepare_inside(const EvalContext &context, const SubqueryPlace &place,
                                        Query **query);
// Cursor, tables, subqueries; the record itself lives in the statement's pool. Null is ignored.
void query_release(Query *query);
// A table, of a subquery too, is not the one that the calling thread would find by its name.
bool query_outdated(const Query &query);

[[nodiscard]] bool query_open(
    Query &query);  // opens the cursor: 172019, 143101, planner and evaluation statuses
Found query_fetch(Query &query);

}  // namespace tovik
