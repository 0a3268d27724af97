#include "frames/overlay/LocaleFormat.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <string>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

std::string Date(const LocaleFormat& f, int y, int m, int d, int fixed = 0) {
  char text[128];
  f.FormatDate(y, m, d, text, sizeof text, fixed);
  return text;
}
std::string Time(const LocaleFormat& f, int h, int m, int s, int fixed = 0) {
  char text[128];
  f.FormatTime(h, m, s, text, sizeof text, fixed);
  return text;
}

TEST(LocaleFormat, DefaultsAndTheTwelveHourClock) {
  const LocaleFormat f('/', ':', false, false, 0);
  EXPECT_EQ(Date(f, 2024, 3, 31), "3/31/2024");
  EXPECT_EQ(Time(f, 1, 2, 3), "01:02:03 AM");
  EXPECT_EQ(Time(f, 0, 0, 0), "12:00:00 AM");
  EXPECT_EQ(Time(f, 12, 0, 0), "12:00:00 PM");
  EXPECT_EQ(Time(f, 13, 0, 0), "01:00:00 PM");
  EXPECT_EQ(Date(f, 2024, 3, 31, 1), "3-31-2024");
  EXPECT_EQ(Time(f, 13, 5, 9, 1), "01.05.09 PM");
  const LocaleFormat european('.', ':', true, true, 1);
  EXPECT_EQ(Date(european, 2024, 3, 31), "31.03.2024");
  EXPECT_EQ(Time(european, 13, 5, 9), "13:05:09");
  char tiny[6];
  european.FormatDate(2024, 3, 31, tiny, sizeof tiny, 0);
  EXPECT_STREQ(tiny, "31.03") << "cut to the buffer, terminated";
}

TEST(LocaleFormat, OffsetRule) {
  EXPECT_EQ(LocaleFormat::OffsetFromHours(21, 2), -5);
  EXPECT_EQ(LocaleFormat::OffsetFromHours(2, 21), 5);
  EXPECT_EQ(LocaleFormat::OffsetFromHours(14, 2), 12);
  EXPECT_EQ(LocaleFormat::OffsetFromHours(15, 2), -11);
  EXPECT_EQ(LocaleFormat::OffsetFromHours(3, 3), 0);
}

TEST(LocaleFormat, ReadsTheRegistryKeyThenTheLocale) {
  test::TempDir dir;
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("user.reg").c_str(), 1);
  ::setenv("TZ", "UTC", 1);
  ::setenv("LC_ALL", "C", 1);
  const LocaleFormat plain;
  EXPECT_EQ(plain.DateSeparator(), '/');
  EXPECT_EQ(plain.TimeSeparator(), ':');
  EXPECT_EQ(plain.DayFirst(), 0u);
  EXPECT_EQ(plain.Hours24(), 0u);
  EXPECT_EQ(plain.UtcOffset(), 0);

  test::WriteFile(dir.path() / "user.reg",
                  "[Control Panel\\International]\nsDate=.\nsTime=\nsShortDate=dd.MM.yyyy\niTime=1\n");
  ::setenv("TZ", "EST5", 1);
  const LocaleFormat configured;
  EXPECT_EQ(configured.DateSeparator(), '.');
  EXPECT_EQ(configured.TimeSeparator(), ':') << "an empty value keeps the default";
  EXPECT_EQ(configured.DayFirst(), 1u);
  EXPECT_EQ(configured.Hours24(), 1u);
  EXPECT_EQ(configured.UtcOffset(), -5);
  ::unsetenv("TZ");
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// Without a registry key the POSIX locale gives the formats. The locales are
// compiled into a folder of the test's own.
TEST(LocaleFormat, PosixLocaleWithoutRegistryKey) {
  test::TempDir dir;
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("none.reg").c_str(), 1);
  for (const char* name : {"de_DE", "en_US"})
    ASSERT_EQ(test::RunCommand("localedef -i " + std::string(name) + " -f UTF-8 " + dir.File(name) + ".UTF-8"), 0);
  ::setenv("LOCPATH", dir.path().c_str(), 1);
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  const LocaleFormat german;
  EXPECT_EQ(german.DateSeparator(), '.');
  EXPECT_EQ(german.DayFirst(), 1u);
  EXPECT_EQ(german.Hours24(), 1u);
  ::setenv("LC_ALL", "en_US.UTF-8", 1);
  const LocaleFormat american;
  EXPECT_EQ(american.DateSeparator(), '/');
  EXPECT_EQ(american.TimeSeparator(), ':');
  EXPECT_EQ(american.DayFirst(), 0u);
  EXPECT_EQ(american.Hours24(), 0u);
  ::unsetenv("LC_ALL");
  ::unsetenv("LOCPATH");
}

}  // namespace
}  // namespace tarnvel
