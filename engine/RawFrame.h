// One raw frame as the driver delivers it, with the records that belong to
// it (time, camera block, GEV records, exposure, flag), so that they travel
// with its pixels. Each frame under way reads on a driver handle of its own:
// the driver allows one thread per handle.
#pragma once

#include <array>
#include <cstddef>
#include <cstdint>
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

}  // namespace tarnvel
