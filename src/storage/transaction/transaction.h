// The transaction manager: gathers changes to the DAT part so that they reach it all at once or not at all.
//
//   none --tm_start--> open(level 1..4) --tm_commit--> recorded --tm_apply--> none
//                        |  tm_rollback                  |  failure of the copy: none, record kept on disk
//                        v                               v
//                       none                     tm_recover (next lock grant or open) --> none
//
// Every function takes the storage manager's lock for as long as it works on the caches or the headers, so
// other threads may use the page interface meanwhile; commit flushes the TRN storage outside it.
//
// Invariants
//   1. While a transaction is open no block of the DAT part changes.
//   2. The commit record is durable (tstat 3 flushed) before the first DAT block of the copy is written, and
//      before anything of it is written the DAT part has real room for every block that the copy will write.
//   3. The record stays until every block and the DAT header of the copy are written and flushed.
//   4. A record is applied only to the DAT part it was made for: iid equals the creation time, and the last
//      applied transaction is lcto (copy not finished) or lctn (finished; applying again is harmless).
//   5. One thread owns the transaction; every other thread works on the committed state.
#pragma once

#include <atomic>

#include "platform/found.h"
#include "storage/cache/cache.h"
#include "storage/transaction/data_layer_ops.h"

namespace tovik {

struct TransactionManager : ShadowMap {
  StorageManager *sm;   // whose data layer is told of the levels
  StorageState *state;  // the storage manager's
  BlockManager *bm;
  CacheManager *dat, *trn;
  std::atomic<ThreadId> tid;  // owner, no_thread when none is open; only the owner can find itself here
  Array<MapEntry> sorted;     // built at commit and at recovery
  bool record_written;        // a commit record of the open transaction may be on disk
  bool record_durable;        // ... and surely is
  std::atomic<bool> record_pending;  // a copy failed: the record on disk must be applied before anything else
  uint32_t pending_number;           // where that record lies: a saved storage, or 0 for the TRN storage
  uint8_t *buffer;                   // two blocks of scratch
};

// The transaction manager of sm over its block manager and caches; null with 1.
TransactionManager *tm_create(StorageManager &sm, StorageState &state, CacheManager &dat, CacheManager &trn,
                              const Params &params);
void tm_destroy(TransactionManager *tm);

// Opens a level. A start over a record that is still to be applied is refused with 22007. Statuses 22001,
// 122002 (another thread's), 122001, 22007, 22022, 22003, 22006.
[[nodiscard]] bool tm_start(TransactionManager &tm, ThreadId thread);

// Outermost level: makes sure of the room that the copy needs (120103: a full disk is met here, with nothing
// recorded), then writes the commit record; it is durable on success. May be called again when the exclusive
// level stayed busy: nothing is written when nothing changed since, and a change after the first call
// withdraws the record before it reaches a shadow block. Inner levels: only their pages are written.
// Statuses 22001, 22002, 122002, 22003, 120103, 22009, 22011, 22012, 22014; 120106 when the database is
// gone.
[[nodiscard]] bool tm_commit(TransactionManager &tm, ThreadId thread);

// Outermost level: the copy and the end of the level, under the exclusive level; without changes
// (record_durable not set) there is nothing to copy and no level is needed. A copy that fails is tried once
// more. When that fails too the level has ended, the record is still on disk, record_pending is set and 22015
// stands first in the error record: durable, not yet copied. Inner levels: merges into the level below; on
// failure (22021) nothing has changed.
[[nodiscard]] bool tm_apply(TransactionManager &tm, ThreadId thread);

// Ends the innermost level without applying it. A commit record already written is gone for good when this
// returns; if it cannot be destroyed the level has ended, but the record stands, record_pending is set and
// 22008 comes first: whether the transaction is committed shows when the record can be dealt with. Statuses
// 22001, 22002, 122002.
[[nodiscard]] bool tm_rollback(TransactionManager &tm, ThreadId thread);

// At open, under the exclusive level: applies a commit record left in the TRN storage or in a saved storage.
// Only 22023 fails the open; other problems are logged and recorded.
[[nodiscard]] bool tm_warm_restart(TransactionManager &tm);

// Is there a commit record that must be applied before this process may read or write? Cheap when there is no
// TRN storage. The caller holds the shared level and found no writer elsewhere. A writer that has appeared
// since may have its record on disk and wait for the exclusive level: when the caller, told yes, cannot
// get the reserved level, the record's writer is alive and will copy it.
// failed: the record cannot be read (22023), so nobody knows; or the DAT header cannot, or says that the
// database is gone (its statuses, 120106).
Found tm_check_record(TransactionManager &tm);

// Applies that record; the caller holds the exclusive level. The next sm_refresh reports a change. On failure
// (140003 in front of the causes) the record is still to be applied: whoever comes next tries again.
[[nodiscard]] bool tm_recover(TransactionManager &tm);

void tm_dump(const TransactionManager &tm);

}  // namespace tovik
