// The kernels behind MedianBorder, MinimumBorder and MaximumBorder, for
// sizes that the callers have checked (at least 1; odd for the median).
// `destination` may be `source` itself (same rows and row length).
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/primitives/Primitives.h"

namespace tarnvel {

void RunMedian(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
               std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
               int maskHeight);
void RunExtremum(bool maximum, PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                 std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                 int maskHeight);

}  // namespace tarnvel
