// The record interface: arguments, reads, texts, schema and transactions.
#include <set>
#include <sstream>
#include <thread>

#include "record_support.h"

namespace tovik::test {
namespace {

// ---- arguments ----

std::set<int> codes_met;

// GIVES(code) << call << call ...: every call, made after those before it, fails with code, or succeeds for
// 0.
class Gives {
 public:
  Gives(int line, int expected) : line_(line), expected_(expected) {}
  template <class Result>
  Gives &operator<<(Result result) {
    const int code = record_code(result);
    if (code != expected_) ADD_FAILURE_AT(__FILE__, line_) << "call " << call_ << " gives " << code;
    codes_met.insert(code);
    ++call_;
    return *this;
  }

 private:
  int line_, expected_, call_ = 1;
};
#define GIVES(expected) Gives(__LINE__, expected)

const std::string too_long_name(21, 'n'), too_long_column(42, 'c'), longest_column(41, 'c');
const char *const bad_columns[] = {nullptr, "", too_long_column.c_str()};

class Arguments : public testing::Test {
 protected:
  void SetUp() override {
    db.run({"CREATE TABLE t (a int, b char(20), l blob(20, 4, 20))", "INSERT INTO t VALUES 1, 'one', '01'"});
    tables[0] = "t";
    ASSERT_EQ(tovik_fetchcur(cursor = db.open_cursor("t")), 1);
  }
  void TearDown() override { tovik_closecur(cursor); }

  void conditions();
  void values();
  void schema();
  void cursors();
  void reads();

  RecordDatabase db;
  tovik_cur *cursor = nullptr;
  const char *tables[2] = {};
  tovik_cond cond, one;
  tovik_order order;
  tovik_colval value;
  char buffer[64];
  int32_t length;
};

void Arguments::conditions() {
  const int32_t number = 1;
  const DateTimeRec date = {2020, 1, 1, 0, 0, 0, 0, 0};
  const char *no_text = nullptr, *text = "x";
  const uint16_t *no_wide = nullptr, *xs = wide(u"x");
  GIVES(202129) << tovik_comp(nullptr, nullptr, 0, 0, nullptr) << tovik_comp_i8(nullptr, "a", TOVIK_EQ, 1)
                << tovik_comp_ctime(nullptr, "a", TOVIK_EQ, &date)
                << tovik_comp_char(nullptr, "a", TOVIK_EQ, text) << tovik_isnull(nullptr, "a")
                << tovik_isnotnull(nullptr, "a") << tovik_range(nullptr, "a", 3, &number, 1, &number, 1)
                << tovik_range_wchar(nullptr, "a", xs, 1, xs, 1) << tovik_compcol(nullptr, "a", TOVIK_EQ, "b")
                << tovik_and(nullptr, nullptr, nullptr) << tovik_or(nullptr, nullptr, nullptr)
                << tovik_not(nullptr, nullptr);
  GIVES(202131) << tovik_comp(&cond, "a", 100, 3, nullptr) << tovik_comp(&cond, "a", 108, 3, &number)
                << tovik_comp(&cond, "a", TOVIK_RANGE, 3, &number)
                << tovik_comp(&cond, "a", TOVIK_AND, 3, &number)
                << tovik_compcol(&cond, "a", TOVIK_LIKE, "b");
  GIVES(202132) << tovik_comp(&cond, "a", TOVIK_EQ, -1, &number)
                << tovik_comp(&cond, "a", TOVIK_EQ, 10, nullptr)
                << tovik_comp(&cond, "a", TOVIK_LT, 0, nullptr)
                << tovik_comp(&cond, "a", TOVIK_GE, 10, &number)
                << tovik_comp(&cond, "a", TOVIK_LIKE, 3, &number)
                << tovik_comp(&cond, "a", TOVIK_MATCH, 9, &date) << tovik_comp_i32(&cond, "a", TOVIK_LIKE, 1)
                << tovik_comp_double(&cond, "a", TOVIK_MATCH, 1)
                << tovik_range(&cond, "a", 0, &number, 1, &number, 1)
                << tovik_range(&cond, "a", 10, nullptr, 1, &number, 1);
  GIVES(0) << tovik_comp(&cond, "a", TOVIK_NE, 0, nullptr) << tovik_comp(&cond, "a", TOVIK_LIKE, 8, &xs);
  GIVES(202133) << tovik_comp(&cond, "a", TOVIK_GE, 9, nullptr)
                << tovik_comp(&cond, "a", TOVIK_LIKE, 7, &no_text)
                << tovik_comp_char(&cond, "a", TOVIK_EQ, nullptr)
                << tovik_comp_wchar(&cond, "a", TOVIK_MATCH, nullptr)
                << tovik_comp_ctime(&cond, "a", TOVIK_EQ, nullptr)
                << tovik_range(&cond, "a", 3, nullptr, 1, &number, 1)
                << tovik_range(&cond, "a", 3, &number, 1, nullptr, 1)
                << tovik_range(&cond, "a", 7, &text, 1, &no_text, 1)
                << tovik_range(&cond, "a", 8, &no_wide, 1, &xs, 1)
                << tovik_range_wchar(&cond, "a", xs, 1, nullptr, 1)
                << tovik_range_ctime(&cond, "a", nullptr, 1, &date, 1);
  GIVES(202113) << tovik_compcol(&cond, "a", TOVIK_LIKE, "");
  GIVES(0) << tovik_comp_i32(&one, "a", TOVIK_EQ, 1);
  GIVES(202134) << tovik_and(&cond, nullptr, nullptr) << tovik_or(&cond, nullptr, &one);
  GIVES(202135) << tovik_and(&cond, &one, nullptr);
  GIVES(202130) << tovik_not(&cond, nullptr);
  GIVES(202137) << tovik_sort(nullptr, 0);
  GIVES(202138) << tovik_sort(&order, 0) << tovik_sort(&order, 5, "a", 0, "a", 0, "a", 0, "a", 0, "a", 0);
  GIVES(0) << tovik_sort(&order, 2, "a", 0, longest_column.c_str(), 1);
  for (const char *bad : bad_columns)
    GIVES(202113) << tovik_comp(&cond, bad, 0, 99, nullptr) << tovik_comp_float(&cond, bad, TOVIK_EQ, 1)
                  << tovik_isnull(&cond, bad) << tovik_range_i64(&cond, bad, 1, 1, 2, 1)
                  << tovik_compcol(&cond, "a", TOVIK_EQ, bad) << tovik_compcol(&cond, bad, TOVIK_EQ, "a")
                  << tovik_sort(&order, 2, "a", 0, bad, 0);
}

void Arguments::values() {
  const int32_t number = 7;
  const char *text = "x", *no_text = nullptr;
  const tovik_bytes no_bytes = {nullptr, 1}, empty = {"x", 0};
  GIVES(202118) << tovik_setcol(nullptr, nullptr, 99, nullptr) << tovik_setcol_i64(nullptr, "a", 1);
  GIVES(202111) << tovik_setcol(&value, nullptr, 99, nullptr) << tovik_setcol_double(&value, "", 1)
                << tovik_setcolnull(&value, too_long_name.c_str());
  GIVES(202151) << tovik_setcol(&value, "a", 11, &number) << tovik_setcol(&value, "a", -1, nullptr);
  GIVES(202103) << tovik_setcol(&value, "a", 3, nullptr) << tovik_setcol_ctime(&value, "a", nullptr);
  GIVES(202123) << tovik_setcol(&value, "a", 7, &no_text) << tovik_setcol_char(&value, "a", nullptr)
                << tovik_setcol_wchar(&value, "a", nullptr);
  GIVES(202124) << tovik_setcol(&value, "a", 10, &no_bytes) << tovik_setcol(&value, "a", 10, &empty)
                << tovik_setcol_binary(&value, "a", nullptr, 1) << tovik_setcol_binary(&value, "a", "x", -1);
  GIVES(0) << tovik_setcol(&value, "a", 7, &text)
           << tovik_setcol(&value, too_long_name.c_str() + 1, 0, nullptr);
  GIVES(202110) << tovik_insert(db, nullptr, nullptr, 0) << tovik_insert(db, too_long_name.c_str(), &value, 1)
                << tovik_update(db, "", nullptr, 0, nullptr) << tovik_delete(db, nullptr, nullptr);
  GIVES(202118) << tovik_insert(db, "nosuch", nullptr, 0) << tovik_update(db, "t", nullptr, 0, nullptr);
  GIVES(202120) << tovik_insert(db, "nosuch", &value, 0) << tovik_insert(db, "nosuch", &value, 201)
                << tovik_update(db, "t", &value, 201, nullptr);
  GIVES(141004) << tovik_insert(db, "nosuch", &value, 1) << tovik_update(db, "nosuch", &value, 1, nullptr)
                << tovik_delete(db, "nosuch", nullptr);
  GIVES(202150) << tovik_insert(db, "t", &value, 1) << tovik_update(db, "t", &value, 1, nullptr);
  GIVES(0) << tovik_setcol_binary(&value, "a", "x", 1);
  GIVES(202154) << tovik_insert(db, "t", &value, 1);
  GIVES(0) << tovik_setcol_i32(&value, "rowid", 1);
  GIVES(142010) << tovik_insert(db, "t", &value, 1);
  tovik_colval twice[2];
  GIVES(0) << tovik_setcol_i32(&twice[0], "a", 1) << tovik_setcol_i32(&twice[1], "a", 2);
  GIVES(172007) << tovik_insert(db, "t", twice, 2) << tovik_update(db, "t", twice, 2, nullptr);
  EXPECT_EQ(db.rows("t", {"a", "b"}), "1,one");
}

void Arguments::schema() {
  const char *columns[] = {"a", "b", "a"}, *null_column[] = {"a", nullptr},
             *long_column[] = {too_long_name.c_str()};
  const tovik_coldef good = coldef("c", TOVIK_INT), with_digit = coldef("1c", TOVIK_INT),
                     keyword = coldef("Select", TOVIK_INT),
                     unended = coldef(too_long_name.c_str(), TOVIK_INT), varchar = coldef("c", 0x20d, 5),
                     decimal = coldef("c", 0x20b), byte = coldef("c", 0x13), huge_code = coldef("c", 0x10043);
  tovik_coldef list[2];
  GIVES(202114) << tovik_create(nullptr, nullptr) << tovik_create("", nullptr) << tovik_drop(nullptr)
                << tovik_drop("");
  GIVES(120101) << tovik_create("r", db.params());
  GIVES(112012) << tovik_create(std::string(500, 'x').c_str(), "12345;");
  GIVES(202110) << tovik_createtbl(db, nullptr, nullptr, 0) << tovik_droptbl(db, nullptr)
                << tovik_droptbl(db, "") << tovik_createidx(db, nullptr, nullptr, 0, nullptr, 0, 0)
                << tovik_createidx(db, too_long_name.c_str(), columns, 1, "t", 0, 0);
  GIVES(202117) << tovik_createtbl(db, "n", nullptr, 0) << tovik_getcolilst(db, "t", nullptr, 0);
  GIVES(202120) << tovik_createtbl(db, "n", &with_digit, 0) << tovik_createtbl(db, "n", &good, 201)
                << tovik_getcolilst(db, "t", list, 0);
  GIVES(202111) << tovik_createtbl(db, "n", &with_digit, 1) << tovik_createtbl(db, "n", &keyword, 1)
                << tovik_createtbl(db, "n", &unended, 1);
  GIVES(202152) << tovik_createtbl(db, "n", &varchar, 1) << tovik_createtbl_ex(db, "n", &decimal, 1, nullptr);
  GIVES(202153) << tovik_createtbl_ex(db, "n", &byte, 1, nullptr) << tovik_createtbl(db, "n", &huge_code, 1);
  GIVES(141004) << tovik_droptbl(db, "nosuch") << tovik_createidx(db, "i", columns, 1, "nosuch", 0, 0)
                << tovik_getcolilst(db, "nosuch", list, 2);
  GIVES(202121) << tovik_createidx(db, "i", nullptr, 0, nullptr, 0, 0)
                << tovik_createidx(db, "i", null_column, 2, "t", 0, 0)
                << tovik_createidx(db, "i", long_column, 1, "t", 0, 0);
  GIVES(202122) << tovik_createidx(db, "i", columns, 0, "t", 0, 0)
                << tovik_createidx(db, "i", columns, 3, nullptr, 0, 0);
  GIVES(202112) << tovik_createidx(db, "i", null_column, 2, "1t", 0, 0);
  GIVES(145006) << tovik_dropidx(db, "nosuch");
  GIVES(202144) << tovik_gettbllst(db, nullptr, 0);
  GIVES(202127) << tovik_gettbllst(db, buffer, 0);
  for (const char *bad :
       {"", " ", too_long_name.c_str(), "  1t", "a b", "a.b", "select", " SELECT\t", "a\nb"}) {
    GIVES(202110) << tovik_createtbl(db, bad, &varchar, 0);
    GIVES(202112) << tovik_createidx(db, "i", columns, 1, bad, 0, 0);
  }
}

void Arguments::cursors() {
  const char *no_name[] = {"t", nullptr}, *empty[] = {""}, *unknown[] = {"nosuch"},
             *bad_distinct[] = {"a", ""};
  tovik_cond half = one, nothing = {}, too_deep, ring;
  half.op = TOVIK_AND;
  half.left = &one;
  half.right = nullptr;
  tovik_not(&too_deep, &half);
  tovik_not(&ring, &ring);
  tovik_order unsorted = {}, wrong;
  tovik_sort(&wrong, 1, "nosuch", 0);
  GIVES(202115) << tovik_begin(nullptr);
  GIVES(202116) << tovik_fetchcur(nullptr);
  GIVES(202125) << tovik_opencur(db, nullptr, 0, nullptr, nullptr)
                << tovik_opencur(db, no_name, 2, nullptr, nullptr)
                << tovik_opencur(db, empty, 1, nullptr, nullptr);
  GIVES(202126) << tovik_opencur(db, tables, 0, nullptr, nullptr)
                << tovik_opencur(db, tables, -1, nullptr, nullptr);
  GIVES(141004) << tovik_opencur(db, unknown, 1, &nothing, nullptr);
  GIVES(172002) << tovik_opencur(db, unknown, 17, nullptr, nullptr);
  GIVES(202160) << tovik_opencur(db, tables, 1, &half, nullptr)
                << tovik_opencur(db, tables, 1, &too_deep, nullptr);
  GIVES(202161) << tovik_opencur(db, tables, 1, &nothing, &wrong);
  GIVES(150004) << tovik_opencur(db, tables, 1, &ring, nullptr);
  GIVES(202138) << tovik_opencur(db, tables, 1, &one, &unsorted);
  GIVES(150008) << tovik_opencur(db, tables, 1, &one, &wrong)
                << tovik_opencur_dist(db, tables, 1, &one, nullptr, unknown, 1);
  GIVES(202113) << tovik_opencur_dist(db, tables, 1, &one, nullptr, bad_distinct, 2);
  GIVES(0) << tovik_comp_i32(&cond, "nosuch", TOVIK_EQ, 1);
  GIVES(150008) << tovik_opencur(db, tables, 1, &cond, nullptr) << tovik_delete(db, "t", &cond);
  GIVES(0) << tovik_comp_char(&cond, "t.a", TOVIK_EQ, "x");
  GIVES(150003) << tovik_opencur(db, tables, 1, &cond, nullptr);
  GIVES(202161) << tovik_update(db, "t", &value, 1, &nothing);
  GIVES(202136) << tovik_execsql_char(db, nullptr) << tovik_execsql_char(db, "")
                << tovik_execsql_char(db, " \t\r\n") << tovik_execsql_wchar(db, nullptr)
                << tovik_execsql_wchar(db, wide(u" ")) << tovik_selectsql_char(db, nullptr)
                << tovik_selectsql_char(db, " ") << tovik_selectsql_wchar(db, nullptr);
  GIVES(202142) << tovik_execsql_char(db, " sElEcT * FROM t")
                << tovik_execsql_wchar(db, wide(u"select a FROM t"));
  GIVES(171001) << tovik_execsql_char(db, "nonsense");
  GIVES(301) << tovik_execsql_wchar(db, wide(u"DELETE FROM t WHERE b = '\xD800'"))
             << tovik_selectsql_wchar(db, wide(u"SELECT '\xDC00' FROM t"));
  GIVES(202143) << tovik_selectsql_char(db, "INSERT INTO t VALUES 1, 'x', NULL")
                << tovik_selectsql_wchar(db, wide(u"DELETE FROM t"));
  GIVES(150008) << tovik_selectsql_char(db, "SELECT nosuch FROM t");
}

void Arguments::reads() {
  tovik_cur *sql = tovik_selectsql_char(db, "SELECT a, b AS name, a + 1, 1 / (a - 1) FROM t");
  const char *name[] = {"b"};
  tovik_cur *distinct = tovik_opencur_dist(db, tables, 1, nullptr, nullptr, name, 1);
  int32_t number = 5;
  const char *text = "untouched";
  const void *bytes = nullptr;
  for (const char *bad : bad_columns)
    GIVES(202113) << tovik_getcol(cursor, bad, 99, nullptr) << tovik_getcol_i32(sql, bad, nullptr)
                  << tovik_getcol_char(distinct, bad, buffer, 1)
                  << tovik_getcol_ibuf_binary(cursor, bad, &bytes, &length);
  GIVES(202141) << tovik_getcol_i32(sql, "a", &number);
  GIVES(43010) << tovik_getcol_char(distinct, "b", buffer, 9);
  GIVES(0) << tovik_fetchcur(sql) << tovik_fetchcur(distinct);
  GIVES(202154) << tovik_getcol(cursor, "a", 0, nullptr) << tovik_getcol(cursor, "a", 11, nullptr)
                << tovik_getcol_binary(cursor, "b", buffer, 1, &length)
                << tovik_getcol_ibuf_char(cursor, "a", &text, &length)
                << tovik_getcol_ibuf_binary(cursor, "b", &bytes, &length);
  GIVES(150008) << tovik_getcol(cursor, "nosuch", 3, nullptr)
                << tovik_getcol_i32(distinct, "nosuch", &number);
  GIVES(202119) << tovik_getcol_i8(cursor, "a", nullptr) << tovik_getcol_i64(sql, "a", nullptr)
                << tovik_getcol_double(distinct, "b", nullptr)
                << tovik_getcol_ctime(cursor, "nosuch", nullptr) << tovik_getcol_char(cursor, "b", nullptr, 1)
                << tovik_getcol_wchar(cursor, "b", nullptr, 1)
                << tovik_getcol_binary(nullptr, "l", nullptr, 1, &length);
  GIVES(202127) << tovik_getcol_char(nullptr, nullptr, nullptr, 0)
                << tovik_getcol_wchar(nullptr, nullptr, nullptr, -1)
                << tovik_getcol_binary(nullptr, "l", nullptr, 0, nullptr);
  GIVES(202128) << tovik_getcol_char(cursor, "b", buffer, 3) << tovik_getcol_char(cursor, "a", buffer, 1)
                << tovik_getcol_char(cursor, "l", buffer, 2);
  GIVES(0) << tovik_getcol_char(cursor, "b", buffer, 4) << tovik_getcol_char(cursor, "l", buffer, 3)
           << tovik_getcol_wchar(cursor, "b", reinterpret_cast<uint16_t *>(buffer), 8)
           << tovik_getcol_binary(cursor, "l", buffer, 1, &length)
           << tovik_getcol_char(sql, "name", buffer, 9) << tovik_getcol_i32(sql, "EXPRESSION_1", &number);
  GIVES(190016) << tovik_getcol_wchar(cursor, "b", reinterpret_cast<uint16_t *>(buffer), 7);
  GIVES(202139) << tovik_getcol_binary(nullptr, "l", nullptr, 1, nullptr);
  GIVES(202145) << tovik_getcol_ibuf_char(nullptr, "b", nullptr, nullptr)
                << tovik_getcol_ibuf_binary(nullptr, "b", nullptr, &length);
  GIVES(202146) << tovik_getcol_ibuf_char(nullptr, "b", &text, nullptr)
                << tovik_getcol_ibuf_binary(nullptr, "b", &bytes, nullptr);
  GIVES(202147) << tovik_getcol_ibuf_char(cursor, "l", &text, &length);
  GIVES(202140) << tovik_getcol_char(sql, "B", buffer, 9) << tovik_getcol_i32(distinct, "a", &number);
  GIVES(202141) << tovik_getcol_i32(sql, "EXPRESSION_2", &number);
  GIVES(0) << tovik_fetchcur(cursor);
  GIVES(43010) << tovik_getcol_i32(cursor, "a", &number);
  GIVES(0) << tovik_fetchcur(cursor);
  EXPECT_EQ(number, 2);
  EXPECT_STREQ(text, "untouched");
  tovik_closecur(sql);
  tovik_closecur(distinct);
}

TEST_F(Arguments, AreCheckedInTheirOrder) {
  conditions();
  values();
  schema();
  cursors();
  reads();
  for (int code :
       {202103, 202110, 202111, 202112, 202113, 202114, 202115, 202116, 202117, 202118, 202119, 202120,
        202121, 202122, 202123, 202124, 202125, 202126, 202127, 202128, 202129, 202130, 202131, 202132,
        202133, 202134, 202135, 202136, 202137, 202138, 202139, 202140, 202141, 202142, 202143, 202144,
        202145, 202146, 202147, 202150, 202151, 202152, 202153, 202154, 202160, 202161})
    EXPECT_TRUE(codes_met.count(code)) << code;
}

TEST(RecordLibrary, MustBeStarted) {
  tovik_end();
  EXPECT_EQ(tovik_create("r", nullptr), -1);
  EXPECT_EQ(tovik_geterr(), 202101);
  EXPECT_EQ(tovik_create(nullptr, nullptr), -1);
  EXPECT_EQ(tovik_geterr(), 202114);
  EXPECT_EQ(tovik_drop("r"), -1);
  EXPECT_EQ(tovik_geterr(), 202101);
  EXPECT_EQ(tovik_open("r", nullptr), nullptr);
  EXPECT_EQ(tovik_geterr(), 202101);
}

// Closed, foreign and null handles give their code or are ignored.
TEST(RecordHandles, AreChecked) {
  RecordDatabase db;
  db.run({"CREATE TABLE t (a int)", "INSERT INTO t VALUES 1"});
  tovik_cur *open = db.open_cursor("t"), *closed_early = db.open_cursor("t"), *at_close = db.open_cursor("t");
  tovik_closecur(closed_early);
  EXPECT_EQ(tovik_fetchcur(at_close), 1);
  tovik_db *second = tovik_open("r", db.params());
  kld_db *foreign = kld_api_open_db((std::string("name=r;") + db.params()).c_str());
  ASSERT_NE(foreign, nullptr);
  tovik_cur *of_second = tovik_selectsql_char(second, "SELECT a FROM t");
  tovik_close(second);
  const char *tables[] = {"t"}, *columns[] = {"a"};
  tovik_colval value;
  tovik_setcol_i32(&value, "a", 2);
  const tovik_coldef definition = coldef("a", TOVIK_INT);
  tovik_coldef listed;
  char buffer[64];
  const uint16_t *const wide_text = wide(u"SELECT 1");
  void *const not_databases[] = {nullptr, open, foreign, second};
  for (void *handle : not_databases) {
    tovik_db *bad = static_cast<tovik_db *>(handle);
    GIVES(202115) << tovik_begin(bad) << tovik_commit(bad) << tovik_rollback(bad)
                  << tovik_createtbl(bad, nullptr, nullptr, 0)
                  << tovik_createtbl_ex(bad, "n", &definition, 1, nullptr) << tovik_droptbl(bad, nullptr)
                  << tovik_createidx(bad, nullptr, columns, 1, "t", 0, 0) << tovik_dropidx(bad, "i")
                  << tovik_gettbllst(bad, nullptr, 0) << tovik_getcolilst(bad, "t", &listed, 0)
                  << tovik_opencur(bad, nullptr, 0, nullptr, nullptr)
                  << tovik_opencur_dist(bad, tables, 1, nullptr, nullptr, columns, 1)
                  << tovik_insert(bad, nullptr, &value, 1) << tovik_update(bad, "t", nullptr, 1, nullptr)
                  << tovik_delete(bad, nullptr, nullptr) << tovik_execsql_char(bad, nullptr)
                  << tovik_execsql_wchar(bad, wide_text) << tovik_selectsql_char(bad, nullptr)
                  << tovik_selectsql_wchar(bad, wide_text);
    EXPECT_EQ(tovik_begin(bad), -1);
    tovik_close(bad);
    EXPECT_EQ(tovik_geterr(), 202115) << "a close leaves the record alone";
  }
  void *const not_cursors[] = {nullptr, db, foreign, closed_early, of_second};
  for (void *handle : not_cursors) {
    tovik_cur *bad = static_cast<tovik_cur *>(handle);
    const char *text;
    const void *bytes;
    int32_t length;
    GIVES(202116) << tovik_fetchcur(bad) << tovik_getcol(bad, nullptr, 99, nullptr)
                  << tovik_getcol_i8(bad, "a", nullptr) << tovik_getcol_double(bad, nullptr, nullptr)
                  << tovik_getcol_ctime(bad, "a", nullptr) << tovik_getcol_char(bad, nullptr, buffer, 1)
                  << tovik_getcol_wchar(bad, "a", reinterpret_cast<uint16_t *>(buffer), 1)
                  << tovik_getcol_binary(bad, "a", buffer, 1, &length)
                  << tovik_getcol_ibuf_char(bad, nullptr, &text, &length)
                  << tovik_getcol_ibuf_binary(bad, "a", &bytes, &length);
    tovik_closecur(bad);
    EXPECT_EQ(tovik_geterr(), 202116) << "a close leaves the record alone";
  }
  EXPECT_EQ(rows_of(open, {"a"}), "1") << "the calls above closed nothing";
  kld_api_close_db(foreign);
  EXPECT_EQ(tovik_begin(db), 0);
  EXPECT_EQ(tovik_insert(db, "t", &value, 1), 0);
  tovik_close(db);  // with a cursor and a transaction
  GIVES(202116) << tovik_fetchcur(at_close);
  GIVES(202115) << tovik_commit(db);
  db.open();
  EXPECT_EQ(db.rows("t", {"a"}), "1");
}

// ---- reads ----

std::string digits_of(const DateTimeRec &d) {
  char text[64];
  snprintf(text, sizeof text, "%04d%02d%02d%02d%02d%02d%06d", d.year, d.month, d.day, d.hour, d.minute,
           d.second, d.microseconds);
  return text;
}

std::string narrow(const void *wide_text) {
  std::string text;
  for (const uint16_t *unit = static_cast<const uint16_t *>(wide_text); *unit != 0; ++unit)
    text += static_cast<char>(*unit);
  return text;
}

// One column of the current row.
struct Field {
  tovik_cur *cursor;
  const char *column;
};

// Reads by the general form and by typed, an int(), which agree; give makes a text of what they read. The
// text, "null", or "-" for 202154.
template <class Typed, class Give>
std::string read_both(const Field &field, int type, char (&output)[64], Typed typed, Give give) {
  tovik_value value;
  memset(&value, 0x5a, sizeof value);
  memset(output, 0x5a, sizeof output);
  const int result = tovik_getcol(field.cursor, field.column, type, &value);
  const int code = record_code(result);
  EXPECT_EQ(typed(), result) << field.column << " as " << type;
  EXPECT_EQ(record_code(result), code) << field.column << " as " << type;
  if (result == 1) return give(value);
  EXPECT_EQ(std::string(output, sizeof output), std::string(sizeof output, 0x5a)) << "outputs untouched";
  EXPECT_EQ(value.whole[0], 0x5a5a5a5a5a5a5a5a);
  return result == 0 ? "null" : code == 202154 ? "-" : std::to_string(code);
}

template <class T>
std::string read_number(const Field &field, int type, int (*form)(tovik_cur *, const char *, T *),
                        T tovik_value::*member) {
  alignas(8) char output[64];
  T *number = reinterpret_cast<T *>(output);
  return read_both(
      field, type, output, [&] { return form(field.cursor, field.column, number); },
      [&](const tovik_value &value) {
        EXPECT_EQ(*number, value.*member);
        char text[64];
        snprintf(text, sizeof text, "%.9g", static_cast<double>(*number));
        return std::string(text);
      });
}

std::string read_date(const Field &field) {
  alignas(8) char output[64];
  DateTimeRec *date = reinterpret_cast<DateTimeRec *>(output);
  return read_both(
      field, TOVIK_DATETIME, output, [&] { return tovik_getcol_ctime(field.cursor, field.column, date); },
      [&](const tovik_value &value) {
        EXPECT_EQ(digits_of(*date), digits_of(value.datetime));
        return digits_of(*date);
      });
}

std::string read_bytes(const Field &field, int type) {
  alignas(8) char output[64];
  int32_t length = 0x5a5a5a5a;
  const auto typed = [&] {
    if (type == TOVIK_CHAR) return tovik_getcol_char(field.cursor, field.column, output, sizeof output);
    if (type == TOVIK_BINARY)
      return tovik_getcol_binary(field.cursor, field.column, output, sizeof output, &length);
    return tovik_getcol_wchar(field.cursor, field.column, reinterpret_cast<uint16_t *>(output),
                              sizeof output);
  };
  return read_both(field, type, output, typed, [&](const tovik_value &value) {
    const auto text = [&](const void *read, int32_t bytes) {
      if (type == TOVIK_WCHAR) return narrow(read);
      return std::string(static_cast<const char *>(read), static_cast<size_t>(bytes));
    };
    const bool binary = type == TOVIK_BINARY;
    const std::string copied =
        text(output, binary ? length : static_cast<int32_t>(strnlen(output, sizeof output)));
    EXPECT_EQ(copied,
              text(value.read.text, binary ? value.bytes.length : static_cast<int32_t>(copied.size())));
    return copied;
  });
}

// The column as the API data types 1 to 10.
std::string read_all(const Field &field) {
  std::string text = read_number(field, TOVIK_INT8, tovik_getcol_i8, &tovik_value::i8);
  text += " " + read_number(field, TOVIK_INT16, tovik_getcol_i16, &tovik_value::i16);
  text += " " + read_number(field, TOVIK_INT32, tovik_getcol_i32, &tovik_value::i32);
  text += " " + read_number(field, TOVIK_INT64, tovik_getcol_i64, &tovik_value::i64);
  text += " " + read_number(field, TOVIK_FLOAT, tovik_getcol_float, &tovik_value::f);
  text += " " + read_number(field, TOVIK_DOUBLE, tovik_getcol_double, &tovik_value::d);
  text += " " + read_bytes(field, TOVIK_CHAR) + " " + read_bytes(field, TOVIK_WCHAR);
  return text + " " + read_date(field) + " " + read_bytes(field, TOVIK_BINARY);
}

// What a column gives for the API data types 1 to 10, by a cursor over tables and by one over results.
struct ColumnReads {
  const char *column, *sql_type, *literal, *in_tables, *in_results;
};
const ColumnReads column_reads[] = {
    {"i1", "tinyint", "-5", "-5 -5 -5 -5 - - -5 -5 - -", "-5 -5 -5 -5 -5 -5 -5 -5 - -"},
    {"i2", "smallint", "300", "- 300 300 300 - - 300 300 - -", "44 300 300 300 300 300 300 300 - -"},
    {"i4", "int", "70000", "- - 70000 70000 - - 70000 70000 - -",
     "112 4464 70000 70000 70000 70000 70000 70000 - -"},
    {"i8", "bigint", "-1", "- - - -1 - - -1 -1 - -", "-1 -1 -1 -1 -1 -1 -1 -1 - -"},
    {"c1", "ctinyint", "-128", "-128 -128 -128 -128 - - -128 -128 - -",
     "-128 -128 -128 -128 -128 -128 -128 -128 - -"},
    {"c2", "csmallint", "-32768", "- -32768 -32768 -32768 - - -32768 -32768 - -",
     "0 -32768 -32768 -32768 -32768 -32768 -32768 -32768 - -"},
    {"c4", "cint", "65537", "- - 65537 65537 - - 65537 65537 - -",
     "1 1 65537 65537 65537 65537 65537 65537 - -"},
    {"c8", "cbigint", "9", "- - - 9 - - 9 9 - -", "9 9 9 9 9 9 9 9 - -"},
    {"f", "float", "-2.75", "- - - - -2.75 -2.75 -2.750000e+00 -2.750000e+00 - -",
     "-2 -2 -2 -2 -2.75 -2.75 -2.750000e+00 -2.750000e+00 - -"},
    {"d", "double", "300.5", "- - - - 300.5 300.5 3.00500000000000e+02 3.00500000000000e+02 - -",
     "44 300 300 300 300.5 300.5 3.00500000000000e+02 3.00500000000000e+02 - -"},
    {"n", "decimal(10,2)", "'1.5'", "- - - - - - 1.5 1.5 - -", "- - - - - - 1.5 1.5 - -"},
    {"s", "char(5)", "'full5'", "- - - - - - full5 full5 - -", "- - - - - - full5 full5 - -"},
    {"v", "varchar(9)", "'some'", "- - - - - - some some - -", "- - - - - - some some - -"},
    {"x", "text(20,4,20)", "'more-than-four-bytes'",
     "- - - - - - more-than-four-bytes more-than-four-bytes - -",
     "- - - - - - more-than-four-bytes more-than-four-bytes - -"},
    {"l", "blob(20,4,20)", "'7a7B4F6162'", "- - - - - - 7a7b4f6162 7a7b4f6162 - z{Oab",
     "- - - - - - 7a7b4f6162 7a7b4f6162 - z{Oab"},
    {"da", "date", "'20240229'", "- - - - - - 20240229 20240229 20240229000000000000 -",
     "- - - - - - 20240229 20240229 20240229000000000000 -"},
    {"ti", "time", "'20240229123456'", "- - - - - - 20240229123456 20240229123456 20240229123456000000 -",
     "- - - - - - 20240229123456 20240229123456 20240229123456000000 -"},
    {"mi", "microtimestamp", "'20240229123456000789'",
     "- - - - - - 20240229123456000789 20240229123456000789 20240229123456000789 -",
     "- - - - - - 20240229123456000789 20240229123456000789 20240229123456000789 -"},
};

// What is read of NULL where a value reads as reads.
std::string nulls(const char *reads) {
  std::istringstream words(reads);
  std::string text;
  for (std::string word; words >> word;) text += (text.empty() ? "" : " ") + (word == "-" ? word : "null");
  return text;
}

TEST(RecordReads, EveryColumnAsEveryType) {
  RecordDatabase db;
  std::string definitions, names, literals;
  std::vector<const char *> columns;
  for (const ColumnReads &reads : column_reads) {
    const std::string comma = columns.empty() ? "" : ", ";
    definitions += comma + reads.column + " " + reads.sql_type;
    names += comma + reads.column;
    literals += comma + reads.literal;
    columns.push_back(reads.column);
  }
  ASSERT_EQ(db.sql("CREATE TABLE t (nr int, " + definitions + ")"), 0);
  ASSERT_EQ(db.sql("INSERT INTO t (nr, " + names + ") VALUES 1, " + literals), 0);
  ASSERT_EQ(db.sql("INSERT INTO t (nr) VALUES 2"), 0);
  const char *tables[] = {"t"};
  tovik_cond value_row, null_row;
  tovik_comp_i32(&value_row, "nr", TOVIK_EQ, 1);
  tovik_comp_i32(&null_row, "t.nr", TOVIK_EQ, 2);
  const int count = static_cast<int>(columns.size());
  for (const char *nr : {"1", "2"}) {
    const tovik_cond *cond = nr[0] == '1' ? &value_row : &null_row;
    tovik_cur *cursors[] = {
        db.open_cursor("t", cond), tovik_opencur_dist(db, tables, 1, cond, nullptr, columns.data(), count),
        tovik_selectsql_char(db, ("SELECT " + names + " FROM t WHERE nr = " + nr).c_str())};
    for (tovik_cur *cursor : cursors) {
      ASSERT_EQ(tovik_fetchcur(cursor), 1) << tovik_geterr();
      for (const ColumnReads &reads : column_reads) {
        std::string expected = cursor == cursors[0] ? reads.in_tables : reads.in_results;
        if (nr[0] == '2') expected = nulls(expected.c_str());
        EXPECT_EQ(read_all({cursor, reads.column}), expected)
            << reads.column << " of cursor " << (cursor == cursors[0]) << " row " << nr;
      }
      EXPECT_EQ(tovik_fetchcur(cursor), 0);
      tovik_closecur(cursor);
    }
  }
}

// Every text that a row gave stays until the next fetch, whatever is read after it.
TEST(RecordReads, TextsStayUntilTheNextFetch) {
  RecordDatabase db;
  db.run({"CREATE TABLE t (a int, s char(4), x text(20, 2, 20), l blob(20, 2, 20))",
          "INSERT INTO t VALUES 1, 'abcd', 'first text', '0102030405'",
          "INSERT INTO t VALUES 2, '', 'second', NULL"});
  const char *tables[] = {"t"}, *names[] = {"a", "s", "x", "l"};
  for (tovik_cur *cursor :
       {db.open_cursor("t"), tovik_opencur_dist(db, tables, 1, nullptr, nullptr, names, 4),
        tovik_selectsql_char(db, "SELECT a, s, x, l, s || x AS sx FROM t")}) {
    ASSERT_EQ(tovik_fetchcur(cursor), 1);
    const auto get = [&](const char *column, int type) {
      tovik_value value;
      EXPECT_EQ(tovik_getcol(cursor, column, type, &value), 1) << column << tovik_geterr();
      return value;
    };
    const tovik_value a = get("a", 7), s = get("s", 7), ws = get("s", 8), x = get("x", 7), l = get("l", 7),
                      b = get("l", 10);
    const char *text;
    const void *bytes;
    int32_t text_length, length;
    EXPECT_EQ(tovik_getcol_ibuf_char(cursor, "x", &text, &text_length), 1);
    EXPECT_EQ(tovik_getcol_ibuf_binary(cursor, "l", &bytes, &length), 1);
    for (int i = 0; i < 100; ++i) (void)get(names[i % 4], TOVIK_WCHAR);
    EXPECT_STREQ(static_cast<const char *>(a.read.text), "1");
    EXPECT_EQ(a.read.column_type, TOVIK_INT);
    EXPECT_STREQ(static_cast<const char *>(s.read.text), "abcd");
    EXPECT_EQ(narrow(ws.read.text), "abcd");
    EXPECT_EQ(ws.read.column_type, TOVIK_COL_CHAR);
    EXPECT_STREQ(static_cast<const char *>(x.read.text), "first text");
    EXPECT_EQ(x.read.column_type, TOVIK_COL_CHAR);
    EXPECT_STREQ(static_cast<const char *>(l.read.text), "0102030405");
    EXPECT_EQ(l.read.column_type, TOVIK_BLOB);
    EXPECT_EQ(std::string(static_cast<const char *>(b.bytes.data), 5), "\1\2\3\4\5");
    EXPECT_EQ(std::string(text, static_cast<size_t>(text_length)), "first text");
    EXPECT_EQ(memcmp(bytes, b.bytes.data, 5), 0);
    EXPECT_EQ(length, 5);
    EXPECT_EQ(tovik_fetchcur(cursor), 1);
    EXPECT_EQ(tovik_getcol_ibuf_binary(cursor, "l", &bytes, &length), 0);
    EXPECT_EQ(length, 5) << "NULL leaves outputs as they are";
    tovik_closecur(cursor);
  }
}

}  // namespace
}  // namespace tovik::test
