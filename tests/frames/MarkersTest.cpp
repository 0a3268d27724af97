// Background addition, cross, grid and the marker colour rule.
#include <gtest/gtest.h>

#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

TEST(Background, AddsAQuarterLimitedToTheFullScale) {
  std::mt19937 rng(51);
  ImageProcessor p;
  for (int depth : {8, 10, 12, 16, 24, 30, 36}) {
    const TestFrame src = test::RandomFrame(9, 4, depth, rng), bg = test::RandomFrame(9, 4, depth, rng);
    TestFrame out(9, 4, depth);
    p.SetGeometry(9, 4, depth);
    p.AddBackground(src.bytes.data(), bg.bytes.data(), out.data());
    const std::uint32_t m = test::WordSamples(depth) ? (1u << test::BitsPerChannel(depth)) - 1 : 255u;
    for (std::size_t i = 0; i < src.Samples(); ++i)
      ASSERT_EQ(out.GetSample(i), std::min(src.GetSample(i) + (bg.GetSample(i) >> 2), m)) << depth;
  }
  TestFrame src(2, 1, 8), bg(2, 1, 8), out(2, 1, 8);
  src.Set(0, 0, 0, 200), src.Set(1, 0, 0, 100), bg.Set(0, 0, 0, 255), bg.Set(1, 0, 0, 255);
  p.SetGeometry(2, 1, 8);
  p.AddBackground(src.bytes.data(), bg.bytes.data(), out.data());
  EXPECT_EQ(out.Get(0, 0, 0), 255u);
  EXPECT_EQ(out.Get(1, 0, 0), 163u);
  TestFrame s12(1, 1, 12), b12(1, 1, 12), o12(1, 1, 12);
  b12.Set(0, 0, 0, 4095);
  p.SetGeometry(1, 1, 12);
  p.AddBackground(s12.bytes.data(), b12.bytes.data(), o12.data());
  EXPECT_EQ(o12.Get(0, 0, 0), 1023u);
  // Without a background the frame moves as a plain copy.
  s12.Set(0, 0, 0, 4000);
  p.AddBackground(s12.bytes.data(), nullptr, o12.data());
  EXPECT_EQ(o12.Get(0, 0, 0), 4000u);
}

TEST(Markers, ColourRuleForEveryLayout) {
  EXPECT_EQ(MarkerColorFor(0xFFFFFF, 10).value[0], 1023);
  EXPECT_EQ(MarkerColorFor(0x010101, 10).value[0], 4);
  EXPECT_EQ(MarkerColorFor(0x0000FF, 8).value[0], 25);    // red alone: 255 / 10
  EXPECT_EQ(MarkerColorFor(0x00FF00, 8).value[0], 153);   // green: 6 * 255 / 10
  EXPECT_EQ(MarkerColorFor(0xFF0000, 8).value[0], 76);    // blue: 3 * 255 / 10
  const MarkerColor c24 = MarkerColorFor(0x102030, 24);
  EXPECT_EQ(c24.value[0], 0x10);  // blue in byte 0
  EXPECT_EQ(c24.value[1], 0x20);
  EXPECT_EQ(c24.value[2], 0x30);
  const MarkerColor c36 = MarkerColorFor(0xFF8000, 36);
  EXPECT_EQ(c36.value[0], 4095);
  EXPECT_EQ(c36.value[1], 0x80 * 4095 / 255);
  EXPECT_EQ(c36.value[2], 0);
}

// Which pixels of a buffer of `rows` rows hold the marker value (grey 8-bit).
std::vector<std::string> Picture(const TestFrame& f) {
  std::vector<std::string> lines;
  for (int y = 0; y < f.height; ++y) {
    std::string line;
    for (int x = 0; x < f.width; ++x) line += f.Get(x, y, 0) ? '#' : '.';
    lines.push_back(line);
  }
  return lines;
}

TEST(Markers, CrossAndGridDrawWhereTheRulesSay) {
  ImageProcessor p;
  p.SetGeometry(6, 5, 8);
  TestFrame f(6, 5, 8);
  p.DrawCross(f.data(), 5, 1, 0, 5, 0xFFFFFF);  // last column: drawn at 4 and 5
  EXPECT_EQ(Picture(f), (std::vector<std::string>{"....##", "######", "######", "....##", "....##"}));

  // Top bar of 2 rows, picture of 4 rows: the horizontal line counts rows from
  // the buffer's top, the vertical line spans exactly the picture.
  TestFrame bar(5, 7, 8);
  p.SetGeometry(5, 4, 8);
  p.DrawCross(bar.data(), 1, 4, 2, 6, 0xFFFFFF);
  EXPECT_EQ(Picture(bar), (std::vector<std::string>{".....", ".....", ".##..", ".##..", "#####", "#####", "....."}));

  TestFrame grid(8, 6, 8);
  p.SetGeometry(8, 6, 8);
  p.DrawGrid(grid.data(), 2, 1, 0, 6, 0xFFFFFF);
  EXPECT_EQ(Picture(grid), (std::vector<std::string>{"........", "........", "........", "########", "########", "........"}));
  TestFrame none(8, 6, 8);
  p.DrawGrid(none.data(), 1, 1, 0, 6, 0xFFFFFF);
  EXPECT_EQ(none.bytes, std::vector<std::uint8_t>(48, 0));
  TestFrame columns(8, 6, 8);
  p.DrawGrid(columns.data(), 1, 3, 0, 6, 0xFFFFFF);  // cell width 2: lines at 2-3 and 4-5
  EXPECT_EQ(Picture(columns)[0], "..####..");
  EXPECT_EQ(Picture(columns)[5], "..####..");

  // Colour and deep layouts store the converted colour in every channel.
  TestFrame deep(4, 4, 36);
  p.SetGeometry(4, 4, 36);
  p.DrawCross(deep.data(), 0, 0, 0, 4, 0x0000FF);
  EXPECT_EQ(deep.Get(3, 0, 2), 4095u);
  EXPECT_EQ(deep.Get(3, 0, 0), 0u);
  EXPECT_EQ(deep.Get(0, 3, 2), 4095u);
  EXPECT_EQ(deep.Get(3, 3, 2), 0u);
}

TEST(Markers, HostilePositionsAndCountsStayInTheBuffer) {
  // Exact-size buffers: AddressSanitizer reports any write beyond them.
  ImageProcessor p;
  const std::int32_t values[] = {INT32_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, 1000, INT32_MAX};
  for (int depth : {8, 12, 24, 36})
    for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {5, 3}})
      for (std::int32_t a : values)
        for (std::int32_t b : values)
          for (auto [top, bottom] : {std::pair{0, h}, {1, h + 1}, {-5, h}, {0, 1000}, {3, 1}}) {
            std::vector<std::uint8_t> buffer(static_cast<std::size_t>(w) * (h + std::max(top, 0)) *
                                             test::StorageBytes(depth));
            p.SetGeometry(w, h, depth);
            p.DrawCross(buffer.data(), a, b, top, bottom, 0xFFFFFF);
            p.DrawGrid(buffer.data(), a, b, top, bottom, 0xFFFFFF);
          }
  // Zero cells beside a usable count draw only the usable direction.
  TestFrame f(6, 4, 8);
  p.SetGeometry(6, 4, 8);
  p.DrawGrid(f.data(), 0, 2, 0, 4, 0xFFFFFF);
  EXPECT_EQ(Picture(f), (std::vector<std::string>{"...##.", "...##.", "...##.", "...##."}));
}

}  // namespace
}  // namespace tarnvel
