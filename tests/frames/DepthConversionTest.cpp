// Depth conversion against the rows of its table, evaluated value by value.
#include <gtest/gtest.h>

#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;

std::uint32_t Right(std::uint32_t v, int shift, std::uint32_t clamp) { return std::min(v >> shift, clamp); }
std::uint32_t Left16(std::uint32_t v, int shift) { return static_cast<std::uint16_t>(v << shift); }
std::uint32_t MaskOf(int bits) { return (1u << bits) - 1; }

// The table's rows, tried from the top; false when no row fits.
bool ReferencePixel(const TestFrame& in, int x, int y, int t, int r, std::uint32_t out[3]) {
  const int s = in.depth;
  const bool grey = s <= 16;
  auto g = [&](int c) { return in.Get(x, y, c); };
  auto all = [&](std::uint32_t v) { out[0] = out[1] = out[2] = v; };
  if (t == 8) {
    if (s >= 17 && s <= 24) {
      const double v = 0.299 * g(2) + 0.587 * g(1) + 0.114 * g(0);
      out[0] = v > 255.0 ? 255 : static_cast<std::uint32_t>(v);
      return true;
    }
    if (s >= 9 && s <= 16) return out[0] = Right(g(0), s - 8 - r, 255), true;
    return false;
  }
  if (t == 24) {
    if (s == 8) return all(g(0)), true;
    if (s >= 17) {
      for (int c = 0; c < 3; ++c) out[c] = Right(g(c), s / 3 - 8 - r, 255);
      return true;
    }
    return all(Right(g(0), s - 8 - r, 255)), true;
  }
  if (t >= 25) {
    if (s == 8) return all(Left16(g(0), t / 3 - 8)), true;
    if (s == 24) {
      for (int c = 0; c < 3; ++c) out[c] = Left16(g(c), t / 3 - 8);
      return true;
    }
    if (grey) {
      all(t / 3 >= s ? Left16(g(0), t / 3 - s) : Right(g(0), s - t / 3 - r, MaskOf(t / 3)));
      return true;
    }
    for (int c = 0; c < 3; ++c)
      out[c] = s >= t ? Right(g(c), (s - t) / 3 - r, MaskOf(t / 3)) : Left16(g(c), (t - s) / 3);
    return true;
  }
  if (s == 8) return out[0] = Left16(g(0), t - 8), true;
  if (grey) return out[0] = s >= t ? Right(g(0), s - t - r, MaskOf(t)) : Left16(g(0), t - s), true;
  return false;
}

TEST(DepthConversion, EveryRowOfTheTableMatchesValueByValue) {
  std::mt19937 rng(41);
  ImageProcessor p;
  const int depths[] = {8, 9, 10, 12, 14, 16, 24, 27, 30, 33, 36};
  int checked = 0;
  for (int s : depths)
    for (int t : depths)
      for (int r = 0; r <= 2; ++r) {
        if (s == t) continue;
        // BitRange only where it stays within the source's bits.
        const int narrowing = s <= 16 ? s - std::min(t <= 16 ? t : t == 24 ? 8 : t / 3, s)
                                      : (s - (t <= 16 ? (t == 8 ? 24 : s) : t == 24 ? 24 : t)) / 3;
        if (r > 0 && narrowing < r) continue;
        const TestFrame in = test::RandomFrame(13, 3, s, rng);
        TestFrame out(13, 3, t);
        std::uint8_t* result = p.ConvertDepth(s, t, r, 13, 3, in.bytes.data(), out.data());
        ASSERT_EQ(result, out.data());
        std::uint32_t want[3];
        for (int y = 0; y < 3; ++y)
          for (int x = 0; x < 13; ++x) {
            if (!ReferencePixel(in, x, y, t, r, want)) goto next;
            for (int c = 0; c < test::Channels(t); ++c)
              ASSERT_EQ(out.Get(x, y, c), want[c]) << s << " -> " << t << " R " << r << " at " << x << "," << y;
          }
        ++checked;
      next:;
      }
  EXPECT_GT(checked, 150);
}

TEST(DepthConversion, WorkedExamplesAndTheRowsTheTableLeavesOpen) {
  ImageProcessor p;
  using V = std::vector<std::uint32_t>;
  struct Case {
    int s, t, r;
    V in, want;
  } cases[] = {
      {10, 8, 0, {1023}, {255}}, {10, 8, 0, {3}, {0}}, {10, 8, 2, {256}, {255}}, {10, 8, 2, {100}, {100}},
      {8, 12, 0, {255}, {4080}}, {24, 8, 0, {255, 0, 0}, {29}}, {12, 24, 0, {0xABC}, {0xAB, 0xAB, 0xAB}},
      {12, 8, 2, {0x1FC}, {0x7F}}, {36, 24, 0, {4095, 16, 2048}, {255, 1, 128}},
      // Colour to grey of 9 to 16 bits: the weighted grey at the channel depth, then shifted.
      {24, 12, 0, {10, 20, 30}, {static_cast<std::uint32_t>(0.299 * 30 + 0.587 * 20 + 0.114 * 10) << 4}},
      {36, 8, 0, {4095, 0, 0}, {29}},          // each channel narrowed to 8 bits, then weighted
      {10, 20, 0, {1023}, {255, 255, 255}},    // 17 to 23 bits are stored as 8-bit colour
  };
  for (const Case& c : cases) {
    TestFrame src(1, 1, c.s), dst(1, 1, c.t);
    for (std::size_t k = 0; k < c.in.size(); ++k) src.Set(0, 0, static_cast<int>(k), c.in[k]);
    p.ConvertDepth(c.s, c.t, c.r, 1, 1, src.bytes.data(), dst.data());
    V got;
    for (int k = 0; k < test::Channels(c.t); ++k) got.push_back(dst.Get(0, 0, k));
    EXPECT_EQ(got, c.want) << c.s << " -> " << c.t << " R " << c.r;
  }
  // Equal depths: the very pointer without a destination, a copy with one.
  TestFrame f(4, 2, 12), copy(4, 2, 12);
  for (std::size_t i = 0; i < f.Samples(); ++i) f.SetSample(i, static_cast<std::uint32_t>(i * 100));
  p.SetGeometry(4, 2, 12);
  EXPECT_EQ(p.ConvertDepth(12, 12, 0, 4, 2, f.bytes.data(), nullptr), f.bytes.data());
  EXPECT_EQ(p.ConvertDepth(12, 12, 0, 4, 2, f.bytes.data(), copy.data()), copy.data());
  EXPECT_EQ(copy.bytes, f.bytes);
  // No destination: the scratch buffer, sized for the target, whatever the processor's geometry.
  p.SetGeometry(2, 2, 8);
  TestFrame wide(5, 3, 16);
  wide.Fill(0xFF00);
  std::uint8_t* into = p.ConvertDepth(16, 8, 0, 5, 3, wide.bytes.data(), nullptr);
  ASSERT_EQ(into, p.Scratch());
  EXPECT_GE(p.ScratchSize(), 15u);
  for (int i = 0; i < 15; ++i) EXPECT_EQ(into[i], 0xFF);
}

TEST(DepthConversion, RequestsOutsideTheOptionsStayInTheirBuffers) {
  // Every pair of depths from 1 to 50 with every BitRange up to 40: exact-size
  // buffers, so a read or write beyond them shows under AddressSanitizer.
  std::mt19937 rng(42);
  ImageProcessor p;
  for (int s = 1; s <= 50; ++s)
    for (int t = 1; t <= 50; ++t)
      for (int r : {0, 3, 40}) {
        if (s == t) continue;
        const TestFrame in = test::RandomFrame(3, 2, s, rng);
        std::vector<std::uint8_t> out(3 * 2 * test::StorageBytes(t));
        p.ConvertDepth(s, t, r, 3, 2, in.bytes.data(), out.data());
      }
}

}  // namespace
}  // namespace tarnvel
