// What the image primitives share: the view type and layout rule they work
// in, their statuses and the row access of their loops.
// A primitive is written once as a template over the sample type and the
// channel count, and a view picks its instance once through DispatchLayout.
#pragma once

#include <cstddef>
#include <cstdint>

#include "platform/pixels/ImageView.h"
#include "platform/pixels/PixelLayout.h"

namespace tarnvel {

// Statuses of the primitives; callers of the processor drop them.
constexpr int kPrimitiveOk = 0;
constexpr int kPrimitiveNoMemory = -4;
constexpr int kPrimitiveBadSize = -6;
constexpr int kPrimitiveBadDivisor = -10;
constexpr int kPrimitiveBadMask = -33;
constexpr int kPrimitiveBadMethod = -34;

// Row access over a byte buffer with a row length in bytes.
template <class T>
inline T* RowOf(void* base, std::size_t rowBytes, std::size_t y) {
  return reinterpret_cast<T*>(static_cast<std::uint8_t*>(base) + y * rowBytes);
}
template <class T>
inline const T* RowOf(const void* base, std::size_t rowBytes, std::size_t y) {
  return reinterpret_cast<const T*>(static_cast<const std::uint8_t*>(base) + y * rowBytes);
}

}  // namespace tarnvel
