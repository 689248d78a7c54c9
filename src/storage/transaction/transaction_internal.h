// What the sources of the transaction manager share.
#pragma once

#include "storage/transaction/transaction.h"

namespace tovik {

// The page map: tm.sorted becomes the outermost level's map in ascending order of dno (22012); it is written
// behind the last TRN block in use, whose first block is left in *first (22009).
bool page_map_sort(TransactionManager &tm);
bool page_map_write(TransactionManager &tm, BlockNo *first);

// Reads the map that the commit record in the header names into tm.sorted. damaged: a field or an entry
// cannot be true; nothing is recorded.
enum class MapRead { complete, damaged, failed };
MapRead page_map_read(TransactionManager &tm);

// Copies the blocks of tm.sorted to the DAT part and installs the record's counters there; flushes it. With
// compare, blocks that are equal already are left alone. *written is set before the first write; when the
// copy fails after that, the DAT part is half copied. The in-memory DAT header stays that of the disk.
enum class CopyMode { overwrite, compare };
bool record_copy(TransactionManager &tm, CopyMode mode, bool *written);  // 22017 ... 22020, 22014

// The copy of a durable record, which must not fail if it can be helped: tried again after a failure, with
// the room of the saved storages when room is what lacked.
bool record_complete(TransactionManager &tm, bool *written);

inline int32_t map_entries_per_block(const BlockManager &bm) {
  return bm_block_size(bm) / 8;
}

}  // namespace tovik
