// Rows: insert, update, delete, read, and positions along the stream.
//
// Cost of an insert, an update or a read: one page fetch and, for a change, one release, per page that the
// slot touches; counters change in memory. A deleted slot is reused before a new one is taken, last in, first
// out.
//
// A change that fails leaves counters and rows as they were: whatever can be refused is found out before the
// first byte is written (flags, links, room in the chain, the whole of a variable value's chain).
#include <algorithm>

#include "data/row/data_systems.h"
#include "data/row/row_slots.h"
#include "frame/error.h"

namespace tovik {

namespace {

bool insert_new(RowSystem &rows, int level, const SlotImage &image, RowNo *row) {
  RowCounters &counters = rows.counters[level];
  SlotCursor at;
  RowNo next = 0;
  if (!row_reserve(rows, level, 1)) return false;
  if (!slot_seek(rows, counters.new_offset, at)) return false;
  if (slot_flag(at) != slot_unused) return fail(status::row_flag);
  if (!slot_store(rows, at, image, &next)) return false;
  *row = counters.new_offset;
  counters.new_offset = next;
  ++counters.total_count;
  rows.counters_changed[level] = true;
  return true;
}

bool insert_reused(RowSystem &rows, int level, const SlotImage &image, RowNo *row) {
  RowCounters &counters = rows.counters[level];
  SlotCursor at;
  RowNo link = 0;
  if (!slot_seek(rows, counters.free_list, at)) return false;
  if (slot_flag(at) != slot_deleted) return fail(status::row_flag);
  if (!slot_read_link(rows, at, &link)) return false;
  if (!slot_seek(rows, counters.free_list, at)) return false;
  if (!slot_store(rows, at, image, nullptr)) return false;
  *row = counters.free_list;
  counters.free_list = link;
  --counters.free_count;
  rows.counters_changed[level] = true;
  return true;
}

bool insert_slot(RowSystem &rows, int level, const SlotImage &image, RowNo *row) {
  const RowCounters &counters = rows.counters[level];
  const bool reuse = counters.free_count > 0 && counters.free_list != 0;
  return reuse ? insert_reused(rows, level, image, row) : insert_new(rows, level, image, row);
}

// Puts the slot at row, known to be active, on the free list.
bool free_slot(RowSystem &rows, int level, RowNo row, SlotCursor &at) {
  RowCounters &counters = rows.counters[level];
  if (counters.free_count >= counters.total_count) return fail(status::row_delete);
  if (!slot_seek(rows, row, at)) return false;
  if (!slot_store(rows, at, slot_image_linked(slot_deleted, counters.free_list, nullptr, 0), nullptr))
    return false;
  counters.free_list = row;
  ++counters.free_count;
  rows.counters_changed[level] = true;
  return true;
}

// Follows the links from row to the end and counts the pieces; nothing is changed before this is right.
bool chain_count(RowSystem &rows, int level, RowNo row, uint32_t *count) {
  const RowCounters &counters = rows.counters[level];
  const uint32_t active = counters.total_count - counters.free_count;
  SlotCursor at;
  for (*count = 0; row != 0; ++*count) {
    if (*count == active) return fail(status::row_variable_piece);
    if (!slot_seek(rows, row, at)) return false;
    if (slot_flag(at) != slot_active)
      return fail(*count == 0 ? status::row_flag : status::row_variable_piece);
    if (!slot_read_link(rows, at, &row)) return false;
  }
  return true;
}

bool pieces_delete(RowSystem &rows, int level, RowNo row) {
  while (row != 0) {
    SlotCursor at;
    RowNo next = 0;
    if (!slot_seek(rows, row, at)) return false;
    if (slot_flag(at) != slot_active) return fail(status::row_variable_piece);
    if (!slot_read_link(rows, at, &next)) return false;
    if (!free_slot(rows, level, row, at)) return false;
    row = next;
  }
  return true;
}

// Deletes the pieces of a chain that was found right, in its order.
bool chain_delete(RowSystem &rows, int level, RowNo row) {
  if (pieces_delete(rows, level, row)) return true;
  data_torn(*rows.sm);
  return false;
}

int64_t piece_count(const RowSystem &rows, int length) {
  return (int64_t{length} + slot_data_size(rows) - 1) / slot_data_size(rows);
}

// Room for a value of length bytes when freed more slots will be on the free list by then.
bool chain_reserve(RowSystem &rows, int level, int length, uint32_t freed) {
  const RowCounters &counters = rows.counters[level];
  const int64_t missing = piece_count(rows, length) - counters.free_count - freed;
  return missing <= 0 || row_reserve(rows, level, missing);
}

// The last piece first, so that each piece knows the number of the one behind it.
bool chain_insert(RowSystem &rows, int level, const uint8_t *data, int length, RowNo *row) {
  const int size = slot_data_size(rows);
  RowNo following = 0;
  for (int64_t piece = piece_count(rows, length) - 1; piece >= 0; --piece) {
    const int64_t from = piece * size;
    const int count = static_cast<int>(std::min<int64_t>(size, length - from));
    const SlotImage image = slot_image_linked(slot_active, following, data + from, count);
    if (!insert_slot(rows, level, image, &following)) {
      const ErrorScope keep;
      (void)chain_delete(rows, level, following);
      return false;
    }
  }
  *row = following;
  return true;
}

bool insert_variable(RowSystem &rows, int level, const void *data, int length, RowNo *row) {
  if (length <= 0) return fail(status::row_length);
  return (chain_reserve(rows, level, length, 0) &&
          chain_insert(rows, level, static_cast<const uint8_t *>(data), length, row)) ||
         fail(status::row_variable_insert);
}

bool update_variable(RowSystem &rows, int level, RowNo *row, const void *data, int length) {
  uint32_t count = 0;
  if (length <= 0) return fail(status::row_length);
  if (!chain_count(rows, level, *row, &count)) return fail(status::row_delete);
  if (!chain_reserve(rows, level, length, count)) return fail(status::row_variable_insert);
  if (!chain_delete(rows, level, *row)) return fail(status::row_delete);
  if (chain_insert(rows, level, static_cast<const uint8_t *>(data), length, row)) return true;
  data_torn(*rows.sm);
  return fail(status::row_variable_insert);
}

bool update_fixed(RowSystem &rows, RowNo row, const void *data, int length) {
  SlotCursor at;
  if (length != rows.row_size - slot_link) return fail(status::row_length);
  if (!slot_seek(rows, row, at)) return false;
  if (slot_flag(at) != slot_active) return fail(status::row_flag);
  return slot_store(rows, at, slot_image(slot_active, data, length), nullptr);
}

// Moves one slot along the stream from row; 0 where the stream ends.
bool position_behind(RowSystem &rows, SlotCursor &at, int count, RowNo *next) {
  *next = 0;
  while (at.offset + static_cast<uint32_t>(count) >= rows.block_size) {
    if (load_u32(at.page.data() + row_page_next) == 0) return true;
    count -= static_cast<int>(rows.block_size - at.offset);
    at.offset = rows.block_size;
    if (!slot_enter_page(rows, at)) return false;
  }
  *next = slot_number(rows, at) + static_cast<uint32_t>(count);
  return true;
}

}  // namespace

bool row_insert(RowSystem &rows, const void *data, int length, RowNo *row) {
  const int level = row_content_changes(rows);
  if (data == nullptr) return fail(status::row_argument);
  if (row_kind_variable(rows.kind)) return insert_variable(rows, level, data, length, row);
  if (length != rows.row_size - slot_link) return fail(status::row_length);
  return insert_slot(rows, level, slot_image(slot_active, data, length), row);
}

bool row_insert_new(RowSystem &rows, const void *data, int length, RowNo *row) {
  if (data == nullptr) return fail(status::row_argument);
  if (length != rows.row_size - slot_link) return fail(status::row_length);
  return insert_new(rows, row_content_changes(rows), slot_image(slot_active, data, length), row);
}

bool row_update(RowSystem &rows, RowNo *row, const void *data, int length) {
  if (data == nullptr) return fail(status::row_argument);
  if (*row == 0) return fail(status::row_number_null);
  const int level = row_content_changes(rows);
  if (!row_kind_variable(rows.kind)) return update_fixed(rows, *row, data, length);
  return update_variable(rows, level, row, data, length);
}

Found row_delete(RowSystem &rows, RowNo row) {
  const int level = row_content_changes(rows);
  SlotCursor at;
  if (row_kind_variable(rows.kind)) {
    uint32_t count = 0;
    if (row != 0 && chain_count(rows, level, row, &count) && chain_delete(rows, level, row))
      return Found::yes;
    return fail_found(status::row_delete);
  }
  if (!slot_seek(rows, row, at)) return Found::failed;
  if (slot_flag(at) == slot_deleted) return Found::no;
  if (slot_flag(at) != slot_active) return fail_found(status::row_flag);
  return free_slot(rows, level, row, at) ? Found::yes : Found::failed;
}

Found row_read(RowSystem &rows, RowNo row, void *buffer, int length) {
  SlotCursor at;
  if (length < 0 || length > slot_data_size(rows)) return fail_found(status::row_length);
  if (!slot_seek(rows, row, at)) return Found::failed;
  const uint8_t flag = slot_flag(at);
  if (flag != slot_active && (flag != slot_deleted || row_kind_variable(rows.kind)))
    return fail_found(status::row_flag);
  if (!slot_read(rows, at, nullptr, slot_data_offset(rows))) return Found::failed;
  if (!slot_read(rows, at, flag == slot_active ? buffer : nullptr, length)) return Found::failed;
  return flag == slot_active ? Found::yes : Found::no;
}

RowState row_state(const RowSystem &rows) {
  return {row_counters(rows).version, data_systems(*rows.sm).chain_cuts};
}

bool row_read_variable(RowSystem &rows, RowNo row, void *buffer, int length) {
  uint8_t *target = static_cast<uint8_t *>(buffer);
  if (length < 0 || !row_kind_variable(rows.kind)) return fail(status::row_length);
  if (piece_count(rows, length) > row_active_count(rows)) return fail(status::row_get);
  SlotCursor at;
  while (length > 0) {
    RowNo link = 0;
    const int count = std::min(length, slot_data_size(rows));
    if (row == 0) return fail(status::row_get);
    if (!slot_seek(rows, row, at)) return false;
    if (slot_flag(at) != slot_active) return fail(status::row_variable_piece);
    if (!slot_read_link(rows, at, &link) || !slot_read(rows, at, target, count)) return false;
    row = link;
    target += count;
    length -= count;
  }
  return true;
}

bool row_previous(RowSystem &rows, RowNo row, RowNo *previous) {
  const RowCounters &counters = row_counters(rows);
  if (row == row_position(rows, RowPosition::first)) {
    *previous = 1;
    return true;
  }
  SlotCursor at;
  uint32_t back = static_cast<uint32_t>(rows.row_size);
  if (!slot_seek(rows, row, at)) return fail(status::row_previous);
  while (at.offset - row_page_stream < back) {
    back -= at.offset - row_page_stream;
    const uint32_t block = static_cast<uint32_t>(at.page.block());
    const uint32_t link = load_u32(at.page.data() + row_page_previous);
    if (block == counters.page_top || !row_block_addressable(rows.block_size, link))
      return fail(status::row_previous_page);
    if (!slot_seek(rows, link * rows.block_size + row_page_stream, at)) return fail(status::row_previous);
    if (load_u32(at.page.data() + row_page_next) != block) return fail(status::row_previous_page);
    at.offset = rows.block_size;
  }
  at.offset -= back;
  *previous = slot_number(rows, at);
  return true;
}

RowNo row_position(RowSystem &rows, RowPosition which) {
  const RowCounters &counters = row_counters(rows);
  RowNo last = 0;
  switch (which) {
    case RowPosition::first:
      return counters.page_top * rows.block_size + row_page_stream;
    case RowPosition::last:
      return counters.total_count > 0 && row_previous(rows, counters.new_offset, &last) ? last : 0;
    case RowPosition::new_offset:
      return counters.new_offset;
    case RowPosition::free_head:
      return counters.free_list;
    case RowPosition::insert:
      return counters.free_count > 0 && counters.free_list != 0 ? counters.free_list : counters.new_offset;
  }
  return 0;
}

bool row_next_position(RowSystem &rows, RowNo row, RowNo *next) {
  SlotCursor at;
  return slot_seek(rows, row, at) && position_behind(rows, at, rows.row_size, next);
}

}  // namespace tovik
