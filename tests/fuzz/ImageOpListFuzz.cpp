// Arbitrary bytes as the "ImgOpList" section of a recording's profile: the
// loaded chain runs on small frames of every layout. The first byte picks
// the frame's size, the rest is the profile text.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "frames/ImageProcessor.h"
#include "frames/ReadImageOpList.h"

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  static const std::string folder = [] {
    const std::string f = "/tmp/tarnvel-fuzz-imgops-" + std::to_string(::getpid());
    std::filesystem::create_directories(f);
    return f;
  }();
  if (size == 0) return 0;
  const std::uint32_t width = 1 + data[0] % 13, height = 1 + (data[0] / 13) % 11;
  const std::string path = folder + "/_config.pgv";
  FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return 0;
  std::fputs("[ImgOpList]\n", file);
  std::fwrite(data + 1, 1, size - 1, file);
  std::fclose(file);

  tarnvel::CImageOpList list;
  tarnvel::ReadImageOpList(folder.c_str(), list);
  // Keep the work per input small: a chain of a thousand 99 x 99 masks is
  // legal but would only slow the search down.
  if (list.GetCount() > 16) return 0;
  tarnvel::ImageProcessor processor;
  for (std::uint32_t depth : {8u, 12u, 24u, 36u}) {
    processor.SetGeometry(width, height, depth);
    std::vector<std::uint8_t> frame(processor.FrameSize());
    for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<std::uint8_t>(data[i % size] * 31 + i);
    tarnvel::ApplyImageChain(processor, list, frame.data());
  }
  return 0;
}
