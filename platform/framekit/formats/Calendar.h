// Times of the capture record as calendar dates, for the formats that write
// them as text or digits (DNG and TIFF dates, Chapter 10 time packets).
#pragma once

#include <chrono>
#include <cstdint>

namespace tarnvel::framekit {

// The range of times the writers take: a four-digit year.
constexpr std::int64_t kEarliestMicroseconds = -2'208'988'800'000'000;  // 1900-01-01
constexpr std::int64_t kLatestMicroseconds = 253'402'300'799'999'999;   // 9999-12-31 23:59:59.999999

struct CalendarDate {
  int year = 1970;
  unsigned month = 1, day = 1, dayOfYear = 1;  // from 1
  unsigned hour = 0, minute = 0, second = 0;
  unsigned microsecond = 0;
};

// Microseconds since 1970-01-01 00:00, within the range above.
inline CalendarDate CalendarOf(std::int64_t microseconds) {
  using namespace std::chrono;
  const sys_time<std::chrono::microseconds> when{std::chrono::microseconds{microseconds}};
  const sys_days day = floor<days>(when);
  const year_month_day date{day};
  const hh_mm_ss<std::chrono::microseconds> time{when - day};
  CalendarDate c;
  c.year = static_cast<int>(date.year());
  c.month = static_cast<unsigned>(date.month());
  c.day = static_cast<unsigned>(date.day());
  c.dayOfYear = static_cast<unsigned>((day - sys_days{date.year() / January / 1}).count()) + 1;
  c.hour = static_cast<unsigned>(time.hours().count());
  c.minute = static_cast<unsigned>(time.minutes().count());
  c.second = static_cast<unsigned>(time.seconds().count());
  c.microsecond = static_cast<unsigned>(time.subseconds().count());
  return c;
}

}  // namespace tarnvel::framekit
