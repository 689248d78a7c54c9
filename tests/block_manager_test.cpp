#include "storage/block/block_manager.h"

#include <gtest/gtest.h>
#include <sys/resource.h>
#include <sys/stat.h>

#include <algorithm>
#include <csignal>
#include <filesystem>
#include <sstream>
#include <string>

#include "storage/block/storage_use.h"
#include "storage_support.h"

using namespace tovik;
using namespace tovik::test;

namespace {

namespace fs = std::filesystem;

class BlockManagerTest : public Blocks {
  Engine engine_;
};

// Offsets and the bytes to put there, all in hexadecimal: "14=0020 D4=01".
std::vector<std::pair<int, std::string>> patches(const std::string &text) {
  std::vector<std::pair<int, std::string>> result;
  std::istringstream words(text);
  for (std::string word; words >> word;) {
    result.emplace_back(std::stoi(word, nullptr, 16), "");
    for (size_t at = word.find('=') + 1; at < word.size(); at += 2)
      result.back().second += static_cast<char>(std::stoi(word.substr(at, 2), nullptr, 16));
  }
  return result;
}

TEST_F(BlockManagerTest, OpeningChecksTheHeader) {
  ASSERT_TRUE(create());
  const std::string good = content("orders.dat");
  const struct {
    StatusCode status;
    bool ignorable;  // with CHECK_IGNORE
    const char *damages;
  } cases[] = {
      {0, false, "05=00 06=04 E4=FFFFFFFF"},
      {20003, false, "00=00 03=78"},
      {20004, true, "06=02"},
      {20005, true, "07=01"},
      {20013, true, "08=01"},
      {20013, false, "09=01"},
      {20014, false, "14=0020 14=FFFFFFFF"},
      {20019, false, "05=01 05=03 0D=01 18=FFFFFFFF 1C=FFFFFFFF D0=01 D8=FFFFFFFF D8=FFFFFF7F"},
      {20019, false, "D8=0700000008 DC=FFFFFFFF E0=01 E0=FFFFFFFF"},
      {20020, false, "04=01"},
      {120106, false, "D4=01"},
      {120107, false, "0C=01"},
      {120111, true, "0A=00"},
  };
  for (const auto &test : cases) {
    for (const auto &[offset, bytes] : patches(test.damages)) {
      patch("orders.dat", 0, good);
      patch("orders.dat", offset, bytes);
      for (bool ignoring : {false, true}) {
        SCOPED_TRACE(testing::Message() << "offset " << offset << " ignoring " << ignoring);
        const StatusCode expected = ignoring && test.ignorable ? 0 : test.status;
        EXPECT_EQ(static_cast<bool>(open(ignoring ? "CHECK_IGNORE=true" : "")), expected == 0);
        EXPECT_EQ(take_recorded(), expected == 0 ? Codes{} : Codes{expected});
      }
    }
  }
  patch("orders.dat", 0, good);
  patch("orders.dat", 0x30, block_of('n', 32));  // not terminated
  EXPECT_FALSE(open());
  patch("orders.dat", 0, good);
  patch("orders.dat", 0x0A, "\3");  // no language
  EXPECT_FALSE(open("CHECK_IGNORE=true"));
  patch("orders.dat", 0, good);
  EXPECT_FALSE(open("BLOCK_SIZE=1024"));
  EXPECT_EQ(take_recorded(), (Codes{20019, 20019, 20014}));
}

TEST_F(BlockManagerTest, CreateOpenRemove) {
  EXPECT_FALSE(open());
  EXPECT_FALSE(remove());
  touch({"orders.trn", "orders.7.trn_", "orders.8.log_", "other.9.trn_"});
  ASSERT_TRUE(create());
  EXPECT_EQ(files(), (Names{"orders.dat", "orders.8.log_", "other.9.trn_"})) << "left-over storages are gone";
  EXPECT_FALSE(create());
  EXPECT_EQ(take_recorded(), (Codes{120102, 120102, 120101}));
  EXPECT_EQ(size("orders.dat"), 4096u);
  patch("orders.dat", 0xD4, "\1");  // the mark of a removal that was interrupted
  EXPECT_TRUE(create());
  BlockDatabase database = open("LANG=SJIS");
  ASSERT_TRUE(database);
  EXPECT_EQ(database->params->language, 2) << "the header's";
  database.bm.reset();
  touch({"orders.trn", "orders.7.trn_", "orders.old.7.trn_"});
  EXPECT_TRUE(remove());
  EXPECT_EQ(files(), (Names{"orders.8.log_", "other.9.trn_", "orders.old.7.trn_"}));
  EXPECT_TRUE(create("FILE_SFX_TRN=log"));
  EXPECT_TRUE(files().contains("orders.8.log_"));
  EXPECT_TRUE(remove("FILE_SFX_TRN=log"));
  EXPECT_EQ(files(), (Names{"other.9.trn_", "orders.old.7.trn_"}));
  put("orders.dat", block_of('x'));
  EXPECT_FALSE(remove());
  EXPECT_EQ(content("orders.dat"), block_of('x')) << "no database";
  EXPECT_EQ(take_recorded(), Codes{20003});
  std::filesystem::remove(file("orders.dat"));

  env_set("HVI_TRAN_HISTORY_SAVE", "ON");
  touch({"orders.7.trn_"});
  EXPECT_TRUE(create());
  EXPECT_TRUE(remove());
  EXPECT_TRUE(files().contains("orders.7.trn_"));
  EXPECT_EQ(take_recorded(), Codes{});
}

// Both find the name free.
TEST_F(BlockManagerTest, OneOfTwoCreationsAtOnceWins) {
  SlotGuard<int (*)(const char *)> exists(file_driver.file_exists, [](const char *) { return 0; });
  const ParamBlock params(param_create(text("").c_str()));
  IoObject *faster = io_create(0, params->io, file("orders.dat").c_str(), part_dat);
  ASSERT_EQ(storage_use(faster, StorageUse::sole), LockResult::granted);
  EXPECT_FALSE(create("LOCK_RETRY=0"));
  EXPECT_TRUE(io_close(faster));
  BlockDatabase made = create();
  ASSERT_TRUE(made);
  const std::string header = content("orders.dat");
  EXPECT_FALSE(create("SIZE_DAT=30B"));
  EXPECT_EQ(recorded(), (Codes{120101, 120101}));
  EXPECT_EQ(content("orders.dat"), header);
}

TEST_F(BlockManagerTest, TransfersStayInsideThePart) {
  BlockDatabase database = create("SIZE_DAT=30B;SIZE_TRN=10B"), endless = create("NAME=endless");
  ASSERT_TRUE(database && endless);
  const std::string block = block_of('b');
  std::string read = block_of('r');
  EXPECT_TRUE(bm_write_block(*database, part_dat, 29, block.data()));
  EXPECT_TRUE(bm_read_block(*database, part_dat, 29, read.data()));
  EXPECT_EQ(read, block);
  EXPECT_FALSE(bm_write_block(*database, part_dat, 0, block.data()));
  EXPECT_FALSE(bm_read_block(*database, part_dat, -1, read.data()));
  EXPECT_FALSE(bm_read_block(*database, part_trn, 1, read.data())) << "not open";
  EXPECT_FALSE(bm_write_block(*database, part_dat, 30, block.data()));
  EXPECT_FALSE(bm_read_block(*endless, part_dat, INT32_MAX, read.data()));
  EXPECT_EQ(recorded(), (Codes{20001, 20001, 20002, 120105, 104, 20011}));
  const ErrorEntry &unread = error_record().entries[5];
  EXPECT_EQ(unread.detail1, part_dat);
  EXPECT_EQ(unread.detail2, INT32_MAX);
  EXPECT_TRUE(bm_block_valid(*database, part_trn, 9));
  EXPECT_FALSE(bm_block_valid(*database, part_trn, 10));
}

TEST_F(BlockManagerTest, TemporaryDatabase) {
  env_set("HVI_TMP_DIR", dir_.path().c_str());
  const std::string name =
      "alter" + std::to_string(system_driver.process_id()) + "_" + std::to_string(current_thread()) + ".tmp";
  touch({name.c_str(), "alter.trn", "alter.1.trn_"});
  BlockDatabase database = create("NAME=alter", DatabaseType::temporary);
  ASSERT_TRUE(database) << "a dead process's storage is no obstacle";
  EXPECT_TRUE(bm_write_header(*database, part_dat));
  EXPECT_EQ(content(name), "") << "never a header";
  EXPECT_TRUE(saved_drop_stale(*database));
  database.bm.reset();
  EXPECT_EQ(files(), (Names{"alter.trn", "alter.1.trn_"})) << "another database's storages stay";
}

TEST_F(BlockManagerTest, SingleStorageHoldsBothParts) {
  const std::string raw = "TYPE2=RAW;SIZE_DAT=100B;SIZE_TRN=20B";
  {
    BlockDatabase database = create(raw);
    ASSERT_TRUE(database);
    EXPECT_EQ(size("orders"), 120u * 4096);
    EXPECT_EQ(trn_exists(*database), Found::no);
    write_record(*database);
    EXPECT_EQ(content("orders").substr(101 * 4096, 4096), block_of('s'));
    EXPECT_FALSE(bm_write_block(*database, part_trn, 20, block_of('x').data()));
    EXPECT_EQ(trn_exists(*database), Found::yes);
    EXPECT_FALSE(trn_reset(*database)) << "the record waits";
    EXPECT_EQ(take_recorded(), (Codes{120105, 22016}));
  }
  fs::rename(file("orders"), file("orders.dat"));
  EXPECT_FALSE(open()) << "opened in the wrong layout, the parts would overlap";
  fs::rename(file("orders.dat"), file("orders"));
  EXPECT_EQ(take_recorded(), Codes{20013});
  EXPECT_TRUE(open(raw));
  EXPECT_TRUE(remove(raw));
  EXPECT_EQ(files(), Names{});
}

TEST_F(BlockManagerTest, RawDevice) {
  const std::string device = "TYPE2=RAW_DEV;SIZE_DAT=30B;SIZE_TRN=10B;PATH=x;NAME=" + file("device") + "\\d";
  // The device's name is the path; NAME's directory gives it.
  EXPECT_FALSE(create(device));
  touch({"device"});
  EXPECT_TRUE(create(device));
  EXPECT_FALSE(create(device));
  EXPECT_EQ(size("device"), 40u * 4096);
  EXPECT_TRUE(open(device));
  EXPECT_TRUE(remove(device));
  EXPECT_FALSE(open(device));
  EXPECT_EQ(recorded(), (Codes{120102, 120104, 120106}));
  EXPECT_TRUE(create(device)) << "a deleted device is free";
}

// Room is real once reserved: it is taken on the disk, or met with a clean failure that leaves the file as it
// was. Whatever the driver can do, a file ends with the last block reserved, and nothing already there
// changes.
TEST_F(Blocks, RoomIsReserved) {
  rlimit limit;
  ASSERT_EQ(getrlimit(RLIMIT_FSIZE, &limit), 0);
  const rlim_t unlimited = limit.rlim_cur;
  const auto set_limit = [&limit](rlim_t bytes) {
    limit.rlim_cur = bytes;
    ASSERT_EQ(setrlimit(RLIMIT_FSIZE, &limit), 0);
  };
  signal(SIGXFSZ, SIG_IGN);
  for (const bool able : {true, false}) {
    SCOPED_TRACE(able);
    const SlotGuard reserve(file_driver.file_reserve, able ? file_driver.file_reserve : nullptr);
    Engine engine;
    const std::string params = "OVERWRITE=true";
    set_limit(100 * 4096);
    for (const char *layout : {";SIZE_DAT=300B", ";TYPE2=RAW;SIZE_DAT=90B;SIZE_TRN=20B"}) {
      EXPECT_FALSE(create(params + layout));
      EXPECT_EQ(take_recorded()[0], 20007);
    }
    EXPECT_EQ(files(), Names{}) << "a creation that fails leaves no file";
    BlockDatabase database = create(params);
    ASSERT_TRUE(database && bm_write_block(*database, part_dat, 1, block_of('b').data()));
    const std::string before = content("orders.dat");
    EXPECT_FALSE(bm_reserve(*database, 100));
    EXPECT_EQ(take_recorded(), Codes{120103});
    EXPECT_EQ(content("orders.dat"), before);
    EXPECT_TRUE(bm_reserve(*database, 99));
    EXPECT_EQ(content("orders.dat"), before + std::string(98 * 4096, '\0'));
    set_limit(unlimited);
    database.bm.reset();
    struct stat status;
    ASSERT_TRUE(create(params + ";SIZE_DAT=300B"));
    ASSERT_EQ(stat(file("orders.dat").c_str(), &status), 0);
    EXPECT_EQ(status.st_size, 300 * 4096);
    EXPECT_GE(status.st_blocks * 512, status.st_size) << "a hole is no room";
  }
}

// A cipher that adds the key's first byte; the key "!" opens none.
char cipher_key[2];
int open_ciphers = 0;

int shift(const void *input, void *output, int length, int sign) {
  for (int i = 0; i < length; ++i)
    static_cast<char *>(output)[i] =
        static_cast<char>(static_cast<const char *>(input)[i] + sign * cipher_key[0]);
  return length;
}

void *open_shift(const char *key, const char *const[10]) {
  if (key[0] == '!') return nullptr;
  ++open_ciphers;
  cipher_key[0] = key[0];
  return cipher_key;
}

CipherDriver shift_cipher = {
    "shift",
    {},
    open_shift,
    [](void *) { --open_ciphers; },
    [](void *, const void *in, void *out, int length) { return shift(in, out, length, 1); },
    [](void *, const void *in, void *out, int length) { return shift(in, out, length, -1); }};

TEST_F(BlockManagerTest, EncryptedDatabase) {
  EXPECT_FALSE(create("ENCRYPT_KEY=k"));
  SlotGuard cipher(system_driver.cipher_driver, &shift_cipher);
  {
    BlockDatabase database = create("ENCRYPT_KEY=k");
    ASSERT_TRUE(database);
    ASSERT_TRUE(bm_write_block(*database, part_dat, 1, block_of('b').data()));
    EXPECT_EQ(content("orders.dat").substr(4096, 4096), block_of('b' + 'k'));
    EXPECT_EQ(content("orders.dat").substr(0x90, 6), std::string("shift\0", 6));
  }
  {
    BlockDatabase database = open("ENCRYPT_KEY=k");
    ASSERT_TRUE(database);
    std::string block = block_of('x');
    ASSERT_TRUE(bm_read_block(*database, part_dat, 1, block.data()));
    EXPECT_EQ(block, block_of('b'));
  }
  for (const char *wrong : {"", "ENCRYPT_KEY=l", "ENCRYPT_KEY=!"}) EXPECT_FALSE(open(wrong)) << wrong;
  EXPECT_EQ(recorded(), (Codes{120107, 120109, 120110, 20016}));
  EXPECT_EQ(open_ciphers, 0);
}

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
  ASSERT_TRUE(open("", History::kept));
  EXPECT_EQ(files().size(), 13u);
  ASSERT_TRUE(open("", History::pruned));
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
    EXPECT_TRUE(trn_release(*database, TrnEnd::given_up));
    EXPECT_EQ(files(), test.rolled_back);
    const Calls calls = driver.take_log();
    EXPECT_EQ(std::count(calls.begin(), calls.end(), "sync orders.trn") > 0, env_on(Env::tran_sync));
    for (int commit = 0; commit < 2; ++commit) {
      write_record(*database);
      apply_record(*database);
      EXPECT_TRUE(trn_release(*database, TrnEnd::committed));
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
    EXPECT_TRUE(trn_release(*database, TrnEnd::given_up));

    put("orders.trn", record);
    EXPECT_TRUE(saved_drop_stale(*database));
    EXPECT_FALSE(files().contains("orders.trn"));
    EXPECT_EQ(files(), Names{"orders.dat"});
    EXPECT_EQ(recorded(), Codes{});
  }
}

}  // namespace
