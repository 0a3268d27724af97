#include "frames/overlay/Blend.h"

#include <gtest/gtest.h>

#include <random>
#include <vector>

#include "frames/overlay/OverlayText.h"

namespace tarnvel {
namespace {

// The blend as the overlay describes it, written out plainly for bitmaps
// that fit inside the frame: a start index in samples, then row by row.
std::vector<std::uint32_t> ReferenceBlend(std::vector<std::uint32_t> frame, int W, int H, int depth, int position,
                                          bool skipBlack, int x, int y, int step, const std::vector<std::uint8_t>& bmp,
                                          int B, int N, const std::vector<std::uint8_t>* alpha) {
  const int S = depth >= 24 ? 3 : 1;
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
  if (depth >= 24) idx -= idx % 3;
  // A start in the middle of a row (the centre position with an odd height
  // difference) would run past the row's end: those pixels are clipped.
  const long startColumn = (idx % (1L * W * S)) / S;
  const int L = (100 - step * 5) * 255 / 100;
  const int d = depth >= 24 ? depth / 3 : depth;
  const std::uint32_t full = (1u << d) - 1;
  for (int r = 0; r < N; ++r)
    for (int c = 0; c < B; ++c) {
      if (startColumn + c >= W) continue;
      const long at = idx + (1L * r * W + c) * S;
      const std::uint8_t* b = &bmp[(r * B + c) * 3];
      std::uint32_t v[3];
      int channels;
      if (S == 1) {
        const int s = depth - 8 > 0 ? depth - 8 : 0;
        v[0] = ((b[0] << s) * 10 + (b[1] << s) * 18 + (b[2] << s) * 4) >> 5;
        channels = 1;
        if (skipBlack && v[0] == 0) continue;
      } else {
        const int s = (depth - 24) / 3;
        for (int k = 0; k < 3; ++k) v[k] = b[k] << s;
        channels = 3;
        if (skipBlack && v[0] == 0 && v[1] == 0 && v[2] == 0) continue;
      }
      for (int k = 0; k < channels; ++k) {
        std::uint32_t& old = frame[at + k];
        if (alpha || L < 255) {
          const std::uint32_t a = alpha ? (L * (*alpha)[r * B + c]) >> 8 : L;
          old = std::min<std::uint32_t>((a * v[k] + (255 - a) * old) >> 8, full);
        } else {
          old = v[k];
        }
      }
    }
  return frame;
}

template <typename Sample>
std::vector<std::uint32_t> Widen(const std::vector<Sample>& s) { return {s.begin(), s.end()}; }

template <typename Sample>
void CheckDepth(int depth, std::mt19937& rng) {
  const int channels = depth >= 24 ? 3 : 1;
  const int d = depth >= 24 ? depth / 3 : depth;
  for (int W : {1, 7, 33}) {
    for (int H : {1, 5, 20}) {
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
          const bool skipBlack = variant & 1;
          const bool withAlpha = variant & 2;
          const int step = static_cast<int>(rng() % 3) * 10;
          const auto expected = ReferenceBlend(Widen(frame), W, H, depth, position, skipBlack, ox, oy, step, bmp, B, N,
                                               withAlpha ? &alpha : nullptr);
          auto actual = frame;
          BlendBitmap(actual.data(), W, H, depth, position, skipBlack, ox, oy, step, bmp.data(), B, N,
                      withAlpha ? alpha.data() : nullptr);
          ASSERT_EQ(Widen(actual), expected) << "depth " << depth << " W " << W << " H " << H << " B " << B << " N "
                                             << N << " position " << position << " variant " << variant;
        }
      }
    }
  }
}

TEST(Blend, MatchesThePlainRuleAtEveryDepthAndPosition) {
  std::mt19937 rng(17);
  CheckDepth<std::uint8_t>(8, rng);
  for (int depth : {10, 12, 16}) CheckDepth<std::uint16_t>(depth, rng);
  CheckDepth<std::uint8_t>(24, rng);
  for (int depth : {30, 36}) CheckDepth<std::uint16_t>(depth, rng);
}

TEST(Blend, WorkedValues) {
  // White on 12-bit grey: (255 << 4) * 32 >> 5 = 4080, not 4095.
  std::vector<std::uint16_t> grey12(4, 7);
  const std::uint8_t white[3] = {255, 255, 255};
  BlendBitmap(grey12.data(), 2, 2, 12, kTopLeft, true, 0, 0, 0, white, 1, 1, nullptr);
  EXPECT_EQ(grey12[0], 4080);
  EXPECT_EQ(grey12[1], 7);
  // Near-black 0x010101 on 10 bits is not black: it stores 4.
  std::vector<std::uint16_t> grey10(1, 900);
  const std::uint8_t nearBlack[3] = {1, 1, 1};
  BlendBitmap(grey10.data(), 1, 1, 10, kTopLeft, true, 0, 0, 0, nearBlack, 1, 1, nullptr);
  EXPECT_EQ(grey10[0], 4);
  // Step 20 is fully transparent: (255 * old) >> 8.
  std::vector<std::uint16_t> faded(1, 1000);
  BlendBitmap(faded.data(), 1, 1, 12, kTopLeft, false, 0, 0, 20, white, 1, 1, nullptr);
  EXPECT_EQ(faded[0], (255 * 1000) >> 8);
  EXPECT_EQ(OpacityOfStep(0), 255);
  EXPECT_EQ(OpacityOfStep(20), 0);
  EXPECT_EQ(OpacityOfStep(10), 127);
  EXPECT_EQ(ColorAt(8), 0x010101u);
  EXPECT_EQ(ColorAt(19), 0xFFFFFFu) << "outside the table: entry 0";
  EXPECT_EQ(GreyOf(0x010101), 0x010101u) << "near-black keeps its 1";
  EXPECT_EQ(GreyOf(0xCCCCCC), 0xCCCCCCu);
  EXPECT_EQ(GreyOf(0x0000CC), 23u * 0x010101u) << "0.114 of red 204, cut";
}

TEST(Blend, BitmapsLargerThanTheFrameAreClippedNeverWrittenOutside) {
  std::mt19937 rng(23);
  for (int depth : {8, 12, 24, 36}) {
    const int channels = depth >= 24 ? 3 : 1;
    const std::size_t bytes = depth == 8 || depth == 24 ? 1 : 2;
    for (int position = 0; position <= 6; ++position) {
      for (int trial = 0; trial < 20; ++trial) {
        const int W = 1 + static_cast<int>(rng() % 12), H = 1 + static_cast<int>(rng() % 12);
        const int B = 1 + static_cast<int>(rng() % 30), N = 1 + static_cast<int>(rng() % 30);
        const int ox = static_cast<int>(rng() % 40) - 20, oy = static_cast<int>(rng() % 40) - 20;
        // Guard bytes before and after the frame must stay as they are.
        const std::size_t frameBytes = static_cast<std::size_t>(W) * H * channels * bytes;
        std::vector<std::uint8_t> buffer(frameBytes + 64, 0xA5);
        std::vector<std::uint8_t> bmp(static_cast<std::size_t>(B) * N * 3, 200), alpha(static_cast<std::size_t>(B) * N, 255);
        BlendBitmap(buffer.data() + 32, W, H, depth, position, false, ox, oy, trial % 3 * 5, bmp.data(), B, N,
                    trial % 2 ? alpha.data() : nullptr);
        for (int i = 0; i < 32; ++i) {
          ASSERT_EQ(buffer[i], 0xA5);
          ASSERT_EQ(buffer[32 + frameBytes + i], 0xA5);
        }
      }
    }
  }
}

}  // namespace
}  // namespace tarnvel
