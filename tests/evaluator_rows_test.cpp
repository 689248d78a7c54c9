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
      {"b", "-5", "NULL"},
      {"d", "1.5", "NULL"},
      {"f", "0.1", "NULL"},
      {"c", "'abc'", "NULL"},
      {"v", "'12'", "NULL"},
      {"x", "'some text that leaves the record'", "NULL"},
      {"LENGTHB(x)", "32", "NULL"},
      {"dd", "20200102000000000000", "NULL"},
      {"tt", "20200102030405000000", "NULL"},
      {"m", "20200102030405000006", "NULL"},
      {"i * b + 1", "-34", "NULL"},
      {"i / d", "4.66666666667", "NULL"},
      {"c || v || x", "'abc12some text that leaves the record'", "NULL"},
      {"c || dd", "'abc20200102'", "NULL"},
      {"tt || ''", "'20200102030405'", "''"},
      {"YEAROF dd + MICROSECONDOF m", "2026", "NULL"},
      {"dd + i day", "20200109000000000000", "NULL"},
      {"NVL(b, i)", "-5", "8"},
      {"b IS NULL", "false", "true"},
      {"x IS NULL", "false", "true"},
      {"b IN (1, -5)", "true", "unknown"},
      {"b > 0 OR i > 0", "true", "true"},
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
      {"i = '7'", "true"},
      {"i = 7.0", "true"},
      {"i = '7.5'", "!150003"},
      {"i = 'abc'", "!150003"},
      {"i IN ('7', 'abc')", "!150003"},
      {"'7' = i", "!150003"},
      {"d = '1.5'", "true"},
      {"d = '15e-1'", "true"},
      {"d > 1", "true"},
      {"f = 0.1", "true"},
      {"v = 12", "true"},
      {"v = 12.0", "false"},
      {"v IN (1, 12)", "true"},
      {"v BETWEEN 11 AND 13", "true"},
      {"v = -12", "!150003"},
      {"v MATCH 12", "true"},
      {"v LIKE 12.5", "false"},
      {"c = 123", "false"},
      {"dd = '20200102'", "true"},
      {"dd = 20200102", "true"},
      {"dd IN ('20200101', 20200102)", "true"},
      {"dd BETWEEN 20200102 AND '20200103'", "true"},
      {"dd = '2020-01-02'", "!150002"},
      {"dd = '20200230'", "!150002"},
      {"dd = ''", "!150002"},
      {"dd = 1.5", "!150003"},
      {"dd < 'now'", "true"},
      {"m = '20200102030405000006'", "true"},
      {"m > '20200102'", "true"},
      // A date column is compared as a date, a time column without microseconds.
      {"dd = '20200102235959'", "true"},
      {"dd = m", "true"},
      {"dd < m", "false"},
      {"tt = m", "true"},
      {"dd = NULL", "unknown"},
      {"rowid > 0", "true"},
      {"rowid = '0'", "false"},
  });
}

TEST_F(EvaluatorRowsTest, CheckedTreesAreReadyForThePlanner) {
  static const struct {
    const char *condition;
    uint16_t kind;
    TypeCode type;
  } cases[] = {
      {"i = '7'", value_kind::literal, type::bigint},
      {"i = 7", value_kind::literal, type::bigint},
      {"d = '7'", value_kind::literal, type::float64},
      {"c = 'x'", value_kind::string, type::character},
      {"c = 12", value_kind::string, type::character},
      {"dd = 20200102", value_kind::date_literal, type::microtimestamp},
      {"m = '20200102'", value_kind::date_literal, type::microtimestamp},
  };
  for (const auto &each : cases) {
    EvalContext evaluation = context();
    Node *condition = parse_item(each.condition);
    ASSERT_TRUE(condition_check(evaluation, condition)) << each.condition;
    EXPECT_EQ(value_kind::column, condition->first->kind) << each.condition;
    EXPECT_EQ(tables_->handle, condition->first->value->column.row) << each.condition;
    EXPECT_EQ(each.kind, condition->second->kind) << each.condition;
    EXPECT_EQ(each.type, condition->second->value->type) << each.condition;
  }
}

TEST_F(EvaluatorRowsTest, ColumnNames) {
  expect({
      {"i", "7"},
      {"t.i", "7"},
      {"w.i", "70"},
      {"u.i", "70"},
      {"name", "'you'"},
      {"t.name", "!150008"},
      {"W.i", "!150008"},
      {"I", "!150008"},
      {"nothing", "!150008"},
      {"i = nothing", "!150008"},
      {"t.RowId = rowid", "true"},
      {"u.rowid = t.rowid", "false"},
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

TEST_F(EvaluatorRowsTest, AggregatesOverRows) {
  static const Case cases[] = {
      {"COUNT(*)", "2"},      {"COUNT(b)", "1"},         {"SUM(i)", "15"}, {"AVG(i)", "7.5"},
      {"MAX(b)", "-5"},       {"MIN(d + 1) * 2", "5.0"}, {"i", "NULL"},    {"i + SUM(i)", "NULL"},
      {"NVL(c, 'x')", "'x'"}, {"SUM(i) > 14", "true"},
  };
  for (const Case &each : cases) {
    EvalContext evaluation = context();
    Node *item = parse_item(each.expression);
    Value value;
    access_rewind(*tables_);
    ASSERT_TRUE(expr_check(evaluation, item, CheckLabels::none, nullptr)) << each.expression;
    while (access_next(*tables_) == RowFetch::row)
      ASSERT_TRUE(expr_evaluate(evaluation, item, EvalMode::row, &value)) << each.expression;
    ASSERT_TRUE(expr_evaluate(evaluation, item, EvalMode::total, &value)) << each.expression;
    EXPECT_EQ(each.result, text_of(value)) << each.expression;
  }
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
