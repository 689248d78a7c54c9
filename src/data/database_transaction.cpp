// Transactions, and changes outside one, under the database lock.
//
// Pages changed outside a transaction reach the file under the exclusive level only, also those that a failed
// change left in the cache: a transaction starts when they are written.
#include "data/database_lock.h"
#include "frame/error.h"

namespace tovik {

namespace {

// A database opened with OPT=1 reads only. The status has its text from here.
bool check_writable(const Database &db) {
  if (!bm_read_only(*db.storage->bm)) return true;
  return fail(status::database_read_only, {.text = "the database was opened read-only (OPT=1)"});
}

// Asked by a thread that holds the write lock.
DbStart start_again(const Database &db, ThreadId thread, Nesting nesting) {
  StatusCode status = status::transaction_not_owned;
  if (db_in_transaction(db, thread)) {
    if (nesting == Nesting::allowed) return DbStart::nested;
    status = status::nested_transaction;
  }
  err_set(status);
  return DbStart::failed;
}

// The thread's open transaction, or null with 140002 or 40022.
TransactionManager *own_transaction(const Database &db, ThreadId thread) {
  TransactionManager *tm = db.storage->tm;
  const bool own = db_in_transaction(db, thread);
  if (own && (db_lock_disabled(db) || db_holds_write(db, thread))) return tm;
  return fail_null(db_holds_write(db, thread) ? status::transaction_not_owned : status::no_transaction);
}

// The thread holds reserved before and after.
bool finish_direct(Database &db, ThreadId thread) {
  return !db.storage->direct_changed ||
         (db_raise_exclusive(db, thread) && sm_direct_end(*db.storage) && db_lower_exclusive(db, thread));
}

DbStart start_first(Database &db, ThreadId thread) {
  if (finish_direct(db, thread) && tm_start(*db.storage->tm, thread)) return DbStart::started;
  (void)db_unlock(db, thread, DbLock::write);
  return DbStart::failed;
}

void copy_failed(Database &db, int level) {
  tables_level_dropped(db, level);
  const LockGuard guard(db.lock);
  db.reload_pending = true;
}

}  // namespace

bool db_in_transaction(const Database &db, ThreadId thread) {
  const TransactionManager *tm = db.storage->tm;
  return tm != nullptr && thread != no_thread && tm->tid == thread;
}

DbStart db_start(Database &db, ThreadId thread, Nesting nesting) {
  if (db.storage->tm == nullptr) {
    err_set(status::transaction_not_owned);
    return DbStart::failed;
  }
  if (!check_writable(db) || !db_settle_releases(db, thread)) return DbStart::failed;
  if (db_holds_write(db, thread)) return start_again(db, thread, nesting);
  const Params &params = *db.params;
  return db_granted(db_lock_trying(db, thread, DbLock::write, params.begin_retry, params.begin_sleep))
             ? start_first(db, thread)
             : DbStart::failed;
}

bool db_commit(Database &db, ThreadId thread) {
  TransactionManager *tm = own_transaction(db, thread);
  if (tm == nullptr) return false;
  const int level = tm->level;
  if (!tm_commit(*tm, thread)) return false;
  if (tm->record_durable && !db_raise_exclusive(db, thread)) return false;
  const bool applied = tm_apply(*tm, thread);
  if (applied) {
    tables_level_merged(db, level);
  } else {
    if (tm->level >= level) (void)tm_rollback(*tm, thread);
    copy_failed(db, level);
  }
  if (level == 1) {
    ErrorScope the_outcome_stands;  // a release that fails is owed
    (void)db_unlock(db, thread, DbLock::write);
  }
  return applied;
}

bool db_rollback(Database &db, ThreadId thread) {
  TransactionManager *tm = own_transaction(db, thread);
  if (tm == nullptr) return false;
  const int level = tm->level;
  const bool ended = tm_rollback(*tm, thread);
  if (tm->level >= level) return false;  // nothing was ended
  tables_level_dropped(db, level);
  const bool released = level > 1 || db_unlock(db, thread, DbLock::write);
  return ended && released;
}

bool db_commit_or_roll_back(Database &db, ThreadId thread) {
  if (db_commit(db, thread)) return true;
  if (db_in_transaction(db, thread)) (void)db_rollback(db, thread);
  return false;
}

// ---- changes outside a transaction ----

DbStart db_direct_begin(Database &db, ThreadId thread) {
  if (db.storage->tm != nullptr && !check_writable(db)) return DbStart::failed;
  if (!db_settle_releases(db, thread)) return DbStart::failed;
  if (db.storage->tm == nullptr || db_holds_write(db, thread) || db_in_transaction(db, thread))
    return DbStart::nested;
  if (!db_granted(db_lock(db, thread, DbLock::write))) return DbStart::failed;
  if (db_raise_exclusive(db, thread) && sm_direct_begin(*db.storage)) return DbStart::started;
  (void)db_unlock(db, thread, DbLock::write);
  return DbStart::failed;
}

bool db_direct_end(Database &db, ThreadId thread) {
  const bool written = sm_direct_end(*db.storage);
  const bool released = db_unlock(db, thread, DbLock::write);
  return written && released;
}

}  // namespace tovik
