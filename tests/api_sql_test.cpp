// SQL through the exported functions: statements in, rows and codes out.
#include <unistd.h>

#include <algorithm>
#include <set>
#include <sstream>
#include <thread>
#include <vector>

#include "api_support.h"

using namespace tovik::test;

namespace {

std::vector<std::string> parts(const std::string &list) {
  std::vector<std::string> all;
  std::istringstream in(list);
  for (std::string part; std::getline(in >> std::ws, part, ';');) all.push_back(part);
  return all;
}

class Sql : public testing::Test {
 protected:
  void all_succeed(std::initializer_list<const char *> statements) {
    for (const char *sql : statements) EXPECT_EQ(db.run(sql), 0) << sql;
  }
  void expect_codes(const std::vector<std::pair<const char *, int>> &cases) {
    for (const auto &[sql, code] : cases) EXPECT_EQ(db.run(sql), code) << sql;
  }
  void expect_rows(const std::vector<std::pair<const char *, const char *>> &cases) {
    for (const auto &[sql, rows] : cases) EXPECT_EQ(db.rows(sql), rows) << sql;
  }
  // Every row is found through every index.
  void expect_sound(const std::string &table) {
    const std::string report = db.printed("INFO CHECK " + table);
    const size_t at = report.find(" record count :[");
    ASSERT_NE(at, std::string::npos) << report;
    const std::string count = report.substr(at + 16, report.find(']', at) - at - 16);
    for (size_t hit = 0; (hit = report.find(" btree hit count :[", hit)) != std::string::npos; ++hit) {
      EXPECT_EQ(report.substr(hit + 19, count.size() + 1), count + "]") << report;
    }
  }

  Library library;
  TestDatabase db;
};

// ---- schema ----

TEST_F(Sql, CreateTableChecksItsColumnsAndOptions) {
  expect_codes({
      {"CREATE TABLE a (x)", 0},
      {"CREATE b (x char)", 0},
      {"CREATE TABLE a (y int)", 141003},
      {"CREATE TABLE c (x char(0))", 172015},
      {"CREATE TABLE c (ROWID int)", 142004},
      {"CREATE TABLE c (x int, y int, x int)", 142003},
      {"CREATE TABLE c (x varchar(5), y int AUTO_INCREMENT, z int AUTO_INCREMENT)", 141005},
      {"CREATE TABLE c (x double AUTO_INCREMENT)", 141006},
      {"CREATE TABLE c (x tinyint AUTO_INCREMENT) auto_increment_init = 128", 141007},
      {"CREATE TABLE c (x int AUTO_INCREMENT) auto_increment_init = 0", 172017},
      {"CREATE TABLE c (x bigint AUTO_INCREMENT) auto_increment_init = 9223372036854775808", 172017},
      {"CREATE TABLE c (x int AUTO_INCREMENT) AUTO_INCREMENT_STEP = 65536", 172018},
      {"CREATE TABLE c (x int AUTO_INCREMENT) AUTO_INCREMENT_STEP = 65535, colour = 'red'", 0},
      {"CREATE TABLE d (a_name_of_21_letters_ int)", 172004},
      {"CREATE TABLE a_name_of_21_letters_ (x int)", 141001},
      {"CREATE TABLE a_name_of_20_letters (a_name_of_20_letters int)", 0},
  });
  std::string columns = "c0 int";
  for (int i = 1; i < 200; ++i) columns += ", c" + std::to_string(i) + " int";
  EXPECT_EQ(db.run("CREATE TABLE wide (" + columns + ", one_more int)"), 172003);
  EXPECT_EQ(db.run("CREATE TABLE wide (" + columns + ")"), 0);
}

TEST_F(Sql, CreateAndDropIndexCheckTheirArguments) {
  all_succeed({"CREATE TABLE t (a int, b int, c char(100), d char(100), e text)",
               "INSERT INTO t VALUES 1,1,'x','y','z'", "INSERT INTO t VALUES 1,2,'x','y','z'"});
  expect_codes({
      {"CREATE INDEX i ON nowhere (a)", 141004},
      {"CREATE INDEX i ON t (nothing)", 145004},
      {"CREATE INDEX i ON t (a, a)", 145009},
      {"CREATE INDEX i ON t (a, b, c)", 172014},
      {"CREATE INDEX i ON t (e)", 145010},
      {"CREATE INDEX i ON t (c, d)", 145011},
      {"CREATE (1, 17) INDEX i ON t (a)", 145008},
      {"CREATE UNIQUE INDEX i ON t (a)", 143001},
      {"CREATE INDEX i ON t (a)", 0},
      {"CREATE INDEX i ON t (b)", 145003},
      {"CREATE (1, 3) INDEX j ON t (a)", 145005},
      {"CREATE UNIQUE TIMESERIES INDEX j ON t (a, b)", 0},
      {"INSERT INTO t VALUES 1,2,'x','y','z'", 143001},
      {"DROP INDEX nothing", 145006},
      {"DROP INDEX j", 0},
      {"INSERT INTO t VALUES 1,2,'x','y','z'", 0},
  });
  expect_sound("t");
}

TEST_F(Sql, TablesAreRenamedEmptiedAndDropped) {
  all_succeed({"CREATE TABLE t (a int NOT NULL, b varchar(8))", "CREATE UNIQUE INDEX ta ON t (a)",
               "INSERT INTO t VALUES 1, 'x', 2, 'y'", "RENAME t TO u", "RENAME ATTR u.b AS c"});
  expect_rows({{"SELECT a, c FROM u", "1,x;2,y"},
               {"SELECT a FROM t", "error 141004"},
               {"SELECT b FROM u", "error 150008"}});
  expect_codes(
      {{"RENAME ATTR u.zzz AS d", 142006}, {"RENAME ATTR u.c AS a", 142003}, {"RENAME t TO v", 141004}});
  all_succeed({"CREATE TABLE t (a int)"});
  expect_codes({{"RENAME u TO t", 141003}});
  db.reopen();
  all_succeed({"EMPTY u"});
  expect_rows({{"SELECT a, c FROM u", ""}});
  all_succeed({"INSERT INTO u VALUES 1, 'z'"});
  expect_codes({{"INSERT INTO u VALUES 1, 'z'", 143001}});
  all_succeed({"DROP TABLE u", "CREATE TABLE u (other int)", "DROP TABLE u", "DROP TABLE t"});
  expect_codes({{"DROP TABLE u", 141004}});
  EXPECT_EQ(db.printed("DESCRIBE DB"), "****  Database: t  ****\n\n");
}

// ---- changes ----

TEST_F(Sql, InsertMatchesValuesToColumns) {
  all_succeed({"CREATE TABLE t (a int, b char(4))"});
  expect_codes({
      {"INSERT INTO t VALUES 1, 'a', 2, 'b'", 0},
      {"INSERT INTO t VALUES 1, 'a', 2", 172005},
      {"INSERT INTO t (b, a) VALUES ('c', 3), 'd', 4", 0},
      {"INSERT INTO t VALUES (1, 'a'), (2, 'b')", 171001},
      {"INSERT INTO t (a, b) VALUES 1", 172008},
      {"INSERT INTO t (a, a) VALUES 1, 2", 172007},
      {"INSERT INTO t (a, z) VALUES 1, 2", 172006},
      {"INSERT INTO t SET z = 1", 172006},
      {"INSERT INTO t SET b = '', a = 5", 0},
      {"INSERT INTO t SET rowid = 5", 142010},
      {"INSERT INTO t SET b = 'abcde'", 113003},
      {"INSERT INTO t SET a = 'x'", 113001},
      {"INSERT INTO t SET a = 2147483648", 113002},
      {"INSERT INTO t (a) 2 + 4", 0},
      {"INSERT INTO t FROM 'file'", 0},
  });
  EXPECT_EQ(db.rows("SELECT a, b FROM t"), "1,a;2,b;3,c;4,d;5,-;6,-");
  EXPECT_EQ(db.rows("SELECT a FROM t WHERE b IS NULL"), "5;6");
}

TEST_F(Sql, ConstraintsHold) {
  all_succeed({"CREATE TABLE t (a int, b int NOT NULL)", "CREATE UNIQUE INDEX ua ON t (a)"});
  expect_codes({
      {"INSERT INTO t VALUES 1, 1", 0},
      {"INSERT INTO t VALUES 1, 2", 143001},
      {"INSERT INTO t VALUES 2, NULL", 143002},
      {"INSERT INTO t (b) VALUES 2", 143002},
      {"INSERT INTO t VALUES 2, 2, 3, 3, 2, 4", 143001},
  });
  EXPECT_EQ(db.rows("SELECT * FROM t"), "1,1") << "a failed statement leaves nothing behind";
  expect_codes({
      {"INSERT INTO t VALUES 2, 2, 3, 3", 0},
      {"UPDATE t SET a = 1 WHERE b = 2", 143001},
      {"UPDATE t SET b = NULL WHERE a = 1", 143002},
      {"UPDATE t SET a = a", 0},
      {"UPDATE t SET a = 7 - a WHERE a = 3", 0},
  });
  EXPECT_EQ(db.rows("SELECT a, b FROM t"), "1,1;2,2;4,3");
  expect_sound("t");
}

TEST_F(Sql, AutoIncrementCountsOnItsOwn) {
  all_succeed(
      {"CREATE TABLE t (id int AUTO_INCREMENT, n int) AUTO_INCREMENT_INIT = 10, AUTO_INCREMENT_STEP = 5",
       "INSERT INTO t (n) VALUES 1, 2", "INSERT INTO t VALUES 100, 3", "INSERT INTO t VALUES 0, 4"});
  EXPECT_EQ(db.rows("SELECT id, n FROM t"), "10,1;15,2;100,3;20,4");
  db.reopen();
  all_succeed({"BEGIN TRANSACTION", "INSERT INTO t (n) VALUES 5", "ROLLBACK TRANSACTION",
               "INSERT INTO t (n) VALUES 6"});
  EXPECT_EQ(db.rows("SELECT id, n FROM t WHERE n > 4"), "25,6");
}

TEST_F(Sql, UpdateAndDeleteReachTheRowsOfTheirCondition) {
  all_succeed({"CREATE TABLE t (a int, b int, c text)", "CREATE INDEX ia ON t (a)",
               "INSERT INTO t VALUES 1,10,'one', 2,20,'two', 3,30,'three', 4,40,'four'"});
  expect_codes({
      {"UPDATE t SET b = b + a, a = a + 10 WHERE a > 2", 0},
      {"UPDATE t SET c = 'a text that is longer than what its record keeps of it' WHERE a = 1", 0},
      {"UPDATE t VALUES 1, 2", 172005},
      {"UPDATE t FROM 'file'", 172019},
      {"DELETE FROM t WHERE a = 2", 0},
      {"DELETE t WHERE nothing = 2", 150008},
  });
  EXPECT_EQ(db.rows("SELECT * FROM t"),
            "1,10,a text that is longer than what its record keeps of it;13,33,three;14,44,four");
  all_succeed({"UPDATE t (a, c) VALUES 5, 'x'", "DELETE FROM t WHERE rowid = 0"});
  EXPECT_EQ(db.rows("SELECT a, c FROM t"), "5,x;5,x;5,x");
  expect_sound("t");
}

TEST_F(Sql, ValuesAreStoredByTheirColumnsType) {
  all_succeed({"CREATE TABLE t (i int, f float, d double, c varchar(30), b blob, dd date, e decimal)"});
  expect_codes({
      {"INSERT INTO t VALUES 7.9, 1, 2, 3, '0aFF', 20200229, 1.5", 0},
      {"INSERT INTO t SET c = 1.5, e = 12", 0},
      {"INSERT INTO t SET b = 5", 150001},
      {"INSERT INTO t SET b = 'xy'", 113013},
      {"INSERT INTO t SET dd = '2020-02-29'", 113011},
      {"INSERT INTO t SET i = 3000000000.0", 113002},
      {"INSERT INTO t SET i = 1 / 0", 151001},
      {"INSERT INTO t SET i = COUNT(*)", 150004},
  });
  EXPECT_EQ(db.rows("SELECT * FROM t"), "7,1,2,3,0aff,20200229,1.500000e+00;-,-,-,1.500000e+00,-,-,12");
}

// ---- queries ----

TEST_F(Sql, QueriesJoinSortAndFilter) {
  all_succeed({"CREATE TABLE a (n int, s char(4))", "CREATE TABLE b (n int, m int)",
               "INSERT INTO a VALUES 2,'two', 1,'one', 3,NULL", "INSERT INTO b VALUES 1,10, 2,20, 2,21"});
  expect_rows({
      {"SELECT * FROM a", "2,two;1,one;3,-"},
      {"SELECT a.n, m FROM a, b WHERE a.n = b.n", "2,20;2,21;1,10"},
      {"SELECT COUNT(*) FROM a, b, a c", "27"},
      {"SELECT n FROM a ORDER BY s DESC", "2;1;3"},
      {"SELECT a.n, m FROM a, b WHERE a.n = b.n ORDER BY a.n, m DESC", "1,10;2,21;2,20"},
      {"SELECT n FROM a WHERE NOT s = 'one'", "2"},
      {"SELECT n FROM a WHERE s IS NULL OR s LIKE 't%'", "2;3"},
      {"SELECT n FROM a WHERE s NOT IN ('one', NULL)", ""},
      {"SELECT n > 1 AS big FROM a", "1;0;1"},
      {"SELECT n FROM a ORDER BY n, n", "error 161001"},
      {"SELECT n FROM a ORDER BY zzz", "error 150008"},
      {"SELECT n FROM a WHERE n = (SELECT n FROM b)", "error 150003"},
      {"SELECT n FROM a WHERE s + 1 = 2", "error 150005"},
  });
}

// Each expression over a row of values and over one of NULL; an unknown condition is -1.
TEST_F(Sql, ExpressionsReadColumnsOfEveryType) {
  all_succeed(
      {"CREATE TABLE t (i int, b bigint, d double, f float, c char(10), v varchar(2), x text, y blob, "
       "dd date, tt time, m microtimestamp)",
       "INSERT INTO t VALUES 7, -5, 1.5, 0.1, 'abc', '12', 'some text that leaves the record', '610062', "
       "'20200102', '20200102030405', '20200102030405000006', "
       "8, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL, NULL"});
  const std::pair<const char *, const char *> cases[] = {
      {"0.1;-", "f"},
      {"610062;-", "y"},
      {"32;-", "LENGTHB(x)"},
      {"20200102030405000006;-", "m"},
      {"-34;-", "i * b + 1"},
      {"abc12some text that leaves the record;-", "c || v || x"},
      {"abc20200102;-", "c || dd"},
      {"20200102030405;", "tt || ''"},
      {"2026;-", "YEAROF dd + MICROSECONDOF m"},
      {"20200109000000000000;-", "dd + i day"},
      {"1;1", "i MATCH '[78]'; t.RowId = rowid"},
      {"1;0", "i = '7'; i = 7.0"},
      // A literal takes the column's type. A date column is compared as a date, a time column without
      // microseconds.
      {"1;-1",
       "b IN (1, -5); c LIKE 'a_c'; dd LIKE '20200102'; f LIKE '1.0%e-01'; d = '15e-1'; f = 0.1; v = 12;"
       "v BETWEEN 11 AND 13; v MATCH 12; dd = 20200102; dd IN ('20200101', 20200102); m > '20200102';"
       "dd = '20200102235959'; dd = m; tt = m"},
      {"0;-1", "v = 12.0; c = 123; dd < m"},
      {"error 150003", "i = '7.5'; i IN ('7', 'abc'); '7' = i; v = -12; dd = 1.5"},
      {"error 150002", "dd = '2020-01-02'; dd = '20200230'"},
      {"error 150008", "T.i; nothing"},
  };
  for (const auto &[rows, expressions] : cases)
    for (const std::string &expression : parts(expressions))
      EXPECT_EQ(db.rows("SELECT " + expression + " AS x FROM t"), rows) << expression;
  all_succeed({"CREATE TABLE u (i int, b int)", "INSERT INTO u VALUES 70, 71"});
  // A name without a table is the first table's; an alias comes before a name.
  expect_rows({{"SELECT i, w.i, u.b FROM t, u w WHERE b IS NULL", "8,70,71"},
               {"SELECT t.i FROM t x, u t WHERE x.i = 7", "70"}});
}

// What the statements of one thread do to each other: changes after a query was prepared, executed or fetched
// once, and the rows that are left then.
TEST_F(Sql, OpenQueriesMeetTheChangesOfTheirThread) {
  enum Stage { prepared, executed, fetched };
  const std::string missing = "error 141004", all = "0;1;2;3;4";
  const std::tuple<Stage, const char *, const char *, std::string> cases[] = {
      {fetched, "b FROM t WHERE a = 1", "DELETE FROM t WHERE b = 1", "2;3;4"},
      {fetched, "b FROM t", "DELETE FROM t WHERE b = 2", "1;3;4"},
      // The slot of a deleted row holds another one.
      {fetched, "b FROM t WHERE a = 1", "DELETE FROM t WHERE b = 3; INSERT INTO t VALUES 9,9,9", "1;2;4"},
      {fetched, "b FROM t WHERE a = 1", "UPDATE t SET b = 7, a = b + 1 - b WHERE b = 3", "1;2;7;4"},
      {fetched, "b FROM t WHERE a = 1 ORDER BY b DESC",
       "UPDATE t SET a = 2 WHERE b = 3; DELETE FROM t WHERE b = 1", "2;0"},
      {fetched, "b FROM t ORDER BY b", "DELETE FROM t WHERE b = 2; INSERT INTO t VALUES 1,8,8", "1;8;3;4"},
      {executed, "b FROM t WHERE u = 3", "DELETE FROM t WHERE u = 3; INSERT INTO t VALUES 1,9,9", ""},
      {executed, "b FROM t WHERE u > 2 AND b < 9", "UPDATE t SET b = 9 WHERE u = 4", "3"},
      {fetched, "DISTINCT b FROM t", "DELETE FROM t", "1;2;3;4"},
      // An outer row of a join that changes while its inner rows are read.
      {fetched, "x.b * 10 + y.b FROM t x, t y WHERE x.b < 2", "UPDATE t SET b = 5 WHERE b = 0",
       "15;11;12;13;14"},
      {fetched, "x.b * 10 + y.b FROM t x, t y WHERE x.b < 2", "DELETE FROM t WHERE b = 0", "11;12;13;14"},
      {fetched, "x.b FROM t x, t y WHERE x.a = 1 AND y.b < 2", "UPDATE t SET a = 5 WHERE b < 4", "4;4"},
      // A transaction that is rolled back takes rows and pages away again.
      {fetched, "b FROM t WHERE a = 1", "BEGIN WORK; UPDATE t SET a = 2; ROLLBACK WORK", "1;2;3;4"},
      {prepared, "b FROM t WHERE a = 1", "BEGIN WORK; DELETE FROM t WHERE b > 0", "0"},
      // Definitions.
      {prepared, "b FROM t WHERE a = 1", "DROP INDEX ta; INSERT INTO t VALUES 1,7,7", all + ";7"},
      {prepared, "b FROM t WHERE a = 1",
       "DROP INDEX ta; CREATE TABLE v (x int); CREATE INDEX vx ON v (x); INSERT INTO v VALUES 1, 2, 3", all},
      {prepared, "b FROM t WHERE a = 1", "BEGIN WORK; DROP INDEX ta; INSERT INTO t VALUES 1,7,7; COMMIT WORK",
       all + ";7"},
      {prepared, "* FROM t WHERE a = 1", "RENAME t TO v; CREATE TABLE t (a int); INSERT INTO t VALUES 1, 1",
       "1;1"},
      {prepared, "b FROM t", "RENAME ATTR t.b AS c", "error 150008"},
      {prepared, "b FROM t", "DROP TABLE t", missing},
      {prepared, "b FROM t", "BEGIN WORK; DROP TABLE t; ROLLBACK WORK", all},
      {prepared, "b FROM t", "BEGIN WORK; DROP TABLE t", missing},
      {prepared, "b FROM t WHERE a = 1", "EMPTY t; INSERT INTO t VALUES 1,7,7", "7"},
      {fetched, "b FROM t WHERE a = 1", "DROP INDEX ta; RENAME t TO v; DELETE FROM v WHERE b = 2", "1;3;4"},
      {fetched, "b FROM t", "CREATE INDEX tb ON t (b); RENAME ATTR t.b AS c; INSERT INTO t VALUES 2,5,5",
       "1;2;3;4;5"},
      {fetched, "b FROM t", "BEGIN WORK; DROP TABLE t; ROLLBACK WORK", "1;2;3;4"},
      {fetched, "b FROM t", "DROP TABLE t; CREATE TABLE v (p int, q int, r int); INSERT INTO v VALUES 7,8,9",
       missing},
      {fetched, "b FROM t WHERE a = 1", "DROP TABLE t", missing},
      {fetched, "b FROM t ORDER BY b", "EMPTY t; INSERT INTO t VALUES 1,7,7", missing},
      {executed, "x.b FROM u, t x", "BEGIN WORK; DROP TABLE t", missing},
      {executed, "COUNT(*) FROM t", "DROP TABLE t", "5"},
  };
  for (const auto &[stage, query, changes, rest] : cases) {
    SCOPED_TRACE(std::string(query) + " | " + changes);
    all_succeed({"BEGIN WORK", "CREATE TABLE t (a int, b int, u int)", "CREATE INDEX ta ON t (a)",
                 "CREATE UNIQUE INDEX tu ON t (u)", "CREATE TABLE u (x int)", "INSERT INTO u VALUES 1",
                 "INSERT INTO t VALUES 1,0,0, 1,1,1, 1,2,2, 1,3,3, 1,4,4", "COMMIT WORK"});
    Session other(db.handle());
    kld_stmt *cursor = other.statement();
    ASSERT_EQ(kld_api_pre_stmt_char(cursor, (std::string("SELECT ") + query).c_str()), 0);
    const auto change = [&](Stage now) {
      for (const std::string &sql : parts(now == stage ? changes : "")) EXPECT_EQ(db.run(sql), 0) << sql;
    };
    change(prepared);
    int result = kld_api_exec_stmt(cursor);
    change(executed);
    if (stage == fetched) {
      EXPECT_EQ(kld_api_fetch_stmt(cursor), 1);
    }
    change(fetched);
    std::string rows;
    int code = result == 0 ? other.fetch_all(&rows) : error_code();
    EXPECT_EQ(code == 0 ? rows : "error " + std::to_string(code), rest);
    kld_api_clear_stmt(cursor);
    (void)db.run("ROLLBACK WORK");
    all_succeed({"BEGIN WORK"});
    for (const char *table : {"t", "u", "v"}) (void)db.run(std::string("DROP TABLE ") + table);
    all_succeed({"COMMIT WORK"});
  }
}

TEST_F(Sql, DistinctAndAggregates) {
  all_succeed({"CREATE TABLE t (g int, v int, d double, s char(3))", "CREATE TABLE none (v int)",
               "INSERT INTO t VALUES 1,5,0.5,'x', 2,NULL,1.5,'y', 1,7,NULL,'x', 2,1,2.0,NULL"});
  expect_rows({
      {"SELECT DISTINCT g, s FROM t", "1,x;2,y;2,-"},
      {"SELECT COUNT(*), COUNT(v), SUM(v), MIN(v), MAX(v), AVG(v) FROM t", "4,3,13,1,7,4.33333"},
      {"SELECT SUM(v) + COUNT(*), g FROM t", "17,-"},
      {"SELECT COUNT(*), SUM(v), AVG(v), MAX(v) FROM none", "0,-,-,-"},
      {"SELECT COUNT(DISTINCT g) FROM t", "error 172019"},
      {"SELECT MAX(s) FROM t", "error 153001"},
      {"SELECT g FROM t WHERE COUNT(*) > 1", "error 150004"},
      {"SELECT DISTINCT COUNT(*) FROM t ORDER BY g", "4"},
      // NVL gives the type that it chooses.
      {"SELECT NVL(SUM(v), 'no value'), NVL(MAX(d), 7) FROM none, t", "no value,7"},
      {"SELECT NVL(s, v), NVL(v, 0.5) FROM t", "x,5;y,0.5;x,7;1,1"},
      {"SELECT DISTINCT NVL(v, 0.5), NVL(NVL(NULL, s), 1) FROM t", "5,x;0.5,y;7,x;1,1"},
      {"SELECT DISTINCT NVL(-SUBSTR(s, 2), NVL(s, g)) FROM t", "error 150005"},
      {"SELECT DISTINCT NVL(s, g) FROM t", "x;y;2"},
      {"SELECT SUM(NVL(v, 0.5)), MIN(NVL(v, 0.5)), SUM(d), MAX(d) FROM t", "13.5,0.5,4,2"},
      // What a function cannot take fails in the row that has it.
      {"SELECT LENGTH(NVL(s, 'none')), LENGTH(NVL(s, v)) FROM t WHERE g = 1", "1,1;1,1"},
      {"SELECT LENGTH(NVL(s, v)) FROM t", "error 153001"},
      {"SELECT g FROM t WHERE REPLACE('abc', NVL(s, g), 'b') = 'Q'", "error 153002"},
      {"SELECT g FROM t WHERE v = ''", "error 150003"},
  });
}

// Local times that are skipped or repeated when clocks change, and rows of both passes of the repeated hour.
TEST(SqlZones, IndexAccessGivesWhatAScanGivesWhenClocksChange) {
  setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1);
  {
    const Library library;
    TestDatabase db;
    const std::vector<std::string> tables = {"scan", "idx"}, columns = {"m", "s"},
                                   clocks = {"015959", "020000", "023000", "025959", "030000", "033000"};
    for (const std::string &table : tables) {
      EXPECT_EQ(db.run("CREATE TABLE " + table + " (m microtimestamp, s time)"), 0);
      EXPECT_EQ(db.run("BEGIN WORK"), 0);
      for (const std::string day : {"20210328", "20211031"})
        for (const char *gmt : {"'ON'", "'OFF'"}) {
          EXPECT_EQ(db.run(std::string("SET HVI_GMT_TIME ") + gmt), 0);
          for (const char *clock : {"003000", "005959", "010000", "013000", "020000", "023000", "030000"})
            EXPECT_EQ(db.run("INSERT INTO " + table + " VALUES '" + day + clock + "', '" + day + clock + "'"),
                      0);
        }
      EXPECT_EQ(db.run("COMMIT WORK"), 0);
    }
    for (const std::string &column : columns)
      EXPECT_EQ(db.run("CREATE (1, 4) INDEX i" + column + column + " ON idx (" + column + ")"), 0);
    for (const std::string &column : columns)
      for (const std::string day : {"20210328", "20211031"})
        for (const std::string &clock : clocks)
          for (const std::string op : {" = ", " < ", " <= ", " > ", " >= "}) {
            const std::string where = " WHERE " + column + op + "'" + day + clock + "' ORDER BY m, s";
            EXPECT_EQ(db.rows("SELECT * FROM idx" + where), db.rows("SELECT * FROM scan" + where)) << where;
          }
    EXPECT_NE(db.rows("SELECT * FROM idx WHERE m = '20211031023000'"), "");
  }
  unsetenv("TZ");
}

TEST_F(Sql, IndexAccessGivesWhatAScanGives) {
  const char *columns = " (k int, a int, b int, c char(6), d date, f float, n bigint)";
  for (const char *table : {"scan", "idx"})
    all_succeed({("CREATE TABLE " + (table + std::string(columns))).c_str()});
  all_succeed({"CREATE INDEX ia ON idx (a)", "CREATE INDEX iab ON idx (a, b)", "CREATE INDEX ic ON idx (c)",
               "CREATE (1, 0) INDEX id ON idx (d)", "CREATE INDEX if1 ON idx (f)",
               "CREATE INDEX in1 ON idx (n)"});
  Random random;
  all_succeed({"BEGIN WORK"});
  for (int k = 0; k < 300; ++k) {
    auto or_null = [&](const std::string &value) { return random.one_in(8) ? std::string("NULL") : value; };
    const std::string values =
        std::to_string(k) + "," + or_null(std::to_string(random.below(12) - 3)) + "," +
        or_null(std::to_string(random.below(5))) + "," +
        or_null("'" + std::string(1 + random.below(3), static_cast<char>('a' + random.below(4))) + "'") +
        "," + or_null("'2020010" + std::to_string(1 + random.below(9)) + "'") + "," +
        or_null("0." + std::to_string(random.below(4))) + "," +
        std::to_string((int64_t{1} << 53) - 2 + random.below(5));
    for (const char *table : {"scan", "idx"}) {
      ASSERT_EQ(db.run(std::string("INSERT INTO ") + table + " VALUES " + values), 0) << values;
    }
  }
  all_succeed({"COMMIT WORK"});
  const auto expect_same = [this](const std::string &condition, const char *order) {
    const std::string expected = db.rows("SELECT k FROM scan WHERE " + condition);
    ASSERT_EQ(expected.find("error"), std::string::npos) << condition << ": " << expected;
    EXPECT_EQ(db.rows("SELECT k FROM idx WHERE " + condition + order), expected) << condition;
  };
  for (const std::string &condition : parts(
           "a = '3'; a = 3.0; a = 2.5; a > 2.5; a < 0; a <= 0; a >= 7; a = NULL; a IN (5, NULL, 1, 5);"
           "a NOT IN (5, 1); a BETWEEN 1 EXCLUSIVE TO 4 EXCLUSIVE; a NOT BETWEEN 1 AND 3; a BETWEEN 3 AND 1;"
           "a BETWEEN -2 AND 4; a > -2 AND a < 5; b = 3 AND a = 2; a = 2 AND b > 1; a = 2 OR b = 3; a = b;"
           "c = 'aa'; c > 'b'; c BETWEEN 'a' AND 'bb'; c LIKE 'a%'; c = '\377bbbbb'; c < '\377bbbbb';"
           "d = '20200103'; d = '20200103235959'; d > '20200105000001'; d >= '20200105000001'; d <= 20200104;"
           "d IN ('20200101', '20200109'); f = 0.1; f = 0.10000001; f < 0.10000001; f >= 0.29999999; f > 0;"
           "n = 9007199254740992.0; n > 9007199254740992.0; n = 9007199254740991.0"))
    expect_same(condition, " ORDER BY k");
  // With a sign before every literal the rows come in the order of a scan.
  for (const std::string &condition :
       parts("a = -2; a = -2.0; a IN (-2, 4, -3, NULL, -2); a > -2; a <= -1; a BETWEEN -3 EXCLUSIVE AND -1;"
             "a = -1 AND b = 2; a NOT IN (-1)"))
    expect_same(condition, "");
  EXPECT_EQ(db.rows("SELECT k FROM idx WHERE a = 3000000000"), "error 113002");
  EXPECT_EQ(db.rows("SELECT k FROM idx WHERE c < 'longer than c'"), "error 113003");
  expect_sound("idx");
}

TEST_F(Sql, ThePlanSaysWhichAccessIsUsed) {
  all_succeed({"CREATE TABLE t (a int, b int, c int)", "CREATE INDEX ta ON t (a)",
               "CREATE INDEX tbc ON t (c, b)", "INSERT INTO t VALUES 1,2,3", "SET HVI_QUERY_PLAN 'ON'",
               "SET HVI_SQL_SEL_HDR 'OFF'"});
  const std::string scan = "        Scan entire table\n";
  const auto use = [](const char *index) {
    return std::string("        Indices usable:\n        ") + index + " \n        Use records from indices\n";
  };
  const std::vector<std::pair<const char *, std::string>> plans = {
      {"a = 1", use("'ta' : 'a'")},
      {"a BETWEEN 1 AND 2", use("'ta' : 'a' between")},
      {"b = 2 AND c = 3", use("'tbc' : 'b' 'c' composite")},
      {"c = -3 AND b = 2", use("'tbc' : 'c' 'b' composite")},
      {"b = 2 AND a IN (7, -1)", use("'ta' : 'a'")},
      {"a = 1 OR a = 2", scan},
      {"c = 3", scan},
      {"rowid = 5", "        row id usable\n"},
      {"rowid = NULL", "        check row id\n"},
  };
  for (const auto &[condition, plan] : plans) {
    const std::string printed = db.printed(std::string("SELECT a FROM t WHERE ") + condition);
    EXPECT_EQ(printed.rfind("---- QUERY PLAN ----\nTABLE 't':\n" + plan + "--------------------\n", 0), 0u)
        << condition << ":\n"
        << printed;
  }
}

// Whatever number is asked for, a row is found exactly when it has that number; pages that only an open
// transaction has, and pages that went with a rollback, included.
TEST_F(Sql, RandomNumbersAreRowsOnlyWhenARowHasThem) {
  all_succeed({"CREATE TABLE t (a int, s char(40))", "CREATE TABLE other (a int, s char(33))"});
  Random random;
  auto fill = [&](int rows) {
    std::string values;
    for (int i = 0; i < rows; ++i) values += (i == 0 ? "" : ", ") + std::string("65, 'AAAAAAAAAAAAAAAAAAAA'");
    ASSERT_EQ(db.run("INSERT INTO t VALUES " + values), 0);
    ASSERT_EQ(db.run("INSERT INTO other VALUES " + values), 0);
  };
  auto check = [&] {
    std::set<uint32_t> numbers;
    std::istringstream list(db.rows("SELECT rowid FROM t"));
    for (std::string number; std::getline(list, number, ';');)
      numbers.insert(static_cast<uint32_t>(std::stoul(number)));
    const uint32_t low = *numbers.begin() - 9000, span = *numbers.rbegin() - low + 9000;
    for (int i = 0; i < 200; ++i) {
      uint32_t number = low + static_cast<uint32_t>(random.below(static_cast<int>(span)));
      if (random.one_in(3)) number = *numbers.lower_bound(std::min(number, *numbers.rbegin()));
      EXPECT_EQ(db.rows("SELECT a FROM t WHERE rowid = " + std::to_string(number)),
                numbers.count(number) != 0 ? "65" : "")
          << number;
    }
  };
  fill(200);
  check();
  for (const char *nowhere : {"0", "-1", "4294967295", "99999999999"})
    EXPECT_EQ(db.rows(std::string("SELECT a FROM t WHERE rowid = ") + nowhere), "") << nowhere;
  all_succeed({"BEGIN WORK"});
  fill(300);
  check();
  all_succeed({"ROLLBACK WORK"});
  fill(100);
  check();
}

TEST(SqlDepth, LongAndDeepConditionsTakeASmallStack) {
  const Library library("HVI_SQL_BUF_SIZE=4000000");
  TestDatabase db;
  for (const char *sql :
       {"CREATE TABLE t (a int, s char(9))", "CREATE INDEX ta ON t (a)", "INSERT INTO t VALUES 1,'x', 2,'y'"})
    EXPECT_EQ(db.run(sql), 0) << sql;
  const auto repeated = [](const std::string &text, int count) {
    std::string all;
    for (int i = 0; i < count; ++i) all += text;
    return all;
  };
  const std::pair<std::string, const char *> cases[] = {
      {"a = 1" + repeated(" AND a > 0", 5000), "x"},
      {"a = 3" + repeated(" OR a = 2", 5000), "y"},
      {repeated("a = 1 AND (", 298) + "s LIKE 'x%'" + repeated(")", 298), "x"},
      {repeated("a = 1 AND (", 300) + "s LIKE 'x%'" + repeated(")", 300), "error 150004"},
      {"LENGTH(s" + repeated(" || 'z'", 5000) + ") = 5001", "x;y"},
  };
  for (const auto &[condition, expected] : cases) {
    std::string rows;
    on_small_stack([&] { rows = db.rows("SELECT s FROM t WHERE " + condition); });
    EXPECT_EQ(rows, expected) << condition.substr(0, 30);
  }
}

// ---- printing ----

TEST_F(Sql, PrintsResultsInColumns) {
  all_succeed({"CREATE TABLE t (n tinyint, c char(6), x text(4, 20, 20), b blob(5))",
               "INSERT INTO t VALUES 5, 'あい', '12345678', '01020304'", "INSERT INTO t (n) VALUES -7"});
  EXPECT_EQ(db.printed("SELECT n, c FROM t"), "   n  c\n   5  あい\n  -7  " + std::string(6, ' ') + "\n");
  EXPECT_EQ(db.printed("SELECT b, n FROM t WHERE n = 5"), "b         n\n01 02     5\n03 04  \n");
  EXPECT_EQ(db.printed("SELECT NVL(x, n), SQRT(n) AS r FROM t WHERE n < 0"),
            "NVL(x, n)                                 r\n"
            "                  -7  nan                  \n");
  EXPECT_EQ(db.printed("SELECT NVL(b, c), n FROM t"),
            "NVL(b, c)                n\n01 02 03 04              5\n                        -7\n");
  EXPECT_EQ(db.printed("SELECT NVL(b, '-') AS p, n FROM t"),
            "p                        n\n01 02 03 04              5\n-                       -7\n");
  all_succeed({"SET HVI_SQL_SEL_HDR 'OFF'", "SET HVI_SQL_SEL_SEP ','", "SET HVI_SQL_SEL_NUL_STR 'NULL'"});
  EXPECT_EQ(db.printed("SELECT c, n FROM t WHERE n = -7"), "  NULL,  -7\n");
  EXPECT_EQ(db.printed("SELECT c, n FROM t DUMP INTO 'file'"), "あい,5\nNULL,-7\n");
  EXPECT_EQ(db.printed("TEST_STMT 'a' || 'b', 1.5 * 2, 1.0e0 * 3"), "ab,3.00,3.00000000000000e+00\n");
  EXPECT_EQ(db.printed("TEST_STMT SQRT(-1), NULL, '20200101' + 1 day"), "nan,NULL,20200102000000000000\n");
  EXPECT_EQ(db.printed("ECHO 'hello'"), "hello\n");
  // Dates as their types show them; long values in pieces of whole characters beside blanks.
  all_succeed({"CREATE TABLE d (d date, m time, u microtimestamp, x text(12, 20, 20))",
               "INSERT INTO d VALUES '20200131', '20200131040506', '20200131040506000789', "
               "'aあいうえおかきabc'"});
  EXPECT_EQ(db.printed("SELECT d, m, u, x FROM d"),
            "20200131,20200131040506,20200131040506000789,aあいうえお\n"
            "        ,              ,                    ,かきabc\n");
}

TEST_F(Sql, DescribesTables) {
  all_succeed({"CREATE TABLE t (id int AUTO_INCREMENT, c char(7) NOT NULL, x text(1,2,9), e decimal(5,2))",
               "CREATE INDEX i ON t (c, id)", "INSERT INTO t (c) VALUES 'a', 'b'"});
  const std::string attributes =
      "    id                                int  Not Null  Auto Increment\n"
      "    c                                 char(7)  Not Null\n"
      "    x                                 text(1,2,9)\n"
      "    e                                 decimal(5,2)\n";
  EXPECT_EQ(db.printed("DESC t"), "***  Table: t  ***\n\n  Attributes:\n" + attributes);
  const std::string all = db.printed("DESC t ALL");
  EXPECT_NE(all.find("\n  Indices:     UNIQUE BTREE __auto_inc__"), std::string::npos) << all;
  EXPECT_NE(all.find("\n               NORMAL (2) BTREE i ON (c, id)\n"), std::string::npos) << all;
  EXPECT_NE(all.find("  Auto incremnet next :      3\n"), std::string::npos) << all;
  for (const char *word :
       {"par", "bm", "bm flst", "bm trn", "cm", "tm", "lm", "bt", "bt t", "row _sys", "row _bt", "row t"}) {
    EXPECT_NE(db.printed(std::string("INFO ") + word), "") << word;
  }
}

// A commit that waits for a reader has its record written and lets nobody in: that is when one wants to look.
TEST(SqlInfo, ShowsTheStorageLayerWhileNobodyMayRead) {
  const Library library("HVI_LOCK_RETRY=10000;HVI_LOCK_SLEEP=1");
  TestDatabase db;
  EXPECT_EQ(db.run("CREATE TABLE t (a int)"), 0);
  EXPECT_EQ(kld_api_pre_stmt_char(db.session().statement(), "SELECT a FROM t"), 0);
  std::thread writer([&] { EXPECT_EQ(Session(db.handle()).run("INSERT INTO t VALUES 1"), 0); });
  std::thread([&] {
    Session other(db.handle());
    std::string locks;
    for (int looks = 0; looks < 5000 && locks.find("type[LKT_PEN]") == std::string::npos; ++looks) {
      usleep(1000);
      locks = other.printed("INFO LM");
    }
    EXPECT_NE(locks.find("type[LKT_PEN]"), std::string::npos);
    EXPECT_NE(other.printed("INFO BM TRN").find("tstat        : 3"), std::string::npos);
  }).join();
  kld_api_clear_stmt(db.session().statement());
  writer.join();
}

// ---- transactions ----

TEST_F(Sql, TransactionsAreWholeOrNothing) {
  all_succeed({"CREATE TABLE t (a int)", "CREATE UNIQUE INDEX ta ON t (a)", "BEGIN TRANSACTION",
               "INSERT INTO t VALUES 1, 2", "CREATE TABLE made (x int)", "INSERT INTO made VALUES 7"});
  expect_codes({{"BEGIN WORK", 140004}, {"INSERT INTO t VALUES 3, 4, 3", 143001}});
  expect_rows({{"SELECT a FROM t", "1;2;3;4"}, {"SELECT x FROM made", "7"}});
  expect_sound("t");
  all_succeed({"ROLLBACK WORK"});
  expect_rows({{"SELECT a FROM t", ""}, {"SELECT x FROM made", "error 141004"}});
  all_succeed({"BEGIN WORK", "INSERT INTO t VALUES 5", "DROP TABLE t", "CREATE TABLE t (b int)",
               "ROLLBACK WORK", "BEGIN WORK", "INSERT INTO t VALUES 6", "COMMIT WORK"});
  expect_codes({{"COMMIT WORK", 140002}, {"ROLLBACK WORK", 140002}});
  db.reopen();
  expect_rows({{"SELECT a FROM t", "6"}});
  expect_sound("t");
}

TEST_F(Sql, WithoutAutomaticCommitChangesAreDirect) {
  all_succeed({"SET HVI_AUTO_COMMIT 'OFF'", "CREATE TABLE t (a int)", "CREATE UNIQUE INDEX ta ON t (a)",
               "INSERT INTO t VALUES 1, 2"});
  expect_codes({{"INSERT INTO t VALUES 3, 1", 143001}});
  EXPECT_EQ(db.rows("SELECT a FROM t"), "1;2;3");
  all_succeed({"BEGIN WORK", "INSERT INTO t VALUES 4", "ROLLBACK WORK"});
  db.reopen();
  EXPECT_EQ(db.rows("SELECT a FROM t"), "1;2;3");
  expect_sound("t");
}

TEST_F(Sql, AStatementThatExceedsItsPoolFailsAndLeavesItUsable) {
  all_succeed({"CREATE TABLE t (a int)"});
  std::string sql = "INSERT INTO t VALUES 1";
  for (int i = 0; i < 2000; ++i) sql += ", 1";
  EXPECT_EQ(db.run(sql), 110002);
  EXPECT_EQ(db.rows("SELECT COUNT(*) FROM t"), "0");
  all_succeed({"INSERT INTO t VALUES 1"});
}

}  // namespace
