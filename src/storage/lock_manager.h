// Who may read and who may write: a table of the threads that hold a level, and the process's level mirrored
// in byte-range locks on the DAT storage for other processes.
//
//   0 none  1 shared: may read  2 reserved: one writer prepares  3 pending: no new reader  4 exclusive: sole
//
// Lock bytes at the start of block 1 of the DAT part (B = block size): pending B, reserved B + 1, shared
// range B + 2 .. B + 511. With HVI_LOCK_DISABLE every request is granted without effect.
#pragma once

#include "storage/block_manager.h"

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
};

LockManager *lm_create(BlockManager &bm);
void lm_destroy(LockManager *lm);

// level is shared, reserved or exclusive; reserved takes shared first and gives it back when busy. With wait
// a busy attempt is repeated up to retry more times, sleeping outside the mutex. Statuses 24001, 24005, 111.
LockResult lm_lock(LockManager &lm, ThreadId thread, LockLevel level, bool wait);

enum class Unlock {
  readers_only,  // a thread that holds reserved or more keeps everything
  to_shared,     // gives up reserved, pending and exclusive, keeps shared
  all
};
[[nodiscard]] bool lm_unlock(LockManager &lm, ThreadId thread, Unlock how);  // 24001, 24009, 112

bool lm_holds(LockManager &lm, ThreadId thread);        // any level
bool lm_holds_write(LockManager &lm, ThreadId thread);  // reserved or more

// A writer exists elsewhere: another thread of this process, or another process (reserved byte).
bool lm_write_busy(LockManager &lm, ThreadId thread);

void lm_dump(LockManager &lm, const char *title);

}  // namespace tovik
