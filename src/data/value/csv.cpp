#include "data/value/csv.h"

#include <algorithm>
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/literal.h"
#include "data/value/number_text.h"

namespace tovik {

namespace {

constexpr int no_byte = -1;
constexpr int row_limit = INT32_MAX / 2;  // bytes of a row that is read

bool is_special(char c) {
  return c == ',' || c == '"' || c == '\r' || c == '\n';
}

// ---- writing ----

bool put(FileWriter &file, const char *text) {
  return file_writer_put(file, text, static_cast<int64_t>(strlen(text)));
}

bool write_hex(FileWriter &file, const TextRef &bytes) {
  static constexpr char digits[] = "0123456789abcdef";
  char text[256];
  for (int i = 0; i < bytes.length;) {
    int used = 0;
    for (; i < bytes.length && used < static_cast<int>(sizeof text); ++i) {
      const uint8_t byte = static_cast<uint8_t>(bytes.text[i]);
      text[used++] = digits[byte >> 4];
      text[used++] = digits[byte & 15];
    }
    if (!file_writer_put(file, text, used)) return false;
  }
  return true;
}

bool write_quoted(FileWriter &file, const TextRef &text) {
  if (!put(file, "\"")) return false;
  const char *at = text.text, *end = at + text.length;
  while (const void *quote = memchr(at, '"', static_cast<size_t>(end - at))) {
    const char *behind = static_cast<const char *>(quote) + 1;
    if (!file_writer_put(file, at, behind - at) || !put(file, "\"")) return false;
    at = behind;
  }
  return file_writer_put(file, at, end - at) && put(file, "\"");
}

}  // namespace

bool csv_write_text(FileWriter &file, const TextRef &text, CsvQuotes quotes) {
  const char *end = text.text + text.length;
  const bool plain =
      quotes == CsvQuotes::needed && text.length > 0 && std::none_of(text.text, end, is_special);
  return plain ? file_writer_put(file, text.text, text.length) : write_quoted(file, text);
}

bool csv_write_value(FileWriter &file, const Value &value, CsvQuotes quotes) {
  if (value.is_null()) return true;
  const TypeCode shown = value.declared != 0 ? value.declared : value.type;
  char digits[number_text_size];
  switch (datum_kind(value.type)) {
    case DatumKind::integer:
      return put(file, integer_to_text(value.integer, digits));
    case DatumKind::real:
      return put(file, double_to_exact_text(value.real, digits));
    case DatumKind::datetime:
      return format_datetime(shown, value.datetime, digits) && put(file, digits);
    case DatumKind::text:
      break;
  }
  return (shown & TYPE_BINARY) != 0 ? write_hex(file, value.text) : csv_write_text(file, value.text, quotes);
}

bool csv_write_comma(FileWriter &file) {
  return put(file, ",");
}

bool csv_write_line_end(FileWriter &file) {
  return put(file, "\r\n");
}

// ---- reading ----

namespace {

// The next byte, which stays; no_byte at the end of the file or with failed set.
int look(CsvReader &reader) {
  FileReader &file = *reader.file;
  if (file.next == file.end && !file_reader_fill(file)) {
    file.next = file.end;
    reader.failed = true;
  }
  return file.next == file.end ? no_byte : static_cast<unsigned char>(*file.next);
}

bool wrong(CsvReader &reader) {
  return !reader.failed && fail(status::input_conversion);
}

bool keep(CsvReader &reader, const char *bytes, int64_t length) {
  const bool fits = length <= row_limit - reader.bytes.size();
  return (fits && reader.bytes.append(bytes, static_cast<int>(length))) || fail(status::out_of_memory);
}

// Keeps what stands before end, and goes there.
bool keep_to(CsvReader &reader, const char *end) {
  FileReader &file = *reader.file;
  const char *start = file.next;
  file.next = end;
  return keep(reader, start, end - start);
}

bool read_plain(CsvReader &reader) {
  for (int c = look(reader); c != no_byte && !is_special(static_cast<char>(c)); c = look(reader)) {
    const FileReader &file = *reader.file;
    if (!keep_to(reader, std::find_if(file.next, file.end, is_special))) return false;
  }
  return !reader.failed;
}

// Behind the opening quote.
bool read_quoted(CsvReader &reader) {
  while (look(reader) != no_byte) {
    FileReader &file = *reader.file;
    const char *quote = std::find(file.next, file.end, '"');
    reader.lines += static_cast<int32_t>(std::count(file.next, quote, '\n'));
    const bool closed = quote != file.end;
    if (!keep_to(reader, quote)) return false;
    if (!closed) continue;
    ++file.next;
    if (look(reader) != '"') return !reader.failed;
    if (!keep_to(reader, file.next + 1)) return false;
  }
  return wrong(reader);
}

bool read_field(CsvReader &reader) {
  CsvField field{reader.bytes.size(), 0, look(reader) == '"'};
  if (field.quoted) ++reader.file->next;
  if (!(field.quoted ? read_quoted(reader) : read_plain(reader))) return false;
  field.length = reader.bytes.size() - field.at;
  if (reader.fields.size() > reader.field_limit) return reader.bytes.resize(field.at);
  return keep(reader, "", 1) && (reader.fields.push(field) || fail(status::out_of_memory));
}

// What may stand behind a value: a comma, or the end of the line or of the file.
bool read_separator(CsvReader &reader, bool *line_ends) {
  int c = look(reader);
  *line_ends = c != ',';
  if (c == no_byte) return !reader.failed;
  if (c != ',' && c != '\r' && c != '\n') return wrong(reader);
  ++reader.file->next;
  if (c == '\r') {
    c = look(reader);
    if (c != no_byte && c != '\n') return wrong(reader);
    if (c == '\n') ++reader.file->next;
  }
  if (*line_ends) ++reader.lines;
  return !reader.failed;
}

void set_null(Value *value) {
  *value = {};
  value->kind = value_kind::null;
  value->flags = value_null;
}

}  // namespace

Found csv_read(CsvReader &reader) {
  reader.bytes.clear();
  reader.fields.clear();
  reader.line = reader.lines + 1;
  if (look(reader) == no_byte) return reader.failed ? Found::failed : Found::no;
  for (bool line_ends = false; !line_ends;)
    if (!read_field(reader) || !read_separator(reader, &line_ends)) return Found::failed;
  return Found::yes;
}

bool csv_value(CsvReader &reader, const CsvField &field, TypeCode column, Value *value) {
  char *text = reader.bytes.data() + field.at;
  const bool holds_empty = (column & TYPE_CHARACTER) != 0 && (column & TYPE_LARGE) == 0;
  set_null(value);
  if (field.length == 0 && !(field.quoted && holds_empty)) return true;
  if (column != type::text && strlen(text) != static_cast<size_t>(field.length))
    return fail(status::input_conversion);
  *value = {};
  value->kind = value_kind::computed;
  value->type = type::character;
  value->text = {text, field.length};
  if (column != type::blob) return true;
  value->declared = type::blob;
  return hex_to_bytes(text, reinterpret_cast<uint8_t *>(text), &value->text.length);
}

}  // namespace tovik
