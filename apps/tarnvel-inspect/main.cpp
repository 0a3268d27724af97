// tarnvel-inspect: tells what an output file of the converter holds.
//
//   tarnvel-inspect FILE              type, geometry, depth, frames, and per
//                                     frame the main fields of its metadata block
//   tarnvel-inspect FILE --dump N OUT writes frame N's pixels raw to OUT
//
// Exit status: 0, 1 when the file cannot be read, 2 on a wrong command line.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"

namespace {

using tarnvel::framekit::DecodedFrame;

// Fields of the frame metadata block. Types 5 and 21 keep them big-endian.
struct BlockReader {
  const std::uint8_t* block;
  bool bigEndian;
  std::uint32_t U32(std::size_t at) const {
    std::uint32_t v = 0;
    for (int i = 0; i < 4; ++i)
      v |= std::uint32_t{block[at + (bigEndian ? 3 - i : i)]} << (8 * i);
    return v;
  }
  std::uint16_t U16(std::size_t at) const {
    return static_cast<std::uint16_t>(bigEndian ? (block[at] << 8) | block[at + 1]
                                                : block[at] | (block[at + 1] << 8));
  }
  std::string Text(std::size_t at, std::size_t width) const {
    std::string s;
    for (std::size_t i = 0; i < width && block[at + i] != 0; ++i)
      s += (block[at + i] >= 32 && block[at + i] < 127) ? static_cast<char>(block[at + i]) : '?';
    return s;
  }
};

void PrintBlock(std::uint32_t index, const DecodedFrame& frame, int fileType) {
  if (!frame.hasMetadata) {
    std::printf("frame %u: no metadata\n", index);
    return;
  }
  const auto* type = tarnvel::framekit::FindFileType(fileType);
  const BlockReader b{frame.metadata.data(),
                      type && type->metadata == tarnvel::framekit::MetadataPlacement::kInPixelsBigEndian};
  const std::uint8_t* d = frame.metadata.data();
  std::printf(
      "frame %u: magic=%s frameIndex=%d frameNumber16=%u trigger=%u date=20%02x-%02x-%02x "
      "time=%02x:%02x:%02x timeStatus=%u exposure=%u temperature=%u device=\"%s\" recording=\"%s\" "
      "serial=%u width=%u height=%u period=%u rate=%u model=%u subModel=%u endMark=%s\n",
      index, b.Text(0, 8).c_str(), static_cast<std::int32_t>(b.U32(280)), b.U16(30), d[32], d[38], d[37],
      d[36], d[35], d[34], d[33], d[17], b.U32(119), b.U32(123), b.Text(128, 51).c_str(),
      b.Text(179, 51).c_str(), b.U32(231), b.U16(235), b.U16(237), b.U32(284), b.U32(815), b.U16(1011),
      b.U16(1013), b.Text(1020, 4).c_str());
}

int Usage() {
  std::fprintf(stderr, "usage: tarnvel-inspect FILE [--dump N OUT]\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc != 2 && argc != 5) return Usage();
  if (argc == 5 && std::strcmp(argv[2], "--dump") != 0) return Usage();
  int result = 0;
  auto file = tarnvel::framekit::OpenImageFile(argv[1], &result);
  if (!file) {
    std::fprintf(stderr, "%s: %s (%d)\n", argv[1], tarnvel::FrameKitResultText(result), result);
    return 1;
  }
  const auto& info = file->Info();
  DecodedFrame frame;
  if (argc == 5) {
    char* end = nullptr;
    const unsigned long n = std::strtoul(argv[3], &end, 10);
    if (end == argv[3] || *end != '\0') return Usage();
    if (n >= info.frameCount || (result = file->ReadFrame(static_cast<std::uint32_t>(n), frame)) != 0) {
      std::fprintf(stderr, "%s: frame %lu: %s\n", argv[1], n,
                   n >= info.frameCount ? "no such frame" : tarnvel::FrameKitResultText(result));
      return 1;
    }
    FILE* out = std::fopen(argv[4], "wb");
    const bool ok = out && std::fwrite(frame.pixels.data(), 1, frame.pixels.size(), out) == frame.pixels.size();
    if (out && std::fclose(out) != 0) return 1;
    if (!ok) {
      std::fprintf(stderr, "%s: cannot write\n", argv[4]);
      return 1;
    }
    return 0;
  }
  const auto* type = tarnvel::framekit::FindFileType(info.fileType);
  std::printf("type %d (%s)\nwidth %u\nheight %u\nbits %u\ncolorKind %u\nmosaic %u order %u\nrate %g\nframes %u\n",
              info.fileType, type ? type->extension : "?", info.width, info.height, info.bits, info.colorKind,
              info.mosaic, info.mosaicOrder, static_cast<double>(info.rate), info.frameCount);
  int status = 0;
  for (std::uint32_t i = 0; i < info.frameCount; ++i) {
    if ((result = file->ReadFrame(i, frame)) != 0) {
      std::printf("frame %u: unreadable: %s\n", i, tarnvel::FrameKitResultText(result));
      status = 1;
      continue;
    }
    PrintBlock(i, frame, info.fileType);
  }
  return status;
}
