#include "frames/primitives/PixelOps.h"

#include <algorithm>
#include <limits>
#include <utility>

#define TARNVEL_SIMD_KERNELS "frames/primitives/PixelOpsKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

// The smallest value of a row never counts above this, whatever the depth.
constexpr std::uint32_t kRowReferenceCeiling = 1000;

template <class T, int C>
void Invert(void* frame, std::size_t rowBytes, std::uint32_t width, std::uint32_t height, const std::uint16_t* mask) {
  TARNVEL_SIMD_RETURN(InvertRows<T, C>(frame, rowBytes, width, height, mask));
}

template <class T, int C>
void Mirror(void* frame, std::size_t rowBytes, std::uint32_t width, std::uint32_t height, int axis) {
  TARNVEL_SIMD_RETURN(MirrorRows<T, C>(frame, rowBytes, width, height, axis));
}

template <class T>
void SubtractReferences(void* frame, std::size_t rowBytes, std::uint32_t width, std::uint32_t height, bool smallest,
                        std::int32_t column) {
  const T ceiling = static_cast<T>(std::min<std::uint32_t>(kRowReferenceCeiling, std::numeric_limits<T>::max()));
  TARNVEL_SIMD_RETURN(SubtractRowReferences<T>(frame, rowBytes, width, height, smallest, column, ceiling));
}

}  // namespace

int InvertInPlace(ImageView frame, const std::uint16_t mask[3]) {
  if (frame.Empty() || !mask) return kPrimitiveBadSize;
  DispatchLayout(frame.Layout(), [&]<class T, int C>() {
    Invert<T, C>(frame.data, frame.rowBytes, frame.width, frame.height, mask);
  });
  return kPrimitiveOk;
}

int MirrorInPlace(ImageView frame, int axis) {
  if (frame.Empty()) return kPrimitiveBadSize;
  if (axis != 0 && axis != 1) return kPrimitiveBadMask;
  DispatchLayout(frame.Layout(), [&]<class T, int C>() {
    Mirror<T, C>(frame.data, frame.rowBytes, frame.width, frame.height, axis);
  });
  return kPrimitiveOk;
}

int SubtractRowReferenceInPlace(ImageView frame, std::int32_t mode, std::int32_t column) {
  if (frame.Empty() || IsColour(frame.depth)) return kPrimitiveBadSize;
  if (frame.Layout() == PixelLayout::Grey8)
    SubtractReferences<std::uint8_t>(frame.data, frame.rowBytes, frame.width, frame.height, mode == 0, column);
  else
    SubtractReferences<std::uint16_t>(frame.data, frame.rowBytes, frame.width, frame.height, mode == 0, column);
  return kPrimitiveOk;
}

}  // namespace tarnvel
