// Size class c (0 to 28) has a block size of 2^(c+3) bytes. Every block starts with a 4-byte header:
//
//   OFFSET  SIZE  DESCRIPTION
//   0       1     marker 0xEF
//   1       1     class
//   2       2     unused
//
// and the caller's bytes follow. Classes below 4096 bytes are carved 4096 bytes at a time and hold block size
// - 4 bytes; the others are carved one block of block size + 4096 bytes at a time and hold block size + 4092.
//
// A listed (free) block holds the address of the next listed block in its first bytes, header included. Block
// addresses are multiples of 4, so the low byte of a link is never the marker and a second free of the same
// block is recognised.
//
// Carving starts at an address 12 modulo 16 and every piece is a multiple of 4096, so what a caller receives
// is aligned for any type that fits the block.
#include "platform/pool.h"

#include <cstdlib>
#include <cstring>
#include <limits>

#include "platform/platform.h"

namespace tovik {

namespace {

constexpr int class_count = 30;
constexpr int first_large_class = 9;  // the first of 4096 bytes
constexpr size_t header_size = 4;
constexpr size_t piece_size = 4096;
constexpr unsigned char block_marker = 0xEF;
constexpr uintptr_t carve_alignment = 16;
constexpr uintptr_t carve_remainder = carve_alignment - header_size;

struct SizeClass {
  char *listed;  // first free block
  int64_t listed_count;
  int64_t used_count;
};

struct Pool {
  char *arena;  // null: no pool
  char *end;
  char *start;  // of carving
  char *carve;  // where the next piece starts
  Lock *lock;
  SizeClass classes[class_count];
  int64_t alloc_calls;
  int64_t free_calls;
  int64_t realloc_calls;
  uint64_t largest_request;
  uint64_t total_requested;
};

Pool pool;

constexpr uint64_t block_size(int size_class) {
  return uint64_t{1} << (size_class + 3);
}

constexpr uint64_t capacity(int size_class) {
  return size_class < first_large_class ? block_size(size_class) - header_size
                                        : block_size(size_class) + piece_size - header_size;
}

// The class of a request, or -1 when its block size would not fit 32 bits.
int class_of(uint64_t size) {
  // The first large class also serves requests that fill its own 4096 bytes; capacity() covers both rules.
  for (int c = 0; c < class_count && block_size(c) <= std::numeric_limits<uint32_t>::max(); ++c) {
    if (capacity(c) >= size) return c;
  }
  return -1;
}

char *listed_next(const char *block) {
  char *next;
  memcpy(&next, block, sizeof next);
  return next;
}

void list_push(int size_class, char *block) {
  SizeClass &list = pool.classes[size_class];
  memcpy(block, &list.listed, sizeof list.listed);
  list.listed = block;
  ++list.listed_count;
}

bool carve(int size_class) {
  const uint64_t size = block_size(size_class);
  const bool large = size_class >= first_large_class;
  const uint64_t piece = large ? size + piece_size : piece_size;
  if (piece >= static_cast<uint64_t>(pool.end - pool.carve)) return false;
  if (large) {
    list_push(size_class, pool.carve);
  } else {
    for (size_t offset = piece_size; offset > 0; offset -= size)
      list_push(size_class, pool.carve + offset - size);
  }
  pool.carve += piece;
  return true;
}

void count_request(uint64_t size) {
  pool.total_requested += size;
  if (size > pool.largest_request) pool.largest_request = size;
}

void *take(uint64_t size) {
  const int size_class = class_of(size);
  if (size_class < 0) return nullptr;
  SizeClass &list = pool.classes[size_class];
  if (list.listed == nullptr && !carve(size_class)) return nullptr;
  char *block = list.listed;
  list.listed = listed_next(block);
  --list.listed_count;
  ++list.used_count;
  const unsigned char header[header_size] = {block_marker, static_cast<unsigned char>(size_class), 0, 0};
  memcpy(block, header, header_size);
  return block + header_size;
}

// The class of a block that the pool handed out, or -1 for anything else.
int class_of_block(const void *block) {
  const char *bytes = static_cast<const char *>(block);
  if (bytes < pool.start + header_size || bytes >= pool.carve) return -1;
  unsigned char header[2];
  memcpy(header, bytes - header_size, sizeof header);
  return header[0] == block_marker && header[1] < class_count ? header[1] : -1;
}

void give_back(void *block) {
  const int size_class = class_of_block(block);
  if (size_class < 0) return;
  --pool.classes[size_class].used_count;
  list_push(size_class, static_cast<char *>(block) - header_size);
}

void *pool_alloc(size_t size) {
  LockGuard guard(pool.lock);
  ++pool.alloc_calls;
  count_request(size);
  return take(size);
}

void pool_free(void *block) {
  if (block == nullptr) return;
  LockGuard guard(pool.lock);
  ++pool.free_calls;
  give_back(block);
}

void *pool_realloc(void *block, size_t size) {
  if (block == nullptr) return pool_alloc(size);
  LockGuard guard(pool.lock);
  ++pool.realloc_calls;
  count_request(size);
  const int old_class = class_of_block(block);
  if (old_class < 0) return nullptr;
  if (class_of(size) == old_class) return block;
  void *moved = take(size);
  if (moved == nullptr) return nullptr;
  const uint64_t kept = capacity(old_class) < size ? capacity(old_class) : size;
  memcpy(moved, block, kept);
  give_back(block);
  return moved;
}

int32_t stats_word(uint64_t value) {
  constexpr int32_t most = std::numeric_limits<int32_t>::max();
  return value > static_cast<uint64_t>(most) ? most : static_cast<int32_t>(value);
}

void pool_stats(MemoryStats *stats) {
  if (stats == nullptr) return;
  LockGuard guard(pool.lock);
  uint64_t used = 0;
  uint64_t listed = 0;
  for (int c = 0; c < class_count; ++c) {
    used += static_cast<uint64_t>(pool.classes[c].used_count) * block_size(c);
    listed += static_cast<uint64_t>(pool.classes[c].listed_count) * block_size(c);
  }
  stats->pool_active = 1;
  stats->alloc_calls = stats_word(static_cast<uint64_t>(pool.alloc_calls));
  stats->free_calls = stats_word(static_cast<uint64_t>(pool.free_calls));
  stats->realloc_calls = stats_word(static_cast<uint64_t>(pool.realloc_calls));
  stats->largest_request = stats_word(pool.largest_request);
  stats->total_requested = stats_word(pool.total_requested);
  stats->bytes_in_use = stats_word(used);
  stats->bytes_free_listed = stats_word(listed);
  stats->bytes_carved = stats_word(static_cast<uint64_t>(pool.carve - pool.start));
  stats->arena_size = stats_word(static_cast<uint64_t>(pool.end - pool.arena));
}

}  // namespace

int pool_start(int32_t limit_megabytes) {
  if (limit_megabytes <= 0) return 0;
  if (pool.arena != nullptr) return -1;
  const uint64_t size = static_cast<uint64_t>(limit_megabytes) * 1048576;
  if (size > std::numeric_limits<size_t>::max()) return -1;
  Lock *lock = system_driver.lock_create();  // from the runtime library: the slots are not switched yet
  if (lock == nullptr) return -1;
  char *arena = static_cast<char *>(malloc(static_cast<size_t>(size)));
  if (arena == nullptr) {
    system_driver.lock_destroy(lock);
    return -1;
  }
  pool = {};
  pool.arena = arena;
  pool.end = arena + size;
  pool.start = arena + ((carve_remainder - reinterpret_cast<uintptr_t>(arena)) % carve_alignment);
  pool.carve = pool.start;
  pool.lock = lock;
  memory_table.mem_alloc = pool_alloc;
  memory_table.mem_free = pool_free;
  memory_table.mem_realloc = pool_realloc;
  memory_table.mem_stats = pool_stats;
  return 0;
}

void pool_end() {
  if (pool.arena == nullptr) return;
  memory_use_runtime();
  system_driver.lock_destroy(pool.lock);
  free(pool.arena);
  pool = {};
}

}  // namespace tovik
