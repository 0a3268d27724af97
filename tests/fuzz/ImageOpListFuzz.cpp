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
    std::vector<std::uint8_t> frame(tarnvel::PackedBytes(width, height, depth));
    const tarnvel::ImageView view = tarnvel::PackedView(frame.data(), width, height, depth);
    for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<std::uint8_t>(data[i % size] * 31 + i);
    tarnvel::ApplyImageChain(processor, list, view);

    // The same bytes as parameters of the steps that follow the chain.
    auto param = [&](std::size_t i) { return static_cast<std::int32_t>(data[(size - 1 - i) % size]); };
    const std::uint32_t target = 1 + param(1) % 50;
    std::vector<std::uint8_t> converted(width * height * tarnvel::BytesPerPixel(target));
    tarnvel::ConvertDepth(view, tarnvel::PackedView(converted.data(), width, height, target),
                          static_cast<std::uint32_t>(param(2) % 12));
    const std::uint32_t top = static_cast<std::uint32_t>(param(3) % 4);
    std::vector<std::uint8_t> barred(tarnvel::PackedBytes(width, height + top, depth));
    const tarnvel::ImageView barredView = tarnvel::PackedView(barred.data(), width, height + top, depth);
    const std::int32_t bottom = static_cast<std::int32_t>(top) + param(6) % static_cast<std::int32_t>(height + 2);
    tarnvel::DrawCross(barredView, param(4) - 20, param(5) - 20, static_cast<std::int32_t>(top), bottom,
                       0x10203u * static_cast<std::uint32_t>(param(7)));
    tarnvel::DrawGrid(barredView, param(8) - 3, param(9) - 3, static_cast<std::int32_t>(top), bottom, 0xFFFFFFu);
    const std::uint32_t logoWidth = 1 + param(10) % 9, logoHeight = 1 + param(11) % 9, logoDepth = 1 + param(12) % 48;
    std::vector<std::uint8_t> logo(logoWidth * logoHeight * tarnvel::BytesPerPixel(logoDepth), 0x5A);
    tarnvel::FitImage(tarnvel::PackedView(logo.data(), logoWidth, logoHeight, logoDepth), view);
  }
  return 0;
}
