// Databases and transactions of the record interface, and the work areas that a database keeps.
#include <cstdio>
#include <cstring>
#include <utility>

#include "api/record.h"
#include "frame/env.h"

namespace tovik {

// ---- work areas ----

static WorkArea *area_new() {
  WorkArea *area = mem_new<WorkArea>();
  if (area == nullptr) return nullptr;
  area->pool = memory_pool_create(memory_pool_scaled(env_number(Env::sql_buf_size)));
  if (area->pool != nullptr) return area;
  mem_delete(area);
  return nullptr;
}

static void area_free(WorkArea *area) {
  memory_pool_destroy(area->pool);
  mem_delete(area);
}

static WorkArea *take_spare(RecordDatabase &database) {
  const LockGuard guard(database.lock);
  for (WorkArea *&spare : database.spare_areas)
    if (spare != nullptr) return std::exchange(spare, nullptr);
  return nullptr;
}

WorkArea *area_take(RecordDatabase &database) {
  WorkArea *area = take_spare(database);
  if (area != nullptr) return area;
  area = area_new();
  return area != nullptr ? area : fail_primary(status::record_api_memory);
}

void area_give_back(RecordDatabase &database, WorkArea *area) {
  memory_pool_empty(*area->pool);
  {
    const LockGuard guard(database.lock);
    for (WorkArea *&spare : database.spare_areas) {
      if (spare != nullptr) continue;
      spare = area;
      return;
    }
  }
  area_free(area);
}

// ---- names ----

bool name_given(const char *text, int limit) {
  if (text == nullptr || text[0] == 0) return false;
  return strnlen(text, static_cast<size_t>(limit) + 1) <= static_cast<size_t>(limit);
}

ColumnReference::ColumnReference(const char *name) {
  const size_t length = strnlen(name, column_reference_limit);
  memcpy(text, name, length);
  text[length] = 0;
  char *point = strchr(text, '.');
  table = point == nullptr ? nullptr : text;
  column = point == nullptr ? text : point + 1;
  if (point != nullptr) *point = 0;
}

// ---- databases ----

namespace {

constexpr int parameter_text_size = 512;

// The parameter string of a database by name.
class DatabaseText {
 public:
  // 202114, 202101, 112012.
  [[nodiscard]] bool build(const char *name, const char *params) {
    if (name == nullptr || name[0] == 0) return fail(status::record_api_database_name);
    if (!library_started()) return fail(status::record_api_not_initialised);
    const int length = snprintf(text_, sizeof text_, "name=%s;%s", name, params == nullptr ? "" : params);
    return (length >= 0 && length < parameter_text_size) || fail(status::param_text_length);
  }
  const char *text() const { return text_; }

 private:
  char text_[parameter_text_size];
};

bool create(const char *name, const char *params) {
  DatabaseText text;
  if (!text.build(name, params)) return false;
  Database *db = db_create(text.text());
  if (db == nullptr) return false;
  db_close(db);
  return true;
}

bool drop(const char *name) {
  DatabaseText text;
  return text.build(name, nullptr) && db_remove(text.text());
}

RecordDatabase *database_new(const char *params) {
  RecordDatabase *database = mem_new<RecordDatabase>();
  if (database == nullptr) return fail_null(status::record_api_memory);
  database->lock = system_driver.lock_create();
  if (database->lock == nullptr) {
    err_set(status::lock_create);
  } else {
    database->db = db_open(params);
    if (database->db != nullptr) return database;
    system_driver.lock_destroy(database->lock);
  }
  mem_delete(database);
  return nullptr;
}

void database_free(RecordDatabase *database) {
  for (WorkArea *spare : database->spare_areas)
    if (spare != nullptr) area_free(spare);
  db_close(database->db);
  system_driver.lock_destroy(database->lock);
  mem_delete(database);
}

tovik_db *open(const char *name, const char *params) {
  DatabaseText text;
  if (!text.build(name, params)) return nullptr;
  RecordDatabase *database = database_new(text.text());
  if (database == nullptr) return nullptr;
  void *handle = handle_new(HandleKind::record_database, database);
  if (handle != nullptr) return static_cast<tovik_db *>(handle);
  database_free(database);
  return fail_null(status::record_api_memory);
}

}  // namespace

}  // namespace tovik

using namespace tovik;

int tovik_create(const char *name, const char *params) {
  call_begin();
  return call_end(create(name, params));
}

int tovik_drop(const char *name) {
  call_begin();
  return call_end(drop(name));
}

tovik_db *tovik_open(const char *name, const char *params) {
  call_begin();
  return call_end(open(name, params));
}

void tovik_close(tovik_db *db) {
  RecordDatabase *database;
  {
    const HandlesGuard guard;
    database = static_cast<RecordDatabase *>(handle_take(db, HandleKind::record_database));
    if (database == nullptr) return;
    cursors_close(*database);
  }
  database_free(database);
}

void tovik::record_databases_close() {
  while (const void *handle = handle_any(HandleKind::record_database))
    tovik_close(static_cast<tovik_db *>(const_cast<void *>(handle)));
}

int tovik_begin(tovik_db *db) {
  return database_call(db, [](RecordDatabase &database) {
    return db_start(*database.db, current_thread(), Nesting::refused) == DbStart::started;
  });
}

int tovik_commit(tovik_db *db) {
  return database_call(
      db, [](RecordDatabase &database) { return db_commit_or_roll_back(*database.db, current_thread()); });
}

int tovik_rollback(tovik_db *db) {
  return database_call(db,
                       [](RecordDatabase &database) { return db_rollback(*database.db, current_thread()); });
}
