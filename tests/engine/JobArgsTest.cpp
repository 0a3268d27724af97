#include "engine/JobArgs.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <limits>
#include <random>
#include <string>
#include <vector>

#include "engine/FrameGeometry.h"
#include "tests/recording/SuiteProfile.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::SuiteProfile;
using test::TempDir;
using test::WriteFile;

JobArgs Read(const std::string& path, std::vector<std::string>* refused = nullptr) {
  JobArgs args;
  std::memset(&args, 0x5A, sizeof args);  // the reader must clear what it does not fill
  ReadJobArgs(path, args, refused);
  return args;
}

std::string ArgsFile(const TempDir& dir, const std::string& body, const std::string& name = "args.ini") {
  WriteFile(dir.path() / name, "[ArgSect]\r\n" + body);
  return dir.File(name);
}

// The defaults that differ from zero and that a wrong reader would lose.
void ExpectDefaults(const JobArgs& a) {
  EXPECT_STREQ(a.baseName, "");
  EXPECT_EQ(a.frameCount, 0);
  EXPECT_EQ(a.overlayFontHeight, 20);
  EXPECT_EQ(a.deleteRaw, 1);
  EXPECT_EQ(a.companionMovie, 3) << "an absent Arg30 means a companion movie";
  EXPECT_EQ(a.overlayBackColor, -1);
  EXPECT_EQ(a.plotWidth, 256);
  for (const auto* list : {&a.itemPosition, &a.itemFormat, &a.itemShowOn}) {
    EXPECT_EQ((*list)[0], -1) << "marks the list as not used";
    EXPECT_EQ((*list)[1], 0);
  }
  EXPECT_EQ(a.itemParamA[0], 0);
}

// Every key with a value of its own, as the suite writes the file: a key read
// into the wrong field shows up here.
TEST(JobArgs, EveryKeyAsTheSuiteWritesIt) {
  const struct {
    const char* key;
    std::int32_t value;
    std::int32_t JobArgs::*field;
  } numbers[] = {{"Arg03", 250, &JobArgs::frameCount},      {"Arg04", 1, &JobArgs::resetNumbering},
                 {"Arg07", 2, &JobArgs::overlayPosition},   {"Arg12", 4, &JobArgs::overlayTextColor},
                 {"Arg13", 1, &JobArgs::topBar},            {"Arg14", 7, &JobArgs::channelFileType},
                 {"Arg15", 1, &JobArgs::channelsOn},        {"Arg16", 2, &JobArgs::irigMode},
                 {"Arg17", 24, &JobArgs::overlayFontHeight}, {"Arg21", 7500, &JobArgs::codecQuality},
                 {"Arg23", 3, &JobArgs::timeFormat},        {"Arg24", -1250, &JobArgs::temperature},
                 {"Arg25", 1, &JobArgs::temperatureUnit},   {"Arg26", 0, &JobArgs::deleteRaw},
                 {"Arg27", 85, &JobArgs::jpegQuality},      {"Arg28", 2, &JobArgs::movCodec},
                 {"Arg29", 5, &JobArgs::channelDecimals},   {"Arg30", 0, &JobArgs::companionMovie},
                 {"Arg31", 13, &JobArgs::utcOffsetIndex},   {"Arg33", 300, &JobArgs::plotHeight},
                 {"Arg34", 1, &JobArgs::plotInColor},       {"Arg35", 2, &JobArgs::plotMode},
                 {"Arg36", 2, &JobArgs::markerKind},        {"Arg38", 5, &JobArgs::markerColor},
                 {"Arg42", 1, &JobArgs::bottomBar},         {"Arg43", 3, &JobArgs::overlayBackColor},
                 {"Arg45", 512, &JobArgs::plotWidth},       {"Arg46", 4, &JobArgs::mpgCodec},
                 {"Arg51", 1, &JobArgs::backgroundOn},      {"Arg53", 6, &JobArgs::mptCodec}};
  const struct {
    const char* key;
    const char* value;
    const char* (*field)(const JobArgs&);
  } texts[] = {{"Arg02", "Sled_07_", [](const JobArgs& a) -> const char* { return a.baseName; }},
               {"Arg06", "DejaVu Sans", [](const JobArgs& a) -> const char* { return a.overlayFont; }},
               {"Arg18", "/logos/left.png", [](const JobArgs& a) -> const char* { return a.logoPath1; }},
               {"Arg19", "x264", [](const JobArgs& a) -> const char* { return a.codecName; }},
               {"Arg22", "CamLeft", [](const JobArgs& a) -> const char* { return a.deviceName; }},
               {"Arg32", "/movies/left.avi", [](const JobArgs& a) -> const char* { return a.moviePath; }},
               {"Arg44", "Run 7", [](const JobArgs& a) -> const char* { return a.userText1; }},
               {"Arg49", "left", [](const JobArgs& a) -> const char* { return a.userText2; }},
               {"Arg50", "/logos/right.png", [](const JobArgs& a) -> const char* { return a.logoPath2; }},
               {"Arg52", "/bg/plate.bmp", [](const JobArgs& a) -> const char* { return a.backgroundPath; }}};
  SuiteProfile p;
  p.Section("ArgSect").Int("Arg05", 0x1FFFFF).Int("Arg20", 0x34363258).Int("Arg37", (8u << 16) | 6u);
  for (const auto& n : numbers) p.Int(n.key, n.value);
  for (const auto& t : texts) p.Text(t.key, t.value);
  std::string lists[5];
  for (int i = 0; i < 21; ++i) {
    const int values[5] = {i % 9, i, 1, -i, 100 + i};
    for (int l = 0; l < 5; ++l) lists[l] += std::to_string(values[l]) + ",";
  }
  const char* listKeys[5] = {"Arg39", "Arg40", "Arg41", "Arg47", "Arg48"};
  for (int l = 0; l < 5; ++l) p.Text(listKeys[l], lists[l]);
  TempDir dir;
  const std::string path = dir.File("args.ini");
  WriteFile(path, p.Render(false));

  std::vector<std::string> refused{"stale"};
  JobArgs a;
  ASSERT_TRUE(ReadJobArgs(path, a, &refused));
  EXPECT_TRUE(refused.empty());
  for (const auto& n : numbers) EXPECT_EQ(a.*n.field, n.value) << n.key;
  for (const auto& t : texts) EXPECT_STREQ(t.field(a), t.value) << t.key;
  EXPECT_EQ(a.overlayFlags, 0x1FFFFFu);
  EXPECT_EQ(a.codecHandler, 0x34363258);
  EXPECT_EQ(a.markerValue, (8u << 16) | 6u);
  EXPECT_EQ(PlotRows(a), 300);
  for (int i = 0; i < 21; ++i) {
    const std::int32_t got[5] = {a.itemPosition[i], a.itemFormat[i], a.itemShowOn[i], a.itemParamA[i], a.itemParamB[i]};
    const std::int32_t want[5] = {i % 9, i, 1, -i, 100 + i};
    for (int l = 0; l < 5; ++l) EXPECT_EQ(got[l], want[l]) << listKeys[l] << " entry " << i;
  }
  EXPECT_EQ(a.itemPosition[21], 0);

  // The codec block takes its words in the block's order.
  CodecSettings codec;
  std::memset(&codec, 0x33, sizeof codec);
  ReadCodecDefaults(path, codec);
  const std::uint32_t words[] = {codec.handler, codec.quality, codec.jpegQuality, codec.movCodec, codec.mpgCodec,
                                 codec.mptCodec};
  const std::uint32_t wanted[] = {0x34363258u, 7500u, 85u, 2u, 4u, 6u};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(words[i], wanted[i]) << i;
  EXPECT_STREQ(codec.name, "x264");
  EXPECT_EQ(codec.name[127], 0);
}

TEST(JobArgs, DefaultsWithoutFileSectionOrKeys) {
  TempDir dir;
  ExpectDefaults(Read(dir.File("missing.ini")));
  ExpectDefaults(Read(ArgsFile(dir, "")));
  WriteFile(dir.path() / "other.ini", "[Other]\r\nArg03=40\r\nArg30=0\r\n");
  const JobArgs other = Read(dir.File("other.ini"));
  ExpectDefaults(other);
  EXPECT_EQ(other.frameCount, 0) << "no section ArgSect: no frame to convert";
  EXPECT_EQ(PlotRows(other), 256) << "Arg33 0 gives a plot of 256 rows";
}

TEST(JobArgs, ListsAndTheirCommaRules) {
  TempDir dir;
  std::string twentyOne, sixty;
  for (int i = 1; i <= 21; ++i) twentyOne += std::to_string(i) + (i < 21 ? "," : "");
  for (int i = 1; i <= 60; ++i) sixty += std::to_string(i) + ",";
  const struct {
    std::string body;
    int list;                        // 0 position, 1 format, 2 show-on, 3 parameter A
    std::vector<std::int32_t> first;  // the list's first entries as read
    const char* why;
  } cases[] = {
      {"Arg39=4,5,6,", 0, {4, 5, 6, 0}, "a trailing comma ends the last value"},
      {"Arg39=7", 0, {7, 0}, "a value without a comma fills entry 0 alone"},
      {"Arg39=1,2,3", 0, {1, 2, 0}, "text behind the last comma is not read"},
      {"Arg41=x,,-3,99999999999,4294967295, 12 ,", 2, {0, 0, -3, 0, -1, 12, 0}, "malformed entries"},
      {"Arg41=,", 2, {0}, "a present list is cleared first: -1 only when empty"},
      {"Arg39=1,2,\r\nArg40=", 1, {-1, 0}, "an empty format list beside positions"},
      {"Arg47=", 3, {0}, "empty parameter lists stay 0"},
  };
  for (const auto& c : cases) {
    const JobArgs a = Read(ArgsFile(dir, c.body + "\r\n"));
    const std::int32_t* lists[] = {a.itemPosition, a.itemFormat, a.itemShowOn, a.itemParamA};
    for (std::size_t i = 0; i < c.first.size(); ++i) EXPECT_EQ(lists[c.list][i], c.first[i]) << c.why << ", entry " << i;
  }
  JobArgs a = Read(ArgsFile(dir, "Arg40=" + twentyOne + "\r\n"));
  EXPECT_EQ(a.itemFormat[19], 20);
  EXPECT_EQ(a.itemFormat[20], 0) << "21 values without a trailing comma lose the last";
  a = Read(ArgsFile(dir, "Arg47=" + sixty + "\r\n"));
  EXPECT_EQ(a.itemParamA[39], 40) << "40 entries kept, the rest dropped";
  EXPECT_EQ(a.itemParamB[0], 0);
}

TEST(JobArgs, OverlongValuesMalformedNumbersAndNoise) {
  TempDir dir;
  const std::string longPath = "/x/" + std::string(400, 'p') + ".png";
  const std::string longText(3000, 't');
  std::vector<std::string> refused;
  JobArgs a = Read(ArgsFile(dir, "Arg02=" + std::string(128, 'b') + "\r\nArg18=" + longPath + "\r\nArg44=" +
                                     longText + "\r\nArg06=" + longText + "\r\nArg32=" + std::string(259, 'm') +
                                     "\r\nArg45=300\r\n"),
                   &refused);
  EXPECT_EQ(refused, (std::vector<std::string>{"Arg02", "Arg18"}));
  EXPECT_STREQ(a.baseName, "") << "a base name one past its field is refused, not cut";
  EXPECT_STREQ(a.logoPath1, "");
  EXPECT_EQ(std::string(a.moviePath), std::string(259, 'm')) << "exactly fits its field";
  EXPECT_EQ(std::string(a.userText1), longText.substr(0, 127));
  EXPECT_EQ(std::string(a.overlayFont), longText.substr(0, 259));
  EXPECT_EQ(a.plotWidth, 300) << "the fields behind overlong ones are intact";
  EXPECT_EQ(a.mpgCodec, 1);
  JobArgs ok;
  EXPECT_FALSE(ReadJobArgs(ArgsFile(dir, "Arg52=" + longPath + "\r\n"), ok));

  a = Read(ArgsFile(dir, "Arg03=12abc\r\nArg17=big\r\nArg26=99999999999\r\nArg45=-\r\nArg27=+85\r\nArg43=4294967295\r\n"));
  EXPECT_EQ(a.frameCount, 12);
  EXPECT_EQ(a.overlayFontHeight, 20);
  EXPECT_EQ(a.deleteRaw, 1);
  EXPECT_EQ(a.plotWidth, 256);
  EXPECT_EQ(a.jpegQuality, 85);
  EXPECT_EQ(a.overlayBackColor, -1);

  // Truncated in the middle of a key, and in the middle of a list.
  a = Read(ArgsFile(dir, "Arg03=40\r\nArg39=1,2,3,4"));
  EXPECT_EQ(a.frameCount, 40);
  EXPECT_EQ(a.itemPosition[2], 3);
  a = Read(ArgsFile(dir, "Arg03=40\r\nArg2"));
  EXPECT_STREQ(a.baseName, "");

  // Binary noise.
  std::mt19937 rng(11);
  std::string noise(200000, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  WriteFile(dir.path() / "noise.ini", noise);
  ExpectDefaults(Read(dir.File("noise.ini")));
  WriteFile(dir.path() / "noise2.ini", "[ArgSect]\nArg03=5\n" + noise);
  EXPECT_EQ(Read(dir.File("noise2.ini")).frameCount, 5);
}

TEST(JobArgs, GeometryTurnsAndRefusesFramesBeyondAWord) {
  FrameGeometry g;
  ASSERT_TRUE(MakeFrameGeometry(1280, 1024, 36, 3, g));
  EXPECT_EQ(g.width, 1024u) << "a quarter turn swaps width and height";
  EXPECT_EQ(g.height, 1280u);
  EXPECT_EQ(g.frameBytes, 1280u * 1024u * 6u);
  ASSERT_TRUE(MakeFrameGeometry(100, 50, 9, 2, g));
  EXPECT_EQ(g.width, 100u) << "a half turn keeps them";
  EXPECT_EQ(g.frameBytes, 100u * 50u * 2u);
  EXPECT_FALSE(MakeFrameGeometry(65536, 65536, 8, 0, g)) << "4 GiB frames don't fit the word";
  EXPECT_EQ(g.width, 100u) << "left alone";
}

TEST(JobArgs, DialogDefaultsAndMoviePath) {
  TempDir dir;
  const auto rec = dir.path() / "Rec_3";
  std::filesystem::create_directories(rec);
  const std::string args = (rec / "args.ini").string();
  WriteFile(args, "[ArgSect]\r\nArg03=77\r\nArg04=1\r\nArg26=0\r\nArg22=CamRight\r\n");

  DialogDefaults d;
  EXPECT_FALSE(ReadDialogDefaults(args, d)) << "no profile yet";
  EXPECT_EQ(d.fileType, 1);
  EXPECT_EQ(d.playbackRate, -1);
  EXPECT_EQ(d.frameCount, 77) << "the argument file's values still come";

  SuiteProfile p;
  p.Section("Acquisition").Int("Images", 100).Int("FileType", 11).Float("Output_Rate", 29.97).Int("PixelDepth", 12);
  p.Int("StartIdx", -25);
  WriteFile(rec / "_config.pgv", p.Render());
  DialogDefaults e;
  EXPECT_TRUE(ReadDialogDefaults(args, e));
  EXPECT_EQ(e.fileType, 11);
  EXPECT_EQ(e.playbackRate, 29);
  EXPECT_EQ(e.outputDepth, 12);
  EXPECT_EQ(e.startIndex, -25);
  WriteFile(rec / "_config.pgv", "[Acquisition]\r\nImages=3\r\nOutput_Rate=3e38\r\n");
  EXPECT_TRUE(ReadDialogDefaults(args, e));
  EXPECT_EQ(e.playbackRate, std::numeric_limits<std::int32_t>::max()) << "no overflow on a huge rate";

  std::string movie = "stale";
  EXPECT_TRUE(MoviePathOf(args, movie));
  EXPECT_EQ(movie, (rec / "CamRight.avi").string()) << "Arg30 absent: a movie beside the recording";
  WriteFile(args, "[ArgSect]\r\nArg30=0\r\nArg22=CamRight\r\n");
  EXPECT_TRUE(MoviePathOf(args, movie));
  EXPECT_EQ(movie, "");
  WriteFile(args, "[ArgSect]\r\nArg30=1\r\nArg22=CamRight\r\nArg32=D:\\movies\\Left.AVI\r\n");
  EXPECT_TRUE(MoviePathOf(args, movie));
  EXPECT_EQ(movie, "D:\\movies\\Left.AVI") << "Arg32 unchanged";
  WriteFile(args, "[ArgSect]\r\nArg30=1\r\nArg22=../../escape\r\n");
  EXPECT_FALSE(MoviePathOf(args, movie));
  EXPECT_EQ(movie, "");
  WriteFile(args, "[ArgSect]\r\nArg30=1\r\nArg32=" + std::string(300, 'm') + "\r\n");
  EXPECT_FALSE(MoviePathOf(args, movie)) << "an overlong Arg32 is refused, not replaced by a derived path";
}

}  // namespace
}  // namespace tarnvel
