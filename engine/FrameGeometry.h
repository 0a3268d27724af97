// The frame layout of a recording as the engine sees it, after rotation.
#pragma once

#include <cstdint>

namespace tarnvel {

struct FrameGeometry {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bits = 8;  // bits per pixel over all channels
  std::uint32_t frameBytes = 0;
};

// Bytes per pixel of a depth: 1 up to 8 bits, 2 up to 16, 3 up to 24, 6 above.
std::uint32_t BytesPerPixel(std::uint32_t bits);

// The geometry of a source frame. A rotation of 1 or 3 (quarter turns) swaps
// width and height. Returns false, leaving `out` alone, when the frame's bytes
// do not fit 32 bits.
bool MakeFrameGeometry(std::uint32_t width, std::uint32_t height, std::uint32_t bits, std::uint32_t rotation,
                       FrameGeometry& out);

}  // namespace tarnvel
