#include "sql/table_check.h"

#include <cstring>

#include "data/catalog.h"
#include "data/row_handle.h"

namespace tovik {

namespace {

class TableReader {
 public:
  explicit TableReader(Table *table) : handle_(table == nullptr ? nullptr : row_handle_open(table)) {}
  ~TableReader() {
    if (handle_ != nullptr) row_handle_close(handle_);
  }
  TableReader(const TableReader &) = delete;
  TableReader &operator=(const TableReader &) = delete;

  bool open() const { return handle_ != nullptr; }
  RowHandle &handle() { return *handle_; }
  Table &table() { return *handle_->table; }

  // Calls visit for every row, whose record is then in the handle; false on a failure of either.
  template <class Visit>
  [[nodiscard]] bool each_row(Visit visit) {
    RowScan scan;
    row_scan_start(scan, *table().rows);
    for (;;) {
      switch (row_scan_next(scan, handle_->record, table().record_size, &handle_->row)) {
        case RowFetch::end:
          return true;
        case RowFetch::failed:
          return false;
        default:
          if (!visit()) return false;
      }
    }
  }

 private:
  RowHandle *handle_;
};

// A UNIQUE index must lead to the very row, a NORMAL one must hold the key.
BtreeFind find_row(Btree &index, const uint8_t *key, RowNo row) {
  if (!btree_is_unique(index)) return btree_search(index, key, nullptr);
  uint8_t value[sizeof(RowNo)] = {};
  const BtreeFind found = btree_find_value(index, key, value);
  if (found != BtreeFind::found) return found;
  return load_u32(value) == row ? BtreeFind::found : BtreeFind::absent;
}

bool check_index(TableReader &reader, Btree &index) {
  const Table &table = reader.table();
  system_driver.print("*** INDEX INTEGRITY CHECK [%s][%s] ***%s", table.name, index.definition.index_name,
                      "\n");
  int hits = 0;
  const bool read = reader.each_row([&] {
    uint8_t key[btree_key_limit];
    index_key(table, index, reader.handle().record, key);
    const BtreeFind found = find_row(index, key, reader.handle().row);
    if (found == BtreeFind::found) ++hits;
    return found != BtreeFind::failed;
  });
  if (read) system_driver.print(" btree hit count :[%d]%s", hits, "\n");
  return read;
}

}  // namespace

bool table_check(Database &db, const char *table_name) {
  TableReader reader(table_open(db, table_name));
  if (!reader.open()) return false;
  system_driver.print("*** TABLE CHECK [%s] ***%s", table_name, "\n");
  int rows = 0;
  if (!reader.each_row([&rows] { return ++rows > 0; })) return false;
  system_driver.print(" record count :[%d]%s", rows, "\n");
  for (int i = 0; i < reader.table().index_count; ++i) {
    if (!check_index(reader, *reader.table().indices[i])) return false;
  }
  return true;
}

}  // namespace tovik
