// The statement interface: states, argument codes, value conversion, column description.
#include <cstring>
#include <vector>

#include "api_support.h"
#include "tovik.h"

using namespace tovik::test;

namespace {

TEST(Library, RefusesDatabasesBeforeItIsStarted) {
  EXPECT_EQ(kld_api_open_db("NAME=x"), nullptr);
  int32_t category = -1, code = 0, sys_errno = -1;
  const char *text = nullptr;
  ASSERT_EQ(kld_api_get_error(&category, &code, &sys_errno, &text), 1);
  EXPECT_EQ(category, 2);
  EXPECT_EQ(code, 190010);
  EXPECT_EQ(std::string(text).rfind("Error:[USR-190010] ", 0), 0u) << text;
  EXPECT_EQ(kld_api_create_db("NAME=x"), -1);
  EXPECT_EQ(kld_api_remove_db("NAME=x"), -1);
  kld_api_clear_error();
  EXPECT_EQ(kld_api_get_error(nullptr, nullptr, nullptr, nullptr), 0);
}

TEST(Library, StartsOnceAndStartsAfreshAfterItsEnd) {
  kld_api_end();  // nothing to end
  EXPECT_EQ(tovik_init("HVI_SQL_SEL_NUL_STR=first"), 0);
  EXPECT_EQ(kld_api_init("HVI_SQL_SEL_NUL_STR=second"), 0);
  TestDatabase db;
  EXPECT_EQ(db.printed("SHOW HVI_SQL_SEL_NUL_STR").find("second"), std::string::npos);
  EXPECT_NE(db.printed("SHOW HVI_TRAN_FILE_REUSE").find("\"ON\""), std::string::npos);
  db.close();
  tovik_end();
  EXPECT_EQ(tovik_init(std::string(488, ' ').c_str()), -1);
  EXPECT_EQ(tovik_geterr(), 112012);
  EXPECT_EQ(tovik_init(std::string(487, ' ').c_str()), 0);
  tovik_end();
  EXPECT_EQ(kld_api_init(nullptr), 0);
  db.open();
  EXPECT_EQ(db.printed("SHOW HVI_SQL_SEL_NUL_STR").find("first"), std::string::npos);
  db.close();
  kld_api_end();
}

TEST(Library, TakesAllItsMemoryFromALimitedPool) {
  const Library library("HVI_MEM_LIMIT_SIZE=1");
  TestDatabase db("TYPE=MEMORY");
  EXPECT_EQ(db.run("CREATE TABLE t (a int, b char(200))"), 0);
  int code = 0;
  for (int i = 0; code == 0 && i < 20000; ++i) code = db.run("INSERT INTO t VALUES 1, 'x'");
  EXPECT_NE(code, 0) << "a megabyte held 20000 rows of 204 bytes";
}

class StatementApi : public testing::Test {
 protected:
  Library library;
  TestDatabase db;
  kld_stmt *stmt() { return db.session().statement(); }
};

TEST_F(StatementApi, ChecksHandlesAndArgumentsByPosition) {
  int32_t number = 0;
  char buffer[8];
  kld_stmt *not_a_statement = reinterpret_cast<kld_stmt *>(db.handle());
  EXPECT_EQ(kld_api_create_stmt(nullptr), nullptr);
  EXPECT_EQ(error_code(), 190001);
  EXPECT_EQ(kld_api_create_stmt(reinterpret_cast<kld_db *>(stmt())), nullptr);
  EXPECT_EQ(error_code(), 190001);
  for (kld_stmt *bad : {static_cast<kld_stmt *>(nullptr), not_a_statement}) {
    EXPECT_EQ(kld_api_exec_sql_char(bad, "ECHO 1"), -1);
    EXPECT_EQ(error_code(), 190001);
    EXPECT_EQ(kld_api_pre_stmt_char(bad, "ECHO 1"), -1);
    EXPECT_EQ(error_code(), 190001);
    EXPECT_EQ(kld_api_get_data(bad, 1, 3, buffer, 8, nullptr, &number), -1);
    EXPECT_EQ(error_code(), 190001);
    kld_api_clear_stmt(bad);
    kld_api_destroy_stmt(bad);
  }
  for (const char *bad : {static_cast<const char *>(nullptr), ""}) {
    EXPECT_EQ(kld_api_exec_sql_char(stmt(), bad), -1);
    EXPECT_EQ(error_code(), 190002);
    EXPECT_EQ(kld_api_pre_stmt_char(stmt(), bad), -1);
    EXPECT_EQ(error_code(), 190002);
  }
  EXPECT_EQ(kld_api_exec_sql_wchar(stmt(), nullptr), -1);
  EXPECT_EQ(error_code(), 190002);
  EXPECT_EQ(kld_api_get_cols_count(stmt(), nullptr), -1);
  EXPECT_EQ(error_code(), 190002);
  EXPECT_EQ(kld_api_exec_sql_char(stmt(), " \t "), 1);
  EXPECT_EQ(kld_api_exec_sql_char(stmt(), " -- nothing"), 1);
  EXPECT_EQ(kld_api_exec_sql_char(stmt(), ";"), 0);
}

TEST_F(StatementApi, KeepsTheOrderOfThePreparedStyle) {
  ASSERT_EQ(db.run("CREATE TABLE t (a int)"), 0);
  ASSERT_EQ(db.run("INSERT INTO t VALUES 1, 2"), 0);
  int32_t value = 0, not_null = 0, length = 0;
  EXPECT_EQ(kld_api_exec_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190013);
  EXPECT_EQ(kld_api_fetch_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190013);
  ASSERT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT a FROM t"), 0);
  EXPECT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT a FROM t"), -1);
  EXPECT_EQ(error_code(), 190011);
  EXPECT_EQ(kld_api_fetch_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190014);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, &value, 4, nullptr, &not_null), -1);
  EXPECT_EQ(error_code(), 190014);
  ASSERT_EQ(kld_api_exec_stmt(stmt()), 0);
  EXPECT_EQ(kld_api_exec_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190012);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, TOVIK_INT32, &value, 4, nullptr, &not_null), -1);
  EXPECT_EQ(error_code(), 43010) << "no row yet";
  for (int expected : {1, 2}) {
    ASSERT_EQ(kld_api_fetch_stmt(stmt()), 1);
    EXPECT_EQ(kld_api_get_data(stmt(), 1, TOVIK_INT32, &value, 4, &length, &not_null), 0);
    EXPECT_EQ(value, expected);
    EXPECT_EQ(length, 4);
    EXPECT_EQ(not_null, 1);
  }
  for (int i = 0; i < 2; ++i) EXPECT_EQ(kld_api_fetch_stmt(stmt()), 0) << "the end stays the end";
  EXPECT_EQ(kld_api_get_data(stmt(), 1, TOVIK_INT32, &value, 4, nullptr, &not_null), -1);
  EXPECT_EQ(error_code(), 43010);
  kld_api_clear_stmt(stmt());
  ASSERT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT DISTINCT SUM(1 / (a - 1)) FROM t"), 0);
  EXPECT_EQ(kld_api_exec_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 151001);
  EXPECT_EQ(kld_api_exec_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190013) << "a failed execution clears the statement";
  EXPECT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT nothing FROM t"), -1);
  EXPECT_EQ(error_code(), 150008);
  EXPECT_EQ(kld_api_pre_stmt_char(stmt(), "INSERT INTO t VALUES 3"), 0);
  EXPECT_EQ(kld_api_exec_stmt(stmt()), -1);
  EXPECT_EQ(error_code(), 190013);
  EXPECT_EQ(kld_api_pre_stmt_char(stmt(), "TEST_STMT 1 + 2"), 0);
  EXPECT_EQ(kld_api_exec_stmt(stmt()), 0);
  EXPECT_EQ(kld_api_fetch_stmt(stmt()), 1);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, TOVIK_INT32, &value, 4, nullptr, &not_null), 0);
  EXPECT_EQ(value, 3);
  EXPECT_EQ(kld_api_fetch_stmt(stmt()), 0);
}

TEST_F(StatementApi, ChecksTheArgumentsOfAValueRead) {
  ASSERT_EQ(db.run("CREATE TABLE t (a int, b int)"), 0);
  ASSERT_EQ(db.run("INSERT INTO t VALUES NULL, 1"), 0);
  int32_t value = 7, not_null = 7, length = 7;
  ASSERT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT a FROM t"), 0);
  ASSERT_EQ(kld_api_exec_stmt(stmt()), 0);
  ASSERT_EQ(kld_api_fetch_stmt(stmt()), 1);
  for (int column : {0, 2, -1}) {
    EXPECT_EQ(kld_api_get_data(stmt(), column, 3, &value, 4, &length, &not_null), -1);
    EXPECT_EQ(error_code(), 190002);
    EXPECT_EQ(kld_api_get_cols_desc(stmt(), column, nullptr, 0, nullptr, nullptr, nullptr, nullptr), -1);
    EXPECT_EQ(error_code(), 190002);
  }
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, nullptr, 4, &length, &not_null), -1);
  EXPECT_EQ(error_code(), 190004);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, &value, 0, &length, &not_null), -1);
  EXPECT_EQ(error_code(), 190005);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, &value, 4, &length, nullptr), -1);
  EXPECT_EQ(error_code(), 190007);
  EXPECT_EQ(kld_api_get_data(stmt(), 1, 3, &value, 4, &length, &not_null), 0);
  EXPECT_EQ(not_null, 0);
  EXPECT_EQ(value, 7);
  EXPECT_EQ(length, 7);
}

// One value of each type class, and what every target makes of it.
struct Conversion {
  const char *column;
  int target;
  std::vector<unsigned char> bytes;  // expected content of the buffer
  int length;
};

template <class T>
std::vector<unsigned char> bytes_of(T value) {
  std::vector<unsigned char> bytes(sizeof value);
  memcpy(bytes.data(), &value, sizeof value);
  return bytes;
}
std::vector<unsigned char> text(const char *characters) {
  return {characters, characters + strlen(characters) + 1};
}
std::vector<unsigned char> wide(std::initializer_list<uint16_t> units) {
  std::vector<unsigned char> bytes;
  for (uint16_t unit : units) {
    bytes.push_back(static_cast<unsigned char>(unit));
    bytes.push_back(static_cast<unsigned char>(unit >> 8));
  }
  return bytes;
}

TEST_F(StatementApi, ConvertsEveryTypeClassToEveryTarget) {
  ASSERT_EQ(
      db.run("CREATE TABLE t (i bigint, f double, c char(10), b blob, d date, s time, m microtimestamp)"), 0);
  ASSERT_EQ(db.run("INSERT INTO t VALUES 300, -2.75, 'aあ', '01AB', '20240229', '20240229123456', "
                   "'20240229123456000789'"),
            0)
      << error_code();
  const DateTimeRec date = {2024, 2, 29, 0, 0, 0, 0, 0};
  const DateTimeRec micro = {2024, 2, 29, 12, 34, 56, 0, 789};
  const std::vector<Conversion> conversions = {
      {"i", TOVIK_INT8, bytes_of(int8_t{44}), 1},
      {"i", TOVIK_INT16, bytes_of(int16_t{300}), 2},
      {"i", TOVIK_INT32, bytes_of(int32_t{300}), 4},
      {"i", TOVIK_INT64, bytes_of(int64_t{300}), 8},
      {"i", TOVIK_FLOAT, bytes_of(300.0f), 4},
      {"i", TOVIK_DOUBLE, bytes_of(300.0), 8},
      {"i", TOVIK_CHAR, text("300"), 3},
      {"i", TOVIK_WCHAR, wide({'3', '0', '0', 0}), 3},
      {"f", TOVIK_INT8, bytes_of(int8_t{-2}), 1},
      {"f", TOVIK_INT64, bytes_of(int64_t{-2}), 8},
      {"f", TOVIK_FLOAT, bytes_of(-2.75f), 4},
      {"f", TOVIK_DOUBLE, bytes_of(-2.75), 8},
      {"f", TOVIK_CHAR, text("-2.75"), 5},
      {"f", TOVIK_WCHAR, wide({'-', '2', '.', '7', '5', 0}), 5},
      {"c", TOVIK_CHAR, text("aあ"), 4},
      {"c", TOVIK_WCHAR, wide({'a', 0x3042, 0}), 4},
      {"b", TOVIK_CHAR, text("01ab"), 2},
      {"b", TOVIK_WCHAR, wide({'0', '1', 'a', 'b', 0}), 2},
      {"b", TOVIK_BINARY, {0x01, 0xAB}, 2},
      {"d", TOVIK_CHAR, text("20240229"), 8},
      {"d", TOVIK_DATETIME, bytes_of(date), 12},
      {"s", TOVIK_CHAR, text("20240229123456"), 14},
      {"m", TOVIK_CHAR, text("20240229123456000789"), 20},
      {"m", TOVIK_DATETIME, bytes_of(micro), 12},
  };
  for (const Conversion &conversion : conversions) {
    SCOPED_TRACE(std::string(conversion.column) + " as " + std::to_string(conversion.target));
    ASSERT_EQ(kld_api_pre_stmt_char(stmt(), (std::string("SELECT ") + conversion.column + " FROM t").c_str()),
              0);
    ASSERT_EQ(kld_api_exec_stmt(stmt()), 0);
    ASSERT_EQ(kld_api_fetch_stmt(stmt()), 1);
    const int size = static_cast<int>(conversion.bytes.size());
    std::vector<unsigned char> buffer(conversion.bytes.size(), 0xEE);
    int32_t length = 0, not_null = 0;
    if (size > 1) {
      EXPECT_EQ(kld_api_get_data(stmt(), 1, conversion.target, buffer.data(), size - 1, &length, &not_null),
                -1);
      EXPECT_EQ(error_code(), 190016);
    }
    EXPECT_EQ(kld_api_get_data(stmt(), 1, conversion.target, buffer.data(), size, &length, &not_null), 0);
    EXPECT_EQ(buffer, conversion.bytes);
    EXPECT_EQ(length, conversion.length);
    kld_api_clear_stmt(stmt());
  }
  const std::vector<std::pair<const char *, int>> refused = {{"i", TOVIK_DATETIME},
                                                             {"i", TOVIK_BINARY},
                                                             {"f", TOVIK_BINARY},
                                                             {"c", TOVIK_INT32},
                                                             {"c", TOVIK_BINARY},
                                                             {"b", TOVIK_INT8},
                                                             {"d", TOVIK_DOUBLE},
                                                             {"m", TOVIK_BINARY},
                                                             {"i", 0},
                                                             {"i", 11}};
  for (const auto &[column, target] : refused) {
    char buffer[64];
    int32_t not_null = 0;
    ASSERT_EQ(kld_api_pre_stmt_char(stmt(), (std::string("SELECT ") + column + " FROM t").c_str()), 0);
    ASSERT_EQ(kld_api_exec_stmt(stmt()), 0);
    ASSERT_EQ(kld_api_fetch_stmt(stmt()), 1);
    EXPECT_EQ(kld_api_get_data(stmt(), 1, target, buffer, sizeof buffer, nullptr, &not_null), -1);
    EXPECT_EQ(error_code(), 190017) << column << " as " << target;
    kld_api_clear_stmt(stmt());
  }
}

TEST_F(StatementApi, DescribesTheColumnsOfAQuery) {
  ASSERT_EQ(
      db.run("CREATE TABLE t (i smallint NOT NULL, c varchar(33), d double, e decimal(5), t text, s time)"),
      0);
  ASSERT_EQ(kld_api_pre_stmt_char(stmt(), "SELECT i, c, d, e, t, s, i + 1, i * 2 AS twice, d - 1 FROM t"), 0);
  int32_t count = 0;
  ASSERT_EQ(kld_api_get_cols_count(stmt(), &count), 0);
  ASSERT_EQ(count, 9);
  struct Expected {
    const char *name;
    int declared, value, size, not_null;
  };
  const Expected expected[] = {{"i", 0x42, 0x44, 2, 1},
                               {"c", 0x20d, 0x20c, 33, 0},
                               {"d", 0x8a, 0x8a, 9, 0},
                               {"e", 0x20b, 0x8a, 5, 0},
                               {"t", 0x120e, 0x20c, 8, 0},
                               {"s", 0x80f, 0x811, 8, 0},
                               {"EXPRESSION_1", 0x44, 0x44, 0, 0},
                               {"twice", 0x44, 0x44, 0, 0},
                               {"EXPRESSION_2", 0x8a, 0x8a, 0, 0}};
  for (int column = 1; column <= count; ++column) {
    const Expected &row = expected[column - 1];
    char name[32];
    int32_t declared = -1, value = -1, size = -1, not_null = -1;
    ASSERT_EQ(kld_api_get_cols_desc(stmt(), column, name, sizeof name, &declared, &value, &size, &not_null),
              0);
    EXPECT_STREQ(name, row.name);
    EXPECT_EQ(declared, row.declared) << name;
    EXPECT_EQ(value, row.value) << name;
    EXPECT_EQ(size, row.size) << name;
    EXPECT_EQ(not_null, row.not_null) << name;
  }
  char name[12];
  EXPECT_EQ(kld_api_get_cols_desc(stmt(), 7, name, 12, nullptr, nullptr, nullptr, nullptr), -1);
  EXPECT_EQ(error_code(), 190016);
}

TEST_F(StatementApi, TakesWideTexts) {
  const char16_t sql[] = u"CREATE TABLE 表 (名 char(20))";
  const char16_t insert[] = u"INSERT INTO 表 VALUES '犬と猫'";
  const char16_t select[] = u"SELECT 名 FROM 表";
  const char16_t broken[] = {u'E', u'C', u'H', u'O', u' ', 0xD800, 0};
  auto wide_of = [](const char16_t *text) { return reinterpret_cast<const uint16_t *>(text); };
  EXPECT_EQ(kld_api_exec_sql_wchar(stmt(), wide_of(sql)), 0) << error_code();
  EXPECT_EQ(kld_api_exec_sql_wchar(stmt(), wide_of(insert)), 0) << error_code();
  EXPECT_EQ(kld_api_pre_stmt_wchar(stmt(), wide_of(select)), 0) << error_code();
  kld_api_clear_stmt(stmt());
  EXPECT_EQ(db.rows("SELECT 名 FROM 表"), "犬と猫");
  EXPECT_EQ(kld_api_exec_sql_wchar(stmt(), wide_of(broken)), -1);
  EXPECT_EQ(error_code(), 301);
}

}  // namespace
