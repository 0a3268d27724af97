#include "engine/RawSource.h"

#include <gtest/gtest.h>

#include <cstring>

#include "tests/platform/rawdrv/IndependentStore.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::StoreSpec;
using test::TempDir;

class RawSourceTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { ASSERT_EQ(DriverExit(), 0); }
};

TEST_F(RawSourceTest, ClosedSourceAndFailedOpen) {
  RawSource source;
  EXPECT_FALSE(source.IsOpen());
  EXPECT_EQ(source.Temperature(), 0);
  char name[8] = "junk";
  EXPECT_TRUE(source.DeviceName(name, sizeof name));
  EXPECT_STREQ(name, "");
  const TimeStampBlock* time = source.FrameTime();
  EXPECT_EQ(time->year, 0u);
  EXPECT_EQ(source.Close(), 0);
  EXPECT_EQ(source.FrameWidth(), 0u);
  EXPECT_EQ(source.ModelNumber(), 0u);
  TempDir empty;
  EXPECT_NE(source.Open(empty.path().c_str()), 0);
  EXPECT_FALSE(source.IsOpen());
}

TEST_F(RawSourceTest, AccessorsGeometryFramesAndRecords) {
  TempDir dir;
  StoreSpec s;
  s.width = 6;
  s.height = 4;
  s.bits = 12;
  s.colour = true;
  s.order = 2;
  s.rotation = 3;
  s.frames = 2;
  s.modelIndex = 12;  // model 11: a camera with its own metadata block
  s.subModel = 4;
  s.serial = 123;
  s.network = 0x0A000001;
  s.exposure = 999;
  s.period = 5000;
  s.six = 6;
  s.value14 = 14;
  s.value15 = 15;
  s.sizeFactor = 2;
  s.suffix = 3;
  s.trailerBytes = 1264;
  s.trailerFlags = 3;
  s.modelText = "HS-11";
  test::WriteIndependentStore(dir.path(), s, [](std::uint32_t i) { return std::vector<std::uint16_t>(24, 100 + i); },
                              [](std::uint32_t i, std::vector<std::uint8_t>& t) {
                                const std::uint32_t time[8] = {1, 2031, 12, 1, 2, 3, 4 + i, 0};
                                std::memcpy(t.data(), time, 32);
                                const std::uint32_t exposureAndFlag[2] = {700 + i, 1};
                                std::memcpy(t.data() + 32, exposureAndFlag, 8);
                                for (std::size_t b = 48; b < t.size(); ++b) t[b] = static_cast<std::uint8_t>(b / 4);
                              });
  RawHandle destroyed = 0;
  {
    RawSource source;
    ASSERT_EQ(source.Open(dir.path().c_str()), 0);
    EXPECT_EQ(source.ModelNumber(), 11u);
    EXPECT_TRUE(source.HasCameraBlock());
    EXPECT_EQ(source.SerialNumber(), 123u);
    EXPECT_EQ(source.CameraValue14(), 14u);
    EXPECT_EQ(source.CameraValue15(), 15u);
    EXPECT_EQ(source.MosaicOrder(), 2u);
    EXPECT_EQ(source.SubModel(), 4u);
    EXPECT_EQ(source.NetworkAddress(), 0x0A000001u);
    char text[kCameraTextBytes];
    EXPECT_EQ(source.CameraModelText(text), 0);
    EXPECT_STREQ(text, "HS-11");
    EXPECT_EQ(source.ExposureNs(), 999u);
    EXPECT_EQ(source.PixelDepth(), 36u);
    EXPECT_EQ(source.PropertySix(), 6u);
    EXPECT_EQ(source.SizeFactor(), 2u);
    EXPECT_EQ(source.FramePeriodNs(), 5000u);
    EXPECT_EQ(source.ResolutionSuffix(), 3u);
    EXPECT_EQ(source.Rotation(), 3u);
    FrameGeometry g;
    ASSERT_TRUE(source.Geometry(g));
    EXPECT_EQ(g.width, 4u);
    EXPECT_EQ(g.height, 6u);
    EXPECT_EQ(g.bits, 36u);
    EXPECT_EQ(g.frameBytes, 4u * 6 * 6);

    std::vector<std::uint8_t> frame(g.frameBytes);
    ASSERT_EQ(source.ReadFrame(1, frame.data()), 0);
    for (std::size_t i = 0; i < frame.size(); i += 2) ASSERT_EQ(frame[i] | frame[i + 1] << 8, 101) << i;
    EXPECT_EQ(source.FrameTime()->microseconds, 5u);
    EXPECT_EQ(source.FrameTime()->year, 2031u);
    EXPECT_EQ(source.AutoExposureNs(), 701u);
    EXPECT_EQ(source.FrameFlag(), 1u);
    std::uint8_t values[32], timeRecord[72];
    EXPECT_EQ(source.GetGevRecords(values, timeRecord), 0);
    EXPECT_EQ(values[0], 80 / 4);      // the second record
    EXPECT_EQ(timeRecord[0], 112 / 4);  // the third one's first 72 bytes
    EXPECT_EQ(timeRecord[71], (112 + 71) / 4);
    std::uint8_t block[1024];
    EXPECT_EQ(source.GetCameraBlock(block), 0);
    EXPECT_EQ(block[4], (240 + 4) / 4);

    // The mosaic of a colour source: a third of the bits, one plane.
    EXPECT_EQ(source.SetMosaicDelivery(true), 0);
    FrameGeometry mosaic;
    ASSERT_TRUE(MakeFrameGeometry(6, 4, 12, 3, mosaic));
    std::vector<std::uint8_t> plane(mosaic.frameBytes);
    EXPECT_EQ(FrameBytes(source.Handle()), plane.size());
    ASSERT_EQ(source.ReadFrame(0, plane.data()), 0);
    EXPECT_EQ(plane[0] | plane[1] << 8, 100);
    EXPECT_EQ(source.ReadFrame(2, plane.data()), kRawFrameOutOfRange);

    source.SetDeviceName("Camera 7", RawSource::kDeviceNameBytes);
    source.SetTemperature(-1250);
    EXPECT_EQ(source.Temperature(), -1250);
    char name[9];
    EXPECT_TRUE(source.DeviceName(name, 9));
    EXPECT_STREQ(name, "Camera 7");
    EXPECT_FALSE(source.DeviceName(name, 8));  // the terminator must fit too
    std::string longName(300, 'd');
    source.SetDeviceName(longName.c_str(), 300);
    char full[200];
    EXPECT_TRUE(source.DeviceName(full, sizeof full));
    EXPECT_EQ(std::strlen(full), 127u);

    const RawHandle handle = source.Handle();
    RawSource second;  // a second source of the same folder is independent
    ASSERT_EQ(second.Open(dir.path().c_str()), 0);
    EXPECT_NE(second.Handle(), handle);
    EXPECT_EQ(second.Close(), 0);
    EXPECT_EQ(second.Handle(), 0u);
    EXPECT_EQ(source.ReadFrame(0, plane.data()), 0);
    destroyed = source.Handle();
  }
  EXPECT_EQ(CloseRecording(destroyed), kRawBadHandle);  // the destructor closed it
}

TEST_F(RawSourceTest, ModelIndexBeyondTheTableGivesModelZero) {
  TempDir dir;
  StoreSpec s;
  s.modelIndex = 71;
  test::WriteIndependentStore(dir.path(), s, [](std::uint32_t) { return std::vector<std::uint16_t>(48, 1); });
  RawSource source;
  ASSERT_EQ(source.Open(dir.path().c_str()), 0);
  EXPECT_EQ(source.ModelNumber(), 0u);
  EXPECT_FALSE(source.HasCameraBlock());
  FrameGeometry g;
  ASSERT_TRUE(source.Geometry(g));
  EXPECT_EQ(g.bits, 12u);
}

}  // namespace
}  // namespace tarnvel
