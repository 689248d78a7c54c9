// The records of row systems as they lie in the system ROW, and their places there.
//
// Counters (28 bytes, seven unsigned 32-bit values): page top, page last, page count, new offset, free list,
// total count, free count.
//
// Descriptor record                              Auto-increment record (the slot behind the descriptor)
//   offset  size  field                            offset  size  field
//   0       4     row type: 0                      0       4     row type: 3
//   4       4     kind                             4       4     kind of the row system
//   8       4     row size                         8       4     zero
//   12      28    counters                         12      4     step
//                                                  16      4     zero
// Block 2                                          20      8     init
//   offset  size  field                            28      8     next
//   0       28    counters of the system ROW       36      4     zero
#include "data/row/row_records.h"

#include <cassert>
#include <iterator>

#include "data/row/data_systems.h"
#include "data/row/row_slots.h"
#include "frame/error.h"

namespace tovik {

namespace {

constexpr uint32_t row_type_descriptor = 0;
constexpr uint32_t row_type_autoinc = 3;
constexpr int record_type = 0;
constexpr int record_kind = 4;
constexpr int descriptor_row_size = 8;
constexpr int descriptor_counters = 12;
constexpr int autoinc_step = 12;
constexpr int autoinc_init = 20;
constexpr int autoinc_next = 28;

constexpr uint32_t RowCounters::*counter_fields[] = {
    &RowCounters::page_top,  &RowCounters::page_last,   &RowCounters::page_count, &RowCounters::new_offset,
    &RowCounters::free_list, &RowCounters::total_count, &RowCounters::free_count};
static_assert(descriptor_counters + 4 * std::size(counter_fields) == row_record_size);

void store_counters(uint8_t *at, const RowCounters &counters) {
  for (auto field : counter_fields) {
    store_u32(at, counters.*field);
    at += 4;
  }
}

RowCounters load_counters(const uint8_t *at) {
  RowCounters counters{};
  for (auto field : counter_fields) {
    counters.*field = load_u32(at);
    at += 4;
  }
  return counters;
}

// Could rows of row_size have these counters? The new offset is tied to the slot count, and the chain to
// both.
bool counters_plausible(uint32_t block_size, int64_t row_size, const RowCounters &counters) {
  const int64_t per_page = block_size - row_page_stream;
  const int64_t stream = counters.total_count * row_size;
  return row_block_addressable(block_size, counters.page_top) &&
         row_block_addressable(block_size, counters.page_last) &&
         row_block_addressable(block_size, counters.page_count) &&
         counters.free_count <= counters.total_count &&
         (counters.free_list == 0 || row_number_plausible(block_size, counters.free_list)) &&
         row_number_plausible(block_size, counters.new_offset) &&
         counters.new_offset % block_size == row_page_stream + stream % per_page &&
         stream / per_page < counters.page_count;
}

bool descriptor_decode(const uint8_t *record, uint32_t block_size, RowDescriptor *descriptor) {
  const uint32_t kind = load_u32(record + record_kind);
  if (load_u32(record + record_type) != row_type_descriptor) return false;
  if (kind < static_cast<uint32_t>(RowKind::fixed) || kind > static_cast<uint32_t>(RowKind::variable_auto))
    return false;
  descriptor->kind = static_cast<RowKind>(kind);
  descriptor->row_size = load_i32(record + descriptor_row_size);
  descriptor->counters = load_counters(record + descriptor_counters);
  const int smallest = slot_link + slot_link_size + (row_kind_variable(descriptor->kind) ? 1 : 0);
  return descriptor->row_size >= smallest &&
         counters_plausible(block_size, descriptor->row_size, descriptor->counters);
}

Found read_record(StorageManager &sm, RowNo number, uint8_t record[row_record_size]) {
  return row_read(*data_systems(sm).system_rows, number, record, row_record_size);
}

}  // namespace

Found row_descriptor_read(StorageManager &sm, RowNo number, RowDescriptor *descriptor) {
  uint8_t record[row_record_size];
  const Found found = read_record(sm, number, record);
  if (found != Found::yes) return found;
  if (load_u32(record + record_type) == row_type_autoinc) return Found::no;
  if (descriptor_decode(record, static_cast<uint32_t>(bm_block_size(*sm.bm)), descriptor)) return Found::yes;
  return fail_found(status::row_no_counters);
}

Found row_autoinc_read(StorageManager &sm, RowNo number, RowKind kind, AutoIncrement *values) {
  uint8_t record[row_record_size];
  const Found found = read_record(sm, number, record);
  if (found != Found::yes) return found;
  values->step = load_i32(record + autoinc_step);
  values->init = load_i64(record + autoinc_init);
  values->next = load_i64(record + autoinc_next);
  if (load_u32(record + record_type) == row_type_autoinc &&
      load_u32(record + record_kind) == static_cast<uint32_t>(kind) && values->step >= 1 &&
      values->step <= autoinc_step_limit)
    return Found::yes;
  return fail_found(status::row_no_counters);
}

void row_descriptor_encode(const RowSystem &rows, int level, uint8_t record[row_record_size]) {
  store_u32(record + record_type, row_type_descriptor);
  store_u32(record + record_kind, static_cast<uint32_t>(rows.kind));
  store_i32(record + descriptor_row_size, rows.row_size);
  store_counters(record + descriptor_counters, rows.counters[level]);
}

void row_autoinc_encode(const RowSystem &rows, int level, uint8_t record[row_record_size]) {
  memset(record, 0, row_record_size);
  store_u32(record + record_type, row_type_autoinc);
  store_u32(record + record_kind, static_cast<uint32_t>(rows.kind));
  store_i32(record + autoinc_step, rows.autoinc[level].step);
  store_i64(record + autoinc_init, rows.autoinc[level].init);
  store_i64(record + autoinc_next, rows.autoinc[level].next);
}

bool row_system_counters_read(RowSystem &system) {
  Page page;
  if (!sm_page_get(*system.sm, system_counters_block, page)) return fail(status::row_system_page);
  const RowCounters counters = load_counters(page.data());
  if (!counters_plausible(system.block_size, system.row_size, counters)) return fail(status::row_no_counters);
  system.counters[0] = counters;
  return true;
}

bool row_system_counters_write(RowSystem &system) {
  const int level = sm_level(*system.sm);
  Page page;
  if (!sm_page_get(*system.sm, system_counters_block, page)) return fail(status::row_system_page);
  store_counters(page.data(), system.counters[level]);
  if (!sm_page_release_write(page)) return fail(status::row_counter_page_write);
  system.counters_changed[level] = false;
  return true;
}

// ---- the places of new records ----

namespace {

constexpr int pair_attempts = 256;  // further inserts until two descriptor slots are neighbours
constexpr int pair_fresh = 3;       // slots never used among which two are neighbours: a page may end between

// The slots tried for the records of a new row system.
struct RecordSlots {
  RowNo rows[pair_attempts + 1 + pair_fresh];
  int count;
};

// Inserts one more slot and looks for its neighbour: *lower is the index of the lower of the two, -1 for
// none. When the attempts are used up the free slots lie apart from each other, and new ones are taken.
bool record_slot_add(RowSystem &system, RecordSlots &slots, const uint8_t *record, int *lower) {
  *lower = -1;
  RowNo row = 0;
  const auto insert = slots.count <= pair_attempts ? row_insert : row_insert_new;
  if (!insert(system, record, row_record_size, &row)) return false;
  const int newest = slots.count++;
  slots.rows[newest] = row;
  for (int index = 0; index < newest; ++index) {
    if (slots.rows[index] + system_row_size == row) *lower = index;
    if (row + system_row_size == slots.rows[index]) *lower = newest;
  }
  return true;
}

bool record_slots_delete(RowSystem &system, const RecordSlots &slots, RowNo keep_from, RowNo keep_to) {
  for (int index = 0; index < slots.count; ++index) {
    const RowNo row = slots.rows[index];
    if (row >= keep_from && row <= keep_to) continue;
    if (row_delete(system, row) == Found::failed) return false;
  }
  return true;
}

bool place_records(RowSystem &rows, RecordSlots &slots) {
  RowSystem &system = *data_systems(*rows.sm).system_rows;
  const bool pair = row_kind_auto(rows.kind);
  uint8_t record[row_record_size];
  row_descriptor_encode(rows, 0, record);
  int lower = -1;
  do {
    assert(slots.count < static_cast<int>(std::size(slots.rows)));
    if (!record_slot_add(system, slots, record, &lower)) return false;
  } while (pair && lower < 0);
  rows.number = slots.rows[pair ? lower : 0];
  if (!pair) return true;
  rows.autoinc_number = rows.number + system_row_size;
  if (!record_slots_delete(system, slots, rows.number, rows.autoinc_number)) return false;
  row_autoinc_encode(rows, 0, record);
  RowNo target = rows.autoinc_number;
  return row_update(system, &target, record, row_record_size);
}

}  // namespace

bool row_records_create(RowSystem &rows) {
  RecordSlots slots{};
  if (place_records(rows, slots)) return true;
  const ErrorScope keep;
  for (int index = 0; index < slots.count; ++index)
    (void)row_delete(*data_systems(*rows.sm).system_rows, slots.rows[index]);
  return false;
}

}  // namespace tovik
