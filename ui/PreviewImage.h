// The still picture of the options dialog's preview, without a toolkit: the
// frame's rows made ready for drawing (each row padded to a multiple of four
// bytes, as a device-independent bitmap wants them), and the picture fitted
// into a client area with a 2-pixel margin, centred, scaled by dropping or
// repeating pixels. The window only copies the painted surface to the screen.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

namespace tarnvel {

class PreviewImage {
 public:
  // `pixels`: `height` rows of `width` pixels, tightly packed, of 8 (grey)
  // or 24 bits (blue, green, red). Rows that already take a multiple of four
  // bytes are used in place and must outlive the image; others are copied
  // into a buffer of the image's own, which is kept and reused. False for
  // another bit count or a size that leaves nothing to show.
  bool SetImage(const std::uint8_t* pixels, std::uint32_t width, std::uint32_t height, std::uint32_t bits);

  std::uint32_t Width() const { return width_; }
  std::uint32_t Height() const { return height_; }
  std::uint32_t Bits() const { return bits_; }
  std::size_t RowBytes() const { return rowBytes_; }
  const std::uint8_t* Rows() const { return rows_; }
  bool Repacked() const { return rows_ != nullptr && rows_ == ownRows_.data(); }

  // 0xFFRRGGBB of pixel (x, y).
  std::uint32_t ColourAt(std::uint32_t x, std::uint32_t y) const;

 private:
  const std::uint8_t* rows_ = nullptr;
  std::uint32_t width_ = 0, height_ = 0, bits_ = 0;
  std::size_t rowBytes_ = 0;
  std::vector<std::uint8_t> ownRows_;
};

// Where the picture goes in a client area of the given size.
struct PreviewPlacement {
  int shownZoom = 0;  // percent, at least 1
  int left = 0, top = 0, width = 0, height = 0;
};
PreviewPlacement FitPreview(int clientWidth, int clientHeight, std::uint32_t imageWidth, std::uint32_t imageHeight);

// Paints the client area: black, and the picture stretched into its
// placement, clipped to the area. `surface` holds `clientHeight` rows of
// `surfaceStride` 32-bit pixels (0xFFRRGGBB). Returns the placement.
PreviewPlacement PaintPreview(const PreviewImage& image, int clientWidth, int clientHeight, std::uint32_t* surface,
                              std::size_t surfaceStride);

}  // namespace tarnvel
