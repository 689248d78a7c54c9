// Building, opening and closing the objects of one database's storage, and the changes made outside a
// transaction.
//
// Blocks 1 and 2 of the DAT part are allocated first thing in a new database: the data layer keeps its system
// ROW and its counters there.

#include "storage/storage_manager.h"

#include <utility>

#include "frame/env.h"
#include "frame/error.h"
#include "platform/held.h"
#include "storage/transaction/trn_storage.h"

namespace tovik {
namespace {

// Closes a storage manager that did not get finished.
using Unfinished = Held<StorageManager, sm_close>;

StorageManager *allocate(Params &params) {
  if (!io_initialised()) return fail_null(status::not_initialised);
  StorageManager *sm = mem_new<StorageManager>();
  if (sm == nullptr) return fail_null(status::out_of_memory);
  sm->params = &params;
  sm->lock = system_driver.lock_create();
  if (sm->lock == nullptr) {
    mem_delete(sm);
    return fail_null(status::lock_create);
  }
  return sm;
}

bool create_caches(StorageManager &sm) {
  sm.dat = cm_create(*sm.bm, *sm.params, part_dat);
  sm.trn = sm.dat == nullptr ? nullptr : cm_create(*sm.bm, *sm.params, part_trn);
  if (sm.trn == nullptr) return fail(status::storage_cache_create);
  sm.trn->home = sm.dat;
  return true;
}

bool create_lock_manager(StorageManager &sm) {
  sm.lm = lm_create(*sm.bm);
  return sm.lm != nullptr || fail(status::storage_lock_create);
}

bool create_transaction_manager(StorageManager &sm) {
  sm.tm = tm_create(sm, sm, *sm.dat, *sm.trn, *sm.params);
  return sm.tm != nullptr || fail(status::storage_tran_create);
}

bool allocate_first_blocks(StorageManager &sm) {
  for (int i = 0; i < 2; ++i) {
    Page page;
    if (!sm_page_new(sm, page)) return fail(status::storage_new_page);
    if (!sm_page_release_write(page)) return fail(status::storage_page_write);
  }
  return true;
}

bool create_systems(StorageManager &sm) {
  if (!sm_data_layer().row_create(sm)) return fail(status::storage_row_create);
  return sm_data_layer().btree_create(sm) || fail(status::storage_btree_create);
}

// Runs only when every level can be had at once; an open beside other users goes on without it.
bool restart_under_lock(StorageManager &sm) {
  const ThreadId thread = current_thread();
  if (lm_lock(*sm.lm, thread, LockLevel::reserved, Attempt::once) != LockResult::granted) return true;
  bool done = true;
  if (lm_lock(*sm.lm, thread, LockLevel::exclusive, Attempt::once) == LockResult::granted)
    done = tm_warm_restart(*sm.tm);
  return lm_unlock(*sm.lm, thread, Unlock::all) && done;
}

bool dat_is_dirty(const StorageManager &sm) {
  return (sm.dat->state & cache_header_changed) != 0 || sm.dat->dirty_count > 0;
}

bool flush_dat(StorageManager &sm) {
  if (!cm_flush(*sm.dat, nullptr)) return false;
  return !env_on(Env::tran_sync) || bm_sync(*sm.bm, part_dat);
}

// While this process has a transaction open nobody else can commit. Counters changed outside a transaction
// exist in memory only, so they stay, and with them what else could not be written; but once another process
// has committed, its state is the one that counts.
bool follow_header(StorageManager &sm, bool *changed) {
  HeaderRecord stored;
  if (!bm_peek_header(*sm.bm, part_dat, stored)) return false;
  *changed = stored.parts[part_dat].counters.ucnt != bm_counters(*sm.bm, part_dat).ucnt;
  if (!*changed && (sm.dat->state & cache_header_changed) != 0) return true;
  sm.bm->header = stored;
  if (!*changed) return true;
  cm_drop(*sm.dat);
  sm.dat->state &= ~cache_header_changed;
  sm.direct_changed = false;
  return true;
}

// What was changed outside a transaction and not finished reaches the DAT part as far as it can, unless that
// is another database's by now.
void write_leftovers(StorageManager &sm) {
  if (sm.data != nullptr && sm.direct_changed && !sm_data_layer().write_counters(sm)) return;
  if (sm.tm != nullptr && dat_is_dirty(sm) && bm_check_current(*sm.bm)) (void)flush_dat(sm);
}

}  // namespace

StorageManager *sm_create(Params &params) {
  Unfinished sm(allocate(params));
  if (sm == nullptr) return nullptr;
  sm->bm = bm_create(params, DatabaseType::ordinary);
  if (sm->bm == nullptr) return fail_null(status::storage_block_create);
  sm->creating = true;
  if (create_caches(*sm) && create_lock_manager(*sm) && allocate_first_blocks(*sm) && create_systems(*sm) &&
      create_transaction_manager(*sm))
    return sm.release();
  bm_discard(*sm->bm);
  return nullptr;
}

StorageManager *sm_open(Params &params) {
  Unfinished sm(allocate(params));
  if (sm == nullptr) return nullptr;
  sm->bm = bm_open(params, History::pruned);
  if (sm->bm == nullptr) return fail_null(status::storage_block_open);
  if (!create_caches(*sm) || !create_lock_manager(*sm) || !create_transaction_manager(*sm)) return nullptr;
  if (params.warm_restart && !bm_read_only(*sm->bm) && !restart_under_lock(*sm)) return nullptr;
  return sm.release();
}

bool sm_open_systems(StorageManager &sm) {
  if (!sm_data_layer().row_open(sm)) return fail(status::storage_row_open);
  return sm_data_layer().btree_open(sm) || fail(status::storage_btree_open);
}

StorageManager *sm_create_work(Params &params) {
  Unfinished sm(allocate(params));
  if (sm == nullptr) return nullptr;
  sm->bm = bm_create(params, DatabaseType::temporary);
  if (sm->bm == nullptr) return fail_null(status::storage_block_create);
  sm->dat = cm_create(*sm->bm, params, part_dat);
  if (sm->dat == nullptr) return fail_null(status::storage_cache_create);
  if (!allocate_first_blocks(*sm) || !create_systems(*sm)) return nullptr;
  return sm.release();
}

void sm_close(StorageManager *sm) {
  if (sm == nullptr) return;
  while (sm->tm != nullptr && sm->tm->level > 0) (void)tm_rollback(*sm->tm, sm->tm->tid);
  if (sm->dat != nullptr && !sm->bm->discard) write_leftovers(*sm);
  if (sm->bm != nullptr) sm_data_layer().close(*sm);
  cm_destroy(sm->dat);
  cm_destroy(sm->trn);
  tm_destroy(sm->tm);
  lm_destroy(sm->lm);
  system_driver.lock_destroy(sm->lock);
  bm_close(sm->bm);
  mem_delete(sm);
}

bool sm_refresh(StorageManager &sm, bool *changed) {
  *changed = false;
  if (sm.tm == nullptr) return true;
  LockGuard guard(sm.lock);
  if (sm.tm->level == 0 && !follow_header(sm, changed)) return false;
  *changed = *changed || sm.reload;
  sm.reload = false;
  return true;
}

bool sm_direct_begin(StorageManager &sm) {
  if (sm.tm == nullptr) return true;
  LockGuard guard(sm.lock);
  if (sm.tm->level > 0) return fail(status::tran_other_thread);  // where nobody locks
  if (sm.tm->record_pending) return fail(status::tran_bad_state);
  return saved_drop_stale(*sm.bm);
}

bool sm_direct_end(StorageManager &sm) {
  if (sm.tm == nullptr) return true;
  LockGuard guard(sm.lock);
  if (!sm_data_layer().write_counters(sm)) return false;
  if (!sm.direct_changed && (sm.dat->state & cache_header_changed) == 0) return true;
  Counters &counters = bm_counters(*sm.bm, part_dat);
  if (!bm_reserve(*sm.bm, counters.bcnt)) return false;
  const uint32_t ucnt = counters.ucnt;
  if (!sm.creating) ++counters.ucnt;
  sm.dat->state |= cache_header_changed;
  if (!flush_dat(sm)) {
    counters.ucnt = ucnt;
    return false;
  }
  sm.direct_changed = false;
  return !std::exchange(sm.creating, false) || bm_end_creation(*sm.bm);
}

}  // namespace tovik
