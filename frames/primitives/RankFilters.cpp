// Minimum, maximum and median masks: reaches, the choice of method, and the
// kernels that run them.
#include "frames/primitives/RankFilters.h"

#include <algorithm>
#include <array>
#include <cstring>
#include <limits>
#include <utility>
#include <vector>

#include "frames/primitives/MedianNetworks.h"

#define TARNVEL_SIMD_KERNELS "frames/primitives/RankKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

// A mask of size n reaches (n - 1) / 2 left (up) and n - 1 - (n - 1) / 2
// right (down). Reaches beyond the frame's size add nothing but zeros, which
// a reach of the frame's size already adds, so they are cut to it.
struct Reach {
  std::int64_t before, after;
};
Reach ReachOf(int n, std::uint32_t limit) {
  const std::int64_t before = (static_cast<std::int64_t>(n) - 1) / 2;
  const std::int64_t after = static_cast<std::int64_t>(n) - 1 - before;
  return {std::min<std::int64_t>(before, limit), std::min<std::int64_t>(after, limit)};
}

template <class T, int C>
void Median(const void* src, std::size_t srb, void* dst, std::size_t drb, std::uint32_t width, std::uint32_t height,
            int mw, int mh) {
  const bool inPlace = src == dst;
  if (mw == 3 && mh == 3)
    TARNVEL_SIMD_RETURN(MedianBySortedRows<T, C, 3, kRowSort3, kSortedRowsMedian3>(src, srb, dst, drb, width, height));
  if (mw == 5 && mh == 5)
    TARNVEL_SIMD_RETURN(MedianBySortedRows<T, C, 5, kRowSort5, kSortedRowsMedian5>(src, srb, dst, drb, width, height));
  // The histograms count in 16 bits: at most the pixels of the mask that lie
  // within the frame.
  const std::int64_t inside = std::min<std::int64_t>(mw, width) * std::min<std::int64_t>(mh, height);
  if constexpr (sizeof(T) == 1)
    if (inside < 65536)
      TARNVEL_SIMD_RETURN(MedianByColumnHistograms<C>(src, srb, dst, drb, width, height, mw, mh, inPlace));
  TARNVEL_SIMD_RETURN(MedianByHistogram<T, C>(src, srb, dst, drb, width, height, mw, mh, inPlace));
}

template <class T, int C, bool kMax>
void Extremum(const void* src, std::size_t srb, void* dst, std::size_t drb, std::uint32_t width,
              std::uint32_t height, int mw, int mh) {
  const Reach across = ReachOf(mw, width), down = ReachOf(mh, height);
  TARNVEL_SIMD_RETURN(ExtremumFrame<T, C, kMax>(src, srb, dst, drb, width, height, across.before, across.after,
                                                down.before, down.after, src == dst));
}

}  // namespace

void RunMedian(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
               std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
               int maskHeight) {
  if (maskWidth == 1 && maskHeight == 1) {
    const std::size_t bytes = static_cast<std::size_t>(width) * ChannelsOf(layout) * SampleBytesOf(layout);
    for (std::size_t y = 0; y < height && source != destination; ++y)
      std::memcpy(RowOf<std::uint8_t>(destination, destinationRowBytes, y), RowOf<std::uint8_t>(source, sourceRowBytes, y),
                  bytes);
    return;
  }
  DispatchLayout(layout, [&]<class T, int C>() {
    Median<T, C>(source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth, maskHeight);
  });
}

void RunExtremum(bool maximum, PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                 std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                 int maskHeight) {
  DispatchLayout(layout, [&]<class T, int C>() {
    if (maximum) Extremum<T, C, true>(source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth, maskHeight);
    else Extremum<T, C, false>(source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth, maskHeight);
  });
}

}  // namespace tarnvel
