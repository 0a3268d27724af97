#include "frames/ImageScaler.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "frames/ImageProcessor.h"

namespace tarnvel {

void ImageScaler::Reset() {
  description_.reset();
  scratch_.reset();
  sourceWidth_ = sourceHeight_ = destinationWidth_ = destinationHeight_ = 0;
  depth_ = 0;
  method_ = -1;
}

int ImageScaler::Scale(std::int32_t method, const std::uint8_t* source, std::uint32_t sourceWidth,
                       std::uint32_t sourceHeight, std::uint8_t* destination, std::uint32_t destinationWidth,
                       std::uint32_t destinationHeight, std::int32_t depth) {
  if (method != ScaleCubic && method != ScaleLanczos) return kPrimitiveBadMethod;
  if (!source || !destination || depth < 1) return kPrimitiveBadSize;
  const std::uint32_t bits = static_cast<std::uint32_t>(depth);
  // The layout follows the same depth ranges as every frame of the converter.
  const PixelLayout layout = LayoutOfDepth(bits);
  if (!description_ || sourceWidth != sourceWidth_ || sourceHeight != sourceHeight_ ||
      destinationWidth != destinationWidth_ || destinationHeight != destinationHeight_ || depth != depth_ ||
      method != method_) {
    Reset();
    std::unique_ptr<ResizeDescription> made;
    const int status =
        MakeResizeDescription(method == ScaleCubic ? ResizeKernel::CubicBSpline : ResizeKernel::Lanczos3, layout,
                              sourceWidth, sourceHeight, destinationWidth, destinationHeight, made);
    if (status != kPrimitiveOk) return status;
    std::unique_ptr<std::uint8_t[]> scratch(new (std::nothrow) std::uint8_t[ResizeScratchBytes(*made)]);
    if (!scratch) return kPrimitiveNoMemory;
    ++builds_;
    description_ = std::move(made);
    scratch_ = std::move(scratch);
    sourceWidth_ = sourceWidth;
    sourceHeight_ = sourceHeight;
    destinationWidth_ = destinationWidth;
    destinationHeight_ = destinationHeight;
    depth_ = depth;
    method_ = method;
  }
  const int status = Resize(*description_, PackedView(source, sourceWidth, sourceHeight, bits),
                            PackedView(destination, destinationWidth, destinationHeight, bits), scratch_.get());
  if (status != kPrimitiveOk) return status;
  if (SampleBytesOf(layout) == 2) {
    const std::uint32_t d = ChannelBits(bits);
    if (d >= 9) {
      const auto limit = static_cast<std::uint16_t>(FullScale(bits));
      auto* words = reinterpret_cast<std::uint16_t*>(destination);
      const std::size_t count = static_cast<std::size_t>(destinationWidth) * destinationHeight * ChannelsOf(layout);
      for (std::size_t i = 0; i < count; ++i) words[i] = std::min(words[i], limit);
    }
  }
  return kPrimitiveOk;
}

void ImageProcessor::ScaleFrame(std::uint32_t sourceWidth, std::uint32_t sourceHeight,
                                std::uint32_t destinationWidth, std::uint32_t destinationHeight,
                                const std::uint8_t* source, std::uint8_t* destination) {
  ImageScaler scaler;
  scaler.Scale(ScaleCubic, source, sourceWidth, sourceHeight, destination, destinationWidth, destinationHeight,
               static_cast<std::int32_t>(depth_));
}

void ImageProcessor::FitImage(std::uint32_t width, std::uint32_t height, std::uint32_t depth,
                              const std::uint8_t* source, std::uint8_t* destination) {
  if (!source || !destination) return;
  if (depth == depth_) {
    ScaleFrame(width, height, width_, height_, source, destination);
    return;
  }
  const std::size_t bytes = static_cast<std::size_t>(width) * height * BytesPerPixel(depth_);
  // Without memory for the converted image the destination stays as it was.
  std::unique_ptr<std::uint8_t[]> converted(new (std::nothrow) std::uint8_t[bytes == 0 ? 1 : bytes]);
  if (!converted) return;
  ConvertDepth(depth, depth_, 0, width, height, source, converted.get());
  if (width == width_ && height == height_) {
    std::memcpy(destination, converted.get(), frameSize_);
    return;
  }
  ScaleFrame(width, height, width_, height_, converted.get(), destination);
}

}  // namespace tarnvel
