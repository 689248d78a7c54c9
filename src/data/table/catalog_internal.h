// What the sources of the catalog share.
#pragma once

#include "data/table/catalog.h"
#include "data/table/table_definition.h"
#include "frame/status.h"

namespace tovik {

BtreeFind index_name_find(Catalog &catalog, const char *name, RowNo *descriptor);

// Inside the calling thread's transaction: changes of several steps that take effect as a whole or not at
// all. begin opens a level of their own, and end merges it into the transaction or, unless done, rolls it
// back; level is 0 where there is none, outside a transaction and inside the innermost level. end gives done,
// or false when the level could not be merged. 22003, 22006, 22021.
[[nodiscard]] bool catalog_whole_begin(Catalog &catalog, int *level);
[[nodiscard]] bool catalog_whole_end(Catalog &catalog, int level, bool done);

template <class Change>
[[nodiscard]] bool catalog_as_a_whole(Catalog &catalog, Change change) {
  int level;
  return catalog_whole_begin(catalog, &level) && catalog_whole_end(catalog, level, change());
}

// Changes a table: change, a bool(Table &), works on a copy of the definition, which then takes old's place
// for the calling thread. All of it as a whole; a failure leaves old where it is.
template <class Change>
[[nodiscard]] bool definition_edit(Table &old, Change change) {
  Catalog &catalog = *old.catalog;
  return catalog_as_a_whole(catalog, [&] {
    Table *made = definition_copy(old);
    if (made == nullptr) return false;
    if (!change(*made)) {
      definition_free(made);
      return false;
    }
    tables_replace(catalog, &old, made);
    table_close(made);
    return true;
  });
}

// What a name index answered about a name that must not be there.
[[nodiscard]] bool name_absent(BtreeFind found, StatusCode search_failed, StatusCode present);

// The checks of table_create in their order, but for the columns' types, which column_complete checks.
[[nodiscard]] bool table_validate(Catalog &catalog, const char *name, const ColumnDefinition *columns,
                                  int column_count, const AutoIncrementOptions &options);

// A column of the definition with the defaults of its type filled in: 142005, 142007, 142008.
[[nodiscard]] bool column_complete(const ColumnDefinition &definition, Column *column);

// A column name on its own: 142001, 142002, 142004.
[[nodiscard]] bool column_name_validate(const char *name);

// The checks of index_create in their order, and the tree that the definition asks for.
[[nodiscard]] bool index_validate(const Table &table, const IndexDefinition &definition,
                                  BtreeDefinition *tree);

// Creates an index on a definition that is on no list yet and adds it to that and to the catalog. On failure
// nothing is left behind.
[[nodiscard]] bool index_attach(Table &table, const IndexDefinition &definition);

// The parts of it, for a table that takes over the indices of another: the empty tree of an index, on the
// definition and in the table's index list but not yet under its name, and the name's entry.
[[nodiscard]] bool index_tree_add(Table &table, const BtreeDefinition &tree);
[[nodiscard]] bool index_name_insert(Catalog &catalog, const Btree &index);
[[nodiscard]] bool index_name_delete(Catalog &catalog,
                                     const Btree &index);  // only the entry of this very index

// Writes the table record as the definition stands; false with the given status.
[[nodiscard]] bool table_record_write(const Table &table, StatusCode status);

// The name of the index that a table with an auto-increment column gets at its creation.
void auto_index_name(RowNo table_id, char *name);

// Drops the ROW system, the B-tree that others may have open too.
[[nodiscard]] bool row_system_drop_shared(const RowSystem &rows);
[[nodiscard]] bool btree_drop_shared(const Btree &index);

}  // namespace tovik
