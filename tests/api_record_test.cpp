// The record interface: arguments, reads, texts, schema and transactions.
#include "record_support.h"

namespace tovik::test {
namespace {

// GIVES(code) << call << call ...: every call, made after those before it, fails with code, or succeeds for
// 0.
struct Gives {
  template <class Result>
  Gives &operator<<(Result result) {
    const int code = record_code(result);
    if (code != expected) ADD_FAILURE_AT(__FILE__, line) << "call " << call << " gives " << code;
    ++call;
    return *this;
  }

  int line, expected, call = 1;
};
#define GIVES(expected) (Gives{__LINE__, expected})

const std::string too_long_name(21, 'n'), too_long_column(42, 'c'), longest_column(41, 'c');
const char *const bad_columns[] = {nullptr, "", too_long_column.c_str()};

class Record : public testing::Test {
 protected:
  void make_table() {
    db.run({"CREATE TABLE t (a int, b char(20), l blob(20, 4, 20))", "INSERT INTO t VALUES 1, 'one', '01'"});
    GIVES(0) << tovik_comp_i32(&one, "a", TOVIK_EQ, 1) << tovik_setcol_i32(&value, "rowid", 1);
  }

  RecordDatabase db;
  const char *tables[1] = {"t"};
  tovik_cond cond, one;
  tovik_order order;
  tovik_colval value;
  char buffer[64];
  int32_t length;
};

// ---- arguments ----

// The typed forms give what the general forms do.
template <class T>
void expect_typed(int type, int (*comp)(tovik_cond *, const char *, int, T),
                  int (*range)(tovik_cond *, const char *, T, char, T, char),
                  int (*set)(tovik_colval *, const char *, T)) {
  const T low = T(-1.5), high = T(100);
  tovik_cond conds[4] = {};
  tovik_colval values[2] = {};
  GIVES(0) << comp(&conds[0], "a", TOVIK_GE, low) << tovik_comp(&conds[1], "a", TOVIK_GE, type, &low)
           << range(&conds[2], "a", low, 1, high, 0) << tovik_range(&conds[3], "a", type, &low, 1, &high, 0)
           << set(&values[0], "a", low) << tovik_setcol(&values[1], "a", type, &low);
  for (int i : {0, 2}) EXPECT_EQ(memcmp(&conds[i], &conds[i + 1], sizeof conds[i]), 0) << type;
  EXPECT_EQ(memcmp(&values[0], &values[1], sizeof values[0]), 0) << type;
}

TEST_F(Record, ArgumentsOfConditions) {
  make_table();
  const int32_t number = 1;
  const uint16_t *xs = wide(u"x");
  GIVES(202129) << tovik_comp(nullptr, nullptr, 0, 0, nullptr)
                << tovik_range_wchar(nullptr, "a", xs, 1, xs, 1) << tovik_compcol(nullptr, "a", 0, "b")
                << tovik_and(nullptr, nullptr, nullptr) << tovik_not(nullptr, nullptr);
  GIVES(202131) << tovik_comp(&cond, "a", TOVIK_AND, 3, &number)
                << tovik_compcol(&cond, "a", TOVIK_LIKE, "b");
  GIVES(202132) << tovik_comp(&cond, "a", TOVIK_EQ, -1, &number)
                << tovik_comp(&cond, "a", TOVIK_LIKE, 3, &number)
                << tovik_range(&cond, "a", 10, nullptr, 1, &number, 1);
  GIVES(202133) << tovik_comp(&cond, "a", TOVIK_GE, 9, nullptr)
                << tovik_range_wchar(&cond, "a", xs, 1, nullptr, 1);
  GIVES(0) << tovik_comp(&cond, "a", TOVIK_NE, 0, nullptr);
  GIVES(202134) << tovik_and(&cond, nullptr, nullptr) << tovik_or(&cond, nullptr, &one);
  GIVES(202135) << tovik_and(&cond, &one, nullptr);
  GIVES(202130) << tovik_not(&cond, nullptr);
  GIVES(202137) << tovik_sort(nullptr, 0);
  GIVES(202138) << tovik_sort(&order, 0) << tovik_sort(&order, 5, "a", 0, "a", 0, "a", 0, "a", 0, "a", 0);
  GIVES(0) << tovik_sort(&order, 2, "a", 0, longest_column.c_str(), 1);
  for (const char *bad : bad_columns)
    GIVES(202113) << tovik_comp(&cond, bad, 0, 99, nullptr) << tovik_isnull(&cond, bad)
                  << tovik_range_i64(&cond, bad, 1, 1, 2, 1) << tovik_compcol(&cond, "a", TOVIK_LIKE, bad)
                  << tovik_compcol(&cond, bad, TOVIK_EQ, "a") << tovik_sort(&order, 2, "a", 0, bad, 0);
  expect_typed<int8_t>(TOVIK_INT8, tovik_comp_i8, tovik_range_i8, tovik_setcol_i8);
  expect_typed<int16_t>(TOVIK_INT16, tovik_comp_i16, tovik_range_i16, tovik_setcol_i16);
  expect_typed<int32_t>(TOVIK_INT32, tovik_comp_i32, tovik_range_i32, tovik_setcol_i32);
  expect_typed<int64_t>(TOVIK_INT64, tovik_comp_i64, tovik_range_i64, tovik_setcol_i64);
  expect_typed<float>(TOVIK_FLOAT, tovik_comp_float, tovik_range_float, tovik_setcol_float);
  expect_typed<double>(TOVIK_DOUBLE, tovik_comp_double, tovik_range_double, tovik_setcol_double);
  const DateTimeRec day = {2024, 2, 29, 0, 0, 0, 0, 0}, next = {2024, 3, 1, 0, 0, 0, 0, 0};
  GIVES(0) << tovik_comp_ctime(&cond, "a", TOVIK_LE, &day) << tovik_range_ctime(&one, "a", &day, 0, &next, 1);
  EXPECT_EQ(std::pair(cond.op, cond.type), std::pair(int32_t{TOVIK_LE}, int32_t{TOVIK_DATETIME}));
  EXPECT_EQ(memcmp(&cond.value, &day, sizeof day) | memcmp(&one.upper, &next, sizeof next), 0);
}

TEST_F(Record, ArgumentsOfValues) {
  make_table();
  const int32_t number = 7;
  const char *no_text = nullptr;
  GIVES(202118) << tovik_setcol(nullptr, nullptr, 99, nullptr) << tovik_insert(db, "nosuch", nullptr, 0);
  GIVES(202111) << tovik_setcol(&value, nullptr, 99, nullptr)
                << tovik_setcolnull(&value, too_long_name.c_str());
  GIVES(202151) << tovik_setcol(&value, "a", 11, &number) << tovik_setcol(&value, "a", -1, nullptr);
  GIVES(202103) << tovik_setcol(&value, "a", 3, nullptr) << tovik_setcol_ctime(&value, "a", nullptr);
  GIVES(202123) << tovik_setcol(&value, "a", 7, &no_text) << tovik_setcol_wchar(&value, "a", nullptr);
  GIVES(202124) << tovik_setcol_binary(&value, "a", "x", -1);
  GIVES(0) << tovik_setcol(&value, too_long_name.c_str() + 1, 0, nullptr);
  GIVES(202110) << tovik_insert(db, nullptr, nullptr, 0) << tovik_update(db, "", nullptr, 0, nullptr)
                << tovik_delete(db, nullptr, nullptr);
  GIVES(202120) << tovik_insert(db, "nosuch", &value, 0) << tovik_update(db, "t", &value, 201, nullptr);
  GIVES(141004) << tovik_insert(db, "nosuch", &value, 1) << tovik_delete(db, "nosuch", nullptr);
  GIVES(202150) << tovik_insert(db, "t", &value, 1) << tovik_update(db, "t", &value, 1, nullptr);
  GIVES(0) << tovik_setcol_binary(&value, "a", "x", 1);
  GIVES(202154) << tovik_insert(db, "t", &value, 1);
  value = {"a", TOVIK_CHAR, {}};  // by hand, without a text
  GIVES(202123) << tovik_insert(db, "t", &value, 1);
  GIVES(0) << tovik_setcol_i32(&value, "rowid", 1);
  GIVES(142010) << tovik_insert(db, "t", &value, 1);
  EXPECT_EQ(db.rows("t", {"a", "b"}), "1,one");
}

TEST_F(Record, ArgumentsOfDefinitions) {
  make_table();
  const char *columns[] = {"a", "b", "a"}, *null_column[] = {"a", nullptr};
  const tovik_coldef good = coldef("c", TOVIK_COL_INT), keyword = coldef("Select", TOVIK_COL_INT),
                     unended = coldef(too_long_name.c_str(), TOVIK_COL_INT), varchar = coldef("c", 0x20d, 5),
                     byte = coldef("c", 0x13), wide_char = coldef("c", TOVIK_COL_CHAR, 32768),
                     wide_text = coldef("c", TOVIK_COL_TEXT, 65536),
                     wide_row = coldef("c", TOVIK_COL_TEXT, 20, 65536);
  tovik_coldef list[2];
  GIVES(202114) << tovik_create(nullptr, nullptr) << tovik_drop("");
  GIVES(120101) << tovik_create("r", db.params());
  GIVES(202110) << tovik_createtbl(db, nullptr, nullptr, 0) << tovik_droptbl(db, "")
                << tovik_createidx(db, too_long_name.c_str(), columns, 1, "t", 0, 0);
  GIVES(202117) << tovik_createtbl(db, "n", nullptr, 0) << tovik_getcolilst(db, "t", nullptr, 0);
  GIVES(202120) << tovik_createtbl(db, "n", &keyword, 0) << tovik_createtbl(db, "n", &good, 201)
                << tovik_getcolilst(db, "t", list, 0);
  GIVES(202111) << tovik_createtbl(db, "n", &keyword, 1) << tovik_createtbl(db, "n", &unended, 1);
  GIVES(202152) << tovik_createtbl(db, "n", &varchar, 1);
  GIVES(202153) << tovik_createtbl_ex(db, "n", &byte, 1, nullptr);
  GIVES(142007) << tovik_createtbl(db, "n", &wide_char, 1) << tovik_createtbl(db, "n", &wide_text, 1);
  GIVES(142008) << tovik_createtbl(db, "n", &wide_row, 1);
  GIVES(202121) << tovik_createidx(db, "i", null_column, 2, "t", 0, 0);
  GIVES(202122) << tovik_createidx(db, "i", columns, 0, "t", 0, 0)
                << tovik_createidx(db, "i", columns, 3, nullptr, 0, 0);
  GIVES(202144) << tovik_gettbllst(db, nullptr, 0);
  GIVES(202127) << tovik_gettbllst(db, buffer, 0);
  for (const char *bad : {" ", too_long_name.c_str(), "  1t", "a b", " SELECT\t"}) {
    GIVES(202110) << tovik_createtbl(db, bad, &varchar, 0);
    GIVES(202112) << tovik_createidx(db, "i", columns, 1, bad, 0, 0);
  }
}

TEST_F(Record, ArgumentsOfCursors) {
  make_table();
  const char *no_name[] = {"t", nullptr}, *unknown[] = {"nosuch"}, *bad_distinct[] = {"a", ""};
  tovik_cond half = one, nothing = {}, too_deep, ring;
  half.op = TOVIK_AND;
  half.left = &one;
  half.right = nullptr;
  tovik_not(&too_deep, &half);
  tovik_not(&ring, &ring);
  tovik_order unsorted = {}, wrong, twice;
  tovik_sort(&wrong, 1, "nosuch", 0);
  tovik_sort(&twice, 3, "a", 0, "b", 0, "t.a", 1);
  GIVES(202125) << tovik_opencur(db, no_name, 2, nullptr, nullptr);
  GIVES(202126) << tovik_opencur(db, tables, 0, nullptr, nullptr);
  GIVES(172002) << tovik_opencur(db, unknown, 17, nullptr, nullptr);
  GIVES(202160) << db.open_cursor("t", &too_deep);
  GIVES(202161) << db.open_cursor("t", &nothing, &wrong) << tovik_update(db, "t", &value, 1, &nothing);
  GIVES(150004) << db.open_cursor("t", &ring);
  GIVES(202138) << db.open_cursor("t", &one, &unsorted);
  GIVES(161001) << db.open_cursor("t", &one, &twice);
  GIVES(150008) << db.open_cursor("t", &one, &wrong)
                << tovik_opencur_dist(db, tables, 1, &one, nullptr, unknown, 1);
  GIVES(202113) << tovik_opencur_dist(db, tables, 1, &one, nullptr, bad_distinct, 2);
  GIVES(0) << tovik_comp_char(&cond, "t.a", TOVIK_EQ, "x");
  GIVES(150003) << db.open_cursor("t", &cond);
  GIVES(202136) << tovik_execsql_char(db, " \t\r\n") << tovik_execsql_wchar(db, nullptr)
                << tovik_selectsql_char(db, nullptr) << tovik_selectsql_wchar(db, wide(u" "));
  GIVES(202142) << tovik_execsql_char(db, " sElEcT * FROM t");
  GIVES(301) << tovik_execsql_wchar(db, wide(u"DELETE FROM t WHERE b = '\xD800'"))
             << tovik_selectsql_wchar(db, wide(u"SELECT '\xDC00' FROM t"));
  GIVES(202143) << tovik_selectsql_char(db, "INSERT INTO t VALUES 1, 'x', NULL");
}

TEST_F(Record, ArgumentsOfReads) {
  make_table();
  const char *name[] = {"b"}, *text;
  tovik_cur *sql = tovik_selectsql_char(db, "SELECT a, b AS name, 1 / (a - 1) FROM t"),
            *distinct = tovik_opencur_dist(db, tables, 1, nullptr, nullptr, name, 1),
            *cursor = db.open_cursor("t");
  int32_t number;
  const void *bytes;
  uint16_t *const wide_buffer = reinterpret_cast<uint16_t *>(buffer);
  GIVES(43010) << tovik_getcol_char(distinct, "b", buffer, 9) << tovik_getcol_i32(cursor, "a", &number);
  GIVES(0) << tovik_fetchcur(sql) << tovik_fetchcur(distinct) << tovik_fetchcur(cursor);
  for (const char *bad : bad_columns)
    GIVES(202113) << tovik_getcol(cursor, bad, 99, nullptr) << tovik_getcol_i32(sql, bad, nullptr)
                  << tovik_getcol_char(distinct, bad, buffer, 1)
                  << tovik_getcol_ibuf_binary(cursor, bad, &bytes, &length);
  GIVES(202154) << tovik_getcol(cursor, "a", 0, nullptr) << tovik_getcol(cursor, "a", 11, nullptr)
                << tovik_getcol_ibuf_char(cursor, "a", &text, &length)
                << tovik_getcol_ibuf_binary(cursor, "b", &bytes, &length);
  GIVES(150008) << tovik_getcol(cursor, "nosuch", 3, nullptr);
  GIVES(202119) << tovik_getcol_i8(cursor, "a", nullptr) << tovik_getcol_char(cursor, "b", nullptr, 1)
                << tovik_getcol_binary(nullptr, "l", nullptr, 1, &length);
  GIVES(202127) << tovik_getcol_char(nullptr, nullptr, nullptr, 0)
                << tovik_getcol_binary(nullptr, "l", nullptr, 0, nullptr);
  GIVES(202128) << tovik_getcol_char(cursor, "b", buffer, 3) << tovik_getcol_char(cursor, "l", buffer, 2);
  GIVES(190016) << tovik_getcol_wchar(cursor, "b", wide_buffer, 7);
  GIVES(0) << tovik_getcol_char(cursor, "b", buffer, 4) << tovik_getcol_char(cursor, "l", buffer, 3)
           << tovik_getcol_wchar(cursor, "b", wide_buffer, 8) << tovik_getcol_char(sql, "name", buffer, 4);
  GIVES(202139) << tovik_getcol_binary(nullptr, "l", nullptr, 1, nullptr);
  GIVES(202145) << tovik_getcol_ibuf_char(nullptr, "b", nullptr, nullptr);
  GIVES(202146) << tovik_getcol_ibuf_binary(nullptr, "b", &bytes, nullptr);
  GIVES(202147) << tovik_getcol_ibuf_char(cursor, "l", &text, &length);
  GIVES(202140) << tovik_getcol_char(sql, "B", buffer, 9) << tovik_getcol_i32(distinct, "a", &number);
  GIVES(202141) << tovik_getcol_i32(sql, "EXPRESSION_1", &number);
  for (int i = 0; i < 2; ++i) GIVES(0) << tovik_fetchcur(cursor);
  GIVES(43010) << tovik_getcol_i32(cursor, "a", &number);
  for (tovik_cur *each : {sql, distinct, cursor}) tovik_closecur(each);
}

TEST(RecordLibrary, MustBeStarted) {
  GIVES(202101) << tovik_create("r", nullptr) << tovik_drop("r")
                << (tovik_open("r", nullptr) == nullptr ? -1 : 0);
  GIVES(202114) << tovik_drop("") << (tovik_open("", nullptr) == nullptr ? -1 : 0);
}

// ---- reads ----

std::string narrow(const void *wide_text) {
  std::string text;
  for (const uint16_t *unit = static_cast<const uint16_t *>(wide_text); *unit != 0; ++unit)
    text += static_cast<char>(*unit);
  return text;
}

// What a read gave, or the code of its failure: "-" for 202154.
std::string given(int result, const std::string &value) {
  const int code = record_code(result);
  if (result < 0) return code == 202154 ? " -" : " " + std::to_string(code);
  return " " + (result == 1 ? value : "null");
}

template <class T>
std::string number(tovik_cur *cursor, const char *column, int (*get)(tovik_cur *, const char *, T *)) {
  T value = {};
  const int result = get(cursor, column, &value);
  std::ostringstream text;
  text.precision(9);
  text << +value;
  return given(result, text.str());
}

// The column read as each API data type, by the typed form where there is one.
std::string read_all(tovik_cur *cursor, const char *column) {
  std::string all = number(cursor, column, tovik_getcol_i8) + number(cursor, column, tovik_getcol_i16) +
                    number(cursor, column, tovik_getcol_i32) + number(cursor, column, tovik_getcol_i64) +
                    number(cursor, column, tovik_getcol_float) + number(cursor, column, tovik_getcol_double);
  tovik_value value = {};
  int result = tovik_getcol(cursor, column, TOVIK_CHAR, &value);
  all += given(result, result == 1 ? static_cast<const char *>(value.read.text) : "");
  result = tovik_getcol(cursor, column, TOVIK_WCHAR, &value);
  all += given(result, result == 1 ? narrow(value.read.text) : "");
  DateTimeRec date = {};
  char text[64];
  result = tovik_getcol_ctime(cursor, column, &date);
  snprintf(text, sizeof text, "%d-%d-%d-%d-%d-%d-%d", date.year, date.month, date.day, date.hour, date.minute,
           date.second, date.microseconds);
  all += given(result, text);
  result = tovik_getcol(cursor, column, TOVIK_BINARY, &value);
  const auto [bytes, size] = std::pair(static_cast<const char *>(value.bytes.data), value.bytes.length);
  return all + given(result, result == 1 ? std::string(bytes, static_cast<size_t>(size)) : "");
}

// The same of a row of NULLs: what cannot be read stays so.
std::string nulls_of(const std::string &row) {
  std::string nulls;
  for (size_t at = 0, end; at < row.size(); at = end) {
    end = row.find_first_of(" \n", at + 1);
    const std::string word = row.substr(at, end - at);
    nulls += word[0] == '\n' || at == 0 || word == " -" ? word : " null";
    if (end == std::string::npos) break;
  }
  return nulls;
}

// What each column gives for the API data types 1 to 10 by a cursor over tables, and numbers by one over
// results.
const std::string in_tables = R"(i1 -5 -5 -5 -5 - - -5 -5 - -
i4 - - 70000 70000 - - 70000 70000 - -
i8 - - - -1 - - -1 -1 - -
c2 - -32768 -32768 -32768 - - -32768 -32768 - -
f - - - - -2.75 -2.75 -2.750000e+00 -2.750000e+00 - -
d - - - - 300.5 300.5 3.00500000000000e+02 3.00500000000000e+02 - -
n - - - - - - 1.5 1.5 - -
s - - - - - - full5 full5 - -
x - - - - - - more-than-four-bytes more-than-four-bytes - -
l - - - - - - 7a7b4f6162 7a7b4f6162 - z{Oab
da - - - - - - 20240229 20240229 2024-2-29-0-0-0-0 -
ti - - - - - - 20240229123456 20240229123456 2024-2-29-12-34-56-0 -
mi - - - - - - 20240229123456000789 20240229123456000789 2024-2-29-12-34-56-789 -
)";
const std::string in_results = R"(i1 -5 -5 -5 -5 -5 -5 -5 -5 - -
i4 112 4464 70000 70000 70000 70000 70000 70000 - -
i8 -1 -1 -1 -1 -1 -1 -1 -1 - -
c2 0 -32768 -32768 -32768 -32768 -32768 -32768 -32768 - -
f -2 -2 -2 -2 -2.75 -2.75 -2.750000e+00 -2.750000e+00 - -
d 44 300 300 300 300.5 300.5 3.00500000000000e+02 3.00500000000000e+02 - -
)" + in_tables.substr(in_tables.find("n -"));

TEST_F(Record, EveryColumnAsEveryType) {
  db.run(
      {"CREATE TABLE t (i1 tinyint, i4 int, i8 bigint, c2 csmallint, f float, d double, n decimal(10,2), "
       "s char(5), x text(20,4,20), l blob(20,4,20), da date, ti time, mi microtimestamp, nr int)",
       "INSERT INTO t VALUES -5, 70000, -1, -32768, -2.75, 300.5, '1.5', 'full5', 'more-than-four-bytes', "
       "'7a7B4F6162', '20240229', '20240229123456', '20240229123456000789', 1",
       "INSERT INTO t (nr) VALUES 2"});
  const char *columns[] = {"i1", "i4", "i8", "c2", "f", "d", "n", "s", "x", "l", "da", "ti", "mi"};
  tovik_cur *cursors[] = {
      db.open_cursor("t"),
      tovik_opencur_dist(db, tables, 1, nullptr, nullptr, columns, static_cast<int>(std::size(columns))),
      tovik_selectsql_char(db, "SELECT * FROM t")};
  for (tovik_cur *cursor : cursors) {
    std::string expected = cursor == cursors[0] ? in_tables : in_results;
    for (int row = 0; row < 2; ++row) {
      ASSERT_EQ(tovik_fetchcur(cursor), 1) << tovik_geterr();
      std::string read;
      for (const char *column : columns) read += column + read_all(cursor, column) + "\n";
      EXPECT_EQ(read, expected);
      expected = nulls_of(expected);  // the second row
    }
    EXPECT_EQ(tovik_fetchcur(cursor), 0);
    tovik_closecur(cursor);
  }
}

// Each name, plain and qualified, in any order and again: the first column that bears it.
TEST_F(Record, ByManyNamesAndByOnesThatSeveralBear) {
  std::string columns = "c0 int", values = "0", items = "c0";
  for (int i = 1; i < 200; ++i) {
    const std::string name = ", c" + std::to_string(i);
    columns += name + " int";
    values += ", " + std::to_string(i);
    if (i < 128) items += name + (i % 2 == 0 ? "" : " + 0 AS " + name.substr(2));
  }
  db.run({("CREATE TABLE t (" + columns + ")").c_str(),
          ("INSERT INTO t VALUES " + values + ", " + values).c_str(), "CREATE TABLE u (x int, c1 int)",
          "INSERT INTO u VALUES 1, 7"});
  const char *both[] = {"t", "u"};
  Random random;
  int32_t value = -1;
  for (const bool sql : {false, true}) {
    tovik_cur *cursor = sql ? tovik_selectsql_char(db, ("SELECT " + items + " FROM t").c_str())
                            : tovik_opencur(db, both, 2, nullptr, nullptr);
    for (int read = 0; read < 4000; ++read) {
      ASSERT_EQ(read % 2000 == 0 ? tovik_fetchcur(cursor) : 1, 1);
      const int i = random.below(sql ? 128 : 200);
      const std::string name = (sql || random.one_in(2) ? "c" : "t.c") + std::to_string(i);
      ASSERT_EQ(tovik_getcol_i32(cursor, name.c_str(), &value), 1) << name << tovik_geterr();
      ASSERT_EQ(value, i) << name;
    }
    GIVES(sql ? 202140 : 0) << tovik_getcol_i32(cursor, "u.c1", &value);
    tovik_closecur(cursor);
  }
  EXPECT_EQ(rows_of(tovik_selectsql_char(db, "SELECT x AS c1, c1, c1 + 1, x + 1, x AS EXPRESSION_2 FROM u"),
                    {"c1", "x", "EXPRESSION_1", "EXPRESSION_2"}),
            "1,1,8,2");
  EXPECT_EQ(rows_of(tovik_selectsql_char(db, "SELECT c1, COUNT(*) AS n, MAX(x), x FROM u GROUP BY c1"),
                    {"c1", "n", "EXPRESSION_1", "x"}),
            "7,1,1,-");
  tovik_cur *cursor = tovik_selectsql_char(db, "SELECT c1 + 1 FROM u");
  GIVES(202140) << tovik_getcol_i32(cursor, "EXPRESSION_01", &value)
                << tovik_getcol_i32(cursor, "EXPRESSION_2", &value);
  tovik_closecur(cursor);
}

// Every text that a row gave stays until the next fetch, whatever is read after it.
TEST_F(Record, TextsStayUntilTheNextFetch) {
  db.run({"CREATE TABLE t (a int, s char(4), x text(20, 2, 20), l blob(20, 2, 20))",
          "INSERT INTO t VALUES 1, 'abcd', 'first text', '0102030405', 2, '', 'second', NULL"});
  const std::pair<const char *, const char *> cells[] = {
      {"a", "1"}, {"s", "abcd"}, {"x", "first text"}, {"l", "0102030405"}};
  for (tovik_cur *cursor : {db.open_cursor("t"), tovik_selectsql_char(db, "SELECT a, s, x, l FROM t")}) {
    tovik_value narrows[40], wides[40];
    const char *text;
    const void *bytes;
    int32_t text_length, copied;
    GIVES(0) << tovik_fetchcur(cursor) << tovik_getcol_ibuf_char(cursor, "x", &text, &text_length)
             << tovik_getcol_ibuf_binary(cursor, "l", &bytes, &length)
             << tovik_getcol_binary(cursor, "l", buffer, 5, &copied);
    for (int i = 0; i < 40; ++i)
      GIVES(0) << tovik_getcol(cursor, cells[i % 4].first, TOVIK_CHAR, &narrows[i])
               << tovik_getcol(cursor, cells[i % 4].first, TOVIK_WCHAR, &wides[i]);
    for (int i = 0; i < 40; ++i) {
      EXPECT_STREQ(static_cast<const char *>(narrows[i].read.text), cells[i % 4].second);
      EXPECT_EQ(narrow(wides[i].read.text), cells[i % 4].second);
    }
    EXPECT_EQ(std::string(text, static_cast<size_t>(text_length)), "first text");
    EXPECT_EQ(std::string(static_cast<const char *>(bytes), static_cast<size_t>(length)), "\1\2\3\4\5");
    EXPECT_EQ(std::string(buffer, static_cast<size_t>(copied)), "\1\2\3\4\5");
    EXPECT_EQ(narrows[3].read.column_type, TOVIK_COL_BLOB);
    EXPECT_EQ(tovik_fetchcur(cursor), 1);
    EXPECT_EQ(tovik_getcol_ibuf_binary(cursor, "l", &bytes, &length), 0);
    EXPECT_EQ(length, 5) << "NULL leaves outputs as they are";
    tovik_closecur(cursor);
  }
}

// As the printed plan tells.
TEST_F(Record, AConditionOnAnIndexedColumnLooksAtNoOtherRows) {
  db.run({"CREATE TABLE t (id int, s char(20), x char(20))", "CREATE UNIQUE INDEX ti ON t (id)",
          "CREATE INDEX ts ON t (s)", "SET HVI_QUERY_PLAN 'ON'"});
  tovik_cond conds[5];
  tovik_comp_char(&conds[0], "x", TOVIK_LIKE, "_7");
  tovik_comp_i64(&conds[1], "id", TOVIK_EQ, 7);
  tovik_comp_char(&conds[2], "t.s", TOVIK_EQ, "name 1");
  tovik_range_i32(&conds[3], "id", 5, 1, 9, 0);
  tovik_and(&conds[4], &conds[0], &conds[2]);
  for (const tovik_cond &cond : conds) {
    const std::string plan = printed_by([&] { db.rows("t", {"id"}, &cond); });
    EXPECT_EQ(plan.find("Use records from indices") != std::string::npos, &cond != &conds[0]) << plan;
  }
}

TEST_F(Record, WideTextsAndTheirSurrogates) {
  db.run({"CREATE TABLE t (s char(20), x text(20, 4, 20), l blob(20, 4, 20), n int)"});
  const char16_t pair[] = u"a\U0001F600\u00fc", lone[] = u"a\xD83D";
  const uint16_t *const text = wide(pair), *const bad = wide(lone);
  tovik_colval values[4];
  GIVES(0) << tovik_setcol_wchar(&values[0], "s", text) << tovik_setcol_wchar(&values[1], "x", text)
           << tovik_setcol_wchar(&values[2], "l", wide(u"0aFF"))
           << tovik_setcol_wchar(&values[3], "n", wide(u"-12")) << tovik_insert(db, "t", values, 4)
           << tovik_execsql_wchar(db, wide(u"UPDATE t SET x = '\U0001F600' WHERE s LIKE 'a_\u00fc'"));
  EXPECT_EQ(db.rows("t", {"s", "x", "l", "n"}), "a\xF0\x9F\x98\x80\xC3\xBC,\xF0\x9F\x98\x80,0aff,-12");
  tovik_cond conds[4];
  tovik_comp_wchar(&conds[0], "s", TOVIK_EQ, text);
  tovik_comp_wchar(&conds[1], "s", TOVIK_LIKE, wide(u"_\U0001F600_"));
  tovik_comp_wchar(&conds[2], "s", TOVIK_MATCH, wide(u"A?\u00fc"));
  tovik_range_wchar(&conds[3], "s", text, 1, text, 1);
  for (const tovik_cond &cond : conds) EXPECT_EQ(db.rows("t", {"n"}, &cond), "-12");
  GIVES(0) << tovik_setcol_wchar(&values[0], "s", bad) << tovik_comp_wchar(&conds[0], "s", TOVIK_EQ, bad)
           << tovik_range_wchar(&conds[1], "s", text, 1, bad, 1);
  GIVES(301) << tovik_insert(db, "t", values, 2) << tovik_update(db, "t", values, 1, nullptr)
             << db.open_cursor("t", &conds[0]) << tovik_update(db, "t", &values[3], 1, &conds[1]);
  uint16_t buffer[5];
  tovik_cur *cursor = tovik_selectsql_wchar(db, wide(u"SELECT s FROM t WHERE s = 'a\U0001F600\u00fc'"));
  GIVES(0) << tovik_fetchcur(cursor);
  GIVES(190016) << tovik_getcol_wchar(cursor, "s", buffer, 9);
  GIVES(0) << tovik_getcol_wchar(cursor, "s", buffer, 10);
  EXPECT_EQ(memcmp(buffer, pair, sizeof pair), 0);
  tovik_closecur(cursor);
}

TEST_F(Record, RowsOfSeveralTables) {
  db.run({"CREATE TABLE p (id int, name char(9))", "CREATE TABLE o (id int, p int, price double)",
          "INSERT INTO p VALUES 1, 'ann', 2, 'bob', 3, NULL",
          "INSERT INTO o VALUES 7, 2, 1.5, 8, 1, 2.5, 9, 2, 2.5, 10, NULL, 1"});
  const char *tables[] = {"p", "o"}, *names[] = {"name"};
  tovik_cond joined, ambiguous;
  GIVES(0) << tovik_compcol(&joined, "p.id", TOVIK_EQ, "o.p") << tovik_comp_i32(&ambiguous, "id", TOVIK_EQ, 3)
           << tovik_sort(&order, 2, "price", 1, "name", 0);
  const std::vector<const char *> read = {"name", "o.id", "id"};
  EXPECT_EQ(rows_of(tovik_opencur(db, tables, 2, &joined, &order), read), "ann,8,1;bob,9,2;bob,7,2");
  EXPECT_EQ(rows_of(tovik_opencur(db, tables, 2, &ambiguous, nullptr), read), "-,7,3;-,8,3;-,9,3;-,10,3")
      << "the first table's id";
  EXPECT_EQ(rows_of(tovik_opencur_dist(db, tables, 2, nullptr, nullptr, names, 1), {"p.name"}), "ann;bob;-");
}

// As long as the pool holds, and as deep as expressions may be, on a small stack.
TEST_F(Record, LongAndDeepConditions) {
  db.run({"CREATE TABLE t (a int)", "INSERT INTO t VALUES 1, 2"});
  tovik_comp_i32(&one, "a", TOVIK_EQ, 1);
  std::vector<tovik_cond> left(300, one), right(301, one);
  for (size_t i = 1; i < left.size(); ++i) tovik_or(&left[i], &left[i - 1], &one);
  for (size_t i = 1; i < right.size(); ++i) tovik_and(&right[i], &one, &right[i - 1]);
  const std::pair<const tovik_cond *, const char *> cases[] = {
      {&left.back(), "1"}, {&right[298], "1"}, {&right[300], "error 150004"}};
  for (const auto &[condition, expected] : cases) {
    std::string rows;
    on_small_stack([&] { rows = db.rows("t", {"a"}, condition); });
    EXPECT_EQ(rows, expected);
  }
}

TEST_F(Record, TheRecordAsText) {
  char text[200], cut[9];
  EXPECT_EQ(tovik_droptbl(db, "nosuch"), -1);
  tovik_geterrinfo(text, sizeof text);
  EXPECT_EQ(std::string(text).rfind("[UXA error information]\n[1]:141004(0) Error:[USR-141004] ", 0), 0u)
      << text;
  tovik_geterrinfo(cut, sizeof cut);
  EXPECT_EQ(strlen(cut), 8u) << cut;
  EXPECT_EQ(tovik_geterr(), 141004) << "asking changes nothing";
}

// ---- values and rows ----

TEST_F(Record, ValuesIntoColumnsOfOtherTypes) {
  db.run({"CREATE TABLE t (i int, s char(9), x text(20, 4, 20), l blob(20, 4, 20), da date)"});
  const DateTimeRec date = {2024, 2, 29, 0, 0, 0, 0, 0}, no_date = {2023, 2, 29, 0, 0, 0, 0, 0};
  tovik_colval good[4], bad[3];
  GIVES(0) << tovik_setcol_double(&good[0], "i", -7.9) << tovik_setcol_i32(&good[1], "s", 77)
           << tovik_setcol_binary(&good[2], "l", "\0\1\xFE", 3) << tovik_setcol_ctime(&good[3], "da", &date)
           << tovik_insert(db, "t", good, 4) << tovik_setcol_ctime(&bad[0], "i", &date)
           << tovik_setcol_char(&bad[1], "x", "") << tovik_setcol_ctime(&bad[2], "da", &no_date);
  const int codes[] = {150001, 144001, 113006};
  for (int i = 0; i < 3; ++i) GIVES(codes[i]) << tovik_update(db, "t", &bad[i], 1, nullptr);
  EXPECT_EQ(db.rows("t", {"i", "s", "x", "l", "da"}), "-7,77,-,0001fe,20240229");
}

TEST_F(Record, Transactions) {
  db.run({"CREATE TABLE t (a int)", "INSERT INTO t VALUES 1, 2"});
  tovik_colval a;
  tovik_setcol_i32(&a, "a", 5);
  const tovik_coldef column = coldef("c", TOVIK_COL_INT);
  GIVES(0) << tovik_begin(db);
  GIVES(140004) << tovik_begin(db);
  GIVES(0) << tovik_createtbl(db, "n", &column, 1) << tovik_rollback(db);
  GIVES(140002) << tovik_rollback(db) << tovik_commit(db);
  GIVES(0) << tovik_createtbl(db, "n", &column, 1) << tovik_begin(db) << tovik_insert(db, "t", &a, 1);
  tovik_cur *cursor = db.open_cursor("t");
  db.reopen();  // with a cursor and a transaction
  GIVES(202116) << tovik_fetchcur(cursor);
  EXPECT_EQ(db.rows("t", {"a"}) + db.rows("n", {"c"}), "1;2");
  db.run({"SET HVI_AUTO_COMMIT 'OFF'"});
  GIVES(0) << tovik_delete(db, "t", nullptr) << tovik_begin(db) << tovik_insert(db, "t", &a, 1)
           << tovik_rollback(db) << tovik_droptbl(db, "n");
  db.reopen();
  EXPECT_EQ(db.rows("t", {"a"}), "");
  GIVES(141004) << tovik_droptbl(db, "n");
}

// ---- schema ----

TEST_F(Record, TablesAndTheirColumns) {
  const tovik_coldef made[] = {coldef("i1", 0x41, 5, 6), coldef(" da\t", 0x810, 1),
                               coldef("s", 0x20c, 0, 7, 1), coldef("x", 0x120e), coldef("l", 0x1412, 100, 8)};
  const char *const expected[] = {"i1 41 0 0 0 0", "da 810 0 0 0 0", "s 20c 1 20 1 0", "x 120e 0 20 20 20",
                                  "l 1412 0 100 8 20"};
  const int count = static_cast<int>(std::size(made));
  char buffer[8];
  GIVES(0) << tovik_gettbllst(db, buffer, 1) << tovik_createtbl(db, "\r a\n", made, count);
  GIVES(141003) << tovik_createtbl(db, "a", made, count);
  tovik_coldef listed[std::size(made) + 1];
  EXPECT_EQ(tovik_getcolilst(db, "a", listed, 2), 2);
  ASSERT_EQ(tovik_getcolilst(db, "a", listed, count + 1), count);
  for (int i = 0; i < count; ++i) {
    char text[100];
    snprintf(text, sizeof text, "%.19s %x %d %d %d %d", listed[i].name, static_cast<unsigned>(listed[i].type),
             listed[i].not_null, listed[i].p1, listed[i].p2, listed[i].p3);
    EXPECT_STREQ(text, expected[i]);
  }
  GIVES(0) << tovik_createtbl(db, "bc", listed, count);  // what was listed can be made
  GIVES(146001) << tovik_gettbllst(db, buffer, 5);
  memset(buffer, '#', sizeof buffer);
  EXPECT_EQ(tovik_gettbllst(db, buffer, 6), 2);
  EXPECT_EQ(std::string(buffer, sizeof buffer), std::string("a\0bc\0###", sizeof buffer));
}

TEST_F(Record, CountingColumnsAndIndices) {
  const tovik_coldef columns[] = {coldef("a", TOVIK_COL_INT), coldef("b", TOVIK_COL_CHAR)};
  const tovik_autoinc counts = {1, 100, 5}, no_integer = {2, 1, 1};
  const char *const both[] = {"a", "b"};
  tovik_colval values[2];
  GIVES(0) << tovik_createtbl_ex(db, "t", columns, 2, &counts) << tovik_setcol_i32(&values[0], "a", 7)
           << tovik_setcol_char(&values[1], "b", "x");
  GIVES(141006) << tovik_createtbl_ex(db, "n", columns, 2, &no_integer);
  for (const int given : {1, 0, 1}) GIVES(0) << tovik_insert(db, "t", values + given, 2 - given);
  EXPECT_EQ(db.rows("t", {"a"}), "100;7;105");
  GIVES(145005) << tovik_createidx(db, "ta", both, 1, "t", 0, 0);  // a counting column has one
  GIVES(143001) << tovik_createidx(db, "tb", both + 1, 1, "t", 1, 17);
  GIVES(0) << tovik_createidx(db, "tba", both, 2, " t ", 1, 7);
  GIVES(143001) << tovik_insert(db, "t", values, 2);
  GIVES(0) << tovik_dropidx(db, "tba");
}

}  // namespace
}  // namespace tovik::test
