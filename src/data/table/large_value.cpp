// Value in the record: i32 length, -1 for NULL; u32 first chunk, 0 when every byte fits the record; then the
// first p2 bytes.
#include "data/table/large_value.h"

#include "data/value/stored_form.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr int length_at = 0, chunk_at = 4, head_at = large_reference_size;
constexpr int32_t capacity_step = 256;

struct Reference {
  int32_t length;  // or large_null_length
  RowNo chunk;
};

Reference reference_load(const uint8_t *value) {
  return {load_i32(value + length_at), load_u32(value + chunk_at)};
}

void reference_store(uint8_t *value, Reference reference) {
  store_i32(value + length_at, reference.length);
  store_u32(value + chunk_at, reference.chunk);
}

LargeBuffer &buffer_of(RowHandle &handle, const Column &column) {
  return handle.large[column.large_ordinal - 1];
}

RowSystem &chunks_of(const RowHandle &handle, const Column &column) {
  return *handle.table->large_rows[column.large_ordinal - 1];
}

int32_t smaller(int32_t a, int32_t b) {
  return a < b ? a : b;
}

// Room for needed bytes and a NUL.
bool buffer_grow(LargeBuffer &buffer, int32_t needed) {
  if (needed < buffer.capacity) return true;
  if (needed > INT32_MAX - capacity_step) return fail(status::out_of_memory);
  const int32_t capacity = (needed / capacity_step + 1) * capacity_step;
  void *grown = mem_realloc(buffer.data, static_cast<size_t>(capacity));
  if (grown == nullptr) return fail(status::out_of_memory);
  buffer.data = static_cast<uint8_t *>(grown);
  buffer.capacity = capacity;
  return true;
}

// A value beyond the record has a chunk row that can hold it, any other has none.
bool reference_sound(const RowSystem &chunks, const Column &column, Reference reference) {
  if (reference.length == large_null_length) return true;
  if (reference.length < 0) return false;
  const int64_t tail = static_cast<int64_t>(reference.length) - column.p2;
  if (reference.chunk == 0) return tail <= 0;
  return tail > 0 && tail <= int64_t{row_counters(chunks).total_count} * chunks.row_size;
}

// Does the stored row still have the bytes of the column that the handle has read? Then what its reference
// leads to belongs to them, even if the value was replaced by one of the same head and length meanwhile.
// 44003.
bool reference_stands(RowHandle &handle, const Column &column) {
  RowSystem &rows = *handle.table->rows;
  if (handle.state == row_state(rows)) return true;
  LargeBuffer &stored = buffer_of(handle, column);
  const int32_t size = column.offset + column.stored_size;
  bool same;
  if (!row_still_slot(rows, handle.row, handle.state, &same)) return false;
  if (same) {
    if (!buffer_grow(stored, size)) return false;
    const Found read = row_read(rows, handle.row, stored.data, size);
    if (read == Found::failed) return fail(status::record_read);
    same = read == Found::yes && memcmp(stored.data + column.offset, handle.record + column.offset,
                                        static_cast<size_t>(column.stored_size)) == 0;
  }
  return same || fail(status::large_row_number);
}

}  // namespace

bool large_set(RowHandle &handle, const Column &column, const void *bytes, int32_t length) {
  if (bytes == nullptr || length < 1) return fail(status::large_empty);
  LargeBuffer &buffer = buffer_of(handle, column);
  buffer.row = 0;
  if (!buffer_grow(buffer, length)) return false;
  memcpy(buffer.data, bytes, static_cast<size_t>(length));
  buffer.data[length] = 0;
  buffer.length = length;
  return true;
}

bool large_store(RowHandle &handle, const Column &column) {
  uint8_t *value = handle.record + column.offset;
  if (handle.states[column.number - 1] != column_set) {
    reference_store(value, {large_null_length, 0});
    return true;
  }
  const LargeBuffer &buffer = buffer_of(handle, column);
  Reference reference = {buffer.length, 0};
  const int32_t head = smaller(buffer.length, column.p2);
  if (buffer.length > head &&
      !row_insert(chunks_of(handle, column), buffer.data + head, buffer.length - head, &reference.chunk))
    return fail(handle.row == 0 ? status::large_chunk_insert : status::large_chunk_update);
  reference_store(value, reference);
  memcpy(value + head_at, buffer.data, static_cast<size_t>(head));
  memset(value + head_at + head, 0, static_cast<size_t>(column.p2 - head));
  return true;
}

bool large_free(RowHandle &handle, const Column &column, const uint8_t *record) {
  const Reference reference = reference_load(record + column.offset);
  if (reference.length == large_null_length || reference.chunk == 0) return true;
  return row_delete(chunks_of(handle, column), reference.chunk) == Found::yes ||
         fail(status::large_chunk_delete);
}

bool large_tail_copy(const Column &column, RowSystem &from, RowSystem &to, uint8_t *value,
                     LargeBuffer &buffer) {
  Reference reference = reference_load(value);
  if (!reference_sound(from, column, reference)) return fail(status::large_argument);
  if (reference.length == large_null_length || reference.chunk == 0) return true;
  const int32_t tail = reference.length - column.p2;
  if (!buffer_grow(buffer, tail)) return false;
  if (!row_read_variable(from, reference.chunk, buffer.data, tail)) return fail(status::large_chunk_read);
  if (!row_insert(to, buffer.data, tail, &reference.chunk)) return fail(status::large_chunk_insert);
  reference_store(value, reference);
  return true;
}

Stored large_get(RowHandle &handle, const Column &column) {
  const uint8_t *value = handle.record + column.offset;
  const Reference reference = reference_load(value);
  if (reference.length == large_null_length) return Stored::null;
  LargeBuffer &buffer = buffer_of(handle, column);
  if (buffer.row != 0 && buffer.row == handle.row) return Stored::value;
  buffer.row = 0;
  if (reference.chunk != 0 && !reference_stands(handle, column)) return Stored::failed;
  if (!reference_sound(chunks_of(handle, column), column, reference)) {
    err_set(status::large_argument);
    return Stored::failed;
  }
  if (!buffer_grow(buffer, reference.length)) return Stored::failed;
  const int32_t head = smaller(reference.length, column.p2);
  memcpy(buffer.data, value + head_at, static_cast<size_t>(head));
  if (reference.chunk != 0 && !row_read_variable(chunks_of(handle, column), reference.chunk,
                                                 buffer.data + head, reference.length - head)) {
    err_set(status::large_chunk_read);
    return Stored::failed;
  }
  buffer.data[reference.length] = 0;
  buffer.length = reference.length;
  buffer.row = handle.row;
  return Stored::value;
}

}  // namespace tovik
