#include "apps/recgen/RecordingGenerator.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <algorithm>
#include <functional>

#include "platform/cordage/Profile.h"
#include "platform/rawdrv/RawDriver.h"
#include "platform/rawdrv/RawFileDescriptor.h"
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
  std::uint32_t Property(std::uint32_t id) {
    std::uint32_t v = 12345;
    GetProperty(handle, info, id, &v);
    return v;
  }
  std::uint32_t Camera(std::uint32_t id) {
    std::uint32_t v = 12345;
    GetCameraValue(handle, id, &v, nullptr);
    return v;
  }
  std::vector<int> Read(std::int32_t i) {
    std::vector<std::uint8_t> bytes(FrameBytes(handle));
    EXPECT_EQ(ReadFrame(handle, 0, 0, i, bytes.data()), 0);
    const std::uint32_t depth = Property(kPropPixelDepth);
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
          o.width = 21, o.height = 14, o.sampleBits = bits, o.packing = packing, o.rotation = rotation;
          o.colour = sensor >= 0, o.mosaicOrder = sensor >= 0 ? sensor : 0, o.frames = 3, o.preTrigger = 1;
          o.framesPerSegment = rotation == 1 ? 2 : 0, o.blackLevel = bits > 8 ? 5 : 1, o.calibration = rotation % 2 == 0;
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
    o.width = 160, o.height = 100, o.sampleBits = 8, o.rotation = rotation, o.frames = 30;
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
  o.width = 64, o.height = 32, o.frames = 10, o.preTrigger = 4, o.rate = 2500.0f, o.colour = true, o.gains[0] = 1.5f;
  o.exposureNs = 3000000000u;  // top bit set: written as a negative decimal
  o.framesPerSegment = 4;
  ASSERT_EQ(WriteRecording(o), "");
  const std::filesystem::path folder(o.folder);
  // The suite's writers: CRLF line ends, "Acquisition" keys in two passes, %d and %.15f.
  const std::string pgv = test::ReadFile(folder / "_config.pgv");
  EXPECT_EQ(pgv.rfind("[Acquisition]\r\n", 0), 0u);
  EXPECT_EQ(pgv.find("\n"), pgv.find("\r\n") + 1);
  for (const std::string line : {"\r\nExposureNs=-1294967296\r\n", "\r\nRate=2500.000000000000000\r\n", "\r\nModel=6\r\n"}) {
    const std::size_t first = pgv.find(line);
    ASSERT_NE(first, std::string::npos) << line;
    EXPECT_NE(pgv.find(line, first + 1), std::string::npos) << line << " twice";
  }
  const std::string profile = (folder / "_config.pgv").string(), args = (folder / "args.ini").string();
  const auto integer = [](const char* section, const char* key, const std::string& file) {
    std::int32_t v = -999;
    EXPECT_TRUE(CgReadProfileInteger(section, key, -999, &v, file.c_str())) << key;
    return v;
  };
  EXPECT_EQ(integer("Acquisition", "StartIdx", profile), -4);
  EXPECT_EQ(integer("Acquisition", "StopIdx", profile), 5);
  EXPECT_EQ(integer("Acquisition", "PixelDepth", profile), 36);
  EXPECT_EQ(integer("Acquisition", "WhiteBal_0", profile), 98304);
  EXPECT_EQ(integer("ArgSect", "Arg03", args), 10);
  EXPECT_EQ(integer("ArgSect", "Arg43", args), -1);

  RawFileInfo info{};
  ASSERT_EQ(ReadRawFileInfo((folder / "rawfile.xml").c_str(), 0, &info), 1);
  EXPECT_EQ(info.FramesPerSegment, 4u);
  EXPECT_EQ(info.PixelDepth, 36u);
  EXPECT_EQ(info.PreTrigger, 4);
  for (const char* file : {"rawdata.00.raw", "rawdata.01.raw", "rawdata.02.raw"})
    EXPECT_TRUE(std::filesystem::exists(folder / file)) << file;
  EXPECT_EQ(test::ReadFile(folder / "_config.mme").rfind("Data format edition number  :1.6\r\n", 0), 0u);
  const std::string mii = test::ReadFile(folder / "_config.mii");
  EXPECT_EQ(mii.rfind("Number of movies            :1\r\n", 0), 0u);
  EXPECT_NE(mii.find("Shutter time 1              :3.000000\r\n"), std::string::npos);
}

TEST_F(RecordingGeneratorTest, TrailersRunFromTheStartAtTheFrameRate) {
  TempDir dir;
  RecordingOptions o;
  o.folder = dir.File("rec");
  o.width = 8, o.height = 8, o.frames = 4, o.preTrigger = 0, o.rate = 2000.0f;  // 500 us a frame
  o.year = 2024, o.month = 12, o.day = 31, o.hour = 23, o.minute = 59, o.second = 59, o.microseconds = 999000;
  o.autoExposure = true, o.flagged = {2}, o.gevRecords = true, o.model = 12;  // model 12 carries a camera block
  ASSERT_EQ(WriteRecording(o), "");
  Source source(o.folder);
  EXPECT_EQ(source.Camera(kCamModelIndex), 13u);  // table index of model 12
  const std::uint32_t expected[4][4] = {{2024, 366, 59, 999000}, {2024, 366, 59, 999500}, {2025, 1, 0, 0},
                                        {2025, 1, 0, 500}};
  for (std::int32_t i = 0; i < 4; ++i) {
    source.Read(i);
    TimeStampBlock t{};
    ASSERT_EQ(GetFrameTime(source.handle, 0, &t), 0);
    const std::uint32_t got[4] = {t.year, t.dayOfYear, t.second, t.microseconds};
    EXPECT_TRUE(std::equal(got, got + 4, expected[i])) << i;
    EXPECT_EQ(t.hour, i < 2 ? 23u : 0u);
    EXPECT_EQ(t.controlField, 0x55555555u);
    EXPECT_EQ(source.Property(kPropFrameFlag), i == 2 ? 1u : 0u);
    EXPECT_EQ(source.Property(kPropAutoExposureNs), o.exposureNs - i * (o.exposureNs / 20));
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
  EXPECT_EQ(source.Camera(kCamNetworkAddress), 0x0A010203u);
  EXPECT_EQ(source.Camera(kCamMosaicOrder), 2u);
  EXPECT_EQ(source.Property(kPropPixelDepth), 30u);
  EXPECT_EQ(source.Property(kPropRotation), 1u);
  EXPECT_EQ(source.Read(4).size(), 64u * 48 * 3);
  EXPECT_EQ(source.Property(kPropFrameFlag), 0u);
  source.Read(3);
  EXPECT_EQ(source.Property(kPropFrameFlag), 1u);
  std::uint8_t block[1024];
  EXPECT_EQ(GetCameraBlock(source.handle, block, 1024), 0);  // model 21 carries one
  std::uint8_t one[32], two[32], three[128];
  GetGevRecords(source.handle, one, two, three);
  EXPECT_EQ(std::memcmp(three, "IRIG", 4), 0);

  for (const char* bad : {"--width x", "--frobnicate", "--packing pairs --bits 10", "--mosaic XYZW"})
    EXPECT_NE(test::RunCommand(program + " --out '" + dir.File("bad") + "' " + bad + " 2>/dev/null"), 0) << bad;
  EXPECT_FALSE(std::filesystem::exists(dir.path() / "bad"));
}

TEST(RecordingGeneratorOptions, Refusals) {
  RecordingOptions good;
  EXPECT_NE(CheckOptions(good), "");  // no folder
  good.folder = "/tmp/x";
  EXPECT_EQ(CheckOptions(good), "");
  for (const auto& change : std::vector<std::function<void(RecordingOptions&)>>{
           [](RecordingOptions& r) { r.sampleBits = 9; }, [](RecordingOptions& r) { r.packing = 2; r.sampleBits = 16; },
           [](RecordingOptions& r) { r.rotation = 4; }, [](RecordingOptions& r) { r.preTrigger = 101; },
           [](RecordingOptions& r) { r.stem = "../x"; }, [](RecordingOptions& r) { r.model = 5; },
           [](RecordingOptions& r) { r.headerBytes = 100; }, [](RecordingOptions& r) { r.blackLevel = 5000; },
           [](RecordingOptions& r) { r.gains[1] = 0; }, [](RecordingOptions& r) { r.month = 13; },
           [](RecordingOptions& r) { r.colour = true; r.width = 1; }}) {
    RecordingOptions changed = good;
    change(changed);
    EXPECT_NE(CheckOptions(changed), "");
  }
}

}  // namespace
}  // namespace tarnvel::recgen
