#include "storage/transaction/trn_storage.h"

#include "frame/env.h"
#include "frame/error.h"

namespace tovik {

namespace {

bool trn_name(const BlockManager &bm, StorageName name) {
  return storage_name(*bm.params, DatabaseType::ordinary, part_trn, name);
}

bool keeps_history(const BlockManager &bm) {
  return env_number(Env::tran_history) > 0 && io_can_rename(bm_driver(bm));
}

void clear_state(BlockManager &bm) {
  bm.header.parts[part_trn].pstat = 0;
  bm.header.parts[part_trn].counters = {};
  bm.header.commit = {};
}

// Durable only when the user wants commits to be.
bool flush(IoObject *io) {
  return !env_on(Env::tran_sync) || io_sync(io) || fail(status::tran_sync);
}

// What the storage of a transaction that ends has held.
enum class OnDisk { no_record, record };

// Single storage: the part stays where it is and only its header tells that it is gone. A header that takes
// the place of a record is flushed: otherwise the next transaction's shadow blocks could reach the disk below
// a record that still describes the blocks they replace.
bool mark_deleted(BlockManager &bm, OnDisk on_disk) {
  bm.header.parts[part_trn].pstat |= pstat_deleted;
  return bm_write_header(bm, part_trn) && (on_disk == OnDisk::no_record || flush(bm.io[part_dat]));
}

bool open_storage(BlockManager &bm, const char *name) {
  bm.io[part_trn] = io_open(bm_driver(bm), bm.params->io, name, part_trn);
  return bm.io[part_trn] != nullptr;
}

// A writer elsewhere makes and removes its storage while we look: an open that fails because the name is gone
// says that there is none.
Found open_existing(BlockManager &bm, const char *name) {
  bool absent;
  bm.io[part_trn] = io_open_present(bm_driver(bm), bm.params->io, name, part_trn, &absent);
  if (absent) return Found::no;
  return bm.io[part_trn] == nullptr ? Found::failed : Found::yes;
}

// Cuts an open TRN storage to nothing.
bool empty_storage(BlockManager &bm) {
  IoObject *io = bm.io[part_trn];
  return io_truncate(io, 0) && flush(io);
}

// Takes a storage that is kept between transactions. What a dead process left in it goes first, and durably:
// its header must not be found above the blocks of this transaction.
bool take_storage(BlockManager &bm) {
  if (!trn_reopen(bm)) return false;
  const int64_t size = io_size(bm.io[part_trn]);
  return size == 0 || (size > 0 && empty_storage(bm));
}

bool create_storage(BlockManager &bm, const char *name) {
  bm.io[part_trn] = io_create(bm_driver(bm), bm.params->io, name, part_trn);
  return bm.io[part_trn] != nullptr;
}

// Of a storage that is kept. A creation becomes durable with the first flush through the handle that made it;
// the next transaction, with a handle of its own, must not find a record in a storage that may lose its name.
bool create_kept_storage(BlockManager &bm, const char *name) {
  if (!create_storage(bm, name)) return false;
  if (flush(bm.io[part_trn])) return true;
  ErrorScope told_already;
  if (bm_close_storage(bm, part_trn)) (void)io_remove(bm_driver(bm), name);
  return false;
}

bool reset_storage(BlockManager &bm) {
  StorageName name;
  if (!trn_name(bm, name) || !bm_close_storage(bm, part_trn)) return false;
  const bool kept = !keeps_history(bm) && env_on(Env::tran_file_reuse);
  if (!io_exists(bm_driver(bm), name)) return kept ? create_kept_storage(bm, name) : create_storage(bm, name);
  if (kept) return take_storage(bm);
  // Left by a dead process. Its record is dead too and must not return after a power failure, when blocks of
  // the DAT part may be newer than the record.
  return trn_destroy_storage(bm, name) && create_storage(bm, name);
}

bool remove_trn(BlockManager &bm, const char *name) {
  return !io_exists(bm_driver(bm), name) || io_remove(bm_driver(bm), name);
}

// The storage becomes the saved storage of ucnt, that of ucnt - 1 goes. Neither the rename nor the removal is
// flushed: the record was applied, and applying it again changes nothing; a number below ucnt is not looked
// at. A storage found under this number could be applied, so it goes for good.
bool save_storage(BlockManager &bm, const char *name) {
  const uint32_t ucnt = bm_counters(bm, part_dat).ucnt;
  StorageName saved, previous;
  if (!saved_storage_name(name, ucnt, saved) || !saved_storage_name(name, ucnt - 1, previous)) return false;
  return trn_destroy_storage(bm, saved) && io_rename(bm_driver(bm), name, saved) && remove_trn(bm, previous);
}

// Without a record on disk there is nothing that could come back to life, so nothing is flushed.
bool release_storage(BlockManager &bm, TrnEnd end, OnDisk on_disk) {
  StorageName name;
  if (!trn_name(bm, name)) return false;
  const bool history = keeps_history(bm), recorded = on_disk == OnDisk::record;
  if (!history && env_on(Env::tran_file_reuse)) {
    const bool emptied = trn_reopen(bm) && (recorded ? empty_storage(bm) : io_truncate(bm.io[part_trn], 0));
    return bm_close_storage(bm, part_trn) && emptied;
  }
  if (!bm_close_storage(bm, part_trn)) return false;
  if (end == TrnEnd::committed && history) return save_storage(bm, name);
  return recorded ? trn_destroy_storage(bm, name) : remove_trn(bm, name);
}

// A record that was applied has the number of the last applied transaction; one whose update counter does not
// fit belongs to blocks that have changed since.
bool record_waits(BlockManager &bm, const CommitRecord &commit) {
  return commit.tstat == tran_committed && commit.iid == bm.header.creation_time &&
         commit.lcto == bm.header.last_applied && commit.lctn != bm.header.last_applied &&
         commit.before.ucnt == bm_counters(bm, part_dat).ucnt;
}

// Of the open TRN part. A storage shorter than a block never had a header; one that cannot be read may have.
Found read_record(BlockManager &bm) {
  if (!bm_single(bm)) {
    const int64_t size = io_size(bm.io[part_trn]);
    if (size < bm_block_size(bm)) return size < 0 ? Found::failed : Found::no;
  }
  HeaderRecord found;
  const Found header = bm_probe_header(bm, part_trn, ProbeMode::magic, &found);
  return header == Found::yes && !record_waits(bm, found.commit) ? Found::no : header;
}

Found content_of(int64_t size) {
  return size < 0 ? Found::failed : size > 0 ? Found::yes : Found::no;
}

// Of a storage that is not open: by its name where the driver tells sizes by name, else by opening it.
Found closed_exists(BlockManager &bm) {
  StorageName name;
  FileInfo info = {};
  if (!trn_name(bm, name)) return Found::failed;
  if (!io_exists(bm_driver(bm), name)) return Found::no;
  if (io_stat(bm_driver(bm), name, &info)) return content_of(info.size);
  const Found found = open_existing(bm, name);
  if (found != Found::yes) return found;
  const Found result = content_of(io_size(bm.io[part_trn]));
  return bm_close_storage(bm, part_trn) ? result : Found::failed;
}

}  // namespace

Found trn_record(BlockManager &bm) {
  Found storage = trn_exists(bm);
  const bool was_open = bm.io[part_trn] != nullptr;
  if (storage == Found::yes) storage = trn_open(bm);
  if (storage != Found::yes) return storage;
  const Found result = read_record(bm);
  return was_open || bm_close_storage(bm, part_trn) ? result : Found::failed;
}

bool trn_destroy_storage(BlockManager &bm, const char *name) {
  if (!io_exists(bm_driver(bm), name)) return true;
  IoObject *io = io_open(bm_driver(bm), bm.params->io, name, part_trn);
  if (io == nullptr) return false;
  const bool emptied = io_truncate(io, 0) && flush(io);
  bool closed;
  {
    LockGuard guard(io_lock_object());
    closed = io_close(io);
  }
  return emptied && closed && io_remove(bm_driver(bm), name);
}

// Shadow blocks may come long before the header, and whoever looks for a record meanwhile must find that
// there is none. In a file what was never written reads as zeros; in memory it cannot be read.
static bool room_for_header(BlockManager &bm) {
  return bm.params->io.storage_type != StorageType::memory || bm_single(bm) ||
         io_reserve(bm.io[part_trn], 0, 0, bm.block_buffer);
}

bool trn_reset(BlockManager &bm) {
  switch (trn_record(bm)) {
    case Found::no:
      break;
    case Found::yes:
      return fail(status::tran_bad_state);
    case Found::failed:
      return false;
  }
  if (!bm_check_current(bm) || (!bm_single(bm) && !reset_storage(bm)) || !room_for_header(bm)) return false;
  clear_state(bm);
  bm.header.commit.tstat = tran_open;
  return true;
}

bool trn_release(BlockManager &bm, TrnEnd end) {
  const OnDisk on_disk = bm.header.commit.tstat == tran_committed ? OnDisk::record : OnDisk::no_record;
  clear_state(bm);
  if (!bm_check_current(bm)) {
    (void)bm_close_storage(bm, part_trn);
    return false;
  }
  return bm_single(bm) ? mark_deleted(bm, on_disk) : release_storage(bm, end, on_disk);
}

void trn_abandon(BlockManager &bm) {
  clear_state(bm);
  (void)bm_close_storage(bm, part_trn);
}

bool trn_destroy(BlockManager &bm) {
  clear_state(bm);
  if (!bm_check_current(bm)) return false;
  if (bm_single(bm)) return mark_deleted(bm, OnDisk::record);
  StorageName name;
  return trn_name(bm, name) && bm_close_storage(bm, part_trn) && trn_destroy_storage(bm, name);
}

Found trn_exists(BlockManager &bm) {
  if (bm_single(bm)) return bm_probe_header(bm, part_trn, ProbeMode::magic);
  return bm.io[part_trn] == nullptr ? closed_exists(bm) : content_of(io_size(bm.io[part_trn]));
}

bool trn_reopen(BlockManager &bm) {
  if (bm_single(bm) || bm.io[part_trn] != nullptr) return true;
  StorageName name;
  return trn_name(bm, name) && open_storage(bm, name);
}

Found trn_open(BlockManager &bm) {
  if (bm_single(bm) || bm.io[part_trn] != nullptr) return Found::yes;
  StorageName name;
  return trn_name(bm, name) ? open_existing(bm, name) : Found::failed;
}

}  // namespace tovik
