// What the open handles of the data layer (row systems, B-trees, table definitions) share: a reference count,
// and the transaction levels at which the thing was created and dropped. A handle created in the open
// transaction is seen by the transaction's owner only; one dropped in it is seen by everybody else only,
// until the outermost level ends.
//
// A handle without references stays on its list while a transaction is open, because it carries the committed
// state beside the transaction's. The lists are guarded by the storage manager's lock.
//
// Row systems and B-trees keep values per level (counters, names). A level that opens costs nothing: a handle
// gets values of its own at a level when it is first changed there, as a copy of those of the highest level
// below that has some, and enters that level's list of touched handles. The end of a level walks this list.
#pragma once

#include <bit>
#include <cstdint>
#include <utility>

#include "storage/storage_manager.h"

namespace tovik {

struct HandleState {
  int32_t references;
  int8_t created_level;  // 0: committed
  int8_t dropped_level;  // 0: not dropped
  uint8_t touched;       // bit per level above 0 that has values of its own

  // The level whose values hold at level, the open one or one below.
  int level_of(int level) const { return std::bit_width((touched | 1u) & ((2u << level) - 1)) - 1; }
  bool is_touched(int level) const { return (touched >> level & 1) != 0; }

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

// The level whose values of a handle the calling thread sees.
template <class Handle>
int handle_level(const Handle &handle) {
  const int level = sm_level(*handle.sm);
  return level == 0 ? 0 : handle.state.level_of(level);
}

// The handles of one kind that a storage manager has open. Handle has next, next_touched[] by level, state,
// and level_copy(to, from), which copies the values of a level.
template <class Handle>
struct HandleList {
  Handle *first;  // newest first
  Handle
      *touched[tran_level_limit + 1];  // by level, 0 unused; a handle is in the list of each bit in touched
  int idle;                            // handles without references

  // The handle gets values of its own at level, which is the calling thread's.
  void touch(Handle &handle, int level) {
    if (level == 0 || handle.state.is_touched(level)) return;
    handle.level_copy(level, handle.state.level_of(level));
    mark(handle, level);
  }

  void enter(Handle &handle) {
    handle.state.references = 1;
    handle.next = first;
    first = &handle;
  }
  void hold(Handle &handle) {
    if (handle.state.references++ == 0) --idle;
  }
  template <class Unwritten>
  void give_back(Handle &handle, int open_levels, Unwritten unwritten) {
    if (--handle.state.references > 0) return;
    ++idle;
    sweep(open_levels, unwritten);
  }

  // Visits what may have changed at level, up to a visit that gives false: what it touched, at level 0
  // everything.
  template <class Visit>
  bool each_touched(int level, Visit visit) {
    for (Handle *handle = level == 0 ? first : touched[level]; handle != nullptr;
         handle = level == 0 ? handle->next : handle->next_touched[level])
      if (!visit(*handle)) return false;
    return true;
  }

  // What was touched at level becomes the level below's.
  void level_merged(int level) {
    for (Handle *next, *handle = take_touched(level); handle != nullptr; handle = next) {
      next = handle->next_touched[level];
      handle->level_copy(level - 1, level);
      handle->state.level_merged(level);
      if (level > 1 && !handle->state.is_touched(level - 1)) mark(*handle, level - 1);
    }
  }
  void level_dropped(int level) {
    for (Handle *next, *handle = take_touched(level); handle != nullptr; handle = next) {
      next = handle->next_touched[level];
      handle->state.level_dropped(level);
    }
  }

  // Frees the handles that nobody holds: all that are gone, the others only while no transaction is open and
  // when they carry nothing that is not in the file yet.
  template <class Unwritten>
  void sweep(int open_levels, Unwritten unwritten) {
    if (idle == 0) return;
    for (Handle **link = &first; *link != nullptr;) {
      Handle *handle = *link;
      const bool useless = handle->state.gone() || (open_levels == 0 && !unwritten(*handle));
      if (handle->state.references > 0 || !useless) {
        link = &handle->next;
        continue;
      }
      *link = handle->next;
      mem_delete(handle);
      --idle;
    }
  }

  void free_all() {
    while (first != nullptr) mem_delete(std::exchange(first, first->next));
    *this = HandleList();
  }

 private:
  void mark(Handle &handle, int level) {
    handle.state.touched |= static_cast<uint8_t>(1 << level);
    handle.next_touched[level] = touched[level];
    touched[level] = &handle;
  }
  // Nobody has values of its own at level any more.
  Handle *take_touched(int level) {
    for (Handle *handle = touched[level]; handle != nullptr; handle = handle->next_touched[level])
      handle->state.touched &= static_cast<uint8_t>(~(1 << level));
    return std::exchange(touched[level], nullptr);
  }
};

}  // namespace tovik
