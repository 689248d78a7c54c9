// Cost for each row of the tables outside: one search in the index, one sort of the row numbers that it
// gives.
#include "sql/query/join_lookup.h"

#include "data/index/btree.h"
#include "sql/parse/shapes.h"
#include "sql/query/plan_literal.h"

namespace tovik {

namespace {

// The first index of the column alone, or else the first whose first key it is.
Btree *index_of(const Table &table, const Column &column) {
  Btree *leading = nullptr;
  for (int i = 0; i < table.index_count; ++i) {
    Btree *index = table.indices[i];
    if (index->definition.parts[0].column != column.number) continue;
    if (index->definition.part_count == 1) return index;
    if (leading == nullptr) leading = index;
  }
  return leading;
}

// Is inner a column of the table, and outer one of another?
bool compares(const TableAccess &access, const Node &inner, const Node &outer, JoinLookup *lookup) {
  if (inner.kind != value_kind::column || outer.kind != value_kind::column) return false;
  const ColumnRef &column = inner.value->column;
  if (column.row != access.handle || outer.value->column.row == access.handle) return false;
  lookup->column = column.column;
  lookup->outer = outer.value->column;
  lookup->index = column_is_rowid(*column.column) ? nullptr : index_of(*access.handle->table, *column.column);
  return lookup->index != nullptr;
}

bool search(const JoinLookup &lookup, const KeyLiteral &literal, RowSet &rows) {
  uint8_t key[btree_key_limit];
  if (literal.value.is_null()) return true;
  if (!literal_store(literal, key)) return false;
  if (lookup.index->definition.part_count == 1)
    return btree_search(*lookup.index, key, &rows) != Found::failed;
  return btree_range(*lookup.index, {key, Bound::inclusive, key, Bound::inclusive, true}, rows);
}

}  // namespace

void join_lookup_find(TableAccess &access, const Conjunct *conjuncts, JoinLookup *lookup) {
  *lookup = {};
  if (access.path != AccessPath::scan) return;
  for (const Conjunct *each = conjuncts; each != nullptr; each = each->next) {
    if (each->condition->kind != node::equal) continue;
    const OperatorTree tree = OperatorTree::of(*each->condition);
    if (!compares(access, *tree.left, *tree.right, lookup) &&
        !compares(access, *tree.right, *tree.left, lookup))
      continue;
    lookup->access = &access;
    return;
  }
}

bool join_lookup(const JoinLookup &lookup) {
  TableAccess &access = *lookup.access;
  access_rewind(access);
  access.path = AccessPath::scan;
  KeyLiteral literal{lookup.column, {}};
  if (access_outdated(access) || !outer_read(lookup.outer, &literal)) return true;
  if (access.rows == nullptr && (access.rows = rowset_new()) == nullptr) return false;
  access.rows->rows.clear();
  access.rows->sorted = false;
  access.path = AccessPath::row_list;
  access.found = row_state(*access.handle->table->rows);
  if (!search(lookup, literal, *access.rows)) return false;
  rowset_sort(*access.rows);
  return true;
}

}  // namespace tovik
