// Feeds arbitrary bytes to the image readers as a file, as a logo or
// background would come: description first, then the pixels with the row
// length the description asks for, with and without padding. An input that
// starts with 'T' is taken as a TGA file (the rest of it), since TGA has no
// signature and is known by its extension.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <string>
#include <vector>

#include "platform/framekit/FrameKit.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string base = "/tmp/tarnvel-fuzz-image-" + std::to_string(::getpid());
  const bool tga = size > 0 && data[0] == 'T';
  const std::string path = base + (tga ? ".tga" : ".img");
  if (tga) {
    ++data;
    --size;
  }
  FILE* f = std::fopen(path.c_str(), "wb");
  if (!f) return 0;
  std::fwrite(data, 1, size, f);
  std::fclose(f);
  tarnvel::ImageInfo info{};
  if (tarnvel::GetImageInfo(path.c_str(), &info) != 0) return 0;
  const std::uint32_t channelBytes = info.bits <= 8 ? 1 : info.bits <= 16 ? 2 : info.bits <= 24 ? 3 : 6;
  const std::uint32_t alpha = info.colorKind >= tarnvel::kColorKindGreyAlpha ? 1 : 0;
  if (std::uint64_t{info.width} * info.height * (channelBytes + alpha) > (64u << 20)) return 0;
  for (const std::uint32_t width : {info.width, (info.width + 3) & ~3u}) {
    const std::uint32_t rowLength = (channelBytes + alpha) * width;
    std::vector<std::uint8_t> buffer(std::size_t{rowLength} * info.height);
    tarnvel::LoadImage(path.c_str(), 0, rowLength, info.height, buffer.data(), 0);
  }
  return 0;
}
