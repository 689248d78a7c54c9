#include "data/data_layer.h"

#include "data/index/btree.h"
#include "data/row/data_systems.h"

#include "frame/error.h"

namespace tovik {

namespace {

bool systems_ready(StorageManager &sm) {
  if (sm.data == nullptr) sm.data = mem_new<DataSystems>();
  return sm.data != nullptr || fail(status::out_of_memory);
}

bool rows_create(StorageManager &sm) {
  return systems_ready(sm) && row_system_create_system(sm);
}

bool rows_open(StorageManager &sm) {
  return systems_ready(sm) && row_system_open_system(sm);
}

void systems_close(StorageManager &sm) {
  if (sm.data == nullptr) return;
  const LockGuard guard(sm.lock);
  btrees_close(sm);
  row_systems_close(sm);
  mem_delete(static_cast<DataSystems *>(sm.data));
  sm.data = nullptr;
}

// Called before a level is committed and before one is opened: a torn level refuses both.
//
// Page counters of B-trees are rows, so they come before the counters of row systems.
bool write_counters(StorageManager &sm) {
  if (sm.data == nullptr || data_systems(sm).system_rows == nullptr) return true;
  if (data_systems(sm).torn_level != 0 && sm_level(sm) > 0) return fail(status::tran_bad_state);
  return btrees_write_counters(sm) && row_systems_write_counters(sm);
}

void level_opened(StorageManager &sm, int level) {
  if (sm.data == nullptr) return;
  const LockGuard guard(sm.lock);
  data_systems(sm).open_levels = level;
}

void level_merged(StorageManager &sm, int level) {
  if (sm.data == nullptr) return;
  const LockGuard guard(sm.lock);
  data_systems(sm).open_levels = level - 1;
  btrees_level_merged(sm, level);
  row_systems_level_merged(sm, level);
}

void level_dropped(StorageManager &sm, int level) {
  if (sm.data == nullptr) return;
  const LockGuard guard(sm.lock);
  data_systems(sm).open_levels = level - 1;
  if (data_systems(sm).torn_level >= level) data_systems(sm).torn_level = 0;
  ++data_systems(sm).chain_cuts;
  btrees_level_dropped(sm, level);
  row_systems_level_dropped(sm, level);
}

constexpr DataLayerOps operations = {.row_create = rows_create,
                                     .row_open = rows_open,
                                     .btree_create = btree_create_system,
                                     .btree_open = btree_open_system,
                                     .close = systems_close,
                                     .write_counters = write_counters,
                                     .level_opened = level_opened,
                                     .level_merged = level_merged,
                                     .level_dropped = level_dropped};

}  // namespace

void data_layer_register() {
  sm_register_data_layer(operations);
}

}  // namespace tovik
