#include <cstring>

#include "data/function/builtin.h"
#include "data/value/datetime.h"
#include "frame/error.h"
#include "frame/param_text.h"
#include "platform/platform.h"

namespace tovik {

namespace {

constexpr const char *day_names[7] = {"Sunday",   "Monday", "Tuesday", "Wednesday",
                                      "Thursday", "Friday", "Saturday"};

int64_t day_number_of(const DateTimeRec &date) {
  return day_number(date.year, date.month, date.day);
}

DateTimeRec now() {
  DateTimeRec record{};
  system_driver.local_now(&record);
  return record;
}

DateTimeRec without_time(DateTimeRec record) {
  record.hour = record.minute = record.second = 0;
  record.microseconds = 0;
  return record;
}

DateTimeRec without_microseconds(DateTimeRec record) {
  record.microseconds = 0;
  return record;
}

bool give_day_name(const DateTimeRec &date, MemoryPool &pool, Value &result) {
  const char *name = day_names[weekday_of(day_number_of(date))];
  const size_t length = strlen(name);
  char *copy = builtin_allocate(pool, static_cast<int64_t>(length) + 1);
  if (copy == nullptr) return false;
  memcpy(copy, name, length + 1);
  result.text = TextRef{copy, static_cast<int32_t>(length)};
  return true;
}

int64_t day_of_year(const DateTimeRec &date) {
  return day_number_of(date) - day_number(date.year, 1, 1) + 1;
}

// Weeks begin on Sunday; the days before the year's first Sunday are week 0.
int64_t week_of_year(const DateTimeRec &date) {
  const int64_t january_first = day_number(date.year, 1, 1);
  const int64_t first_sunday = january_first + (7 - weekday_of(january_first)) % 7;
  const int64_t day = day_number_of(date);
  return day < first_sunday ? 0 : (day - first_sunday) / 7 + 1;
}

DateTimeRec last_day(DateTimeRec date) {
  date.day = static_cast<int8_t>(days_in_month(date.year, date.month));
  return date;
}

// The first such weekday after date: one to seven days later.
bool next_day(const DateTimeRec &date, const char *name, DateTimeRec *result) {
  int weekday = 0;
  while (weekday < 7 && !text_equal_nocase(name, day_names[weekday])) ++weekday;
  if (weekday == 7) return fail(status::argument_2_value);
  const int ahead = (weekday - weekday_of(day_number_of(date)) + 6) % 7 + 1;
  return datetime_add(date, ahead, unit_day, result);
}

}  // namespace

bool builtin_datetime(int number, const Value *arguments, int, MemoryPool &pool, Value &result) {
  switch (number) {
    case builtin::add_months:
      return datetime_add(arguments[0].datetime, arguments[1].integer, unit_month, &result.datetime);
    case builtin::current_date:
      result.datetime = without_time(now());
      return true;
    case builtin::current_time:
      result.datetime = without_microseconds(now());
      return true;
    case builtin::current_timestamp:
    case builtin::now:
      result.datetime = now();
      return true;
    case builtin::dayname:
      return give_day_name(arguments[0].datetime, pool, result);
    case builtin::dayofweek:
      result.integer = weekday_of(day_number_of(arguments[0].datetime));
      return true;
    case builtin::dayofyear:
      result.integer = day_of_year(arguments[0].datetime);
      return true;
    case builtin::last_day:
      result.datetime = last_day(arguments[0].datetime);
      return true;
    case builtin::next_day:
      if (arguments[1].text.text == nullptr) return fail(status::function_string);
      return next_day(arguments[0].datetime, arguments[1].text.text, &result.datetime);
    case builtin::weekofyear:
      result.integer = week_of_year(arguments[0].datetime);
      return true;
    default:
      return fail(status::function_argument);
  }
}

}  // namespace tovik
