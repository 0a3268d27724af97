#include "frames/overlay/LocaleFormat.h"

#include <gtest/gtest.h>

#include <array>
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
auto Settings(const LocaleFormat& f) {
  return std::array<int, 5>{f.DateSeparator(), f.TimeSeparator(), int(f.DayFirst()), int(f.Hours24()), f.UtcOffset()};
}

TEST(LocaleFormat, TwelveHourClockFixedFormatsAndTheOffsetRule) {
  const LocaleFormat f('/', ':', false, false, 0), european('.', ':', true, true, 1);
  EXPECT_EQ(Date(f, 2024, 3, 31) + Date(f, 2024, 3, 31, 1), "3/31/20243-31-2024");
  EXPECT_EQ(Date(european, 2024, 3, 31), "31.03.2024");
  for (auto [h, want] : {std::pair{0, "12:00:00 AM"}, {12, "12:00:00 PM"}, {13, "01:00:00 PM"}})
    EXPECT_EQ(Time(f, h, 0, 0), want);
  EXPECT_EQ(Time(f, 13, 5, 9, 1), "01.05.09 PM");
  EXPECT_EQ(Time(european, 13, 5, 9), "13:05:09");
  char tiny[6];
  european.FormatDate(2024, 3, 31, tiny, sizeof tiny, 0);
  EXPECT_STREQ(tiny, "31.03") << "cut to the buffer, terminated";
  for (auto [local, utc, want] : {std::array{21, 2, -5}, {14, 2, 12}, {15, 2, -11}})
    EXPECT_EQ(LocaleFormat::OffsetFromHours(local, utc), want) << local << " " << utc;
}

TEST(LocaleFormat, ReadsTheRegistryKeyThenThePosixLocale) {
  test::TempDir dir;
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("user.reg").c_str(), 1);
  ::setenv("TZ", "UTC", 1);
  ::setenv("LC_ALL", "C", 1);
  EXPECT_EQ(Settings(LocaleFormat()), (std::array<int, 5>{'/', ':', 0, 0, 0}));
  test::WriteFile(dir.path() / "user.reg",
                  "[Control Panel\\International]\nsDate=.\nsTime=\nsShortDate=dd.MM.yyyy\niTime=1\n");
  ::setenv("TZ", "EST5", 1);
  EXPECT_EQ(Settings(LocaleFormat()), (std::array<int, 5>{'.', ':', 1, 1, -5})) << "an empty value keeps the default";
  ::unsetenv("TZ");
  // Without a registry key the locale gives the formats; the locales are compiled into the test's folder.
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("none.reg").c_str(), 1);
  ASSERT_EQ(test::RunCommand("localedef -i de_DE -f UTF-8 " + dir.File("de_DE.UTF-8")), 0);
  ::setenv("LOCPATH", dir.path().c_str(), 1);
  ::setenv("LC_ALL", "de_DE.UTF-8", 1);
  const LocaleFormat german;
  EXPECT_EQ((std::array<int, 3>{german.DateSeparator(), int(german.DayFirst()), int(german.Hours24())}), (std::array<int, 3>{'.', 1, 1}));
  ::unsetenv("LC_ALL");
  ::unsetenv("LOCPATH");
}

}  // namespace
}  // namespace tarnvel
