// Loading rows from a file of comma-separated values (csv.h), a line at a time: memory does not grow with the
// file, but to its longest line.
//
// A first line of nothing but names of the table's columns, each without quotes, is no row: it says in which
// order the values come, where the statement names no columns. Every other line has a value for each column.
#pragma once

#include "data/table/row_handle.h"
#include "data/value/csv.h"
#include "sql/parse/shapes.h"
#include "sql/statement/targets.h"

namespace tovik {

// Inserts every row of the file that source names, through row. A failure in a line tells the line's number,
// which counts line ends inside of values, in the first detail of its statuses that says nothing else, and
// records its first status once more with a text that does. 172008
// with column names and 172005 without them for a line of another number of values, 102, 104, 113001, the
// statuses of setting and inserting.
[[nodiscard]] bool load_rows(MemoryPool &pool, RowHandle &row, const SourceTree &source);

// The values of one line, and the columns they are for.
struct LoadedRow {
  const char *name;  // of the file
  FileReaderHold file;
  CsvReader reader;
  Targets targets;
  Value *values;
  bool named;  // the columns are: by the statement or by the file
};

// The file's only row, into an empty loaded. 172008 or 172005 when it has another number of them.
[[nodiscard]] bool load_only_row(MemoryPool &pool, const Table &table, const SourceTree &source,
                                 LoadedRow &loaded);
[[nodiscard]] bool loaded_row_set(MemoryPool &pool, const LoadedRow &loaded, RowHandle &row);

}  // namespace tovik
