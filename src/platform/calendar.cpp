// The algorithm of Meeus in whole numbers: the fractions 365.25, 30.6001 and 36524.25 are written as 1461/4,
// 306001/10000 and 146097/4.
#include "platform/calendar.h"

namespace tovik {

namespace {

constexpr int64_t gregorian_start = 2299161;  // day number of 1582-10-15

}  // namespace

int64_t day_number(int year, int month, int day) {
  const bool gregorian = year > 1582 || (year == 1582 && (month > 10 || (month == 10 && day >= 15)));
  int64_t y = year, m = month;
  if (m <= 2) {
    y -= 1;
    m += 12;
  }
  const int64_t century = y / 100;
  const int64_t reform = gregorian ? 2 - century + century / 4 : 0;
  return 1461 * (y + 4716) / 4 + 306001 * (m + 1) / 10000 + day + reform - 1524;
}

void date_from_day_number(int64_t number, int64_t *year, int *month, int *day) {
  int64_t shifted = number;
  if (number >= gregorian_start) {
    const int64_t a = (4 * number - 7468865) / 146097;
    shifted = number + 1 + a - a / 4;
  }
  const int64_t g = shifted + 1524;
  const int64_t h = (20 * g - 2442) / 7305;
  const int64_t d = 1461 * h / 4;
  const int64_t e = (g - d) * 10000 / 306001;
  *day = static_cast<int>(g - d - 306001 * e / 10000);
  *month = static_cast<int>(e < 14 ? e - 1 : e - 13);
  *year = *month > 2 ? h - 4716 : h - 4715;
}

}  // namespace tovik
