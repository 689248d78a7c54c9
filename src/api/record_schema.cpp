// Tables and indices of the record interface, and their listings.
#include <cstdio>
#include <cstring>

#include "api/record.h"
#include "data/table/catalog.h"
#include "data/table/column_rules.h"
#include "platform/ascii.h"
#include "sql/parse/keywords.h"

using namespace tovik;

namespace {

// ---- names ----

// The name without the blanks around it; false when it is against the rules.
bool read_name(const char *given, char (&name)[name_size]) {
  if (!name_given(given, name_limit)) return false;
  const char *end = given + strlen(given);
  given = skip_blanks(given);
  while (end > given && is_blank(end[-1])) --end;
  const size_t length = static_cast<size_t>(end - given);
  memcpy(name, given, length);
  name[length] = 0;
  return length > 0 && !(name[0] >= '0' && name[0] <= '9') && strpbrk(name, " \t\r\n.") == nullptr &&
         keyword_find(name) == nullptr;
}

// ---- tables ----

// How many size parameters a definition gives; -1 for the types that are declared in SQL only.
int parameters_given(TypeCode type) {
  switch (type) {
    case type::varchar:
    case type::decimal:
      return -1;
    case type::character:
      return 1;
    case type::text:
    case type::blob:
      return 2;
    default:
      return 0;
  }
}

bool read_parameter(int32_t given, StatusCode too_large, int16_t *parameter) {
  if (given > INT16_MAX) return fail(too_large);
  *parameter = given < 0 ? int16_t{0} : static_cast<int16_t>(given);
  return true;
}

// 202152, 202153, 142007, 142008.
bool read_type(const tovik_coldef &given, ColumnDefinition &column) {
  if (!column_type_allowed(given.type)) return fail(status::record_api_column_type_code);
  column.type = static_cast<TypeCode>(given.type);
  const int parameters = parameters_given(column.type);
  if (parameters < 0) return fail(status::record_api_column_type_refused);
  if (parameters > 0 && !read_parameter(given.p1, status::column_parameter_1, &column.p1)) return false;
  if (parameters > 1 && !read_parameter(given.p2, status::column_parameter_2, &column.p2)) return false;
  column_take_defaults(column);
  return true;
}

bool read_column(const tovik_coldef &given, ColumnDefinition &column) {
  if (memchr(given.name, 0, sizeof given.name) == nullptr || !read_name(given.name, column.name))
    return fail(status::record_api_column_name);
  column.not_null = (given.not_null & 0xFF) != 0;
  return read_type(given, column);
}

bool create_table(RecordDatabase &database, const char *name, const tovik_coldef *given, int count,
                  const tovik_autoinc *autoinc) {
  char table_name[name_size];
  if (!read_name(name, table_name)) return fail(status::record_api_table_name);
  if (given == nullptr) return fail(status::record_api_definitions_missing);
  if (count < 1 || count > column_limit) return fail(status::record_api_column_count);
  const AreaHold area(database);
  if (area.get() == nullptr) return false;
  ColumnDefinition *columns = memory_pool_new<ColumnDefinition>(*area->pool, count);
  if (columns == nullptr) return false;
  for (int i = 0; i < count; ++i)
    if (!read_column(given[i], columns[i])) return false;
  AutoIncrementOptions options = {1, 1, 0};
  if (autoinc != nullptr && autoinc->column >= 1 && autoinc->column <= count) {
    columns[autoinc->column - 1].auto_increment = true;
    options = {autoinc->init, autoinc->step, 0};
  }
  Database &db = *database.db;
  return db_change(db, [&] {
    const TableHold table(table_create(db, table_name, columns, count, options));
    return table.get() != nullptr;
  });
}

bool drop_table(RecordDatabase &database, const char *name) {
  if (name == nullptr || name[0] == 0) return fail(status::record_api_table_name);
  return db_change(*database.db, [&] { return table_drop(*database.db, name); });
}

// ---- indices ----

// A name that the catalog looks at itself, copied as it is.
bool copy_name(const char *given, char (&name)[name_size]) {
  if (!name_given(given, name_limit)) return false;
  strcpy(name, given);
  return true;
}

bool create_index(RecordDatabase &database, const char *name, const char *const *columns, int count,
                  const char *table, bool unique, int master_count) {
  IndexDefinition index{};
  char table_name[name_size];
  if (!copy_name(name, index.name)) return fail(status::record_api_table_name);
  if (columns == nullptr) return fail(status::record_api_index_columns);
  if (count < 1 || count > btree_part_limit) return fail(status::record_api_index_column_count);
  if (!read_name(table, table_name)) return fail(status::record_api_index_table_name);
  for (int i = 0; i < count; ++i)
    if (!copy_name(columns[i], index.columns[i])) return fail(status::record_api_index_columns);
  index.unique = unique;
  index.master_count = unique ? 1 : master_count > 1 ? master_count : index_master_default;
  index.column_count = count;
  return db_change(*database.db, [&] { return index_create(*database.db, table_name, index); });
}

// ---- listings ----

// Runs list, an int(Database &) that gives -1 for a failure, under the thread's read hold.
template <class List>
int list_call(const RecordDatabase &database, List list) {
  const ThreadId thread = current_thread();
  if (!db_read_begin(*database.db, thread)) return call_failed();
  const int count = list(*database.db);
  db_read_end(*database.db, thread);
  return count >= 0 ? count : call_failed();
}

// Where names of tables go; one byte always stays free.
struct NameList {
  char *position;
  size_t room;
  int count;
  bool full;
};

bool add_name(void *context, const char *name) {
  NameList &list = *static_cast<NameList *>(context);
  const size_t size = strlen(name) + 1;
  list.full = size >= list.room;
  if (list.full) return false;
  memcpy(list.position, name, size);
  list.position += size;
  list.room -= size;
  ++list.count;
  return true;
}

int list_tables(Database &db, char *buffer, int size) {
  NameList list = {buffer, static_cast<size_t>(size), 0, false};
  if (!table_walk(db, add_name, &list)) return -1;
  if (!list.full) return list.count;
  err_set(status::table_list_buffer);
  return -1;
}

int list_columns(Database &db, const char *name, tovik_coldef *columns, int max) {
  const TableHold table(table_open(db, name));
  if (table.get() == nullptr) return -1;
  const int count = table->column_count < max ? table->column_count : max;
  for (int i = 0; i < count; ++i) {
    const Column &column = table->columns[i];
    snprintf(columns[i].name, sizeof columns[i].name, "%.19s", column.name);
    columns[i].type = column.type;
    columns[i].not_null = column.not_null ? 1 : 0;
    columns[i].p1 = column.p1;
    columns[i].p2 = column.p2;
    columns[i].p3 = column.p3;
  }
  return count;
}

}  // namespace

int tovik_createtbl(tovik_db *db, const char *table, const tovik_coldef *columns, int count) {
  return tovik_createtbl_ex(db, table, columns, count, nullptr);
}

int tovik_createtbl_ex(tovik_db *db, const char *table, const tovik_coldef *columns, int count,
                       const tovik_autoinc *autoinc) {
  return database_call(
      db, [&](RecordDatabase &database) { return create_table(database, table, columns, count, autoinc); });
}

int tovik_droptbl(tovik_db *db, const char *table) {
  return database_call(db, [&](RecordDatabase &database) { return drop_table(database, table); });
}

int tovik_createidx(tovik_db *db, const char *index, const char *const *columns, int count, const char *table,
                    char unique, int master_count) {
  return database_call(db, [&](RecordDatabase &database) {
    return create_index(database, index, columns, count, table, unique != 0, master_count);
  });
}

int tovik_dropidx(tovik_db *db, const char *index) {
  return database_call(db, [&](RecordDatabase &database) {
    return db_change(*database.db, [&] { return index_drop(*database.db, index); });
  });
}

int tovik_gettbllst(tovik_db *db, char *buffer, int size) {
  call_begin();
  const RecordDatabase *database = database_of(db);
  if (database == nullptr) return call_failed();
  if (buffer == nullptr) return call_failed(status::record_api_table_buffer);
  if (size < 1) return call_failed(status::record_api_buffer_size);
  return list_call(*database, [&](Database &open) { return list_tables(open, buffer, size); });
}

int tovik_getcolilst(tovik_db *db, const char *table, tovik_coldef *columns, int max) {
  call_begin();
  const RecordDatabase *database = database_of(db);
  if (database == nullptr) return call_failed();
  if (columns == nullptr) return call_failed(status::record_api_definitions_missing);
  if (max < 1) return call_failed(status::record_api_column_count);
  return list_call(*database, [&](Database &open) { return list_columns(open, table, columns, max); });
}
