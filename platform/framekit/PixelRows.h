// The small pixel moves that the file formats need: swapping blue and red,
// and 16-bit byte order. How a depth lies in memory is the one rule of
// platform/pixels/PixelLayout.h.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "platform/framekit/FrameHeader.h"
#include "platform/pixels/PixelLayout.h"

namespace tarnvel::framekit {

// The depth of the pixels as they lie in the buffer: a mosaic frame is one
// plane of a third of the header's depth.
constexpr std::uint32_t StoredDepth(const FrameHeader& header) {
  return header.mosaic ? header.bits / 3 : header.bits;
}

// Depths a type takes: grey 1 to 8 and colour 18, 21, 24 always; with deep
// output also grey 9 to 16 and colour 27 to 48. Colour depths are multiples of 3.
constexpr bool DepthAllowed(std::uint32_t bits, bool deep) {
  if (bits >= 1 && bits <= 8) return true;
  if (bits >= 9 && bits <= 16) return deep;
  if (bits < 18 || bits > 48 || bits % 3 != 0) return false;
  return bits <= 24 || deep;
}

inline std::uint16_t LoadU16(const std::uint8_t* p) {
  std::uint16_t v;
  std::memcpy(&v, p, 2);
  return v;
}

// Copies `pixels` pixels of `Channels` samples of type T, reversing the channel
// order when there are three (blue-green-red <-> red-green-blue), and turning
// 16-bit samples to big-endian when asked.
template <typename T, int Channels, bool BigEndian>
void CopyPixels(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels) {
  const T* s = reinterpret_cast<const T*>(src);
  T* d = reinterpret_cast<T*>(dst);
  for (std::size_t i = 0; i < pixels; ++i, s += Channels, d += Channels) {
    for (int c = 0; c < Channels; ++c) {
      T v = s[Channels == 3 ? 2 - c : c];
      if constexpr (BigEndian && sizeof(T) == 2) v = static_cast<T>((v >> 8) | (v << 8));
      d[c] = v;
    }
  }
}

// One row in file order: red first (when `rgb`), big-endian words (when `bigEndian`).
inline void ConvertRow(const std::uint8_t* src, std::uint8_t* dst, std::size_t pixels,
                       const PixelFormat& layout, bool rgb, bool bigEndian) {
  const bool swapChannels = rgb && layout.channels == 3;
  const bool swapBytes = bigEndian && layout.sampleBytes == 2;
  if (!swapChannels && !swapBytes) {
    std::memcpy(dst, src, pixels * layout.bytesPerPixel);
  } else if (layout.sampleBytes == 1) {
    CopyPixels<std::uint8_t, 3, false>(src, dst, pixels);
  } else if (layout.channels == 1) {
    CopyPixels<std::uint16_t, 1, true>(src, dst, pixels);
  } else if (swapChannels && swapBytes) {
    CopyPixels<std::uint16_t, 3, true>(src, dst, pixels);
  } else if (swapChannels) {
    CopyPixels<std::uint16_t, 3, false>(src, dst, pixels);
  } else {
    CopyPixels<std::uint16_t, 1, true>(src, dst, pixels * 3);
  }
}

}  // namespace tarnvel::framekit
