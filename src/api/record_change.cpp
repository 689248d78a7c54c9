// Column values, and the rows written from them.
#include <cstring>

#include "api/record_cursor.h"
#include "api/record_operand.h"
#include "sql/evaluate/set_value.h"

using namespace tovik;

namespace {

// ---- filling column values ----

StatusCode missing_status(int type) {
  if (operand_is_text(type)) return status::record_api_text_missing;
  return type == TOVIK_BINARY ? status::record_api_bytes_missing : status::record_api_value_missing;
}

bool fill(tovik_colval *record, const char *name, int type, const void *value) {
  if (record == nullptr) return fail(status::record_api_values_missing);
  *record = {};
  if (!name_given(name, name_limit)) return fail(status::record_api_column_name);
  if (type < operand_null || type > TOVIK_BINARY) return fail(status::record_api_data_type);
  if (type != operand_null && !operand_read(type, value, &record->value)) return fail(missing_status(type));
  strcpy(record->name, name);
  record->type = type;
  return true;
}

// ---- writing rows ----

// The caller's values with the columns they are for.
struct Assignments {
  int count;
  const Column **columns;
  Value *values;
};

// 202118, 202120.
bool check_records(const tovik_colval *records, int count) {
  if (records == nullptr) return fail(status::record_api_values_missing);
  return (count >= 1 && count <= column_limit) || fail(status::record_api_column_count);
}

const Column *find_column(const Table &table, const tovik_colval &record) {
  char name[sizeof record.name + 1];
  memcpy(name, record.name, sizeof record.name);
  name[sizeof record.name] = 0;
  const Column *column = table_find_column(table, name);
  return column != nullptr ? column : fail_null(status::record_api_no_such_column);
}

bool bind_value(MemoryPool &pool, const tovik_colval &record, const Column &column, Value *value) {
  if (!operand_value(pool, record.type, record.value, value)) return false;
  // Bytes have no end that a text column could find.
  return value->declared != type::blob || column.type == type::blob || fail(status::record_api_type_mismatch);
}

bool bind(MemoryPool &pool, const Table &table, const tovik_colval *records, int count, Assignments *bound) {
  *bound = {count, memory_pool_new<const Column *>(pool, count), memory_pool_new<Value>(pool, count)};
  if (bound->columns == nullptr || bound->values == nullptr) return false;
  for (int i = 0; i < count; ++i) {
    bound->columns[i] = find_column(table, records[i]);
    if (bound->columns[i] == nullptr) return false;
    for (int earlier = 0; earlier < i; ++earlier)
      if (bound->columns[earlier] == bound->columns[i]) return fail(status::column_named_twice);
    if (!bind_value(pool, records[i], *bound->columns[i], &bound->values[i])) return false;
  }
  return true;
}

bool set_columns(MemoryPool &pool, const Assignments &bound, RowHandle &row) {
  for (int i = 0; i < bound.count; ++i)
    if (!set_computed(pool, bound.values[i], row, *bound.columns[i])) return false;
  return true;
}

bool insert_row(Database &db, WorkArea &area, const char *name, const tovik_colval *records, int count) {
  Table *table = table_open(db, name);
  if (table == nullptr) return false;
  const RowHandleHold row(row_handle_open(table));
  Assignments bound;
  return row.get() != nullptr && bind(*area.pool, *table, records, count, &bound) &&
         set_columns(*area.pool, bound, *row) && row_handle_insert(*row);
}

// Calls change, a bool(RowHandle &), for every row of the table that meets condition.
template <class Change>
bool change_rows(Database &db, WorkArea &area, const char *name, const tovik_cond *condition, Change change) {
  TableAccess *first;
  const bool opened = tables_open(db, *area.pool, &name, 1, &first);
  const AccessHold access(first);
  if (!opened) return false;
  CursorRequest request{};
  if (!request_rows(area, access.get(), condition, request)) return false;
  const CursorHold rows(cursor_open(request));
  return rows.get() != nullptr &&
         each_row([&] { return cursor_fetch(*rows); }, [&] { return change(*access->handle); });
}

bool update_rows(Database &db, WorkArea &area, const char *name, const tovik_colval *records, int count,
                 const tovik_cond *condition) {
  Table *table = table_open(db, name);
  if (table == nullptr) return false;
  const RowHandleHold writer(row_handle_open(table));
  Assignments bound;
  if (writer.get() == nullptr || !bind(*area.pool, *table, records, count, &bound)) return false;
  return change_rows(db, area, name, condition, [&](RowHandle &row) {
    row_handle_copy(*writer, row);
    return set_columns(*area.pool, bound, *writer) && row_handle_update(*writer);
  });
}

bool delete_rows(Database &db, WorkArea &area, const char *name, const tovik_cond *condition) {
  return change_rows(db, area, name, condition, [](RowHandle &row) { return row_handle_delete(row); });
}

// One changing call: work, a bool(Database &, WorkArea &), under the automatic transaction rule.
template <class Work>
bool change(RecordDatabase &database, Work work) {
  const AreaHold area(database);
  return area.get() != nullptr && db_change(*database.db, [&] { return work(*database.db, *area.get()); });
}

bool check_table(const char *name) {
  return name_given(name, name_limit) || fail(status::record_api_table_name);
}

}  // namespace

int tovik_setcol(tovik_colval *record, const char *name, int type, const void *value) {
  call_begin();
  return call_end(fill(record, name, type, value));
}

int tovik_setcol_i8(tovik_colval *record, const char *name, int8_t value) {
  return tovik_setcol(record, name, TOVIK_INT8, &value);
}

int tovik_setcol_i16(tovik_colval *record, const char *name, int16_t value) {
  return tovik_setcol(record, name, TOVIK_INT16, &value);
}

int tovik_setcol_i32(tovik_colval *record, const char *name, int32_t value) {
  return tovik_setcol(record, name, TOVIK_INT32, &value);
}

int tovik_setcol_i64(tovik_colval *record, const char *name, int64_t value) {
  return tovik_setcol(record, name, TOVIK_INT64, &value);
}

int tovik_setcol_float(tovik_colval *record, const char *name, float value) {
  return tovik_setcol(record, name, TOVIK_FLOAT, &value);
}

int tovik_setcol_double(tovik_colval *record, const char *name, double value) {
  return tovik_setcol(record, name, TOVIK_DOUBLE, &value);
}

int tovik_setcol_char(tovik_colval *record, const char *name, const char *text) {
  return tovik_setcol(record, name, TOVIK_CHAR, &text);
}

int tovik_setcol_wchar(tovik_colval *record, const char *name, const uint16_t *text) {
  return tovik_setcol(record, name, TOVIK_WCHAR, &text);
}

int tovik_setcol_ctime(tovik_colval *record, const char *name, const DateTimeRec *value) {
  return tovik_setcol(record, name, TOVIK_DATETIME, value);
}

int tovik_setcol_binary(tovik_colval *record, const char *name, const void *data, int length) {
  const tovik_bytes bytes = {data, length};
  return tovik_setcol(record, name, TOVIK_BINARY, &bytes);
}

int tovik_setcolnull(tovik_colval *record, const char *name) {
  return tovik_setcol(record, name, operand_null, nullptr);
}

int tovik_insert(tovik_db *db, const char *table, const tovik_colval *values, int count) {
  return database_call(db, [&](RecordDatabase &database) {
    return check_table(table) && check_records(values, count) &&
           change(database, [&](Database &open, WorkArea &area) {
             return insert_row(open, area, table, values, count);
           });
  });
}

int tovik_update(tovik_db *db, const char *table, const tovik_colval *values, int count,
                 const tovik_cond *cond) {
  return database_call(db, [&](RecordDatabase &database) {
    return check_table(table) && check_records(values, count) &&
           change(database, [&](Database &open, WorkArea &area) {
             return update_rows(open, area, table, values, count, cond);
           });
  });
}

int tovik_delete(tovik_db *db, const char *table, const tovik_cond *cond) {
  return database_call(db, [&](RecordDatabase &database) {
    return check_table(table) && change(database, [&](Database &open, WorkArea &area) {
             return delete_rows(open, area, table, cond);
           });
  });
}
