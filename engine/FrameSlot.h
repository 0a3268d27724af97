// One frame under way in a job's frame pipeline, with everything the frame
// step changes while it works on that frame: its driver handle, raw frame and records, its
// buffers, its image processor, its overlay texts. What every frame only
// reads (the plan, the chain, the logos, the background, the channel data)
// stays with the job.
#pragma once

#include <array>
#include <cstdint>

#include "engine/FramePlan.h"
#include "engine/OutputPlan.h"
#include "engine/RawFrame.h"
#include "engine/RawSource.h"
#include "frames/ImageProcessor.h"
#include "frames/overlay/LocaleFormat.h"
#include "frames/overlay/OverlayItems.h"
#include "platform/framekit/FrameHeader.h"
#include "platform/framekit/FrameKit.h"
#include "platform/pixels/ImageView.h"

namespace tarnvel {

struct FrameSlot {
  explicit FrameSlot(const LocaleFormat& locale) : renderer(locale) {}

  FrameTask task;
  RawSource source;   // a driver handle of its own, in the main output's delivery
  bool readDue = false;  // the raw frame is read on the worker
  RawFrame raw;       // as delivered, with the records that belong to it
  RawFrame movieRaw;  // the processed frame a plain output's companion movie reads
  FrameBuffers buffers;
  ImageProcessor processor;
  OverlayConfig overlay{};  // the job's overlay, with this frame's texts
  OverlayRenderer renderer;
  alignas(8) std::array<std::uint8_t, kMetadataBlockSize> block{};
  CaptureInfo capture;

  // What the frame step made of it.
  int result = 0;       // of the frame step and, for a file of its own, its write and close
  ImageView frame;      // the frame to write, in `buffers`
  ImageView shown;      // what the companion movie gets, in `buffers`
  int movieResult = 0;  // of reading the movie's frame anew
  bool movieReady = false;  // a file of its own was written: the movie takes the frame
  bool fileCreated = false;  // its own file was created
};

}  // namespace tarnvel
