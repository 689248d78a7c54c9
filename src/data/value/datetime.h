// Dates and times in their exchange form DateTimeRec: reading and checking them, calendar arithmetic, and
// their text form. Every date that the arithmetic gives is one that the check takes.
#pragma once

#include "data/value/types.h"
#include "frame/error.h"
#include "platform/calendar.h"

namespace tovik {

// "now", "today", or 8, 14 or 20 digits. Statuses 13001, 113004 to 113012, 113015, 113019, unless silent.
[[nodiscard]] bool parse_datetime(TypeCode code, const char *text, Mishap mishap, DateTimeRec *record);

[[nodiscard]] bool check_datetime(TypeCode code, const DateTimeRec &record);  // always records

// Every field within its range, the date not looked at as a whole: what a stored value is checked for before
// it is handed out. In UTC the calendar's first and last hours may lie in the years 0 and 10000.
bool datetime_fields_valid(const DateTimeRec &record);

// Digits only: 8 for date, 14 for time, 20 for microtimestamp; text holds 21 bytes. 13001, 13002.
[[nodiscard]] bool format_datetime(TypeCode code, const DateTimeRec &record, char *text);

inline constexpr int part_year = 500, part_month = 501, part_day = 502, part_hour = 503, part_minute = 504,
                     part_second = 505, part_microsecond = 506;

// One field of record; 0 for any other part code.
int datetime_part(const DateTimeRec &record, int part);

inline constexpr int unit_year = 507, unit_month = 508, unit_week = 509, unit_day = 510, unit_hour = 511,
                     unit_minute = 512, unit_second = 513, unit_microsecond = 514;

// record moved by amount (may be negative) of unit. False with 113004 when the result leaves the years 1 to
// 9999; no intermediate step overflows, whatever the amount.
[[nodiscard]] bool datetime_add(const DateTimeRec &record, int64_t amount, int unit, DateTimeRec *result);

int weekday_of(int64_t day_number);  // 0 Sunday to 6
bool leap_year(int year);
int days_in_month(int year, int month);

// Local time to UTC and back through the platform's zone slots, unless HVI_GMT_TIME or a slot is missing. UTC
// may lie in the years 0 and 10000, so that every local time comes back; what is no local time of the years 1
// to 9999, because it was stored in another zone, becomes the calendar's first or last moment. 113001 when
// the platform cannot convert.
[[nodiscard]] bool datetime_to_utc(DateTimeRec *record);
[[nodiscard]] bool datetime_to_local(DateTimeRec *record);

}  // namespace tovik
