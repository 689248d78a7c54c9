#include "storage/transaction/transaction.h"

#include <algorithm>
#include <optional>

#include "storage_support.h"

namespace tovik::test {
namespace {

using Names = std::vector<std::string>;
namespace fs = std::filesystem;

constexpr size_t block_size = 1024;

// A file database of blocks 3 to 9; block n is filled with n.
class TransactionTest : public Blocks {
 protected:
  TransactionTest() {
    env_set("HVI_LOG_FILE", log_.c_str());
    open(Storage::Start::create);
    for (uint8_t fill = 3; fill <= 9; ++fill) EXPECT_EQ(fill, db_->add(fill));
    EXPECT_TRUE(sm_direct_begin(**db_) && sm_direct_end(**db_));
  }

  std::string text(const std::string &directory) const {
    return "NAME=orders;BLOCK_SIZE=1024;PATH=" + directory + more_;
  }
  void open(Storage::Start start) {
    db_.reset();
    db_.emplace(text(dir_.path()), start);
    ASSERT_TRUE(db_->opened());
  }
  std::string log() const {
    const Bytes bytes = read_file(log_);
    return std::string(bytes.begin(), bytes.end());
  }

  // What a machine that stopped now would find.
  void snapshot(const TempDir &into) const { fs::copy(dir_.path(), into.path()); }

  bool change(std::initializer_list<BlockNo> blocks, uint8_t fill) {
    for (BlockNo block : blocks)
      if (!db_->put(block, fill)) return false;
    return true;
  }
  bool commit_change(std::initializer_list<BlockNo> blocks, uint8_t fill) {
    return db_->begin() && change(blocks, fill) && db_->commit();
  }

  FaultDriver driver_;
  StorageEngine engine_;
  TempDir logs_;
  const std::string log_ = logs_ / "log";
  std::string more_;
  std::optional<Storage> db_;
};

TEST_F(TransactionTest, MapOf513EntriesOfLargeBlocksTakesTwoBlocks) {
  Storage db("NAME=big;TYPE=MEMORY;BLOCK_SIZE=4096;CACHE_SIZE_TRN=600", Storage::Start::create);
  for (int rest : {512, 513}) {
    while (db.counters().bcnt < rest) ASSERT_NE(0, db.add(1));
    ASSERT_TRUE(db.begin());
    for (BlockNo block = 1; block <= rest; ++block)
      ASSERT_TRUE(db.put(block, 7, static_cast<uint32_t>(block)));
    ASSERT_TRUE(db.record());
    const CommitRecord &record = db->bm->header.commit;
    EXPECT_EQ(rest, record.map_icnt);
    EXPECT_EQ(rest + 1, record.map_bno);
    EXPECT_EQ(rest + (rest == 512 ? 1 : 2), bm_counters(*db->bm, part_trn).bcnt);
    ASSERT_TRUE(db.apply());
    EXPECT_EQ(static_cast<uint32_t>(rest), load_u32(db.get(rest).data() + 4092));
  }
}

// Without a warm restart a record waits, and so does one of which nobody knows what it holds, because it
// cannot be read: everybody is told the same.
TEST_F(TransactionTest, ARecordWaitsUntilItIsApplied) {
  ASSERT_TRUE(db_->begin() && change({3}, 60) && db_->record());
  TempDir image;
  snapshot(image);
  const Bytes trn = read_file(image / "orders.trn");
  const std::string params =
      text(image.path()) + ";WARM_RESTART=off;DRV_NO=" + std::to_string(driver_.driver_no);
  Storage db(params, Storage::Start::open);
  ASSERT_TRUE(db.opened());
  for (int call = 1; call <= 3; ++call) {  // the DAT header, the open, the TRN header
    driver_.fail_call(call, Failure::from_then_on);
    EXPECT_EQ(Found::failed, tm_check_record(*db->tm));
    EXPECT_EQ(call == 1 ? 104 : 22023, first_status());
    driver_.fail_call(0);
    EXPECT_EQ(Found::yes, tm_check_record(*db->tm));
  }
  driver_.fail_call(1, Failure::from_then_on);
  EXPECT_FALSE(tm_recover(*db->tm));
  EXPECT_EQ(140003, first_status());
  driver_.fail_call(0);
  EXPECT_FALSE(db.begin());  // never over a record that waits
  EXPECT_EQ(trn, read_file(image / "orders.trn"));
  ASSERT_TRUE(tm_recover(*db->tm));
  EXPECT_EQ(60, db.fill_of(3));
  const std::string ucnt = std::to_string(db.counters().ucnt);
  EXPECT_NE(std::string::npos,
            log().find("[warm][orders] warm restart : commit current transaction. ucnt:[" + ucnt + "]"));
  EXPECT_EQ((Names{"orders." + ucnt + ".trn_", "orders.dat"}), file_names(image.path()));
}

// The disk holds a record half copied and the saved storage of the commit before it, which must not be laid
// over the half copy.
TEST_F(TransactionTest, RecordsThatCannotBeTrueAreNotApplied) {
  ASSERT_TRUE(commit_change({3}, 50));
  const std::string saved = "orders." + std::to_string(db_->counters().ucnt) + ".trn_";
  ASSERT_TRUE(db_->begin() && change({3, 5, 9}, 60) && db_->add(61) == 10 && db_->record());
  TempDir recorded_image;
  snapshot(recorded_image);
  const Bytes good = read_file(recorded_image / "orders.trn");
  const int map = static_cast<int>(good.size() - block_size);
  Bytes half_copied = read_file(recorded_image / "orders.dat");
  half_copied[3 * block_size] = 60;
  const std::string conflict = "[info][warm][orders] transaction counter conflict[",
                    block = "transaction commit block error";
  const struct {
    const char *what;
    int offset;
    int32_t value;
    std::string logged;
  } rows[] = {
      {"magic", 0x00, 0, ""},
      {"state open", 0xE8, 1, ""},
      {"another database", 0x120, 12345, ""},
      {"deleted part", 0xD4, 1, ""},
      {"later update counter", 0x11C, 99, conflict},
      {"map at the header", 0xEC, 0, ""},
      {"map on shadow blocks", 0xEC, 1, block},
      {"map past the end", 0xEC, 6, ""},
      {"too many entries", 0xF0, INT32_MAX, ""},
      {"blocks after", 0xF4, 8, block},
      {"negative free count", 0xF8, -1, ""},
      {"free without a list", 0xF8, 2, block},
      {"blocks out of order", map + 8, 3, block},
      {"block past the end", map + 24, 11, block},
      {"shadow block 0", map + 4, 0, block},
      {"shadow block in the map", map + 4, 5, block},
  };
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    Bytes trn = good;
    store_i32(trn.data() + row.offset, row.value);
    TempDir image;
    fs::copy(recorded_image / saved, image / saved);
    write_file(image / "orders.dat", half_copied);
    write_file(image / "orders.trn", trn);
    fs::remove(log_);
    Storage db(text(image.path()), Storage::Start::open);
    ASSERT_TRUE(db.opened());
    EXPECT_EQ(row.logged == block ? 60 : 50, db.fill_of(3));
    EXPECT_EQ(5, db.fill_of(5));
    EXPECT_EQ(std::string::npos, log().find("commit current"));
    EXPECT_NE(std::string::npos, log().find(row.logged));
    EXPECT_EQ(Found::no, tm_check_record(*db->tm));
    EXPECT_TRUE(db.begin() && db.put(3, 1) && db.commit());
  }
}

TEST_F(TransactionTest, SavedStorageMendsALostCopy) {
  TempDir before;
  snapshot(before);
  ASSERT_TRUE(commit_change({3, 9}, 60));
  const std::string saved = "orders." + std::to_string(db_->counters().ucnt) + ".trn_";
  const Bytes new_dat = read_file(file("orders.dat"));
  const struct {
    const char *what;
    bool numbers;       // lcto and lctn as written, else 0
    int seconds_after;  // the saved storage's time after the DAT file's
    bool applied;
  } rows[] = {{"by number", true, 100, true},
              {"ten seconds", false, 10, true},
              {"eleven seconds", false, 11, false},
              {"older", false, -1, false}};
  for (const auto &row : rows) {
    SCOPED_TRACE(row.what);
    TempDir image;
    fs::copy(before / "orders.dat", image / "orders.dat");
    Bytes trn = read_file(file(saved));
    if (!row.numbers) memset(trn.data() + 0x128, 0, 16);
    write_file(image / saved, trn);
    fs::last_write_time(image / saved,
                        fs::last_write_time(image / "orders.dat") + std::chrono::seconds(row.seconds_after));
    Storage db(text(image.path()), Storage::Start::open);
    ASSERT_TRUE(db.opened());
    EXPECT_EQ(row.applied ? 60 : 3, db.fill_of(3));
    if (row.numbers) {
      EXPECT_EQ(new_dat, read_file(image / "orders.dat"));
    }
    EXPECT_EQ(Names{"orders.dat"}, file_names(image.path()));
  }
  // Without a restart the lost copy stays lost, and must not return over what was changed since.
  fs::copy(file(saved), before / saved);
  {
    Storage db(text(before.path()) + ";WARM_RESTART=off", Storage::Start::open);
    EXPECT_TRUE(sm_direct_begin(*db) && db.put(3, 70) && sm_direct_end(*db));
  }
  EXPECT_EQ(70, Storage(text(before.path()), Storage::Start::open).fill_of(3));
}

TEST_F(TransactionTest, ChangeAfterABusyCommitWithdrawsTheRecord) {
  ASSERT_TRUE(db_->begin() && change({3, 5}, 60) && db_->record());
  const Bytes trn = read_file(file("orders.trn"));
  ASSERT_TRUE(db_->record());  // the exclusive level was busy: nothing is written twice
  EXPECT_EQ(trn, read_file(file("orders.trn")));
  ASSERT_TRUE(change({3}, 61) && cm_flush(*(*db_)->trn, (*db_)->tm));
  {
    TempDir image;
    snapshot(image);
    Storage db(text(image.path()), Storage::Start::open);
    EXPECT_EQ(3, db.fill_of(3));
    EXPECT_EQ(5, db.fill_of(5));
  }
  ASSERT_TRUE(db_->record() && db_->apply());
  EXPECT_EQ(61, db_->fill_of(3));
  EXPECT_EQ(60, db_->fill_of(5));
}

TEST_F(TransactionTest, RollbackAfterTheRecordIsFinal) {
  more_ = ";DRV_NO=" + std::to_string(FaultDriver::driver_no);
  bool failed = false;
  int call = 0;
  for (; call <= 1 || failed; ++call) {
    SCOPED_TRACE("call " + std::to_string(call));
    open(Storage::Start::open);
    ASSERT_TRUE(db_->begin() && change({3}, 60) && db_->record());
    driver_.fail_call(call);
    failed = !db_->rollback();
    driver_.fail_call(0);
    // What cannot be destroyed counts as committed, in this process and after a restart.
    EXPECT_EQ(failed ? Found::yes : Found::no, tm_check_record(*(*db_)->tm));
    TempDir image;
    snapshot(image);
    Storage restarted(text(image.path()), Storage::Start::open);
    if (failed) {
      ASSERT_TRUE(tm_recover(*(*db_)->tm));
    }
    EXPECT_EQ(restarted.fill_of(3), db_->fill_of(3));
    ASSERT_TRUE(commit_change({3}, 3));
  }
  EXPECT_EQ(8, call);  // each of the six calls that destroy it was reached
}

// Headers pass through a buffer that other threads use under the storage manager's lock, too.
TEST_F(TransactionTest, HeadersAreWrittenUnderTheLock) {
  static Lock *lock;
  static int depth, headers, unguarded;
  static decltype(system_driver.lock_enter) enter;
  static decltype(system_driver.lock_leave) leave;
  static decltype(file_driver.file_write) write;
  lock = (*db_)->lock;
  depth = headers = unguarded = 0;
  enter = system_driver.lock_enter;
  leave = system_driver.lock_leave;
  write = file_driver.file_write;
  const SlotGuard<decltype(enter)> enters(system_driver.lock_enter, [](Lock *entered) {
    depth += entered == lock;
    return enter(entered);
  });
  const SlotGuard<decltype(leave)> leaves(system_driver.lock_leave, [](Lock *left) {
    depth -= left == lock;
    return leave(left);
  });
  const SlotGuard<decltype(write)> writes(
      file_driver.file_write, [](DriverHandle handle, const void *buffer, int64_t length, int64_t offset) {
        headers += offset == 0;
        unguarded += offset == 0 && depth == 0;
        return write(handle, buffer, length, offset);
      });
  ASSERT_TRUE(commit_change({3}, 60));
  EXPECT_EQ(3, headers);  // an empty record, the record, the DAT header
  EXPECT_EQ(0, unguarded);
}

// Any one call of the copy fails: it is done again, before anybody hears of it, and when room lacked the
// saved storage makes some.
TEST_F(TransactionTest, CopyThatFailsIsDoneAgain) {
  more_ = ";DRV_NO=" + std::to_string(FaultDriver::driver_no);
  open(Storage::Start::open);
  const auto position = [](const std::vector<std::string> &calls, const std::string &call) {
    return std::find(calls.begin(), calls.end(), call) - calls.begin();
  };
  for (int call = 1; call <= 4; ++call) {  // two blocks, the header, the flush
    SCOPED_TRACE(call);
    const uint8_t fill = static_cast<uint8_t>(100 + call);
    ASSERT_TRUE(commit_change({3}, 60) && db_->begin() && change({3, 4}, fill) && db_->record());
    driver_.take_log();
    driver_.fail_call(call);
    EXPECT_TRUE(db_->apply());
    EXPECT_EQ(Codes{}, recorded());
    const std::vector<std::string> calls = driver_.take_log();
    const std::string saved = "orders." + std::to_string(db_->counters().ucnt - 1) + ".trn_";
    EXPECT_LT(position(calls, "remove " + saved), position(calls, "close orders.trn"));
    EXPECT_EQ(fill, db_->fill_of(3));
    EXPECT_EQ(fill, db_->fill_of(4));
  }
}

// The other process ends its transaction while we look: its storage is gone, or empty, at the next call.
TEST_F(TransactionTest, AStorageThatVanishesWhileLookedAtIsAbsent) {
  more_ = ";DRV_NO=0";
  open(Storage::Start::open);
  Storage other(text(dir_.path()), Storage::Start::open);
  static const IoDriver real = file_driver;
  static std::string moving;
  moving = file("orders.trn");
  const auto look_while = [&](auto &slot, auto moved) {
    ASSERT_TRUE(db_->begin() && change({3}, 70) && db_->record());
    {
      const SlotGuard guard(slot, +moved);
      EXPECT_EQ(Found::no, tm_check_record(*other->tm));
    }
    EXPECT_EQ(Codes{}, take_recorded());
    EXPECT_EQ(Found::no, tm_check_record(*other->tm));
    ASSERT_TRUE(db_->rollback());
  };
  look_while(file_driver.file_info,
             [](const char *name, FileInfo *info) { return fs::remove(moving), real.file_info(name, info); });
  look_while(file_driver.file_open, [](const char *name, int flags, int mode, int number, int size) {
    return fs::remove(moving), real.file_open(name, flags, mode, number, size);
  });
  look_while(file_driver.file_read, [](DriverHandle handle, void *buffer, int64_t length, int64_t offset) {
    return fs::resize_file(moving, 0), real.file_read(handle, buffer, length, offset);
  });
}

// Changes outside a transaction whose pages cannot be written stay in memory, but never win over another
// process's commit.
TEST_F(TransactionTest, UnwrittenChangesGiveWayToACommit) {
  more_ = ";DRV_NO=" + std::to_string(FaultDriver::driver_no);
  open(Storage::Start::open);
  Storage other(text(dir_.path()), Storage::Start::open);
  bool changed;
  for (const bool committed : {false, true}) {
    SCOPED_TRACE(committed);
    ASSERT_TRUE(sm_direct_begin(**db_) && db_->put(5, 80) && db_->add(81) == 10 + committed);
    for (int call = 1; call <= 2; ++call) {
      driver_.fail_call(1);
      EXPECT_FALSE(sm_direct_end(**db_));
    }
    if (committed) {
      ASSERT_TRUE(sm_refresh(*other, &changed) && other.begin() && other.put(5, 90) && other.commit());
    }
    ASSERT_TRUE(sm_refresh(**db_, &changed));
    EXPECT_EQ(committed, changed);
    EXPECT_TRUE(sm_direct_end(**db_));
    EXPECT_EQ(committed ? 90 : 80, db_->fill_of(5));
    EXPECT_EQ(10, db_->counters().bcnt);
  }
}

}  // namespace
}  // namespace tovik::test
