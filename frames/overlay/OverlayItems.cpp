#include "frames/overlay/OverlayItems.h"

#include <algorithm>
#include <cstdio>
#include <cstring>

#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr int kMonthDays[12] = {31, 28, 31, 30, 31, 30, 31, 31, 30, 31, 30, 31};

int MonthLength(int year, int month) {
  const int index = std::clamp(month, 1, 12) - 1;
  return index == 1 && IsLeapYear(year) ? 29 : kMonthDays[index];
}

int FromBcd(std::uint8_t b) { return (b >> 4) * 10 + (b & 15); }

// printf into a std::string; the texts here are short.
template <typename... Args>
std::string Format(const char* format, Args... args) {
  char text[256];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}

// "%.Nf" with N decimals, kept to what a text field can show.
std::string Decimals(double value, int decimals, const char* unit) {
  return Format("%.*f%s", std::clamp(decimals, 0, 20), value, unit);
}

// Time from the trigger, in seconds.
double TriggerSeconds(const RecordingInfo& rec, std::int32_t f, bool withDelay) {
  const double r = TruncatedRate(rec.Rate);
  if (r == 0) return 0;  // no rate: no defined time, and no fault
  const long long p = rec.RecMode != 0 ? rec.PerTrigFrms : 0;
  double delay = 0;
  const std::uint32_t debounce = rec.TrigInDebounce / 1000;
  if (rec.RecMode != 0 && withDelay && rec.TriggerTime > debounce) delay = (rec.TriggerTime - debounce) / 1000000.0;
  if (rec.ExposureMode == 1) {  // frames in pairs
    long long n = p == 0 || rec.RecMode == 2 ? f : f < p ? f - 1 - p : f - p;
    n /= 2;
    double t = n / r - delay;
    if (f % 2 == 1) t += rec.ExposureNs / 1e9;
    return t;
  }
  if (p != 0 && rec.RecMode != 2) return (f - p) / r - delay;
  return f / r - delay;
}

std::string ExposureText(std::uint32_t nanoseconds, std::int32_t format) {
  const std::uint32_t n = nanoseconds / 1000;
  if (n == 0) return "N/A";
  if (format == 2) return Format("%u.%u s", n / 1000000, n / 1000 % 1000);
  if (format == 1) return Format("%u.%u ms", n / 1000, n % 1000);
  return Format("%u \xB5s", n);
}

std::string TemperatureText(std::int32_t hundredths, std::int32_t format) {
  const double celsius = hundredths / 100.0;
  if (format == 2) return Format("%.02f K", celsius + 273.15);
  if (format == 1) return Format("%.02f \xB0" "F", celsius * 9 / 5 + 32);
  return Format("%.02f \xB0" "C", celsius);
}

std::int32_t RateOf(const RecordingInfo& rec) {
  if (rec.SyncInCfg >= 1 && rec.SyncInCfg <= 4 && rec.CameraFlag != 1 && rec.ExternalRate != 0)
    return static_cast<std::int32_t>(rec.ExternalRate);
  return TruncatedRate(rec.Rate);
}

}  // namespace

double ElapsedSeconds(std::int32_t s, const RecordingInfo& rec) {
  const double r = TruncatedRate(rec.Rate);
  double seconds = 0;
  if (r == 0) {
    seconds = 0;  // no rate: no defined time
  } else if (rec.RecMode == 2) {
    const std::uint32_t length = rec.BrocLength;
    const long long b = length == 0 ? 0 : std::min<long long>(s / static_cast<long long>(length), 1023);
    if (b <= 0) {
      seconds = rec.TotSyncCount != 0 ? (static_cast<double>(rec.TotSyncCount) - length + s) / r : s / r;
    } else {
      long long base = rec.BrocTime[0];
      if (rec.TotSyncCount != 0) base -= static_cast<long long>(rec.TotSyncCount) * 1000 / static_cast<long long>(r);
      const long long left = length - s % static_cast<long long>(length);
      seconds = rec.BrocTime[b] > rec.BrocTime[0] ? (rec.BrocTime[b] - base) / 1000.0 - left / r : 0;
    }
  } else {
    seconds = rec.TotSyncCount >= rec.Frames ? (static_cast<double>(rec.TotSyncCount) - rec.Frames + s) / r : s / r;
  }
  return seconds + 0.0000001;
}

void FrameClock(const RecordingInfo& recording, std::int32_t sequenceIndex, CalendarTime& t) {
  const double elapsed = ElapsedSeconds(sequenceIndex, recording);
  // Beyond about 68 years the seconds would not fit; such a clock is not a recording's.
  const long long whole = static_cast<long long>(std::clamp(elapsed, -2.1e9, 2.1e9));
  if (whole == 0) return;
  long long second = t.second + whole;
  long long minute = t.minute + second / 60;
  second %= 60;
  long long hour = t.hour + minute / 60;
  minute %= 60;
  long long day = t.day + hour / 24;
  hour %= 24;
  // A day past the month's end moves into the next month, month 13 into the next year.
  for (int guard = 0; day > MonthLength(t.year, t.month) && guard < 100000; ++guard) {
    day -= MonthLength(t.year, t.month);
    if (++t.month > 12) t.month = 1, ++t.year;
  }
  t.second = static_cast<int>(second);
  t.minute = static_cast<int>(minute);
  t.hour = static_cast<int>(hour);
  t.day = static_cast<int>(day);
}

void OverlayRenderer::UpdateItems(OverlayConfig& config, const RecordingInfo& rec, const OverlayFrameValues& v) {
  CalendarTime now;
  const bool needsClock = config.flags & kClockItemsMask;
  if (needsClock) {
    if (v.cameraBlock) {
      now.year = FromBcd(v.cameraBlock[38]), now.month = FromBcd(v.cameraBlock[37]), now.day = FromBcd(v.cameraBlock[36]);
      now.hour = FromBcd(v.cameraBlock[35]), now.minute = FromBcd(v.cameraBlock[34]), now.second = FromBcd(v.cameraBlock[33]);
    } else {
      now.year = rec.Year, now.month = rec.Month, now.day = rec.Day;
      now.hour = rec.Hour, now.minute = rec.Minute, now.second = rec.Second;
      FrameClock(rec, v.sequenceIndex, now);
    }
  }
  TimeStampBlock noBlock{};
  TimeStampBlock& block = v.timeBlock ? *v.timeBlock : noBlock;
  if ((config.flags & kOverlayItemMask[kTimeCodeItem]) && block.controlField == kNoTimeCodeReceiver) {
    block.year = static_cast<std::uint32_t>(now.year);
    block.hour = static_cast<std::uint32_t>(now.hour);
    block.minute = static_cast<std::uint32_t>(now.minute);
    block.second = static_cast<std::uint32_t>(now.second);
    block.dayOfYear = static_cast<std::uint32_t>(DayOfYear(now.year, now.month - 1, now.day));
  }

  for (int i = 0; i < kOverlayItemCount; ++i) {
    OverlayItem& item = config.items[i];
    if (!(config.flags & item.mask)) continue;
    std::string text;
    char date[128];
    switch (i) {
      case kFrameNumberItem: text = Format(v.frameNumber < 0 ? "%07d" : "%06d", v.frameNumber); break;
      case kCommentItem: text = FieldText(rec.Comment); break;
      case kFileNameItem: text = v.fileName ? v.fileName : ""; break;
      case kDeviceNameItem: text = v.deviceName ? v.deviceName : ""; break;
      case kSerialItem: {
        const std::uint32_t n = v.serial;
        text = Format("%02u-%04u-%04u", n / 100000000, n / 10000 - (n / 100000000) * 10000, n % 10000);
        break;
      }
      case kNetworkItem:
        text = Format("[%u.%u.%u.%u]", v.network >> 24, (v.network >> 16) & 255, (v.network >> 8) & 255, v.network & 255);
        break;
      case kDateItem: locale_.FormatDate(now.year, now.month, now.day, date, sizeof date, 0), text = date; break;
      case kTimeItem: locale_.FormatTime(now.hour, now.minute, now.second, date, sizeof date, 0), text = date; break;
      case kTriggerTimeItem: {
        const double t = TriggerSeconds(rec, v.sequenceIndex, item.paramA == 0) + 0.0000001;
        text = item.format <= 6 ? Decimals(t, item.format, " s") : Decimals(t * 1000, item.format - 7, " ms");
        break;
      }
      case kElapsedItem: text = Format("%.06f s", ElapsedSeconds(v.sequenceIndex, rec)); break;
      case kRateItem: text = Format(item.format == 1 ? "%d Hz" : "%d fps", RateOf(rec)); break;
      case kExposureItem: text = ExposureText(rec.AEEnable ? v.exposure : rec.ExposureNs, item.format); break;
      case kTemperatureItem: text = TemperatureText(v.temperature, item.format); break;
      case kTimeCodeItem: text = TimeCodeText(item, rec, v, block); break;
      case kChannelValueItem: text = Decimals(v.channelValue, item.format, ""); break;
      case kFlaggedItem: text = v.flagged ? "(*)" : ""; break;
      case kResolutionItem: text = Format("%ux%u", rec.ROIW, rec.ROIH); break;
      case kUserText1Item: text = v.userText1 ? v.userText1 : ""; break;
      case kUserText2Item: text = v.userText2 ? v.userText2 : ""; break;
      default: break;  // the logos have no text
    }
    CopyText(item.text, text);
  }
}

std::string OverlayRenderer::TimeCodeText(const OverlayItem& item, const RecordingInfo& rec,
                                          const OverlayFrameValues& v, const TimeStampBlock& block) const {
  if (block.year == 0) return "(NO IRIG/GPS/PTP DATA)";
  const int hourOffset = item.format == 25 ? locale_.UtcOffset() : item.format - 12;
  const CalendarTime t = DecodeTimeCode(block, hourOffset, item.paramA);
  const long long r = TruncatedRate(rec.Rate);
  long long micro = 0;
  const bool fromReceiver = block.controlField != 0 && block.controlField != kNoTimeCodeReceiver;
  if (!fromReceiver) {
    micro = block.microseconds;
  } else if (r > 0 && v.irigMode >= 0) {
    long long n = v.frameNumber;
    if (n < v.irigMode) n += (v.irigMode - n + r - 1) / r * r;  // add r until it is at least irigMode
    micro = (n - v.irigMode) % r * 1000000 / r;
  }
  if (item.paramB == 1) micro += rec.ExposureNs / 2000;
  if (item.paramB == 2) micro += rec.ExposureNs / 1000;
  const char ds = locale_.DateSeparator(), ts = locale_.TimeSeparator();
  const int ms = static_cast<int>(micro / 1000), us = static_cast<int>(micro % 1000);
  std::string text = locale_.DayFirst()
      ? Format("(%02d%c%02d%c%d) %02d%c%02d%c%02d%c%03d%c%03d", t.day, ds, t.month, ds, t.year, t.hour, ts, t.minute, ts,
               t.second, ts, ms, ts, us)
      : Format("(%d%c%d%c%d) %02d%c%02d%c%02d%c%03d%c%03d", t.month, ds, t.day, ds, t.year, t.hour, ts, t.minute, ts,
               t.second, ts, ms, ts, us);
  if (fromReceiver) return text + Format(" (CF = 0x%08X)", block.controlField);
  if (block.status != 0) {
    if (block.status & 0x80000000u) text += "M";
    else if (block.status & 0x00FF0000u) text += "-";
    else text += block.status == 3 ? "***" : block.status == 2 ? "**" : "*";
  }
  return text;
}

void OverlayRenderer::Place(const OverlayConfig& config, std::int32_t showState) {
  for (auto& slot : slots_) slot[0] = '\0';
  std::array<std::size_t, kOverlaySlots> used{};
  for (int i = 0; i < kOverlayItemCount; ++i) {
    const OverlayItem& item = config.items[i];
    if (!(config.flags & item.mask)) continue;
    if (item.showOn != 0 && item.showOn != showState) continue;
    if (item.position < 0 || item.position >= kOverlaySlots) continue;
    // Text and one blank, as much as the slot holds with its terminator.
    auto& slot = slots_[item.position];
    std::size_t& n = used[item.position];
    for (char c : std::string(FieldText(item.text)) + " ") {
      if (n + 1 >= kOverlaySlotBytes) break;
      slot[n++] = c;
    }
    slot[n] = '\0';
  }
  for (int p = 0; p < kOverlaySlots; ++p)
    if (used[p] > 0 && slots_[p][used[p] - 1] == ' ') slots_[p][used[p] - 1] = '\0';
}

const char* OverlayRenderer::TextAt(std::int32_t position) const {
  return position >= 0 && position < kOverlaySlots ? slots_[position].data() : nullptr;
}

}  // namespace tarnvel
