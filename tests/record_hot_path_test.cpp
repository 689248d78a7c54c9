// What the calls of the record interface cost once warm: a point read and an insert take nothing from the
// general heap, and a condition on an indexed column looks at no other rows.
#include <array>
#include <functional>

#include "platform/platform.h"
#include "record_support.h"

namespace tovik::test {
namespace {

int heap_calls = 0;
void *(*real_alloc)(size_t);
void *(*real_realloc)(void *, size_t);

void *counting_alloc(size_t size) {
  ++heap_calls;
  return real_alloc(size);
}
void *counting_realloc(void *block, size_t size) {
  ++heap_calls;
  return real_realloc(block, size);
}

class RecordHotPath : public testing::Test {
 protected:
  static constexpr int row_count = 2000;

  void SetUp() override {
    db.run({"CREATE TABLE t (id int, s char(20), x text(20, 4, 20))", "CREATE UNIQUE INDEX ti ON t (id)",
            "CREATE INDEX ts ON t (s)"});
    EXPECT_EQ(tovik_begin(db), 0);
    for (int id = 0; id < row_count; ++id) insert(id);
    EXPECT_EQ(tovik_commit(db), 0);
    real_alloc = memory_table.mem_alloc;
    real_realloc = memory_table.mem_realloc;
    memory_table.mem_alloc = counting_alloc;
    memory_table.mem_realloc = counting_realloc;
  }
  void TearDown() override {
    memory_table.mem_alloc = real_alloc;
    memory_table.mem_realloc = real_realloc;
  }

  void insert(int id) {
    tovik_colval values[3];
    const std::string name = "name " + std::to_string(id / 4);
    tovik_setcol_i32(&values[0], "id", id);
    tovik_setcol_char(&values[1], "s", name.c_str());
    tovik_setcol_char(&values[2], "x", "a text of more than four bytes");
    ASSERT_EQ(tovik_insert(db, "t", values, 3), 0) << tovik_geterr();
  }
  void read_by(const tovik_cond &cond, int expected_rows) {
    tovik_cur *cursor = db.open_cursor("t", &cond);
    int rows = 0;
    for (; tovik_fetchcur(cursor) == 1; ++rows) {
      int32_t id;
      char s[21], x[40];
      ASSERT_EQ(tovik_getcol_i32(cursor, "id", &id), 1);
      ASSERT_EQ(tovik_getcol_char(cursor, "t.s", s, sizeof s), 1);
      ASSERT_EQ(tovik_getcol_char(cursor, "x", x, sizeof x), 1);
    }
    tovik_closecur(cursor);
    EXPECT_EQ(rows, expected_rows);
  }
  void read_id(int id) {
    tovik_cond cond;
    tovik_comp_i32(&cond, "id", TOVIK_EQ, id);
    read_by(cond, 1);
  }
  // Heap calls of the last of a few runs.
  int heap_calls_of(const std::function<void()> &call) {
    for (int run = 0; run < 4; ++run) {
      heap_calls = 0;
      call();
    }
    return heap_calls;
  }

  RecordDatabase db{"", "CACHE_SIZE_DAT=512;CACHE_SIZE_TRN=512"};
};

TEST_F(RecordHotPath, AWarmCallTakesNothingFromTheHeap) {
  EXPECT_EQ(heap_calls_of([&] { read_id(row_count / 2); }), 0);
  EXPECT_EQ(tovik_begin(db), 0);
  int next = row_count;
  EXPECT_EQ(heap_calls_of([&] { insert(next++); }), 0);
  EXPECT_EQ(heap_calls_of([&] { read_id(next - 1); }), 0) << "inside a transaction";
  EXPECT_EQ(tovik_rollback(db), 0);
}

TEST_F(RecordHotPath, AConditionOnAnIndexedColumnLooksAtNoOtherRows) {
  EXPECT_EQ(tovik_createidx(db, "tsi", std::array{"s", "id"}.data(), 2, "t", 0, 0), 0);
  db.run({"SET HVI_QUERY_PLAN 'ON'"});
  tovik_cond conds[6];
  tovik_comp_i64(&conds[0], "id", TOVIK_EQ, 7);
  tovik_comp_char(&conds[1], "t.s", TOVIK_EQ, "name 3");
  tovik_range_i32(&conds[2], "id", 5, 1, 9, 0);
  tovik_comp_char(&conds[3], "x", TOVIK_LIKE, "a%");
  tovik_and(&conds[4], &conds[3], &conds[1]);
  tovik_and(&conds[5], &conds[1], &conds[2]);
  const int expected_rows[] = {1, 4, 4, row_count, 4, 0};
  for (int i = 0; i < 6; ++i) {
    const std::string plan = printed_by([&] { read_by(conds[i], expected_rows[i]); });
    EXPECT_EQ(plan.find("Use records from indices") != std::string::npos, i != 3) << i << plan;
  }
}

}  // namespace
}  // namespace tovik::test
