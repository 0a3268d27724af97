// Convolution: the plan of the sums, and the kernels that run it.
#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdlib>
#include <limits>
#include <numeric>
#include <type_traits>
#include <vector>

#include "frames/primitives/ConvolutionPlan.h"
#include "frames/primitives/Neighbourhood.h"

#define TARNVEL_SIMD_KERNELS "frames/primitives/ConvolutionKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

std::vector<PlanTap> NonZero(const std::vector<std::int64_t>& weights, int width) {
  std::vector<PlanTap> taps;
  for (std::size_t t = 0; t < weights.size(); ++t)
    if (weights[t] != 0)
      taps.push_back({static_cast<std::int32_t>(t / width), static_cast<std::int32_t>(t % width),
                      static_cast<double>(weights[t])});
  return taps;
}

// A kernel of whole numbers that is a column u times a row v (w[j][i] =
// u[j] * v[i]) is summed down the column first and across the row after:
// fewer products, and integer sums do not depend on their order.
void SplitIfSeparable(const std::vector<std::int64_t>& w, int width, int height, ConvolutionPlan& plan) {
  const auto first = std::find_if(w.begin(), w.end(), [](std::int64_t x) { return x != 0; });
  if (first == w.end()) return;
  const int r0 = static_cast<int>((first - w.begin()) / width);
  // The row, divided by the greatest common divisor of its entries, so that
  // every column factor is a whole number.
  std::int64_t g = 0;
  for (int i = 0; i < width; ++i) g = std::gcd(g, w[r0 * width + i]);
  std::vector<std::int64_t> v(width), u(height);
  for (int i = 0; i < width; ++i) v[i] = w[r0 * width + i] / g;
  const int c0 = static_cast<int>(std::find_if(v.begin(), v.end(), [](std::int64_t x) { return x != 0; }) - v.begin());
  for (int j = 0; j < height; ++j) {
    if (w[j * width + c0] % v[c0] != 0) return;
    u[j] = w[j * width + c0] / v[c0];
    for (int i = 0; i < width; ++i)
      if (w[j * width + i] != u[j] * v[i]) return;
  }
  const auto down = NonZero(u, 1), across = NonZero(v, width);
  if (down.size() + across.size() >= plan.taps.size()) return;
  plan.separable = true;
  plan.down = down;
  plan.across = across;
}

void PlanQuotient(std::int64_t absSum, int divisor, ConvolutionPlan& plan) {
  plan.divisor = divisor;
  if (divisor == 1) return;
  if (plan.arithmetic == SumArithmetic::Words) {
    const std::uint32_t d = static_cast<std::uint32_t>(divisor);
    plan.shift = static_cast<std::uint32_t>(std::bit_width(d) - 1);
    if (std::has_single_bit(d)) {
      plan.quotient = QuotientBy::Shift;
      return;
    }
    // For sums n below 2^15 and d not a power of two, with s = floor(log2 d)
    // and m = ceil(2^(16 + s) / d) < 2^16: the error e = m d - 2^(16 + s) is
    // below d < 2^(s + 1), so n e / (d 2^(16 + s)) < 1 / d, and
    // floor(n m / 2^(16 + s)) = floor(n / d).
    plan.quotient = QuotientBy::Multiply;
    plan.multiplier = static_cast<std::uint16_t>(((std::uint64_t{1} << (16 + plan.shift)) + d - 1) / d);
    return;
  }
  const bool byReciprocal = plan.arithmetic == SumArithmetic::Floats && divisor >= 2 && divisor <= 4096 &&
                            absSum * 255 < (std::int64_t{1} << 23);
  plan.quotient = byReciprocal ? QuotientBy::Reciprocal : QuotientBy::Divide;
}

}  // namespace

ConvolutionPlan PlanConvolution(bool byteSamples, const std::int16_t* kernel, int kernelWidth, int kernelHeight,
                                int divisor) {
  ConvolutionPlan plan;
  plan.kernelWidth = kernelWidth;
  plan.kernelHeight = kernelHeight;
  plan.reachLeft = (kernelWidth - 1) / 2;
  plan.reachUp = (kernelHeight - 1) / 2;
  const std::size_t count = static_cast<std::size_t>(kernelWidth) * static_cast<std::size_t>(kernelHeight);
  // Weights in the order the sum walks the window: the kernel turned by 180 degrees.
  std::vector<std::int64_t> w(count);
  std::int64_t absSum = 0;
  for (std::size_t t = 0; t < count; ++t) {
    w[t] = kernel[count - 1 - t];
    absSum += std::abs(w[t]);
  }
  plan.taps = NonZero(w, kernelWidth);
  if (!byteSamples) {
    // Each coefficient divided by the divisor in double, kept as a float.
    for (PlanTap& t : plan.taps) t.weight = static_cast<float>(t.weight / static_cast<double>(divisor));
    // With a divisor of a power of two and 65,535 times the sum of the
    // magnitudes below 2^24, every product and partial sum is a multiple of
    // 1 / |divisor| that float holds exactly, in any order: a column times a
    // row may then be summed down first, the division left to the row.
    if (std::has_single_bit(static_cast<std::uint64_t>(std::abs(static_cast<std::int64_t>(divisor)))) &&
        absSum * 65535 < (std::int64_t{1} << 24)) {
      SplitIfSeparable(w, kernelWidth, kernelHeight, plan);
      for (PlanTap& t : plan.across) t.weight /= divisor;
    }
    return plan;
  }
  // Byte samples have integer semantics. A sum of products is exact in 16
  // bits while 255 times the sum of the magnitudes stays below 2^15, in
  // float below 2^24 (and a float quotient of such a sum is cut to the same
  // integer as the integer quotient), in double for every sum that 16-bit
  // coefficients can make.
  if (absSum * 255 < (std::int64_t{1} << 15) && divisor >= 1 && divisor <= 4096) plan.arithmetic = SumArithmetic::Words;
  else if (absSum * 255 < (std::int64_t{1} << 24)) plan.arithmetic = SumArithmetic::Floats;
  else plan.arithmetic = SumArithmetic::Doubles;
  SplitIfSeparable(w, kernelWidth, kernelHeight, plan);
  PlanQuotient(absSum, divisor, plan);
  return plan;
}

int RunConvolution(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                   std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height,
                   const ConvolutionPlan& plan) {
  DispatchLayout(layout, [&]<class T, int C>() {
    [&]() {
      TARNVEL_SIMD_RETURN(ConvolveFrame<T, C>(source, sourceRowBytes, destination, destinationRowBytes, width,
                                              height, plan));
    }();
  });
  return kPrimitiveOk;
}

}  // namespace tarnvel
