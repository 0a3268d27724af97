#include "engine/FrameGeometry.h"

namespace tarnvel {

bool MakeFrameGeometry(std::uint32_t width, std::uint32_t height, std::uint32_t bits, std::uint32_t rotation,
                       FrameGeometry& out) {
  const std::uint64_t bytes = std::uint64_t{width} * height * BytesPerPixel(bits);
  if (bytes > 0xFFFFFFFFull) return false;
  const bool quarterTurn = rotation == 1 || rotation == 3;
  out.width = quarterTurn ? height : width;
  out.height = quarterTurn ? width : height;
  out.bits = bits;
  out.frameBytes = static_cast<std::uint32_t>(bytes);
  return true;
}

}  // namespace tarnvel
