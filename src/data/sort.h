// Sorting of result rows: the key list of ORDER BY, and the temporary in-memory store into which rows are
// copied before they are sorted or made distinct. Row entries and values live in one area of HVI_TMP_BUF_SIZE
// bytes, taken when the store is opened; exhausting it fails the statement with 143101.
#pragma once

#include "data/row_system.h"
#include "data/types.h"
#include "platform/array.h"

namespace tovik {

enum class SortDirection : int { ascending = 0, descending = 1 };

struct SortKey {
  const void *table;  // identity of the table or result that the column belongs to
  int column;         // column number in it
  SortDirection direction;
};

struct SortKeyList {
  Array<SortKey> keys;
};

[[nodiscard]] bool sort_add_key(SortKeyList &list, const void *table, int column,
                                SortDirection direction);  // 161001, 1

struct SortColumn {
  TypeCode type;
  int16_t p1;
};

struct SortRow {
  const void **values;     // exchange forms in the area, null for NULL
  const RowNo *positions;  // one per table of the query, or null
};

struct SortStore {
  Array<SortColumn> columns;
  int position_count;
  uint8_t *area;
  int32_t area_size, area_used;
  Array<SortRow *> rows;
};

SortStore *sort_store_create(const SortColumn *columns, int column_count, int position_count);  // 1
void sort_store_destroy(SortStore *store);

// Copies one row: values in exchange form (binary: 32-bit length and bytes), null for NULL. 143101, 1.
[[nodiscard]] bool sort_store_row(SortStore &store, const void *const *values, const RowNo *positions);

// Sorts by the first count columns of the store in order; NULL is lowest. 61001.
[[nodiscard]] bool sort_execute(SortStore &store, const SortDirection *directions, int count);

// Keeps the first of each set of rows equal in all columns (NULL equals NULL), in the order of first
// occurrence.
[[nodiscard]] bool sort_remove_duplicates(SortStore &store);

}  // namespace tovik
