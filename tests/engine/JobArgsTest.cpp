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

void ExpectDefaults(const JobArgs& a) {
  EXPECT_STREQ(a.baseName, "");
  EXPECT_EQ(a.frameCount, 0);
  EXPECT_EQ(a.overlayFontHeight, 20);
  EXPECT_EQ(a.timeFormat, 6);
  EXPECT_EQ(a.deleteRaw, 1);
  EXPECT_EQ(a.jpegQuality, 10000);
  EXPECT_EQ(a.movCodec, 1);
  EXPECT_EQ(a.channelDecimals, 3);
  EXPECT_EQ(a.companionMovie, 3) << "an absent Arg30 means a companion movie";
  EXPECT_EQ(a.overlayBackColor, -1);
  EXPECT_EQ(a.plotWidth, 256);
  EXPECT_EQ(a.mpgCodec, 1);
  EXPECT_EQ(a.mptCodec, 0);
  EXPECT_EQ(a.plotHeight, 0);
  for (const auto* list : {&a.itemPosition, &a.itemFormat, &a.itemShowOn}) {
    EXPECT_EQ((*list)[0], -1) << "marks the list as not used";
    for (std::size_t i = 1; i < kItemListEntries; ++i) EXPECT_EQ((*list)[i], 0);
  }
  for (std::size_t i = 0; i < kItemListEntries; ++i) {
    EXPECT_EQ(a.itemParamA[i], 0);
    EXPECT_EQ(a.itemParamB[i], 0);
  }
  EXPECT_STREQ(a.backgroundPath, "");
}

TEST(JobArgs, EveryKeyAsTheSuiteWritesIt) {
  TempDir dir;
  SuiteProfile p;
  p.Section("ArgSect").Text("Arg02", "Sled_07_").Int("Arg03", 250).Int("Arg04", 1).Int("Arg05", 0x1FFFFF);
  p.Text("Arg06", "DejaVu Sans").Int("Arg07", 2).Int("Arg08", 99).Int("Arg12", 4).Int("Arg13", 1).Int("Arg14", 7);
  p.Int("Arg15", 1).Int("Arg16", 2).Int("Arg17", 24).Text("Arg18", "/logos/left.png").Text("Arg19", "x264");
  p.Int("Arg20", 0x34363258).Int("Arg21", 7500).Text("Arg22", "CamLeft").Int("Arg23", 3).Int("Arg24", -1250);
  p.Int("Arg25", 1).Int("Arg26", 0).Int("Arg27", 85).Int("Arg28", 2).Int("Arg29", 5).Int("Arg30", 0);
  p.Int("Arg31", 13).Text("Arg32", "/movies/left.avi").Int("Arg33", 300).Int("Arg34", 1).Int("Arg35", 2);
  p.Int("Arg36", 2).Int("Arg37", (8u << 16) | 6u).Int("Arg38", 5);
  std::string positions, formats, showOn, paramA, paramB;
  for (int i = 0; i < 21; ++i) {
    positions += std::to_string(i % 9) + ",";
    formats += std::to_string(i) + ",";
    showOn += "1,";
    paramA += std::to_string(-i) + ",";
    paramB += std::to_string(100 + i) + ",";
  }
  p.Text("Arg39", positions).Text("Arg40", formats).Text("Arg41", showOn).Int("Arg42", 1).Int("Arg43", 3);
  p.Text("Arg44", "Run 7").Int("Arg45", 512).Int("Arg46", 4).Text("Arg47", paramA).Text("Arg48", paramB);
  p.Text("Arg49", "left").Text("Arg50", "/logos/right.png").Int("Arg51", 1).Text("Arg52", "/bg/plate.bmp");
  p.Int("Arg53", 6);
  const std::string path = dir.File("args.ini");
  WriteFile(path, p.Render(false));

  std::vector<std::string> refused{"stale"};
  JobArgs a;
  ASSERT_TRUE(ReadJobArgs(path, a, &refused));
  EXPECT_TRUE(refused.empty());
  EXPECT_STREQ(a.baseName, "Sled_07_");
  EXPECT_EQ(a.frameCount, 250);
  EXPECT_EQ(a.resetNumbering, 1);
  EXPECT_EQ(a.overlayFlags, 0x1FFFFFu);
  EXPECT_STREQ(a.overlayFont, "DejaVu Sans");
  EXPECT_EQ(a.overlayPosition, 2);
  EXPECT_EQ(a.overlayTextColor, 4);
  EXPECT_EQ(a.topBar, 1);
  EXPECT_EQ(a.channelFileType, 7);
  EXPECT_EQ(a.channelsOn, 1);
  EXPECT_EQ(a.irigMode, 2);
  EXPECT_EQ(a.overlayFontHeight, 24);
  EXPECT_STREQ(a.logoPath1, "/logos/left.png");
  EXPECT_STREQ(a.codecName, "x264");
  EXPECT_EQ(a.codecHandler, 0x34363258);
  EXPECT_EQ(a.codecQuality, 7500);
  EXPECT_STREQ(a.deviceName, "CamLeft");
  EXPECT_EQ(a.timeFormat, 3);
  EXPECT_EQ(a.temperature, -1250);
  EXPECT_EQ(a.temperatureUnit, 1);
  EXPECT_EQ(a.deleteRaw, 0);
  EXPECT_EQ(a.jpegQuality, 85);
  EXPECT_EQ(a.movCodec, 2);
  EXPECT_EQ(a.channelDecimals, 5);
  EXPECT_EQ(a.companionMovie, 0);
  EXPECT_EQ(a.utcOffsetIndex, 13);
  EXPECT_STREQ(a.moviePath, "/movies/left.avi");
  EXPECT_EQ(a.plotHeight, 300);
  EXPECT_EQ(PlotRows(a), 300);
  EXPECT_EQ(a.plotInColor, 1);
  EXPECT_EQ(a.plotMode, 2);
  EXPECT_EQ(a.markerKind, 2);
  EXPECT_EQ(a.markerValue & 0xFFFF, 6u);
  EXPECT_EQ(a.markerValue >> 16, 8u);
  EXPECT_EQ(a.markerColor, 5);
  for (int i = 0; i < 21; ++i) {
    EXPECT_EQ(a.itemPosition[i], i % 9);
    EXPECT_EQ(a.itemFormat[i], i);
    EXPECT_EQ(a.itemShowOn[i], 1);
    EXPECT_EQ(a.itemParamA[i], -i);
    EXPECT_EQ(a.itemParamB[i], 100 + i);
  }
  EXPECT_EQ(a.itemPosition[21], 0);
  EXPECT_EQ(a.bottomBar, 1);
  EXPECT_EQ(a.overlayBackColor, 3);
  EXPECT_STREQ(a.userText1, "Run 7");
  EXPECT_EQ(a.plotWidth, 512);
  EXPECT_EQ(a.mpgCodec, 4);
  EXPECT_STREQ(a.userText2, "left");
  EXPECT_STREQ(a.logoPath2, "/logos/right.png");
  EXPECT_EQ(a.backgroundOn, 1);
  EXPECT_STREQ(a.backgroundPath, "/bg/plate.bmp");
  EXPECT_EQ(a.mptCodec, 6);

  // The codec block takes its words in the block's order.
  CodecSettings codec;
  std::memset(&codec, 0x33, sizeof codec);
  ReadCodecDefaults(path, codec);
  EXPECT_EQ(codec.handler, 0x34363258u);
  EXPECT_EQ(codec.quality, 7500u);
  EXPECT_STREQ(codec.name, "x264");
  EXPECT_EQ(codec.jpegQuality, 85u);
  EXPECT_EQ(codec.movCodec, 2u);
  EXPECT_EQ(codec.mpgCodec, 4u);
  EXPECT_EQ(codec.mptCodec, 6u);
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
  auto list = [&](const std::string& key, const std::string& value) {
    return Read(ArgsFile(dir, key + "=" + value + "\r\n"));
  };
  JobArgs a = list("Arg39", "4,5,6,");
  EXPECT_EQ(a.itemPosition[0], 4);
  EXPECT_EQ(a.itemPosition[2], 6);
  EXPECT_EQ(a.itemPosition[3], 0);
  a = list("Arg39", "7");
  EXPECT_EQ(a.itemPosition[0], 7) << "a value without a comma fills entry 0 alone";
  EXPECT_EQ(a.itemPosition[1], 0);
  a = list("Arg39", "1,2,3");
  EXPECT_EQ(a.itemPosition[1], 2);
  EXPECT_EQ(a.itemPosition[2], 0) << "text behind the last comma is not read";
  std::string twentyOne;
  for (int i = 1; i <= 21; ++i) twentyOne += std::to_string(i) + (i < 21 ? "," : "");
  a = list("Arg40", twentyOne);
  EXPECT_EQ(a.itemFormat[19], 20);
  EXPECT_EQ(a.itemFormat[20], 0) << "21 values without a trailing comma lose the last";
  std::string many;
  for (int i = 1; i <= 60; ++i) many += std::to_string(i) + ",";
  a = list("Arg47", many);
  EXPECT_EQ(a.itemParamA[39], 40) << "40 entries kept, the rest dropped";
  EXPECT_EQ(a.itemParamB[0], 0);
  a = list("Arg41", "x,,-3,99999999999,4294967295, 12 ,");
  const std::int32_t expected[] = {0, 0, -3, 0, -1, 12, 0};
  for (int i = 0; i < 7; ++i) EXPECT_EQ(a.itemShowOn[i], expected[i]) << i;
  a = list("Arg41", ",");
  EXPECT_EQ(a.itemShowOn[0], 0) << "a present list is cleared first: -1 only when empty";

  // Arg39 present and Arg40 empty: format entry 0 is -1, the others 0.
  a = Read(ArgsFile(dir, "Arg39=1,2,\r\nArg40=\r\n"));
  EXPECT_EQ(a.itemPosition[0], 1);
  EXPECT_EQ(a.itemFormat[0], -1);
  EXPECT_EQ(a.itemFormat[1], 0);
  // Empty parameter lists stay all 0.
  a = Read(ArgsFile(dir, "Arg47=\r\nArg48=\r\n"));
  EXPECT_EQ(a.itemParamA[0], 0);
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

  // An enormous file reads as an empty one.
  {
    std::FILE* f = std::fopen((dir.path() / "huge.ini").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("[ArgSect]\r\nArg03=9\r\n", f);
    std::fseek(f, 70L << 20, SEEK_SET);
    std::fputc('\n', f);
    std::fclose(f);
  }
  ExpectDefaults(Read(dir.File("huge.ini")));
}

TEST(JobArgs, ChannelExtensionsAndGeometry) {
  const char* expected[] = {".ASC", ".DAT", ".ASC", ".PLT", ".LVM", ".XML", ".XLS", ".CSV"};
  for (int i = 0; i < 8; ++i) EXPECT_STREQ(ChannelFileExtension(i), expected[i]);
  EXPECT_EQ(ChannelFileExtension(8), nullptr);
  EXPECT_EQ(ChannelFileExtension(-1), nullptr);

  EXPECT_EQ(BytesPerPixel(1), 1u);
  EXPECT_EQ(BytesPerPixel(8), 1u);
  EXPECT_EQ(BytesPerPixel(9), 2u);
  EXPECT_EQ(BytesPerPixel(16), 2u);
  EXPECT_EQ(BytesPerPixel(17), 3u);
  EXPECT_EQ(BytesPerPixel(24), 3u);
  EXPECT_EQ(BytesPerPixel(25), 6u);
  EXPECT_EQ(BytesPerPixel(48), 6u);
  FrameGeometry g;
  EXPECT_EQ(g.bits, 8u);
  ASSERT_TRUE(MakeFrameGeometry(1280, 1024, 12, 0, g));
  EXPECT_EQ(g.width, 1280u);
  EXPECT_EQ(g.frameBytes, 1280u * 1024u * 2u);
  ASSERT_TRUE(MakeFrameGeometry(1280, 1024, 36, 3, g));
  EXPECT_EQ(g.width, 1024u) << "a quarter turn swaps width and height";
  EXPECT_EQ(g.height, 1280u);
  EXPECT_EQ(g.frameBytes, 1280u * 1024u * 6u);
  ASSERT_TRUE(MakeFrameGeometry(100, 50, 8, 2, g));
  EXPECT_EQ(g.width, 100u);
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
  EXPECT_EQ(d.outputDepth, 0);
  EXPECT_EQ(d.startIndex, 0);
  EXPECT_EQ(d.frameCount, 77);
  EXPECT_EQ(d.resetNumbering, 1);
  EXPECT_EQ(d.deleteRaw, 0);

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
