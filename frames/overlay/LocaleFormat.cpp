#include "frames/overlay/LocaleFormat.h"

#include <langinfo.h>
#include <locale.h>

#include <cstdio>
#include <cstring>
#include <ctime>
#include <string>

#include "platform/registry/Registry.h"

namespace tarnvel {
namespace {

// The first separator of a POSIX date or time format ("%d.%m.%Y" gives '.').
char SeparatorOf(const char* format, char fallback) {
  for (const char* p = format; *p; ++p) {
    if (*p == '%') {
      if (p[1]) ++p;
      continue;
    }
    if (*p != ' ') return *p;
  }
  return fallback;
}

// The first conversion of a POSIX format, skipping flags ("%e" is a day).
char FirstConversion(const char* format) {
  for (const char* p = format; *p; ++p)
    if (*p == '%') {
      while (p[1] == '-' || p[1] == '_' || p[1] == '0' || p[1] == 'E' || p[1] == 'O') ++p;
      return p[1];
    }
  return 0;
}

}  // namespace

LocaleFormat::LocaleFormat(char dateSeparator, char timeSeparator, bool dayFirst, bool hours24,
                           std::int32_t utcOffset)
    : dateSeparator_(dateSeparator),
      timeSeparator_(timeSeparator),
      dayFirst_(dayFirst),
      hours24_(hours24),
      utcOffset_(utcOffset) {}

LocaleFormat::LocaleFormat() {
  if (auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "Control Panel\\International")) {
    auto first = [&](const char* name) -> char {
      auto v = key->ReadText(name);
      return v && !v->empty() ? (*v)[0] : '\0';
    };
    if (char c = first("sDate")) dateSeparator_ = c;
    if (char c = first("sTime")) timeSeparator_ = c;
    if (char c = first("sShortDate")) dayFirst_ = c == 'd' || c == 'D';
    if (char c = first("iTime")) hours24_ = c == '1';
  } else if (locale_t locale = ::newlocale(LC_TIME_MASK, "", static_cast<locale_t>(nullptr))) {
    const char* name = ::nl_langinfo_l(_NL_LOCALE_NAME(LC_TIME), locale);
    // "C", "C.UTF-8" and "POSIX" are no regional settings at all.
    const bool plain = !name || std::strcmp(name, "C") == 0 || std::strncmp(name, "C.", 2) == 0 ||
                       std::strcmp(name, "POSIX") == 0;
    if (!plain) {
      const char* date = ::nl_langinfo_l(D_FMT, locale);
      const char* time = ::nl_langinfo_l(T_FMT, locale);
      dateSeparator_ = SeparatorOf(date, dateSeparator_);
      timeSeparator_ = SeparatorOf(time, timeSeparator_);
      const char day = FirstConversion(date);
      dayFirst_ = day == 'd' || day == 'e';
      hours24_ = std::strstr(time, "%H") || std::strstr(time, "%k") || std::strstr(time, "%T");
    }
    ::freelocale(locale);
  }
  ::tzset();  // localtime_r need not look at TZ by itself
  const std::time_t now = std::time(nullptr);
  std::tm local{}, utc{};
  ::localtime_r(&now, &local);
  ::gmtime_r(&now, &utc);
  utcOffset_ = OffsetFromHours(local.tm_hour, utc.tm_hour);
}

std::int32_t LocaleFormat::OffsetFromHours(int localHour, int utcHour) {
  const int d = localHour - utcHour;
  return d < -12 ? d + 24 : d > 12 ? d - 24 : d;
}

void LocaleFormat::FormatDate(int year, int month, int day, char* text, std::size_t textSize,
                              int fixedSeparator) const {
  const char sep = fixedSeparator ? '-' : dateSeparator_;
  if (dayFirst_)
    std::snprintf(text, textSize, "%02d%c%02d%c%d", day, sep, month, sep, year);
  else
    std::snprintf(text, textSize, "%d%c%d%c%d", month, sep, day, sep, year);
}

void LocaleFormat::FormatTime(int hour, int minute, int second, char* text, std::size_t textSize,
                              int fixedSeparator) const {
  const char sep = fixedSeparator ? '.' : timeSeparator_;
  if (hours24_) {
    std::snprintf(text, textSize, "%02d%c%02d%c%02d", hour, sep, minute, sep, second);
    return;
  }
  const char* suffix = hour >= 12 ? "PM" : "AM";
  const int shown = hour == 0 ? 12 : hour > 12 ? hour - 12 : hour;
  std::snprintf(text, textSize, "%02d%c%02d%c%02d %s", shown, sep, minute, sep, second, suffix);
}

}  // namespace tarnvel
