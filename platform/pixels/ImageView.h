// A rectangle of pixels that someone else owns: where its first row starts,
// the bytes from one row to the next, its size and its depth (which fixes the
// layout, see PixelLayout.h). An operation reads one view and writes another;
// the caller owns both buffers, so no result lives in memory of the operation.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "platform/pixels/PixelLayout.h"

namespace tarnvel {

template <class Byte>
struct BasicImageView {
  static_assert(std::is_same_v<std::remove_const_t<Byte>, std::uint8_t>);

  Byte* data = nullptr;
  std::size_t rowBytes = 0;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t depth = 8;

  PixelLayout Layout() const { return LayoutOfDepth(depth); }
  std::uint32_t PixelBytes() const { return BytesPerPixel(depth); }
  // Bytes of the pixels of one row, without any padding behind them.
  std::size_t PackedRowBytes() const { return std::size_t{width} * PixelBytes(); }
  // Bytes from the first pixel to behind the last.
  std::size_t Span() const { return height == 0 ? 0 : rowBytes * (height - 1) + PackedRowBytes(); }
  bool Empty() const { return data == nullptr || width == 0 || height == 0; }
  bool Packed() const { return rowBytes == PackedRowBytes(); }

  Byte* Row(std::size_t y) const { return data + y * rowBytes; }
  template <class T>
  auto RowAs(std::size_t y) const {
    using Sample = std::conditional_t<std::is_const_v<Byte>, const T, T>;
    return reinterpret_cast<Sample*>(Row(y));
  }

  // `count` rows from row `first` on; the caller keeps them inside the view.
  BasicImageView Rows(std::uint32_t first, std::uint32_t count) const {
    return {data + std::size_t{first} * rowBytes, rowBytes, width, count, depth};
  }

  operator BasicImageView<const std::uint8_t>() const { return {data, rowBytes, width, height, depth}; }
};

using ImageView = BasicImageView<std::uint8_t>;
using ConstImageView = BasicImageView<const std::uint8_t>;

// A view over tightly packed rows.
inline ImageView PackedView(std::uint8_t* data, std::uint32_t width, std::uint32_t height, std::uint32_t depth) {
  return {data, std::size_t{width} * BytesPerPixel(depth), width, height, depth};
}
inline ConstImageView PackedView(const std::uint8_t* data, std::uint32_t width, std::uint32_t height,
                                 std::uint32_t depth) {
  return {data, std::size_t{width} * BytesPerPixel(depth), width, height, depth};
}

// Bytes of a packed frame of that size and depth.
constexpr std::size_t PackedBytes(std::uint32_t width, std::uint32_t height, std::uint32_t depth) {
  return std::size_t{width} * height * BytesPerPixel(depth);
}

template <class A, class B>
bool SameSize(const BasicImageView<A>& a, const BasicImageView<B>& b) {
  return a.width == b.width && a.height == b.height;
}

}  // namespace tarnvel
