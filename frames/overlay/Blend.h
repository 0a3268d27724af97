// Burning a 24-bit bitmap (text canvas or logo) into a frame of any depth at
// one of seven positions, with optional alpha plane and transparency step.
#pragma once

#include <cstdint>

#include "platform/pixels/ImageView.h"

namespace tarnvel {

// Positions of overlay texts and logos.
enum OverlayPosition : std::int32_t {
  kTopLeft = 0, kTopRight = 1, kBottomLeft = 2, kBottomRight = 3, kTopCentre = 4, kBottomCentre = 5, kCentre = 6
};

// The 19 colour words that overlay, markers and plots index: red in bits 0 to
// 7, green in 8 to 15, blue in 16 to 23.
inline constexpr std::uint32_t kColorTable[19] = {
    0xFFFFFF, 0xCCCCCC, 0x0000CC, 0x00CCCC, 0x00CC00, 0xCCCC00, 0xCC0000, 0xCC00CC, 0x010101, 0xA0A0A0,
    0x0000A0, 0x00A0A0, 0x00A000, 0xA0A000, 0xA00000, 0xA000A0, 0xCC8000, 0x0080CC, 0x707070};
// An index outside the table gives entry 0.
std::uint32_t ColorAt(std::int32_t index);

// Opacity of a transparency step: (100 - step * 5) * 255 / 100; step 0 is 255.
int OpacityOfStep(int transparencyStep);

// Writes the bitmap (a 24-bit view: blue, green, red) into `frame` at its
// layout, each 8-bit value brought to the frame's channel depth. With
// skipBlack, pixels that come out black leave the frame as it was. `alpha`,
// when given, holds one byte a bitmap pixel, rows of the bitmap's width.
// Parts that fall outside the frame are clipped: nothing is written outside
// it, and a row that would run past the frame's right edge (the centre
// position with an odd height difference starts in the middle of a row) is
// cut there instead of wrapping into the next row.
void BlendBitmap(ImageView frame, std::int32_t position, bool skipBlack, std::int32_t offsetX, std::int32_t offsetY,
                 int transparencyStep, ConstImageView bitmap, const std::uint8_t* alpha);

}  // namespace tarnvel
