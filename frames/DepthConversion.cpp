// ConvertDepth: shifts and saturation, no tables, no rounding.
//
// Depths are first brought to what their storage can mean: 1 to 8 count as
// 8, anything above 48 as 48. 8-bit colour of 17 to 23 bits holds depth / 3
// bits a channel, as every frame of that layout does. A right shift that
// BitRange turns negative becomes a left shift by the same amount, still
// clamped; a left shift without a clamp keeps the low bits that the storage
// holds.
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

using u8 = std::uint8_t;
using u16 = std::uint16_t;
constexpr auto kIdentity = [](std::uint32_t v) { return v; };

// One conversion: source depth `si` in layout `from` to target depth `ti`,
// bit range `r`, over `pixels` pixels.
// The functions below copy its fields into named locals: their lambdas capture
// them, which clang before 16 does not allow for a structured binding.
struct Conversion {
  PixelLayout from;
  int si, ti, r;
  std::size_t pixels;
  const std::uint8_t* src;
  std::uint8_t* dst;
};

void ToGrey8(const Conversion& c) {
  const PixelLayout from = c.from;
  const int si = c.si, r = c.r;
  const std::size_t pixels = c.pixels;
  const std::uint8_t* const src = c.src;
  std::uint8_t* const dst = c.dst;
  switch (from) {
    case PixelLayout::Grey8: MapValues<u8, u8, 1, 1>(src, dst, pixels, kIdentity); return;
    case PixelLayout::Grey16:
      WithShift(si - 8 - r, 255, [&](auto op) { MapValues<u16, u8, 1, 1>(src, dst, pixels, op); });
      return;
    case PixelLayout::Color8:  // channels of fewer than 8 bits widened to 8 first
      if (si == 24) WeightedGrey<u8, u8>(src, dst, pixels, kIdentity, 255, kIdentity);
      else WithShift(si / 3 - 8, 255, [&](auto op) { WeightedGrey<u8, u8>(src, dst, pixels, op, 255, kIdentity); });
      return;
    case PixelLayout::Color16:  // each channel narrowed to 8 bits first
      WithShift(si / 3 - 8 - r, 255, [&](auto op) { WeightedGrey<u16, u8>(src, dst, pixels, op, 255, kIdentity); });
      return;
  }
}

void ToColour8(const Conversion& c) {
  const PixelLayout from = c.from;
  const int si = c.si, ti = c.ti, r = c.r;
  const std::size_t pixels = c.pixels;
  const std::uint8_t* const src = c.src;
  std::uint8_t* const dst = c.dst;
  const int tc = ti / 3;  // 8 at depth 24, fewer below
  switch (from) {
    case PixelLayout::Grey8:
      if (tc == 8) MapValues<u8, u8, 1, 3>(src, dst, pixels, kIdentity);
      else WithShift(8 - tc, Mask(tc), [&](auto op) { MapValues<u8, u8, 1, 3>(src, dst, pixels, op); });
      return;
    case PixelLayout::Grey16:
      WithShift(si - tc - r, Mask(tc), [&](auto op) { MapValues<u16, u8, 1, 3>(src, dst, pixels, op); });
      return;
    case PixelLayout::Color8:
      WithShift(si / 3 - tc - r, Mask(tc), [&](auto op) { MapValues<u8, u8, 3, 3>(src, dst, pixels, op); });
      return;
    case PixelLayout::Color16:
      WithShift(si / 3 - tc - r, Mask(tc), [&](auto op) { MapValues<u16, u8, 3, 3>(src, dst, pixels, op); });
      return;
  }
}

void ToColour16(const Conversion& c) {
  const PixelLayout from = c.from;
  const int si = c.si, ti = c.ti, r = c.r;
  const std::size_t pixels = c.pixels;
  const std::uint8_t* const src = c.src;
  std::uint8_t* const dst = c.dst;
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
void ToGrey16(const Conversion& c) {
  const PixelLayout from = c.from;
  const int si = c.si, ti = c.ti, r = c.r;
  const std::size_t pixels = c.pixels;
  const std::uint8_t* const src = c.src;
  std::uint8_t* const dst = c.dst;
  auto greyRows = [&](int sourceBits, auto&& run) {
    if (sourceBits >= ti) WithShift(sourceBits - ti - r, Mask(static_cast<std::uint32_t>(ti)), run);
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
      greyRows(si / 3, [&](auto op) { WeightedGrey<u8, u16>(src, dst, pixels, kIdentity, Mask(si / 3), op); });
      return;
    case PixelLayout::Color16: {
      const int sc = std::min(si / 3, 16);
      greyRows(sc, [&](auto op) { WeightedGrey<u16, u16>(src, dst, pixels, kIdentity, Mask(sc), op); });
      return;
    }
  }
}

void Convert(std::uint32_t s, std::uint32_t t, int r, std::size_t pixels, const std::uint8_t* src, std::uint8_t* dst) {
  s = Normalised(s);
  t = Normalised(t);
  const Conversion c{LayoutOfDepth(s), static_cast<int>(s), static_cast<int>(t), r, pixels, src, dst};
  switch (LayoutOfDepth(t)) {
    case PixelLayout::Grey8: return ToGrey8(c);
    case PixelLayout::Color8: return ToColour8(c);
    case PixelLayout::Color16: return ToColour16(c);
    case PixelLayout::Grey16: return ToGrey16(c);
  }
}

}  // namespace

bool ConvertDepth(ConstImageView source, ImageView destination, std::uint32_t bitRange) {
  if (source.Empty() || destination.Empty() || !SameSize(source, destination)) return false;
  const int range = static_cast<int>(std::min<std::uint32_t>(bitRange, 64));
  // Packed frames go as one run of pixels, others row by row.
  const bool oneRun = source.Packed() && destination.Packed();
  const std::uint32_t rows = oneRun ? 1 : source.height;
  const std::size_t pixels = std::size_t{source.width} * (oneRun ? source.height : 1);
  for (std::uint32_t y = 0; y < rows; ++y) {
    if (source.depth == destination.depth)
      std::memcpy(destination.Row(y), source.Row(y), pixels * source.PixelBytes());
    else
      Convert(source.depth, destination.depth, range, pixels, source.Row(y), destination.Row(y));
  }
  return true;
}

}  // namespace tarnvel
