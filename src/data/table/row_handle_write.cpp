// Writing rows.
//
// Everything is checked before anything is written. Then what needs room comes before what gives room back:
// new chunk rows and new index entries first, old ones last. A write that fails half way takes back what it
// did, so that row, indices and counters agree whatever becomes of the transaction.
//
// Cost of an insert: per unique index one search, per index one descent, one row write; no allocation.
#include "data/row/data_systems.h"
#include "data/table/catalog.h"
#include "data/table/large_value.h"
#include "frame/error.h"

namespace tovik {

namespace {

using Key = uint8_t[btree_key_limit];

bool entry_insert(const RowHandle &handle, Btree &index, const uint8_t *record) {
  Key key;
  uint8_t value[4];
  index_key(*handle.table, index, record, key);
  store_u32(value, handle.row);
  return btree_insert(index, key, value) == BtreeInsert::inserted;
}

bool entry_delete(const RowHandle &handle, Btree &index, const uint8_t *record) {
  Key key;
  uint8_t value[4];
  index_key(*handle.table, index, record, key);
  store_u32(value, handle.row);
  return btree_delete(index, key, value);
}

// ---- checks ----

// A column must have a value: 143002 with its number as detail.
bool value_missing(int16_t column_number) {
  return fail(status::not_null_violation, {.detail1 = column_number});
}

// What a column is that was not set.
enum class Unset { null, unchanged };

// Columns that were not set take their bytes from rest.
bool columns_finish(RowHandle &handle, const uint8_t *rest, Unset unset) {
  const Table &table = *handle.table;
  for (int i = 0; i < table.column_count; ++i) {
    const uint8_t state = handle.states[i];
    if (state == column_set) continue;
    const Column &column = table.columns[i];
    if (column.not_null && (state == column_null || unset == Unset::null))
      return value_missing(column.number);
    if (state == column_unset)
      memcpy(handle.record + column.offset, rest + column.offset, static_cast<size_t>(column.stored_size));
  }
  return true;
}

// The key of record is complete and not yet in the index.
bool unique_check(const RowHandle &handle, Btree &index, Unset unset) {
  for (int i = 0; i < index.definition.part_count; ++i) {
    const int16_t number = index.definition.parts[i].column;
    const uint8_t state = handle.states[number - 1];
    if (state == column_null || (unset == Unset::null && state == column_unset)) return value_missing(number);
  }
  Key key;
  index_key(*handle.table, index, handle.record, key);
  switch (btree_search(index, key, nullptr)) {
    case Found::no:
      return true;
    case Found::yes:
      return fail(status::unique_violation);
    case Found::failed:
      break;
  }
  return fail(status::record_unique_search);
}

// Equal keys may differ in bytes (what follows a NULL mark): those stay as they are in the index.
bool key_changed(const RowHandle &handle, const Btree &index) {
  Key old_key, new_key;
  index_key(*handle.table, index, handle.old_record, old_key);
  index_key(*handle.table, index, handle.record, new_key);
  if (memcmp(old_key, new_key, static_cast<size_t>(btree_key_size(index))) == 0) return false;
  int offset = 0;
  for (int i = 0; i < index.definition.part_count; ++i) {
    const int size = index.definition.parts[i].size;
    if (index.compare[i](old_key + offset, new_key + offset, size) != 0) return true;
    offset += size;
  }
  return false;
}

// ---- large values ----

// Frees the chunk rows in record of the large columns below column end that were set or, all, of every one.
enum class LargeScope { set, changed, all };

bool large_values_free(RowHandle &handle, const uint8_t *record, LargeScope scope, int end) {
  bool freed = true;
  if (handle.table->large_count == 0) return true;
  for (int i = 0; i < end; ++i) {
    const Column &column = handle.table->columns[i];
    const uint8_t state = handle.states[i];
    if (!column_is_large(column) || (scope == LargeScope::set && state != column_set) ||
        (scope == LargeScope::changed && state == column_unset))
      continue;
    freed = large_free(handle, column, record) && freed;
  }
  return freed;
}

bool large_values_store(RowHandle &handle) {
  if (handle.table->large_count == 0) return true;
  for (int i = 0; i < handle.table->column_count; ++i) {
    const Column &column = handle.table->columns[i];
    if (!column_is_large(column) || handle.states[i] == column_unset) continue;
    if (large_store(handle, column)) continue;
    const ErrorScope keep;
    (void)large_values_free(handle, handle.record, LargeScope::set, i);
    return false;
  }
  return true;
}

// No row may be written through a definition whose indices may be out of date.
bool writable(const RowHandle &handle) {
  return table_is_current(*handle.table) || fail(status::record_argument);
}

}  // namespace

// ---- insert ----

bool record_number(const Table &table, uint8_t *record) {
  const Column &column = table.columns[table.auto_column - 1];
  const int64_t next = row_autoinc_get(*table.rows).next;
  if (next == autoinc_exhausted) return fail(status::input_number_range);
  return store_value(column, ValueMode::binary, &next, record + column.offset) == Stored::value &&
         row_autoinc_advance(*table.rows);
}

namespace {

// The unique index on the auto-increment column alone; null when somebody dropped it.
Btree *counter_index(const Table &table) {
  for (int i = 0; i < table.index_count; ++i) {
    const BtreeDefinition &definition = table.indices[i]->definition;
    if (btree_is_unique(*table.indices[i]) && definition.part_count == 1 &&
        definition.parts[0].column == table.auto_column)
      return table.indices[i];
  }
  return nullptr;
}

// Sets the counter's next value that the column's index does not hold, and moves the counter behind it: the
// values stepped over were given by hand.
bool counter_take(RowHandle &handle, const Column &column, Btree *index) {
  for (Found found = Found::yes; found == Found::yes;) {
    if (!record_number(*handle.table, handle.record)) return false;
    const uint8_t *stored = handle.record + column.offset;
    found = index == nullptr ? Found::no : btree_search(*index, stored, nullptr);
    if (found == Found::failed) return fail(status::record_unique_search);
  }
  return true;
}

// taken: the index that was asked about the value already.
bool auto_increment_fill(RowHandle &handle, const Btree **taken) {
  Table &table = *handle.table;
  const Column &column = table.columns[table.auto_column - 1];
  uint8_t *stored = handle.record + column.offset;
  uint8_t &state = handle.states[column.number - 1];
  int64_t given = 0;
  if (state == column_set && fetch_value(column, ValueMode::binary, stored, &given) == Stored::value &&
      given != 0)
    return true;
  Btree *index = counter_index(table);
  if (!counter_take(handle, column, index)) return false;
  state = column_set;
  *taken = index;
  return true;
}

bool anything_set(const RowHandle &handle) {
  return memchr(handle.states, column_set, static_cast<size_t>(handle.table->column_count)) != nullptr;
}

// Takes back the first entries index entries, the row, if it is there, and the chunk rows.
void insert_undo(RowHandle &handle, int entries) {
  const ErrorScope keep;  // the failure is told already
  Table &table = *handle.table;
  bool undone = true;
  for (int i = 0; i < entries; ++i) undone = entry_delete(handle, *table.indices[i], handle.record) && undone;
  if (handle.row != 0) undone = row_delete(*table.rows, handle.row) == Found::yes && undone;
  handle.row = 0;
  undone = large_values_free(handle, handle.record, LargeScope::set, table.column_count) && undone;
  if (!undone) data_torn(*table.catalog->storage);
}

bool insert_write(RowHandle &handle) {
  Table &table = *handle.table;
  if (!large_values_store(handle)) return fail(status::record_large_insert);
  if (!row_insert(*table.rows, handle.record, table.record_size, &handle.row)) {
    handle.row = 0;
    err_set(status::record_row_insert);
    insert_undo(handle, 0);
    return false;
  }
  for (int i = 0; i < table.index_count; ++i) {
    if (entry_insert(handle, *table.indices[i], handle.record)) continue;
    err_set(status::record_index_insert);
    insert_undo(handle, i);
    return false;
  }
  return true;
}

}  // namespace

bool row_handle_insert(RowHandle &handle) {
  Table &table = *handle.table;
  row_handle_loaded(handle, 0);
  if (!writable(handle)) return false;
  const Btree *checked = nullptr;
  if (table.auto_column != 0) {
    if (!auto_increment_fill(handle, &checked)) return false;
  } else if (!anything_set(handle)) {
    return true;
  }
  if (!columns_finish(handle, handle.null_record, Unset::null)) return false;
  for (int i = 0; i < table.index_count; ++i)
    if (btree_is_unique(*table.indices[i]) && table.indices[i] != checked &&
        !unique_check(handle, *table.indices[i], Unset::null))
      return false;
  return insert_write(handle);
}

// ---- update ----

namespace {

// How far an update has come. Only the indices in changed are touched.
struct UpdateProgress {
  bool changed[index_limit];
  int entries_inserted;  // of the first so many indices
  bool row_written;
  int entries_deleted;
};

void update_undo(RowHandle &handle, const UpdateProgress &progress) {
  const ErrorScope keep;  // the failure is told already
  Table &table = *handle.table;
  bool undone = true;
  for (int i = 0; i < progress.entries_deleted; ++i)
    if (progress.changed[i]) undone = entry_insert(handle, *table.indices[i], handle.old_record) && undone;
  RowNo row = handle.row;
  if (progress.row_written)
    undone = row_update(*table.rows, &row, handle.old_record, table.record_size) && undone;
  for (int i = 0; i < progress.entries_inserted; ++i)
    if (progress.changed[i]) undone = entry_delete(handle, *table.indices[i], handle.record) && undone;
  undone = large_values_free(handle, handle.record, LargeScope::set, table.column_count) && undone;
  if (!undone) data_torn(*table.catalog->storage);
}

bool update_entries(RowHandle &handle, UpdateProgress &progress) {
  Table &table = *handle.table;
  for (int &i = progress.entries_inserted; i < table.index_count; ++i)
    if (progress.changed[i] && !entry_insert(handle, *table.indices[i], handle.record))
      return fail(status::record_index_insert);
  RowNo row = handle.row;
  progress.row_written = true;  // at least begun
  if (!row_update(*table.rows, &row, handle.record, table.record_size))
    return fail(status::record_row_update);
  for (int &i = progress.entries_deleted; i < table.index_count; ++i)
    if (progress.changed[i] && !entry_delete(handle, *table.indices[i], handle.old_record))
      return fail(status::record_old_key_delete);
  return true;
}

}  // namespace

bool row_handle_update(RowHandle &handle) {
  Table &table = *handle.table;
  if (handle.row == 0) return fail(status::record_argument);
  if (!writable(handle) || !columns_finish(handle, handle.old_record, Unset::unchanged)) return false;
  UpdateProgress progress = {};
  for (int i = 0; i < table.index_count; ++i) {
    progress.changed[i] = key_changed(handle, *table.indices[i]);
    if (progress.changed[i] && btree_is_unique(*table.indices[i]) &&
        !unique_check(handle, *table.indices[i], Unset::unchanged))
      return false;
  }
  if (!large_values_store(handle)) return fail(status::record_large_update);
  if (!update_entries(handle, progress)) {
    update_undo(handle, progress);
    return false;
  }
  return large_values_free(handle, handle.old_record, LargeScope::changed, table.column_count) ||
         fail(status::record_large_update);
}

// ---- delete ----

namespace {

void delete_undo(RowHandle &handle, int entries) {
  const ErrorScope keep;  // the failure is told already
  bool undone = true;
  for (int i = 0; i < entries; ++i)
    undone = entry_insert(handle, *handle.table->indices[i], handle.record) && undone;
  if (!undone) data_torn(*handle.table->catalog->storage);
}

}  // namespace

bool row_handle_delete(RowHandle &handle) {
  Table &table = *handle.table;
  if (handle.row == 0) return fail(status::record_argument);
  if (!writable(handle)) return false;
  for (int i = 0; i < table.index_count; ++i) {
    if (entry_delete(handle, *table.indices[i], handle.record)) continue;
    err_set(status::record_key_delete);
    delete_undo(handle, i);
    return false;
  }
  if (row_delete(*table.rows, handle.row) != Found::yes) {
    err_set(status::record_row_delete);
    delete_undo(handle, table.index_count);
    return false;
  }
  return large_values_free(handle, handle.record, LargeScope::all, table.column_count) ||
         fail(status::record_large_delete);
}

}  // namespace tovik
