// The planner: looks at a condition and chooses at most one access path for the whole query - one row by its
// number, or the rows that an index gives - sets it up on that table, and puts always_true in the place of
// what the access guarantees. No statistics: the first usable candidate wins.
#pragma once

#include "sql/query/query.h"

namespace tovik {

// condition: checked, or null. May change the accesses of the chain, and one node of the tree to always_true,
// which guaranteed then tells. Statuses of literal conversion and index search; 1.
[[nodiscard]] bool plan_query(EvalContext &context, Node *condition, Guaranteed *guaranteed);

}  // namespace tovik
