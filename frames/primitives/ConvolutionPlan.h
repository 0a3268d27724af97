// How one convolution runs: the arithmetic that gives the exact result for
// the sample size and kernel, the taps that count, whether the kernel is a
// column times a row, and how the sum is divided.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "frames/primitives/Primitives.h"

namespace tarnvel {

// One coefficient in the order of summation: row j and column i of the
// window (the kernel already turned by 180 degrees).
struct PlanTap {
  std::int32_t row, column;
  double weight;
};

enum class SumArithmetic {
  Words,    // 8-bit samples, every partial sum fits 16 bits
  Floats,   // 8-bit samples with sums exact in float; 16-bit samples with float weights
  Doubles,  // 8-bit samples with larger sums
};

enum class QuotientBy {
  None,
  Shift,       // words: a divisor that is a power of two
  Multiply,    // words: the high half of the product with `multiplier`, then `shift`
  Reciprocal,  // floats: the product with the reciprocal, corrected by the exact remainder
  Divide,      // floats and doubles: a division
};

struct ConvolutionPlan {
  int kernelWidth = 0, kernelHeight = 0;
  int reachLeft = 0, reachUp = 0;  // (width - 1) / 2, (height - 1) / 2
  SumArithmetic arithmetic = SumArithmetic::Floats;
  // The whole window without its zero coefficients, row by row.
  std::vector<PlanTap> taps;
  // Integer sums only: a kernel that is a column times a row, as the column
  // (summed down first) and the row (summed across the column sums).
  bool separable = false;
  std::vector<PlanTap> down, across;
  QuotientBy quotient = QuotientBy::None;
  std::uint16_t multiplier = 0;
  std::uint32_t shift = 0;
  double divisor = 1;
};

// `kernel` holds kernelHeight rows of kernelWidth coefficients, as the
// operation gives them; `divisor` is not 0.
ConvolutionPlan PlanConvolution(bool byteSamples, const std::int16_t* kernel, int kernelWidth, int kernelHeight,
                                int divisor);

// Runs the plan on a frame; `destination` may be `source` itself, and must
// not overlap it otherwise.
int RunConvolution(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                   std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height,
                   const ConvolutionPlan& plan);

}  // namespace tarnvel
