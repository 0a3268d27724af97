// tarnvel-cli from the outside: a batch of generated recordings converted in
// parallel into a destination, one of them damaged.
#include <gtest/gtest.h>

#include <cstdio>
#include <filesystem>
#include <set>
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

// A batch file of `entries` (path per entry number; empty: no key) into `dest`.
std::string BatchText(const std::string& dest, const std::vector<std::string>& entries) {
  std::string text = "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nDestinationFolder=" + dest +
                     "\r\nFileType=-1\r\nCount=" + std::to_string(entries.size()) + "\r\n";
  for (std::size_t i = 0; i < entries.size(); ++i) {
    char key[32];
    std::snprintf(key, sizeof key, "File_%03zu", i);
    if (!entries[i].empty()) text += std::string(key) + "=" + entries[i] + "\r\n";
  }
  return text;
}

// Array tasks on several nodes converting recordings of one folder name
// into one destination at once: each ends in a folder of its own.
TEST(Cli, BatchEntriesAtOnceIntoOneDestination) {
  test::TempDir dir;
  std::vector<std::string> entries;
  std::string script;
  for (int i = 0; i < 8; ++i) {
    // Frame counts tell the recordings apart in their output folders.
    const recgen::RecordingOptions o = Recording(dir, "test" + std::to_string(i) + "/cam", 32, 24, 3 + i, "f");
    ASSERT_EQ(recgen::WriteRecording(o), "");
    entries.push_back(JoinPath(o.folder, "args.ini"));
    script += Cli() + " --batch-entry " + std::to_string(i) + " " + dir.File("b.bat") + " > " +
              dir.File("log" + std::to_string(i)) + " 2>&1 &\n";
  }
  test::WriteFile(dir.path() / "b.bat", BatchText(dir.File("out"), entries));
  test::WriteFile(dir.path() / "run.sh", script + "wait\n");
  ASSERT_EQ(test::RunCommand("sh " + dir.File("run.sh")), 0);
  std::set<std::size_t> frameCounts;
  for (const auto& folder : fs::directory_iterator(dir.path() / "out")) {
    std::size_t frames = 0;
    for (const auto& file : fs::directory_iterator(folder)) frames += file.path().extension() == ".tif";
    frameCounts.insert(frames);
  }
  EXPECT_EQ(frameCounts, (std::set<std::size_t>{3, 4, 5, 6, 7, 8, 9, 10})) << "eight folders, one recording each";
  for (int i = 0; i < 8; ++i) {
    const std::string log = test::ReadFile(dir.path() / ("log" + std::to_string(i)));
    EXPECT_NE(log.find("tarnvel-cli: entry " + std::to_string(i) + " ended Done\n"), std::string::npos) << log;
  }
}

TEST(Cli, BatchEntryRefusals) {
  test::TempDir dir;
  const recgen::RecordingOptions o = Recording(dir, "rec", 32, 24, 3, "f");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string args = JoinPath(o.folder, "args.ini");
  test::WriteFile(dir.path() / "b.bat", BatchText(dir.File("out"), {args, "", args}));
  test::WriteFile(dir.path() / "blocker", "x");
  test::WriteFile(dir.path() / "blocked.bat", BatchText(dir.File("blocker/out"), {args}));
  test::WriteFile(dir.path() / "other.bat", "[List]\r\nSignature=Another program's list\r\nCount=1\r\nFile_000=" + args + "\r\n");
  const std::string batch = " " + dir.File("b.bat");
  for (const std::string& bad : {" --batch-entry x" + batch, " --batch-entry -1" + batch, " --batch-entry 100000" + batch,
                                batch + " --batch-entry", " --batch-entry 0" + batch + batch,
                                " --listen --batch-entry 0" + batch, " --batch-entry 0 " + args,
                                " --batch-entry 0 --type png" + batch}) {
    std::string output;
    EXPECT_EQ(test::RunCommand(Cli() + bad, &output), 2) << bad << output;
    EXPECT_NE(output.find("Try 'tarnvel-cli --help'"), std::string::npos) << output;
  }
  const std::pair<std::string, std::string> failures[] = {
      {" --batch-entry 1" + batch, "tarnvel-cli: entry 1 ended Error: the batch " + dir.File("b.bat") + " has no entry 1"},
      {" --batch-entry 5" + batch, "ended Error: the batch"},
      {" --batch-entry 0 " + dir.File("other.bat"), "tarnvel-cli: entry 0 ended Error: " + dir.File("other.bat") + " is not a batch file"},
      {" --batch-entry 0 " + dir.File("blocked.bat"), "tarnvel-cli: entry 0 ended Error, message 33: "},
  };
  for (const auto& [command, wanted] : failures) {
    std::string output;
    EXPECT_EQ(test::RunCommand(Cli() + command, &output), 1) << command;
    EXPECT_NE(output.find(wanted), std::string::npos) << output;
  }
  EXPECT_TRUE(fs::is_regular_file(args)) << "nothing was converted, so nothing deleted";
  EXPECT_FALSE(fs::exists(dir.path() / "out/rec")) << "nothing was converted";
}

// A task cancelled by its scheduler (a termination request) ends its entry
// as "Abort" and keeps the raw files. The recording has so many frames
// that the request comes long before its end.
TEST(Cli, BatchEntryTerminatedEndsAsAbort) {
  test::TempDir dir;
  recgen::RecordingOptions o = Recording(dir, "rec", 16, 8, 20000, "f");
  o.deleteRaw = 1;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  test::WriteFile(dir.path() / "b.bat", BatchText(dir.File("out"), {JoinPath(o.folder, "args.ini")}));
  const std::string log = dir.File("log");
  const std::string script =
      Cli() + " --batch-entry 0 " + dir.File("b.bat") + " > " + log + " 2>&1 & pid=$!\n"
      "for i in $(seq 400); do grep -q Converting " + log + " && break; sleep 0.05; done\n"
      "kill -TERM $pid\n"
      "for i in $(seq 400); do kill -0 $pid 2>/dev/null || break; sleep 0.05; done\n"
      "kill -KILL $pid 2>/dev/null; wait $pid\n";  // a request that is not heard fails the test instead of hanging it
  test::WriteFile(dir.path() / "run.sh", script);
  EXPECT_EQ(test::RunCommand("sh " + dir.File("run.sh")), 1);
  const std::string output = test::ReadFile(log);
  EXPECT_NE(output.find("tarnvel-cli: entry 0 ended Abort, message 107: "), std::string::npos) << output;
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << "an aborted job keeps its raw files";
  EXPECT_FALSE(fs::exists(dir.path() / "out/rec/f019999.tif"));
}

// The whole road of a cluster batch without a cluster: an sbatch that runs
// the array's tasks itself, one after another, with their logs where Slurm
// would write them.
TEST(Cli, SlurmSubmissionAndReportThroughAStandInScheduler) {
  test::TempDir dir;
  fs::create_directory(dir.path() / "bin");
  test::WriteFile(dir.path() / "bin/sbatch", R"(#!/usr/bin/env python3
import os, subprocess, sys
options = dict(a.split("=", 1) for a in sys.argv[1:-1] if "=" in a)
tasks = []
for part in options["--array"].split("%")[0].split(","):
    low, _, high = part.partition("-")
    tasks += range(int(low), int(high or low) + 1)
for task in tasks:
    pattern, log = options["--output"], ""
    i = 0
    while i < len(pattern):
        two = pattern[i:i + 2]
        log += {"%A": "77", "%a": str(task), "%%": "%"}.get(two, pattern[i])
        i += 2 if two in ("%A", "%a", "%%") else 1
    with open(log, "w") as out:
        subprocess.run(["sh", sys.argv[-1]], stdout=out, stderr=subprocess.STDOUT, cwd=options["--chdir"],
                       env=dict(os.environ, SLURM_ARRAY_TASK_ID=str(task)))
print("77;stand-in")
)");
  fs::permissions(dir.path() / "bin/sbatch", fs::perms::owner_all);
  std::vector<std::string> entries;
  for (int i = 0; i < 3; ++i) {
    recgen::RecordingOptions o = Recording(dir, "night 100%/cam" + std::to_string(i), 32, 24, 4, "f");
    o.deleteRaw = 1;
    ASSERT_EQ(recgen::WriteRecording(o), "");
    entries.push_back(JoinPath(o.folder, "args.ini"));
  }
  entries.insert(entries.begin() + 1, "");  // a gap in the numbers
  fs::resize_file(dir.path() / "night 100%/cam2/rawdata.00.raw", 1000);
  const std::string batch = " '" + dir.File("night 100%/list.bat") + "'";
  test::WriteFile(dir.File("night 100%/list.bat"), BatchText(dir.File("out"), entries));
  const std::string env = "PATH=" + dir.File("bin") + ":$PATH ";

  std::string output;
  EXPECT_EQ(test::RunCommand(env + Cli() + " --slurm" + batch + " --max-tasks 2 2>/dev/null", &output), 0) << output;
  EXPECT_EQ(output.substr(output.size() - 3), "77\n") << "the job id comes last, alone on its line";
  output.clear();
  EXPECT_EQ(test::RunCommand(Cli() + " --slurm-report 77" + batch, &output), 1);
  EXPECT_NE(output.find("entry 0 (" + entries[0] + "): Done\n"), std::string::npos) << output;
  EXPECT_NE(output.find("entry 2 (" + entries[2] + "): Done\n"), std::string::npos) << output;
  EXPECT_NE(output.find("entry 3 (" + entries[3] + "): Error, message 101: "), std::string::npos) << output;
  EXPECT_NE(output.find("2 of 3 entries Done\n"), std::string::npos) << output;
  EXPECT_FALSE(fs::exists(dir.path() / "night 100%/cam0/rawdata.00.raw")) << "converted: raw files deleted as asked";
  EXPECT_TRUE(fs::exists(dir.path() / "night 100%/cam2/rawdata.00.raw")) << "failed: raw files kept";
  EXPECT_TRUE(fs::exists(dir.path() / "out/cam0/f000003.tif"));

  // Once the failed entry converts, the report says all is well.
  test::WriteFile(dir.path() / "night 100%/list-logs/77_3.log", "tarnvel-cli: entry 3 ended Done\n");
  EXPECT_EQ(test::RunCommand(Cli() + " --slurm-report 77" + batch, &output), 0) << output;
  output.clear();
  EXPECT_EQ(test::RunCommand(Cli() + " --slurm-report 78" + batch, &output), 1) << "no log of another job counts";
  EXPECT_NE(output.find("0 of 3 entries Done"), std::string::npos) << output;
}

TEST(Cli, SlurmCommandRefusals) {
  test::TempDir dir;
  test::WriteFile(dir.path() / "b.bat", BatchText(dir.File("out"), {"/data/a/args.ini"}));
  test::WriteFile(dir.path() / "empty.bat", BatchText(dir.File("out"), {}));
  test::WriteFile(dir.path() / "relative.bat", BatchText(dir.File("out"), {"/data/a/args.ini", "data/b/args.ini"}));
  test::WriteFile(dir.path() / "blocker", "x");
  test::WriteFile(dir.path() / "blocked.bat", BatchText(dir.File("blocker/out"), {"/data/a/args.ini"}));
  const std::string b = " " + dir.File("b.bat");
  for (const std::string& bad : std::vector<std::string>{" --slurm", " --slurm-report 12", " --slurm-report ../12" + b, " --slurm" + b + " --slurm-report 12" + b,
                                " --slurm" + b + " --max-tasks 0", " --slurm" + b + " --max-tasks 2x",
                                " --slurm" + b + " --sbatch-arg --output=/tmp/x", " --slurm" + b + " --sbatch-arg -a1-4",
                                " --slurm-report 12" + b + " --partition p", " --slurm" + b + " /data/x/args.ini",
                                " --slurm" + b + " --partition"}) {
    std::string output;
    EXPECT_EQ(test::RunCommand(Cli() + bad, &output), 2) << bad << output;
    EXPECT_NE(output.find("Try 'tarnvel-cli --help'"), std::string::npos) << output;
  }
  // Refused before anything is submitted: an sbatch that is never there would fail otherwise.
  const std::pair<std::string, std::string> failures[] = {
      {" --slurm " + dir.File("empty.bat"), "lists no job files"},
      {" --slurm " + dir.File("relative.bat"), "entry 1 (data/b/args.ini) is not a whole path"},
      {" --slurm " + dir.File("blocked.bat"), "error 33: "},
      {" --slurm /data/a/args.ini", "is not a batch file"},
      {" --slurm-report 12 " + dir.File("missing.bat"), "is not a batch file"},
  };
  for (const auto& [command, wanted] : failures) {
    std::string output;
    EXPECT_EQ(test::RunCommand("PATH=/nonexistent " + Cli() + command, &output), 1) << command;
    EXPECT_NE(output.find(wanted), std::string::npos) << output;
  }
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

// The natural mistakes with an argument file, on every way in: the folder
// instead of its args.ini, on the command line, in a batch and through the
// suite's socket. Each ends with message 91 and the raw files stay; a batch
// file without its signature is named, not passed over in silence.
TEST(Cli, ArgumentFileMistakesOnEveryWayInKeepTheRawFiles) {
  test::TempDir dir;
  recgen::RecordingOptions o = Recording(dir, "rec", 32, 24, 4, "kept");
  o.deleteRaw = 1;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string before = test::RawFilesFingerprint(o.folder);
  const std::string env = "TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " ";
  std::string output;
  EXPECT_EQ(test::RunCommand(env + Cli() + " " + o.folder + "/", &output), 1) << output;
  EXPECT_NE(output.find("error 91: "), std::string::npos) << output;
  EXPECT_NE(output.find("is a folder"), std::string::npos) << output;
  test::WriteFile(dir.path() / "jobs.bat", "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\nCount=1\r\nFile_000=" +
                                             o.folder + "\r\n");
  output.clear();
  EXPECT_EQ(test::RunCommand(env + Cli() + " " + dir.File("jobs.bat"), &output), 1) << output;
  EXPECT_NE(output.find("error 91: "), std::string::npos) << output;
  test::WriteFile(dir.path() / "wrong.bat", "[List]\r\nSignature=something else\r\nCount=1\r\nFile_000=" + o.folder + "\r\n");
  output.clear();
  EXPECT_EQ(test::RunCommand(env + Cli() + " " + dir.File("wrong.bat"), &output), 1) << output;
  EXPECT_NE(output.find("warning 1064: " + dir.File("wrong.bat")), std::string::npos) << output;

  const std::string socket = dir.File("s.sock");
  const std::string send = (test::BinaryDir() / "apps/tarnvel-send").string() + " --socket " + socket;
  const std::string script =
      "TARNVEL_SOCKET=" + socket + " " + env + Cli() + " --listen > " + dir.File("log") + " 2>&1 & pid=$!\n"
      "for i in $(seq 100); do [ -S " + socket + " ] && break; sleep 0.05; done\n" +
      send + " add " + o.folder + "\n"
      "for i in $(seq 200); do " + send + " close >/dev/null; kill -0 $pid 2>/dev/null || break; sleep 0.05; done\n"
      "kill -KILL $pid 2>/dev/null; wait $pid\n";
  test::WriteFile(dir.path() / "run.sh", script);
  test::RunCommand("sh " + dir.File("run.sh"), &output);
  EXPECT_NE(test::ReadFile(dir.path() / "log").find("error 91: "), std::string::npos) << test::ReadFile(dir.path() / "log");
  EXPECT_EQ(test::RawFilesFingerprint(o.folder), before);

  // A socket that others could reach is refused, and --listen ends at once.
  const std::string open = dir.File("open");
  fs::create_directory(open);
  fs::permissions(open, fs::perms::owner_all | fs::perms::group_read | fs::perms::group_exec |
                            fs::perms::others_read | fs::perms::others_exec);
  output.clear();
  EXPECT_EQ(test::RunCommand("TARNVEL_SOCKET=" + open + "/t.sock timeout 20 " + Cli() + " --listen", &output), 1) << output;
  EXPECT_NE(output.find("error 93: "), std::string::npos) << output;
}

// Every frame under way reads on a driver handle of its own with the store's
// files open. A low soft limit on open files is raised to the hard one; a low
// hard limit means fewer frames under way, or frames that fail cleanly: never a
// crash, never a lost raw file.
TEST(Cli, FewFileDescriptorsAndManyWorkers) {
  test::TempDir dir;
  recgen::RecordingOptions o = Recording(dir, "rec", 32, 24, 30, "seg");
  o.framesPerSegment = 5, o.deleteRaw = 1;  // six store files per handle
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string raw = test::RawFilesFingerprint(o.folder);
  auto frames = [&] {
    int count = 0;
    for (const auto& entry : fs::directory_iterator(o.folder)) count += entry.path().extension() == ".tif";
    return count;
  };
  const std::string run = "TARNVEL_FRAME_WORKERS=64 " + Cli() + " " + JoinPath(o.folder, "args.ini");
  std::string output;
  for (const char* hard : {"20", "12"}) {
    SCOPED_TRACE(hard);
    const int status = test::RunCommand("ulimit -n " + std::string(hard) + " && " + run + " 2>&1", &output);
    EXPECT_TRUE(status == 0 || status == 1) << status << output;
    EXPECT_EQ(test::RawFilesFingerprint(o.folder), raw) << "raw files deleted by a run under a hard limit\n" << output;
    if (status == 0) {
      EXPECT_EQ(frames(), 30) << output;
    }
    for (const auto& entry : fs::directory_iterator(o.folder))
      if (entry.path().extension() == ".tif") fs::remove(entry.path());
  }
  EXPECT_EQ(test::RunCommand("ulimit -Sn 16 && " + run + " 2>&1", &output), 0) << output;
  EXPECT_EQ(frames(), 30);
  EXPECT_FALSE(fs::exists(JoinPath(o.folder, "rawdata.00.raw"))) << "a whole conversion deletes them, as asked";
}

// A termination request or a second Ctrl-C during a run: the running jobs end
// with Abort and close their outputs in good order, no waiting job starts,
// every raw file stays. The recordings are long (many small frames), so the
// signal comes while the first jobs still run; the sanitizers' slower
// converter needs fewer.
#ifdef TARNVEL_SANITIZED
constexpr std::uint32_t kLongRecording = 5000;
#else
constexpr std::uint32_t kLongRecording = 20000;
#endif

TEST(Cli, TerminationAbortsTheRunningJobsAndStartsNoOther) {
  test::TempDir dir;
  std::vector<recgen::RecordingOptions> recordings;
  std::vector<std::string> before;
  std::string paths;
  for (int i = 0; i < 4; ++i) {
    recgen::RecordingOptions o = Recording(dir, "rec" + std::to_string(i), 32, 24, kLongRecording, "long");
    o.fileType = 11, o.deleteRaw = 1;
    ASSERT_EQ(recgen::WriteRecording(o), "");
    before.push_back(test::RawFilesFingerprint(o.folder));
    paths += " " + JoinPath(o.folder, "args.ini");
    recordings.push_back(o);
  }
  struct Case {
    const char* name;
    const char* options;
    int running;  // jobs that run when the signal comes
    const char* signal;
  };
  const Case cases[] = {{"TERM, parallel", "--parallel 2", 2, "kill -TERM $pid"},
                        {"INT twice", "", 1, "kill -INT $pid; sleep 0.05; kill -INT $pid"},
                        {"HUP, parallel", "--parallel 2", 2, "kill -HUP $pid"}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    // A fresh log per case: the wait below must not see the last case's lines.
    const std::string log = dir.File("log-" + std::to_string(&c - cases));
    const std::string script =
        "TARNVEL_USER_REGISTRY=" + dir.File("u.reg") + " " + Cli() + " " + c.options + paths + " > " + log +
        " 2>&1 & pid=$!\n"
        "for i in $(seq 600); do [ $(grep -c ': Converting 1/' " + log + ") -ge " + std::to_string(c.running) +
        " ] && break; sleep 0.02; done\n" + c.signal + "\nwait $pid\n";
    test::WriteFile(dir.path() / "run.sh", script);
    std::string output;
    EXPECT_EQ(test::RunCommand("sh " + dir.File("run.sh"), &output), 1) << output << test::ReadFile(log);
    const std::string text = test::ReadFile(log);
    EXPECT_EQ(text.find(": Done"), std::string::npos) << text;
    for (int i = 0; i < 4; ++i) {
      const fs::path mpt = fs::path(recordings[i].folder) / "long.mpt";
      EXPECT_EQ(test::RawFilesFingerprint(recordings[i].folder), before[i]) << i;
      EXPECT_NE(text.find("job " + std::to_string(i + 1) + " "), std::string::npos);
      if (i < c.running) {
        // Closed in good order with what it holds (nothing, when the signal came before its first frame).
        int result = 0;
        auto file = fs::file_size(mpt) == 0 ? nullptr : framekit::OpenImageFile(mpt.string(), &result);
        EXPECT_TRUE(fs::file_size(mpt) == 0 || (file && file->Info().frameCount < kLongRecording)) << result;
      } else {
        EXPECT_FALSE(fs::exists(mpt)) << "job " << i + 1 << " never started\n" << text;
      }
      fs::remove(mpt);
    }
  }
}

}  // namespace
}  // namespace tarnvel
