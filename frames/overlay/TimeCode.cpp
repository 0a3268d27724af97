#include "frames/overlay/TimeCode.h"

#include <algorithm>

namespace tarnvel {
namespace {

constexpr int kMonthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

int MonthLength(int year, int monthIndex) { return monthIndex == 1 && IsLeapYear(year) ? 29 : kMonthDays[monthIndex]; }
int YearLength(int year) { return IsLeapYear(year) ? 366 : 365; }

// Floor division, so that -1 second borrows a whole minute.
long long FloorDiv(long long a, long long b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

}  // namespace

bool IsLeapYear(int year) { return (year % 4 == 0 && year % 100 != 0) || year % 400 == 0; }

int DayOfYear(int year, int monthIndex, int day) {
  monthIndex = std::clamp(monthIndex, 0, 12);
  int days = day;
  for (int m = 0; m < monthIndex; ++m) days += MonthLength(year, m);
  return days;
}

CalendarTime DecodeTimeCode(const TimeStampBlock& block, int hourOffset, int secondOffset) {
  // Work in wide signed numbers: the block's fields come from outside.
  long long second = static_cast<long long>(block.second) + secondOffset;
  long long minute = static_cast<long long>(block.minute) + FloorDiv(second, 60);
  second -= FloorDiv(second, 60) * 60;
  long long hour = static_cast<long long>(block.hour) + FloorDiv(minute, 60) + hourOffset;
  minute -= FloorDiv(minute, 60) * 60;
  long long day = block.dayOfYear == 0 ? 1 : static_cast<long long>(block.dayOfYear);
  day += FloorDiv(hour, 24);
  hour -= FloorDiv(hour, 24) * 24;

  long long year = block.year;
  // Keep the walk short for any input: a day count far beyond reason stops at
  // a few centuries.
  for (int guard = 0; day < 1 && guard < 1000; ++guard) day += YearLength(static_cast<int>(--year));
  for (int guard = 0; day > YearLength(static_cast<int>(year)) && guard < 1000; ++guard)
    day -= YearLength(static_cast<int>(year++));

  CalendarTime t;
  t.year = static_cast<int>(year);
  int month = 0;
  while (month < 11 && day > MonthLength(t.year, month)) day -= MonthLength(t.year, month++);
  t.month = month + 1;
  t.day = static_cast<int>(day);
  t.hour = static_cast<int>(hour);
  t.minute = static_cast<int>(minute);
  t.second = static_cast<int>(second);
  t.milliseconds = static_cast<int>(block.microseconds / 1000);
  t.microseconds = static_cast<int>(block.microseconds % 1000);
  return t;
}

}  // namespace tarnvel
