// The page interface. Each call enters the storage manager's lock and picks the cache: the owner of the open
// transaction works in the TRN cache, everybody else in the DAT cache. A held page knows its cache, so giving
// it back does not ask again.
//
// Cost: entering and leaving the lock, one comparison of thread identifiers (only while a transaction is
// open), and the cache's own.

#include "frame/error.h"
#include "storage/storage_manager.h"

namespace tovik {
namespace {

bool is_owner(const TransactionManager *tm) {
  if (tm == nullptr) return false;
  const ThreadId owner = tm->tid.load(std::memory_order_relaxed);
  return owner != no_thread && owner == current_thread();
}

struct Target {
  CacheManager *cache;
  ShadowMap *shadows;  // null for the DAT cache
};

Target target_of_caller(StorageManager &sm) {
  return is_owner(sm.tm) ? Target{sm.trn, sm.tm} : Target{sm.dat, nullptr};
}

Target target_of_page(StorageManager &sm, const CachePage &page) {
  return page.cache == sm.trn ? Target{sm.trn, sm.tm} : Target{sm.dat, nullptr};
}

// While a commit record waits for its copy the DAT part may be half of it: nobody sees that, not even who
// holds a lock since before or works without locks.
bool is_whole(const StorageManager &sm, const Target &target) {
  return target.shadows != nullptr || sm.tm == nullptr || !sm.tm->record_pending ||
         fail(status::tran_bad_state);
}

void note_change(StorageManager &sm, const Target &target) {
  if (target.shadows == nullptr) sm.direct_changed = true;
}

}  // namespace

int sm_level(const StorageManager &sm) {
  return is_owner(sm.tm) ? sm.tm->level : 0;
}

Page::~Page() {
  if (data_ != nullptr) (void)sm_page_release(*this);
}

Page::Page(Page &&other) noexcept : sm_(other.sm_), data_(other.data_), block_(other.block_) {
  other.data_ = nullptr;
}

Page &Page::operator=(Page &&other) noexcept {
  if (this == &other) return *this;
  if (data_ != nullptr) (void)sm_page_release(*this);
  sm_ = other.sm_;
  data_ = other.data_;
  block_ = other.block_;
  other.data_ = nullptr;
  return *this;
}

bool sm_page_new(StorageManager &sm, Page &page) {
  if (page.held()) return fail(status::page_argument);
  LockGuard guard(sm.lock);
  const Target target = target_of_caller(sm);
  if (!is_whole(sm, target) || !cm_new_page(*target.cache, target.shadows, &page.block_, &page.data_))
    return false;
  page.sm_ = &sm;
  note_change(sm, target);
  return true;
}

bool sm_page_get(StorageManager &sm, BlockNo block, Page &page) {
  if (page.held()) return fail(status::page_argument);
  LockGuard guard(sm.lock);
  const Target target = target_of_caller(sm);
  if (!is_whole(sm, target) || !cm_get_page(*target.cache, block, target.shadows, &page.data_)) return false;
  page.sm_ = &sm;
  page.block_ = block;
  return true;
}

bool sm_page_release(Page &page) {
  if (!page.held()) return fail(status::page_argument);
  LockGuard guard(page.sm_->lock);
  uint8_t *data = page.data_;
  page.data_ = nullptr;
  return cm_release(data);
}

bool sm_page_release_write(Page &page) {
  if (!page.held()) return fail(status::page_argument);
  LockGuard guard(page.sm_->lock);
  uint8_t *data = page.data_;
  page.data_ = nullptr;
  const CachePage *header = cm_check(data);
  if (header == nullptr) return false;
  const Target target = target_of_page(*page.sm_, *header);
  note_change(*page.sm_, target);
  return cm_release_write(data, target.shadows);
}

bool sm_page_delete(Page &page) {
  if (!page.held()) return fail(status::page_argument);
  LockGuard guard(page.sm_->lock);
  const CachePage *header = cm_check(page.data_);
  if (header == nullptr) {
    page.data_ = nullptr;
    return false;
  }
  const Target target = target_of_page(*page.sm_, *header);
  note_change(*page.sm_, target);
  const bool deleted = cm_delete_page(page.data_, target.shadows);
  if (deleted || header->references == 0) page.data_ = nullptr;  // a refused page stays held
  return deleted;
}

bool sm_chain_free(StorageManager &sm, BlockNo head, BlockNo tail, int32_t count) {
  LockGuard guard(sm.lock);
  const Target target = target_of_caller(sm);
  if (!is_whole(sm, target) || !cm_free_chain(*target.cache, head, tail, count, target.shadows)) return false;
  note_change(sm, target);
  return true;
}

}  // namespace tovik
