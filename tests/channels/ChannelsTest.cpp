#include "channels/ChannelData.h"
#include "channels/ChannelSettings.h"
#include "channels/ChannelText.h"
#include "channels/ChannelXls.h"
#include "channels/DataPlot.h"
#include "channels/gen/ChannelGen.h"
#include "channels/gen/XlsWriter.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <set>
#include <string>
#include <tuple>
#include <utility>
#include <vector>

#include "frames/overlay/Blend.h"
#include "frames/overlay/OverlayItems.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

// Code of a voltage by the plain reading of the scale: 0..65535 over -10..+10 V.
double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }
constexpr double kZero = NAN;  // an expected code of exactly 0: a missing value

struct Read {
  int ok = 0;
  ChannelFileHeader header{};
  ChannelCodes codes;
};

// Whatever comes back is consistent: codes for every sample of the head, or none.
Read ReadAll(const std::string& path, bool headOnly = false) {
  Read r;
  r.ok = headOnly ? ReadChannelHeader(path.c_str(), nullptr, &r.header)
                  : ReadChannelData(path.c_str(), nullptr, &r.header, &r.codes);
  EXPECT_EQ(r.codes.size(), r.ok && !headOnly ? r.header.Size : 0u) << path;
  return r;
}

XlsCell N(double v) { return XlsCell::Number(v); }
XlsCell T(const char* s) { return XlsCell::Text(s); }

void ExpectCodes(const ChannelCodes& codes, const std::vector<double>& volts, const std::string& what) {
  ASSERT_EQ(codes.size(), volts.size()) << what;
  for (std::size_t i = 0; i < volts.size(); ++i) {
    if (std::isnan(volts[i])) EXPECT_EQ(codes[i], 0) << what << i;
    else EXPECT_NEAR(codes[i], IdealCode(volts[i]), 1.0) << what << i;
  }
}

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
    if (c != 32767) {  // 32767 is 0 V, half a step below its place on the scale
      ASSERT_NEAR(IdealCode(v), c, 0.01) << c;
    }
    ASSERT_LE(std::abs(CodeFromVolts(v) - c), 1) << c;
  }
  // The code of 0 V converts back to exactly 0.0, not to -0.000152.
  EXPECT_EQ(VoltsFromCode(32767), 0.0f);
  EXPECT_FALSE(std::signbit(VoltsFromCode(32767)));
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

std::string AscHead(const std::string& size, const std::string& rate, const std::string& perFrame) {
  return "TITLE=\"Data Acquisition channels\"\nSIZE=" + size + "\nRATE=" + rate + "\nT0=-500\nSAMPLESPERFRM=" +
         perFrame + "\n";
}

std::string AscChannels(const std::string& channel1, const std::string& channel3) {
  std::string text;
  for (int i = 0; i < 16; ++i)
    text += i == 1 ? channel1 + "\n" : i == 3 ? channel3 + "\n" : "CHANNEL_" + std::to_string(i) + "=0 C [V] 1.000 0\n";
  return text;
}

TEST(ChannelAsc, HeadRulesShortFilesAndLongLabels) {
  TempDir dir;
  const std::string path = dir.File("run.asc");
  // A scale of 0.000 becomes 1.0, a gain outside 0..3 is dropped, a line that
  // ends early keeps what it has, SAMPLESPERFRM 0 becomes 1, missing samples are code 0.
  WriteFile(path, AscHead("5", "2000", "0") +
                      AscChannels("CHANNEL_1=1 Pressure [bar] 2.500 2", "CHANNEL_3=1 Force [kN] 0.000 9") +
                      "1.000000\n-1.000000\n9.5\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(std::pair(r.header.T0, r.header.SamplesPerFrame), std::pair(-500, 1u));
  EXPECT_STREQ(r.header.Channels[1].Units, "[bar]");
  EXPECT_EQ(std::pair(r.header.Channels[1].ScaleFactor, r.header.Channels[1].Gain), std::pair(2.5f, 2u));
  EXPECT_EQ(std::pair(r.header.Channels[3].ScaleFactor, r.header.Channels[3].Gain), std::pair(1.0f, 0u));
  ExpectCodes(r.codes, {1.0, -1.0, 9.5, kZero, kZero}, "asc");
  Read head = ReadAll(path, true);
  ASSERT_EQ(head.ok, 1);
  EXPECT_EQ(std::memcmp(&head.header, &r.header, sizeof r.header), 0);

  // A label longer than its field is cut, never written past it; a line that
  // ends early keeps what it has; nothing behind a tag is off.
  WriteFile(path, AscHead("1", "100", "1") +
                      AscChannels("CHANNEL_1=1 " + std::string(300, 'L') + " " + std::string(100, 'U') + " 3.0 1",
                                  "CHANNEL_3=1 B") +
                      "0\n");
  r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(std::tuple(std::strlen(r.header.Channels[1].Label), std::strlen(r.header.Channels[1].Units),
                       r.header.Channels[1].ScaleFactor),
            std::tuple(127u, 31u, 3.0f));
  EXPECT_EQ(std::string(r.header.Channels[3].Label) + "|" + r.header.Channels[3].Units, "B|");
  EXPECT_EQ(r.header.Channels[3].ScaleFactor, 1.0f);
  WriteFile(path, AscHead("1", "100", "1") + AscChannels("CHANNEL_1=1 A", "CHANNEL_3=") + "0\n");
  r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Channels[3].Enable, 0u);
}

// The forms written by hand with their quirks; the generator's round trip
// covers the plain cases.
TEST(ChannelText, EachFormsQuirks) {
  auto cell = [](const char* value, const char* name) {
    return std::string("<Cell><Data ss:Type=\"Number\">") + value + "</Data><NamedCell ss:Name=\"" + name + "\"/></Cell>\n";
  };
  struct Case {
    const char* name;
    std::string text;
    std::uint32_t mask, size, rate;
    std::int32_t t0;
    std::vector<double> volts;
    int labelChannel;
    const char* label;
  };
  const Case cases[] = {
      {"a.CSV",
       "Recorded by the suite\nTime,Channel0,Channel5\r\n-0.500000,1.0,-1.0\r\n-0.499000,2.0,-2.0\r\n"
       "-0.498000,3.0,-3.0\r\n",
       0b100001, 6, 2000, -500000, {1, -1, 2, -2, 3, -3}, 5, "Channel5"},
      // Channel 20 and a repeated channel 1 are passed over; descending columns
      // land in ascending channels; short and bad values are 0; an empty line ends the rows.
      {"cols.csv",
       "Time,Channel20,Channel3,Channel1,Channel1\n0.000000,9.0,3.0,1.0,7.0\n0.000100,9.0,3.5\n"
       "0.000200,9.0,abc,1.5\n\n0.000300,9.0,5.0,5.0\n",
       0b1010, 6, 20000, 0, {1, 3, kZero, 3.5, 1.5, kZero}, 3, "Channel3"},
      {"a.plt",
       "TITLE=\"Data Acquisition channels\"\nSAMPLESPERFRM=6\n"
       "VARIABLES= \"T\" \"Channel1\" \"Channel4\" \"Channel17\"\nZONE I=3, J=3, F=POINT\n"
       "0.001000, 1.000000, 4.000000, 9.0\n0.001500, 1.500000, 4.500000, 9.0\n0.002000, 2.000000\n",
       0b10010, 6, 4000, 1000, {1, 4, 1.5, 4.5, 2, kZero}, 4, "Channel4"},
      // Labels follow the column positions, not the channel numbers.
      {"a.lvm",
       "LabVIEW Measurement\t\nSeparator\tTab\n***End_Of_Header***\t\n\nChannels\t2\t\nSamples\t3\t3\n"
       "***End_Of_Header***\t\nX_Value\tChannel 03 [V]\tChannel 07 [V]\tComment\n0.000000\t3.0\t7.0\t\n"
       "0.000500\t3.5\t7.5\t\n0.001000\t-3.0\t-7.0\t\n",
       0b10001000, 6, 4000, 0, {3, 7, 3.5, 7.5, -3, -7}, 3, "Channel0"},
      {"a.xml",
       std::string("<?xml version=\"1.0\"?>\n<Workbook>\n <Names>\n") +
           "<NamedRange ss:Name=\"Time\" ss:RefersTo=\"=PGDA1!C1\"/>\n"
           "<NamedRange ss:Name=\"Channel2\" ss:RefersTo=\"=PGDA1!C2\"/>\n"
           "<NamedRange ss:Name=\"Channel0\" ss:RefersTo=\"=PGDA1!C3\"/>\n"
           "<NamedRange ss:Name=\"Channel30\" ss:RefersTo=\"=PGDA1!C4\"/>\n </Names>\n"
           " <Worksheet ss:Name=\"PGDA1\">\n <Table ss:ExpandedColumnCount=\"4\" ss:ExpandedRowCount=\"2\">\n<Row>\n" +
           cell("0.010000", "Time") + cell("2.0", "Channel2") + cell("0.5", "Channel0") + cell("9.0", "Channel30") +
           "</Row>\n<Row>\n" + cell("0.010100", "Time") + cell("-2.0", "Channel2") + cell("-0.5", "Channel0") +
           "</Row>\n</Table>\n </Worksheet>\n</Workbook>\n",
       0b101, 4, 20000, 10000, {0.5, 2, -0.5, -2}, 2, "Channel2"},
  };
  TempDir dir;
  for (const Case& c : cases) {
    const std::string path = dir.File(c.name);
    WriteFile(path, c.text);
    for (bool headOnly : {false, true}) {
      Read r = ReadAll(path, headOnly);
      ASSERT_EQ(r.ok, 1) << c.name << headOnly;
      std::uint32_t mask = 0;
      for (int i = 0; i < 16; ++i) mask |= r.header.Channels[i].Enable << i;
      EXPECT_EQ(std::tuple(mask, r.header.Size, r.header.Rate, r.header.T0), std::tuple(c.mask, c.size, c.rate, c.t0))
          << c.name;
      EXPECT_EQ(std::string(r.header.Channels[c.labelChannel].Label) + r.header.Channels[c.labelChannel].Units,
                std::string(c.label) + "[V]")
          << c.name;
      if (!headOnly) ExpectCodes(r.codes, c.volts, c.name);
    }
  }
}

TEST(ChannelText, DamagedHeadsAreRefused) {
  const std::string good = AscChannels("CHANNEL_1=1 A [V] 1 0", "CHANNEL_3=0 B [V] 1 0") + "1\n";
  const std::string title = "TITLE=\"Data Acquisition channels\"\n";
  const std::string lvm = "LabVIEW Measurement\nChannels\t";
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
      {"size0.asc", AscHead("0", "100", "1") + good},
      {"claims.asc", AscHead("4000000000", "100", "1") + good},  // more than the file holds
      {"title.asc", "TITLE=\"Other\"\n" + AscHead("1", "1", "1").substr(34) + good},
      {"cut.asc", AscHead("1", "100", "1") + "CHANNEL_0=1 A [V] 1 0\n"},
      {"nochannel.csv", "Time,Value\n0,1\n"},
      {"channel16.csv", "Time,Channel16\n0,1\n"},
      {"norows.csv", "Time,Channel0\n"},
      {"hugechannel.csv", "Time,Channel99999999999999999999\n0,1\n"},
      {"novars.plt", title + "ZONE I=3, J=1, F=POINT\n0, 1\n"},
      {"claims.plt", title + "VARIABLES= \"T\" \"Channel1\"\nZONE I=99999999, J=1\n0, 1\n"},
      {"noheading.lvm", lvm + "1\nSamples\t2\n0\t1\n"},
      {"claims.lvm", lvm + "1\nSamples\t9999999\nX_Value\tChannel 1\n0\t1\n"},
      {"nonames.xml", " <Names>\n </Names>\n <Worksheet ss:Name=\"PGDA1\">\n <Table ss:ExpandedRowCount=\"1\">\n"},
      {"othersheet.xml", " <Names>\n <NamedRange ss:Name=\"Channel1\"/>\n </Names>\n <Worksheet ss:Name=\"Other\">\n"},
  };
  TempDir dir;
  for (const auto& [name, text] : cases) {
    const std::string path = dir.File(name);
    WriteFile(path, text);
    Read r = ReadAll(path);
    EXPECT_TRUE(r.ok == 0 && r.codes.empty() && r.header.Size == 0) << name;
    EXPECT_EQ(ReadAll(path, true).ok, 0) << name;
  }
  EXPECT_EQ(ReadAll(dir.File("missing.dat")).ok, 0);
}

TEST(ChannelText, TimesAndRatesSaturate) {
  for (auto [seconds, expected] : {std::pair{-0.001f, std::int64_t{-1000}}, {NAN, 0}, {1e30f, INT64_MAX}, {-1e30f, INT64_MIN}})
    EXPECT_EQ(MicrosFromSeconds(seconds), expected) << seconds;

  struct Case {
    std::int64_t first, second;
    std::uint32_t channels, rate;
    std::int32_t t0;
  };
  const Case cases[] = {
      {1000, 2000, 2, 2000, 1000},
      {5000, 4000, 3, 100, 5000},  // times that run backwards
      {0, 3000000, 1, 0, 0},       // more than a second apart
      {INT64_MIN, INT64_MAX, 16, 0, INT32_MIN},
      {int64_t{5} << 40, (int64_t{5} << 40) + 1, 16, 16000000, INT32_MAX},
  };
  for (const Case& c : cases) {
    ChannelFileHeader h{};
    SetTimeAndRate(&h, c.first, c.second, 5, c.channels);
    EXPECT_EQ(std::pair(h.Rate, h.T0), std::pair(c.rate, c.t0)) << c.first;
  }
}

// Hostile content for every form: a clean failure or a consistent result,
// never past a buffer (the sanitizer build watches).
TEST(ChannelText, GarbageFoldersAndHugeLines) {
  TempDir dir;
  std::mt19937 random(11);
  for (int round = 0; round < 20; ++round) {
    std::string bytes(1 + random() % 4000, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 4 == 0 ? "\n,\t \"=<>"[random() % 9] : random());
    for (const char* name : {"g.asc", "g.csv", "g.plt", "g.lvm", "g.xml", "g.xls", "g.dat"}) {
      WriteFile(dir.File(name), bytes);
      ReadAll(dir.File(name));  // checks that what comes back is consistent
    }
  }
  for (const char* name : {"d.asc", "d.csv", "d.plt", "d.lvm", "d.xml", "d.xls", "d.dat"}) {
    std::filesystem::create_directory(dir.path() / name);
    EXPECT_EQ(ReadAll(dir.File(name)).ok, 0) << name;
  }

  // A data line of 100 MB is one row, not thousands.
  const std::string path = dir.File("long.csv");
  {
    std::ofstream out(path, std::ios::binary);
    out << "Time,Channel0\n0.000000,1.0\n0.000500,";
    std::string block(1 << 20, '7');
    for (int i = 0; i < 100; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out << "\n0.001000,2.0\n";
  }
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Rate, 2000u);
  ExpectCodes(r.codes, {1.0, kZero, 2.0}, "huge");  // 511 digits are beyond any number: missing
}

// Every form written and read back: head and codes agree with what was written.
TEST(ChannelGen, EveryFormReadsBack) {
  TempDir dir;
  ChannelPlan plan;
  plan.channelMask = (1u << 0) | (1u << 3) | (1u << 9) | (1u << 15);
  plan.frameRate = 250, plan.samplesPerFrame = 8;  // 2000 samples per second and channel: 500 us apart
  plan.frameCount = 30, plan.startSeconds = -0.02, plan.amplitude = 9.5f;
  const ChannelRecording rec = MakeChannelRecording(plan);

  for (int type = 1; type <= 7; ++type) {
    const std::string path = ChannelFilePath(dir.path().string(), "run", type);
    ASSERT_TRUE(WriteChannelFile(path, type, rec)) << path;
    const Read r = ReadAll(path);
    const ChannelFileHeader& header = r.header;
    const ChannelCodes& codes = r.codes;
    ChannelFileHeader head{};
    int readType = 0;
    ASSERT_TRUE(r.ok && ReadChannelHeader(path.c_str(), &readType, &head) == 1) << path;
    EXPECT_EQ(readType, type);
    for (const ChannelFileHeader* h : {&header, static_cast<const ChannelFileHeader*>(&head)})
      EXPECT_EQ(std::tuple(h->Size, h->Rate, h->T0), std::tuple(rec.header.Size, rec.header.Rate, rec.header.T0)) << path;
    for (int c = 0; c < 16; ++c) EXPECT_EQ(header.Channels[c].Enable, rec.header.Channels[c].Enable) << path << c;
    if (type <= 3) {  // forms that carry the samples per frame keep it
      EXPECT_EQ(header.SamplesPerFrame, rec.header.SamplesPerFrame) << path;
    }
    ASSERT_EQ(codes.size(), rec.volts.size()) << path;
    int off = 0;
    for (std::size_t i = 0; i < codes.size(); ++i) off += std::fabs(codes[i] - IdealCode(rec.volts[i])) > 1.0;
    EXPECT_EQ(off, 0) << path;
  }
}

// Every form cut short: a read fails, or gives the rows that were whole (at
// most the cut row differs) and zero codes behind them, never other values.
TEST(ChannelGen, EveryFormCutShort) {
  TempDir dir;
  ChannelPlan plan;
  plan.channelMask = 0b1010'0110, plan.frameCount = 20, plan.samplesPerFrame = 5;
  const ChannelRecording rec = MakeChannelRecording(plan);
  int partial = 0;
  for (int type = 1; type <= 7; ++type) {
    const std::string path = ChannelFilePath(dir.path().string(), "cut", type);
    ASSERT_TRUE(WriteChannelFile(path, type, rec));
    const std::string whole = test::ReadFile(path);
    for (double part : {0.05, 0.3, 0.5, 0.9, 0.999}) {
      test::WriteFile(path, whole.substr(0, static_cast<std::size_t>(whole.size() * part)));
      const Read r = ReadAll(path);
      if (!r.ok) continue;
      ++partial;
      EXPECT_LE(r.header.Size, rec.header.Size) << path << part;
      int other = 0;
      for (std::size_t i = 0; i < r.codes.size(); ++i)
        other += r.codes[i] != 0 && std::fabs(r.codes[i] - IdealCode(rec.volts[i])) > 1.0;
      EXPECT_LE(other, 4) << path << part;
    }
  }
  EXPECT_GE(partial, 15);  // the text forms read what they hold
}

TEST(ChannelXls, ReadsTheWorkbookInTimeOrder) {
  TempDir dir;
  const std::string path = dir.File("run.xls");
  // Rows out of order; a channel 20 column, a row without a time and a column
  // of another name are passed over; the table's sheet is found by name.
  ASSERT_TRUE(WriteXlsWorkbook(
      path, {{"Sheet1", {{T("Times"), T("Channel1")}, {N(0), N(1)}}},
             {"pgda1",
              {{T("Channel2"), T("Times"), T("Note"), T("Channel0"), T("Channel20")},
               {N(2.2), N(0.0020), T("c"), N(0.2), N(9)},
               {N(2.0), N(0.0000), T("a"), N(0.0), N(9)},
               {N(9.9), XlsCell{}, T("b"), N(9.9), N(9)},
               {N(2.1), N(0.0010), T("b"), T("0.1"), N(9)}}}}));
  const Read r = ReadAll(path), head = ReadAll(path, true);
  ASSERT_TRUE(r.ok && head.ok);
  EXPECT_EQ(std::tuple(r.header.Channels[1].Enable, r.header.Rate), std::tuple(0u, 2000u));
  ExpectCodes(r.codes, {0.0, 2.0, 0.1, 2.1, 0.2, 2.2}, "xls");
  EXPECT_EQ(std::memcmp(&head.header, &r.header, sizeof r.header), 0);
}

TEST(ChannelXls, RefusesWorkbooksWithoutItsTableAndDamagedFiles) {
  TempDir dir;
  const std::string path = dir.File("run.xls");
  const std::vector<std::vector<XlsCell>> good = {{T("Times"), T("Channel1")}, {N(0), N(1)}};
  const std::pair<const char*, std::vector<XlsSheet>> cases[] = {
      {"no sheet PGDA1", {{"Sheet1", good}}},
      {"no Times column", {{"PGDA1", {{T("Time"), T("Channel1")}, {N(0), N(1)}}}}},
      {"only channels beyond 15", {{"PGDA1", {{T("Times"), T("Channel16")}, {N(0), N(1)}}}}},
      {"channel spelled otherwise", {{"PGDA1", {{T("Times"), T("Channel01")}, {N(0), N(1)}}}}},
      {"no rows", {{"PGDA1", {{T("Times"), T("Channel1")}}}}},
      {"no row with a time", {{"PGDA1", {{T("Times"), T("Channel1")}, {XlsCell{}, N(1)}, {T("none"), N(2)}}}}},
  };
  for (const auto& [why, sheets] : cases) {
    ASSERT_TRUE(WriteXlsWorkbook(path, sheets)) << why;
    EXPECT_EQ(ReadAll(path).ok, 0) << why;
  }
  // Not a workbook, cut short, bytes flipped: consistent results only (checked in ReadAll).
  ASSERT_TRUE(WriteXlsWorkbook(path, {{"PGDA1", good}}));
  const std::string whole = test::ReadFile(path);
  WriteFile(path, "just text, no workbook");
  EXPECT_EQ(ReadAll(path).ok, 0);
  for (std::size_t cut : {std::size_t{0}, std::size_t{100}, std::size_t{512}, whole.size() / 2, whole.size() - 1}) {
    WriteFile(path, whole.substr(0, cut));
    ReadAll(path);
  }
  std::mt19937 random(5);
  for (int round = 0; round < 200; ++round) {
    std::string damaged = whole;
    for (int k = 0; k < 8; ++k) damaged[random() % damaged.size()] = static_cast<char>(random());
    WriteFile(path, damaged);
    ReadAll(path);
  }
}

// A workbook, damaged in two bytes, on which FreeXL writes past a stack
// buffer of its own (found by fuzzing; the sanitizer build sees it): the
// reader's process goes on unharmed, and whatever comes back is consistent.
TEST(ChannelXls, SurvivesTheWorkbookThatBreaksFreeXl) {
  TempDir dir;
  const std::string path = dir.File("broken.xls");
  ASSERT_TRUE(WriteXlsWorkbook(path, {{"PGDA1",
                                       {{T("Times"), T("Channel0"), T("Channel2")},
                                        {N(0.001), N(1), N(2)},
                                        {N(0), T("3"), XlsCell{}}}}}));
  std::string bytes = test::ReadFile(path);
  ASSERT_EQ(bytes.size(), 5632u);
  ASSERT_EQ(static_cast<unsigned char>(bytes[878]), 0xE0);  // an XF record
  bytes[878] = static_cast<char>(0xE1);
  bytes[1016] = 4;
  WriteFile(path, bytes);
  for (int round = 0; round < 3; ++round) ReadAll(path);
  // And a sound workbook still reads afterwards.
  ASSERT_TRUE(WriteXlsWorkbook(path, {{"PGDA1", {{T("Times"), T("Channel0")}, {N(0), N(5)}}}}));
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_NEAR(r.codes[0], IdealCode(5), 1.0);
}

TEST(ChannelBinary, ReadsHeadAndSamples) {
  TempDir dir;
  const std::string path = dir.File("run.dat");
  WriteFile(path, BinaryFile("OKN_BIN", 3000, 6, -1500, 3, 0b10101, {-10.0f, 0.0f, 10.0f, 2.5f, -2.5f, 9.99f}, 2.0f));
  const Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  const ChannelFileHeader& header = r.header;
  EXPECT_EQ(std::tuple(header.Rate, header.Size, header.T0, header.SamplesPerFrame), std::tuple(3000u, 6u, -1500, 3u));
  EXPECT_EQ(header.Channels[1].Enable + 2 * header.Channels[4].Enable, 2u);
  EXPECT_STREQ(header.Channels[4].Label, "Label4");
  EXPECT_STREQ(header.Channels[15].Units, "[mV]");
  EXPECT_EQ(header.Channels[0].ScaleFactor, 2.0f);
  EXPECT_EQ(header.Channels[15].Gain, 2u);
  ExpectCodes(r.codes, {-10.0, 0.0, 10.0, 2.5, -2.5, 9.99}, "dat");
  const Read head = ReadAll(path, true);
  EXPECT_EQ(std::memcmp(&head.header, &header, sizeof header), 0);
}

TEST(ChannelBinary, UnknownExtensionWithTheMagicAndTrailingBytes) {
  TempDir dir;
  const std::string other = dir.File("run.unknown");
  WriteFile(other, BinaryFile("OKN_BIN", 100, 3, 0, 1, 1, {1.0f, 2.0f, 3.0f}) + "trailing");
  EXPECT_EQ(ReadAll(other).codes.size(), 3u);
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
  // A sample of 0 V is 0.0 at any scale, and the overlay's channel value shows 0.000 (not -0.000).
  for (const float scale : {0.0f, 1.0f, -2.5f}) {
    ChannelData zero;
    zero.header.SamplesPerFrame = 1;
    zero.header.Channels[0].ScaleFactor = scale;
    zero.codes = {32767};
    const float value = ChannelValueAt(zero, 0);
    EXPECT_EQ(value, 0.0f) << scale;
    EXPECT_FALSE(std::signbit(value)) << scale;
    auto recording = std::make_unique<RecordingInfo>();
    OverlayConfig config{};
    config.flags = kOverlayItemMask[kChannelValueItem];
    config.items[kChannelValueItem].mask = kOverlayItemMask[kChannelValueItem];
    config.items[kChannelValueItem].format = 3;
    OverlayFrameValues values;
    values.channelValue = value;
    OverlayRenderer renderer{LocaleFormat('/', ':', false, true, 2)};
    renderer.UpdateItems(config, *recording, values);
    EXPECT_STREQ(config.items[kChannelValueItem].text, "0.000") << scale;
  }
  EXPECT_EQ(LoadChannelData(dir.File("none.dat").c_str(), &data), 0);
  EXPECT_TRUE(data.codes.empty());
}

constexpr int W = 640, H = 256;

// Colour words of a 24-bit frame pixel (blue, green, red bytes).
std::uint32_t At(const std::vector<std::uint8_t>& frame, int x, int y) {
  const std::uint8_t* p = &frame[(static_cast<std::size_t>(y) * W + x) * 3];
  return p[2] | p[1] << 8 | p[0] << 16;
}

struct Plot {
  std::vector<std::uint16_t> codes;
  CDataBmp bmp;
  std::vector<std::uint8_t> frame = std::vector<std::uint8_t>(static_cast<std::size_t>(W) * H * 3, 0x77);
};

// Channels 0, 2 and 5 over 100 frames of 10 instants each: a sine, a ramp and a constant.
void MakePlot(Plot& p, int legend, int selected) {
  const std::uint32_t mask = 0b100101;
  const int channels = 3, instants = 1000;
  p.codes.resize(static_cast<std::size_t>(instants) * channels);
  for (int k = 0; k < instants; ++k)
    for (int c = 0; c < channels; ++c)
      p.codes[k * channels + c] = static_cast<std::uint16_t>(
          c == 0 ? 32768 + 20000 * std::sin(k / 50.0) : c == 1 ? k * 60 : 40000);
  p.bmp.SetRect({0, 0, W, H});
  p.bmp.SetData(p.codes.data(), static_cast<std::int32_t>(p.codes.size()), 10 * channels, 0, 1000 * channels, mask);
  p.bmp.ResetView();
  p.bmp.SetColors(8, 4), p.bmp.SetUnits(0, "[V]"), p.bmp.SetScale(1.0f), p.bmp.SetValueRange(0);
  std::int32_t colours[kChannelCount];
  for (int i = 0; i < kChannelCount; ++i) colours[i] = 10 + i % 8;  // channel 0: 10, 2: 12, 5: 15
  p.bmp.SetChannelColors(colours);
  ChannelEntry entries[kChannelCount] = {};
  for (int i = 0; i < kChannelCount; ++i) std::snprintf(entries[i].Label, sizeof entries[i].Label, "Channel_%d", i + 1);
  p.bmp.SetChannels(entries, legend);
  p.bmp.SetShowDataPoints(0);
  p.bmp.SetSelectedChannel(selected);
}

TEST(DataPlot, MulDivRoundsLikeThePlatform) {
  EXPECT_EQ(MulDiv(-5, 3, 2), -8) << "-7.5 rounds away from zero";
  EXPECT_EQ(MulDiv(1, 1, 0), -1);
  EXPECT_EQ(MulDiv(2000000000, 4, 1), -1) << "a result beyond 32 bits";
  EXPECT_EQ(MulDiv(2000000000, 4, 8), 1000000000) << "a 64-bit intermediate";
}

TEST(DataPlot, GraphGridCursorAndCurvesOnAColourFrame) {
  for (std::int32_t frameIndex : {0, 99}) {
    Plot p;
    MakePlot(p, 1, -1);
    EXPECT_EQ(p.bmp.Draw(frameIndex, PackedView(p.frame.data(), W, H, 24)), 1);
    const Rect g = p.bmp.GraphRect();
    EXPECT_EQ(g.Width() % 8 + g.Height() % 4, 0) << "whole cells";
    EXPECT_GT(g.left, p.bmp.LegendRect().right) << "the graph stands right of the legend";
    // The cursor: a full column in colour 2 at the frame's time; the data's span
    // is the whole sample period (1e6 / 3000, cut) times the samples.
    EXPECT_EQ(p.bmp.CursorTime(), MulDiv(frameIndex * 10, 1000000 / 3000 * 3000, 1000));
    const int x = p.bmp.XOfTime(p.bmp.CursorTime());
    if (frameIndex == 0) {
      EXPECT_EQ(x, g.left) << "frame 0 sits on the graph's left edge";
    }
    for (int y = g.top; y < g.bottom; ++y) ASSERT_EQ(At(p.frame, x, y), ColorAt(2)) << "row " << y;
    // Every curve pixel lies inside the graph; all three curves are there.
    std::set<std::uint32_t> seen;
    for (int y = 0; y < H; ++y)
      for (int xx = 0; xx < W; ++xx) {
        const std::uint32_t c = At(p.frame, xx, y);
        if (c == ColorAt(10) || c == ColorAt(12) || c == ColorAt(15)) {
          seen.insert(c);
          const bool inLegend = xx >= p.bmp.LegendRect().left && xx < p.bmp.LegendRect().right;
          ASSERT_TRUE(inLegend || (xx >= g.left && xx < g.right && y >= g.top && y <= g.bottom)) << xx << "," << y;
        }
      }
    EXPECT_EQ(seen.size(), 3u);
    // Grid lines: dotted in colour 4 on columns 1 to 7 and rows 1 to 3.
    const int column = g.Width() / 8;
    int gridDots = 0;
    for (int y = g.top + 1; y < g.bottom - 1; ++y) gridDots += At(p.frame, g.left + 3 * column, y) == ColorAt(4);
    EXPECT_GT(gridDots, g.Height() / 4);
  }
}

TEST(DataPlot, SelectedChannelLegendAndGreyPens) {
  Plot p;
  MakePlot(p, 0, 1);  // position 1 is channel 2
  p.bmp.Draw(0, PackedView(p.frame.data(), W, H, 24));
  std::set<std::uint32_t> seen;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) seen.insert(At(p.frame, x, y));
  EXPECT_EQ(std::tuple(seen.count(ColorAt(10)), seen.count(ColorAt(12)), seen.count(ColorAt(15))), std::tuple(0u, 1u, 0u))
      << "only the selected channel is drawn";
  EXPECT_EQ(p.bmp.LegendRect().Width(), 0) << "legend off";

  // A grey frame takes its pens from the grey table whatever the colours say.
  Plot grey;
  MakePlot(grey, 1, -1);
  std::vector<std::uint16_t> frame(static_cast<std::size_t>(W) * H, 9999);
  grey.bmp.Draw(0, PackedView(reinterpret_cast<std::uint8_t*>(frame.data()), W, H, 12));
  auto greyOf = [](std::uint32_t c) {
    const std::uint32_t r = (c & 255) << 4, g = ((c >> 8) & 255) << 4, b = ((c >> 16) & 255) << 4;
    return static_cast<std::uint16_t>((11 * r + 18 * g + 3 * b) >> 5);
  };
  std::set<std::uint16_t> values(frame.begin(), frame.end());
  for (std::uint32_t c : {0xFFFFFFu, 0xCCCCCCu, 0xAAAAAAu, ColorAt(8)})  // grey pens and background entry 8
    EXPECT_TRUE(values.count(greyOf(c))) << std::hex << c;
  EXPECT_FALSE(values.count(9999)) << "the plot fills all its rows";
}

TEST(DataPlot, AutoRangeWidensAConstantChannel) {
  Plot constant;
  constant.codes.assign(100, 40000);
  constant.bmp.SetRect({0, 0, W, H});
  constant.bmp.SetData(constant.codes.data(), 100, 10, 0, 1000, 1);
  constant.bmp.ResetView();
  constant.bmp.SetValueRange(0);
  // A constant channel widens by 2 mV on each side; the curve lies in the middle.
  constant.bmp.Draw(5, PackedView(constant.frame.data(), W, H, 24));
  const Rect g = constant.bmp.GraphRect();
  int curveRow = -1;
  for (int y = g.top; y <= g.bottom; ++y)
    if (At(constant.frame, g.left + g.Width() / 3, y) == ColorAt(3)) curveRow = y;
  EXPECT_NEAR(curveRow, (g.top + g.bottom) / 2, 1);
}

TEST(DataPlot, PlotsLargerThanTheFrameAreCut) {
  Plot p;
  MakePlot(p, 1, -1);
  std::vector<std::uint8_t> small(static_cast<std::size_t>(100) * 50 + 64, 0x5A);
  p.bmp.Draw(10, PackedView(small.data() + 32, 100, 50, 8));  // a 640 x 256 plot into a 100 x 50 frame
  for (int i = 0; i < 32; ++i) ASSERT_TRUE(small[i] == 0x5A && small[32 + 5000 + i] == 0x5A) << i;
}

TEST(PlotSettings, MissingProfileResetsAndKeysAreRead) {
  test::TempDir dir;
  PlotSettings plot;
  plot.GridColor = 77;
  EXPECT_EQ(ReadPlotSettings(dir.path().c_str(), &plot), 1);  // no profile at all
  const PlotSettings defaults;
  EXPECT_EQ(std::memcmp(&plot, &defaults, sizeof plot), 0);

  test::WriteFile(dir.path() / "_config.pgv",
                  "[Acquisition]\nDisplayChannel=9\n[DAGraph]\nDisplayChannel=2\nYResolution=-3\nGridColor=5\n"
                  "ChannelColor_00=10\nChannelColor_15=18\nChannelColor_5=99\n");
  ReadPlotSettings(dir.path().c_str(), &plot);
  EXPECT_EQ(plot.DisplayChannel, 2) << "from its own section";
  EXPECT_EQ(std::tuple(plot.YResolution, plot.GridColor, plot.ChannelColor[0], plot.ChannelColor[15]),
            std::tuple(-3, 5, 10, 18));
  EXPECT_EQ(plot.ChannelColor[5], defaults.ChannelColor[5]) << "the key needs two digits";
}

TEST(ChannelSettings, RulesAndSectionNumber) {
  test::TempDir dir;
  ChannelSettings settings;
  test::WriteFile(dir.path() / "_config.pgv",
                  "[DaGeneral_0]\nSamplingRate=99999\n"
                  "[DaGeneral_2]\nStatus=5\nSamplingRate=50\nSamplesPerFrame=1\nTriggerInToChannel1=1\n"
                  "[DaChannel_2_0]\nEnable=1\nLabel=Pressure left\nUnits=[bar]\nScaleFactor=2.500000000000000\nGain=7\n"
                  "[DaChannel_2_1]\nEnable=1\nScaleFactor=0\nGain=-1\nUnits=" + std::string(40, 'u') +
                  "\n[DaChannel_2_2]\nGain=2\nLabel=" + std::string(200, 'l') +
                  "\n[DaChannel_0_4]\nLabel=wrong section\n");
  ReadChannelSettings(dir.path().c_str(), &settings, 2);
  EXPECT_EQ(std::tuple(settings.Status, settings.SamplingRate, settings.SamplesPerFrame, settings.TriggerInToChannel1),
            std::tuple(5, 100, 2, 1));
  const ChannelEntry* c = settings.Channels;
  EXPECT_EQ(std::string(c[0].Label) + "|" + c[0].Units, "Pressure left|[bar]");
  EXPECT_EQ(std::tuple(c[0].ScaleFactor, c[0].Gain, c[1].ScaleFactor, c[1].Gain, c[2].Gain),
            std::tuple(2.5f, 3u, 1.0f, 0u, 2u));
  EXPECT_EQ(std::string(c[1].Units) + std::string(c[2].Label), std::string(31, 'u') + std::string(127, 'l'));
  EXPECT_STREQ(c[4].Label, "Channel_5");

  ReadChannelSettings(dir.path().c_str(), &settings, 0);
  EXPECT_EQ(settings.SamplingRate, 99999);
  EXPECT_STREQ(settings.Channels[4].Label, "wrong section");
  EXPECT_EQ(settings.Channels[0].Enable, 0u) << "a second read starts from the defaults";
}

}  // namespace
}  // namespace tarnvel
