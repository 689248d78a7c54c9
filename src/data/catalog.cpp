// Tables: creation, removal, emptying, renaming.
//
// Inside a transaction every change is made as a whole (db_as_a_whole). Outside one nothing takes a failure
// back, so what needs room in the storage is done before what destroys: a failure for want of room leaves the
// catalog as it was.
#include "data/catalog.h"

#include "data/catalog_internal.h"
#include "data/database.h"
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
  table_record_encode(definition_record(table), bytes);
  RowNo row = table.id;
  return row_update(*table.db->table_rows, &row, bytes, table_record_size) || fail(status);
}

namespace {

bool table_name_insert(Database &db, const char *name, RowNo id) {
  uint8_t value[4];
  store_u32(value, id);
  switch (btree_insert(*db.table_names, NameKey(name), value)) {
    case BtreeInsert::inserted:
      return true;
    case BtreeInsert::exists:
      return fail(status::table_name_present);
    case BtreeInsert::failed:
      break;
  }
  return fail(status::table_name_insert);
}

bool table_name_delete(Database &db, const char *name, RowNo id) {
  uint8_t value[4];
  store_u32(value, id);
  return btree_delete(*db.table_names, NameKey(name), value) || fail(status::table_name_delete);
}

// ---- building a table ----

// The column records as one value for the column management ROW: written anew, or in the place of the old.
enum class ColumnsWrite { insert, update };

bool columns_write(Table &table, ColumnsWrite how) {
  const int size = table.column_count * column_record_size;
  uint8_t *bytes = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(size)));
  if (bytes == nullptr) return fail(status::out_of_memory);
  for (int i = 0; i < table.column_count; ++i)
    column_record_encode(table.id, table.columns[i], bytes + i * column_record_size);
  RowSystem &rows = *table.db->column_rows;
  const bool written = how == ColumnsWrite::insert ? row_insert(rows, bytes, size, &table.columns_row)
                                                   : row_update(rows, &table.columns_row, bytes, size);
  mem_free(bytes);
  return written;
}

bool rows_create(Table &table, const AutoIncrementOptions &options) {
  StorageManager &sm = *table.db->storage;
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
  table_record_encode(definition_record(table), bytes);
  RowNo row = 0;
  if (!row_insert(*table.db->table_rows, bytes, table_record_size, &row) || row != table.id) {
    if (row != 0) (void)row_delete(*table.db->table_rows, row);
    return fail(status::table_row_number);
  }
  return true;
}

// Gives back everything that a table which was not finished has taken, and the definition.
void table_discard(Table *table, bool has_record) {
  const ErrorScope keep;  // the failure is told already
  Database &db = *table->db;
  for (int i = 0; i < table->index_count; ++i) {
    (void)index_name_delete(db, *table->indices[i]);
    (void)btree_drop_shared(*table->indices[i]);
  }
  if (has_record) (void)row_delete(*db.table_rows, table->id);
  if (table->columns_row != 0) (void)row_delete(*db.column_rows, table->columns_row);
  if (table->index_list_row != 0) (void)row_delete(*db.index_rows, table->index_list_row);
  for (int i = 0; table->large_rows != nullptr && i < table->large_count; ++i)
    if (table->large_rows[i] != nullptr) (void)row_system_drop_shared(*table->large_rows[i]);
  if (table->rows != nullptr) (void)row_system_drop_shared(*table->rows);
  definition_free(table);
}

// Storage and records of a table whose columns stand in its definition; neither name nor indices yet.
bool table_build(Table &table, const AutoIncrementOptions &options) {
  definition_lay_out(table);
  if (rows_create(table, options) && records_insert(table)) return true;
  table_discard(&table, false);
  return false;
}

RowNo next_table_id(Database &db) {
  return row_position(*db.table_rows, RowPosition::insert);
}

bool auto_index_create(Table &table) {
  if (table.auto_column == 0) return true;
  IndexDefinition definition = {};
  auto_index_name(table.id, definition.name);
  definition.unique = true;
  definition.column_count = 1;
  strcpy(definition.columns[0], table.columns[table.auto_column - 1].name);
  return index_attach(table, definition);
}

Table *create(Database &db, const char *name, const ColumnDefinition *columns, int column_count,
              const AutoIncrementOptions &options) {
  Table *table = definition_new(db, next_table_id(db), name, column_count);
  if (table == nullptr) return nullptr;
  for (int i = 0; i < column_count; ++i) {
    const bool complete = column_complete(columns[i], &table->columns[i]);
    assert(complete);  // validated above
    (void)complete;
  }
  if (!table_build(*table, options)) return nullptr;
  if (!auto_index_create(*table) || !table_name_insert(db, name, table->id)) {
    table_discard(table, true);
    return nullptr;
  }
  tables_replace(db, nullptr, table);
  return table;
}

}  // namespace

Table *table_create(Database &db, const char *name, const ColumnDefinition *columns, int column_count,
                    const AutoIncrementOptions &options) {
  if (!table_validate(db, name, columns, column_count, options)) return nullptr;
  TableHold table;
  const bool created = db_as_a_whole(db, [&] {
    table = TableHold(create(db, name, columns, column_count, options));
    return table != nullptr;
  });
  return created ? table.release() : nullptr;
}

// ---- dropping and emptying ----

namespace {

bool storage_drop(const Table &table) {
  Database &db = *table.db;
  for (int i = 0; i < table.index_count; ++i)
    if (!index_name_delete(db, *table.indices[i]) || !btree_drop_shared(*table.indices[i]))
      return fail(status::table_drop_index);
  if (table.index_list_row != 0 && row_delete(*db.index_rows, table.index_list_row) != RowRead::active)
    return fail(status::table_drop_index);
  for (int i = 0; i < table.large_count; ++i)
    if (!row_system_drop_shared(*table.large_rows[i])) return false;
  if (!row_system_drop_shared(*table.rows)) return false;
  if (row_delete(*db.column_rows, table.columns_row) != RowRead::active)
    return fail(status::table_drop_columns);
  if (row_delete(*db.table_rows, table.id) != RowRead::active)
    return fail(status::table_drop_overflow_columns);
  return table_name_delete(db, table.name, table.id);
}

bool drop(Database &db, Table &table) {
  const bool dropped = storage_drop(table);
  tables_replace(db, &table, nullptr);  // in any case: what is left of it must not be used
  return dropped;
}

// A table of the same columns and auto-increment state under a new id, without name and indices.
Table *table_twin(const Table &table) {
  Database &db = *table.db;
  Table *twin = definition_new(db, next_table_id(db), table.name, table.column_count);
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
  Database &db = *table.db;
  for (int i = 0; i < table.index_count; ++i)
    if (!index_name_insert(db, *table.indices[i])) return false;
  return table_name_insert(db, table.name, table.id);
}

bool empty(Database &db, Table &table) {
  Table *twin = table_twin(table);
  if (twin == nullptr) return false;
  if (!index_trees_copy(table, *twin)) {
    table_discard(twin, true);
    return false;
  }
  const bool replaced = storage_drop(table) && names_insert(*twin);
  tables_replace(db, &table, twin);
  table_close(twin);
  return replaced;
}

}  // namespace

bool table_drop(Database &db, const char *name) {
  const TableHold table(table_open(db, name));
  return table != nullptr && db_as_a_whole(db, [&] { return drop(db, *table); });
}

bool table_empty(Database &db, const char *name) {
  const TableHold table(table_open(db, name));
  return table != nullptr && db_as_a_whole(db, [&] { return empty(db, *table); });
}

// ---- renaming ----

namespace {

bool index_table_names_write(Table &table) {
  for (int i = 0; i < table.index_count; ++i)
    if (!btree_rename_table(*table.indices[i], table.name)) return fail(status::table_record_update);
  return true;
}

bool table_rename_copy(Table &copy, const char *old_name) {
  Database &db = *copy.db;
  return table_name_insert(db, copy.name, copy.id) && table_name_delete(db, old_name, copy.id) &&
         table_record_write(copy, status::table_record_update) && index_table_names_write(copy);
}

bool rename(Database &db, Table &old, const char *new_name) {
  Table *made = definition_copy(old);
  if (made == nullptr) return false;
  name_encode(new_name, made->name);
  if (!table_rename_copy(*made, old.name)) {
    definition_free(made);
    return false;
  }
  tables_replace(db, &old, made);
  table_close(made);
  return true;
}

bool rename_column(Database &db, Table &old, int number, const char *new_name) {
  Table *made = definition_copy(old);
  if (made == nullptr) return false;
  name_encode(new_name, made->columns[number - 1].name);
  if (!columns_write(*made, ColumnsWrite::update) ||
      !table_record_write(*made, status::table_record_update)) {
    definition_free(made);
    return fail(status::table_record_update);
  }
  tables_replace(db, &old, made);
  table_close(made);
  return true;
}

}  // namespace

bool table_rename(Database &db, const char *name, const char *new_name) {
  if (new_name == nullptr || new_name[0] == 0) return fail(status::table_argument);
  if (strlen(new_name) > name_limit) return fail(status::table_name_length);
  const TableHold old(table_open(db, name));
  if (old.get() == nullptr) return false;
  RowNo id;
  if (!name_absent(table_name_find(db, new_name, &id), status::table_name_search, status::table_exists))
    return false;
  return db_as_a_whole(db, [&] { return rename(db, *old, new_name); });
}

bool column_rename(Database &db, const char *table, const char *name, const char *new_name) {
  const TableHold old(table_open(db, table));
  if (old.get() == nullptr) return false;
  const Column *column = table_find_column(*old, name);
  if (column == nullptr || column_is_rowid(*column)) return fail(status::column_missing);
  if (table_find_column(*old, new_name) != nullptr) return fail(status::column_name_twice);
  if (!column_name_validate(new_name)) return false;
  return db_as_a_whole(db, [&] { return rename_column(db, *old, column->number, new_name); });
}

}  // namespace tovik
