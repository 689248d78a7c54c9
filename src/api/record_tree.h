// The caller's condition and sort records as a query needs them: a condition becomes a statement tree of
// typed literals - nothing is parsed -, a sort order the keys of ORDER BY.
#pragma once

#include "sql/query/query.h"
#include "tovik.h"

namespace tovik {

inline constexpr int condition_two_columns = 100;  // the type of a comparison of two columns
inline constexpr int record_order_limit = 4;

// An unchecked tree in pool; its texts may still be the caller's. Null with 202160 (an operand is missing),
// 202161 (an operator that no builder gives), 202132 (a type that none gives), 301, 110002.
Node *condition_tree(MemoryPool &pool, const tovik_cond &condition);

// Resolves the keys of order among tables; keys holds record_order_limit of them. 202138, 150008, 161001.
[[nodiscard]] bool order_keys(TableAccess *tables, const tovik_order &order, OrderKey *keys, int *count);

}  // namespace tovik
