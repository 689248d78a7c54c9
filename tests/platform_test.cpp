#include "platform/platform.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstring>
#include <ctime>
#include <set>
#include <string>
#include <thread>
#include <utility>
#include <vector>

#include "api/library.h"
#include "frame/env.h"
#include "frame/error.h"
#include "support.h"

using namespace tovik;

namespace {

// What the file driver flushed since the last look, in order.
std::string flushes;
int failing_directory_flushes = 0;

std::string take_flushes() {
  return std::exchange(flushes, {});
}

}  // namespace

// These stand before the C library's.
extern "C" int fdatasync(int file) {
  flushes += "file ";
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

extern "C" int fsync(int directory) {
  if (failing_directory_flushes > 0) {
    --failing_directory_flushes;
    flushes += "directory-failed ";
    errno = EIO;
    return -1;
  }
  flushes += "directory ";
  return static_cast<int>(syscall(SYS_fsync, directory));
}

namespace {

constexpr int read_write = 2;

class FileDriver : public ::testing::Test {
 protected:
  std::string name(const char *last) const { return directory_.path() + "\\" + last; }
  DriverHandle open(const char *last, int flags) const {
    return file_driver.file_open(name(last).c_str(), flags, 0, 0, 0);
  }

  test::TempDir directory_;
};

TEST_F(FileDriver, TransfersAreWholeOrFail) {
  EXPECT_EQ(no_handle, open("a.dat", read_write));
  EXPECT_EQ(ENOENT, errno);
  DriverHandle file = open("a.dat", open_create);
  std::string block(5000, 'x');
  EXPECT_EQ(5000, file_driver.file_write(file, block.data(), 5000, 10000));
  EXPECT_EQ(100, file_driver.file_read(file, block.data(), 100, 14900));
  EXPECT_EQ(-1, file_driver.file_read(file, block.data(), 100, 14990)) << "a short read is a failure";
  EXPECT_EQ(0, file_driver.file_truncate(file, 20000));
  EXPECT_EQ(100, file_driver.file_read(file, block.data(), 100, 19900));
  EXPECT_EQ(std::string(100, '\0'), block.substr(0, 100));
  EXPECT_EQ(0, file_driver.file_close(file));
  EXPECT_EQ(-1, file_driver.file_close(file));
  EXPECT_EQ(-1, file_driver.file_sync(file));

  file = open("a.dat", open_create);
  EXPECT_EQ(20000, file_driver.file_size(file)) << "an existing file keeps its contents";
  file_driver.file_close(file);
  file = open("a.dat", open_read_only);
  EXPECT_EQ(-1, file_driver.file_write(file, "x", 1, 0));
  file_driver.file_close(file);
  FileInfo info;
  EXPECT_EQ(1, file_driver.file_info(name("a.dat").c_str(), &info));
  EXPECT_EQ(20000, info.size);
  EXPECT_EQ(0u, info.mode & 0133u) << "created with 0644 less the umask";
}

TEST_F(FileDriver, NamesRenamesAndDirectories) {
  EXPECT_EQ(0, file_driver.dir_create(name("sub").c_str()));
  file_driver.file_close(open("sub\\one", open_create));
  const std::string target = "c:" + directory_.path() + "/sub\\two";
  EXPECT_EQ(0, file_driver.file_rename(name("sub\\one").c_str(), target.c_str()));
  EXPECT_EQ(1, file_driver.file_exists(name("sub\\two").c_str()));
  EXPECT_EQ(0, file_driver.file_exists(name("sub\\one").c_str()));
  EXPECT_EQ(0, errno);
  for (const char *directory : {"sub", "sub\\", "sub/"}) {
    Directory *listing = file_driver.dir_open(name(directory).c_str());
    ASSERT_NE(nullptr, listing);
    std::set<std::string> names;
    char entry[256];
    while (file_driver.dir_next(listing, entry, sizeof entry) == 1) names.insert(entry);
    EXPECT_EQ((std::set<std::string>{".", "..", "two"}), names);
    EXPECT_EQ(0, file_driver.dir_close(listing));
  }
  EXPECT_EQ(-1, file_driver.file_rename(name("sub\\one").c_str(), name("sub\\three").c_str()));
  EXPECT_EQ(nullptr, file_driver.dir_open(name("none").c_str()));
  EXPECT_EQ(-1, file_driver.file_remove(std::string(5000, 'x').c_str()));

  setenv("TMPDIR", (directory_ / "sub").c_str(), 1);
  for (const char *temp : {"c:\\temp\\two", "C:/TEMP\\two"})
    EXPECT_EQ(1, file_driver.file_exists(temp)) << temp;
  EXPECT_EQ(0, file_driver.file_exists("c:\\temporary\\two"));
  unsetenv("TMPDIR");
}

// Two opens exclude each other even inside one process.
TEST_F(FileDriver, LocksBelongToTheOpenFile) {
  const DriverHandle mine = open("l.dat", open_create), other = open("l.dat", read_write);
  EXPECT_EQ(0, file_driver.file_lock(mine, file_lock_exclusive, 10, 1));
  EXPECT_EQ(1, file_driver.file_lock(other, file_lock_shared, 10, 1));
  EXPECT_EQ(0, errno);
  EXPECT_EQ(1, file_driver.file_lock_test(other, file_lock_exclusive, 5, 10));
  EXPECT_EQ(0, file_driver.file_lock(other, file_lock_exclusive, 11, 1));
  EXPECT_EQ(0, file_driver.file_close(open("l.dat", read_write)));  // drops nobody's lock
  EXPECT_EQ(1, file_driver.file_lock(other, file_lock_exclusive, 10, 1));
  EXPECT_EQ(0, file_driver.file_unlock(mine, 10, 1));
  EXPECT_EQ(0, file_driver.file_lock_test(other, file_lock_exclusive, 10, 1));
  EXPECT_EQ(0, file_driver.file_lock(mine, file_lock_shared, 10, 1)) << "a test leaves the range free";
  EXPECT_EQ(0, file_driver.file_lock(other, file_lock_shared, 10, 1));
  EXPECT_EQ(1, file_driver.file_lock(mine, file_lock_exclusive, 10, 1));
  EXPECT_EQ(-1, file_driver.file_lock(mine, 3, 10, 1));
  file_driver.file_close(other);
  file_driver.file_close(mine);
  EXPECT_EQ(-1, file_driver.file_lock(mine, file_lock_shared, 0, 1));
  EXPECT_EQ(-1, file_driver.file_lock_test(mine, file_lock_shared, 0, 1));
}

TEST_F(FileDriver, FirstFlushOfACreatedFileFlushesItsDirectory) {
  take_flushes();  // those of earlier tests
  const DriverHandle created = open("a.dat", open_create);
  failing_directory_flushes = 1;
  EXPECT_EQ(-1, file_driver.file_sync(created)) << "not durable before its directory is";
  EXPECT_EQ("file directory-failed ", take_flushes());
  EXPECT_EQ(0, file_driver.file_sync(created));
  EXPECT_EQ("file directory ", take_flushes());
  EXPECT_EQ(0, file_driver.file_sync(created));
  EXPECT_EQ("file ", take_flushes());
  const DriverHandle opened = open("a.dat", open_create);
  EXPECT_EQ(0, file_driver.file_sync(opened));
  EXPECT_EQ("file ", take_flushes());
  file_driver.file_close(opened);
  file_driver.file_close(created);
}

TEST_F(FileDriver, ManyUnflushedCreationsLeaveNoDescriptor) {
  std::vector<DriverHandle> files;
  for (int i = 0; i < 100; ++i) files.push_back(open(std::to_string(i).c_str(), open_create));
  for (size_t i = 0; i < files.size(); ++i) {
    EXPECT_TRUE(i % 3 == 0 || file_driver.file_sync(files[i]) == 0) << i;
    EXPECT_EQ(0, file_driver.file_close(files[i])) << i;
  }
  EXPECT_EQ(files[0], open("next", open_create)) << "descriptor numbers start over";
  file_driver.file_close(files[0]);
}

TEST(SystemDriverTest, ThreadIdsDifferAlsoAfterFork) {
  const ThreadId mine = current_thread();
  ThreadId other = no_thread;
  std::thread([&] { other = current_thread(); }).join();
  EXPECT_NE(mine, other);
  EXPECT_EQ(mine, current_thread());
  const pid_t child = fork();
  if (child == 0) _exit(current_thread() == static_cast<ThreadId>(getpid()) ? 0 : 1);
  int result;
  waitpid(child, &result, 0);
  EXPECT_EQ(0, WEXITSTATUS(result));
}

// Runs a test under time zones of its own.
class TimeZone : public ::testing::Test {
 protected:
  void TearDown() override { use("UTC"); }
  static void use(const char *zone) {
    setenv("TZ", zone, 1);
    system_driver.sys_start();
  }
};

DateTimeRec moment(const char *text) {
  DateTimeRec time = {};
  sscanf(text, "%hd-%hhd-%hhd %hhd:%hhd:%hhd", &time.year, &time.month, &time.day, &time.hour, &time.minute,
         &time.second);
  time.microseconds = 123456;
  return time;
}

std::string text(const DateTimeRec &time) {
  char buffer[64];
  snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
           time.minute, time.second);
  return buffer;
}

TEST_F(TimeZone, RulesOfTheDateConverted) {
  static const struct {
    const char *zone, *local, *utc;
    const char *back;  // null: the local time again
  } cases[] = {
      {"UTC", "9999-12-31 23:59:59", "9999-12-31 23:59:59", nullptr},
      {"Asia/Tokyo", "2024-03-01 08:59:59", "2024-02-29 23:59:59", nullptr},
      {"Asia/Tokyo", "1949-07-01 12:00:00", "1949-07-01 02:00:00", nullptr},  // summer time of those years
      {"Asia/Tokyo", "0001-01-01 00:00:00", "0000-12-31 14:41:01", nullptr},  // local mean time
      {"America/New_York", "2024-07-15 12:00:00", "2024-07-15 16:00:00", nullptr},
      {"America/New_York", "9999-12-31 23:59:59", "10000-01-01 04:59:59", nullptr},
      {"America/New_York", "2024-03-10 02:30:00", "2024-03-10 07:30:00", "2024-03-10 03:30:00"},  // skipped
      {"America/New_York", "2024-11-03 01:30:00", "2024-11-03 05:30:00", nullptr},  // twice; the first
      {"Pacific/Apia", "2011-12-29 23:59:59", "2011-12-30 09:59:59", nullptr},  // the day after was skipped
      {"Pacific/Apia", "2011-12-31 00:00:00", "2011-12-30 10:00:00", nullptr},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(std::string(c.zone) + " " + c.local);
    use(c.zone);
    const DateTimeRec local = moment(c.local);
    DateTimeRec utc, back;
    for (int pass = 0; pass < 2; ++pass) {  // the second time from what was kept
      EXPECT_EQ(0, system_driver.local_to_utc(&utc, &local));
      EXPECT_EQ(c.utc, text(utc));
      EXPECT_EQ(0, system_driver.utc_to_local(&back, &utc));
      EXPECT_EQ(c.back == nullptr ? c.local : c.back, text(back));
      EXPECT_EQ(123456, back.microseconds);
    }
  }
}

TEST_F(TimeZone, AgreesWithTheSystem) {
  for (const char *zone : {"Europe/London", "America/St_Johns", "Africa/Casablanca", "Antarctica/Troll"}) {
    use(zone);
    for (int64_t seconds = -2000000000; seconds < 4000000000; seconds += 3600 * 29 + 1) {
      DateTimeRec local, again;
      system_driver.seconds_to_local(&local, seconds);
      const time_t time = static_cast<time_t>(seconds);
      tm expected;
      localtime_r(&time, &expected);
      char expected_text[64];
      strftime(expected_text, sizeof expected_text, "%Y-%m-%d %H:%M:%S", &expected);
      ASSERT_EQ(expected_text, text(local)) << zone << " " << seconds;
      int64_t back;
      system_driver.local_to_seconds(&back, &local);
      system_driver.seconds_to_local(&again, back);
      ASSERT_EQ(0, memcmp(&local, &again, sizeof local)) << zone << " " << seconds;
      ASSERT_LE(back, seconds) << zone;  // the first occurrence
    }
  }
}

TEST(TextConvert, BothWays) {
  const std::pair<std::string, std::u16string> cases[] = {
      {"", u""},
      {"\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80", u"\u007F\u0080\u07FF\u0800"},
      {"\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF", u"\uD7FF\uE000\uFFFF"},
      {"\xF0\x90\x80\x80x\xF4\x8F\xBF\xBF", u"\U00010000x\U0010FFFF"},
  };
  const auto convert = [](int from, int to, const auto &source, auto &target, int missing) {
    target.assign(target.size(), 'x');
    const int size = static_cast<int>((target.size() + 1) * sizeof target[0]);
    const int written =
        system_driver.text_convert(from, to, source.c_str(), 0, target.data(), size - missing, 0);
    EXPECT_EQ(missing > 0 ? -1 : size, written);
  };
  for (const auto &[utf8, utf16] : cases) {
    std::u16string wide(utf16.size(), 0);
    std::string narrow(utf8.size(), 0);
    convert(3, 2, utf8, wide, 1);
    convert(3, 2, utf8, wide, 0);
    EXPECT_EQ(utf16, wide);
    convert(2, 3, utf16, narrow, 1);
    convert(2, 3, utf16, narrow, 0);
    EXPECT_EQ(utf8, narrow);
  }
}

TEST(TextConvert, Failures) {
  char target[64];
  for (const char *malformed :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3x", "\xE0\x9F\xBF", "\xE3\x81", "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80", "\xFF"}) {
    EXPECT_EQ(-1, system_driver.text_convert(3, 2, malformed, 0, target, sizeof target, 0)) << malformed;
  }
  for (const std::u16string &malformed : {std::u16string{0xD800}, std::u16string{0xDC00},
                                          std::u16string{0xD800, 'x'}, std::u16string{0xDC00, 0xD800}}) {
    EXPECT_EQ(-1, system_driver.text_convert(2, 3, malformed.c_str(), 0, target, sizeof target, 0));
  }
  EXPECT_EQ(-1, system_driver.text_convert(1, 3, u"abc", 0, target, sizeof target, 0)) << "UTF-16LE to EUC";
  EXPECT_EQ(-1, system_driver.text_convert(0, 1, "abc", 0, target, sizeof target, 0));
}

class Pool : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(0, memory_table.mem_start(1)); }
  void TearDown() override { memory_table.mem_end(); }
  static MemoryStats stats() {
    MemoryStats stats;
    memory_table.mem_stats(&stats);
    return stats;
  }
};

TEST_F(Pool, ClassesAndCounts) {
  static const struct {
    size_t request;
    int32_t in_use, carved;  // bytes
  } cases[] = {
      {0, 8, 4096},          {4, 8, 4096},       {5, 16, 4096},       {124, 128, 4096},
      {125, 256, 4096},      {2044, 2048, 4096}, {2045, 4096, 8192},  {4092, 4096, 8192},
      {4093, 4096, 8192},    {8188, 4096, 8192}, {8189, 8192, 12288}, {12284, 8192, 12288},
      {12285, 16384, 20480},
  };
  for (const auto &c : cases) {
    memory_table.mem_end();
    ASSERT_EQ(0, memory_table.mem_start(1));
    void *block = mem_alloc(c.request);
    ASSERT_NE(nullptr, block) << c.request;
    EXPECT_EQ(c.in_use, stats().bytes_in_use) << c.request;
    EXPECT_EQ(c.carved, stats().bytes_carved) << c.request;
    mem_free(block);
    EXPECT_EQ(0, stats().bytes_in_use) << c.request;
    mem_free(block);  // a second free of the same block does nothing
    EXPECT_EQ(block, mem_alloc(c.request));
    EXPECT_NE(block, mem_alloc(c.request)) << c.request;
  }
  EXPECT_EQ(nullptr, mem_alloc(SIZE_MAX));
}

TEST_F(Pool, StatisticsAndReallocation) {
  char *block = static_cast<char *>(mem_alloc(100));
  memset(block, 'a', 124);
  EXPECT_EQ(block, mem_realloc(block, 124));
  char *larger = static_cast<char *>(mem_realloc(block, 5000));
  EXPECT_EQ(std::string(124, 'a'), std::string(larger, 124));
  EXPECT_EQ(nullptr, mem_realloc(larger, 2000000));
  EXPECT_EQ(std::string(124, 'a'), std::string(larger, 124)) << "a failure leaves the block as it was";
  EXPECT_EQ(block, mem_alloc(100)) << "the old block was freed";
  mem_free(block);
  mem_free(nullptr);
  static_assert(sizeof(MemoryStats) == 10 * sizeof(int32_t));
  const MemoryStats found = stats();
  const MemoryStats expected = {1, 2, 1, 3, 2000000, 2005324, 4096, 4096, 4096 + 8192, 1048576};
  EXPECT_EQ(0, memcmp(&found, &expected, sizeof found));
}

TEST_F(Pool, RandomUseKeepsBlocksApart) {
  test::Random random;
  struct Held {
    char *block;
    std::string content;
  };
  std::vector<Held> held;
  for (int i = 0; i < 20000; ++i) {
    const int size = random.below(random.one_in(10) ? 20000 : 300);
    const std::string content(static_cast<size_t>(size), static_cast<char>(i));
    void *block;
    if (held.empty() || random.below(5) < 2) {
      block = mem_alloc(content.size());
    } else {
      std::swap(held.back(), held[static_cast<size_t>(random.below(static_cast<int>(held.size())))]);
      const Held &old = held.back();
      ASSERT_EQ(0, memcmp(old.block, old.content.data(), old.content.size()));
      block = random.one_in(2) ? mem_realloc(old.block, content.size()) : nullptr;
      if (block == nullptr)
        mem_free(old.block);
      else
        ASSERT_EQ(0, memcmp(block, old.content.data(), std::min(content.size(), old.content.size())));
      held.pop_back();
    }
    if (block == nullptr) continue;
    ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(block) % (size > 4 ? 16 : 8)) << size;
    memcpy(block, content.data(), content.size());
    held.push_back({static_cast<char *>(block), content});
  }
  for (const Held &one : held) mem_free(one.block);
  EXPECT_EQ(0, stats().bytes_in_use);
}

TEST_F(Pool, ThreadsShareIt) {
  std::atomic<int> ready{0};
  const auto work = [&ready] {
    ++ready;
    while (ready < 2) std::this_thread::yield();
    for (int i = 0; i < 300000; ++i) mem_free(mem_realloc(mem_alloc(static_cast<size_t>(i % 100)), 500));
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(0, stats().bytes_in_use);
  EXPECT_EQ(600000, stats().alloc_calls);
}

TEST(MemoryTableTest, AFailedStartLeavesNoPoolInTheWay) {
  const auto sys_start = std::exchange(system_driver.sys_start, [] { return -1; });
  err_clear();
  EXPECT_FALSE(library_start("HVI_MEM_LIMIT_SIZE=1;HVI_SQL_SEL_SEP=from the pool"));
  EXPECT_EQ(status::system_start, error_record().entries[0].code);
  system_driver.sys_start = sys_start;
  ASSERT_TRUE(library_start("HVI_SQL_SEL_SEP=x")) << "without a pool this time";
  MemoryStats stats;
  memory_table.mem_stats(&stats);
  EXPECT_EQ(0, stats.pool_active);
  EXPECT_STREQ("x", env_text(Env::sql_sel_sep));
  library_end();
  ASSERT_EQ(0, memory_table.mem_start(2));
  EXPECT_EQ(-1, memory_table.mem_start(2)) << "one pool at a time";
  memory_table.mem_end();
}

}  // namespace
