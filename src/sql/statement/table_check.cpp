#include "sql/statement/table_check.h"

#include <cstring>

#include "data/table/catalog.h"
#include "data/table/row_handle.h"

namespace tovik {

namespace {

// Calls visit for every row, whose record is then in the handle; false on a failure of either.
template <class Visit>
bool scan_rows(RowHandle &handle, Visit visit) {
  RowScan scan;
  row_scan_start(scan, *handle.table->rows);
  return each_row([&] { return row_scan_next(scan, handle.record, handle.table->record_size, &handle.row); },
                  visit);
}

// A UNIQUE index must lead to the very row, a NORMAL one must hold the key.
Found find_row(Btree &index, const uint8_t *key, RowNo row) {
  if (!btree_is_unique(index)) return btree_search(index, key, nullptr);
  uint8_t value[sizeof(RowNo)] = {};
  const Found found = btree_find_value(index, key, value);
  if (found != Found::yes) return found;
  return load_u32(value) == row ? Found::yes : Found::no;
}

bool check_index(RowHandle &handle, Btree &index) {
  const Table &table = *handle.table;
  system_driver.print("*** INDEX INTEGRITY CHECK [%s][%s] ***%s", table.name, index.definition.index_name,
                      "\n");
  int hits = 0;
  const bool read = scan_rows(handle, [&] {
    uint8_t key[btree_key_limit];
    index_key(table, index, handle.record, key);
    const Found found = find_row(index, key, handle.row);
    if (found == Found::yes) ++hits;
    return found != Found::failed;
  });
  if (read) system_driver.print(" btree hit count :[%d]%s", hits, "\n");
  return read;
}

}  // namespace

bool table_check(Database &db, const char *table_name) {
  Table *table = table_open(db, table_name);
  if (table == nullptr) return false;
  const RowHandleHold handle(row_handle_open(table));
  if (handle.get() == nullptr) return false;
  system_driver.print("*** TABLE CHECK [%s] ***%s", table_name, "\n");
  int rows = 0;
  if (!scan_rows(*handle, [&rows] { return ++rows > 0; })) return false;
  system_driver.print(" record count :[%d]%s", rows, "\n");
  for (int i = 0; i < table->index_count; ++i) {
    if (!check_index(*handle, *table->indices[i])) return false;
  }
  return true;
}

}  // namespace tovik
