#include "channels/ChannelText.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }

struct Read {
  int ok = 0;
  ChannelFileHeader header{};
  ChannelCodes codes;
};

Read ReadAll(const std::string& path) {
  Read r;
  r.ok = ReadChannelData(path.c_str(), nullptr, &r.header, &r.codes);
  return r;
}

Read ReadHead(const std::string& path) {
  Read r;
  r.ok = ReadChannelHeader(path.c_str(), nullptr, &r.header);
  return r;
}

void ExpectCodes(const ChannelCodes& codes, const std::vector<double>& volts) {
  ASSERT_EQ(codes.size(), volts.size());
  for (std::size_t i = 0; i < volts.size(); ++i) EXPECT_NEAR(codes[i], IdealCode(volts[i]), 1.0) << i;
}

std::string AscHead(const std::string& size, const std::string& rate, const std::string& t0,
                    const std::string& perFrame) {
  return "TITLE=\"Data Acquisition channels\"\nSIZE=" + size + "\nRATE=" + rate + "\nT0=" + t0 +
         "\nSAMPLESPERFRM=" + perFrame + "\n";
}

std::string AscChannels(const std::string& channel1, const std::string& channel3) {
  std::string text;
  for (int i = 0; i < 16; ++i) {
    if (i == 1) text += channel1 + "\n";
    else if (i == 3) text += channel3 + "\n";
    else text += "CHANNEL_" + std::to_string(i) + "=0 Channel" + std::to_string(i) + " [V] 1.000 0\n";
  }
  return text;
}

TEST(ChannelAsc, ReadsThePlainList) {
  TempDir dir;
  const std::string path = dir.File("run.asc");
  WriteFile(path, AscHead("4", "2000", "-500", "2") +
                      AscChannels("CHANNEL_1=1 Pressure [bar] 2.500 2", "CHANNEL_3=1 Force [kN] 0.000 9") +
                      "1.000000\n-1.000000\n9.5\n-9.5\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Size, 4u);
  EXPECT_EQ(r.header.Rate, 2000u);
  EXPECT_EQ(r.header.T0, -500);
  EXPECT_EQ(r.header.SamplesPerFrame, 2u);
  EXPECT_EQ(r.header.Channels[1].Enable, 1u);
  EXPECT_STREQ(r.header.Channels[1].Label, "Pressure");
  EXPECT_STREQ(r.header.Channels[1].Units, "[bar]");
  EXPECT_EQ(r.header.Channels[1].ScaleFactor, 2.5f);
  EXPECT_EQ(r.header.Channels[1].Gain, 2u);
  // A scale of 0.000 becomes 1.0, a gain outside 0..3 is dropped.
  EXPECT_EQ(r.header.Channels[3].ScaleFactor, 1.0f);
  EXPECT_EQ(r.header.Channels[3].Gain, 0u);
  EXPECT_EQ(r.header.Channels[0].Enable, 0u);
  ExpectCodes(r.codes, {1.0, -1.0, 9.5, -9.5});

  Read head = ReadHead(path);
  ASSERT_EQ(head.ok, 1);
  EXPECT_EQ(std::memcmp(&head.header, &r.header, sizeof r.header), 0);
}

TEST(ChannelAsc, HeadRulesAndShortFiles) {
  TempDir dir;
  const std::string path = dir.File("run.asc");
  const std::string channels = AscChannels("CHANNEL_1=0 A [V] 0.000 9", "CHANNEL_3=1 B");
  // SAMPLESPERFRM of 0 becomes 1; an enable field 0 with scale 0.000 and gain 9.
  WriteFile(path, AscHead("3", "100", "0", "0") + channels + "1.0\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.SamplesPerFrame, 1u);
  EXPECT_EQ(r.header.Channels[1].Enable, 0u);
  EXPECT_EQ(r.header.Channels[1].ScaleFactor, 1.0f);
  EXPECT_EQ(r.header.Channels[1].Gain, 0u);
  // A channel line that ends early keeps what it has.
  EXPECT_EQ(r.header.Channels[3].Enable, 1u);
  EXPECT_STREQ(r.header.Channels[3].Label, "B");
  EXPECT_STREQ(r.header.Channels[3].Units, "");
  EXPECT_EQ(r.header.Channels[3].ScaleFactor, 1.0f);
  // Fewer samples than SIZE: the rest are zero codes.
  ASSERT_EQ(r.codes.size(), 3u);
  EXPECT_NEAR(r.codes[0], IdealCode(1.0), 1.0);
  EXPECT_EQ(r.codes[1], 0);
  EXPECT_EQ(r.codes[2], 0);

  // A label longer than its field is cut, never written past it.
  WriteFile(path, AscHead("1", "100", "0", "1") +
                      AscChannels("CHANNEL_1=1 " + std::string(300, 'L') + " " + std::string(100, 'U') + " 3.0 1",
                                  "CHANNEL_3=") +
                      "0\n");
  r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(std::strlen(r.header.Channels[1].Label), 127u);
  EXPECT_EQ(std::strlen(r.header.Channels[1].Units), 31u);
  EXPECT_EQ(r.header.Channels[1].ScaleFactor, 3.0f);
  EXPECT_EQ(r.header.Channels[3].Enable, 0u);  // nothing behind the tag

  const std::string good = AscChannels("CHANNEL_1=1 A [V] 1 0", "CHANNEL_3=0 B [V] 1 0") + "1\n";
  for (const std::string& bad : {
           AscHead("0", "100", "0", "1") + good,                                 // SIZE 0
           AscHead("1", "0", "0", "1") + good,                                   // RATE 0
           AscHead("-3", "100", "0", "1") + good,                                // negative SIZE
           AscHead("4000000000", "100", "0", "1") + good,                        // more than the file holds
           std::string("TITLE=\"Other\"\n") + AscHead("1", "1", "0", "1").substr(34) + good,  // title
           AscHead("1", "100", "0", "1").replace(0, 34, "\n") + good,            // no title line at all
           std::string("TITLE=\"Data Acquisition channels\"\nSIZE=1\nRATE=100\nSAMPLESPERFRM=1\n") + good,
           AscHead("1", "100", "0", "1") + "CHANNEL_0=1 A [V] 1 0\n",           // head cut in the channels
       }) {
    WriteFile(path, bad);
    EXPECT_EQ(ReadAll(path).ok, 0) << bad.substr(0, 80);
    EXPECT_EQ(ReadHead(path).ok, 0) << bad.substr(0, 80);
  }
}

TEST(ChannelCsv, ReadsTheTable) {
  TempDir dir;
  const std::string path = dir.File("run.CSV");
  WriteFile(path,
            "Recorded by the suite\n"
            "Time,Channel0,Channel5\r\n"
            "-0.500000,1.000000,-1.000000\r\n"
            "-0.499000,2.000000,-2.000000\r\n"
            "-0.498000,3.000000,-3.000000\r\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Channels[0].Enable, 1u);
  EXPECT_EQ(r.header.Channels[5].Enable, 1u);
  EXPECT_EQ(r.header.Channels[1].Enable, 0u);
  EXPECT_STREQ(r.header.Channels[5].Label, "Channel5");
  EXPECT_STREQ(r.header.Channels[5].Units, "[V]");
  EXPECT_EQ(r.header.Channels[5].ScaleFactor, 1.0f);
  EXPECT_EQ(r.header.Size, 6u);
  EXPECT_EQ(r.header.T0, -500000);
  EXPECT_EQ(r.header.Rate, 2000u);  // 0.001 s apart, two channels
  ExpectCodes(r.codes, {1, -1, 2, -2, 3, -3});

  Read head = ReadHead(path);
  ASSERT_EQ(head.ok, 1);
  EXPECT_EQ(head.header.Size, 6u);
  EXPECT_EQ(head.header.Rate, 2000u);
  EXPECT_EQ(head.header.T0, -500000);

  // One data row: Rate 100.
  WriteFile(path, "Time,Channel2\n0.250000,4.000000\n");
  r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Rate, 100u);
  EXPECT_EQ(r.header.T0, 250000);
  ExpectCodes(r.codes, {4.0});
}

TEST(ChannelCsv, ColumnsOutsideTheChannelsAndDamagedRows) {
  TempDir dir;
  const std::string path = dir.File("run.csv");
  // Channel 20 and a repeated channel 1 are passed over with their columns;
  // columns in descending order land in ascending channel order; a short row
  // leaves its missing values at code 0; an empty line ends the rows.
  WriteFile(path,
            "Time,Channel20,Channel3,Channel1,Channel1\n"
            "0.000000,9.0,3.0,1.0,7.0\n"
            "0.000100,9.0,3.5\n"
            "0.000200,9.0,abc,1.5\n"
            "\n"
            "0.000300,9.0,5.0,5.0\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Size, 6u);
  EXPECT_EQ(r.header.Channels[1].Enable, 1u);
  EXPECT_EQ(r.header.Channels[3].Enable, 1u);
  EXPECT_EQ(r.header.Rate, 20000u);
  ASSERT_EQ(r.codes.size(), 6u);
  EXPECT_NEAR(r.codes[0], IdealCode(1.0), 1.0);
  EXPECT_NEAR(r.codes[1], IdealCode(3.0), 1.0);
  EXPECT_EQ(r.codes[2], 0);
  EXPECT_NEAR(r.codes[3], IdealCode(3.5), 1.0);
  EXPECT_NEAR(r.codes[4], IdealCode(1.5), 1.0);
  EXPECT_EQ(r.codes[5], 0);

  for (const char* bad : {"", "no heading here\n1,2\n", "Time,Value\n0,1\n", "Time,Channel16\n0,1\n",
                          "Time,Channel0\n", "Time,Channel99999999999999999999\n0,1\n"}) {
    WriteFile(path, bad);
    EXPECT_EQ(ReadAll(path).ok, 0) << bad;
  }
}

TEST(ChannelPlt, ReadsThePlotFile) {
  TempDir dir;
  const std::string path = dir.File("run.plt");
  WriteFile(path,
            "TITLE=\"Data Acquisition channels\"\n"
            "SAMPLESPERFRM=6\n"
            "VARIABLES= \"T\" \"Channel1\" \"Channel4\" \"Channel17\"\n"
            "ZONE I=3, J=3, F=POINT\n"
            "0.001000, 1.000000, 4.000000, 9.0\n"
            "0.001500, 1.500000, 4.500000, 9.0\n"
            "0.002000, 2.000000\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.SamplesPerFrame, 6u);
  EXPECT_EQ(r.header.Channels[1].Enable, 1u);
  EXPECT_EQ(r.header.Channels[4].Enable, 1u);
  EXPECT_STREQ(r.header.Channels[4].Label, "Channel4");
  EXPECT_EQ(r.header.Size, 6u);
  EXPECT_EQ(r.header.T0, 1000);
  EXPECT_EQ(r.header.Rate, 4000u);
  ASSERT_EQ(r.codes.size(), 6u);
  EXPECT_NEAR(r.codes[0], IdealCode(1.0), 1.0);
  EXPECT_NEAR(r.codes[3], IdealCode(4.5), 1.0);
  EXPECT_NEAR(r.codes[4], IdealCode(2.0), 1.0);
  EXPECT_EQ(r.codes[5], 0);

  const std::string title = "TITLE=\"Data Acquisition channels\"\n";
  for (const std::string& bad : {
           title + "ZONE I=3, J=1, F=POINT\n0, 1\n",                        // no VARIABLES
           title + "VARIABLES= \"T\" \"Channel1\"\nZONE I=0, J=1\n0, 1\n",   // no rows
           title + "VARIABLES= \"T\" \"Channel1\"\n0, 1\n",                 // no ZONE
           title + "VARIABLES= \"T\" \"X\"\nZONE I=1, J=1\n0, 1\n",          // no channel
           std::string("VARIABLES= \"T\" \"Channel1\"\nZONE I=1, J=1\n0, 1\n"),  // no title
           title + "VARIABLES= \"T\" \"Channel1\"\nZONE I=99999999, J=1\n0, 1\n",  // more rows than bytes
       }) {
    WriteFile(path, bad);
    EXPECT_EQ(ReadAll(path).ok, 0) << bad;
  }
}

TEST(ChannelLvm, ReadsTheMeasurementFile) {
  TempDir dir;
  const std::string path = dir.File("run.lvm");
  WriteFile(path,
            "LabVIEW Measurement\t\n"
            "Separator\tTab\n"
            "***End_Of_Header***\t\n"
            "\n"
            "Channels\t2\t\n"
            "Samples\t3\t3\n"
            "***End_Of_Header***\t\n"
            "X_Value\tChannel 03 [V]\tChannel 07 [V]\tComment\n"
            "0.000000\t3.000000\t7.000000\t\n"
            "0.000500\t3.500000\t7.500000\t\n"
            "0.001000\t-3.000000\t-7.000000\t\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Channels[3].Enable, 1u);
  EXPECT_EQ(r.header.Channels[7].Enable, 1u);
  // Labels follow the column positions, not the channel numbers.
  EXPECT_STREQ(r.header.Channels[3].Label, "Channel0");
  EXPECT_STREQ(r.header.Channels[7].Label, "Channel1");
  EXPECT_EQ(r.header.Size, 6u);
  EXPECT_EQ(r.header.T0, 0);
  EXPECT_EQ(r.header.Rate, 4000u);
  ExpectCodes(r.codes, {3, 7, 3.5, 7.5, -3, -7});

  for (const char* bad : {
           "LabVIEW Measurement\nChannels\t0\nSamples\t3\nX_Value\tChannel 1\n0\t1\n",
           "LabVIEW Measurement\nChannels\t1\nSamples\t0\nX_Value\tChannel 1\n0\t1\n",
           "LabVIEW Measurement\nChannels\t1\nX_Value\tChannel 1\n0\t1\n",
           "LabVIEW Measurement\nChannels\t1\nSamples\t2\n0\t1\n",
           "LabVIEW Measurement\nChannels\t1\nSamples\t2\nX_Value\tChannel 40\n0\t1\n",
           "LabVIEW Measurement\nChannels\t1\nSamples\t9999999\nX_Value\tChannel 1\n0\t1\n",
       }) {
    WriteFile(path, bad);
    EXPECT_EQ(ReadAll(path).ok, 0) << bad;
  }
}

TEST(ChannelXml, ReadsTheSpreadsheet) {
  TempDir dir;
  const std::string path = dir.File("run.xml");
  auto cell = [](const char* value, const char* name) {
    return std::string("    <Cell><Data ss:Type=\"Number\">") + value + "</Data><NamedCell ss:Name=\"" + name +
           "\"/></Cell>\n";
  };
  WriteFile(path, std::string("<?xml version=\"1.0\"?>\n<Workbook>\n <Names>\n") +
                      "  <NamedRange ss:Name=\"Time\" ss:RefersTo=\"=PGDA1!C1\"/>\n"
                      "  <NamedRange ss:Name=\"Channel2\" ss:RefersTo=\"=PGDA1!C2\"/>\n"
                      "  <NamedRange ss:Name=\"Channel0\" ss:RefersTo=\"=PGDA1!C3\"/>\n"
                      "  <NamedRange ss:Name=\"Channel30\" ss:RefersTo=\"=PGDA1!C4\"/>\n"
                      " </Names>\n <Worksheet ss:Name=\"PGDA1\">\n"
                      "  <Table ss:ExpandedColumnCount=\"4\" ss:ExpandedRowCount=\"2\">\n"
                      "   <Row>\n" +
                      cell("0.010000", "Time") + cell("2.000000", "Channel2") + cell("0.500000", "Channel0") +
                      cell("9.0", "Channel30") + "   </Row>\n   <Row>\n" + cell("0.010100", "Time") +
                      cell("-2.000000", "Channel2") + cell("-0.500000", "Channel0") + "   </Row>\n" +
                      "  </Table>\n </Worksheet>\n</Workbook>\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Channels[0].Enable, 1u);
  EXPECT_EQ(r.header.Channels[2].Enable, 1u);
  EXPECT_EQ(r.header.Size, 4u);
  EXPECT_EQ(r.header.T0, 10000);
  EXPECT_EQ(r.header.Rate, 20000u);
  ExpectCodes(r.codes, {0.5, 2.0, -0.5, -2.0});
  Read head = ReadHead(path);
  ASSERT_EQ(head.ok, 1);
  EXPECT_EQ(head.header.Rate, 20000u);

  for (const char* bad : {
           "<Workbook>\n</Workbook>\n",
           " <Names>\n </Names>\n <Worksheet ss:Name=\"PGDA1\">\n <Table ss:ExpandedRowCount=\"1\">\n",
           " <Names>\n <NamedRange ss:Name=\"Channel1\"/>\n </Names>\n <Worksheet ss:Name=\"PGDA1\">\n <Table>\n",
           " <Names>\n <NamedRange ss:Name=\"Channel1\"/>\n </Names>\n <Worksheet ss:Name=\"Other\">\n",
       }) {
    WriteFile(path, bad);
    EXPECT_EQ(ReadAll(path).ok, 0) << bad;
  }
}

TEST(ChannelTextRules, TimesAndRates) {
  EXPECT_EQ(MicrosFromSeconds(0.0f), 0);
  EXPECT_EQ(MicrosFromSeconds(0.001f), 1000);
  EXPECT_EQ(MicrosFromSeconds(1.5f), 1500000);
  EXPECT_EQ(MicrosFromSeconds(-0.5f), -500000);
  EXPECT_EQ(MicrosFromSeconds(-0.001f), -1000);
  EXPECT_EQ(MicrosFromSeconds(NAN), 0);
  EXPECT_EQ(MicrosFromSeconds(1e30f), INT64_MAX);
  EXPECT_EQ(MicrosFromSeconds(-1e30f), INT64_MIN);

  ChannelFileHeader h{};
  SetTimeAndRate(&h, 1000, 2000, 5, 2);
  EXPECT_EQ(h.T0, 1000);
  EXPECT_EQ(h.Rate, 2000u);
  SetTimeAndRate(&h, 5000, 5000, 5, 3);
  EXPECT_EQ(h.Rate, 100u);
  SetTimeAndRate(&h, 5000, 4000, 5, 3);  // times that run backwards
  EXPECT_EQ(h.Rate, 100u);
  SetTimeAndRate(&h, 0, 3000000, 2, 1);  // more than a second apart
  EXPECT_EQ(h.Rate, 0u);
  SetTimeAndRate(&h, INT64_MIN, INT64_MAX, 2, 16);
  EXPECT_EQ(h.T0, INT32_MIN);
  EXPECT_EQ(h.Rate, 0u);
  SetTimeAndRate(&h, int64_t{5} << 40, (int64_t{5} << 40) + 1, 2, 16);
  EXPECT_EQ(h.T0, INT32_MAX);
  EXPECT_EQ(h.Rate, 16000000u);
}

// Hostile content for every text form: it reads as a clean failure or as a
// consistent result, never past a buffer (the sanitizer build watches).
TEST(ChannelTextHostile, GarbageLongLinesAndHugeLines) {
  TempDir dir;
  std::mt19937 random(11);
  const char* names[] = {"g.asc", "g.csv", "g.plt", "g.lvm", "g.xml", "g.xls", "g.dat"};
  for (int round = 0; round < 20; ++round) {
    std::string bytes(1 + random() % 4000, '\0');
    for (char& c : bytes) c = static_cast<char>(random() % 4 == 0 ? "\n,\t \"=<>"[random() % 9] : random());
    for (const char* name : names) {
      const std::string path = dir.File(name);
      WriteFile(path, bytes);
      Read r = ReadAll(path);
      if (r.ok) {
        EXPECT_EQ(r.codes.size(), r.header.Size) << name;
      } else {
        EXPECT_TRUE(r.codes.empty()) << name;
      }
    }
  }

  // A folder under a channel file's name reads as nothing.
  for (const char* name : {"d.asc", "d.csv", "d.plt", "d.lvm", "d.xml", "d.xls", "d.dat"}) {
    std::filesystem::create_directory(dir.path() / name);
    EXPECT_EQ(ReadAll(dir.File(name)).ok, 0) << name;
  }

  // A heading of 10,000 characters keeps its first 511.
  const std::string path = dir.File("long.csv");
  std::string heading = "Time,Channel1";
  while (heading.size() < 10000) heading += ",Channel2";
  WriteFile(path, heading + "\n0,1,2\n0.001,3,4\n");
  Read r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Size, 4u);

  // A data line of 100 MB is one row, not thousands.
  {
    std::ofstream out(path, std::ios::binary);
    out << "Time,Channel0\n0.000000,1.0\n0.000500,";
    std::string block(1 << 20, '7');
    for (int i = 0; i < 100; ++i) out.write(block.data(), static_cast<std::streamsize>(block.size()));
    out << "\n0.001000,2.0\n";
  }
  r = ReadAll(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Size, 3u);
  EXPECT_EQ(r.header.Rate, 2000u);
  EXPECT_EQ(r.codes[1], 0);  // 511 digits are beyond any number: a missing value
  EXPECT_NEAR(r.codes[2], IdealCode(2.0), 1.0);
}

}  // namespace
}  // namespace tarnvel
