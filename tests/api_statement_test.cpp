// The statement interface: states, argument codes, value conversion, column description.
#include <thread>
#include <vector>

#include "api_support.h"
#include "tovik.h"

using namespace tovik::test;

namespace {

TEST(Library, TellsThatItIsNotStarted) {
  EXPECT_EQ(kld_api_open_db("NAME=x"), nullptr);
  int32_t category = -1, sys_errno = -1;
  const char *text = nullptr;
  ASSERT_EQ(kld_api_get_error(&category, nullptr, &sys_errno, &text), 1);
  EXPECT_EQ(category, 2);
  EXPECT_EQ(std::string(text).rfind("Error:[USR-190010] ", 0), 0u) << text;
  EXPECT_EQ(kld_api_create_db("NAME=x") + kld_api_remove_db("NAME=x"), -2);
  kld_api_clear_error();
  EXPECT_EQ(kld_api_get_error(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(Library, StartsOnceAndStartsAfreshAfterItsEnd) {
  kld_api_end();  // nothing to end
  EXPECT_EQ(tovik_init("HVI_SQL_SEL_NUL_STR=first"), 0);
  EXPECT_EQ(kld_api_init("HVI_SQL_SEL_NUL_STR=second"), 0);
  TestDatabase db;
  EXPECT_EQ(db.printed("SHOW HVI_SQL_SEL_NUL_STR").find("second"), std::string::npos);
  db.close();
  tovik_end();
  EXPECT_EQ(tovik_init(std::string(488, ' ').c_str()), -1);
  EXPECT_EQ(tovik_geterr(), 112012);
  EXPECT_EQ(tovik_init(std::string(487, ' ').c_str()), 0);
  db.open();
  EXPECT_EQ(db.printed("SHOW HVI_SQL_SEL_NUL_STR").find("first"), std::string::npos);
  db.close();
  kld_api_end();
}

TEST(Library, TakesAllItsMemoryFromALimitedPool) {
  const Library library("HVI_MEM_LIMIT_SIZE=2");
  TestDatabase db("TYPE=MEMORY"), other("TYPE=MEMORY;NAME=u");
  const std::string table = "CREATE TABLE t (a int, b char(200))", row = "INSERT INTO t VALUES 1, 'x'";
  EXPECT_EQ(other.run(table) | db.run(table), 0);
  for (int i = 0; i < 100; ++i) EXPECT_EQ(other.run(row), 0);
  int rows = 0;
  while (rows < 20000 && db.run(row) == 0) ++rows;
  EXPECT_LT(rows, 20000) << "two megabytes held 20000 rows of 204 bytes";
  EXPECT_EQ(db.rows("SELECT COUNT(*) FROM t"), std::to_string(rows))
      << "readable, whatever became of the last";
  other.close();
  EXPECT_EQ(kld_api_remove_db(other.params().c_str()), 0);
  EXPECT_EQ(db.run(row), 0);
}

class StatementApi : public Script {
 protected:
  kld_stmt *stmt() { return db.session().statement(); }
  static void expect_failure(int result, int code) {
    EXPECT_EQ(result, -1) << "for " << code;
    EXPECT_EQ(error_code(), code);
  }
  // Stands on the first row of t.
  void fetch_one(const std::string &expression) {
    kld_api_clear_stmt(stmt());
    ASSERT_EQ(db.session().prepare("SELECT " + expression + " FROM t") | db.session().execute(), 0);
    ASSERT_EQ(kld_api_fetch_stmt(stmt()), 1);
  }
};

// What fails to execute stays prepared, without its hold for reading.
TEST_F(StatementApi, KeepsTheOrderOfThePreparedStyle) {
  script(R"(
    CREATE TABLE t (a int); INSERT INTO t VALUES 1, 2
    EXECUTE => 190013
    FETCH => 190013
    PREPARE SELECT a FROM t; PREPARE SELECT a FROM t => 190011
    FETCH => 190014
    READ => 190014
    EXECUTE; EXECUTE => 190012
    READ => 43010
    FETCH => 1
    FETCH => 2
    FETCH; FETCH; READ => 43010
    CLEAR; PREPARE SELECT DISTINCT SUM(1 / (a - 1)) FROM t; EXECUTE => 151001
    FETCH => 190014
    PREPARE SELECT a FROM t => 190011
    ELSEWHERE UPDATE t SET a = a; EXECUTE => 151001
    READ => 190014
    ELSEWHERE DELETE FROM t WHERE a = 1; EXECUTE; FETCH => 1
    CLEAR; PREPARE INSERT INTO t VALUES 3; EXECUTE => 190013)");
}

TEST_F(StatementApi, ChecksItsArguments) {
  script("CREATE TABLE t (a int, b int); INSERT INTO t VALUES NULL, 1");
  int32_t value = 7, not_null = 7, length = 7;
  for (const char *bad : {static_cast<const char *>(nullptr), ""}) {
    expect_failure(kld_api_exec_sql_char(stmt(), bad), 190002);
    expect_failure(kld_api_pre_stmt_char(stmt(), bad), 190002);
  }
  expect_failure(kld_api_exec_sql_wchar(stmt(), nullptr), 190002);
  EXPECT_EQ(kld_api_exec_sql_char(stmt(), " -- nothing"), 1);
  EXPECT_EQ(kld_api_exec_sql_char(stmt(), ";"), 0);
  fetch_one("a");
  expect_failure(kld_api_get_cols_count(stmt(), nullptr), 190002);
  for (int column : {0, 2, -1}) {
    expect_failure(kld_api_get_data(stmt(), column, 3, &value, 4, &length, &not_null), 190002);
    expect_failure(kld_api_get_cols_desc(stmt(), column, nullptr, 0, nullptr, nullptr, nullptr, nullptr),
                   190002);
  }
  expect_failure(kld_api_get_data(stmt(), 1, 3, nullptr, 4, &length, &not_null), 190004);
  expect_failure(kld_api_get_data(stmt(), 1, 3, &value, 0, &length, &not_null), 190005);
  expect_failure(kld_api_get_data(stmt(), 1, 3, &value, 4, &length, nullptr), 190007);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, &value, 4, &length, &not_null), 0);
  EXPECT_EQ(not_null, 0);
  EXPECT_EQ(value + length, 14) << "NULL leaves them as they are";
}

// The bytes of each type class that a buffer of just their size gets, and their length without a NUL; one
// byte less is refused, as is every other target. Which numbers these are is the record interface's concern.
TEST_F(StatementApi, ConvertsValuesIntoTheCallersBuffer) {
  script(R"(
    CREATE TABLE t (i bigint, f double, c char(10), b blob, m microtimestamp)
    INSERT INTO t VALUES 300, -2.75, 'aあ', '01AB', '20240229123456000789')");
  using namespace std::string_literals;
  const std::tuple<const char *, int, std::string, int> conversions[] = {
      {"i", TOVIK_INT32, "\x2C\1\0\0"s, 4},
      {"i", TOVIK_CHAR, "300\0"s, 3},
      {"f", TOVIK_DOUBLE, "\0\0\0\0\0\0\6\xC0"s, 8},
      {"f", TOVIK_CHAR, "-2.75\0"s, 5},
      {"SQRT(f)", TOVIK_CHAR, "nan\0"s, 3},
      {"c", TOVIK_CHAR, "aあ\0"s, 4},
      {"c", TOVIK_WCHAR, "a\0\x42\x30\0\0"s, 4},
      {"b", TOVIK_CHAR, "01ab\0"s, 2},
      {"b", TOVIK_BINARY, "\1\xAB"s, 2},
      {"m", TOVIK_CHAR, "20240229123456000789\0"s, 20},
      {"m", TOVIK_DATETIME, "\xE8\7\2\x1D\x0C\x22\x38\0\x15\3\0\0"s, 12},
  };
  char buffer[64];
  int32_t length = 0, not_null = 0;
  for (const auto &[column, target, bytes, expected_length] : conversions) {
    SCOPED_TRACE(std::string(column) + " as " + std::to_string(target));
    fetch_one(column);
    const int size = static_cast<int>(bytes.size());
    expect_failure(kld_api_get_data(stmt(), 1, target, buffer, size - 1, &length, &not_null), 190016);
    EXPECT_EQ(kld_api_get_data(stmt(), 1, target, buffer, size, &length, &not_null), 0);
    EXPECT_EQ(std::string(buffer, bytes.size()), bytes);
    EXPECT_EQ(length, expected_length);
  }
  const std::pair<const char *, int> refused[] = {{"i", TOVIK_DATETIME}, {"f", TOVIK_BINARY},
                                                  {"c", TOVIK_INT32},    {"b", TOVIK_INT8},
                                                  {"m", TOVIK_DOUBLE},   {"i", 11}};
  for (const auto &[column, target] : refused) {
    fetch_one(column);
    expect_failure(kld_api_get_data(stmt(), 1, target, buffer, sizeof buffer, nullptr, &not_null), 190017);
  }
}

TEST_F(StatementApi, DescribesTheColumnsOfAQuery) {
  script("CREATE TABLE t (i smallint NOT NULL, c varchar(33), d double, e decimal(5), t text, s time)");
  const char *const items = "SELECT i, c, d, e, t, s, i + 1, i * 2 AS twice, s + 1 day, NULL FROM t";
  ASSERT_EQ(db.session().prepare(items), 0);
  int32_t count = 0;
  ASSERT_EQ(kld_api_get_cols_count(stmt(), &count), 0);
  std::string description;
  for (int column = 1; column <= count; ++column) {
    char name[32], line[128];
    int32_t declared = -1, value = -1, size = -1, not_null = -1;
    ASSERT_EQ(kld_api_get_cols_desc(stmt(), column, name, sizeof name, &declared, &value, &size, &not_null),
              0);
    snprintf(line, sizeof line, "%s %x %x %d %d\n", name, declared, value, size, not_null);
    description += line;
  }
  EXPECT_EQ(description,
            "i 42 44 2 1\n"
            "c 20d 20c 33 0\n"
            "d 8a 8a 9 0\n"
            "e 20b 8a 5 0\n"
            "t 120e 20c 8 0\n"
            "s 80f 811 8 0\n"
            "EXPRESSION_1 44 44 0 0\n"
            "twice 44 44 0 0\n"
            "EXPRESSION_2 811 811 0 0\n"
            "EXPRESSION_3 0 0 0 0\n");
  char name[12];
  expect_failure(kld_api_get_cols_desc(stmt(), 7, name, 12, nullptr, nullptr, nullptr, nullptr), 190016);
}

TEST_F(StatementApi, TakesWideTexts) {
  const auto wide = [](const char16_t *text) { return reinterpret_cast<const uint16_t *>(text); };
  for (const char16_t *sql : {u"CREATE TABLE 表 (名 char(20))", u"INSERT INTO 表 VALUES '犬と猫'"})
    EXPECT_EQ(kld_api_exec_sql_wchar(stmt(), wide(sql)), 0) << error_code();
  EXPECT_EQ(kld_api_pre_stmt_wchar(stmt(), wide(u"SELECT 名 FROM 表")), 0) << error_code();
  kld_api_clear_stmt(stmt());
  EXPECT_EQ(db.rows("SELECT 名 FROM 表"), "犬と猫");
  expect_failure(kld_api_exec_sql_wchar(stmt(), wide(u"ECHO \xD800")), 301);
}

}  // namespace
