// The columns that a statement gives values for, in the order of the values.
#pragma once

#include "data/table/table.h"
#include "sql/parse/tree.h"

namespace tovik {

struct Targets {
  const Column **columns;  // in a statement's pool
  int column_count;
};

// Room for count columns. 110002.
[[nodiscard]] bool targets_allocate(MemoryPool &pool, int count, Targets &targets);
// One more column of the table. 172006, 172007; 142010 for rowid.
[[nodiscard]] bool targets_add(const Table &table, const char *name, Targets &targets);
[[nodiscard]] bool targets_all(MemoryPool &pool, const Table &table, Targets &targets);
[[nodiscard]] bool targets_named(MemoryPool &pool, const Table &table, const Node *names, Targets &targets);

}  // namespace tovik
