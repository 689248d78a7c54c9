// Descriptors, counters per level and auto-increment values.
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
//
// Cost: an insert changes counters in memory only; bringing them to their records costs one page per changed
// row system and commit.
#include "data/row/row_records.h"

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

RecordRead read_record(StorageManager &sm, RowNo number, uint8_t record[row_record_size]) {
  switch (row_read(*data_systems(sm).system_rows, number, record, row_record_size, nullptr)) {
    case RowRead::active:
      return RecordRead::ok;
    case RowRead::deleted:
      return RecordRead::deleted;
    default:
      return RecordRead::failed;
  }
}

bool write_record(StorageManager &sm, RowNo number, const uint8_t record[row_record_size]) {
  return row_update(*data_systems(sm).system_rows, &number, record, row_record_size);
}

// Outside a transaction no page tells of it before the counters are written.
void autoinc_changed(RowSystem &rows, int level) {
  rows.autoinc_changed[level] = true;
  if (level == 0) rows.sm->direct_changed = true;
}

bool write_changes(RowSystem &rows, int level) {
  uint8_t record[row_record_size];
  if (rows.counters_changed[level]) {
    row_descriptor_encode(rows, level, record);
    if (!write_record(*rows.sm, rows.number, record)) return fail(status::row_counter_write);
    rows.counters_changed[level] = false;
  }
  if (rows.autoinc_changed[level]) {
    row_autoinc_encode(rows, level, record);
    if (!write_record(*rows.sm, rows.autoinc_number, record)) return fail(status::row_counter_write);
    rows.autoinc_changed[level] = false;
  }
  return true;
}

}  // namespace

RecordRead row_descriptor_read(StorageManager &sm, RowNo number, RowDescriptor *descriptor) {
  uint8_t record[row_record_size];
  const RecordRead found = read_record(sm, number, record);
  if (found != RecordRead::ok) return found;
  if (load_u32(record + record_type) == row_type_autoinc) return RecordRead::deleted;
  if (descriptor_decode(record, static_cast<uint32_t>(bm_block_size(*sm.bm)), descriptor))
    return RecordRead::ok;
  err_set(status::row_no_counters);
  return RecordRead::failed;
}

RecordRead row_autoinc_read(StorageManager &sm, RowNo number, RowKind kind, AutoIncrement *values) {
  uint8_t record[row_record_size];
  const RecordRead found = read_record(sm, number, record);
  if (found != RecordRead::ok) return found;
  values->step = load_i32(record + autoinc_step);
  values->init = load_i64(record + autoinc_init);
  values->next = load_i64(record + autoinc_next);
  if (load_u32(record + record_type) == row_type_autoinc &&
      load_u32(record + record_kind) == static_cast<uint32_t>(kind) && values->step >= 1 &&
      values->step <= autoinc_step_limit)
    return RecordRead::ok;
  err_set(status::row_no_counters);
  return RecordRead::failed;
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
  if (!sm_page_get(*system.sm, system_counters_block, row_page_group, page))
    return fail(status::row_system_page);
  const RowCounters counters = load_counters(page.data());
  if (!counters_plausible(system.block_size, system.row_size, counters)) return fail(status::row_no_counters);
  system.counters[0] = counters;
  return true;
}

bool row_system_counters_write(RowSystem &system) {
  const int level = sm_level(*system.sm);
  Page page;
  if (!sm_page_get(*system.sm, system_counters_block, row_page_group, page))
    return fail(status::row_system_page);
  store_counters(page.data(), system.counters[level]);
  if (!sm_page_release_write(page)) return fail(status::row_counter_page_write);
  system.counters_changed[level] = false;
  return true;
}

// The system ROW goes last: nothing that is written here changes the counters of another row system, but a
// descriptor's page must be reached through a chain that the counters in block 2 describe.
bool row_systems_write_counters(StorageManager &sm) {
  const LockGuard guard(sm.lock);
  const int level = sm_level(sm);
  RowSystem &system = *data_systems(sm).system_rows;
  bool system_changed = false;
  const bool written = data_systems(sm).rows.each_touched(level, [&](RowSystem &rows) {
    if (&rows != &system) return !rows.state.visible(level) || write_changes(rows, level);
    system_changed = rows.counters_changed[level];
    return true;
  });
  if (!written || !system_changed) return written;
  return row_system_counters_write(system) || fail(status::row_system_counter_write);
}

AutoIncrement row_autoinc_defaults(int64_t init, int step, int64_t next) {
  AutoIncrement values{init > 0 ? init : 1, next, step > 0 ? step : 1};
  if (values.next <= 0 && next != autoinc_exhausted) values.next = values.init;
  return values;
}

AutoIncrement row_autoinc_get(const RowSystem &rows) {
  return rows.autoinc[handle_level(rows)];
}

bool row_autoinc_set(RowSystem &rows, int64_t init, int step, int64_t next) {
  if (!row_kind_auto(rows.kind)) return fail(status::row_no_auto_increment);
  const int level = row_touch(rows);
  rows.autoinc[level] = row_autoinc_defaults(init, step, next);
  autoinc_changed(rows, level);
  return true;
}

bool row_autoinc_advance(RowSystem &rows) {
  if (!row_kind_auto(rows.kind)) return fail(status::row_no_auto_increment);
  const int level = row_touch(rows);
  AutoIncrement &values = rows.autoinc[level];
  if (values.next == autoinc_exhausted) return fail(status::input_number_range);
  values.next = values.next > INT64_MAX - values.step ? autoinc_exhausted : values.next + values.step;
  autoinc_changed(rows, level);
  return true;
}

}  // namespace tovik
