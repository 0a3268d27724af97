// Convolution kernels, compiled once per vector level (see SimdTargets.h).

#include "frames/primitives/RowWindow-inl.h"

template <class Acc>
struct KernelTap {
  std::size_t row, offset;  // window row, samples from the row's start
  Acc weight;
};

// out[s] = sum over taps in their order of rows[row][s + offset] * weight.
// Four vectors of sums at a time hide the latency of the adds; every sample
// adds its products in the same order whatever the blocking.
template <class Acc>
void SumTaps(const Acc* const* rows, const KernelTap<Acc>* taps, std::size_t count, std::size_t samples, Acc* out) {
  using V = Vec<Acc>;
  constexpr std::size_t L = kLanes<Acc>;
  static_assert(4 * L <= kSlack);
  for (std::size_t s = 0; s < samples; s += 4 * L) {
    V a0 = {}, a1 = {}, a2 = {}, a3 = {};
    for (std::size_t t = 0; t < count; ++t) {
      const Acc* p = rows[taps[t].row] + taps[t].offset + s;
      const V w = V{} + taps[t].weight;
      a0 += Load(p) * w;
      a1 += Load(p + L) * w;
      a2 += Load(p + 2 * L) * w;
      a3 += Load(p + 3 * L) * w;
    }
    Store(out + s, a0);
    Store(out + s + L, a1);
    Store(out + s + 2 * L, a2);
    Store(out + s + 3 * L, a3);
  }
}

// 16-bit sums of byte samples: negative sums become 0, the quotient is cut
// toward zero and saturated to 255. `acc` has slack behind the row.
inline void FinishWords(const std::int16_t* acc, std::uint8_t* out, std::size_t samples, const ConvolutionPlan& plan) {
  using W = Vec<std::int16_t>;
  using U = Vec<std::uint16_t>;
  constexpr std::size_t L = kLanes<std::int16_t>;
  using Bytes = Vec<std::uint8_t, L>;
  const U multiplier = U{} + plan.multiplier, top = U{} + 255;
  const std::uint32_t shift = plan.shift;
  for (std::size_t s = 0; s < samples; s += L) {
    U u = reinterpret_cast<U>(Max(Load(acc + s), W{}));
    if (plan.quotient == QuotientBy::Multiply) u = MulHighU16(u, multiplier) >> shift;
    else if (plan.quotient == QuotientBy::Shift) u = u >> shift;
    const Bytes b = __builtin_convertvector(Min(u, top), Bytes);
    if (s + L <= samples) Store(out + s, b);
    else StorePart(out + s, b, samples - s);
  }
}

// Float sums: cut toward zero, negative to 0, saturated to the sample's
// range. `acc` has slack behind the row.
template <class T>
void FinishFloats(const float* acc, T* out, std::size_t samples, const ConvolutionPlan& plan) {
  using V = Vec<float>;
  constexpr std::size_t L = kLanes<float>;
  using VI = Vec<std::int32_t>;
  using Narrow = Vec<T, L * sizeof(T)>;
  const V zero = {}, one = V{} + 1.0f, top = V{} + static_cast<float>(std::numeric_limits<T>::max());
  const float d = static_cast<float>(plan.divisor);
  const V by = V{} + d, reciprocal = V{} + 1.0f / d;
  for (std::size_t s = 0; s < samples; s += L) {
    V q = Load(acc + s);
    if (plan.quotient == QuotientBy::Reciprocal) {
      // Whole sums below 2^23 and divisors of 2 to 4,096: the product with
      // the reciprocal is within one of the quotient, and the remainder,
      // exact in float, settles which.
      V whole = __builtin_convertvector(__builtin_convertvector(q * reciprocal, VI), V);
      const V remainder = q - whole * by;
      whole = remainder >= by ? whole + one : whole;
      q = remainder < zero ? whole - one : whole;
    } else if (plan.quotient == QuotientBy::Divide) {
      q = q / by;
    }
    // Within the range the conversions below are exact: cut to whole
    // numbers, then narrowed in steps of halves.
    const VI whole = __builtin_convertvector(Min(Max(q, zero), top), VI);
    Narrow n;
    if constexpr (sizeof(T) == 2) n = __builtin_convertvector(whole, Narrow);
    else n = __builtin_convertvector(__builtin_convertvector(whole, Vec<std::uint16_t, 2 * L>), Narrow);
    if (s + L <= samples) Store(out + s, n);
    else StorePart(out + s, n, samples - s);
  }
}

template <class T>
void FinishDoubles(const double* acc, T* out, std::size_t samples, const ConvolutionPlan& plan) {
  constexpr double kTop = std::numeric_limits<T>::max();
  for (std::size_t s = 0; s < samples; ++s) {
    const double q = plan.quotient == QuotientBy::Divide ? acc[s] / plan.divisor : acc[s];
    out[s] = !(q > 0) ? T{0} : q >= kTop ? std::numeric_limits<T>::max() : static_cast<T>(static_cast<std::int32_t>(q));
  }
}

template <class Acc>
std::vector<KernelTap<Acc>> KernelTaps(const std::vector<PlanTap>& taps, std::size_t channels) {
  std::vector<KernelTap<Acc>> out;
  for (const PlanTap& t : taps)
    out.push_back({static_cast<std::size_t>(t.row), static_cast<std::size_t>(t.column) * channels,
                   static_cast<Acc>(t.weight)});
  return out;
}

// Each result row is written after every row of its window was read into
// the padded rows, so `destination` may be `source` itself.
template <class T, int C, class Acc>
void ConvolveWith(const void* src, std::size_t srb, void* dst, std::size_t drb, std::size_t width, std::size_t height,
                  const ConvolutionPlan& plan) {
  const std::size_t kw = static_cast<std::size_t>(plan.kernelWidth), kh = static_cast<std::size_t>(plan.kernelHeight);
  const std::size_t samples = width * C;
  PaddedRows<Acc> rows(samples, static_cast<std::size_t>(plan.reachLeft) * C,
                       (kw - 1 - static_cast<std::size_t>(plan.reachLeft)) * C, kh);
  const auto taps = KernelTaps<Acc>(plan.taps, C), down = KernelTaps<Acc>(plan.down, C);
  const auto across = KernelTaps<Acc>(plan.across, C);
  std::vector<const Acc*> window(kh);
  std::vector<Acc> acc(samples + kSlack), between(rows.PaddedSamples() + 2 * kSlack);
  const Acc* columnSums = between.data();
  for (std::size_t y = 0; y < height; ++y) {
    for (std::size_t j = 0; j < kh; ++j)
      window[j] = rows.template Get<T>(src, srb, static_cast<std::int64_t>(y + j) - plan.reachUp,
                                       static_cast<std::int64_t>(height));
    if (plan.separable) {
      SumTaps(window.data(), down.data(), down.size(), rows.PaddedSamples(), between.data());
      SumTaps(&columnSums, across.data(), across.size(), samples, acc.data());
    } else {
      SumTaps(window.data(), taps.data(), taps.size(), samples, acc.data());
    }
    T* out = RowOf<T>(dst, drb, y);
    if constexpr (std::is_same_v<Acc, std::int16_t>) FinishWords(acc.data(), out, samples, plan);
    else if constexpr (std::is_same_v<Acc, float>) FinishFloats(acc.data(), out, samples, plan);
    else FinishDoubles(acc.data(), out, samples, plan);
  }
}

template <class T, int C>
void ConvolveFrame(const void* src, std::size_t srb, void* dst, std::size_t drb, std::size_t width,
                   std::size_t height, const ConvolutionPlan& plan) {
  if constexpr (sizeof(T) == 1) {
    if (plan.arithmetic == SumArithmetic::Words)
      return ConvolveWith<T, C, std::int16_t>(src, srb, dst, drb, width, height, plan);
    if (plan.arithmetic == SumArithmetic::Doubles)
      return ConvolveWith<T, C, double>(src, srb, dst, drb, width, height, plan);
  }
  ConvolveWith<T, C, float>(src, srb, dst, drb, width, height, plan);
}
