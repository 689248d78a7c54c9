// Who has a storage open, and how a storage loses its name.
//
// Every open DAT storage holds its in-use byte shared until it is closed. Whoever removes or replaces a
// storage takes the byte alone first, and is refused while anybody has the storage open, in this process or
// another. A creator has it alone until the database is whole, and whoever opens it meanwhile waits. A
// process that dies lets go of it. HVI_LOCK_DISABLE goes without, on all sides.
//
// Invariants
//   1. A name is not a file: between looking at a name and opening it, and between opening and locking,
//      another process may put a new storage in its place. So the opened and locked storage is asked whether
//      it still has the name.
//   2. A storage that holds a database is marked deleted, and the mark flushed, before it or its TRN storages
//      lose their names: whoever opened it a moment earlier, or finds it again after a power failure, is told
//      that it is gone.
//   3. The TRN storages go before the DAT storage's name does. While that stands, nobody makes a new database
//      whose TRN storages ours could be taken for.
#pragma once

#include <cstdint>

#include "storage/block/block_manager.h"

namespace tovik {

// Behind every block, whatever the block size, and with low 32 bits behind a file of 2 GiB, for systems whose
// locks see no more of an offset.
inline constexpr int64_t in_use_offset = INT64_MAX - 1;

enum class StorageUse { shared, sole };

// Takes the in-use byte, or changes how it is held, in one attempt. failed with 111.
LockResult storage_use(IoObject *io, StorageUse use);

// As storage_use on the DAT storage, but waits for those who hold it otherwise as long as for a lock.
LockResult storage_use_waiting(BlockManager &bm, StorageUse use);

// Takes name from the storage that has it, if any. leftover: it must be marked deleted, or empty. False
// without a status of its own when it may not go or somebody has it open; the I/O layer's statuses otherwise.
enum class Replace { anything, leftover };
[[nodiscard]] bool storage_free_name(const BlockManager &bm, const char *name, Replace what);

}  // namespace tovik
