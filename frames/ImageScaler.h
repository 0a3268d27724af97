// Resamples one image in any of the four pixel layouts. The description of
// the current geometry is kept, so a scaler reused for images of the same
// sizes, depth and method does not rebuild it.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>

#include "frames/primitives/Resize.h"

namespace tarnvel {

enum ScaleMethod : std::int32_t { ScaleCubic = 0, ScaleLanczos = 1 };

class ImageScaler {
 public:
  ImageScaler() = default;
  ImageScaler(const ImageScaler&) = delete;
  ImageScaler& operator=(const ImageScaler&) = delete;
  ~ImageScaler() { Reset(); }

  // Resamples `source` onto the size of `destination`. Both views have one
  // depth and do not overlap. Values of 16-bit layouts are limited to the
  // depth's full scale when it has 9 bits or more. Returns 0, or the failing
  // primitive's status (destination then holds what it held).
  int Scale(std::int32_t method, ConstImageView source, ImageView destination);

  // Frees the description and the scratch memory and zeroes the geometry.
  void Reset();

  // How often a description was built; shows that a reuse does not rebuild.
  std::uint64_t DescriptionBuilds() const { return builds_; }

 private:
  // Builds the description and scratch memory for these sizes and method.
  int Describe(std::int32_t method, const ConstImageView& source, const ImageView& destination);

  std::unique_ptr<ResizeDescription> description_;
  std::unique_ptr<std::uint8_t[]> scratch_;
  std::uint32_t sourceWidth_ = 0, sourceHeight_ = 0, destinationWidth_ = 0, destinationHeight_ = 0;
  std::int32_t depth_ = 0;
  std::int32_t method_ = -1;
  std::uint64_t builds_ = 0;
};

}  // namespace tarnvel
