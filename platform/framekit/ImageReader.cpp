#include "platform/framekit/ImageReader.h"

#include <cstring>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/PixelRows.h"

namespace tarnvel::framekit {

int ReadWholeFile(const std::string& path, std::vector<std::uint8_t>& data) {
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kFkReadFailed;
  struct stat st {};
  int result = 0;
  if (::fstat(fd, &st) != 0 || !S_ISREG(st.st_mode)) {
    result = kFkReadFailed;
  } else if (static_cast<std::uint64_t>(st.st_size) > kMaxImageBytes + (64u << 20)) {
    result = kFkImageTooLarge;
  } else {
    data.resize(static_cast<std::size_t>(st.st_size));
    std::size_t done = 0;
    while (done < data.size()) {
      const ssize_t n = ::read(fd, data.data() + done, data.size() - done);
      if (n <= 0) break;
      done += static_cast<std::size_t>(n);
    }
    data.resize(done);
  }
  ::close(fd);
  return result;
}

int CheckGeometry(std::uint64_t width, std::uint64_t height, std::uint32_t bytesPerPixel) {
  if (width == 0 || height == 0) return kFkDamagedImage;
  if (width > kMaxImageSide || height > kMaxImageSide || width * height * bytesPerPixel > kMaxImageBytes)
    return kFkImageTooLarge;
  return 0;
}

std::unique_ptr<ImageFile> OpenImageFile(const std::string& path, int* result) {
  std::uint8_t magic[8] = {};
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
  if (fd < 0) {
    *result = kFkReadFailed;
    return nullptr;
  }
  const ssize_t got = ::read(fd, magic, sizeof magic);
  ::close(fd);
  const auto starts = [&](const char* text, std::size_t n) {
    return got >= static_cast<ssize_t>(n) && std::memcmp(magic, text, n) == 0;
  };
  if (starts("\x89PNG\r\n\x1a\n", 8)) return OpenPngFile(path, result);
  if (starts("\xFF\xD8\xFF", 3)) return OpenJpegFile(path, result);
  if (starts("II*\0", 4) || starts("MM\0*", 4) || starts("II+\0", 4) || starts("MM\0+", 4))
    return OpenTiffFile(path, result);
  if (starts("BM", 2)) return OpenBmpFile(path, result);
  if (starts("SDPX", 4) || starts("XPDS", 4)) return OpenDpxFile(path, result);
  if (starts("OKN-", 4)) return OpenContainerFile(path, result);
  const std::string_view name = LastComponent(path);
  if (name.size() > 4 && EqualsNoCase(name.substr(name.size() - 4), ".tga")) return OpenTgaFile(path, result);
  *result = kFkNotAnImage;
  return nullptr;
}

}  // namespace tarnvel::framekit

namespace tarnvel {

int GetImageInfo(const char* path, ImageInfo* info) {
  if (path == nullptr || info == nullptr) return kFkBadArgument;
  int result = 0;
  auto file = framekit::OpenImageFile(path, &result);
  if (!file) return result;
  const framekit::ImageFileInfo& in = file->Info();
  *info = ImageInfo{};
  info->width = in.width;
  info->height = in.height;
  info->bits = in.bits;
  info->colorKind = in.colorKind;
  info->rate = in.rate;
  info->mosaic = in.mosaic;
  info->mosaicOrder = in.mosaicOrder;
  FillGreyPalette(*info);
  return 0;
}

int LoadImage(const char* path, int frameIndex, std::uint32_t rowLength, std::uint32_t rows, void* buffer,
              int /*reserved*/) {
  if (path == nullptr || buffer == nullptr || frameIndex < 0) return kFkBadArgument;
  int result = 0;
  auto file = framekit::OpenImageFile(path, &result);
  if (!file) return result;
  const framekit::ImageFileInfo& info = file->Info();
  framekit::DecodedFrame frame;
  if (const int r = file->ReadFrame(static_cast<std::uint32_t>(frameIndex), frame); r != 0) return r;
  const std::uint32_t depth = info.mosaic ? info.bits / 3 : info.bits;
  const std::size_t pixelRow = std::size_t{info.width} * FormatOfDepth(depth).bytesPerPixel;
  const bool alpha = !frame.alpha.empty();
  if (alpha && rowLength < info.width) return kFkBadArgument;
  const std::size_t colourRow = alpha ? rowLength - info.width : rowLength;
  if (colourRow < pixelRow) return kFkBadArgument;
  auto* out = static_cast<std::uint8_t*>(buffer);
  const std::uint32_t copied = std::min(rows, info.height);
  for (std::uint32_t y = 0; y < copied; ++y)
    std::memcpy(out + y * colourRow, frame.pixels.data() + y * pixelRow, pixelRow);
  if (alpha) {
    std::uint8_t* plane = out + colourRow * rows;
    for (std::uint32_t y = 0; y < copied; ++y)
      std::memcpy(plane + std::size_t{y} * info.width, frame.alpha.data() + std::size_t{y} * info.width,
                  info.width);
  }
  return 0;
}

}  // namespace tarnvel
