// What the tests of whole conversions share: generated recordings, a job
// run with its reports, the frames the driver delivers and the frames a
// written file holds.
#pragma once

#include <gtest/gtest.h>

#include <atomic>
#include <cstdint>
#include <cstdlib>
#include <optional>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "platform/framekit/ImageReader.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"

namespace tarnvel::test {

// The frame that the driver delivers for store frame i, processed or as
// the sensor's mosaic.
inline std::vector<std::uint8_t> SourceFrame(const std::string& folder, std::int32_t i, bool mosaic = false) {
  RawSource source;
  EXPECT_EQ(source.Open(folder.c_str()), 0);
  source.SetMosaicDelivery(mosaic);
  std::vector<std::uint8_t> frame(FrameBytes(source.Handle()));
  EXPECT_EQ(source.ReadFrame(i, frame.data()), 0);
  return frame;
}

// Frame `index` of a written file as its reader gives it, with the file's
// description; empty pixels (and a failure) when it cannot be read.
inline framekit::DecodedFrame Decoded(const std::string& path, std::uint32_t index = 0,
                                      framekit::ImageFileInfo* info = nullptr) {
  framekit::DecodedFrame decoded;
  int result = 0;
  auto file = framekit::OpenImageFile(path, &result);
  if (!file) {
    ADD_FAILURE() << path << ": " << result;
    return decoded;
  }
  if (info) *info = file->Info();
  EXPECT_EQ(file->ReadFrame(index, decoded), 0) << path;
  return decoded;
}

// Sets how many workers the jobs started while it lives use for their frames.
class FrameWorkers : public ScopedVariable {
 public:
  explicit FrameWorkers(const char* count) : ScopedVariable("TARNVEL_FRAME_WORKERS", count) {}
};

struct Reported {
  std::vector<std::int32_t> states;  // read only after the job's end
  std::atomic<std::int32_t> lastCurrent{0};
  static void Report(void* context, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t current,
                     std::int32_t) {
    auto* self = static_cast<Reported*>(context);
    if (state != -1) self->states.push_back(state);
    self->lastCurrent = current;
  }
};

class ConvertJob : public ::testing::Test {
 protected:
  void SetUp() override { ASSERT_EQ(DriverInit(0), 0); }
  void TearDown() override { DriverExit(); }

  recgen::RecordingOptions Options(const std::string& name, std::uint32_t frames) {
    recgen::RecordingOptions o;
    o.folder = dir_.File(name);
    o.width = 64, o.height = 48;
    o.frames = frames;
    o.preTrigger = 3;
    o.baseName = "take";
    o.deviceName = "cam";
    return o;
  }
  std::string Write(const recgen::RecordingOptions& o) {
    EXPECT_EQ(recgen::WriteRecording(o), "");
    return JoinPath(o.folder, "args.ini");
  }
  int Run(CDecodeRaw& job) {
    job.SetReportTarget(nullptr, &Reported::Report, &reported_);
    return job.Start(false);
  }
  test::TempDir dir_;
  Reported reported_;
};

}  // namespace tarnvel::test
