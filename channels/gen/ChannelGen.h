// Channel files for generated recordings: signals that make a readable plot
// (sine, step, ramp, noise), sampled in step with the image frames, written
// in any of the seven forms the converter reads.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "channels/ChannelData.h"

namespace tarnvel {

enum class ChannelSignal { kSine, kStep, kRamp, kNoise };

struct ChannelPlan {
  std::uint32_t channelMask = 0x000F;  // bit i: channel i is recorded
  double frameRate = 1000.0;           // image frames per second
  std::uint32_t samplesPerFrame = 10;  // samples of one channel per image frame
  std::uint32_t frameCount = 100;
  double startSeconds = 0.0;  // time of the first sample; negative before the trigger
  // Signal of each channel; by default channel i takes sine, step, ramp, noise by i % 4.
  ChannelSignal signals[kChannelCount] = {
      ChannelSignal::kSine, ChannelSignal::kStep, ChannelSignal::kRamp, ChannelSignal::kNoise,
      ChannelSignal::kSine, ChannelSignal::kStep, ChannelSignal::kRamp, ChannelSignal::kNoise,
      ChannelSignal::kSine, ChannelSignal::kStep, ChannelSignal::kRamp, ChannelSignal::kNoise,
      ChannelSignal::kSine, ChannelSignal::kStep, ChannelSignal::kRamp, ChannelSignal::kNoise};
  float amplitude = 5.0f;  // volts, at most 10
  // Frames of one period of sine, step and ramp; 0 gives half the frame count
  // (two periods over the recording), at least 2.
  std::uint32_t periodFrames = 0;
  std::uint32_t seed = 1;  // of the noise
};

// What a channel file holds, before it is put into a form.
struct ChannelRecording {
  ChannelFileHeader header{};  // Magic, Rate, Size, T0, SamplesPerFrame, the 16 entries
  std::vector<double> times;   // seconds, one per instant
  std::vector<float> volts;    // interleaved, header.Size values
};

// Samples the plan. Per channel the rate is frameRate * samplesPerFrame; the
// header's Rate and SamplesPerFrame count over all recorded channels. Steps
// switch exactly on frame boundaries. Returns an empty recording (Size 0) when
// the plan has no channel, no frame, or more samples than 32 bits count.
ChannelRecording MakeChannelRecording(const ChannelPlan& plan);

// Writes the recording in form `type` (kChannelTypeBinary .. kChannelTypeCsv;
// kChannelTypeDefault writes the plain list). Returns false for an empty
// recording, a form's limit (a workbook holds at most 65535 rows) or a
// write error.
bool WriteChannelFile(const std::string& path, int type, const ChannelRecording& recording);

// "<folder>/<baseName><extension of type>", the path the converter looks for.
std::string ChannelFilePath(std::string_view folder, std::string_view baseName, int type);

}  // namespace tarnvel
