// What one run of a job holds from its start to its common end.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "channels/ChannelData.h"
#include "channels/ChannelSettings.h"
#include "engine/JobOverrides.h"
#include "platform/framekit/FrameKit.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {

struct JobRun {
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
  std::int32_t movieFrames = 0;
  std::int32_t rowState = 1;
  std::string shownName;
};

}  // namespace tarnvel
