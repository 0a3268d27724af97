// The read-ahead hands over exactly what a direct read gives, whatever order
// the frames are asked for in, and a failing read keeps its result.
#include "engine/FrameReadAhead.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "apps/recgen/RecordingGenerator.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

class FrameReadAheadTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { DriverExit(); }

  std::string Recording(bool colour) {
    recgen::RecordingOptions o;
    o.folder = dir_.File(colour ? "colour" : "mono");
    o.width = 40, o.height = 30, o.frames = 12, o.preTrigger = 2, o.colour = colour;
    EXPECT_EQ(recgen::WriteRecording(o), "");
    return o.folder;
  }

  test::TempDir dir_;
};

void ExpectSameFrame(const RawFrame& taken, const RawFrame& direct, std::size_t bytes) {
  ASSERT_EQ(taken.index, direct.index);
  ASSERT_EQ(taken.result, direct.result) << "frame " << direct.index;
  ASSERT_GE(taken.pixels.size(), bytes);
  EXPECT_EQ(std::memcmp(taken.pixels.data(), direct.pixels.data(), bytes), 0) << "frame " << direct.index;
  EXPECT_EQ(std::memcmp(&taken.time, &direct.time, sizeof direct.time), 0) << "frame " << direct.index;
  EXPECT_EQ(taken.gevValues, direct.gevValues);
  EXPECT_EQ(taken.gevTime, direct.gevTime);
  EXPECT_EQ(taken.autoExposureNs, direct.autoExposureNs);
  EXPECT_EQ(taken.frameFlag, direct.frameFlag);
}

TEST_F(FrameReadAheadTest, HandsOverWhatADirectReadGivesInAnyOrder) {
  for (bool colour : {false, true}) {
    for (bool mosaic : {false, true}) {
      const std::string folder = Recording(colour);
      RawSource direct;
      ASSERT_EQ(direct.Open(folder.c_str()), 0);
      direct.SetMosaicDelivery(mosaic);
      const std::size_t bytes = FrameBytes(direct.Handle());
      FrameReadAhead readAhead;
      ASSERT_EQ(readAhead.Start(folder.c_str(), mosaic, false), 0);
      // In order, a wrong guess, the same frame twice, backwards, and the end.
      const std::int32_t asked[][2] = {{0, 1}, {1, 2}, {2, 3}, {7, 8}, {7, 7}, {7, 6}, {6, 5}, {11, -1}, {3, -1}};
      RawFrame taken, expected;
      for (const auto& [index, next] : asked) {
        readAhead.Take(index, next, taken);
        ReadRawFrame(direct, index, false, expected);
        ExpectSameFrame(taken, expected, bytes);
      }
      EXPECT_NE(taken.time.year, 0u) << "the time block travels with the frame";
    }
  }
}

TEST_F(FrameReadAheadTest, FailedReadsStoppingAndAClosedRecording) {
  const std::string folder = Recording(false);
  FrameReadAhead idle;
  EXPECT_EQ(idle.Start(folder.c_str(), false, false), 0);
  idle.Stop();
  idle.Stop();  // twice is harmless
  FrameReadAhead none;
  EXPECT_NE(none.Start(dir_.File("nothing").c_str(), false, false), 0);

  // The store loses its last frames while the job runs.
  FrameReadAhead readAhead;
  ASSERT_EQ(readAhead.Start(folder.c_str(), false, false), 0);
  RawFrame frame;
  readAhead.Take(0, -1, frame);
  EXPECT_EQ(frame.result, 0);
  std::filesystem::resize_file(std::filesystem::path(folder) / "rawdata.00.raw", 4000);
  readAhead.Take(9, 10, frame);  // read now
  EXPECT_NE(frame.result, 0);
  EXPECT_EQ(frame.index, 9);
  readAhead.Take(10, 11, frame);  // read ahead
  EXPECT_NE(frame.result, 0);
  EXPECT_EQ(frame.index, 10);
  for (std::uint8_t byte : frame.pixels) ASSERT_EQ(byte, 0) << "a failed read hands out no old pixels";
}

}  // namespace
}  // namespace tarnvel
