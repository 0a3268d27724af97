// Turns the payload of a frame record into the frame that the driver delivers:
// unpacking, black level and calibration, colour gains and interpolation of
// the mosaic, and the quarter turns. One decoder per open recording; it keeps
// its scratch planes, so one thread uses it at a time.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/rawdrv/RawStoreFormat.h"

namespace tarnvel::rawstore {

class FrameDecoder {
 public:
  // `offsets`: calibration black offsets in sensor order, or empty.
  FrameDecoder(const StoreHeader& header, std::vector<std::uint16_t> offsets);

  // Bits per pixel of a delivered frame: sampleBits, or 3 x sampleBits for a
  // processed colour frame.
  std::uint32_t DeliveredBits(bool mosaic) const;
  // Bytes of a delivered frame (rows tightly packed).
  std::uint64_t DeliveredBytes(bool mosaic) const;

  // `payload` holds the frame's payload; `out` DeliveredBytes(mosaic) bytes.
  void Decode(const std::uint8_t* payload, bool mosaic, void* out);

 private:
  template <typename Sample>
  void DecodePlane(const std::uint8_t* payload, Sample* plane);
  template <typename Sample>
  void Interpolate(const std::uint16_t* mosaic, Sample* bgr) const;
  void ApplyGains(std::uint16_t* plane) const;

  std::uint32_t width_, height_, bits_, packing_, rotation_, black_, order_;
  bool colour_;
  bool unitGains_ = true;  // all gains 1: the gain step changes nothing
  std::vector<std::uint16_t> offsets_;
  std::vector<std::uint16_t> gainTable_[3];  // red, green, blue: s' -> limited s' x gain
  std::vector<std::uint16_t> row_;           // one unpacked row
  std::vector<std::uint16_t> plane_;   // s' plane before rotation or interpolation
  std::vector<std::uint16_t> turned_;  // interpolated frame before rotation (bytes or words)
};

}  // namespace tarnvel::rawstore
