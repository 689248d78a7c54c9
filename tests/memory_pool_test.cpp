#include "frame/memory_pool.h"

#include <gtest/gtest.h>

#include "frame/error.h"

namespace tovik {
namespace {

TEST(MemoryPoolTest, ServesTheLastBytesOrTellsWhyNot) {
  MemoryPool *pool = memory_pool_create(32);
  char *first = static_cast<char *>(memory_pool_alloc(*pool, 1));
  {
    PoolScope scope(*pool);
    EXPECT_EQ(static_cast<char *>(memory_pool_alloc(*pool, 16)) - first, 8) << "rounded up to 8";
    EXPECT_EQ(memory_pool_alloc(*pool, 1), nullptr) << "would end at the capacity";
    EXPECT_EQ(pool->used, 24);
  }
  const std::pair<int64_t, StatusCode> cases[] = {
      {0, 10001}, {INT64_MIN, 10001}, {24, 110002}, {0x100000008, 110002}, {INT64_MAX, 110002}};
  for (const auto &[size, code] : cases) {
    EXPECT_EQ(memory_pool_alloc(*pool, size), nullptr) << size;
    EXPECT_EQ(error_record().last_code, code) << size;
  }
  EXPECT_STREQ(memory_pool_text(*pool, "abcdef", 3), "abc");
  EXPECT_EQ(memory_pool_text(*pool, "a", INT32_MAX), nullptr);
  EXPECT_EQ(pool->used, 16);
  EXPECT_EQ(pool->count, 2);

  pool->mode = 0;  // it may grow, and keeps its bytes
  ASSERT_NE(memory_pool_alloc(*pool, 24), nullptr);
  EXPECT_EQ(pool->capacity, 64);
  EXPECT_STREQ(reinterpret_cast<char *>(pool->data) + 8, "abc");
  pool->kind_mark = 0x1234;
  EXPECT_EQ(memory_pool_alloc(*pool, 8), nullptr);
  EXPECT_EQ(error_record().last_code, 10003);
  memory_pool_destroy(pool);
  err_clear();
}

}  // namespace
}  // namespace tovik
