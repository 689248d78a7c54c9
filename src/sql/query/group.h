// Groups of rows: rows whose values are equal in the key columns (NULL equals NULL) are one group, of which
// the values and an accumulator for each aggregate call are kept. Groups lie in a sort store, hashed by their
// keys, and come in the order in which they were found unless they are sorted. Without keys all rows, even
// none, are one group, which takes no store.
#pragma once

#include "sql/evaluate/evaluator.h"
#include "sql/query/sort_form.h"

namespace tovik {

// What a query asks for.
struct Grouping {
  ColumnRef *keys;  // each column once; opening may change their order
  int key_count;
  Node *condition;  // checked; null: every group is delivered
  AggregateCalls aggregates;
};

struct Groups {
  const Grouping *grouping;
  Accumulator *start;  // of a new group; without keys those of the only one
  SortStore *store;    // owned; null without keys
  RowForms row;        // keys of the row that is added, or of the group on which the groups stand
  SortDirection directions[order_key_limit];
  int sorted_count;  // keys by which groups are sorted: the first ones
  Group current;     // on which the groups stand
  int next;
};

// Made in the context's pool. Groups are sorted by the columns of the order that are keys; the others are
// NULL in all of them. 172019 for an aggregate over DISTINCT arguments, 1, 110002.
Groups *groups_open(const EvalContext &context, Grouping &grouping, const OrderKey *order, int order_count);
void groups_close(Groups *groups);  // null is ignored

// Takes the row on which the tables stand into its group. 143101 when a new group finds no room; statuses of
// evaluation.
[[nodiscard]] bool groups_add(Groups &groups, EvalContext &context);
// After the last row: sorts, and lets the context's expressions be of the group on which the groups stand.
[[nodiscard]] bool groups_complete(Groups &groups, EvalContext &context);
// The next group that meets the condition. Statuses of evaluation.
Found groups_next(Groups &groups, EvalContext &context);

}  // namespace tovik
