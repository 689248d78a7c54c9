// What the storage layer tells the data layer above it, through one operation table that is registered once
// per process; and what the storage manager and its transaction manager share.
#pragma once

#include "platform/platform.h"

namespace tovik {

struct StorageManager;

struct StorageState {
  Lock *lock;           // held around every page-interface call; guards the data layer's handle lists too
  bool creating;        // sm_create ran and sm_direct_end has not yet
  bool direct_changed;  // the DAT part changed outside a transaction since the last sm_direct_end
  bool reload;          // a recovered record changed the DAT part: the next sm_refresh reports it
};

// What the data layer does for a storage manager. Levels are 1 to 4; level 0 is the committed state.
struct DataLayerOps {
  bool (*row_create)(StorageManager &sm);  // makes the system ROW; blocks 1 and 2 are allocated
  bool (*row_open)(StorageManager &sm);
  bool (*btree_create)(StorageManager &sm);  // makes the index support rows
  bool (*btree_open)(StorageManager &sm);
  void (*close)(StorageManager &sm);           // releases sm.data
  bool (*write_counters)(StorageManager &sm);  // brings the current level's changed counters to their pages
  void (*level_opened)(StorageManager &sm, int level);   // level starts as a copy of level - 1
  void (*level_merged)(StorageManager &sm, int level);   // level's state becomes level - 1's
  void (*level_dropped)(StorageManager &sm, int level);  // level's state is abandoned
};

// The hooks of a level run inside the storage manager's lock, level_opened with the level open already,
// level_merged and level_dropped with it still open. write_counters fails the operation that calls it.
void sm_register_data_layer(const DataLayerOps &ops);
const DataLayerOps &sm_data_layer();  // operations that do nothing until one is registered

}  // namespace tovik
