// The transaction manager: gathers changes to the DAT part so that they reach it all at once or not at all.
//
//   none --tm_start--> open(level 1..4) --tm_commit--> recorded --tm_apply--> none
//                        |  tm_rollback                  |  failure of the copy: none, record kept on disk
//                        v                               v
//                       none                     tm_recover (next lock grant or open) --> none
//
// Invariants
//   1. While a transaction is open no block of the DAT part changes.
//   2. The commit record is durable (tstat 3 flushed) before the first DAT block of the copy is written.
//   3. The record stays until every block and the DAT header of the copy are written and flushed.
//   4. A record is applied only to the DAT part it was made for: iid equals the creation time, and the last
//      applied transaction is lcto (copy not finished) or lctn (finished; applying again is harmless).
//   5. One thread owns the transaction; every other thread works on the committed state.
#pragma once

#include "platform/array.h"
#include "storage/cache.h"

namespace tovik {

struct StorageManager;

struct MapEntry {
  uint32_t dno;  // DAT block
  uint32_t tno;  // TRN block that holds its changes
  int32_t next;  // index of the next entry in the chain, -1 at the end
};

// One open level: counters as they stand inside it, and the map of the blocks it moved.
struct TranLevel {
  Counters counters;
  int32_t hash_size;  // doubles as the map grows, so that a chain stays short
  Array<MapEntry> entries;
  int32_t *chains;  // hash_size heads, index of an entry or -1
};

inline constexpr int tran_level_limit = 4;

struct TransactionManager {
  StorageManager *sm;
  BlockManager *bm;
  CacheManager *dat, *trn;
  int32_t hash_size;  // TRAN_HASH
  int32_t level;      // open levels, 0 to 4
  ThreadId tid;       // owner, no_thread when none is open
  TranLevel *levels[tran_level_limit];
  Array<MapEntry> sorted;  // built at commit and at recovery
  bool record_written;     // a commit record of the open transaction is on disk
  bool record_pending;     // a copy failed: the record on disk must be applied before anything else
};

TransactionManager *tm_create(StorageManager &sm, const Params &params);
void tm_destroy(TransactionManager *tm);

// Statuses 122002 (another thread's), 122001, 22007, 22022, 22004, 22003, 22005, 22006.
[[nodiscard]] bool tm_start(TransactionManager &tm, ThreadId thread);
[[nodiscard]] bool tm_commit(TransactionManager &tm,
                             ThreadId thread);  // the commit record: 22002, 22003, 22009, 22011, 22014

// The copy and the end of the level. On failure (22010, 22015, 22016) the level has ended too, the record is
// still on disk and record_pending is set.
[[nodiscard]] bool tm_apply(TransactionManager &tm, ThreadId thread);

[[nodiscard]] bool tm_rollback(TransactionManager &tm, ThreadId thread);  // 122002, 22002, 22004

// At open, under the exclusive level: applies a commit record left in the TRN storage or in a saved storage.
// Only 22023 fails the open; other problems are logged and recorded.
[[nodiscard]] bool tm_warm_restart(TransactionManager &tm);

// Is there a commit record that must be applied before this process may read or write? Cheap when there is no
// TRN storage. The caller holds the shared level and no writer exists elsewhere.
enum class RecordCheck { none, pending, failed };
RecordCheck tm_check_record(TransactionManager &tm);

// Applies that record; the caller holds the exclusive level.
[[nodiscard]] bool tm_recover(TransactionManager &tm);

// For the cache. Counters in use inside the transaction:
inline Counters &tm_counters(TransactionManager &tm) {
  return tm.levels[tm.level - 1]->counters;
}
[[nodiscard]] bool tm_map_add(TransactionManager &tm, BlockNo dno, BlockNo tno);  // current level; 1
BlockNo tm_map_find_level(const TransactionManager &tm, BlockNo dno);  // current level only, 0 = none
BlockNo tm_map_find(const TransactionManager &tm, BlockNo dno);  // innermost mapping of all levels, 0 = none

void tm_dump(const TransactionManager &tm);

}  // namespace tovik
