// The images of the two logo items: loaded once per job through the image
// library, held as 24-bit pixels with an optional alpha plane, and burnt into
// each frame at a scale and transparency of their own.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/pixels/ImageView.h"

namespace tarnvel {

// Percent of each row of the logo scale table; row 6 is 100.
inline constexpr int kLogoScales[17] = {250, 225, 200, 175, 150, 125, 100, 90, 80, 70, 60, 50, 40, 30, 20, 10, 5};
// The percent of a row; a row outside the table counts as 100.
int LogoScalePercent(std::int32_t row);

class LogoImage {
 public:
  // Returns 1 on success, 0 otherwise (and then holds nothing).
  int Load(const char* path);
  void Free();
  bool IsLoaded() const { return !pixels_.empty(); }
  // 3 bytes a pixel, blue, green, red, Width() * Height() pixels; padding columns zero.
  const std::uint8_t* Pixels() const { return pixels_.data(); }
  // The image's width rounded up to a multiple of 4.
  std::uint32_t Width() const { return width_; }
  std::uint32_t Height() const { return height_; }
  // The colour plane as a 24-bit view.
  ConstImageView View() const { return PackedView(pixels_.data(), width_, height_, 24); }
  // One byte a pixel behind the colour plane, or null without alpha.
  const std::uint8_t* Alpha() const { return hasAlpha_ ? pixels_.data() + 3ull * width_ * height_ : nullptr; }

 private:
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  std::uint32_t hasAlpha_ = 0;
  std::vector<std::uint8_t> pixels_;
};

// Burns a logo (a 24-bit view, with an alpha plane of its size or null)
// into the frame at `position`: at its size for 100 percent, else scaled
// with Lanczos 3 (width * percent / 100, height * percent / 100 rounded up to
// a multiple of 4), its alpha plane likewise.
void DrawLogo(ImageView frame, ConstImageView logo, const std::uint8_t* alpha, std::int32_t position,
              int scalePercent, int transparencyStep, std::int32_t offset);

}  // namespace tarnvel
