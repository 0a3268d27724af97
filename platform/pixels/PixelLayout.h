// The four pixel layouts that every frame of the converter is stored in, and
// the one place where a depth turns into a layout. Image processing, the
// overlay, the frame step and the image library all ask here.
//
// Depth is the number of bits per pixel over all channels:
//   1 to 8      8-bit grey     one byte
//   9 to 16     16-bit grey    one 16-bit word, value in the low `depth` bits
//   17 to 24    8-bit colour   three bytes: blue, green, red, each in the low
//                              depth / 3 bits
//   25 and up   16-bit colour  three 16-bit words: blue, green, red, each in
//                              the low depth / 3 bits
// Rows are tightly packed, top row first, unless a view says otherwise.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnvel {

enum class PixelLayout { Grey8, Grey16, Color8, Color16 };

constexpr PixelLayout LayoutOfDepth(std::uint32_t depth) {
  if (depth <= 8) return PixelLayout::Grey8;
  if (depth <= 16) return PixelLayout::Grey16;
  if (depth <= 24) return PixelLayout::Color8;
  return PixelLayout::Color16;
}

constexpr std::uint32_t ChannelsOf(PixelLayout layout) {
  return layout == PixelLayout::Grey8 || layout == PixelLayout::Grey16 ? 1 : 3;
}

constexpr std::uint32_t SampleBytesOf(PixelLayout layout) {
  return layout == PixelLayout::Grey8 || layout == PixelLayout::Color8 ? 1 : 2;
}

constexpr bool IsColour(std::uint32_t depth) { return ChannelsOf(LayoutOfDepth(depth)) == 3; }

constexpr std::uint32_t BytesPerPixel(std::uint32_t depth) {
  const PixelLayout layout = LayoutOfDepth(depth);
  return ChannelsOf(layout) * SampleBytesOf(layout);
}

// Bits that one channel holds: the depth for grey, depth / 3 for colour,
// never more than the sample can store.
constexpr std::uint32_t ChannelBits(std::uint32_t depth) {
  const PixelLayout layout = LayoutOfDepth(depth);
  std::uint32_t bits = ChannelsOf(layout) == 1 ? depth : depth / 3;
  const std::uint32_t storage = 8 * SampleBytesOf(layout);
  if (bits > storage) bits = storage;
  return bits == 0 ? 1 : bits;
}

// Full scale of a channel: 2 to the power ChannelBits, minus 1.
constexpr std::uint32_t FullScale(std::uint32_t depth) { return (1u << ChannelBits(depth)) - 1u; }

// An 8-bit channel value (a drawn bitmap's) at the channel depth of `depth`:
// shifted up by ChannelBits - 8, or down when the channel holds fewer bits.
constexpr std::uint32_t FromEightBits(std::uint32_t value, std::uint32_t depth) {
  const int shift = static_cast<int>(ChannelBits(depth)) - 8;
  return shift >= 0 ? value << shift : value >> -shift;
}

// Everything a writer or reader of files asks about a depth, in one record.
struct PixelFormat {
  PixelLayout layout = PixelLayout::Grey8;
  std::uint32_t channels = 1;       // 1 grey, 3 blue-green-red
  std::uint32_t sampleBytes = 1;    // 1 or 2
  std::uint32_t bytesPerPixel = 1;  // channels * sampleBytes
  std::uint32_t channelBits = 8;    // significant bits of one channel
};

constexpr PixelFormat FormatOfDepth(std::uint32_t depth) {
  const PixelLayout layout = LayoutOfDepth(depth);
  return {layout, ChannelsOf(layout), SampleBytesOf(layout), BytesPerPixel(depth), ChannelBits(depth)};
}

// Calls f.template operator()<Sample, Channels>() for the layout.
template <class F>
decltype(auto) DispatchLayout(PixelLayout layout, F&& f) {
  switch (layout) {
    case PixelLayout::Grey8: return f.template operator()<std::uint8_t, 1>();
    case PixelLayout::Grey16: return f.template operator()<std::uint16_t, 1>();
    case PixelLayout::Color8: return f.template operator()<std::uint8_t, 3>();
    case PixelLayout::Color16: break;
  }
  return f.template operator()<std::uint16_t, 3>();
}

}  // namespace tarnvel
