#include "sql/statement/targets.h"

#include "frame/error.h"

namespace tovik {

bool targets_allocate(MemoryPool &pool, int count, Targets &targets) {
  targets.columns = memory_pool_new<const Column *>(pool, count);
  return targets.columns != nullptr || fail(status::sql_memory);
}

bool targets_add(const Table &table, const char *name, Targets &targets) {
  const Column *column = table_find_column(table, name);
  if (column == nullptr) return fail(status::column_not_found);
  if (column_is_rowid(*column)) return fail(status::rowid_not_assignable);
  for (int i = 0; i < targets.column_count; ++i) {
    if (targets.columns[i] == column) return fail(status::column_named_twice);
  }
  targets.columns[targets.column_count++] = column;
  return true;
}

bool targets_all(MemoryPool &pool, const Table &table, Targets &targets) {
  if (!targets_allocate(pool, table.column_count, targets)) return false;
  for (int i = 0; i < table.column_count; ++i) targets.columns[i] = &table.columns[i];
  targets.column_count = table.column_count;
  return true;
}

bool targets_named(MemoryPool &pool, const Table &table, const Node *names, Targets &targets) {
  if (!targets_allocate(pool, node_count(names), targets)) return false;
  for (const Node *name : chain(names)) {
    if (!targets_add(table, node_name(*name), targets)) return false;
  }
  return true;
}

}  // namespace tovik
