#include "apps/recgen/RecordingGenerator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <functional>

#include "platform/cordage/Profile.h"
#include "platform/rawdrv/RawDriver.h"
#include "recording/RawFileDescriptor.h"
#include "tests/support/TestFiles.h"

namespace tarnvel::recgen {
namespace {

using test::TempDir;

class RecordingGeneratorTest : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { ASSERT_EQ(DriverExit(), 0); }
};

struct Source {
  RawHandle handle = 0;
  std::uint8_t info[kInfoBlockBytes] = {};
  explicit Source(const std::string& folder) {
    EXPECT_EQ(OpenRecording(folder.c_str(), &handle), 0) << folder;
    const std::uint32_t size = kInfoBlockBytes;
    std::memcpy(info, &size, 4);
    LoadInfoA(handle, info);
    LoadInfoB(handle, info);
  }
  ~Source() { CloseRecording(handle); }
  std::vector<int> Read(std::int32_t i) {
    std::vector<std::uint8_t> bytes(FrameBytes(handle));
    EXPECT_EQ(ReadFrame(handle, 0, 0, i, bytes.data()), 0);
    std::uint32_t depth = 0;
    GetProperty(handle, info, kPropPixelDepth, &depth);
    const bool wide = (depth % 3 == 0 && depth > 16 ? depth / 3 : depth) > 8;
    std::vector<int> v;
    for (std::size_t k = 0; k < bytes.size(); k += wide ? 2 : 1) v.push_back(wide ? bytes[k] | bytes[k + 1] << 8 : bytes[k]);
    return v;
  }
};

// Sensor samples less black level and offsets, turned clockwise: the plane
// that a monochrome frame or a mosaic delivers.
std::vector<int> ExpectedPlane(const RecordingOptions& o, std::uint32_t index) {
  const auto samples = SensorSamples(o, index);
  const auto offsets = CalibrationOffsets(o);
  std::uint32_t w = o.width, h = o.height;
  std::vector<int> plane(samples.size());
  for (std::size_t i = 0; i < samples.size(); ++i) {
    plane[i] = std::max(0, samples[i] - int(o.blackLevel) - (offsets.empty() ? 0 : offsets[i]));
  }
  for (std::uint32_t t = 0; t < o.rotation; ++t) {
    std::vector<int> turned(plane.size());
    for (std::uint32_t y = 0; y < h; ++y)
      for (std::uint32_t x = 0; x < w; ++x) turned[x * h + (h - 1 - y)] = plane[y * w + x];
    plane.swap(turned);
    std::swap(w, h);
  }
  return plane;
}

TEST_F(RecordingGeneratorTest, EveryPackingDepthRotationAndMosaicReadsBackBitForBit) {
  for (std::uint32_t packing : {0u, 1u, 2u}) {
    for (std::uint32_t bits : {8u, 10u, 12u, 14u, 16u}) {
      if (packing == 2 && bits != 12) continue;
      for (std::uint32_t rotation = 0; rotation < 4; ++rotation) {
        for (int sensor = -1; sensor < 4; ++sensor) {  // -1 monochrome, else the mosaic order
          SCOPED_TRACE(testing::Message() << "packing " << packing << " bits " << bits << " rotation " << rotation
                                          << " sensor " << sensor);
          TempDir dir;
          RecordingOptions o;
          o.folder = dir.File("rec");
          o.width = 21;
          o.height = 14;
          o.sampleBits = bits;
          o.packing = packing;
          o.rotation = rotation;
          o.colour = sensor >= 0;
          o.mosaicOrder = sensor >= 0 ? sensor : 0;
          o.frames = 3;
          o.preTrigger = 1;
          o.framesPerSegment = rotation == 1 ? 2 : 0;
          o.blackLevel = bits > 8 ? 5 : 1;
          o.calibration = rotation % 2 == 0;
          ASSERT_EQ(WriteRecording(o), "");
          Source source(o.folder);
          if (o.colour) {
            ASSERT_EQ(SetMosaicDelivery(source.handle, 1), 0);
          }
          for (std::int32_t i = 0; i < 3; ++i) ASSERT_EQ(source.Read(i), ExpectedPlane(o, i)) << "frame " << i;
        }
      }
    }
  }
}

TEST_F(RecordingGeneratorTest, PicturesAreUprightAndMove) {
  for (std::uint32_t rotation = 0; rotation < 4; ++rotation) {
    SCOPED_TRACE(rotation);
    TempDir dir;
    RecordingOptions o;
    o.folder = dir.File("rec");
    o.width = 160;
    o.height = 100;
    o.sampleBits = 8;
    o.rotation = rotation;
    o.frames = 30;
    ASSERT_EQ(WriteRecording(o), "");
    Source source(o.folder);
    const std::uint32_t w = rotation % 2 ? 100 : 160, h = rotation % 2 ? 160 : 100;
    const auto first = source.Read(0), later = source.Read(25);
    // The plate of the frame number stands at the top left of what is shown.
    EXPECT_EQ(first[(h / 20) * w + w / 20], 0);
    // Left to right the picture gets brighter (away from plate and bar).
    EXPECT_LT(later[(h - 2) * w + 0], later[(h - 2) * w + w / 2]);
    // The bar moves: 25 frames on it covers other columns, at 95 % of full scale.
    const int bar = static_cast<int>(std::floor(0.95 * 255 + 0.5));
    const std::uint32_t barAt = 25 * std::max(1u, w / 50) % w;
    EXPECT_EQ(later[(h - 2) * w + barAt], bar);
    EXPECT_NE(first[(h - 2) * w + barAt], bar);
    // The digits change with the frame number (-20 against 5).
    bool differ = false;
    for (std::uint32_t y = h / 20; y < h / 20 + h / 4; ++y)
      for (std::uint32_t x = w / 20; x < w / 2; ++x) differ |= first[y * w + x] != later[y * w + x];
    EXPECT_TRUE(differ);
  }
}

TEST_F(RecordingGeneratorTest, ProfileArgumentsDescriptorAndSidecars) {
  TempDir dir;
  RecordingOptions o;
  o.folder = dir.File("shot 7");
  o.width = 64;
  o.height = 32;
  o.frames = 10;
  o.preTrigger = 4;
  o.exposureNs = 3000000000u;  // top bit set: written as a negative decimal
  o.rate = 2500.0f;
  o.colour = true;
  o.gains[0] = 1.5f;
  o.framesPerSegment = 4;
  o.deviceName = "Left camera";
  ASSERT_EQ(WriteRecording(o), "");
  const std::string pgv = test::ReadFile(std::filesystem::path(o.folder) / "_config.pgv");
  EXPECT_EQ(pgv.rfind("[Acquisition]\r\n", 0), 0u);
  EXPECT_EQ(pgv.find("\n") , pgv.find("\r\n") + 1);
  EXPECT_NE(pgv.find("\r\nExposureNs=-1294967296\r\n"), std::string::npos);
  EXPECT_NE(pgv.find("\r\nRate=2500.000000000000000\r\n"), std::string::npos);
  std::size_t twice = 0;
  for (std::size_t at = pgv.find("\r\nModel=6\r\n"); at != std::string::npos; at = pgv.find("\r\nModel=6\r\n", at + 1)) ++twice;
  EXPECT_EQ(twice, 2u);

  const std::string profile = (std::filesystem::path(o.folder) / "_config.pgv").string();
  const auto integer = [&](const char* key) {
    std::int32_t v = -999;
    EXPECT_TRUE(CgReadProfileInteger("Acquisition", key, -999, &v, profile.c_str())) << key;
    return v;
  };
  EXPECT_EQ(integer("Images"), 10);
  EXPECT_EQ(integer("StartIdx"), -4);
  EXPECT_EQ(integer("StopIdx"), 5);
  EXPECT_EQ(integer("Per-Trig-Frms"), 4);
  EXPECT_EQ(integer("RecMode"), 1);
  EXPECT_EQ(integer("PixelDepth"), 36);
  EXPECT_EQ(integer("WhiteBal_0"), 98304);
  EXPECT_EQ(integer("WhiteBal_4"), 65536);
  EXPECT_EQ(integer("WhiteBal_1"), 0);
  std::uint32_t exposure = 0;
  CgReadProfileInteger("Acquisition", "ExposureNs", 0, &exposure, profile.c_str());
  EXPECT_EQ(exposure, 3000000000u);
  float rate = 0;
  EXPECT_TRUE(CgReadProfileFloat("Acquisition", "Rate", 0, &rate, profile.c_str()));
  EXPECT_EQ(rate, 2500.0f);
  char name[128];
  CgReadProfileString("Acquisition", "Name", "", name, sizeof name, profile.c_str());
  EXPECT_STREQ(name, "shot 7");

  const std::string args = (std::filesystem::path(o.folder) / "args.ini").string();
  std::int32_t frames = 0, deleteRaw = 1, backColour = 0;
  EXPECT_TRUE(CgReadProfileInteger("ArgSect", "Arg03", 0, &frames, args.c_str()));
  EXPECT_EQ(frames, 10);
  CgReadProfileInteger("ArgSect", "Arg26", 1, &deleteRaw, args.c_str());
  EXPECT_EQ(deleteRaw, 0);
  CgReadProfileInteger("ArgSect", "Arg43", 0, &backColour, args.c_str());
  EXPECT_EQ(backColour, -1);
  char device[128];
  CgReadProfileString("ArgSect", "Arg22", "", device, sizeof device, args.c_str());
  EXPECT_STREQ(device, "Left camera");

  RawFileInfo info{};
  ASSERT_EQ(ReadRawFileInfo((std::filesystem::path(o.folder) / "rawfile.xml").c_str(), 0, &info), 1);
  EXPECT_EQ(info.FrameCount, 10u);
  EXPECT_EQ(info.FramesPerSegment, 4u);
  EXPECT_EQ(info.PixelDepth, 36u);
  EXPECT_EQ(info.PreTrigger, 4);
  for (const char* file : {"rawdata.00.raw", "rawdata.01.raw", "rawdata.02.raw", "_config.mme", "_config.mii"}) {
    EXPECT_TRUE(std::filesystem::exists(std::filesystem::path(o.folder) / file)) << file;
  }
  // The suite's writers end lines as its Windows tools do.
  const std::string mme = test::ReadFile(std::filesystem::path(o.folder) / "_config.mme");
  EXPECT_EQ(mme.rfind("Data format edition number  :1.6\r\n", 0), 0u);
  EXPECT_NE(mme.find("Laboratory name             :NOVALUE\r\n"), std::string::npos);
  const std::string mii = test::ReadFile(std::filesystem::path(o.folder) / "_config.mii");
  EXPECT_EQ(mii.rfind("Number of movies            :1\r\n", 0), 0u);
  EXPECT_NE(mii.find("Camera ID-number 1          :01-1234-5678\r\n"), std::string::npos);
  EXPECT_NE(mii.find("Shutter time 1              :3.000000\r\n"), std::string::npos);
  EXPECT_NE(mii.find("Colour 1                    :RGB\r\n"), std::string::npos);
}

TEST_F(RecordingGeneratorTest, TrailersRunFromTheStartAtTheFrameRate) {
  TempDir dir;
  RecordingOptions o;
  o.folder = dir.File("rec");
  o.width = 8;
  o.height = 8;
  o.frames = 4;
  o.preTrigger = 0;
  o.rate = 2000.0f;  // 500 us a frame
  o.year = 2024;
  o.month = 12;
  o.day = 31;
  o.hour = 23;
  o.minute = 59;
  o.second = 59;
  o.microseconds = 999000;
  o.autoExposure = true;
  o.flagged = {2};
  o.gevRecords = true;
  o.model = 12;  // carries a camera block
  ASSERT_EQ(WriteRecording(o), "");
  Source source(o.folder);
  std::uint32_t model = 0;
  GetCameraValue(source.handle, kCamModelIndex, &model, nullptr);
  EXPECT_EQ(model, 13u);  // table index of model 12
  const std::uint32_t expected[4][4] = {{2024, 366, 59, 999000}, {2024, 366, 59, 999500}, {2025, 1, 0, 0},
                                        {2025, 1, 0, 500}};
  for (std::int32_t i = 0; i < 4; ++i) {
    source.Read(i);
    TimeStampBlock t{};
    ASSERT_EQ(GetFrameTime(source.handle, 0, &t), 0);
    EXPECT_EQ(t.year, expected[i][0]) << i;
    EXPECT_EQ(t.dayOfYear, expected[i][1]) << i;
    EXPECT_EQ(t.second, expected[i][2]) << i;
    EXPECT_EQ(t.microseconds, expected[i][3]) << i;
    EXPECT_EQ(t.hour, i < 2 ? 23u : 0u);
    EXPECT_EQ(t.controlField, 0x55555555u);
    std::uint32_t flag = 9, autoExposure = 0;
    GetProperty(source.handle, source.info, kPropFrameFlag, &flag);
    GetProperty(source.handle, source.info, kPropAutoExposureNs, &autoExposure);
    EXPECT_EQ(flag, i == 2 ? 1u : 0u);
    EXPECT_EQ(autoExposure, o.exposureNs - i * (o.exposureNs / 20));
    std::uint8_t one[32], two[32], three[128], block[1024];
    ASSERT_EQ(GetGevRecords(source.handle, one, two, three), 0);
    EXPECT_EQ(std::memcmp(three, " 1588", 5), 0);
    std::uint64_t seconds = 0;
    for (int b = 7; b < 12; ++b) seconds = seconds << 8 | three[b];
    EXPECT_EQ(seconds, i < 2 ? 1735689599u : 1735689600u);  // 2024-12-31 23:59:59 UTC
    ASSERT_EQ(GetCameraBlock(source.handle, block, 1024), 0);
    EXPECT_EQ(std::memcmp(block + 1020, "EoBD", 4), 0);
  }
}

TEST_F(RecordingGeneratorTest, CommandLine) {
  TempDir dir;
  const std::string program = (test::BinaryDir() / "apps/recgen/tarnvel-recgen").string();
  const std::string folder = dir.File("cli");
  ASSERT_EQ(test::RunCommand(program + " --out '" + folder +
                             "' --width 64 --height=48 --bits 10 --packing bitstream --sensor colour --mosaic GBRG"
                             " --frames 5 --pretrigger 2 --segment 2 --rotation 1 --black 4 --calibration"
                             " --gains 1.5,1,2 --model 21 --serial 777 --ip 10.1.2.3 --gev --gev-time irig"
                             " --start '2025-03-04 05:06:07.250' --flag 1,3 --camera-text 'HS X'"),
            0);
  Source source(folder);
  std::uint32_t v = 0;
  GetCameraValue(source.handle, kCamNetworkAddress, &v, nullptr);
  EXPECT_EQ(v, 0x0A010203u);
  GetCameraValue(source.handle, kCamMosaicOrder, &v, nullptr);
  EXPECT_EQ(v, 2u);
  GetProperty(source.handle, source.info, kPropPixelDepth, &v);
  EXPECT_EQ(v, 30u);
  GetProperty(source.handle, source.info, kPropRotation, &v);
  EXPECT_EQ(v, 1u);
  EXPECT_EQ(source.Read(4).size(), 64u * 48 * 3);
  GetProperty(source.handle, source.info, kPropFrameFlag, &v);
  EXPECT_EQ(v, 0u);
  source.Read(3);
  GetProperty(source.handle, source.info, kPropFrameFlag, &v);
  EXPECT_EQ(v, 1u);
  std::uint8_t block[1024];
  EXPECT_EQ(GetCameraBlock(source.handle, block, 1024), 0);  // model 21 carries one
  std::uint8_t one[32], two[32], three[128];
  GetGevRecords(source.handle, one, two, three);
  EXPECT_EQ(std::memcmp(three, "IRIG", 4), 0);

  std::string output;
  EXPECT_EQ(test::RunCommand(program + " --help", &output), 0);
  EXPECT_NE(output.find("--packing"), std::string::npos);
  EXPECT_NE(test::RunCommand(program + " --out '" + dir.File("bad") + "' --width x 2>/dev/null"), 0);
  EXPECT_NE(test::RunCommand(program + " --out '" + dir.File("bad") + "' --frobnicate 2>/dev/null"), 0);
  EXPECT_NE(test::RunCommand(program + " --out '" + dir.File("bad") + "' --packing pairs --bits 10 2>/dev/null"), 0);
  EXPECT_NE(test::RunCommand(program + " --out '" + dir.File("bad") + "' --mosaic XYZW 2>/dev/null"), 0);
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "bad"));
}

TEST(RecordingGeneratorOptions, DefaultsAndRefusals) {
  const RecordingOptions o;
  EXPECT_EQ(o.width, 1280u);
  EXPECT_EQ(o.height, 1024u);
  EXPECT_EQ(o.sampleBits, 12u);
  EXPECT_EQ(o.frames, 100u);
  EXPECT_EQ(o.preTrigger, 20u);
  RecordingOptions bad = o;
  EXPECT_NE(CheckOptions(bad), "");  // no folder
  bad.folder = "/tmp/x";
  EXPECT_EQ(CheckOptions(bad), "");
  for (const auto& change : std::vector<std::function<void(RecordingOptions&)>>{
           [](RecordingOptions& r) { r.sampleBits = 9; }, [](RecordingOptions& r) { r.packing = 2; r.sampleBits = 16; },
           [](RecordingOptions& r) { r.rotation = 4; }, [](RecordingOptions& r) { r.preTrigger = 101; },
           [](RecordingOptions& r) { r.stem = "../x"; }, [](RecordingOptions& r) { r.model = 5; },
           [](RecordingOptions& r) { r.headerBytes = 100; }, [](RecordingOptions& r) { r.blackLevel = 5000; },
           [](RecordingOptions& r) { r.gains[1] = 0; }, [](RecordingOptions& r) { r.month = 13; },
           [](RecordingOptions& r) { r.colour = true; r.width = 1; }}) {
    RecordingOptions changed = bad;
    change(changed);
    EXPECT_NE(CheckOptions(changed), "");
  }
}

}  // namespace
}  // namespace tarnvel::recgen
