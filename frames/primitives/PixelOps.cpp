#include "frames/primitives/PixelOps.h"

#include <algorithm>
#include <cstring>
#include <vector>

namespace tarnvel {
namespace {

template <class T, int C>
TARNVEL_VECTOR_CLONES void Invert(void* frame, std::size_t rowBytes, std::uint32_t width, std::uint32_t height, const std::uint16_t* mask) {
  // A row of masks, so that the loop is a plain exclusive or of two arrays.
  std::vector<T> pattern(static_cast<std::size_t>(width) * C);
  for (std::size_t s = 0; s < pattern.size(); ++s) pattern[s] = static_cast<T>(mask[s % C]);
  for (std::size_t y = 0; y < height; ++y) {
    T* row = RowOf<T>(frame, rowBytes, y);
    for (std::size_t s = 0; s < pattern.size(); ++s) row[s] ^= pattern[s];
  }
}

template <class T, int C>
TARNVEL_VECTOR_CLONES void ReverseInto(const T* __restrict row, T* __restrict out, std::size_t width) {
  if constexpr (C == 1) {
    for (std::size_t x = 0; x < width; ++x) out[x] = row[width - 1 - x];
  } else {
    // A pixel of three samples moves as one block of bytes.
    for (std::size_t x = 0; x < width; ++x) std::memcpy(out + x * C, row + (width - 1 - x) * C, sizeof(T) * C);
  }
}

template <class T, int C>
void Mirror(void* frame, std::size_t rowBytes, std::uint32_t width, std::uint32_t height, int axis) {
  const std::size_t samples = static_cast<std::size_t>(width) * C;
  if (axis == 0) {
    std::vector<T> swap(samples);
    for (std::size_t top = 0, bottom = height - 1; top < bottom; ++top, --bottom) {
      T* a = RowOf<T>(frame, rowBytes, top);
      T* b = RowOf<T>(frame, rowBytes, bottom);
      std::memcpy(swap.data(), a, samples * sizeof(T));
      std::memcpy(a, b, samples * sizeof(T));
      std::memcpy(b, swap.data(), samples * sizeof(T));
    }
    return;
  }
  std::vector<T> reversed(samples);
  for (std::size_t y = 0; y < height; ++y) {
    T* row = RowOf<T>(frame, rowBytes, y);
    ReverseInto<T, C>(row, reversed.data(), width);
    std::memcpy(row, reversed.data(), samples * sizeof(T));
  }
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

}  // namespace tarnvel
