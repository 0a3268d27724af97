#include "frames/overlay/Blend.h"

#include <algorithm>
#include <iterator>

namespace tarnvel {
namespace {

long long FloorDiv(long long a, long long b) { return a / b - (a % b != 0 && (a < 0) != (b < 0)); }

struct Origin {
  long long row, column;
};

// Where the bitmap's first pixel goes. Index arithmetic in samples as the
// overlay always placed it: centred columns halve (W - B) * S, the centre
// position halves the whole index, and colour indexes are cut to a pixel.
Origin PlaceBitmap(long long W, long long H, long long B, long long N, long long x, long long y, int S,
                   std::int32_t position) {
  const long long top = y, bottom = H - N - y;
  const long long left = x, right = W - B - x;
  const long long centred = FloorDiv((W - B) * S / 2, S);
  switch (position) {
    case kTopRight: return {top, right};
    case kBottomLeft: return {bottom, left};
    case kBottomRight: return {bottom, right};
    case kTopCentre: return {top, centred};
    case kBottomCentre: return {bottom, centred};
    case kCentre: {
      const long long pixel = FloorDiv(((H - N) * W * S + (W - B) * S) / 2, S);
      const long long row = FloorDiv(pixel, W);
      return {row, pixel - row * W};
    }
    default: return {top, left};
  }
}

template <typename Sample, int Channels>
void Blend(Sample* frame, long long W, long long H, std::uint32_t depth, Origin at, bool skipBlack, int opacity,
           const std::uint8_t* bitmap, long long B, long long N, const std::uint8_t* alpha) {
  const int shift = Channels == 3 ? std::max(0, (static_cast<int>(depth) - 24) / 3) : std::max(0, static_cast<int>(depth) - 8);
  const int channelBits = static_cast<int>(Channels == 3 ? depth / 3 : depth);
  const std::uint32_t fullScale = channelBits >= 32 ? 0xFFFFFFFFu : (1u << channelBits) - 1;
  const bool mixing = alpha != nullptr || opacity < 255;
  // Only the bitmap's rows and columns that land inside the frame are walked.
  const long long r0 = std::max(0LL, -at.row), r1 = std::min(N, H - at.row);
  const long long c0 = std::max(0LL, -at.column), c1 = std::min(B, W - at.column);
  for (long long r = r0; r < r1; ++r) {
    Sample* out = frame + ((at.row + r) * W + at.column + c0) * Channels;
    const std::uint8_t* in = bitmap + (r * B + c0) * 3;
    const std::uint8_t* a = alpha ? alpha + r * B + c0 : nullptr;
    for (long long c = c0; c < c1; ++c, out += Channels, in += 3) {
      std::uint32_t v[3];
      if constexpr (Channels == 1) {
        v[0] = ((std::uint32_t{in[0]} << shift) * 10 + (std::uint32_t{in[1]} << shift) * 18 +
                (std::uint32_t{in[2]} << shift) * 4) >> 5;
        if (skipBlack && v[0] == 0) {
          if (a) ++a;
          continue;
        }
      } else {
        for (int k = 0; k < 3; ++k) v[k] = std::uint32_t{in[k]} << shift;
        if (skipBlack && (v[0] | v[1] | v[2]) == 0) {
          if (a) ++a;
          continue;
        }
      }
      if (mixing) {
        const std::uint32_t weight = a ? (static_cast<std::uint32_t>(opacity) * *a++) >> 8 : static_cast<std::uint32_t>(opacity);
        for (int k = 0; k < Channels; ++k) {
          const std::uint32_t mixed = (weight * v[k] + (255 - weight) * out[k]) >> 8;
          out[k] = static_cast<Sample>(std::min(mixed, fullScale));
        }
      } else {
        for (int k = 0; k < Channels; ++k) out[k] = static_cast<Sample>(v[k]);
        if (a) ++a;
      }
    }
  }
}

}  // namespace

std::uint32_t ColorAt(std::int32_t index) {
  return index >= 0 && index < static_cast<std::int32_t>(std::size(kColorTable)) ? kColorTable[index] : kColorTable[0];
}

int OpacityOfStep(int transparencyStep) { return std::clamp((100 - transparencyStep * 5) * 255 / 100, 0, 255); }

void BlendBitmap(void* frame, std::uint32_t width, std::uint32_t height, std::uint32_t depth, std::int32_t position,
                 bool skipBlack, std::int32_t offsetX, std::int32_t offsetY, int transparencyStep,
                 const std::uint8_t* bitmap, std::uint32_t bitmapWidth, std::uint32_t bitmapHeight,
                 const std::uint8_t* alpha) {
  if (frame == nullptr || bitmap == nullptr || width == 0 || height == 0) return;
  const int S = depth >= 24 ? 3 : 1;
  const Origin at = PlaceBitmap(width, height, bitmapWidth, bitmapHeight, offsetX, offsetY, S, position);
  const int opacity = OpacityOfStep(transparencyStep);
  // Depth 8 and below uses bytes, 9 to 23 words, 24 bytes in threes, deeper words in threes.
  if (depth <= 8)
    Blend<std::uint8_t, 1>(static_cast<std::uint8_t*>(frame), width, height, depth, at, skipBlack, opacity, bitmap,
                           bitmapWidth, bitmapHeight, alpha);
  else if (depth < 24)
    Blend<std::uint16_t, 1>(static_cast<std::uint16_t*>(frame), width, height, depth, at, skipBlack, opacity, bitmap,
                            bitmapWidth, bitmapHeight, alpha);
  else if (depth == 24)
    Blend<std::uint8_t, 3>(static_cast<std::uint8_t*>(frame), width, height, depth, at, skipBlack, opacity, bitmap,
                           bitmapWidth, bitmapHeight, alpha);
  else
    Blend<std::uint16_t, 3>(static_cast<std::uint16_t*>(frame), width, height, depth, at, skipBlack, opacity, bitmap,
                            bitmapWidth, bitmapHeight, alpha);
}

}  // namespace tarnvel
