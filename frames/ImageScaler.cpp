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

int ImageScaler::Scale(std::int32_t method, ConstImageView source, ImageView destination) {
  if (method != ScaleCubic && method != ScaleLanczos) return kPrimitiveBadMethod;
  if (!source.data || !destination.data || source.depth < 1 || source.depth != destination.depth)
    return kPrimitiveBadSize;
  const std::int32_t depth = static_cast<std::int32_t>(source.depth);
  if (!description_ || source.width != sourceWidth_ || source.height != sourceHeight_ ||
      destination.width != destinationWidth_ || destination.height != destinationHeight_ || depth != depth_ ||
      method != method_) {
    if (const int status = Describe(method, source, destination); status != kPrimitiveOk) return status;
  }
  const int status = Resize(*description_, source, destination, scratch_.get());
  if (status != kPrimitiveOk) return status;
  if (SampleBytesOf(destination.Layout()) == 2 && ChannelBits(destination.depth) >= 9) {
    const auto limit = static_cast<std::uint16_t>(FullScale(destination.depth));
    const std::size_t count = std::size_t{destination.width} * ChannelsOf(destination.Layout());
    for (std::uint32_t y = 0; y < destination.height; ++y) {
      std::uint16_t* words = destination.RowAs<std::uint16_t>(y);
      for (std::size_t i = 0; i < count; ++i) words[i] = std::min(words[i], limit);
    }
  }
  return kPrimitiveOk;
}

int ImageScaler::Describe(std::int32_t method, const ConstImageView& source, const ImageView& destination) {
  Reset();
  std::unique_ptr<ResizeDescription> made;
  const int status =
      MakeResizeDescription(method == ScaleCubic ? ResizeKernel::CubicBSpline : ResizeKernel::Lanczos3,
                            source.Layout(), source.width, source.height, destination.width, destination.height, made);
  if (status != kPrimitiveOk) return status;
  std::unique_ptr<std::uint8_t[]> scratch(new (std::nothrow) std::uint8_t[ResizeScratchBytes(*made)]);
  if (!scratch) return kPrimitiveNoMemory;
  ++builds_;
  description_ = std::move(made);
  scratch_ = std::move(scratch);
  sourceWidth_ = source.width;
  sourceHeight_ = source.height;
  destinationWidth_ = destination.width;
  destinationHeight_ = destination.height;
  depth_ = static_cast<std::int32_t>(source.depth);
  method_ = method;
  return kPrimitiveOk;
}

void ScaleFrame(ConstImageView source, ImageView destination) {
  if (source.Empty() || destination.Empty() || source.depth != destination.depth) return;
  ImageScaler scaler;
  scaler.Scale(ScaleCubic, source, destination);
}

void FitImage(ConstImageView source, ImageView destination) {
  if (source.Empty() || destination.Empty()) return;
  if (source.depth == destination.depth) {
    ScaleFrame(source, destination);
    return;
  }
  // Without memory for the converted image the destination stays as it was.
  std::unique_ptr<std::uint8_t[]> converted(
      new (std::nothrow) std::uint8_t[PackedBytes(source.width, source.height, destination.depth)]);
  if (!converted) return;
  const ImageView image = PackedView(converted.get(), source.width, source.height, destination.depth);
  ConvertDepth(source, image, 0);
  if (SameSize(image, destination))
    ConvertDepth(image, destination, 0);  // equal depths: a copy
  else
    ScaleFrame(image, destination);
}

}  // namespace tarnvel
