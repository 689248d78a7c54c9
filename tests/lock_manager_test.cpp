#include "storage/lock_manager.h"

#include <map>
#include <sstream>

#include "storage_support.h"

namespace tovik::test {
namespace {

constexpr LockResult granted = LockResult::granted, busy = LockResult::busy, failed = LockResult::failed;

// The file and its users: each open counts as a process of its own.
class LockManagerTest : public testing::Test {
 protected:
  struct Process : BlockDatabase {
    explicit Process(const std::string &text) {
      params.reset(param_create(text.c_str()));
      bm.reset(bm_open(*params, History::kept));
      if (bm == nullptr) bm.reset(bm_create(*params, DatabaseType::ordinary));
      EXPECT_TRUE(bm_end_creation(*bm));
      lm.reset(lm_create(*bm));
      err_clear();
    }
    LockManager &operator*() { return *lm; }
    Held<LockManager, lm_destroy> lm;
  };

  StorageEngine engine_;
  TempDir dir_;
  const std::string text_ = "NAME=l;LOCK_RETRY=5;LOCK_SLEEP=1;PATH=" + dir_.path();
  Process a_{text_}, b_{text_};
};

int32_t seconds;

// Steps "process thread call [busy] level nshared"; the last two are the process's afterwards. Between two of
// them there is time enough for a reader to look for a waiting writer anew.
TEST_F(LockManagerTest, StepsOfThreadsAndProcesses) {
  const SlotGuard clock(
      system_driver.utc_now, +[](Clock *now) { *now = {.seconds = ++seconds, .microseconds = 0}; });
  const char *const scripts[] = {
      // Readers and a writer in one process. Thread 5 gives back the shared level that it took on the way.
      "a 1 shared 1 1; a 2 shared 1 2; a 3 reserved 2 3; a 4 shared 2 4; a 4 reserved busy 2 4; "
      "a 5 reserved busy 2 4; a 3 exclusive busy 3 4; a 5 shared busy 3 4; a 1 leave_reading 3 3; "
      "a 3 leave_reading 3 3; a 2 leave 3 2; a 3 exclusive busy 3 2; a 4 leave 3 1; a 3 exclusive 4 1; "
      "a 1 shared busy 4 1; a 3 to_shared 1 1; a 1 shared 1 2; a 3 leave 1 1; a 1 leave 0 0",
      // Between processes. Once the writer waits, thread 4 stays out though its process reads already.
      "a 1 shared 1 1; b 2 reserved 2 1; a 1 reserved busy 1 1; a 3 shared 1 2; b 2 exclusive busy 3 1; "
      "a 4 shared busy 1 2; a 3 shared 1 2; a 1 leave 1 1; b 2 exclusive busy 3 1; a 3 leave 0 0; "
      "a 4 shared busy 0 0; b 2 exclusive 4 1; a 4 shared busy 0 0; b 2 to_shared 1 1; "
      "a 4 exclusive busy 3 1; b 2 leave 0 0; a 4 exclusive 4 1; a 4 leave 0 0; b 2 exclusive 4 1; "
      "b 2 leave 0 0",
  };
  const std::map<std::string, LockLevel> levels = {
      {"shared", LockLevel::shared}, {"reserved", LockLevel::reserved}, {"exclusive", LockLevel::exclusive}};
  const std::map<std::string, Unlock> ends = {
      {"leave_reading", Unlock::readers_only}, {"to_shared", Unlock::to_shared}, {"leave", Unlock::all}};
  for (const std::string script : scripts) {
    std::istringstream steps(script);
    for (std::string step; std::getline(steps, step, ';');) {
      SCOPED_TRACE(step + " of " + script);
      std::istringstream words(step);
      std::string process, call;
      ThreadId thread;
      words >> process >> thread >> call;
      LockManager &lm = process == "a" ? *a_ : *b_;
      std::string expected = " ";
      if (ends.contains(call))
        EXPECT_TRUE(lm_unlock(lm, thread, ends.at(call)));
      else if (lm_lock(lm, thread, levels.at(call), Attempt::once) == busy)
        expected += "busy ";
      expected += std::to_string(static_cast<int>(lm.level)) + " " + std::to_string(lm.nshared);
      EXPECT_EQ(expected, std::string(std::istreambuf_iterator<char>(words), {}));
      EXPECT_EQ(lm_holds_write(lm, thread),
                lm_holds(lm, thread) && lm.level >= LockLevel::reserved && !lm_write_busy(lm, thread));
    }
  }
  EXPECT_EQ(Codes{}, take_recorded());
}

TEST_F(LockManagerTest, RefusesWhatCannotBe) {
  EXPECT_EQ(failed, lm_lock(*a_, 1, LockLevel::pending, Attempt::once));
  EXPECT_FALSE(lm_unlock(*a_, 1, Unlock::all));
  EXPECT_EQ((Codes{status::lock_argument, status::lock_no_entry}), take_recorded());
  for (ThreadId thread = 1; thread <= 16; ++thread)
    ASSERT_EQ(granted, lm_lock(*a_, thread, LockLevel::shared, Attempt::once));
  EXPECT_EQ(failed, lm_lock(*a_, 17, LockLevel::shared, Attempt::repeated));
  EXPECT_EQ(Codes{status::lock_table_full}, take_recorded());
  ASSERT_TRUE(lm_unlock(*a_, 9, Unlock::all));
  EXPECT_EQ(granted, lm_lock(*a_, 17, LockLevel::shared, Attempt::once));
}

// The byte-range calls on the way of one thread, as "+S4098:510" (locked shared) or "-4096:1" (unlocked).
std::string ranges;
int range_calls, failing_range_call;
const IoDriver real_files = file_driver;

int recorded_lock(DriverHandle handle, int mode, int64_t offset, int64_t length) {
  if (++range_calls == failing_range_call) return -1;
  ranges += std::string(mode == file_lock_shared ? "+S" : "+X") + std::to_string(offset) + ":" +
            std::to_string(length) + " ";
  return real_files.file_lock(handle, mode, offset, length);
}

int recorded_unlock(DriverHandle handle, int64_t offset, int64_t length) {
  if (++range_calls == failing_range_call) return -1;
  ranges += "-" + std::to_string(offset) + ":" + std::to_string(length) + " ";
  return real_files.file_unlock(handle, offset, length);
}

// The bytes lie behind the header block.
TEST_F(LockManagerTest, ByteRangesOfTheLevels) {
  SlotGuard lock(file_driver.file_lock, recorded_lock);
  SlotGuard unlock(file_driver.file_unlock, recorded_unlock);
  range_calls = failing_range_call = 0;
  const auto ranges_of = [](bool) { return std::exchange(ranges, {}); };
  const auto taken = [&](LockLevel level) {
    return ranges_of(lm_lock(*a_, 1, level, Attempt::once) == granted);
  };
  EXPECT_EQ("+S4096:1 +S4098:510 -4096:1 ", taken(LockLevel::shared));
  EXPECT_EQ("+X4097:1 ", taken(LockLevel::reserved));
  EXPECT_EQ("+X4096:1 -4098:510 +X4098:510 ", taken(LockLevel::exclusive));
  EXPECT_EQ("-4098:510 +S4098:510 -4097:1 -4096:1 ", ranges_of(lm_unlock(*a_, 1, Unlock::to_shared)));
  EXPECT_EQ("-4098:510 ", ranges_of(lm_unlock(*a_, 1, Unlock::all)));
}

TEST_F(LockManagerTest, EveryByteRangeCallFailingIsSurvived) {
  SlotGuard lock(file_driver.file_lock, recorded_lock);
  SlotGuard unlock(file_driver.file_unlock, recorded_unlock);
  const auto from_elsewhere = [this](LockLevel level) {
    const int calls = std::exchange(range_calls, INT32_MIN);  // its calls do not count
    const LockResult result = lm_lock(*b_, 2, level, Attempt::once);
    if (lm_holds(*b_, 2)) {
      EXPECT_TRUE(lm_unlock(*b_, 2, Unlock::all));
    }
    range_calls = calls;
    return result;
  };
  for (int call = 1;; ++call) {
    SCOPED_TRACE(call);
    range_calls = 0;
    failing_range_call = call;
    LockResult result = failed;
    for (int tries = 0; tries < 3 && result == failed; ++tries)
      result = lm_lock(*a_, 1, LockLevel::exclusive, Attempt::once);
    EXPECT_EQ(granted, result);
    EXPECT_EQ(busy, from_elsewhere(LockLevel::shared));
    if (!lm_unlock(*a_, 1, Unlock::to_shared)) {
      EXPECT_TRUE(lm_holds_write(*a_, 1));
      EXPECT_TRUE(lm_unlock(*a_, 1, Unlock::to_shared));
    }
    EXPECT_EQ(busy, from_elsewhere(LockLevel::exclusive));
    EXPECT_TRUE(lm_unlock(*a_, 1, Unlock::all) || lm_unlock(*a_, 1, Unlock::all));
    EXPECT_EQ(granted, from_elsewhere(LockLevel::exclusive));
    if (range_calls < call) break;
  }
  EXPECT_GT(range_calls, 10);
}

}  // namespace
}  // namespace tovik::test
