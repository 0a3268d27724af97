#include "channels/ChannelData.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <random>
#include <string>

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
  auto put32 = [&](std::size_t at, std::uint32_t v) {
    for (int i = 0; i < 4; ++i) bytes[at + i] = static_cast<char>(v >> (8 * i));
  };
  put32(8, rate);
  put32(12, size);
  put32(16, static_cast<std::uint32_t>(t0));
  put32(20, perFrame);
  for (int c = 0; c < 16; ++c) {
    const std::size_t base = 24 + 172 * static_cast<std::size_t>(c);
    put32(base, (enableMask >> c) & 1u);
    std::snprintf(&bytes[base + 4], 128, "Label%d", c);
    std::snprintf(&bytes[base + 132], 32, "[mV]");
    float scale = c == 0 ? scale0 : 1.0f;
    std::uint32_t bits;
    std::memcpy(&bits, &scale, 4);
    put32(base + 164, bits);
    put32(base + 168, 2);
  }
  for (float v : volts) {
    std::uint32_t bits;
    std::memcpy(&bits, &v, 4);
    bytes.append(4, '\0');
    put32(bytes.size() - 4, bits);
  }
  return bytes;
}

// Code of a voltage by the plain reading of the scale: 0..65535 over -10..+10 V.
double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }

TEST(ChannelCodes, ScaleEndsAndMiddle) {
  EXPECT_EQ(CodeFromVolts(10.0f), 65535);
  EXPECT_EQ(CodeFromVolts(-10.0f), 0);
  EXPECT_EQ(CodeFromVolts(0.0f), 32767);
  // Beyond the range and NaN never wrap.
  EXPECT_EQ(CodeFromVolts(12.5f), 65535);
  EXPECT_EQ(CodeFromVolts(1e30f), 65535);
  EXPECT_EQ(CodeFromVolts(-11.0f), 0);
  EXPECT_EQ(CodeFromVolts(-INFINITY), 0);
  EXPECT_EQ(CodeFromVolts(NAN), 0);
  EXPECT_FLOAT_EQ(VoltsFromCode(0), -10.0f);
  EXPECT_FLOAT_EQ(VoltsFromCode(65535), 10.0f);
  // 32767 lies half a step below the middle of the scale: its volts are within
  // half a code step (10 V / 65535) of zero.
  EXPECT_LT(std::fabs(VoltsFromCode(32767)), 10.0f / 65535.0f);
}

TEST(ChannelCodes, AgreeWithThePlainScaleEverywhere) {
  std::mt19937 random(7);
  std::uniform_real_distribution<float> volts(-10.0f, 10.0f);
  for (int i = 0; i < 200000; ++i) {
    const float v = volts(random);
    const double ideal = IdealCode(v);
    const int code = CodeFromVolts(v);
    EXPECT_NEAR(code, std::floor(ideal), 1.0) << v;
  }
  for (int c = 0; c <= 65535; ++c) {
    const float v = VoltsFromCode(static_cast<std::uint16_t>(c));
    ASSERT_NEAR(IdealCode(v), c, 0.01) << c;
    const int back = CodeFromVolts(v);
    ASSERT_LE(std::abs(back - c), 1) << c;
  }
}

TEST(ChannelTypes, ExtensionsAndTypeByPath) {
  const char* expected[] = {".ASC", ".DAT", ".ASC", ".PLT", ".LVM", ".XML", ".XLS", ".CSV"};
  for (int t = 0; t < 8; ++t) {
    char text[8] = "xxxxxxx";
    ChannelExtension(text, t);
    EXPECT_STREQ(text, expected[t]);
  }
  char text[8] = "keep";
  ChannelExtension(text, 8);
  EXPECT_STREQ(text, "keep");
  ChannelExtension(text, -1);
  EXPECT_STREQ(text, "keep");

  EXPECT_EQ(ChannelTypeOf("/rec/run.ASC.DAT"), 1);
  EXPECT_EQ(ChannelTypeOf("/rec/run.DAT.ASC"), 1);  // .DAT is tested first
  EXPECT_EQ(ChannelTypeOf("/rec/run.asc"), 2);
  EXPECT_EQ(ChannelTypeOf("/rec/run.plt"), 3);
  EXPECT_EQ(ChannelTypeOf("C:\\rec\\run.Lvm"), 4);
  EXPECT_EQ(ChannelTypeOf("/rec/run.xml"), 5);
  EXPECT_EQ(ChannelTypeOf("/rec/run.xls"), 6);
  EXPECT_EQ(ChannelTypeOf("/rec/run.csv"), 7);
  EXPECT_EQ(ChannelTypeOf("/rec/run.bin"), 1);
  EXPECT_EQ(ChannelTypeOf("/rec.xls/run"), 6);  // anywhere in the text
  EXPECT_EQ(ChannelTypeOf(""), 1);
  // Only the first 259 characters are looked at.
  EXPECT_EQ(ChannelTypeOf((std::string(300, 'a') + ".csv").c_str()), 1);
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
  EXPECT_STREQ(header.Magic, "OKN_BIN");
  EXPECT_EQ(header.Rate, 3000u);
  EXPECT_EQ(header.Size, 6u);
  EXPECT_EQ(header.T0, -1500);
  EXPECT_EQ(header.SamplesPerFrame, 3u);
  EXPECT_EQ(header.Channels[0].Enable, 1u);
  EXPECT_EQ(header.Channels[1].Enable, 0u);
  EXPECT_EQ(header.Channels[4].Enable, 1u);
  EXPECT_STREQ(header.Channels[4].Label, "Label4");
  EXPECT_STREQ(header.Channels[4].Units, "[mV]");
  EXPECT_EQ(header.Channels[0].ScaleFactor, 2.0f);
  EXPECT_EQ(header.Channels[7].Gain, 2u);
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
  auto refuses = [&](const std::string& name, const std::string& content) {
    const std::string path = dir.File(name);
    WriteFile(path, content);
    EXPECT_EQ(ReadChannelData(path.c_str(), nullptr, &header, &codes), 0) << name;
    EXPECT_TRUE(codes.empty()) << name;
    EXPECT_EQ(header.Size, 0u) << name;
    EXPECT_EQ(ReadChannelHeader(path.c_str(), nullptr, &header), 0) << name;
  };
  EXPECT_EQ(ReadChannelData(dir.File("missing.dat").c_str(), nullptr, &header, &codes), 0);
  refuses("empty.dat", "");
  refuses("magic.dat", BinaryFile("OKN_BIM", 100, 3, 0, 1, 1, volts));
  refuses("unknown.bin", "plain text that is no channel file at all\n");
  const std::string whole = BinaryFile("OKN_BIN", 100, 3, 0, 1, 1, volts);
  refuses("head.dat", whole.substr(0, 2000));
  refuses("short.dat", whole.substr(0, whole.size() - 1));
  refuses("claims.dat", BinaryFile("OKN_BIN", 100, 0xFFFFFFFFu, 0, 1, 1, volts));
  std::mt19937 random(3);
  std::string garbage(5000, '\0');
  for (char& c : garbage) c = static_cast<char>(random());
  refuses("garbage.dat", garbage);

  // An unknown extension is read as binary when its first bytes are the magic.
  const std::string other = dir.File("run.unknown");
  WriteFile(other, whole);
  EXPECT_EQ(ReadChannelData(other.c_str(), nullptr, &header, &codes), 1);
  EXPECT_EQ(codes.size(), 3u);
  // Bytes behind the last sample are passed over.
  WriteFile(other, whole + "trailing");
  EXPECT_EQ(ReadChannelData(other.c_str(), nullptr, &header, &codes), 1);
}

TEST(ChannelData, ValueForTheOverlayAndTheJobsCopy) {
  TempDir dir;
  const std::string path = dir.File("run.dat");
  // Two channels, two samples each per frame: frame f starts at code index 4 * f.
  const std::vector<float> volts = {1.0f, -1.0f, 1.5f, -1.5f, 2.0f, -2.0f, 2.5f, -2.5f};
  WriteFile(path, BinaryFile("OKN_BIN", 4000, 8, 0, 4, 0b11, volts, 2.0f));
  EXPECT_NEAR(ChannelValueAt(path.c_str(), 0), 2.0f, 0.001f);
  EXPECT_NEAR(ChannelValueAt(path.c_str(), 1), 4.0f, 0.001f);
  EXPECT_EQ(ChannelValueAt(path.c_str(), 2), 0.0f);   // behind the data
  EXPECT_EQ(ChannelValueAt(path.c_str(), -1), 0.0f);  // before it
  EXPECT_EQ(ChannelValueAt(dir.File("none.dat").c_str(), 0), 0.0f);

  WriteFile(path, BinaryFile("OKN_BIN", 4000, 8, 0, 4, 0b11, volts, 0.0f));
  ChannelData data;
  ASSERT_EQ(LoadChannelData(path.c_str(), &data), 1);
  EXPECT_EQ(data.EnabledMask(), 0b11u);
  EXPECT_EQ(data.EnabledCount(), 2);
  EXPECT_NEAR(ChannelValueAt(data, 1), 2.0f, 0.001f);  // a factor of 0 leaves volts
  EXPECT_DOUBLE_EQ(data.DurationSeconds(), 8.0 / 4000.0);

  // 3 enabled channels, Size 3000 and Rate 3000 cover one second.
  WriteFile(path, BinaryFile("OKN_BIN", 3000, 3000, 0, 3, 0b111, std::vector<float>(3000, 0.5f)));
  ASSERT_EQ(LoadChannelData(path.c_str(), &data), 1);
  EXPECT_DOUBLE_EQ(data.DurationSeconds(), 1.0);
  EXPECT_EQ(data.codes.size() / data.EnabledCount(), 1000u);

  EXPECT_EQ(LoadChannelData(dir.File("none.dat").c_str(), &data), 0);
  EXPECT_TRUE(data.codes.empty());
  EXPECT_EQ(data.header.Size, 0u);
}

}  // namespace
}  // namespace tarnvel
