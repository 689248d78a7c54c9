// Where the catalog lies in a data file:
//
//   system ROW, descriptors in order     index descriptor ROW, in order
//     0  index descriptor ROW              0  table-name index
//     1  index page-counter ROW            1  index-name index
//     2  table management ROW
//     3  column management ROW
//     4  index management ROW
#include "data/table/catalog_stores.h"

#include "data/row/data_systems.h"
#include "data/table/catalog_records.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr int management_place = 2;  // of the first management ROW in the system ROW

BtreeDefinition name_index_definition(uint32_t flags, int value_size) {
  BtreeDefinition definition = {};
  definition.flags = btree_unique | flags;
  definition.part_count = 1;
  definition.master_count = 1;
  definition.value_size = value_size;
  definition.parts[0] = {type::character, name_size, 0};
  return definition;
}

bool name_index_fits(const Btree &index, uint32_t flags, int value_size) {
  const BtreeDefinition &definition = index.definition;
  return definition.flags == (btree_unique | flags) && definition.part_count == 1 &&
         definition.value_size == value_size && definition.parts[0].type == type::character &&
         definition.parts[0].size == name_size;
}

// The row numbers of count descriptors of rows, from place on.
bool descriptor_numbers(RowSystem &rows, int place, int count, RowNo *numbers) {
  RowNo row = row_position(rows, RowPosition::first);
  for (int i = 0; i < place + count; ++i) {
    if (i > 0 && !row_next_position(rows, row, &row)) return fail(status::db_first_position);
    if (row == 0) return fail(status::db_first_position);
    if (i >= place) numbers[i - place] = row;
  }
  return true;
}

RowSystem *management_open(StorageManager &sm, RowNo number, RowKind kind, int data_size, StatusCode status) {
  RowSystem *rows = row_system_open(number, sm);
  if (rows != nullptr && rows->kind == kind && rows->row_size == data_size + 1) return rows;
  if (rows != nullptr) row_system_close(rows);
  return fail_null(status);
}

Btree *name_index_open(StorageManager &sm, RowNo number, uint32_t flags, int value_size, StatusCode status) {
  Btree *index = btree_open(sm, number);
  if (index != nullptr && name_index_fits(*index, flags, value_size)) return index;
  if (index != nullptr) btree_close(index);
  return fail_null(status);
}

}  // namespace

bool catalog_create(Catalog &catalog) {
  StorageManager &sm = *catalog.storage;
  catalog.table_rows = row_system_create(sm, RowKind::fixed, table_record_size, 0, 0, 0);
  if (catalog.table_rows == nullptr) return fail(status::db_table_rows_create);
  catalog.column_rows = row_system_create(sm, RowKind::variable, column_record_size, 0, 0, 0);
  if (catalog.column_rows == nullptr) return fail(status::db_column_rows_create);
  catalog.index_rows = row_system_create(sm, RowKind::fixed, index_list_size, 0, 0, 0);
  if (catalog.index_rows == nullptr) return fail(status::db_index_rows_create);
  catalog.table_names = btree_create(sm, name_index_definition(0, 4));
  if (catalog.table_names == nullptr) return fail(status::db_table_names_create);
  catalog.index_names = btree_create(sm, name_index_definition(btree_payload, index_name_value_size));
  if (catalog.index_names == nullptr) return fail(status::db_index_names_create);
  return true;
}

bool catalog_open(Catalog &catalog) {
  StorageManager &sm = *catalog.storage;
  const DataSystems &systems = data_systems(sm);
  RowNo rows[3], indices[2];
  if (!descriptor_numbers(*systems.system_rows, management_place, 3, rows)) return false;
  catalog.table_rows =
      management_open(sm, rows[0], RowKind::fixed, table_record_size, status::db_table_rows_open);
  if (catalog.table_rows == nullptr) return false;
  catalog.column_rows =
      management_open(sm, rows[1], RowKind::variable, column_record_size, status::db_column_rows_open);
  if (catalog.column_rows == nullptr) return false;
  catalog.index_rows =
      management_open(sm, rows[2], RowKind::fixed, index_list_size, status::db_index_rows_open);
  if (catalog.index_rows == nullptr) return false;
  if (!descriptor_numbers(*systems.index_descriptors, 0, 2, indices)) return false;
  catalog.table_names = name_index_open(sm, indices[0], 0, 4, status::db_table_names_open);
  if (catalog.table_names == nullptr) return false;
  catalog.index_names =
      name_index_open(sm, indices[1], btree_payload, index_name_value_size, status::db_index_names_open);
  return catalog.index_names != nullptr;
}

void catalog_close(Catalog &catalog) {
  tables_close_all(catalog);
  for (Btree *index : {catalog.index_names, catalog.table_names})
    if (index != nullptr) btree_close(index);
  for (RowSystem *rows : {catalog.index_rows, catalog.column_rows, catalog.table_rows})
    if (rows != nullptr) row_system_close(rows);
}

}  // namespace tovik
