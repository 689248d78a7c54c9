// One block holds a handle and everything of fixed size:
//
//   RowHandle | large buffers | record | old record | null record | states | texts
//
// Cost of reading a row: one copy of the record, made by the reader. A value is decoded in place; a text is
// copied only when it fills its column, because the record has no room for its NUL then. The text of a column
// has its place in texts at the column's offset and one byte for each column before it.
#include "data/table/row_handle.h"

#include "data/table/large_value.h"
#include "data/value/stored_form.h"
#include "frame/error.h"

namespace tovik {

namespace {

// What a closed handle keeps of a large value's buffer.
constexpr int32_t spare_large_limit = 64 * 1024;

RowHandle *handle_new(Table *table) {
  const size_t record = static_cast<size_t>(table->record_size);
  const size_t columns = static_cast<size_t>(table->column_count);
  const size_t large = sizeof(LargeBuffer) * static_cast<size_t>(table->large_count);
  const size_t size = sizeof(RowHandle) + large + 4 * record + 2 * columns;
  uint8_t *block = static_cast<uint8_t *>(mem_alloc(size));
  if (block == nullptr) return fail_null(status::out_of_memory);
  memset(block, 0, size);
  RowHandle *handle = ::new (block) RowHandle();
  handle->table = table;
  handle->large = reinterpret_cast<LargeBuffer *>(block + sizeof(RowHandle));
  handle->record = block + sizeof(RowHandle) + large;
  handle->old_record = handle->record + record;
  handle->null_record = handle->old_record + record;
  handle->states = handle->null_record + record;
  handle->text = reinterpret_cast<char *>(handle->states + columns);
  record_fill_null(*table, handle->null_record);
  return handle;
}

}  // namespace

void record_fill_null(const Table &table, uint8_t *record) {
  for (int i = 0; i < table.column_count; ++i) {
    const Column &column = table.columns[i];
    const Stored stored = store_value(column, ValueMode::null, nullptr, record + column.offset);
    assert(stored == Stored::null);  // every type of a table can be NULL
    (void)stored;
  }
}

RowHandle *row_handle_open(Table *table) {
  if (table == nullptr) return fail_null(status::record_argument);
  RowHandle *handle = table_take_spare(*table);
  if (handle == nullptr) handle = handle_new(table);
  if (handle == nullptr) {
    table_close(table);
    return nullptr;
  }
  row_handle_reset(*handle);
  return handle;
}

void row_handle_close(RowHandle *handle) {
  if (handle == nullptr) return;
  Table *table = handle->table;
  for (int i = 0; i < table->large_count; ++i) {
    LargeBuffer &buffer = handle->large[i];
    if (buffer.capacity <= spare_large_limit) continue;
    mem_free(buffer.data);
    buffer = {};
  }
  if (!table_keep_spare(*table, handle)) row_handle_free(handle);
  table_close(table);
}

void row_handle_free(RowHandle *handle) {
  if (handle == nullptr) return;
  for (int i = 0; i < handle->table->large_count; ++i) mem_free(handle->large[i].data);
  mem_free(handle);
}

void row_handle_reset(RowHandle &handle) {
  row_handle_loaded(handle, 0);
  memset(handle.states, column_unset, static_cast<size_t>(handle.table->column_count));
}

Found row_handle_read(RowHandle &handle, RowNo row) {
  const Found read = row_read(*handle.table->rows, row, handle.record, handle.table->record_size);
  row_handle_loaded(handle, read == Found::yes ? row : 0);
  if (read == Found::failed) err_set(status::record_read);
  return read;
}

Found row_handle_read_since(RowHandle &handle, RowNo row, const RowState &earlier) {
  bool still;
  if (!row_still_slot(*handle.table->rows, row, earlier, &still)) {
    row_handle_loaded(handle, 0);
    return Found::failed;
  }
  if (still) return row_handle_read(handle, row);
  row_handle_loaded(handle, 0);
  return Found::no;
}

Found row_handle_refresh(RowHandle &handle) {
  if (handle.state == row_state(*handle.table->rows)) return Found::yes;
  return row_handle_read_since(handle, handle.row, handle.state);
}

void row_handle_copy(RowHandle &handle, const RowHandle &source) {
  assert(handle.table->id == source.table->id && handle.table->record_size == source.table->record_size);
  row_handle_reset(handle);
  handle.row = source.row;
  const size_t size = static_cast<size_t>(handle.table->record_size);
  handle.state = source.state;
  memcpy(handle.record, source.record, size);
  memcpy(handle.old_record, source.record, size);
}

// ---- setting columns ----

bool row_handle_set(RowHandle &handle, const Column &column, ValueMode mode, const void *source) {
  if (column_is_rowid(column)) return fail(status::rowid_not_assignable);
  uint8_t *stored = handle.record + column.offset;
  uint8_t &state = handle.states[column.number - 1];
  if (mode == ValueMode::null) {
    memcpy(stored, handle.null_record + column.offset, static_cast<size_t>(column.stored_size));
    state = column_null;
    return true;
  }
  if (column_is_large(column)) {
    if (column.type != type::text || mode != ValueMode::text) return fail(status::data_argument);
    const char *text = static_cast<const char *>(source);
    return row_handle_set_large(handle, column, text,
                                text == nullptr ? 0 : static_cast<int32_t>(strlen(text)));
  }
  // An empty text answers null too, but it is a value.
  const Stored result = store_value(column, mode, source, stored);
  state = result == Stored::failed ? column_unset : column_set;
  return result != Stored::failed;
}

bool row_handle_set_large(RowHandle &handle, const Column &column, const void *bytes, int32_t length) {
  if (column_is_rowid(column)) return fail(status::rowid_not_assignable);
  if (!column_is_large(column)) return fail(status::data_argument);
  uint8_t &state = handle.states[column.number - 1];
  state = column_unset;
  if (!large_set(handle, column, bytes, length)) return false;
  state = column_set;
  return true;
}

// ---- reading columns ----

namespace {

Stored character_value(const RowHandle &handle, const Column &column, Value *value) {
  const char *stored = reinterpret_cast<const char *>(handle.record + column.offset);
  if (static_cast<uint8_t>(stored[0]) == null_flag) return Stored::null;
  const void *end = memchr(stored, 0, static_cast<size_t>(column.stored_size));
  if (end != nullptr) {
    value->text = {stored, static_cast<int32_t>(static_cast<const char *>(end) - stored)};
    return Stored::value;
  }
  char *text = handle.text + column.offset + column.number - 1;
  memcpy(text, stored, static_cast<size_t>(column.stored_size));
  text[column.stored_size] = 0;
  value->text = {text, column.stored_size};
  return Stored::value;
}

Stored large_value(RowHandle &handle, const Column &column, Value *value) {
  const Stored stored = large_get(handle, column);
  if (stored != Stored::value) return stored;
  const LargeBuffer &buffer = handle.large[column.large_ordinal - 1];
  value->text = {reinterpret_cast<const char *>(buffer.data), buffer.length};
  return Stored::value;
}

Stored column_value(RowHandle &handle, const Column &column, Value *value) {
  const uint8_t *stored = handle.record + column.offset;
  if ((column.type & TYPE_INTEGER) != 0) {
    const IntegerForm &form = *integer_form(column.type);
    value->type = type::bigint;
    value->integer = load_integer_form(form, stored);
    return integer_form_is_null(form, stored) ? Stored::null : Stored::value;
  }
  if (column.type == type::float64) {
    value->type = type::float64;
    value->real = load_double(stored + 1);
    return stored[0] != null_flag ? Stored::value : Stored::null;
  }
  if (column_is_large(column)) {
    value->type = column.type == type::blob ? type::blob : type::character;
    return large_value(handle, column, value);
  }
  if ((column.type & TYPE_CHARACTER) != 0) {
    value->type = type::character;
    return character_value(handle, column, value);
  }
  if ((column.type & TYPE_DATETIME) != 0) {
    value->type = type::microtimestamp;
    return fetch_value(column, ValueMode::binary, stored, &value->datetime);
  }
  value->type = type::float64;
  return fetch_value(column, ValueMode::binary, stored, &value->real);
}

}  // namespace

bool row_handle_value(RowHandle &handle, const Column &column, Value *value) {
  value->kind = value_kind::computed;
  value->declared = column.type;
  value->flags = 0;
  value->label = nullptr;
  if (column_is_rowid(column)) {
    value->type = type::bigint;
    value->integer = handle.row;
    return true;
  }
  const Stored stored = column_value(handle, column, value);
  if (stored == Stored::null) value->flags = value_null;
  return stored != Stored::failed;
}

}  // namespace tovik
