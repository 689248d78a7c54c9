// The files of saved TRN storages beside a database, found by their names.
#pragma once

#include "storage/block/block_manager.h"

namespace tovik {

// Removes saved storages: the stale ones, all but those numbered ucnt and ucnt + 1, or all (unless
// HVI_TRAN_HISTORY_SAVE); with another TRN suffix than ".trn" none. Records nothing: what stays behind is
// left for the next time.
enum class Prune { stale, all };
void saved_prune(BlockManager &bm, Prune which);

// At removal of the database: removes all of them, whatever the suffix (unless HVI_TRAN_HISTORY_SAVE).
// Records nothing.
void saved_remove_all(BlockManager &bm);

}  // namespace tovik
