#include <cstdlib>

#include "platform/platform.h"
#include "platform/pool.h"

namespace tovik {

namespace {

void *runtime_alloc(size_t size) {
  return malloc(size);
}
void runtime_free(void *block) {
  free(block);
}
void *runtime_realloc(void *block, size_t size) {
  return realloc(block, size);
}

void runtime_stats(MemoryStats *stats) {
  if (stats != nullptr) *stats = {};
}

}  // namespace

MemoryTable memory_table = {pool_start,   pool_end,        runtime_alloc,
                            runtime_free, runtime_realloc, runtime_stats};

void memory_use_runtime() {
  memory_table.mem_alloc = runtime_alloc;
  memory_table.mem_free = runtime_free;
  memory_table.mem_realloc = runtime_realloc;
  memory_table.mem_stats = runtime_stats;
}

}  // namespace tovik
