// ImageProcessor::ConvertDepth: shifts and saturation, no tables, no rounding.
//
// Depths are first brought to what their storage can mean: 1 to 8 count as
// 8, a target of 17 to 23 as 24 (8-bit colour), anything above 48 as 48. A
// right shift that BitRange turns negative becomes a left shift by the same
// amount, still clamped; a left shift without a clamp keeps the low bits
// that the storage holds.
#include <algorithm>
#include <cstring>

#include "frames/ImageProcessor.h"
#include "frames/primitives/Primitives.h"

#define TARNVEL_SIMD_KERNELS "frames/DepthConversionKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

struct ShiftRight {
  std::uint32_t shift, max;
  std::uint32_t operator()(std::uint32_t v) const { return std::min(v >> shift, max); }
};
struct ShiftLeft {
  std::uint32_t shift, max;
  std::uint32_t operator()(std::uint32_t v) const { return std::min(v << shift, max); }
};

constexpr std::uint32_t kNoClamp = 0xFFFFFFFFu;

// Calls f with the functor for "shifted right by `right`, clamped to max";
// a negative `right` shifts left.
template <class F>
void WithShift(int right, std::uint32_t max, F&& f) {
  if (right >= 0) f(ShiftRight{static_cast<std::uint32_t>(std::min(right, 31)), max});
  else f(ShiftLeft{static_cast<std::uint32_t>(std::min(-right, 16)), max});
}
// "Shifted left by `left`", no clamp (negative: right, which never needs one).
template <class F>
void WithLeftShift(int left, F&& f) {
  WithShift(-left, kNoClamp, std::forward<F>(f));
}

std::uint32_t Mask(std::uint32_t bits) { return bits >= 32 ? kNoClamp : (1u << bits) - 1u; }

template <class In, class Out, int Cin, int Cout, class Op>
void MapValues(const std::uint8_t* source, std::uint8_t* destination, std::size_t pixels, Op op) {
  TARNVEL_SIMD_RETURN(MapValueRows<In, Out, Cin, Cout>(source, destination, pixels, op));
}

template <class In, class Out, class ChannelOp, class GreyOp>
void WeightedGrey(const std::uint8_t* source, std::uint8_t* destination, std::size_t pixels, ChannelOp channel,
                  std::uint32_t greyMax, GreyOp grey) {
  TARNVEL_SIMD_RETURN(WeightedGreyRows<In, Out>(source, destination, pixels, channel, greyMax, grey));
}

std::uint32_t Normalised(std::uint32_t depth) {
  if (depth <= 8) return 8;
  return std::min<std::uint32_t>(depth, 48);
}

void Convert(std::uint32_t s, std::uint32_t t, int r, std::size_t pixels, const std::uint8_t* src, std::uint8_t* dst) {
  using u8 = std::uint8_t;
  using u16 = std::uint16_t;
  s = Normalised(s);
  t = Normalised(t);
  if (t > 16 && t < 24) t = 24;
  const PixelLayout from = LayoutOfDepth(s), to = LayoutOfDepth(t);
  const int si = static_cast<int>(s), ti = static_cast<int>(t);
  const auto identity = [](std::uint32_t v) { return v; };

  if (to == PixelLayout::Grey8) {
    switch (from) {
      case PixelLayout::Grey8: MapValues<u8, u8, 1, 1>(src, dst, pixels, identity); return;
      case PixelLayout::Grey16:
        WithShift(si - 8 - r, 255, [&](auto op) { MapValues<u16, u8, 1, 1>(src, dst, pixels, op); });
        return;
      case PixelLayout::Color8: WeightedGrey<u8, u8>(src, dst, pixels, identity, 255, identity); return;
      case PixelLayout::Color16:  // each channel narrowed to 8 bits first
        WithShift(si / 3 - 8 - r, 255,
                  [&](auto op) { WeightedGrey<u16, u8>(src, dst, pixels, op, 255, identity); });
        return;
    }
  }
  if (to == PixelLayout::Color8) {
    switch (from) {
      case PixelLayout::Grey8: MapValues<u8, u8, 1, 3>(src, dst, pixels, identity); return;
      case PixelLayout::Grey16:
        WithShift(si - 8 - r, 255, [&](auto op) { MapValues<u16, u8, 1, 3>(src, dst, pixels, op); });
        return;
      case PixelLayout::Color8:
        WithShift(si / 3 - 8 - r, 255, [&](auto op) { MapValues<u8, u8, 3, 3>(src, dst, pixels, op); });
        return;
      case PixelLayout::Color16:
        WithShift(si / 3 - 8 - r, 255, [&](auto op) { MapValues<u16, u8, 3, 3>(src, dst, pixels, op); });
        return;
    }
  }
  if (to == PixelLayout::Color16) {
    const int tc = std::min(ti / 3, 16);
    switch (from) {
      case PixelLayout::Grey8:
        WithLeftShift(tc - 8, [&](auto op) { MapValues<u8, u16, 1, 3>(src, dst, pixels, op); });
        return;
      case PixelLayout::Color8:
        WithLeftShift(tc - si / 3, [&](auto op) { MapValues<u8, u16, 3, 3>(src, dst, pixels, op); });
        return;
      case PixelLayout::Grey16:
        if (tc >= si) WithLeftShift(tc - si, [&](auto op) { MapValues<u16, u16, 1, 3>(src, dst, pixels, op); });
        else WithShift(si - tc - r, Mask(tc), [&](auto op) { MapValues<u16, u16, 1, 3>(src, dst, pixels, op); });
        return;
      case PixelLayout::Color16:
        if (si >= ti)
          WithShift((si - ti) / 3 - r, Mask(tc), [&](auto op) { MapValues<u16, u16, 3, 3>(src, dst, pixels, op); });
        else WithLeftShift((ti - si) / 3, [&](auto op) { MapValues<u16, u16, 3, 3>(src, dst, pixels, op); });
        return;
    }
  }
  // Grey of 9 to 16 bits. A colour source becomes grey at its own channel
  // depth first and then follows the grey rows.
  auto greyRows = [&](int sourceBits, auto&& run) {
    if (sourceBits >= ti) WithShift(sourceBits - ti - r, Mask(t), run);
    else WithLeftShift(ti - sourceBits, run);
  };
  switch (from) {
    case PixelLayout::Grey8:
      WithLeftShift(ti - 8, [&](auto op) { MapValues<u8, u16, 1, 1>(src, dst, pixels, op); });
      return;
    case PixelLayout::Grey16:
      greyRows(si, [&](auto op) { MapValues<u16, u16, 1, 1>(src, dst, pixels, op); });
      return;
    case PixelLayout::Color8:
      greyRows(8, [&](auto op) { WeightedGrey<u8, u16>(src, dst, pixels, identity, 255, op); });
      return;
    case PixelLayout::Color16: {
      const int sc = std::min(si / 3, 16);
      greyRows(sc, [&](auto op) { WeightedGrey<u16, u16>(src, dst, pixels, identity, Mask(sc), op); });
      return;
    }
  }
}

}  // namespace

std::uint8_t* ImageProcessor::ConvertDepth(std::uint32_t sourceDepth, std::uint32_t targetDepth,
                                           std::uint32_t bitRange, std::uint32_t width, std::uint32_t height,
                                           const std::uint8_t* source, std::uint8_t* destination) {
  if (!source) return destination;
  if (sourceDepth == targetDepth) {
    if (!destination) return const_cast<std::uint8_t*>(source);
    std::memcpy(destination, source, frameSize_);
    return destination;
  }
  const std::size_t pixels = static_cast<std::size_t>(width) * height;
  std::uint8_t* out = destination ? destination : EnsureScratch(pixels * BytesPerPixel(targetDepth));
  if (!out) return nullptr;
  Convert(sourceDepth, targetDepth, static_cast<int>(std::min<std::uint32_t>(bitRange, 64)), pixels, source, out);
  return out;
}

}  // namespace tarnvel
