// The C library answers one question: the offset from UTC at a given moment. That takes a process-wide lock,
// and values of date columns are converted one by one, so the offsets of whole spans of 16 days are kept in a
// table that all threads share without a lock. One entry is one word:
//
//   BITS    DESCRIPTION
//   0-19    span number + 2^19
//   20-39   offset in seconds + 2^19; 0 for a span that has no single offset
//   40-63   the zone that it belongs to, counted by time_zone_start; 0: empty
//
// A span has a single offset when the offset is the same at every midnight from two days before to two days
// after it, so that no change of offset can fall on it or on a local time of it.
#include "platform/posix/time_zone.h"

#include <atomic>
#include <cerrno>
#include <ctime>

#include "platform/calendar.h"

namespace tovik {

namespace {

constexpr int64_t day_seconds = 86400;
constexpr int64_t day_number_1970 = 2440588;

constexpr int64_t span_days = 16;
constexpr int span_margin = 2;  // days
constexpr int span_bias = 1 << 19;
constexpr int32_t offset_bias = 1 << 19;
constexpr int offset_shift = 20;
constexpr int zone_shift = 40;
constexpr uint32_t field_mask = 0xFFFFF;
constexpr uint32_t zone_mask = 0xFFFFFF;

constexpr int span_limit = 16384;  // kept spans, a power of two: 717 years without a collision
std::atomic<uint64_t> kept_spans[span_limit];
std::atomic<uint32_t> current_zone{1};

int64_t floor_divide(int64_t value, int64_t divisor) {
  return value >= 0 ? value / divisor : -((-value + divisor - 1) / divisor);
}

int64_t plain_seconds(const DateTimeRec &time) {
  return (day_number(time.year, time.month, time.day) - day_number_1970) * day_seconds + time.hour * 3600 +
         time.minute * 60 + time.second;
}

DateTimeRec from_plain_seconds(int64_t seconds, int32_t microseconds) {
  DateTimeRec time = {};
  const int64_t day = floor_divide(seconds, day_seconds);
  const int second_of_day = static_cast<int>(seconds - day * day_seconds);
  int64_t year;
  int month, day_of_month;
  date_from_day_number(day + day_number_1970, &year, &month, &day_of_month);
  time.year = static_cast<int16_t>(year);
  time.month = static_cast<int8_t>(month);
  time.day = static_cast<int8_t>(day_of_month);
  time.hour = static_cast<int8_t>(second_of_day / 3600);
  time.minute = static_cast<int8_t>(second_of_day / 60 % 60);
  time.second = static_cast<int8_t>(second_of_day % 60);
  time.microseconds = microseconds;
  return time;
}

int32_t ask_offset(int64_t utc_seconds) {
  const int before = errno;
  const time_t moment = static_cast<time_t>(utc_seconds);
  tm local = {};
  const bool known = localtime_r(&moment, &local) != nullptr;
  errno = before;
  return known ? static_cast<int32_t>(local.tm_gmtoff) : 0;
}

// The biased offset of a span, 0 when it has no single one.
uint32_t probe_span(int64_t span) {
  const int64_t first = (span * span_days - span_margin) * day_seconds;
  const int64_t last = ((span + 1) * span_days + span_margin) * day_seconds;
  const int32_t offset = ask_offset(first);
  for (int64_t moment = first + day_seconds; moment <= last; moment += day_seconds) {
    if (ask_offset(moment) != offset) return 0;
  }
  return static_cast<uint32_t>(offset + offset_bias);
}

// Whether the span that holds a moment, UTC or local, has a single offset, which is stored into *offset.
bool steady_offset(int64_t seconds, int32_t *offset) {
  const int64_t span = floor_divide(seconds, span_days * day_seconds);
  const uint64_t zone = current_zone.load(std::memory_order_relaxed);
  const uint64_t key = zone << zone_shift | static_cast<uint64_t>(span + span_bias);
  std::atomic<uint64_t> &entry = kept_spans[static_cast<uint64_t>(span) % span_limit];
  const uint64_t kept = entry.load(std::memory_order_relaxed);
  uint32_t biased = static_cast<uint32_t>(kept >> offset_shift) & field_mask;
  if ((kept & ~(uint64_t{field_mask} << offset_shift)) != key) {
    biased = probe_span(span);
    entry.store(key | uint64_t{biased} << offset_shift, std::memory_order_relaxed);
  }
  *offset = static_cast<int32_t>(biased) - offset_bias;
  return biased != 0;
}

int32_t offset_at(int64_t utc_seconds) {
  int32_t offset;
  return steady_offset(utc_seconds, &offset) ? offset : ask_offset(utc_seconds);
}

int64_t local_to_utc_seconds(int64_t local_seconds) {
  int32_t offset;
  if (steady_offset(local_seconds, &offset)) return local_seconds - offset;
  const int32_t before = ask_offset(local_seconds - day_seconds);
  const int32_t after = ask_offset(local_seconds + day_seconds);
  const int64_t earlier = local_seconds - before;
  const int64_t later = local_seconds - after;
  if (ask_offset(earlier) == before || ask_offset(later) != after) return earlier;
  return later;
}

}  // namespace

void time_zone_start() {
  tzset();
  const uint32_t next = (current_zone.load(std::memory_order_relaxed) + 1) & zone_mask;
  current_zone.store(next == 0 ? 1 : next, std::memory_order_relaxed);
}

int time_zone_local_to_utc(DateTimeRec *utc, const DateTimeRec *local) {
  *utc = from_plain_seconds(local_to_utc_seconds(plain_seconds(*local)), local->microseconds);
  return 0;
}

int time_zone_utc_to_local(DateTimeRec *local, const DateTimeRec *utc) {
  const int64_t seconds = plain_seconds(*utc);
  *local = from_plain_seconds(seconds + offset_at(seconds), utc->microseconds);
  return 0;
}

int time_zone_local_to_seconds(int64_t *seconds, const DateTimeRec *local) {
  *seconds = local_to_utc_seconds(plain_seconds(*local));
  return 0;
}

int time_zone_seconds_to_local(DateTimeRec *local, int64_t seconds) {
  *local = from_plain_seconds(seconds + offset_at(seconds), 0);
  return 0;
}

}  // namespace tovik
