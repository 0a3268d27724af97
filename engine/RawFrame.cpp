#include "engine/RawFrame.h"

namespace tarnvel {

void ReadRawFrame(RawSource& source, std::int32_t index, bool cameraBlock, RawFrame& frame) {
  frame.bytes = FrameBytes(source.Handle());
  if (frame.pixels.size() < frame.bytes) frame.pixels.resize(frame.bytes);
  frame.index = index;
  // A frame that cannot be read tells nothing: no records of an earlier frame stay.
  frame.time = {};
  frame.hasCameraBlock = false;
  frame.autoExposureNs = frame.frameFlag = 0;
  for (int attempt = 0; attempt < 3; ++attempt)
    if ((frame.result = source.ReadFrame(index, frame.pixels.data())) == 0) break;
  if (frame.result != 0) return;
  frame.time = *source.FrameTime();
  frame.hasCameraBlock = cameraBlock && source.GetCameraBlock(frame.cameraBlock.data()) == 0;
  source.GetGevRecords(frame.gevValues.data(), frame.gevTime.data());
  frame.autoExposureNs = source.AutoExposureNs();
  frame.frameFlag = source.FrameFlag();
}

}  // namespace tarnvel
