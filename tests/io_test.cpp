#include "storage/io.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <vector>

#include "engine_support.h"
#include "storage/memory_store.h"

using namespace tovik;
using namespace tovik::test;

namespace {

// A driver that answers what it is told and notes what it was asked.
struct Scripted {
  int result = 0;  // of every call
  bool starts = true;
  std::vector<std::string> calls;
  int64_t length = 0, position = 0;
  int unit_number = 0, unit_size = 0, flags = 0, mode = 0;
};
Scripted scripted;

int64_t transferred(int64_t length, int64_t position) {
  scripted.length = length;
  scripted.position = position;
  return scripted.result == 0 ? length : scripted.result;
}

IoDriver scripted_driver(int32_t kind) {
  IoDriver driver = {};
  driver.name = "scripted";
  driver.kind = kind;
  driver.drv_start = [] { return scripted.calls.push_back("start"), scripted.starts ? 0 : -1; };
  driver.drv_end = [] { scripted.calls.push_back("end"); };
  driver.file_remove = [](const char *) { return scripted.result; };
  driver.file_open = [](const char *, int flags, int mode, int number, int size) -> DriverHandle {
    scripted.flags = flags;
    scripted.mode = mode;
    scripted.unit_number = number;
    scripted.unit_size = size;
    return scripted.result < 0 ? no_handle : 7;
  };
  driver.file_close = [](DriverHandle) { return scripted.calls.push_back("close"), scripted.result; };
  driver.file_read = [](DriverHandle, void *, int64_t length, int64_t at) { return transferred(length, at); };
  driver.file_write = [](DriverHandle, const void *, int64_t length, int64_t at) {
    return transferred(length, at);
  };
  driver.file_exists = [](const char *) { return 1; };
  driver.file_size = [](DriverHandle) -> int64_t { return scripted.result; };
  driver.file_sync = [](DriverHandle) { return scripted.result; };
  driver.file_truncate = [](DriverHandle, int64_t) { return scripted.result; };
  driver.file_lock = [](DriverHandle, int, int64_t, int64_t) { return scripted.result; };
  driver.file_unlock = [](DriverHandle, int64_t, int64_t) { return scripted.result; };
  driver.file_lock_test = [](DriverHandle, int, int64_t, int64_t) { return scripted.result; };
  driver.file_rename = [](const char *, const char *) { return scripted.result; };
  driver.dir_open = [](const char *) { return scripted.result < 0 ? nullptr : (Directory *)&scripted; };
  driver.dir_close = [](Directory *) { return scripted.result; };
  driver.dir_next = [](Directory *, char *, int capacity) { return capacity == 256 ? scripted.result : -1; };
  driver.file_info = [](const char *, FileInfo *) { return 1; };
  return driver;
}

constexpr int scripted_no = 103;

class IoLayer : public ::testing::Test {
 protected:
  IoLayer() {
    scripted = {};
    params_.block_size = 4096;
    params_.open_option = 2;
    params_.file_mode = 0640;
    added_drivers[scripted_no - added_driver_base] = &driver_;
  }
  ~IoLayer() override {
    io_term();
    added_drivers[scripted_no - added_driver_base] = nullptr;
    err_clear();
  }
  IoObject *open() { return io_open(scripted_no, params_, "x", 0); }

  IoDriver driver_ = scripted_driver(0);
  IoParams params_ = {};
};

}  // namespace

TEST_F(IoLayer, StartsAndEndsTheDriversOnce) {
  io_term();
  EXPECT_FALSE(io_driver_kind_is(0, 0)) << "nothing is valid before the start";
  EXPECT_TRUE(io_init());
  EXPECT_TRUE(io_init());
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start"}));
  EXPECT_EQ(system_driver.report_driver_error, err_set_driver);
  ASSERT_NE(open(), nullptr);
  ASSERT_NE(open(), nullptr);
  scripted.result = -1;
  io_term();
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start", "close", "close", "end"}));
  EXPECT_EQ(recorded(), Codes{}) << "closes that fail at the end are not reported";
  EXPECT_FALSE(io_initialised());
}

TEST_F(IoLayer, AFailedStartLeavesNothingStarted) {
  IoDriver second = scripted_driver(0);
  second.drv_start = [] { return -1; };
  added_drivers[scripted_no + 1 - added_driver_base] = &second;
  EXPECT_FALSE(io_init());
  EXPECT_EQ(recorded(), Codes{status::io_driver_start});
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start", "end"}));
  added_drivers[scripted_no + 1 - added_driver_base] = nullptr;

  err_clear();
  {
    AllocationFault no_lock(1);
    EXPECT_FALSE(io_init());
  }
  EXPECT_EQ(recorded(), Codes{status::lock_create});
  EXPECT_TRUE(io_init());
}

TEST_F(IoLayer, NumbersWithoutADriverAreRefused) {
  ASSERT_TRUE(io_init());
  char name[256];
  for (int number : {-1, 1, 99, 101, 109, 110, 1000}) {
    err_clear();
    EXPECT_EQ(io_create(number, params_, "x", 0), nullptr);
    EXPECT_EQ(io_open(number, params_, "x", 0), nullptr);
    EXPECT_FALSE(io_remove(number, "x"));
    EXPECT_FALSE(io_rename(number, "x", "y"));
    EXPECT_EQ(io_find_first(number, "x"), nullptr);
    EXPECT_FALSE(io_find_close(number, (Directory *)name));
    EXPECT_EQ(io_find_next(number, (Directory *)name, name), -1);
    EXPECT_EQ(recorded(), Codes(7, status::io_argument)) << number;
    err_clear();
    EXPECT_FALSE(io_exists(number, "x"));
    EXPECT_FALSE(io_stat(number, "x", nullptr));
    EXPECT_FALSE(io_driver_kind_is(number, 0));
    EXPECT_EQ(recorded(), Codes{}) << number;
  }
  EXPECT_TRUE(io_driver_kind_is(0, 0));
  EXPECT_TRUE(io_driver_kind_is(100, 1));
  EXPECT_FALSE(io_driver_kind_is(100, 0));
}

TEST_F(IoLayer, TellsTheDriverUnitFlagsAndPosition) {
  ASSERT_TRUE(io_init());
  params_.unit_number = 5;
  params_.sector_size = 512;
  params_.start_sector = 64;
  struct {
    StorageType type;
    BlockNo block;
    int unit_number, unit_size;
    int64_t position;
  } const cases[] = {
      {StorageType::file, 3, 0, 0, 12288},
      {StorageType::file, INT32_MAX, 0, 0, 4096LL * INT32_MAX},
      {StorageType::memory, 3, 0, 4096, 12288},
      {StorageType::device, 3, 5, 512, 88},
      {StorageType::device, INT32_MAX, 5, 512, 8LL * INT32_MAX + 64},
      {StorageType::sqlite, 0, 0, 4096, 0},
      {StorageType::network, 1, 0, 0, 4096},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(static_cast<int>(test.type));
    params_.storage_type = test.type;
    IoObject *object = open();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(scripted.flags, 2);
    EXPECT_EQ(scripted.mode, 0);
    EXPECT_EQ(scripted.unit_number, test.unit_number);
    EXPECT_EQ(scripted.unit_size, test.unit_size);
    char buffer[1];
    EXPECT_TRUE(io_read_block(object, test.block, buffer));
    EXPECT_EQ(scripted.position, test.position);
    scripted.position = -1;
    EXPECT_TRUE(io_write_block(object, test.block, buffer));
    EXPECT_EQ(scripted.position, test.position);
    EXPECT_EQ(scripted.length, 4096);
    EXPECT_TRUE(io_close(object));
  }
  IoObject *object = io_create(scripted_no, params_, "x", 1);
  ASSERT_NE(object, nullptr);
  EXPECT_EQ(scripted.flags, 8);
  EXPECT_EQ(scripted.mode, 0640);
  EXPECT_EQ(object->file_kind, 1);
}

TEST_F(IoLayer, EachFailureRecordsItsStatus) {
  ASSERT_TRUE(io_init());
  IoObject *object = open();
  ASSERT_NE(object, nullptr);
  char buffer[256];
  Directory *listing = (Directory *)buffer;
  for (int result : {-1, -5}) {
    scripted.result = result;
    struct {
      bool failed;
      StatusCode code;
    } const outcomes[] = {
        {io_create(scripted_no, params_, "x", 0) == nullptr, 101},
        {open() == nullptr, 102},
        {!io_read_block(object, 9, buffer), 104},
        {!io_write_block(object, 9, buffer), 105},
        {!io_sync(object), 107},
        {!io_remove(scripted_no, "x"), 108},
        {io_size(object) == -1, 109},
        {io_lock(object, file_lock_shared, 0, 1) == LockResult::failed, 111},
        {!io_unlock(object, 0, 1, false), 112},  // records nothing
        {!io_unlock(object, 0, 1, true), 112},
        {io_lock_check(object, 0) == LockResult::failed, 113},
        {!io_truncate(object, 0), 114},
        {!io_rename(scripted_no, "x", "y"), 116},
        {io_find_first(scripted_no, "x") == nullptr, 118},
        {!io_find_close(scripted_no, listing), 119},
        {io_find_next(scripted_no, listing, buffer) == -1, 120},
    };
    Codes codes;
    for (const auto &outcome : outcomes) {
      EXPECT_TRUE(outcome.failed) << outcome.code;
      if (codes.empty() || codes.back() != outcome.code) codes.push_back(outcome.code);
    }
    EXPECT_EQ(recorded(), codes);
    EXPECT_EQ(error_record().entries[2].detail1, 9);
    err_clear();
  }
  scripted.result = 4095;
  EXPECT_FALSE(io_read_block(object, 1, buffer)) << "a short transfer";
  EXPECT_EQ(object->read_count, 3u);
  EXPECT_EQ(object->write_count, 2u);
  EXPECT_FALSE(io_read_block(nullptr, 1, buffer));
  scripted.result = -1;
  EXPECT_FALSE(io_close(object));
  EXPECT_FALSE(io_close(object)) << "off the list";
  EXPECT_EQ(recorded(), (Codes{104, status::io_argument, 103, 11104}));
}

TEST_F(IoLayer, BusyLocksAndMissingOperations) {
  ASSERT_TRUE(io_init());
  IoObject *object = open();
  ASSERT_NE(object, nullptr);
  scripted.result = 1;
  EXPECT_EQ(io_lock(object, file_lock_exclusive, 0, 1), LockResult::busy);
  EXPECT_EQ(io_lock_check(object, 0), LockResult::busy);
  EXPECT_EQ(recorded(), Codes{});

  driver_ = {};
  driver_.name = "bare";
  char buffer[256];
  EXPECT_EQ(io_lock(object, file_lock_exclusive, 0, 1), LockResult::granted);
  EXPECT_EQ(io_lock_check(object, 0), LockResult::granted);
  EXPECT_TRUE(io_unlock(object, 0, 1, true));
  EXPECT_TRUE(io_sync(object));
  EXPECT_FALSE(io_exists(scripted_no, "x"));
  EXPECT_FALSE(io_stat(scripted_no, "x", nullptr));
  EXPECT_FALSE(io_can_rename(scripted_no));
  EXPECT_EQ(recorded(), Codes{});
  EXPECT_FALSE(io_read_block(object, 1, buffer));
  EXPECT_FALSE(io_truncate(object, 1));
  EXPECT_EQ(io_size(object), -1);
  EXPECT_EQ(io_find_first(scripted_no, "x"), nullptr);
  EXPECT_EQ(recorded(), (Codes{104, 114, 109, 118}));
  EXPECT_TRUE(io_close(object));
}

namespace {

class MemoryStore : public ::testing::Test {
 protected:
  MemoryStore() : engine_("") {
    params_.storage_type = StorageType::memory;
    params_.block_size = 4096;
  }
  IoObject *create(const char *name) { return io_create(memory_driver_no, params_, name, 0); }
  IoObject *open(const char *name) { return io_open(memory_driver_no, params_, name, 0); }
  bool write(IoObject *object, BlockNo block, char fill) {
    return io_write_block(object, block, std::string(4096, fill).data());
  }
  // The byte that fills the block, or 0 when it cannot be read.
  char read(IoObject *object, BlockNo block) {
    std::string buffer(4096, '\0');
    if (!io_read_block(object, block, buffer.data())) return '\0';
    EXPECT_EQ(buffer, std::string(4096, buffer[0]));
    return buffer[0];
  }

  Engine engine_;
  IoParams params_ = {};
};

}  // namespace

TEST_F(MemoryStore, KeepsStoresByExactName) {
  EXPECT_EQ(open("a"), nullptr);
  EXPECT_EQ(recorded(), (Codes{status::memory_io_missing, status::io_open}));
  IoObject *a = create("a");
  ASSERT_NE(a, nullptr);
  EXPECT_TRUE(write(a, 2, 'a'));
  EXPECT_TRUE(io_close(a));
  err_clear();
  EXPECT_EQ(create("a"), nullptr);
  EXPECT_EQ(create("a name of thirty-two characters."), nullptr);
  EXPECT_FALSE(io_remove(memory_driver_no, "A"));
  EXPECT_EQ(recorded(), (Codes{status::memory_io_exists, status::io_create, status::memory_io_argument,
                               status::io_create, status::memory_io_missing, status::io_remove}));
  EXPECT_FALSE(io_exists(memory_driver_no, "A"));
  EXPECT_TRUE(io_exists(memory_driver_no, "a"));
  a = open("a");
  ASSERT_NE(a, nullptr);
  EXPECT_EQ(io_size(a), 3 * 4096);
  EXPECT_EQ(read(a, 2), 'a');

  // Removed while open, it lives on for its holder; the name is free.
  EXPECT_TRUE(io_remove(memory_driver_no, "a"));
  EXPECT_FALSE(io_exists(memory_driver_no, "a"));
  IoObject *next = create("a");
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(read(a, 2), 'a');
  EXPECT_EQ(io_size(next), 0);
  EXPECT_TRUE(io_close(a));

  io_term();
  ASSERT_TRUE(io_init());
  EXPECT_FALSE(io_exists(memory_driver_no, "a")) << "stores end with the library";
}

TEST_F(MemoryStore, BlocksHolesAndGrowth) {
  IoObject *store = create("grow");
  ASSERT_NE(store, nullptr);
  for (BlockNo block : {0, 16383, 20000, 90000}) {
    EXPECT_TRUE(write(store, block, 'x')) << block;
    EXPECT_EQ(io_size(store), 4096LL * (block + 1));
  }
  EXPECT_EQ(read(store, 0), 'x');
  EXPECT_EQ(read(store, 20000), 'x');
  EXPECT_EQ(recorded(), Codes{});
  EXPECT_EQ(read(store, 1), '\0');
  EXPECT_EQ(read(store, 90002), '\0');
  EXPECT_FALSE(io_write_block(store, -1, "")) << "a negative offset";
  EXPECT_EQ(recorded(), (Codes{status::memory_io_read, 104, status::memory_io_offset, 104,
                               status::memory_io_offset, 105}));
  err_clear();
  EXPECT_FALSE(io_truncate(store, 8192)) << "only an empty store is prepared";
  EXPECT_TRUE(io_truncate(store, 0));
  EXPECT_EQ(io_size(store), 0);
  EXPECT_EQ(read(store, 0), '\0');
  EXPECT_EQ(recorded(), (Codes{status::memory_io_argument, 114, status::memory_io_read, 104}));
  EXPECT_TRUE(io_truncate(store, 3 * 4096));
  EXPECT_EQ(io_size(store), 3 * 4096);
  std::string block(4096, 'x');
  EXPECT_TRUE(io_read_block(store, 2, block.data()));
  EXPECT_EQ(block, std::string(4096, '\0'));

  // A reader with another block size gets no more than its buffer holds, or zeros behind the block.
  EXPECT_TRUE(write(store, 0, 'y'));
  std::string half(2048, '\0'), twice(8192, 'z');
  params_.block_size = 2048;
  EXPECT_TRUE(io_read_block(store, 0, half.data()));
  EXPECT_FALSE(io_write_block(store, 0, half.data()));
  params_.block_size = 8192;
  EXPECT_TRUE(io_read_block(store, 0, twice.data()));
  EXPECT_EQ(half, std::string(2048, 'y'));
  EXPECT_EQ(twice, std::string(4096, 'y') + std::string(4096, '\0'));
}

TEST_F(MemoryStore, SurvivesAllocationFailures) {
  for (int number = 1;; ++number) {
    err_clear();
    AllocationFault fault(number);
    IoObject *store = create("fault");
    const bool created = store != nullptr;
    const bool prepared = created && io_truncate(store, 3 * 4096);
    const bool written = prepared && write(store, 40000, 'x');
    if (created) {
      EXPECT_EQ(io_size(store), written ? 40001LL * 4096 : prepared ? 3 * 4096 : 0) << number;
      EXPECT_TRUE(io_close(store));
      EXPECT_TRUE(io_remove(memory_driver_no, "fault"));
    }
    if (written) break;
    EXPECT_EQ(recorded()[0], status::out_of_memory) << number;
    ASSERT_LT(number, 20);
  }
  EXPECT_FALSE(io_exists(memory_driver_no, "fault"));
}
