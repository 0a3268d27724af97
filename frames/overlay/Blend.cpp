#include "frames/overlay/Blend.h"

#include <algorithm>
#include <iterator>

#include "platform/pixels/PixelLayout.h"

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

// The bitmap's bytes of one pixel at the frame's channel depth: the grey of
// its weighted sum, or its three channels.
template <int Channels>
bool PixelValues(const std::uint8_t* in, std::uint32_t depth, bool skipBlack, std::uint32_t v[3]) {
  if constexpr (Channels == 1) {
    v[0] = (FromEightBits(in[0], depth) * 10 + FromEightBits(in[1], depth) * 18 + FromEightBits(in[2], depth) * 4) >> 5;
    return !(skipBlack && v[0] == 0);
  } else {
    for (int k = 0; k < 3; ++k) v[k] = FromEightBits(in[k], depth);
    return !(skipBlack && (v[0] | v[1] | v[2]) == 0);
  }
}

template <typename Sample, int Channels>
void Blend(const ImageView& frame, Origin at, bool skipBlack, int opacity, const ConstImageView& bitmap,
           const std::uint8_t* alpha) {
  const long long W = frame.width, H = frame.height, B = bitmap.width, N = bitmap.height;
  const std::uint32_t fullScale = FullScale(frame.depth);
  const bool mixing = alpha != nullptr || opacity < 255;
  // Only the bitmap's rows and columns that land inside the frame are walked.
  const long long r0 = std::max(0LL, -at.row), r1 = std::min(N, H - at.row);
  const long long c0 = std::max(0LL, -at.column), c1 = std::min(B, W - at.column);
  for (long long r = r0; r < r1; ++r) {
    Sample* out = frame.RowAs<Sample>(static_cast<std::size_t>(at.row + r)) + (at.column + c0) * Channels;
    const std::uint8_t* in = bitmap.Row(static_cast<std::size_t>(r)) + c0 * 3;
    const std::uint8_t* a = alpha ? alpha + r * B + c0 : nullptr;
    for (long long c = c0; c < c1; ++c, out += Channels, in += 3) {
      const std::uint8_t weightByte = a ? *a++ : 255;
      std::uint32_t v[3];
      if (!PixelValues<Channels>(in, frame.depth, skipBlack, v)) continue;
      if (mixing) {
        const std::uint32_t weight = a ? (static_cast<std::uint32_t>(opacity) * weightByte) >> 8 : static_cast<std::uint32_t>(opacity);
        for (int k = 0; k < Channels; ++k) {
          const std::uint32_t mixed = (weight * v[k] + (255 - weight) * out[k]) >> 8;
          out[k] = static_cast<Sample>(std::min(mixed, fullScale));
        }
      } else {
        for (int k = 0; k < Channels; ++k) out[k] = static_cast<Sample>(v[k]);
      }
    }
  }
}

}  // namespace

std::uint32_t ColorAt(std::int32_t index) {
  return index >= 0 && index < static_cast<std::int32_t>(std::size(kColorTable)) ? kColorTable[index] : kColorTable[0];
}

int OpacityOfStep(int transparencyStep) { return std::clamp((100 - transparencyStep * 5) * 255 / 100, 0, 255); }

void BlendBitmap(ImageView frame, std::int32_t position, bool skipBlack, std::int32_t offsetX, std::int32_t offsetY,
                 int transparencyStep, ConstImageView bitmap, const std::uint8_t* alpha) {
  if (frame.Empty() || bitmap.Empty() || bitmap.depth != 24) return;
  const int S = static_cast<int>(ChannelsOf(frame.Layout()));
  const Origin at = PlaceBitmap(frame.width, frame.height, bitmap.width, bitmap.height, offsetX, offsetY, S, position);
  const int opacity = OpacityOfStep(transparencyStep);
  DispatchLayout(frame.Layout(), [&]<class T, int C>() { Blend<T, C>(frame, at, skipBlack, opacity, bitmap, alpha); });
}

}  // namespace tarnvel
