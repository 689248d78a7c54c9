// Levels, commit and rollback. The copy is in transaction_copy.cpp, recovery in recovery.cpp.
//
// Invariants, beside those of transaction.h
//   1. tid is set exactly while level is above 0; levels[0 .. level - 1] are allocated, the others null.
//   2. Shadow blocks and page map are durable before the header with tstat 3 is written. record_written is
//      set before that write starts, for a write that fails may still have reached the disk.
//   3. A shadow block is never overwritten while a record that describes it may be on disk:
//      withdraw_record replaces the record first.
//   4. An inner level has shadow blocks of its own: when it opens every page is clean and forgets its outer
//      shadow block, and when it is rolled back every page leaves the cache: also a clean one may show a
//      change, of a step that failed before it gave the page back.
//   5. record_pending is set only while no level is open, and no level opens while it is set.
//
// Cost of a transaction with n changed blocks: n shadow writes (more when the cache overflows), a map write
// per block size / 8 entries, three header writes, n home writes, three flushes.

#include "storage/transaction/transaction.h"

#include "frame/dump.h"
#include "frame/env.h"
#include "frame/error.h"
#include "storage/transaction/transaction_internal.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {
namespace {

bool check_owner(const TransactionManager &tm, ThreadId thread) {
  if (thread == no_thread) return fail(status::tran_argument);
  const ThreadId owner = tm.tid;
  if (owner == no_thread) return fail(status::tran_level);
  return owner == thread || fail(status::tran_other_thread);
}

// Levels.

bool push_level(TransactionManager &tm, const Counters &counters) {
  ShadowLevel *level = mem_new<ShadowLevel>();
  if (level == nullptr) {
    err_set(status::out_of_memory);
    return fail(status::tran_info_create);
  }
  if (!shadow_level_init(*level, tm.hash_size)) {
    mem_delete(level);
    return fail(status::tran_info_create);
  }
  level->counters = counters;
  tm.levels[tm.level++] = level;
  return true;
}

// The block can take other changes. Without memory to note it, it only stays unused.
void leave_block(TransactionManager &tm, uint32_t tno) {
  if (tno != 0) (void)tm.left_blocks.push(static_cast<BlockNo>(tno));
}

void pop_level(TransactionManager &tm) {
  ShadowLevel *&level = tm.levels[--tm.level];
  shadow_level_release(*level);
  mem_delete(level);
  level = nullptr;
}

// No transaction is open any more; what becomes of the TRN storage is the caller's business.
void end_outermost(TransactionManager &tm) {
  cm_drop(*tm.trn);
  pop_level(tm);
  tm.sorted = Array<MapEntry>();
  tm.left_blocks = Array<BlockNo>();
  tm.record_written = tm.record_durable = false;
  tm.tid = no_thread;
}

// Start.

bool open_outermost(TransactionManager &tm) {
  if (tm.state->direct_changed && !sm_data_layer().write_counters(*tm.sm)) return false;
  if (!cm_flush(*tm.dat, nullptr)) return fail(status::tran_start_flush);
  cm_drop(*tm.trn);
  return push_level(tm, bm_counters(*tm.bm, part_dat));
}

bool start_outermost(TransactionManager &tm, ThreadId thread) {
  if (tm.record_pending || !trn_reset(*tm.bm)) return fail(status::tran_trn_create);
  if (!open_outermost(tm)) {
    ErrorScope leftover_is_reset_by_the_next_start;
    (void)trn_release(*tm.bm, TrnEnd::given_up);
    return false;
  }
  tm.tid = thread;
  return true;
}

bool start_inner(TransactionManager &tm) {
  if (tm.level == tran_level_limit) return fail(status::tran_nesting_limit);
  if (!sm_data_layer().write_counters(*tm.sm)) return false;
  if (!cm_flush(*tm.trn, &tm)) return fail(status::tran_cache_flush);
  if (!push_level(tm, shadow_counters(tm))) return false;
  cm_forget_shadows(*tm.trn);  // invariant 4
  return true;
}

// The commit record.

int64_t transaction_number(const HeaderRecord &header) {
  Clock now;
  system_driver.utc_now(&now);
  const int64_t number = static_cast<int64_t>(now.seconds) * 1000000 + now.microseconds;
  return number == header.last_applied ? number + 1 : number;
}

bool prepare_record(TransactionManager &tm) {
  HeaderRecord &header = tm.bm->header;
  CommitRecord &record = header.commit;
  record = CommitRecord();
  system_driver.local_now(&record.ctime);
  record.ctime.microseconds -= record.ctime.microseconds % 1000;
  if (!page_map_sort(tm)) return false;
  if (tm.sorted.empty()) return true;
  if (!page_map_write(tm, &record.map_bno)) return false;
  record.tstat = tran_committed;
  record.map_icnt = tm.sorted.size();
  record.after = tm.levels[0]->counters;
  record.before = header.parts[part_dat].counters;
  record.iid = header.creation_time;
  record.lcto = header.last_applied;
  record.lctn = transaction_number(header);
  return true;
}

bool sync_trn(TransactionManager &tm) {
  return !env_on(Env::tran_sync) || bm_sync(*tm.bm, part_trn) || fail(status::tran_sync);
}

// Writes the header with nothing to apply where the record will be. The flush of the shadow blocks then also
// settles where that block lies in the file, which makes the record's own flush a plain block write.
bool write_empty_record(TransactionManager &tm) {
  LockGuard guard(tm.state->lock);
  CommitRecord &commit = tm.bm->header.commit;
  const CommitRecord record = commit;
  commit = CommitRecord();
  const bool written = bm_write_header(*tm.bm, part_trn);
  commit = record;
  return written || fail(status::tran_record_write);
}

// Without changes there is nothing to make durable: the record says so, and losing it loses nothing.
bool write_record(TransactionManager &tm) {
  const bool committed = tm.bm->header.commit.tstat == tran_committed;
  if (committed && !(write_empty_record(tm) && sync_trn(tm))) return false;
  {
    LockGuard guard(tm.state->lock);
    tm.record_written = committed;
    if (!bm_write_header(*tm.bm, part_trn)) return fail(status::tran_record_write);
  }
  if (committed && !sync_trn(tm)) return false;
  tm.record_durable = committed;
  return true;
}

// Apply.

// The level ends with its record on disk: from now on no transaction is open and the record is pending.
void leave_record_pending(TransactionManager &tm) {
  sm_data_layer().level_dropped(*tm.sm, 1);
  end_outermost(tm);
  cm_drop(*tm.dat);
  trn_abandon(*tm.bm);
  tm.record_pending = true;
  tm.pending_number = 0;
}

bool apply_outermost(TransactionManager &tm) {
  const bool changed = tm.record_durable;
  bool written;
  if (changed && !record_complete(tm, &written)) {
    leave_record_pending(tm);
    err_set_first(status::tran_apply);
    return false;
  }
  // A level without changes needs no merging, and readers need not have left for it.
  changed ? sm_data_layer().level_merged(*tm.sm, 1) : sm_data_layer().level_dropped(*tm.sm, 1);
  // The transaction is in the DAT part whatever happens now: a storage left over is reset by the next start,
  // and its record, should it be found earlier, matches the header and may be copied again.
  ErrorScope applied_already;
  cm_adopt(*tm.dat, *tm.trn);
  end_outermost(tm);
  // Without changes the last saved storage stays the last.
  (void)trn_release(*tm.bm, changed ? TrnEnd::committed : TrnEnd::given_up);
  return true;
}

bool merge_level(TransactionManager &tm) {
  ShadowLevel &child = *tm.levels[tm.level - 1];
  ShadowLevel &parent = *tm.levels[tm.level - 2];
  if (!parent.entries.reserve(parent.entries.size() + child.entries.size())) {
    err_set(status::out_of_memory);
    return fail(status::tran_map_merge);
  }
  for (const MapEntry &entry : child.entries) {
    const BlockNo replaced = shadow_level_find(parent, static_cast<BlockNo>(entry.dno));
    if (!shadow_level_set(parent, entry.dno, entry.tno)) return fail(status::tran_map_merge);
    leave_block(tm, static_cast<uint32_t>(replaced));
  }
  parent.counters = child.counters;
  sm_data_layer().level_merged(*tm.sm, tm.level);
  pop_level(tm);
  return true;
}

// Rollback.

bool rollback_outermost(TransactionManager &tm) {
  const bool recorded = tm.record_written;
  if (recorded && !trn_destroy(*tm.bm)) {
    leave_record_pending(tm);  // a crash would bring the transaction back, so everybody must see it
    err_set_first(status::tran_trn_remove);
    return false;
  }
  sm_data_layer().level_dropped(*tm.sm, 1);
  end_outermost(tm);
  ErrorScope leftover_is_reset_by_the_next_start;
  if (!recorded) (void)trn_release(*tm.bm, TrnEnd::given_up);
  return true;
}

void rollback_inner(TransactionManager &tm) {
  cm_drop(*tm.trn);
  for (const MapEntry &entry : tm.levels[tm.level - 1]->entries) leave_block(tm, entry.tno);
  sm_data_layer().level_dropped(*tm.sm, tm.level);
  pop_level(tm);
}

// For the cache (ShadowMap::before_write). 22011, 22014.
bool withdraw_record(ShadowMap &map) {
  TransactionManager &tm = static_cast<TransactionManager &>(map);
  if (!tm.record_written) return true;
  tm.record_durable = false;
  tm.bm->header.commit = CommitRecord();
  tm.bm->header.commit.tstat = tran_open;
  if (!bm_write_header(*tm.bm, part_trn)) return fail(status::tran_record_write);
  if (!sync_trn(tm)) return false;
  tm.record_written = false;
  return true;
}

}  // namespace

TransactionManager *tm_create(StorageManager &sm, StorageState &state, CacheManager &dat, CacheManager &trn,
                              const Params &params) {
  TransactionManager *tm = mem_new<TransactionManager>();
  if (tm == nullptr) return fail_null(status::out_of_memory);
  tm->buffer = static_cast<uint8_t *>(mem_alloc(2 * static_cast<size_t>(bm_block_size(*dat.bm))));
  if (tm->buffer == nullptr) {
    mem_delete(tm);
    return fail_null(status::out_of_memory);
  }
  tm->sm = &sm;
  tm->state = &state;
  tm->bm = dat.bm;
  tm->dat = &dat;
  tm->trn = &trn;
  tm->before_write = withdraw_record;
  tm->hash_size = params.tran_hash;
  tm->tid = no_thread;
  return tm;
}

void tm_destroy(TransactionManager *tm) {
  if (tm == nullptr) return;
  while (tm->level > 0) pop_level(*tm);
  mem_free(tm->buffer);
  mem_delete(tm);
}

bool tm_start(TransactionManager &tm, ThreadId thread) {
  if (thread == no_thread) return fail(status::tran_argument);
  LockGuard guard(tm.state->lock);
  if (tm.level > 0 && tm.tid != thread) return fail(status::tran_other_thread);
  if (!(tm.level == 0 ? start_outermost(tm, thread) : start_inner(tm))) return false;
  sm_data_layer().level_opened(*tm.sm, tm.level);
  return true;
}

bool tm_commit(TransactionManager &tm, ThreadId thread) {
  if (!check_owner(tm, thread)) return false;
  {
    LockGuard guard(tm.state->lock);
    if (tm.level == 1 && !bm_check_current(*tm.bm)) return false;
    if (!sm_data_layer().write_counters(*tm.sm)) return false;
    if (!cm_flush(*tm.trn, &tm)) return fail(status::tran_cache_flush);
    if (tm.level > 1 || tm.record_durable) return true;
    if (!bm_reserve(*tm.bm, shadow_counters(tm).bcnt)) return false;
    if (!prepare_record(tm)) return false;
  }
  return write_record(tm);
}

bool tm_apply(TransactionManager &tm, ThreadId thread) {
  if (!check_owner(tm, thread)) return false;
  LockGuard guard(tm.state->lock);
  return tm.level > 1 ? merge_level(tm) : apply_outermost(tm);
}

bool tm_rollback(TransactionManager &tm, ThreadId thread) {
  if (!check_owner(tm, thread)) return false;
  LockGuard guard(tm.state->lock);
  if (tm.level == 1) return rollback_outermost(tm);
  rollback_inner(tm);
  return true;
}

void tm_dump(const TransactionManager &tm) {
  LockGuard guard(tm.state->lock);
  print_line("***  Transaction Information ***");
  if (tm.level == 0) {
    print_line(" transaction not running.");
    return;
  }
  print_line(" transaction running. tid[%d] level[%d] hsz[%d] atype[%d]", tm.tid.load(), tm.level,
             tm.hash_size, part_dat);
  for (int32_t number = 1; number <= tm.level; ++number) {
    const ShadowLevel &level = *tm.levels[number - 1];
    print_line(" --- transaction level %d information ---", number);
    print_line(" %d : hsz[%d] bcnt[%d] fcnt[%d] flst[%d] icnt[%d]", number, level.hash_size,
               level.counters.bcnt, level.counters.fcnt, level.counters.flst, level.entries.size());
    for (int32_t chain = 0; chain < level.hash_size; ++chain) {
      const int32_t head = level.chains[chain];
      if (head < 0) continue;
      print_line("\\t           --- transaction hash table ---");
      for (int32_t i = head; i >= 0; i = level.entries[i].next) {
        const MapEntry &entry = level.entries[i];
        dump_line(nullptr, 0,
                  i == head ? "           %d : dno[%d] tno[%d]" : "              %d =>list : dno[%d] tno[%d]",
                  chain, static_cast<int32_t>(entry.dno), static_cast<int32_t>(entry.tno));
      }
    }
  }
}

}  // namespace tovik
