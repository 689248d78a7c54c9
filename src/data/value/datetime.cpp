#include "data/value/datetime.h"

#include "frame/env.h"
#include "frame/error.h"
#include "frame/param_text.h"

namespace tovik {

namespace {

constexpr int reform_year = 1582;
constexpr int year_limit = 9999;
constexpr int64_t span_days = 3652500;  // more days than the years 1 to 9999 have
constexpr int64_t microseconds_per_second = 1000000;
constexpr int64_t microseconds_per_day = 86400 * microseconds_per_second;

bool refuse(Mishap mishap, StatusCode code) {
  if (mishap == Mishap::recorded) err_set(code);
  return false;
}

int digits_value(const char *text, int count) {
  int value = 0;
  for (int i = 0; i < count; ++i) value = value * 10 + (text[i] - '0');
  return value;
}

char *put_digits(char *text, int value, int width) {
  unsigned rest = value < 0 ? 0u - static_cast<unsigned>(value) : static_cast<unsigned>(value);
  for (int i = width - 1; i >= 0; --i, rest /= 10) text[i] = static_cast<char>('0' + rest % 10);
  return text + width;
}

bool is_type(TypeCode code, TypeCode type) {
  return (code & type_index_mask) == (type & type_index_mask);
}

// The days that the calendar reform left out.
bool skipped_day(int year, int month, int day) {
  return year == reform_year && month == 10 && day > 4 && day < 15;
}

bool check_date(const DateTimeRec &record, Mishap mishap) {
  if (record.year < 1 || record.year > year_limit) return refuse(mishap, status::input_year);
  if (record.month < 1 || record.month > 12) return refuse(mishap, status::input_month);
  if (record.day < 1 || record.day > days_in_month(record.year, record.month))
    return refuse(mishap, status::input_day);
  if (skipped_day(record.year, record.month, record.day)) return refuse(mishap, status::input_date_skipped);
  return true;
}

bool check_time(const DateTimeRec &record, Mishap mishap) {
  if (record.hour < 0 || record.hour > 23) return refuse(mishap, status::input_hour);
  if (record.minute < 0 || record.minute > 59) return refuse(mishap, status::input_minute);
  if (record.second < 0 || record.second > 59) return refuse(mishap, status::input_second);
  return true;
}

bool check_microsecond(const DateTimeRec &record, Mishap mishap) {
  if (record.microseconds < 0 || record.microseconds >= microseconds_per_second)
    return refuse(mishap, status::input_microsecond);
  return true;
}

void clear_time(DateTimeRec *record) {
  record->hour = record->minute = record->second = 0;
  record->microseconds = 0;
}

bool parse_digits(TypeCode code, const char *text, Mishap mishap, DateTimeRec *record) {
  int length = 0;
  for (; text[length] != '\0'; ++length)
    if (text[length] < '0' || text[length] > '9') return refuse(mishap, status::input_date_digits);
  if (length != 8 && length != 14 && length != 20) return refuse(mishap, status::input_date_length);

  record->year = static_cast<int16_t>(digits_value(text, 4));
  record->month = static_cast<int8_t>(digits_value(text + 4, 2));
  record->day = static_cast<int8_t>(digits_value(text + 6, 2));
  if (!check_date(*record, mishap)) return false;
  if (is_type(code, type::date) || length == 8) return true;

  record->hour = static_cast<int8_t>(digits_value(text + 8, 2));
  record->minute = static_cast<int8_t>(digits_value(text + 10, 2));
  record->second = static_cast<int8_t>(digits_value(text + 12, 2));
  if (!check_time(*record, mishap)) return false;
  if (is_type(code, type::time) || length == 14) return true;

  record->microseconds = digits_value(text + 14, 6);
  return true;  // six digits are always in range
}

// Moves the date and keeps the time; a day that was left out becomes the first that was not. False when the
// date leaves the calendar.
[[nodiscard]] bool set_date(DateTimeRec *record, int64_t year, int64_t month, int64_t day) {
  if (year < 1 || year > year_limit) return fail(status::input_year);
  if (skipped_day(static_cast<int>(year), static_cast<int>(month), static_cast<int>(day))) day = 15;
  record->year = static_cast<int16_t>(year);
  record->month = static_cast<int8_t>(month);
  record->day = static_cast<int8_t>(day);
  return true;
}

bool add_years(int64_t amount, DateTimeRec *record) {
  if (amount < -year_limit || amount > year_limit) return fail(status::input_year);
  const int64_t year = record->year + amount;
  const bool lost_day = record->month == 2 && record->day == 29 && !leap_year(static_cast<int>(year));
  return lost_day ? set_date(record, year, 3, 1) : set_date(record, year, record->month, record->day);
}

// A day that the new month does not have is counted on into the month after it.
bool add_months(int64_t amount, DateTimeRec *record) {
  if (amount < -12 * year_limit || amount > 12 * year_limit) return fail(status::input_year);
  const int64_t months = record->year * 12 + (record->month - 1) + amount;
  if (months < 0) return fail(status::input_year);
  const int year = static_cast<int>(months / 12), month = static_cast<int>(months % 12) + 1;
  const int over = record->day - days_in_month(year, month);
  return over > 0 ? set_date(record, year, month + 1, over) : set_date(record, year, month, record->day);
}

bool add_days(int64_t amount, DateTimeRec *record) {
  if (amount < -span_days || amount > span_days) return fail(status::input_year);
  int64_t year = 0;
  int month = 0, day = 0;
  date_from_day_number(day_number(record->year, record->month, record->day) + amount, &year, &month, &day);
  return set_date(record, year, month, day);
}

// Whole days are split off first, so that what is left fits in one day's microseconds.
bool add_time(int64_t amount, int64_t unit_microseconds, DateTimeRec *record) {
  const int64_t units_per_day = microseconds_per_day / unit_microseconds;
  int64_t days = amount / units_per_day;
  int64_t time = amount % units_per_day * unit_microseconds;
  time += ((record->hour * 60 + record->minute) * 60 + record->second) * microseconds_per_second +
          record->microseconds;
  days += time / microseconds_per_day;
  time %= microseconds_per_day;
  if (time < 0) {
    --days;
    time += microseconds_per_day;
  }
  record->microseconds = static_cast<int32_t>(time % microseconds_per_second);
  time /= microseconds_per_second;
  record->second = static_cast<int8_t>(time % 60);
  record->minute = static_cast<int8_t>(time / 60 % 60);
  record->hour = static_cast<int8_t>(time / 3600);
  return days == 0 || add_days(days, record);
}

using ZoneSlot = int (*)(DateTimeRec *, const DateTimeRec *);

bool convert_zone(ZoneSlot slot, DateTimeRec *record) {
  if (env_on(Env::gmt_time) || system_driver.local_to_utc == nullptr || system_driver.utc_to_local == nullptr)
    return true;
  const DateTimeRec source = *record;
  return slot(record, &source) == 0 || fail(status::input_conversion);
}

}  // namespace

bool parse_datetime(TypeCode code, const char *text, Mishap mishap, DateTimeRec *record) {
  if ((code & TYPE_DATETIME) == 0 || record == nullptr) return refuse(mishap, status::data_argument);
  if (text == nullptr || *text == '\0') return refuse(mishap, status::input_empty);
  *record = DateTimeRec{};
  const bool today = text_equal_nocase(text, "today");
  if (!today && !text_equal_nocase(text, "now")) return parse_digits(code, text, mishap, record);

  system_driver.local_now(record);
  if (today || is_type(code, type::date)) clear_time(record);
  if (is_type(code, type::time)) record->microseconds = 0;
  return true;
}

bool check_datetime(TypeCode code, const DateTimeRec &record) {
  if ((code & TYPE_DATETIME) == 0) return fail(status::data_argument);
  if (!check_date(record, Mishap::recorded)) return false;
  if (is_type(code, type::date)) return true;
  return check_time(record, Mishap::recorded) &&
         (is_type(code, type::time) || check_microsecond(record, Mishap::recorded));
}

bool datetime_fields_valid(const DateTimeRec &record) {
  return record.year >= 0 && record.year <= year_limit + 1 && record.month >= 1 && record.month <= 12 &&
         record.day >= 1 && record.day <= 31 && check_time(record, Mishap::silent) &&
         check_microsecond(record, Mishap::silent);
}

bool format_datetime(TypeCode code, const DateTimeRec &record, char *text) {
  if (text == nullptr) return fail(status::data_argument);
  if (code != type::date && code != type::time && code != type::microtimestamp)
    return fail(status::data_type_unknown);
  text = put_digits(text, record.year, 4);
  text = put_digits(text, record.month, 2);
  text = put_digits(text, record.day, 2);
  if (code != type::date) {
    text = put_digits(text, record.hour, 2);
    text = put_digits(text, record.minute, 2);
    text = put_digits(text, record.second, 2);
  }
  if (code == type::microtimestamp) text = put_digits(text, record.microseconds, 6);
  *text = '\0';
  return true;
}

int datetime_part(const DateTimeRec &record, int part) {
  switch (part) {
    case part_year:
      return record.year;
    case part_month:
      return record.month;
    case part_day:
      return record.day;
    case part_hour:
      return record.hour;
    case part_minute:
      return record.minute;
    case part_second:
      return record.second;
    case part_microsecond:
      return record.microseconds;
    default:
      return 0;
  }
}

bool datetime_add(const DateTimeRec &record, int64_t amount, int unit, DateTimeRec *result) {
  *result = record;
  switch (unit) {
    case unit_year:
      return add_years(amount, result);
    case unit_month:
      return add_months(amount, result);
    case unit_week:
      if (amount < -span_days || amount > span_days) return fail(status::input_year);
      return add_days(amount * 7, result);
    case unit_day:
      return add_days(amount, result);
    case unit_hour:
      return add_time(amount, 3600 * microseconds_per_second, result);
    case unit_minute:
      return add_time(amount, 60 * microseconds_per_second, result);
    case unit_second:
      return add_time(amount, microseconds_per_second, result);
    case unit_microsecond:
      return add_time(amount, 1, result);
    default:
      return true;
  }
}

int weekday_of(int64_t day_number) {
  return static_cast<int>((day_number + 1) % 7);
}

bool leap_year(int year) {
  if (year < reform_year) return year % 4 == 0;
  return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0;
}

int days_in_month(int year, int month) {
  constexpr int8_t days[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};
  return month == 2 && leap_year(year) ? 29 : days[month - 1];
}

bool datetime_to_utc(DateTimeRec *record) {
  return convert_zone(system_driver.local_to_utc, record);
}

bool datetime_to_local(DateTimeRec *record) {
  if (!convert_zone(system_driver.utc_to_local, record)) return false;
  if (record->year < 1) *record = {1, 1, 1, 0, 0, 0, 0, 0};
  if (record->year > year_limit) *record = {year_limit, 12, 31, 23, 59, 59, 0, 999999};
  return true;
}

}  // namespace tovik
