// Arbitrary bytes as the "ImgOpList" section of a recording's profile: the
// loaded chain runs on small frames of every layout. The first byte picks
// the frame's size, the rest is the profile text; the last bytes also give
// the parameters of a depth conversion, a cross, a grid and a fitted image.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <filesystem>
#include <string>
#include <vector>

#include "frames/ImageProcessor.h"
#include "frames/ReadImageOpList.h"
#include "frames/primitives/Primitives.h"

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

    // The same bytes as parameters of the steps that follow the chain.
    auto param = [&](std::size_t i) { return static_cast<std::int32_t>(data[(size - 1 - i) % size]); };
    const std::uint32_t target = 1 + param(1) % 50;
    std::vector<std::uint8_t> converted(width * height * tarnvel::BytesPerPixel(target));
    processor.ConvertDepth(depth, target, param(2) % 12, width, height, frame.data(), converted.data());
    processor.ConvertDepth(depth, target, param(2) % 12, width, height, frame.data(), nullptr);
    const std::int32_t top = param(3) % 4;
    std::vector<std::uint8_t> barred(processor.FrameSize() / height * (height + top));
    processor.DrawCross(barred.data(), param(4) - 20, param(5) - 20, top, top + param(6) % (height + 2),
                        0x10203u * param(7));
    processor.DrawGrid(barred.data(), param(8) - 3, param(9) - 3, top, top + param(6) % (height + 2), 0xFFFFFFu);
    const std::uint32_t logoWidth = 1 + param(10) % 9, logoHeight = 1 + param(11) % 9, logoDepth = 1 + param(12) % 48;
    std::vector<std::uint8_t> logo(logoWidth * logoHeight * tarnvel::BytesPerPixel(logoDepth), 0x5A);
    processor.FitImage(logoWidth, logoHeight, logoDepth, logo.data(), frame.data());
  }
  return 0;
}
