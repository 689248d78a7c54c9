#include "storage/block/block_manager.h"

#include <cstring>
#include <utility>

#include "frame/env.h"
#include "frame/error.h"
#include "platform/held.h"
#include "storage/block/block_cipher.h"
#include "storage/block/saved_prune.h"
#include "storage/block/storage_use.h"

namespace tovik {

namespace {

// Closes a block manager that is not handed out.
using Holder = Held<BlockManager, bm_close>;

BlockManager *make_object(Params &params) {
  BlockManager *bm = mem_new<BlockManager>();
  if (bm == nullptr) return fail_null(status::out_of_memory);
  bm->params = &params;
  bm->header.parts[part_trn].part = part_trn;
  bm->block_buffer = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(params.io.block_size)));
  if (bm->block_buffer != nullptr) return bm;
  mem_delete(bm);
  return fail_null(status::out_of_memory);
}

BlockNo storage_block(const BlockManager &bm, PartNo part, BlockNo block) {
  return part == part_trn && bm_single(bm) ? bm.common.end_dat + block : block;
}

bool dat_name(BlockManager &bm, StorageName name) {
  if (!bm_temporary(bm)) return storage_name(*bm.params, DatabaseType::ordinary, part_dat, name);
  memcpy(name, bm.temporary_name, storage_name_size);
  return true;
}

bool fill_header(BlockManager &bm, DatabaseType type) {
  const Params &params = *bm.params;
  const bool single = bm_single(bm);
  CommonHeader fields = {};
  memcpy(fields.magic, header_magic, sizeof fields.magic);
  fields.version = header_version;
  fields.minor = header_minor;
  fields.format = header_format;
  fields.use_type = static_cast<uint8_t>(params.use_type);
  fields.storage_type = static_cast<uint8_t>(params.io.storage_type);
  fields.manage_type = static_cast<uint8_t>(params.manage_type);
  fields.lang = static_cast<uint8_t>(params.language);
  fields.database_type = static_cast<uint8_t>(type);
  fields.block_size = params.io.block_size;
  fields.size_dat = params.size_dat;
  fields.size_trn = params.size_trn;
  fields.end_dat = params.size_dat;
  fields.end_trn = single ? params.size_dat + params.size_trn : params.size_trn;
  strncpy(fields.name, params.name, sizeof fields.name - 1);
  if (params.encrypt_key != nullptr && !cipher_begin(bm, fields)) return false;
  header_set_common(bm.header, fields);
  bm.common = fields;

  Clock now = {};
  system_driver.utc_now(&now);
  bm.header.creation_time = static_cast<int64_t>(now.seconds) * 1000000 + now.microseconds;
  return true;
}

bool open_unnamed_dat(BlockManager &bm) {
  bm.io[part_dat] = io_open(bm_driver(bm), bm.params->io, nullptr, part_dat);
  return bm.io[part_dat] != nullptr || fail(status::block_open_storage);
}

bool share_use(BlockManager &bm) {
  const LockResult result = storage_use_waiting(bm, StorageUse::shared);
  return result == LockResult::granted || (result == LockResult::busy && fail(status::database_busy));
}

bool take_use(BlockManager &bm, StorageUse use, StatusCode taken) {
  if (use == StorageUse::shared) return share_use(bm);
  const LockResult result = storage_use(bm.io[part_dat], use);
  return result == LockResult::granted || (result == LockResult::busy && fail(taken));
}

// An empty file is no database yet: its creator is about to take it, or has died.
bool is_empty(const BlockManager &bm) {
  return layout_named(bm.params->manage_type) && io_size(bm.io[part_dat]) == 0;
}

// taken: what is told when the storage cannot be had alone.
bool open_existing_dat(BlockManager &bm, StorageUse use, StatusCode taken = 0) {
  constexpr int name_tries = 8;
  if (layout_unnamed(bm.params->manage_type)) return open_unnamed_dat(bm) && take_use(bm, use, taken);
  StorageName name;
  if (!dat_name(bm, name)) return false;
  for (int tries = 0; tries < name_tries; ++tries) {
    bool absent;
    bm.io[part_dat] = io_open_present(bm_driver(bm), bm.params->io, name, part_dat, &absent);
    if (absent) break;
    if (bm.io[part_dat] == nullptr) return fail(status::block_open_file);
    if (!take_use(bm, use, taken)) return false;
    if (io_is_named(bm.io[part_dat], name)) return !is_empty(bm) || fail(status::database_missing);
    if (!bm_close_storage(bm, part_dat)) return false;
  }
  return fail(status::database_missing);
}

bool remove_if_there(const BlockManager &bm, const char *name) {
  return !io_exists(bm_driver(bm), name) || io_remove(bm_driver(bm), name);
}

bool remove_trn(const BlockManager &bm) {
  StorageName name;
  if (bm_single(bm)) return true;
  return storage_name(*bm.params, DatabaseType::ordinary, part_trn, name) && remove_if_there(bm, name);
}

// Creations that run at once may all find the name free and open the same file. Whoever has it alone while it
// is empty is the creator; one that is not empty was made by somebody else, and one that somebody else
// removes or replaces meanwhile is not ours. Who looks at the empty file is soon gone.
bool is_new_file(BlockManager &bm, const char *name) {
  int64_t size = io_size(bm.io[part_dat]);
  const LockResult use = size > 0 ? LockResult::busy : storage_use_waiting(bm, StorageUse::sole);
  if (use == LockResult::failed) return false;
  if (use == LockResult::granted)
    size = io_size(bm.io[part_dat]);  // others may have been here while we waited
  if (size < 0) return fail(status::block_create_dat);
  const bool ours = use == LockResult::granted && size == 0 && io_is_named(bm.io[part_dat], name);
  return ours || fail(status::database_exists);
}

// A temporary storage that exists is left from a process that died: the name holds our own identifiers.
bool free_dat_name(const BlockManager &bm, const char *name) {
  if (bm.params->overwrite || bm_temporary(bm))
    return storage_free_name(bm, name, Replace::anything) || fail(status::block_remove_old);
  bool free;
  {
    ErrorScope otherwise_it_exists;
    free = storage_free_name(bm, name, Replace::leftover);
  }
  return free || fail(status::database_exists);
}

// All that a storage of limited size will ever take.
bool reserve_storage(BlockManager &bm) {
  const int32_t blocks = bm_single(bm) ? bm.common.end_trn : bm.common.size_dat;
  if (!io_reserve(bm.io[part_dat], 0, blocks - 1, bm.block_buffer)) return false;
  bm.reserved = bm.common.size_dat - 1;
  return true;
}

// Of a creation that fails before it knows the file for its own: an empty file that nobody else has is.
void drop_empty_file(BlockManager &bm, const char *name) {
  ErrorScope it_stays_otherwise;
  if (io_size(bm.io[part_dat]) == 0 &&
      storage_use(bm.io[part_dat], StorageUse::sole) == LockResult::granted &&
      io_is_named(bm.io[part_dat], name))
    (void)io_remove(bm_driver(bm), name);
}

bool create_dat(BlockManager &bm) {
  StorageName name;
  if (!dat_name(bm, name) || !free_dat_name(bm, name)) return false;
  bm.io[part_dat] = io_create(bm_driver(bm), bm.params->io, name, part_dat);
  if (bm.io[part_dat] == nullptr) return fail(status::block_create_dat);
  if (!is_new_file(bm, name)) {
    drop_empty_file(bm, name);
    return false;
  }
  bm.discard = true;
  if (bm.common.size_dat == 0) return true;
  return reserve_storage(bm) || fail(status::block_create_dat);
}

bool create_named(BlockManager &bm) {
  if (!create_dat(bm)) return false;
  if (bm_temporary(bm)) return true;
  // What is left over belongs to a database that was: its record could not be applied to this one.
  if (!remove_trn(bm)) return fail(status::block_remove_old);
  saved_prune(bm, Prune::all);
  return true;
}

bool holds_database(BlockManager &bm) {
  ErrorScope unreadable_is_unused;
  return bm_probe_header(bm, part_dat, ProbeMode::magic) == Found::yes;
}

// A device comes with whatever was on it: look for a live database, then for room up to the last block.
bool claim_device(BlockManager &bm) {
  const StatusCode taken = bm.params->overwrite ? status::block_remove_old : status::raw_device_in_use;
  if (!open_existing_dat(bm, StorageUse::sole, taken)) return false;
  if (!bm.params->overwrite && holds_database(bm)) return fail(taken);
  memset(bm.block_buffer, 0, static_cast<size_t>(bm_block_size(bm)));
  const bool claimed =
      io_write_block(bm.io[part_dat], bm.common.end_trn - 1, bm.block_buffer) && reserve_storage(bm);
  return claimed || fail(status::file_size_limit);
}

bool create_storage(BlockManager &bm) {
  return layout_named(bm.params->manage_type) ? create_named(bm) : claim_device(bm);
}

bool read_header(BlockManager &bm, PartNo part, HeaderRecord &header) {
  IoObject *io = bm_io(bm, part);
  if (io == nullptr) return fail(status::block_no_io);
  return io_read_block(io, storage_block(bm, part, 0), bm.block_buffer) &&
         header_decode(header, part, bm.block_buffer);
}

bool mark_deleted(BlockManager &bm, PartNo part) {
  bm.header.parts[part].pstat |= pstat_deleted;
  return bm_write_header(bm, part);
}

bool open_header(BlockManager &bm) {
  if (!bm_read_header(bm, part_dat)) return fail(status::header_read);
  if (!header_validate(bm.header, *bm.params)) return false;
  bm.common = header_common(bm.header);
  return bm.common.encrypted == 0 || cipher_check(bm);
}

bool is_deleted(const BlockManager &bm) {
  return (bm.header.parts[part_dat].pstat & pstat_deleted) != 0;
}

bool sync_mark(BlockManager &bm) {
  return !env_on(Env::tran_sync) || bm_sync(bm, part_dat);
}

// The order is that of storage_use.h, invariants 2 and 3.
bool remove_named(BlockManager &bm) {
  StorageName name;
  if (!dat_name(bm, name) || !mark_deleted(bm, part_dat) || !sync_mark(bm) || !remove_trn(bm)) return false;
  saved_remove_all(bm);
  return io_remove(bm_driver(bm), name);
}

bool remove_unnamed(BlockManager &bm) {
  return mark_deleted(bm, part_dat) && mark_deleted(bm, part_trn) && sync_mark(bm);
}

// Nobody else can have put anything under a name that is still ours.
void discard_storages(BlockManager &bm) {
  ErrorScope what_stays_is_no_database;
  if (!layout_named(bm.params->manage_type)) {
    (void)remove_unnamed(bm);
    return;
  }
  StorageName name;
  if (!dat_name(bm, name) || !io_is_named(bm.io[part_dat], name)) return;
  if (!bm_temporary(bm)) (void)(bm_close_storage(bm, part_trn) && remove_trn(bm));
  (void)io_remove(bm_driver(bm), name);
}

// The io of a transfer of block of part, or null with a status.
IoObject *transfer_io(const BlockManager &bm, PartNo part, BlockNo block, const void *buffer) {
  if (block < 1 || buffer == nullptr) return fail_null(status::block_argument);
  IoObject *io = bm_io(bm, part);
  if (io == nullptr) return fail_null(status::block_no_io);
  if (bm_block_valid(bm, part, block)) return io;
  (void)fail_at_block(status::block_size_limit, block);
  return nullptr;
}

}  // namespace

BlockManager *bm_create(Params &params, DatabaseType type) {
  if (type != DatabaseType::ordinary && type != DatabaseType::temporary)
    return fail_null(status::block_argument);
  if (!param_check(params, CheckFor::creation)) return nullptr;
  params.io.open_option &= ~open_read_only;
  Holder bm(make_object(params));
  if (bm == nullptr || !fill_header(*bm, type)) return nullptr;
  if (bm_temporary(*bm) && !storage_name(params, type, part_dat, bm->temporary_name)) return nullptr;
  if (!create_storage(*bm) || !bm_write_header(*bm, part_dat)) return nullptr;
  bm->discard = true;
  if (bm_single(*bm) && !mark_deleted(*bm, part_trn)) return fail_null(status::block_write);
  bm->discard = bm_temporary(*bm);
  return bm.release();
}

BlockManager *bm_open(Params &params, History history) {
  if (!param_check(params, CheckFor::opening)) return nullptr;
  Holder bm(make_object(params));
  if (bm == nullptr || !open_existing_dat(*bm, StorageUse::shared) || !open_header(*bm)) return nullptr;
  if (is_deleted(*bm)) return fail_null(status::storage_deleted);
  params.language = bm->common.lang;
  params.endian = bm->common.endian;
  params.format = bm->common.format;
  bm->reserved = bm_counters(*bm, part_dat).bcnt;
  if (history == History::pruned && layout_named(params.manage_type) && !bm_read_only(*bm))
    saved_prune(*bm, Prune::stale);
  return bm.release();
}

bool bm_close_storage(BlockManager &bm, PartNo part) {
  IoObject *io = std::exchange(bm.io[part], nullptr);
  if (io == nullptr) return true;
  // A child process may still have the descriptor, and with it what was locked through it.
  if (part == part_dat) (void)io_unlock(io, in_use_offset, 1, Mishap::silent);
  LockGuard guard(io_lock_object());
  return io_close(io);
}

void bm_close(BlockManager *bm) {
  if (bm == nullptr) return;
  if (bm->discard) discard_storages(*bm);
  (void)bm_close_storage(*bm, part_dat);
  (void)bm_close_storage(*bm, part_trn);
  cipher_end(*bm);
  mem_free(bm->block_buffer);
  mem_delete(bm);
}

bool bm_remove(Params &params) {
  if (!param_check(params, CheckFor::opening)) return false;
  params.io.open_option &= ~open_read_only;
  Holder bm(make_object(params));
  if (bm == nullptr || !open_existing_dat(*bm, StorageUse::sole, status::io_remove) || !open_header(*bm))
    return false;
  if (layout_named(params.manage_type)) return remove_named(*bm);
  return is_deleted(*bm) ? fail(status::storage_deleted) : remove_unnamed(*bm);
}

bool bm_end_creation(BlockManager &bm) {
  return share_use(bm);
}

void bm_discard(BlockManager &bm) {
  bm.discard = true;
}

bool bm_check_current(BlockManager &bm) {
  if (bm_temporary(bm)) return true;
  if (!layout_named(bm.params->manage_type)) {
    HeaderRecord stored;
    return bm_peek_header(bm, part_dat, stored);
  }
  StorageName name;
  if (!dat_name(bm, name)) return false;
  return io_is_named(bm.io[part_dat], name) || fail(status::storage_deleted);
}

bool bm_read_block(BlockManager &bm, PartNo part, BlockNo block, void *buffer) {
  IoObject *io = transfer_io(bm, part, block, buffer);
  if (io == nullptr) return false;
  const BlockNo at = storage_block(bm, part, block);
  void *target = bm.cipher == nullptr ? buffer : bm.cipher_buffer;
  if (!io_read_block(io, at, target)) {
    return fail(status::block_read, {.detail1 = part, .detail2 = at});
  }
  return bm.cipher == nullptr || cipher_decrypt(bm, buffer);
}

bool bm_write_block(BlockManager &bm, PartNo part, BlockNo block, const void *buffer) {
  IoObject *io = transfer_io(bm, part, block, buffer);
  if (io == nullptr) return false;
  if (bm.cipher != nullptr && !cipher_encrypt(bm, buffer)) return false;
  const BlockNo at = storage_block(bm, part, block);
  const void *source = bm.cipher == nullptr ? buffer : bm.cipher_buffer;
  return io_write_block(io, at, source) || fail_at_block(status::block_write, at);
}

bool bm_read_header(BlockManager &bm, PartNo part) {
  return read_header(bm, part, bm.header);
}

bool bm_peek_header(BlockManager &bm, PartNo part, HeaderRecord &into) {
  into = bm.header;
  return read_header(bm, part, into);
}

bool bm_write_header(BlockManager &bm, PartNo part) {
  if (bm_temporary(bm)) return true;
  IoObject *io = bm_io(bm, part);
  if (io == nullptr) return fail(status::header_write);
  header_encode(bm.header, part, bm.block_buffer, bm_block_size(bm));
  return io_write_block(io, storage_block(bm, part, 0), bm.block_buffer) || fail(status::header_write);
}

Found bm_probe_header(BlockManager &bm, PartNo part, ProbeMode mode, HeaderRecord *found) {
  IoObject *io = bm_io(bm, part);
  if (io == nullptr || !io_read_block(io, storage_block(bm, part, 0), bm.block_buffer))
    return fail_found(status::block_read);
  if (!header_is(bm.block_buffer, part, mode == ProbeMode::whole ? &bm.header : nullptr)) return Found::no;
  if (found == nullptr) return Found::yes;
  ErrorScope impossible_is_invalid;
  *found = bm.header;
  return header_decode(*found, part, bm.block_buffer) ? Found::yes : Found::no;
}

bool bm_reserve(BlockManager &bm, BlockNo last) {
  if (last <= bm.reserved) return true;
  IoObject *io = bm.io[part_dat];
  if (io == nullptr) return fail(status::block_no_io);
  if (!io_reserve(io, bm.reserved + 1, last, bm.block_buffer)) return fail(status::file_size_limit);
  bm.reserved = last;
  return true;
}

bool bm_block_valid(const BlockManager &bm, PartNo part, BlockNo block) {
  const int32_t size = bm_part_size(bm, part);
  return block > 0 && (size == 0 || block < size);
}

bool bm_sync(BlockManager &bm, PartNo part) {
  IoObject *io = bm_io(bm, part);
  return io == nullptr ? fail(status::block_no_io) : io_sync(io);
}

}  // namespace tovik
