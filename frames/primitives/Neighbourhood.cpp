#include "frames/primitives/Neighbourhood.h"

#include "frames/primitives/ConvolutionPlan.h"

#include <algorithm>
#include <array>
#include <cstdlib>
#include <climits>
#include <cstring>
#include <limits>
#include <new>
#include <type_traits>
#include <utility>
#include <vector>

namespace tarnvel {
namespace {

// Samples that a blocked loop may read past the end of a padded row.
constexpr std::size_t kSlack = 64;

template <class T, class S>
TARNVEL_VECTOR_CLONES void WidenRow(const T* __restrict in, S* __restrict out, std::size_t samples) {
  for (std::size_t s = 0; s < samples; ++s) out[s] = static_cast<S>(in[s]);
}

// Copies of the source rows that a window needs, each padded with zeros on
// both sides and converted to the working type S. Rows are asked for in
// increasing order; a ring of `slots` buffers keeps each row converted once.
// Rows outside the frame are a row of zeros.
template <class S>
class PaddedRows {
 public:
  PaddedRows(std::size_t samples, std::size_t leftPad, std::size_t rightPad, std::size_t slots)
      : samples_(samples),
        left_(leftPad),
        stride_(leftPad + samples + rightPad + kSlack),
        buffer_((slots + 1) * stride_, S{}),
        rowOfSlot_(slots, -1) {}

  template <class T>
  const S* Get(const void* frame, std::size_t rowBytes, std::int64_t row, std::int64_t height) {
    if (row < 0 || row >= height) return buffer_.data() + rowOfSlot_.size() * stride_;  // the zero row
    const std::size_t slot = static_cast<std::size_t>(row) % rowOfSlot_.size();
    S* padded = buffer_.data() + slot * stride_;
    if (rowOfSlot_[slot] != row) {
      WidenRow(RowOf<T>(frame, rowBytes, static_cast<std::size_t>(row)), padded + left_, samples_);
      rowOfSlot_[slot] = row;
    }
    return padded;
  }

 private:
  std::size_t samples_, left_, stride_;
  std::vector<S> buffer_;
  std::vector<std::int64_t> rowOfSlot_;
};

template <class T>
constexpr T kSampleMax = std::numeric_limits<T>::max();

// ------------------------------------------------------------ minimum, maximum

// Mask reaches: n - 1 - (n - 1) / 2 to the right and down, (n - 1) / 2 to the
// left and up. Reaches beyond the frame's size add nothing but zeros, which
// a reach of the frame's size already adds, so they are cut to it.
struct Reach {
  std::int64_t before, after;
};
inline Reach ReachOf(int n, std::uint32_t limit) {
  const std::int64_t before = (static_cast<std::int64_t>(n) - 1) / 2;
  const std::int64_t after = static_cast<std::int64_t>(n) - 1 - before;
  return {std::min<std::int64_t>(before, limit), std::min<std::int64_t>(after, limit)};
}

template <class T, bool kMax>
inline T Pick(T a, T b) {
  if constexpr (kMax) return a < b ? b : a;
  else return b < a ? b : a;
}

template <class T, int C, bool kMax>
TARNVEL_VECTOR_CLONES int ExtremumLayout(const void* src, std::size_t srb, void* dst, std::size_t drb, std::uint32_t width,
                   std::uint32_t height, int mw, int mh) {
  const Reach across = ReachOf(mw, width);
  const Reach down = ReachOf(mh, height);
  const std::size_t samples = static_cast<std::size_t>(width) * C;
  const std::size_t leftPad = static_cast<std::size_t>(across.before) * C;
  const std::size_t taps = static_cast<std::size_t>(across.before + across.after + 1);
  // The column result of a row, with zeros on both sides for the row pass.
  std::vector<T> column(leftPad + samples + static_cast<std::size_t>(across.after) * C + kSlack, T{0});
  T* v = column.data() + leftPad;
  typedef T V __attribute__((vector_size(32)));
  constexpr std::size_t kLanes = sizeof(V) / sizeof(T);
  for (std::int64_t y = 0; y < height; ++y) {
    T* out = RowOf<T>(dst, drb, static_cast<std::size_t>(y));
    const std::int64_t first = y - down.before, last = y + down.after;
    const bool outside = first < 0 || last >= static_cast<std::int64_t>(height);
    if (!kMax && outside) {  // a zero inside the mask makes the minimum 0
      std::memset(out, 0, samples * sizeof(T));
      continue;
    }
    const std::int64_t top = std::max<std::int64_t>(first, 0);
    const std::int64_t bottom = std::min<std::int64_t>(last, static_cast<std::int64_t>(height) - 1);
    std::memcpy(v, RowOf<T>(src, srb, static_cast<std::size_t>(top)), samples * sizeof(T));
    for (std::int64_t r = top + 1; r <= bottom; ++r) {
      const T* in = RowOf<T>(src, srb, static_cast<std::size_t>(r));
      for (std::size_t s = 0; s < samples; ++s) v[s] = Pick<T, kMax>(v[s], in[s]);
    }
    // Row pass over the padded column result, a vector at a time.
    const T* padded = column.data();
    std::size_t s = 0;
    for (; s + kLanes <= samples; s += kLanes) {
      V m, x;
      std::memcpy(&m, padded + s, sizeof m);
      for (std::size_t i = 1; i < taps; ++i) {
        std::memcpy(&x, padded + s + i * C, sizeof x);
        m = kMax ? (m < x ? x : m) : (x < m ? x : m);
      }
      std::memcpy(out + s, &m, sizeof m);
    }
    for (; s < samples; ++s) {
      T m = padded[s];
      for (std::size_t i = 1; i < taps; ++i) m = Pick<T, kMax>(m, padded[s + i * C]);
      out[s] = m;
    }
  }
  return kPrimitiveOk;
}

// --------------------------------------------------------------------- median

// Batcher's odd-even merge sort for the next power of two, with the
// comparators that touch the padding left out, pruned to those that decide
// the middle output. Built at compile time for the 3 x 3 and 5 x 5 masks.
struct Comparator {
  std::uint8_t a, b;
};
struct MedianNetwork {
  std::array<Comparator, 256> steps{};
  std::size_t count = 0;
};

constexpr MedianNetwork BuildMedianNetwork(int n) {
  std::array<Comparator, 256> all{};
  std::size_t total = 0;
  int p2 = 1;
  while (p2 < n) p2 <<= 1;
  for (int p = 1; p < p2; p <<= 1)
    for (int k = p; k >= 1; k >>= 1)
      for (int j = k % p; j + k < p2; j += 2 * k)
        for (int i = 0; i < k && i + j + k < p2; ++i)
          if ((i + j) / (2 * p) == (i + j + k) / (2 * p) && i + j + k < n)
            all[total++] = {static_cast<std::uint8_t>(i + j), static_cast<std::uint8_t>(i + j + k)};
  std::array<bool, 256> needed{};
  std::array<bool, 256> keep{};
  needed[static_cast<std::size_t>((n - 1) / 2)] = true;
  for (std::size_t t = total; t-- > 0;) {
    if (needed[all[t].a] || needed[all[t].b]) {
      keep[t] = true;
      needed[all[t].a] = needed[all[t].b] = true;
    }
  }
  MedianNetwork net;
  for (std::size_t t = 0; t < total; ++t)
    if (keep[t]) net.steps[net.count++] = all[t];
  return net;
}

constexpr MedianNetwork kMedian9 = BuildMedianNetwork(9);
constexpr MedianNetwork kMedian25 = BuildMedianNetwork(25);

// Lanes of the network. 16-bit samples run as signed words with the top bit
// flipped, which keeps their order and has native minimum and maximum on
// every x86-64.
template <class T>
struct NetworkLanes;
template <>
struct NetworkLanes<std::uint8_t> {
  typedef std::uint8_t type __attribute__((vector_size(32)));
  static constexpr std::uint8_t kFlip = 0;
};
template <>
struct NetworkLanes<std::uint16_t> {
  typedef std::int16_t type __attribute__((vector_size(32)));
  static constexpr std::int16_t kFlip = INT16_MIN;
};

// The network's helpers are forced inline so that they take the vector
// width of the copy they are called from.
#define TARNVEL_INLINE inline __attribute__((always_inline))

template <class V, class T>
TARNVEL_INLINE void LoadLanes(V& v, const T* p) {
  std::memcpy(&v, p, sizeof v);
}

template <int kN, int C, class V, class T, std::size_t... K>
TARNVEL_INLINE void LoadWindow(V* v, const T* const* window, std::size_t s, const V& flip, std::index_sequence<K...>) {
  ((LoadLanes(v[K], window[K / kN] + s + (K % kN) * C), v[K] ^= flip), ...);
}

template <class V>
TARNVEL_INLINE void CompareSwap(V& a, V& b) {
  const V lo = a < b ? a : b;
  b = a < b ? b : a;
  a = lo;
}

template <const MedianNetwork& kNet, class V, std::size_t... I>
TARNVEL_INLINE void RunNetwork(V* v, std::index_sequence<I...>) {
  (CompareSwap(v[kNet.steps[I].a], v[kNet.steps[I].b]), ...);
}

// The middle values of one block of lanes. The window's values are loaded
// with constant indexes, so that they live in registers.
template <int kN, int C, const MedianNetwork& kNet, class T, class V>
TARNVEL_INLINE void MedianLanes(V& middle, const T* const* window, std::size_t s, const V& flip) {
  V v[kN * kN];
  LoadWindow<kN, C>(v, window, s, flip, std::make_index_sequence<kN * kN>{});
  RunNetwork<kNet>(v, std::make_index_sequence<kNet.count>{});
  middle = v[(kN * kN - 1) / 2] ^ flip;
}

template <class T, int C, int kN, const MedianNetwork& kNet>
TARNVEL_VECTOR_CLONES void MedianByNetwork(const void* src, std::size_t srb, void* dst, std::size_t drb,
                                           std::uint32_t width, std::uint32_t height) {
  using V = typename NetworkLanes<T>::type;
  const V flip = V{} + NetworkLanes<T>::kFlip;
  constexpr std::size_t kLanes = sizeof(V) / sizeof(T);
  constexpr int kReach = (kN - 1) / 2;
  const std::size_t samples = static_cast<std::size_t>(width) * C;
  PaddedRows<T> rows(samples, kReach * C, kReach * C, kN);
  const T* window[kN];
  for (std::int64_t y = 0; y < height; ++y) {
    for (int j = 0; j < kN; ++j) window[j] = rows.template Get<T>(src, srb, y + j - kReach, height);
    T* out = RowOf<T>(dst, drb, static_cast<std::size_t>(y));
    std::size_t s = 0;
    for (; s + kLanes <= samples; s += kLanes) {
      V middle;
      MedianLanes<kN, C, kNet>(middle, window, s, flip);
      std::memcpy(out + s, &middle, sizeof(V));
    }
    if (s < samples) {  // the last block of a row stores only what belongs to the row
      V middle;
      MedianLanes<kN, C, kNet>(middle, window, s, flip);
      std::memcpy(out + s, &middle, (samples - s) * sizeof(T));
    }
  }
}

// Any other odd mask: a sliding histogram per channel. The histogram has a
// tier per 4 bits of the sample (2 tiers for bytes, 4 for words), so that
// finding the middle value walks at most 16 bins a tier. The zeros outside
// the frame are counted, not stored.
template <class T, int C>
void MedianByHistogram(const void* src, std::size_t srb, void* dst, std::size_t drb, std::uint32_t width,
                       std::uint32_t height, int mw, int mh) {
  constexpr int kBits = 8 * sizeof(T);
  constexpr int kTiers = kBits / 4;
  std::vector<std::uint32_t> tier[kTiers];
  for (int t = 0; t < kTiers; ++t) tier[t].assign(std::size_t{1} << (4 * (t + 1)), 0);
  const std::int64_t left = (mw - 1) / 2, right = mw - 1 - left, up = (mh - 1) / 2, down = mh - 1 - up;
  const std::int64_t total = static_cast<std::int64_t>(mw) * mh;
  const std::int64_t middle = (total - 1) / 2;
  const std::int64_t w = width, h = height;
  for (int c = 0; c < C; ++c) {
    for (std::int64_t y = 0; y < h; ++y) {
      const std::int64_t top = std::max<std::int64_t>(y - up, 0), bottom = std::min(y + down, h - 1);
      const std::int64_t rowsIn = bottom - top + 1;
      auto column = [&](std::int64_t x, std::uint32_t delta) {
        for (std::int64_t r = top; r <= bottom; ++r) {
          const T value = RowOf<T>(src, srb, static_cast<std::size_t>(r))[x * C + c];
          for (int t = 0; t < kTiers; ++t) tier[t][value >> (kBits - 4 * (t + 1))] += delta;
        }
      };
      const std::uint32_t add = 1, remove = ~0u;  // adding ~0 subtracts one
      for (std::int64_t x = 0; x <= std::min(right, w - 1); ++x) column(x, add);
      T* out = RowOf<T>(dst, drb, static_cast<std::size_t>(y));
      for (std::int64_t x = 0; x < w; ++x) {
        if (x > 0) {
          if (x - left - 1 >= 0) column(x - left - 1, remove);
          if (x + right < w) column(x + right, add);
        }
        const std::int64_t colsIn = std::min(x + right, w - 1) - std::max<std::int64_t>(x - left, 0) + 1;
        const std::int64_t zeros = total - colsIn * rowsIn;
        std::size_t bin = 0;
        if (middle >= zeros) {
          std::int64_t rank = middle - zeros;
          for (int t = 0; t < kTiers; ++t) {
            bin <<= 4;
            while (rank >= tier[t][bin]) rank -= tier[t][bin++];
          }
        }
        out[x * C + c] = static_cast<T>(bin);
      }
      for (std::int64_t x = std::max<std::int64_t>(w - 1 - left, 0); x < w; ++x) column(x, remove);
    }
  }
}

template <class T, int C>
int MedianLayout(const void* src, std::size_t srb, void* dst, std::size_t drb, std::uint32_t width,
                 std::uint32_t height, int mw, int mh) {
  if (mw % 2 == 0 || mh % 2 == 0) return kPrimitiveBadMask;
  if (mw == 1 && mh == 1) {
    for (std::size_t y = 0; y < height; ++y)
      std::memcpy(RowOf<T>(dst, drb, y), RowOf<T>(src, srb, y), static_cast<std::size_t>(width) * C * sizeof(T));
  } else if (mw == 3 && mh == 3) {
    MedianByNetwork<T, C, 3, kMedian9>(src, srb, dst, drb, width, height);
  } else if (mw == 5 && mh == 5) {
    MedianByNetwork<T, C, 5, kMedian25>(src, srb, dst, drb, width, height);
  } else {
    MedianByHistogram<T, C>(src, srb, dst, drb, width, height, mw, mh);
  }
  return kPrimitiveOk;
}

bool Usable(const void* source, const void* destination, std::uint32_t width, std::uint32_t height) {
  return source && destination && width > 0 && height > 0;
}

}  // namespace

int ConvolveBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                   std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height,
                   const std::int16_t* kernel, int kernelWidth, int kernelHeight, int divisor) {
  if (!Usable(source, destination, width, height) || !kernel || kernelWidth < 1 || kernelHeight < 1)
    return kPrimitiveBadSize;
  if (divisor == 0) return kPrimitiveBadDivisor;
  try {
    const ConvolutionPlan plan =
        PlanConvolution(SampleBytesOf(layout) == 1, kernel, kernelWidth, kernelHeight, divisor);
    return RunConvolution(layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, plan);
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

int MedianBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                 std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                 int maskHeight) {
  if (!Usable(source, destination, width, height) || maskWidth < 1 || maskHeight < 1) return kPrimitiveBadSize;
  try {
    return DispatchLayout(layout, [&]<class T, int C>() {
      return MedianLayout<T, C>(source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                                maskHeight);
    });
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

template <bool kMax>
static int Extremum(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                    std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                    int maskHeight) {
  if (!Usable(source, destination, width, height) || maskWidth < 1 || maskHeight < 1) return kPrimitiveBadSize;
  try {
    return DispatchLayout(layout, [&]<class T, int C>() {
      return ExtremumLayout<T, C, kMax>(source, sourceRowBytes, destination, destinationRowBytes, width, height,
                                        maskWidth, maskHeight);
    });
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

int MinimumBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                  std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                  int maskHeight) {
  return Extremum<false>(layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                         maskHeight);
}

int MaximumBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                  std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                  int maskHeight) {
  return Extremum<true>(layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                        maskHeight);
}

}  // namespace tarnvel
