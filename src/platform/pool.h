// The allocation pool that enforces a memory limit: one arena, carved into blocks of 30 size classes that
// are recycled through free lists. Only memory_table calls it.
#pragma once

#include <cstdint>

namespace tovik {

// Obtains an arena of limit_megabytes MiB from the runtime library and switches mem_alloc, mem_free,
// mem_realloc and mem_stats to the pool. A limit of 0 or below changes nothing. Returns 0, or -1 when the
// arena or its lock cannot be had.
int pool_start(int32_t limit_megabytes);

// Releases the arena and puts the runtime library's allocator back. Blocks still handed out are gone.
void pool_end();

// Fills the four allocation slots of memory_table with the runtime library's allocator.
void memory_use_runtime();

}  // namespace tovik
