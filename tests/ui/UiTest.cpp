// The ui: scheduler, adding files and batches, start-up, settings, the console front end.
#include "ui/Scheduler.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <functional>
#include <map>
#include <memory>
#include <mutex>
#include <optional>
#include <semaphore>
#include <string>
#include <thread>
#include <tuple>
#include <utility>
#include <vector>

#include "engine/ConversionJob.h"
#include "engine/JobOverrides.h"
#include "platform/cordage/Messages.h"
#include "platform/suitelink/SuiteLink.h"
#include "platform/threads/Event.h"
#include "tests/support/TestFiles.h"
#include "tests/ui/FakeJobs.h"
#include "ui/AddFile.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/FrontEnd.h"
#include "ui/Settings.h"
#include "ui/StartUp.h"

namespace tarnvel {
namespace {

using namespace std::chrono_literals;
using test::FakeJobPlan;

std::span<const std::uint8_t> Bytes(const void* data, std::size_t size) {
  return {static_cast<const std::uint8_t*>(data), size};
}

class SchedulerTest : public ::testing::Test {
 protected:
  // Jobs named in `stepped` run `frames` frames, each released by the test.
  void Start(ParallelSettings settings, std::initializer_list<const char*> paths,
             std::initializer_list<const char*> stepped = {}, std::int32_t frames = 50) {
    for (const char* p : stepped) plans_[p] = FakeJobPlan{frames, true, 0, {}};
    Make(settings);
    Add(paths);
    scheduler_->StartThread();
  }
  void Make(ParallelSettings settings) {
    scheduler_ = std::make_unique<Scheduler>(
        list_, frontEnd_,
        [this](const std::string& path, std::uint32_t row, bool sentBySuite) {
          auto it = plans_.find(path);
          auto job =
              std::make_unique<test::FakeJob>(world_, it != plans_.end() ? it->second : FakeJobPlan{}, row, sentBySuite);
          jobs_.push_back(job.get());
          paths_.push_back(path);
          return job;
        },
        settings, Scheduler::Timing{20, 1000});
  }
  void Add(std::initializer_list<const char*> paths) {
    for (const char* p : paths) scheduler_->AddJob(p, nullptr, nullptr, false);
  }
  bool WaitUntil(const std::function<bool()>& condition, std::chrono::milliseconds limit = 5000ms) {
    for (auto end = std::chrono::steady_clock::now() + limit; std::chrono::steady_clock::now() < end;) {
      if (condition()) return true;
      std::this_thread::sleep_for(1ms);
    }
    return condition();
  }
  bool Idle() { return !scheduler_->HasPendingJobs() && !scheduler_->Busy(); }
  std::string Cell(std::uint32_t row, Column column = kStatusColumn) { return list_.Row(row).cells[column]; }

  test::RecordingFrontEnd frontEnd_;
  JobList list_{frontEnd_};
  test::FakeJobWorld world_;
  std::map<std::string, FakeJobPlan> plans_;
  std::vector<test::FakeJob*> jobs_;
  std::vector<std::string> paths_;
  std::unique_ptr<Scheduler> scheduler_;
};

TEST_F(SchedulerTest, SequentialRunsInOrderAndPicksUpJobsAddedDuringThePass) {
  Start({0, 4}, {}, {"/r/a/cam1/args.ini"}, 2);
  ASSERT_TRUE(WaitUntil([&] { return frontEnd_.busyFlips >= 2; })) << "the first pass finds nothing";
  Add({"/r/a/cam1/args.ini"});
  scheduler_->WakeUp();
  ASSERT_TRUE(WaitUntil([&] { return Cell(0) == "Converting"; }));
  Add({"/r/b/cam2/args.ini"});  // during the pass: waits, then runs in the same pass
  scheduler_->WakeUp();
  EXPECT_EQ(Cell(1), "Waiting");
  EXPECT_EQ(world_.started, 1);
  world_.frameRelease.release(2);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(Cell(0) + Cell(1), "DoneDone");
  EXPECT_EQ(Cell(0, kFolderColumn), "a/cam1");
  EXPECT_EQ(Cell(1, kImagesColumn) + " " + Cell(1, kProgressColumn), "3/3 100%");
  EXPECT_EQ(world_.mostRunning, 1);
  EXPECT_EQ(world_.deleted, 2);
}

TEST_F(SchedulerTest, SequentialAbortAndAbortAll) {
  Start({0, 4}, {"/x/run/one/args.ini", "/x/run/two/args.ini"}, {"/x/run/one/args.ini", "/x/run/three/args.ini"});
  ASSERT_TRUE(WaitUntil([&] { return Cell(0) == "Converting"; }));
  frontEnd_.answer = kAnswerNo;
  EXPECT_FALSE(scheduler_->AbortJobs(false)) << "No leaves everything running";
  frontEnd_.answer = kAnswerYes;
  EXPECT_TRUE(scheduler_->AbortJobs(false));
  world_.frameRelease.release(1);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(Cell(0) + Cell(0, kImagesColumn) + Cell(0, kFileColumn), "Abort--");
  EXPECT_EQ(Cell(1), "Done") << "a waiting job clears its abort flag on entry";
  EXPECT_EQ(frontEnd_.messages.front().number, kMsgConfirmAbort);
  EXPECT_EQ(frontEnd_.messages.front().style, kStyleYesNoQuestion);

  // Abort all: the running job aborts, the rest never starts.
  Add({"/x/run/three/args.ini", "/x/run/four/args.ini", "/x/run/five/args.ini"});
  const int startedBefore = world_.started;
  scheduler_->WakeUp();
  ASSERT_TRUE(WaitUntil([&] { return Cell(2) == "Converting"; }));
  EXPECT_TRUE(scheduler_->AbortJobs(true));
  world_.frameRelease.release(1);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  for (std::uint32_t r : {2, 3, 4}) EXPECT_EQ(Cell(r), "Abort") << r;
  EXPECT_EQ(world_.started - startedBefore, 1);
  EXPECT_EQ(world_.deleted, 5);
}

TEST_F(SchedulerTest, SequentialFailureShowsTheJobsMessage) {
  plans_["/d/e/f/args.ini"] = FakeJobPlan{3, false, 90, "/d/e/f"};
  Start({0, 4}, {"/d/e/f/args.ini", "/d/e/g/args.ini"});
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(Cell(0), "Error");
  for (Column c : {kFileColumn, kImagesColumn, kTimeColumn, kProgressColumn}) EXPECT_EQ(Cell(0, c), "-");
  ASSERT_EQ(frontEnd_.messages.size(), 1u);
  EXPECT_EQ(std::pair(frontEnd_.messages[0].number, frontEnd_.messages[0].style), std::pair(90, kStyleError));
  EXPECT_NE(frontEnd_.messages[0].text.find("/d/e/f"), std::string::npos);
  EXPECT_EQ(Cell(1), "Done") << "the pass goes on with the next job";
}

// Two at a time: the third starts after a reap, and an abort ends only the running jobs.
TEST_F(SchedulerTest, ParallelKeepsToTheMaximumAndAbortsTheRunningJobsOnly) {
  Start({1, 2}, {"/p/1/a/args.ini", "/p/1/b/args.ini", "/p/1/c/args.ini"},
        {"/p/1/a/args.ini", "/p/1/b/args.ini", "/p/1/c/args.ini"}, 3);
  ASSERT_TRUE(WaitUntil([&] { return world_.running == 2; }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(world_.started, 2) << "the third waits for a free slot";
  EXPECT_TRUE(scheduler_->AbortJobs(false));
  world_.frameRelease.release(9);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(world_.mostRunning, 2);
  EXPECT_EQ(Cell(0), "Abort");
  EXPECT_EQ(Cell(1), "Abort");
  EXPECT_EQ(Cell(2), "Done") << "a job that was not running yet runs normally";
}

// Abort all (a termination request, a second Ctrl-C) stops the pass: the
// running jobs end Abort, no waiting job starts, also when the abort comes
// before the pass has begun; a job that ended Done stays Done whatever
// aborts arrive before it is reaped.
TEST_F(SchedulerTest, AbortAllStopsEveryStartAndAnEndedJobKeepsItsStatus) {
  Start({1, 2}, {"/q/1/a/args.ini", "/q/1/b/args.ini", "/q/1/c/args.ini", "/q/1/d/args.ini"},
        {"/q/1/a/args.ini", "/q/1/b/args.ini", "/q/1/c/args.ini", "/q/1/d/args.ini"}, 3);
  ASSERT_TRUE(WaitUntil([&] { return world_.running == 2; }));
  scheduler_->AbortAll();
  world_.frameRelease.release(2);  // the two running jobs each wait for one frame
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(world_.started, 2) << "the waiting jobs never start";
  for (std::uint32_t r = 0; r < 4; ++r) EXPECT_EQ(list_.Row(r).status, RowStatus::Abort) << r;
  EXPECT_TRUE(frontEnd_.messages.empty()) << "Abort all without asking";

  // Before the pass: jobs added, the abort, then the wake-up.
  Add({"/q/2/a/args.ini", "/q/2/b/args.ini"});
  scheduler_->AbortAll();
  scheduler_->WakeUp();
  ASSERT_TRUE(WaitUntil([&] { return Idle() && Cell(5) == "Abort"; }));
  EXPECT_EQ(world_.started, 2);
  EXPECT_EQ(Cell(4), "Abort");

  // The flag was spent with its pass: the next job runs; one that is done
  // but not yet reaped keeps Done when an abort reaches it.
  plans_["/q/3/slow/args.ini"] = FakeJobPlan{1, true, 0, {}};
  Add({"/q/3/slow/args.ini", "/q/3/quick/args.ini"});
  scheduler_->WakeUp();
  ASSERT_TRUE(WaitUntil([&] { return Cell(7) == "Done"; }));
  EXPECT_TRUE(scheduler_->AbortJobs(false));
  world_.frameRelease.release(1);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(Cell(6), "Abort");
  EXPECT_EQ(Cell(7), "Done") << "a job ends once";
}

// A maximum from a damaged settings store never runs more than the Options
// dialog offers at once.
TEST_F(SchedulerTest, ParallelRunsTwelveAtMostWhateverIsStored) {
  std::vector<std::string> paths;
  for (int i = 0; i < 14; ++i) paths.push_back("/m/" + std::to_string(i) + "/job/args.ini");
  for (const std::string& p : paths) plans_[p] = FakeJobPlan{1, true, 0, {}};
  Make({1, 1000000});
  for (const std::string& p : paths) scheduler_->AddJob(p, nullptr, nullptr, false);
  scheduler_->StartThread();
  ASSERT_TRUE(WaitUntil([&] { return world_.running == 12; }));
  std::this_thread::sleep_for(50ms);
  EXPECT_EQ(world_.started, 12);
  world_.frameRelease.release(14);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(world_.mostRunning, 12);
}

TEST_F(SchedulerTest, SuiteCommandsIncludingHostileOnes) {
  Start({0, 4}, {}, {"/s/1/a/args.ini"}, 2);
  const std::string path = "/s/1/a/args.ini";
  scheduler_->HandleSuiteCommand(kAddJobCommand, Bytes(path.data(), path.size()));
  ASSERT_TRUE(WaitUntil([&] { return Cell(0) == "Converting"; }));
  EXPECT_TRUE(jobs_[0]->sentBySuite);
  scheduler_->HandleSuiteCommand(kCloseCommand, {});
  EXPECT_EQ(frontEnd_.closeRequests, 0) << "command 4 with a pending job does nothing";
  // Options: only exactly 8 bytes count.
  const std::int32_t words[3] = {1, 7, 9};
  scheduler_->HandleSuiteCommand(kOptionsCommand, Bytes(words, 4));
  scheduler_->HandleSuiteCommand(kOptionsCommand, Bytes(words, 12));
  EXPECT_EQ(scheduler_->Parallel().enabled, 0);
  scheduler_->HandleSuiteCommand(kOptionsCommand, Bytes(words, 8));
  EXPECT_EQ(std::pair(scheduler_->Parallel().enabled, scheduler_->Parallel().maximum), std::pair(1, 7));
  // Values the Options dialog does not offer would leave jobs waiting for ever: ignored.
  for (const auto& refused : {std::pair{1, 0}, {1, 1}, {1, 13}, {2, 4}, {-1, 4}, {1, INT32_MIN}}) {
    const std::int32_t pair[2] = {refused.first, refused.second};
    scheduler_->HandleSuiteCommand(kOptionsCommand, Bytes(pair, 8));
    EXPECT_EQ(std::pair(scheduler_->Parallel().enabled, scheduler_->Parallel().maximum), std::pair(1, 7))
        << refused.first << " " << refused.second;
  }
  // Pause holds the job; a further add releases every paused job.
  scheduler_->HandleSuiteCommand(kPauseCommand, {});
  world_.frameRelease.release(2);
  const std::string second = std::string("/s/1/b/args.ini\0garbage after the terminator", 44);
  scheduler_->HandleSuiteCommand(kAddJobCommand, Bytes(second.data(), second.size()));
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  EXPECT_EQ(Cell(0), "Done");
  EXPECT_EQ(list_.Row(1).path, "/s/1/b/args.ini");
  // A path that does not fit the buffer is refused; an unknown command is ignored.
  const std::vector<std::uint8_t> longPath(1024, 'a');
  scheduler_->HandleSuiteCommand(kAddJobCommand, longPath);
  scheduler_->HandleSuiteCommand(77, longPath);
  EXPECT_EQ(list_.RowCount(), 2u);
  scheduler_->HandleSuiteCommand(kCloseCommand, {});
  EXPECT_EQ(frontEnd_.closeRequests, 1);
}

TEST_F(SchedulerTest, CloseHidesWithJobsAndEndsWithout) {
  Start({0, 4}, {"/c/1/a/args.ini"}, {"/c/1/a/args.ini"}, 2);
  ASSERT_TRUE(WaitUntil([&] { return Cell(0) == "Converting"; }));
  EXPECT_FALSE(scheduler_->Close());
  EXPECT_EQ(frontEnd_.hides, 1);
  world_.frameRelease.release(2);
  ASSERT_TRUE(WaitUntil([&] { return Idle(); }));
  const auto before = std::chrono::steady_clock::now();
  EXPECT_TRUE(scheduler_->Close());
  EXPECT_LT(std::chrono::steady_clock::now() - before, 1000ms);
}

TEST_F(SchedulerTest, NoWakeUpIsLost) {
  Start({0, 4}, {});
  // Jobs added from another thread while passes begin and end all run.
  std::thread adder([&] {
    for (int i = 0; i < 200; ++i) {
      scheduler_->AddJob("/w/x/" + std::to_string(i) + "/args.ini", nullptr, nullptr, false);
      scheduler_->WakeUp();
      if (i % 7 == 0) std::this_thread::sleep_for(100us);
    }
  });
  adder.join();
  ASSERT_TRUE(WaitUntil([&] { return world_.deleted == 200; }, 20000ms));
  for (std::uint32_t r = 0; r < 200; ++r) ASSERT_EQ(Cell(r), "Done") << r;
}

TEST(JobList, TextsAndRows) {
  for (auto [done, total, text] : {std::tuple{3, 7, "42.8%"}, {0, 0, "0.0%"}, {9, 7, "100%"}})
    EXPECT_EQ(ProgressText(done, total), text) << done << "/" << total;
  EXPECT_EQ(ElapsedText(100 * 3600 + 59), "100:00:59") << "the hours widen";
  EXPECT_EQ(FolderColumnText("D:\\data\\rec\\cam1\\args.ini"), "rec\\cam1");
  EXPECT_EQ(FolderColumnText("C:\\rec\\args.ini"), "C:\\rec\\args.ini") << "two separators: the whole path";

  test::RecordingFrontEnd frontEnd;
  JobList list(frontEnd);
  list.AddRow("/a/b/c/args.ini");
  list.SetRowStatus(0, "rec.avi", TickCount(), 5, 1, 0);
  list.SetRowProgress(0, TickCount() - 3'723'000, 5, 10);
  EXPECT_EQ(list.Row(0).cells[kStatusColumn] + " " + list.Row(0).cells[kTimeColumn], "Converting + AVI 01:02:03");
  list.SetRowStatus(7, "x", 0, 2, 1, 1);  // a row that does not exist is passed over
  // A final status stays: no later status or progress changes the row.
  list.SetRowStatus(0, "rec.avi", TickCount(), 2, 10, 10);
  list.SetRowStatus(0, RowStatus::Abort);
  list.SetRowProgress(0, TickCount(), 3, 10);
  EXPECT_EQ(list.Row(0).status, RowStatus::Done);
  EXPECT_EQ(list.Row(0).cells[kStatusColumn] + " " + list.Row(0).cells[kImagesColumn], "Done 10/10");
  list.SetRowStatus(0, "x", 0, 99, 1, 1);  // no status at all: nothing changes
  EXPECT_EQ(list.Row(0).status, RowStatus::Done);
  list.Clear();
  EXPECT_EQ(list.AddRow("/next/args.ini"), 0u) << "numbers start again after Clear List";
}

// A scheduler whose thread is not started: AddFile's rows, jobs and messages
// can be read at leisure.
class AddFileTest : public SchedulerTest {
 protected:
  AddFileTest() { Make({0, 4}); }
  void AddBatch(const std::string& body, bool withOptions = false, const std::string& name = "list.bat") {
    test::WriteFile(dir_.path() / name, "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\n" + body);
    AddFile(*scheduler_, frontEnd_, dir_.File(name), withOptions);
  }
  test::TempDir dir_;
};

TEST_F(AddFileTest, JobFileWithAndWithoutOptions) {
  AddFile(*scheduler_, frontEnd_, "/data/Rec/Cam1/args.ini", false);
  ASSERT_EQ(jobs_.size(), 1u);
  EXPECT_FALSE(jobs_[0]->hasOverrides) << "a job file without options takes everything from itself";
  EXPECT_EQ(list_.Row(0).cells[kFolderColumn], "Rec/Cam1") << "a job file keeps its case";
  AddFile(*scheduler_, frontEnd_, "/data/rec/cam2/args.ini", true, [](const std::string&, JobOverrides&) { return false; });
  EXPECT_EQ(jobs_.size(), 1u) << "Cancel adds nothing";
  AddFile(*scheduler_, frontEnd_, "/data/rec/cam2/args.ini", true, [](const std::string&, JobOverrides& o) {
    o.fileType = 4;
    return true;
  });
  ASSERT_EQ(jobs_.size(), 2u);
  EXPECT_EQ(jobs_[1]->overrides.fileType, 4);
}

TEST_F(AddFileTest, BatchWithTypeDestinationAndGaps) {
  const std::string out = dir_.File("Out Folder");
  AddBatch("DestinationFolder=" + out + "\r\nFileType=4\r\nCodecQuality=5000\r\nCount=4\r\n"
           "File_000=/Data/Rec A/args.ini\r\nFile_001=\r\nFile_003=/Data/Rec C/args.ini\r\n", true);
  ASSERT_EQ(jobs_.size(), 2u) << "an empty entry is skipped, a missing one too";
  EXPECT_EQ(paths_[0], "/Data/Rec A/args.ini") << "files are opened as written";
  EXPECT_EQ(list_.Row(1).path, "/data/rec c/args.ini") << "rows show the lower-case path";
  EXPECT_EQ(jobs_[1]->RowIndex(), 1u) << "row numbers follow on without a gap";
  EXPECT_TRUE(std::filesystem::is_directory(out));
  const JobOverrides& o = jobs_[0]->overrides;
  EXPECT_EQ(jobs_[0]->destFolder, out);
  EXPECT_EQ(std::tuple(o.fileType, o.codec.quality), std::tuple(4, 5000u));
  EXPECT_EQ(o.deleteRaw, 0u) << "DeleteRaw defaults to 0 once a batch names a type";
  EXPECT_EQ(o.outputDepth, 0) << "a batch keeps the recording's depth";

  // Without a type only the destination is taken.
  AddBatch("DestinationFolder=" + dir_.File("dest") + "\r\nFileType=-1\r\nDeleteRaw=0\r\nCount=1\r\nFile_000=/r/args.ini\r\n",
           false, "b.bat");
  ASSERT_EQ(jobs_.size(), 3u);
  EXPECT_EQ(jobs_[2]->overrides.deleteRaw, 1u) << "without a type the other keys are not read";
  EXPECT_EQ(jobs_[2]->destFolder, dir_.File("dest"));
}

TEST_F(AddFileTest, RefusedAndHostileBatches) {
  // A folder whose name holds ".bat" makes its args.ini a batch with a wrong signature: silently nothing.
  std::filesystem::create_directory(dir_.path() / "take.bat.d");
  test::WriteFile(dir_.path() / "take.bat.d/args.ini", "[ArgSect]\r\nArg03=5\r\n");
  EXPECT_EQ(AddFile(*scheduler_, frontEnd_, dir_.File("take.bat.d/args.ini"), true), AddOutcome::NotABatchFile);
  EXPECT_TRUE(jobs_.empty());
  EXPECT_TRUE(frontEnd_.messages.empty()) << "a wrong signature is silent here; the console names it";

  // A destination that cannot be made: message 33 with the folder, no job.
  test::WriteFile(dir_.path() / "blocker", "x");
  AddBatch("DestinationFolder=" + dir_.File("blocker/sub") + "\r\nCount=1\r\nFile_000=/x/args.ini\r\n");
  EXPECT_TRUE(jobs_.empty());
  ASSERT_EQ(frontEnd_.messages.size(), 1u);
  EXPECT_EQ(std::pair(frontEnd_.messages[0].number, frontEnd_.messages[0].style), std::pair(33, kStyleError));
  EXPECT_NE(frontEnd_.messages[0].text.find("blocker/sub"), std::string::npos);

  // A huge count reads a bounded number of entries; an overlong path is refused, never cut.
  const std::string longPath = "/" + std::string(300, 'p') + "/args.ini";
  const auto start = std::chrono::steady_clock::now();
  AddBatch("Count=2147483647\r\nFile_000=" + longPath + "\r\nFile_001=/ok/args.ini\r\n");
  EXPECT_LT(std::chrono::steady_clock::now() - start, 10s);
  ASSERT_EQ(jobs_.size(), 1u);
  EXPECT_EQ(paths_[0], "/ok/args.ini");
  EXPECT_EQ(frontEnd_.messages.back().number, kMsgPathTooLong);
  AddBatch("DestinationFolder=/" + std::string(400, 'd') + "\r\nCount=1\r\nFile_000=/y/args.ini\r\n", false, "b2.bat");
  EXPECT_EQ(frontEnd_.messages.back().number, 33) << "an overlong destination is refused, never cut";
  AddFile(*scheduler_, frontEnd_, longPath, false);
  EXPECT_EQ(jobs_.size(), 1u);
}

// One entry of a batch, as an array task adds it: that entry's job alone,
// with the batch's settings, or a clear refusal.
TEST_F(AddFileTest, OneEntryOfABatch) {
  const std::string batch = "DestinationFolder=" + dir_.File("dest") + "\r\nFileType=4\r\nCodecQuality=5000\r\nCount=4\r\n"
                            "File_000=/" + std::string(300, 'p') + "/args.ini\r\nFile_001=\r\nFile_003=/Data/Rec C/args.ini\r\n";
  test::WriteFile(dir_.path() / "n.bat", "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\n" + batch);
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("n.bat"), 3), EntryAdded::Added);
  ASSERT_EQ(jobs_.size(), 1u);
  EXPECT_EQ(paths_[0], "/Data/Rec C/args.ini");
  EXPECT_EQ(list_.Row(0).path, "/data/rec c/args.ini") << "the row as in a run of the whole batch";
  EXPECT_EQ(jobs_[0]->destFolder, dir_.File("dest"));
  EXPECT_TRUE(std::filesystem::is_directory(dir_.File("dest")));
  EXPECT_EQ(std::tuple(jobs_[0]->overrides.fileType, jobs_[0]->overrides.codec.quality, jobs_[0]->overrides.deleteRaw),
            std::tuple(4, 5000u, 0u));
  for (std::int32_t missing : {1, 2, 4, -1, 2147483647})
    EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("n.bat"), missing), EntryAdded::NoSuchEntry) << missing;
  EXPECT_TRUE(frontEnd_.messages.empty());
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("n.bat"), 0), EntryAdded::Refused);
  ASSERT_EQ(frontEnd_.messages.size(), 1u);
  EXPECT_EQ(frontEnd_.messages[0].number, kMsgPathTooLong);

  test::WriteFile(dir_.path() / "blocker", "x");
  AddBatch("DestinationFolder=" + dir_.File("blocker/sub") + "\r\nCount=1\r\nFile_000=/x/args.ini\r\n", false, "b.bat");
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("b.bat"), 0), EntryAdded::Refused);
  EXPECT_EQ(frontEnd_.messages.back().number, kMsgOutputFolderFailed);
  test::WriteFile(dir_.path() / "wrong.bat", "[List]\r\nSignature=Some Other File\r\n" + batch);
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("wrong.bat"), 3), EntryAdded::NotABatch);
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("missing.bat"), 3), EntryAdded::NotABatch);
  std::filesystem::copy_file(dir_.path() / "n.bat", dir_.path() / "n.ini");
  EXPECT_EQ(AddBatchEntry(*scheduler_, frontEnd_, dir_.File("n.ini"), 3), EntryAdded::NotABatch)
      << "AddFile would take it for a job file";
  EXPECT_EQ(jobs_.size(), 1u);
}

using Kind = JobArgument::Kind;

TEST(StartUp, CommandLineRules) {
  const std::string program = "\"C:\\Program Files\\OKN\\Tarnvel.exe\"";
  const std::tuple<std::string, Kind, std::string> cases[] = {
      // Exactly 10 characters behind the last quote is no argument; 11 is one.
      {program + " \"/data/a.ini\"", Kind::Path, "/data/a.ini"},
      {program + " \"/dat/a.ini\"", Kind::None, ""},
      {program + " \"/data/b.ini\"\"\"\"", Kind::Path, "/data/b.ini"},  // further quotes change nothing
      {"tarnvel /data/rec/args.ini", Kind::None, ""},  // unquoted path after an unquoted program
      {program + " /data/rec/args.ini", Kind::Path, " /data/rec/args.ini"},  // keeps its leading blank
      {"tarnvel x*$$*y", Kind::SuiteMarker, ""},       // the marker counts even inside a word ...
      {program + " *$$*", Kind::None, ""},             // ... but the quote rule goes first
      {"\"\"\"\"", Kind::None, ""},
      {program + " \"/" + std::string(1100, 'a') + "\"", Kind::TooLong, ""},  // never cut into another path
  };
  for (const auto& [line, kind, path] : cases) {
    const JobArgument argument = ParseCommandLine(line);
    EXPECT_EQ(argument.kind, kind) << line.substr(0, 60);
    if (kind == Kind::Path) {
      EXPECT_EQ(argument.path, path) << line;
    }
  }
  // Rebuilt command lines give what the user meant.
  const char* withPath[] = {"/usr/bin/tarnvel", "/data/rec 1/args.ini"};
  EXPECT_EQ(ParseCommandLine(RawCommandLine(2, withPath)).path, "/data/rec 1/args.ini");
  const char* marker[] = {"/opt/my tools/tarnvel", "*$$*"};
  EXPECT_EQ(RawCommandLine(2, marker), "\"/opt/my tools/tarnvel\" *$$*");
}

TEST(StartUp, LanguageCatalogues) {
  test::TempDir dir;
  const std::string program = dir.File("tarnvel");
  EXPECT_FALSE(LanguageCataloguePath(program, 0)) << "English is built in; no file is touched";
  EXPECT_FALSE(LanguageCataloguePath(program, 8) || LanguageCataloguePath(program, -1));
  EXPECT_EQ(*LanguageCataloguePath(dir.File("Tarnvel.exe"), 3), dir.File("Languages/Tarnvel.fr"));

  EXPECT_FALSE(LoadLanguageCatalogue(program, 1)) << "missing file";
  std::filesystem::create_directory(dir.path() / "Languages");
  test::WriteFile(dir.path() / "Languages/tarnvel.de",
                  "[Messages]\r\n33=Der Ausgabeordner %s kann nicht angelegt werden.\r\nx1=nope\r\n"
                  "99999999999=overflow\r\n[Other]\r\n90=not a message\r\n");
  EXPECT_TRUE(LoadLanguageCatalogue(program, 1));
  EXPECT_EQ(MessageText(33, "/out"), "Der Ausgabeordner /out kann nicht angelegt werden.");
  EXPECT_EQ(MessageText(90, "/r").find("not a message"), std::string::npos);
  test::WriteFile(dir.path() / "Languages/tarnvel.it", std::string("\0\1\2garbage", 10));
  EXPECT_FALSE(LoadLanguageCatalogue(program, 2));
  SetMessageCatalogue({});
}

class Settings : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TARNVEL_USER_REGISTRY", dir_.File("user.reg").c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", dir_.File("machine.reg").c_str(), 1);
  }
  void User(const std::string& values) {
    test::WriteFile(dir_.path() / "user.reg", "[Software\\OKN\\FathomBureau\\Settings]\n" + values);
  }
  void Machine(const std::string& values) {
    test::WriteFile(dir_.path() / "machine.reg", "[Software\\OKN\\Kestrelite\\CurrentVersion]\n" + values);
  }
  static std::pair<int, int> Parallel() {
    const ParallelSettings s = ReadParallelSettings();
    return {s.enabled, s.maximum};
  }
  test::TempDir dir_;
};

TEST_F(Settings, LanguageSearchOrder) {
  EXPECT_EQ(ReadLanguageId(), 0);
  Machine("Language=3\n");
  User("Language=-1\n");
  EXPECT_EQ(ReadLanguageId(), 3) << "-1 in the current key counts as nothing";
  User("Language=1\n");
  EXPECT_EQ(ReadLanguageId(), 1);
}

TEST_F(Settings, ParallelSettingsComeFromTheMigratedKeyOnly) {
  EXPECT_EQ(ReadParallelSettings().maximum, 4);
  Machine("MultiThreadRawConversion=1\nMultiThreadMaxRawFiles=8\n");
  User("MultiThreadRawConversion=0\nMultiThreadMaxRawFiles=3\n");
  EXPECT_EQ(Parallel(), std::pair(1, 8)) << "a current key without UseJumboPackets is not migrated";
  User("UseJumboPackets=0\nMultiThreadMaxRawFiles=1\n");
  EXPECT_EQ(Parallel(), std::pair(0, 2)) << "below 2 reads as 2";

  // Writes go to the current key even when reads do not.
  User("MultiThreadMaxRawFiles=3\n");
  WriteParallelSettings({1, 6});
  EXPECT_EQ(ReadParallelSettings().maximum, 8) << "read back only through UseJumboPackets";
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, kCurrentSettingsKey);
  EXPECT_EQ(std::pair(key->ReadWord("MultiThreadMaxRawFiles"), key->ReadWord("MultiThreadRawConversion")),
            std::pair(std::optional(6u), std::optional(1u)));
  std::filesystem::remove(dir_.path() / "user.reg");
  WriteParallelSettings({1, 6});
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "user.reg")) << "no key is ever created";
}

TEST_F(Settings, NotifySuiteOptions) {
  ::setenv("TARNVEL_SUITE_SOCKET", dir_.File("suite.sock").c_str(), 1);
  EXPECT_FALSE(NotifySuiteOptions({1, 6})) << "no suite window";
  std::pair<std::uint32_t, std::vector<std::uint8_t>> got;
  SuiteListener suite;
  ASSERT_EQ(suite.Start(dir_.File("suite.sock"),
                        [&](std::uint32_t c, std::span<const std::uint8_t> p) { got = {c, {p.begin(), p.end()}}; }),
            0);
  EXPECT_TRUE(NotifySuiteOptions({1, 6}));
  EXPECT_EQ(got, std::pair(2u, std::vector<std::uint8_t>{1, 0, 0, 0, 6, 0, 0, 0}));
}

// Everything written to a memory stream, as text.
struct Captured {
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* file = ::open_memstream(&data, &size);
  ~Captured() {
    std::fclose(file);
    std::free(data);
  }
  std::string Text() {
    std::fflush(file);
    return std::string(data, size);
  }
};

TEST(ConsoleFrontEnd, BarsRatesLogLinesAndTerminalLine) {
  EXPECT_EQ(ConsoleFrontEnd::Bar(12, 10, 4) + ConsoleFrontEnd::Bar(3, 0, 4), "[####][....]");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(10, 7210, 1.0), "10.0 fps, 12:00 left");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(0, 100, 2.0), "");

  // Plain lines for a log, one line for a terminal.
  for (bool terminal : {false, true}) {
    Captured out, err;
    ConsoleFrontEnd console(out.file, err.file, terminal);
    JobList list(console);
    console.SetList(&list);
    list.AddRow("/data/rec/cam1/args.ini");
    const std::uint32_t start = TickCount();
    list.SetRowStatus(0, "frame.tif", start, 1, 1, 100);
    for (int i = 1; i <= 100; ++i) list.SetRowProgress(0, start, i, 100);
    list.SetRowStatus(0, "frame.tif", start, 2, 100, 100);
    const std::string text = out.Text();
    if (!terminal) {
      EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 1 + 10 + 1) << text;  // waiting, converting, tenths, done
      EXPECT_NE(text.find("job 1 rec/cam1: Waiting"), std::string::npos) << text;
      EXPECT_EQ(text.find('\r'), std::string::npos) << "no terminal control in a log";
    } else {
      EXPECT_NE(text.find("\r\033[K"), std::string::npos);
      EXPECT_NE(text.find("[############............] 50/100 50.0%"), std::string::npos) << text;
    }
  }
  Captured out, err;
  ConsoleFrontEnd console(out.file, err.file, true);
  EXPECT_EQ(console.ShowMessage(90, kStyleError, MessageText(90, "/a/b/c")), kAnswerOk);
  EXPECT_EQ(console.ShowMessage(1061, kStyleYesNoQuestion, MessageText(1061)), kAnswerYes);
  EXPECT_NE(err.Text().find("tarnvel-cli: error 90: "), std::string::npos);
  EXPECT_NE(err.Text().find("warning 1061"), std::string::npos);
}

}  // namespace
}  // namespace tarnvel
