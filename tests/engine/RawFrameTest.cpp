// Handles of their own read exactly what the job's handle reads, whatever
// order the frames are asked for in, and a failing read keeps its result and
// none of an earlier frame's records.
#include "engine/RawFrame.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>

#include "apps/recgen/RecordingGenerator.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

class RawFrameTest : public ::testing::Test {
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

TEST_F(RawFrameTest, AHandleOfItsOwnReadsWhatAnotherReadsInAnyOrder) {
  for (bool colour : {false, true}) {
    for (bool mosaic : {false, true}) {
      const std::string folder = Recording(colour);
      RawSource direct, own;
      ASSERT_EQ(direct.Open(folder.c_str()), 0);
      ASSERT_EQ(own.Open(folder.c_str()), 0);
      direct.SetMosaicDelivery(mosaic);
      own.SetMosaicDelivery(mosaic);
      const std::size_t bytes = FrameBytes(direct.Handle());
      // In order, a jump, the same frame twice, backwards, and the end.
      RawFrame taken, expected;
      for (const std::int32_t index : {0, 1, 2, 7, 7, 6, 5, 11, 3}) {
        ReadRawFrame(own, index, false, taken);
        ReadRawFrame(direct, index, false, expected);
        ExpectSameFrame(taken, expected, bytes);
      }
      EXPECT_NE(taken.time.year, 0u) << "the time block travels with the frame";
    }
  }
}

TEST_F(RawFrameTest, AFailedReadKeepsItsResultAndNothingOfAnEarlierFrame) {
  const std::string folder = Recording(false);
  RawSource none;
  EXPECT_NE(none.Open(dir_.File("nothing").c_str()), 0);
  RawSource source;
  ASSERT_EQ(source.Open(folder.c_str()), 0);
  RawFrame frame;
  ReadRawFrame(source, 0, false, frame);
  EXPECT_EQ(frame.result, 0);
  EXPECT_NE(frame.time.year, 0u);
  // The store loses its last frames while the job runs.
  std::filesystem::resize_file(std::filesystem::path(folder) / "rawdata.00.raw", 4000);
  ReadRawFrame(source, 9, false, frame);
  EXPECT_NE(frame.result, 0);
  EXPECT_EQ(frame.index, 9);
  EXPECT_EQ(frame.time.year, 0u) << "no time of the frame read before";
  EXPECT_EQ(frame.autoExposureNs, 0u);
}

}  // namespace
}  // namespace tarnvel
