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
  for (int depth : test::kDepths) {
    // Rows of whole vectors and a tail.
    const TestFrame src = test::RandomFrame(45, 4, depth, rng), bg = test::RandomFrame(45, 4, depth, rng);
    TestFrame out(45, 4, depth);
    ASSERT_TRUE(AddBackground(src.View(), bg.View(), out.View()));
    for (std::size_t i = 0; i < src.Samples(); ++i)
      ASSERT_EQ(out.GetSample(i), std::min(src.GetSample(i) + (bg.GetSample(i) >> 2), test::FullScale(depth))) << depth;
    // Without a background the frame moves as a plain copy.
    ASSERT_TRUE(AddBackground(src.View(), ConstImageView{}, out.View()));
    EXPECT_EQ(out.bytes, src.bytes);
    // A background of another size or depth is refused, nothing written.
    TestFrame untouched(45, 4, depth);
    EXPECT_FALSE(AddBackground(src.View(), TestFrame(45, 3, depth).View(), untouched.View()));
    EXPECT_FALSE(AddBackground(src.View(), TestFrame(45, 4, depth == 8 ? 12 : 8).View(), untouched.View()));
    EXPECT_TRUE(untouched.AllZero());
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
      {0xFF8000, 21, {127, 0x80 * 127 / 255, 0}},  // 8-bit colour of 7 bits a channel: white is 127
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
  auto draw = [&](bool grid, int w, int bufferRows, int a, int b, int top, int bottom) {
    TestFrame f(w, bufferRows, 8);
    grid ? DrawGrid(f.View(), a, b, top, bottom, 0xFFFFFF) : DrawCross(f.View(), a, b, top, bottom, 0xFFFFFF);
    return Picture(f);
  };
  // Last column: drawn at 4 and 5.
  EXPECT_EQ(draw(false, 6, 5, 5, 1, 0, 5), (Lines{"....##", "######", "######", "....##", "....##"}));
  // Top bar of 2 rows, picture of 4: the horizontal line counts rows from the
  // buffer's top, the vertical line spans exactly the picture.
  EXPECT_EQ(draw(false, 5, 7, 1, 4, 2, 6), (Lines{".....", ".....", ".##..", ".##..", "#####", "#####", "....."}));
  EXPECT_EQ(draw(true, 8, 6, 2, 1, 0, 6), (Lines{"........", "........", "........", "########", "########", "........"}));
  EXPECT_EQ(draw(true, 8, 6, 1, 1, 0, 6), Lines(6, "........"));
  EXPECT_EQ(draw(true, 8, 6, 1, 3, 0, 6)[5], "..####..") << "cell width 2: lines at 2-3 and 4-5";
  EXPECT_EQ(draw(true, 6, 4, 0, 2, 0, 4), (Lines{"...##.", "...##.", "...##.", "...##."})) << "zero cells draw one direction";
  // The cells divide the picture, not the buffer: a picture of 8 rows with a
  // bottom bar of 4 has its two cells split at row 4, with a top bar of 4 the
  // pair still lies at buffer rows 4 and 5, counted from the buffer's top.
  EXPECT_EQ(draw(true, 3, 12, 2, 1, 0, 8), (Lines{"...", "...", "...", "...", "###", "###", "...", "...", "...", "...", "...", "..."}));
  EXPECT_EQ(draw(true, 3, 12, 2, 1, 4, 12), (Lines{"...", "...", "...", "...", "###", "###", "...", "...", "...", "...", "...", "..."}));

  // Colour and deep layouts store the converted colour in every channel.
  TestFrame deep(4, 4, 36);
  DrawCross(deep.View(), 0, 0, 0, 4, 0x0000FF);
  EXPECT_EQ((std::array{deep.Get(3, 0, 2), deep.Get(3, 0, 0), deep.Get(0, 3, 2), deep.Get(3, 3, 2)}), (std::array{4095u, 0u, 4095u, 0u}));
}

TEST(Markers, HostilePositionsAndCountsStayInTheBuffer) {
  // Exact-size buffers: AddressSanitizer reports any write beyond them.
  const std::int32_t values[] = {INT32_MIN, -1, 0, 1, 2, 3, 4, 5, 6, 7, 1000, INT32_MAX};
  for (int depth : {8, 12, 24, 36})
    for (auto [w, h] : {std::pair{1, 1}, {2, 2}, {5, 3}})
      for (std::int32_t a : values)
        for (std::int32_t b : values)
          for (auto [top, bottom] : {std::pair{0, h}, {1, h + 1}, {-5, h}, {0, 1000}, {3, 1}}) {
            const auto rows = static_cast<std::uint32_t>(h + std::max(top, 0));
            std::vector<std::uint8_t> buffer(static_cast<std::size_t>(w) * rows * test::StorageBytes(depth));
            const ImageView view = PackedView(buffer.data(), static_cast<std::uint32_t>(w), rows, static_cast<std::uint32_t>(depth));
            DrawCross(view, a, b, top, bottom, 0xFFFFFF);
            DrawGrid(view, a, b, top, bottom, 0xFFFFFF);
          }
}

}  // namespace
}  // namespace tarnvel
