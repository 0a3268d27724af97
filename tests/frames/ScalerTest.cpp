// Resampling against a double-precision evaluation of the two kernels on
// the same grid, and the scaler's and FitImage's own rules.
#include <gtest/gtest.h>

#include <cmath>
#include <random>

#include "frames/ImageProcessor.h"
#include "frames/ImageScaler.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

// Mitchell-Netravali with B = 1, C = 0 (the cubic B-spline), and Lanczos with three lobes.
double BSpline(double x) {
  x = std::fabs(x);
  return x < 1 ? (3 * x * x * x - 6 * x * x + 4) / 6 : x < 2 ? (2 - x) * (2 - x) * (2 - x) / 6 : 0;
}
double Lanczos3(double x) {
  const double pi = std::acos(-1.0);
  x = std::fabs(x);
  return x == 0 ? 1 : x >= 3 ? 0 : 3 * std::sin(pi * x) * std::sin(pi * x / 3) / (pi * pi * x * x);
}

// Separable: weights of source positions around (d + 0.5) * s / D - 0.5,
// normalised, edges repeated.
std::vector<std::pair<int, double>> Taps(int d, int sourceSize, int destSize, bool lanczos) {
  const double centre = (d + 0.5) * sourceSize / destSize - 0.5;
  const int radius = lanczos ? 3 : 2;
  std::vector<std::pair<int, double>> taps;
  double sum = 0;
  for (int i = static_cast<int>(std::floor(centre)) - radius + 1; i <= static_cast<int>(std::floor(centre)) + radius; ++i) {
    const double w = lanczos ? Lanczos3(centre - i) : BSpline(centre - i);
    taps.push_back({std::clamp(i, 0, sourceSize - 1), w});
    sum += w;
  }
  for (auto& t : taps) t.second /= sum;
  return taps;
}

TestFrame ReferenceScale(const TestFrame& in, int dw, int dh, bool lanczos) {
  TestFrame out(dw, dh, in.depth);
  for (int y = 0; y < dh; ++y)
    for (int x = 0; x < dw; ++x)
      for (int c = 0; c < test::Channels(in.depth); ++c) {
        double v = 0;
        for (auto [sy, wy] : Taps(y, in.height, dh, lanczos))
          for (auto [sx, wx] : Taps(x, in.width, dw, lanczos)) v += wy * wx * in.Get(sx, sy, c);
        out.Set(x, y, c, static_cast<std::uint32_t>(std::clamp(std::floor(v + 0.5), 0.0, double(test::FullScale(in.depth)))));
      }
  return out;
}

TEST(Scaler, BothKernelsFollowTheReferenceWithinOneStep) {
  // One scaler for every geometry: a description kept past its geometry
  // shows as a difference. Every vector level gives the same bytes.
  std::vector<std::vector<std::uint8_t>> first;
  test::AtEveryLevel([&] {
    std::mt19937 rng(61);
    ImageScaler scaler;
    std::size_t run = 0;
    for (int depth : test::kDepths)
      for (int method : {ScaleCubic, ScaleLanczos})
        for (auto [sw, sh, dw, dh] : {std::array{1, 1, 3, 2}, {7, 5, 7, 5}, {10, 8, 15, 12}, {20, 9, 7, 4}, {3, 11, 8, 2}, {9, 7, 14, 11}, {70, 3, 33, 5}}) {
          TestFrame in = test::RandomFrame(sw, sh, depth, rng);
          if (sw == 9) in.Fill(test::FullScale(depth) / 3);  // a flat image stays flat
          TestFrame got(dw, dh, depth);
          ASSERT_EQ(scaler.Scale(method, in.View(), got.View()), 0);
          const TestFrame want = ReferenceScale(in, dw, dh, method == ScaleLanczos);
          for (std::size_t i = 0; i < want.Samples(); ++i)
            if (sw == 9)
              ASSERT_EQ(got.GetSample(i), test::FullScale(depth) / 3);
            else
              ASSERT_NEAR(double(got.GetSample(i)), double(want.GetSample(i)), 1.0) << test::Label(depth, method, sw, sh, dw, dh);
          if (first.size() <= run) first.push_back(got.bytes);
          ASSERT_EQ(got.bytes, first[run++]) << test::Label(depth, method, sw, sh, dw, dh);
        }
  });
}

TEST(Scaler, LanczosOvershootStaysWithinTheDepthAndRefusals) {
  // A checkerboard of 0 and 4,095 makes Lanczos overshoot; the 12-bit frame never holds more than 4,095.
  TestFrame board(12, 12, 12), out(31, 29, 12);
  for (int y = 0; y < 12; ++y)
    for (int x = 0; x < 12; ++x) board.Set(x, y, 0, (x / 2 + y / 2) % 2 ? 4095 : 0);
  ImageScaler scaler;
  scaler.Scale(ScaleLanczos, board.View(), out.View());
  std::uint32_t top = 0;
  for (std::size_t i = 0; i < out.Samples(); ++i) top = std::max(top, out.GetSample(i));
  EXPECT_EQ(top, 4095u);
  // Empty sizes, an unknown method, a zero depth, two depths: refused, nothing written.
  std::vector<std::uint8_t> untouched(16, 0x77);
  for (auto [method, sw, dh, depth, outDepth] :
       {std::array<int, 5>{ScaleCubic, 0, 4, 8, 8}, {ScaleCubic, 8, 0, 8, 8}, {7, 8, 4, 8, 8}, {ScaleCubic, 8, 4, 0, 0},
        {ScaleCubic, 8, 2, 8, 12}}) {
    const ConstImageView source = PackedView(board.bytes.data(), static_cast<std::uint32_t>(sw), 8, static_cast<std::uint32_t>(depth));
    const ImageView destination = PackedView(untouched.data(), 4, static_cast<std::uint32_t>(dh), static_cast<std::uint32_t>(outDepth));
    EXPECT_LT(scaler.Scale(method, source, destination), 0);
  }
  EXPECT_EQ(untouched, std::vector<std::uint8_t>(16, 0x77));
}

TEST(FitImage, ConvertsTheDepthFirstThenScales) {
  std::mt19937 rng(63);
  ImageScaler scaler;
  // Another size and depth: every value shifted left by 4, then the cubic scale at 12 bits.
  const TestFrame logo = test::RandomFrame(10, 10, 8, rng);
  TestFrame fitted(64, 48, 12), shifted(10, 10, 12), byHand(64, 48, 12);
  FitImage(logo.View(), fitted.View());
  for (std::size_t i = 0; i < logo.Samples(); ++i) shifted.SetSample(i, logo.GetSample(i) << 4);
  scaler.Scale(ScaleCubic, shifted.View(), byHand.View());
  EXPECT_EQ(fitted.bytes, byHand.bytes);
  // The right size at another depth is a plain copy of the conversion.
  const TestFrame colour = test::RandomFrame(64, 48, 24, rng);
  TestFrame copied(64, 48, 12), converted(64, 48, 12);
  FitImage(colour.View(), copied.View());
  ConvertDepth(colour.View(), converted.View(), 0);
  EXPECT_EQ(copied.bytes, converted.bytes);
}

}  // namespace
}  // namespace tarnvel
