#include "engine/CaptureInfo.h"

#include <chrono>
#include <cmath>

#include "frames/overlay/OverlayItems.h"
#include "frames/overlay/TimeCode.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

// A calendar date and time as microseconds since 1970-01-01 00:00; false for
// a date that does not exist.
bool MicrosecondsOf(const CalendarTime& t, std::int64_t* microseconds) {
  using namespace std::chrono;
  const year_month_day date{year{t.year}, month{static_cast<unsigned>(t.month)}, day{static_cast<unsigned>(t.day)}};
  if (!date.ok() || t.year < 1900 || t.year > 9999 || t.hour > 23 || t.minute > 59 || t.second > 60) return false;
  const auto inDay = hours{t.hour} + minutes{t.minute} + seconds{t.second} + milliseconds{t.milliseconds} +
                     std::chrono::microseconds{t.microseconds};
  *microseconds = duration_cast<std::chrono::microseconds>(sys_days{date}.time_since_epoch() + inDay).count();
  return true;
}

// The recording's start plus the frame's place in it; a recording without a
// rate has no clock for its frames.
bool RecordingClock(const RecordingInfo& recording, std::int32_t sequenceIndex, std::int64_t* microseconds) {
  if (!(std::isfinite(recording.Rate) && recording.Rate > 0)) return false;
  CalendarTime start;
  start.year = recording.Year, start.month = recording.Month, start.day = recording.Day;
  start.hour = recording.Hour, start.minute = recording.Minute, start.second = recording.Second;
  start.milliseconds = recording.Milliseconds, start.microseconds = recording.Microseconds;
  if (!MicrosecondsOf(start, microseconds)) return false;
  const double elapsed = ElapsedSeconds(sequenceIndex, recording);
  if (!std::isfinite(elapsed) || std::abs(elapsed) > 1e9) return false;
  *microseconds += std::llround(elapsed * 1e6);
  return true;
}

}  // namespace

CaptureInfo DescribeCapture(const RecordingInfo& recording, const TimeStampBlock& time, std::int32_t frameNumber,
                            std::int32_t sequenceIndex, std::uint32_t exposureNs, std::string_view model,
                            std::string_view serial) {
  CaptureInfo info;
  if (time.year >= 2000 && MicrosecondsOf(DecodeTimeCode(time, 0, 0), &info.timeMicroseconds))
    info.timeSource = time.controlField == kNoTimeCodeReceiver ? CaptureTime::kCameraClock : CaptureTime::kTimeCode;
  else if (RecordingClock(recording, sequenceIndex, &info.timeMicroseconds))
    info.timeSource = CaptureTime::kRecordingClock;
  info.recordingRate = std::isfinite(recording.Rate) && recording.Rate > 0 ? recording.Rate : 0.0;
  info.exposureNs = exposureNs;
  info.frameNumber = frameNumber;
  CopyText(info.model, model);
  CopyText(info.serial, serial);
  return info;
}

}  // namespace tarnvel
