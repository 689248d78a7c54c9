#include "storage/io.h"

#include <gtest/gtest.h>

#include <functional>
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

template <class... Arguments>
int answer(Arguments...) {
  return scripted.result;
}

IoDriver scripted_driver() {
  IoDriver driver = {};
  driver.drv_start = [] { return scripted.calls.push_back("start"), 0; };
  driver.drv_end = [] { scripted.calls.push_back("end"); };
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
  driver.file_size = [](DriverHandle) -> int64_t { return scripted.result; };
  driver.file_remove = answer;
  driver.file_sync = answer;
  driver.file_truncate = answer;
  driver.file_lock = driver.file_lock_test = answer;
  driver.file_unlock = answer;
  driver.file_rename = answer;
  driver.dir_open = [](const char *) { return scripted.result < 0 ? nullptr : (Directory *)&scripted; };
  driver.dir_close = answer;
  driver.dir_next = [](Directory *, char *, int capacity) { return capacity == 256 ? scripted.result : -1; };
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

  IoDriver driver_ = scripted_driver();
  IoParams params_ = {};
};

TEST_F(IoLayer, StartsAndEndsTheDriversOnce) {
  EXPECT_FALSE(io_driver_kind_is(0, 0)) << "nothing is valid before the start";
  EXPECT_TRUE(io_init());
  EXPECT_TRUE(io_init());
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start"}));
  EXPECT_TRUE(io_driver_kind_is(100, 1));
  EXPECT_FALSE(io_driver_kind_is(100, 0));
  ASSERT_NE(open(), nullptr);
  ASSERT_NE(open(), nullptr);
  scripted.result = -1;
  io_term();
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start", "close", "close", "end"}));
  EXPECT_EQ(take_recorded(), Codes{}) << "closes that fail at the end are not reported";

  // A start that fails leaves nothing started.
  scripted.calls.clear();
  IoDriver second = scripted_driver();
  second.drv_start = [] { return -1; };
  added_drivers[scripted_no + 1 - added_driver_base] = &second;
  EXPECT_FALSE(io_init());
  added_drivers[scripted_no + 1 - added_driver_base] = nullptr;
  EXPECT_EQ(scripted.calls, (std::vector<std::string>{"start", "end"}));
  {
    AllocationFault no_lock(1);
    EXPECT_FALSE(io_init());
  }
  EXPECT_EQ(recorded(), (Codes{status::io_driver_start, status::lock_create}));
  EXPECT_TRUE(io_init());
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
      {StorageType::network, 1, 0, 0, 4096},
  };
  for (const auto &test : cases) {
    SCOPED_TRACE(static_cast<int>(test.type));
    params_.storage_type = test.type;
    IoObject *object = open();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(scripted.unit_number, test.unit_number);
    EXPECT_EQ(scripted.unit_size, test.unit_size);
    char buffer[1];
    for (const bool writing : {false, true}) {
      scripted.length = scripted.position = -1;
      EXPECT_TRUE(writing ? io_write_block(object, test.block, buffer)
                          : io_read_block(object, test.block, buffer));
      EXPECT_EQ(scripted.position, test.position);
      EXPECT_EQ(scripted.length, 4096);
    }
  }
  EXPECT_EQ(scripted.flags, 2);
  EXPECT_EQ(scripted.mode, 0);
  ASSERT_NE(io_create(scripted_no, params_, "x", 1), nullptr);
  EXPECT_EQ(scripted.flags, open_create);
  EXPECT_EQ(scripted.mode, 0640);
}

// Every call with a driver that fails, with one that has no operations, and with a number without a driver.
TEST_F(IoLayer, EachFailureRecordsItsStatus) {
  ASSERT_TRUE(io_init());
  IoObject *object = open();
  ASSERT_NE(object, nullptr);
  char buffer[256];
  Directory *listing = (Directory *)buffer;
  int number = scripted_no;
  struct {
    StatusCode failed, bare;  // 0: succeeds
    bool numbered;
    std::function<bool()> call;
  } const cases[] = {
      {101, 101, true, [&] { return io_create(number, params_, "x", 0) != nullptr; }},
      {102, 102, true, [&] { return io_open(number, params_, "x", 0) != nullptr; }},
      {104, 104, false, [&] { return io_read_block(object, 9, buffer); }},
      {105, 105, false, [&] { return io_write_block(object, 9, buffer); }},
      {107, 0, false, [&] { return io_sync(object); }},
      {108, 108, true, [&] { return io_remove(number, "x"); }},
      {109, 109, false, [&] { return io_size(object) >= 0; }},
      {111, 0, false, [&] { return io_lock(object, file_lock_shared, 0, 1) == LockResult::granted; }},
      {112, 0, false, [&] { return io_unlock(object, 0, 1, true); }},
      {113, 0, false, [&] { return io_lock_check(object, 0) == LockResult::granted; }},
      {114, 114, false, [&] { return io_truncate(object, 0); }},
      {116, 116, true, [&] { return io_rename(number, "x", "y"); }},
      {118, 118, true, [&] { return io_find_first(number, "x") != nullptr; }},
      {119, 119, true, [&] { return io_find_close(number, listing); }},
      {120, 120, true, [&] { return io_find_next(number, listing, buffer) >= 0; }},
  };
  const auto expect = [](const std::function<bool()> &call, StatusCode code) {
    EXPECT_EQ(call(), code == 0) << code;
    EXPECT_EQ(take_recorded(), code == 0 ? Codes{} : Codes{code});
  };
  scripted.result = -5;
  for (const auto &test : cases) expect(test.call, test.failed);
  EXPECT_FALSE(io_unlock(object, 0, 1, false));
  EXPECT_EQ(take_recorded(), Codes{}) << "failures on the way out are not reported";
  scripted.result = 1;
  EXPECT_EQ(io_lock(object, file_lock_exclusive, 0, 1), LockResult::busy);
  EXPECT_EQ(io_lock_check(object, 0), LockResult::busy);
  scripted.result = 4095;
  EXPECT_FALSE(io_read_block(object, 9, buffer)) << "a short transfer";
  EXPECT_EQ(error_record().entries[0].detail1, 9);
  EXPECT_EQ(object->read_count, 2u);
  EXPECT_FALSE(io_read_block(nullptr, 1, buffer));
  EXPECT_EQ(take_recorded(), (Codes{104, status::io_argument}));

  driver_ = {};
  for (const auto &test : cases) expect(test.call, test.bare);
  EXPECT_FALSE(io_exists(scripted_no, "x") || io_can_rename(scripted_no));
  EXPECT_TRUE(io_close(object));
  EXPECT_FALSE(io_close(object)) << "off the list";
  EXPECT_EQ(take_recorded(), Codes{status::io_already_closed});

  for (int wrong : {-1, 1, 99, 101, 109, 110, 1000}) {
    number = wrong;
    for (const auto &test : cases)
      if (test.numbered) expect(test.call, status::io_argument);
    EXPECT_FALSE(io_exists(wrong, "x") || io_stat(wrong, "x", nullptr) || io_driver_kind_is(wrong, 0));
    EXPECT_EQ(take_recorded(), Codes{}) << wrong;
  }
}

class MemoryStore : public ::testing::Test {
 protected:
  MemoryStore() : engine_("") {
    params_.storage_type = StorageType::memory;
    params_.block_size = 4096;
  }
  IoObject *create(const char *name) { return io_create(memory_driver_no, params_, name, 0); }
  IoObject *open(const char *name) { return io_open(memory_driver_no, params_, name, 0); }
  bool write(IoObject *object, BlockNo block, char fill) {
    return io_write_block(object, block, std::string(8192, fill).data());
  }
  // The bytes of a block; empty when it cannot be read.
  std::string read(IoObject *object, BlockNo block) {
    std::string buffer(static_cast<size_t>(params_.block_size), '?');
    return io_read_block(object, block, buffer.data()) ? buffer : "";
  }

  Engine engine_;
  IoParams params_ = {};
};

TEST_F(MemoryStore, KeepsStoresByExactName) {
  EXPECT_EQ(open("a"), nullptr);
  EXPECT_EQ(take_recorded(), (Codes{status::memory_io_missing, status::io_open}));
  IoObject *a = create("a");
  ASSERT_NE(a, nullptr);
  EXPECT_TRUE(write(a, 2, 'a'));
  EXPECT_TRUE(io_close(a));
  EXPECT_EQ(create("a"), nullptr);
  EXPECT_EQ(create("a name of thirty-two characters."), nullptr);
  EXPECT_FALSE(io_remove(memory_driver_no, "A"));
  EXPECT_EQ(take_recorded(), (Codes{status::memory_io_exists, status::io_create, status::memory_io_argument,
                                    status::io_create, status::memory_io_missing, status::io_remove}));
  a = open("a");
  ASSERT_NE(a, nullptr);
  // Removed while open, it lives on for its holder; the name is free.
  EXPECT_TRUE(io_remove(memory_driver_no, "a"));
  EXPECT_FALSE(io_exists(memory_driver_no, "a"));
  IoObject *next = create("a");
  ASSERT_NE(next, nullptr);
  EXPECT_EQ(read(a, 2), std::string(4096, 'a'));
  EXPECT_EQ(io_size(next), 0);
  EXPECT_TRUE(io_close(a));
  io_term();
  ASSERT_TRUE(io_init());
  EXPECT_FALSE(io_exists(memory_driver_no, "a")) << "stores end with the library";
}

TEST_F(MemoryStore, BlocksHolesAndGrowth) {
  IoObject *store = create("grow");
  ASSERT_NE(store, nullptr);
  const std::string x(4096, 'x'), zeros(4096, '\0');
  for (BlockNo block : {0, 16383, 20000, 90000}) {
    EXPECT_TRUE(write(store, block, 'x')) << block;
    EXPECT_EQ(io_size(store), 4096LL * (block + 1));
  }
  EXPECT_EQ(read(store, 0), x);
  EXPECT_EQ(read(store, 20000), x);
  EXPECT_EQ(read(store, 1), "");
  EXPECT_EQ(read(store, 90002), "");
  EXPECT_FALSE(write(store, -1, 'x'));
  EXPECT_FALSE(io_truncate(store, 8192)) << "only an empty store is prepared";
  EXPECT_TRUE(io_truncate(store, 0));
  EXPECT_EQ(io_size(store), 0);
  EXPECT_EQ(read(store, 0), "");
  EXPECT_EQ(take_recorded(),
            (Codes{status::memory_io_read, 104, status::memory_io_offset, 104, status::memory_io_offset, 105,
                   status::memory_io_argument, 114, status::memory_io_read, 104}));
  EXPECT_TRUE(io_truncate(store, 3 * 4096));
  EXPECT_EQ(io_size(store), 3 * 4096);
  EXPECT_EQ(read(store, 2), zeros);

  // A reader with another block size gets no more than its buffer holds, or zeros behind the block.
  EXPECT_TRUE(write(store, 0, 'x'));
  params_.block_size = 2048;
  EXPECT_EQ(read(store, 0), std::string(2048, 'x'));
  EXPECT_FALSE(write(store, 0, 'y'));
  params_.block_size = 8192;
  EXPECT_EQ(read(store, 0), x + zeros);
}

}  // namespace
