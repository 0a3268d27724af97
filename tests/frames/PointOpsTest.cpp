// Point operations, flips and the row offset, each against a per-pixel
// evaluation of its rule, and the chain as a whole.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

std::uint32_t FullScaleOf(int depth) {
  if (!test::WordSamples(depth)) return 255;
  const int d = std::min(test::BitsPerChannel(depth), 16);
  return (1u << d) - 1;
}

void ApplyCode(ImageProcessor& p, TestFrame& f, std::int32_t code, std::int32_t v1 = 0, std::int32_t v2 = 0) {
  p.SetGeometry(f.width, f.height, f.depth);
  p.Apply(ImageOpItem{{}, code, nullptr, v1, v2, 0}, f.data());
}

TEST(PointOps, BrightnessContrastFollowsItsFormulaPerPixel) {
  std::mt19937 rng(31);
  ImageProcessor p;
  const std::pair<int, int> settings[] = {{0, 0}, {100, 0}, {-100, 0}, {13, 0}, {0, 57}, {-20, 35}, {7, -60}, {40, -150}, {-3, 333}};
  for (int depth : test::kDepths)
    for (auto [b, c] : settings) {
      const TestFrame in = test::RandomFrame(11, 7, depth, rng, 6);
      TestFrame got = in;
      ApplyCode(p, got, ImgOpBrightnessContrast, b, c);
      const double factor = static_cast<float>(1.0f + static_cast<float>(c) / 100.0f);
      const std::uint32_t m = FullScaleOf(depth);
      for (std::size_t i = 0; i < in.Samples(); ++i) {
        std::uint32_t want = in.GetSample(i);
        if (b != 0 || c != 0) {
          const double v = factor * std::min(want, m) + static_cast<double>(m) * b / 100.0;
          want = v < 0 ? 0 : v > m ? m : static_cast<std::uint32_t>(v);
        }
        ASSERT_EQ(got.GetSample(i), want) << "depth " << depth << " b " << b << " c " << c << " sample " << i;
      }
    }
  // Brightness 100 whitens an 8-bit frame; -100 blackens it. 10 bits clamp at 1,023.
  TestFrame f = test::RandomFrame(4, 4, 8, rng);
  ApplyCode(p, f, ImgOpBrightnessContrast, 100, 0);
  EXPECT_TRUE(std::all_of(f.bytes.begin(), f.bytes.end(), [](auto v) { return v == 255; }));
  ApplyCode(p, f, ImgOpBrightnessContrast, -100, 0);
  EXPECT_TRUE(std::all_of(f.bytes.begin(), f.bytes.end(), [](auto v) { return v == 0; }));
  TestFrame ten = test::RandomFrame(4, 4, 10, rng);
  ApplyCode(p, ten, ImgOpBrightnessContrast, 100, 0);
  EXPECT_EQ(ten.Get(2, 2, 0), 1023u);
}

TEST(PointOps, GammaFollowsItsFormulaAndThousandIsTheIdentity) {
  std::mt19937 rng(32);
  ImageProcessor p;
  for (int depth : test::kDepths)
    for (int g1000 : {0, 1000, 500, 2200, 333, -1500, 999999}) {
      const TestFrame in = test::RandomFrame(9, 5, depth, rng);
      TestFrame got = in;
      ApplyCode(p, got, ImgOpGamma, g1000);
      const float g = static_cast<float>(g1000 / 1000.0);
      const double m = FullScaleOf(depth);
      for (std::size_t i = 0; i < in.Samples(); ++i) {
        std::uint32_t want = in.GetSample(i);
        if (g != 0) {
          double x = want;
          if (x > 0 && g != 1.0f) x = m * std::pow(x / m, 1.0 / g);
          want = x < 0 ? 0 : x > m ? static_cast<std::uint32_t>(m) : static_cast<std::uint32_t>(x);
        }
        ASSERT_EQ(got.GetSample(i), want) << "depth " << depth << " gamma " << g1000;
      }
    }
}

TEST(PointOps, FramesOfAMegabyteAndMoreMapAsSmallOnesDo) {
  // Large 8-bit frames go through a table of byte pairs; an odd size leaves a last single byte.
  std::mt19937 rng(38);
  ImageProcessor p;
  const TestFrame in = test::RandomFrame(1025, 1025, 8, rng);
  TestFrame bc = in, gamma = in;
  ApplyCode(p, bc, ImgOpBrightnessContrast, 13, 57);
  ApplyCode(p, gamma, ImgOpGamma, 2200);
  const double factor = static_cast<float>(1.0f + 57.0f / 100.0f);
  const float g = static_cast<float>(2200 / 1000.0);
  for (std::size_t i = 0; i < in.Samples(); ++i) {
    const std::uint32_t v = in.GetSample(i);
    const double b = factor * v + 255.0 * 13 / 100.0;
    ASSERT_EQ(bc.GetSample(i), b < 0 ? 0u : b > 255 ? 255u : static_cast<std::uint32_t>(b)) << i;
    const double x = v > 0 ? 255.0 * std::pow(v / 255.0, 1.0 / g) : 0.0;
    ASSERT_EQ(gamma.GetSample(i), x > 255 ? 255u : static_cast<std::uint32_t>(x)) << i;
  }
}

TEST(PointOps, NegativeIsAnExclusiveOrWithinTheDepth) {
  std::mt19937 rng(33);
  ImageProcessor p;
  for (int depth : {1, 5, 8, 9, 10, 12, 16, 18, 24, 27, 30, 36, 48}) {
    const TestFrame in = test::RandomFrame(6, 3, depth, rng);
    TestFrame got = in;
    ApplyCode(p, got, ImgOpNegative);
    const std::uint32_t mask = test::WordSamples(depth) ? FullScaleOf(depth) : 255u;
    for (std::size_t i = 0; i < in.Samples(); ++i) ASSERT_EQ(got.GetSample(i), in.GetSample(i) ^ mask) << depth;
    ApplyCode(p, got, ImgOpNegative);
    EXPECT_EQ(got.bytes, in.bytes) << "twice gives the frame back";
  }
  TestFrame black(2, 2, 36);
  ApplyCode(p, black, ImgOpNegative);
  for (std::size_t i = 0; i < black.Samples(); ++i) EXPECT_EQ(black.GetSample(i), 4095u);
}

TEST(PointOps, EqualizeFollowsTheCumulativeHistogram) {
  std::mt19937 rng(34);
  ImageProcessor p;
  for (int depth : {6, 8, 9, 10, 12, 14, 16}) {
    const TestFrame in = test::RandomFrame(17, 9, depth, rng);
    TestFrame got = in;
    ApplyCode(p, got, ImgOpEqualize);
    const std::size_t levels = std::size_t{1} << depth, n = in.Samples();
    std::vector<std::uint32_t> count(levels), table(levels);
    for (std::size_t i = 0; i < n; ++i) ++count[std::min<std::size_t>(in.GetSample(i), levels - 1)];
    double s = 0;
    for (std::size_t i = 0; i < levels; ++i) {
      s += static_cast<double>(count[i]) / n;
      table[i] = static_cast<std::uint32_t>(s * (levels - 1) + 0.5);
    }
    for (std::size_t i = 0; i < n; ++i)
      ASSERT_EQ(got.GetSample(i), table[std::min<std::size_t>(in.GetSample(i), levels - 1)] & (depth <= 8 ? 0xFF : 0xFFFF))
          << depth;
  }
  // One single value maps to L - 1; colour frames stay as they are.
  for (int depth : {8, 12}) {
    TestFrame flat(5, 5, depth);
    for (std::size_t i = 0; i < flat.Samples(); ++i) flat.SetSample(i, 77);
    ApplyCode(p, flat, ImgOpEqualize);
    EXPECT_EQ(flat.Get(3, 3, 0), (1u << depth) - 1);
  }
  const TestFrame colour = test::RandomFrame(5, 5, 24, rng);
  TestFrame same = colour;
  ApplyCode(p, same, ImgOpEqualize);
  EXPECT_EQ(same.bytes, colour.bytes);
}

TEST(PointOps, FlipsMoveWholePixels) {
  std::mt19937 rng(35);
  ImageProcessor p;
  for (int depth : test::kDepths)
    for (auto size : test::kSizes) {
      const TestFrame in = test::RandomFrame(size.w, size.h, depth, rng);
      TestFrame v = in, h = in;
      ApplyCode(p, v, ImgOpFlipVertical);
      ApplyCode(p, h, ImgOpFlipHorizontal);
      for (int y = 0; y < in.height; ++y)
        for (int x = 0; x < in.width; ++x)
          for (int c = 0; c < test::Channels(depth); ++c) {
            ASSERT_EQ(v.Get(x, y, c), in.Get(x, in.height - 1 - y, c));
            ASSERT_EQ(h.Get(x, y, c), in.Get(in.width - 1 - x, y, c));
          }
    }
}

TEST(PointOps, RowOffsetSubtractsTheRowReference) {
  std::mt19937 rng(36);
  ImageProcessor p;
  for (int depth : {8, 10, 12, 16})
    for (auto [mode, column] : {std::pair{0, 0}, {1, 0}, {1, 3}, {5, 6}, {1, -1}, {1, 7}, {1, INT32_MAX}}) {
      const TestFrame in = test::RandomFrame(7, 5, depth, rng);
      TestFrame got = in;
      ApplyCode(p, got, ImgOpRowOffset, mode, column);
      for (int y = 0; y < in.height; ++y) {
        std::uint32_t r = 1000;
        if (mode == 0) {
          for (int x = 0; x < in.width; ++x) r = std::min(r, in.Get(x, y, 0));
        } else {
          r = column >= 0 && column < in.width ? in.Get(column, y, 0) : 0;
        }
        for (int x = 0; x < in.width; ++x) {
          const std::uint32_t v = in.Get(x, y, 0);
          ASSERT_EQ(got.Get(x, y, 0), v >= r ? v - r : 0) << depth << " " << mode << " " << column;
        }
      }
    }
  // The reference stops at 1,000: a 12-bit row of 3,000 becomes 2,000.
  TestFrame row(9, 2, 12);
  for (std::size_t i = 0; i < row.Samples(); ++i) row.SetSample(i, 3000);
  ApplyCode(p, row, ImgOpRowOffset, 0, 0);
  EXPECT_EQ(row.Get(4, 1, 0), 2000u);
  const TestFrame colour = test::RandomFrame(5, 5, 36, rng);
  TestFrame same = colour;
  ApplyCode(p, same, ImgOpRowOffset, 0, 0);
  EXPECT_EQ(same.bytes, colour.bytes);
}

TEST(ImageChain, RunsItemsInOrderAndSkipsDisabledAndUnknownCodes) {
  std::mt19937 rng(37);
  ImageProcessor p;
  const TestFrame in = test::RandomFrame(12, 8, 12, rng);
  p.SetGeometry(in.width, in.height, in.depth);

  CImageOpList empty;
  TestFrame same = in;
  ApplyImageChain(p, empty, same.data());
  EXPECT_EQ(same.bytes, in.bytes);

  // Codes that do nothing, and a disabled item with a code that would.
  CImageOpList idle;
  for (std::int32_t code : {0, 10, 15, 17, 20, 25, 39, 43, 99, 101, -1, INT32_MAX}) {
    auto item = std::make_unique<ImageOpItem>();
    item->code = code;
    item->value1 = 3;
    idle.AddTail(std::move(item));
  }
  auto disabled = std::make_unique<ImageOpItem>();
  disabled->code = ImgOpDisabled;
  idle.AddTail(std::move(disabled));
  ApplyImageChain(p, idle, same.data());
  EXPECT_EQ(same.bytes, in.bytes);

  // Order matters: negative then row offset differs from the reverse; the
  // chain gives what the two single operations give in list order.
  CImageOpList chain;
  for (std::int32_t code : {ImgOpNegative, ImgOpRowOffset}) {
    auto item = std::make_unique<ImageOpItem>();
    item->code = code;
    chain.AddTail(std::move(item));
  }
  TestFrame byChain = in, byHand = in;
  ApplyImageChain(p, chain, byChain.data());
  p.Apply(ImageOpItem{{}, ImgOpNegative, nullptr, 0, 0, 0}, byHand.data());
  p.Apply(ImageOpItem{{}, ImgOpRowOffset, nullptr, 0, 0, 0}, byHand.data());
  EXPECT_EQ(byChain.bytes, byHand.bytes);
  EXPECT_EQ(chain.GetCount(), 2u);
  chain.Clear();
  EXPECT_TRUE(chain.IsEmpty());
}

TEST(ImageProcessor, DefaultsGeometryAndScratch) {
  ImageProcessor p;
  EXPECT_EQ(p.Width(), 256u);
  EXPECT_EQ(p.Height(), 256u);
  EXPECT_EQ(p.Depth(), 8u);
  EXPECT_EQ(p.FrameSize(), 65536u);
  EXPECT_EQ(p.Scratch(), nullptr);
  for (auto [depth, bytes] : {std::pair{8u, 1u}, {12u, 2u}, {24u, 3u}, {36u, 6u}}) {
    p.SetGeometry(10, 3, depth);
    EXPECT_EQ(p.FrameSize(), 30u * bytes);
  }
  std::uint8_t* a = p.EnsureScratch(100);
  ASSERT_NE(a, nullptr);
  std::fill_n(a, 100 + 4096, 0x5A);  // the spare 4,096 bytes belong to the buffer too
  std::uint8_t* b = p.EnsureScratch(100);
  EXPECT_EQ(a, b) << "the same size keeps the buffer";
  EXPECT_TRUE(std::all_of(b, b + 100, [](auto v) { return v == 0; }));
  std::uint8_t* c = p.EnsureScratch(50);
  ASSERT_NE(c, nullptr);
  EXPECT_EQ(p.ScratchSize(), 50u);
  EXPECT_TRUE(std::all_of(c, c + 50, [](auto v) { return v == 0; }));
}

}  // namespace
}  // namespace tarnvel
