// Values of the column types: as texts, stored, compared; and the calendar.
#include "data/value/types.h"

#include <algorithm>
#include <climits>
#include <cstring>

#include "data/value/datetime.h"
#include "data/value/literal.h"
#include "engine_support.h"

namespace tovik {
namespace {

using test::first_status;

class TypesTest : public testing::Test {
 protected:
  TypesTest() {
    env_start("");
    env_table[static_cast<int>(Env::gmt_time)].number = 1;
    err_clear();
  }
};

std::vector<uint8_t> stored_text(TypeCode code, const char *text) {
  const ColumnType column = {code, 5};
  std::vector<uint8_t> stored(static_cast<size_t>(type_stored_size(column)), 0xEE);
  const ValueMode mode = text == nullptr ? ValueMode::null : ValueMode::text;
  if (store_value(column, mode, text, stored.data()) == Stored::failed) stored.clear();
  return stored;
}

// The text, or the only status that was recorded.
std::string fetched_text(TypeCode code, const std::vector<uint8_t> &stored) {
  std::string text(static_cast<size_t>(std::max(type_row(code)->text_width + 2, 6)), '#');
  if (!stored.empty()) {
    EXPECT_EQ(fetch_value({code, 5}, ValueMode::text, stored.data(), text.data()), Stored::value);
    return text.c_str();
  }
  EXPECT_EQ(error_record().count, 1);
  return std::to_string(first_status());
}

TEST_F(TypesTest, TextIsStoredAndReadBack) {
  const std::tuple<TypeCode, const char *, const char *> cases[] = {
      {type::tinyint, "128", "113002"},
      {type::tinyint, "-128", "113002"},
      {type::int32, " \t+42", "42"},
      {type::bigint, "-9223372036854775808", "113002"},
      {type::cbigint, "-99999999999999999999", "-9223372036854775808"},
      {type::cbigint, "99999999999999999999", "113001"},
      {type::cbigint, "", "113015"},
      {type::float32, "-123456789", "-1.234568e+08"},
      {type::float64, "-1.2345678901234567e-300", "-1.23456789012346e-300"},  // the widest
      {type::float64, "0x1.8p1", "3.00000000000000e+00"},
      {type::float64, "1e309", "113001"},
      {type::character, "abcde", "abcde"},
      {type::character, "", ""},
      {type::decimal, "1.50", "1.50"},
      {type::date, "20200101123456", "20200101"},
      {type::microtimestamp, "20000229235959123456", "20000229235959123456"},
  };
  for (const auto &[code, text, expected] : cases)
    EXPECT_EQ(fetched_text(code, stored_text(code, text)), expected) << type_row(code)->name << " " << text;
}

TEST_F(TypesTest, TimesAreStoredInUtc) {
  env_table[static_cast<int>(Env::gmt_time)].number = 0;
  const auto use = [](const char *zone) {
    setenv("TZ", zone, 1);
    ASSERT_EQ(system_driver.sys_start(), 0);
  };
  // The first and the last hour of the calendar lie outside it in UTC. What was stored in one zone is read in
  // another, and can be stored again.
  const struct {
    const char *stored_in, *text, *read_in, *expected;
  } cases[] = {
      {"EST5", "00010101000000", "EST5", "00010101000000"},
      {"EST5", "99991231235959", "EST5", "99991231235959"},
      {"JST-9", "00010101000000", "JST-9", "00010101000000"},
      {"JST-9", "99991231235959", "JST-9", "99991231235959"},
      {"JST-9", "20200101100000", "UTC", "20200101010000"},
      {"UTC", "99991231235959", "JST-9", "99991231235959"},
      {"JST-9", "00010101020000", "UTC", "00010101000000"},
      {"JST-9", "00010101020000", "EST5", "00010101000000"},
      {"JST-9", "15821015010000", "UTC", "15821004160000"},
      {"JST-9", "15000301010000", "UTC", "15000229160000"},
  };
  for (const auto &c : cases)
    for (const TypeCode code : {type::time, type::microtimestamp}) {
      SCOPED_TRACE(std::string(c.text) + " in " + c.stored_in);
      use(c.stored_in);
      const std::vector<uint8_t> stored = stored_text(code, c.text);
      use(c.read_in);
      DateTimeRec record;
      ASSERT_EQ(fetch_value({code}, ValueMode::binary, stored.data(), &record), Stored::value);
      EXPECT_EQ(fetched_text(code, stored).substr(0, 14), c.expected);
      EXPECT_TRUE(check_datetime(type::microtimestamp, record));
      EXPECT_TRUE(code == type::microtimestamp || record.microseconds == 0);
    }
  unsetenv("TZ");
}

template <class T>
std::string bytes_of(const T &value) {
  return std::string(reinterpret_cast<const char *>(&value), sizeof value);
}

TEST_F(TypesTest, ValuesOfTwoTypesCompare) {
  const int64_t odd = 9007199254740993, even = 9007199254740992;
  const DateTimeRec early{2020, 1, 1, 10, 0, 0, 0, 5}, late{2020, 1, 1, 10, 0, 0, 0, 6};
  const struct {
    TypeCode a;
    std::string left;
    TypeCode b;
    std::string right;
    int result;
  } cases[] = {
      {type::bigint, bytes_of(odd), type::cint, bytes_of(even), 1},
      {type::bigint, bytes_of(odd), type::float64, bytes_of(static_cast<double>(even)), 0},
      {type::microtimestamp, bytes_of(late), type::time, bytes_of(early), 0},
      {type::blob, bytes_of(1) + "z", TYPE_BINARY, bytes_of(2) + "ab", -1},
      {type::blob, bytes_of(2) + "a\xFF", type::blob, bytes_of(2) + "ab", 1},
  };
  for (const auto &c : cases) {
    int result = 9;
    ASSERT_TRUE(compare_values(c.a, c.left.data(), 0, c.b, c.right.data(), &result));
    EXPECT_EQ(result, c.result) << "case " << &c - cases;
  }
}

TEST_F(TypesTest, Literals) {
  char target[32];
  EXPECT_TRUE(parse_literal(TYPE_BINARY, "fFABC", Mishap::recorded, target));
  EXPECT_EQ(std::string(target, 7), bytes_of(3) + "\xFF\xAB\x0C");
  const std::tuple<TypeCode, const char *, StatusCode> failing[] = {
      {TYPE_FLOAT, "1e999", 113001}, {type::microtimestamp, "2020", 113012}, {TYPE_BINARY, "0g", 113013}};
  for (const auto &[classes, text, code] : failing)
    for (const Mishap mishap : {Mishap::recorded, Mishap::silent}) {
      EXPECT_FALSE(parse_literal(classes, text, mishap, target)) << text;
      EXPECT_EQ(first_status(), mishap == Mishap::recorded ? code : 0) << text;
    }
}

// Stored values in their order, by their type's own comparison and by that of any two types.
TEST_F(TypesTest, StoredValuesHaveTheirOrder) {
  const struct {
    std::vector<TypeCode> codes;
    std::vector<const char *> ascending;
  } cases[] = {
      {{type::tinyint, type::smallint, type::int32, type::bigint}, {nullptr, "-127", "-1", "0", "1", "127"}},
      {{type::ctinyint, type::csmallint, type::cint, type::cbigint}, {nullptr, "-128", "-1", "0", "127"}},
      {{type::bigint, type::cbigint}, {nullptr, "-9223372036854775807", "-4294967296", "1", "4294967296"}},
      {{type::float32, type::float64},
       {nullptr, "-inf", "-1e30", "-1", "0", "1e-30", "1.00001", "inf", "nan"}},
      {{type::character, type::varchar}, {nullptr, "a", "a\x01", "aa", "a\xFF", "b", "\x7F", "\x80"}},
      {{type::date}, {nullptr, "00010101", "00010201", "02560101", "20191231", "20200101", "20200102"}},
      {{type::time, type::microtimestamp}, {nullptr, "20200101000001", "20200101000100", "20200101010000"}},
      {{type::microtimestamp}, {"20200101000000000001", "20200101000000000256", "20200101000000065536"}},
  };
  for (const auto &c : cases)
    for (const TypeCode code : c.codes)
      for (size_t i = 0; i < c.ascending.size(); ++i)
        for (size_t j = 0; j < c.ascending.size(); ++j) {
          const std::vector<uint8_t> a = stored_text(code, c.ascending[i]),
                                     b = stored_text(code, c.ascending[j]);
          SCOPED_TRACE(type_row(code)->name + (": " + testing::PrintToString(a)) + testing::PrintToString(b));
          const int expected = (i > j) - (i < j);
          int general = 9;
          ASSERT_TRUE(compare_stored(code, a.data(), 5, code, b.data(), &general));
          EXPECT_EQ(general, expected);
          EXPECT_EQ(stored_compare_of(code)(a.data(), b.data(), 5), expected);
        }
}

// ---- dates ----

TEST_F(TypesTest, DamagedDatesHaveATextOfTheSameLength) {
  char text[24];
  EXPECT_TRUE(format_datetime(type::microtimestamp, {20, 1, 2, 3, 4, 5, 0, 6}, text));
  EXPECT_STREQ(text, "00200102030405000006");
  EXPECT_TRUE(
      format_datetime(type::microtimestamp, {INT16_MIN, -128, -128, -128, -128, -128, 0, INT_MIN}, text));
  EXPECT_EQ(strlen(text), 20u);
}

TEST(Calendar, DayNumbersCountEveryDayOfTheCalendar) {
  EXPECT_EQ(day_number(2000, 1, 1), 2451545);
  EXPECT_EQ(weekday_of(day_number(2000, 1, 1)), 6);
  EXPECT_EQ(weekday_of(day_number(2023, 1, 1)), 0);
  int year = 1, month = 1, day = 1;
  for (int64_t number = day_number(1, 1, 1); year <= 9999; ++number) {
    ASSERT_TRUE(check_datetime(type::date, {static_cast<int16_t>(year), static_cast<int8_t>(month),
                                            static_cast<int8_t>(day), 0, 0, 0, 0, 0}));
    int64_t back_year;
    int back_month, back_day;
    date_from_day_number(number, &back_year, &back_month, &back_day);
    ASSERT_TRUE(day_number(year, month, day) == number && back_year == year && back_month == month &&
                back_day == day)
        << year << "-" << month << "-" << day;
    const bool leap = year < 1582 ? year % 4 == 0 : leap_year(year);
    if (year == 1582 && month == 10 && day == 4) day = 14;
    if (day++ < (month == 2 ? (leap ? 29 : 28) : days_in_month(year, month))) continue;
    day = 1;
    year += month / 12;
    month = month % 12 + 1;
  }
}

}  // namespace
}  // namespace tovik
