// Databases, tables and rows for the tests of the catalog, the database object and the row handle.
#pragma once

#include <string>
#include <vector>

#include "data/database.h"
#include "data/table/row_handle.h"
#include "data_support.h"
#include "table_oracle.h"

namespace tovik::test {

inline ColumnDefinition column(const std::string &name, TypeCode type, int16_t p1 = 0, int16_t p2 = 0,
                               int16_t p3 = 0) {
  ColumnDefinition definition = {};
  memcpy(definition.name, name.c_str(), name.size() + 1);
  definition.type = type;
  definition.p1 = p1;
  definition.p2 = p2;
  definition.p3 = p3;
  return definition;
}
inline ColumnDefinition not_null(ColumnDefinition definition) {
  definition.not_null = true;
  return definition;
}
inline ColumnDefinition auto_increment(ColumnDefinition definition) {
  definition.auto_increment = true;
  return definition;
}

inline IndexDefinition index_on(const std::string &name, std::initializer_list<const char *> columns,
                                bool unique = false, int master_count = 2) {
  IndexDefinition definition = {};
  memcpy(definition.name, name.c_str(), name.size() + 1);
  definition.unique = unique;
  definition.master_count = master_count;
  for (const char *column : columns) strcpy(definition.columns[definition.column_count++], column);
  return definition;
}
inline IndexDefinition unique_on(const std::string &name, std::initializer_list<const char *> columns) {
  return index_on(name, columns, true);
}

// One database in a directory of its own, open.
class TestDatabase {
 public:
  explicit TestDatabase(const std::string &options =
                            "BLOCK_SIZE=1024;LOCK_RETRY=3;LOCK_SLEEP=1;BEGIN_RETRY=3;"
                            "BEGIN_SLEEP=1")
      : text("NAME=store;PATH=" + dir_.path() + ";" + options), db(db_create(text.c_str())) {
    EXPECT_NE(db, nullptr) << errors();
  }
  ~TestDatabase() { db_close(db); }
  TestDatabase(const TestDatabase &) = delete;
  TestDatabase &operator=(const TestDatabase &) = delete;

  void reopen() {
    db_close(db);
    db = db_open(text.c_str());
    ASSERT_NE(db, nullptr) << errors();
  }

  void begin() { EXPECT_EQ(db_start(*db, current_thread(), Nesting::refused), DbStart::started) << errors(); }
  void commit() { EXPECT_TRUE(db_commit(*db, current_thread())) << errors(); }
  void rollback() { EXPECT_TRUE(db_rollback(*db, current_thread())) << errors(); }

  bool create_table(const char *name, const std::vector<ColumnDefinition> &columns,
                    const AutoIncrementOptions &options = {1, 1, 1}) {
    Table *table = table_create(*db, name, columns.data(), static_cast<int>(columns.size()), options);
    table_close(table);
    return table != nullptr;
  }
  // Values for the first columns of one row.
  bool insert(const char *table, const std::vector<std::string> &values);
  std::vector<std::string> files() const { return file_names(dir_.path()); }
  BlockNo used_blocks() const { return blocks_in_use(*db->storage); }
  // "table(column,)[index,]3 " for every table with its row count, as the calling thread sees them.
  std::string schema() const { return schema(*db); }
  static std::string schema(Database &db);

 private:
  TempDir dir_;

 public:
  std::string text;
  Database *db;
};

// A row handle on a table. Values are set and read in their text form; the text "NULL" is NULL.
class Rows {
 public:
  Rows(Database &db, const char *table) : handle(row_handle_open(table_open(db, table))) {
    EXPECT_NE(handle, nullptr) << table << errors();
  }
  ~Rows() { row_handle_close(handle); }
  Rows(const Rows &) = delete;
  Rows &operator=(const Rows &) = delete;

  const Column &column(const char *name) const { return *table_find_column(*handle->table, name); }

  bool set(const char *name, const std::string &value) {
    if (value == "NULL") return row_handle_set(*handle, column(name), ValueMode::null, nullptr);
    if (column(name).type == type::blob)
      return row_handle_set_large(*handle, column(name), value.data(), static_cast<int32_t>(value.size()));
    return row_handle_set(*handle, column(name), ValueMode::text, value.c_str());
  }
  // Values for the first columns, in order.
  bool insert(const std::vector<std::string> &values) {
    row_handle_reset(*handle);
    for (size_t i = 0; i < values.size(); ++i)
      if (!set(handle->table->columns[i].name, values[i])) return false;
    return row_handle_insert(*handle);
  }

  std::string get(const char *name) {
    Value value;
    EXPECT_TRUE(row_handle_value(*handle, column(name), &value)) << errors();
    if (value.is_null()) return "NULL";
    if (value.type == type::bigint) return std::to_string(value.integer);
    EXPECT_TRUE(value.type == type::blob || value.text.text[value.text.length] == '\0');
    return std::string(value.text.text, static_cast<size_t>(value.text.length));
  }

  // Every row number, in stream order.
  std::vector<RowNo> all() {
    std::vector<RowNo> rows;
    const auto visit = [&rows](RowNo row, const uint8_t *) { rows.push_back(row); };
    EXPECT_TRUE(each_row(*handle->table->rows, handle->table->record_size, visit)) << errors();
    return rows;
  }

  RowHandle *handle;
};

inline bool TestDatabase::insert(const char *table, const std::vector<std::string> &values) {
  return Rows(*db, table).insert(values);
}

inline std::string TestDatabase::schema(Database &db) {
  std::vector<std::string> names;
  EXPECT_TRUE(table_names(db, &names)) << errors();
  std::string text;
  for (const std::string &name : names) {
    Rows rows(db, name.c_str());
    const Table &table = *rows.handle->table;
    text += name + "(";
    for (int i = 0; i < table.column_count; ++i) text += table.columns[i].name + std::string(",");
    text += ")[";
    for (int i = 0; i < table.index_count; ++i)
      text += table.indices[i]->definition.index_name + std::string(",");
    text += "]" + std::to_string(rows.all().size()) + " ";
    EXPECT_EQ(table_fault(*rows.handle->table), "");
  }
  return text;
}

// An open database, for the tests of one of the modules.
class DatabaseTest : public testing::Test {
 protected:
  Database &db() { return *store.db; }

  Engine engine;
  TestDatabase store;
};

}  // namespace tovik::test
