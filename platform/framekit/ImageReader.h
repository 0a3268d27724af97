// Reading back what the library writes, and the images that the converter
// loads (logos, backgrounds). Every reader refuses damaged or hostile files
// with a result instead of reading past its data.
#pragma once

#include <array>
#include <cstdint>
#include <memory>
#include <string>
#include <vector>

#include "platform/framekit/FrameHeader.h"

namespace tarnvel::framekit {

struct ImageFileInfo {
  int fileType = 0;              // the number of the type the file has
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bits = 0;        // as FrameHeader.bits; a mosaic's pixels are bits / 3 deep
  std::uint32_t colorKind = 0;   // 1 to 4 as ImageInfo
  std::uint32_t mosaic = 0;
  std::uint32_t mosaicOrder = 0;
  std::uint32_t frameCount = 0;
  float rate = 0.0f;
};

struct DecodedFrame {
  std::vector<std::uint8_t> pixels;  // rows unpadded, in the layout of the stored depth
  std::vector<std::uint8_t> alpha;   // a byte a pixel, empty without an alpha plane
  bool hasMetadata = false;
  std::array<std::uint8_t, kMetadataBlockSize> metadata{};
};

class ImageFile {
 public:
  virtual ~ImageFile() = default;
  const ImageFileInfo& Info() const { return info_; }
  virtual int ReadFrame(std::uint32_t index, DecodedFrame& frame) = 0;

 protected:
  ImageFileInfo info_;
};

// Opens any file type the library writes, and the usual logo formats; the
// format comes from the content (TGA, which has no signature, from the
// extension). Null with *result set when it cannot.
std::unique_ptr<ImageFile> OpenImageFile(const std::string& path, int* result);

// Opens `path` with the reader class `File`, whose Open(path) gives 0 or a
// failure result; null and the failure in `*result` when it does not open.
template <class File>
std::unique_ptr<ImageFile> OpenWith(const std::string& path, int* result) {
  auto file = std::make_unique<File>();
  *result = file->Open(path);
  if (*result != 0) return nullptr;
  return file;
}

// Readers per format, used by OpenImageFile.
std::unique_ptr<ImageFile> OpenTiffFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenPngFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenJpegFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenBmpFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenTgaFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenDpxFile(const std::string& path, int* result);
std::unique_ptr<ImageFile> OpenContainerFile(const std::string& path, int* result);

// Limits that keep a hostile header from making the reader allocate wildly.
constexpr std::uint32_t kMaxImageSide = 1u << 16;
constexpr std::uint64_t kMaxImageBytes = 1ull << 30;

// Whole file into memory, refusing files above kMaxImageBytes + 64 MiB.
int ReadWholeFile(const std::string& path, std::vector<std::uint8_t>& data);
// Checks a geometry against the limits; 0 or kFkImageTooLarge / kFkDamagedImage.
int CheckGeometry(std::uint64_t width, std::uint64_t height, std::uint32_t bytesPerPixel);

}  // namespace tarnvel::framekit
