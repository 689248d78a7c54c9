// The storage manager of one database: owns the block manager, the two caches, the transaction manager and
// the lock manager, and offers the page interface, the only way the data layer reads and changes blocks.
//
// The data layer above is told of events through one operation table, registered once per process.
#pragma once

#include "storage/lock_manager.h"
#include "storage/transaction/transaction.h"

namespace tovik {

struct StorageManager : StorageState {
  BlockManager *bm;
  CacheManager *dat, *trn;  // trn is null in a temporary database
  TransactionManager *tm;   // null in a temporary database
  LockManager *lm;          // null in a temporary database
  Params *params;           // the database's, not owned
  void *data;               // the data layer's systems of this storage (created by its operations)
};

// A new database. It is complete on disk after the first sm_direct_end, which leaves the update counter at 0,
// or the first transaction. Statuses 11001, 1, 10, 25002 to 25006, 25010, 25012, 25015.
StorageManager *sm_create(Params &params);

// Runs the warm restart when it is the only user. Statuses 11001, 1, 10, 25003, 25004, 25007, 25015, 22023.
StorageManager *sm_open(Params &params);

// The second half of an open: reads blocks, so the caller has the shared level as for any other read. 25008,
// 25009.
[[nodiscard]] bool sm_open_systems(StorageManager &sm);

StorageManager *sm_create_work(Params &params);  // a temporary database: block manager and DAT cache only
void sm_close(StorageManager *sm);               // rolls open levels back, writes dirty DAT pages

// The level whose state the calling thread sees: the open level for the owner of the transaction, else 0.
int sm_level(const StorageManager &sm);

// The DAT part may have changed beneath us: called whenever a lock level was granted, after tm_check_record.
// Reads the DAT header again; when another process has committed, or tm_recover has run, the DAT cache is
// emptied and changed is set: every handle of the data layer must be read again. Only the first caller is
// told.
[[nodiscard]] bool sm_refresh(StorageManager &sm, bool *changed);

// Changes made outside a transaction: sm_direct_begin drops saved storages that they would make stale (22016
// when a commit record waits to be applied, 122002 beside a transaction, which only locks keep away);
// sm_direct_end writes counters, pages and the header with a new update counter, and flushes, when anything
// changed. After a failure sm_direct_end may be called again. The caller holds the exclusive level, or is the
// only user (creation).
[[nodiscard]] bool sm_direct_begin(StorageManager &sm);
[[nodiscard]] bool sm_direct_end(StorageManager &sm);

// A held page: move-only, released unchanged when it goes out of scope. Held pages are never evicted; nobody
// holds a page across a commit, a rollback or the return to the application.
class Page {
 public:
  Page() = default;
  ~Page();
  Page(Page &&other) noexcept;
  Page &operator=(Page &&other) noexcept;
  Page(const Page &) = delete;
  Page &operator=(const Page &) = delete;

  bool held() const { return data_ != nullptr; }
  uint8_t *data() const { return data_; }
  BlockNo block() const { return block_; }

 private:
  friend bool sm_page_new(StorageManager &, Page &);
  friend bool sm_page_get(StorageManager &, BlockNo, Page &);
  friend bool sm_page_release(Page &);
  friend bool sm_page_release_write(Page &);
  friend bool sm_page_delete(Page &);
  StorageManager *sm_ = nullptr;
  uint8_t *data_ = nullptr;
  BlockNo block_ = 0;
};

// The page interface. page must not be held. The thread that owns the open transaction works in the TRN
// cache, every other thread in the DAT cache, which gives nothing while a commit record waits for its copy
// (22016). Statuses 23001 and the cache's.
[[nodiscard]] bool sm_page_new(StorageManager &sm, Page &page);  // zero-filled
[[nodiscard]] bool sm_page_get(StorageManager &sm, BlockNo block, Page &page);
[[nodiscard]] bool sm_page_release(Page &page);
[[nodiscard]] bool sm_page_release_write(Page &page);  // the page was changed
[[nodiscard]] bool sm_page_delete(Page &page);         // the block goes on the free list
[[nodiscard]] bool sm_chain_free(StorageManager &sm, BlockNo head, BlockNo tail, int32_t count);

}  // namespace tovik
