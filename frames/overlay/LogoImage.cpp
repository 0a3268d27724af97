#include "frames/overlay/LogoImage.h"

#include <cstring>

#include "frames/ImageProcessor.h"
#include "frames/ImageScaler.h"
#include "frames/overlay/Blend.h"
#include "platform/framekit/FrameKit.h"
#include "platform/pixels/PixelLayout.h"

namespace tarnvel {
int LogoScalePercent(std::int32_t row) { return row >= 0 && row < 17 ? kLogoScales[row] : 100; }

void LogoImage::Free() {
  pixels_.clear();
  pixels_.shrink_to_fit();
  width_ = height_ = hasAlpha_ = 0;
}

int LogoImage::Load(const char* path) {
  Free();
  ImageInfo info{};
  if (path == nullptr || GetImageInfo(path, &info) != 0 || info.width == 0 || info.height == 0) return 0;
  const std::uint32_t w = info.width, h = info.height, bits = info.bits;
  const bool alpha = info.colorKind == kColorKindGreyAlpha || info.colorKind == kColorKindColorAlpha;
  const std::uint32_t padded = (w + 3) & ~3u;
  const std::uint64_t colourBytes = std::uint64_t{BytesPerPixel(bits)} * w * h;
  const std::uint64_t rowLength = std::uint64_t{BytesPerPixel(bits) + (alpha ? 1u : 0u)} * w;
  if (rowLength > 0xFFFFFFFFull) return 0;
  std::vector<std::uint8_t> buffer(rowLength * h);
  if (LoadImage(path, 0, static_cast<std::uint32_t>(rowLength), h, buffer.data(), 0) != 0) return 0;

  // The colour plane at 24 bits, rows of the image's own width.
  std::vector<std::uint8_t> colour(3ull * w * h);
  if (bits == 24) {
    std::memcpy(colour.data(), buffer.data(), colour.size());
  } else {
    if (!ConvertDepth(PackedView(buffer.data(), w, h, bits), PackedView(colour.data(), w, h, 24), 0)) return 0;
  }
  width_ = padded;
  height_ = h;
  hasAlpha_ = alpha ? 1 : 0;
  pixels_.assign((3ull + hasAlpha_) * padded * h, 0);
  for (std::uint32_t y = 0; y < h; ++y) {
    std::memcpy(&pixels_[3ull * padded * y], &colour[3ull * w * y], 3ull * w);
    if (alpha) std::memcpy(&pixels_[3ull * padded * h + 1ull * padded * y], &buffer[colourBytes + 1ull * w * y], w);
  }
  return 1;
}

void DrawLogo(ImageView frame, ConstImageView logo, const std::uint8_t* alpha, std::int32_t position,
              int scalePercent, int transparencyStep, std::int32_t offset) {
  if (logo.Empty() || logo.depth != 24) return;
  if (scalePercent == 100) {
    BlendBitmap(frame, position, false, offset, 0, transparencyStep, logo, alpha);
    return;
  }
  const std::uint32_t w = static_cast<std::uint32_t>(std::uint64_t{logo.width} * scalePercent / 100);
  const std::uint32_t h = static_cast<std::uint32_t>((std::uint64_t{logo.height} * scalePercent / 100 + 3) & ~3ull);
  if (w == 0 || h == 0) return;
  ImageScaler scaler;
  std::vector<std::uint8_t> scaled(3ull * w * h), scaledAlpha(alpha ? std::size_t{w} * h : 0);
  if (scaler.Scale(ScaleLanczos, logo, PackedView(scaled.data(), w, h, 24)) != 0) return;
  if (alpha && scaler.Scale(ScaleLanczos, PackedView(alpha, logo.width, logo.height, 8),
                            PackedView(scaledAlpha.data(), w, h, 8)) != 0)
    return;
  BlendBitmap(frame, position, false, offset, 0, transparencyStep, PackedView(scaled.data(), w, h, 24),
              alpha ? scaledAlpha.data() : nullptr);
}

}  // namespace tarnvel
