// Cost of a loaded row beside the row handle's own: its bytes are copied once, out of the file's buffer.
#include "sql/statement/load.h"

#include <algorithm>
#include <cstdio>

#include "sql/evaluate/set_value.h"

namespace tovik {

namespace {

// ---- details ----

// Tells the line in what was recorded since there were count entries, and behind that in words.
void tell_line(int count, const LoadedRow &loaded) {
  const int32_t line = loaded.reader.line;
  ErrorRecord &record = error_record();
  if (count >= std::min(record.count, error_entry_limit)) return;
  for (int i = count; i < record.count && i < error_entry_limit; ++i) {
    ErrorEntry &entry = record.entries[i];
    (entry.detail1 == 0 ? entry.detail1 : entry.detail2) = line;
  }
  char text[256];
  snprintf(text, sizeof text, "line %d of %s", line, loaded.name);
  err_set(record.entries[count].code, {.text = text, .detail1 = line});
}

// Runs work, a bool(), on the line last read.
template <class Work>
bool on_line(const LoadedRow &loaded, Work work) {
  const int count = error_record().count;
  if (work()) return true;
  tell_line(count, loaded);
  return false;
}

// ---- lines ----

Found next_line(LoadedRow &loaded) {
  Found found = Found::failed;
  (void)on_line(loaded, [&] { return (found = csv_read(loaded.reader)) != Found::failed; });
  return found;
}

const char *field_text(const CsvReader &reader, const CsvField &field) {
  return reader.bytes.data() + field.at;
}

bool names_column(const Table &table, const CsvReader &reader, const CsvField &field, Targets &named) {
  return !field.quoted && table_find_column(table, field_text(reader, field)) != nullptr &&
         targets_add(table, field_text(reader, field), named);
}

// Whether the line last read says which columns follow; they are in named then.
bool is_header(const Table &table, const CsvReader &reader, Targets &named) {
  const ErrorScope a_row_then;
  if (reader.fields.size() > table.column_count) return false;
  for (const CsvField &field : reader.fields)
    if (!names_column(table, reader, field, named)) return false;
  return true;
}

// Opens the file and reads its first row, if it has one.
Found open_and_read(MemoryPool &pool, const Table &table, const SourceTree &source, LoadedRow &loaded) {
  loaded.named = source.columns != nullptr;
  const bool bound = loaded.named ? targets_named(pool, table, source.columns, loaded.targets)
                                  : targets_all(pool, table, loaded.targets);
  Targets in_file{};
  if (!bound || !targets_allocate(pool, table.column_count, in_file)) return Found::failed;
  loaded.values = memory_pool_new<Value>(pool, table.column_count);
  if (loaded.values == nullptr) return Found::failed;
  loaded.name = FileTree::of(*source.values).name;
  loaded.file.reset(file_reader_open(loaded.name));
  if (loaded.file == nullptr) return Found::failed;
  loaded.reader.file = loaded.file.get();
  loaded.reader.field_limit = table.column_count;
  const Found first = next_line(loaded);
  if (first != Found::yes || !is_header(table, loaded.reader, in_file)) return first;
  if (!loaded.named) loaded.targets = in_file;
  loaded.named = true;
  return next_line(loaded);
}

bool count_differs(const LoadedRow &loaded) {
  return fail(loaded.named ? status::value_count_columns : status::value_count_rows);
}

// Makes values of the line's fields.
bool take_values(LoadedRow &loaded) {
  CsvReader &reader = loaded.reader;
  if (reader.fields.size() != loaded.targets.column_count) return count_differs(loaded);
  for (int i = 0; i < loaded.targets.column_count; ++i) {
    const TypeCode column = loaded.targets.columns[i]->type;
    if (!csv_value(reader, reader.fields[i], column, &loaded.values[i])) return false;
  }
  return true;
}

}  // namespace

bool load_rows(MemoryPool &pool, RowHandle &row, const SourceTree &source) {
  LoadedRow loaded{};
  Found found = open_and_read(pool, *row.table, source, loaded);
  for (; found == Found::yes; found = next_line(loaded)) {
    const bool inserted = on_line(loaded, [&] {
      row_handle_reset(row);
      return take_values(loaded) && loaded_row_set(pool, loaded, row) && row_handle_insert(row);
    });
    if (!inserted) return false;
  }
  return found == Found::no;
}

bool load_only_row(MemoryPool &pool, const Table &table, const SourceTree &source, LoadedRow &loaded) {
  const Found found = open_and_read(pool, table, source, loaded);
  if (found != Found::yes) return found == Found::no && count_differs(loaded);
  if (!on_line(loaded, [&] { return take_values(loaded); })) return false;
  FileReader &file = *loaded.file;
  if (file.next == file.end && !file_reader_fill(file)) return false;
  return file.next == file.end || on_line(loaded, [&] { return count_differs(loaded); });
}

bool loaded_row_set(MemoryPool &pool, const LoadedRow &loaded, RowHandle &row) {
  for (int i = 0; i < loaded.targets.column_count; ++i)
    if (!set_computed(pool, loaded.values[i], row, *loaded.targets.columns[i])) return false;
  return true;
}

}  // namespace tovik
