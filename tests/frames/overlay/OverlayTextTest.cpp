#include "frames/overlay/OverlayText.h"

#include <gtest/gtest.h>

#include <vector>

#include "frames/overlay/Blend.h"

namespace tarnvel {
namespace {

constexpr std::uint32_t W = 320, H = 120;

struct Rect {
  long left, top, right, bottom;  // right and bottom exclusive
};

// The canvas rectangle a text occupies at a position, from the placement rules.
Rect Expected(std::int32_t position, const TextPlacement& p, int offset) {
  const long w = p.canvasWidth, h = p.canvasHeight, m = p.margin;
  long x = m + offset, y = m;
  switch (position) {
    case kTopRight: x = W - w - x; break;
    case kBottomLeft: y = H - h - y; break;
    case kBottomRight: x = W - w - x, y = H - h - y; break;
    case kTopCentre: x = (W - w) / 2; break;
    case kBottomCentre: x = (W - w) / 2, y = H - h - y; break;
    default: break;
  }
  return {x, y, x + w, y + h};
}

template <typename Sample>
void CheckPositions(std::uint32_t depth) {
  const int channels = depth >= 24 ? 3 : 1;
  const Sample background = 3;
  const TextPlacement p = MeasureOverlayText("DejaVu Sans", 20, "12:34:56 T+0.001");
  ASSERT_EQ(p.margin, 5);
  ASSERT_EQ(p.canvasHeight, 20);
  ASSERT_EQ(p.canvasWidth % 4, 0);
  const Sample white = depth == 8 || depth == 24 ? 255 : static_cast<Sample>(255 << (channels == 3 ? (depth - 24) / 3 : depth - 8));
  for (std::int32_t position = 0; position <= 5; ++position) {
    std::vector<Sample> frame(W * H * channels, background);
    DrawOverlayText(frame.data(), W, H, depth, position, "DejaVu Sans", 20, 0, -1, 7, "12:34:56 T+0.001");
    const Rect r = Expected(position, p, 7);
    long lit = 0;
    for (long y = 0; y < H; ++y)
      for (long x = 0; x < W; ++x)
        for (int k = 0; k < channels; ++k) {
          const Sample v = frame[(y * W + x) * channels + k];
          const bool inside = x >= r.left && x < r.right && y >= r.top && y < r.bottom;
          if (v == background) continue;
          ASSERT_TRUE(inside) << "depth " << depth << " position " << position << " at " << x << "," << y;
          ASSERT_EQ(v, white) << "text pixels carry white at the frame's depth";
          ++lit;
        }
    EXPECT_GT(lit, 100) << "depth " << depth << " position " << position;
  }
}

TEST(OverlayText, LiesWhereItsPositionPutsItAtEveryDepth) {
  CheckPositions<std::uint8_t>(8);
  CheckPositions<std::uint16_t>(12);
  CheckPositions<std::uint8_t>(24);
  CheckPositions<std::uint16_t>(36);
}

TEST(OverlayText, BackgroundFillsTheCanvasInItsGrey) {
  std::vector<std::uint16_t> frame(W * H, 1);
  DrawOverlayText(frame.data(), W, H, 12, kTopLeft, "DejaVu Sans", 24, 0, 2, 0, "AB");
  const TextPlacement p = MeasureOverlayText("DejaVu Sans", 24, "AB");
  // Colour 2 is 0x0000CC: blue 0, green 0, red 0xCC; grey weights 10, 18, 4.
  const std::uint16_t fill = static_cast<std::uint16_t>(((0 << 4) * 10 + (0 << 4) * 18 + (0xCC << 4) * 4) >> 5);
  std::uint16_t textValue = 0;
  int filled = 0;
  for (int y = p.margin; y < p.margin + p.canvasHeight; ++y)
    for (int x = p.margin; x < p.margin + p.canvasWidth; ++x) {
      const std::uint16_t v = frame[y * W + x];
      if (v == fill) ++filled;
      else textValue = v;
    }
  EXPECT_GT(filled, p.canvasWidth * p.canvasHeight / 2) << "margins included, the canvas is filled";
  EXPECT_EQ(textValue, 4080) << "white text on the coloured background";
  EXPECT_EQ(frame[0], 1) << "outside the canvas the frame stays";
  EXPECT_EQ(frame[(p.margin + p.canvasHeight) * W], 1);
}

TEST(OverlayText, NearBlackTextAndGreyConversion) {
  std::vector<std::uint16_t> frame(W * H, 1000);
  DrawOverlayText(frame.data(), W, H, 10, kTopLeft, "DejaVu Sans", 20, 8, -1, 0, "Dark");
  int four = 0;
  for (auto v : frame) four += v == 4;
  EXPECT_GT(four, 20) << "near-black text is drawn: 0x010101 stores 4 on 10 bits";
  // Colour text on a grey frame becomes the grey of its word.
  std::vector<std::uint8_t> grey(W * H, 0);
  DrawOverlayText(grey.data(), W, H, 8, kTopLeft, "DejaVu Sans", 20, 4, -1, 0, "Green");
  const std::uint32_t g = GreyOf(ColorAt(4)) & 0xFF;  // 0x00CC00: 0.587 * 204
  EXPECT_EQ(g, 119u);
  int greens = 0;
  for (auto v : grey) greens += v == ((g * 10 + g * 18 + g * 4) >> 5);
  EXPECT_GT(greens, 20);
}

TEST(OverlayText, TextBarsAreAMultipleOfFour) {
  EXPECT_EQ(MeasureTextBar(0, "DejaVu Sans"), 0) << "no overlay, no bar";
  EXPECT_EQ(MeasureTextBar(0x4, "DejaVu Sans"), 32) << "(20 * 3 / 2 + 3) with the low bits cleared";
  EXPECT_EQ(MeasureTextBar(0x4, "No Such Face"), 32) << "the height is fixed, whatever the face";
}

TEST(OverlayText, TextWiderThanTheFrameIsClipped) {
  std::vector<std::uint8_t> buffer(16 * 10 + 64, 0x5A);
  DrawOverlayText(buffer.data() + 32, 16, 10, 8, kBottomRight, "DejaVu Sans", 30, 0, 3, 0,
                  "far too long a text for such a small frame");
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(buffer[i], 0x5A);
    EXPECT_EQ(buffer[32 + 160 + i], 0x5A);
  }
}

}  // namespace
}  // namespace tarnvel
