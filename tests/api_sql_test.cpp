// SQL through the exported functions: statements in, rows and codes out.
#include <vector>

#include "api_support.h"

namespace tovik::test {
namespace {

class Sql : public Script {
 protected:
  using Script::Script;
};

TEST_F(Sql, Definitions) {
  script(R"(
    CREATE TABLE a (x)
    CREATE TABLE a (y int) => 141003
    CREATE TABLE c (x char(0)) => 172015
    CREATE TABLE c (ROWID int) => 142004
    CREATE TABLE c (x int, y int, x int) => 142003
    CREATE TABLE c (x varchar(5), y int AUTO_INCREMENT, z int AUTO_INCREMENT) => 141005
    CREATE TABLE c (x double AUTO_INCREMENT) => 141006
    CREATE TABLE c (x int AUTO_INCREMENT) auto_increment_init = 0 => 172017
    CREATE TABLE c (x int AUTO_INCREMENT) AUTO_INCREMENT_STEP = 65536 => 172018
    CREATE TABLE c (x int AUTO_INCREMENT) AUTO_INCREMENT_STEP = 65535, colour = 'red'
    CREATE TABLE d (a_name_of_21_letters_ int) => 172004
    CREATE TABLE a_name_of_21_letters_ (x int) => 141001
    CREATE TABLE a_name_of_20_letters (a_name_of_20_letters int)
    CREATE TABLE t (a int, b int, c char(100), d char(100), e text)
    INSERT INTO t VALUES 1,1,'x','y','z', 1,2,'x','y','z'
    CREATE INDEX i ON nowhere (a) => 141004
    CREATE INDEX i ON t (nothing) => 145004
    CREATE INDEX i ON t (a, a) => 145009
    CREATE INDEX i ON t (a, b, c) => 172014
    CREATE INDEX i ON t (e) => 145010
    CREATE (1, 17) INDEX i ON t (a) => 145008
    CREATE UNIQUE INDEX i ON t (a) => 143001
    CREATE INDEX i ON t (a)
    CREATE INDEX i ON t (b) => 145003
    CREATE (1, 3) INDEX j ON t (a) => 145005
    CREATE UNIQUE TIMESERIES INDEX j ON t (a, b)
    INSERT INTO t VALUES 1,2,'x','y','z' => 143001
    DROP INDEX nothing => 145006
    DROP INDEX j; INSERT INTO t VALUES 1,2,'x','y','z'; INFO CHECK t
    RENAME ATTR t.zzz AS d => 142006
    RENAME ATTR t.c AS a => 142003
    RENAME ATTR t.c AS f; SELECT f FROM t WHERE b = 1 => x
    SELECT c FROM t => error 150008
    RENAME t TO a => 141003
    RENAME t TO u; RENAME t TO v => 141004
    SELECT a FROM t => error 141004
    REOPEN; EMPTY u; SELECT a, f FROM u =>)");
  std::string columns = "c0 int";
  for (int i = 1; i < 200; ++i) columns += ", c" + std::to_string(i) + " int";
  EXPECT_EQ(db.run("CREATE TABLE wide (" + columns + ", one_more int)"), 172003);
  EXPECT_EQ(db.run("CREATE TABLE wide (" + columns + ")"), 0);
}

TEST_F(Sql, Changes) {
  script(R"(
    CREATE TABLE t (a int, b char(4))
    INSERT INTO t VALUES 1, 'a', 2 => 172005
    INSERT INTO t (b, a) VALUES ('c', 3), 'd', 4
    INSERT INTO t (a, b) VALUES 1 => 172008
    INSERT INTO t (a, a) VALUES 1, 2 => 172007
    INSERT INTO t (a, z) VALUES 1, 2 => 172006
    INSERT INTO t SET b = '', a = 5
    INSERT INTO t SET rowid = 5 => 142010
    INSERT INTO t SET b = 'abcde' => 113003
    INSERT INTO t SET a = 'x' => 113001
    INSERT INTO t SET a = 2147483648 => 113002
    INSERT INTO t (a) 2 + 4
    SELECT a, b FROM t => 3,c;4,d;5,-;6,-
    UPDATE t VALUES 1 => 172005
    DELETE t WHERE nothing = 2 => 150008
    UPDATE t (a, b) VALUES 7, 'x'; DELETE FROM t WHERE rowid = 0; SELECT a, b FROM t => 7,x;7,x;7,x;7,x
    CREATE TABLE u (a int, b int NOT NULL, c text)
    CREATE UNIQUE INDEX ua ON u (a)
    INSERT INTO u VALUES 1, 1, 'one'
    INSERT INTO u VALUES 2, NULL, '' => 143002
    INSERT INTO u VALUES 2, 2, '', 3, 3, '', 2, 4, '' => 143001
    SELECT * FROM u => 1,1,one
    INSERT INTO u VALUES 2, 2, 'two', 3, 3, 'three'
    UPDATE u SET a = 1 WHERE b = 2 => 143001
    UPDATE u SET b = NULL WHERE a = 1 => 143002
    UPDATE u SET b = b + a, a = a + 10 WHERE a > 1
    UPDATE u SET c = 'a text that is longer than what its record keeps of it' WHERE a = 13
    SELECT * FROM u => 1,1,one;12,4,two;13,6,a text that is longer than what its record keeps of it
    INFO CHECK u
    CREATE TABLE v (i int, f float, d double, c varchar(30), b blob, dd date, e decimal)
    INSERT INTO v VALUES 7.9, 1, 2, 3, '0aFF', 20200229, 1.5
    INSERT INTO v SET c = 1.5, e = 12
    INSERT INTO v SET b = 5 => 150001
    INSERT INTO v SET b = 'xy' => 113013
    INSERT INTO v SET dd = '2020-02-29' => 113011
    INSERT INTO v SET i = 3000000000.0 => 113002
    INSERT INTO v SET i = 1 / 0 => 151001
    INSERT INTO v SET i = COUNT(*) => 150004
    SELECT * FROM v => 7,1,2,3,0aff,20200229,1.500000e+00;-,-,-,1.500000e+00,-,-,12
    CREATE TABLE w (id int AUTO_INCREMENT, n int) AUTO_INCREMENT_INIT = 10, AUTO_INCREMENT_STEP = 5
    INSERT INTO w (n) VALUES 1, 2; INSERT INTO w VALUES 100, 3, 0, 4
    REOPEN; BEGIN TRANSACTION; INSERT INTO w (n) VALUES 5; ROLLBACK TRANSACTION
    INSERT INTO w (n) VALUES 6; SELECT id, n FROM w => 10,1;15,2;100,3;20,4;25,6
    CREATE UNIQUE INDEX wn ON w (n); BEGIN WORK; EMPTY w; ROLLBACK WORK; SELECT COUNT(*) FROM w => 5
    EMPTY w; INSERT INTO w (n) VALUES 6; SELECT id, n FROM w => 30,6
    INSERT INTO w (n) VALUES 6 => 143001)");
  std::string too_long = "INSERT INTO t VALUES 1, 'x'";
  for (int i = 0; i < 1000; ++i) too_long += ", 1, 'x'";
  EXPECT_EQ(db.run(too_long), 110002) << "more than the pool of a statement holds";
  script(R"(
    SELECT COUNT(*) FROM t => 4
    INSERT INTO t VALUES 1, 'x')");
}

TEST_F(Sql, Transactions) {
  script(R"(
    CREATE TABLE t (a int); CREATE UNIQUE INDEX ta ON t (a)
    BEGIN TRANSACTION; INSERT INTO t VALUES 1, 2
    INSERT INTO t VALUES 3, 4, 3 => 143001
    SELECT a FROM t => 1;2;3;4
    INFO CHECK t
    DROP TABLE t; CREATE TABLE t (b int); ROLLBACK WORK
    SELECT a FROM t =>
    SET HVI_AUTO_COMMIT 'OFF'; INSERT INTO t VALUES 5, 6
    INSERT INTO t VALUES 7, 5 => 143001
    BEGIN WORK
    INSERT INTO t VALUES 8; ROLLBACK WORK
    REOPEN; SELECT a FROM t => 5;6;7
    INFO CHECK t)");
}

TEST_F(Sql, Queries) {
  script(R"(
    CREATE TABLE a (n int, s char(4)); CREATE TABLE b (n int, m int)
    INSERT INTO a VALUES 2,'two', 1,'one', 3,NULL; INSERT INTO b VALUES 1,10, 2,20, 2,21
    SELECT COUNT(*) FROM a, b, a c => 27
    SELECT a.n, m FROM a, b WHERE a.n = b.n ORDER BY a.n, m DESC => 1,10;2,21;2,20
    SELECT n FROM a WHERE s IS NULL OR s LIKE 't%' => 2;3
    SELECT n FROM a ORDER BY n, n => error 161001
    SELECT n FROM a ORDER BY zzz => error 150008
    SELECT n FROM a WHERE s + 1 = 2 => error 150005
    CREATE TABLE t (g int, v int, d double, s char(3)); CREATE TABLE none (v int)
    INSERT INTO t VALUES 1,5,0.5,'x', 2,NULL,1.5,'y', 1,7,NULL,'x', 2,1,2.0,NULL
    SELECT COUNT(*), COUNT(v), SUM(v), MIN(v), MAX(v), AVG(v) FROM t => 4,3,13,1,7,4.33333
    SELECT SUM(v) + COUNT(*), g FROM t => 17,-
    SELECT COUNT(DISTINCT g) FROM t => error 172019
    SELECT MAX(s) FROM t => error 153001
    SELECT g FROM t WHERE COUNT(*) > 1 => error 150004
    SELECT DISTINCT COUNT(*) FROM t ORDER BY g => 4
    SELECT NVL(SUM(v), 'no value'), NVL(MAX(d), 7) FROM none, t => no value,7
    SELECT NVL(s, v), NVL(v, 0.5) FROM t => x,5;y,0.5;x,7;1,1
    SELECT DISTINCT NVL(v, 0.5), NVL(NVL(NULL, s), 1) FROM t => 5,x;0.5,y;7,x;1,1
    SELECT DISTINCT NVL(-SUBSTR(s, 2), NVL(s, g)) FROM t => error 150005
    SELECT DISTINCT NVL(s, g) FROM t => x;y;2
    SELECT SUM(NVL(v, 0.5)), MIN(NVL(v, 0.5)), SUM(d), MAX(d) FROM t => 13.5,0.5,4,2
    SELECT LENGTH(NVL(s, 'none')), LENGTH(NVL(s, v)) FROM t WHERE g = 1 => 1,1;1,1
    SELECT LENGTH(NVL(s, v)) FROM t => error 153001
    SELECT g FROM t WHERE REPLACE('abc', NVL(s, g), 'b') = 'Q' => error 153002)");
}

TEST_F(Sql, Groups) {
  script(R"(
    CREATE TABLE t (g int, s char(4), v int, d double, x text(1, 4, 8), b blob, m date)
    SELECT g, COUNT(*) FROM t GROUP BY g =>
    SELECT g, COUNT(*), SUM(v), 1 FROM t HAVING COUNT(*) = 0 => -,0,-,-
    INSERT INTO t VALUES 2,'b',5,0.0,'a text of many chunks','00ff','20240101', NULL,'a',7,1.5,'other','00fe','20240102'
    INSERT INTO t VALUES 2,'a',NULL,-0.0,'a text of many chunks','00ff','20240101', 1,NULL,1,NULL,NULL,NULL,NULL
    INSERT INTO t VALUES NULL,'b',9,1.5,'a text of many Chunks','00ff','20240101'
    SELECT g, COUNT(*), SUM(v), MAX(v) - MIN(v), AVG(v), v FROM t GROUP BY g => 2,2,5,0,5,-;-,2,16,2,8,-;1,1,1,0,1,-
    SELECT g FROM t GROUP BY t.g, g ORDER BY v, g DESC => 2;1;-
    SELECT DISTINCT COUNT(*) FROM t GROUP BY g ORDER BY g => 2;1
    SELECT DISTINCT NVL(g, 'none'), g * 10 + COUNT(*), 'x' FROM t GROUP BY g, s => 2,21,x;none,-,x;1,11,x
    SELECT * FROM t GROUP BY s, v HAVING s = 'a' ORDER BY v => -,a,-,-,-,-,-;-,a,7,-,-,-,-
    SELECT d, COUNT(*) FROM t GROUP BY d ORDER BY d => -,1;0,2;1.5,2
    SELECT x, b, m, COUNT(*) FROM t GROUP BY b, m, x ORDER BY x => -,-,-,1;a text of many Chunks,00ff,20240101,1;a text of many chunks,00ff,20240101,2;other,00fe,20240102,1
    SELECT s, SUM(v), COUNT(rowid) FROM t GROUP BY rowid, s HAVING SUM(v) > 5 AND rowid > 0 => a,7,1;b,9,1
    SELECT g FROM t GROUP BY g HAVING SUM(v) BETWEEN 2 AND 10 AND NVL(MAX(d), 9) < 9 => 2
    SELECT g FROM t GROUP BY g HAVING v = 1 OR v IS NULL AND g = 1 => 1
    SELECT 'x' FROM t HAVING 1 = 1 => -
    SELECT COUNT(DISTINCT v) FROM t GROUP BY g => error 172019
    SELECT g FROM t GROUP BY g HAVING COUNT(DISTINCT v) > 1 => error 172019
    SELECT g FROM t GROUP BY nothing => error 150008
    SELECT g FROM t GROUP BY g HAVING nothing = 1 => error 150008
    SELECT g FROM t GROUP BY g HAVING s = 1 + 1 => error 150003
    SELECT g FROM t WHERE MAX(v) > 1 GROUP BY g => error 150004
    SELECT g FROM t GROUP BY g HAVING MAX(SUM(v)) > 1 => error 150004
    SELECT g FROM t GROUP BY g HAVING 1 / (COUNT(*) - 1) > 1 => error 151001
    SELECT 1 / (COUNT(*) - 1) FROM t GROUP BY g => error 151001
    SELECT 1 / (COUNT(*) - 5) FROM t HAVING COUNT(*) <> 5 =>
    PREPARE SELECT 1 / (COUNT(*) - 5) FROM t; EXECUTE => 151001
    CLEAR; PREPARE SELECT g, COUNT(*) FROM t GROUP BY g HAVING COUNT(*) > 1 ORDER BY g; RENAME ATTR t.g AS h; EXECUTE => 150008
    RENAME ATTR t.h AS g; DELETE FROM t WHERE s = 'a'; EXECUTE; REST =>
    CLEAR; PREPARE SELECT s, COUNT(*) FROM t GROUP BY s; EXECUTE; DROP TABLE t; REST => b,2;-,1)");
}

class SqlSmallArea : public Sql {
 protected:
  SqlSmallArea() : Sql("HVI_TMP_BUF_SIZE=8000") {}
};

// A group takes its key, its accumulators and little more, and a million rows of few groups no more than one;
// all rows as one group take none.
TEST_F(SqlSmallArea, HoldsGroupsNotRows) {
  script(R"(
    CREATE TABLE n (i int); INSERT INTO n VALUES 0, 1, 2, 3, 4, 5, 6, 7, 8, 9; CREATE TABLE t (i int, s char(9))
    SELECT a.i, COUNT(*), SUM(b.i), MAX('' || '') FROM n a, n b GROUP BY a.i => error 153001
    SELECT b.i, COUNT(*), SUM(a.i) FROM n a, n b, n c, n d, n e, n f GROUP BY b.i HAVING b.i > 7 => 8,100000,450000;9,100000,450000
    SELECT COUNT(*) FROM n a, n b GROUP BY a.i, b.i HAVING a.i = 9 AND b.i = 9 => 1
    SELECT COUNT(*) FROM n a, n b, n c GROUP BY a.i, b.i, c.i => error 143101
    SELECT COUNT(*) FROM n a, n b, n c => 1000
    INSERT INTO t VALUES 1, 'x'
    SELECT COUNT(*) FROM n a, n b, n c WHERE a.i = b.i + 5 => 50
    SELECT COUNT(*) FROM n a, n b, n c, n d WHERE b.i = c.i + 5 AND d.i < 2 => 100
    CREATE INDEX ni ON n (i); SELECT a.i, c.i FROM n a, t, n c, n d WHERE t.i = a.i AND c.i = t.i AND d.i = c.i => 1,1
    SELECT DISTINCT a.i, t.s FROM n a, n b, n c, t WHERE c.i < 2 AND a.i > 7 ORDER BY a.i DESC, b.i => 9,x;8,x
    PREPARE SELECT b.i, a.i, t.s FROM n a, n b, n c, t WHERE c.i < 2 ORDER BY b.i DESC, a.i; EXECUTE; FETCH => 9,0,x
    SELECT DISTINCT a.i - b.i FROM n a, n b GROUP BY a.i, b.i HAVING a.i = 9 AND b.i > 7 => 1;0)");
}

// Each expression over a row of values and over one of NULL; an unknown condition is -1.
TEST_F(Sql, ExpressionsReadColumnsOfEveryType) {
  script(R"(
    CREATE TABLE t (i int, b bigint, d double, f float, c char(10), v varchar(2), x text, y blob, dd date, tt time, m microtimestamp)
    INSERT INTO t VALUES 7, -5, 1.5, 0.1, 'abc', '12', 'some text that leaves the record', '610062', '20200102', '20200102030405', '20200102030405000006'
    INSERT INTO t SET i = 8)");
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
  // A name without a table is the first table's; an alias comes before a name.
  script(R"(
    CREATE TABLE u (i int, b int); INSERT INTO u VALUES 70, 71
    SELECT i, w.i, u.b FROM t, u w WHERE b IS NULL => 8,70,71
    SELECT t.i FROM t x, u t WHERE x.i = 7 => 70)");
}

// What a thread changes after its query was prepared, executed or fetched once; the model of queries does
// most of it.
TEST_F(Sql, OpenQueriesMeetTheChangesOfTheirThread) {
  script(R"(
    CREATE TABLE t (a int, b int); INSERT INTO t VALUES 1,0, 1,1, 1,2
    PREPARE SELECT b FROM t; RENAME ATTR t.b AS c; EXECUTE => 150008
    CLEAR; PREPARE SELECT c FROM t; EXECUTE; FETCH => 0
    RENAME ATTR t.c AS b; INSERT INTO t VALUES 2,3; REST => 1;2;3
    CLEAR; PREPARE SELECT x.b * 10 + y.b FROM t x, t y WHERE x.b < 2; EXECUTE; FETCH => 0
    DELETE FROM t WHERE b = 0; REST => 11;12;13
    CLEAR; PREPARE SELECT b, a FROM t WHERE a < 9 ORDER BY b; EXECUTE; FETCH => 1,1
    UPDATE t SET a = 9 WHERE b = 2; REST => 3,2
    UPDATE t SET a = 1 WHERE b = 2; CREATE INDEX tb ON t (b); CLEAR; PREPARE SELECT x.b, y.b FROM t x, t y WHERE x.b = y.b; EXECUTE; FETCH => 1,1
    DROP INDEX tb; CREATE TABLE u (c int); CREATE INDEX uc ON u (c); INSERT INTO u VALUES 2, 3; REST => 2,2;3,3
    CLEAR; PREPARE SELECT DISTINCT b FROM t; EXECUTE; FETCH => 1
    DELETE FROM t WHERE b = 3; REST => 2;3
    CLEAR; PREPARE SELECT COUNT(*) FROM t; EXECUTE; DROP TABLE t; REST => 2)");
}

// What SQLite does not have, or has otherwise; the rest is compared with it.
TEST_F(Sql, Subqueries) {
  script(R"(
    CREATE TABLE t (a int, d date, m microtimestamp, b blob, s varchar(3))
    INSERT INTO t VALUES 1,'20200101','20200101120000','00ff','x', 2,'20200102','20200102120000','41','y', 3,'','','','y'
    SELECT a FROM t WHERE a = (SELECT a FROM t WHERE s = 'y') => error 172008
    SELECT a FROM t WHERE s = (SELECT DISTINCT s FROM t WHERE a > 1) => 2;3
    SELECT a FROM t WHERE s = (SELECT s FROM t x WHERE x.a >= t.a) => error 172008
    SELECT a FROM t WHERE a IN (SELECT a, s FROM t) => error 172008
    SELECT a FROM t WHERE a < ANY (SELECT * FROM t) => error 172008
    SELECT a FROM t WHERE a IN (SELECT s FROM t) => error 150003
    SELECT a FROM t WHERE a IN (SELECT x.nothing FROM t x) => error 150008
    SELECT a FROM t WHERE a IN (SELECT a FROM nowhere) => error 141004
    SELECT a FROM t WHERE a > ALL (SELECT COUNT(DISTINCT a) FROM t) => error 172019
    SELECT a FROM t WHERE a = 1 OR 1 = (SELECT 1 / 0 FROM t) => error 151001
    SELECT a FROM t WHERE a > 3 AND 1 = (SELECT 1 / 0 FROM t) =>
    SELECT COUNT(*) > ALL (SELECT a - 1 FROM t) AS x FROM t => 1
    SELECT s FROM t GROUP BY s HAVING EXISTS (SELECT 1 FROM t u WHERE u.s = t.s) => error 172019
    SELECT a IN (SELECT x.a FROM t x WHERE x.s = t.s AND x.a > 2) AS x FROM t => 0;0;1
    DELETE FROM t WHERE a = (SELECT a FROM t) => 172008
    SELECT a FROM t WHERE m IN (SELECT d FROM t) => 1;2
    SELECT a FROM t WHERE d NOT IN (SELECT m FROM t WHERE a = 1) => 2
    SELECT a FROM t WHERE b >= ANY (SELECT b FROM t WHERE a < 3) => 1;2
    SELECT a FROM t WHERE a = ANY (SELECT NVL(a - 1, s) FROM t) => 1;2
    SELECT a FROM t WHERE s IN (SELECT NVL(SUBSTR('x', x.a), x.a) FROM t x WHERE x.a = 1) => 1
    SELECT a FROM t WHERE EXISTS (SELECT 1 / 0 FROM t) AND a < 2 => 1
    CREATE TABLE n (x int); CREATE TABLE none (x int); INSERT INTO n VALUES 1, 2, 3, 4, 5, 6, 7, 8, 9
    SELECT COUNT(*) FROM n p, n q, n r, n s WHERE q.x = (SELECT MAX(y.x) FROM n y WHERE y.x < p.x AND 'a' || 'b' = 'ab') => 648
    SELECT COUNT(*) FROM n p, n q, n r, n s WHERE 5 > ALL (SELECT COUNT(*) FROM none y) => 6561
    CREATE TABLE w (a bigint, s varchar(9), d date); INSERT INTO w VALUES 3000000000,'xyz9',NULL, 2,'y','20200101', NULL,'x',''
    CREATE INDEX ta ON t (a); CREATE (1, 4) INDEX ts ON t (s); CREATE (1, 4) INDEX td ON t (d)
    SELECT s FROM w WHERE EXISTS (SELECT 1 FROM t WHERE t.a = w.a) => y
    SELECT s FROM w WHERE NOT EXISTS (SELECT 1 FROM t WHERE t.a <= w.a) => x
    SELECT s FROM w WHERE 0 = (SELECT COUNT(*) FROM t WHERE t.s = w.s) => xyz9
    SELECT s, a FROM w WHERE 2 = (SELECT COUNT(*) FROM t WHERE t.s >= w.s AND t.a > 1) => xyz9,3000000000;y,2;x,-
    SELECT s FROM w WHERE 1 IN (SELECT a FROM t WHERE w.d = t.d) => y
    SELECT a FROM t WHERE EXISTS (SELECT 1 FROM t u WHERE u.rowid = t.rowid AND u.a > 1) => 2;3
    DROP INDEX ta; DROP INDEX ts; DROP INDEX td
    PREPARE SELECT x FROM n WHERE x IN (SELECT a FROM t); RENAME ATTR t.a AS c; EXECUTE => 150008
    CLEAR; PREPARE SELECT x FROM n WHERE x IN (SELECT c FROM t); CREATE INDEX tc ON t (c); EXECUTE; FETCH => 1
    DELETE FROM t WHERE c = 2; REST => 2;3
    CLEAR; PREPARE SELECT x FROM n WHERE EXISTS (SELECT 1 FROM t WHERE c = n.x); EXECUTE; FETCH => 1
    DROP INDEX tc; REST => 3
    CLEAR; PREPARE SELECT x FROM n WHERE EXISTS (SELECT 1 FROM t WHERE c = n.x); EXECUTE; FETCH => 1
    DROP TABLE t; REST => 141004)");
  for (const std::string item :
       {"1 IN (SELECT x FROM n)", "1 > ALL (SELECT x FROM n)", "EXISTS (SELECT x FROM n)"})
    EXPECT_EQ(db.rows("TEST_STMT " + item + " AS x"), item[0] == '1' ? "error 150003" : "error 50010")
        << item;
}

class SqlZone : public Sql {
 protected:
  SqlZone() : Sql((setenv("TZ", "CET-1CEST,M3.5.0,M10.5.0/3", 1), "")) {}
  ~SqlZone() override { unsetenv("TZ"); }
};

// Local times that are skipped or repeated when clocks change, and rows of both passes of the repeated hour.
TEST_F(SqlZone, IndexAccessGivesWhatAScanGivesWhenClocksChange) {
  const std::string days[] = {"20210328", "20211031"}, columns[] = {"m", "s"};
  for (const std::string table : {"scan", "idx"}) {
    script("CREATE TABLE " + table + " (m microtimestamp, s time)");
    for (const std::string &day : days)
      for (const std::string gmt : {"'ON'", "'OFF'"}) {
        std::string values;
        for (const char *clock : {"003000", "005959", "010000", "013000", "020000", "023000", "030000"})
          for (int column = 0; column < 2; ++column)
            values += (values.empty() ? "'" : ", '") + day + clock + "'";
        script("SET HVI_GMT_TIME " + gmt + "\nINSERT INTO " + table + " VALUES " + values);
      }
  }
  for (const std::string &column : columns) {
    script("CREATE (1, 4) INDEX i" + column + column + " ON idx (" + column + ")");
    for (const std::string &day : days)
      for (const char *clock : {"015959", "020000", "023000", "025959", "030000", "033000"})
        for (const std::string op : {" = ", " < ", " <= ", " > ", " >= "}) {
          const std::string where = " WHERE " + column + op + "'" + day + clock + "' ORDER BY m, s";
          EXPECT_EQ(db.rows("SELECT * FROM idx" + where), db.rows("SELECT * FROM scan" + where)) << where;
        }
  }
  EXPECT_NE(db.rows("SELECT * FROM idx WHERE m = '20211031023000'"), "");
}

// Literals of other types than their columns', and lists; random conditions are the model's.
TEST_F(Sql, IndexAccessGivesWhatAScanGives) {
  script(R"(
    CREATE TABLE scan (k int, a int, b int, c char(6), d date, f float, n bigint)
    CREATE TABLE idx (k int, a int, b int, c char(6), d date, f float, n bigint)
    CREATE INDEX ia ON idx (a); CREATE INDEX iab ON idx (a, b); CREATE INDEX ic ON idx (c)
    CREATE (1, 0) INDEX id ON idx (d); CREATE INDEX if1 ON idx (f); CREATE INDEX in1 ON idx (n))");
  const char *const texts[] = {"bbb", "aaa", "cc", "aa"};
  std::string rows = "0, NULL, NULL, NULL, NULL, NULL, NULL";
  for (int k = 1; k < 80; ++k) {
    char row[120];
    snprintf(row, sizeof row, ", %d, %d, %d, '%s', '2020010%d', 0.%d, 9007199254740990 + %d", k,
             k * 7 % 12 - 3, k % 5, texts[k % 4], k % 9 + 1, k % 4, k % 5);
    rows += row;
  }
  for (const std::string table : {"scan", "idx"}) script("INSERT INTO " + table + " VALUES " + rows);
  for (const std::string &condition :
       parts("a = '3'; a = 2.5; a > 2.5; a = NULL; a IN (5, NULL, 1, 5); a IN (2.5, 3); a NOT IN (5, 1);"
             "a NOT BETWEEN 1 AND 3; a BETWEEN 3 AND 1; b = 3 AND a = 2; a = 2 AND b > 1; a = 2 OR b = 3; c "
             "LIKE 'a%';"
             "c = '\377bbbbb'; c < '\377bbbbb'; d = '20200103235959'; d > '20200105000001'; d >= "
             "'20200105000001';"
             "d <= 20200104; d IN ('20200101', '20200109'); f = 0.1; f = 0.10000001; f < 0.10000001; f >= "
             "0.29999999;"
             "n = 9007199254740992.0; n > 9007199254740992.0; n = 9007199254740991.0; a IN (-2, 4, -3, NULL, "
             "-2);"
             "a > -2 AND a < 5; a <= 6 AND k > 9 AND a >= 3; c < 'bb' AND c > 'a'; a < 4 AND a > NULL; "
             "a > 0 AND a < 3000000000; a >= 3 AND a <= 2; d > '20200102' AND d < '20200104120000'; "
             "a BETWEEN -3 EXCLUSIVE AND -1; a BETWEEN 1 AND 4 EXCLUSIVE; a = -1 AND b = 2")) {
    const std::string expected = db.rows("SELECT k FROM scan WHERE " + condition);
    EXPECT_FALSE(expected.starts_with("error")) << condition << ": " << expected;
    EXPECT_EQ(db.rows("SELECT k FROM idx WHERE " + condition + " ORDER BY k"), expected) << condition;
  }
  for (const std::string &condition :
       parts("i.a = o.b; o.b = i.a AND i.b < 3; i.c = o.c AND o.k < 9; i.d = o.d AND i.k > o.k; i.n = o.a; "
             "i.f = o.f; i.b = o.b AND i.a = o.n; i.a = o.a AND i.k = 5; i.a = o.a OR i.k = o.k")) {
    const auto rows = [&](const std::string &inner) {
      return db.rows("SELECT o.k, i.k FROM scan o, " + inner + " i WHERE " + condition);
    };
    EXPECT_EQ(rows("idx"), rows("scan")) << condition;
  }
  script(R"(
    SELECT k FROM idx WHERE a = 3000000000 => error 113002
    SELECT k FROM idx WHERE c < 'longer than c' => error 113003
    INFO CHECK idx)");
}

TEST_F(Sql, ThePlanSaysWhichAccessIsUsed) {
  script(R"(
    CREATE TABLE t (a int, b int, c int); CREATE INDEX ta ON t (a); CREATE INDEX tbc ON t (c, b)
    SET HVI_QUERY_PLAN 'ON')");
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
      {"a > 1 AND b = 2 AND a <= 9", use("'ta' : 'a' \n        'ta' : 'a' bounded on both sides")},
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
  EXPECT_NE(db.printed("SELECT x.b FROM t x, t y WHERE y.c = x.b")
                .find(scan + "        't' by 'tbc' : 'c' for each row\n"),
            std::string::npos);
  // Of a subquery too, once.
  script("CREATE TABLE u (a int)\nINSERT INTO u VALUES 1, 2, 3");
  const std::string frame = "---- QUERY PLAN ----\nTABLE '", end = "--------------------\n";
  EXPECT_EQ(db.printed("SELECT a FROM u WHERE EXISTS (SELECT a FROM t WHERE c = u.a)"),
            frame + "u':\n" + scan + end + "          a\n" + frame + "t':\n" + scan + end);
  for (const std::string condition :
       {"a = u.a", "u.a = t.a", "b = u.a AND u.a = a", "a IN (SELECT a FROM u) AND a = u.a"})
    EXPECT_NE(db.printed("SELECT a FROM u WHERE EXISTS (SELECT a FROM t WHERE " + condition + ")")
                  .find(frame + "t':\n" + use("'ta' : 'a'") + end),
              std::string::npos)
        << condition;
}

class LongSql : public Sql {
 protected:
  LongSql() : Sql("HVI_SQL_BUF_SIZE=4000000") {}
};

TEST_F(LongSql, LongAndDeepConditionsTakeASmallStack) {
  script(R"(
    CREATE TABLE t (a int, s char(9)); CREATE INDEX ta ON t (a); INSERT INTO t VALUES 1,'x', 2,'y')");
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
      {repeated("a = 1 AND EXISTS (SELECT a FROM t WHERE ", 8) + "s LIKE 'x%'" + repeated(")", 8), "x"},
      {repeated("a = 1 AND EXISTS (SELECT a FROM t WHERE ", 10) + "1 = 1" + repeated(")", 10),
       "error 150004"},
      {"LENGTH(s" + repeated(" || 'z'", 5000) + ") = 5001", "x;y"},
  };
  for (const auto &[condition, expected] : cases) {
    std::string rows;
    on_small_stack([&] { rows = db.rows("SELECT s FROM t WHERE " + condition); });
    EXPECT_EQ(rows, expected) << condition.substr(0, 30);
  }
}

TEST_F(Sql, PrintsResultsInColumns) {
  const auto expect = [&](const std::vector<std::pair<const char *, const char *>> &cases) {
    for (const auto &[sql, printed] : cases) EXPECT_EQ(db.printed(sql), printed) << sql;
  };
  script(R"(
    CREATE TABLE t (n tinyint, c char(6), x text(4, 20, 20), b blob(5))
    INSERT INTO t VALUES 5, 'あい', '12345678', '01020304'
    INSERT INTO t (n) VALUES -7)");
  expect({
      {"SELECT n, c FROM t", "   n  c\n   5  あい\n  -7        \n"},
      {"SELECT b, n FROM t WHERE n = 5", "b         n\n01 02     5\n03 04  \n"},
      {"SELECT NVL(x, n), SQRT(n) AS r FROM t WHERE n < 0",
       "NVL(x, n)                                 r\n"
       "                  -7  nan                  \n"},
      {"SELECT NVL(b, c), n FROM t",
       "NVL(b, c)                n\n01 02 03 04              5\n                        -7\n"},
      {"SELECT NVL(b, '-') AS p, n FROM t",
       "p                        n\n01 02 03 04              5\n-                       -7\n"},
  });
  // Dates as their types show them; long values in pieces of whole characters beside blanks.
  script(R"(
    SET HVI_SQL_SEL_HDR 'OFF'
    SET HVI_SQL_SEL_SEP ','
    SET HVI_SQL_SEL_NUL_STR 'NULL'
    CREATE TABLE d (d date, m time, u microtimestamp, x text(12, 20, 20))
    INSERT INTO d VALUES '20200131', '20200131040506', '20200131040506000789', 'aあいうえおかきabc')");
  expect({
      {"SELECT c, n FROM t WHERE n = -7", "  NULL,  -7\n"},
      {"TEST_STMT 'a' || 'b', 1.5 * 2, 1.0e0 * 3", "ab,3.00,3.00000000000000e+00\n"},
      {"TEST_STMT SQRT(-1), NULL, '20200101' + 1 day", "nan,NULL,20200102000000000000\n"},
      {"ECHO 'hello'", "hello\n"},
      {"SELECT d, m, u, x FROM d",
       "20200131,20200131040506,20200131040506000789,aあいうえお\n"
       "        ,              ,                    ,かきabc\n"},
  });
}

TEST_F(Sql, DescribesTables) {
  script(R"(
    CREATE TABLE t (id int AUTO_INCREMENT, c char(7) NOT NULL, x text(1,2,9), y text(1,4,4), e decimal(5,2))
    CREATE INDEX i ON t (c, id)
    INSERT INTO t (c) VALUES 'a', 'b')");
  EXPECT_EQ(db.printed("DESC t"),
            "***  Table: t  ***\n\n  Attributes:\n"
            "    id                                int  Not Null  Auto Increment\n"
            "    c                                 char(7)  Not Null\n"
            "    x                                 text(1,2,9)\n"
            "    y                                 text(1,4,20)\n"
            "    e                                 decimal(5,2)\n");
  const std::string all = db.printed("DESC t ALL");
  for (const char *line : {"\n  Indices:     UNIQUE BTREE __auto_inc__", "  Auto incremnet next :      3\n",
                           "\n               NORMAL (2) BTREE i ON (c, id)\n"})
    EXPECT_NE(all.find(line), std::string::npos) << all;
  for (const std::string what :
       {"par", "bm", "bm flst", "bm trn", "cm", "tm", "lm", "bt", "bt t", "row _sys", "row t"})
    EXPECT_NE(db.printed("INFO " + what), "") << what;
}

// A commit that waits for a reader has its record written and lets nobody in: that is when one wants to look.
TEST_F(Sql, ShowsTheStorageLayerWhileNobodyMayRead) {
  script(R"(
    CREATE TABLE t (a int); SET HVI_LOCK_RETRY '10000'; SET HVI_LOCK_SLEEP '1'; REOPEN)");
  EXPECT_EQ(db.session().prepare("SELECT a FROM t"), 0);
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

}  // namespace
}  // namespace tovik::test
