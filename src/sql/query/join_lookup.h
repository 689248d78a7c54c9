// The rows of a table for the row on which the tables outside it stand, where a part of the condition
// compares a column of the table, by which an index sorts it, with one of theirs. They come in the order of
// their positions, and the part is tested as ever. Rows that get the value while the table stands among them,
// and rows for a value that the row outside gets meanwhile, are not looked for.
#pragma once

#include "sql/query/conjuncts.h"

namespace tovik {

struct JoinLookup {
  TableAccess *access;  // null: of no table
  Btree *index;         // the column is its first key
  const Column *column;
  ColumnRef outer;
};

// Finds the first look-up among what the rows of the table settle. An access with a path of its own has none.
void join_lookup_find(TableAccess &access, const Conjunct *conjuncts, JoinLookup *lookup);

// Puts the access before the rows for the outer column's value as it is now; before a scan when the value is
// no key of the index, or the table's definition was replaced, and the index perhaps with it. Statuses of
// index search; 1.
[[nodiscard]] bool join_lookup(const JoinLookup &lookup);

}  // namespace tovik
