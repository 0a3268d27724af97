#include "platform/drawing/Canvas.h"

#include <gtest/gtest.h>

#include <atomic>
#include <thread>

namespace tarnvel {
namespace {

struct Box {
  int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1;
  int lit = 0;
  bool allExact = true;  // every lit pixel has the colour asked for
};

// The box of the non-black pixels.
Box LitBox(const Canvas& canvas, std::uint32_t color = 0xFFFFFF) {
  const auto px = canvas.Bgr24();
  Box b;
  for (int y = 0; y < canvas.Height(); ++y)
    for (int x = 0; x < canvas.Width(); ++x) {
      const std::uint8_t* p = &px[(static_cast<std::size_t>(y) * canvas.Width() + x) * 3];
      const std::uint32_t c = p[2] | p[1] << 8 | p[0] << 16;  // back to a colour word
      if (c == 0) continue;
      ++b.lit;
      b.left = std::min(b.left, x), b.right = std::max(b.right, x);
      b.top = std::min(b.top, y), b.bottom = std::max(b.bottom, y);
      b.allExact &= c == color;
    }
  return b;
}

std::uint32_t PixelAt(const Canvas& canvas, int x, int y) {
  const auto px = canvas.Bgr24();
  const std::uint8_t* p = &px[(static_cast<std::size_t>(y) * canvas.Width() + x) * 3];
  return p[2] | p[1] << 8 | p[0] << 16;
}

TEST(Drawing, SystemTextBecomesUtf8AndFontsHaveTheirCellHeight) {
  EXPECT_EQ(SystemTextToUtf8("25.0 \xB0" "C \xB5s"), "25.0 \xC2\xB0" "C \xC2\xB5s");
  EXPECT_EQ(SystemTextToUtf8("\x80"), "\xE2\x82\xAC");
  EXPECT_EQ(SystemTextToUtf8(std::string_view("ab\0cd", 5)), "ab") << "a text ends at its terminator";

  // Fonts have their cell height and fall back.
  EXPECT_EQ(Font("", 0).Height(), 20);
  Font big("DejaVu Sans", 40);
  EXPECT_EQ(big.Measure("W").cy, 40);
  EXPECT_NEAR(big.Measure("WWW").cx, 3 * big.Measure("W").cx, 2);
  EXPECT_GT(Font("No Such Face At All", 20).Measure("text").cx, 0) << "an unknown face falls back";
}

TEST(Drawing, FillsAndCentredTextCarryExactColours) {
  Canvas canvas(120, 40);
  canvas.Fill(0, 0, 120, 40, 0x00FF8040);  // red 0x40, green 0x80, blue 0xFF
  EXPECT_EQ(PixelAt(canvas, 119, 39), 0x00FF8040u);

  Canvas text(200, 30);
  Font font("DejaVu Sans", 30);
  text.DrawCentredText(font, "Frame 123", 0x00FFFFFF, 0, 0, 200, 30);
  const Box box = LitBox(text);
  EXPECT_TRUE(box.allExact) << "no anti-aliasing: text pixels are the text's colour";
  ASSERT_GT(box.lit, 50);
  EXPECT_NEAR((box.left + box.right) / 2.0, 100, 4) << "centred across";
  EXPECT_NEAR((box.top + box.bottom) / 2.0, 15, 6) << "centred down";
  Canvas degree(60, 30), question(60, 30);  // system text: the degree sign is a glyph of its own
  degree.DrawCentredText(font, "\xB0", 0xFFFFFF, 0, 0, 60, 30);
  question.DrawCentredText(font, "?", 0xFFFFFF, 0, 0, 60, 30);
  EXPECT_NE(degree.Bgr24(), question.Bgr24());
}

TEST(Drawing, TextIsClippedToItsRectangleAndCanvasesAreIndependent) {
  Canvas canvas(30, 20);
  canvas.DrawCentredText(Font("DejaVu Sans", 20), "a text far wider than its canvas", 0x0000FF, 5, 0, 25, 20);
  const Box box = LitBox(canvas, 0x0000FF);
  EXPECT_TRUE(box.allExact);
  EXPECT_GE(box.left, 5);
  EXPECT_LE(box.right, 24);

  // Jobs draw side by side: each thread's canvas comes out as drawn alone.
  auto draw = [] {
    Canvas c(160, 24);
    c.DrawCentredText(Font("DejaVu Sans", 24), "00:00:01.250", 0xFFFFFF, 0, 0, 160, 24);
    return c.Bgr24();
  };
  const auto expected = draw();
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) mismatches += draw() != expected;
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(mismatches, 0);

  // A canvas larger than Cairo draws is empty: drawing on it does nothing, and it gives no pixels.
  for (const auto& [w, h] : {std::pair{32768, 4}, {4, 40000}, {2147483647, 2147483647}}) {
    Canvas huge(w, h);
    EXPECT_EQ(std::pair(huge.Width(), huge.Height()), std::pair(0, 0)) << w << "x" << h;
    huge.Fill(0, 0, w, h, 0xFFFFFF);
    huge.DrawCentredText(Font("DejaVu Sans", 20), "text", 0xFFFFFF, 0, 0, w, h);
    EXPECT_TRUE(huge.Bgr24().empty());
  }
}

TEST(Drawing, LinesRectanglesAndPens) {
  Canvas canvas(40, 30);
  canvas.Line({PenStyle::Solid, 0x0000FF}, 2, 3, 20, 3);
  canvas.Line({PenStyle::Dot, 0x00FF00}, 2, 10, 21, 10);
  canvas.Line({PenStyle::Solid, 0xFF0000}, 30, 12, 30, 20);
  const std::uint32_t fill = 0x102030;
  canvas.Rectangle({PenStyle::Solid, 0xFFFFFF}, {5, 15, 15, 25}, &fill);
  for (int x = 0; x < 40; ++x) EXPECT_EQ(PixelAt(canvas, x, 3), x >= 2 && x <= 20 ? 0x0000FFu : 0u) << x;
  for (int x = 2; x <= 21; ++x) EXPECT_EQ(PixelAt(canvas, x, 10), x % 2 == 0 ? 0x00FF00u : 0u) << "dotted " << x;
  for (int y = 0; y < 30; ++y) EXPECT_EQ(PixelAt(canvas, 30, y), y >= 12 && y <= 20 ? 0xFF0000u : 0u) << y;
  // Outline on the rectangle's edge pixels, the fill inside, nothing beyond.
  for (auto [x, y, color] : {std::tuple{5, 15, 0xFFFFFFu}, {14, 24, 0xFFFFFFu}, {10, 20, fill}, {15, 20, 0u}, {10, 25, 0u}})
    EXPECT_EQ(PixelAt(canvas, x, y), color) << x << "," << y;
}

TEST(Drawing, AlignedAndUpwardText) {
  Font font("DejaVu Sans", 13, Font::kNormal);
  const int width = font.Measure("1.250").cx;
  for (auto [across, centre] : {std::pair{Align::Start, 10 + width / 2.0}, {Align::Centre, 100.0},
                                {Align::End, 190 - width / 2.0}}) {
    Canvas canvas(200, 30);
    canvas.DrawText(font, "1.250", 0xFFFFFF, {10, 5, 190, 25}, across, Align::Start, {0, 0, 200, 30});
    const Box lit = LitBox(canvas);
    ASSERT_GT(lit.lit, 10);
    EXPECT_NEAR((lit.left + lit.right) / 2.0, centre, 2);
    EXPECT_TRUE(lit.top >= 5 && lit.bottom <= 5 + 13) << lit.top << ".." << lit.bottom;
  }
  Canvas up(30, 120);
  up.DrawTextUpward(font, "Volts [mV]", 0xFFFFFF, 2, 110, {0, 0, 30, 120});
  const Box lit = LitBox(up);
  ASSERT_GT(lit.lit, 20);
  EXPECT_TRUE(lit.allExact);
  EXPECT_GT(lit.bottom - lit.top, 3 * (lit.right - lit.left)) << "the text runs upward";
  EXPECT_TRUE(lit.bottom <= 110 && lit.left >= 2 && lit.right <= 2 + 13) << lit.left << ".." << lit.right;
}

}  // namespace
}  // namespace tarnvel
