// The file-type table's answers the engine relies on, options under concurrent
// use, compressor lists and the operations' argument checks.
#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <filesystem>
#include <set>
#include <thread>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

bool Has(int type, int code) { return QueryCapability(type, code) == 0; }

TEST(FileTypes, EveryTypeOpensAndAnswersWithinTheRoomGiven) {
  test::TempDir dir;
  for (const auto& row : framekit::FileTypes()) {
    char ext[16];
    ASSERT_EQ(GetExtension(row.number, ext, sizeof ext), 0);
    EXPECT_TRUE(std::string(ext) == row.extension && Has(row.number, kCapFileTypeOffered)) << ext;
    FrameHandle handle = nullptr;  // opened and closed before any frame: nothing to finish
    ASSERT_EQ(OpenOutput(dir.File(std::string("a.") + ext).c_str(), 1, &handle), 0) << ext;
    EXPECT_EQ(CloseOutput(handle), 0) << ext;
  }
  char ext[16] = "x";
  EXPECT_EQ(GetExtension(8, ext, sizeof ext), kFkUnknownType);
  EXPECT_STREQ(ext, "");
  char small[3];
  EXPECT_NE(GetExtension(34, small, sizeof small), 0);  // "ch10" needs 5
  // Formats that cannot hold more than 8 bits a channel never claim deep output.
  for (int t : {2, 3, 9, 13, 16, 17, 18, 20, 5, 21}) EXPECT_FALSE(Has(t, kCapDeepOutput)) << t;
  for (int t : {1, 2, 3, 4, 5, 7, 9, 51}) EXPECT_FALSE(Has(t, kCapMultiFrameFile)) << t;
  EXPECT_EQ(QueryCapability(8, kCapDeepOutput), kFkUnknownType);
  for (int code : {0, 7}) EXPECT_EQ(QueryCapability(1, code), kFkBadArgument);

  CodecEntry entries[4];
  for (auto& e : entries) e.size = 0xABABABABu;
  std::uint32_t count = 2;
  ASSERT_EQ(ListCodecs(11, entries, &count), 0);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(entries[2].size, 0xABABABABu) << "nothing written past the room";
  EXPECT_EQ(ListCodecs(1, entries, nullptr), kFkBadArgument);
  EXPECT_EQ(ConfigureCodec(3, &entries[0], nullptr), kFkNoDialog);
}

TEST(FileTypes, OptionsArePerTypeAndWholeUnderConcurrentUse) {
  FrameOptions wrongSize, tooGood, unknownHandler;
  wrongSize.size = 100;
  tooGood.quality = 10001;
  unknownHandler.handler = 77;
  for (const FrameOptions* bad : {&wrongSize, &tooGood}) EXPECT_EQ(SetOptions(3, bad), kFkBadArgument);
  EXPECT_EQ(SetOptions(11, &unknownHandler), kFkBadArgument) << "unknown compressor";
  EXPECT_EQ(SetOptions(8, &unknownHandler), kFkUnknownType);

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

// The sums of the two quantisation tables that libjpeg makes for a quality
// (1 to 100) from the standard tables, for checking what Pillow reads back.
std::pair<int, int> QuantisationSums(int quality) {
  static const int kLuminance[64] = {16, 11, 10, 16, 24,  40,  51,  61,  12, 12, 14, 19, 26,  58,  60,  55,
                                     14, 13, 16, 24, 40,  57,  69,  56,  14, 17, 22, 29, 51,  87,  80,  62,
                                     18, 22, 37, 56, 68,  109, 103, 77,  24, 35, 55, 64, 81,  104, 113, 92,
                                     49, 64, 78, 87, 103, 121, 120, 101, 72, 92, 95, 98, 112, 100, 103, 99};
  static const int kChrominance[64] = {17, 18, 24, 47, 99, 99, 99, 99, 18, 21, 26, 66, 99, 99, 99, 99,
                                       24, 26, 56, 99, 99, 99, 99, 99, 47, 66, 99, 99, 99, 99, 99, 99,
                                       99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99,
                                       99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99, 99};
  const int scale = quality < 50 ? 5000 / quality : 200 - 2 * quality;
  auto sum = [scale](const int* table) {
    int total = 0;
    for (int i = 0; i < 64; ++i) total += std::clamp((table[i] * scale + 50) / 100, 1, 255);
    return total;
  };
  return {sum(kLuminance), sum(kChrominance)};
}

// Each output keeps the options it was opened with: options set later, for
// the next outputs, change nothing in a file already open, whichever writer
// reads them when (JPEG per frame, the movie encoder at its first frame).
TEST(FileTypes, OutputsKeepTheOptionsTheyWereOpenedWith) {
  test::TempDir dir;
  FrameOptions low, high;
  low.quality = 3000, high.quality = 9500;
  const test::FrameSpec spec{96, 64, 24};
  const FrameHeader header = test::MakeHeader(spec);
  const auto pixels = test::PatternFrame(spec, 0);
  FrameHandle given = nullptr, inForce = nullptr;
  ASSERT_EQ(SetOptions(3, &high), 0);
  ASSERT_EQ(OpenOutput(dir.File("given.jpg").c_str(), 1, &given, &low), 0);
  ASSERT_EQ(OpenOutput(dir.File("inforce.jpg").c_str(), 1, &inForce), 0) << "takes 95 now";
  ASSERT_EQ(SetOptions(3, &low), 0);
  ASSERT_EQ(WriteFrame(given, 0, 1, &header, nullptr, pixels.data()), 0);
  ASSERT_EQ(WriteFrame(inForce, 0, 1, &header, nullptr, pixels.data()), 0);
  CloseOutput(given);
  CloseOutput(inForce);
  std::string sums;
  ASSERT_EQ(test::RunPython("from PIL import Image\n"
                            "for name in ('given', 'inforce'):\n"
                            "  q = Image.open('" + dir.File("") + "' + name + '.jpg').quantization\n"
                            "  print(sum(q[0]), sum(q[1]))\n",
                            &sums),
            0);
  const auto [l30, c30] = QuantisationSums(30);
  const auto [l95, c95] = QuantisationSums(95);
  EXPECT_EQ(sums, std::to_string(l30) + " " + std::to_string(c30) + "\n" + std::to_string(l95) + " " +
                      std::to_string(c95) + "\n");
  FrameOptions bad = low;
  bad.quality = 10001;
  FrameHandle refused = nullptr;
  EXPECT_EQ(OpenOutput(dir.File("bad.jpg").c_str(), 1, &refused, &bad), kFkBadArgument);
  EXPECT_EQ(refused, nullptr);
  EXPECT_FALSE(std::filesystem::exists(dir.File("bad.jpg"))) << "refused before the file is made";
  FrameOptions reset;
  reset.quality = framekit::kDefaultJpegQuality;
  SetOptions(3, &reset);
}

// The descriptors agree with each other where the engine and the dialogs
// rely on it: a codec dialog has compressors to list and settings to take,
// the companion movie's type is a movie with a quality, containers are told
// apart by their magic, and the fallback is TIFF.
TEST(FileTypes, DescriptorsAgreeWithEachOther) {
  std::set<std::string> magics;
  int companions = 0;
  for (const auto& type : framekit::FileTypes()) {
    const bool dialog = framekit::Has(type, framekit::kCodecDialog);
    EXPECT_EQ(dialog, type.codecSetting != framekit::CodecSetting::kNone) << type.extension;
    EXPECT_TRUE(!dialog || !type.codecs.empty()) << type.extension;
    EXPECT_EQ(type.movie != nullptr, framekit::Has(type, framekit::kPlaybackRate)) << type.extension;
    EXPECT_TRUE(!type.container || magics.insert(type.container->magic).second) << type.extension;
    EXPECT_EQ(type.source == framekit::FrameSource::kRawFrame,
              type.metadata == framekit::MetadataPlacement::kInPixelsBigEndian)
        << type.extension;
    const framekit::FileTypeDescriptor* options = framekit::FindFileType(type.optionsType);
    ASSERT_NE(options, nullptr) << type.extension;
    EXPECT_EQ(options->codecSetting, type.codecSetting) << "options chosen by a type of the same setting";
    companions += type.companionMovie;
  }
  EXPECT_EQ(companions, 1);
  EXPECT_TRUE(framekit::CompanionMovieType().movie && framekit::CompanionMovieType().movie->qualityFromOptions);
  EXPECT_STREQ(framekit::FallbackFileType().extension, "tif");
  // What a written container says its type is, is the number of its descriptor.
  test::TempDir dir;
  for (const auto& type : framekit::FileTypes()) {
    if (!type.container || type.metadata != framekit::MetadataPlacement::kBeside) continue;
    const std::string path = dir.File(std::string("c.") + type.extension);
    ASSERT_EQ(test::WritePatternFile(path, {16, 8, 8}, 1), 0) << path;
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    ASSERT_TRUE(file) << path;
    EXPECT_EQ(file->Info().fileType, type.number) << path;
  }
}

TEST(FileTypes, WriteFrameRejectsWrongCallsWithNegativeResults) {
  test::TempDir dir;
  std::vector<std::uint8_t> pixels(64 * 64 * 6);
  const FrameHeader header = test::MakeHeader({64, 64, 8});
  EXPECT_EQ(WriteFrame(nullptr, 0, 1, &header, nullptr, pixels.data()), kFkBadHandle);
  EXPECT_EQ(CloseOutput(nullptr), kFkBadHandle);
  FrameHandle handle = nullptr;
  EXPECT_EQ(OpenOutput(dir.File("noextension").c_str(), 1, &handle), kFkUnknownType);
  EXPECT_EQ(OpenOutput(dir.File("x.xyz").c_str(), 1, &handle), kFkUnknownType);
  ASSERT_EQ(OpenOutput(dir.File("x.MPT").c_str(), 1, &handle), 0) << "extensions match without case";
  FrameHeader wrongSize = header, oddColour = header, mosaic = header;
  wrongSize.size = 1000;
  oddColour.bits = 20;  // colour depths come in threes
  mosaic.mosaic = 1;    // multipage TIFF takes no mosaic
  mosaic.bits = 24;
  for (const FrameHeader* wrong : {&wrongSize, &mosaic})
    EXPECT_EQ(WriteFrame(handle, 0, 2, wrong, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 2, 2, &header, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 0, 2, &header, nullptr, nullptr), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 0, 2, &oddColour, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(WriteFrame(handle, 0, 2, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 2, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 1, 2, &header, nullptr, pixels.data()), kFkFrameAfterEnd);
  EXPECT_EQ(CloseOutput(handle), 0);

  ASSERT_EQ(OpenOutput(dir.File("x.jpg").c_str(), 1, &handle), 0);
  FrameHeader deep = header;
  deep.bits = 16;
  EXPECT_EQ(WriteFrame(handle, 5, 10, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(WriteFrame(handle, 5, 10, &header, nullptr, pixels.data()), 0) << "index in the run";
  EXPECT_EQ(WriteFrame(handle, 6, 10, &header, nullptr, pixels.data()), kFkFrameAfterEnd) << "one frame a file";
  EXPECT_EQ(CloseOutput(handle), 0);
}

}  // namespace
}  // namespace tarnvel
