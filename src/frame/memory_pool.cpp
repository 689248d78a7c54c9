#include "frame/memory_pool.h"

#include "frame/error.h"
#include "platform/platform.h"

namespace tovik {

namespace {

constexpr int64_t alignment = 8;

int64_t rounded(int64_t size) {
  return (size + alignment - 1) / alignment * alignment;
}

}  // namespace

int32_t memory_pool_scaled(int32_t size) {
  constexpr int32_t factor = sizeof(void *) > 4 ? sizeof(void *) / 4 : 1;
  return size > INT32_MAX / factor ? INT32_MAX : size * factor;
}

MemoryPool *memory_pool_create(int32_t capacity) {
  if (capacity < 1) return fail_null(status::pool_size);
  MemoryPool *pool = mem_new<MemoryPool>();
  if (pool == nullptr) return fail_null(status::out_of_memory);
  pool->data = static_cast<uint8_t *>(mem_alloc(static_cast<size_t>(capacity)));
  if (pool->data == nullptr) {
    mem_delete(pool);
    return fail_null(status::out_of_memory);
  }
  pool->kind_mark = memory_pool_mark;
  pool->capacity = capacity;
  return pool;
}

void memory_pool_destroy(MemoryPool *pool) {
  if (pool == nullptr) return;
  mem_free(pool->data);
  mem_delete(pool);
}

bool memory_pool_fits(const MemoryPool &pool, int64_t size) {
  return size <= INT32_MAX - alignment && pool.used + rounded(size) < pool.capacity;
}

void *memory_pool_alloc(MemoryPool &pool, int64_t size) {
  if (pool.kind_mark != memory_pool_mark) {
    return fail_null(status::pool_kind_mark, {.detail1 = pool.kind_mark});
  }
  if (size < 1) return fail_null(status::pool_size);
  if (size > INT32_MAX - alignment) return fail_null(status::pool_limit);
  const int64_t needed = pool.used + rounded(size);
  if (needed >= pool.capacity) return fail_null(status::pool_limit);  // the last bytes are never handed out
  void *block = pool.data + pool.used;
  pool.used = static_cast<int32_t>(needed);
  ++pool.count;
  return block;
}

char *memory_pool_text(MemoryPool &pool, const char *text) {
  if (text == nullptr) text = "";
  return memory_pool_text(pool, text, static_cast<int32_t>(strlen(text)));
}

char *memory_pool_text(MemoryPool &pool, const char *text, int32_t length) {
  char *copy = static_cast<char *>(memory_pool_alloc(pool, static_cast<int64_t>(length) + 1));
  if (copy == nullptr) return nullptr;
  if (length > 0) memcpy(copy, text, static_cast<size_t>(length));
  copy[length] = '\0';
  return copy;
}

void memory_pool_empty(MemoryPool &pool) {
  pool.used = 0;
  pool.count = 0;
}

}  // namespace tovik
