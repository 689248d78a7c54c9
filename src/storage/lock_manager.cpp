// The lock table and its mirror in byte-range locks.
//
//              shared             reserved             pending                exclusive
//   none ------------> shared ------------> reserved ------------> pending ------------> exclusive
//     ^                  |  ^                   |                     |                       |
//     |   lm_unlock all  |  +-------------------+----- to_shared -----+-----------------------+
//     +------------------+------------------ (from every level) ------------------------------+
//
// Invariants
//   1. At most one entry stands above shared, and then the process's level is that entry's level; otherwise
//      the level is shared while an entry is in use and none when the table is empty. nshared counts the
//      entries in use.
//   2. Above none the process holds the shared range, in exclusive mode at exclusive; a writer at pending
//      that has asked for exclusive may do without it. Whenever the range changes its mode or is not held,
//      the pending byte is, so no other process can enter.
//   3. The reserved byte is held from reserved up, the pending byte from pending up. range_mode,
//      reserved_held and pending_held tell what is really held; they differ from the levels only after a
//      failed byte-range call, and every step goes by them, so that a repeated step completes the first.
//   4. While a writer of another process waits at pending no reader enters, whether it is its process's first
//      or would join others in the range: readers that relieve each other would keep the range for ever. The
//      writer keeps its pending byte as long as it waits. Those that join need not ask the system each time:
//      it is enough to see the writer within one of its waits.
//   5. io_lock_check tests a byte by locking and unlocking it, which would drop a lock of our own: it runs
//      inside the mutex and only below reserved.

#include "storage/lock_manager.h"

#include <cassert>

#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"

namespace tovik {
namespace {

struct ByteRange {
  int64_t offset;  // from the start of block 1 of the DAT part
  int64_t length;
};

constexpr ByteRange pending_byte = {0, 1};
constexpr ByteRange reserved_byte = {1, 1};
constexpr ByteRange shared_range = {2, 510};

LockResult take(LockManager &lm, ByteRange range, int mode) {
  return io_lock(lm.bm->io[part_dat], mode, bm_block_size(*lm.bm) + range.offset, range.length);
}

bool release(LockManager &lm, ByteRange range) {
  return io_unlock(lm.bm->io[part_dat], bm_block_size(*lm.bm) + range.offset, range.length, Mishap::recorded);
}

LockResult take_range(LockManager &lm, int mode) {
  const LockResult result = take(lm, shared_range, mode);
  if (result == LockResult::granted) lm.range_mode = mode;
  return result;
}

bool release_range(LockManager &lm) {
  if (lm.range_mode == 0) return true;
  if (!release(lm, shared_range)) return false;
  lm.range_mode = 0;
  return true;
}

bool release_flagged(LockManager &lm, ByteRange range, bool *held) {
  if (!*held) return true;
  if (!release(lm, range)) return false;
  *held = false;
  return true;
}

LockEntry *find_entry(LockManager &lm, ThreadId thread) {
  for (LockEntry &entry : lm.table)
    if (entry.thread == thread) return &entry;
  return nullptr;
}

void set_level(LockManager &lm, LockEntry &entry, LockLevel level) {
  entry.level = level;
  lm.level = level;
}

int64_t now() {
  Clock clock;
  system_driver.utc_now(&clock);
  return int64_t{clock.seconds} * 1000000 + clock.microseconds;
}

bool looked_just_now(const LockManager &lm) {
  const int64_t passed = now() - lm.looked_at;
  return passed >= 0 && passed < int64_t{lm.sleep} * 1000;
}

// A reader enters through the pending byte, so that it finds a waiting writer's (invariant 4).
LockResult enter_range(LockManager &lm) {
  const bool joins = lm.range_mode != 0;
  if (joins && looked_just_now(lm)) return LockResult::granted;
  LockResult result = take(lm, pending_byte, file_lock_shared);
  lm.looked_at = result == LockResult::granted ? now() : 0;
  if (result != LockResult::granted) return result;
  if (!joins) result = take_range(lm, file_lock_shared);
  if (release(lm, pending_byte)) return result;
  if (!joins && result == LockResult::granted) (void)release_range(lm);
  return LockResult::failed;
}

LockResult take_shared(LockManager &lm, LockEntry &entry, ThreadId thread) {
  assert(entry.level == LockLevel::none);
  if (lm.level < LockLevel::reserved) {  // from there on the writer is this process's
    const LockResult result = enter_range(lm);
    if (result != LockResult::granted) return result;
  }
  if (lm.level == LockLevel::none) lm.level = LockLevel::shared;
  entry = {thread, LockLevel::shared};
  ++lm.nshared;
  return LockResult::granted;
}

LockResult take_reserved(LockManager &lm, LockEntry &entry) {
  if (!lm.reserved_held) {
    const LockResult result = take(lm, reserved_byte, file_lock_exclusive);
    if (result != LockResult::granted) return result;
    lm.reserved_held = true;
  }
  if (entry.level < LockLevel::reserved) set_level(lm, entry, LockLevel::reserved);
  return LockResult::granted;
}

LockResult take_exclusive(LockManager &lm, LockEntry &entry) {
  if (!lm.pending_held) {
    const LockResult result = take(lm, pending_byte, file_lock_exclusive);
    if (result != LockResult::granted) return result;
    lm.pending_held = true;
    set_level(lm, entry, LockLevel::pending);
  }
  if (lm.nshared > 1) return LockResult::busy;
  if (lm.range_mode != file_lock_exclusive) {
    if (!release_range(lm)) return LockResult::failed;
    const LockResult result = take_range(lm, file_lock_exclusive);
    if (result != LockResult::granted) return result;  // pending keeps others out meanwhile
  }
  set_level(lm, entry, LockLevel::exclusive);
  return LockResult::granted;
}

bool holds_bytes_of(const LockManager &lm, LockLevel level) {
  if (level == LockLevel::exclusive) return lm.range_mode == file_lock_exclusive && lm.pending_held;
  if (level == LockLevel::reserved && !lm.reserved_held) return false;
  return lm.range_mode != 0 || lm.pending_held;
}

LockResult lock_step(LockManager &lm, ThreadId thread, LockLevel level) {
  LockEntry *entry = find_entry(lm, thread);
  if (entry == nullptr) entry = find_entry(lm, no_thread);
  if (entry == nullptr) {
    err_set(status::lock_table_full);
    return LockResult::failed;
  }
  if (level <= entry->level && holds_bytes_of(lm, level)) return LockResult::granted;
  if (lm.level != entry->level && (lm.level > LockLevel::reserved || level > LockLevel::shared))
    return LockResult::busy;
  switch (level) {
    case LockLevel::shared:
      return take_shared(lm, *entry, thread);
    case LockLevel::reserved:
      return take_reserved(lm, *entry);
    default:
      return take_exclusive(lm, *entry);
  }
}

// Gives up what stands above shared. The shared range is taken back while pending is still held (invariant
// 2); a thread that leaves altogether from exclusive does without it.
bool leave_write(LockManager &lm, LockEntry &entry, bool keep_reading) {
  if (lm.range_mode == file_lock_exclusive && !release_range(lm)) return false;
  if (keep_reading && lm.range_mode == 0) {
    const LockResult result = take_range(lm, file_lock_shared);
    if (result == LockResult::busy) return fail(status::io_lock);
    if (result == LockResult::failed) return false;
  }
  if (!release_flagged(lm, reserved_byte, &lm.reserved_held)) return false;
  if (!release_flagged(lm, pending_byte, &lm.pending_held)) return false;
  set_level(lm, entry, LockLevel::shared);
  return true;
}

bool unlock_step(LockManager &lm, ThreadId thread, Unlock how) {
  LockEntry *entry = find_entry(lm, thread);
  if (entry == nullptr) return fail(status::lock_no_entry);
  if (entry->level > LockLevel::shared) {
    if (how == Unlock::readers_only) return true;
    if (!leave_write(lm, *entry, how == Unlock::to_shared)) return false;
  }
  if (how == Unlock::to_shared) return true;
  if (lm.nshared == 1) {
    if (!release_range(lm)) return false;
    lm.level = LockLevel::none;
  }
  *entry = {no_thread, LockLevel::none};
  --lm.nshared;
  return true;
}

// One attempt. The levels below are taken on the way; shared is given back when this attempt took it and
// then got no further.
LockResult lock_attempt(LockManager &lm, ThreadId thread, LockLevel level) {
  const bool entered = find_entry(lm, thread) == nullptr;
  LockResult result = lock_step(lm, thread, LockLevel::shared);
  if (result != LockResult::granted || level == LockLevel::shared) return result;
  result = lock_step(lm, thread, LockLevel::reserved);
  if (result != LockResult::granted) {
    if (entered && !unlock_step(lm, thread, Unlock::all)) return LockResult::failed;
    return result;
  }
  return level == LockLevel::exclusive ? lock_step(lm, thread, level) : result;
}

void trace(LockManager &lm, const char *title) {
  if (env_number(Env::lock_debug) > 0) lm_dump(lm, title);
}

bool enter(LockManager &lm) {
  return system_driver.lock_enter(lm.mutex) == 0 || fail(status::lock_table_enter);
}

bool leave(LockManager &lm) {
  return system_driver.lock_leave(lm.mutex) == 0 || fail(status::lock_table_leave);
}

const char *level_name(LockLevel level) {
  static const char *const names[] = {"LKT_NUL", "LKT_SHA", "LKT_RES", "LKT_PEN", "LKT_EXC"};
  const int index = static_cast<int>(level);
  return index >= 0 && index < 5 ? names[index] : "unkonw type lock";
}

LockLevel held_level(LockManager &lm, ThreadId thread) {
  if (thread == no_thread) return LockLevel::none;
  LockGuard guard(lm.mutex);
  const LockEntry *entry = find_entry(lm, thread);
  return entry == nullptr ? LockLevel::none : entry->level;
}

}  // namespace

LockManager *lm_create(BlockManager &bm) {
  LockManager *lm = mem_new<LockManager>();
  if (lm == nullptr) return fail_null(status::out_of_memory);
  lm->mutex = system_driver.lock_create();
  if (lm->mutex == nullptr) {
    mem_delete(lm);
    return fail_null(status::lock_create);
  }
  for (LockEntry &entry : lm->table) entry = {no_thread, LockLevel::none};
  lm->bm = &bm;
  lm->sleep = param_lock_sleep(*bm.params);
  lm->retry = param_lock_retry(*bm.params);
  lm->dblock = no_thread;
  lm->disabled = env_on(Env::lock_disable);
  return lm;
}

void lm_destroy(LockManager *lm) {
  if (lm == nullptr) return;
  trace(*lm, "lock manager destroy");
  system_driver.lock_destroy(lm->mutex);
  mem_delete(lm);
}

void lm_follow_switch(LockManager &lm) {
  const bool disabled = env_on(Env::lock_disable);
  if (disabled == lm.disabled) return;
  LockGuard guard(lm.mutex);
  if (lm.nshared == 0) lm.disabled = disabled;
}

LockResult lm_lock(LockManager &lm, ThreadId thread, LockLevel level, Attempt attempt) {
  if (thread == no_thread ||
      (level != LockLevel::shared && level != LockLevel::reserved && level != LockLevel::exclusive)) {
    err_set(status::lock_argument);
    return LockResult::failed;
  }
  if (lm.disabled) return LockResult::granted;
  for (int32_t retries = 0;; ++retries) {
    if (!enter(lm)) return LockResult::failed;
    trace(lm, "lock before states");
    const LockResult result = lock_attempt(lm, thread, level);
    trace(lm, "lock after states");
    if (!leave(lm)) return LockResult::failed;
    if (result != LockResult::busy || attempt == Attempt::once || retries >= lm.retry) return result;
    system_driver.sleep_ms(lm.sleep);
  }
}

bool lm_unlock(LockManager &lm, ThreadId thread, Unlock how) {
  if (thread == no_thread) return fail(status::lock_argument);
  if (lm.disabled) return true;
  if (!enter(lm)) return false;
  trace(lm, "unlock before state");
  const bool done = unlock_step(lm, thread, how);
  trace(lm, "unlock after states");
  return leave(lm) && done;
}

bool lm_holds(LockManager &lm, ThreadId thread) {
  return held_level(lm, thread) > LockLevel::none;
}

bool lm_holds_write(LockManager &lm, ThreadId thread) {
  return held_level(lm, thread) >= LockLevel::reserved;
}

bool lm_write_busy(LockManager &lm, ThreadId thread) {
  if (lm.disabled) return false;
  LockGuard guard(lm.mutex);
  for (const LockEntry &entry : lm.table)
    if (entry.level >= LockLevel::reserved && entry.thread != thread) return true;
  if (lm.level >= LockLevel::reserved || lm.reserved_held) return false;
  ErrorScope failure_is_no_writer;
  return io_lock_check(lm.bm->io[part_dat], bm_block_size(*lm.bm) + reserved_byte.offset) == LockResult::busy;
}

void lm_dump(LockManager &lm, const char *title) {
  LockGuard guard(lm.mutex);
  print_line("--- %s ---", title);
  print_line("cur pid  : %d", system_driver.process_id());
  print_line("cur tid  : %d", current_thread());
  print_line("lock_type: %s", level_name(lm.level));
  print_line("nshared  : %d", lm.nshared);
  print_line("dblock   : %d", lm.dblock);
  for (int i = 0; i < lock_table_size; ++i) {
    const LockEntry &entry = lm.table[i];
    if (entry.thread == no_thread) continue;
    print_line("  [%d] tid[%d] type[%s]", i, entry.thread, level_name(entry.level));
  }
  print_line("--------------------------");
}

}  // namespace tovik
