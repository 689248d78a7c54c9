// Comma-separated values (RFC 4180) as files hold them: one row a line, which ends with CR LF, or LF alone
// when it is read, and goes on inside quotes. Bytes are taken as they are: in none of the character sets is a
// comma, a quote or a line end part of another character, and broken characters pass unharmed.
//
//   NULL          nothing                a text        as it is, in quotes where it needs them
//   empty text    ""                     a number      so that it reads back as the same number
//   blob          hexadecimal digits     a date        digits, as its type shows it
#pragma once

#include "data/value/value.h"
#include "platform/array.h"
#include "platform/found.h"
#include "storage/io/user_file.h"

namespace tovik {

enum class CsvQuotes { needed, always };  // around texts; always around the empty one

// Statuses of file_writer_put, and of dates that have no text form.
[[nodiscard]] bool csv_write_text(FileWriter &file, const TextRef &text, CsvQuotes quotes);
[[nodiscard]] bool csv_write_value(FileWriter &file, const Value &value, CsvQuotes quotes);
[[nodiscard]] bool csv_write_comma(FileWriter &file);
[[nodiscard]] bool csv_write_line_end(FileWriter &file);

struct CsvField {
  int32_t at;      // in the reader's bytes
  int32_t length;  // bytes, before a NUL
  bool quoted;     // empty without quotes is NULL
};

// Its memory grows to the longest row.
struct CsvReader {
  FileReader *file;
  int field_limit;  // values of a row that are kept, and one more to tell that there are more
  int32_t line;     // at which the row begins, from 1
  int32_t lines;    // that are read
  bool failed;
  Array<char> bytes;
  Array<CsvField> fields;
};

// The next row into bytes and fields. 113001 for one that is no row: a quote inside of a value or behind one,
// or one that is not closed; 104, 1.
[[nodiscard]] Found csv_read(CsvReader &reader);

// The value that a column of this type takes from a field of the row last read: NULL, a text, or the bytes of
// a blob, which take the place of their digits. Where no empty text can be, "" is NULL, as '' is in a
// statement. 113013; 113001 when a zero byte would end the text.
[[nodiscard]] bool csv_value(CsvReader &reader, const CsvField &field, TypeCode column, Value *value);

}  // namespace tovik
