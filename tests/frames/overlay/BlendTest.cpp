#include "frames/overlay/Blend.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <random>
#include <vector>

#include "frames/overlay/OverlayText.h"

namespace tarnvel {
namespace {

// The storage rule written out: three channels above 16 bits, each of a
// third of the depth; bitmap bytes shifted to the channel's bits.
int ChannelsAt(int depth) { return depth > 16 ? 3 : 1; }
int BitsAt(int depth) { return depth > 16 ? depth / 3 : depth; }
std::uint32_t Shifted(std::uint32_t byte, int depth) {
  const int s = BitsAt(depth) - 8;
  return s >= 0 ? byte << s : byte >> -s;
}

// The blend as the overlay describes it, written out plainly for bitmaps
// that fit inside the frame: a start index in samples, then row by row.
std::vector<std::uint32_t> ReferenceBlend(std::vector<std::uint32_t> frame, int W, int H, int depth, int position,
                                          bool skipBlack, int x, int y, int step, const std::vector<std::uint8_t>& bmp,
                                          int B, int N, const std::vector<std::uint8_t>* alpha) {
  const int S = ChannelsAt(depth);
  long idx;
  switch (position) {
    case 1: idx = 1L * y * W * S + (W - B - x) * S; break;
    case 2: idx = 1L * (H - N - y) * W * S + x * S; break;
    case 3: idx = 1L * (H - N - y) * W * S + (W - B - x) * S; break;
    case 4: idx = 1L * y * W * S + (W - B) * S / 2; break;
    case 5: idx = 1L * (H - N - y) * W * S + (W - B) * S / 2; break;
    case 6: idx = (1L * (H - N) * W * S + (W - B) * S) / 2; break;
    default: idx = 1L * y * W * S + x * S; break;
  }
  if (S == 3) idx -= idx % 3;
  // A start in the middle of a row (the centre position with an odd height
  // difference) would run past the row's end: those pixels are clipped.
  const long startColumn = (idx % (1L * W * S)) / S;
  const int L = (100 - step * 5) * 255 / 100;
  const std::uint32_t full = (1u << BitsAt(depth)) - 1;
  for (int r = 0; r < N; ++r)
    for (int c = 0; c < B && startColumn + c < W; ++c) {
      const std::uint8_t* b = &bmp[(r * B + c) * 3];
      std::uint32_t v[3] = {Shifted(b[0], depth), Shifted(b[1], depth), Shifted(b[2], depth)};
      if (S == 1) v[0] = (v[0] * 10 + v[1] * 18 + v[2] * 4) >> 5;  // grey weights of blue, green, red
      if (skipBlack && v[0] == 0 && (S == 1 || (v[1] == 0 && v[2] == 0))) continue;
      const std::uint32_t a = alpha ? (L * (*alpha)[r * B + c]) >> 8 : L;
      for (int k = 0; k < S; ++k) {
        std::uint32_t& old = frame[idx + (1L * r * W + c) * S + k];
        old = alpha || L < 255 ? std::min<std::uint32_t>((a * v[k] + (255 - a) * old) >> 8, full) : v[k];
      }
    }
  return frame;
}

// Random frames, bitmaps, offsets and transparencies at one depth: inside the
// frame the blend matches the reference; larger bitmaps at any offset are
// clipped, with guard samples on both sides left as they were.
template <typename Sample>
void CheckDepth(int depth, std::mt19937& rng) {
  const int channels = ChannelsAt(depth), d = BitsAt(depth);
  auto view = [depth](std::vector<Sample>& samples, std::size_t at, int W, int H) {
    return PackedView(reinterpret_cast<std::uint8_t*>(samples.data() + at), static_cast<std::uint32_t>(W),
                      static_cast<std::uint32_t>(H), static_cast<std::uint32_t>(depth));
  };
  for (int W : {1, 7, 33})
    for (int H : {1, 5, 20})
      for (int position = 0; position <= 7; ++position) {
        const int B = 1 + static_cast<int>(rng() % W), N = 1 + static_cast<int>(rng() % H);
        const int x = static_cast<int>(rng() % (W - B + 1)), y = static_cast<int>(rng() % (H - N + 1));
        // Offsets only where the position uses them, so the bitmap stays inside.
        const bool usesX = position <= 3 || position == 7, usesY = position != 6;
        const int ox = usesX ? x : static_cast<int>(rng() % 50), oy = usesY ? y : static_cast<int>(rng() % 50);
        std::vector<Sample> frame(static_cast<std::size_t>(W) * H * channels);
        for (auto& s : frame) s = static_cast<Sample>(rng() % (1u << d));
        std::vector<std::uint8_t> bmp(static_cast<std::size_t>(B) * N * 3), alpha(static_cast<std::size_t>(B) * N);
        for (auto& b : bmp) b = rng() % 3 == 0 ? 0 : static_cast<std::uint8_t>(rng());
        for (auto& a : alpha) a = static_cast<std::uint8_t>(rng());
        for (int variant = 0; variant < 4; ++variant) {
          const bool skipBlack = variant & 1, withAlpha = variant & 2;
          const int step = static_cast<int>(rng() % 3) * 10;
          const auto expected = ReferenceBlend({frame.begin(), frame.end()}, W, H, depth, position, skipBlack, ox, oy,
                                               step, bmp, B, N, withAlpha ? &alpha : nullptr);
          auto actual = frame;
          BlendBitmap(view(actual, 0, W, H), position, skipBlack, ox, oy, step, PackedView(bmp.data(), B, N, 24),
                      withAlpha ? alpha.data() : nullptr);
          ASSERT_EQ(std::vector<std::uint32_t>(actual.begin(), actual.end()), expected)
              << "depth " << depth << " W " << W << " H " << H << " B " << B << " N " << N << " position " << position
              << " variant " << variant;
        }
        const int bigB = 1 + int(rng() % 40), bigN = 1 + int(rng() % 40), bx = int(rng() % 40) - 20, by = int(rng() % 40) - 20;
        std::vector<Sample> guarded(frame.size() + 64, 0x5A);
        const std::vector<std::uint8_t> big(static_cast<std::size_t>(bigB) * bigN * 3, 200), opaque(bigB * bigN, 255);
        BlendBitmap(view(guarded, 32, W, H), position, false, bx, by, position % 3 * 5, PackedView(big.data(), bigB, bigN, 24),
                    position % 2 ? opaque.data() : nullptr);
        for (int i = 0; i < 32; ++i) ASSERT_TRUE(guarded[i] == 0x5A && guarded[32 + frame.size() + i] == 0x5A) << i;
      }
}

TEST(Blend, MatchesThePlainRuleAndClipsAtEveryDepthAndPosition) {
  std::mt19937 rng(17);
  for (int depth : {6, 8, 18, 21, 24}) CheckDepth<std::uint8_t>(depth, rng);
  for (int depth : {10, 12, 16, 30, 36}) CheckDepth<std::uint16_t>(depth, rng);
}

TEST(Blend, WorkedValues) {
  // White on 12-bit grey: (255 << 4) * 32 >> 5 = 4080, not 4095; near-black
  // 0x010101 on 10 bits is not black: it stores 4; step 20 is fully transparent.
  const std::uint8_t white[3] = {255, 255, 255}, nearBlack[3] = {1, 1, 1};
  std::vector<std::uint16_t> grey12(2, 7), grey10(1, 900), faded(1, 1000);
  auto words = [](std::vector<std::uint16_t>& f, std::uint32_t depth) {
    return PackedView(reinterpret_cast<std::uint8_t*>(f.data()), static_cast<std::uint32_t>(f.size()), 1, depth);
  };
  BlendBitmap(words(grey12, 12), kTopLeft, true, 0, 0, 0, PackedView(white, 1, 1, 24), nullptr);
  BlendBitmap(words(grey10, 10), kTopLeft, true, 0, 0, 0, PackedView(nearBlack, 1, 1, 24), nullptr);
  BlendBitmap(words(faded, 12), kTopLeft, false, 0, 0, 20, PackedView(white, 1, 1, 24), nullptr);
  EXPECT_EQ((std::array{grey12[0], grey12[1], grey10[0], faded[0]}), (std::array<std::uint16_t, 4>{4080, 7, 4, (255 * 1000) >> 8}));
  // White on 21-bit colour (three bytes of 7 bits each): white at 7 bits in
  // every channel, the next pixel untouched.
  std::uint8_t colour21[6] = {1, 2, 3, 4, 5, 6};
  BlendBitmap(PackedView(colour21, 2, 1, 21), kTopLeft, true, 0, 0, 0, PackedView(white, 1, 1, 24), nullptr);
  EXPECT_EQ((std::array<int, 6>{colour21[0], colour21[1], colour21[2], colour21[3], colour21[4], colour21[5]}),
            (std::array{127, 127, 127, 4, 5, 6}));
  EXPECT_EQ((std::array{GreyOf(0x010101), GreyOf(0x0000CC), ColorAt(19)}), (std::array{0x010101u, 23u * 0x010101u, 0xFFFFFFu}))
      << "near-black keeps its 1; 0.114 of red 204, cut; outside the colour table: entry 0";
}

}  // namespace
}  // namespace tarnvel
