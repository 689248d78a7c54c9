// The memory store: storages in process memory, held in a process-wide list by name until the library ends.
// The I/O layer holds its driver as added driver 100.
#pragma once

#include "platform/platform.h"

namespace tovik {

extern const IoDriver memory_store_driver;  // name "memory io", kind 1

}  // namespace tovik
