#include "data/table/table_definition.h"

#include "data/table/row_handle.h"
#include "frame/error.h"

namespace tovik {

Table *definition_new(Catalog &catalog, RowNo id, const char *name, int column_count) {
  Table *table = mem_new<Table>();
  if (table == nullptr) return fail_null(status::out_of_memory);
  const size_t size = sizeof(Column) * static_cast<size_t>(column_count);
  table->columns = static_cast<Column *>(mem_alloc(size));
  if (table->columns == nullptr) {
    mem_delete(table);
    return fail_null(status::out_of_memory);
  }
  memset(static_cast<void *>(table->columns), 0, size);
  table->catalog = &catalog;
  table->id = id;
  name_encode(name, table->name);
  table->column_count = column_count;
  table->state.references = 1;
  table->rowid.type = type::int32;
  table->rowid.number = rowid_column_number;
  table->rowid.stored_size = 4;
  strcpy(table->rowid.name, "rowid");
  return table;
}

void definition_free(Table *table) {
  if (table == nullptr) return;
  for (RowHandle *spare : table->spare_handles) row_handle_free(spare);
  for (Btree *index : table->indices)
    if (index != nullptr) btree_close(index);
  if (table->large_rows != nullptr)
    for (int i = 0; i < table->large_count; ++i)
      if (table->large_rows[i] != nullptr) row_system_close(table->large_rows[i]);
  if (table->rows != nullptr) row_system_close(table->rows);
  mem_free(table->large_rows);
  mem_free(table->columns);
  mem_delete(table);
}

bool definition_size_large(Table &table) {
  if (table.large_count == 0) return true;
  const size_t size = sizeof(RowSystem *) * static_cast<size_t>(table.large_count);
  table.large_rows = static_cast<RowSystem **>(mem_alloc(size));
  if (table.large_rows == nullptr) return fail(status::out_of_memory);
  memset(static_cast<void *>(table.large_rows), 0, size);
  return true;
}

namespace {

// A second hold on every handle of from.
bool open_like(const Table &from, Table &to) {
  StorageManager &sm = *from.catalog->storage;
  if (!definition_size_large(to)) return false;
  to.rows = row_system_open(from.rows->number, sm);
  if (to.rows == nullptr) return fail(status::table_rows_open);
  for (int i = 0; i < from.large_count; ++i) {
    to.large_rows[i] = row_system_open(from.large_rows[i]->number, sm);
    if (to.large_rows[i] == nullptr) return fail(status::table_overflow_open);
  }
  for (int i = 0; i < from.index_count; ++i) {
    to.indices[i] = btree_open(sm, from.indices[i]->number);
    if (to.indices[i] == nullptr) return fail(status::table_index_open);
  }
  return true;
}

}  // namespace

Table *definition_copy(const Table &table) {
  Table *copy = definition_new(*table.catalog, table.id, table.name, table.column_count);
  if (copy == nullptr) return nullptr;
  static_cast<TableRecord &>(*copy) = table;
  memcpy(static_cast<void *>(copy->columns), table.columns,
         sizeof(Column) * static_cast<size_t>(table.column_count));
  if (open_like(table, *copy)) return copy;
  definition_free(copy);
  return nullptr;
}

void definition_lay_out(Table &table) {
  int32_t offset = 0;
  table.large_count = 0;
  table.auto_column = 0;
  for (int i = 0; i < table.column_count; ++i) {
    Column &column = table.columns[i];
    column.number = static_cast<int16_t>(i + 1);
    column.offset = offset;
    column.stored_size = type_stored_size(column);
    column.large_ordinal = column_is_large(column) ? ++table.large_count : 0;
    if (column.auto_increment) table.auto_column = column.number;
    offset += column.stored_size;
  }
  table.record_size = offset < record_size_least ? record_size_least : offset;
}

}  // namespace tovik
