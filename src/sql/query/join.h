// The join of a chain of tables: a nested loop over their accesses in FROM order, the first table outermost,
// that leaves a row as soon as a part of the condition is not true of it. A step that ends inside the
// innermost table costs one step of its access, and the tests of its parts.
#pragma once

#include "sql/query/planner.h"

namespace tovik {

struct Join {
  TableAccess *tables;  // the caller's; null: items without a table, which are one row
  Plan plan;
  StatusCode read_failure;  // recorded behind the cause when reading a row fails; 0: nothing
  bool started;             // the outer tables stand on rows
};

// Puts the handles of the tables on the next combination of their rows that meets the condition. Statuses of
// reading rows and of evaluation.
Found join_next(Join &join, EvalContext &context);

}  // namespace tovik
