// Storage managers with the data layer's systems, for the tests of row systems and B-trees.
#pragma once

#include <cstring>

#include "engine_support.h"

namespace tovik::test {

// As the calling thread sees them.
inline BlockNo blocks_in_use(const StorageManager &sm) {
  const Counters &counters = sm_level(sm) > 0 ? shadow_counters(*sm.tm) : bm_counters(*sm.bm, part_dat);
  return counters.bcnt - counters.fcnt;
}

class StorageFixture {
 public:
  // With caches that hold a whole test's pages.
  explicit StorageFixture(
      const std::string &options = "BLOCK_SIZE=1024;CACHE_SIZE_DAT=300;CACHE_SIZE_TRN=300")
      : params_(param_create(("NAME=store;PATH=" + dir_.path() + ";" + options).c_str())) {
    EXPECT_TRUE(params_ != nullptr && param_check(*params_, true)) << errors();
    sm = sm_create(*params_);
    EXPECT_TRUE(sm != nullptr && sm_direct_end(*sm)) << errors();
    err_clear();
  }
  ~StorageFixture() {
    sm_close(sm);
    param_destroy(params_);
  }
  StorageFixture(const StorageFixture &) = delete;
  StorageFixture &operator=(const StorageFixture &) = delete;

  void save() { EXPECT_TRUE(sm_direct_end(*sm)) << errors(); }
  void reopen() {
    save();
    sm_close(sm);
    sm = sm_open(*params_);
    ASSERT_TRUE(sm != nullptr && sm_open_systems(*sm)) << errors();
  }

  void begin() { EXPECT_TRUE(tm_start(*sm->tm, current_thread())) << errors(); }
  void commit() {
    EXPECT_TRUE(tm_commit(*sm->tm, current_thread()) && tm_apply(*sm->tm, current_thread())) << errors();
  }
  void rollback() { EXPECT_TRUE(tm_rollback(*sm->tm, current_thread())) << errors(); }

  int used_blocks() const { return blocks_in_use(*sm); }

  StorageManager *sm = nullptr;

 private:
  Engine engine_;
  TempDir dir_;
  Params *params_;
};

// A change meets the failure of each of its calls in turn, in a level of its own, until none fails. What
// fails leaves the level as it was, or torn; unchanged looks at it. Gives the number of failures.
template <class Change, class Look>
int fail_each_call(StorageFixture &store, FaultDriver &driver, Change change, Look unchanged) {
  int call = 1;
  for (;; ++call) {
    store.begin();
    driver.fail_call(call);
    const bool done = change();
    driver.fail_call(0);
    if (done || testing::Test::HasFailure()) break;
    const bool torn = data_systems(*store.sm).torn_level != 0;
    if (!torn) unchanged();
    err_clear();
    EXPECT_EQ(tm_commit(*store.sm->tm, current_thread()), !torn) << errors();
    EXPECT_EQ(error_record().last_code, torn ? status::tran_bad_state : 0);
    store.rollback();
    unchanged();
  }
  store.commit();
  return call - 1;
}

}  // namespace tovik::test
