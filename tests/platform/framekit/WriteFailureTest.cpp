// Writes that the system refuses: a folder that cannot be made, a full
// device, a disk that fills up in the middle of a file. Each gives a positive
// result (a failure of the system, not of the call), never a crash, and a cut
// file keeps what reached the disk.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <csignal>
#include <filesystem>
#include <sys/resource.h>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

const char* const kWritableTypes[] = {"tif", "bmp", "jpg", "png", "tp2", "fba", "dpx", "tga",
                                      "dng", "mpt", "mrf", "mcf", "bld", "t2c"};

TEST(WriteFailures, APathThatCannotBeCreatedLeavesNoHandleAndTheWriteFails) {
  test::TempDir dir;
  test::WriteFile(dir.File("plainfile"), "x");
  const test::FrameSpec spec{8, 8, 8};
  const FrameHeader header = test::MakeHeader(spec);
  const auto pixels = test::PatternFrame(spec, 0);
  for (const char* ext : kWritableTypes) {
    // Below a regular file, and in a folder that does not exist.
    for (const std::string& path : {dir.File("plainfile/frame.") + ext, dir.File("missing/frame.") + ext}) {
      FrameHandle handle = reinterpret_cast<FrameHandle>(1);
      EXPECT_EQ(OpenOutput(path.c_str(), 1, &handle), kFkCreateFailed) << path;
      EXPECT_EQ(handle, nullptr);
      EXPECT_LT(WriteFrame(handle, 0, 1, &header, nullptr, pixels.data()), 0) << "the first write then fails";
    }
  }
}

// /dev/full accepts the open and refuses every byte with "no space left".
TEST(WriteFailures, AFullDeviceGivesAPositiveResult) {
  if (!std::filesystem::exists("/dev/full")) GTEST_SKIP() << "no /dev/full";
  test::TempDir dir;
  for (const char* ext : kWritableTypes) {
    const std::string path = dir.File(std::string("full.") + ext);
    std::filesystem::create_symlink("/dev/full", path);
    const bool multi = framekit::FindFileTypeByExtension(ext)->capabilities & framekit::kMultiFrame;
    const int result = test::WritePatternFile(path, {64, 32, 8}, multi ? 3 : 1);
    EXPECT_GT(result, 0) << ext << ": " << result;
  }
}

class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    previous_ = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    std::signal(SIGXFSZ, previous_);
  }

 private:
  rlimit saved_{};
  void (*previous_)(int) = nullptr;
};

// A file-size limit stands in for a disk that fills up: writes past it fail
// with an error as on a full disk, without privileges or a special file system.
TEST(WriteFailures, ADiskFillingUpMidFileKeepsTheWholeFramesWritten) {
  test::TempDir dir;
  const test::FrameSpec spec{128, 64, 16};
  const std::size_t record = test::FrameBytes(spec) + kMetadataBlockSize;
  for (const char* ext : {"mrf", "mcf", "bld", "fba"}) {
    SCOPED_TRACE(ext);
    const std::string path = dir.File(std::string("cut.") + ext);
    const rlim_t limit = static_cast<rlim_t>(64 + 3 * record + record / 2);
    const FrameHeader header = test::MakeHeader(spec);
    int firstFailure = 0;
    std::uint32_t failedAt = 0;
    {
      FileSizeLimit sizeLimit(limit);
      FrameHandle handle = nullptr;
      ASSERT_EQ(OpenOutput(path.c_str(), 1, &handle), 0);
      const std::uint32_t total = 40;
      for (std::uint32_t i = 0; i < total; ++i) {
        const auto pixels = test::PatternFrame(spec, i);
        const auto block = test::PatternBlock(i);
        const int result = WriteFrame(handle, i, total, &header, block.data(), pixels.data());
        if (result != 0) {
          firstFailure = result;
          failedAt = i;
          // As the worker does: the failing frame once more, as the file's last.
          WriteFrame(handle, i, i + 1, &header, block.data(), pixels.data());
          break;
        }
      }
      CloseOutput(handle);
    }
    EXPECT_EQ(firstFailure, kFkWriteFailed);
    if (std::string(ext) != "mcf") {
      EXPECT_EQ(failedAt, 3u) << "the frame that met the full disk fails";
    }
    EXPECT_LE(std::filesystem::file_size(path), limit);
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    ASSERT_TRUE(file) << FrameKitResultText(result);
    const std::uint32_t whole = file->Info().frameCount;
    if (std::string(ext) == "mcf") {
      EXPECT_GE(whole, 3u) << "compressed frames are smaller: at least as many fit";
    } else {
      EXPECT_EQ(whole, 3u);
    }
    for (std::uint32_t i = 0; i < whole; ++i) {
      framekit::DecodedFrame frame;
      ASSERT_EQ(file->ReadFrame(i, frame), 0);
      EXPECT_TRUE(frame.pixels == test::PatternFrame(spec, i)) << i;
      EXPECT_TRUE(frame.metadata == test::PatternBlock(i)) << i;
    }
  }
}

TEST(WriteFailures, AContainerNeverClosedStillShowsItsFrames) {
  test::TempDir dir;
  const test::FrameSpec spec{32, 16, 12};
  for (const char* ext : {"mrf", "mcf"}) {
    const std::string path = dir.File(std::string("open.") + ext);
    FrameHandle handle = nullptr;
    ASSERT_EQ(OpenOutput(path.c_str(), 1, &handle), 0);
    const FrameHeader header = test::MakeHeader(spec);
    for (std::uint32_t i = 0; i < 3; ++i)
      ASSERT_EQ(WriteFrame(handle, i, 10, &header, test::PatternBlock(i).data(), test::PatternFrame(spec, i).data()), 0);
    // As after a crash: the header still counts no frames.
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    ASSERT_TRUE(file) << ext;
    EXPECT_EQ(file->Info().frameCount, 3u) << ext;
    framekit::DecodedFrame frame;
    ASSERT_EQ(file->ReadFrame(2, frame), 0);
    EXPECT_TRUE(frame.pixels == test::PatternFrame(spec, 2));
    EXPECT_EQ(CloseOutput(handle), 0);
  }
}

TEST(WriteFailures, AMultipageTiffCutShortFailsCleanly) {
  test::TempDir dir;
  const test::FrameSpec spec{256, 128, 16};
  const std::string path = dir.File("cut.mpt");
  const rlim_t limit = static_cast<rlim_t>(test::FrameBytes(spec) * 5 / 2);
  int firstFailure = 0;
  {
    FileSizeLimit sizeLimit(limit);
    firstFailure = test::WritePatternFile(path, spec, 10);
  }
  EXPECT_GT(firstFailure, 0);
  EXPECT_LE(std::filesystem::file_size(path), limit);
}

}  // namespace
}  // namespace tarnvel
