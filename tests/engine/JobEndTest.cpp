// How a job ends: the deletion rule, the ledger of outputs, and whole jobs
// fed hostile argument files and failing outputs. In every case that is not
// a verified success the raw files must stay byte for byte.
#include <gtest/gtest.h>
#include <sys/stat.h>
#include <unistd.h>

#include <atomic>
#include <filesystem>
#include <functional>
#include <set>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "engine/OutputLedger.h"
#include "engine/RawDeletion.h"
#include "platform/cordage/Messages.h"
#include "platform/framekit/ImageReader.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

TEST(RawDeletion, OnlyAVerifiedWholeRunLetsTheRawFilesGo) {
  test::TempDir dir;
  OutputLedger written;
  test::WriteFile(dir.path() / "out.mpt", "frames");
  written.Created(dir.File("out.mpt"));
  RunFacts success;
  success.argsRead = success.deleteAsked = success.outputsOnDisk = true;
  success.framesWanted = success.framesWritten = 5;
  EXPECT_TRUE(RawFilesMayGo(success, written));
  const std::vector<std::pair<const char*, std::function<void(RunFacts&)>>> doubts = {
      {"argument file not read", [](RunFacts& f) { f.argsRead = false; }},
      {"deletion not asked", [](RunFacts& f) { f.deleteAsked = false; }},
      {"aborted", [](RunFacts& f) { f.aborted = true; }},
      {"failed", [](RunFacts& f) { f.statusCode = kMsgFrameFailedPositive; }},
      {"a frame short", [](RunFacts& f) { f.framesWritten = 4; }},
      {"nothing to convert", [](RunFacts& f) { f.framesWanted = f.framesWritten = 0; }},
      {"not flushed", [](RunFacts& f) { f.outputsOnDisk = false; }},
  };
  for (const auto& [why, change] : doubts) {
    RunFacts facts = success;
    change(facts);
    EXPECT_FALSE(RawFilesMayGo(facts, written)) << why;
  }
  EXPECT_FALSE(RawFilesMayGo(success, OutputLedger{})) << "a run that wrote nothing";
  OutputLedger failed = written;
  failed.Failed(dir.File("out.avi"));
  EXPECT_FALSE(RawFilesMayGo(success, failed)) << "an output that failed";
  // Gone, or replaced by another file of the same name: no longer what was written.
  fs::rename(dir.path() / "out.mpt", dir.path() / "moved.mpt");
  EXPECT_EQ(written.FirstMissing(), dir.File("out.mpt"));
  EXPECT_FALSE(RawFilesMayGo(success, written));
  test::WriteFile(dir.path() / "out.mpt", "another file");
  EXPECT_EQ(written.FirstMissing(), dir.File("out.mpt"));
  written.Removed(dir.File("out.mpt"));
  EXPECT_FALSE(written.FirstMissing());
}

class JobEnd : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { DriverExit(); }

  // A small recording that asks for its raw files to be deleted.
  recgen::RecordingOptions Options(const std::string& name) {
    recgen::RecordingOptions o;
    o.folder = dir_.File(name);
    o.width = 48, o.height = 32, o.frames = 6, o.preTrigger = 1;
    o.baseName = "take", o.deviceName = "cam";
    o.fileType = 11;
    o.deleteRaw = 1;
    return o;
  }
  static void SetKey(const std::string& folder, const std::string& key, const std::string& value) {
    const fs::path args = fs::path(folder) / "args.ini";
    std::string text = test::ReadFile(args);
    const std::size_t at = text.find("\n" + key + "=");
    if (at == std::string::npos) {
      text += key + "=" + value + "\r\n";
    } else {
      const std::size_t end = text.find('\n', at + 1);
      text.replace(at + 1, end - at - 1, key + "=" + value + "\r");
    }
    test::WriteFile(args, text);
  }
  static std::set<std::string> Names(const std::string& folder) {
    std::set<std::string> names;
    for (const auto& entry : fs::directory_iterator(folder)) names.insert(entry.path().filename().string());
    return names;
  }

  test::TempDir dir_;
};

struct HostileCase {
  const char* name;
  std::function<std::string(const recgen::RecordingOptions&)> damage;  // returns the path the job is given
  std::set<int> statuses;
  bool writesNothing = true;
};

// The argument files and values that once ended "Done 0/0", deleted the raw
// store, or crashed the process: each now ends the job with a clear status,
// and no raw byte is lost.
TEST_F(JobEnd, HostileArgumentFilesAndValuesKeepEveryRawByte) {
  const auto args = [](const recgen::RecordingOptions& o) { return JoinPath(o.folder, "args.ini"); };
  const auto withKey = [args](const char* key, std::string value) {
    return [args, key, value](const recgen::RecordingOptions& o) {
      SetKey(o.folder, key, value);
      return args(o);
    };
  };
  const auto withKeys = [args](std::vector<std::pair<const char*, std::string>> keys) {
    return [args, keys](const recgen::RecordingOptions& o) {
      for (const auto& [key, value] : keys) SetKey(o.folder, key, value);
      return args(o);
    };
  };
  const auto replaced = [args](std::string content) {
    return [args, content](const recgen::RecordingOptions& o) {
      test::WriteFile(args(o), content);
      return args(o);
    };
  };
  const std::string binary("\x00\xff\x01[ArgSect\x00\r\n\x7f", 13);
  const std::string channelsOn = "1";
  const std::vector<HostileCase> cases = {
      {"the folder, with a separator", [](const auto& o) { return o.folder + "/"; }, {kMsgJobSettingsUnusable}},
      {"the folder, without", [](const auto& o) { return o.folder; }, {kMsgJobSettingsUnusable}},
      {"a typo'd name", [](const auto& o) { return JoinPath(o.folder, "arg.ini"); }, {kMsgJobSettingsUnusable}},
      {"the profile instead", [](const auto& o) { return JoinPath(o.folder, "_config.pgv"); }, {kMsgJobSettingsUnusable}},
      {"an empty file", replaced(""), {kMsgJobSettingsUnusable}},
      {"garbage", replaced(binary), {kMsgJobSettingsUnusable}},
      {"no section", replaced("Arg03=5\r\nArg26=1\r\n"), {kMsgJobSettingsUnusable}},
      {"a FIFO", [args](const auto& o) {
         fs::remove(args(o));
         EXPECT_EQ(::mkfifo(args(o).c_str(), 0600), 0);
         return args(o);
       }, {kMsgJobSettingsUnusable}},
      {"64 MiB and more", [args](const auto& o) {
         std::string big = "[ArgSect]\r\nArg03=6\r\nArg26=1\r\n";
         big.resize((64u << 20) + 1, ';');
         test::WriteFile(args(o), big);
         return args(o);
       }, {kMsgJobSettingsUnusable}},
      {"a negative frame count", withKey("Arg03", "-6"), {kMsgJobSettingsUnusable}},
      {"a frame count that is no number", withKey("Arg03", "six"), {kMsgJobSettingsUnusable}},
      {"a delete flag that is no number", withKey("Arg26", "yes"), {kMsgJobSettingsUnusable}},
      {"a plot too high", withKeys({{"Arg15", channelsOn}, {"Arg33", "32768"}}), {kMsgJobSettingsUnusable}},
      {"a plot far too high", withKeys({{"Arg15", channelsOn}, {"Arg33", "2147483647"}}), {kMsgJobSettingsUnusable}},
      {"a plot too wide", withKeys({{"Arg15", channelsOn}, {"Arg45", "32768"}}), {kMsgJobSettingsUnusable}},
      {"a plot of negative width", withKeys({{"Arg15", channelsOn}, {"Arg45", "-1"}}), {kMsgJobSettingsUnusable}},
      {"no channel file type", withKeys({{"Arg15", channelsOn}, {"Arg14", "99"}}), {kMsgJobSettingsUnusable}},
      {"a huge font", withKeys({{"Arg05", "4"}, {"Arg17", "65535"}}), {kMsgJobSettingsUnusable}},
      {"the largest font", withKeys({{"Arg05", "4"}, {"Arg17", "2147483647"}}), {kMsgJobSettingsUnusable}},
      {"a time-code offset at the edge", withKeys({{"Arg05", "16"}, {"Arg31", "-2147483648"}}), {kMsgJobSettingsUnusable}},
      {"leap seconds past a day", withKeys({{"Arg05", "16"}, {"Arg39", "0,"}, {"Arg40", "12,"}, {"Arg47",
         "0,0,0,0,0,0,0,0,0,0,0,0,0,0,2147483647,"}}), {kMsgJobSettingsUnusable}},
      {"a device name with a separator", withKeys({{"Arg30", "1"}, {"Arg22", "cams/left"}}), {kMsgJobSettingsUnusable}},
      {"a base name that climbs", withKey("Arg02", "../up"), {kMsgJobSettingsUnusable}},
      {"a base name too long for a path", withKey("Arg02", std::string(250, 'n')), {kMsgJobSettingsUnusable}},
      {"a movie range backwards", [args](const auto& o) {
         SetKey(o.folder, "Arg30", "1");
         const fs::path profile = fs::path(o.folder) / "_config.pgv";
         const std::string text = test::ReadFile(profile);
         test::WriteFile(profile, "[Acquisition]\r\nStartAvi=3\r\nStopAvi=-5\r\n" + text.substr(text.find('\n') + 1));
         return args(o);
       }, {kMsgJobSettingsUnusable}},
      {"more frames than the store holds", withKey("Arg03", "2147483646"),
       {kMsgFrameFailedNegative, kMsgFrameFailedPositive}, false},
  };
  for (const HostileCase& c : cases) {
    SCOPED_TRACE(c.name);
    const recgen::RecordingOptions o = Options(std::string("rec-") + std::to_string(&c - cases.data()));
    ASSERT_EQ(recgen::WriteRecording(o), "");
    const std::string given = c.damage(o);
    const std::string before = test::RawFilesFingerprint(o.folder);
    const std::set<std::string> namesBefore = Names(o.folder);
    CDecodeRaw job(given, 0, 0);
    EXPECT_EQ(job.Start(false), -1);
    EXPECT_TRUE(c.statuses.contains(job.StatusCode())) << job.StatusCode() << ": " << job.StatusText();
    EXPECT_FALSE(job.StatusText().empty()) << "every message names what it is about";
    EXPECT_EQ(job.FinalStatus(), RowStatus::Error);
    EXPECT_EQ(test::RawFilesFingerprint(o.folder), before);
    if (c.writesNothing) {
      EXPECT_EQ(Names(o.folder), namesBefore) << "nothing is written before the checks pass";
    } else {
      int result = 0;
      EXPECT_TRUE(framekit::OpenImageFile(JoinPath(o.folder, "take.mpt"), &result)) << "the cut file stays readable";
    }
  }
  // The same recording, undamaged, is converted and its raw files go: the
  // cases above failed for their damage alone.
  const recgen::RecordingOptions o = Options("intact");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  CDecodeRaw job(JoinPath(o.folder, "args.ini"), 0, 0);
  EXPECT_EQ(job.Start(false), 0) << job.StatusCode() << " " << job.StatusText();
  EXPECT_EQ(job.FinalStatus(), RowStatus::Done);
  EXPECT_EQ(test::RawFilesFingerprint(o.folder), "");
}

// Outputs beside the main file that fail, and a destination that vanishes:
// the job ends Error with the output's path, the raw files stay.
TEST_F(JobEnd, FailingCompanionsAndAVanishedDestinationKeepTheRawFiles) {
  struct Case {
    const char* name;
    std::function<void(const recgen::RecordingOptions&)> prepare;
    std::string failedName;
  };
  const std::vector<Case> cases = {
      {"a sidecar that cannot be opened", [](const auto& o) {
         fs::create_directories(fs::path(o.folder) / "take.time.xml");
         fs::create_directories(fs::path(o.folder) / "take_t.time.xml");
       }, "take_t.time.xml"},
      {"a sidecar on a full disk", [](const auto& o) {
         test::WriteFile(fs::path(o.folder) / "take.time.xml", "older");
         fs::create_symlink("/dev/full", fs::path(o.folder) / "take_t.time.xml");
       }, "take_t.time.xml"},
      {"a companion movie on a full disk", [](const auto& o) {
         SetKey(o.folder, "Arg30", "1");
         fs::create_symlink("/dev/full", fs::path(o.folder) / "cam.avi");
       }, "cam.avi"},
  };
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    recgen::RecordingOptions o = Options(std::string("c") + std::to_string(&c - cases.data()));
    o.timeFromReceiver = true;  // a time-code recording: a sidecar is written
    ASSERT_EQ(recgen::WriteRecording(o), "");
    c.prepare(o);
    const std::string before = test::RawFilesFingerprint(o.folder);
    CDecodeRaw job(JoinPath(o.folder, "args.ini"), 0, 0);
    EXPECT_EQ(job.Start(false), -1);
    EXPECT_EQ(job.StatusCode(), kMsgOutputIncomplete) << job.StatusText();
    EXPECT_NE(job.StatusText().find(c.failedName), std::string::npos) << job.StatusText();
    EXPECT_EQ(job.FinalStatus(), RowStatus::Error);
    EXPECT_EQ(test::RawFilesFingerprint(o.folder), before);
  }

  // The destination removed while the job writes a sequence or any multi-frame file.
  for (const std::int32_t type : {1, 11, 6, 12, 14, 15, 21, 13, 34}) {
    SCOPED_TRACE(type);
    recgen::RecordingOptions o = Options("gone" + std::to_string(type));
    o.fileType = type;
    o.frames = 12;
    ASSERT_EQ(recgen::WriteRecording(o), "");
    const std::string before = test::RawFilesFingerprint(o.folder);
    const std::string dest = dir_.File("dest" + std::to_string(type));
    CDecodeRaw job(JoinPath(o.folder, "args.ini"), 0, 0);
    JobOverrides overrides;
    overrides.fileType = -1;
    job.SetOverrides(dest.c_str(), overrides);
    struct Remover {
      std::string folder;
      static void Report(void* self, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t current,
                         std::int32_t) {
        if (state == kProgressOnly && current == 4) fs::remove_all(static_cast<Remover*>(self)->folder);
      }
    } remover{dest};
    job.SetReportTarget(nullptr, &Remover::Report, &remover);
    EXPECT_EQ(job.Start(false), -1);
    EXPECT_NE(job.StatusCode(), 0);
    EXPECT_EQ(job.FinalStatus(), RowStatus::Error);
    EXPECT_EQ(test::RawFilesFingerprint(o.folder), before);
  }
}

// A job ends once: an abort that arrives with the last frame's report makes it
// Abort, never Done and then Abort; a run of no frames is Done without
// deleting anything; a frame file whose write failed is not left behind.
TEST_F(JobEnd, LateAbortsEmptyRangesAndFailedFrameFiles) {
  recgen::RecordingOptions o = Options("late");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string before = test::RawFilesFingerprint(o.folder);
  struct LastFrameAbort {
    ConversionJob* job = nullptr;
    std::vector<std::int32_t> finals;
    static void Report(void* self, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t current,
                       std::int32_t total) {
      auto* me = static_cast<LastFrameAbort*>(self);
      if (state == kProgressOnly && current == total) me->job->Abort();
      if (state != kProgressOnly && state != 1) me->finals.push_back(state);
    }
  };
  CDecodeRaw late(JoinPath(o.folder, "args.ini"), 0, 0);
  LastFrameAbort watcher{&late, {}};
  late.SetReportTarget(nullptr, &LastFrameAbort::Report, &watcher);
  EXPECT_EQ(late.Start(false), -1);
  EXPECT_EQ(late.FinalStatus(), RowStatus::Abort);
  EXPECT_EQ(watcher.finals, std::vector<std::int32_t>{3}) << "one final report, and it says Abort";
  EXPECT_EQ(test::RawFilesFingerprint(o.folder), before);

  SetKey(o.folder, "Arg03", "0");
  const std::string emptyBefore = test::RawFilesFingerprint(o.folder);
  CDecodeRaw empty(JoinPath(o.folder, "args.ini"), 0, 0);
  EXPECT_EQ(empty.Start(false), 0);
  EXPECT_EQ(empty.FinalStatus(), RowStatus::Done);
  EXPECT_EQ(test::RawFilesFingerprint(o.folder), emptyBefore) << "nothing converted, nothing deleted";

  // A sequence whose fourth frame meets a full disk: three whole frames, no fourth file.
  recgen::RecordingOptions seq = Options("seq");
  seq.fileType = 1;
  ASSERT_EQ(recgen::WriteRecording(seq), "");
  fs::create_symlink("/dev/full", fs::path(seq.folder) / "take000002.tif");
  CDecodeRaw frames(JoinPath(seq.folder, "args.ini"), 0, 0);
  EXPECT_EQ(frames.Start(false), -1);
  EXPECT_EQ(frames.StatusText(), JoinPath(seq.folder, "take000002.tif"));
  EXPECT_FALSE(fs::exists(fs::symlink_status(fs::path(seq.folder) / "take000002.tif"))) << "the failed frame's file went";
  for (const char* kept : {"take-000001.tif", "take000000.tif", "take000001.tif"})
    EXPECT_TRUE(fs::exists(fs::path(seq.folder) / kept)) << kept;
}

}  // namespace
}  // namespace tarnvel
