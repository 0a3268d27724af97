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

// Each 8-bit value scaled to the full scale of the channel: the identity at
// 8 bits a channel (depths 8 and 24).
MarkerColor MarkerColorFor(std::uint32_t color, std::uint32_t depth) {
  const std::uint32_t red = color & 0xFF, green = (color >> 8) & 0xFF, blue = (color >> 16) & 0xFF;
  const std::uint32_t m = FullScale(depth);
  const auto at = [m](std::uint32_t v) { return static_cast<std::uint16_t>(v * m / 255); };
  if (!IsColour(depth)) return {{at((red + 3 * blue + 6 * green) / 10), 0, 0}};
  return {{at(blue), at(green), at(red)}};
}

bool AddBackground(ConstImageView source, ConstImageView background, ImageView destination) {
  if (source.Empty() || destination.Empty() || !SameSize(source, destination) || source.depth != destination.depth)
    return false;
  const bool withBackground = !background.Empty();
  if (withBackground && (!SameSize(source, background) || background.depth != source.depth)) return false;
  const std::uint32_t limit = FullScale(source.depth);
  const std::size_t rowBytes = source.PackedRowBytes();
  const bool bytes = SampleBytesOf(source.Layout()) == 1;
  for (std::uint32_t y = 0; y < source.height; ++y) {
    if (!withBackground)
      std::memcpy(destination.Row(y), source.Row(y), rowBytes);
    else if (bytes)
      AddQuarter<std::uint8_t>(source.Row(y), background.Row(y), destination.Row(y), rowBytes, limit);
    else
      AddQuarter<std::uint16_t>(source.Row(y), background.Row(y), destination.Row(y), rowBytes / 2, limit);
  }
  return true;
}

namespace {

// The picture's rows in the buffer: [first, end), both within it.
struct PictureRows {
  std::int64_t first, end;
};
PictureRows PictureIn(const ImageView& buffer, std::int32_t top, std::int32_t bottom) {
  const std::int64_t rows = buffer.height;
  const std::int64_t first = std::clamp<std::int64_t>(top, 0, rows);
  return {first, std::clamp<std::int64_t>(bottom, first, rows)};
}

void PaintRows(const ImageView& buffer, std::int64_t row, const MarkerColor& marker) {
  for (std::int64_t r = row; r < row + 2; ++r) PaintPixels(buffer.Row(static_cast<std::size_t>(r)), buffer.width, buffer.depth, marker);
}

void PaintColumns(const ImageView& buffer, std::int64_t column, PictureRows picture, const MarkerColor& marker) {
  const std::size_t offset = static_cast<std::size_t>(column) * buffer.PixelBytes();
  for (std::int64_t r = picture.first; r < picture.end; ++r)
    PaintPixels(buffer.Row(static_cast<std::size_t>(r)) + offset, 2, buffer.depth, marker);
}

}  // namespace

// Lines that the positions put outside the picture are not drawn.
void DrawCross(ImageView buffer, std::int32_t x, std::int32_t y, std::int32_t top, std::int32_t bottom,
               std::uint32_t color) {
  if (buffer.Empty()) return;
  const PictureRows picture = PictureIn(buffer, top, bottom);
  const std::int64_t w = buffer.width;
  std::int64_t cx = x, cy = y;
  if (cx == w - 1) cx = w - 2;
  if (cy == picture.end - 1) cy = picture.end - 2;
  const MarkerColor marker = MarkerColorFor(color, buffer.depth);
  if (cy >= 0 && cy + 1 < picture.end) PaintRows(buffer, cy, marker);
  if (cx >= 0 && cx + 1 < w) PaintColumns(buffer, cx, picture, marker);
}

// The cells divide the picture, not the buffer: a text bar or plot rows do
// not move the lines. A count below 1 beside a usable one counts as 1: no
// lines that way.
void DrawGrid(ImageView buffer, std::int32_t rows, std::int32_t columns, std::int32_t top, std::int32_t bottom,
              std::uint32_t color) {
  if (buffer.Empty() || (rows < 2 && columns < 2)) return;
  const PictureRows picture = PictureIn(buffer, top, bottom);
  const std::int64_t rowCount = std::max(rows, 1), columnCount = std::max(columns, 1);
  const std::int64_t cellHeight = (picture.end - picture.first) / rowCount;
  const std::int64_t cellWidth = buffer.width / columnCount;
  const MarkerColor marker = MarkerColorFor(color, buffer.depth);
  // Cells of no height or width put every line on the first one.
  const std::int64_t lastRowLine = cellHeight == 0 ? std::min<std::int64_t>(rowCount - 1, 1) : rowCount - 1;
  const std::int64_t lastColumnLine = cellWidth == 0 ? std::min<std::int64_t>(columnCount - 1, 1) : columnCount - 1;
  for (std::int64_t k = 1; k <= lastRowLine; ++k) {
    const std::int64_t r = k * cellHeight;
    if (r + 1 >= picture.end) break;
    PaintRows(buffer, r, marker);
  }
  for (std::int64_t k = 1; k <= lastColumnLine; ++k) {
    const std::int64_t c = k * cellWidth;
    if (c + 1 >= static_cast<std::int64_t>(buffer.width)) break;
    PaintColumns(buffer, c, picture, marker);
  }
}

}  // namespace tarnvel
