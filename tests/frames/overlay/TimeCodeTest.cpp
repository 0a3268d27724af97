#include "frames/overlay/TimeCode.h"

#include <gtest/gtest.h>

#include <random>

namespace tarnvel {
namespace {

TimeStampBlock Block(unsigned year, unsigned day, unsigned h, unsigned m, unsigned s, unsigned us = 0) {
  return {0, year, day, h, m, s, us, 0, {}};
}

void ExpectTime(const CalendarTime& t, int y, int mo, int d, int h, int mi, int s) {
  EXPECT_EQ(t.year, y);
  EXPECT_EQ(t.month, mo);
  EXPECT_EQ(t.day, d);
  EXPECT_EQ(t.hour, h);
  EXPECT_EQ(t.minute, mi);
  EXPECT_EQ(t.second, s);
}

TEST(TimeCode, Calendar) {
  EXPECT_TRUE(IsLeapYear(2024));
  EXPECT_TRUE(IsLeapYear(2000));
  EXPECT_FALSE(IsLeapYear(1900));
  EXPECT_FALSE(IsLeapYear(2023));
  EXPECT_EQ(DayOfYear(2024, 0, 1), 1);
  EXPECT_EQ(DayOfYear(2024, 2, 1), 31 + 29 + 1);
  EXPECT_EQ(DayOfYear(2023, 2, 1), 31 + 28 + 1);
  EXPECT_EQ(DayOfYear(2023, 11, 31), 365);
  EXPECT_EQ(DayOfYear(2023, 40, 1), 366) << "a month index past December counts as the year's end";
}

TEST(TimeCode, CarriesAcrossDaysMonthsAndYears) {
  // 23:30 on 31 December 2023 plus one hour.
  ExpectTime(DecodeTimeCode(Block(2023, 365, 23, 30, 0), 1, 0), 2024, 1, 1, 0, 30, 0);
  // Day 366 of a year that has 365.
  ExpectTime(DecodeTimeCode(Block(2023, 366, 12, 0, 0), 0, 0), 2024, 1, 1, 12, 0, 0);
  // Day 366 of a leap year is 31 December.
  ExpectTime(DecodeTimeCode(Block(2024, 366, 12, 0, 0), 0, 0), 2024, 12, 31, 12, 0, 0);
  // 29 February exists only in a leap year.
  ExpectTime(DecodeTimeCode(Block(2024, 60, 0, 0, 0), 0, 0), 2024, 2, 29, 0, 0, 0);
  ExpectTime(DecodeTimeCode(Block(2023, 60, 0, 0, 0), 0, 0), 2023, 3, 1, 0, 0, 0);
  // Day 0 counts as day 1; an hour before it is the last day of the year before.
  ExpectTime(DecodeTimeCode(Block(2024, 0, 0, 10, 0), -1, 0), 2023, 12, 31, 23, 10, 0);
  // Seconds carry forwards and backwards through minutes and hours.
  ExpectTime(DecodeTimeCode(Block(2024, 10, 23, 59, 50), 0, 18), 2024, 1, 11, 0, 0, 8);
  ExpectTime(DecodeTimeCode(Block(2024, 10, 0, 0, 5), 0, -10), 2024, 1, 9, 23, 59, 55);
  const CalendarTime t = DecodeTimeCode(Block(2024, 10, 1, 2, 3, 123456), 0, 0);
  EXPECT_EQ(t.milliseconds, 123);
  EXPECT_EQ(t.microseconds, 456);
}

TEST(TimeCode, HostileBlocksDoNotFault) {
  std::mt19937 rng32(5);
  auto rng = [&] { return static_cast<std::uint32_t>(rng32()); };
  for (int i = 0; i < 10000; ++i) {
    TimeStampBlock b{rng(), rng() % 5000, rng(), rng(), rng(), rng(), rng(), rng(), {}};
    if (i % 2) b = {rng(), rng(), rng(), rng() % 30, rng() % 70, rng() % 70, rng(), 0, {}};
    const CalendarTime t = DecodeTimeCode(b, static_cast<int>(rng() % 51) - 25, static_cast<int>(rng() % 200) - 100);
    EXPECT_GE(t.month, 1);
    EXPECT_LE(t.month, 12);
    EXPECT_GE(t.hour, 0);
    EXPECT_LT(t.hour, 24);
    EXPECT_GE(t.second, 0);
    EXPECT_LT(t.second, 60);
  }
}

}  // namespace
}  // namespace tarnvel
