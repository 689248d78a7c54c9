// One table of a query: its row handle and the way its rows are reached - a full scan, one row by its number,
// or what the planner took from an index: the row of a unique key, or a list of row numbers. Tables of a
// query chain in FROM order.
#pragma once

#include "data/memory_pool.h"
#include "data/row_handle.h"
#include "data/row_set.h"

namespace tovik {

enum class AccessPath { scan, rowid, unique_row, row_list };

struct TableAccess {
  RowHandle *handle;  // owned
  const char *alias;  // null without one; in the statement's pool
  AccessPath path;
  RowScan scan;  // scan: its place
  RowNo row;     // rowid, unique_row: the row, 0 when there is none
  RowSet *rows;  // row_list: owned
  int next_row;  // index into rows; rowid, unique_row: 0 before the row, 1 after
  TableAccess *next;
};

// Takes over the hold on table (also on failure). The record lives in pool, what it owns does not:
// access_close.
TableAccess *access_open(MemoryPool &pool, Table *table, const char *alias);
void access_close(TableAccess *first);  // the whole chain; null is ignored
using AccessHold = Held<TableAccess, access_close>;

void access_rewind(TableAccess &access);  // before the first row
// Reads the next row into the handle. end leaves the access rewound.
[[nodiscard]] RowFetch access_next(TableAccess &access);
void access_pause(TableAccess *first);  // lets go every page held by the chain; the places stay

}  // namespace tovik
