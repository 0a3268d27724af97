#include "engine/FrameReadAhead.h"

#include <algorithm>

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

int FrameReadAhead::Start(const char* folder, bool mosaicDelivery, bool cameraBlock) {
  Stop();
  if (const int opened = source_.Open(folder); opened != 0) return opened;
  if (mosaicDelivery) source_.SetMosaicDelivery(true);
  cameraBlock_ = cameraBlock;
  slot_.index = -1;
  wanted_ = -1;
  stopping_ = false;
  worker_ = std::thread([this] { Work(); });
  return 0;
}

void FrameReadAhead::Stop() {
  if (worker_.joinable()) {
    {
      std::lock_guard lock(mutex_);
      stopping_ = true;
    }
    changed_.notify_all();
    worker_.join();
  }
  source_.Close();
}

void FrameReadAhead::Take(std::int32_t index, std::int32_t next, RawFrame& frame) {
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [this] { return !reading_; });
  if (slot_.index == index) {
    std::swap(slot_, frame);
  } else {
    // The guess was wrong (or there was none): the worker is idle, and with
    // the lock held it stays so, so the handle is this thread's for the read.
    wanted_ = -1;
    ReadRawFrame(source_, index, cameraBlock_, frame);
  }
  slot_.index = -1;
  wanted_ = next;
  lock.unlock();
  changed_.notify_all();
}

void FrameReadAhead::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    changed_.wait(lock, [this] { return stopping_ || (wanted_ >= 0 && slot_.index != wanted_); });
    if (stopping_) return;
    const std::int32_t index = wanted_;
    reading_ = true;
    lock.unlock();
    ReadRawFrame(source_, index, cameraBlock_, slot_);
    lock.lock();
    reading_ = false;
    changed_.notify_all();
  }
}

}  // namespace tarnvel
