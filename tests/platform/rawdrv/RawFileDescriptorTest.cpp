#include "platform/rawdrv/RawFileDescriptor.h"

#include <gtest/gtest.h>

#include <cstring>
#include <tuple>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;

RawFileInfo SampleInfo(std::uint32_t perSegment, std::uint32_t frames) {
  return RawFileInfo{4096, 1966128, frames, perSegment, 36, 20, 1, 2, /*VolumesCount*/ 2, /*ThreadsPerVolume*/ 4, 3, "DE"};
}

bool Same(const RawFileInfo& a, const RawFileInfo& b) {
  const auto fields = [](const RawFileInfo& i) {
    return std::tuple{i.HeaderOffset, i.FrameSize, i.FrameCount, i.FramesPerSegment, i.PixelDepth, i.PreTrigger,
                      i.CalibrationType, i.MulFirstFrame, i.VolumesCount, i.ThreadsPerVolume, i.Boards, FieldText(i.Volumes)};
  };
  return fields(a) == fields(b);
}

TEST(RawFileDescriptor, WritesTheLinesInOrderAndReadsThemBack) {
  TempDir dir;
  const RawFileInfo info = SampleInfo(100, 250);
  ASSERT_EQ(WriteRawFileInfo(dir.File("shot").c_str(), info, false), 1);
  EXPECT_EQ(test::ReadFile(dir.path() / "rawfile.xml"),
            "<RawFile>\n"
            "  <Signature>OKN Fathom Bureau Raw Ini File V 2.00</Signature>\n"
            "  <ImgFileName>shot.00.raw</ImgFileName>\n"
            "  <CalFileName>shot.cal</CalFileName>\n"
            "  <HeaderOffset>4096</HeaderOffset>\n"
            "  <FrameSize>1966128</FrameSize>\n"
            "  <FrameCount>250</FrameCount>\n"
            "  <FramesPerSegment>100</FramesPerSegment>\n"
            "  <PixelDepth>36</PixelDepth>\n"
            "  <PreTrigger>20</PreTrigger>\n"
            "  <CalibrationType>1</CalibrationType>\n"
            "  <MulFirstFrame>2</MulFirstFrame>\n"
            "  <ThreadsPerVolume>4</ThreadsPerVolume>\n"
            "  <Boards>3</Boards>\n"
            "  <VolumesCount>2</VolumesCount>\n"
            "  <Volumes>DE</Volumes>\n"
            "</RawFile>\n");
  RawFileInfo back{};
  EXPECT_EQ(ReadRawFileInfo(dir.File("rawfile.xml").c_str(), 0, &back), 1);
  EXPECT_TRUE(Same(back, info));
  char image[kPathField], second[kPathField] = "x", cal[kPathField];
  EXPECT_EQ(ReadRawFileNames(dir.File("rawfile.xml").c_str(), image, second, cal), 1);
  EXPECT_STREQ(image, "shot.00.raw");
  EXPECT_STREQ(second, "");
  EXPECT_STREQ(cal, "shot.cal");
}

TEST(RawFileDescriptor, ImageNameFollowsSegmentsAndPathsCutAtEitherSeparator) {
  TempDir dir;
  char image[kPathField], second[kPathField], cal[kPathField];
  const std::string file = dir.File("rawfile.xml");
  RawFileInfo info = SampleInfo(250, 250);
  info.Volumes[0] = '\0';
  // A backslash cuts the path as a slash does.
  std::filesystem::create_directory(dir.path() / "sub");
  ASSERT_EQ(WriteRawFileInfo((dir.path().string() + "/sub\\clip").c_str(), info, false), 1);
  ASSERT_EQ(ReadRawFileNames((dir.path() / "sub/rawfile.xml").c_str(), image, second, cal), 1);
  EXPECT_STREQ(image, "clip.raw");
  EXPECT_EQ(test::ReadFile(dir.path() / "sub/rawfile.xml").find("<Volumes>"), std::string::npos);
  ASSERT_EQ(WriteRawFileInfo(dir.File("clip").c_str(), info, true), 1);
  ASSERT_EQ(ReadRawFileNames(file.c_str(), image, second, cal), 1);
  EXPECT_STREQ(image, "clip.00.raw");
  EXPECT_EQ(WriteRawFileInfo("clip", info, false), 0);
  EXPECT_EQ(WriteRawFileInfo("/no/such/folder/clip", info, false), 0);
}

TEST(RawFileDescriptor, DefaultsBlocksAndDamagedFiles) {
  TempDir dir;
  const std::string file = dir.File("rawfile.xml");
  RawFileInfo info{};
  EXPECT_EQ(ReadRawFileInfo(dir.File("missing.xml").c_str(), 0, &info), 0);
  EXPECT_EQ(info.PreTrigger, -1);
  EXPECT_EQ(info.ThreadsPerVolume, 1u);

  test::WriteFile(file,
                  "<RawFile>\r\n  <FrameCount>12</FrameCount>\r\n  <FrameSize>-1</FrameSize>\r\n"
                  "  <HeaderOffset>abc</HeaderOffset>\r\n  <ImgFileName>a.raw</ImgFileName>\r\n</RawFile>\r\n"
                  "<RawFile>\r\n  <FrameCount>7</FrameCount>\r\n  <PreTrigger>3</PreTrigger>\r\n"
                  "  <Signature>okn fathom bureau raw ini file v 2.00</Signature>\r\n"
                  "  <ImgFileName>b.raw</ImgFileName>\r\n  <CalFileName>b.cal</CalFileName>\r\n</RawFile>\r\n"
                  "<RawFile>\r\n  <ImgFileName>c.raw</ImgFileName>\r\n</RawFile>\r\n");
  ASSERT_EQ(ReadRawFileInfo(file.c_str(), 0, &info), 1);
  EXPECT_EQ(info.FrameCount, 12u);
  EXPECT_EQ(info.FrameSize, 0xFFFFFFFFu);
  EXPECT_EQ(info.HeaderOffset, 0u);
  EXPECT_EQ(info.PreTrigger, -1);  // a missing element keeps its default
  ASSERT_EQ(ReadRawFileInfo(file.c_str(), 1, &info), 1);
  EXPECT_EQ(info.FrameCount, 7u);
  EXPECT_EQ(info.PreTrigger, 3);
  ASSERT_EQ(ReadRawFileInfo(file.c_str(), 5, &info), 1);  // a block that isn't there: defaults
  EXPECT_EQ(info.FrameCount, 0u);
  EXPECT_EQ(info.PreTrigger, -1);
  char image[kPathField] = "", second[kPathField] = "", cal[kPathField] = "";
  EXPECT_EQ(ReadRawFileNames(file.c_str(), image, second, cal), 1);  // signature in the second block, any case
  EXPECT_STREQ(image, "a.raw");
  EXPECT_STREQ(second, "b.raw");
  EXPECT_STREQ(cal, "");

  // Not a descriptor, no end tags, overlong lines and values: read as far as it goes, never past a field.
  test::WriteFile(file, "<Raw>\n<RawFile>\n");
  EXPECT_EQ(ReadRawFileInfo(file.c_str(), 0, &info), 0);
  EXPECT_EQ(ReadRawFileNames(file.c_str(), image, second, cal), 0);
  const std::string longName(2000, 'n');
  test::WriteFile(file, "<RawFile>\n  <Signature>OKN Fathom Bureau Raw Ini File V 2.00</Signature>\n  <ImgFileName>" +
                            longName + "</ImgFileName>\n  <Volumes>ABCDEFGHIJKLMNOP</Volumes>\n  <FrameCount>9");
  EXPECT_EQ(ReadRawFileNames(file.c_str(), image, second, cal), 1);
  EXPECT_LT(std::strlen(image), kPathField);
  ASSERT_EQ(ReadRawFileInfo(file.c_str(), 0, &info), 1);
  EXPECT_EQ(FieldText(info.Volumes), "ABCDEFG");
  EXPECT_EQ(info.FrameCount, 0u);  // no end tag: no value between '>' and '<'
  // Tags without any value.
  test::WriteFile(file, "<RawFile>\n<Signature>\n<ImgFileName>\n<CalFileName>\n<Volumes>\n</RawFile>\n");
  EXPECT_EQ(ReadRawFileNames(file.c_str(), image, second, cal), 0);
  EXPECT_STREQ(image, "");
  EXPECT_STREQ(cal, "");
  ASSERT_EQ(ReadRawFileInfo(file.c_str(), 0, &info), 1);
  EXPECT_EQ(FieldText(info.Volumes), "");
}

}  // namespace
}  // namespace tarnvel
