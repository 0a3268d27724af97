// The table of file types, the capability answers the engine depends on,
// options, compressor lists and the operations' argument checks.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <atomic>
#include <filesystem>
#include <thread>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

struct Expected {
  int number, stringId;
  const char* text;
  const char* extension;
};

// The offered list, in its order, as users see it.
const Expected kExpected[] = {
    {1, 200, "TIFF File (*.tif)", "tif"},
    {2, 201, "BITMAP File (*.bmp)", "bmp"},
    {3, 202, "JPEG File (*.jpg)", "jpg"},
    {4, 203, "PNG File (*.png)", "png"},
    {5, 204, "TP2 File (*.tp2)", "tp2"},
    {6, 205, "Falcon eXtra File (*.fba)", "fba"},
    {7, 206, "Digital Picture Exchange File (*.dpx)", "dpx"},
    {9, 220, "Truevision TGA (*.tga)", "tga"},
    {51, 207, "Digital Negative File (*.dng)", "dng"},
    {11, 210, "Multipage TIFF File (*.mpt)", "mpt"},
    {12, 211, "Multipage Bayer File (*.mrf)", "mrf"},
    {14, 213, "Multipage Compressed File (*.mcf)", "mcf"},
    {13, 216, "Audio Video Interleaved - AVI (*.avi)", "avi"},
    {15, 214, "Weinberger Sequence File (*.bld)", "bld"},
    {16, 215, "Moving Picture Experts Group (*.mpg)", "mpg"},
    {18, 217, "H.264 MPEG (*.mp4)", "mp4"},
    {20, 218, "Apple Quick Time (*.mov)", "mov"},
    {17, 222, "Windows Media Video 9 File (*.wmv)", "wmv"},
    {34, 221, "IRIG 106 Chapter 10 File (*.ch10)", "ch10"},
    {21, 219, "Type-2 Continuous (*.t2c)", "t2c"},
};

bool Has(int type, int code) { return QueryCapability(type, code) == 0; }

TEST(FileTypes, TableHasEveryTypeInOfferedOrderWithItsTextAndExtension) {
  const auto types = framekit::FileTypes();
  ASSERT_EQ(types.size(), std::size(kExpected));
  for (std::size_t i = 0; i < types.size(); ++i) {
    SCOPED_TRACE(kExpected[i].number);
    EXPECT_EQ(types[i].number, kExpected[i].number);
    EXPECT_EQ(types[i].stringId, kExpected[i].stringId);
    EXPECT_STREQ(types[i].text, kExpected[i].text);
    char ext[16];
    ASSERT_EQ(GetExtension(kExpected[i].number, ext, sizeof ext), 0);
    EXPECT_STREQ(ext, kExpected[i].extension);
    EXPECT_TRUE(Has(kExpected[i].number, kCapFileTypeOffered));
  }
  char ext[16] = "x";
  EXPECT_EQ(GetExtension(8, ext, sizeof ext), kFkUnknownType);
  EXPECT_STREQ(ext, "");
  char small[3];
  EXPECT_NE(GetExtension(34, small, sizeof small), 0);  // "ch10" needs 5
}

TEST(FileTypes, CapabilitiesAreThoseTheEngineRequires) {
  for (int t : {11, 12, 13, 14, 15, 16, 17, 18, 20, 21, 34}) EXPECT_TRUE(Has(t, kCapMultiFrameFile)) << t;
  for (int t : {1, 2, 3, 4, 5, 7, 9, 51}) EXPECT_FALSE(Has(t, kCapMultiFrameFile)) << t;
  for (int t : {5, 6, 12, 14, 21, 34}) EXPECT_TRUE(Has(t, kCapMosaicOutput)) << t;
  for (int t : {1, 2, 3, 4, 7, 9, 51, 11, 13, 15, 16, 17, 18, 20}) EXPECT_FALSE(Has(t, kCapMosaicOutput)) << t;
  for (int t : {3, 11, 13, 16, 18, 20}) EXPECT_TRUE(Has(t, kCapHasCodecDialog)) << t;
  for (int t : {1, 2, 4, 5, 6, 7, 9, 51, 12, 14, 15, 17, 21, 34}) EXPECT_FALSE(Has(t, kCapHasCodecDialog)) << t;
  for (int t : {13, 16, 17, 18, 20}) EXPECT_TRUE(Has(t, kCapHasPlaybackRate)) << t;
  for (int t : {1, 2, 3, 4, 5, 6, 7, 9, 51, 11, 12, 14, 15, 21, 34}) EXPECT_FALSE(Has(t, kCapHasPlaybackRate)) << t;
  // Formats that cannot hold more than 8 bits a channel never claim deep output.
  for (int t : {2, 3, 9, 13, 16, 17, 18, 20, 5, 21}) EXPECT_FALSE(Has(t, kCapDeepOutput)) << t;
  for (int t : {1, 4, 7, 51, 11, 6, 12, 14, 15}) EXPECT_TRUE(Has(t, kCapDeepOutput)) << t;
  EXPECT_EQ(QueryCapability(8, kCapDeepOutput), kFkUnknownType);
  EXPECT_EQ(QueryCapability(1, 0), kFkBadArgument);
  EXPECT_EQ(QueryCapability(1, 7), kFkBadArgument);
}

TEST(FileTypes, MovieAndChapter10TypesAreNotAvailableYetAndSaySo) {
  test::TempDir dir;
  for (const char* name : {"a.avi", "a.mpg", "a.mp4", "a.mov", "a.wmv", "a.ch10"}) {
    FrameHandle handle = reinterpret_cast<FrameHandle>(1);
    EXPECT_EQ(OpenOutput(dir.File(name).c_str(), 1, &handle), kFkTypeNotAvailable) << name;
    EXPECT_EQ(handle, nullptr);
    EXPECT_FALSE(std::filesystem::exists(dir.path() / name)) << "no file is left behind";
  }
  CodecEntry entries[4];
  std::uint32_t count = 4;
  EXPECT_EQ(ListCodecs(13, entries, &count), kFkTypeNotAvailable);
  EXPECT_EQ(count, 0u);
  EXPECT_STREQ(FrameKitResultText(kFkTypeNotAvailable), "type not available");
}

TEST(FileTypes, CompressorListsHonourTheRoomGiven) {
  CodecEntry entries[64];
  std::uint32_t count = 64;
  ASSERT_EQ(ListCodecs(11, entries, &count), 0);
  ASSERT_EQ(count, 4u);
  EXPECT_EQ(entries[0].handler, framekit::kTiffNoCompression);
  EXPECT_EQ(entries[0].size, kFrameOptionsSize);
  EXPECT_STREQ(entries[1].name, "LZW");
  count = 2;
  for (auto& e : entries) e.size = 0xABABABABu;
  ASSERT_EQ(ListCodecs(11, entries, &count), 0);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(entries[2].size, 0xABABABABu) << "nothing written past the room";
  count = 64;
  ASSERT_EQ(ListCodecs(3, entries, &count), 0);
  ASSERT_EQ(count, 1u);
  EXPECT_EQ(entries[0].flags & kCodecHasQuality, kCodecHasQuality);
  count = 64;
  EXPECT_EQ(ListCodecs(1, entries, &count), 0);
  EXPECT_EQ(count, 0u);
  EXPECT_EQ(ListCodecs(1, entries, nullptr), kFkBadArgument);
  EXPECT_EQ(ConfigureCodec(3, &entries[0], nullptr), kFkNoDialog);
}

TEST(FileTypes, OptionsArePerTypeAndWholeUnderConcurrentUse) {
  FrameOptions options;
  ASSERT_EQ(GetOptions(3, &options), 0);
  EXPECT_EQ(options.quality, framekit::kDefaultJpegQuality);
  FrameOptions bad;
  bad.size = 100;
  EXPECT_EQ(SetOptions(3, &bad), kFkBadArgument);
  bad.size = kFrameOptionsSize;
  bad.quality = 10001;
  EXPECT_EQ(SetOptions(3, &bad), kFkBadArgument);
  bad.quality = 0;
  bad.handler = 77;
  EXPECT_EQ(SetOptions(11, &bad), kFkBadArgument) << "unknown compressor";
  EXPECT_EQ(SetOptions(8, &options), kFkUnknownType);

  // Threads set records whose fields agree; every read must see one whole record.
  std::atomic<bool> torn{false};
  std::vector<std::thread> threads;
  for (std::uint32_t t = 0; t < 4; ++t)
    threads.emplace_back([t, &torn] {
      for (std::uint32_t i = 0; i < 2000; ++i) {
        FrameOptions o;
        o.quality = (t * 2000 + i) % 10001;
        o.handler = o.quality;
        std::snprintf(o.name, sizeof o.name, "%u", o.quality);
        SetOptions(4, &o);
        FrameOptions r;
        GetOptions(4, &r);
        if (r.handler != r.quality || std::to_string(r.quality) != r.name) torn = true;
      }
    });
  for (auto& th : threads) th.join();
  EXPECT_FALSE(torn);
  FrameOptions other;
  ASSERT_EQ(GetOptions(3, &other), 0);
  EXPECT_EQ(other.quality, framekit::kDefaultJpegQuality) << "type 4's settings stay with type 4";
}

TEST(FileTypes, WriteFrameRejectsWrongCallsWithNegativeResults) {
  test::TempDir dir;
  std::vector<std::uint8_t> pixels(64 * 64 * 6);
  FrameHeader header;
  header.width = header.height = 64;
  header.bits = 8;
  EXPECT_EQ(WriteFrame(nullptr, 0, 1, &header, nullptr, pixels.data()), kFkBadHandle);
  EXPECT_EQ(CloseOutput(nullptr), kFkBadHandle);
  FrameHandle handle = nullptr;
  EXPECT_EQ(OpenOutput(dir.File("noextension").c_str(), 1, &handle), kFkUnknownType);
  EXPECT_EQ(OpenOutput(dir.File("x.xyz").c_str(), 1, &handle), kFkUnknownType);
  ASSERT_EQ(OpenOutput(dir.File("x.MPT").c_str(), 1, &handle), 0) << "extensions match without case";
  FrameHeader wrongSize = header;
  wrongSize.size = 1000;
  EXPECT_EQ(WriteFrame(handle, 0, 2, &wrongSize, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 2, 2, &header, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 0, 2, &header, nullptr, nullptr), kFkBadArgument);
  FrameHeader odd = header;
  odd.bits = 20;  // colour depths come in threes
  EXPECT_EQ(WriteFrame(handle, 0, 2, &odd, nullptr, pixels.data()), kFkUnsupportedDepth);
  FrameHeader mosaic = header;
  mosaic.mosaic = 1;
  mosaic.bits = 24;
  EXPECT_EQ(WriteFrame(handle, 0, 2, &mosaic, nullptr, pixels.data()), kFkBadArgument)
      << "multipage TIFF keeps no mosaic";
  EXPECT_EQ(WriteFrame(handle, 0, 2, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 2, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 2, &header, nullptr, pixels.data()), kFkFrameAfterEnd);
  EXPECT_EQ(CloseOutput(handle), 0);

  ASSERT_EQ(OpenOutput(dir.File("x.jpg").c_str(), 1, &handle), 0);
  FrameHeader deep = header;
  deep.bits = 16;
  EXPECT_EQ(WriteFrame(handle, 5, 10, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(WriteFrame(handle, 5, 10, &header, nullptr, pixels.data()), 0) << "index in the run";
  EXPECT_EQ(WriteFrame(handle, 6, 10, &header, nullptr, pixels.data()), kFkFrameAfterEnd)
      << "one frame per image file";
  EXPECT_EQ(CloseOutput(handle), 0);
}

}  // namespace
}  // namespace tarnvel
