#include "frames/overlay/OverlayText.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <vector>

#include "frames/overlay/Blend.h"

namespace tarnvel {
namespace {

constexpr long W = 320, H = 120;

// At every position the text's pixels lie in the canvas rectangle the
// placement rules give, and carry white at the frame's depth: 255 at the
// channel's bits (three channels of depth / 3 bits above 16 bits).
template <typename Sample>
void CheckPositions(std::uint32_t depth) {
  const int channels = depth > 16 ? 3 : 1, bits = channels == 3 ? static_cast<int>(depth) / 3 : static_cast<int>(depth);
  const std::uint32_t white = bits >= 8 ? 255u << (bits - 8) : 255u >> (8 - bits);
  const char* text = "12:34:56 T+0.001";
  const TextPlacement p = MeasureOverlayText("DejaVu Sans", 20, text);
  ASSERT_EQ(p.margin, 5);
  ASSERT_EQ(p.canvasHeight, 20);
  ASSERT_EQ(p.canvasWidth % 4, 0);
  for (std::int32_t position = 0; position <= 5; ++position) {
    std::vector<Sample> frame(W * H * channels, 3);
    DrawOverlayText(PackedView(reinterpret_cast<std::uint8_t*>(frame.data()), W, H, depth), position, "DejaVu Sans", 20, 0,
                    -1, 7, text);
    const long w = p.canvasWidth, h = p.canvasHeight, right = position == kTopRight || position == kBottomRight;
    const long bottom = position == kBottomLeft || position == kBottomRight || position == kBottomCentre;
    long x0 = right ? W - w - p.margin - 7 : p.margin + 7, y0 = bottom ? H - h - p.margin : p.margin, lit = 0;
    if (position == kTopCentre || position == kBottomCentre) x0 = (W - w) / 2;
    for (long i = 0; i < W * H * channels; ++i) {
      const long x = i / channels % W, y = i / channels / W;
      if (frame[i] == 3) continue;
      ASSERT_TRUE(x >= x0 && x < x0 + w && y >= y0 && y < y0 + h) << "depth " << depth << " position " << position << " at " << x << "," << y;
      ASSERT_EQ(frame[i], white) << "depth " << depth;
      ++lit;
    }
    EXPECT_GT(lit, 100) << "depth " << depth << " position " << position;
  }
}

TEST(OverlayText, LiesWhereItsPositionPutsItAtEveryDepth) {
  CheckPositions<std::uint16_t>(12);
  CheckPositions<std::uint8_t>(24);
  CheckPositions<std::uint8_t>(21);
  CheckPositions<std::uint16_t>(30);
}

TEST(OverlayText, BackgroundColourOnGreyAndClipping) {
  // Colour 2 is 0x0000CC: grey weights 10, 18, 4 of red 0xCC at 12 bits; the text stays white.
  std::vector<std::uint16_t> frame(W * H, 1);
  DrawOverlayText(PackedView(reinterpret_cast<std::uint8_t*>(frame.data()), W, H, 12), kTopLeft, "DejaVu Sans", 24, 0, 2,
                  0, "AB");
  const TextPlacement p = MeasureOverlayText("DejaVu Sans", 24, "AB");
  int filled = 0, other = 0;
  for (int y = p.margin; y < p.margin + p.canvasHeight; ++y)
    for (int x = p.margin; x < p.margin + p.canvasWidth; ++x) frame[y * W + x] == ((0xCC << 4) * 4 >> 5) ? ++filled : other += frame[y * W + x] != 4080;
  EXPECT_GT(filled, p.canvasWidth * p.canvasHeight / 2) << "margins included, the canvas is filled";
  EXPECT_EQ(other, 0);
  EXPECT_EQ(frame[0], 1) << "outside the canvas the frame stays";
  // Colour text on a grey frame becomes the grey of its colour: 0x00CC00 gives 0.587 * 204.
  std::vector<std::uint8_t> grey(W * H, 0);
  DrawOverlayText(PackedView(grey.data(), W, H, 8), kTopLeft, "DejaVu Sans", 20, 4, -1, 0, "Green");
  EXPECT_GT(std::count(grey.begin(), grey.end(), (119 * 32) >> 5), 20);
  EXPECT_EQ(MeasureTextBar(0, "DejaVu Sans"), 0) << "no overlay, no bar";
  EXPECT_EQ(MeasureTextBar(0x4, "No Such Face"), 32) << "(20 * 3 / 2 + 3) with the low bits cleared, whatever the face";
  // Text wider than the frame is clipped.
  std::vector<std::uint8_t> buffer(16 * 10 + 64, 0x5A);
  DrawOverlayText(PackedView(buffer.data() + 32, 16, 10, 8), kBottomRight, "DejaVu Sans", 30, 0, 3, 0,
                  "far too long a text for such a small frame");
  for (int i = 0; i < 32; ++i) ASSERT_TRUE(buffer[i] == 0x5A && buffer[32 + 160 + i] == 0x5A) << i;
  // A text whose canvas no drawing layer can hold is left out, not drawn past its buffer.
  std::vector<std::uint8_t> guarded(16 * 10 + 64, 0x5A);
  DrawOverlayText(PackedView(guarded.data() + 32, 16, 10, 8), kTopLeft, "DejaVu Sans", 20000, 0, 3, 0, "a text of a huge font");
  EXPECT_EQ(std::count(guarded.begin(), guarded.end(), 0x5A), static_cast<long>(guarded.size()));
}

}  // namespace
}  // namespace tarnvel
