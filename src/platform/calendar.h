// The calendar of all dates: Julian before 1582-10-05 and Gregorian from 1582-10-15; the ten dates between do
// not exist. Days are counted from noon of the astronomers' epoch in 4713 BC.
#pragma once

#include <cstdint>

namespace tovik {

// Years from 0; a date that does not exist has the number of one that does.
int64_t day_number(int year, int month, int day);
void date_from_day_number(int64_t number, int64_t *year, int *month, int *day);

}  // namespace tovik
