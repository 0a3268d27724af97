#include "frames/overlay/OverlayText.h"

#include <algorithm>

#include "frames/overlay/Blend.h"
#include "platform/drawing/Canvas.h"

namespace tarnvel {
namespace {

TextPlacement PlacementOf(const Font& font, std::string_view text) {
  const TextExtent extent = font.Measure(text);
  TextPlacement p;
  p.margin = std::max(extent.cy / 4, 4);
  p.canvasWidth = (extent.cx + 2 * p.margin) & ~3;
  p.canvasHeight = extent.cy;
  return p;
}

}  // namespace

std::uint32_t GreyOf(std::uint32_t color) {
  // Single precision, as the overlay always did it: in double 0x010101 would
  // come out 0.9999 and vanish, while it must stay a drawn near-black.
  const float g = 0.299f * static_cast<float>((color >> 16) & 0xFF) + 0.587f * static_cast<float>((color >> 8) & 0xFF) +
                  0.114f * static_cast<float>(color & 0xFF);
  const auto grey = static_cast<std::uint32_t>(g);
  return grey | grey << 8 | grey << 16;
}

TextPlacement MeasureOverlayText(std::string_view fontFace, int fontHeight, std::string_view text) {
  return PlacementOf(Font(fontFace, fontHeight), text);
}

int MeasureTextBar(std::uint32_t overlayFlags, std::string_view fontFace) {
  if (overlayFlags == 0) return 0;
  const int height = Font(fontFace, 20).Measure("XXXXX").cy;
  return (height * 3 / 2 + 3) & ~3;
}

void DrawOverlayText(ImageView frame, std::int32_t position, std::string_view fontFace, int fontHeight,
                     std::int32_t textColor, std::int32_t backColor, std::int32_t offset, std::string_view text) {
  const Font font(fontFace, fontHeight);
  const TextPlacement p = PlacementOf(font, text);
  std::uint32_t color = ColorAt(textColor);
  if (!IsColour(frame.depth)) color = GreyOf(color);
  Canvas canvas(p.canvasWidth, p.canvasHeight);
  const bool transparent = backColor == -1;
  canvas.Fill(0, 0, p.canvasWidth, p.canvasHeight, transparent ? 0 : ColorAt(backColor));
  canvas.DrawCentredText(font, text, color, 0, 0, p.canvasWidth, p.canvasHeight);
  const auto pixels = canvas.Bgr24();
  if (pixels.empty()) return;  // a text too large for any canvas is not drawn
  BlendBitmap(frame, position, transparent, p.margin + offset, p.margin, 0,
              PackedView(pixels.data(), static_cast<std::uint32_t>(canvas.Width()),
                         static_cast<std::uint32_t>(canvas.Height()), 24),
              nullptr);
}

}  // namespace tarnvel
