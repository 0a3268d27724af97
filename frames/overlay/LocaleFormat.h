// The regional formats of burnt-in dates and times, read once per job:
// "Control Panel\International" of the current user's registry store when it
// is there, else the POSIX locale's LC_TIME (when one other than "C" is set),
// else the defaults (month first with '/', a 12-hour clock with ':').
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnvel {

class LocaleFormat {
 public:
  LocaleFormat();
  // The fields as given, for tests and for callers that know them.
  LocaleFormat(char dateSeparator, char timeSeparator, bool dayFirst, bool hours24, std::int32_t utcOffset);

  char DateSeparator() const { return dateSeparator_; }
  char TimeSeparator() const { return timeSeparator_; }
  std::uint32_t DayFirst() const { return dayFirst_; }
  std::uint32_t Hours24() const { return hours24_; }
  std::int32_t UtcOffset() const { return utcOffset_; }

  // "%02d.%02d.%d" day first, else "%d/%d/%d" month first; '-' with fixedSeparator.
  void FormatDate(int year, int month, int day, char* text, std::size_t textSize, int fixedSeparator) const;
  // "%02d:%02d:%02d", with " AM"/" PM" on a 12-hour clock; '.' with fixedSeparator.
  void FormatTime(int hour, int minute, int second, char* text, std::size_t textSize, int fixedSeparator) const;

  // The offset rule: d = local hour - UTC hour, folded into -12..12.
  static std::int32_t OffsetFromHours(int localHour, int utcHour);

 private:
  char dateSeparator_ = '/';
  char timeSeparator_ = ':';
  std::uint32_t dayFirst_ = 0;
  std::uint32_t hours24_ = 0;
  std::int32_t utcOffset_ = 0;
};

}  // namespace tarnvel
