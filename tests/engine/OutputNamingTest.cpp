#include "engine/OutputNaming.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <latch>
#include <limits>
#include <set>
#include <string>
#include <thread>
#include <vector>

#include "platform/cordage/Messages.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;
using test::TempDir;
using test::WriteFile;

TEST(OutputFolder, DestinationGetsAFolderOfItsOwnPerRun) {
  TempDir dir;
  const std::string rec = dir.File("data") + "\\Sled_07";  // a recording folder named with a backslash path
  const std::string dest = dir.File("out");
  OutputFolder out;
  out.copyProfile = true;
  ASSERT_EQ(SettleOutputFolder(rec, "", out), 0);
  EXPECT_EQ(out.folder, rec) << "no destination: beside the recording";
  EXPECT_FALSE(out.copyProfile);
  EXPECT_EQ(RecordingFolderOf("D:\\rec\\args.ini"), "D:\\rec");
  EXPECT_EQ(RecordingFolderOf("args.ini"), "");
  ASSERT_EQ(SettleOutputFolder(rec, dest, out), 0);
  EXPECT_EQ(out.folder, dest + "/Sled_07");
  EXPECT_TRUE(fs::is_directory(out.folder));
  EXPECT_TRUE(out.copyProfile);
  ASSERT_EQ(SettleOutputFolder(rec, dest + "/", out), 0);
  EXPECT_EQ(out.folder, dest + "/Sled_07(001)");
  EXPECT_TRUE(fs::is_directory(out.folder));
  ASSERT_EQ(SettleOutputFolder(rec, dest, out), 0);
  EXPECT_EQ(out.folder, dest + "/Sled_07(002)");
  // A gap is filled first.
  fs::remove(dest + "/Sled_07(001)");
  ASSERT_EQ(ChooseOutputFolder(rec, dest, out), 0);
  EXPECT_EQ(out.folder, dest + "/Sled_07(001)");
}

TEST(OutputFolder, AllNumbersTakenKeepsThePlainFolder) {
  TempDir dir;
  const std::string dest = dir.File("out");
  fs::create_directories(dest + "/R");
  for (int n = 1; n <= 999; ++n) {
    char name[16];
    std::snprintf(name, sizeof name, "R(%03d)", n);
    fs::create_directory(dest + "/" + name);
  }
  OutputFolder out;
  ASSERT_EQ(SettleOutputFolder("/rec/R", dest, out), 0);
  EXPECT_EQ(out.folder, dest + "/R");
}

// Jobs of several processes (array tasks on several machines) settle folders
// of one name in one destination at once: each must get its own, or two
// recordings would write into one folder.
TEST(OutputFolder, JobsSettlingAtOnceEachGetAFolderOfTheirOwn) {
  TempDir dir;
  const std::string dest = dir.File("shared/out");
  fs::create_directories(dest);
  WriteFile(dest + "/cam(002)", "a file takes a number too");
  constexpr int kThreads = 8, kJobsEach = 25;
  std::vector<std::vector<std::string>> folders(kThreads);
  std::latch start(kThreads);
  std::vector<std::thread> threads;
  for (int t = 0; t < kThreads; ++t)
    threads.emplace_back([&, t] {
      start.arrive_and_wait();
      for (int i = 0; i < kJobsEach; ++i) {
        OutputFolder out;
        if (SettleOutputFolder("/data/test/cam", dest, out) == 0) folders[t].push_back(out.folder);
      }
    });
  for (auto& thread : threads) thread.join();
  std::set<std::string> distinct;
  for (const auto& list : folders)
    for (const std::string& folder : list) {
      EXPECT_TRUE(fs::is_directory(folder)) << folder;
      distinct.insert(folder);
    }
  EXPECT_EQ(distinct.size(), std::size_t{kThreads * kJobsEach}) << "a folder was given to two jobs, or a job failed";
  EXPECT_EQ(distinct.count(dest + "/cam(002)"), 0u);
  EXPECT_EQ(distinct.count(dest + "/cam(200)"), 1u) << "numbers are used without gaps";
}

TEST(OutputFolder, FailuresAndCaseOfTheComparison) {
  TempDir dir;
  WriteFile(dir.path() / "file", "x");
  OutputFolder out;
  EXPECT_EQ(SettleOutputFolder("/rec/R", dir.File("file"), out), kMsgOutputFolderFailed)
      << "a file stands where the folder should go";
  EXPECT_EQ(out.folder, dir.File("file") + "/R") << "the folder for the message";

  // An output folder that equals the recording folder in another case: no profile copy.
  const std::string rec = dir.File("Cams") + "/Rec";
  ASSERT_EQ(ChooseOutputFolder(rec, dir.File("CAMS"), out), 0);
  EXPECT_EQ(out.folder, dir.File("CAMS") + "/Rec");
  EXPECT_FALSE(out.copyProfile);

  // Too long: refused, not cut. 259 characters fit, 260 don't.
  const std::string base = dir.File("d");
  const std::string fits = std::string(kMaxFolderPath - base.size() - 1, 'f');
  ASSERT_EQ(ChooseOutputFolder("/r/" + fits, base, out), 0);
  EXPECT_EQ(out.folder.size(), kMaxFolderPath);
  EXPECT_EQ(SettleOutputFolder("/r/" + fits + "g", base, out), kMsgOutputFolderFailed);
  EXPECT_FALSE(fs::exists(base)) << "nothing created for a refused folder";
  // The plain folder fits, but its numbered form does not.
  fs::create_directories(base + "/" + fits);
  EXPECT_EQ(ChooseOutputFolder("/r/" + fits, base, out), kMsgOutputFolderFailed);
  EXPECT_EQ(ChooseOutputFolder(std::string(300, 'r'), "", out), kMsgOutputFolderFailed);
}

TEST(OutputNames, FrameFiles) {
  EXPECT_EQ(FrameFileName("Sled_", -1, "tif"), "Sled_-000001.tif");
  EXPECT_EQ(FrameFileName("Sled_", -12, "tif"), "Sled_-000012.tif") << "the sign takes one of seven places";
  EXPECT_EQ(FrameFileName("Sled_", 1234567, "tif"), "Sled_1234567.tif");
  EXPECT_EQ(FrameFileName("S", std::numeric_limits<std::int32_t>::min(), "png"), "S-2147483648.png");
  EXPECT_EQ(FrameOutputPath("/o/", "S", 5, "bmp"), "/o/S000005.bmp");
  // Names that would leave the folder, and names past the limits.
  EXPECT_EQ(FrameFileName("a/b", 1, "tif"), std::nullopt);
  EXPECT_EQ(FrameFileName("..", 1, "tif"), std::nullopt);
  const std::string stem244(244, 's');  // 244 + 6 digits + ".tif" = 254
  EXPECT_TRUE(FrameFileName(stem244 + "s", 1, "tif").has_value()) << "255 characters fit a file name";
  EXPECT_FALSE(FrameFileName(stem244 + "ss", 1, "tif").has_value());
  const std::string folder(kMaxFilePath - 16, 'f');  // "/" + "S000001.tif" = 12 more: 256 fits
  EXPECT_TRUE(FrameOutputPath(folder, "SSSSS", 1, "tif").has_value()) << "260 characters fit a file path";
  EXPECT_FALSE(FrameOutputPath(folder, "SSSSSS", 1, "tif").has_value());
}

TEST(OutputNames, MultiFrameFileAndTimeSidecar) {
  TempDir dir;
  const std::string out = dir.path().string();
  EXPECT_EQ(MultiFrameOutputPath(out, "Run", "mpt"), out + "/Run.mpt");
  WriteFile(dir.path() / "Run.mpt", "first run");
  EXPECT_EQ(MultiFrameOutputPath(out, "Run", "mpt"), out + "/Run(00).mpt");
  WriteFile(dir.path() / "Run(00).mpt", "second run");
  EXPECT_EQ(MultiFrameOutputPath(out, "Run", "mpt"), out + "/Run(00).mpt") << "a third run overwrites (00)";
  EXPECT_EQ(MultiFrameOutputPath(out, "../Run", "mpt"), std::nullopt);

  EXPECT_EQ(TimeSidecarPath(out, "Run"), out + "/Run.time.xml");
  WriteFile(dir.path() / "Run.time.xml", "x");
  EXPECT_EQ(TimeSidecarPath(out, "Run"), out + "/Run_t.time.xml");
  WriteFile(dir.path() / "Run_t.time.xml", "x");
  EXPECT_EQ(TimeSidecarPath(out, "Run"), out + "/Run_t.time.xml");
  EXPECT_EQ(ShownName("Run", "avi"), "Run.avi");
  EXPECT_EQ(ChannelDataPath("/rec", "Run", 1), "/rec/Run.DAT");
  EXPECT_EQ(ChannelDataPath("/rec", "Run", 7), "/rec/Run.CSV");
  EXPECT_EQ(ChannelDataPath("/rec", "Run", 8), std::nullopt);
}

TEST(OutputNames, CompanionMovie) {
  TempDir dir;
  const std::string out = dir.path().string();
  EXPECT_EQ(CompanionMoviePath(out, "", "CamA", 1, "CamA", "tif"), out + "/CamA.avi");
  // Type 13 with the device name equal to the base name: the movie ends in (01).avi.
  EXPECT_EQ(CompanionMoviePath(out, "", "CamA", 13, "CamA", "avi"), out + "/CamA(01).avi");
  EXPECT_EQ(CompanionMoviePath(out, "", "CamA", 13, "cama", "AVI"), out + "/CamA(01).avi") << "case aside";
  EXPECT_EQ(CompanionMoviePath(out, "", "CamA", 13, "Run", "avi"), out + "/CamA.avi");
  // Arg32 is taken as it stands, and compared as a path.
  const std::string other = out + "\\movies\\Left.avi";
  EXPECT_EQ(CompanionMoviePath(out, other, "CamA", 1, "Left", "avi"), other);
  EXPECT_EQ(CompanionMoviePath(out, out + "\\Left.avi", "CamA", 13, "Left", "avi"), out + "\\Left(01).avi");
  // The comparison uses the plain main path even when the main file moved to (00).
  WriteFile(dir.path() / "CamA.avi", "earlier run");
  EXPECT_EQ(CompanionMoviePath(out, "", "CamA", 13, "CamA", "avi"), out + "/CamA(01).avi");
  EXPECT_EQ(CompanionMoviePath(out, "", "a/b", 1, "x", "tif"), std::nullopt);
  EXPECT_EQ(CompanionMoviePath(out, std::string(kMaxFolderPath + 1, 'm'), "CamA", 1, "x", "tif"), std::nullopt);

  // The folders of an Arg32 elsewhere are made; the main output isn't touched.
  const std::string movie = out + "/far/away/movie.avi";
  EnsurePath(movie);
  EXPECT_TRUE(fs::is_directory(out + "/far/away"));
  EXPECT_FALSE(fs::exists(movie));
  EnsurePath("bare-name.avi");  // no folder part: nothing to make
  WriteFile(dir.path() / "blocker", "x");
  EnsurePath(out + "/blocker/m.avi");  // failures are left to the file's opening
  EXPECT_TRUE(fs::is_regular_file(out + "/blocker"));
}

}  // namespace
}  // namespace tarnvel
