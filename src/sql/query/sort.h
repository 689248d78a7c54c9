// Sorting of result rows: the temporary in-memory store into which rows are copied before they are sorted,
// made distinct or grouped. Row entries and values live in one area of HVI_TMP_BUF_SIZE bytes, taken when the
// store is opened; exhausting it fails the statement with 143101. Of rows that are made distinct or grouped
// only the first of each set takes room.
#pragma once

#include "data/row/row_system.h"
#include "data/value/value.h"
#include "platform/array.h"

namespace tovik {

enum class SortDirection : int { ascending = 0, descending = 1 };

struct SortColumn {
  TypeCode type;
  int16_t p1;
};

struct SortSlot {
  SortColumn column;
  int32_t offset;  // of its slot in a row
  int32_t size;    // of a value that lies in the slot; 0: the slot tells where it lies
};

inline constexpr int order_key_limit = 8;

struct OrderKey {
  ColumnRef column;
  SortDirection direction;
};

// Appends a key. 161001: its column is a key already.
[[nodiscard]] bool sort_add_key(OrderKey *keys, int *count, const OrderKey &key);

struct SortStore {
  Array<SortSlot> columns;
  int32_t head_size;  // of what a row begins with: row numbers, or the state of a group
  int32_t unit;       // places in the area are multiples of it
  int32_t nulls;      // offset of the bits in a row that tell NULL values
  int32_t row_size;
  uint8_t *area;
  int32_t area_size, area_used;
  bool exhausted;          // a row found no room
  Array<uint32_t> rows;    // offsets in the area
  Array<uint32_t> places;  // of distinct rows by their hash: index in rows and 1, 0 for none
};

// Its rows begin with the row numbers of so many tables. 1.
SortStore *sort_store_create(const SortColumn *columns, int column_count, int position_count);
// Its rows are groups: each begins with a state of that size, aligned for any type, which is the caller's. 1.
SortStore *sort_store_create_groups(const SortColumn *columns, int column_count, int32_t state_size);
void sort_store_destroy(SortStore *store);

// Copies one row: values in exchange form (binary: 32-bit length and bytes), null for NULL. 143101, 1.
[[nodiscard]] bool sort_store_row(SortStore &store, const void *const *values, const RowNo *positions);

// The same, unless a row that is equal in all columns (NULL equals NULL) is there. Only for a store without
// positions all of whose rows come this way.
[[nodiscard]] bool sort_store_distinct(SortStore &store, const void *const *values);

// The group that is equal in all columns; when there is none, a new one with a copy of start as its state.
[[nodiscard]] bool sort_store_group(SortStore &store, const void *const *values, const void *start,
                                    int *group);

// Sorts by the first count columns of the store in order; NULL is lowest. 61001.
[[nodiscard]] bool sort_execute(SortStore &store, const SortDirection *directions, int count);

// The exchange form of a value, at any address, or null for NULL.
const void *sort_value(const SortStore &store, int row, int column);
RowNo sort_position(const SortStore &store, int row, int table);
void *sort_state(SortStore &store, int group);

}  // namespace tovik
