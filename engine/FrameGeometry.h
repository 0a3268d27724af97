// The frame layout of a recording as the engine sees it, after rotation.
#pragma once

#include <cstdint>

#include "platform/pixels/PixelLayout.h"

namespace tarnvel {

struct FrameGeometry {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bits = 8;  // bits per pixel over all channels
  std::uint32_t frameBytes = 0;
};

// The geometry of a source frame. A rotation of 1 or 3 (quarter turns) swaps
// width and height. Returns false, leaving `out` alone, when the frame's bytes
// do not fit 32 bits.
bool MakeFrameGeometry(std::uint32_t width, std::uint32_t height, std::uint32_t bits, std::uint32_t rotation,
                       FrameGeometry& out);

}  // namespace tarnvel
