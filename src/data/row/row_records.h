// The records that describe a row system on disk: its descriptor and its auto-increment record, both slots of
// the system ROW, and the system ROW's own counters in block 2. Within the data layer's row system only.
#pragma once

#include "data/row/row_system.h"

namespace tovik {

inline constexpr int row_record_size = 40;  // data bytes of a system ROW slot
inline constexpr int system_row_size = row_record_size + 1;
inline constexpr BlockNo system_counters_block = 2;

// A descriptor as it is on disk, checked.
struct RowDescriptor {
  RowKind kind;
  int32_t row_size;
  RowCounters counters;
};

// no: the number names no such record (any more); nothing recorded. failed: 30019 for a record that
// cannot be right, and read failures.
Found row_descriptor_read(StorageManager &sm, RowNo number, RowDescriptor *descriptor);
Found row_autoinc_read(StorageManager &sm, RowNo number, RowKind kind, AutoIncrement *values);

void row_descriptor_encode(const RowSystem &rows, int level, uint8_t record[row_record_size]);
void row_autoinc_encode(const RowSystem &rows, int level, uint8_t record[row_record_size]);

// Gives a new row system its number, and its records their places. A failure leaves none of them behind.
[[nodiscard]] bool row_records_create(RowSystem &rows);

// Into level 0 of the system ROW's handle. 30005, 30019.
[[nodiscard]] bool row_system_counters_read(RowSystem &system);
[[nodiscard]] bool row_system_counters_write(RowSystem &system);  // 30002, 30005

AutoIncrement row_autoinc_defaults(int64_t init, int step, int64_t next);

}  // namespace tovik
