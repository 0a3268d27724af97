#include "channels/ChannelData.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>
#include <tuple>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

// The binary form built byte by byte at the documented offsets, not from the struct.
std::string BinaryFile(const char* magic, std::uint32_t rate, std::uint32_t size, std::int32_t t0,
                       std::uint32_t perFrame, std::uint32_t enableMask, const std::vector<float>& volts,
                       float scale0 = 1.0f) {
  std::string bytes(2776, '\0');
  std::memcpy(&bytes[0], magic, std::min<std::size_t>(std::strlen(magic) + 1, 8));
  auto put32 = [&](std::size_t at, auto value) {
    std::uint32_t v;
    std::memcpy(&v, &value, 4);
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(v >> (8 * i));  // little-endian on any host
  };
  for (auto [at, value] : {std::pair{8, rate}, {12, size}, {16, static_cast<std::uint32_t>(t0)}, {20, perFrame}})
    put32(at, value);
  for (int c = 0; c < 16; ++c) {
    const std::size_t base = 24 + 172 * static_cast<std::size_t>(c);
    put32(base, (enableMask >> c) & 1u);
    std::snprintf(&bytes[base + 4], 128, "Label%d", c);
    std::snprintf(&bytes[base + 132], 32, "[mV]");
    put32(base + 164, c == 0 ? scale0 : 1.0f);
    put32(base + 168, 2u);
  }
  for (float v : volts) {
    bytes.append(4, '\0');
    put32(bytes.size() - 4, v);
  }
  return bytes;
}

// Code of a voltage by the plain reading of the scale: 0..65535 over -10..+10 V.
double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }

TEST(ChannelCodes, AgreeWithThePlainScaleAndNeverWrap) {
  for (auto [volts, code] : {std::pair{10.0f, 65535}, {-10.0f, 0}, {0.0f, 32767}, {1e30f, 65535}, {-INFINITY, 0}, {NAN, 0}})
    EXPECT_EQ(CodeFromVolts(volts), code) << volts;
  std::mt19937 random(7);
  std::uniform_real_distribution<float> volts(-10.0f, 10.0f);
  for (int i = 0; i < 200000; ++i) {
    const float v = volts(random);
    EXPECT_NEAR(CodeFromVolts(v), std::floor(IdealCode(v)), 1.0) << v;
  }
  for (int c = 0; c <= 65535; ++c) {
    const float v = VoltsFromCode(static_cast<std::uint16_t>(c));
    ASSERT_NEAR(IdealCode(v), c, 0.01) << c;
    ASSERT_LE(std::abs(CodeFromVolts(v) - c), 1) << c;
  }
}

TEST(ChannelTypes, TypeByPath) {
  const std::pair<std::string, int> cases[] = {
      {"/rec/run.ASC.DAT", 1}, {"/rec/run.DAT.ASC", 1},  // .DAT is tested first
      {"/rec/run.asc", 2},     {"C:\\rec\\run.Lvm", 4},   {"/rec/run.xml", 5},
      {"/rec/run.bin", 1},     {"/rec.xls/run", 6},       // anywhere in the text
      {"", 1},                 {std::string(300, 'a') + ".csv", 1},  // only the first 259 characters count
  };
  for (const auto& [path, type] : cases) EXPECT_EQ(ChannelTypeOf(path.c_str()), type) << path;
  char text[8] = "keep";
  ChannelExtension(text, 8), ChannelExtension(text, -1);  // types out of range change nothing
  EXPECT_STREQ(text, "keep");
}

TEST(ChannelBinary, ReadsHeadAndSamples) {
  TempDir dir;
  const std::string path = dir.File("run.dat");
  const std::vector<float> volts = {-10.0f, 0.0f, 10.0f, 2.5f, -2.5f, 9.99f};
  WriteFile(path, BinaryFile("OKN_BIN", 3000, 6, -1500, 3, 0b10101, volts, 2.0f));
  ChannelFileHeader header{};
  ChannelCodes codes;
  int type = 0;
  ASSERT_EQ(ReadChannelData(path.c_str(), &type, &header, &codes), 1);
  EXPECT_EQ(type, 1);
  EXPECT_EQ(std::tuple(header.Rate, header.Size, header.T0, header.SamplesPerFrame), std::tuple(3000u, 6u, -1500, 3u));
  EXPECT_EQ(header.Channels[1].Enable + 2 * header.Channels[4].Enable, 2u);
  EXPECT_STREQ(header.Channels[4].Label, "Label4");
  EXPECT_STREQ(header.Channels[15].Units, "[mV]");
  EXPECT_EQ(header.Channels[0].ScaleFactor, 2.0f);
  EXPECT_EQ(header.Channels[15].Gain, 2u);
  ASSERT_EQ(codes.size(), 6u);
  for (std::size_t i = 0; i < volts.size(); ++i) EXPECT_NEAR(codes[i], IdealCode(volts[i]), 1.0) << i;
  ChannelFileHeader head{};
  ASSERT_EQ(ReadChannelHeader(path.c_str(), nullptr, &head), 1);
  EXPECT_EQ(std::memcmp(&head, &header, sizeof head), 0);
}

TEST(ChannelBinary, RefusesWhatIsNotAWholeFile) {
  TempDir dir;
  ChannelFileHeader header{};
  ChannelCodes codes{1, 2, 3};
  const std::vector<float> volts = {1.0f, 2.0f, 3.0f};
  const std::string whole = BinaryFile("OKN_BIN", 100, 3, 0, 1, 1, volts);
  std::mt19937 random(3);
  std::string garbage(5000, '\0');
  for (char& c : garbage) c = static_cast<char>(random());
  const std::pair<const char*, std::string> cases[] = {
      {"empty.dat", ""},
      {"magic.dat", BinaryFile("OKN_BIM", 100, 3, 0, 1, 1, volts)},
      {"unknown.bin", "plain text that is no channel file at all\n"},
      {"head.dat", whole.substr(0, 2000)},
      {"short.dat", whole.substr(0, whole.size() - 1)},
      {"claims.dat", BinaryFile("OKN_BIN", 100, 0xFFFFFFFFu, 0, 1, 1, volts)},
      {"garbage.dat", garbage},
  };
  EXPECT_EQ(ReadChannelData(dir.File("missing.dat").c_str(), nullptr, &header, &codes), 0);
  for (const auto& [name, content] : cases) {
    const std::string path = dir.File(name);
    WriteFile(path, content);
    EXPECT_EQ(ReadChannelData(path.c_str(), nullptr, &header, &codes), 0) << name;
    EXPECT_TRUE(codes.empty()) << name;
    EXPECT_EQ(header.Size, 0u) << name;
    EXPECT_EQ(ReadChannelHeader(path.c_str(), nullptr, &header), 0) << name;
  }
  // An unknown extension with the magic reads as binary; bytes behind the last sample are passed over.
  const std::string other = dir.File("run.unknown");
  WriteFile(other, whole + "trailing");
  EXPECT_EQ(ReadChannelData(other.c_str(), nullptr, &header, &codes), 1);
  EXPECT_EQ(codes.size(), 3u);
}

TEST(ChannelData, ValueForTheOverlayAndTheJobsCopy) {
  TempDir dir;
  const std::string path = dir.File("run.dat");
  // Two channels, two samples each per frame: frame f starts at code index 4 * f.
  const std::vector<float> volts = {1.0f, -1.0f, 1.5f, -1.5f, 2.0f, -2.0f, 2.5f, -2.5f};
  WriteFile(path, BinaryFile("OKN_BIN", 4000, 8, 0, 4, 0b11, volts, 2.0f));
  for (auto [frame, value] : {std::pair{0, 2.0f}, {1, 4.0f}, {2, 0.0f}, {-1, 0.0f}})
    EXPECT_NEAR(ChannelValueAt(path.c_str(), frame), value, 0.001f) << frame;

  WriteFile(path, BinaryFile("OKN_BIN", 4000, 8, 0, 4, 0b11, volts, 0.0f));
  ChannelData data;
  ASSERT_EQ(LoadChannelData(path.c_str(), &data), 1);
  EXPECT_EQ(data.EnabledMask(), 0b11u);
  EXPECT_NEAR(ChannelValueAt(data, 1), 2.0f, 0.001f);  // a factor of 0 leaves volts
  EXPECT_DOUBLE_EQ(data.DurationSeconds(), 8.0 / 4000.0);
  EXPECT_EQ(LoadChannelData(dir.File("none.dat").c_str(), &data), 0);
  EXPECT_TRUE(data.codes.empty());
}

}  // namespace
}  // namespace tarnvel
