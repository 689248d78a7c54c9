#include "data/value/datetime.h"

#include <gtest/gtest.h>

#include <climits>
#include <string>

#include "frame/error.h"

namespace tovik {
namespace {

DateTimeRec record_of(const char *text) {
  DateTimeRec record{};
  EXPECT_TRUE(parse_datetime(type::microtimestamp, text, true, &record)) << text;
  return record;
}

std::string text_of(const DateTimeRec &record) {
  char text[24];
  EXPECT_TRUE(format_datetime(type::microtimestamp, record, text));
  return text;
}

TEST(DatetimeTest, ParsingChecksEveryField) {
  const struct {
    TypeCode code;
    const char *text;
    StatusCode status;  // 0: valid
  } cases[] = {
      {type::date, "20000229", 0},
      {type::date, "19000229", 113006},
      {type::date, "20231301", 113005},
      {type::date, "00000101", 113004},
      {type::date, "15821004", 0},
      {type::date, "15821005", 113019},
      {type::date, "15821015", 0},
      {type::date, "15000229", 0},  // the Julian calendar has it
      {type::date, "15010229", 113006},
      {type::date, "2020-01-01", 113011},
      {type::date, "2020010112345", 113012},
      {type::time, "20200101240000", 113007},
      {type::time, "20200101236000", 113008},
      {type::time, "20200101235960", 113009},
      {type::microtimestamp, "20200101235959999999", 0},
  };
  for (const auto &c : cases) {
    SCOPED_TRACE(c.text);
    err_clear();
    DateTimeRec record;
    EXPECT_EQ(parse_datetime(c.code, c.text, true, &record), c.status == 0);
    EXPECT_EQ(error_record().last_code, c.status);
    err_clear();
    EXPECT_EQ(parse_datetime(c.code, c.text, false, &record), c.status == 0);
    EXPECT_EQ(error_record().count, 0);
  }
}

TEST(DatetimeTest, NowAndTodayComeFromThePlatform) {
  const SystemDriver driver = system_driver;
  system_driver.local_now = [](DateTimeRec *now) { *now = DateTimeRec{2021, 2, 3, 4, 5, 6, 0, 789000}; };
  EXPECT_EQ(text_of(record_of("NOW")), "20210203040506789000");
  EXPECT_EQ(text_of(record_of("Today")), "20210203000000000000");
  system_driver = driver;
}

TEST(DatetimeTest, DamagedRecordsFillTheirTextAndNoMore) {
  EXPECT_EQ(text_of({20, 1, 2, 3, 4, 5, 0, 6}), "00200102030405000006");
  EXPECT_EQ(text_of({INT16_MIN, -128, -128, -128, -128, -128, 0, INT_MIN}).size(), 20u);
}

TEST(DatetimeTest, Arithmetic) {
  const struct {
    const char *start;
    int64_t amount;
    int unit;
    const char *result;
  } cases[] = {
      {"20200229120000", 1, unit_year, "20210301120000000000"},
      {"20200315", -2019, unit_year, "00010315000000000000"},
      {"20210131235959", 1, unit_month, "20210303235959000000"},
      {"20211231", -1, unit_month, "20211201000000000000"},
      {"15821004", 1, unit_day, "15821015000000000000"},
      {"15821015", -1, unit_day, "15821004000000000000"},
      {"15811010123456", 1, unit_year, "15821015123456000000"},
      {"15821114", -1, unit_month, "15821015000000000000"},
      {"15000301", -1, unit_second, "15000229235959000000"},
      {"15000131", 1, unit_month, "15000302000000000000"},
      {"15040229", -4, unit_year, "15000229000000000000"},
      {"20200228230000", 25, unit_hour, "20200301000000000000"},
      {"20200101", -1, unit_microsecond, "20191231235959999999"},
      {"00010101", 315537897599999999, unit_microsecond, "99991229235959999999"},
  };
  for (const auto &c : cases) {
    DateTimeRec result;
    ASSERT_TRUE(datetime_add(record_of(c.start), c.amount, c.unit, &result)) << c.start;
    EXPECT_EQ(text_of(result), c.result) << c.start << " + " << c.amount << " of " << c.unit;
  }
}

TEST(DatetimeTest, ResultsOutsideTheCalendarFail) {
  const DateTimeRec first = record_of("00010101"), last = record_of("99991231235959999999");
  for (int unit = unit_year; unit <= unit_microsecond; ++unit) {
    DateTimeRec result;
    for (const int64_t amount : {int64_t{1}, INT64_MAX, INT64_MAX - 1}) {
      err_clear();
      EXPECT_FALSE(datetime_add(last, amount, unit, &result)) << unit << " " << amount;
      EXPECT_EQ(error_record().last_code, 113004);
      EXPECT_FALSE(datetime_add(first, -amount, unit, &result)) << unit << " " << -amount;
    }
    EXPECT_FALSE(datetime_add(first, INT64_MIN, unit, &result)) << unit;
  }
}

TEST(DatetimeTest, DayNumbersCountEveryDayOfTheCalendar) {
  EXPECT_EQ(day_number(2000, 1, 1), 2451545);
  EXPECT_EQ(weekday_of(day_number(2000, 1, 1)), 6);
  EXPECT_EQ(weekday_of(day_number(2023, 1, 1)), 0);
  int64_t number = day_number(1, 1, 1) - 1;
  for (int year = 1; year <= 9999; ++year) {
    const bool leap = year < 1582 ? year % 4 == 0 : leap_year(year);
    for (int month = 1; month <= 12; ++month) {
      const int days = month == 2 ? (leap ? 29 : 28) : days_in_month(year, month);
      for (int day = 1; day <= days; ++day) {
        if (year == 1582 && month == 10 && day == 5) day = 15;
        ++number;
        ASSERT_TRUE(check_datetime(type::date, {static_cast<int16_t>(year), static_cast<int8_t>(month),
                                                static_cast<int8_t>(day), 0, 0, 0, 0, 0}));
        int64_t back_year;
        int back_month, back_day;
        date_from_day_number(number, &back_year, &back_month, &back_day);
        ASSERT_TRUE(day_number(year, month, day) == number && back_year == year && back_month == month &&
                    back_day == day)
            << year << "-" << month << "-" << day;
      }
    }
  }
}

}  // namespace
}  // namespace tovik
