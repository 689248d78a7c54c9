// Tables: creation, removal, emptying, renaming.
//
// Inside a transaction every change is made as a whole (catalog_as_a_whole). Outside one nothing takes a
// failure back, so what needs room in the storage is done before what destroys: a failure for want of room
// leaves the catalog as it was.
#include "data/table/catalog.h"

#include "data/table/catalog_internal.h"
#include "frame/error.h"

namespace tovik {

bool row_system_drop_shared(const RowSystem &rows) {
  RowSystem *held = row_system_open(rows.number, *rows.sm);
  if (held == nullptr) return false;
  if (row_system_drop(held)) return true;
  row_system_close(held);
  return false;
}

bool table_record_write(const Table &table, StatusCode status) {
  uint8_t bytes[table_record_size];
  table_record_encode(table, bytes);
  RowNo row = table.id;
  return row_update(*table.catalog->table_rows, &row, bytes, table_record_size) || fail(status);
}

namespace {

// ---- building a table ----

// The column records as one value for the column management ROW: written anew, or in the place of the old.
enum class ColumnsWrite { insert, update };

bool columns_write(Table &table, ColumnsWrite how) {
  const int size = table.column_count * column_record_size;
  uint8_t *bytes = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(size)));
  if (bytes == nullptr) return fail(status::out_of_memory);
  for (int i = 0; i < table.column_count; ++i)
    column_record_encode(table.id, table.columns[i], bytes + i * column_record_size);
  RowSystem &rows = *table.catalog->column_rows;
  const bool written = how == ColumnsWrite::insert ? row_insert(rows, bytes, size, &table.columns_row)
                                                   : row_update(rows, &table.columns_row, bytes, size);
  mem_free(bytes);
  return written;
}

bool rows_create(Table &table, const AutoIncrementOptions &options) {
  StorageManager &sm = *table.catalog->storage;
  const RowKind kind = table.auto_column != 0 ? RowKind::fixed_auto : RowKind::fixed;
  table.rows = row_system_create(sm, kind, table.record_size, options.init, options.step, options.next);
  if (table.rows == nullptr || !definition_size_large(table)) return fail(status::table_rows_create);
  table.rows_number = table.rows->number;
  for (int i = 0; i < table.column_count; ++i) {
    Column &column = table.columns[i];
    if (!column_is_large(column)) continue;
    RowSystem *rows = row_system_create(sm, RowKind::variable, column.p3, 0, 0, 0);
    if (rows == nullptr) return fail(status::table_rows_create);
    table.large_rows[column.large_ordinal - 1] = rows;
    column.overflow_rows = rows->number;
  }
  return true;
}

bool records_insert(Table &table) {
  if (!columns_write(table, ColumnsWrite::insert)) return fail(status::table_columns_insert);
  uint8_t bytes[table_record_size];
  table_record_encode(table, bytes);
  RowNo row = 0;
  if (!row_insert(*table.catalog->table_rows, bytes, table_record_size, &row) || row != table.id) {
    if (row != 0) (void)row_delete(*table.catalog->table_rows, row);
    return fail(status::table_row_number);
  }
  return true;
}

// Gives back everything that a table which was not finished has taken, and the definition. recorded: its
// record is in the catalog.
enum class Discard { unrecorded, recorded };

void table_discard(Table *table, Discard what) {
  const ErrorScope keep;  // the failure is told already
  Catalog &catalog = *table->catalog;
  for (int i = 0; i < table->index_count; ++i) {
    (void)index_name_delete(catalog, *table->indices[i]);
    (void)btree_drop_shared(*table->indices[i]);
  }
  if (what == Discard::recorded) (void)row_delete(*catalog.table_rows, table->id);
  if (table->columns_row != 0) (void)row_delete(*catalog.column_rows, table->columns_row);
  if (table->index_list_row != 0) (void)row_delete(*catalog.index_rows, table->index_list_row);
  for (int i = 0; table->large_rows != nullptr && i < table->large_count; ++i)
    if (table->large_rows[i] != nullptr) (void)row_system_drop_shared(*table->large_rows[i]);
  if (table->rows != nullptr) (void)row_system_drop_shared(*table->rows);
  definition_free(table);
}

// Storage and records of a table whose columns stand in its definition; neither name nor indices yet.
bool table_build(Table &table, const AutoIncrementOptions &options) {
  definition_lay_out(table);
  if (rows_create(table, options) && records_insert(table)) return true;
  table_discard(&table, Discard::unrecorded);
  return false;
}

RowNo next_table_id(Catalog &catalog) {
  return row_position(*catalog.table_rows, RowPosition::insert);
}

}  // namespace

bool auto_index_attach(Table &table) {
  if (table.auto_column == 0) return true;
  IndexDefinition definition = {};
  auto_index_name(table.id, definition.name);
  definition.unique = true;
  definition.column_count = 1;
  strcpy(definition.columns[0], table.columns[table.auto_column - 1].name);
  return index_attach(table, definition);
}

Table *table_bare(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
                  const AutoIncrementOptions &options) {
  Table *table = definition_new(catalog, next_table_id(catalog), name, column_count);
  if (table == nullptr) return nullptr;
  for (int i = 0; i < column_count; ++i) {
    const bool complete = column_complete(columns[i], &table->columns[i]);
    assert(complete);  // validated above
    (void)complete;
  }
  return table_build(*table, options) ? table : nullptr;
}

namespace {

Table *create(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
              const AutoIncrementOptions &options) {
  Table *table = table_bare(catalog, name, columns, column_count, options);
  if (table == nullptr) return nullptr;
  if (!auto_index_attach(*table) || !table_name_insert(catalog, name, table->id)) {
    table_discard(table, Discard::recorded);
    return nullptr;
  }
  tables_replace(catalog, nullptr, table);
  return table;
}

}  // namespace

Table *table_create(Catalog &catalog, const char *name, const ColumnDefinition *columns, int column_count,
                    const AutoIncrementOptions &options) {
  if (!table_validate(catalog, name, columns, column_count, options)) return nullptr;
  TableHold table;
  const bool created = catalog_as_a_whole(catalog, [&] {
    table = TableHold(create(catalog, name, columns, column_count, options));
    return table != nullptr;
  });
  return created ? table.release() : nullptr;
}

// ---- dropping and emptying ----

bool table_storage_drop(const Table &table) {
  Catalog &catalog = *table.catalog;
  for (int i = 0; i < table.index_count; ++i)
    if (!index_name_delete(catalog, *table.indices[i]) || !btree_drop_shared(*table.indices[i]))
      return fail(status::table_drop_index);
  if (table.index_list_row != 0 && row_delete(*catalog.index_rows, table.index_list_row) != Found::yes)
    return fail(status::table_drop_index);
  for (int i = 0; i < table.large_count; ++i)
    if (!row_system_drop_shared(*table.large_rows[i])) return false;
  if (!row_system_drop_shared(*table.rows)) return false;
  if (row_delete(*catalog.column_rows, table.columns_row) != Found::yes)
    return fail(status::table_drop_columns);
  if (row_delete(*catalog.table_rows, table.id) != Found::yes)
    return fail(status::table_drop_overflow_columns);
  return table_name_delete(catalog, table.name, table.id);
}

namespace {

bool drop(Catalog &catalog, Table &table) {
  const bool dropped = table_storage_drop(table);
  tables_replace(catalog, &table, nullptr);  // in any case: what is left of it must not be used
  return dropped;
}

// A table of the same columns and auto-increment state under a new id, without name and indices.
Table *table_twin(const Table &table) {
  Catalog &catalog = *table.catalog;
  Table *twin = definition_new(catalog, next_table_id(catalog), table.name, table.column_count);
  if (twin == nullptr) return nullptr;
  memcpy(static_cast<void *>(twin->columns), table.columns,
         sizeof(Column) * static_cast<size_t>(table.column_count));
  for (int i = 0; i < twin->column_count; ++i) twin->columns[i].overflow_rows = 0;
  AutoIncrementOptions options = {};
  if (table.auto_column != 0) {
    const AutoIncrement counter = row_autoinc_get(*table.rows);
    options = {counter.init, counter.step, counter.next};
  }
  return table_build(*twin, options) ? twin : nullptr;
}

// Empty trees for the indices of table. The one that came with the auto-increment column is named after the
// table's id, so it gets a new name.
bool index_trees_copy(const Table &table, Table &twin) {
  char old_auto_name[name_size];
  auto_index_name(table.id, old_auto_name);
  for (int i = 0; i < table.index_count; ++i) {
    BtreeDefinition tree = table.indices[i]->definition;
    tree.table_id = twin.id;
    if (strcmp(tree.index_name, old_auto_name) == 0) auto_index_name(twin.id, tree.index_name);
    if (!index_tree_add(twin, tree)) return false;
  }
  return true;
}

bool names_insert(const Table &table) {
  Catalog &catalog = *table.catalog;
  for (int i = 0; i < table.index_count; ++i)
    if (!index_name_insert(catalog, *table.indices[i])) return false;
  return table_name_insert(catalog, table.name, table.id);
}

bool empty(Catalog &catalog, Table &table) {
  Table *twin = table_twin(table);
  if (twin == nullptr) return false;
  if (!index_trees_copy(table, *twin)) {
    table_discard(twin, Discard::recorded);
    return false;
  }
  const bool replaced = table_storage_drop(table) && names_insert(*twin);
  tables_replace(catalog, &table, twin);
  table_close(twin);
  return replaced;
}

}  // namespace

bool table_drop(Catalog &catalog, const char *name) {
  const TableHold table(table_open(catalog, name));
  return table != nullptr && catalog_as_a_whole(catalog, [&] { return drop(catalog, *table); });
}

bool table_empty(Catalog &catalog, const char *name) {
  const TableHold table(table_open(catalog, name));
  return table != nullptr && catalog_as_a_whole(catalog, [&] { return empty(catalog, *table); });
}

// ---- renaming ----

namespace {

bool index_table_names_write(Table &table) {
  for (int i = 0; i < table.index_count; ++i)
    if (!btree_rename_table(*table.indices[i], table.name)) return fail(status::table_record_update);
  return true;
}

bool rename(Table &table, const char *old_name, const char *new_name) {
  Catalog &catalog = *table.catalog;
  name_encode(new_name, table.name);
  return table_name_insert(catalog, new_name, table.id) && table_name_delete(catalog, old_name, table.id) &&
         table_record_write(table, status::table_record_update) && index_table_names_write(table);
}

bool rename_column(Table &table, int number, const char *new_name) {
  name_encode(new_name, table.columns[number - 1].name);
  return (columns_write(table, ColumnsWrite::update) &&
          table_record_write(table, status::table_record_update)) ||
         fail(status::table_record_update);
}

}  // namespace

bool table_rename(Catalog &catalog, const char *name, const char *new_name) {
  if (new_name == nullptr || new_name[0] == 0) return fail(status::table_argument);
  if (strlen(new_name) > name_limit) return fail(status::table_name_length);
  const TableHold old(table_open(catalog, name));
  if (old.get() == nullptr) return false;
  RowNo id;
  if (!name_absent(table_name_find(catalog, new_name, &id), status::table_name_search, status::table_exists))
    return false;
  return definition_edit(*old, [&](Table &copy) { return rename(copy, old->name, new_name); });
}

bool column_rename(Catalog &catalog, const char *table, const char *name, const char *new_name) {
  const TableHold old(table_open(catalog, table));
  if (old.get() == nullptr) return false;
  const Column *column = table_find_column(*old, name);
  if (column == nullptr || column_is_rowid(*column)) return fail(status::column_missing);
  if (table_find_column(*old, new_name) != nullptr) return fail(status::column_name_twice);
  if (!column_name_validate(new_name)) return false;
  return definition_edit(*old, [&](Table &copy) { return rename_column(copy, column->number, new_name); });
}

}  // namespace tovik
