// What the functions of the record interface share: the way a call begins and ends, the object behind a
// database handle and the work areas in which cursors and row changes live. The conventions of the exported
// functions stand in tovik.h.
//
// A work area is a memory pool; a database keeps a few closed ones, so that opening a cursor or changing a
// row takes nothing from the general heap once there has been one before.
#pragma once

#include "api/handle.h"
#include "api/library.h"
#include "data/database.h"
#include "frame/error.h"
#include "sql/evaluate/evaluator.h"
#include "tovik.h"

namespace tovik {

// ---- calls ----

// Every call begins with an empty error record and an empty snapshot; one that fails leaves its first code in
// the snapshot.
inline void call_begin() {
  err_clear();
  err_clear_snapshot();
}

inline int call_end(bool done) {
  if (done) return 0;
  err_save();
  return -1;
}

template <class T>
T *call_end(T *result) {
  if (result == nullptr) err_save();
  return result;
}

// What failed has recorded its status.
inline int call_failed() {
  return call_end(false);
}

inline int call_failed(StatusCode code) {
  return call_end(fail(code));
}

// Records code as the one that the caller is told of, whatever was recorded before.
inline std::nullptr_t fail_primary(StatusCode code) {
  return fail_null(code, {.primary = true});
}

// ---- databases ----

struct WorkArea {
  MemoryPool *pool;
  ValueStack stack;
};

struct RecordCursor;

inline constexpr int spare_area_limit = 4;

struct RecordDatabase {
  Database *db;
  Lock *lock;                               // guards the spare areas
  WorkArea *spare_areas[spare_area_limit];  // of nobody, empty
  RecordCursor *cursors;                    // open; under the lock of the handles
};

// The object behind a caller's handle, or null with the status given, or 202101 in a process that fork made.
template <class Object>
Object *object_of(const void *handle, HandleKind kind, StatusCode invalid) {
  Object *object = static_cast<Object *>(handle_find(handle, kind));
  return object != nullptr ? object
                           : fail_null(library_left_by_fork() ? status::record_api_not_initialised : invalid);
}

// 202115, 202101.
inline RecordDatabase *database_of(const tovik_db *db) {
  return object_of<RecordDatabase>(db, HandleKind::record_database, status::record_api_database_handle);
}

// Runs work, a bool(RecordDatabase &), as one call on the database behind the handle. 202115, 202101.
template <class Work>
int database_call(const tovik_db *db, Work work) {
  call_begin();
  RecordDatabase *database = database_of(db);
  return call_end(database != nullptr && work(*database));
}

WorkArea *area_take(RecordDatabase &database);  // null with 202102
void area_give_back(RecordDatabase &database, WorkArea *area);

// A work area for the length of the scope.
class AreaHold {
 public:
  explicit AreaHold(RecordDatabase &database) : database_(database), area_(area_take(database)) {}
  ~AreaHold() {
    if (area_ != nullptr) area_give_back(database_, area_);
  }
  AreaHold(const AreaHold &) = delete;
  AreaHold &operator=(const AreaHold &) = delete;
  WorkArea *get() const { return area_; }
  WorkArea *operator->() const { return area_; }

 private:
  RecordDatabase &database_;
  WorkArea *area_;
};

void cursors_close(RecordDatabase &database);  // all that are open; under the lock of the handles

// ---- names ----

// Is text a name of 1 to limit bytes?
bool name_given(const char *text, int limit);

inline constexpr int column_reference_limit = 41;  // "column" or "table.column"

// A column reference, split at its ".".
struct ColumnReference {
  char text[column_reference_limit + 1];
  const char *table;  // null for an unqualified name
  const char *column;

  explicit ColumnReference(const char *name);
};

}  // namespace tovik
