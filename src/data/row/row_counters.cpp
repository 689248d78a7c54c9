// Counters per level and auto-increment values, and how the changed ones reach their records.
//
// Cost: an insert changes counters in memory only; bringing them to their records costs one page per changed
// row system and commit.
#include "data/row/data_systems.h"
#include "data/row/row_records.h"
#include "frame/error.h"

namespace tovik {

namespace {

// Outside a transaction no page tells of it before the counters are written.
void autoinc_changed(RowSystem &rows, int level) {
  rows.autoinc_changed[level] = true;
  if (level == 0) rows.sm->direct_changed = true;
}

bool record_write(const RowSystem &rows, RowNo number, const uint8_t record[row_record_size]) {
  return row_update(*data_systems(*rows.sm).system_rows, &number, record, row_record_size);
}

bool write_changes(RowSystem &rows, int level) {
  uint8_t record[row_record_size];
  if (rows.counters_changed[level]) {
    row_descriptor_encode(rows, level, record);
    if (!record_write(rows, rows.number, record)) return fail(status::row_counter_write);
    rows.counters_changed[level] = false;
  }
  if (rows.autoinc_changed[level]) {
    row_autoinc_encode(rows, level, record);
    if (!record_write(rows, rows.autoinc_number, record)) return fail(status::row_counter_write);
    rows.autoinc_changed[level] = false;
  }
  return true;
}

}  // namespace

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
