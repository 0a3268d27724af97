// tarnvel-cli from the outside: a batch of generated recordings converted in
// parallel into a destination, one of them damaged.
#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/framekit/ImageReader.h"
#include "platform/cordage/TextField.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

std::string Cli() { return (test::BinaryDir() / "apps/tarnvel-cli").string(); }

// A generated recording of `frames` frames in dir/name; returns its options.
recgen::RecordingOptions Recording(const test::TempDir& dir, const std::string& name, std::uint32_t width,
                                   std::uint32_t height, std::uint32_t frames, const std::string& baseName) {
  recgen::RecordingOptions o;
  o.folder = dir.File(name);
  o.width = width, o.height = height, o.frames = frames, o.preTrigger = 0, o.baseName = baseName;
  return o;
}

TEST(Cli, ParallelBatchIntoADestinationWithOneDamagedRecording) {
  test::TempDir dir;
  std::string batch = "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=" +
                      dir.File("out") + "\r\nFileType=-1\r\nCount=10\r\n";
  for (int i = 0; i < 10; ++i) {
    recgen::RecordingOptions o = Recording(dir, "rec" + std::to_string(i), 96, 64, 12, "shot");
    o.preTrigger = 2;
    o.fileType = i % 2 ? 11 : 1;
    ASSERT_EQ(recgen::WriteRecording(o), "");
    char key[16];
    std::snprintf(key, sizeof key, "File_%03d", i);
    batch += std::string(key) + "=" + JoinPath(o.folder, "args.ini") + "\r\n";
  }
  fs::resize_file(dir.path() / "rec7/rawdata.00.raw", 256 + 3000);  // only a few frames left
  test::WriteFile(dir.path() / "jobs.bat", batch);
  // No settings files: the parallel count comes from the command line.
  const std::string env = "TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " TARNVEL_MACHINE_REGISTRY=" + dir.File("m.reg") + " ";
  std::string output;
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 4 " + dir.File("jobs.bat"), &output), 1) << output;
  for (int i = 0; i < 10; ++i) {
    const fs::path out = dir.path() / "out" / ("rec" + std::to_string(i));
    if (i == 7) {
      EXPECT_TRUE(fs::exists(dir.path() / "rec7/rawdata.00.raw")) << "the damaged recording keeps its raw files";
      continue;
    }
    for (const char* file : i % 2 ? std::vector{"shot.mpt"} : std::vector{"shot-000002.tif", "shot000009.tif"})
      EXPECT_TRUE(fs::exists(out / file)) << out / file;
    EXPECT_TRUE(fs::exists(out / "_config.pgv")) << "profiles follow the output";
  }
  EXPECT_NE(output.find("error 101"), std::string::npos) << output;
  // The damaged job reports its end like any other, then the list marks it.
  EXPECT_NE(output.find("/rec7: Error"), std::string::npos) << output;
  EXPECT_EQ(output.find("/rec3: Error"), std::string::npos);
}

// With --listen the converter takes jobs from the suite and ends on a close
// command that finds no job left.
TEST(Cli, ListensForSuiteCommands) {
  test::TempDir dir;
  const recgen::RecordingOptions o = Recording(dir, "rec", 64, 32, 5, "sent");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string send = (test::BinaryDir() / "apps/tarnvel-send").string() + " --socket " + dir.File("s.sock");
  const std::string script =
      "TARNVEL_SOCKET=" + dir.File("s.sock") + " TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " " + Cli() +
      " --listen > " + dir.File("log") + " 2>&1 & pid=$!\n"
      "for i in $(seq 100); do [ -S " + dir.File("s.sock") + " ] && break; sleep 0.05; done\n" +
      send + " add " + JoinPath(o.folder, "args.ini") + "\n"
      "for i in $(seq 200); do " + send + " close >/dev/null; kill -0 $pid 2>/dev/null || break; sleep 0.05; done\n"
      "kill -KILL $pid 2>/dev/null; wait $pid\n";  // a close that never arrived fails the test instead of hanging it
  test::WriteFile(dir.path() / "run.sh", script);
  std::string output;
  EXPECT_EQ(test::RunCommand("sh " + dir.File("run.sh"), &output), 0) << output << test::ReadFile(dir.path() / "log");
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "sent000004.tif")) << test::ReadFile(dir.path() / "log");

  // A termination request ends a listening converter without a close command.
  const std::string stop =
      "TARNVEL_SOCKET=" + dir.File("t.sock") + " TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " " + Cli() +
      " --listen > " + dir.File("log2") + " 2>&1 & pid=$!\n"
      "for i in $(seq 100); do [ -S " + dir.File("t.sock") + " ] && break; sleep 0.05; done\n"
      "kill -TERM $pid\n"
      "for i in $(seq 100); do kill -0 $pid 2>/dev/null || break; sleep 0.05; done\n"
      "kill -KILL $pid 2>/dev/null && exit 9; wait $pid; exit 0\n";
  test::WriteFile(dir.path() / "stop.sh", stop);
  EXPECT_EQ(test::RunCommand("sh " + dir.File("stop.sh"), &output), 0) << output << test::ReadFile(dir.path() / "log2");
}

// A disk that fills up during a job: the job fails with its message, the
// multi-frame output keeps the frames it holds, the raw files stay.
TEST(Cli, FullDiskEndsTheJobWithAReadableFile) {
  test::TempDir dir;
  recgen::RecordingOptions o = Recording(dir, "rec", 256, 256, 40, "full");
  o.fileType = 11, o.deleteRaw = 1;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  // Files may grow to 1 MB: a few frames fit. The limit's signal is ignored,
  // so writes fail as on a full disk.
  std::string output;
  EXPECT_EQ(test::RunCommand("sh -c \"trap '' XFSZ; ulimit -f 1000; " + Cli() + " " + JoinPath(o.folder, "args.ini") + "\"", &output), 1)
      << output;
  EXPECT_NE(output.find("error 1"), std::string::npos) << output;
  int result = 0;
  const fs::path file = fs::path(o.folder) / "full.mpt";
  ASSERT_TRUE(fs::exists(file));
  EXPECT_LE(fs::file_size(file), 1000u * 1024);
  auto readable = framekit::OpenImageFile(file.string(), &result);
  ASSERT_TRUE(readable) << "the frames written before the disk filled stay readable";
  EXPECT_GT(readable->Info().frameCount, 0u);
  EXPECT_LT(readable->Info().frameCount, 40u);
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << "a failed job keeps its raw files";
}

TEST(Cli, AnArgumentFileNamedFromItsOwnFolder) {
  test::TempDir dir;
  const recgen::RecordingOptions o = Recording(dir, "rec", 32, 24, 3, "here");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  std::string output;
  EXPECT_EQ(test::RunCommand("cd '" + o.folder + "' && " + Cli() + " args.ini", &output), 0) << output;
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "here000002.tif")) << output;
}

// --save keeps the parallel count for later runs, as the Options dialog does.
TEST(Cli, ParallelCountSaved) {
  test::TempDir dir;
  const std::string env =
      "TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " TARNVEL_MACHINE_REGISTRY=" + dir.File("m.reg") + " ";
  std::string output;
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 3 --save", &output), 1);
  EXPECT_NE(output.find("nothing saved"), std::string::npos) << output;
  EXPECT_FALSE(fs::exists(dir.path() / "u.reg")) << "no key is ever created";
  EXPECT_EQ(test::RunCommand(env + Cli() + " --save", &output), 2) << "--save needs a count";
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 13 --save", &output), 2);

  test::WriteFile(dir.path() / "u.reg", "[Software\\OKN\\FathomBureau\\Settings]\nUseJumboPackets=0\n");
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 3 --save", &output), 0) << output;
  std::string reg = test::ReadFile(dir.path() / "u.reg");
  EXPECT_NE(reg.find("MultiThreadRawConversion=1"), std::string::npos) << reg;
  EXPECT_NE(reg.find("MultiThreadMaxRawFiles=3"), std::string::npos) << reg;
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 1 --save", &output), 0) << output;
  reg = test::ReadFile(dir.path() / "u.reg");
  EXPECT_NE(reg.find("MultiThreadRawConversion=0"), std::string::npos) << "1 turns parallel conversion off";
  EXPECT_NE(reg.find("MultiThreadMaxRawFiles=3"), std::string::npos) << "and keeps the maximum";

  // A current key without UseJumboPackets is written but not read: the user is told.
  test::WriteFile(dir.path() / "u.reg", "[Software\\OKN\\FathomBureau\\Settings]\n");
  EXPECT_EQ(test::RunCommand(env + Cli() + " --parallel 5 --save", &output), 0) << output;
  EXPECT_NE(output.find("UseJumboPackets"), std::string::npos) << output;
}

TEST(Cli, UsageAndNothingToConvert) {
  std::string output;
  EXPECT_EQ(test::RunCommand(Cli(), &output), 2);
  EXPECT_EQ(test::RunCommand(Cli() + " --parallel 0 x", &output), 2);
  test::TempDir dir;
  EXPECT_EQ(test::RunCommand(Cli() + " " + dir.File("nothing/args.ini"), &output), 1) << output;
  EXPECT_NE(output.find("error 88"), std::string::npos) << output;
}

}  // namespace
}  // namespace tarnvel
