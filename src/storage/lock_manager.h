// Who may read and who may write: a table of the threads that hold a level, and the process's level mirrored
// in byte-range locks on the DAT storage for other processes.
//
//   0 none  1 shared: may read  2 reserved: one writer prepares  3 pending: no new reader  4 exclusive: sole
//
// Lock bytes at the start of block 1 of the DAT part (B = block size): pending B, reserved B + 1, shared
// range B + 2 .. B + 511. With HVI_LOCK_DISABLE every request is granted without effect. One more place of
// the DAT storage is locked elsewhere: the in-use byte at 2^63 - 2, by whoever has it open (storage_use.h).
#pragma once

#include <atomic>

#include "storage/block/block_manager.h"

namespace tovik {

enum class LockLevel : int32_t { none = 0, shared = 1, reserved = 2, pending = 3, exclusive = 4 };

inline constexpr int lock_table_size = 16;

struct LockEntry {
  ThreadId thread;  // no_thread in a free entry
  LockLevel level;
};

struct LockManager {
  LockLevel level;  // of the process
  int32_t nshared;  // threads of this process that hold a level
  LockEntry table[lock_table_size];
  Lock *mutex;
  BlockManager *bm;
  int32_t sleep;  // milliseconds between retries
  int32_t retry;
  ThreadId dblock;  // always no_thread
  // The byte-range locks that this process holds.
  int32_t range_mode;  // shared range: 0, file_lock_shared or file_lock_exclusive
  bool reserved_held;
  int64_t looked_at;           // when a reader last found the pending byte free, in microseconds
  bool pending_held;           // exclusively; a reader holds it shared only while it enters
  std::atomic<bool> disabled;  // what HVI_LOCK_DISABLE said at lm_create or at the last lm_follow_switch
};

LockManager *lm_create(BlockManager &bm);
void lm_destroy(LockManager *lm);

// Goes by HVI_LOCK_DISABLE from now on, unless a thread holds a level: what was taken must be given back.
void lm_follow_switch(LockManager &lm);

// level is shared, reserved or exclusive; reserved takes shared first and gives it back when busy. A
// busy attempt may be repeated up to retry more times, sleeping outside the mutex. A thread that asks for
// exclusive and finds readers left stays at pending and is busy; it may ask again. Statuses 24001, 24002,
// 24003, 24005, 111, 112. A failed byte-range call leaves the table as it was.
enum class Attempt { once, repeated };
LockResult lm_lock(LockManager &lm, ThreadId thread, LockLevel level, Attempt attempt);

enum class Unlock {
  readers_only,  // a thread that holds reserved or more keeps everything
  to_shared,     // gives up reserved, pending and exclusive, keeps shared
  all
};

// Statuses 24001, 24009, 112 (and 111 for to_shared). After a failure the thread keeps its level and may
// unlock again.
[[nodiscard]] bool lm_unlock(LockManager &lm, ThreadId thread, Unlock how);

bool lm_holds(LockManager &lm, ThreadId thread);        // any level
bool lm_holds_write(LockManager &lm, ThreadId thread);  // reserved or more

// A writer exists elsewhere: another thread of this process, or another process (reserved byte). A test that
// fails counts as no writer: the lock that follows meets and reports the failure.
bool lm_write_busy(LockManager &lm, ThreadId thread);

void lm_dump(LockManager &lm, const char *title);

}  // namespace tovik
