// A result is laid out when it is printed, so that what is fetched row by row pays nothing for it. Widths
// count a character of one byte as one column and a longer one as two.
#include "sql/query/printing.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>

#include "data/value/datetime.h"
#include "frame/charset_current.h"
#include "frame/env.h"
#include "frame/error.h"
#include "sql/query/result_file.h"

namespace tovik {

namespace {

constexpr int decimal_width = 14;            // a double from a decimal literal
constexpr int default_character_width = 20;  // a text without a declared length

int character_width(const char *character, const char *next) {
  return next - character > 1 ? 2 : 1;
}

int display_width(const char *text) {
  const Charset &charset = charset_current();
  int width = 0;
  for (const char *next; (next = charset.next(text)) != nullptr; text = next)
    width += character_width(text, next);
  return width;
}

// Prints, and writes what is printed into the file of INTO as well.
template <class... Parts>
void print(ResultFile &file, const char *format, Parts... parts) {
  system_driver.print(format, parts...);
  if (file.mode == OutputMode::into) result_file_print(file, format, parts...);
}

void print_blanks(ResultFile &file, int count) {
  if (count > 0) print(file, "%*s", count, "");
}

enum class Align { left, right, none };

void print_aligned(ResultFile &file, const char *text, int width, Align align) {
  const int padding = align == Align::none ? 0 : width - display_width(text);
  if (align == Align::right) print_blanks(file, padding);
  print(file, "%s", text);
  if (align == Align::left) print_blanks(file, padding);
}

// ---- the layout of a column ----

struct Layout {
  TypeCode type;
  bool compact;     // without padding
  int width;        // print columns
  char format[16];  // printf's, of one value
};

void lay_out_number(Layout &layout, int width, const char *conversion) {
  layout.width = width;
  if (layout.compact) {
    snprintf(layout.format, sizeof layout.format, "%%%s", conversion);
  } else {
    snprintf(layout.format, sizeof layout.format, "%%%d%s", width, conversion);
  }
}

void lay_out_text(Layout &layout, int width) {
  layout.width = width;
  if (layout.compact) {
    snprintf(layout.format, sizeof layout.format, "%%s");
  } else {
    snprintf(layout.format, sizeof layout.format, "%%-%ds", width);
  }
}

// declared_length: of a text column; 0 for other values. title_width: of what stands above the column.
Layout lay_out(TypeCode type, bool decimal, int declared_length, int title_width, bool compact) {
  Layout layout = {type, compact, 0, ""};
  const TypeRow *row = type_row(type);
  const int type_width = row == nullptr ? 0 : row->text_width;
  if ((type & TYPE_INTEGER) != 0) {
    lay_out_number(layout, std::max(type_width, title_width), "lld");
  } else if ((type & TYPE_FLOAT) != 0 && decimal) {
    lay_out_number(layout, std::max(decimal_width, title_width), ".2f");
  } else if ((type & TYPE_FLOAT) != 0) {
    lay_out_number(layout, std::max(type_width, title_width), type == type::float32 ? ".6e" : ".14e");
  } else if ((type & TYPE_CHARACTER) != 0) {
    const int length = declared_length > 0 ? declared_length : default_character_width;
    lay_out_text(layout, std::max(length, title_width));
  } else {
    const int length = type_width > 0 ? type_width : declared_length;
    lay_out_text(layout, length > 0 ? length : std::max(default_character_width, title_width));
  }
  return layout;
}

// ---- cells ----

// A column of the result, and its value in the row being printed; a large value may need several lines.
struct Cell {
  const ResultColumn *column;
  Layout layout;
  Value value;
  const char *rest;  // large: what is still to be printed
  int rest_length;   // bytes
  bool large;
};

// What the value says of its type: of a function that chooses, another in each row.
TypeCode shown_type(const Value &value) {
  return value.declared != 0 ? value.declared : value.type;
}

void print_datetime(ResultFile &file, const Layout &layout, const Value &value) {
  char text[32] = "";
  if (!format_datetime(shown_type(value), value.datetime, text)) text[0] = 0;
  print(file, layout.format, text);
}

void print_real(ResultFile &file, const Layout &layout, double real) {
  if (std::isnan(real)) {
    print_aligned(file, "nan", layout.width, layout.compact ? Align::none : Align::left);
  } else {
    print(file, layout.format, real);
  }
}

// Bytes of the next piece of a text that fit the width: whole characters, at least one.
int text_piece(const Cell &cell, int width) {
  const Charset &charset = charset_current();
  const char *at = cell.rest, *end = cell.rest + cell.rest_length;
  for (int used = 0; at < end;) {
    const char *next = charset.next(at);
    if (next == nullptr || next > end) next = end;
    used += character_width(at, next);
    if (used > width && at > cell.rest) break;
    at = next;
  }
  return static_cast<int>(at - cell.rest);
}

int print_binary_piece(ResultFile &file, const Cell &cell, int width, int *printed) {
  const int bytes = std::min(cell.rest_length, std::max(1, (width + 1) / 3));
  for (int i = 0; i < bytes; ++i) {
    print(file, i == 0 ? "%02x" : " %02x", static_cast<unsigned>(static_cast<unsigned char>(cell.rest[i])));
  }
  *printed = 3 * bytes - 1;
  return bytes;
}

int print_text_piece(ResultFile &file, const Cell &cell, int width, int *printed) {
  const int bytes = text_piece(cell, width);
  print(file, "%.*s", bytes, cell.rest);
  *printed = 0;
  const Charset &charset = charset_current();
  for (const char *at = cell.rest; at < cell.rest + bytes;) {
    const char *next = charset.next(at);
    if (next == nullptr) break;
    *printed += character_width(at, next);
    at = next;
  }
  return bytes;
}

// The next piece of a large value, padded to the width unless it ends the line.
void print_large(ResultFile &file, Cell &cell, bool last) {
  const Layout &layout = cell.layout;
  const int width = layout.compact ? INT32_MAX - 1 : layout.width;
  int printed;
  const int bytes = (shown_type(cell.value) & TYPE_BINARY) != 0
                        ? print_binary_piece(file, cell, width, &printed)
                        : print_text_piece(file, cell, width, &printed);
  cell.rest += bytes;
  cell.rest_length -= bytes;
  if (!last && !layout.compact) print_blanks(file, width - printed);
}

void print_text(ResultFile &file, const Layout &layout, const Value &value, bool last) {
  print_aligned(file, value.text.text, layout.width, last || layout.compact ? Align::none : Align::left);
}

void print_null(ResultFile &file, const Layout &layout) {
  const char *text = env_text(Env::sql_sel_nul_str);
  print_aligned(file, text == nullptr ? "" : text, layout.width, layout.compact ? Align::none : Align::right);
}

void print_value(ResultFile &file, const Layout &layout, const Value &value, bool last) {
  switch (datum_kind(value.type)) {
    case DatumKind::integer:
      print(file, layout.format, static_cast<long long>(value.integer));
      break;
    case DatumKind::real:
      print_real(file, layout, value.real);
      break;
    case DatumKind::datetime:
      print_datetime(file, layout, value);
      break;
    case DatumKind::text:
      print_text(file, layout, value, last);
      break;
  }
}

// NVL may give a value of another class than its column has: it is printed as a value of its own class, to
// the column's width.
void print_odd_value(ResultFile &file, const Layout &layout, const Value &value, bool last) {
  const TypeCode type = shown_type(value);
  const Layout own = lay_out(type, (value.flags & value_decimal) != 0, 0, 0, layout.compact);
  const int missing = layout.compact ? 0 : layout.width - own.width;
  if (type_numeric(type)) print_blanks(file, missing);
  print_value(file, own, value, last);
  if (!type_numeric(type) && !last) print_blanks(file, missing);
}

void print_cell(ResultFile &file, Cell &cell, bool last) {
  if (cell.value.is_null()) {
    print_null(file, cell.layout);
  } else if (cell.large) {
    print_large(file, cell, last);
  } else if ((cell.column->flags & value_mixed) != 0 ||
             datum_kind(cell.value.type) != datum_kind(cell.layout.type)) {
    print_odd_value(file, cell.layout, cell.value, last);
  } else {
    print_value(file, cell.layout, cell.value, last);
  }
}

bool read_cells(const Query &query, Cell *cells) {
  for (int i = 0; i < query.column_count; ++i) {
    Cell &cell = cells[i];
    if (!cursor_value(*query.cursor, *cell.column, &cell.value)) return false;
    cell.large = !cell.value.is_null() && (shown_type(cell.value) & TYPE_LARGE) != 0;
    cell.rest = cell.large ? cell.value.text.text : nullptr;
    cell.rest_length = cell.large ? cell.value.text.length : 0;
  }
  return true;
}

bool anything_left(const Cell *cells, int count) {
  return std::any_of(cells, cells + count, [](const Cell &cell) { return cell.rest_length > 0; });
}

// A further line of the row: pieces of large values, blanks in the other columns.
void print_continuation(ResultFile &file, const Query &query, Cell *cells) {
  for (int i = 0; i < query.column_count; ++i) {
    const bool last = i == query.column_count - 1;
    if (i > 0) print(file, "%s", query.separator);
    if (cells[i].rest_length > 0) {
      print_large(file, cells[i], last);
    } else if (!last) {
      print_blanks(file, cells[i].layout.width);
    }
  }
  print(file, "%s", "\n");
}

void print_row(ResultFile &file, const Query &query, Cell *cells) {
  for (int i = 0; i < query.column_count; ++i) {
    if (i > 0) print(file, "%s", query.separator);
    print_cell(file, cells[i], i == query.column_count - 1);
  }
  print(file, "%s", "\n");
  while (anything_left(cells, query.column_count)) print_continuation(file, query, cells);
}

Align header_align(TypeCode type, bool last) {
  if (type_numeric(type) || (type & TYPE_DATETIME) != 0) return Align::right;
  return last && (type & TYPE_CHARACTER) != 0 ? Align::none : Align::left;
}

void dump_row(ResultFile &file, const Query &query, const Cell *cells) {
  for (int i = 0; i < query.column_count; ++i) result_file_value(file, cells[i].value, i == 0);
  result_file_line_end(file);
}

bool print_rows(ResultFile &file, const Query &query, Cell *cells) {
  return each_row([&] { return cursor_fetch(*query.cursor); },
                  [&] {
                    if (!read_cells(query, cells)) return false;
                    print_row(file, query, cells);
                    if (file.mode == OutputMode::dump_into) dump_row(file, query, cells);
                    return !file.failed;
                  });
}

// They outlive every fetch, and with it what the pool gives.
Cell *cells_new(const Query &query) {
  Cell *cells = static_cast<Cell *>(mem_alloc(sizeof(Cell) * static_cast<size_t>(query.column_count)));
  if (cells == nullptr) return fail_null(status::out_of_memory);
  const bool compact = query.items_only || query.output_mode == OutputMode::dump_into;
  for (int i = 0; i < query.column_count; ++i) {
    const ResultColumn &column = query.columns[i];
    const int declared_length = column.kind == ResultKind::column ? column.column.column->p1 : 0;
    cells[i].column = &column;
    cells[i].layout = lay_out(column.type, (column.flags & value_decimal) != 0, declared_length,
                              display_width(column.label), compact);
  }
  return cells;
}

void print_header(ResultFile &file, const Query &query, const Cell *cells) {
  for (int i = 0; i < query.column_count; ++i) {
    const Layout &layout = cells[i].layout;
    if (i > 0) print(file, "%s", query.separator);
    print_aligned(file, cells[i].column->label, layout.width,
                  header_align(layout.type, i == query.column_count - 1));
  }
  print(file, "%s", "\n");
  if (file.mode == OutputMode::dump_into) result_file_header(file, query);
}

}  // namespace

bool print_result(Query &query) {
  ResultFile file{};
  Cell *cells = result_file_create(file, query) ? cells_new(query) : nullptr;
  if (cells != nullptr && env_on(Env::sql_sel_hdr)) print_header(file, query, cells);
  const bool printed = cells != nullptr && print_rows(file, query, cells);
  mem_free(cells);
  cursor_close(query.cursor);
  query.cursor = nullptr;
  return printed && result_file_keep(file);
}

bool print_items(Query &query) {
  return query_open(query) && print_result(query);
}

}  // namespace tovik
