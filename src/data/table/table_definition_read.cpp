// Reading a definition from the catalog. What the records say is checked against each other and against what
// they lead to.
#include "data/table/table_definition.h"
#include "frame/error.h"

namespace tovik {

namespace {

// The records lie one after another as the record layout says, and agree with the table record.
bool read_columns(Table &table) {
  Catalog &catalog = *table.catalog;
  const int size = table.column_count * column_record_size;
  uint8_t *records = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(size)));
  if (records == nullptr) return fail(status::out_of_memory);
  bool good = row_read_variable(*catalog.column_rows, table.columns_row, records, size);
  int32_t offset = 0, large = 0, auto_column = 0;
  for (int i = 0; good && i < table.column_count; ++i) {
    Column &column = table.columns[i];
    good =
        column_record_decode(records + i * column_record_size, table.id, i + 1, table.record_size, &column);
    if (!good) break;
    good = column.offset == offset && (!column_is_large(column) || column.large_ordinal == ++large) &&
           (!column.auto_increment || (auto_column == 0 && (column.type & TYPE_INTEGER) != 0));
    offset += column.stored_size;
    if (column.auto_increment) auto_column = column.number;
  }
  mem_free(records);
  const int32_t record_size = offset < record_size_least ? record_size_least : offset;
  if (!good || large != table.large_count || auto_column != table.auto_column ||
      record_size != table.record_size)
    return fail(status::table_column_row_number);
  return true;
}

bool open_rows(Table &table) {
  StorageManager &sm = *table.catalog->storage;
  table.rows = row_system_open(table.rows_number, sm);
  if (table.rows == nullptr || table.rows->row_size != table.record_size + 1 ||
      table.rows->kind != (table.auto_column != 0 ? RowKind::fixed_auto : RowKind::fixed))
    return fail(status::table_rows_open);
  if (!definition_size_large(table)) return false;
  for (int i = 0; i < table.column_count; ++i) {
    const Column &column = table.columns[i];
    if (!column_is_large(column)) continue;
    RowSystem *&rows = table.large_rows[column.large_ordinal - 1];
    rows = row_system_open(column.overflow_rows, sm);
    if (rows == nullptr || rows->kind != RowKind::variable || rows->row_size != column.p3 + 1)
      return fail(status::table_overflow_open);
  }
  return true;
}

// The key parts are columns of the table as they are stored: keys are copied out of records by them.
bool index_fits(const Table &table, const Btree &index) {
  const BtreeDefinition &definition = index.definition;
  if (definition.part_count < 1 || definition.part_count > btree_part_limit ||
      definition.table_id != table.id || (definition.flags & btree_payload) != 0 ||
      definition.value_size != 4)
    return false;
  for (int i = 0; i < definition.part_count; ++i) {
    const BtreeKeyPart &part = definition.parts[i];
    if (part.column < 1 || part.column > table.column_count) return false;
    const Column &column = table.columns[part.column - 1];
    if (part.type != column.type || part.size != column.stored_size || column_is_large(column)) return false;
  }
  return true;
}

bool open_indices(Table &table) {
  if (table.index_count == 0) return true;
  Catalog &catalog = *table.catalog;
  uint8_t list[index_list_size];
  if (row_read(*catalog.index_rows, table.index_list_row, list, index_list_size) != Found::yes)
    return fail(status::table_index_open);
  for (int i = 0; i < table.index_count; ++i) {
    table.indices[i] = btree_open(*catalog.storage, load_u32(list + 4 * i));
    if (table.indices[i] == nullptr || !index_fits(table, *table.indices[i]))
      return fail(status::table_index_open);
  }
  return true;
}

}  // namespace

Table *definition_read(Catalog &catalog, RowNo id, const char *name) {
  uint8_t bytes[table_record_size];
  TableRecord record;
  if (row_read(*catalog.table_rows, id, bytes, table_record_size) != Found::yes ||
      !table_record_decode(bytes, &record) || strcmp(record.name, name) != 0)
    return fail_null(status::table_record_read);
  Table *table = definition_new(catalog, id, name, record.column_count);
  if (table == nullptr) return nullptr;
  static_cast<TableRecord &>(*table) = record;
  if (read_columns(*table) && open_rows(*table) && open_indices(*table)) return table;
  definition_free(table);
  return nullptr;
}

}  // namespace tovik
