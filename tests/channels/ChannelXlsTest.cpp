#include "channels/ChannelXls.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <random>
#include <string>

#include "channels/gen/XlsWriter.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }
XlsCell N(double v) { return XlsCell::Number(v); }
XlsCell T(const char* s) { return XlsCell::Text(s); }

struct Read {
  int ok = 0;
  ChannelFileHeader header{};
  ChannelCodes codes;
};

Read ReadBook(const std::string& path) {
  Read r;
  r.ok = ReadChannelData(path.c_str(), nullptr, &r.header, &r.codes);
  EXPECT_EQ(r.codes.size(), r.ok ? r.header.Size : 0u) << path;
  return r;
}

// xlrd, a reader independent of FreeXL and of our writer.
std::string Xlrd(const std::string& path, const std::string& expression) {
  std::string out;
  EXPECT_EQ(test::RunCommand("/usr/bin/python3 -c \"import sys, xlrd; b = xlrd.open_workbook(sys.argv[1]); print(" +
                                 expression + ")\" " + path,
                             &out),
            0)
      << out;
  return out;
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
  Read r = ReadBook(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Channels[1].Enable, 0u);
  EXPECT_EQ(r.header.Size, 6u);
  EXPECT_EQ(r.header.Rate, 2000u);
  const double volts[] = {0.0, 2.0, 0.1, 2.1, 0.2, 2.2};
  for (int i = 0; i < 6; ++i) EXPECT_NEAR(r.codes[i], IdealCode(volts[i]), 1.0) << i;
  ChannelFileHeader head{};
  ASSERT_EQ(ReadChannelHeader(path.c_str(), nullptr, &head), 1);
  EXPECT_EQ(std::memcmp(&head, &r.header, sizeof head), 0);
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
    EXPECT_EQ(ReadBook(path).ok, 0) << why;
  }
  // Not a workbook, cut short, bytes flipped: consistent results only (checked in ReadBook).
  ASSERT_TRUE(WriteXlsWorkbook(path, {{"PGDA1", good}}));
  const std::string whole = test::ReadFile(path);
  WriteFile(path, "just text, no workbook");
  EXPECT_EQ(ReadBook(path).ok, 0);
  for (std::size_t cut : {std::size_t{0}, std::size_t{100}, std::size_t{512}, whole.size() / 2, whole.size() - 1}) {
    WriteFile(path, whole.substr(0, cut));
    ReadBook(path);
  }
  std::mt19937 random(5);
  for (int round = 0; round < 200; ++round) {
    std::string damaged = whole;
    for (int k = 0; k < 8; ++k) damaged[random() % damaged.size()] = static_cast<char>(random());
    WriteFile(path, damaged);
    ReadBook(path);
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
  for (int round = 0; round < 3; ++round) ReadBook(path);
  // And a sound workbook still reads afterwards.
  ASSERT_TRUE(WriteXlsWorkbook(path, {{"PGDA1", {{T("Times"), T("Channel0")}, {N(0), N(5)}}}}));
  Read r = ReadBook(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_NEAR(r.codes[0], IdealCode(5), 1.0);
}

TEST(ChannelXls, LargeWorkbookNeedsTheTableIndex) {
  // 60,000 rows of 8 numbers pass 109 allocation-table sectors, so the
  // compound file needs its index sectors; both readers must follow them.
  TempDir dir;
  const std::string path = dir.File("large.xls");
  XlsSheet sheet{"PGDA1", {{T("Times"), T("Channel0"), T("Channel1"), T("Channel2"), T("Channel3"),
                             T("Channel4"), T("Channel5"), T("Channel6")}}};
  for (int r = 0; r < 60000; ++r)
    sheet.rows.push_back({N(r * 0.0001), N(r % 20 - 10.0), N(1), N(-1), N((r % 7) * 0.5), N(2), N(3), N(4)});
  ASSERT_TRUE(WriteXlsWorkbook(path, {sheet}));
  EXPECT_GT(std::filesystem::file_size(path), 109u * 128u * 512u);
  EXPECT_EQ(Xlrd(path, "(lambda s: (s.nrows, s.ncols, s.cell_value(0, 7), s.cell_value(59999, 0), "
                       "s.cell_value(12345, 1)))(b.sheet_by_name('PGDA1'))"),
            "(60001, 8, 'Channel6', 5.9998000000000005, -6.0)\n");  // rows r = 59998 and r = 12344
  Read r = ReadBook(path);
  ASSERT_EQ(r.ok, 1);
  EXPECT_EQ(r.header.Size, 420000u);
  EXPECT_EQ(r.header.Rate, 70000u);
  for (int row = 0; row < 60000; row += 997) {
    EXPECT_NEAR(r.codes[row * 7], IdealCode(row % 20 - 10.0), 1.0) << row;
    EXPECT_NEAR(r.codes[row * 7 + 3], IdealCode((row % 7) * 0.5), 1.0) << row;
  }
}

}  // namespace
}  // namespace tarnvel
