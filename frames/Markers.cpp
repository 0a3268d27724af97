// Background addition and the measuring aids (cross, grid).
#include <algorithm>
#include <cstring>

#include "frames/ImageProcessor.h"
#include "frames/primitives/Primitives.h"

#define TARNVEL_SIMD_KERNELS "frames/BackgroundKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

template <class T>
void AddQuarter(const std::uint8_t* source, const std::uint8_t* background, std::uint8_t* destination,
                std::size_t count, std::uint32_t limit) {
  TARNVEL_SIMD_RETURN(AddQuarterOf<T>(source, background, destination, count, limit));
}

// Sets `count` pixels from `first` on, in the layout of the depth.
void PaintPixels(std::uint8_t* first, std::size_t count, std::uint32_t depth, const MarkerColor& color) {
  DispatchLayout(LayoutOfDepth(depth), [&]<class T, int C>() {
    T* p = reinterpret_cast<T*>(first);
    for (std::size_t i = 0; i < count; ++i)
      for (int c = 0; c < C; ++c) p[i * C + c] = static_cast<T>(color.value[c]);
  });
}

}  // namespace

MarkerColor MarkerColorFor(std::uint32_t color, std::uint32_t depth) {
  const std::uint32_t red = color & 0xFF, green = (color >> 8) & 0xFF, blue = (color >> 16) & 0xFF;
  const std::uint32_t m = FullScale(depth);
  const std::uint32_t grey = (red + 3 * blue + 6 * green) / 10;
  switch (LayoutOfDepth(depth)) {
    case PixelLayout::Grey8: return {{static_cast<std::uint16_t>(grey), 0, 0}};
    case PixelLayout::Grey16: return {{static_cast<std::uint16_t>(grey * m / 255), 0, 0}};
    case PixelLayout::Color8:
      return {{static_cast<std::uint16_t>(blue), static_cast<std::uint16_t>(green), static_cast<std::uint16_t>(red)}};
    case PixelLayout::Color16: break;
  }
  return {{static_cast<std::uint16_t>(blue * m / 255), static_cast<std::uint16_t>(green * m / 255),
           static_cast<std::uint16_t>(red * m / 255)}};
}

void ImageProcessor::AddBackground(const std::uint8_t* source, const std::uint8_t* background,
                                   std::uint8_t* destination) {
  if (!source || !destination) return;
  if (!background) {
    std::memcpy(destination, source, frameSize_);
    return;
  }
  const std::uint32_t limit = FullScale(depth_);
  if (SampleBytesOf(LayoutOfDepth(depth_)) == 1)
    AddQuarter<std::uint8_t>(source, background, destination, frameSize_, limit);
  else
    AddQuarter<std::uint16_t>(source, background, destination, frameSize_ / 2, limit);
}

// Lines that the positions put outside the picture are not drawn; rows
// beyond top + picture height are never touched, whatever `bottom` says.
void ImageProcessor::DrawCross(std::uint8_t* frame, std::int32_t x, std::int32_t y, std::int32_t top,
                               std::int32_t bottom, std::uint32_t color) {
  if (!frame || width_ == 0) return;
  const std::int64_t first = std::max<std::int32_t>(top, 0);
  const std::int64_t end = std::min<std::int64_t>(bottom, first + height_);
  const std::int64_t w = width_;
  std::int64_t cx = x, cy = y;
  if (cx == w - 1) cx = w - 2;
  if (cy == end - 1) cy = end - 2;
  const std::size_t bpp = BytesPerPixel(depth_), rowBytes = static_cast<std::size_t>(width_) * bpp;
  const MarkerColor marker = MarkerColorFor(color, depth_);
  if (cy >= 0 && cy + 1 < end) PaintPixels(frame + static_cast<std::size_t>(cy) * rowBytes, 2 * width_, depth_, marker);
  if (cx >= 0 && cx + 1 < w)
    for (std::int64_t r = first; r < end; ++r)
      PaintPixels(frame + static_cast<std::size_t>(r) * rowBytes + static_cast<std::size_t>(cx) * bpp, 2, depth_,
                  marker);
}

// A count below 1 beside a usable one counts as 1: no lines that way.
void ImageProcessor::DrawGrid(std::uint8_t* frame, std::int32_t rows, std::int32_t columns, std::int32_t top,
                              std::int32_t bottom, std::uint32_t color) {
  if (!frame || width_ == 0 || (rows < 2 && columns < 2)) return;
  const std::int64_t first = std::max<std::int32_t>(top, 0);
  const std::int64_t end = std::min<std::int64_t>(bottom, first + height_);
  const std::int64_t rowCount = std::max(rows, 1), columnCount = std::max(columns, 1);
  const std::int64_t cellHeight = height_ / rowCount;
  const std::int64_t cellWidth = width_ / columnCount;
  const std::size_t bpp = BytesPerPixel(depth_), rowBytes = static_cast<std::size_t>(width_) * bpp;
  const MarkerColor marker = MarkerColorFor(color, depth_);
  // Cells of no height or width put every line on the first one.
  const std::int64_t lastRowLine = cellHeight == 0 ? std::min<std::int64_t>(rowCount - 1, 1) : rowCount - 1;
  const std::int64_t lastColumnLine =
      cellWidth == 0 ? std::min<std::int64_t>(columnCount - 1, 1) : columnCount - 1;
  for (std::int64_t k = 1; k <= lastRowLine; ++k) {
    const std::int64_t r = k * cellHeight;
    if (r + 1 >= end) break;
    PaintPixels(frame + static_cast<std::size_t>(r) * rowBytes, 2 * width_, depth_, marker);
  }
  for (std::int64_t k = 1; k <= lastColumnLine; ++k) {
    const std::int64_t c = k * cellWidth;
    if (c + 1 >= static_cast<std::int64_t>(width_)) break;
    for (std::int64_t r = first; r < end; ++r)
      PaintPixels(frame + static_cast<std::size_t>(r) * rowBytes + static_cast<std::size_t>(c) * bpp, 2, depth_,
                  marker);
  }
}

}  // namespace tarnvel
