// Depth conversion against the rows of its table, evaluated value by value.
#include <gtest/gtest.h>

#include <random>

#include "frames/ImageProcessor.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

using test::TestFrame;
using V = std::vector<std::uint32_t>;

std::uint32_t Right(std::uint32_t v, int shift, std::uint32_t clamp) { return std::min(v >> shift, clamp); }
std::uint32_t Left16(std::uint32_t v, int shift) { return static_cast<std::uint16_t>(v << shift); }
std::uint32_t MaskOf(int bits) { return (1u << bits) - 1; }

// The table's rows, tried from the top, for one pixel of source channels
// `g`; empty when no row fits.
V ReferencePixel(int s, int t, int r, const V& g) {
  const bool grey = s <= 16;
  if (t == 8) {
    if (s >= 17 && s <= 24) return {std::min(255u, static_cast<std::uint32_t>(0.299 * g[2] + 0.587 * g[1] + 0.114 * g[0]))};
    if (s >= 9 && s <= 16) return {Right(g[0], s - 8 - r, 255)};
    return {};
  }
  V out(3);
  for (int c = 0; c < 3; ++c) {
    const std::uint32_t v = g[grey ? 0 : c];
    if (t == 24) out[c] = s == 8 ? v : Right(v, (grey ? s : s / 3) - 8 - r, 255);
    else if (t >= 25 && (s == 8 || s == 24)) out[c] = Left16(v, t / 3 - 8);
    else if (t >= 25 && grey) out[c] = t / 3 >= s ? Left16(v, t / 3 - s) : Right(v, s - t / 3 - r, MaskOf(t / 3));
    else if (t >= 25) out[c] = s >= t ? Right(v, (s - t) / 3 - r, MaskOf(t / 3)) : Left16(v, (t - s) / 3);
    else if (s == 8) return {Left16(v, t - 8)};
    else if (grey) return {s >= t ? Right(v, s - t - r, MaskOf(t)) : Left16(v, t - s)};
    else return {};
  }
  return out;
}

void EveryRowOfTheTable() {
  std::mt19937 rng(41);
  const int depths[] = {8, 9, 10, 12, 14, 16, 24, 27, 30, 33, 36};
  int checked = 0;
  for (int s : depths)
    for (int t : depths)
      for (int r = 0; r <= 2; ++r) {
        // BitRange only where it stays within the source's bits.
        const int narrowing = s <= 16 ? s - std::min(t <= 16 ? t : t == 24 ? 8 : t / 3, s)
                                      : (s - (t <= 16 ? (t == 8 ? 24 : s) : t == 24 ? 24 : t)) / 3;
        if (s == t || (r > 0 && narrowing < r)) continue;
        const TestFrame in = test::RandomFrame(45, 3, s, rng);
        TestFrame out(45, 3, t);
        ASSERT_TRUE(ConvertDepth(in.View(), out.View(), static_cast<std::uint32_t>(r)));
        for (int i = 0; i < 135; ++i) {
          V g(3), got;
          for (int c = 0; c < test::Channels(s); ++c) g[c] = in.Get(i % 45, i / 45, c);
          const V want = ReferencePixel(s, t, r, g);
          if (want.empty()) break;
          for (int c = 0; c < test::Channels(t); ++c) got.push_back(out.Get(i % 45, i / 45, c));
          ASSERT_EQ(got, want) << s << " -> " << t << " R " << r << " at " << i;
          checked += i == 134;
        }
      }
  EXPECT_GT(checked, 150);
  // Grey colours: the weighted sum of three equal values lands a hair below
  // the value for some of them, and the cut keeps that (in every copy).
  TestFrame grey(256, 1, 24);
  for (int v = 0; v < 256; ++v)
    for (int c = 0; c < 3; ++c) grey.Set(v, 0, c, v);
  TestFrame out(256, 1, 8);
  ASSERT_TRUE(ConvertDepth(grey.View(), out.View(), 0));
  for (int v = 0; v < 256; ++v) ASSERT_EQ(out.Get(v, 0, 0), ReferencePixel(24, 8, 0, V(3, static_cast<std::uint32_t>(v)))[0]) << v;
}

TEST(DepthConversion, EveryRowOfTheTableMatchesValueByValue) {
  test::AtEveryLevel([] { EveryRowOfTheTable(); });
}

TEST(DepthConversion, RowsTheReferenceLeavesOpenAndTheBuffersUsed) {
  struct Case {
    int s, t;
    V in, want;
  } cases[] = {
      // Colour to grey of 9 to 16 bits: the weighted grey at the channel depth, then shifted.
      {24, 12, {10, 20, 30}, {static_cast<std::uint32_t>(0.299 * 30 + 0.587 * 20 + 0.114 * 10) << 4}},
      {36, 8, {4095, 0, 0}, {29}},        // each channel narrowed to 8 bits, then weighted
      // 17 to 23 bits are 8-bit colour of depth / 3 bits a channel.
      {10, 21, {1023}, {127, 127, 127}},
      {21, 36, {127, 1, 64}, {127 << 5, 1 << 5, 64 << 5}},
      {21, 8, {127, 127, 0}, {static_cast<std::uint32_t>(0.299 * 0 + 0.587 * 254 + 0.114 * 254)}},
      {36, 21, {4095, 2048, 31}, {127, 64, 0}},
      {8, 18, {255}, {63, 63, 63}},
  };
  for (const Case& c : cases) {
    TestFrame src(1, 1, c.s), dst(1, 1, c.t);
    for (std::size_t k = 0; k < c.in.size(); ++k) src.Set(0, 0, static_cast<int>(k), c.in[k]);
    ConvertDepth(src.View(), dst.View(), 0);
    V got;
    for (int k = 0; k < test::Channels(c.t); ++k) got.push_back(dst.Get(0, 0, k));
    EXPECT_EQ(got, c.want) << c.s << " -> " << c.t;
  }
  // Equal depths: a copy.
  std::mt19937 rng(43);
  const TestFrame f = test::RandomFrame(4, 2, 12, rng);
  TestFrame copy(4, 2, 12);
  EXPECT_TRUE(ConvertDepth(f.View(), copy.View(), 0));
  EXPECT_EQ(copy.bytes, f.bytes);
  // Rows with padding behind them (a frame inside a wider buffer): each row
  // converted in place, the padding untouched.
  TestFrame wide(5, 3, 16);
  wide.Fill(0xFF00);
  std::vector<std::uint8_t> padded(3 * 8, 0x11);
  ASSERT_TRUE(ConvertDepth(wide.View(), ImageView{padded.data(), 8, 5, 3, 8}, 0));
  for (std::size_t i = 0; i < padded.size(); ++i) EXPECT_EQ(padded[i], i % 8 < 5 ? 0xFF : 0x11) << i;
  // A destination of another size is refused, nothing written.
  TestFrame small(4, 3, 8);
  EXPECT_FALSE(ConvertDepth(wide.View(), small.View(), 0));
  EXPECT_TRUE(small.AllZero());
}

TEST(DepthConversion, RequestsOutsideTheOptionsStayInTheirBuffers) {
  // Every pair of depths from 1 to 50: exact-size buffers, so a read or
  // write beyond them shows under AddressSanitizer.
  std::mt19937 rng(42);
  for (int s = 1; s <= 50; ++s)
    for (int t = 1; t <= 50; ++t)
      for (int r : {0, 3, 40}) {
        const TestFrame in = test::RandomFrame(3, 2, s, rng);
        std::vector<std::uint8_t> out(3 * 2 * test::StorageBytes(t));
        ConvertDepth(in.View(), PackedView(out.data(), 3, 2, static_cast<std::uint32_t>(t)), static_cast<std::uint32_t>(r));
      }
}

}  // namespace
}  // namespace tarnvel
