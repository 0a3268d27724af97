#include "ui/AddFile.h"

#include <gtest/gtest.h>

#include <chrono>
#include <tuple>

#include "tests/support/TestFiles.h"
#include "tests/ui/FakeJob.h"
#include "tests/ui/RecordingFrontEnd.h"

namespace tarnvel {
namespace {

using namespace std::chrono_literals;

// A scheduler whose thread is not started: AddFile's rows, jobs and messages
// can be read at leisure.
class AddFileTest : public ::testing::Test {
 protected:
  AddFileTest()
      : scheduler_(list_, frontEnd_,
                   [this](const std::string& path, std::uint32_t row, bool sentBySuite) {
                     auto job = std::make_unique<test::FakeJob>(world_, test::FakeJobPlan{}, row, sentBySuite);
                     jobs_.push_back(job.get());
                     paths_.push_back(path);
                     return job;
                   },
                   {0, 4}) {}

  void AddBatch(const std::string& body, bool withOptions = false, const std::string& name = "list.bat") {
    test::WriteFile(dir_.path() / name, "[List]\r\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\r\n" + body);
    AddFile(scheduler_, frontEnd_, dir_.File(name), withOptions);
  }

  test::TempDir dir_;
  test::RecordingFrontEnd frontEnd_;
  JobList list_{frontEnd_};
  test::FakeJobWorld world_;
  std::vector<test::FakeJob*> jobs_;
  std::vector<std::string> paths_;
  Scheduler scheduler_;
};

TEST_F(AddFileTest, JobFileWithAndWithoutOptions) {
  AddFile(scheduler_, frontEnd_, "/data/Rec/Cam1/args.ini", false);
  ASSERT_EQ(jobs_.size(), 1u);
  EXPECT_FALSE(jobs_[0]->hasOverrides) << "a job file without options takes everything from itself";
  EXPECT_EQ(list_.Row(0).cells[kFolderColumn], "Rec/Cam1") << "a job file keeps its case";
  AddFile(scheduler_, frontEnd_, "/data/rec/cam2/args.ini", true, [](const std::string&, JobOverrides&) { return false; });
  EXPECT_EQ(jobs_.size(), 1u) << "Cancel adds nothing";
  AddFile(scheduler_, frontEnd_, "/data/rec/cam2/args.ini", true, [](const std::string&, JobOverrides& o) {
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
  AddFile(scheduler_, frontEnd_, dir_.File("take.bat.d/args.ini"), true);
  EXPECT_TRUE(jobs_.empty());
  EXPECT_TRUE(frontEnd_.messages.empty()) << "a wrong signature is silent";

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
  AddFile(scheduler_, frontEnd_, longPath, false);
  EXPECT_EQ(jobs_.size(), 1u);
}

}  // namespace
}  // namespace tarnvel
