// Background addition, cross, grid and the marker colour rule.
#include <gtest/gtest.h>

#include <array>
#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

TEST(Background, AddsAQuarterLimitedToTheFullScale) {
  test::AtEveryLevel([] {
  std::mt19937 rng(51);
  ImageProcessor p;
  for (int depth : test::kDepths) {
    const TestFrame src = test::RandomFrame(45, 4, depth, rng), bg = test::RandomFrame(45, 4, depth, rng);
    TestFrame out(45, 4, depth);
    p.SetGeometry(45, 4, depth);
    p.AddBackground(src.bytes.data(), bg.bytes.data(), out.data());
    for (std::size_t i = 0; i < src.Samples(); ++i)
      ASSERT_EQ(out.GetSample(i), std::min(src.GetSample(i) + (bg.GetSample(i) >> 2), test::FullScale(depth))) << depth;
    // Without a background the frame moves as a plain copy.
    p.AddBackground(src.bytes.data(), nullptr, out.data());
    EXPECT_EQ(out.bytes, src.bytes);
  }
  });
}

TEST(Markers, ColourRuleForEveryLayout) {
  struct Case {
    std::uint32_t rgb;
    int depth;
    std::int32_t want[3];
  } cases[] = {
      {0xFFFFFF, 10, {1023}}, {0x010101, 10, {4}},
      {0x0000FF, 8, {25}}, {0x00FF00, 8, {153}}, {0xFF0000, 8, {76}},  // red, green, blue weighted 1, 6, 3 tenths
      {0x102030, 24, {0x10, 0x20, 0x30}}, {0xFF8000, 36, {4095, 0x80 * 4095 / 255, 0}},
  };
  for (const Case& c : cases)
    for (int k = 0; k < test::Channels(c.depth); ++k) EXPECT_EQ(MarkerColorFor(c.rgb, c.depth).value[k], c.want[k]) << std::hex << c.rgb;
}

// Which pixels of an 8-bit buffer hold the marker.
std::vector<std::string> Picture(const TestFrame& f) {
  std::vector<std::string> lines(f.height);
  for (int y = 0; y < f.height; ++y)
    for (int x = 0; x < f.width; ++x) lines[y] += f.Get(x, y, 0) ? '#' : '.';
  return lines;
}
using Lines = std::vector<std::string>;

TEST(Markers, CrossAndGridDrawWhereTheRulesSay) {
  ImageProcessor p;
  auto draw = [&](bool grid, int w, int bufferRows, int pictureRows, int a, int b, int top, int bottom) {
    TestFrame f(w, bufferRows, 8);
    p.SetGeometry(w, pictureRows, 8);
    grid ? p.DrawGrid(f.data(), a, b, top, bottom, 0xFFFFFF) : p.DrawCross(f.data(), a, b, top, bottom, 0xFFFFFF);
    return Picture(f);
  };
  // Last column: drawn at 4 and 5.
  EXPECT_EQ(draw(false, 6, 5, 5, 5, 1, 0, 5), (Lines{"....##", "######", "######", "....##", "....##"}));
  // Top bar of 2 rows, picture of 4: the horizontal line counts rows from the
  // buffer's top, the vertical line spans exactly the picture.
  EXPECT_EQ(draw(false, 5, 7, 4, 1, 4, 2, 6), (Lines{".....", ".....", ".##..", ".##..", "#####", "#####", "....."}));
  EXPECT_EQ(draw(true, 8, 6, 6, 2, 1, 0, 6), (Lines{"........", "........", "........", "########", "########", "........"}));
  EXPECT_EQ(draw(true, 8, 6, 6, 1, 1, 0, 6), Lines(6, "........"));
  EXPECT_EQ(draw(true, 8, 6, 6, 1, 3, 0, 6)[5], "..####..") << "cell width 2: lines at 2-3 and 4-5";
  EXPECT_EQ(draw(true, 6, 4, 4, 0, 2, 0, 4), (Lines{"...##.", "...##.", "...##.", "...##."})) << "zero cells draw one direction";

  // Colour and deep layouts store the converted colour in every channel.
  TestFrame deep(4, 4, 36);
  p.SetGeometry(4, 4, 36);
  p.DrawCross(deep.data(), 0, 0, 0, 4, 0x0000FF);
  EXPECT_EQ((std::array{deep.Get(3, 0, 2), deep.Get(3, 0, 0), deep.Get(0, 3, 2), deep.Get(3, 3, 2)}), (std::array{4095u, 0u, 4095u, 0u}));
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
            std::vector<std::uint8_t> buffer(static_cast<std::size_t>(w) * (h + std::max(top, 0)) * test::StorageBytes(depth));
            p.SetGeometry(w, h, depth);
            p.DrawCross(buffer.data(), a, b, top, bottom, 0xFFFFFF);
            p.DrawGrid(buffer.data(), a, b, top, bottom, 0xFFFFFF);
          }
}

}  // namespace
}  // namespace tarnvel
