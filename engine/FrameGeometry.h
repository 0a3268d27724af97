// Width, height, bits per pixel and bytes of one frame of the source.
#pragma once

#include <cstdint>

namespace tarnvel {

struct FrameGeometry {
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t bits;
  std::uint32_t frameBytes;
};

}  // namespace tarnvel
