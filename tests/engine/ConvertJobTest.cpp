// Whole conversions of generated recordings: names, frame counts, pixels,
// metadata, sidecar, copies, deletion, and the faults a job must survive.
#include "engine/DecodeRaw.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstring>
#include <filesystem>
#include <fstream>
#include <atomic>
#include <condition_variable>
#include <mutex>
#include <thread>

#include "apps/recgen/RecordingGenerator.h"
#include "tests/engine/ConvertJobFixture.h"
#include "engine/FrameMetadata.h"
#include "platform/cordage/Messages.h"
#include "platform/framekit/ImageReader.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

using test::ConvertJob;
using test::FrameWorkers;
using test::Decoded;
using test::Reported;
using test::SourceFrame;

TEST_F(ConvertJob, TiffSequenceWithNamesPixelsAndMetadata) {
  auto o = Options("rec", 8);
  const std::string args = Write(o);
  CDecodeRaw job(args, 0, 0);
  ASSERT_EQ(Run(job), 0) << job.StatusCode() << " " << job.StatusText();
  EXPECT_EQ(job.GetRunState(), RunState::Finished);
  EXPECT_EQ(reported_.states, (std::vector<std::int32_t>{1, 2}));
  EXPECT_EQ(reported_.lastCurrent, 8);
  // Frames -3 to 4: the minus sign takes one of seven places.
  for (int n = -3; n <= 4; ++n) {
    char name[32];
    std::snprintf(name, sizeof name, n < 0 ? "take%07d.tif" : "take%06d.tif", n);
    ASSERT_TRUE(fs::exists(fs::path(o.folder) / name)) << name;
  }
  EXPECT_FALSE(fs::exists(fs::path(o.folder) / "take000005.tif"));
  // Pixels as the source delivered them, and the frame's metadata block.
  const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, "take000002.tif"));
  EXPECT_EQ(decoded.pixels, SourceFrame(o.folder, 5)) << "store frame 5 is frame number 2";
  ASSERT_TRUE(decoded.hasMetadata);
  const auto& block = decoded.metadata;
  EXPECT_EQ(std::memcmp(block.data(), "OKN_BD1", 7), 0);
  std::uint32_t frameIndex, serial;
  std::memcpy(&frameIndex, block.data() + 280, 4);
  std::memcpy(&serial, block.data() + 231, 4);
  EXPECT_EQ(frameIndex, 2u);
  EXPECT_EQ(serial, o.serial);
  EXPECT_EQ(block[8], 2) << "a monochrome sensor";
  EXPECT_STREQ(reinterpret_cast<const char*>(block.data()) + 128, "cam");
  EXPECT_EQ(std::memcmp(block.data() + 1020, "EoBD", 4), 0);
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << "delete-raw is off in the argument file";
}

// Under automatic exposure each frame's block carries that frame's exposure,
// while the next frame is already being read.
TEST_F(ConvertJob, EachFrameCarriesItsOwnAutoExposure) {
  auto o = Options("auto", 12);
  o.fileType = 11;
  o.autoExposure = true;
  CDecodeRaw job(Write(o), 0, 0);
  ASSERT_EQ(Run(job), 0) << job.StatusCode() << " " << job.StatusText();
  int result = 0;
  auto file = framekit::OpenImageFile(JoinPath(o.folder, "take.mpt"), &result);
  ASSERT_TRUE(file) << result;
  ASSERT_EQ(file->Info().frameCount, 12u);
  for (std::uint32_t i = 0; i < 12; ++i) {
    framekit::DecodedFrame decoded;
    ASSERT_EQ(file->ReadFrame(i, decoded), 0);
    ASSERT_TRUE(decoded.hasMetadata);
    std::uint32_t exposure = 0;
    std::memcpy(&exposure, decoded.metadata.data() + 119, 4);
    const std::uint32_t expected = (o.exposureNs - (i % 10) * (o.exposureNs / 20)) / 1000;  // as the generator varies it
    EXPECT_EQ(exposure, expected) << "frame " << i;
  }
}

TEST_F(ConvertJob, MultiFrameFileDestinationCopiesAndDeletion) {
  auto o = Options("rec", 6);
  o.fileType = 11;
  o.deleteRaw = 1;
  const std::string args = Write(o);
  const std::string dest = dir_.File("out");
  fs::create_directories(fs::path(dest) / "rec");  // taken: the job gets rec(001)
  CDecodeRaw job(args, 0, 0);
  JobOverrides overrides;
  overrides.fileType = -1;
  job.SetOverrides(dest.c_str(), overrides);
  ASSERT_EQ(Run(job), 0) << job.StatusCode() << " " << job.StatusText();
  const fs::path out = fs::path(dest) / "rec(001)";
  ASSERT_TRUE(fs::exists(out / "take.mpt"));
  int result = 0;
  auto file = framekit::OpenImageFile((out / "take.mpt").string(), &result);
  ASSERT_TRUE(file);
  EXPECT_EQ(file->Info().frameCount, 6u);
  for (const char* copied : {"_config.pgv", "_config.mme", "_config.mii"}) EXPECT_TRUE(fs::exists(out / copied)) << copied;
  EXPECT_FALSE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << "raw files go after a run without error";
  EXPECT_FALSE(fs::exists(fs::path(o.folder) / "args.ini"));
  EXPECT_TRUE(fs::exists(fs::path(o.folder) / "_config.pgv")) << "other files stay";
}

TEST_F(ConvertJob, EarlyFailuresCarryTheirStatus) {
  CDecodeRaw noFolder(dir_.File("missing/args.ini"), 0, 0);
  EXPECT_EQ(Run(noFolder), -1);
  EXPECT_EQ(noFolder.StatusCode(), kMsgArgsFolderMissing);
  fs::create_directories(dir_.path() / "empty");
  test::WriteFile(dir_.path() / "empty/args.ini", "[ArgSect]\r\nArg03=5\r\n");
  CDecodeRaw noRecording(dir_.File("empty/args.ini"), 0, 0);
  EXPECT_EQ(Run(noRecording), -1);
  EXPECT_EQ(noRecording.StatusCode(), kMsgProfileUnreadable);
  auto o = Options("nostore", 4);
  const std::string args = Write(o);
  fs::remove(fs::path(o.folder) / "rawdata.00.raw");
  CDecodeRaw noStore(args, 0, 0);
  EXPECT_EQ(Run(noStore), -1);
  EXPECT_EQ(noStore.StatusCode(), kMsgRawOpenFailed);
  EXPECT_EQ(noStore.StatusText(), o.folder);
  test::WriteFile(dir_.path() / "blocker", "x");
  auto p = Options("rec", 4);
  CDecodeRaw badDest(Write(p), 0, 0);
  badDest.SetOverrides(dir_.File("blocker").c_str(), JobOverrides{});
  EXPECT_EQ(Run(badDest), -1);
  EXPECT_EQ(badDest.StatusCode(), kMsgOutputFolderFailed);
  EXPECT_TRUE(reported_.states.empty()) << "a job that fails before its output opens reports nothing";
}

TEST_F(ConvertJob, DamagedFrameClosesTheFileInGoodOrderAndKeepsTheRawFiles) {
  auto o = Options("rec", 40);
  o.fileType = 11;
  o.deleteRaw = 1;
  const std::string args = Write(o);
  // Damage store frame 37: its trailer's store index no longer matches.
  const fs::path store = fs::path(o.folder) / "rawdata.00.raw";
  const std::uint64_t frameSize = (fs::file_size(store) - 256) / 40;
  {
    std::fstream f(store, std::ios::in | std::ios::out | std::ios::binary);
    f.seekp(static_cast<std::streamoff>(256 + frameSize * 38 - 48 + 40));
    const std::uint32_t wrong = 9999;
    f.write(reinterpret_cast<const char*>(&wrong), 4);
  }
  CDecodeRaw job(args, 0, 0);
  EXPECT_EQ(Run(job), -1);
  EXPECT_TRUE(job.StatusCode() == kMsgFrameFailedNegative || job.StatusCode() == kMsgFrameFailedPositive) << job.StatusCode();
  EXPECT_EQ(job.StatusText(), JoinPath(o.folder, "take.mpt"));
  int result = 0;
  auto file = framekit::OpenImageFile(JoinPath(o.folder, "take.mpt"), &result);
  ASSERT_TRUE(file) << "the file stays readable";
  EXPECT_EQ(file->Info().frameCount, 38u) << "37 good frames and the extra last one";
  EXPECT_TRUE(fs::exists(store)) << "raw files stay after a failure";
}

// Holds the job's thread in its report of frame `at` until the test's thread
// has done what it is to do there, so that the job cannot run ahead of the
// test however the machine schedules the two.
struct Rendezvous {
  std::mutex mutex;
  std::condition_variable changed;
  std::int32_t at = -1, reached = 0;
  bool released = false;
  std::atomic<std::int32_t> lastCurrent{0};
  std::atomic<bool> wentBack{false};  // a report counted fewer frames than the one before
  std::vector<std::int32_t> states;  // read only after the job's end
  static void Report(void* context, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t current,
                     std::int32_t) {
    auto* self = static_cast<Rendezvous*>(context);
    if (state != -1) self->states.push_back(state);
    if (current < self->lastCurrent) self->wentBack = true;
    self->lastCurrent = current;
    std::unique_lock lock(self->mutex);
    if (state != -1 || current != self->at) return;
    self->reached = current;
    self->changed.notify_all();
    self->changed.wait(lock, [self] { return self->released; });
    self->released = false;
  }
  // Sets the frame to hold at, before the job can reach it.
  void HoldAt(std::int32_t frame) {
    std::lock_guard lock(mutex);
    at = frame;
  }
  // Waits until the job reports frame `frame`, runs `step` while it waits there, then lets it go on.
  template <class Step>
  void At(std::int32_t frame, Step step) {
    {
      std::unique_lock lock(mutex);
      changed.wait(lock, [&] { return reached == frame; });
    }
    step();
    std::lock_guard lock(mutex);
    released = true;
    changed.notify_all();
  }
};

TEST_F(ConvertJob, PauseResumeAndAbortFromAnotherThread) {
  // With one worker and with several, into one file and into a file per
  // frame: frames under way when the gate closes do not show, and after the
  // abort exactly the frames before it exist.
  struct Case {
    const char* workers;
    std::int32_t fileType;
  };
  std::string args;
  for (const Case c : {Case{"1", 11}, Case{"4", 11}, Case{"4", 1}}) {
    SCOPED_TRACE(std::string(c.workers) + " workers, type " + std::to_string(c.fileType));
    const FrameWorkers workers(c.workers);
    auto o = Options(std::string("rec") + c.workers + "-" + std::to_string(c.fileType), 400);
    o.fileType = c.fileType;
    args = Write(o);
    CDecodeRaw job(args, 0, 0);
    Rendezvous reported;
    job.SetReportTarget(nullptr, &Rendezvous::Report, &reported);
    reported.HoldAt(5);
    ASSERT_EQ(job.Start(true), 0);
    EXPECT_EQ(job.GetRunState(), RunState::RunningOnThread);
    reported.At(5, [&] { job.Pause(); });
    std::this_thread::sleep_for(std::chrono::milliseconds(60));
    EXPECT_EQ(reported.lastCurrent, 5) << "a closed gate holds the job at its next frame";
    EXPECT_EQ(job.WaitDone(0), 0);
    reported.HoldAt(10);
    job.Resume();
    reported.At(10, [&] { job.Abort(); });
    while (job.WaitDone(100) == 0) {
    }
    EXPECT_EQ(job.StatusCode(), kMsgAborted);
    EXPECT_EQ(reported.states.back(), 3) << "the final report says Abort";
    EXPECT_FALSE(reported.wentBack);
    EXPECT_TRUE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << "an abort keeps the raw files";
    if (c.fileType == 1) {
      std::size_t frameFiles = 0;
      for (const auto& entry : fs::directory_iterator(o.folder)) frameFiles += entry.path().extension() == ".tif";
      EXPECT_EQ(frameFiles, 10u) << "no file of a frame that was under way at the abort";
      continue;
    }
    int result = 0;
    auto file = framekit::OpenImageFile(JoinPath(o.folder, "take.mpt"), &result);
    ASSERT_TRUE(file) << "the output is closed with what it holds";
    EXPECT_EQ(file->Info().frameCount, 10u);
  }

  // A forgotten pause ends by itself after the gate's time.
  CDecodeRaw paused(args, 0, 0);
  paused.SetPauseTimeout(std::chrono::milliseconds(20));
  paused.Pause();
  Reported quiet;
  paused.SetReportTarget(nullptr, &Reported::Report, &quiet);
  EXPECT_EQ(paused.Start(false), 0);
  EXPECT_EQ(quiet.lastCurrent, 400);
}

// An abort that arrives while the first frame of a multi-frame file is on its
// way: the file is closed with what it holds, the report says Abort, the raw
// files stay.
struct AbortWhenConverting {
  ConversionJob* job = nullptr;
  std::vector<std::int32_t> states;
  static void Report(void* context, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t,
                     std::int32_t) {
    auto* self = static_cast<AbortWhenConverting*>(context);
    if (state == -1) return;
    self->states.push_back(state);
    if (state == 1 || state == 5) self->job->Abort();  // the output is open, the first frame comes next
  }
};

TEST_F(ConvertJob, AbortDuringTheFirstFrameOfAMultiFrameFile) {
  const struct {
    std::int32_t type;
    const char* name;
  } types[] = {{11, "take.mpt"}, {13, "take.avi"}, {34, "take.ch10"}};
  for (const auto& [type, name] : types) {
    auto o = Options("first" + std::to_string(type), 5);
    o.fileType = type;
    o.deleteRaw = 1;
    CDecodeRaw job(Write(o), 0, 0);
    AbortWhenConverting reported;
    reported.job = &job;
    job.SetReportTarget(nullptr, &AbortWhenConverting::Report, &reported);
    EXPECT_EQ(job.Start(false), -1) << type;
    EXPECT_EQ(job.StatusCode(), kMsgAborted);
    ASSERT_FALSE(reported.states.empty());
    EXPECT_EQ(reported.states.back(), 3);
    EXPECT_TRUE(fs::exists(fs::path(o.folder) / "rawdata.00.raw")) << type;
    // No frame reached it: the file was opened and closed and holds nothing.
    const fs::path file = fs::path(o.folder) / name;
    ASSERT_TRUE(fs::exists(file)) << file;
    EXPECT_EQ(fs::file_size(file), 0u) << file;
  }
}

TEST_F(ConvertJob, TimeSidecarForTimeCodeRecordings) {
  auto o = Options("rec", 3);
  const std::string args = Write(o);
  // A time-code sync input switches the sidecar on.
  std::string profile = test::ReadFile(fs::path(o.folder) / "_config.pgv");
  profile += "SyncInCfg=5\r\n";
  test::WriteFile(fs::path(o.folder) / "_config.pgv", "[Acquisition]\r\nSyncInCfg=5\r\n" + profile.substr(profile.find('\n') + 1));
  CDecodeRaw job(args, 0, 0);
  ASSERT_EQ(Run(job), 0);
  const std::string xml = test::ReadFile(fs::path(o.folder) / "take.time.xml");
  EXPECT_EQ(xml.rfind("<Data>\n    <Sequence>\n        <UTCOffset>0</UTCOffset>\n", 0), 0u) << xml;
  EXPECT_NE(xml.find("        <FrameCount>3</FrameCount>\n"), std::string::npos);
  std::size_t frames = 0;
  for (std::size_t at = xml.find("<Frame>"); at != std::string::npos; at = xml.find("<Frame>", at + 1)) ++frames;
  EXPECT_EQ(frames, 3u);
  EXPECT_NE(xml.find("<FrameIndex>-3</FrameIndex>"), std::string::npos);
  EXPECT_NE(xml.find("<Year>2024</Year>"), std::string::npos);
  EXPECT_EQ(xml.substr(xml.size() - 8), "</Data>\n");
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// The column of the plot's cursor: the column with the longest run of the
// cursor's grey (colour 9 at 12 bits) in the plot rows.
int CursorColumn(const std::vector<std::uint8_t>& pixels, int width, int height, int plotRows) {
  const std::uint16_t cursor = 0xA0 << 4;
  int best = -1, bestRun = 0;
  for (int x = 0; x < width; ++x) {
    int run = 0;
    for (int y = height - plotRows; y < height; ++y) {
      std::uint16_t v;
      std::memcpy(&v, &pixels[(static_cast<std::size_t>(y) * width + x) * 2], 2);
      run += v == cursor;
    }
    if (run > bestRun) bestRun = run, best = x;
  }
  return bestRun > plotRows / 2 ? best : -1;
}

TEST_F(ConvertJob, ChannelPlotUnderEveryFrameInEveryForm) {
  for (int form = 1; form <= 7; ++form) {
    auto o = Options("ch" + std::to_string(form), 6);
    o.width = 320, o.height = 120;
    o.channelForm = form;
    o.overlayFlags = 0x80;  // the channel value
    o.plotHeight = 100;
    const std::string args = Write(o);
    CDecodeRaw job(args, 0, 0);
    ASSERT_EQ(Run(job), 0) << "form " << form << ": " << job.StatusCode() << " " << job.StatusText();
    std::vector<int> cursors;
    for (int n : {-3, 0, 2}) {
      char name[32];
      std::snprintf(name, sizeof name, n < 0 ? "take%07d.tif" : "take%06d.tif", n);
      framekit::ImageFileInfo info;
      const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, name), 0, &info);
      EXPECT_EQ(info.height, 220u) << "the plot's rows come below the picture";
      ASSERT_FALSE(decoded.pixels.empty());
      cursors.push_back(CursorColumn(decoded.pixels, 320, 220, 100));
    }
    ASSERT_GE(cursors[0], 0) << "form " << form;
    EXPECT_LT(cursors[0], cursors[1]) << "the cursor moves with the frame, form " << form;
    EXPECT_LT(cursors[1], cursors[2]) << "form " << form;
  }
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// Text burnt into the top bar at every output depth: the bar holds the text in
// white at the depth's value, and the picture below is the source's, untouched.
TEST_F(ConvertJob, BurnInAtEveryDepthLeavesThePictureAlone) {
  struct Case {
    bool colour;
    std::int32_t depth;
    std::uint32_t white;  // one sample of white text
  } cases[] = {{false, 8, 255}, {false, 12, 4080}, {true, 24, 255}, {true, 36, 4080}, {true, 21, 127}};
  for (const Case& c : cases) {
    auto o = Options(std::string(c.colour ? "colour" : "mono") + std::to_string(c.depth), 3);
    o.width = 200, o.height = 80;
    o.colour = c.colour;
    o.overlayFlags = 0x4;  // the frame number
    o.topBar = true;
    const std::string args = Write(o);
    CDecodeRaw job(args, 0, 0);
    JobOverrides overrides;
    overrides.fileType = 1;
    overrides.outputDepth = c.depth;
    overrides.deleteRaw = 0;
    job.SetOverrides(nullptr, overrides);
    ASSERT_EQ(Run(job), 0) << c.depth << ": " << job.StatusText();
    framekit::ImageFileInfo info;
    const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, "take-000002.tif"), 0, &info);
    EXPECT_EQ(info.bits, static_cast<std::uint32_t>(c.depth));
    ASSERT_EQ(info.height, 80u + 32) << "a bar of 32 rows above the picture";
    const std::size_t sample = c.depth <= 8 || (c.depth > 16 && c.depth <= 24) ? 1 : 2;
    const std::size_t channels = c.colour ? 3 : 1;
    auto at = [&](std::size_t x, std::size_t y, std::size_t k) -> std::uint32_t {
      const std::size_t i = ((y * 200 + x) * channels + k) * sample;
      return sample == 1 ? decoded.pixels[i] : decoded.pixels[i] | decoded.pixels[i + 1] << 8;
    };
    std::size_t textPixels = 0;
    for (std::size_t y = 0; y < 32; ++y)
      for (std::size_t x = 0; x < 200; ++x) {
        const std::uint32_t v = at(x, y, 0);
        ASSERT_TRUE(v == 0 || v == c.white) << "bar pixel " << x << "," << y << " is " << v << " at depth " << c.depth;
        textPixels += v == c.white;
      }
    EXPECT_GT(textPixels, 50u) << c.depth;
    // The picture: the source frame brought to the output depth (upper bits kept).
    const auto source = SourceFrame(o.folder, 1);
    const std::uint32_t sourceChannelBits = 12, outChannelBits = c.colour ? c.depth / 3 : c.depth;
    for (std::size_t y = 0; y < 80; y += 7)
      for (std::size_t x = 0; x < 200; x += 5)
        for (std::size_t k = 0; k < channels; ++k) {
          const std::size_t i = (y * 200 + x) * channels + k;
          const std::uint32_t s = source[2 * i] | source[2 * i + 1] << 8;
          const std::uint32_t expected = outChannelBits >= sourceChannelBits ? s : s >> (sourceChannelBits - outChannelBits);
          ASSERT_EQ(at(x, y + 32, k), expected) << "picture pixel " << x << "," << y << " depth " << c.depth;
        }
  }
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// A logo with alpha from the generator: opaque inside, see-through border.
TEST_F(ConvertJob, LogoWithAlphaIsBurntInWhereItIsOpaque) {
  auto o = Options("logo", 2);
  o.width = 320, o.height = 240, o.preTrigger = 0;
  o.logo1 = dir_.File("logo.png");
  ASSERT_EQ(recgen::WriteLogo(o.logo1, 80, 40), "");
  o.overlayFlags = 0x400;  // the first logo alone
  o.overlayPosition = 0;   // top left, format 0: 250 percent, so 200 x 100 pixels
  const std::string args = Write(o);
  CDecodeRaw job(args, 0, 0);
  ASSERT_EQ(Run(job), 0);
  const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, "take000001.tif"));
  ASSERT_FALSE(decoded.pixels.empty());
  const auto source = SourceFrame(o.folder, 1);
  auto same = [&](int x, int y) {
    const std::size_t i = (static_cast<std::size_t>(y) * 320 + x) * 2;
    return decoded.pixels[i] == source[i] && decoded.pixels[i + 1] == source[i + 1];
  };
  const auto value = [](const std::vector<std::uint8_t>& p, int x, int y) {
    const std::size_t i = (static_cast<std::size_t>(y) * 320 + x) * 2;
    return p[i] | p[i + 1] << 8;
  };
  EXPECT_EQ(value(decoded.pixels, 5, 5), (value(source, 5, 5) * 255) >> 8)
      << "the transparent border keeps the picture, at 255/256 of its value as the blend weights it";
  EXPECT_FALSE(same(100, 30)) << "the opaque inside replaces it";
  EXPECT_TRUE(same(250, 30)) << "beyond the logo nothing changes";
  EXPECT_TRUE(same(100, 150));
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

// Every image and container type from a monochrome and a colour recording:
// the names the type asks for, the frame count, and pixels that a reader opens.
// From a colour sensor the mosaic containers keep the sensor's plane as the
// driver delivers it, sample for sample.
TEST_F(ConvertJob, MosaicContainersCarryTheSensorPlaneOfAColourRecording) {
  const struct {
    std::int32_t type;
    const char* name;
  } types[] = {{6, "take.fba"}, {12, "take.mrf"}, {14, "take.mcf"}};
  for (const auto& [type, name] : types) {
    auto o = Options("mosaic" + std::to_string(type), 3);
    o.width = 48, o.height = 32, o.colour = true;
    o.fileType = type;
    CDecodeRaw job(Write(o), 0, 0);
    ASSERT_EQ(Run(job), 0) << type << ": " << job.StatusCode() << " " << job.StatusText();
    framekit::ImageFileInfo info;
    const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, name), 2, &info);
    EXPECT_EQ(info.mosaic, 1u) << name;
    EXPECT_EQ(decoded.pixels, SourceFrame(o.folder, 2, true)) << name;
  }
}

TEST_F(ConvertJob, EveryImageTypeFromMonochromeAndColour) {
  const struct {
    std::int32_t type;
    const char* extension;
    bool multiFrame;
  } types[] = {{1, "tif", false},  {2, "bmp", false},  {3, "jpg", false}, {4, "png", false}, {5, "tp2", false},
               {6, "fba", true},   {7, "dpx", false},  {9, "tga", false}, {11, "mpt", true}, {12, "mrf", true},
               {14, "mcf", true},  {15, "bld", true},  {21, "t2c", true}, {51, "dng", false}};
  for (bool colour : {false, true}) {
    for (const auto& t : types) {
      auto o = Options(std::string(colour ? "c" : "m") + std::to_string(t.type), 3);
      o.width = 48, o.height = 32, o.preTrigger = 1, o.colour = colour;
      o.fileType = t.type;
      const std::string args = Write(o);
      CDecodeRaw job(args, 0, 0);
      ASSERT_EQ(Run(job), 0) << t.type << (colour ? " colour: " : " mono: ") << job.StatusCode() << " " << job.StatusText();
      const std::string first = t.multiFrame ? "take." + std::string(t.extension) : "take-000001." + std::string(t.extension);
      const std::string path = JoinPath(o.folder, first);
      ASSERT_TRUE(fs::exists(path)) << path;
      int result = 0;
      auto file = framekit::OpenImageFile(path, &result);
      ASSERT_TRUE(file) << path << " " << result;
      EXPECT_EQ(file->Info().frameCount, t.multiFrame ? 3u : 1u) << path;
      framekit::DecodedFrame decoded;
      EXPECT_EQ(file->ReadFrame(0, decoded), 0) << path;
      if (!t.multiFrame) {
        EXPECT_TRUE(fs::exists(JoinPath(o.folder, "take000001." + std::string(t.extension)))) << t.type;
      }
    }
  }
}

// What ffprobe finds in a movie: "width,height,frames", or empty.
std::string ProbeMovie(const std::string& path) {
  std::string output;
  if (test::RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                       "stream=width,height,nb_read_frames -of csv=p=0 '" + path + "'",
                       &output) != 0)
    return {};
  output.resize(output.find('\n') == std::string::npos ? output.size() : output.find('\n'));
  while (!output.empty() && output.back() == ',') output.pop_back();  // some muxers add an empty field
  return output;
}

// The movie types and Chapter 10 from a recording with its channel plot: one
// file named after the base name, every frame in it, the plot's rows included.
TEST_F(ConvertJob, MoviesAndChapter10CarryEveryFrameWithThePlot) {
  const struct {
    std::int32_t type;
    const char* extension;
  } types[] = {{13, "avi"}, {16, "mpg"}, {17, "wmv"}, {18, "mp4"}, {20, "mov"}, {34, "ch10"}};
  for (const auto& t : types) {
    auto o = Options(std::string("mv") + std::to_string(t.type), 7);
    o.width = 320, o.height = 120;
    o.fileType = t.type;
    o.channelForm = 1;
    o.overlayFlags = 0x80;
    o.plotHeight = 100;
    const std::string args = Write(o);
    CDecodeRaw job(args, 0, 0);
    ASSERT_EQ(Run(job), 0) << t.type << ": " << job.StatusCode() << " " << job.StatusText();
    const std::string path = JoinPath(o.folder, "take." + std::string(t.extension));
    ASSERT_TRUE(fs::exists(path)) << path;
    if (t.type != 34) {
      EXPECT_EQ(ProbeMovie(path), "320,220,7") << path;
      continue;
    }
    // Chapter 10 (its packets are checked by the library's own tests): a
    // file that begins with a packet and holds every picture's bytes.
    const std::string file = test::ReadFile(path);
    ASSERT_GE(file.size(), std::size_t{7} * 320 * 220 * 2);
    EXPECT_EQ(static_cast<std::uint8_t>(file[0]) | static_cast<std::uint8_t>(file[1]) << 8, 0xEB25);
  }
}

// The companion movie: an AVI named after the device beside the main output,
// and "(01)" added when the main output is itself that AVI.
TEST_F(ConvertJob, CompanionMovieBesideTheMainOutput) {
  auto o = Options("companion", 8);  // a sine of four frames: 0 V on the first, its peak on the second
  o.companionMovie = 3;
  o.channelForm = 2;
  o.overlayFlags = 0x80;  // the channel value, alone in the text bar
  o.topBar = true;
  o.plotHeight = 40;
  CDecodeRaw tiffJob(Write(o), 0, 0);
  ASSERT_EQ(Run(tiffJob), 0) << tiffJob.StatusCode() << " " << tiffJob.StatusText();
  // The plot is 256 columns wide: the movie shows the widened picture, as the
  // TIFFs do: bar, picture and plot.
  constexpr int kWidth = 256, kHeight = 32 + 48 + 40, kBar = 32 * kWidth;
  EXPECT_EQ(ProbeMovie(JoinPath(o.folder, "cam.avi")), "256,120,8");
  // The bar shows each frame's channel value: text in it, and another text
  // on the second frame than on the first.
  std::vector<std::vector<std::uint8_t>> bars;
  for (const char* name : {"take-000003.tif", "take-000002.tif"}) {
    framekit::ImageFileInfo info;
    const framekit::DecodedFrame decoded = Decoded(JoinPath(o.folder, name), 0, &info);
    ASSERT_EQ(info.width, std::uint32_t{kWidth});
    ASSERT_EQ(info.height, std::uint32_t{kHeight});
    bars.emplace_back(decoded.pixels.begin(), decoded.pixels.begin() + 2 * kBar);
  }
  EXPECT_TRUE(std::any_of(bars[0].begin(), bars[0].end(), [](std::uint8_t v) { return v != 0; }));
  EXPECT_NE(bars[0], bars[1]) << "the value changes from frame to frame";
  // The same in the movie, decoded by FFmpeg.
  const std::string grey = dir_.File("movie.grey");
  ASSERT_EQ(test::RunCommand("ffmpeg -v error -y -i '" + JoinPath(o.folder, "cam.avi") + "' -f rawvideo -pix_fmt gray '" +
                             grey + "'"),
            0);
  const std::string movie = test::ReadFile(grey);
  ASSERT_EQ(movie.size(), std::size_t{8} * kWidth * kHeight);
  int brightInBar = 0, changed = 0;
  for (int i = 0; i < kBar; ++i) {
    const int first = static_cast<std::uint8_t>(movie[i]), second = static_cast<std::uint8_t>(movie[kWidth * kHeight + i]);
    brightInBar += first > 128;
    changed += std::abs(first - second) > 64;
  }
  EXPECT_GT(brightInBar, 20) << "white text in the movie's bar";
  EXPECT_GT(changed, 5) << "another value on the second frame (0.000, then the peak: a digit or more differs)";

  auto same = Options("same", 4);
  same.companionMovie = 3;
  same.fileType = 13;
  same.baseName = "cam";
  CDecodeRaw aviJob(Write(same), 0, 0);
  ASSERT_EQ(Run(aviJob), 0) << aviJob.StatusCode() << " " << aviJob.StatusText();
  EXPECT_EQ(ProbeMovie(JoinPath(same.folder, "cam.avi")), "64,48,4");
  EXPECT_EQ(ProbeMovie(JoinPath(same.folder, "cam(01).avi")), "64,48,4");
}

}  // namespace
}  // namespace tarnvel
