// Writes the system refuses (no folder, a full device, a disk filling up) give a
// positive result, never a crash, and a cut file keeps what reached the disk.
#include <gtest/gtest.h>

#include <filesystem>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// Every type of the table, movies and Chapter 10 included.
TEST(WriteFailures, UncreatablePathsAndAFullDeviceFailEveryType) {
  test::TempDir dir;
  test::WriteFile(dir.File("plainfile"), "x");
  const test::FrameSpec spec{8, 8, 8};
  const FrameHeader header = test::MakeHeader(spec);
  const auto pixels = test::PatternFrame(spec, 0);
  for (const auto& row : framekit::FileTypes()) {
    const std::string ext = row.extension;
    // Below a regular file, and in a folder that does not exist: no handle, and the first write fails.
    for (const std::string& path : {dir.File("plainfile/frame.") + ext, dir.File("missing/frame.") + ext}) {
      FrameHandle handle = reinterpret_cast<FrameHandle>(1);
      EXPECT_EQ(OpenOutput(path.c_str(), 1, &handle), kFkCreateFailed) << path;
      EXPECT_EQ(handle, nullptr);
      EXPECT_LT(WriteFrame(handle, 0, 1, &header, nullptr, pixels.data()), 0);
    }
    // The same frames that a regular file takes (at a rate every movie type takes).
    const test::FrameSpec small{64, 32, 8, false, 0, 25.0f};
    const std::uint32_t frames = row.capabilities & framekit::kMultiFrame ? 3 : 1;
    ASSERT_EQ(test::WritePatternFile(dir.File("fine." + ext), small, frames), 0) << ext;
    const std::string full = dir.File("full." + ext);
    EXPECT_TRUE(!test::LinkToFullDevice(full) || test::WritePatternFile(full, small, frames) > 0) << ext;
  }
}

TEST(WriteFailures, ADiskFillingUpMidFileKeepsTheWholeFramesWritten) {
  test::TempDir dir;
  const test::FrameSpec spec{128, 64, 16};
  const FrameHeader header = test::MakeHeader(spec);
  const std::size_t record = test::FrameBytes(spec) + kMetadataBlockSize;
  const std::uintmax_t limit = 64 + 3 * record + record / 2;
  for (const std::string ext : {"mrf", "mcf", "bld", "fba"}) {
    SCOPED_TRACE(ext);
    const std::string path = dir.File("cut." + ext);
    std::uint32_t failedAt = 0;
    const int firstFailure = test::WriteWithSizeLimit(limit, [&] {
      FrameHandle handle = nullptr;
      int result = OpenOutput(path.c_str(), 1, &handle);
      for (std::uint32_t i = 0; i < 40 && result == 0; ++i) {
        const auto pixels = test::PatternFrame(spec, i);
        const auto block = test::PatternBlock(i);
        result = WriteFrame(handle, i, 40, &header, block.data(), pixels.data());
        failedAt = i;
        // As the worker does: the failing frame once more, as the file's last.
        if (result != 0) WriteFrame(handle, i, i + 1, &header, block.data(), pixels.data());
      }
      CloseOutput(handle);
      return result;
    });
    EXPECT_EQ(firstFailure, kFkWriteFailed);
    EXPECT_LE(std::filesystem::file_size(path), limit);
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    ASSERT_TRUE(file) << FrameKitResultText(result);
    const std::uint32_t whole = file->Info().frameCount;
    // Compressed frames are smaller: at least as many fit. Otherwise the frame that met the full disk fails.
    EXPECT_TRUE(ext == "mcf" ? whole >= 3 : failedAt == 3 && whole == 3) << failedAt << " " << whole;
    for (std::uint32_t i = 0; i < whole; ++i) {
      framekit::DecodedFrame frame;
      ASSERT_EQ(file->ReadFrame(i, frame), 0);
      EXPECT_TRUE(frame.pixels == test::PatternFrame(spec, i)) << i;
      EXPECT_TRUE(frame.metadata == test::PatternBlock(i)) << i;
    }
  }
}

// A multipage TIFF (classic, and BigTIFF when the frames announced would pass
// 4 GiB) cut short by a full disk ends at its last whole page: tiffinfo walks
// the chain without an error and every page holds its frame.
TEST(WriteFailures, AMultipageTiffCutShortEndsAtItsLastWholePage) {
  test::TempDir dir;
  const test::FrameSpec spec{256, 128, 16};
  const FrameHeader header = test::MakeHeader(spec);
  const std::uintmax_t limit = test::FrameBytes(spec) * 5 / 2;
  for (const std::uint32_t announced : {10u, 1u << 17}) {
    const std::string tiff = dir.File("cut" + std::to_string(announced) + ".mpt");
    const int failure = test::WriteWithSizeLimit(limit, [&] {
      FrameHandle handle = nullptr;
      int result = OpenOutput(tiff.c_str(), 1, &handle);
      for (std::uint32_t i = 0; i < 10 && result == 0; ++i)
        result = WriteFrame(handle, i, announced, &header, test::PatternBlock(i).data(), test::PatternFrame(spec, i).data());
      const int closed = CloseOutput(handle);
      return result != 0 ? result : closed;
    });
    EXPECT_EQ(failure, kFkWriteFailed) << announced;
    EXPECT_LE(std::filesystem::file_size(tiff), limit);
    std::string listing;
    EXPECT_EQ(test::RunCommand("tiffinfo " + tiff + " 2>&1", &listing), 0) << listing;
    EXPECT_EQ(listing.find("rror"), std::string::npos) << listing;
    std::size_t pages = 0;
    for (std::size_t at = 0; (at = listing.find("TIFF Directory", at)) != std::string::npos; ++at) ++pages;
    EXPECT_EQ(pages, 2u) << "two whole frames fit below the limit";
    int result = 0;
    auto file = framekit::OpenImageFile(tiff, &result);
    ASSERT_TRUE(file) << FrameKitResultText(result);
    ASSERT_EQ(file->Info().frameCount, 2u);
    for (std::uint32_t i = 0; i < 2; ++i) {
      framekit::DecodedFrame frame;
      ASSERT_EQ(file->ReadFrame(i, frame), 0);
      EXPECT_TRUE(frame.pixels == test::PatternFrame(spec, i)) << i;
    }
  }
  // Not even one page fits: the file is left empty rather than a TIFF without pages.
  const std::string none = dir.File("none.mpt");
  EXPECT_GT(test::WriteWithSizeLimit(test::FrameBytes(spec) / 2, [&] { return test::WritePatternFile(none, spec, 4); }), 0);
  EXPECT_EQ(std::filesystem::file_size(none), 0u);
}

TEST(WriteFailures, AContainerNeverClosedStillShowsItsFrames) {
  test::TempDir dir;
  const test::FrameSpec spec{32, 16, 12};
  const FrameHeader header = test::MakeHeader(spec);
  for (const char* ext : {"mrf", "mcf"}) {
    const std::string path = dir.File(std::string("open.") + ext);
    FrameHandle handle = nullptr;
    ASSERT_EQ(OpenOutput(path.c_str(), 1, &handle), 0);
    for (std::uint32_t i = 0; i < 3; ++i) {
      const auto pixels = test::PatternFrame(spec, i);
      ASSERT_EQ(WriteFrame(handle, i, 10, &header, test::PatternBlock(i).data(), pixels.data()), 0);
    }
    // As after a crash: the header still counts no frames.
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    framekit::DecodedFrame frame;
    ASSERT_TRUE(file && file->Info().frameCount == 3u && file->ReadFrame(2, frame) == 0) << ext;
    EXPECT_TRUE(frame.pixels == test::PatternFrame(spec, 2));
    EXPECT_EQ(CloseOutput(handle), 0);
  }
}

}  // namespace
}  // namespace tarnvel
