// The row handle: the record of one row of one table, with one state byte per column, through which rows are
// built, read, inserted, updated and deleted. It enforces NOT NULL, uniqueness and auto-increment and keeps
// every index of the table in step. Reading a row copies its record once; column values are then decoded from
// that copy.
//
// Nothing is allocated per row once the buffers of large values have grown, and nothing to open a handle of a
// table that had one before: its definition keeps closed handles. A handle belongs to one thread.
#pragma once

#include "data/table/table.h"
#include "data/value/value.h"

namespace tovik {

inline constexpr uint8_t column_unset = 0xFF;
inline constexpr uint8_t column_null = 0;
inline constexpr uint8_t column_set = 1;

struct LargeBuffer {
  uint8_t *data;   // text: followed by a NUL
  int32_t length;  // bytes
  int32_t capacity;
  RowNo row;  // the row whose value is loaded, 0 when none
};

struct RowHandle {
  Table *table;          // held
  RowNo row;             // identity of the stored row, 0 when none
  RowState state;        // of the table's rows when the row was read
  uint8_t *record;       // record_size bytes: the row being built, or the row read
  uint8_t *old_record;   // of a copied row: as stored before the update
  uint8_t *null_record;  // every column NULL
  uint8_t *states;       // column_count
  LargeBuffer *large;    // large_count
  char *text;            // character values that fill their column, with a NUL, each at a place of its own
};

// Takes over the hold on table; row_handle_close gives it back. 43001, 1.
RowHandle *row_handle_open(Table *table);
void row_handle_close(RowHandle *handle);
void row_handle_free(RowHandle *handle);  // for the table definition: a spare one; null is ignored
using RowHandleHold = Held<RowHandle, row_handle_close>;

void row_handle_reset(RowHandle &handle);  // every column unset, no row: ready to build a new one

// A record in which every column is NULL: record_size bytes, zero before.
void record_fill_null(const Table &table, uint8_t *record);

// Gives the auto-increment column of record the counter's next number and moves the counter on. 113002.
[[nodiscard]] bool record_number(const Table &table, uint8_t *record);

// Reads row. no: the slot is deleted (nothing recorded). 43011.
Found row_handle_read(RowHandle &handle, RowNo row);
// Reads row, whose number was found in an earlier state of the table.
Found row_handle_read_since(RowHandle &handle, RowNo row, const RowState &earlier);
// Reads the row again if the table was written since.
Found row_handle_refresh(RowHandle &handle);

// The caller has filled record with the bytes of row, as a scan delivers them.
inline void row_handle_loaded(RowHandle &handle, RowNo row) {
  handle.row = row;
  handle.state = row_state(*handle.table->rows);
  for (int i = 0; i < handle.table->large_count; ++i) handle.large[i].row = 0;
}

// Takes over the row that source has read, all columns unset: ready to be changed and written back.
void row_handle_copy(RowHandle &handle, const RowHandle &source);

// Sets one column. mode null sets NULL. text and binary: source in that form; a blob column, and a text
// column in mode binary, take their values through row_handle_set_large instead. After a failure the column
// is as if it had not been set. 142010 for rowid, 113xxx.
[[nodiscard]] bool row_handle_set(RowHandle &handle, const Column &column, ValueMode mode,
                                  const void *source);
[[nodiscard]] bool row_handle_set_large(RowHandle &handle, const Column &column, const void *bytes,
                                        int32_t length);  // 144001, 1

// The value of a column of the row as it was read, whatever has become of it since; of a large value that has
// changed since nothing is left to deliver: 44003. NULL (value_null set), or bigint, float64, character (text
// points into the handle's record or buffer and stays valid until the next read) or microtimestamp. A blob
// gives its bytes. rowid gives the row number.
[[nodiscard]] bool row_handle_value(RowHandle &handle, const Column &column, Value *value);

// Writes. The statuses of a row: 143001, 143002, 43002 to 43009, 43014, 43015, 43020; 43001 when the table's
// definition has been changed since the handle was opened. A failed write leaves row, indices and counters
// agreeing with each other.
[[nodiscard]] bool row_handle_insert(RowHandle &handle);  // row is 0 after it when nothing was set
[[nodiscard]] bool row_handle_update(RowHandle &handle);  // of a copied row
[[nodiscard]] bool row_handle_delete(RowHandle &handle);  // of a row read

}  // namespace tovik
