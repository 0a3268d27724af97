// The file-type table's answers the engine relies on, options under concurrent
// use, compressor lists and the operations' argument checks.
#include <gtest/gtest.h>

#include <atomic>
#include <thread>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
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
