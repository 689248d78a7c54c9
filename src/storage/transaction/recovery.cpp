// Finding and applying commit records whose copy did not finish.
//
//   process dies after the record is durable       tm_warm_restart at the next open, or tm_check_record and
//                                                  tm_recover in a process that is open already
//   the copy fails in this process                 record_pending; tm_recover at the next lock grant
//   power fails and loses DAT writes that nobody   tm_warm_restart from the saved storage of the last commit
//   flushed (HVI_TRAN_SYNC off)
//
// A record is applied when it has tstat 3, was made for this DAT part (iid), and the DAT header stands just
// before it (lcto, ucnt before) or just after it (lctn, ucnt before + 1). Every field is checked before a
// block is written; a record that cannot be true is never applied.

#include "frame/env.h"
#include "frame/error.h"
#include "frame/log.h"
#include "storage/transaction/transaction_internal.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {
namespace {

constexpr int64_t same_commit_seconds = 10;  // from the DAT file's modification to the saved storage's

enum class Verdict {
  none,        // no record, an impossible one, or one that does not concern this DAT part
  conflict,    // the record's update counter is not the DAT part's
  unreadable,  // recorded
  applicable
};

enum class Restart {
  nothing,
  refused,  // the record should have been applied, but cannot be true
  applied,
  failed  // and is still to be applied
};

const char *log_tag(const TransactionManager &tm) {
  return tm.bm->params->name;
}

// A storage shorter than its header holds none: its process died before it wrote one.
bool trn_can_hold_header(const BlockManager &bm) {
  if (bm_single(bm)) return true;
  const int64_t size = bm.io[part_trn] == nullptr ? 0 : io_size(bm.io[part_trn]);
  return size < 0 || size >= bm_block_size(bm);
}

// Records without transaction numbers are told by the files' times.
bool modified_together(const BlockManager &bm, const char *saved_name) {
  StorageName dat_name;
  FileInfo dat, saved;
  if (!storage_name(*bm.params, DatabaseType::ordinary, part_dat, dat_name)) return false;
  if (!io_stat(bm.params->driver_no, dat_name, &dat) || !io_stat(bm.params->driver_no, saved_name, &saved))
    return false;
  return saved.modified >= dat.modified && saved.modified - dat.modified <= same_commit_seconds;
}

// Judges the record of the TRN part, which is open. saved_name is null for the TRN storage itself.
Verdict judge_record(TransactionManager &tm, const char *saved_name) {
  BlockManager &bm = *tm.bm;
  if (!trn_can_hold_header(bm)) return Verdict::none;
  HeaderRecord found;
  const Found probe = bm_probe_header(bm, part_trn, ProbeMode::whole, &found);
  if (probe == Found::failed) return Verdict::unreadable;
  if (probe == Found::no) return Verdict::none;
  bm.header = found;
  const CommitRecord &record = bm.header.commit;
  if (record.tstat != tran_committed || record.iid != bm.header.creation_time) return Verdict::none;
  const int64_t last_applied = bm.header.last_applied;
  if (saved_name != nullptr && record.lcto == 0 && record.lctn == 0) {
    if (!modified_together(bm, saved_name)) return Verdict::none;
  } else if (last_applied != record.lcto && last_applied != record.lctn) {
    return Verdict::none;
  }
  const uint32_t ucnt = bm_counters(bm, part_dat).ucnt;
  return ucnt == record.before.ucnt || ucnt == record.before.ucnt + 1 ? Verdict::applicable
                                                                      : Verdict::conflict;
}

// The same beside a writer elsewhere, who may empty or remove the storage while it is read: a second look
// then finds no header.
Verdict judge_moving_record(TransactionManager &tm) {
  const Found presence = trn_open(*tm.bm);
  if (presence != Found::yes) return presence == Found::no ? Verdict::none : Verdict::unreadable;
  {
    ErrorScope may_be_gone;
    const Verdict verdict = judge_record(tm, nullptr);
    if (verdict != Verdict::unreadable) return verdict;
  }
  return judge_record(tm, nullptr);
}

// Applies the applicable record of the open TRN part. *started: the DAT part may be half copied.
Restart apply_record(TransactionManager &tm, CopyMode mode, const char *problem, bool *started) {
  *started = false;
  const MapRead map = page_map_read(tm);
  if (map == MapRead::complete &&
      (mode == CopyMode::overwrite ? record_complete(tm, started) : record_copy(tm, mode, started)))
    return Restart::applied;
  if (map == MapRead::damaged) err_set(status::tran_bad_state);
  err_set(status::tran_warm_commit);
  log_write(LogLevel::error, log_tag(tm), "%s", problem);
  return map == MapRead::damaged ? Restart::refused : Restart::failed;
}

void mark_pending(TransactionManager &tm, uint32_t number) {
  tm.record_pending = true;
  tm.pending_number = number;
}

// The record of the TRN storage, which exists. The storage is released unless its record is still needed.
Restart restart_current(TransactionManager &tm) {
  BlockManager &bm = *tm.bm;
  trn_abandon(bm);  // whatever is open may not be what the name stands for now
  const Verdict verdict = trn_reopen(bm) ? judge_record(tm, nullptr) : Verdict::unreadable;
  if (verdict == Verdict::unreadable) {
    log_write(LogLevel::error, log_tag(tm), "open current transaction");
    trn_abandon(bm);
    return Restart::failed;
  }
  Restart result = Restart::nothing;
  if (verdict == Verdict::conflict)
    log_write(LogLevel::info, log_tag(tm), "transaction counter conflict[%d][%d]",
              static_cast<int32_t>(bm_counters(bm, part_dat).ucnt),
              static_cast<int32_t>(bm.header.commit.before.ucnt));
  if (verdict == Verdict::applicable) {
    bool started;
    result = apply_record(tm, CopyMode::overwrite, "transaction commit block error", &started);
  }
  if (result == Restart::failed) {
    mark_pending(tm, 0);
    trn_abandon(bm);
    return result;
  }
  if (result == Restart::applied)
    log_write(LogLevel::info, log_tag(tm), "warm restart : commit current transaction. ucnt:[%u]",
              bm_counters(bm, part_dat).ucnt);
  (void)trn_release(bm, result == Restart::applied ? TrnEnd::committed : TrnEnd::given_up);
  return result;
}

// The record of the saved storage number, which exists. It is kept when it could not be read or copied, else
// removed.
Restart restart_saved(TransactionManager &tm, uint32_t number) {
  BlockManager &bm = *tm.bm;
  StorageName trn_name, saved_name;
  if (!storage_name(*bm.params, DatabaseType::ordinary, part_trn, trn_name) ||
      !saved_storage_name(trn_name, number, saved_name) || !saved_open(bm, number)) {
    log_write(LogLevel::error, log_tag(tm), "open last save transaction error");
    return Restart::failed;
  }
  const Verdict verdict = judge_record(tm, saved_name);
  Restart result = verdict == Verdict::unreadable ? Restart::failed : Restart::nothing;
  bool started = false;
  if (verdict == Verdict::applicable)
    result = apply_record(tm, CopyMode::compare, "compare block last save transaction error", &started);
  trn_abandon(bm);
  if (result == Restart::failed) {
    if (started) mark_pending(tm, number);
    return result;
  }
  if (result == Restart::applied && started)
    log_write(LogLevel::info, log_tag(tm), "warm restart : commit history save transaction. ucnt:[%u]",
              bm_counters(bm, part_dat).ucnt);
  if (!env_on(Env::tran_history_save)) (void)saved_remove(bm, number);
  return result;
}

void restart_last_saved(TransactionManager &tm) {
  const uint32_t ucnt = bm_counters(*tm.bm, part_dat).ucnt;
  if (saved_exists(*tm.bm, ucnt + 1))
    (void)restart_saved(tm, ucnt + 1);
  else if (saved_exists(*tm.bm, ucnt))
    (void)restart_saved(tm, ucnt);
}

// The record that a failed copy left, wherever it lies. nothing: another process has applied it, or it is
// gone.
Restart restart_pending(TransactionManager &tm) {
  if (tm.pending_number != 0)
    return saved_exists(*tm.bm, tm.pending_number) ? restart_saved(tm, tm.pending_number) : Restart::nothing;
  switch (trn_exists(*tm.bm)) {
    case Found::no:
      return Restart::nothing;
    case Found::yes:
      return restart_current(tm);
    default:
      return Restart::failed;
  }
}

}  // namespace

bool tm_warm_restart(TransactionManager &tm) {
  LockGuard guard(tm.state->lock);
  const Found presence = trn_exists(*tm.bm);
  if (presence == Found::failed) {
    log_write(LogLevel::error, log_tag(tm), "exists check error, current transaction");
    return fail(status::tran_warm_check);
  }
  // Another process may have committed between our open and our lock.
  const bool present = presence == Found::yes;
  const Restart current = !bm_read_header(*tm.bm, part_dat) ? Restart::failed
                          : present                         ? restart_current(tm)
                                                            : Restart::nothing;
  if (current == Restart::nothing && env_number(Env::tran_history) > 0) restart_last_saved(tm);
  // Where nobody locks, no grant looks for the record again.
  if (current == Restart::failed && present && env_on(Env::lock_disable)) mark_pending(tm, 0);
  tm.sorted = Array<MapEntry>();
  return true;
}

namespace {

Found check_failed() {
  err_set_first(status::tran_warm_check);
  return Found::failed;
}

}  // namespace

Found tm_check_record(TransactionManager &tm) {
  LockGuard guard(tm.state->lock);
  BlockManager &bm = *tm.bm;
  if (tm.level > 0) return Found::no;  // the TRN storage is this process's own
  if (tm.record_pending) return Found::yes;
  const Found presence = trn_exists(bm);
  if (presence != Found::yes) return presence == Found::no ? Found::no : check_failed();
  const HeaderRecord kept = bm.header;  // sm_refresh compares it with the disk
  trn_abandon(bm);
  // A database that is gone says so: the record that was found may be its successor's.
  const bool current = bm_read_header(bm, part_dat);
  const Verdict verdict = current ? judge_moving_record(tm) : Verdict::none;
  trn_abandon(bm);
  bm.header = kept;
  if (!current) return Found::failed;
  if (verdict == Verdict::unreadable) return check_failed();
  return verdict == Verdict::applicable ? Found::yes : Found::no;
}

bool tm_recover(TransactionManager &tm) {
  LockGuard guard(tm.state->lock);
  tm.state->reload = true;
  cm_drop(*tm.dat);
  const Restart result = bm_read_header(*tm.bm, part_dat) ? restart_pending(tm) : Restart::failed;
  tm.sorted = Array<MapEntry>();
  if (result == Restart::failed) {
    err_set_first(status::database_busy);
    return false;
  }
  tm.record_pending = false;
  tm.pending_number = 0;
  return true;
}

}  // namespace tovik
