// What the open handles of the data layer (row systems, B-trees, table definitions) share: a reference count,
// and the transaction levels at which the thing was created and dropped. A handle created in the open
// transaction is seen by the transaction's owner only; one dropped in it is seen by everybody else only,
// until the outermost level ends.
//
// A handle without references stays on its list while a transaction is open, because it carries the committed
// state beside the transaction's. The lists are guarded by the storage manager's lock.
#pragma once

#include <cstdint>

#include "platform/platform.h"

namespace tovik {

struct HandleState {
  int32_t references;
  int8_t created_level;  // 0: committed
  int8_t dropped_level;  // 0: not dropped

  // level: the one whose state the calling thread sees (sm_level).
  bool visible(int level) const { return level == 0 ? created_level == 0 : dropped_level == 0; }

  // The thing exists no more, at any level; the handle goes with its last reference.
  bool gone() const { return created_level < 0; }
  void set_gone() { created_level = dropped_level = -1; }

  void set_dropped(int level) {
    if (level == 0)
      set_gone();
    else
      dropped_level = static_cast<int8_t>(level);
  }

  // What was created and dropped at level belongs to the level below from now on.
  void level_merged(int level) {
    if (dropped_level == level) set_dropped(level - 1);
    if (created_level == level) created_level = static_cast<int8_t>(level - 1);
  }

  // What was created at level never was, and what was dropped at it is there again.
  void level_dropped(int level) {
    if (created_level == level)
      set_gone();
    else if (dropped_level == level)
      dropped_level = 0;
  }
};

// Frees the handles on a list that nobody holds: all that are gone, the others only while no transaction is
// open and when they carry nothing that is not in the file yet.
template <class Handle, class Unwritten>
void handles_sweep(Handle **link, int open_levels, Unwritten unwritten) {
  while (*link != nullptr) {
    Handle *handle = *link;
    const bool useless = handle->state.gone() || (open_levels == 0 && !unwritten(*handle));
    if (handle->state.references > 0 || !useless) {
      link = &handle->next;
      continue;
    }
    *link = handle->next;
    mem_delete(handle);
  }
}

}  // namespace tovik
