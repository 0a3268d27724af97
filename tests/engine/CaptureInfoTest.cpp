// What the recording tells about each written frame: the capture record the
// engine builds, and whole conversions whose Chapter 10 time and DNG tags
// follow the recording's own time (camera stamps, time codes or the
// recording's clock), read back with the tests' Chapter 10 reader and exiftool.
#include "engine/CaptureInfo.h"

#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "platform/cordage/TextField.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/engine/ConvertJobFixture.h"
#include "tests/support/Chapter10Packets.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

RecordingInfo Recording(std::uint16_t year, std::uint16_t month, std::uint16_t day, float rate) {
  RecordingInfo r{};
  r.Year = year, r.Month = month, r.Day = day;
  r.Hour = 10, r.Minute = 30, r.Second = 5, r.Milliseconds = 250, r.Microseconds = 7;
  r.Rate = rate;
  r.Frames = 100;
  r.TotSyncCount = 100;
  return r;
}

// 2024-06-14 10:30:05.250007 in microseconds since 1970.
constexpr std::int64_t kRecordingStart = 1718361005250007;

TEST(CaptureInfo, TimeFromTheTimeCodeElseTheRecordingsClock) {
  const RecordingInfo recording = Recording(2024, 6, 14, 1000.0f);
  // A time code: day 61 of the leap year 2024 is 1 March.
  TimeStampBlock code{1, 2024, 61, 12, 34, 56, 789012, 0, {}};
  CaptureInfo info = DescribeCapture(recording, code, -3, 17, 250000, "Fathom HS-6", "01-1234-5678");
  EXPECT_EQ(info.size, kCaptureInfoSize);
  EXPECT_EQ(info.timeSource, CaptureTime::kTimeCode);
  EXPECT_EQ(info.timeMicroseconds, 1709296496789012);
  EXPECT_EQ(std::tuple(info.recordingRate, info.exposureNs, info.frameNumber), std::tuple(1000.0, 250000u, -3));
  EXPECT_STREQ(info.model, "Fathom HS-6");
  EXPECT_STREQ(info.serial, "01-1234-5678");
  code.controlField = kNoTimeCodeReceiver;
  code.dayOfYear = 366, code.hour = 23;  // the last day of 2024
  info = DescribeCapture(recording, code, 0, 0, 0, "", "");
  EXPECT_EQ(info.timeSource, CaptureTime::kCameraClock);
  EXPECT_EQ(info.timeMicroseconds, 1735688096789012);

  // No time code (a year before 2000): the recording's start plus the frame's
  // place in the recording, 500 frames at 1000 a second.
  const TimeStampBlock none{1, 1999, 61, 12, 34, 56, 0, 0, {}};
  info = DescribeCapture(recording, none, 497, 500, 0, "", "");
  EXPECT_EQ(info.timeSource, CaptureTime::kRecordingClock);
  EXPECT_EQ(info.timeMicroseconds, kRecordingStart + 500000);
  EXPECT_EQ(DescribeCapture(recording, none, -3, -3, 0, "", "").timeMicroseconds, kRecordingStart - 3000);

  // Dates that do not exist, a rate that is not a number: the time stays unknown.
  const RecordingInfo broken[] = {Recording(2023, 2, 29, 1000.0f), Recording(2024, 13, 1, 1000.0f),
                                  Recording(1800, 1, 1, 1000.0f), Recording(2024, 6, 14, 0.0f),
                                  Recording(2024, 6, 14, std::nanf(""))};
  for (const RecordingInfo& r : broken) {
    info = DescribeCapture(r, none, 1, 1, 0, std::string(300, 'm'), std::string(300, 's'));
    EXPECT_EQ(info.timeSource, CaptureTime::kUnknown) << r.Year << "-" << r.Month << "-" << r.Day << " " << r.Rate;
    EXPECT_EQ(std::strlen(info.model), sizeof info.model - 1);
    EXPECT_EQ(std::strlen(info.serial), sizeof info.serial - 1);
    EXPECT_FALSE(info.recordingRate < 0 || std::isnan(info.recordingRate));
  }
}

class RecordingTimeInOutputs : public test::ConvertJob {
 protected:
  recgen::RecordingOptions TimedOptions(const std::string& name, std::int32_t type) {
    recgen::RecordingOptions o = Options(name, 12);
    o.rate = 500.0f;
    o.year = 2024, o.month = 12, o.day = 31, o.hour = 23, o.minute = 59, o.second = 59;
    o.microseconds = 990000;  // the recording crosses midnight and the year
    o.fileType = type;
    return o;
  }
  void Convert(const recgen::RecordingOptions& o) {
    CDecodeRaw job(Write(o), 0, 0);
    ASSERT_EQ(job.Start(false), 0) << job.StatusText();
  }
  // When store frame i was taken, microseconds since 1970, as the generator made it.
  static std::int64_t TakenAt(std::uint32_t i) { return 1735689599990000 + i * 2000; }
};

// With and without GEV records, with and without time codes: a reader of the
// Chapter 10 file derives each frame's time of the recording from the time
// packets and the relative time; the setup record names every channel and
// carries the first frame's date.
TEST_F(RecordingTimeInOutputs, Chapter10FollowsTheRecordingsTime) {
  const struct {
    const char* name;
    bool gev, timeCode;
    recgen::GevTimeForm form;
  } cases[] = {{"gev1588", true, true, recgen::GevTimeForm::kIeee1588},
               {"gevIrig", true, false, recgen::GevTimeForm::kIrig},
               {"gevCounter", true, false, recgen::GevTimeForm::kCounter},  // the generator counts from 1970
               {"codes", false, true, recgen::GevTimeForm::kIeee1588},
               {"clock", false, false, recgen::GevTimeForm::kIeee1588}};  // the recording's start and rate
  for (const auto& c : cases) {
    SCOPED_TRACE(c.name);
    auto o = TimedOptions(c.name, 34);
    o.gevRecords = c.gev, o.gevTime = c.form, o.timeCode = c.timeCode, o.timeFromReceiver = true;
    Convert(o);
    const test::ch10::Reading r = test::ch10::ReadPackets(test::ReadFile(JoinPath(o.folder, "take.ch10")));
    EXPECT_THAT(r.problems, ::testing::IsEmpty());
    EXPECT_THAT(test::ch10::CheckTmatsNamesEveryChannel(r), ::testing::IsEmpty());
    auto tmats = test::ch10::TmatsAttributes(r);
    EXPECT_EQ(tmats["G\\OD"], "12-31-2024");
    EXPECT_EQ(tmats["R-1\\RI2"], "Fathom HS-6");
    const auto frames = test::ch10::RebuildFrames(r);
    const auto times = test::ch10::TimePackets(r);
    ASSERT_EQ(frames.imageTimes.size(), 12u);
    ASSERT_EQ(frames.blocks.size(), 12u);
    ASSERT_EQ(times.size(), 2u) << "one for the last second of 2024, one for the first of 2025";
    EXPECT_EQ(times[0].source, 1u) << "the recording's clock, from outside";
    for (std::uint32_t i = 0; i < 12; ++i) {
      std::int64_t at = test::ch10::AbsoluteTime(times, frames.imageTimes[i]);
      if (i >= 5) at += 366ll * 86400 * 1000000;  // day 1 of 2025 read with the setup record's year 2024
      EXPECT_EQ(at, TakenAt(i)) << "frame " << i;
    }
  }
}

// The DNG of each frame carries the frame's own capture time and the
// recording's camera, exposure and rate; a TIFF its date and camera.
TEST_F(RecordingTimeInOutputs, DngAndTiffTagsFollowTheRecording) {
  for (const bool timeCode : {true, false}) {
    auto o = TimedOptions(timeCode ? "dngCodes" : "dngClock", 51);
    o.frames = 6, o.preTrigger = 0;
    o.timeCode = timeCode;
    o.exposureNs = 125000;
    Convert(o);
    std::string out;
    ASSERT_EQ(test::RunCommand("exiftool -q -p '$DateTimeOriginal.$SubSecTimeOriginal $ExposureTime $FrameRate "
                               "$UniqueCameraModel $CameraSerialNumber' " + JoinPath(o.folder, "take000005.dng"),
                               &out), 0) << out;
    EXPECT_EQ(out, "2025:01:01 00:00:00.000000 1/8000 500 OKN Fathom HS-6 01-1234-5678\n") << timeCode;
  }
  auto o = TimedOptions("tif", 1);
  o.frames = 2, o.preTrigger = 0;
  Convert(o);
  std::string out;
  ASSERT_EQ(test::RunCommand("exiftool -q -p '$ModifyDate $Make $Model' " + JoinPath(o.folder, "take000001.tif"), &out), 0);
  EXPECT_EQ(out, "2024:12:31 23:59:59 OKN Fathom HS-6\n");
}

}  // namespace
}  // namespace tarnvel
