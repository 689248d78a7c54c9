// Conversions between UTC and local time by the zone rules of the date converted, for years 1 to 9999 (a
// result may lie one day outside). A local time that a change of offset repeats means its first occurrence;
// one that it skips is taken with the offset before the change. All return 0.
#pragma once

#include "platform/platform.h"

namespace tovik {

// Reads the process's time zone. Called when the platform starts; a later change of the zone is not followed.
void time_zone_start();

int time_zone_local_to_utc(DateTimeRec *utc, const DateTimeRec *local);
int time_zone_utc_to_local(DateTimeRec *local, const DateTimeRec *utc);
int time_zone_local_to_seconds(int64_t *seconds, const DateTimeRec *local);
int time_zone_seconds_to_local(DateTimeRec *local, int64_t seconds);

}  // namespace tovik
