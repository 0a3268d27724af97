#include "ui/PreviewImage.h"

#include <algorithm>
#include <cstring>

namespace tarnvel {

bool PreviewImage::SetImage(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height, std::uint32_t bits) {
  rows_ = nullptr;
  width_ = height_ = bits_ = 0;
  rowBytes_ = 0;
  if (pixels == nullptr || width == 0 || height == 0 || (bits != 8 && bits != 24)) return false;
  const std::size_t packed = std::size_t{width} * (bits / 8);
  const std::size_t padded = (packed + 3) / 4 * 4;
  width_ = width, height_ = height, bits_ = bits;
  rowBytes_ = padded;
  if (padded == packed) {
    rows_ = pixels;
    return true;
  }
  ownRows_.assign(padded * height, 0);
  for (std::uint32_t y = 0; y < height; ++y) std::memcpy(ownRows_.data() + y * padded, pixels + y * packed, packed);
  rows_ = ownRows_.data();
  return true;
}

std::uint32_t PreviewImage::ColourAt(std::uint32_t x, std::uint32_t y) const {
  const std::uint8_t* row = rows_ + y * rowBytes_;
  if (bits_ == 8) return 0xFF000000u | row[x] * 0x010101u;
  const std::uint8_t* p = row + 3 * std::size_t{x};
  return 0xFF000000u | std::uint32_t{p[2]} << 16 | std::uint32_t{p[1]} << 8 | p[0];
}

PreviewPlacement FitPreview(int clientWidth, int clientHeight, std::uint32_t imageWidth, std::uint32_t imageHeight) {
  PreviewPlacement placement;
  if (imageWidth == 0 || imageHeight == 0) return placement;
  const int areaWidth = clientWidth - 4, areaHeight = clientHeight - 4;
  double scale = std::min(static_cast<double>(areaWidth) / imageWidth, static_cast<double>(areaHeight) / imageHeight);
  placement.shownZoom = static_cast<int>(scale * 100);
  // Never below a hundredth, however small the window.
  if (placement.shownZoom <= 0) {
    placement.shownZoom = 1;
    scale = 0.01;
  }
  placement.width = static_cast<int>(imageWidth * scale + 0.5);
  placement.height = static_cast<int>(imageHeight * scale + 0.5);
  placement.left = 2 + (areaWidth - placement.width) / 2;
  placement.top = 2 + (areaHeight - placement.height) / 2;
  return placement;
}

PreviewPlacement PaintPreview(const PreviewImage& image, int clientWidth, int clientHeight, std::uint32_t* surface,
                              std::size_t surfaceStride) {
  if (clientWidth <= 0 || clientHeight <= 0) return {};
  for (int y = 0; y < clientHeight; ++y) std::fill_n(surface + y * surfaceStride, clientWidth, 0xFF000000u);
  if (image.Rows() == nullptr) return {};
  const PreviewPlacement at = FitPreview(clientWidth, clientHeight, image.Width(), image.Height());
  if (at.width <= 0 || at.height <= 0) return at;
  const int x0 = std::max(at.left, 0), x1 = std::min(at.left + at.width, clientWidth);
  const int y0 = std::max(at.top, 0), y1 = std::min(at.top + at.height, clientHeight);
  if (x0 >= x1 || y0 >= y1) return at;
  std::vector<std::uint32_t> sourceX(static_cast<std::size_t>(x1 - x0));
  for (int x = x0; x < x1; ++x)
    sourceX[x - x0] = static_cast<std::uint32_t>(std::int64_t{x - at.left} * image.Width() / at.width);
  for (int y = y0; y < y1; ++y) {
    const auto sy = static_cast<std::uint32_t>(std::int64_t{y - at.top} * image.Height() / at.height);
    std::uint32_t* out = surface + y * surfaceStride;
    for (int x = x0; x < x1; ++x) out[x] = image.ColourAt(sourceX[x - x0], sy);
  }
  return at;
}

}  // namespace tarnvel
