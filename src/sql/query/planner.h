// The planner: looks at a condition and chooses at most one access path for the whole query - one row by its
// number, or the rows that an index gives - sets it up on that table, and puts always_true in the place of
// what the access guarantees. No statistics: the first usable candidate wins.
#pragma once

#include "sql/evaluate/access.h"
#include "sql/parse/tree.h"

namespace tovik {

// The part of a condition that the access path makes true, and the kind that its node had.
struct Guaranteed {
  Node *condition;  // null: none
  uint16_t kind;
};

// none: every table is scanned. silent: the plan is not printed.
enum class Planning { shown, silent, none };

// condition: checked, or null. May change the accesses of the chain, and one node of the tree to always_true,
// which guaranteed then tells. Statuses of literal conversion and index search; 1.
[[nodiscard]] bool plan_query(TableAccess *tables, Node *condition, Planning planning,
                              Guaranteed *guaranteed);

}  // namespace tovik
