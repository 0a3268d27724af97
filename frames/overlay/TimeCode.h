// Time codes and the calendar: the time block that the raw source delivers
// with each frame, turned into a date and a time of day.
#pragma once

#include <cstdint>

#include "platform/rawdrv/TimeStampBlock.h"

namespace tarnvel {

struct CalendarTime {
  int year = 0, month = 0, day = 0;  // month and day from 1
  int hour = 0, minute = 0, second = 0;
  int milliseconds = 0, microseconds = 0;
};

bool IsLeapYear(int year);
// Days of the months before month index monthIndex (0 for January), plus day.
// An index outside 0..11 counts as the nearest month.
int DayOfYear(int year, int monthIndex, int day);

// The block as a calendar time, with whole hours and seconds added; the
// seconds, minutes and hours carry, across days, months and years.
CalendarTime DecodeTimeCode(const TimeStampBlock& block, int hourOffset, int secondOffset);

}  // namespace tarnvel
