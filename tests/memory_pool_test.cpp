#include "data/memory_pool.h"

#include <gtest/gtest.h>

#include "frame/error.h"

namespace tovik {
namespace {

class MemoryPoolTest : public testing::Test {
 protected:
  MemoryPoolTest() { err_clear(); }
  ~MemoryPoolTest() override { memory_pool_destroy(pool_); }

  MemoryPool &make(int32_t size) { return *(pool_ = memory_pool_create(size)); }
  StatusCode last_code() { return error_record().last_code; }

 private:
  MemoryPool *pool_ = nullptr;
};

TEST_F(MemoryPoolTest, RoundsUpAndKeepsTheLastBytes) {
  MemoryPool &pool = make(32);
  char *first = static_cast<char *>(memory_pool_alloc(pool, 1));
  char *second = static_cast<char *>(memory_pool_alloc(pool, 16));
  EXPECT_EQ(second - first, 8);
  EXPECT_EQ(pool.used, 24);
  EXPECT_EQ(pool.count, 2);
  EXPECT_EQ(memory_pool_alloc(pool, 1), nullptr);  // would end at the capacity
  EXPECT_EQ(last_code(), 110002);
  EXPECT_EQ(pool.used, 24);
  memory_pool_empty(pool);
  EXPECT_EQ(memory_pool_alloc(pool, 24), first);
}

TEST_F(MemoryPoolTest, SizesThatCannotBeServed) {
  MemoryPool &pool = make(1024);
  const struct {
    int64_t size;
    StatusCode code;
  } cases[] = {{0, 10001},          {-8, 10001},           {INT64_MIN, 10001}, {1024, 110002},
               {INT32_MAX, 110002}, {0x100000008, 110002}, {INT64_MAX, 110002}};
  for (const auto &c : cases) {
    EXPECT_EQ(memory_pool_alloc(pool, c.size), nullptr) << c.size;
    EXPECT_EQ(last_code(), c.code) << c.size;
  }
  EXPECT_EQ(pool.used, 0);
  EXPECT_EQ(memory_pool_create(0), nullptr);
  EXPECT_EQ(last_code(), 10001);
}

TEST_F(MemoryPoolTest, WhatIsNoPoolIsRefused) {
  MemoryPool &pool = make(64);
  pool.kind_mark = 0x1234;
  EXPECT_EQ(memory_pool_alloc(pool, 8), nullptr);
  EXPECT_EQ(last_code(), 10003);
  EXPECT_EQ(error_record().entries[0].detail1, 0x1234);
}

TEST_F(MemoryPoolTest, AScopeGivesBackWhatItTook) {
  MemoryPool &pool = make(256);
  const char *kept = memory_pool_text(pool, "kept");
  {
    PoolScope scope(pool);
    ASSERT_NE(memory_pool_new<int64_t>(pool, 10), nullptr);
    EXPECT_EQ(pool.count, 2);
  }
  EXPECT_EQ(pool.used, 8);
  EXPECT_EQ(pool.count, 1);
  EXPECT_STREQ(kept, "kept");
}

TEST_F(MemoryPoolTest, TextsAreCopiedWithTheirTerminator) {
  MemoryPool &pool = make(64);
  EXPECT_STREQ(memory_pool_text(pool, nullptr), "");
  EXPECT_STREQ(memory_pool_text(pool, "abcdef", 3), "abc");
  EXPECT_EQ(memory_pool_text(pool, "a", INT32_MAX), nullptr);
  EXPECT_EQ(last_code(), 110002);
}

TEST_F(MemoryPoolTest, AGrowingPoolKeepsItsBytes) {
  MemoryPool &pool = make(16);
  pool.mode = 0;
  ASSERT_NE(memory_pool_text(pool, "kept"), nullptr);
  ASSERT_NE(memory_pool_alloc(pool, 24), nullptr);
  EXPECT_EQ(pool.capacity, 48);  // (32 / 16 + 1) * 16
  EXPECT_STREQ(reinterpret_cast<char *>(pool.data), "kept");
}

}  // namespace
}  // namespace tovik
