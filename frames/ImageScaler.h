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

  // Both images have the layout of `depth` with tightly packed rows;
  // `destination` is not `source`. Values of 16-bit layouts are limited to
  // the depth's full scale when it has 9 bits or more. Returns 0, or the
  // failing primitive's status (destination then holds what it held).
  int Scale(std::int32_t method, const std::uint8_t* source, std::uint32_t sourceWidth, std::uint32_t sourceHeight,
            std::uint8_t* destination, std::uint32_t destinationWidth, std::uint32_t destinationHeight,
            std::int32_t depth);

  // Frees the description and the scratch memory and zeroes the geometry.
  void Reset();

  // How often a description was built; shows that a reuse does not rebuild.
  std::uint64_t DescriptionBuilds() const { return builds_; }

 private:
  std::unique_ptr<ResizeDescription> description_;
  std::unique_ptr<std::uint8_t[]> scratch_;
  std::uint32_t sourceWidth_ = 0, sourceHeight_ = 0, destinationWidth_ = 0, destinationHeight_ = 0;
  std::int32_t depth_ = 0;
  std::int32_t method_ = -1;
  std::uint64_t builds_ = 0;
};

}  // namespace tarnvel
