// One line of overlay text burnt into a frame: measured and drawn into a
// small 24-bit canvas with the drawing layer, then blended at its position.
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/pixels/ImageView.h"

namespace tarnvel {

struct TextPlacement {
  int margin = 0;       // rows and columns between the frame's edge and the canvas
  int canvasWidth = 0;  // pixels, a multiple of 4
  int canvasHeight = 0; // the font's height
};

// The margin and canvas of a text in a font: margin = height / 4, at least 4;
// width = text width plus both margins, with the two low bits cleared.
TextPlacement MeasureOverlayText(std::string_view fontFace, int fontHeight, std::string_view text);

// Rows of one text bar: none without overlay flags; else the height of
// "XXXXX" in the overlay face at height 20 and weight 600, times 3, halved,
// plus 3, with the two low bits cleared (a multiple of 4).
int MeasureTextBar(std::uint32_t overlayFlags, std::string_view fontFace);

// Draws `text` at `position` of the frame. Colours are indexes into the colour
// table; on grey frames the text colour becomes its grey, and a backColor of
// -1 leaves the frame visible around the letters.
void DrawOverlayText(ImageView frame, std::int32_t position, std::string_view fontFace, int fontHeight,
                     std::int32_t textColor, std::int32_t backColor, std::int32_t offset, std::string_view text);

// The grey of a colour word as the overlay takes it: 0.299 of bits 16 to 23,
// 0.587 of bits 8 to 15 and 0.114 of bits 0 to 7 in single precision, cut
// toward zero.
std::uint32_t GreyOf(std::uint32_t color);

}  // namespace tarnvel
