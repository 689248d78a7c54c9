#include "storage/block/storage_use.h"

#include <cstring>

#include "frame/env.h"
#include "frame/error.h"
#include "platform/held.h"

namespace tovik {
namespace {

constexpr int name_tries = 8;  // how often a name may change hands under our eyes
constexpr int smallest_block = 1024;
constexpr int largest_block = 32768;

void close_storage(IoObject *io) {
  const LockGuard guard(io_lock_object());
  (void)io_close(io);
}

using OpenStorage = Held<IoObject, close_storage>;

// A storage that has a name which is to be freed; its block size is found out.
struct OldStorage {
  IoParams params;
  OpenStorage io;
  HeaderRecord header;
};

// Reads the header of a database, wherever it comes from; false when the storage holds none.
bool read_old_header(OldStorage &old, uint8_t *block) {
  ErrorScope anything_else_is_no_database;
  old.params.block_size = smallest_block;
  if (!io_read_block(old.io.get(), 0, block) || !header_decode(old.header, part_dat, block)) return false;
  const CommonHeader common = header_common(old.header);
  old.params.block_size = common.block_size;
  return memcmp(common.magic, header_magic, sizeof common.magic) == 0 &&
         common.block_size >= smallest_block && common.block_size <= largest_block;
}

bool mark_old_header(OldStorage &old, uint8_t *block) {
  old.header.parts[part_dat].pstat |= pstat_deleted;
  header_encode(old.header, part_dat, block, old.params.block_size);
  return io_write_block(old.io.get(), 0, block) && (!env_on(Env::tran_sync) || io_sync(old.io.get()));
}

// The name of the open storage goes, if it may.
bool retire(const BlockManager &bm, OldStorage &old, const char *name, Replace what) {
  struct Block {
    uint8_t *bytes = static_cast<uint8_t *>(mem_alloc(largest_block));
    ~Block() { mem_free(bytes); }
  } const block;
  if (block.bytes == nullptr) return fail(status::out_of_memory);
  const bool database = read_old_header(old, block.bytes);
  const bool deleted = database && (old.header.parts[part_dat].pstat & pstat_deleted) != 0;
  if (what == Replace::leftover && !deleted && io_size(old.io.get()) != 0) return false;
  if (database && !deleted && !mark_old_header(old, block.bytes)) return false;
  return io_remove(bm_driver(bm), name);
}

}  // namespace

LockResult storage_use(IoObject *io, StorageUse use) {
  if (env_on(Env::lock_disable)) return LockResult::granted;
  return io_lock(io, use == StorageUse::shared ? file_lock_shared : file_lock_exclusive, in_use_offset, 1);
}

LockResult storage_use_waiting(BlockManager &bm, StorageUse use) {
  for (int32_t retries = 0;; ++retries) {
    const LockResult result = storage_use(bm.io[part_dat], use);
    if (result != LockResult::busy || retries >= param_lock_retry(*bm.params)) return result;
    system_driver.sleep_ms(param_lock_sleep(*bm.params));
  }
}

bool storage_free_name(const BlockManager &bm, const char *name, Replace what) {
  for (int tries = 0;; ++tries) {
    OldStorage old = {bm.params->io, nullptr, {}};
    old.params.open_option &= ~open_read_only;
    bool absent;
    old.io.reset(io_open_present(bm_driver(bm), old.params, name, part_dat, &absent));
    if (absent) return true;
    if (old.io == nullptr || tries == name_tries) return false;
    if (storage_use(old.io.get(), StorageUse::sole) != LockResult::granted) return false;
    if (io_is_named(old.io.get(), name)) return retire(bm, old, name, what);
  }
}

}  // namespace tovik
