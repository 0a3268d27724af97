// Point operations, flips and the row offset, each against a per-pixel
// evaluation of its rule, and the chain as a whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <functional>
#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::Applied;
using test::TestFrame;

// Each sample of the result is `rule(sample, full scale)` of the same sample before.
using Rule = std::function<std::uint32_t(std::uint32_t, std::uint32_t)>;
void ExpectRule(std::int32_t code, std::int32_t v1, std::int32_t v2, const TestFrame& in, const Rule& rule) {
  const TestFrame got = Applied(code, in, v1, v2);
  for (std::size_t i = 0; i < in.Samples(); ++i)
    ASSERT_EQ(got.GetSample(i), rule(in.GetSample(i), test::FullScale(in.depth)))
        << "code " << code << " (" << v1 << ", " << v2 << ") depth " << in.depth << " sample " << i;
}

std::uint32_t Clamped(double x, std::uint32_t m) { return x < 0 ? 0 : x > m ? m : static_cast<std::uint32_t>(x); }
Rule BrightnessContrast(int b, int c) {
  return [=](std::uint32_t v, std::uint32_t m) {
    if (b == 0 && c == 0) return v;
    const double factor = static_cast<float>(1.0f + static_cast<float>(c) / 100.0f);
    const double x = factor * std::min(v, m) + double(m) * b / 100.0;
    return Clamped(x, m);
  };
}
Rule Gamma(int g1000) {
  return [=](std::uint32_t v, std::uint32_t m) {
    const float g = static_cast<float>(g1000 / 1000.0);
    if (g == 0) return v;
    return Clamped(v > 0 && g != 1.0f ? m * std::pow(double(v) / m, 1.0 / g) : v, m);
  };
}

void BrightnessContrastGammaAndNegative() {
  std::mt19937 rng(31);
  for (int depth : test::kDepths) {
    for (auto [b, c] : {std::pair{0, 0}, {100, 0}, {-100, 0}, {13, 0}, {0, 57}, {-20, 35}, {7, -60}, {40, -150}, {-3, 333}})
      ExpectRule(ImgOpBrightnessContrast, b, c, test::RandomFrame(11, 7, depth, rng, 6), BrightnessContrast(b, c));
    for (int g : {0, 1000, 500, 2200, 333, -1500, 999999})
      ExpectRule(ImgOpGamma, g, 0, test::RandomFrame(9, 5, depth, rng), Gamma(g));
  }
  // A large frame runs whole vectors; its odd size leaves a tail.
  const TestFrame large = test::RandomFrame(1025, 67, 8, rng);
  ExpectRule(ImgOpBrightnessContrast, 13, 57, large, BrightnessContrast(13, 57));
  ExpectRule(ImgOpGamma, 2200, 0, large, Gamma(2200));
  // Negative: an exclusive or within the depth, its own inverse.
  for (int depth : {1, 5, 8, 9, 10, 12, 16, 18, 24, 27, 30, 36, 48}) {
    const TestFrame in = test::RandomFrame(depth % 2 ? 131 : 6, 3, depth, rng);
    ExpectRule(ImgOpNegative, 0, 0, in, [](std::uint32_t v, std::uint32_t m) { return v ^ m; });
    EXPECT_EQ(Applied(ImgOpNegative, Applied(ImgOpNegative, in)).bytes, in.bytes) << depth;
  }
}

TEST(PointOps, BrightnessContrastGammaAndNegativeFollowTheirFormulas) {
  test::AtEveryLevel([] { BrightnessContrastGammaAndNegative(); });
}

TEST(PointOps, MapsKeptForTheNextFrameFollowItemAndDepth) {
  // One processor over several frames, as a job runs it: each result equals
  // that of a fresh processor, whatever ran before and at whichever depth.
  std::mt19937 rng(33);
  ImageProcessor p;
  const std::pair<int, int> values[] = {{10, 20}, {10, 21}, {-5, 0}, {10, 20}};
  for (int round = 0; round < 24; ++round) {
    const int depth = test::kDepths[round % 7];
    const auto [b, c] = values[round % 4];
    const std::int32_t code = round % 3 == 2 ? ImgOpGamma : ImgOpBrightnessContrast;
    const ImageOpItem item{{}, code, nullptr, code == ImgOpGamma ? 400 + 100 * (round % 4) : b, c, 0};
    TestFrame frame = test::RandomFrame(9, 4, depth, rng);
    const TestFrame fresh = Applied(item, frame);
    p.Apply(item, frame.View());
    ASSERT_EQ(frame.bytes, fresh.bytes) << round;
  }
}

void Equalize() {
  std::mt19937 rng(34);
  for (int depth : {6, 8, 9, 10, 12, 14, 16}) {
    const TestFrame in = test::RandomFrame(17, 9, depth, rng);
    const std::size_t levels = std::size_t{1} << depth, n = in.Samples();
    std::vector<std::uint32_t> count(levels), table(levels);
    for (std::size_t i = 0; i < n; ++i) ++count[std::min<std::size_t>(in.GetSample(i), levels - 1)];
    double s = 0;
    for (std::size_t i = 0; i < levels; ++i) {
      s += static_cast<double>(count[i]) / n;
      table[i] = static_cast<std::uint32_t>(s * (levels - 1) + 0.5) & (depth <= 8 ? 0xFF : 0xFFFF);
    }
    ExpectRule(ImgOpEqualize, 0, 0, in, [&](std::uint32_t v, std::uint32_t) { return table[std::min<std::size_t>(v, levels - 1)]; });
    TestFrame flat(5, 5, depth);  // one single value maps to L - 1
    flat.Fill(77);
    EXPECT_EQ(Applied(ImgOpEqualize, flat).Get(3, 3, 0), (1u << depth) - 1);
  }
}

TEST(PointOps, EqualizeFollowsTheCumulativeHistogram) {
  test::AtEveryLevel([] { Equalize(); });
}

// Rows long enough for whole blocks of vectors from both ends, with every
// kind of middle left over.
const test::Size kWideSizes[] = {{128, 2}, {129, 3}, {200, 1}, {257, 2}, {300, 3}};

void Flips() {
  std::mt19937 rng(35);
  std::vector<test::Size> sizes(std::begin(test::kSizes), std::end(test::kSizes));
  sizes.insert(sizes.end(), std::begin(kWideSizes), std::end(kWideSizes));
  for (int depth : test::kDepths)
    for (auto size : sizes) {
      const TestFrame in = test::RandomFrame(size.w, size.h, depth, rng);
      const TestFrame v = Applied(ImgOpFlipVertical, in), h = Applied(ImgOpFlipHorizontal, in);
      for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x)
          for (int c = 0; c < test::Channels(depth); ++c) {
            ASSERT_EQ(v.Get(x, y, c), in.Get(x, in.height - 1 - y, c));
            ASSERT_EQ(h.Get(x, y, c), in.Get(in.width - 1 - x, y, c));
          }
    }
}

TEST(PointOps, FlipsMoveWholePixels) {
  test::AtEveryLevel([] { Flips(); });
}

void RowOffsets() {
  std::mt19937 rng(36);
  for (int depth : {8, 10, 12, 16})
    for (auto [mode, column] : {std::pair{0, 0}, {1, 0}, {1, 3}, {5, 6}, {1, -1}, {1, 7}, {1, 140}, {1, INT32_MAX}}) {
      // Dark rows of 150 keep their smallest value above 0.
      TestFrame in = test::RandomFrame(mode == 0 && depth % 2 ? 150 : 7, 5, depth, rng);
      for (std::size_t i = 0; i < in.Samples() && in.width == 150; ++i) in.SetSample(i, in.GetSample(i) / 3 + 40 + i % 5);
      const TestFrame got = Applied(ImgOpRowOffset, in, mode, column);
      for (int y = 0; y < in.height; ++y) {
        std::uint32_t r = mode != 0 ? (column >= 0 && column < in.width ? in.Get(column, y, 0) : 0) : 1000;
        for (int x = 0; x < in.width && mode == 0; ++x) r = std::min(r, in.Get(x, y, 0));
        for (int x = 0; x < in.width; ++x)
          ASSERT_EQ(got.Get(x, y, 0), in.Get(x, y, 0) >= r ? in.Get(x, y, 0) - r : 0) << depth << " " << mode << " " << column;
      }
    }
  for (int width : {9, 200}) {  // the reference stops at 1,000
    TestFrame row(width, 2, 12);
    row.Fill(3000);
    EXPECT_EQ(Applied(ImgOpRowOffset, row).Get(4, 1, 0), 2000u);
  }
  for (int depth : {24, 36}) {  // colour frames stay, as they do for equalize
    const TestFrame colour = test::RandomFrame(5, 5, depth, rng);
    EXPECT_EQ(Applied(ImgOpRowOffset, colour).bytes, colour.bytes);
    EXPECT_EQ(Applied(ImgOpEqualize, colour).bytes, colour.bytes);
  }
}

TEST(PointOps, RowOffsetSubtractsTheRowReference) {
  test::AtEveryLevel([] { RowOffsets(); });
}

TEST(ImageChain, RunsItemsInOrderAndSkipsDisabledAndUnknownCodes) {
  std::mt19937 rng(37);
  const TestFrame in = test::RandomFrame(12, 8, 12, rng);
  ImageProcessor p;
  // Codes that do nothing and a disabled item among them; negative then row
  // offset differs from the reverse, so the chain must keep list order.
  CImageOpList chain;
  const std::int32_t codes[] = {0, 10, 15, ImgOpNegative, 17, 20, 25, 39, 43, 99, 101, -1, INT32_MAX, ImgOpDisabled, ImgOpRowOffset};
  for (std::int32_t code : codes)
    chain.AddTail(std::make_unique<ImageOpItem>(ImageOpItem{{}, code, nullptr, code == ImgOpRowOffset ? 0 : 3, 0, 0}));
  TestFrame byChain = in;
  ApplyImageChain(p, chain, byChain.View());
  EXPECT_EQ(byChain.bytes, Applied(ImgOpRowOffset, Applied(ImgOpNegative, in)).bytes);
}

}  // namespace
}  // namespace tarnvel
