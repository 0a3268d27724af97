// Chapter 10 files read back by the tests' own packet reader, which follows
// the standard's layouts: every header, checksum, filler and sequence, the
// setup record against the channels, image data format 0 (type 0x48, the
// channel word's fields at the standard's bit positions), the camera blocks
// as message data, and the absolute time of every frame through the time
// packets.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <chrono>
#include <cmath>
#include <cstring>
#include <thread>

#include "platform/clock/WallClock.h"
#include "platform/framekit/FrameKit.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/Chapter10Packets.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using namespace test::ch10;

std::string GevsBlock(std::uint32_t frame, std::uint64_t timestamp, std::uint32_t rate) {
  std::string b(1024, '\0');
  std::memcpy(b.data(), "OKN_GEVS", 8);
  for (int i = 0; i < 4; ++i) b[254 + i] = static_cast<char>(rate >> (8 * i));
  for (int i = 0; i < 8; ++i) b[342 + i] = static_cast<char>(timestamp >> (8 * i));
  for (int i = 0; i < 4; ++i) b[350 + i] = static_cast<char>(frame >> (8 * i));
  return b;
}

// 2024-03-01 12:34:56.789 UTC, in microseconds since 1970; the relative time
// counts from the whole second before.
constexpr std::int64_t kStart = 1709296496789000;
constexpr std::int64_t kOrigin = 1709296496000000;

struct Recording {
  std::uint32_t width, height, bits;
  bool mosaic;
  float rate;  // the recording's rate; the header carries a playback rate of 15
  std::uint32_t frames;
  bool cameraStamps = true;   // blocks with the camera's time stamps
  bool captureTimes = false;  // capture records with time codes
  bool blocks = true;
};

test::FrameSpec Spec(const Recording& s) { return {s.width, s.height, s.bits, s.mosaic, s.mosaic ? 2u : 0u, 15.0f}; }
std::string Pixels(const Recording& s, std::uint32_t frame) {
  const auto pixels = test::PatternFrame(Spec(s), frame);
  return {pixels.begin(), pixels.end()};
}
// When frame i was taken: every period, but frame 3 comes three periods late.
std::int64_t TakenAt(const Recording& s, std::uint32_t i) {
  const double period = 1e6 / s.rate;
  return kStart + std::llround((i + (i >= 3 ? 2 : 0)) * period);
}

int WriteCh10(const std::string& path, const Recording& s, const CaptureInfo* base = nullptr) {
  FrameHandle handle = nullptr;
  if (const int opened = OpenOutput(path.c_str(), 1, &handle); opened != 0) return opened;
  const FrameHeader header = test::MakeHeader(Spec(s));
  int result = 0;
  for (std::uint32_t i = 0; i < s.frames && result == 0; ++i) {
    CaptureInfo capture = base ? *base : CaptureInfo{};
    capture.recordingRate = s.rate;
    if (s.captureTimes) capture.timeSource = CaptureTime::kTimeCode, capture.timeMicroseconds = TakenAt(s, i);
    SetCaptureInfo(handle, &capture);
    const std::string block = GevsBlock(i, s.cameraStamps ? TakenAt(s, i) * 1000 : 0, 0);
    const std::string pixels = Pixels(s, i);
    result = WriteFrame(handle, i, s.frames, &header, s.blocks ? block.data() : nullptr, pixels.data());
  }
  const int closed = CloseOutput(handle);
  return result != 0 ? result : closed;
}

TEST(Chapter10, EveryPacketFollowsTheStandardAndCarriesFramesBlocksAndTheirTimes) {
  test::TempDir dir;
  const Recording recordings[] = {
      {64, 48, 8, false, 25.0f, 60},          // grey, several time packets
      {1280, 1024, 16, false, 1000.0f, 4},    // 16-bit, five segments a frame
      {100, 80, 36, true, 30.0f, 4},          // a colour source's mosaic, 12 bits a sample
      {33, 17, 24, false, 7.0f, 5},           // processed colour, odd sizes
      {8, 8, 8, false, 2000.0f, 600},         // sequence numbers wrap
      {16, 16, 12, false, 50.0f, 4, false, true, false},  // no blocks: the time codes
      {16, 16, 12, false, 50.0f, 4, false, true, true},   // blocks without stamps: the time codes
  };
  for (const Recording& s : recordings) {
    SCOPED_TRACE(std::to_string(s.width) + "x" + std::to_string(s.height) + "x" + std::to_string(s.bits) + " at " +
                 std::to_string(s.rate));
    const std::string path = dir.File("rec.ch10");
    ASSERT_EQ(WriteCh10(path, s), 0);
    const std::string file = test::ReadFile(path);
    const Reading r = ReadPackets(file);
    EXPECT_THAT(r.problems, ::testing::IsEmpty());
    EXPECT_EQ(r.bytesRead, file.size()) << "the file is whole packets";
    ASSERT_GE(r.packets.size(), 3u);
    // First the setup record, in ASCII, naming every channel with its type.
    EXPECT_TRUE(r.packets[0].channel == 0 && r.packets[0].type == 0x01);
    auto tmats = TmatsAttributes(r);
    EXPECT_EQ(tmats["G\\106"], "09");
    EXPECT_EQ(tmats["G\\OD"], "03-01-2024");
    EXPECT_THAT(r.packets[0].body, ::testing::HasSubstr(std::to_string(s.width) + " x " + std::to_string(s.height)));
    EXPECT_THAT(CheckTmatsNamesEveryChannel(r), ::testing::IsEmpty());
    for (const Packet& p : r.packets) EXPECT_EQ(p.version, 0x04);

    const Frames f = RebuildFrames(r);
    EXPECT_THAT(f.problems, ::testing::IsEmpty());
    ASSERT_EQ(f.images.size(), s.frames);
    ASSERT_EQ(f.blocks.size(), s.blocks ? s.frames : 0u);
    const auto times = TimePackets(r);
    for (std::uint32_t i = 0; i < s.frames; ++i) {
      // Relative time follows the recording's clock, and so does the absolute
      // time a reader derives from the time packets.
      const std::int64_t taken = TakenAt(s, i);
      EXPECT_NEAR(static_cast<double>(f.imageTimes[i]), (taken - kOrigin) * 10.0, 1.0) << "frame " << i;
      EXPECT_NEAR(static_cast<double>(AbsoluteTime(times, f.imageTimes[i])), static_cast<double>(taken), 1.0) << i;
      EXPECT_TRUE(f.images[i] == Pixels(s, i)) << "frame " << i;
      EXPECT_TRUE(!s.blocks || (f.blocks[i] == GevsBlock(i, s.cameraStamps ? taken * 1000 : 0, 0) &&
                                f.blockTimes[i] == f.imageTimes[i]))
          << "block " << i;
    }
    // Segments of 524,160 bytes at most, a whole number of pixels of any depth.
    const std::size_t segments = (test::FrameBytes(Spec(s)) + 524159) / 524160;
    EXPECT_EQ(f.segmentsPerImage, std::vector<std::size_t>(s.frames, segments));
    // A time packet at every whole second of relative time that holds
    // frames: the recording's time, from outside this program, leap year 2024.
    ASSERT_EQ(times.size(), static_cast<std::size_t>((TakenAt(s, s.frames - 1) - kOrigin) / 1000000) + 1);
    for (std::size_t k = 0; k < times.size(); ++k) {
      EXPECT_EQ(times[k].counter, k * 10'000'000ull);
      EXPECT_EQ(std::tuple(times[k].source, times[k].format, times[k].leapYear), std::tuple(1u, 3u, true));
      EXPECT_EQ(times[k].microseconds, kOrigin + static_cast<std::int64_t>(k) * 1000000);
    }
  }
}

// Without the camera's stamps or the recording's times, the file keeps this
// machine's clock (an internal time source) and the frames their period;
// times from outside that run backwards never turn the counter back; the
// camera's texts cannot break the setup record.
TEST(Chapter10, TimesWithoutTheRecordingsClockAndHostileCaptureRecords) {
  test::TempDir dir;
  const auto now = [] {
    return std::chrono::duration_cast<std::chrono::microseconds>(std::chrono::system_clock::now().time_since_epoch())
        .count();
  };
  const Recording plain{16, 16, 8, false, 100.0f, 250, false, false, false};
  const std::int64_t before = now() / 1000000 * 1000000;
  ASSERT_EQ(WriteCh10(dir.File("plain.ch10"), plain), 0);
  const std::int64_t after = now();
  Reading r = ReadPackets(test::ReadFile(dir.File("plain.ch10")));
  EXPECT_THAT(r.problems, ::testing::IsEmpty());
  const auto times = TimePackets(r);
  ASSERT_GE(times.size(), 3u);
  EXPECT_TRUE(times[0].microseconds >= before && times[0].microseconds <= after);
  EXPECT_EQ(times[0].source, 0u);
  Frames f = RebuildFrames(r);
  ASSERT_EQ(f.imageTimes.size(), 250u);
  EXPECT_EQ(f.imageTimes[249] - f.imageTimes[0], 249u * 100'000) << "the recording's rate from the capture record";
  EXPECT_LE(AbsoluteTime(times, f.imageTimes[0]), after);

  CaptureInfo hostile;
  std::strcpy(hostile.model, "Fathom;\r\nG\\106:04;R-1\\N:9");
  std::strcpy(hostile.serial, "12;34");
  Recording backwards{16, 16, 8, false, 50.0f, 6, false, true, true};
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("back.ch10").c_str(), 1, &handle), 0);
  const FrameHeader header = test::MakeHeader(Spec(backwards));
  const std::int64_t taken[] = {kStart, kStart + 20000, kStart - 5000000, kStart + 60000, kStart + 40000, kStart + 80000};
  for (std::uint32_t i = 0; i < 6; ++i) {
    CaptureInfo capture = hostile;
    capture.recordingRate = 50;
    capture.timeSource = i == 3 ? CaptureTime::kUnknown : CaptureTime::kTimeCode;
    capture.timeMicroseconds = taken[i];
    ASSERT_EQ(SetCaptureInfo(handle, &capture), 0);
    ASSERT_EQ(WriteFrame(handle, i, 6, &header, nullptr, Pixels(backwards, i).data()), 0);
  }
  ASSERT_EQ(CloseOutput(handle), 0);
  r = ReadPackets(test::ReadFile(dir.File("back.ch10")));
  EXPECT_THAT(r.problems, ::testing::IsEmpty()) << "the counter never goes back";
  f = RebuildFrames(r);
  // 0, 20 ms, held (5 s back), held (a period after that), 40 ms, 80 ms.
  const std::uint64_t first = (kStart - kOrigin) * 10;
  EXPECT_EQ(f.imageTimes, (std::vector<std::uint64_t>{first, first + 200000, first + 200000, first + 200000,
                                                      first + 400000, first + 800000}));
  auto tmats = TmatsAttributes(r);
  EXPECT_EQ(tmats["G\\106"], "09");
  EXPECT_EQ(tmats["R-1\\N"], "3");

  // A capture time past the counter's span (the year 2300) and a playback
  // rate too small to make a period: this machine's clock, 25 frames a second.
  FrameHeader slow = test::MakeHeader(Spec(backwards));
  slow.rate = 1e-30f;
  ASSERT_EQ(OpenOutput(dir.File("far.ch10").c_str(), 1, &handle), 0);
  for (std::uint32_t i = 0; i < 3; ++i) {
    CaptureInfo capture;
    capture.timeSource = CaptureTime::kTimeCode;
    capture.timeMicroseconds = 10'413'792'000'000'000 + i;  // 2300-01-01
    ASSERT_EQ(SetCaptureInfo(handle, &capture), 0);
    ASSERT_EQ(WriteFrame(handle, i, 3, &slow, nullptr, Pixels(backwards, i).data()), 0);
  }
  ASSERT_EQ(CloseOutput(handle), 0);
  r = ReadPackets(test::ReadFile(dir.File("far.ch10")));
  EXPECT_THAT(r.problems, ::testing::IsEmpty());
  f = RebuildFrames(r);
  ASSERT_EQ(f.imageTimes.size(), 3u);
  EXPECT_EQ(f.imageTimes[2] - f.imageTimes[0], 800000u);
  EXPECT_EQ(TimePackets(r).front().source, 0u);
  EXPECT_EQ(tmats["R-1\\RI2"], "Fathom   G\\106:04 R-1\\N:9");
  EXPECT_EQ(tmats["R-1\\RI9"], "12 34");
}

// SOURCE_DATE_EPOCH stands for the clock of a file whose frames tell no
// time, so that two conversions give the same bytes; a value that is not a
// plain number of seconds before the year 10000 leaves the machine's clock.
TEST(Chapter10, SourceDateEpochStandsForTheClock) {
  test::TempDir dir;
  const Recording plain{16, 16, 8, false, 100.0f, 5, false, false, false};
  auto firstTime = [&](const std::string& name) {
    EXPECT_EQ(WriteCh10(dir.File(name), plain), 0);
    const Reading r = ReadPackets(test::ReadFile(dir.File(name)));
    EXPECT_THAT(r.problems, ::testing::IsEmpty());
    const auto times = TimePackets(r);
    return times.empty() ? std::int64_t{-1} : times[0].microseconds;
  };
  {
    const test::ScopedVariable epoch("SOURCE_DATE_EPOCH", "1709296496");
    EXPECT_EQ(firstTime("a.ch10"), kOrigin);
    std::this_thread::sleep_for(std::chrono::milliseconds(1100));
    EXPECT_EQ(firstTime("b.ch10"), kOrigin);
    EXPECT_EQ(test::ReadFile(dir.File("a.ch10")), test::ReadFile(dir.File("b.ch10")));
  }
  const auto now = std::chrono::duration_cast<std::chrono::microseconds>(
                       std::chrono::system_clock::now().time_since_epoch()).count();
  for (const char* hostile : {"", "-5", "17092964x", " 1709296496", "1e9", "253402300800",
                              "99999999999999999999999", "0x10"}) {
    SCOPED_TRACE(hostile);
    const test::ScopedVariable epoch("SOURCE_DATE_EPOCH", hostile);
    EXPECT_GE(firstTime("c.ch10"), now / 1000000 * 1000000);
  }
  EXPECT_EQ(EpochFromText("0"), std::time_t{0});
  EXPECT_EQ(EpochFromText("253402300799"), std::time_t{253402300799});
}

// Refused frames (another geometry, a depth the type does not take) leave no trace;
// a full disk ends with a failure and whole packets before it.
TEST(Chapter10, BadCallsAndAFullDiskLeaveAValidFile) {
  test::TempDir dir;
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("two.ch10").c_str(), 1, &handle), 0);
  FrameHeader header = test::MakeHeader({8, 8, 8}), wider = header, deep = header;
  wider.width = 16;
  deep.bits = 20;
  const std::string pixels(16 * 16 * 2, '\x11');
  EXPECT_EQ(WriteFrame(handle, 0, 3, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 3, &wider, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 1, 3, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(CloseOutput(handle), 0);
  EXPECT_THAT(ReadPackets(test::ReadFile(dir.File("two.ch10"))).problems, ::testing::IsEmpty());

  const Recording recording{256, 256, 16, false, 25.0f, 20};
  const std::string path = dir.File("cut.ch10");
  EXPECT_EQ(test::WriteWithSizeLimit(5 * 256 * 256 * 2 + 5000, [&] { return WriteCh10(path, recording); }),
            kFkWriteFailed);
  const std::string file = test::ReadFile(path);
  const Reading r = ReadPackets(file);
  EXPECT_THAT(r.problems, ::testing::IsEmpty());
  EXPECT_EQ(r.bytesRead, file.size()) << "cut back to the last whole frame";
  const Frames f = RebuildFrames(r);
  EXPECT_THAT(f.problems, ::testing::IsEmpty());
  EXPECT_GE(f.images.size(), 4u);
  EXPECT_EQ(f.blocks.size(), f.images.size());
  for (std::size_t i = 0; i < f.images.size(); ++i) EXPECT_EQ(f.images[i], Pixels(recording, std::uint32_t(i)));
}

}  // namespace
}  // namespace tarnvel
