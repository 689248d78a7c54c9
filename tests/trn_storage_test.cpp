#include "storage/transaction/trn_storage.h"

#include <algorithm>
#include <string>
#include <vector>

#include "storage_support.h"

using namespace tovik;
using namespace tovik::test;

using Calls = std::vector<std::string>;

TEST_F(Blocks, PruningAtOpen) {
  Engine engine;
  BlockDatabase database = create();
  ASSERT_TRUE(database);
  bm_counters(*database, part_dat).ucnt = 12;
  ASSERT_TRUE(bm_write_header(*database, part_dat));
  touch({"orders.11.trn_", "orders.12.trn_", "orders.13.trn_", "orders.14.trn_", "orders.trn",
         "orders.12x.trn_", "orders.4294967308.trn_", "orders.11.log_", "orders.11.trn", "orders2.11.trn_",
         "orders.x.trn_", "orders.old.11.trn_"});
  ASSERT_TRUE(open("", false));
  EXPECT_EQ(files().size(), 13u);
  ASSERT_TRUE(open("", true));
  EXPECT_EQ(files(), (Names{"orders.dat", "orders.12.trn_", "orders.13.trn_", "orders.trn", "orders.12x.trn_",
                            "orders.11.log_", "orders.11.trn", "orders2.11.trn_", "orders.x.trn_",
                            "orders.old.11.trn_"}))
      << "only what this database has saved";
}

TEST_F(Blocks, TransactionsLeaveWhatTheSettingsSay) {
  const struct {
    const char *settings;
    Names rolled_back, committed;  // what a rollback leaves, and the second of two commits
  } cases[] = {{"", {"orders.dat"}, {"orders.dat", "orders.2.trn_"}},
               {"HVI_TRAN_HISTORY=0", {"orders.dat", "orders.trn"}, {"orders.dat", "orders.trn"}},
               {"HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF", {"orders.dat"}, {"orders.dat"}},
               {"HVI_TRAN_SYNC=OFF", {"orders.dat"}, {"orders.dat", "orders.2.trn_"}}};
  for (const auto &test : cases) {
    SCOPED_TRACE(test.settings);
    FaultDriver driver;
    Engine engine(test.settings);
    BlockDatabase database = create("OVERWRITE=true;DRV_NO=101");
    ASSERT_TRUE(database);
    write_record(*database);
    EXPECT_TRUE(trn_release(*database, false));
    EXPECT_EQ(files(), test.rolled_back);
    const Calls calls = driver.take_log();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sync orders.trn") > 0, env_on(Env::tran_sync));
    for (int commit = 0; commit < 2; ++commit) {
      write_record(*database);
      apply_record(*database);
      EXPECT_TRUE(trn_release(*database, true));
      EXPECT_EQ(database->io[part_trn], nullptr);
      EXPECT_EQ(database->header.commit.tstat, 0u);
      EXPECT_EQ(bm_counters(*database, part_trn).bcnt, 0);
    }
    EXPECT_EQ(files(), test.committed);
    touch({"orders.1.trn_", "orders.3.trn_", "orders.4.trn_"});
    EXPECT_TRUE(saved_drop_stale(*database));
    Names left = test.rolled_back;
    left.insert({"orders.1.trn_", "orders.4.trn_"});
    EXPECT_EQ(files(), left);
    EXPECT_EQ(recorded(), Codes{});
  }
}

TEST_F(Blocks, ARecordThatWaitsIsNeverDestroyed) {
  for (const char *settings : {"HVI_TRAN_HISTORY=0", "HVI_TRAN_HISTORY=0;HVI_TRAN_FILE_REUSE=OFF", ""}) {
    SCOPED_TRACE(settings);
    FaultDriver driver;
    Engine engine(settings);
    BlockDatabase database = create("OVERWRITE=true;DRV_NO=101");
    ASSERT_TRUE(database);
    write_record(*database);
    const std::string record = content("orders.trn");
    trn_abandon(*database);
    EXPECT_FALSE(trn_reset(*database));
    EXPECT_FALSE(saved_drop_stale(*database));
    EXPECT_EQ(take_recorded(), (Codes{22016, 22016}));
    for (int call = 1; call <= 3; ++call) {  // nor when it cannot be read
      driver.fail_call(call);
      EXPECT_FALSE(trn_reset(*database)) << call;
    }
    err_clear();
    EXPECT_EQ(content("orders.trn"), record);

    // Applied, or not this database's, it is dead and makes room for the next transaction, durably.
    ASSERT_TRUE(trn_reopen(*database) && bm_read_header(*database, part_trn));
    apply_record(*database);
    trn_abandon(*database);
    driver.take_log();
    EXPECT_TRUE(trn_reset(*database));
    EXPECT_EQ(content("orders.trn"), "");
    const Calls log = driver.take_log();
    EXPECT_NE(std::find(log.begin(), log.end(), "sync orders.trn"), log.end());
    EXPECT_TRUE(trn_release(*database, false));

    put("orders.trn", record);
    EXPECT_TRUE(saved_drop_stale(*database));
    EXPECT_FALSE(files().contains("orders.trn"));
    EXPECT_EQ(files(), Names{"orders.dat"});
    EXPECT_EQ(recorded(), Codes{});
  }
}
