#include "sql/evaluate/access.h"

#include <new>

#include "frame/error.h"

namespace tovik {

TableAccess *access_open(MemoryPool &pool, Table *table, const char *alias) {
  void *block = memory_pool_alloc(pool, sizeof(TableAccess));
  if (block == nullptr) {
    table_close(table);
    return nullptr;
  }
  RowHandle *handle = row_handle_open(table);
  if (handle == nullptr) return nullptr;
  TableAccess *access = ::new (block) TableAccess{};
  access->handle = handle;
  access->alias = alias;
  access_rewind(*access);
  return access;
}

void access_close(TableAccess *first) {
  while (first != nullptr) {
    TableAccess *next = first->next;
    row_scan_pause(first->scan);
    rowset_free(first->rows);
    row_handle_close(first->handle);
    first->~TableAccess();
    first = next;
  }
}

void access_rewind(TableAccess &access) {
  access.next_row = 0;
  row_scan_start(access.scan, *access.handle->table->rows);
}

void access_start(TableAccess &access) {
  access.found = row_state(*access.handle->table->rows);
  access.path = AccessPath::scan;
  rowset_free(access.rows);
  access.rows = nullptr;
  access_rewind(access);
}

bool access_outdated(const TableAccess &access) {
  return !table_is_current(*access.handle->table);
}

bool access_stands(const TableAccess &access) {
  return row_system_visible(*access.handle->table->rows);
}

bool access_written(const TableAccess &access) {
  return access.found != row_state(*access.handle->table->rows);
}

namespace {

// The next row of a scan goes straight into the handle's record.
Found next_scanned(TableAccess &access) {
  RowHandle &handle = *access.handle;
  RowNo row = 0;
  const Found fetched = row_scan_next(access.scan, handle.record, handle.table->record_size, &row);
  row_handle_loaded(handle, row);
  return fetched;
}

Found next_single(TableAccess &access) {
  if (access.next_row != 0 || access.row == 0) return Found::no;
  access.next_row = 1;
  return row_handle_read_since(*access.handle, access.row, access.found);
}

// A number that comes from the statement may name anything: bytes in the middle of a record could look like a
// row.
Found next_by_rowid(TableAccess &access) {
  if (access.next_row != 0 || access.row == 0) return Found::no;
  bool names;
  if (!row_names_slot(*access.handle->table->rows, access.row, &names)) return Found::failed;
  return names ? next_single(access) : Found::no;
}

Found next_listed(TableAccess &access) {
  const Array<RowNo> &rows = access.rows->rows;
  while (access.next_row < rows.size()) {
    const Found load = row_handle_read_since(*access.handle, rows[access.next_row++], access.found);
    if (load != Found::no) return load;
  }
  return Found::no;
}

Found next_row(TableAccess &access) {
  switch (access.path) {
    case AccessPath::rowid:
      return next_by_rowid(access);
    case AccessPath::unique_row:
      return next_single(access);
    case AccessPath::row_list:
      return next_listed(access);
    default:
      return next_scanned(access);
  }
}

}  // namespace

Found access_next(TableAccess &access) {
  const Found fetched = next_row(access);
  if (fetched == Found::no) access_rewind(access);
  return fetched;
}

int access_count(const TableAccess *first) {
  int count = 0;
  for (; first != nullptr; first = first->next) ++count;
  return count;
}

int access_place(const TableAccess *first, const RowHandle *handle) {
  for (int place = 0; first != nullptr; first = first->next, ++place)
    if (first->handle == handle) return place;
  return -1;
}

void access_pause(TableAccess *first) {
  for (; first != nullptr; first = first->next) row_scan_pause(first->scan);
}

}  // namespace tovik
