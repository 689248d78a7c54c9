// The join of a chain of tables: a nested loop over their accesses in FROM order, the first table outermost.
// A step that ends inside the innermost table costs one step of its access.
#pragma once

#include "sql/evaluate/access.h"

namespace tovik {

struct Join {
  TableAccess *tables;  // the caller's; null: items without a table, which are one row
  bool started;         // the outer tables stand on rows
};

// Puts the handles of the tables on the next combination of their rows. Statuses of reading rows.
Found join_next(Join &join);

}  // namespace tovik
