// What one run of a job holds from its start to its common end.
#pragma once

#include <cstdint>
#include <memory>
#include <optional>
#include <string>

#include "channels/ChannelData.h"
#include "channels/ChannelSettings.h"
#include "engine/FrameMetadata.h"
#include "engine/FramePlan.h"
#include "engine/JobOverrides.h"
#include "engine/OutputLedger.h"
#include "engine/OutputPlan.h"
#include "engine/RawDeletion.h"
#include "platform/framekit/FrameKit.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {

struct JobRun {
  JobRun() = default;
  JobRun(const JobRun&) = delete;
  JobRun& operator=(const JobRun&) = delete;
  // Outputs still open here were left by a run that did not reach its common
  // end (an exception); closing them keeps what they hold readable.
  ~JobRun() {
    if (outHandle) CloseOutput(outHandle);
    if (movieHandle) CloseOutput(movieHandle);
  }

  std::uint32_t startTicks = 0;
  std::unique_ptr<RecordingInfo> recording;
  std::string recordingFolder;
  std::string outputFolder;
  std::string extension;
  bool copyProfile = false;
  CodecSettings codec{};
  std::string channelPath;  // empty when channel data is off
  PlotSettings plotSettings;
  ChannelSettings channelSettings;
  ChannelData channelData;  // read once per run
  bool channelDataLoaded = false;
  bool mosaicMode = false;
  bool sidecarOn = false;
  FrameHandle outHandle = nullptr;
  FrameHandle movieHandle = nullptr;
  // The options each output opens with (null: the library's in force).
  std::optional<FrameOptions> outputOptions, movieOptions;
  // What the frame step does to this run's frames, and whether the job's
  // frame buffers could be sized for it.
  FramePlan plan;
  bool buffersReady = false;
  // What the source tells once per run, for the overlay and the metadata block.
  MetadataSource metadata;
  std::string deviceName, modelText;
  std::int32_t temperature = 0;  // hundredths of a degree, when the overlay shows it
  std::uint32_t sourceExposure = 0;
  std::int32_t rowState = 1;
  std::string shownName;
  OutputPlan outputPlan;    // where the frames go
  std::string moviePath;    // empty without a companion movie
  std::string sidecarPath;  // empty without a time sidecar
  bool reported = false;    // the first report was made: the final one follows
  RunFacts facts;           // what the run achieved, for the deletion rule
  OutputLedger outputs;     // every file written
};

}  // namespace tarnvel
