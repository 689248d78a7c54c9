#include "platform/platform.h"

#include <gtest/gtest.h>

#include <sys/wait.h>
#include <unistd.h>
#include <algorithm>
#include <cerrno>
#include <cstdlib>
#include <set>
#include <string>
#include <thread>
#include <vector>

using namespace tovik;

namespace {

// A directory of its own for every test, removed at its end.
class FileDriver : public ::testing::Test {
 protected:
  void SetUp() override {
    std::string pattern = testing::TempDir() + "tovik_platform_XXXXXX";
    ASSERT_NE(nullptr, mkdtemp(pattern.data()));
    directory_ = pattern;
  }
  void TearDown() override {
    const std::string command = "rm -rf '" + directory_ + "'";
    ASSERT_EQ(0, system(command.c_str()));
  }
  std::string name(const char *last) const { return directory_ + "\\" + last; }
  DriverHandle create(const char *last) const {
    return file_driver.file_open(name(last).c_str(), open_create, 0, 0, 0);
  }
  DriverHandle open(const char *last, int flags = 2) const {
    return file_driver.file_open(name(last).c_str(), flags, 0, 0, 0);
  }

  std::string directory_;
};

}  // namespace

TEST_F(FileDriver, TransfersAreWholeOrFail) {
  const DriverHandle file = create("a.dat");
  ASSERT_GE(file, 0);
  std::string block(5000, 'x');
  EXPECT_EQ(5000, file_driver.file_write(file, block.data(), 5000, 10000));
  EXPECT_EQ(15000, file_driver.file_size(file));
  std::string read(100, '?');
  EXPECT_EQ(100, file_driver.file_read(file, read.data(), 100, 14900));
  EXPECT_EQ(std::string(100, 'x'), read);
  EXPECT_EQ(-1, file_driver.file_read(file, read.data(), 100, 14990)) << "a short read is a failure";
  EXPECT_EQ(-1, file_driver.file_read(file, read.data(), 100, 20000));
  EXPECT_EQ(0, file_driver.file_truncate(file, 20000));
  EXPECT_EQ(100, file_driver.file_read(file, read.data(), 100, 19900));
  EXPECT_EQ(std::string(100, '\0'), read);
  EXPECT_EQ(0, file_driver.file_sync(file));
  EXPECT_EQ(0, file_driver.file_sync(file));
  EXPECT_EQ(0, file_driver.file_close(file));
  EXPECT_EQ(-1, file_driver.file_close(file));
  EXPECT_EQ(-1, file_driver.file_size(file));
  EXPECT_EQ(-1, file_driver.file_sync(file));
  EXPECT_EQ(-1, file_driver.file_write(file, block.data(), 1, 0));
}

TEST_F(FileDriver, OpenFlags) {
  EXPECT_EQ(no_handle, open("a.dat"));
  EXPECT_EQ(ENOENT, errno);
  DriverHandle file = create("a.dat");
  EXPECT_EQ(3, file_driver.file_write(file, "abc", 3, 0));
  file_driver.file_close(file);
  file = create("a.dat");
  EXPECT_EQ(3, file_driver.file_size(file)) << "an existing file keeps its contents";
  file_driver.file_close(file);
  file = open("a.dat", open_read_only);
  EXPECT_EQ(-1, file_driver.file_write(file, "x", 1, 0));
  file_driver.file_close(file);
  FileInfo info;
  EXPECT_EQ(1, file_driver.file_info(name("a.dat").c_str(), &info));
  EXPECT_EQ(3, info.size);
  EXPECT_EQ(0u, info.mode & 0133u) << "created with 0644 less the umask";
  EXPECT_NEAR(static_cast<double>(time(nullptr)), static_cast<double>(info.modified), 100);
  EXPECT_EQ(0, file_driver.file_info(directory_.c_str(), &info));
  EXPECT_EQ(0, file_driver.file_info(name("none").c_str(), nullptr));
  EXPECT_EQ(0, errno);
  EXPECT_EQ(no_handle, file_driver.file_open(name("none\\a.dat").c_str(), open_create, 0, 0, 0));
}

TEST_F(FileDriver, NamesRenamesAndDirectories) {
  EXPECT_EQ(0, file_driver.dir_create(name("sub").c_str()));
  EXPECT_EQ(-1, file_driver.dir_create(name("sub").c_str()));
  file_driver.file_close(create("sub\\one"));
  EXPECT_EQ(0, file_driver.file_rename(name("sub\\one").c_str(), ("c:" + directory_ + "/sub\\two").c_str()));
  EXPECT_EQ(-1, file_driver.file_rename(name("sub\\one").c_str(), name("sub\\three").c_str()));
  EXPECT_EQ(1, file_driver.file_exists(name("sub\\two").c_str()));
  EXPECT_EQ(0, file_driver.file_exists(name("sub\\one").c_str()));
  EXPECT_EQ(0, errno);
  EXPECT_EQ(0, file_driver.dir_sync(name("sub\\two").c_str()));
  EXPECT_EQ(-1, file_driver.dir_sync(name("none\\two").c_str()));
  for (const char *directory : {"sub", "sub\\", "sub/"}) {
    Directory *listing = file_driver.dir_open(name(directory).c_str());
    ASSERT_NE(nullptr, listing);
    std::set<std::string> names;
    char entry[256];
    while (file_driver.dir_next(listing, entry, sizeof entry) == 1) names.insert(entry);
    EXPECT_EQ((std::set<std::string>{".", "..", "two"}), names);
    EXPECT_EQ(0, file_driver.dir_next(listing, entry, sizeof entry));
    EXPECT_EQ(0, file_driver.dir_close(listing));
  }
  char entry[4];
  EXPECT_EQ(nullptr, file_driver.dir_open(""));
  EXPECT_EQ(nullptr, file_driver.dir_open(nullptr));
  EXPECT_EQ(nullptr, file_driver.dir_open(name("none").c_str()));
  EXPECT_EQ(-1, file_driver.dir_close(nullptr));
  EXPECT_EQ(-1, file_driver.dir_next(nullptr, entry, sizeof entry));
  EXPECT_EQ(0, file_driver.file_remove(name("sub\\two").c_str()));
  EXPECT_EQ(-1, file_driver.file_remove(name("sub\\two").c_str()));
  EXPECT_EQ(-1, file_driver.file_remove(std::string(5000, 'x').c_str()));
}

TEST_F(FileDriver, TempDirectoryIsTheSystems) {
  setenv("TMPDIR", directory_.c_str(), 1);
  for (const char *temp : {"c:\\temp\\t1", "C:/TEMP\\t2"}) {
    const DriverHandle file = file_driver.file_open(temp, open_create, 0, 0, 0);
    EXPECT_GE(file, 0) << temp;
    file_driver.file_close(file);
  }
  EXPECT_EQ(1, file_driver.file_exists(name("t1").c_str()));
  EXPECT_EQ(1, file_driver.file_exists(name("t2").c_str()));
  EXPECT_EQ(1, file_driver.file_exists("c:\\temp"));
  EXPECT_EQ(0, file_driver.file_exists("c:\\temporary\\t1"));
  unsetenv("TMPDIR");
}

TEST_F(FileDriver, LocksExcludeOpensAndProcesses) {
  const DriverHandle mine = create("l.dat");
  const DriverHandle other = open("l.dat");
  EXPECT_EQ(0, file_driver.file_lock(mine, file_lock_exclusive, 10, 1));
  EXPECT_EQ(1, file_driver.file_lock(other, file_lock_shared, 10, 1));
  EXPECT_EQ(0, errno);
  EXPECT_EQ(1, file_driver.file_lock_test(other, file_lock_exclusive, 5, 10));
  EXPECT_EQ(0, file_driver.file_lock(other, file_lock_exclusive, 11, 1));
  EXPECT_EQ(0, file_driver.file_close(open("l.dat"))) << "closing another descriptor drops no lock";
  EXPECT_EQ(1, file_driver.file_lock(other, file_lock_exclusive, 10, 1));
  EXPECT_EQ(0, file_driver.file_unlock(mine, 10, 1));
  EXPECT_EQ(0, file_driver.file_lock_test(other, file_lock_exclusive, 10, 1));
  EXPECT_EQ(0, file_driver.file_lock(mine, file_lock_shared, 10, 1)) << "a test leaves the range free";
  EXPECT_EQ(0, file_driver.file_lock(other, file_lock_shared, 10, 1));
  EXPECT_EQ(1, file_driver.file_lock(mine, file_lock_exclusive, 10, 1));
  EXPECT_EQ(-1, file_driver.file_lock(mine, 3, 10, 1));
  EXPECT_EQ(EINVAL, errno);

  const pid_t child = fork();
  if (child == 0) {
    const DriverHandle file = open("l.dat");
    const int busy = file_driver.file_lock(file, file_lock_exclusive, 10, 1);
    const int free = file_driver.file_lock(file, file_lock_exclusive, 20, 1);
    _exit(busy * 10 + free);
  }
  int result;
  waitpid(child, &result, 0);
  EXPECT_EQ(10, WEXITSTATUS(result));

  file_driver.file_close(other);
  file_driver.file_close(mine);
  EXPECT_EQ(-1, file_driver.file_lock(mine, file_lock_shared, 0, 1));
  EXPECT_EQ(-1, file_driver.file_lock_test(mine, file_lock_shared, 0, 1));
}

TEST_F(FileDriver, ManyUnflushedCreations) {
  std::vector<DriverHandle> files;
  for (int i = 0; i < 100; ++i) files.push_back(create(("f" + std::to_string(i)).c_str()));
  for (size_t i = 0; i < files.size(); ++i) {
    ASSERT_GE(files[i], 0);
    if (i % 3 != 0) {
      EXPECT_EQ(0, file_driver.file_sync(files[i]));
    }
    EXPECT_EQ(0, file_driver.file_close(files[i]));
  }
  // Nothing is left behind: descriptor numbers start over.
  const DriverHandle next = create("next");
  EXPECT_EQ(files[0], next);
  file_driver.file_close(next);
}

TEST(PathSeparator, LastOfEitherKind) {
  const char name[] = "c:\\a/b\\c.dat";
  EXPECT_EQ(name + 6, path_last_separator(name));
  EXPECT_EQ(nullptr, path_last_separator("plain"));
}

TEST(SystemDriverTest, LocksAreRecursive) {
  Lock *lock = system_driver.lock_create();
  ASSERT_NE(nullptr, lock);
  int count = 0;
  const auto work = [&] {
    for (int i = 0; i < 10000; ++i) {
      LockGuard outer(lock);
      LockGuard inner(lock);
      ++count;
    }
  };
  std::thread other(work);
  work();
  other.join();
  EXPECT_EQ(20000, count);
  EXPECT_EQ(0, system_driver.lock_destroy(lock));
}

TEST(SystemDriverTest, ThreadIdsDifferAlsoAfterFork) {
  const ThreadId mine = current_thread();
  ThreadId other = no_thread;
  std::thread([&] { other = current_thread(); }).join();
  EXPECT_NE(mine, other);
  EXPECT_EQ(mine, current_thread());
  EXPECT_EQ(0, system_driver.thread_equal(mine, other));
  const pid_t child = fork();
  if (child == 0) _exit(current_thread() == static_cast<ThreadId>(getpid()) ? 0 : 1);
  int result;
  waitpid(child, &result, 0);
  EXPECT_EQ(0, WEXITSTATUS(result));
}

TEST(SystemDriverTest, Clocks) {
  Clock clock;
  DateTimeRec local;
  system_driver.utc_now(&clock);
  system_driver.local_now(&local);
  system_driver.utc_now(nullptr);
  system_driver.local_now(nullptr);
  EXPECT_NEAR(static_cast<double>(time(nullptr)), clock.seconds, 2);
  EXPECT_TRUE(clock.microseconds >= 0 && clock.microseconds < 1000000);
  int64_t seconds;
  EXPECT_EQ(0, system_driver.local_to_seconds(&seconds, &local));
  EXPECT_NEAR(clock.seconds, static_cast<double>(seconds), 2);
}

TEST(SystemDriverTest, Streams) {
  const std::string path = testing::TempDir() + "tovik_stream_" + std::to_string(getpid());
  FILE *stream = system_driver.stream_open(path.c_str(), "wb+");
  ASSERT_NE(nullptr, stream);
  EXPECT_EQ(8u, system_driver.stream_write("one\ntwo\n", 1, 8, stream));
  EXPECT_EQ(4, system_driver.stream_seek(stream, 4, 0));
  char line[16];
  EXPECT_STREQ("two\n", system_driver.stream_gets(line, sizeof line, stream));
  EXPECT_EQ(6, system_driver.stream_seek(stream, -2, 2));
  EXPECT_EQ(5, system_driver.stream_seek(stream, -1, 1));
  EXPECT_EQ(0, system_driver.stream_seek(stream, 0, 9));
  EXPECT_EQ(-1, system_driver.stream_seek(stream, -1, 0));
  EXPECT_EQ(3u, system_driver.stream_read(line, 1, 3, stream));
  EXPECT_EQ(0, system_driver.stream_close(stream));
  EXPECT_EQ(nullptr, system_driver.stream_open("/no/such/file", "rb"));
  unlink(path.c_str());
}
