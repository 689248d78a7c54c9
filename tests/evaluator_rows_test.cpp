// Expressions over the rows of tables, and the ways a table's rows are reached.
#include "database_support.h"
#include "expression_support.h"

using namespace tovik;
using namespace tovik::test;

namespace {

// Table t with one column of each kind: its first row holds values, its second NULL in all columns but i.
// Table u, under the alias w, with one row.
class EvaluatorRowsTest : public ExpressionTest {
 protected:
  void SetUp() override {
    ExpressionTest::SetUp();
    ASSERT_TRUE(store_.create_table(
        "t", {column("i", type::int32), column("b", type::bigint), column("d", type::float64),
              column("f", type::float32), column("c", type::character, 10, 1),
              column("v", type::varchar, 2, 1), column("x", type::text), column("y", type::blob),
              column("dd", type::date), column("tt", type::time), column("m", type::microtimestamp)}));
    ASSERT_TRUE(store_.create_table("u", {column("i", type::int32), column("name", type::character, 5, 1)}));
    Rows rows(*store_.db, "t");
    ASSERT_TRUE(rows.insert({"7", "-5", "1.5", "0.1", "abc", "12", "some text that leaves the record",
                             std::string("a\0b", 3), "20200102", "20200102030405", "20200102030405000006"}))
        << errors();
    ASSERT_TRUE(rows.insert({"8"})) << errors();
    Rows others(*store_.db, "u");
    ASSERT_TRUE(others.insert({"70", "you"})) << errors();
    tables_ = access_open(*pool_, table_open(*store_.db, "t"), nullptr);
    ASSERT_NE(nullptr, tables_);
    tables_->next = access_open(*pool_, table_open(*store_.db, "u"), "w");
    ASSERT_NE(nullptr, tables_->next);
    mark_ = pool_->used;
    next_row();
    ASSERT_EQ(RowFetch::row, access_next(*tables_->next));
  }
  void TearDown() override {
    access_close(tables_);
    ExpressionTest::TearDown();
  }
  void next_row() { ASSERT_EQ(RowFetch::row, access_next(*tables_)); }

  Engine engine_;
  TestDatabase store_;
};

}  // namespace

TEST_F(EvaluatorRowsTest, ColumnValues) {
  static const struct {
    const char *expression, *values, *nulls;
  } cases[] = {
      {"i", "7", "8"},
      {"d", "1.5", "NULL"},
      {"f", "0.1", "NULL"},
      {"c", "'abc'", "NULL"},
      {"x", "'some text that leaves the record'", "NULL"},
      {"LENGTHB(x)", "32", "NULL"},
      {"dd", "20200102000000000000", "NULL"},
      {"m", "20200102030405000006", "NULL"},
      {"i * b + 1", "-34", "NULL"},
      {"c || v || x", "'abc12some text that leaves the record'", "NULL"},
      {"c || dd", "'abc20200102'", "NULL"},
      {"tt || ''", "'20200102030405'", "''"},
      {"YEAROF dd + MICROSECONDOF m", "2026", "NULL"},
      {"dd + i day", "20200109000000000000", "NULL"},
      {"NVL(b, i)", "-5", "8"},
      {"b IS NULL", "false", "true"},
      {"b IN (1, -5)", "true", "unknown"},
      {"c LIKE 'a_c'", "true", "unknown"},
      {"dd LIKE '20200102'", "true", "unknown"},
      {"i MATCH '[78]'", "true", "true"},
      {"f LIKE '1.0%e-01'", "true", "unknown"},
      {"w.name || c", "'youabc'", "'you'"},
  };
  for (const auto &each : cases) EXPECT_EQ(each.values, result(each.expression)) << each.expression;
  next_row();
  for (const auto &each : cases) EXPECT_EQ(each.nulls, result(each.expression)) << each.expression;
}

TEST_F(EvaluatorRowsTest, BlobsCountAsTexts) {
  EXPECT_EQ(std::string("'a\0b'", 5), result("y"));
  EXPECT_EQ(std::string("'a\0b!'", 6), result("y || '!'"));
  EXPECT_EQ("false", result("y = 'b'"));
}

TEST_F(EvaluatorRowsTest, LiteralsTakeTheColumnsType) {
  expect({
      {"i = '7'; i = 7.0; i = '7.5'; i = 'abc'", "true; true; !150003; !150003"},
      {"i IN ('7', 'abc'); '7' = i; d = '1.5'; d = '15e-1'", "!150003; !150003; true; true"},
      {"d > 1; f = 0.1; v = 12; v = 12.0; v IN (1, 12)", "true; true; true; false; true"},
      {"v BETWEEN 11 AND 13; v = -12; v MATCH 12; v LIKE 12.5", "true; !150003; true; false"},
      {"c = 123; dd = '20200102'; dd = 20200102", "false; true; true"},
      {"dd IN ('20200101', 20200102); dd BETWEEN 20200102 AND '20200103'", "true; true"},
      {"dd = '2020-01-02'; dd = '20200230'; dd = ''; dd = 1.5", "!150002; !150002; !150002; !150003"},
      {"dd < 'now'; m = '20200102030405000006'; m > '20200102'", "true; true; true"},
      // A date column is compared as a date, a time column without microseconds.
      {"dd = '20200102235959'; dd = m; dd < m; tt = m; dd = NULL", "true; true; false; true; unknown"},
      {"rowid > 0; rowid = '0'", "true; false"},
  });
}

TEST_F(EvaluatorRowsTest, ColumnNames) {
  expect({
      {"i; t.i; w.i; u.i; name; t.name; W.i; I", "7; 7; 70; 70; 'you'; !150008; !150008; !150008"},
      {"nothing; i = nothing; t.RowId = rowid; u.rowid = t.rowid", "!150008; !150008; true; false"},
  });
  // An alias comes before a name.
  tables_->next->alias = "t";
  EXPECT_EQ("70", result("t.i"));
  EXPECT_EQ("'abc'", result("t.c"));
}

TEST_F(EvaluatorRowsTest, Labels) {
  static const Case cases[] = {
      {"t.i", "i"},
      {"i * (b + 1)", "(i * (b + 1))"},
      {"-i", "(- i)"},
      {"dd + 1 day", "(dd + (1 day))"},
      {"c + 1 day", "(c + (1 day))"},
      {"YEAROF c", "(yearof c)"},
      {"c || 'x'", "('c' concat 'x')"},
      {"MAX(i)", "MAX(i)"},
  };
  for (const Case &each : cases) EXPECT_EQ(each.result, label(each.expression)) << each.expression;
}

// --- Accesses

namespace {

class AccessTest : public ::testing::Test {
 protected:
  void SetUp() override {
    pool_ = memory_pool_create(10000);
    ASSERT_TRUE(store_.create_table("t", {column("a", type::int32), column("c", type::character, 100, 1)}));
    Rows rows(*store_.db, "t");
    for (int i = 0; i < 40; ++i) {
      ASSERT_TRUE(rows.insert({std::to_string(i), std::string(100, 'A')})) << errors();
      numbers_.push_back(rows.handle->row);
    }
    for (const int deleted : {3, 4, 39}) {
      ASSERT_EQ(RowLoad::loaded, row_handle_read(*rows.handle, numbers_[static_cast<size_t>(deleted)]));
      ASSERT_TRUE(row_handle_delete(*rows.handle)) << errors();
    }
    access_ = access_open(*pool_, table_open(*store_.db, "t"), nullptr);
    ASSERT_NE(nullptr, access_) << errors();
  }
  void TearDown() override {
    access_close(access_);
    memory_pool_destroy(pool_);
    err_clear();
  }

  int value_of_a() {
    Value value;
    EXPECT_TRUE(row_handle_value(*access_->handle, access_->handle->table->columns[0], &value));
    EXPECT_EQ(numbers_[static_cast<size_t>(value.integer)], access_->handle->row);
    return static_cast<int>(value.integer);
  }
  // The values of column a of the rows that are left; pages are let go between two rows.
  std::string rest() {
    std::string values;
    RowFetch fetched;
    while ((fetched = access_next(*access_)) == RowFetch::row) {
      values += std::to_string(value_of_a()) + " ";
      access_pause(access_);
    }
    EXPECT_EQ(RowFetch::end, fetched) << errors();
    return values;
  }

  Engine engine_;
  TestDatabase store_;
  std::vector<RowNo> numbers_;
  MemoryPool *pool_ = nullptr;
  TableAccess *access_ = nullptr;
};

}  // namespace

TEST_F(AccessTest, ScanGivesEveryRowInOrder) {
  std::string all;
  for (int i = 0; i < 39; ++i)
    if (i != 3 && i != 4) all += std::to_string(i) + " ";
  EXPECT_EQ(all, rest());
  EXPECT_EQ(all, rest()) << "rewound at the end";
  ASSERT_EQ(RowFetch::row, access_next(*access_));
  EXPECT_EQ(0, value_of_a());
  access_rewind(*access_);
  EXPECT_EQ(all, rest());
}

TEST_F(AccessTest, RowListSkipsDeletedRows) {
  access_->path = AccessPath::row_list;
  access_->rows = rowset_new();
  for (const size_t i : {38, 3, 0, 39, 5}) ASSERT_TRUE(rowset_add(*access_->rows, numbers_[i]));
  EXPECT_EQ("38 0 5 ", rest());
  EXPECT_EQ("38 0 5 ", rest());
}

// The letters of the rows look like the flag of an active row.
TEST_F(AccessTest, RowidThatNamesNoRow) {
  access_->path = AccessPath::rowid;
  access_->rowid = numbers_[20];
  EXPECT_EQ("20 ", rest());
  EXPECT_EQ("20 ", rest());
  for (const RowNo none : {RowNo{0}, RowNo{1}, RowNo{1024}, numbers_[3], numbers_[39], numbers_[20] + 1,
                           numbers_[20] + 30, numbers_[39] + 105, RowNo{0x7FFFFFFF}, RowNo{0xFFFFFFFF}}) {
    access_->rowid = none;
    EXPECT_EQ("", rest()) << none;
    EXPECT_EQ(0, error_record().count) << errors();
  }
}

TEST_F(AccessTest, OpenFails) {
  EXPECT_EQ(nullptr, access_open(*pool_, nullptr, nullptr));
  EXPECT_EQ(status::record_argument, first_status());
  MemoryPool *small = memory_pool_create(8);
  EXPECT_EQ(nullptr, access_open(*small, table_open(*store_.db, "t"), nullptr));
  EXPECT_EQ(status::pool_limit, first_status());
  memory_pool_destroy(small);
}
