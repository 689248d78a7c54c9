// The database lock and the transactions under it.
//
// Invariants
//   1. An entry in holds means that its thread has held at least the shared level since a grant that was
//      followed: whatever the DAT part held then, it holds still, but for commits of this process.
//   2. Nobody reads or starts a transaction while a commit record waits for its copy (tm_check_record): the
//      grant completes the copy first, or is busy.
//   3. What is cached from the DAT part is read again before the first grant after another process's commit
//      is used; a reading that fails half way is repeated at the next grant (reload_pending).
//   4. Nobody sleeps inside db.lock.
//   5. Pages changed outside a transaction reach the file under the exclusive level only, also those that a
//      failed change left in the cache: a transaction starts when they are written.
//   6. A thread in owed holds a level that it has given back: whoever asks for a lock next repeats the
//      release, and the thread itself gets nothing before that succeeds.
#include "data/database.h"
#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

bool lock_disabled(const Database &db) {
  return db.storage->lm == nullptr || env_on(Env::lock_disable);
}

void sleep_between_tries(int milliseconds) {
  if (milliseconds > 0) system_driver.sleep_ms(milliseconds);
}

// ---- read holds, under db.lock ----

ReadHold *hold_of(Database &db, ThreadId thread) {
  for (ReadHold &hold : db.holds)
    if (hold.thread == thread) return &hold;
  return nullptr;
}

bool anybody_reads(const Database &db) {
  for (const ReadHold &hold : db.holds)
    if (hold.thread != no_thread) return true;
  return false;
}

bool hold_add(Database &db, ThreadId thread) {
  ReadHold *hold = hold_of(db, thread);
  if (hold == nullptr) {
    hold = hold_of(db, no_thread);
    if (hold == nullptr) return fail(status::lock_table_full);
    *hold = {thread, 0};
  }
  ++hold->count;
  return true;
}

// ---- giving levels back, under db.lock ----

ThreadId *owed_entry(Database &db, ThreadId thread) {
  for (ThreadId &entry : db.owed)
    if (entry == thread) return &entry;
  return nullptr;
}

bool release(Database &db, ThreadId thread, Unlock how) {
  if (lm_unlock(*db.storage->lm, thread, how)) return true;
  ThreadId *entry = owed_entry(db, thread);
  if (entry == nullptr) entry = owed_entry(db, no_thread);
  if (entry != nullptr) *entry = thread;
  return false;
}

bool release_again(Database &db, ThreadId *entry) {
  const Unlock how = hold_of(db, *entry) == nullptr ? Unlock::all : Unlock::to_shared;
  if (!lm_unlock(*db.storage->lm, *entry, how)) return false;
  *entry = no_thread;
  return true;
}

// False when the thread's own release fails again.
bool settle_releases(Database &db, ThreadId thread) {
  const LockGuard guard(db.lock);
  for (ThreadId &entry : db.owed) {
    if (entry == no_thread || entry == thread) continue;
    ErrorScope not_the_callers;
    (void)release_again(db, &entry);
  }
  ThreadId *own = owed_entry(db, thread);
  return own == nullptr || release_again(db, own);
}

// ---- what a grant brings with it, under db.lock ----

bool follow_commits(Database &db) {
  bool changed = false;
  if (!sm_refresh(*db.storage, &changed)) return false;
  if (changed) db.reload_pending = true;
  if (!db.reload_pending) return true;
  tables_forget_all(db);
  if (!row_systems_reload_all(*db.storage) || !btrees_reload_all(*db.storage)) return false;
  db.reload_pending = false;
  return true;
}

// Completes the copy of a commit record. The thread holds shared or more; it keeps the level that mode asks
// for when the result is granted.
LockResult complete_copy(Database &db, ThreadId thread, DbLock mode) {
  LockManager &lm = *db.storage->lm;
  LockResult result = lm_lock(lm, thread, LockLevel::reserved, false);
  if (result == LockResult::granted) result = lm_lock(lm, thread, LockLevel::exclusive, false);
  if (result != LockResult::granted) return result;
  if (!tm_recover(*db.storage->tm)) return LockResult::failed;
  db.reload_pending = true;
  if (!follow_commits(db) || !release(db, thread, Unlock::to_shared)) return LockResult::failed;
  return mode == DbLock::read ? LockResult::granted : lm_lock(lm, thread, LockLevel::reserved, false);
}

LockResult follow_grant(Database &db, ThreadId thread, DbLock mode) {
  TransactionManager &tm = *db.storage->tm;
  const bool unchanged = anybody_reads(db) && !db.reload_pending;
  if (!unchanged && !follow_commits(db)) return LockResult::failed;
  bool pending = tm.record_pending;
  if (!pending && (mode == DbLock::write || !unchanged) && !lm_write_busy(*db.storage->lm, thread)) {
    const RecordCheck check = tm_check_record(tm);
    if (check == RecordCheck::failed) return LockResult::failed;
    pending = check == RecordCheck::pending;
  }
  if (!pending) return LockResult::granted;
  return anybody_reads(db) ? LockResult::busy : complete_copy(db, thread, mode);
}

LockResult try_lock(Database &db, ThreadId thread, DbLock mode) {
  LockManager &lm = *db.storage->lm;
  if (!settle_releases(db, thread)) return LockResult::failed;
  const bool held = lm_holds(lm, thread);
  const LockLevel level = mode == DbLock::read ? LockLevel::shared : LockLevel::reserved;
  LockResult result = lm_lock(lm, thread, level, false);
  if (result != LockResult::granted) return result;
  const LockGuard guard(db.lock);
  if (!held || mode == DbLock::write || db.storage->tm->record_pending)
    result = follow_grant(db, thread, mode);
  if (result == LockResult::granted && mode == DbLock::read && !hold_add(db, thread))
    result = LockResult::failed;
  if (result != LockResult::granted && !release(db, thread, held ? Unlock::to_shared : Unlock::all))
    result = LockResult::failed;
  return result;
}

}  // namespace

LockResult db_lock(Database &db, ThreadId thread, DbLock mode) {
  if (lock_disabled(db)) return LockResult::granted;
  const LockManager &lm = *db.storage->lm;
  for (int tries = 0;; ++tries) {
    const LockResult result = try_lock(db, thread, mode);
    if (result != LockResult::busy || tries >= lm.retry) return result;
    sleep_between_tries(lm.sleep);
  }
}

bool db_unlock(Database &db, ThreadId thread, DbLock mode) {
  if (lock_disabled(db)) return true;
  const LockGuard guard(db.lock);
  ReadHold *hold = hold_of(db, thread);
  if (mode == DbLock::write) return release(db, thread, hold == nullptr ? Unlock::all : Unlock::to_shared);
  if (hold == nullptr) return fail(status::lock_no_entry);
  if (--hold->count > 0) return true;
  hold->thread = no_thread;
  return release(db, thread, Unlock::readers_only);
}

bool db_read_begin(Database &db, ThreadId thread) {
  switch (db_lock(db, thread, DbLock::read)) {
    case LockResult::granted:
      return true;
    case LockResult::busy:
      return fail(status::database_busy);
    case LockResult::failed:
      break;
  }
  return false;
}

void db_read_end(Database &db, ThreadId thread) {
  (void)db_unlock(db, thread, DbLock::read);
}

// ---- transactions ----

namespace {

bool holds_write(const Database &db, ThreadId thread) {
  return !lock_disabled(db) && lm_holds_write(*db.storage->lm, thread);
}

// Asked by a thread that holds the write lock.
DbStart start_again(const Database &db, ThreadId thread, bool allow_nested) {
  StatusCode status = status::transaction_not_owned;
  if (db_in_transaction(db, thread)) {
    if (allow_nested) return DbStart::nested;
    status = status::nested_transaction;
  }
  err_set(status);
  return DbStart::failed;
}

// The thread's open transaction, or null with 140002 or 40022.
TransactionManager *own_transaction(const Database &db, ThreadId thread) {
  TransactionManager *tm = db.storage->tm;
  const bool own = db_in_transaction(db, thread);
  if (own && (lock_disabled(db) || holds_write(db, thread))) return tm;
  return fail_null(holds_write(db, thread) ? status::transaction_not_owned : status::no_transaction);
}

bool take_exclusive(Database &db, ThreadId thread) {
  if (lock_disabled(db)) return true;
  const LockResult result = lm_lock(*db.storage->lm, thread, LockLevel::exclusive, true);
  if (result == LockResult::busy) return fail(status::database_busy);
  return result == LockResult::granted;
}

// Invariant 5; the thread holds reserved before and after.
bool finish_direct(Database &db, ThreadId thread) {
  if (!db.storage->direct_changed) return true;
  if (!take_exclusive(db, thread) || !sm_direct_end(*db.storage)) return false;
  if (lock_disabled(db)) return true;
  {
    const LockGuard guard(db.lock);
    if (!release(db, thread, Unlock::to_shared)) return false;
  }
  const LockResult result = try_lock(db, thread, DbLock::write);
  if (result == LockResult::busy) return fail(status::database_busy);
  return result == LockResult::granted;
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

DbStart db_start(Database &db, ThreadId thread, bool allow_nested) {
  if (db.storage->tm == nullptr) {
    err_set(status::transaction_not_owned);
    return DbStart::failed;
  }
  if (!lock_disabled(db) && !settle_releases(db, thread)) return DbStart::failed;
  if (holds_write(db, thread)) return start_again(db, thread, allow_nested);
  for (int tries = 0; tries <= db.params->begin_retry; ++tries) {
    if (tries > 0) sleep_between_tries(db.params->begin_sleep);
    if (!lock_disabled(db) && lm_write_busy(*db.storage->lm, thread)) continue;
    const LockResult result = db_lock(db, thread, DbLock::write);
    if (result == LockResult::granted) return start_first(db, thread);
    if (result == LockResult::failed) return DbStart::failed;
  }
  err_set(status::database_busy);
  return DbStart::failed;
}

bool db_commit(Database &db, ThreadId thread) {
  TransactionManager *tm = own_transaction(db, thread);
  if (tm == nullptr) return false;
  const int level = tm->level;
  if (!tm_commit(*tm, thread)) return false;
  if (tm->record_durable && !take_exclusive(db, thread)) return false;
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

bool db_whole_begin(Database &db, int *level) {
  const int outer = sm_level(*db.storage);
  *level = 0;
  if (outer == 0 || outer == tran_level_limit) return true;
  if (!tm_start(*db.storage->tm, current_thread())) return false;
  *level = outer + 1;
  return true;
}

bool db_whole_end(Database &db, int level, bool done) {
  if (level == 0) return done;
  TransactionManager &tm = *db.storage->tm;
  const ThreadId thread = current_thread();
  if (done && tm_commit(tm, thread) && tm_apply(tm, thread)) {
    tables_level_merged(db, level);
    return true;
  }
  (void)tm_rollback(tm, thread);  // of an inner level: cannot fail
  tables_level_dropped(db, level);
  return false;
}

// ---- changes outside a transaction ----

DbStart db_direct_begin(Database &db, ThreadId thread) {
  if (!lock_disabled(db) && !settle_releases(db, thread)) return DbStart::failed;
  if (db.storage->tm == nullptr || holds_write(db, thread) || db_in_transaction(db, thread))
    return DbStart::nested;
  switch (db_lock(db, thread, DbLock::write)) {
    case LockResult::busy:
      err_set(status::database_busy);
      return DbStart::failed;
    case LockResult::failed:
      return DbStart::failed;
    case LockResult::granted:
      break;
  }
  if (take_exclusive(db, thread) && sm_direct_begin(*db.storage)) return DbStart::started;
  (void)db_unlock(db, thread, DbLock::write);
  return DbStart::failed;
}

bool db_direct_end(Database &db, ThreadId thread) {
  const bool written = sm_direct_end(*db.storage);
  const bool released = db_unlock(db, thread, DbLock::write);
  return written && released;
}

}  // namespace tovik
