// Separable resampling in the four pixel layouts.
//
// Destination pixel d of an axis is centred on source position
// (d + 0.5) * sourceSize / destinationSize - 0.5 (pixel centres line up, the
// outer edges of both images meet). Taps beyond the source's edge repeat the
// edge pixel. The kernel is not widened when shrinking (no antialiasing).
// Weights are normalised to a sum of 1; the result is rounded to the nearest
// value and limited to the sample's range.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "frames/primitives/Primitives.h"

namespace tarnvel {

enum class ResizeKernel {
  CubicBSpline,  // Mitchell-Netravali with B = 1, C = 0
  Lanczos3,      // sinc(x) * sinc(x / 3) for |x| < 3
};

double ResizeKernelWeight(ResizeKernel kernel, double distance);

// Precomputed taps and weights for one source and destination size.
struct ResizeDescription {
  ResizeKernel kernel;
  PixelLayout layout;
  std::uint32_t sourceWidth, sourceHeight, destinationWidth, destinationHeight;
  std::uint32_t taps;
  std::vector<std::uint32_t> columnIndex, rowIndex;  // taps per destination column / row, edge-repeated
  std::vector<float> columnWeight, rowWeight;
};

// kPrimitiveBadSize for an empty size, kPrimitiveNoMemory when memory fails.
int MakeResizeDescription(ResizeKernel kernel, PixelLayout layout, std::uint32_t sourceWidth,
                          std::uint32_t sourceHeight, std::uint32_t destinationWidth, std::uint32_t destinationHeight,
                          std::unique_ptr<ResizeDescription>& description);
// Bytes of scratch memory that Resize needs with this description.
std::size_t ResizeScratchBytes(const ResizeDescription& description);

// `source` and `destination` have the sizes and the layout of the description.
int Resize(const ResizeDescription& description, ConstImageView source, ImageView destination, void* scratch);

}  // namespace tarnvel
