// The fixed-size arena of a statement and of the record interface's work areas. Everything taken from it goes
// when it is emptied or reset to a mark; nothing is released one by one.
#pragma once

#include <cstdint>
#include <cstring>

namespace tovik {

inline constexpr uint16_t memory_pool_mark = 0xA1A2;

struct MemoryPool {
  uint16_t kind_mark;
  uint8_t *data;
  int32_t capacity;  // bytes
  int32_t used;
  int32_t count;  // allocations since the last emptying
};

// The size in which the trees of a pool of that size find room where pointers have four bytes.
int32_t memory_pool_scaled(int32_t size);

MemoryPool *memory_pool_create(int32_t capacity);  // 10001, 1
void memory_pool_destroy(MemoryPool *pool);

// size bytes aligned for any engine type, not zeroed; null with 110002 when the pool is exhausted, 10003 when
// it is no pool.
void *memory_pool_alloc(MemoryPool &pool, int64_t size);
bool memory_pool_fits(const MemoryPool &pool, int64_t size);
char *memory_pool_text(MemoryPool &pool, const char *text);                  // copy; null text gives ""
char *memory_pool_text(MemoryPool &pool, const char *text, int32_t length);  // copy of length bytes + NUL
void memory_pool_empty(MemoryPool &pool);

// A zero-filled plain T, or an array of them.
template <class T>
T *memory_pool_new(MemoryPool &pool, int count = 1) {
  void *block = memory_pool_alloc(pool, static_cast<int64_t>(sizeof(T)) * count);
  if (block != nullptr) memset(block, 0, sizeof(T) * static_cast<size_t>(count));
  return static_cast<T *>(block);
}

// Gives back, at the end of the scope, everything taken since: what one row needs ends with that row.
class PoolScope {
 public:
  explicit PoolScope(MemoryPool &pool) : pool_(pool), used_(pool.used), count_(pool.count) {}
  ~PoolScope() {
    pool_.used = used_;
    pool_.count = count_;
  }
  PoolScope(const PoolScope &) = delete;
  PoolScope &operator=(const PoolScope &) = delete;

 private:
  MemoryPool &pool_;
  int32_t used_, count_;
};

}  // namespace tovik
