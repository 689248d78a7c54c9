// The TRN part as a thing that comes and goes: made fresh at transaction start, released at its end, kept
// under a saved name for history, pruned at open. Called by the transaction manager and the block manager
// only.
//
// Invariants
//   1. A TRN storage that holds a durable commit record (tstat 3) is removed, truncated or renamed only after
//      the DAT part holds everything it describes and, with HVI_TRAN_SYNC, was flushed; or on the owner's
//      explicit rollback of a commit that was never applied.
//   2. Where losing a removal to a power failure could bring a dead record back to life, the storage is
//      truncated and flushed before it is removed (trn_destroy).
#pragma once

#include "storage/block_manager.h"

namespace tovik {

// A fresh, empty TRN part: counters and commit record zero, tstat open (in memory only).
[[nodiscard]] bool bm_trn_reset(BlockManager &bm);

// Transaction end. committed: the storage becomes the saved storage of the current ucnt (history on), or is
// emptied or removed. Zeroes the TRN counters and the in-memory commit record. 22014 when a flush fails.
[[nodiscard]] bool bm_trn_release(BlockManager &bm, bool committed);

// Leaves the storage on disk as it is (it holds a commit record that is not yet copied) and forgets the
// in-memory state.
void bm_trn_abandon(BlockManager &bm);

// Makes the TRN storage vanish for good: truncated, flushed, then removed.
[[nodiscard]] bool bm_trn_destroy(BlockManager &bm);

enum class TrnPresence { absent, present, failed };
TrnPresence bm_trn_exists(BlockManager &bm);         // present: exists and is not empty
[[nodiscard]] bool bm_trn_reopen(BlockManager &bm);  // opens the storage if it is not open

// Opens the saved storage numbered number as the TRN storage; false when there is none (records nothing when
// it does not exist).
[[nodiscard]] bool bm_saved_open(BlockManager &bm, uint32_t number);
bool bm_saved_exists(BlockManager &bm, uint32_t number);
[[nodiscard]] bool bm_saved_remove(BlockManager &bm, uint32_t number);  // true when absent

// Drops, durably, every saved storage that a restart could apply (numbers ucnt and ucnt + 1): called before
// blocks of the DAT part change outside a transaction.
[[nodiscard]] bool bm_saved_drop_stale(BlockManager &bm);

// Removes saved storages: at open all but those numbered ucnt and ucnt + 1, at creation and removal all
// (unless HVI_TRAN_HISTORY_SAVE).
void bm_saved_prune(BlockManager &bm, bool at_open);

}  // namespace tovik
