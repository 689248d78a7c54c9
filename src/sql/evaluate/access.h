// One table of a query: its row handle and the way its rows are reached - a full scan, one row by its number,
// or what the planner took from an index: the row of a unique key, or a list of row numbers. Tables of a
// query chain in FROM order.
#pragma once

#include "data/index/row_set.h"
#include "data/table/row_handle.h"
#include "frame/memory_pool.h"

namespace tovik {

enum class AccessPath { scan, rowid, unique_row, row_list };

struct TableAccess {
  RowHandle *handle;  // owned
  const char *alias;  // null without one; in the statement's pool
  AccessPath path;
  RowScan scan;    // scan: its place
  RowNo row;       // rowid, unique_row: the row, 0 when there is none
  RowSet *rows;    // row_list: owned
  int next_row;    // index into rows; rowid, unique_row: 0 before the row, 1 after
  RowState found;  // of the table's rows when the numbers in row, rows or a sort store were found
  TableAccess *next;
};

// Takes over the hold on table (also on failure). The record lives in pool, what it owns does not:
// access_close.
TableAccess *access_open(MemoryPool &pool, Table *table, const char *alias);
void access_close(TableAccess *first);  // the whole chain; null is ignored
using AccessHold = Held<TableAccess, access_close>;

void access_rewind(TableAccess &access);  // before the first row

// What is planned or read from now on is of the table as it is now; a scan, unless another path is planned.
void access_start(TableAccess &access);
// The definition under the access is not the one that the calling thread would find by the table's name.
bool access_outdated(const TableAccess &access);
// The table's rows are still there for the calling thread; its definition may have been replaced.
bool access_stands(const TableAccess &access);
// The table was written since access_start: a row of a known number may be another one now.
bool access_written(const TableAccess &access);
// Reads the next row into the handle. no leaves the access rewound.
Found access_next(TableAccess &access);
int access_count(const TableAccess *first);
// The place of the table with that handle in the chain, from 0; -1 when it is not there.
int access_place(const TableAccess *first, const RowHandle *handle);

void access_pause(TableAccess *first);  // lets go every page held by the chain; the places stay

}  // namespace tovik
