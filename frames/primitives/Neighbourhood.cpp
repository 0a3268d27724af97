#include "frames/primitives/Neighbourhood.h"

#include <new>

#include "frames/primitives/ConvolutionPlan.h"
#include "frames/primitives/RankFilters.h"

namespace tarnvel {
namespace {

// Both views hold pixels, of one size and one layout.
bool Usable(const ConstImageView& source, const ImageView& destination) {
  return !source.Empty() && !destination.Empty() && SameSize(source, destination) &&
         source.Layout() == destination.Layout();
}

template <class Run>
int Guarded(Run&& run) {
  try {
    return run();
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
}

int Extremum(bool maximum, ConstImageView source, ImageView destination, int maskWidth, int maskHeight) {
  if (!Usable(source, destination) || maskWidth < 1 || maskHeight < 1) return kPrimitiveBadSize;
  return Guarded([&] {
    RunExtremum(maximum, source.Layout(), source.data, source.rowBytes, destination.data, destination.rowBytes,
                source.width, source.height, maskWidth, maskHeight);
    return kPrimitiveOk;
  });
}

}  // namespace

int ConvolveBorder(ConstImageView source, ImageView destination, const std::int16_t* kernel, int kernelWidth,
                   int kernelHeight, int divisor) {
  if (!Usable(source, destination) || !kernel || kernelWidth < 1 || kernelHeight < 1) return kPrimitiveBadSize;
  if (divisor == 0) return kPrimitiveBadDivisor;
  return Guarded([&] {
    const ConvolutionPlan plan =
        PlanConvolution(SampleBytesOf(source.Layout()) == 1, kernel, kernelWidth, kernelHeight, divisor);
    return RunConvolution(source.Layout(), source.data, source.rowBytes, destination.data, destination.rowBytes,
                          source.width, source.height, plan);
  });
}

int MedianBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight) {
  if (!Usable(source, destination) || maskWidth < 1 || maskHeight < 1) return kPrimitiveBadSize;
  if (maskWidth % 2 == 0 || maskHeight % 2 == 0) return kPrimitiveBadMask;
  return Guarded([&] {
    RunMedian(source.Layout(), source.data, source.rowBytes, destination.data, destination.rowBytes, source.width,
              source.height, maskWidth, maskHeight);
    return kPrimitiveOk;
  });
}

int MinimumBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight) {
  return Extremum(false, source, destination, maskWidth, maskHeight);
}

int MaximumBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight) {
  return Extremum(true, source, destination, maskWidth, maskHeight);
}

}  // namespace tarnvel
