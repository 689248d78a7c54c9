// The file that a query's INTO or DUMP INTO names, written beside the printed result: the printed lines, or
// the values of the rows as csv.h has them, below the labels of their columns when HVI_SQL_SEL_HDR. It is
// new, with the database's FILE_MODE, and goes again unless it was kept: a statement that fails leaves none.
//
// A first line of texts that could be taken for names of columns has them in quotes when it is a row.
#pragma once

#include "data/value/csv.h"
#include "sql/query/query.h"

namespace tovik {

struct ResultFile {
  OutputMode mode;        // none: the query names no file
  FileWriterHold writer;  // with a mode
  bool failed;            // something was not written; its status is recorded
  CsvQuotes quotes;
};

[[nodiscard]] bool result_file_create(ResultFile &file, const Query &query);  // 101, 1
void result_file_print(ResultFile &file, const char *format, ...) __attribute__((format(printf, 2, 3)));
void result_file_header(ResultFile &file, const Query &query);
void result_file_value(ResultFile &file, const Value &value, bool first);
void result_file_line_end(ResultFile &file);
[[nodiscard]] bool result_file_keep(ResultFile &file);  // 105, 107, 103

}  // namespace tovik
