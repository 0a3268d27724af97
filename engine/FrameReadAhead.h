// Reading and decoding the next raw frame on a second thread while the job
// processes and writes the current one, so that one job keeps two cores busy.
// The read-ahead owns its own driver handle: the driver allows one thread per
// handle, and the records that belong to a frame (time, camera block, GEV
// records, exposure, flag) travel with its pixels.
#pragma once

#include <array>
#include <cstddef>
#include <condition_variable>
#include <cstdint>
#include <mutex>
#include <thread>
#include <vector>

#include "engine/RawSource.h"
#include "platform/rawdrv/TimeStampBlock.h"

namespace tarnvel {

// One frame as the driver delivered it, with what the driver tells about it.
struct RawFrame {
  std::int32_t index = -1;  // -1: nothing read
  int result = 0;           // the driver's result of the read
  std::vector<std::uint8_t> pixels;  // may be longer than what the read delivered
  std::size_t bytes = 0;              // what it delivered
  TimeStampBlock time{};
  bool hasCameraBlock = false;
  std::array<std::uint8_t, 1024> cameraBlock{};
  std::array<std::uint8_t, RawSource::kGevValuesBytes> gevValues{};
  std::array<std::uint8_t, RawSource::kGevTimeBytes> gevTime{};
  std::uint32_t autoExposureNs = 0;
  std::uint32_t frameFlag = 0;
};

// Reads frame `index` of `source` into `frame` (three tries, as a busy disk
// may fail once) with its records; `pixels` grows to the driver's frame size.
// A frame that cannot be read comes with its records cleared.
void ReadRawFrame(RawSource& source, std::int32_t index, bool cameraBlock, RawFrame& frame);

class FrameReadAhead {
 public:
  FrameReadAhead() = default;
  ~FrameReadAhead() { Stop(); }
  FrameReadAhead(const FrameReadAhead&) = delete;
  FrameReadAhead& operator=(const FrameReadAhead&) = delete;

  // Opens the recording a second time in the given delivery mode and starts
  // the reading thread. Returns the driver's result of the open, 0 when ready.
  int Start(const char* folder, bool mosaicDelivery, bool cameraBlock);
  // Ends the thread and closes the handle (before raw files are deleted).
  void Stop();
  // Hands over frame `index` (read ahead, or read now when the guess was
  // wrong) by swapping it into `frame`, then starts reading `next` (-1: none).
  void Take(std::int32_t index, std::int32_t next, RawFrame& frame);

 private:
  void Work();

  RawSource source_;
  bool cameraBlock_ = false;
  std::thread worker_;
  std::mutex mutex_;
  std::condition_variable changed_;
  RawFrame slot_;             // the worker's while `reading_`, else under the mutex
  std::int32_t wanted_ = -1;  // the frame the worker should have in the slot
  bool reading_ = false;
  bool stopping_ = false;
};

}  // namespace tarnvel
