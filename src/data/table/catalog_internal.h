// What the sources of the catalog share.
#pragma once

#include "data/table/catalog.h"
#include "data/table/catalog_change.h"
#include "data/table/catalog_names.h"

namespace tovik {

// The checks of table_create in their order, but for the columns' types, which column_complete checks.
[[nodiscard]] bool table_validate(Catalog &catalog, const char *name, const ColumnDefinition *columns,
                                  int column_count, const AutoIncrementOptions &options);

// Of these the checks of the columns among each other, and of their types: 141005 to 141009, 142001 to
// 142008.
[[nodiscard]] bool columns_validate(const ColumnDefinition *columns, int column_count,
                                    const AutoIncrementOptions &options);

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

// Storage and records of a table of validated columns; it has no indices and no name that finds it, and is on
// no list. On failure nothing is left behind.
Table *table_bare(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
                  const AutoIncrementOptions &options);

// The unique index that belongs to the auto-increment column of a new table, if it has one.
[[nodiscard]] bool auto_index_attach(Table &table);

// Gives back everything that the table has in the storage, its names included.
[[nodiscard]] bool table_storage_drop(const Table &table);

// For a table that takes over the indices of another: the empty tree of an index, on the definition and in
// the table's index list but not yet under its name.
[[nodiscard]] bool index_tree_add(Table &table, const BtreeDefinition &tree);

// Writes the table record as the definition stands; false with the given status.
[[nodiscard]] bool table_record_write(const Table &table, StatusCode status);

// Drops the ROW system, the B-tree that others may have open too.
[[nodiscard]] bool row_system_drop_shared(const RowSystem &rows);
[[nodiscard]] bool btree_drop_shared(const Btree &index);

}  // namespace tovik
