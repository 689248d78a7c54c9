// The database object: what the statement and record interfaces hold. It owns the parameter block, the
// storage manager, the three management ROWs and the two name indices, and the list of open table
// definitions; it takes and gives back the database lock and begins, commits and rolls back transactions.
//
// Read holds are counted per thread: two open cursors of one thread keep the shared level until the last is
// closed, and a commit by a thread that still reads falls back to shared.
//
// The data layer is registered (data_layer_register) before the first database is created or opened.
#pragma once

#include "data/table/table.h"
#include "frame/env.h"

namespace tovik {

struct ReadHold {
  ThreadId thread;  // no_thread in a free entry
  int32_t count;
};

struct Database : Catalog {
  Params *params;
  Lock *lock;  // guards holds and the refresh after a lock grant
  ReadHold holds[lock_table_size];
  ThreadId owed[lock_table_size];  // threads whose last release failed: it is repeated before the next grant
  int32_t unlocked_reads;          // begun while locks were off (HVI_LOCK_DISABLE)
  bool reload_pending;  // what is cached from the DAT part must be read again at the next lock grant
};

// Durable when it returns; a creation that fails leaves no file. 40002 to 40007 over the cause's status.
Database *db_create(const char *params);
Database *db_open(const char *params);  // 40008 to 40015, 140003
void db_close(Database *db);
[[nodiscard]] bool db_remove(const char *params);  // 40014
bool db_exists(const char *params);                // records nothing
// A temporary database, removed when closed, for what another one contains: with its key and file mode.
Database *db_create_work(const Database &owner);

// The database lock. read: shared, counted per thread. write: shared then reserved. After a grant a commit
// record left by a dead writer is completed, and another process's commit makes every cached thing follow.
// busy after all retries; nothing recorded for it.
enum class DbLock { read, write };
LockResult db_lock(Database &db, ThreadId thread, DbLock mode);
[[nodiscard]] bool db_unlock(Database &db, ThreadId thread, DbLock mode);

// db_lock read with a busy database recorded as 140003.
[[nodiscard]] bool db_read_begin(Database &db, ThreadId thread);
void db_read_end(Database &db, ThreadId thread);

// started; nested: the thread's own transaction is open, and that is allowed. 140004, 40022, 140003; 120112
// when the database was opened read-only.
enum class Nesting { refused, allowed };
enum class DbStart { started, nested, failed };
DbStart db_start(Database &db, ThreadId thread, Nesting nesting);
[[nodiscard]] bool db_commit(Database &db, ThreadId thread);    // 140002, 40022, 140003, 120103, 22015, 22016
[[nodiscard]] bool db_rollback(Database &db, ThreadId thread);  // 140002, 40022
// A commit that, when it fails, rolls back what it did not end.
[[nodiscard]] bool db_commit_or_roll_back(Database &db, ThreadId thread);
bool db_in_transaction(const Database &db, ThreadId thread);

// Changes outside a transaction (automatic commit off): the exclusive level is held from begin to end, and
// end writes and flushes everything with a new update counter, so that other processes follow. nested when
// the thread's own transaction is open: then there is nothing to end. 140003, 120112.
DbStart db_direct_begin(Database &db, ThreadId thread);
[[nodiscard]] bool db_direct_end(Database &db, ThreadId thread);

// Runs change, a bool(), for the calling thread: inside its transaction if it has one, else in one of its own
// that ends committed, or rolled back when change or the commit fails.
template <class Change>
[[nodiscard]] bool db_change_in_transaction(Database &db, Change change) {
  const ThreadId thread = current_thread();
  const DbStart start = db_start(db, thread, Nesting::allowed);
  if (start == DbStart::failed) return false;
  const bool done = change();
  if (start == DbStart::nested) return done;
  if (done) return db_commit_or_roll_back(db, thread);
  (void)db_rollback(db, thread);
  return false;
}

// The same with automatic commit on. With automatic commit off and no transaction open the changes go
// straight to the data file, and what was written before a failure stays.
template <class Change>
[[nodiscard]] bool db_change(Database &db, Change change) {
  if (env_on(Env::auto_commit)) return db_change_in_transaction(db, change);
  const ThreadId thread = current_thread();
  const DbStart start = db_direct_begin(db, thread);
  if (start == DbStart::failed) return false;
  const bool done = change();
  return start == DbStart::nested ? done : db_direct_end(db, thread) && done;
}

}  // namespace tovik
