// The indices of tables: creation, removal, and their records in the catalog.
#include <cstdio>

#include "data/table/catalog_internal.h"
#include "frame/error.h"

namespace tovik {

bool btree_drop_shared(const Btree &index) {
  Btree *held = btree_open(*index.sm, index.number);
  if (held == nullptr) return false;
  if (btree_drop(held)) return true;
  btree_close(held);
  return false;
}

namespace {

// Writes the index list and, for its length, the table record.
bool index_list_write(Table &table, StatusCode status) {
  Catalog &catalog = *table.catalog;
  uint8_t list[index_list_size] = {};
  for (int i = 0; i < table.index_count; ++i) store_u32(list + 4 * i, table.indices[i]->number);
  if (table.index_list_row == 0) {
    if (!row_insert(*catalog.index_rows, list, index_list_size, &table.index_list_row))
      return fail(status::index_list_create);
  } else {
    RowNo row = table.index_list_row;
    if (!row_update(*catalog.index_rows, &row, list, index_list_size)) return fail(status);
  }
  return table_record_write(table, status);
}

// Enters every row of the table, in row order.
bool index_build(const Table &table, Btree &index) {
  uint8_t *record = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(table.record_size)));
  if (record == nullptr) return fail(status::out_of_memory);
  RowScan scan;
  row_scan_start(scan, *table.rows);
  bool built = false;
  for (;;) {
    RowNo row;
    const Found fetched = row_scan_next(scan, record, table.record_size, &row);
    if (fetched == Found::failed) err_set(status::index_build_read);
    if (fetched == Found::no) built = true;
    if (fetched != Found::yes) break;
    uint8_t key[btree_key_limit], value[4];
    index_key(table, index, record, key);
    store_u32(value, row);
    const BtreeInsert inserted = btree_insert(index, key, value);
    if (inserted == BtreeInsert::inserted) continue;
    err_set(inserted == BtreeInsert::exists ? status::unique_violation : status::index_build_insert);
    break;
  }
  mem_free(record);
  return built;
}

bool index_list_append(Table &table, Btree &index) {
  table.indices[table.index_count++] = &index;
  if (index_list_write(table, status::index_list_append)) return true;
  table.indices[--table.index_count] = nullptr;
  return false;
}

}  // namespace

bool index_attach(Table &table, const IndexDefinition &definition) {
  BtreeDefinition tree;
  if (!index_validate(table, definition, &tree)) return false;
  Btree *index = btree_create(*table.catalog->storage, tree, table.name);
  if (index == nullptr) return fail(status::index_btree_create);
  const bool named = index_build(table, *index) && index_name_insert(*table.catalog, *index);
  if (named && index_list_append(table, *index)) return true;
  const ErrorScope keep;  // the failure is told already
  if (named) (void)index_name_delete(*table.catalog, *index);
  if (!btree_drop(index)) btree_close(index);
  return false;
}

bool index_tree_add(Table &table, const BtreeDefinition &tree) {
  Btree *index = btree_create(*table.catalog->storage, tree, table.name);
  if (index == nullptr) return fail(status::index_btree_create);
  if (index_list_append(table, *index)) return true;
  const ErrorScope keep;
  if (!btree_drop(index)) btree_close(index);
  return false;
}

bool index_create(Catalog &catalog, const char *table, const IndexDefinition &definition) {
  const TableHold old(table_open(catalog, table));
  return old != nullptr && definition_edit(*old, [&](Table &copy) { return index_attach(copy, definition); });
}

namespace {

// The table of an index; null with 145006, 145012, 45007 to 45009.
Table *index_table(Catalog &catalog, const char *name) {
  if (name == nullptr || name[0] == 0) return fail_null(status::index_argument);
  if (strlen(name) >= name_size) return fail_null(status::index_missing);
  RowNo number = 0;
  switch (index_name_find(catalog, name, &number)) {
    case Found::failed:
      return fail_null(status::index_drop_search);
    case Found::no:
      return fail_null(status::index_missing);
    case Found::yes:
      break;
  }
  Btree *index = btree_open(*catalog.storage, number);
  if (index == nullptr) return fail_null(status::index_drop_open);
  char table_name[btree_name_size];
  strcpy(table_name, btree_table_name(*index));
  btree_close(index);
  RowNo id;
  if (table_name_find(catalog, table_name, &id) == Found::no) return fail_null(status::index_no_table);
  Table *table = table_open(catalog, table_name);
  return table != nullptr ? table : fail_null(status::index_drop_table_open);
}

int index_place(const Table &table, const char *name) {
  for (int i = 0; i < table.index_count; ++i)
    if (strcmp(table.indices[i]->definition.index_name, name) == 0) return i;
  return -1;
}

bool index_detach(Table &table, Btree &index, int place) {
  for (int i = place; i + 1 < table.index_count; ++i) table.indices[i] = table.indices[i + 1];
  table.indices[--table.index_count] = nullptr;
  if (!index_name_delete(*table.catalog, index) || !index_list_write(table, status::index_list_remove))
    return false;
  return btree_drop_shared(index) || fail(status::index_btree_drop);
}

bool drop(Table &table, int place) {
  Btree *index = table.indices[place];
  const bool dropped = index_detach(table, *index, place);
  btree_close(index);
  return dropped;
}

}  // namespace

bool index_drop(Catalog &catalog, const char *name) {
  const TableHold old(index_table(catalog, name));
  if (old == nullptr) return false;
  const int place = index_place(*old, name);
  if (place < 0) return fail(status::index_no_table);
  return definition_edit(*old, [&](Table &copy) { return drop(copy, place); });
}

void index_key(const Table &table, const Btree &index, const uint8_t *record, uint8_t *key) {
  for (int i = 0; i < index.definition.part_count; ++i) {
    const BtreeKeyPart &part = index.definition.parts[i];
    memcpy(key, record + table.columns[part.column - 1].offset, part.size);
    key += part.size;
  }
}

}  // namespace tovik
