#include "frames/overlay/TimeCode.h"

#include <gtest/gtest.h>

#include <array>
#include <random>

namespace tarnvel {
namespace {

TEST(TimeCode, CarriesAcrossDaysMonthsAndYears) {
  EXPECT_EQ((std::array{IsLeapYear(2000), IsLeapYear(1900)}), (std::array{true, false}));
  EXPECT_EQ((std::array{DayOfYear(2024, 2, 1), DayOfYear(2023, 2, 1), DayOfYear(2023, 11, 31)}), (std::array{61, 60, 365}));
  EXPECT_EQ(DayOfYear(2023, 40, 1), 366) << "a month index past December counts as the year's end";
  struct Case {
    unsigned year, day, h, m, s;
    int hours, seconds;
    std::array<int, 6> want;  // year, month, day, hour, minute, second
  } cases[] = {
      {2023, 365, 23, 30, 0, 1, 0, {2024, 1, 1, 0, 30, 0}},    // 23:30 on 31 December plus one hour
      {2023, 366, 12, 0, 0, 0, 0, {2024, 1, 1, 12, 0, 0}},     // day 366 of a year that has 365
      {2024, 366, 12, 0, 0, 0, 0, {2024, 12, 31, 12, 0, 0}},   // of a leap year: 31 December
      {2024, 0, 0, 10, 0, -1, 0, {2023, 12, 31, 23, 10, 0}},   // day 0 counts as day 1
      {2024, 10, 23, 59, 50, 0, 18, {2024, 1, 11, 0, 0, 8}},   // seconds carry forwards
      {2024, 10, 0, 0, 5, 0, -10, {2024, 1, 9, 23, 59, 55}},   // and backwards
  };
  for (const Case& c : cases) {
    const CalendarTime t = DecodeTimeCode({0, c.year, c.day, c.h, c.m, c.s, 123456, 0, {}}, c.hours, c.seconds);
    EXPECT_EQ((std::array{t.year, t.month, t.day, t.hour, t.minute, t.second}), c.want) << c.year << " day " << c.day;
    EXPECT_EQ((std::array{t.milliseconds, t.microseconds}), (std::array{123, 456}));
  }
}

TEST(TimeCode, HostileBlocksDoNotFault) {
  std::mt19937 rng32(5);
  auto rng = [&] { return static_cast<std::uint32_t>(rng32()); };
  for (int i = 0; i < 10000; ++i) {
    TimeStampBlock b{rng(), rng() % 5000, rng(), rng(), rng(), rng(), rng(), rng(), {}};
    if (i % 2) b = {rng(), rng(), rng(), rng() % 30, rng() % 70, rng() % 70, rng(), 0, {}};
    const CalendarTime t = DecodeTimeCode(b, static_cast<int>(rng() % 51) - 25, static_cast<int>(rng() % 200) - 100);
    ASSERT_TRUE(t.month >= 1 && t.month <= 12 && t.hour >= 0 && t.hour < 24 && t.second >= 0 && t.second < 60) << i;
  }
}

}  // namespace
}  // namespace tarnvel
