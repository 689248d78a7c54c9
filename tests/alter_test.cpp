// ALTER TABLE: what it makes of columns, rows, indices and counters, on every kind of storage, and whom it
// meets. Crashes, failures and threads are the matter of the tests that every change goes through.
#include "api_support.h"
#include "platform/platform.h"

namespace tovik::test {
namespace {

class Alter : public Script, public testing::WithParamInterface<const char *> {
 protected:
  Alter() : Script("", GetParam()) {}
};

TEST_P(Alter, Columns) {
  script(R"(
    CREATE TABLE t (a int, b char(4), c text, d blob(20, 4, 9))
    ALTER TABLE nothing ADD x int => 141004
    ALTER TABLE t CHANGE a bigint => 172019
    ALTER TABLE t DELETE t.a => 70002
    ALTER TABLE t DELETE x => 172023
    ALTER TABLE t DELETE rowid => 172023
    ALTER TABLE t DELETE a, a => 172024
    ALTER TABLE t DELETE a DELETE a => 172024
    ALTER TABLE t DELETE a, b, c, d => 172020
    ALTER TABLE t ADD a int => 172022
    ALTER TABLE t DELETE a ADD a int => 172022
    ALTER TABLE t ADD x int BEFORE y => 172021
    ALTER TABLE t DELETE b ADD x int BEFORE b => 172021
    ALTER TABLE t ADD ROWID int => 142004
    ALTER TABLE t SET AUTO_INCREMENT_INIT = 5 => 172016
    ALTER TABLE t SET AUTO_INCREMENT_INIT = 0 => 172017
    ALTER TABLE t SET AUTO_INCREMENT_STEP = 65536 => 172018
    ALTER TABLE t SET colour = 'red'; ALTER TABLE t ADD n int NOT NULL; ALTER TABLE t DELETE n
    INSERT INTO t VALUES 1,'one','a text that is longer than what its record keeps of it','0102030405060708090a0b0c0d0e0f', 2,NULL,'short',NULL, 3,'tri',NULL,'01'
    ALTER TABLE t ADD n int NOT NULL => 143002
    ALTER TABLE t ADD x int BEFORE a, y text, z BEFORE x DELETE b
    SELECT * FROM t WHERE a = 1 => -,-,1,a text that is longer than what its record keeps of it,0102030405060708090a0b0c0d0e0f,-
    UPDATE t SET a = NULL, c = NULL WHERE a = 2; UPDATE t SET y = c WHERE a = 1; ALTER TABLE t DELETE x, c, z
    SELECT * FROM t => 1,0102030405060708090a0b0c0d0e0f,a text that is longer than what its record keeps of it;-,-,-;3,01,-
    INSERT INTO t VALUES 4,'04','four'; REOPEN; INFO CHECK t; SELECT a FROM t => 1;-;3;4
    ALTER TABLE t DELETE d, y; ALTER TABLE t ADD b tinyint BEFORE a; SELECT * FROM t => -,1;-,-;-,3;-,4)");
  std::string columns = "c0 int";
  for (int i = 1; i < 199; ++i) columns += ", c" + std::to_string(i) + " int";
  EXPECT_EQ(db.run("ALTER TABLE t ADD " + columns), 172003);
  EXPECT_EQ(db.run("ALTER TABLE t DELETE b ADD " + columns), 0);
}

TEST_P(Alter, IndicesAndCounters) {
  script(R"(
    CREATE TABLE t (a int, b int, c char(4)); INSERT INTO t VALUES 1,3,'x', 2,2,'y', 3,1,'z'
    CREATE UNIQUE INDEX ta ON t (a); CREATE (1, 5) TIMESERIES INDEX tcb ON t (c, b)
    ALTER TABLE t DELETE b => 145004
    ALTER TABLE t ADD x int BEFORE a; INSERT INTO t (a) VALUES 1 => 143001
    INFO CHECK t; SELECT a FROM t WHERE c = 'y' AND b = 2 => 2
    DROP INDEX tcb; ALTER TABLE t DELETE b; CREATE INDEX tcb ON t (c)
    ALTER TABLE t ADD id smallint AUTO_INCREMENT BEFORE a; SELECT id, a FROM t => 1,1;2,2;3,3
    INSERT INTO t (a) VALUES 4; UPDATE t SET id = 7 WHERE a = 1; INSERT INTO t (id, a) VALUES 2, 5 => 143001
    ALTER TABLE t SET AUTO_INCREMENT_INIT = 40000 => 141007
    ALTER TABLE t ADD y int SET AUTO_INCREMENT_INIT = 0 => 172017
    ALTER TABLE t ADD id2 int AUTO_INCREMENT => 141005
    ALTER TABLE t DELETE x; INSERT INTO t (a) VALUES 6; SELECT id, a FROM t => 7,1;2,2;3,3;4,4;5,6
    ALTER TABLE t ADD y int SET AUTO_INCREMENT_INIT = 7, AUTO_INCREMENT_STEP = 9; INSERT INTO t (a) VALUES 7, 8
    SELECT id FROM t WHERE a > 6 => 8;9
    REOPEN; INFO CHECK t; ALTER TABLE t DELETE id; ALTER TABLE t SET AUTO_INCREMENT_INIT = 3 => 172016
    ALTER TABLE t ADD id bigint AUTO_INCREMENT SET AUTO_INCREMENT_INIT = 50; INSERT INTO t (a) VALUES 9
    SELECT id FROM t => 1;2;3;4;5;6;7;50
    ALTER TABLE t DELETE id ADD no tinyint AUTO_INCREMENT; INFO CHECK t; SELECT MAX(no) FROM t => 8
    INSERT INTO t (no, a) VALUES 1, 1 => 143001
    CREATE TABLE u (n int); INSERT INTO u VALUES 1)");
  std::string rows = "INSERT INTO u VALUES 0";
  for (int i = 0; i < 127; ++i) rows += ", 0";
  EXPECT_EQ(db.run(rows), 0);
  script(R"(
    ALTER TABLE u ADD no tinyint AUTO_INCREMENT => 113002
    SELECT COUNT(*) FROM u => 129)");
}

TEST_P(Alter, Transactions) {
  script(R"(
    CREATE TABLE t (a int, b text); CREATE UNIQUE INDEX ta ON t (a); INSERT INTO t VALUES 1,'one', 2,'two'
    PREPARE SELECT * FROM t; BEGIN TRANSACTION; ALTER TABLE t ADD x int BEFORE a; INSERT INTO t VALUES 0,3,'three'
    ALTER TABLE t DELETE b ADD y int, n int NOT NULL => 143002
    SELECT * FROM t => -,1,one;-,2,two;0,3,three
    INFO CHECK t; EXECUTE; REST => -,1,one;-,2,two;0,3,three
    CLEAR; ALTER TABLE t DELETE b; ROLLBACK TRANSACTION; SELECT * FROM t => 1,one;2,two
    INSERT INTO t VALUES 2,'again' => 143001
    PREPARE SELECT a FROM t; EXECUTE; FETCH => 1
    ALTER TABLE t ADD x int; REST => 141004
    CLEAR; BEGIN TRANSACTION; CREATE TABLE u (n int); INSERT INTO u VALUES 5; ALTER TABLE u ADD m int
    ALTER TABLE u DELETE n; COMMIT TRANSACTION; SELECT m FROM u => -
    SET HVI_AUTO_COMMIT 'OFF'; ALTER TABLE t ADD n int NOT NULL => 143002
    ALTER TABLE t DELETE b; REOPEN; INFO CHECK t; SELECT * FROM t => 1,-;2,-
    INSERT INTO t VALUES 2,0 => 143001
    SET HVI_AUTO_COMMIT 'ON'; PREPARE SELECT a FROM t; DROP TABLE t; EXECUTE => 141004
    CLEAR; SET HVI_TMP_DIR '/nowhere'; ALTER TABLE u ADD k int => 101
    SELECT * FROM u => -)");
}

INSTANTIATE_TEST_SUITE_P(Storages, Alter,
                         testing::Values("", "TYPE=MEMORY", "TYPE2=RAW;SIZE_DAT=900B;SIZE_TRN=900B",
                                         "BLOCK_SIZE=1024;CACHE_SIZE_DAT=6;CACHE_SIZE_TRN=6"));

// The failures of its calls are among those of FailureTest.
TEST(AlterTemporaryFile, HasTheModeOfTheDatabaseAndASizeOfItsOwn) {
  static const IoDriver files = file_driver;
  const SlotGuard<decltype(file_driver.file_open)> open(
      file_driver.file_open, [](const char *name, int flags, int mode, int number, int size) {
        EXPECT_EQ(mode, 0600) << "others may read what they may not read in the database";
        return files.file_open(name, flags, mode, number, size);
      });
  const Library library("HVI_SIZE_TMP=30B");
  TestDatabase db("TYPE=MEMORY;FILE_MODE=0600");
  ASSERT_EQ(db.run("CREATE TABLE t (a int AUTO_INCREMENT, c text)"), 0);
  for (int i = 0; i < 200; ++i)
    ASSERT_EQ(db.run("INSERT INTO t (c) VALUES '" + std::string(900, 'c') + "'"), 0);
  EXPECT_EQ(db.run("ALTER TABLE t ADD d int"), 21001);
  EXPECT_EQ(db.rows("SELECT COUNT(*), MAX(a) FROM t"), "200,200");
  expect_sound(db.printed("INFO CHECK t"));
}

}  // namespace
}  // namespace tovik::test
