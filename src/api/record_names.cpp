#include "api/record_names.h"

#include <cstdlib>
#include <cstring>

#include "api/record_cursor.h"

namespace tovik {

namespace {

constexpr uint32_t entry_limit = 1024;
constexpr uint32_t probe_limit = 8;

uint32_t hash_of(const char *name) {
  uint32_t hash = 2166136261u;
  for (; *name != 0; ++name) hash = (hash ^ static_cast<unsigned char>(*name)) * 16777619u;
  return hash;
}

// The first entry of the hash for which bears, a bool(const KnownName &), tells yes.
template <class Bears>
bool known(const KnownNames &names, uint32_t hash, Bears bears) {
  if (names.entries == nullptr) return false;
  for (uint32_t probe = 0; probe < probe_limit; ++probe) {
    const KnownName &entry = names.entries[(hash + probe) & names.mask];
    if (entry.form == NameForm::none) return false;
    if (entry.hash == hash && bears(entry)) return true;
  }
  return false;
}

// One for which there is no room near its place is looked for again each time.
void remember(KnownNames &names, const KnownName &name) {
  if (names.entries == nullptr) return;
  for (uint32_t probe = 0; probe < probe_limit; ++probe) {
    KnownName &entry = names.entries[(name.hash + probe) & names.mask];
    if (entry.form != NameForm::none) continue;
    entry = name;
    return;
  }
}

// ---- columns of tables ----

bool is_qualified_name(const char *name, const char *table, const char *column) {
  const size_t length = strlen(table);
  return strncmp(name, table, length) == 0 && name[length] == '.' && strcmp(name + length + 1, column) == 0;
}

bool table_column_bears(const RecordCursor &cursor, const KnownName &entry, const char *name,
                        ColumnRef *found) {
  const TableAccess *access = cursor.tables;
  for (int i = 0; access != nullptr && i < entry.table; ++i) access = access->next;
  if (access == nullptr || entry.column >= access->handle->table->column_count) return false;
  const Table &table = *access->handle->table;
  const Column &column = table.columns[entry.column];
  *found = {&column, access->handle};
  return entry.form == NameForm::qualified ? is_qualified_name(name, table.name, column.name)
                                           : strcmp(name, column.name) == 0;
}

void remember_table_column(RecordCursor &cursor, uint32_t hash, NameForm form, const ColumnRef &found) {
  if (column_is_rowid(*found.column)) return;
  uint8_t table = 0;
  for (const TableAccess *access = cursor.tables; access->handle != found.row; access = access->next) ++table;
  const auto column = static_cast<uint16_t>(found.column - found.row->table->columns);
  remember(cursor.names, {hash, form, table, column});
}

// ---- result columns ----

bool same_column(const ColumnRef &a, const ColumnRef &b) {
  return a.row == b.row && a.column == b.column;
}

const ResultColumn *distinct_column(RecordCursor &cursor, const char *name) {
  ColumnRef found;
  if (!cursor_table_column(cursor, name, &found)) return nullptr;
  for (int i = 0; i < cursor.column_count; ++i)
    if (same_column(cursor.columns[i].column, found)) return &cursor.columns[i];
  return fail_null(status::record_api_result_column);
}

// n of a name "EXPRESSION_n" as result_name makes it, else 0.
int expression_number(const char *name) {
  static constexpr char start[] = "EXPRESSION_";
  if (strncmp(name, start, sizeof start - 1) != 0) return 0;
  ResultColumn column{};
  column.kind = ResultKind::computed;
  column.expression_number = atoi(name + sizeof start - 1);
  char made[result_name_size];
  return column.expression_number > 0 && strcmp(result_name(column, made), name) == 0
             ? column.expression_number
             : 0;
}

bool bears(const ResultColumn &column, NameForm form, const char *name, int expression) {
  switch (form) {
    case NameForm::column:
      return column.kind == ResultKind::column && strcmp(column.column.column->name, name) == 0;
    case NameForm::label:
      return strcmp(column.label, name) == 0;
    default:
      return expression != 0 && column.kind != ResultKind::column && column.expression_number == expression;
  }
}

const ResultColumn *sql_column(RecordCursor &cursor, const char *name) {
  const uint32_t hash = hash_of(name);
  const int expression = expression_number(name);
  const ResultColumn *found = nullptr;
  if (known(cursor.names, hash, [&](const KnownName &entry) {
        found = &cursor.columns[entry.column];
        return bears(*found, entry.form, name, expression);
      }))
    return found;
  for (int i = 0; i < cursor.column_count; ++i)
    for (const NameForm form : {NameForm::column, NameForm::label, NameForm::expression})
      if (bears(cursor.columns[i], form, name, expression)) {
        remember(cursor.names, {hash, form, 0, static_cast<uint16_t>(i)});
        return &cursor.columns[i];
      }
  return fail_null(status::record_api_result_column);
}

}  // namespace

bool names_reserve(MemoryPool &pool, int count, KnownNames *names) {
  uint32_t size = 8;
  while (size < 2 * static_cast<uint32_t>(count) && size < entry_limit) size *= 2;
  *names = {memory_pool_new<KnownName>(pool, static_cast<int>(size)), size - 1};
  return names->entries != nullptr;
}

bool cursor_table_column(RecordCursor &cursor, const char *name, ColumnRef *found) {
  const uint32_t hash = hash_of(name);
  if (known(cursor.names, hash,
            [&](const KnownName &entry) { return table_column_bears(cursor, entry, name, found); }))
    return true;
  const ColumnReference split(name);
  if (!column_lookup(cursor.tables, split.table, split.column, found)) return false;
  const NameForm form = split.table == nullptr ? NameForm::column : NameForm::qualified;
  remember_table_column(cursor, hash, form, *found);
  return true;
}

const ResultColumn *cursor_result_column(RecordCursor &cursor, const char *name) {
  return cursor.state == CursorState::distinct ? distinct_column(cursor, name) : sql_column(cursor, name);
}

}  // namespace tovik
