// A store is a table of blocks of one unit each; block k holds the bytes from k x unit size on. Blocks are
// allocated when first written. The I/O layer's lock serialises the calls; transfers always move one unit. A
// store that is removed while somebody has it open leaves the list at once and is freed by the last close.
//
// A handle is one open of a store. Byte-range locks belong to it, as those of a file do to the open file: two
// handles exclude each other, a close gives up what its handle holds, and a lock of a range that the handle
// has already changes its mode. The I/O layer calls the lock operations outside its lock; they have their
// own.

#include "storage/io/memory_store.h"

#include <algorithm>
#include <climits>
#include <cstring>
#include <utility>

#include "frame/error.h"
#include "platform/array.h"
#include "platform/bytes.h"

namespace tovik {

namespace {

constexpr int name_size = 32;  // with the terminator
constexpr int64_t table_step = 16384;

struct Opening;

struct RangeLock {
  const Opening *owner;
  bool exclusive;
  int64_t offset, length;
};

struct Store {
  char name[name_size];
  uint8_t **blocks;  // null: never written
  int64_t capacity;  // entries of blocks
  int64_t size;      // bytes up to the end of the last written block
  int32_t unit;      // bytes of a block
  int32_t handles;   // opens not yet closed
  bool listed;
  Array<RangeLock> locks;  // inside range_locks
  Store *next;
};

// What a driver handle points to.
struct Opening {
  Store *store;
};

Store *stores = nullptr;  // newest first
Lock *range_locks = nullptr;

Opening *opening_of(DriverHandle handle) {
  return handle == no_handle ? nullptr : reinterpret_cast<Opening *>(handle);
}

Store *store_of(DriverHandle handle) {
  const Opening *opening = opening_of(handle);
  return opening == nullptr ? nullptr : opening->store;
}

Store **find_link(const char *name) {
  Store **link = &stores;
  while (*link != nullptr && strcmp((*link)->name, name) != 0) link = &(*link)->next;
  return link;
}

void free_blocks(Store &store) {
  for (int64_t i = 0; i * store.unit < store.size; ++i) {
    mem_free(store.blocks[i]);
    store.blocks[i] = nullptr;
  }
  store.size = 0;
}

void free_unused(Store *store) {
  if (store->listed || store->handles > 0) return;
  free_blocks(*store);
  mem_free(store->blocks);
  mem_delete(store);
}

// Makes the table long enough for index.
bool grow_table(Store &store, int64_t index) {
  if (index < store.capacity) return true;
  if (index > INT32_MAX) return fail(status::out_of_memory);
  const int64_t capacity = (index / table_step + 1) * table_step;
  if (static_cast<uint64_t>(capacity) > SIZE_MAX / sizeof(uint8_t *)) return fail(status::out_of_memory);
  void *grown = mem_realloc(store.blocks, static_cast<size_t>(capacity) * sizeof(uint8_t *));
  if (grown == nullptr) return fail(status::out_of_memory);
  store.blocks = static_cast<uint8_t **>(grown);
  memset(static_cast<void *>(store.blocks + store.capacity), 0,
         static_cast<size_t>(capacity - store.capacity) * sizeof(uint8_t *));
  store.capacity = capacity;
  return true;
}

// The block at index, allocated and zeroed when missing; null with status 1.
uint8_t *make_block(Store &store, int64_t index) {
  if (!grow_table(store, index)) return nullptr;
  if (store.blocks[index] != nullptr) return store.blocks[index];
  uint8_t *block = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(store.unit)));
  if (block == nullptr) return fail_null(status::out_of_memory);
  memset(block, 0, static_cast<size_t>(store.unit));
  store.blocks[index] = block;
  return block;
}

int refuse(StatusCode code) {
  err_set(code);
  return -1;
}

DriverHandle refuse_open(StatusCode code) {
  err_set(code);
  return no_handle;
}

int store_start() {
  stores = nullptr;
  range_locks = system_driver.lock_create();
  return range_locks == nullptr ? -1 : 0;
}

void store_end() {
  while (stores != nullptr) {
    Store *store = stores;
    stores = store->next;
    store->listed = false;
    free_unused(store);
  }
  system_driver.lock_destroy(range_locks);
  range_locks = nullptr;
}

int store_remove(const char *name) {
  if (name == nullptr) return refuse(status::memory_io_argument);
  Store **link = find_link(name);
  Store *store = *link;
  if (store == nullptr) return refuse(status::memory_io_missing);
  *link = store->next;
  store->listed = false;
  free_unused(store);
  return 0;
}

// A new store at the head of the list, or null with status 1.
Store *make_store(const char *name, int unit_size) {
  Store *store = mem_new<Store>();
  if (store == nullptr) return fail_null(status::out_of_memory);
  store->unit = unit_size;
  strcpy(store->name, name);
  if (!grow_table(*store, 0)) {
    mem_delete(store);
    return nullptr;
  }
  store->listed = true;
  store->next = stores;
  stores = store;
  return store;
}

DriverHandle store_open(const char *name, int flags, int, int, int unit_size) {
  if (name == nullptr || unit_size <= 0 || strlen(name) >= name_size)
    return refuse_open(status::memory_io_argument);
  const bool create = (flags & open_create) != 0;
  Store *store = *find_link(name);
  if (create && store != nullptr) return refuse_open(status::memory_io_exists);
  if (!create && store == nullptr) return refuse_open(status::memory_io_missing);
  Opening *opening = mem_new<Opening>();
  if (opening == nullptr) return refuse_open(status::out_of_memory);
  if (create) store = make_store(name, unit_size);
  if (store == nullptr) {
    mem_delete(opening);
    return no_handle;
  }
  opening->store = store;
  ++store->handles;
  return reinterpret_cast<DriverHandle>(opening);
}

bool overlaps(const RangeLock &lock, int64_t offset, int64_t length) {
  return lock.offset < offset + length && offset < lock.offset + lock.length;
}

// Ranges are given up as they were taken: whole.
void drop_locks(Opening &opening, int64_t offset, int64_t length) {
  Array<RangeLock> &locks = opening.store->locks;
  for (int i = locks.size() - 1; i >= 0; --i)
    if (locks[i].owner == &opening && overlaps(locks[i], offset, length)) locks.remove(i);
}

int store_close(DriverHandle handle) {
  Opening *opening = opening_of(handle);
  if (opening == nullptr) return refuse(status::memory_io_argument);
  Store *store = opening->store;
  {
    const LockGuard guard(range_locks);
    drop_locks(*opening, 0, INT64_MAX);
  }
  mem_delete(opening);
  --store->handles;
  free_unused(store);
  return 0;
}

// A reader with another block size than the store's gets what fits, so that the check of the header can tell
// its mistake.
int64_t store_read(DriverHandle handle, void *buffer, int64_t length, int64_t offset) {
  const Store *store = store_of(handle);
  if (store == nullptr || buffer == nullptr || length <= 0) return refuse(status::memory_io_argument);
  if (offset < 0 || offset > store->size) return refuse(status::memory_io_offset);
  const int64_t index = offset / store->unit;
  if (index >= store->capacity || store->blocks[index] == nullptr) return refuse(status::memory_io_read);
  const int64_t copied = length < store->unit ? length : store->unit;
  memcpy(buffer, store->blocks[index], static_cast<size_t>(copied));
  memset(static_cast<uint8_t *>(buffer) + copied, 0, static_cast<size_t>(length - copied));
  return length;
}

int64_t store_write(DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
  Store *store = store_of(handle);
  if (store == nullptr || buffer == nullptr || length != store->unit)
    return refuse(status::memory_io_argument);
  if (offset < 0) return refuse(status::memory_io_offset);
  uint8_t *block = make_block(*store, offset / store->unit);
  if (block == nullptr) return refuse(status::memory_io_write);
  memcpy(block, buffer, static_cast<size_t>(store->unit));
  if (store->size < offset + store->unit) store->size = offset + store->unit;
  return store->unit;
}

int store_exists(const char *name) {
  return name != nullptr && *find_link(name) != nullptr ? 1 : 0;
}

int64_t store_size(DriverHandle handle) {
  const Store *store = store_of(handle);
  return store == nullptr ? refuse(status::memory_io_argument) : store->size;
}

int store_sync(DriverHandle) {
  return 0;
}

// Blocks behind the size are those that a reservation has just made.
int store_reserve(DriverHandle handle, int64_t offset, int64_t length) {
  Store *store = store_of(handle);
  if (store == nullptr) return refuse(status::memory_io_argument);
  const int64_t first = offset / store->unit, end = (offset + length) / store->unit;
  for (int64_t i = first; i < end; ++i) {
    if (make_block(*store, i) != nullptr) continue;
    while (--i >= first && i * store->unit >= store->size) mem_free(std::exchange(store->blocks[i], nullptr));
    return refuse(status::memory_io_write);
  }
  store->size = std::max(store->size, end * store->unit);
  return 0;
}

// Length 0 empties the store, a length above 0 prepares an empty one with zeroed blocks.
int store_truncate(DriverHandle handle, int64_t length) {
  Store *store = store_of(handle);
  if (store == nullptr) return refuse(status::memory_io_argument);
  if (length > 0)
    return store->size > 0 ? refuse(status::memory_io_argument) : store_reserve(handle, 0, length);
  if (store->size > 0) free_blocks(*store);
  return 0;
}

bool lock_is_free(const Opening &opening, int mode, int64_t offset, int64_t length) {
  for (const RangeLock &lock : opening.store->locks)
    if (lock.owner != &opening && (lock.exclusive || mode == file_lock_exclusive) &&
        overlaps(lock, offset, length))
      return false;
  return true;
}

bool lock_arguments(const Opening *opening, int mode, int64_t offset, int64_t length) {
  return opening != nullptr && (mode == file_lock_shared || mode == file_lock_exclusive) && offset >= 0 &&
         length > 0 && length <= INT64_MAX - offset;
}

int store_lock(DriverHandle handle, int mode, int64_t offset, int64_t length) {
  Opening *opening = opening_of(handle);
  if (!lock_arguments(opening, mode, offset, length)) return refuse(status::memory_io_argument);
  const LockGuard guard(range_locks);
  if (!lock_is_free(*opening, mode, offset, length)) return 1;
  Array<RangeLock> &locks = opening->store->locks;
  if (!locks.reserve(locks.size() + 1)) return refuse(status::out_of_memory);
  drop_locks(*opening, offset, length);
  return locks.push({opening, mode == file_lock_exclusive, offset, length}) ? 0 : -1;
}

int store_unlock(DriverHandle handle, int64_t offset, int64_t length) {
  Opening *opening = opening_of(handle);
  if (!lock_arguments(opening, file_lock_shared, offset, length)) return refuse(status::memory_io_argument);
  const LockGuard guard(range_locks);
  drop_locks(*opening, offset, length);
  return 0;
}

int store_lock_test(DriverHandle handle, int mode, int64_t offset, int64_t length) {
  const Opening *opening = opening_of(handle);
  if (!lock_arguments(opening, mode, offset, length)) return refuse(status::memory_io_argument);
  const LockGuard guard(range_locks);
  return lock_is_free(*opening, mode, offset, length) ? 0 : 1;
}

int store_is_named(DriverHandle handle, const char *name) {
  const Store *store = store_of(handle);
  return store != nullptr && *find_link(name) == store ? 1 : 0;
}

int store_dir_create(const char *) {
  return 0;
}

}  // namespace

const IoDriver memory_store_driver = {
    .name = "memory io",
    .kind = 1,
    .drv_start = store_start,
    .drv_end = store_end,
    .file_remove = store_remove,
    .file_open = store_open,
    .file_close = store_close,
    .file_read = store_read,
    .file_write = store_write,
    .file_exists = store_exists,
    .file_size = store_size,
    .file_sync = store_sync,
    .file_truncate = store_truncate,
    .file_lock = store_lock,
    .file_unlock = store_unlock,
    .file_lock_test = store_lock_test,
    .dir_create = store_dir_create,
    .file_rename = nullptr,
    .dir_open = nullptr,
    .dir_close = nullptr,
    .dir_next = nullptr,
    .file_info = nullptr,
    .file_is_named = store_is_named,
    .file_reserve = store_reserve,
};

}  // namespace tovik
