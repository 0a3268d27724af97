// The look of the data plot and the setup of the 16 analogue channels, as a
// recording's `_config.pgv` holds them: section "DAGraph" for the plot,
// "DaGeneral_%d" and "DaChannel_%d_%d" for the channels. A missing file,
// section or key reads as its default.
#pragma once

#include <cstddef>
#include <cstdint>

#include "channels/ChannelData.h"

namespace tarnvel {

struct PlotSettings {
  std::int32_t DisplayChannel = -1;  // channel shown alone, -1 for all enabled
  std::int32_t XResolution = 0;
  std::int32_t YResolution = 0;
  std::int32_t UseUnits = 0;          // 1: the vertical axis shows scaled values in the unit
  std::int32_t ShowDataPoints = 0;    // 1: a small square marks each sample
  std::int32_t AllUnitsChannels = 0;  // section number of "DaGeneral_%d"; channel of the axis unit
  std::int32_t BackgroundColor = 8;   // colour-table indexes
  std::int32_t GridColor = 12;
  std::int32_t CursorColor = 2;
  std::int32_t LabelsColor = 9;
  std::int32_t ChannelColor[kChannelCount] = {3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
};
static_assert(sizeof(PlotSettings) == 26 * 4);

struct ChannelSettings {
  std::uint32_t Reserved0[2] = {0, 0};
  std::int32_t Status = 0;
  std::int32_t SamplingRate = 10000;  // at least 100
  std::int32_t SamplesPerFrame = 20;  // at least 2
  std::int32_t TriggerInToChannel1 = 0;
  std::uint32_t Reserved1 = 0;
  ChannelEntry Channels[kChannelCount] = {};
};
static_assert(sizeof(ChannelSettings) == 28 + kChannelCount * sizeof(ChannelEntry));
static_assert(offsetof(ChannelSettings, Status) == 8);
static_assert(offsetof(ChannelSettings, Channels) == 28);

// Both read `folder`/_config.pgv and always return 1.
int ReadPlotSettings(const char* folder, PlotSettings* settings);
// Reads "DaGeneral_<sectionNumber>" and "DaChannel_<sectionNumber>_<0..15>".
// Rules: SamplingRate below 100 becomes 100, SamplesPerFrame below 2 becomes 2;
// per channel an empty Label becomes "Channel_%d" of the number plus 1, empty
// Units "[V]", a ScaleFactor of 0 becomes 1.0, Gain is clamped to 0..3. A
// Label or Units longer than its field is cut to the field.
int ReadChannelSettings(const char* folder, ChannelSettings* settings, int sectionNumber);

}  // namespace tarnvel
