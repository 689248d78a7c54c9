#include "storage/io/io.h"

#include <gtest/gtest.h>

#include <functional>
#include <string>

#include "engine_support.h"
#include "storage/io/memory_store.h"

using namespace tovik;
using namespace tovik::test;

namespace {

// A driver that answers what it is told and notes what it was asked.
int result;  // of every call
std::string asked;

int64_t transferred(DriverHandle, const void *, int64_t length, int64_t position) {
  asked = std::to_string(length) + " at " + std::to_string(position);
  return result == 0 ? length : result;
}

template <class... Arguments>
int answer(Arguments...) {
  return result;
}

IoDriver scripted_driver() {
  IoDriver driver = {};
  driver.drv_start = answer;
  driver.drv_end = [] {};
  driver.file_open = [](const char *, int, int, int number, int size) -> DriverHandle {
    asked = std::to_string(number) + " of " + std::to_string(size);
    return result < 0 ? no_handle : 7;
  };
  driver.file_close = driver.file_sync = answer;
  driver.file_read = [](DriverHandle, void *to, int64_t length, int64_t at) {
    return transferred(0, to, length, at);
  };
  driver.file_write = transferred;
  driver.file_size = [](DriverHandle) -> int64_t { return result; };
  driver.file_remove = answer;
  driver.file_truncate = answer;
  driver.file_lock = driver.file_lock_test = answer;
  driver.file_unlock = answer;
  driver.file_rename = answer;
  driver.dir_open = [](const char *) { return result < 0 ? nullptr : (Directory *)&asked; };
  driver.dir_close = answer;
  driver.dir_next = [](Directory *, char *, int capacity) { return capacity == 256 ? result : -1; };
  return driver;
}

constexpr int scripted_no = 103;

class IoLayer : public ::testing::Test {
 protected:
  IoLayer() {
    result = 0;
    params_.block_size = 4096;
    added_drivers[scripted_no - added_driver_base] = &driver_;
    EXPECT_TRUE(io_init());
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

TEST_F(IoLayer, TellsTheDriverUnitAndPosition) {
  params_.unit_number = 5;
  params_.sector_size = 512;
  params_.start_sector = 64;
  const struct {
    StorageType type;
    BlockNo block;
    const char *unit, *transfer;
  } cases[] = {
      {StorageType::file, INT32_MAX, "0 of 0", "4096 at 8796093018112"},
      {StorageType::memory, 3, "0 of 4096", "4096 at 12288"},
      {StorageType::device, INT32_MAX, "5 of 512", "4096 at 17179869240"},
  };
  for (const auto &test : cases) {
    params_.storage_type = test.type;
    IoObject *object = open();
    ASSERT_NE(object, nullptr);
    EXPECT_EQ(asked, test.unit);
    char buffer[1];
    EXPECT_TRUE(io_write_block(object, test.block, buffer));
    EXPECT_EQ(asked, test.transfer);
  }
}

// Every call with a driver that fails, and with one that has no operations.
TEST_F(IoLayer, EachFailureRecordsItsStatus) {
  IoObject *object = open();
  ASSERT_NE(object, nullptr);
  char buffer[256];
  Directory *listing = (Directory *)buffer;
  struct {
    StatusCode failed, bare;  // 0: succeeds
    std::function<bool()> call;
  } const cases[] = {
      {101, 101, [&] { return io_create(scripted_no, params_, "x", 0) != nullptr; }},
      {102, 102, [&] { return io_open(scripted_no, params_, "x", 0) != nullptr; }},
      {104, 104, [&] { return io_read_block(object, 9, buffer); }},
      {105, 105, [&] { return io_write_block(object, 9, buffer); }},
      {107, 0, [&] { return io_sync(object); }},
      {108, 108, [&] { return io_remove(scripted_no, "x"); }},
      {109, 109, [&] { return io_size(object) >= 0; }},
      {111, 0, [&] { return io_lock(object, file_lock_shared, 0, 1) == LockResult::granted; }},
      {112, 0, [&] { return io_unlock(object, 0, 1, Mishap::recorded); }},
      {113, 0, [&] { return io_lock_check(object, 0) == LockResult::granted; }},
      {114, 114, [&] { return io_truncate(object, 0); }},
      {116, 116, [&] { return io_rename(scripted_no, "x", "y"); }},
      {118, 118, [&] { return io_find_first(scripted_no, "x") != nullptr; }},
      {119, 119, [&] { return io_find_close(scripted_no, listing); }},
      {120, 120, [&] { return io_find_next(scripted_no, listing, buffer) >= 0; }},
  };
  const auto expect = [](const std::function<bool()> &call, StatusCode code) {
    EXPECT_EQ(call(), code == 0) << code;
    EXPECT_EQ(take_recorded(), code == 0 ? Codes{} : Codes{code});
  };
  result = -5;
  for (const auto &test : cases) expect(test.call, test.failed);
  result = 1;
  EXPECT_EQ(io_lock(object, file_lock_exclusive, 0, 1), LockResult::busy);
  result = 4095;
  EXPECT_FALSE(io_read_block(object, 9, buffer)) << "a short transfer";
  EXPECT_EQ(take_recorded(), Codes{104});

  driver_ = {};
  for (const auto &test : cases) expect(test.call, test.bare);
  EXPECT_TRUE(io_close(object));
  EXPECT_FALSE(io_close(object)) << "off the list";
  EXPECT_EQ(take_recorded(), Codes{status::io_already_closed});
  for (int wrong : {-1, 1, 99, 101, 109, 110}) EXPECT_EQ(io_open(wrong, params_, "x", 0), nullptr) << wrong;
  EXPECT_EQ(take_recorded(), Codes(6, status::io_argument));
}

class MemoryStore : public ::testing::Test {
 protected:
  MemoryStore() : engine_("") {
    params_.storage_type = StorageType::memory;
    params_.block_size = 4096;
  }
  IoObject *create(const char *name) { return io_create(memory_driver_no, params_, name, 0); }
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

TEST_F(MemoryStore, BlocksHolesAndGrowth) {
  IoObject *store = create("grow");
  ASSERT_NE(store, nullptr);
  const std::string x(4096, 'x'), zeros(4096, '\0');
  for (BlockNo block : {0, 16383, 20000, 90000}) {
    EXPECT_TRUE(write(store, block, 'x')) << block;
    EXPECT_EQ(io_size(store), 4096LL * (block + 1));
  }
  EXPECT_EQ(read(store, 20000), x);
  EXPECT_EQ(read(store, 1), "");
  EXPECT_FALSE(write(store, -1, 'x'));
  EXPECT_FALSE(io_truncate(store, 8192)) << "only an empty store is prepared";
  EXPECT_TRUE(io_truncate(store, 0));
  EXPECT_EQ(take_recorded(), (Codes{status::memory_io_read, 104, status::memory_io_offset, 105,
                                    status::memory_io_argument, 114}));
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
