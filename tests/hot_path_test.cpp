// What a row costs beside its work: a fetch takes nothing from the general heap, and a result of any length
// needs as much of the statement's pool as one row.
#include "api/statement_database.h"
#include "api_support.h"
#include "engine_support.h"
#include "fault_memory.h"
#include "sql/statement/statement.h"
#include "tovik.h"

namespace tovik::test {
namespace {

class HotPath : public testing::Test {
 protected:
  HotPath() {
    run("CREATE TABLE t (id int, s char(20), x text(20, 4, 20), d double)");
    run("CREATE UNIQUE INDEX ti ON t (id)");
    run("BEGIN WORK");
    for (int i = 0; i < 1000; ++i) {
      const std::string id = std::to_string(i);
      run("INSERT INTO t VALUES " + id + ", 'name " + id + "', 'a text of more than four bytes', 1.5");
    }
    run("COMMIT WORK");
  }
  ~HotPath() override { sql_destroy(statement); }
  void run(const std::string &sql) {
    ASSERT_EQ(sql_execute_text(*statement, sql.c_str()), SqlResult::done) << sql;
  }

  // Heap calls and pool bytes that the rows after the tenth take; every value of every row is read.
  void fetch_all(const char *sql, int expected_rows) {
    SCOPED_TRACE(sql);
    ASSERT_EQ(sql_prepare(*statement, sql, Execution::stepwise), SqlResult::done);
    ASSERT_TRUE(sql_execute(*statement));
    int rows = 0, most_used = 0;
    while (sql_fetch(*statement) == Found::yes) {
      for (int column = 0; column < statement->query->column_count; ++column) {
        Value value;
        ASSERT_TRUE(cursor_value(*statement->query->cursor, statement->query->columns[column], &value));
      }
      if (++rows == 10) {
        memory.fail(0, Failure::once);
        most_used = statement->pool->used;
      }
      EXPECT_LE(rows > 10 ? statement->pool->used : 0, most_used + 64);
    }
    EXPECT_EQ(rows, expected_rows);
    EXPECT_EQ(rows > 10 ? memory.calls() : 0, 0);
    sql_clear(*statement);
  }

  CountedMemory memory;
  const Library library;
  TestDatabase db{"CACHE_SIZE_DAT=256;CACHE_SIZE_TRN=256"};
  Statement *statement = sql_create(
      static_cast<StatementDatabase *>(handle_find(db.handle(), HandleKind::statement_database))->db);
};

TEST_F(HotPath, FetchingARowTakesNothingFromTheHeap) {
  fetch_all("SELECT * FROM t", 1000);
  fetch_all(
      "SELECT id, UPPER(s) || x, d * 2 FROM t WHERE s LIKE 'name%' AND d + id > 0 AND LENGTH(x) IN (30, 31)",
      1000);
  fetch_all("SELECT a.id FROM t a, t b WHERE a.id = 5 AND b.s || 'x' <> a.s", 1000);
  fetch_all("SELECT s FROM t WHERE id BETWEEN 100 AND 899", 800);
  fetch_all("SELECT s, x FROM t ORDER BY id DESC", 1000);
  fetch_all("SELECT DISTINCT s, d FROM t", 1000);
  fetch_all("SELECT s, x || s, SUM(id) + d FROM t GROUP BY s, x, d HAVING s || x <> 'x' ORDER BY x", 1000);
}

// The temporaries of a thousand rows would exceed the pool's 100 KB.
TEST_F(HotPath, AStatementOfManyRowsTakesThePoolOfOne) {
  run("UPDATE t SET s = s || 'x', d = d + LENGTH(s || x) WHERE LENGTH(s || s) > 0");
  run("DELETE FROM t WHERE LENGTH(s || x || s) > 0 AND id < 999");
  fetch_all("SELECT s FROM t", 1);
}

TEST_F(HotPath, ARecordReadByKeyOrInsertedTakesNothingFromTheHeapOnceWarm) {
  tovik_db *records = tovik_open("t", db.params().c_str());
  const char *tables[] = {"t"};
  const auto read = [&](int id) {
    char text[64] = "";
    tovik_cond by_key;
    tovik_comp_i32(&by_key, "id", TOVIK_EQ, id);
    tovik_cur *cursor = tovik_opencur(records, tables, 1, &by_key, nullptr);
    EXPECT_EQ(tovik_fetchcur(cursor), 1);
    EXPECT_EQ(tovik_getcol_char(cursor, "x", text, sizeof text), 1);
    tovik_closecur(cursor);
    return std::string(text);
  };
  const auto insert = [&](int id) {
    tovik_colval values[2];
    tovik_setcol_i32(&values[0], "id", id);
    tovik_setcol_char(&values[1], "x", "a text of more than four bytes");
    EXPECT_EQ(tovik_insert(records, "t", values, 2), 0);
  };
  for (int id = 0; id < 1000; ++id) read(id);
  memory.fail(0, Failure::once);
  for (int id = 0; id < 1000; id += 7) EXPECT_EQ(read(id), "a text of more than four bytes");
  EXPECT_EQ(memory.calls(), 0);
  EXPECT_EQ(tovik_begin(records), 0);
  for (int id = 1000; id < 1003; ++id) insert(id);
  memory.fail(0, Failure::once);
  insert(1003);
  EXPECT_EQ(read(1003), "a text of more than four bytes") << "inside a transaction";
  EXPECT_EQ(memory.calls(), 0);
  EXPECT_EQ(tovik_rollback(records), 0);
  tovik_close(records);
}

// A row by its number costs the pages that the table got since, not its chain: after a scan, and after
// another connection's commit.
TEST(RowByNumber, ReadsNoChainThatWasPassed) {
  FaultDriver driver;
  const Library library;
  TestDatabase db("DRV_NO=101;BLOCK_SIZE=1024;CACHE_SIZE_DAT=8");
  EXPECT_EQ(db.run("CREATE TABLE t (s char(200))"), 0);
  EXPECT_EQ(db.run("BEGIN WORK"), 0);
  for (int i = 0; i < 800; ++i) EXPECT_EQ(db.run("INSERT INTO t VALUES 'x'"), 0);
  EXPECT_EQ(db.run("COMMIT WORK"), 0);
  const auto reads = [&](const char *sql) {
    driver.take_log();
    EXPECT_EQ(db.rows(sql).find("error"), std::string::npos);
    const std::vector<std::string> calls = driver.take_log();
    return std::count_if(calls.begin(), calls.end(),
                         [](const auto &call) { return call.starts_with("read"); });
  };
  EXPECT_GT(reads("SELECT COUNT(*) FROM t"), 150);
  EXPECT_LT(reads("SELECT s FROM t WHERE rowid = 123456"), 10);
  EXPECT_EQ(Session(db.params()).run("INSERT INTO t VALUES 'y'"), 0);
  EXPECT_LT(reads("SELECT s FROM t WHERE rowid = 123456"), 50);
}

}  // namespace
}  // namespace tovik::test
