// The database lock.
//
// Invariants
//   1. An entry in holds means that its thread has held at least the shared level since a grant that was
//      followed: whatever the DAT part held then, it holds still, but for commits of this process.
//   2. Nobody reads or starts a transaction while a commit record waits for its copy: every grant looks for
//      one (tm_check_record) before it reads anything else, and completes the copy first or is busy. A writer
//      elsewhere proves nothing: it may have died over its copy and left its lock to one who has not looked
//      yet.
//   3. What is cached from the DAT part is read again before the first grant after another process's commit
//      is used; a reading that fails half way is repeated at the next grant (reload_pending).
//   4. Nobody sleeps inside db.lock.
//   5. Whether locks are used at all (HVI_LOCK_DISABLE) changes only while nobody reads and no transaction is
//      open: what began with them ends with them.
//   6. A thread in owed holds a level that it has given back: whoever asks for a lock next repeats the
//      release, and the thread itself gets nothing before that succeeds.
#include "data/database_lock.h"

#include "frame/error.h"

namespace tovik {

namespace {

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

// ---- what a grant brings with it, under db.lock ----

// Until the systems are open there is nothing to read again.
bool follow_commits(Database &db) {
  bool changed = false;
  if (!sm_refresh(*db.storage, &changed)) return false;
  if (changed) db.reload_pending = true;
  if (!db.reload_pending) return true;
  tables_forget_all(db);
  if (db.storage->data != nullptr &&
      (!row_systems_reload_all(*db.storage) || !btrees_reload_all(*db.storage)))
    return false;
  db.reload_pending = false;
  return true;
}

bool recover(Database &db) {
  if (!tm_recover(*db.storage->tm)) return false;
  db.reload_pending = true;
  return true;
}

// Completes the copy of a commit record; the thread keeps shared. Busy, it keeps what it could get, so that
// readers leave. The thread's own cursors have read the state before and must be closed first; who may not
// write waits for another.
LockResult complete_copy(Database &db, ThreadId thread) {
  if (hold_of(db, thread) != nullptr || bm_read_only(*db.storage->bm)) return LockResult::busy;
  const LockResult result = lm_lock(*db.storage->lm, thread, LockLevel::exclusive, Attempt::once);
  if (result != LockResult::granted) return result;
  return recover(db) && release(db, thread, Unlock::to_shared) ? LockResult::granted : LockResult::failed;
}

LockResult settle_record(Database &db, ThreadId thread, DbLock mode) {
  TransactionManager &tm = *db.storage->tm;
  const Found check = tm.record_pending ? Found::yes : tm_check_record(tm);
  if (check == Found::no) return LockResult::granted;
  if (check == Found::failed) return LockResult::failed;
  const LockResult result = complete_copy(db, thread);
  if (result != LockResult::granted || mode == DbLock::read) return result;
  return lm_lock(*db.storage->lm, thread, LockLevel::reserved, Attempt::once);
}

LockResult follow_grant(Database &db, ThreadId thread, DbLock mode) {
  const bool unchanged = anybody_reads(db) && !db.reload_pending && !db.storage->tm->record_pending;
  if (unchanged && mode == DbLock::read) return LockResult::granted;
  const LockResult result = settle_record(db, thread, mode);
  if (result != LockResult::granted || unchanged) return result;
  return follow_commits(db) ? LockResult::granted : LockResult::failed;
}

// ---- taking levels ----

// Without locks only a copy or an opening that failed here can have left a record.
LockResult enter_unlocked(Database &db, DbLock mode) {
  if (db.storage->tm->record_pending && !(recover(db) && follow_commits(db))) return LockResult::failed;
  if (mode == DbLock::read) ++db.unlocked_reads;
  return LockResult::granted;
}

struct Try {
  bool held;   // a level since before the first try: shared is kept when it gets no more
  bool again;  // will follow: busy over a waiting record, it keeps what it got until then
};

LockResult try_lock(Database &db, ThreadId thread, DbLock mode, Try tried) {
  LockManager &lm = *db.storage->lm;
  if (!db_settle_releases(db, thread)) return LockResult::failed;
  const LockLevel level = mode == DbLock::read ? LockLevel::shared : LockLevel::reserved;
  LockResult result = lm_lock(lm, thread, level, Attempt::once);
  if (result == LockResult::granted &&
      (!tried.held || mode == DbLock::write || db.storage->tm->record_pending))
    result = follow_grant(db, thread, mode);
  if (result == LockResult::granted && mode == DbLock::read && !hold_add(db, thread))
    result = LockResult::failed;
  if (result == LockResult::granted) return result;
  if (result == LockResult::busy && tried.again && lm_holds_write(lm, thread)) return result;
  const bool left =
      !lm_holds(lm, thread) || release(db, thread, tried.held ? Unlock::to_shared : Unlock::all);
  return left ? result : LockResult::failed;
}

// Invariant 5.
void follow_switch(Database &db) {
  const StorageManager &sm = *db.storage;
  if (sm.lm != nullptr && db.unlocked_reads == 0 && sm.tm->tid == no_thread) lm_follow_switch(*sm.lm);
}

}  // namespace

bool db_lock_disabled(const Database &db) {
  return db.storage->lm == nullptr || db.storage->lm->disabled;
}

bool db_holds_write(const Database &db, ThreadId thread) {
  return !db_lock_disabled(db) && lm_holds_write(*db.storage->lm, thread);
}

bool db_granted(LockResult result) {
  if (result == LockResult::busy) err_set(status::database_busy);
  return result == LockResult::granted;
}

bool db_settle_releases(Database &db, ThreadId thread) {
  if (db_lock_disabled(db)) return true;
  const LockGuard guard(db.lock);
  for (ThreadId &entry : db.owed) {
    if (entry == no_thread || entry == thread) continue;
    ErrorScope not_the_callers;
    (void)release_again(db, &entry);
  }
  ThreadId *own = owed_entry(db, thread);
  return own == nullptr || release_again(db, own);
}

LockResult db_lock_trying(Database &db, ThreadId thread, DbLock mode, int retry, int sleep) {
  bool held;
  {
    const LockGuard guard(db.lock);
    follow_switch(db);
    if (db_lock_disabled(db)) return enter_unlocked(db, mode);
    held = lm_holds(*db.storage->lm, thread);
  }
  for (int tries = 0;; ++tries) {
    const bool last = tries >= retry;
    LockResult result = LockResult::busy;
    if (tries == 0 || mode == DbLock::read || !lm_write_busy(*db.storage->lm, thread)) {
      const LockGuard guard(db.lock);
      result = try_lock(db, thread, mode, {.held = held, .again = !last});
    }
    if (result != LockResult::busy || last) return result;
    sleep_between_tries(sleep);
  }
}

LockResult db_lock(Database &db, ThreadId thread, DbLock mode) {
  const LockManager *lm = db.storage->lm;
  return lm == nullptr ? LockResult::granted : db_lock_trying(db, thread, mode, lm->retry, lm->sleep);
}

bool db_unlock(Database &db, ThreadId thread, DbLock mode) {
  const LockGuard guard(db.lock);
  if (db_lock_disabled(db)) {
    if (mode == DbLock::read && db.unlocked_reads > 0) --db.unlocked_reads;
    return true;
  }
  ReadHold *hold = hold_of(db, thread);
  if (mode == DbLock::write) return release(db, thread, hold == nullptr ? Unlock::all : Unlock::to_shared);
  if (hold == nullptr) return fail(status::lock_no_entry);
  if (--hold->count > 0) return true;
  hold->thread = no_thread;
  return release(db, thread, Unlock::readers_only);
}

bool db_read_begin(Database &db, ThreadId thread) {
  return db_granted(db_lock(db, thread, DbLock::read));
}

void db_read_end(Database &db, ThreadId thread) {
  (void)db_unlock(db, thread, DbLock::read);
}

bool db_raise_exclusive(Database &db, ThreadId thread) {
  return db_lock_disabled(db) ||
         db_granted(lm_lock(*db.storage->lm, thread, LockLevel::exclusive, Attempt::repeated));
}

bool db_lower_exclusive(Database &db, ThreadId thread) {
  if (db_lock_disabled(db)) return true;
  const LockGuard guard(db.lock);
  return release(db, thread, Unlock::to_shared) &&
         db_granted(try_lock(db, thread, DbLock::write, {.held = true, .again = false}));
}

}  // namespace tovik
