// The copy of a committed transaction's blocks to the DAT part: after a commit and at recovery.
//
// Invariants
//   1. The DAT header is written after the blocks, with the number of the transaction as last applied: until
//      then the record counts as not copied (last applied is lcto) and a repeated copy starts anew.
//   2. Blocks and header are flushed together. If only some of them survive a power failure, the record still
//      does, and matches the header in either state (lcto or lctn).
//   3. A page of the DAT cache never outlives its block's replacement.
//   4. The first block is written when there is room for the last: a full disk leaves no half copy.
//
// Cost per entry: one write; one read of the shadow block unless its page is still in the TRN cache.

#include <algorithm>
#include <cerrno>

#include "frame/env.h"
#include "frame/error.h"
#include "storage/transaction/transaction_internal.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {
namespace {

// The new content of entry's block: the page, when the TRN cache still has it, or the shadow block.
const uint8_t *shadow_content(TransactionManager &tm, const MapEntry &entry) {
  CachePage *page = cm_find(*tm.trn, static_cast<BlockNo>(entry.dno));
  if (page != nullptr && (page->status & page_dirty) == 0) return page_data(page);
  if (!bm_read_block(*tm.bm, part_trn, static_cast<BlockNo>(entry.tno), tm.buffer)) return nullptr;
  return tm.buffer;
}

// A block that cannot be read counts as different: writing it anew is what recovery is for.
bool equals_block(TransactionManager &tm, BlockNo block, const uint8_t *content) {
  if (block > bm_counters(*tm.bm, part_dat).bcnt) return false;
  ErrorScope unreadable_is_different;
  const size_t size = static_cast<size_t>(bm_block_size(*tm.bm));
  uint8_t *current = tm.buffer + size;
  return bm_read_block(*tm.bm, part_dat, block, current) && memcmp(current, content, size) == 0;
}

bool copy_block(TransactionManager &tm, const MapEntry &entry, CopyMode mode, bool *written) {
  const BlockNo block = static_cast<BlockNo>(entry.dno);
  const uint8_t *content = shadow_content(tm, entry);
  if (content == nullptr) return fail(status::tran_shadow_read);
  if (mode == CopyMode::compare && equals_block(tm, block, content)) return true;
  *written = true;
  if (!bm_write_block(*tm.bm, part_dat, block, content)) return fail(status::tran_data_write);
  cm_drop_block(*tm.dat, block);
  return true;
}

bool install_header(TransactionManager &tm, CopyMode mode, bool *written) {
  HeaderRecord &header = tm.bm->header;
  const CommitRecord &record = header.commit;
  Counters &counters = header.parts[part_dat].counters;
  const uint32_t ucnt = record.before.ucnt + 1;
  if (mode == CopyMode::compare && counters.ucnt == ucnt) return true;
  const Counters counters_before = counters;
  const int64_t applied_before = header.last_applied;
  counters = {record.after.bcnt, record.after.fcnt, record.after.flst, ucnt};
  header.last_applied = record.lctn;
  *written = true;
  if (bm_write_header(*tm.bm, part_dat)) return true;
  counters = counters_before;
  header.last_applied = applied_before;
  return fail(status::tran_header_write);
}

bool range_is_valid(const TransactionManager &tm) {
  if (tm.sorted.empty()) return false;
  const uint32_t largest = tm.sorted[tm.sorted.size() - 1].dno;
  return largest <= INT32_MAX && bm_block_valid(*tm.bm, part_dat, static_cast<BlockNo>(largest));
}

bool room_lacks() {
  const ErrorRecord &record = error_record();
  for (int i = 0; i < std::min(record.count, error_entry_limit); ++i) {
    const int cause = record.entries[i].sys_errno;
    if (cause == ENOSPC) return true;
#ifdef EDQUOT
    if (cause == EDQUOT) return true;
#endif
  }
  return false;
}

}  // namespace

bool record_complete(TransactionManager &tm, bool *written) {
  {
    ErrorScope may_succeed_yet;
    if (record_copy(tm, CopyMode::overwrite, written)) return true;
    if (room_lacks()) saved_give_up(*tm.bm);
  }
  bool written_again;
  const bool done = record_copy(tm, CopyMode::overwrite, &written_again);
  *written |= written_again;
  return done;
}

bool record_copy(TransactionManager &tm, CopyMode mode, bool *written) {
  *written = false;
  if (!range_is_valid(tm)) return fail(status::tran_block_range);
  if (!bm_reserve(*tm.bm, tm.bm->header.commit.after.bcnt)) return fail(status::tran_data_write);
  for (const MapEntry &entry : tm.sorted)
    if (!copy_block(tm, entry, mode, written)) return false;
  if (!install_header(tm, mode, written)) return false;
  if (*written && env_on(Env::tran_sync) && !bm_sync(*tm.bm, part_dat)) return fail(status::tran_sync);
  return true;
}

}  // namespace tovik
