// The TRN part as a thing that comes and goes: made fresh at transaction start, released at its end, kept
// under a saved name for history, pruned at open. Called by the transaction manager and the block manager
// only. Drivers that cannot rename keep no history, whatever HVI_TRAN_HISTORY says.
//
// Invariants
//   1. A TRN storage that holds a durable commit record (tstat 3) is removed, truncated or renamed only after
//      the DAT part holds everything it describes and, with HVI_TRAN_SYNC, was flushed; or on the owner's
//      explicit rollback of a commit that was never applied. trn_reset and saved_drop_stale refuse a
//      record that still waits to be applied (22016).
//   2. Where losing a removal to a power failure could bring a dead record back to life, the storage is
//      truncated and flushed before it is removed (trn_destroy).
//   3. Separate storages: the TRN storage is open only from trn_reset or trn_reopen to its release. In
//      between another process may have put a new one in its place.
//   4. Nothing is truncated, renamed or removed by name, nor in a single storage marked, unless the DAT name
//      still stands for this database (bm_check_current, 120106): the TRN storage found may be the one of a
//      database made anew.
#pragma once

#include "storage/block/block_manager.h"

namespace tovik {

// A fresh, empty TRN part: counters and commit record zero, tstat open (in memory only). The I/O layer's
// statuses, 22014, 22016.
[[nodiscard]] bool trn_reset(BlockManager &bm);

// Transaction end. committed: the storage becomes the saved storage of the current ucnt (history on), or is
// emptied or removed. Zeroes the TRN counters and the in-memory commit record, whatever happens to the
// storage. The I/O layer's statuses, 22014 when a flush fails, 20009.
enum class TrnEnd { committed, given_up };
[[nodiscard]] bool trn_release(BlockManager &bm, TrnEnd end);

// Leaves the storage on disk as it is (it holds a commit record that is not yet copied), closes it and
// forgets the in-memory state.
void trn_abandon(BlockManager &bm);

// Makes the TRN storage vanish for good: truncated, flushed, then removed. True when there is none.
[[nodiscard]] bool trn_destroy(BlockManager &bm);

Found trn_exists(BlockManager &bm);               // yes: exists and is not empty
[[nodiscard]] bool trn_reopen(BlockManager &bm);  // opens the storage if it is not open

// The same beside a writer elsewhere, who may remove the storage at any moment: no when it did.
Found trn_open(BlockManager &bm);

// Opens the saved storage numbered number as the TRN storage; false when there is none (records nothing when
// it does not exist). trn_abandon or saved_remove closes it.
[[nodiscard]] bool saved_open(BlockManager &bm, uint32_t number);
bool saved_exists(BlockManager &bm, uint32_t number);

// Removes it for good, as trn_destroy does; closes the TRN storage first. True when absent.
[[nodiscard]] bool saved_remove(BlockManager &bm, uint32_t number);

// Drops, durably, every saved storage that a restart could apply (numbers ucnt and ucnt + 1), and a TRN
// storage with a record that was applied: called outside a transaction, with the exclusive level, before
// blocks of the DAT part change.
[[nodiscard]] bool saved_drop_stale(BlockManager &bm);

// Gives the saved storages up for the room they take (unless HVI_TRAN_HISTORY_SAVE). The DAT part is flushed
// first, so that no restart needs them; when that fails they stay. Records what failed.
void saved_give_up(BlockManager &bm);

// The listing of the commit record in the TRN storage, as it is stored; as bm_dump.
void trn_dump(BlockManager &bm);

// For saved_storage.cpp: empties the storage called name, flushes that and removes it; and whether the TRN
// part holds a commit record of this database that waits to be applied.
[[nodiscard]] bool trn_destroy_storage(BlockManager &bm, const char *name);
Found trn_record(BlockManager &bm);

}  // namespace tovik
