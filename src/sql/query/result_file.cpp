#include "sql/query/result_file.h"

#include <cstdarg>
#include <cstdio>
#include <cstring>

#include "frame/env.h"

namespace tovik {

namespace {

constexpr int usual_print = 512;  // bytes that are formatted without an allocation

using TextHold = Held<char, mem_free>;

// Writes with bool(FileWriter &), unless something has failed before.
template <class Write>
void write(ResultFile &file, Write write_to) {
  file.failed = file.failed || !write_to(*file.writer);
}

TextRef text_of(const char *text) {
  return {text, static_cast<int32_t>(strlen(text))};
}

}  // namespace

bool result_file_create(ResultFile &file, const Query &query) {
  file.mode = query.output_mode;
  if (file.mode == OutputMode::none) return true;
  file.quotes = env_on(Env::sql_sel_hdr) ? CsvQuotes::needed : CsvQuotes::always;
  file.writer.reset(
      file_writer_create(query.output_file, query.scope.catalog->storage->params->io.file_mode));
  return file.writer != nullptr;
}

void result_file_print(ResultFile &file, const char *format, ...) {
  char usual[usual_print];
  va_list arguments, again;
  va_start(arguments, format);
  va_copy(again, arguments);
  const int length = vsnprintf(usual, sizeof usual, format, arguments);
  va_end(arguments);
  write(file, [&](FileWriter &writer) {
    if (length < usual_print) return file_writer_put(writer, usual, length);
    const size_t size = static_cast<size_t>(length) + 1;
    const TextHold text(static_cast<char *>(mem_alloc(size)));
    if (text == nullptr) return fail(status::out_of_memory);
    vsnprintf(text.get(), size, format, again);
    return file_writer_put(writer, text.get(), length);
  });
  va_end(again);
}

void result_file_header(ResultFile &file, const Query &query) {
  for (int i = 0; i < query.column_count; ++i) {
    write(file, [&](FileWriter &writer) {
      return (i == 0 || csv_write_comma(writer)) &&
             csv_write_text(writer, text_of(query.columns[i].label), CsvQuotes::needed);
    });
  }
  result_file_line_end(file);
}

void result_file_value(ResultFile &file, const Value &value, bool first) {
  write(file, [&](FileWriter &writer) {
    return (first || csv_write_comma(writer)) && csv_write_value(writer, value, file.quotes);
  });
}

void result_file_line_end(ResultFile &file) {
  write(file, csv_write_line_end);
  file.quotes = CsvQuotes::needed;
}

bool result_file_keep(ResultFile &file) {
  return file.mode == OutputMode::none || (!file.failed && file_writer_keep(file.writer.release()));
}

}  // namespace tovik
