#include "channels/ChannelText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <tuple>
#include <utility>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }
constexpr double kZero = NAN;  // an expected code of exactly 0: a missing value

struct Read {
  int ok = 0;
  ChannelFileHeader header{};
  ChannelCodes codes;
};

Read ReadAll(const std::string& path, bool headOnly = false) {
  Read r;
  r.ok = headOnly ? ReadChannelHeader(path.c_str(), nullptr, &r.header)
                  : ReadChannelData(path.c_str(), nullptr, &r.header, &r.codes);
  return r;
}

void ExpectCodes(const ChannelCodes& codes, const std::vector<double>& volts, const std::string& what) {
  ASSERT_EQ(codes.size(), volts.size()) << what;
  for (std::size_t i = 0; i < volts.size(); ++i) {
    if (std::isnan(volts[i])) EXPECT_EQ(codes[i], 0) << what << i;
    else EXPECT_NEAR(codes[i], IdealCode(volts[i]), 1.0) << what << i;
  }
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
  const std::pair<const char*, std::string> cases[] = {
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
    EXPECT_TRUE(r.ok == 0 && r.codes.empty()) << name;
    EXPECT_EQ(ReadAll(path, true).ok, 0) << name;
  }
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
      Read r = ReadAll(dir.File(name));
      EXPECT_EQ(r.codes.size(), r.ok ? r.header.Size : 0u) << name;
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

}  // namespace
}  // namespace tarnvel
