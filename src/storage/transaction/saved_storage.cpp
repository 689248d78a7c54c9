// Saved TRN storages: the last committed one of a database, kept beside it under a numbered name.
#include "frame/env.h"
#include "frame/error.h"
#include "storage/block/saved_prune.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {

static bool saved_name(const BlockManager &bm, uint32_t number, StorageName name) {
  StorageName trn;
  return storage_name(*bm.params, DatabaseType::ordinary, part_trn, trn) &&
         saved_storage_name(trn, number, name);
}

bool saved_open(BlockManager &bm, uint32_t number) {
  StorageName name;
  if (bm_single(bm) || !bm_close_storage(bm, part_trn) || !saved_name(bm, number, name)) return false;
  if (!io_exists(bm_driver(bm), name)) return false;
  bm.io[part_trn] = io_open(bm_driver(bm), bm.params->io, name, part_trn);
  return bm.io[part_trn] != nullptr;
}

bool saved_exists(BlockManager &bm, uint32_t number) {
  StorageName name;
  return !bm_single(bm) && saved_name(bm, number, name) && io_exists(bm_driver(bm), name);
}

bool saved_remove(BlockManager &bm, uint32_t number) {
  StorageName name;
  if (bm_single(bm)) return true;
  return bm_check_current(bm) && bm_close_storage(bm, part_trn) && saved_name(bm, number, name) &&
         trn_destroy_storage(bm, name);
}

bool saved_drop_stale(BlockManager &bm) {
  if (bm_temporary(bm)) return true;
  switch (trn_record(bm)) {
    case Found::yes:
      return fail(status::tran_bad_state);
    case Found::failed:
      return false;
    case Found::no:
      break;
  }
  const uint32_t ucnt = bm_counters(bm, part_dat).ucnt;
  if (!saved_remove(bm, ucnt) || !saved_remove(bm, ucnt + 1)) return false;
  return trn_exists(bm) == Found::no || trn_destroy(bm);
}

void saved_give_up(BlockManager &bm) {
  if (bm_sync(bm, part_dat)) saved_remove_all(bm);
}

}  // namespace tovik
