#include "platform/platform.h"

#include <gtest/gtest.h>

#include <sys/syscall.h>
#include <sys/wait.h>
#include <unistd.h>
#include <cstring>
#include <ctime>

#include "api/library.h"
#include "engine_support.h"

using namespace tovik;

namespace {

// What the file driver flushed since the last look, in order.
std::string flushes;
bool directory_fails = false;

}  // namespace

// These stand before the C library's.
extern "C" int fdatasync(int file) {
  flushes += "file ";
  return static_cast<int>(syscall(SYS_fdatasync, file));
}

extern "C" int fsync(int directory) {
  flushes += directory_fails ? "directory-failed " : "directory ";
  if (!directory_fails) return static_cast<int>(syscall(SYS_fsync, directory));
  errno = EIO;
  return -1;
}

namespace {

class FileDriver : public ::testing::Test {
 protected:
  std::string name(const char *last) const { return directory_.path() + "\\" + last; }
  DriverHandle open(const char *last, int flags) const {
    return file_driver.file_open(name(last).c_str(), flags, 0, 0, 0);
  }

  test::TempDir directory_;
};

TEST_F(FileDriver, TransfersAreWholeOrFail) {
  const DriverHandle file = open("a.dat", open_create);
  char block[100] = "x";
  EXPECT_EQ(100, file_driver.file_write(file, block, 100, 10000));
  EXPECT_EQ(100, file_driver.file_read(file, block, 100, 0));
  EXPECT_EQ(std::string(100, '\0'), std::string(block, 100));
  EXPECT_EQ(-1, file_driver.file_read(file, block, 100, 10001)) << "a short read is a failure";
  file_driver.file_close(file);
  FileInfo info;
  EXPECT_EQ(1, file_driver.file_info(name("a.dat").c_str(), &info));
  EXPECT_EQ(0u, info.mode & 0133u) << "created with 0644 less the umask";
}

TEST_F(FileDriver, NamesAndRenames) {
  EXPECT_EQ(0, file_driver.dir_create(name("sub").c_str()));
  file_driver.file_close(open("sub\\one", open_create));
  const std::string target = "c:" + directory_.path() + "/sub\\two";
  EXPECT_EQ(0, file_driver.file_rename(name("sub\\one").c_str(), target.c_str()));
  EXPECT_EQ(1, file_driver.file_exists(name("sub\\two").c_str()));
  const DriverHandle two = open("sub\\two", 0), other = open("other", open_create);
  EXPECT_EQ(1, file_driver.file_is_named(two, name("sub\\..\\sub\\two").c_str()));
  for (const char *no_longer : {"sub\\one", "other"})
    EXPECT_EQ(0, file_driver.file_is_named(two, name(no_longer).c_str())) << no_longer;
  file_driver.file_close(two);
  file_driver.file_close(other);

  setenv("TMPDIR", (directory_ / "sub").c_str(), 1);
  EXPECT_EQ(1, file_driver.file_exists("C:/TEMP\\two"));
  EXPECT_EQ(0, file_driver.file_exists("c:\\temporary\\two"));
  unsetenv("TMPDIR");
}

TEST_F(FileDriver, FirstFlushOfACreatedFileFlushesItsDirectory) {
  flushes.clear();
  const DriverHandle created = open("a.dat", open_create);
  directory_fails = true;
  EXPECT_EQ(-1, file_driver.file_sync(created)) << "not durable before its directory is";
  directory_fails = false;
  for (int i = 0; i < 2; ++i) EXPECT_EQ(0, file_driver.file_sync(created));
  EXPECT_EQ("file directory-failed file directory file ", flushes);
  file_driver.file_close(created);

  // Many that were never flushed leave no descriptor behind.
  std::vector<DriverHandle> files;
  for (int i = 0; i < 100; ++i) files.push_back(open(std::to_string(i).c_str(), open_create));
  for (size_t i = 0; i < files.size(); ++i) {
    EXPECT_TRUE(i % 3 == 0 || file_driver.file_sync(files[i]) == 0) << i;
    EXPECT_EQ(0, file_driver.file_close(files[i])) << i;
  }
  for (const DriverHandle number : {files[0], files[1]})
    EXPECT_EQ(number, open(("new" + std::to_string(number)).c_str(), open_create))
        << "descriptor numbers start over";
  for (const DriverHandle number : {files[0], files[1]}) file_driver.file_close(number);
}

TEST(SystemDriverTest, ThreadIdsDifferAlsoAfterFork) {
  const ThreadId mine = current_thread();
  test::on_other_thread([mine] { EXPECT_NE(mine, current_thread()); });
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

std::string text(const DateTimeRec &time) {
  char buffer[64];
  snprintf(buffer, sizeof buffer, "%04d-%02d-%02d %02d:%02d:%02d", time.year, time.month, time.day, time.hour,
           time.minute, time.second);
  return buffer;
}

TEST_F(TimeZone, RulesOfTheDateConverted) {
  const std::tuple<const char *, DateTimeRec, int64_t> cases[] = {
      {"Asia/Tokyo", {1, 1, 1, 0, 0, 0, 0, 0}, -62135803139},  // local mean time
      {"America/New_York", {9999, 12, 31, 23, 59, 59, 0, 0}, 253402318799},
      {"America/New_York", {2024, 3, 10, 2, 30, 0, 0, 0}, 1710055800},  // skipped
      {"America/New_York", {2024, 11, 3, 1, 30, 0, 0, 0}, 1730611800},  // twice; the first
      {"Pacific/Apia", {2011, 12, 29, 23, 59, 59, 0, 0}, 1325239199},   // the day after was skipped
  };
  for (const auto &[zone, local, expected] : cases) {
    use(zone);
    int64_t seconds;
    system_driver.local_to_seconds(&seconds, &local);
    EXPECT_EQ(seconds, expected) << zone << " " << text(local);
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
    DateTimeRec now, before, after;
    const auto exact_now = [](DateTimeRec *local) {  // time() may lag behind
      timespec clock;
      timespec_get(&clock, TIME_UTC);
      system_driver.seconds_to_local(local, clock.tv_sec);
    };
    exact_now(&before);
    system_driver.local_now(&now);
    exact_now(&after);
    EXPECT_TRUE(text(before) <= text(now) && text(now) <= text(after)) << zone;
  }
}

TEST(TextConvert, BothWaysAtTheBoundaries) {
  const std::string utf8 =
      "\x7F\xC2\x80\xDF\xBF\xE0\xA0\x80\xED\x9F\xBF\xEE\x80\x80\xEF\xBF\xBF\xF0\x90\x80\x80x\xF4\x8F\xBF\xBF";
  const std::u16string utf16 = u"\u007F\u0080\u07FF\u0800\uD7FF\uE000\uFFFF\U00010000x\U0010FFFF";
  char16_t wide[13];
  char narrow[31];
  const int wide_size = sizeof wide, narrow_size = static_cast<int>(utf8.size()) + 1;
  EXPECT_EQ(-1, system_driver.text_convert(3, 2, utf8.c_str(), 0, wide, wide_size - 1, 0));
  EXPECT_EQ(wide_size, system_driver.text_convert(3, 2, utf8.c_str(), 0, wide, wide_size, 0));
  EXPECT_EQ(utf16, wide);
  EXPECT_EQ(-1, system_driver.text_convert(2, 3, utf16.c_str(), 0, narrow, narrow_size - 1, 0));
  EXPECT_EQ(narrow_size, system_driver.text_convert(2, 3, utf16.c_str(), 0, narrow, narrow_size, 0));
  EXPECT_EQ(utf8, narrow);
  for (const char *malformed :
       {"\x80", "\xC0\x80", "\xC1\xBF", "\xC3", "\xC3x", "\xE0\x9F\xBF", "\xE3\x81", "\xED\xA0\x80",
        "\xF0\x8F\xBF\xBF", "\xF4\x90\x80\x80", "\xF8\x88\x80\x80\x80"})
    EXPECT_EQ(-1, system_driver.text_convert(3, 2, malformed, 0, wide, wide_size, 0)) << malformed;
  for (const std::u16string &malformed : {std::u16string{0xD800}, std::u16string{0xDC00},
                                          std::u16string{0xD800, 'x'}, std::u16string{0xDC00, 0xD800}})
    EXPECT_EQ(-1, system_driver.text_convert(2, 3, malformed.c_str(), 0, narrow, narrow_size, 0));
  EXPECT_EQ(-1, system_driver.text_convert(1, 3, u"abc", 0, narrow, narrow_size, 0)) << "UTF-16LE to EUC";
}

MemoryStats memory_stats() {
  MemoryStats stats;
  memory_table.mem_stats(&stats);
  return stats;
}

TEST(PoolTest, RandomUseKeepsBlocksApart) {
  ASSERT_EQ(0, memory_table.mem_start(1));
  EXPECT_EQ(nullptr, mem_alloc(SIZE_MAX));
  test::Random random;
  std::vector<std::pair<char *, std::string>> held;
  for (int i = 0; i < 20000; ++i) {
    const int size = random.below(random.one_in(10) ? 20000 : 300);
    const std::string content(static_cast<size_t>(size), static_cast<char>(i));
    void *block;
    if (held.empty() || random.below(5) < 2) {
      block = mem_alloc(content.size());
    } else {
      std::swap(held.back(), held[static_cast<size_t>(random.below(static_cast<int>(held.size())))]);
      const auto [old, kept] = held.back();
      held.pop_back();
      ASSERT_EQ(0, memcmp(old, kept.data(), kept.size()));
      block = random.one_in(2) ? mem_realloc(old, content.size()) : nullptr;
      if (block == nullptr)
        mem_free(old);
      else
        ASSERT_EQ(0, memcmp(block, kept.data(), std::min(content.size(), kept.size())));
    }
    if (block == nullptr) continue;
    ASSERT_EQ(0u, reinterpret_cast<uintptr_t>(block) % (size > 4 ? 16 : 8)) << size;
    memcpy(block, content.data(), content.size());
    held.emplace_back(static_cast<char *>(block), content);
  }
  for (const auto &[block, content] : held) mem_free(block);
  EXPECT_EQ(0, memory_stats().bytes_in_use);
  memory_table.mem_end();
}

TEST(PoolTest, AFailedStartLeavesNoPoolInTheWay) {
  {
    const test::SlotGuard<decltype(system_driver.sys_start)> guard(system_driver.sys_start,
                                                                   [] { return -1; });
    EXPECT_FALSE(library_start("HVI_MEM_LIMIT_SIZE=1;HVI_SQL_SEL_SEP=from the pool"));
    EXPECT_EQ(status::system_start, test::first_status());
  }
  ASSERT_TRUE(library_start("HVI_SQL_SEL_SEP=x")) << "without a pool this time";
  EXPECT_EQ(0, memory_stats().pool_active);
  library_end();
}

}  // namespace
