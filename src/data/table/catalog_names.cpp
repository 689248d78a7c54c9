// The names of tables and indices: the two name indices of the catalog, and the list of all tables.
#include "data/table/catalog_names.h"

#include <cstdio>

#include "data/table/catalog_records.h"
#include "frame/error.h"

namespace tovik {

bool name_absent(Found found, StatusCode search_failed, StatusCode present) {
  return found == Found::no || fail(found == Found::yes ? present : search_failed);
}

// ---- tables ----

Found table_name_find(Catalog &catalog, const char *name, RowNo *id) {
  uint8_t value[4];
  const Found found = btree_find_value(*catalog.table_names, NameKey(name), value);
  if (found == Found::yes) *id = load_u32(value);
  return found;
}

bool table_name_insert(Catalog &catalog, const char *name, RowNo id) {
  uint8_t value[4];
  store_u32(value, id);
  switch (btree_insert(*catalog.table_names, NameKey(name), value)) {
    case BtreeInsert::inserted:
      return true;
    case BtreeInsert::exists:
      return fail(status::table_name_present);
    case BtreeInsert::failed:
      break;
  }
  return fail(status::table_name_insert);
}

bool table_name_delete(Catalog &catalog, const char *name, RowNo id) {
  uint8_t value[4];
  store_u32(value, id);
  return btree_delete(*catalog.table_names, NameKey(name), value) || fail(status::table_name_delete);
}

bool table_walk(Catalog &catalog, bool (*visit)(void *context, const char *name), void *context) {
  RowScan scan;
  row_scan_start(scan, *catalog.table_rows);
  for (;;) {
    uint8_t bytes[table_record_size];
    RowNo row;
    switch (row_scan_next(scan, bytes, table_record_size, &row)) {
      case Found::failed:
        return fail(status::describe_table);
      case Found::no:
        return true;
      case Found::yes:
        break;
    }
    TableRecord record;
    if (!table_record_decode(bytes, &record)) return fail(status::describe_table);
    row_scan_pause(scan);
    if (!visit(context, record.name)) return true;
  }
}

// ---- indices ----

namespace {

using NameValue = uint8_t[index_name_value_size];

Found name_value_find(Catalog &catalog, const char *name, NameValue value) {
  return btree_find_value(*catalog.index_names, NameKey(name), value);
}

}  // namespace

Found index_name_find(Catalog &catalog, const char *name, RowNo *descriptor) {
  NameValue value;
  const Found found = name_value_find(catalog, name, value);
  if (found == Found::yes) *descriptor = load_u32(value);
  return found;
}

bool index_name_insert(Catalog &catalog, const Btree &index) {
  NameValue value = {};
  store_u32(value, index.number);
  return btree_insert(*catalog.index_names, NameKey(index.definition.index_name), value) ==
             BtreeInsert::inserted ||
         fail(status::index_name_insert);
}

bool index_name_delete(Catalog &catalog, const Btree &index) {
  NameValue value;
  if (name_value_find(catalog, index.definition.index_name, value) != Found::yes ||
      load_u32(value) != index.number)
    return fail(status::index_name_delete);
  return btree_delete(*catalog.index_names, NameKey(index.definition.index_name), value) ||
         fail(status::index_name_delete);
}

void auto_index_name(RowNo table_id, char *name) {
  snprintf(name, name_size, "__auto_inc__%d", static_cast<int32_t>(table_id));
}

}  // namespace tovik
