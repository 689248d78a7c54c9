// The planner: looks at a condition and chooses at most one access path for the whole query - one row by its
// number, or the rows that an index gives - sets it up on that table, and puts always_true in the place of
// what the access guarantees. No statistics: the first usable candidate wins. What is left of the condition
// is cut into parts, and some parts let the rows of a table be looked up for each row of the tables outside
// it.
#pragma once

#include "sql/query/join_lookup.h"

namespace tovik {

// The part of a condition that the access path makes true, and the kind that its node had.
struct Guaranteed {
  Node *condition;  // null: none
  uint16_t kind;
};

struct Plan {
  Guaranteed guaranteed;
  Conjuncts conjuncts;  // what is left to test
  JoinLookup *lookups;  // FROM order, in the context's pool; null: none
};

// none: every table is scanned. silent: the plan is not printed.
enum class Planning { shown, silent, none };

// condition: checked, or null, of the context's tables. May change the accesses of the chain, and one node of
// the tree to always_true, which plan->guaranteed then tells. Statuses of literal conversion and index
// search; 1, 110002.
[[nodiscard]] bool plan_query(EvalContext &context, Node *condition, Planning planning, Plan *plan);

}  // namespace tovik
