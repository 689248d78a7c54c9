// What the data layer keeps for one storage manager: the open row systems and B-trees, and the row systems on
// which they stand. StorageManager::data points to it from creation or opening to the close of the storage
// manager.
#pragma once

#include <atomic>

#include "data/row/row_system.h"

namespace tovik {

struct Btree;

// The lists, newest first, are guarded by the storage manager's lock.
struct DataSystems {
  HandleList<RowSystem> rows;  // every open row system, the system ROW included
  RowSystem *system_rows;
  HandleList<Btree> btrees;
  RowSystem *index_descriptors;  // of the B-trees; held from btree_*_system to the close
  RowSystem *index_counters;
  int open_levels;                    // transaction levels open now, whoever owns them
  int torn_level;                     // the level that a change left half made, 0 for none
  std::atomic<uint64_t> row_version;  // the last one given to a row system
  std::atomic<uint64_t> chain_cuts;   // levels rolled back, and reloads after another process's commit
};

inline DataSystems &data_systems(const StorageManager &sm) {
  return *static_cast<DataSystems *>(sm.data);
}

// Comes before every change of rows: the calling thread's level, touched, is about to hold what no state has
// held before.
inline int row_content_changes(RowSystem &rows) {
  const int level = row_touch(rows);
  rows.counters[level].version = ++data_systems(*rows.sm).row_version;
  return level;
}

// A change failed after its first page and could not be taken back: the calling thread's level cannot be
// committed any more, only rolled back. Outside a transaction nothing can help.
inline void data_torn(const StorageManager &sm) {
  const LockGuard guard(sm.lock);
  DataSystems &systems = data_systems(sm);
  if (systems.torn_level == 0) systems.torn_level = sm_level(sm);
}

}  // namespace tovik
