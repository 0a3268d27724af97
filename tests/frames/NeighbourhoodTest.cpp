// Convolution and rank filters against plain loops written from the rules:
// zero outside the frame, the kernel turned by 180 degrees, integer
// quotients cut toward zero on 8-bit samples, float weights on 16-bit ones,
// saturation to the storage range.
#include <gtest/gtest.h>

#include <algorithm>
#include <random>

#include "frames/ImageProcessor.h"
#include "frames/primitives/Neighbourhood.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

std::int16_t Low16(std::int32_t c) { return static_cast<std::int16_t>(static_cast<std::uint16_t>(c & 0xFFFF)); }

TestFrame ReferenceConvolution(const TestFrame& in, const ConvolutionFilter& f) {
  TestFrame out(in.width, in.height, in.depth);
  const int W = f.sizeX, H = f.sizeY, ax = (W - 1) / 2, ay = (H - 1) / 2;
  for (int y = 0; y < in.height; ++y)
    for (int x = 0; x < in.width; ++x)
      for (int c = 0; c < test::Channels(in.depth); ++c) {
        std::uint32_t result;
        if (!test::WordSamples(in.depth)) {
          std::int64_t sum = 0;
          for (int j = 0; j < H; ++j)
            for (int i = 0; i < W; ++i)
              sum += in.At(x + i - ax, y + j - ay, c) * Low16(f.coefficients[(H - 1 - j) * W + (W - 1 - i)]);
          const std::int64_t q = sum / f.divisor;
          result = q < 0 ? 0 : q > 255 ? 255 : static_cast<std::uint32_t>(q);
        } else {
          float sum = 0;
          for (int j = 0; j < H; ++j)
            for (int i = 0; i < W; ++i) {
              const float w = static_cast<float>(
                  static_cast<double>(Low16(f.coefficients[(H - 1 - j) * W + (W - 1 - i)])) / f.divisor);
              sum += static_cast<float>(in.At(x + i - ax, y + j - ay, c)) * w;
            }
          result = sum <= 0 ? 0 : sum >= 65535.0f ? 65535u : static_cast<std::uint32_t>(sum);
        }
        out.Set(x, y, c, result);
      }
  return out;
}

TestFrame ReferenceRank(const TestFrame& in, RankKind kind, int n) {
  TestFrame out(in.width, in.height, in.depth);
  const int before = (n - 1) / 2, after = n - 1 - before;
  std::vector<std::int64_t> v;
  for (int y = 0; y < in.height; ++y)
    for (int x = 0; x < in.width; ++x)
      for (int c = 0; c < test::Channels(in.depth); ++c) {
        v.clear();
        for (int dy = -before; dy <= after; ++dy)
          for (int dx = -before; dx <= after; ++dx) v.push_back(in.At(x + dx, y + dy, c));
        std::sort(v.begin(), v.end());
        const std::int64_t r = kind == RankKind::Minimum ? v.front()
                               : kind == RankKind::Maximum ? v.back()
                                                           : v[(v.size() - 1) / 2];
        out.Set(x, y, c, static_cast<std::uint32_t>(r));
      }
  return out;
}

ImageProcessor& ProcessorFor(ImageProcessor& p, const TestFrame& f) {
  p.SetGeometry(f.width, f.height, f.depth);
  return p;
}

void ExpectSameFrame(const TestFrame& got, const TestFrame& want, const std::string& what) {
  ASSERT_EQ(got.bytes.size(), want.bytes.size());
  for (std::size_t i = 0; i < got.Samples(); ++i)
    if (got.GetSample(i) != want.GetSample(i)) {
      const std::size_t ch = test::Channels(got.depth), pixel = i / ch;
      FAIL() << what << ": sample " << i << " (x " << pixel % got.width << ", y " << pixel / got.width << ", c "
             << i % ch << ") is " << got.GetSample(i) << ", expected " << want.GetSample(i);
    }
}

TEST(Convolution, EveryBuiltInKernelMatchesTheReferenceAtEveryDepthAndSize) {
  std::mt19937 rng(11);
  ImageProcessor p;
  for (int depth : test::kDepths)
    for (auto size : test::kSizes)
      for (std::int32_t code = ImgOpLaplacian; code <= ImgOpGaussian; ++code)
        for (std::int32_t row = 0; row < BuiltInFilterRows(code); ++row) {
          const TestFrame in = test::RandomFrame(size.w, size.h, depth, rng, 7);
          TestFrame got = in;
          ProcessorFor(p, in).Apply(ImageOpItem{{}, code, nullptr, row, 0, 0}, got.data());
          ExpectSameFrame(got, ReferenceConvolution(in, *BuiltInFilter(code, row)),
                          "code " + std::to_string(code) + " row " + std::to_string(row) + " depth " +
                              std::to_string(depth) + " " + std::to_string(size.w) + "x" + std::to_string(size.h));
          if (HasFatalFailure()) return;
        }
}

TEST(Convolution, UserFiltersBoxesAndOddShapesMatchTheReference) {
  std::mt19937 rng(12);
  ImageProcessor p;
  std::uniform_int_distribution<int> size(1, 7), small(-9, 9), divisor(-20, 20);
  std::uniform_int_distribution<std::int32_t> huge(-40000, 40000);
  for (int round = 0; round < 120; ++round) {
    const int depth = test::kDepths[round % 7];
    const TestFrame in = test::RandomFrame(size(rng) + round % 11, size(rng) + round % 5, depth, rng, 5);
    auto item = std::make_unique<ImageOpItem>();
    item->code = ImgOpUserFilter;
    item->filter = std::make_unique<ConvolutionFilter>();
    ConvolutionFilter& f = *item->filter;
    f = ConvolutionFilter{};
    f.sizeX = size(rng) + (round % 3 == 0 ? 5 : 0);
    f.sizeY = std::min(size(rng), 100 / f.sizeX);
    do f.divisor = divisor(rng);
    while (f.divisor == 0);
    // Every fourth filter has coefficients beyond 16 bits: only the low 16 count.
    for (int t = 0; t < f.sizeX * f.sizeY; ++t) f.coefficients[t] = round % 4 == 0 ? huge(rng) : small(rng);
    TestFrame got = in;
    ProcessorFor(p, in).Apply(*item, got.data());
    ExpectSameFrame(got, ReferenceConvolution(in, f),
                    "round " + std::to_string(round) + " depth " + std::to_string(depth) + " kernel " +
                        std::to_string(f.sizeX) + "x" + std::to_string(f.sizeY));
    if (HasFatalFailure()) return;
  }
  for (int n = 1; n <= 10; ++n) {
    for (int depth : {8, 12, 24, 36}) {
      const TestFrame in = test::RandomFrame(n + 4, 6, depth, rng);
      ConvolutionFilter box{};
      box.sizeX = box.sizeY = n;
      box.divisor = n * n;
      std::fill_n(box.coefficients, n * n, 1);
      TestFrame got = in;
      ProcessorFor(p, in).Apply(ImageOpItem{{}, ImgOpBox, nullptr, n, 0, 0}, got.data());
      ExpectSameFrame(got, ReferenceConvolution(in, box), "box " + std::to_string(n));
    }
  }
}

TEST(Convolution, SumsAtTheEdgesOfEveryArithmeticAgreeWithIntegers) {
  // Kernels whose largest possible sum on 8-bit samples lies just below and
  // just above 2^15, 2^23 and 2^24, on bright and random frames, with
  // divisors that make the quotient land next to whole numbers.
  std::mt19937 rng(13);
  ImageProcessor p;
  const std::int32_t weights[] = {128, 129, 32896, 32897, 65793, 65794};
  for (std::int32_t total : weights)
    for (int sign : {1, -1})
      for (std::int32_t divisor : {1, 2, 3, 7, 12, 255, 4096, 4097, -5}) {
        auto item = std::make_unique<ImageOpItem>();
        item->code = ImgOpUserFilter;
        item->filter = std::make_unique<ConvolutionFilter>();
        ConvolutionFilter& f = *item->filter;
        f = ConvolutionFilter{};
        f.sizeX = 3, f.sizeY = 3, f.divisor = divisor;
        // Split the total over the nine taps, no tap beyond 16 bits.
        std::int32_t left = total;
        for (int t = 0; t < 9; ++t) {
          const std::int32_t c = std::min(left, 32767);
          f.coefficients[t] = sign * (t == 4 ? -c : c);
          left -= c;
        }
        for (bool bright : {true, false}) {
          test::TestFrame in = test::RandomFrame(21, 6, 8, rng);
          if (bright) std::fill(in.bytes.begin(), in.bytes.end(), 255);
          test::TestFrame got = in;
          ProcessorFor(p, in).Apply(*item, got.data());
          ExpectSameFrame(got, ReferenceConvolution(in, f),
                          "total " + std::to_string(total) + " divisor " + std::to_string(divisor));
          if (HasFatalFailure()) return;
        }
      }
}

TEST(Convolution, QuotientsOfExactMultiplesAreWhole) {
  // A float reciprocal of 41, 47 or 97 times a multiple of it lands just
  // below the whole number; the quotient must still be whole.
  ImageProcessor p;
  for (std::int32_t divisor : {41, 47, 55, 97, 25, 49}) {
    auto item = std::make_unique<ImageOpItem>();
    item->code = ImgOpUserFilter;
    item->filter = std::make_unique<ConvolutionFilter>();
    *item->filter = ConvolutionFilter{};
    item->filter->sizeX = item->filter->sizeY = 1;
    item->filter->divisor = divisor;
    item->filter->coefficients[0] = 1;
    test::TestFrame f(6, 1, 8);
    for (int x = 0; x < 6; ++x) f.Set(x, 0, 0, std::min(255, divisor * x));
    ProcessorFor(p, f).Apply(*item, f.data());
    for (int x = 0; x < 6; ++x)
      EXPECT_EQ(f.Get(x, 0, 0), static_cast<std::uint32_t>(std::min(255, divisor * x) / divisor)) << divisor << " x " << x;
  }
}

TEST(Convolution, WorkedExamples) {
  ImageProcessor p;
  // "Average 2x2": a bright pixel at (10, 10) spreads up and left.
  TestFrame spot(20, 20, 8);
  spot.Set(10, 10, 0, 200);
  ProcessorFor(p, spot).Apply(ImageOpItem{{}, ImgOpAverage, nullptr, 0, 0, 0}, spot.data());
  for (int y = 0; y < 20; ++y)
    for (int x = 0; x < 20; ++x) {
      const bool lit = (x == 9 || x == 10) && (y == 9 || y == 10);
      EXPECT_EQ(spot.Get(x, y, 0), lit ? 50u : 0u) << x << "," << y;
    }
  // "Laplacian Contour 4 + Image" on a flat 100: interior 100, edges 200, corners 300 (255 on 8 bits).
  for (int depth : {8, 12}) {
    TestFrame flat(6, 5, depth);
    for (std::size_t i = 0; i < flat.Samples(); ++i) flat.SetSample(i, 100);
    ProcessorFor(p, flat).Apply(ImageOpItem{{}, ImgOpLaplacian, nullptr, 3, 0, 0}, flat.data());
    EXPECT_EQ(flat.Get(2, 2, 0), 100u);
    EXPECT_EQ(flat.Get(0, 2, 0), 200u);
    EXPECT_EQ(flat.Get(3, 4, 0), 200u);
    EXPECT_EQ(flat.Get(5, 4, 0), depth == 8 ? 255u : 300u);
  }
  // "Prewitt North/Edge" on a flat frame: positive only along the bottom edge.
  TestFrame flat(5, 4, 10);
  for (std::size_t i = 0; i < flat.Samples(); ++i) flat.SetSample(i, 50);
  ProcessorFor(p, flat).Apply(ImageOpItem{{}, ImgOpPrewitt, nullptr, 0, 0, 0}, flat.data());
  for (int x = 0; x < 5; ++x) {
    EXPECT_EQ(flat.Get(x, 1, 0), 0u);
    EXPECT_EQ(flat.Get(x, 0, 0), 0u);
    EXPECT_GT(flat.Get(x, 3, 0), 0u);
  }
  // A 10-bit result above 1,023 stays: saturation is to the storage.
  TestFrame bright(3, 3, 10);
  for (std::size_t i = 0; i < bright.Samples(); ++i) bright.SetSample(i, 1000);
  ProcessorFor(p, bright).Apply(ImageOpItem{{}, ImgOpLaplacian, nullptr, 3, 0, 0}, bright.data());
  EXPECT_EQ(bright.Get(0, 0, 0), 3000u);
  // Divisor 3, centre 1: values 0 to 2 give 0.
  auto user = std::make_unique<ImageOpItem>();
  user->code = ImgOpUserFilter;
  user->filter = std::make_unique<ConvolutionFilter>();
  *user->filter = ConvolutionFilter{};
  user->filter->sizeX = user->filter->sizeY = 3;
  user->filter->divisor = 3;
  user->filter->coefficients[4] = 1;
  TestFrame low(3, 1, 8);
  low.Set(0, 0, 0, 0), low.Set(1, 0, 0, 2), low.Set(2, 0, 0, 7);
  ProcessorFor(p, low).Apply(*user, low.data());
  EXPECT_EQ(low.Get(1, 0, 0), 0u);
  EXPECT_EQ(low.Get(2, 0, 0), 2u);
}

TEST(Convolution, KernelsTheRecordCannotHoldAreRefusedAndLeaveZeros) {
  ImageProcessor p;
  std::mt19937 rng(3);
  auto user = std::make_unique<ImageOpItem>();
  user->code = ImgOpUserFilter;
  user->filter = std::make_unique<ConvolutionFilter>();
  struct Case {
    std::int32_t sx, sy, divisor;
  } cases[] = {{0, 3, 1}, {3, -1, 1}, {11, 10, 1}, {300, 1, 1}, {-5, -5, 1}, {3, 3, 0}, {INT32_MAX, INT32_MAX, 1}};
  for (const Case& c : cases) {
    *user->filter = ConvolutionFilter{};
    user->filter->sizeX = c.sx, user->filter->sizeY = c.sy, user->filter->divisor = c.divisor;
    std::fill_n(user->filter->coefficients, 100, 1);
    for (int depth : {8, 16, 24, 36}) {
      TestFrame f = test::RandomFrame(9, 4, depth, rng);
      ProcessorFor(p, f).Apply(*user, f.data());
      EXPECT_TRUE(std::all_of(f.bytes.begin(), f.bytes.end(), [](auto b) { return b == 0; }))
          << c.sx << "x" << c.sy << " / " << c.divisor;
    }
  }
  // Box sizes outside 1 to 10 are refused the same way; rows outside a table do nothing.
  for (std::int32_t n : {0, -3, 11, INT32_MIN}) {
    TestFrame f = test::RandomFrame(5, 5, 8, rng);
    ProcessorFor(p, f).Apply(ImageOpItem{{}, ImgOpBox, nullptr, n, 0, 0}, f.data());
    EXPECT_TRUE(std::all_of(f.bytes.begin(), f.bytes.end(), [](auto b) { return b == 0; })) << n;
  }
  for (auto [code, row] : {std::pair{1, 9}, {2, 16}, {3, -1}, {4, 8}, {5, 6}, {5, INT32_MAX}}) {
    const TestFrame in = test::RandomFrame(5, 5, 12, rng);
    TestFrame f = in;
    ProcessorFor(p, f).Apply(ImageOpItem{{}, code, nullptr, row, 0, 0}, f.data());
    EXPECT_EQ(f.bytes, in.bytes) << code << " row " << row;
  }
  // A null filter on a user item does nothing.
  const TestFrame in = test::RandomFrame(4, 4, 8, rng);
  TestFrame f = in;
  ProcessorFor(p, f).Apply(ImageOpItem{{}, ImgOpUserFilter, nullptr, 0, 0, 0}, f.data());
  EXPECT_EQ(f.bytes, in.bytes);
}

TEST(RankFilters, MedianMinimumMaximumMatchTheReference) {
  std::mt19937 rng(21);
  ImageProcessor p;
  for (int depth : test::kDepths)
    for (auto size : test::kSizes)
      for (int n : {1, 2, 3, 4, 5, 7, 9})
        for (RankKind kind : {RankKind::Median, RankKind::Minimum, RankKind::Maximum}) {
          const TestFrame in = test::RandomFrame(size.w, size.h, depth, rng, 9);
          TestFrame got = in;
          ProcessorFor(p, in).RankFilter(kind, n, got.data());
          TestFrame want = kind == RankKind::Median && n % 2 == 0 ? TestFrame(in.width, in.height, depth)
                                                                   : ReferenceRank(in, kind, n);
          ExpectSameFrame(got, want,
                          "kind " + std::to_string(static_cast<int>(kind)) + " n " + std::to_string(n) + " depth " +
                              std::to_string(depth) + " " + std::to_string(size.w) + "x" + std::to_string(size.h));
          if (HasFatalFailure()) return;
        }
}

TEST(RankFilters, NetworkMediansOnWideRowsAndFlatRegions) {
  // Rows longer than a vector, with runs of equal values, through the 3 x 3 and 5 x 5 paths.
  std::mt19937 rng(22);
  ImageProcessor p;
  for (int depth : {8, 16, 24, 36})
    for (int n : {3, 5}) {
      TestFrame in = test::RandomFrame(67, 9, depth, rng);
      for (std::size_t i = 0; i < in.Samples(); i += 3) in.SetSample(i, in.GetSample(i) & 0xF0);
      TestFrame got = in;
      ProcessorFor(p, in).RankFilter(RankKind::Median, n, got.data());
      ExpectSameFrame(got, ReferenceRank(in, RankKind::Median, n), "n " + std::to_string(n));
    }
}

TEST(RankFilters, WorkedExamplesAndHostileMasks) {
  ImageProcessor p;
  // Maximum 3 on a black frame with one white pixel: a white 3 x 3 square.
  TestFrame spot(9, 9, 8);
  spot.Set(4, 4, 0, 255);
  ProcessorFor(p, spot).Apply(ImageOpItem{{}, ImgOpMaximum, nullptr, 3, 0, 0}, spot.data());
  for (int y = 0; y < 9; ++y)
    for (int x = 0; x < 9; ++x)
      EXPECT_EQ(spot.Get(x, y, 0), std::abs(x - 4) <= 1 && std::abs(y - 4) <= 1 ? 255u : 0u);
  // Minimum 5: a rim of 2 pixels goes to 0.
  TestFrame flat(8, 8, 12);
  for (std::size_t i = 0; i < flat.Samples(); ++i) flat.SetSample(i, 900);
  ProcessorFor(p, flat).Apply(ImageOpItem{{}, ImgOpMinimum, nullptr, 5, 0, 0}, flat.data());
  EXPECT_EQ(flat.Get(1, 4, 0), 0u);
  EXPECT_EQ(flat.Get(2, 2, 0), 900u);
  EXPECT_EQ(flat.Get(5, 5, 0), 900u);
  EXPECT_EQ(flat.Get(6, 5, 0), 0u);
  // An even median is refused: the frame turns to zeros.
  std::mt19937 rng(5);
  TestFrame even = test::RandomFrame(6, 6, 8, rng);
  ProcessorFor(p, even).Apply(ImageOpItem{{}, ImgOpMedian, nullptr, 4, 0, 0}, even.data());
  EXPECT_TRUE(std::all_of(even.bytes.begin(), even.bytes.end(), [](auto b) { return b == 0; }));
  // Masks far larger than the frame, or below 1, never fault. A mask that
  // covers more zeros than pixels gives a zero median; the maximum of a
  // huge mask is the frame's maximum.
  for (int depth : {8, 12, 24, 36})
    for (std::int32_t n : {0, -1, 99, 1001, INT32_MAX}) {
      const TestFrame in = test::RandomFrame(5, 3, depth, rng);
      for (std::int32_t code : {ImgOpMedian, ImgOpMinimum, ImgOpMaximum}) {
        TestFrame got = in;
        ProcessorFor(p, in).Apply(ImageOpItem{{}, code, nullptr, n, 0, 0}, got.data());
        if (n < 1 || code != ImgOpMaximum) {
          EXPECT_TRUE(std::all_of(got.bytes.begin(), got.bytes.end(), [](auto b) { return b == 0; }))
              << code << " " << n;
        } else {
          for (int c = 0; c < test::Channels(depth); ++c) {
            std::uint32_t top = 0;
            for (int y = 0; y < 3; ++y)
              for (int x = 0; x < 5; ++x) top = std::max(top, in.Get(x, y, c));
            EXPECT_EQ(got.Get(2, 1, c), top);
          }
        }
      }
    }
}

TEST(Primitives, RowLengthsLongerThanTheRowAndRefusals) {
  // Source and destination with padding bytes at the end of each row: the
  // padding is neither read into the result nor written.
  std::mt19937 rng(8);
  const TestFrame in = test::RandomFrame(7, 5, 12, rng);
  const std::size_t rowBytes = 7 * 2, padded = rowBytes + 6;
  std::vector<std::uint8_t> src(padded * 5, 0xEE), dst(padded * 5, 0xAB);
  for (int y = 0; y < 5; ++y) std::memcpy(&src[y * padded], &in.bytes[y * rowBytes], rowBytes);
  const std::int16_t kernel[9] = {1, 2, 1, 2, 4, 2, 1, 2, 1};
  ASSERT_EQ(ConvolveBorder(PixelLayout::Grey16, src.data(), padded, dst.data(), padded, 7, 5, kernel, 3, 3, 16),
            kPrimitiveOk);
  ConvolutionFilter g{};
  g.sizeX = g.sizeY = 3, g.divisor = 16;
  std::copy(kernel, kernel + 9, g.coefficients);
  const TestFrame want = ReferenceConvolution(in, g);
  for (int y = 0; y < 5; ++y) {
    EXPECT_EQ(0, std::memcmp(&dst[y * padded], &want.bytes[y * rowBytes], rowBytes)) << y;
    for (std::size_t b = rowBytes; b < padded; ++b) EXPECT_EQ(dst[y * padded + b], 0xAB);
  }
  EXPECT_EQ(ConvolveBorder(PixelLayout::Grey8, src.data(), 7, dst.data(), 7, 7, 5, kernel, 3, 3, 0),
            kPrimitiveBadDivisor);
  EXPECT_EQ(ConvolveBorder(PixelLayout::Grey8, src.data(), 7, dst.data(), 7, 0, 5, kernel, 3, 3, 1), kPrimitiveBadSize);
  EXPECT_EQ(MedianBorder(PixelLayout::Grey8, src.data(), 7, dst.data(), 7, 7, 5, 3, 2), kPrimitiveBadMask);
  EXPECT_EQ(MinimumBorder(PixelLayout::Color16, src.data(), 7, dst.data(), 7, 7, 5, 0, 3), kPrimitiveBadSize);
  EXPECT_EQ(MaximumBorder(PixelLayout::Color8, nullptr, 7, dst.data(), 7, 7, 5, 3, 3), kPrimitiveBadSize);
}

}  // namespace
}  // namespace tarnvel
