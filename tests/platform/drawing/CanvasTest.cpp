#include "platform/drawing/Canvas.h"

#include <gtest/gtest.h>

#include <thread>

namespace tarnvel {
namespace {

struct Box {
  int left = 1 << 30, top = 1 << 30, right = -1, bottom = -1;
  int lit = 0;
};

// The box of the non-black pixels, and whether every one of them is `bgr`.
Box LitBox(const Canvas& canvas, const std::uint8_t (&bgr)[3], bool* allExact) {
  const auto px = canvas.Bgr24();
  Box b;
  *allExact = true;
  for (int y = 0; y < canvas.Height(); ++y)
    for (int x = 0; x < canvas.Width(); ++x) {
      const std::uint8_t* p = &px[(static_cast<std::size_t>(y) * canvas.Width() + x) * 3];
      if (p[0] == 0 && p[1] == 0 && p[2] == 0) continue;
      ++b.lit;
      b.left = std::min(b.left, x), b.right = std::max(b.right, x);
      b.top = std::min(b.top, y), b.bottom = std::max(b.bottom, y);
      if (p[0] != bgr[0] || p[1] != bgr[1] || p[2] != bgr[2]) *allExact = false;
    }
  return b;
}

TEST(Drawing, SystemTextBecomesUtf8) {
  EXPECT_EQ(SystemTextToUtf8("25.0 \xB0" "C"), "25.0 \xC2\xB0" "C");
  EXPECT_EQ(SystemTextToUtf8("12 \xB5s"), "12 \xC2\xB5s");
  EXPECT_EQ(SystemTextToUtf8("\x80"), "\xE2\x82\xAC");
  EXPECT_EQ(SystemTextToUtf8(std::string_view("ab\0cd", 5)), "ab") << "a text ends at its terminator";
}

TEST(Drawing, FontsHaveTheirCellHeightAndFallBack) {
  Font standard("", 0);
  EXPECT_EQ(standard.Height(), 20);
  Font big("DejaVu Sans", 40);
  const TextExtent one = big.Measure("W");
  const TextExtent three = big.Measure("WWW");
  EXPECT_EQ(one.cy, 40);
  EXPECT_GT(one.cx, 10);
  EXPECT_NEAR(three.cx, 3 * one.cx, 2);
  EXPECT_EQ(big.Measure("").cx, 0);
  Font missing("No Such Face At All", 20);
  EXPECT_FALSE(missing.ResolvedFamily().empty()) << "an unknown face falls back";
  EXPECT_GT(missing.Measure("text").cx, 0);
}

TEST(Drawing, FillsAndCentredTextCarryExactColours) {
  Canvas canvas(120, 40);
  canvas.Fill(0, 0, 120, 40, 0x00FF8040);  // red 0x40, green 0x80, blue 0xFF
  const auto filled = canvas.Bgr24();
  EXPECT_EQ(filled[0], 0xFF);
  EXPECT_EQ(filled[1], 0x80);
  EXPECT_EQ(filled[2], 0x40);
  EXPECT_EQ(filled.size(), 120u * 40 * 3);

  Canvas text(200, 30);
  Font font("DejaVu Sans", 30);
  text.DrawCentredText(font, "Frame 123", 0x00FFFFFF, 0, 0, 200, 30);
  bool exact = false;
  const Box box = LitBox(text, {255, 255, 255}, &exact);
  EXPECT_TRUE(exact) << "no anti-aliasing: text pixels are the text's colour";
  ASSERT_GT(box.lit, 50);
  const int width = font.Measure("Frame 123").cx;
  EXPECT_NEAR((box.left + box.right) / 2.0, 100, 4) << "centred across";
  EXPECT_NEAR((box.top + box.bottom) / 2.0, 15, 6) << "centred down";
  EXPECT_LE(box.right - box.left + 1, width + 2);

  // The degree and micro signs are glyphs of their own.
  Canvas degree(60, 30), question(60, 30);
  degree.DrawCentredText(font, "\xB0", 0xFFFFFF, 0, 0, 60, 30);
  question.DrawCentredText(font, "?", 0xFFFFFF, 0, 0, 60, 30);
  EXPECT_NE(degree.Bgr24(), question.Bgr24());
  bool ignored;
  EXPECT_GT(LitBox(degree, {255, 255, 255}, &ignored).lit, 5);
}

TEST(Drawing, TextIsClippedToItsRectangleAndCanvasesAreIndependent) {
  Canvas canvas(30, 20);
  Font font("DejaVu Sans", 20);
  canvas.DrawCentredText(font, "a text far wider than its canvas", 0x0000FF, 5, 0, 25, 20);
  bool exact = false;
  const Box box = LitBox(canvas, {0, 0, 255}, &exact);
  EXPECT_TRUE(exact);
  EXPECT_GE(box.left, 5);
  EXPECT_LE(box.right, 24);

  // Jobs draw side by side: each thread's canvas comes out as drawn alone.
  Canvas reference(160, 24);
  {
    Font f("DejaVu Sans", 24);
    reference.DrawCentredText(f, "00:00:01.250", 0xFFFFFF, 0, 0, 160, 24);
  }
  const auto expected = reference.Bgr24();
  std::vector<std::thread> threads;
  std::atomic<int> mismatches{0};
  for (int t = 0; t < 4; ++t)
    threads.emplace_back([&] {
      for (int i = 0; i < 20; ++i) {
        Font f("DejaVu Sans", 24);
        Canvas c(160, 24);
        c.DrawCentredText(f, "00:00:01.250", 0xFFFFFF, 0, 0, 160, 24);
        if (c.Bgr24() != expected) ++mismatches;
      }
    });
  for (auto& t : threads) t.join();
  EXPECT_EQ(mismatches, 0);
}

}  // namespace
}  // namespace tarnvel

namespace tarnvel {
namespace {

std::uint32_t PixelAt(const std::vector<std::uint8_t>& bgr, int width, int x, int y) {
  const std::uint8_t* p = &bgr[(static_cast<std::size_t>(y) * width + x) * 3];
  return p[2] | p[1] << 8 | p[0] << 16;  // back to a colour word
}

TEST(Drawing, LinesRectanglesAndPens) {
  Canvas canvas(40, 30);
  canvas.Line({PenStyle::Solid, 0x0000FF}, 2, 3, 20, 3);
  canvas.Line({PenStyle::Dot, 0x00FF00}, 2, 10, 21, 10);
  canvas.Line({PenStyle::Solid, 0xFF0000}, 30, 12, 30, 20);
  const std::uint32_t fill = 0x102030;
  canvas.Rectangle({PenStyle::Solid, 0xFFFFFF}, {5, 15, 15, 25}, &fill);
  const auto px = canvas.Bgr24();
  for (int x = 0; x < 40; ++x) EXPECT_EQ(PixelAt(px, 40, x, 3), x >= 2 && x <= 20 ? 0x0000FFu : 0u) << x;
  int dots = 0, gaps = 0;
  for (int x = 2; x <= 21; ++x) (PixelAt(px, 40, x, 10) == 0x00FF00u ? dots : gaps) += 1;
  EXPECT_EQ(dots, 10);
  EXPECT_EQ(gaps, 10) << "a dotted pen alternates pixel by pixel";
  for (int y = 0; y < 30; ++y) EXPECT_EQ(PixelAt(px, 40, 30, y), y >= 12 && y <= 20 ? 0xFF0000u : 0u) << y;
  // Outline on the rectangle's edge pixels, the fill inside, nothing beyond.
  EXPECT_EQ(PixelAt(px, 40, 5, 15), 0xFFFFFFu);
  EXPECT_EQ(PixelAt(px, 40, 14, 24), 0xFFFFFFu);
  EXPECT_EQ(PixelAt(px, 40, 10, 20), fill);
  EXPECT_EQ(PixelAt(px, 40, 15, 20), 0u);
  EXPECT_EQ(PixelAt(px, 40, 10, 25), 0u);
}

TEST(Drawing, AlignedAndUpwardText) {
  Font font("DejaVu Sans", 13, Font::kNormal);
  const Rect box{10, 5, 190, 25};
  for (Align across : {Align::Start, Align::Centre, Align::End}) {
    Canvas canvas(200, 30);
    canvas.DrawText(font, "1.250", 0xFFFFFF, box, across, Align::Start, {0, 0, 200, 30});
    bool exact;
    const Box lit = LitBox(canvas, {255, 255, 255}, &exact);
    ASSERT_GT(lit.lit, 10);
    const int width = font.Measure("1.250").cx;
    const double expected = across == Align::Start ? 10 + width / 2.0 : across == Align::End ? 190 - width / 2.0 : 100;
    EXPECT_NEAR((lit.left + lit.right) / 2.0, expected, 2);
    EXPECT_LE(lit.right - lit.left + 1, width + 1);
    EXPECT_GE(lit.top, 5);
    EXPECT_LE(lit.bottom, 5 + 13);
  }
  Canvas up(30, 120);
  up.DrawTextUpward(font, "Volts [mV]", 0xFFFFFF, 2, 110, {0, 0, 30, 120});
  bool exact;
  const Box lit = LitBox(up, {255, 255, 255}, &exact);
  ASSERT_GT(lit.lit, 20);
  EXPECT_TRUE(exact);
  EXPECT_GT(lit.bottom - lit.top, 3 * (lit.right - lit.left)) << "the text runs upward";
  EXPECT_LE(lit.bottom, 110);
  EXPECT_GE(lit.left, 2);
  EXPECT_LE(lit.right, 2 + 13);
}

}  // namespace
}  // namespace tarnvel
