// Storage managers, for the tests of what stands on them, with the data layer's systems or without.
#pragma once

#include <cstring>

#include "engine_support.h"

namespace tovik::test {

// As the calling thread sees them.
inline BlockNo blocks_in_use(const StorageManager &sm) {
  const Counters &counters = sm_level(sm) > 0 ? shadow_counters(*sm.tm) : bm_counters(*sm.bm, part_dat);
  return counters.bcnt - counters.fcnt;
}

// A database through its storage manager; closed at the end of the scope.
class Storage {
 public:
  enum class Start { create, open };

  Storage(const std::string &text, Start start) : params_(param_create(text.c_str())) {
    if (params_ == nullptr) return;
    sm_ = start == Start::create ? sm_create(*params_) : sm_open(*params_);
    EXPECT_TRUE(sm_ == nullptr || start == Start::open || sm_direct_end(*sm_));
  }
  ~Storage() {
    sm_close(sm_);
    param_destroy(params_);
  }
  Storage(const Storage &) = delete;
  Storage &operator=(const Storage &) = delete;

  bool opened() const { return sm_ != nullptr; }
  StorageManager &operator*() { return *sm_; }
  StorageManager *operator->() { return sm_; }
  Counters &counters() { return bm_counters(*sm_->bm, part_dat); }

  bool begin() { return tm_start(*sm_->tm, current_thread()); }
  bool record() { return tm_commit(*sm_->tm, current_thread()); }
  bool apply() { return tm_apply(*sm_->tm, current_thread()); }
  bool commit() { return record() && apply(); }
  bool rollback() { return tm_rollback(*sm_->tm, current_thread()); }

  // Whole blocks through the page interface; every byte is fill, the last four are number.
  BlockNo add(uint8_t fill, uint32_t number = 0) {
    Page page;
    if (!sm_page_new(*sm_, page)) return 0;
    paint(page.data(), fill, number);
    const BlockNo block = page.block();
    return sm_page_release_write(page) ? block : 0;
  }
  bool put(BlockNo block, uint8_t fill, uint32_t number = 0) {
    Page page;
    if (!sm_page_get(*sm_, block, page)) return false;
    paint(page.data(), fill, number);
    return sm_page_release_write(page);
  }
  bool remove(BlockNo block) {
    Page page;
    return sm_page_get(*sm_, block, page) && sm_page_delete(page);
  }
  Bytes get(BlockNo block) {  // empty on failure
    Page page;
    if (!sm_page_get(*sm_, block, page)) return {};
    return Bytes(page.data(), page.data() + bm_block_size(*sm_->bm));
  }
  int fill_of(BlockNo block) {
    const Bytes bytes = get(block);
    return bytes.empty() ? -1 : bytes[0];
  }
  void paint(uint8_t *data, uint8_t fill, uint32_t number) const {
    const int size = bm_block_size(*sm_->bm);
    memset(data, fill, static_cast<size_t>(size));
    store_u32(data + size - 4, number);
  }

 private:
  Params *params_;
  StorageManager *sm_ = nullptr;
};

struct StorageDirectory {
  Engine engine;
  TempDir directory;
};

// One with the data layer's systems, in a directory of its own; its caches hold a whole test's pages.
class StorageFixture : StorageDirectory, public Storage {
 public:
  explicit StorageFixture(
      const std::string &options = "BLOCK_SIZE=1024;CACHE_SIZE_DAT=300;CACHE_SIZE_TRN=300")
      : Storage("NAME=store;PATH=" + directory.path() + ";" + options, Start::create) {}
  StorageManager *sm = &**this;
};

// A change meets the failure of each of its calls in turn, in a level of its own, until none fails. What
// fails leaves the level whole, or torn; look(false) sees it then, and look(true) as it was when the level
// has been given up. Gives the number of failures.
template <class Change, class Look>
int fail_each_call(StorageManager &sm, FaultDriver &driver, Change change, Look look) {
  const ThreadId me = current_thread();
  int call = 1;
  for (;; ++call) {
    EXPECT_TRUE(tm_start(*sm.tm, me)) << errors();
    driver.fail_call(call);
    const bool done = change();
    driver.fail_call(0);
    if (done || testing::Test::HasFailure()) break;
    const bool torn = data_systems(sm).torn_level != 0;
    if (!torn) look(false);
    err_clear();
    EXPECT_EQ(tm_commit(*sm.tm, me), !torn) << errors();
    EXPECT_EQ(error_record().last_code, torn ? status::tran_bad_state : 0);
    EXPECT_TRUE(tm_rollback(*sm.tm, me)) << errors();
    look(true);
  }
  EXPECT_TRUE(tm_commit(*sm.tm, me) && tm_apply(*sm.tm, me)) << errors();
  return call - 1;
}

}  // namespace tovik::test
