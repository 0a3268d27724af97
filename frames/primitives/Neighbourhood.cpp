#include "frames/primitives/Neighbourhood.h"

#include <new>

#include "frames/primitives/ConvolutionPlan.h"
#include "frames/primitives/RankFilters.h"

namespace tarnvel {
namespace {

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
  if (maskWidth % 2 == 0 || maskHeight % 2 == 0) return kPrimitiveBadMask;
  try {
    RunMedian(layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth, maskHeight);
    return kPrimitiveOk;
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

static int Extremum(bool maximum, PixelLayout layout, const void* source, std::size_t sourceRowBytes,
                    void* destination, std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height,
                    int maskWidth, int maskHeight) {
  if (!Usable(source, destination, width, height) || maskWidth < 1 || maskHeight < 1) return kPrimitiveBadSize;
  try {
    RunExtremum(maximum, layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                maskHeight);
    return kPrimitiveOk;
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

int MinimumBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                  std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                  int maskHeight) {
  return Extremum(false, layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                  maskHeight);
}

int MaximumBorder(PixelLayout layout, const void* source, std::size_t sourceRowBytes, void* destination,
                  std::size_t destinationRowBytes, std::uint32_t width, std::uint32_t height, int maskWidth,
                  int maskHeight) {
  return Extremum(true, layout, source, sourceRowBytes, destination, destinationRowBytes, width, height, maskWidth,
                  maskHeight);
}

}  // namespace tarnvel
