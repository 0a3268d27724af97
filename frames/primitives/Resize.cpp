#include "frames/primitives/Resize.h"

#include <cmath>
#include <limits>
#include <new>

#define TARNVEL_SIMD_KERNELS "frames/primitives/ResizeKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

constexpr double kPi = 3.14159265358979323846;

double Sinc(double x) {
  if (x == 0) return 1.0;
  const double px = kPi * x;
  return std::sin(px) / px;
}

std::uint32_t TapsOf(ResizeKernel kernel) { return kernel == ResizeKernel::CubicBSpline ? 4 : 6; }

void BuildAxis(ResizeKernel kernel, std::uint32_t sourceSize, std::uint32_t destinationSize,
               std::vector<std::uint32_t>& index, std::vector<float>& weight) {
  const std::uint32_t taps = TapsOf(kernel);
  const std::int64_t radius = taps / 2;
  index.resize(static_cast<std::size_t>(destinationSize) * taps);
  weight.resize(index.size());
  const double scale = static_cast<double>(sourceSize) / destinationSize;
  for (std::uint32_t d = 0; d < destinationSize; ++d) {
    const double centre = (d + 0.5) * scale - 0.5;
    const std::int64_t base = static_cast<std::int64_t>(std::floor(centre)) - (radius - 1);
    double w[6], sum = 0;
    for (std::uint32_t t = 0; t < taps; ++t) {
      w[t] = ResizeKernelWeight(kernel, centre - static_cast<double>(base + t));
      sum += w[t];
    }
    for (std::uint32_t t = 0; t < taps; ++t) {
      const std::int64_t i = base + t;
      const std::int64_t clamped = i < 0 ? 0 : (i >= sourceSize ? sourceSize - 1 : i);
      index[static_cast<std::size_t>(d) * taps + t] = static_cast<std::uint32_t>(clamped);
      weight[static_cast<std::size_t>(d) * taps + t] = static_cast<float>(w[t] / sum);
    }
  }
}

template <class T, int C>
void ResizeLayout(const ResizeDescription& desc, const void* src, std::size_t srb, void* dst, std::size_t drb,
                  float* between) {
  if (desc.taps == 4) TARNVEL_SIMD_RETURN(ResizeRows<T, C, 4>(desc, src, srb, dst, drb, between));
  TARNVEL_SIMD_RETURN(ResizeRows<T, C, 6>(desc, src, srb, dst, drb, between));
}

}  // namespace

double ResizeKernelWeight(ResizeKernel kernel, double distance) {
  const double x = std::fabs(distance);
  if (kernel == ResizeKernel::CubicBSpline) {
    if (x < 1) return (3 * x * x * x - 6 * x * x + 4) / 6;
    if (x < 2) return (2 - x) * (2 - x) * (2 - x) / 6;
    return 0;
  }
  return x < 3 ? Sinc(x) * Sinc(x / 3) : 0;
}

int MakeResizeDescription(ResizeKernel kernel, PixelLayout layout, std::uint32_t sourceWidth,
                          std::uint32_t sourceHeight, std::uint32_t destinationWidth, std::uint32_t destinationHeight,
                          std::unique_ptr<ResizeDescription>& description) {
  description.reset();
  if (sourceWidth == 0 || sourceHeight == 0 || destinationWidth == 0 || destinationHeight == 0)
    return kPrimitiveBadSize;
  try {
    auto made = std::make_unique<ResizeDescription>();
    made->kernel = kernel;
    made->layout = layout;
    made->sourceWidth = sourceWidth;
    made->sourceHeight = sourceHeight;
    made->destinationWidth = destinationWidth;
    made->destinationHeight = destinationHeight;
    made->taps = TapsOf(kernel);
    BuildAxis(kernel, sourceWidth, destinationWidth, made->columnIndex, made->columnWeight);
    BuildAxis(kernel, sourceHeight, destinationHeight, made->rowIndex, made->rowWeight);
    description = std::move(made);
  } catch (const std::bad_alloc&) {
    return kPrimitiveNoMemory;
  }
  return kPrimitiveOk;
}

std::size_t ResizeScratchBytes(const ResizeDescription& d) {
  // The rows resampled across, and one row of sums for the pass down.
  return (static_cast<std::size_t>(d.sourceHeight) + 1) * d.destinationWidth * ChannelsOf(d.layout) * sizeof(float);
}

int Resize(const ResizeDescription& description, ConstImageView source, ImageView destination, void* scratch) {
  if (source.Empty() || destination.Empty() || !scratch) return kPrimitiveBadSize;
  // The views must be those the description was made for.
  if (source.width != description.sourceWidth || source.height != description.sourceHeight ||
      destination.width != description.destinationWidth || destination.height != description.destinationHeight ||
      source.Layout() != description.layout || destination.Layout() != description.layout)
    return kPrimitiveBadSize;
  DispatchLayout(description.layout, [&]<class T, int C>() {
    ResizeLayout<T, C>(description, source.data, source.rowBytes, destination.data, destination.rowBytes,
                       static_cast<float*>(scratch));
  });
  return kPrimitiveOk;
}

}  // namespace tarnvel
