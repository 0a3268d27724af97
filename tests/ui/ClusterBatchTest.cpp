// A batch spread over a cluster: the end lines the tasks write and the report
// reads back, the array's index list, the task script as sh runs it, and the
// submission through an sbatch that the test stands in for.
#include "ui/ClusterBatch.h"

#include <sys/stat.h>

#include <gtest/gtest.h>

#include <cstdlib>
#include <filesystem>
#include <string>
#include <tuple>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

std::tuple<std::int32_t, std::string, std::int32_t, std::string> Fields(const EntryEnd& end) {
  return {end.entry, end.state, end.message, end.text};
}

TEST(ClusterBatch, EndLinesWrittenAndReadBack) {
  const EntryEnd ends[] = {{0, "Done", 0, ""},
                           {12, "Error", 101, "A frame could not be read or written (/out/a: b.tif)"},
                           {99999, "Abort", 107, "The conversion was aborted."},
                           {3, "Error", 0, "the batch /b.bat has no entry 3"}};
  for (const EntryEnd& end : ends) {
    const auto back = ParseEntryEnd(FormatEntryEnd(end));
    ASSERT_TRUE(back) << FormatEntryEnd(end);
    EXPECT_EQ(Fields(*back), Fields(end));
  }
  EXPECT_EQ(FormatEntryEnd({4, "Error", 90, "/data/rec\n1\r\x1b[2J"}),
            "tarnvel-cli: entry 4 ended Error, message 90: /data/rec?1??[2J")
      << "a path with control characters cannot break the line";
  EXPECT_TRUE(ParseEntryEnd("tarnvel-cli: entry 4 ended Done\r")) << "a log written with CRLF";
  EXPECT_EQ(ParseEntryEnd("tarnvel-cli: entry 4 ended Error: \x1b]0;owned\x07")->text, "?]0;owned?")
      << "a hostile log cannot steer the terminal that shows the report";

  for (const char* hostile : {"", "tarnvel-cli: entry ", "tarnvel-cli: entry 4 ended ", "tarnvel-cli: entry x ended Done",
                              "tarnvel-cli: entry -4 ended Done", "tarnvel-cli: entry 9999999999 ended Done",
                              "tarnvel-cli: entry 4 ended Waiting", "tarnvel-cli: entry 4 ended Done later",
                              "tarnvel-cli: entry 4 ended Donex", "tarnvel-cli: entry 4 ended Error, message ",
                              "tarnvel-cli: entry 4 ended Error, message 1234567890: x",
                              "tarnvel-cli: entry 4 ended Error, message 12x", " tarnvel-cli: entry 4 ended Done",
                              "job 1 rec/cam: Done 12/12 100%"})
    EXPECT_FALSE(ParseEntryEnd(hostile)) << hostile;
}

TEST(ClusterBatch, EndOfAnEntryFromItsLog) {
  test::TempDir dir;
  const std::string log = dir.File("7_3.log");
  EXPECT_FALSE(ReadEntryEnd(log, 3)) << "no log yet";
  EXPECT_FALSE(ReadEntryEnd(dir.File(""), 3)) << "a folder";
  ASSERT_EQ(::mkfifo(dir.File("fifo").c_str(), 0600), 0);
  EXPECT_FALSE(ReadEntryEnd(dir.File("fifo"), 3)) << "a pipe without a writer is never opened";

  test::WriteFile(log, "job 1 rec/cam: Converting 1/5\njob 1 rec/cam: Done 5/5\n");
  EXPECT_FALSE(ReadEntryEnd(log, 3)) << "still running, or killed";
  test::WriteFile(log, std::string("\0\xff\x01garbage\n", 11) + "tarnvel-cli: entry 5 ended Done\n" +
                           "tarnvel-cli: entry 3 ended Error, message 90: first\n"
                           "tarnvel-cli: entry 3 ended Done\n"
                           "slurmstepd: error: *** JOB 7 ON node CANCELLED ***");
  const auto end = ReadEntryEnd(log, 3);
  ASSERT_TRUE(end);
  EXPECT_EQ(end->state, "Done") << "a requeued task's last run counts; another entry's line does not";

  // A long log: only its tail is read, whole lines of it.
  std::string big(3 * kLogTail, 'x');
  big += "\ntarnvel-cli: entry 3 ended Abort, message 107: The conversion was aborted.";
  test::WriteFile(log, big);
  ASSERT_TRUE(ReadEntryEnd(log, 3));
  EXPECT_EQ(ReadEntryEnd(log, 3)->message, 107);
  test::WriteFile(log, "tarnvel-cli: entry 3 ended Done\n" + std::string(kLogTail + 10, '\n'));
  EXPECT_FALSE(ReadEntryEnd(log, 3)) << "an end line before the tail is not searched for";
}

TEST(ClusterBatch, ArrayIndicesEntryNumbersAndJobIds) {
  EXPECT_EQ(ArraySpec({0, 1, 2, 3, 4, 5}, 2), "0-5%2");
  EXPECT_EQ(ArraySpec({0, 2, 3, 7, 9, 10, 11}, 0), "0,2-3,7,9-11");
  EXPECT_EQ(ArraySpec({1000}, 0), "1000");
  for (const auto& [text, number] : std::vector<std::pair<const char*, std::int32_t>>{
           {"0", 0}, {"17", 17}, {"007", 7}, {"99999", 99999}})
    EXPECT_EQ(ParseEntryNumber(text), number) << text;
  for (const char* bad : {"", "-1", "+1", " 1", "1 ", "1x", "100000", "99999999999999999999", "0x10"})
    EXPECT_FALSE(ParseEntryNumber(bad)) << bad;
  EXPECT_TRUE(IsJobId("123456"));
  for (const char* bad : {"", "12;cluster", "../12", "12_3", "123456789012345678901"}) EXPECT_FALSE(IsJobId(bad)) << bad;

  for (const char* refused : {"--array=1-3", "--array", "-a1-3", "--output=/x", "-o", "-e/x", "--error=/x", "--wrap=ls"})
    EXPECT_TRUE(RefusedSbatchArgument(refused)) << refused;
  for (const char* passes : {"--time=10", "--mem=4G", "--exclusive", "--export=ALL", "--arrayish", "--account=lab", "-t5"})
    EXPECT_FALSE(RefusedSbatchArgument(passes)) << passes;
}

// The task script as sh runs it: whatever the paths hold, the program gets
// exactly the entry of its array index and the batch path.
TEST(ClusterBatch, TaskScriptKeepsEveryPathWhole) {
  test::TempDir dir;
  const std::string echo = dir.File("it's a \"cli\" $(x)");
  test::WriteFile(echo, "#!/bin/sh\nfor a in \"$@\"; do printf '[%s]' \"$a\"; done\n");
  fs::permissions(echo, fs::perms::owner_all);
  for (const std::string& batch : {std::string("/data/plain.bat"), std::string("/data/it's `x` $HOME \\ \"q\".bat"),
                                  std::string("/data/two\nlines;rm -rf x.bat")}) {
    ArraySubmission s;
    s.cliPath = echo;
    s.batchPath = batch;
    test::WriteFile(dir.path() / "task.sh", TaskScript(s));
    std::string output;
    ASSERT_EQ(test::RunCommand("SLURM_ARRAY_TASK_ID=7 sh " + dir.File("task.sh"), &output), 0) << output;
    EXPECT_EQ(output, "[--batch-entry][7][" + batch + "]");
  }
}

TEST(ClusterBatch, SbatchArgumentsAndLogNames) {
  ArraySubmission s;
  s.cliPath = "/opt/tarnvel/tarnvel-cli";
  s.batchPath = "/data/100%/night.run.bat";
  s.entries = {0, 1, 2, 4};
  s.maxTasks = 3;
  s.partition = "gpu";
  s.sbatchArgs = {"--time=60", "--mem=2G"};
  std::vector<std::string> args;
  std::string error;
  ASSERT_TRUE(SbatchArguments(s, "/tmp/task", args, error));
  EXPECT_EQ(args, (std::vector<std::string>{"sbatch", "--parsable", "--array=0-2,4%3", "--job-name=tarnvel-night.run",
                                            "--output=/data/100%%/night.run-logs/%A_%a.log",
                                            "--chdir=/data/100%/night.run-logs", "--partition=gpu", "--time=60",
                                            "--mem=2G", "/tmp/task"}));
  EXPECT_EQ(TaskLogPath(s.batchPath, "88", 4), "/data/100%/night.run-logs/88_4.log") << "as sbatch fills the pattern in";
  s.batchPath = "/data/a\\b/night.bat";
  EXPECT_FALSE(SbatchArguments(s, "/tmp/task", args, error)) << "a backslash would switch sbatch's patterns off";
  EXPECT_NE(error.find("backslash"), std::string::npos);
}

// sbatch stood in for by a script on PATH that keeps what it was given.
class FakeSbatch : public ::testing::Test {
 protected:
  void SetUp() override {
    oldPath_ = std::getenv("PATH") ? std::getenv("PATH") : "";
    ::setenv("PATH", (dir_.File("bin") + ":" + oldPath_).c_str(), 1);
    fs::create_directory(dir_.path() / "bin");
  }
  void TearDown() override { ::setenv("PATH", oldPath_.c_str(), 1); }
  // The fake writes its arguments and script to files and then runs `then`.
  void Install(const std::string& then) {
    test::WriteFile(dir_.path() / "bin/sbatch",
                    "#!/bin/sh\nprintf '%s\\n' \"$@\" > " + dir_.File("args") + "\nfor a; do s=$a; done\ncp \"$s\" " +
                        dir_.File("script") + "\n" + then + "\n");
    fs::permissions(dir_.path() / "bin/sbatch", fs::perms::owner_all);
  }
  std::optional<std::string> Submit(std::string& error) {
    ArraySubmission s;
    s.cliPath = "/opt/tarnvel-cli";
    s.batchPath = dir_.File("night.bat");
    s.entries = {0, 1};
    return SubmitArray(s, error);
  }
  test::TempDir dir_;
  std::string oldPath_;
};

TEST_F(FakeSbatch, SubmissionAndItsFailures) {
  std::string error;
  Install("echo '4242;cluster'");
  EXPECT_EQ(Submit(error), "4242");
  EXPECT_NE(test::ReadFile(dir_.path() / "args").find("--array=0-1\n"), std::string::npos);
  EXPECT_NE(test::ReadFile(dir_.path() / "script").find("--batch-entry \"$SLURM_ARRAY_TASK_ID\""), std::string::npos);
  const std::string args = test::ReadFile(dir_.path() / "args");
  const std::string scriptPath = args.substr(args.rfind('\n', args.size() - 2) + 1);
  EXPECT_FALSE(fs::exists(scriptPath.substr(0, scriptPath.size() - 1))) << "no task script stays behind";

  const std::pair<std::string, std::string> failures[] = {
      {"echo 'sbatch: error: invalid partition' >&2; exit 1", "exit status 1"},
      {"echo 'Submitted batch job 12'", "without a job id"},
      {"head -c 3000000 /dev/zero", "without a job id"},
      {"kill -9 $$", "exit status 137"},
  };
  for (const auto& [then, wanted] : failures) {
    Install(then);
    error.clear();
    EXPECT_FALSE(Submit(error)) << then;
    EXPECT_NE(error.find(wanted), std::string::npos) << error;
  }
  fs::remove(dir_.path() / "bin/sbatch");
  ::setenv("PATH", dir_.File("bin").c_str(), 1);
  EXPECT_FALSE(Submit(error));
  EXPECT_NE(error.find("cannot be run"), std::string::npos) << error;
}

TEST(ClusterBatch, ReportOfEachEntry) {
  test::TempDir dir;
  const std::string batchPath = dir.File("night.bat");
  BatchFile batch;
  for (std::int32_t n : {0, 2, 5, 7}) batch.entries.push_back({n, "/data/t" + std::to_string(n) + "/args.ini"});
  fs::create_directory(TaskLogFolder(batchPath));
  test::WriteFile(TaskLogPath(batchPath, "31", 0), "tarnvel-cli: entry 0 ended Done\n");
  test::WriteFile(TaskLogPath(batchPath, "31", 2), "tarnvel-cli: entry 2 ended Error, message 90: no raw files\n");
  test::WriteFile(TaskLogPath(batchPath, "31", 5), "job 1 t5: Converting 3/10\n");
  test::WriteFile(TaskLogPath(batchPath, "30", 7), "tarnvel-cli: entry 7 ended Done\n");  // another job's
  const std::vector<EntryReport> reports = ReadArrayReport(batch, batchPath, "31");
  ASSERT_EQ(reports.size(), 4u);
  EXPECT_EQ(ReportLine(reports[0]), "entry 0 (/data/t0/args.ini): Done");
  EXPECT_EQ(ReportLine(reports[1]), "entry 2 (/data/t2/args.ini): Error, message 90: no raw files");
  EXPECT_TRUE(reports[2].logFound && !reports[2].end);
  EXPECT_NE(ReportLine(reports[2]).find("not ended"), std::string::npos);
  EXPECT_FALSE(reports[3].logFound);
  EXPECT_NE(ReportLine(reports[3]).find("no log"), std::string::npos);
}

}  // namespace
}  // namespace tarnvel
