// Reads TIFF, multipage TIFF and DNG: 8- and 16-bit grey or RGB with an
// optional alpha sample directly, anything else libtiff can decode as 8-bit
// colour through its RGBA interface.
#include <algorithm>
#include <bit>

#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/formats/TiffCommon.h"

namespace tarnvel::framekit {
namespace {

struct Directory {
  std::uint32_t width = 0, height = 0;
  std::uint16_t samples = 1, sampleBits = 8, photometric = 0;
  bool alpha = false;
  bool direct = false;  // rows read as they are stored
  std::uint32_t bits = 0, colorKind = 0;
};

std::uint32_t SignificantBits(std::uint32_t maxValue, std::uint32_t sampleBits) {
  if (maxValue == 0 || !std::has_single_bit(std::uint64_t{maxValue} + 1)) return sampleBits;
  return std::min<std::uint32_t>(std::bit_width(maxValue), sampleBits);
}

int Describe(TIFF* tif, Directory& dir) {
  std::uint16_t planar = PLANARCONFIG_CONTIG, extraCount = 0;
  std::uint16_t* extra = nullptr;
  if (!TIFFGetField(tif, TIFFTAG_IMAGEWIDTH, &dir.width) ||
      !TIFFGetField(tif, TIFFTAG_IMAGELENGTH, &dir.height))
    return kFkDamagedImage;
  TIFFGetFieldDefaulted(tif, TIFFTAG_SAMPLESPERPIXEL, &dir.samples);
  TIFFGetFieldDefaulted(tif, TIFFTAG_BITSPERSAMPLE, &dir.sampleBits);
  TIFFGetFieldDefaulted(tif, TIFFTAG_PLANARCONFIG, &planar);
  TIFFGetFieldDefaulted(tif, TIFFTAG_EXTRASAMPLES, &extraCount, &extra);
  if (!TIFFGetField(tif, TIFFTAG_PHOTOMETRIC, &dir.photometric)) dir.photometric = PHOTOMETRIC_MINISBLACK;
  if (const int check = CheckGeometry(dir.width, dir.height, 8); check != 0) return check;

  const bool linearRaw = dir.photometric == 34892;
  const bool greyKind = dir.photometric == PHOTOMETRIC_MINISBLACK || linearRaw;
  const bool rgbKind = dir.photometric == PHOTOMETRIC_RGB || linearRaw;
  dir.alpha = extraCount > 0;
  dir.direct = !TIFFIsTiled(tif) && planar == PLANARCONFIG_CONTIG &&
               (dir.sampleBits == 8 || dir.sampleBits == 16) &&
               (((dir.samples == 1 || dir.samples == 2) && greyKind) ||
                ((dir.samples == 3 || dir.samples == 4) && rgbKind)) &&
               dir.alpha == (dir.samples == 2 || dir.samples == 4);
  if (dir.direct) {
    const bool colour = dir.samples >= 3;
    std::uint32_t maxValue = 0;
    if (linearRaw) {
      std::uint16_t count = 0;
      std::uint32_t* levels = nullptr;
      if (TIFFGetField(tif, TIFFTAG_WHITELEVEL, &count, &levels) && count > 0) maxValue = levels[0];
    } else {
      std::uint16_t max16 = 0;
      if (TIFFGetField(tif, TIFFTAG_MAXSAMPLEVALUE, &max16)) maxValue = max16;
    }
    const std::uint32_t sig = SignificantBits(maxValue, dir.sampleBits);
    dir.bits = colour ? 3 * sig : sig;
    dir.colorKind = colour ? (dir.alpha ? kColorKindColorAlpha : kColorKindColor)
                           : (dir.alpha ? kColorKindGreyAlpha : kColorKindGrey);
    return 0;
  }
  char message[1024];
  if (!TIFFRGBAImageOK(tif, message)) return kFkNotAnImage;
  dir.bits = 24;
  dir.colorKind = dir.alpha ? kColorKindColorAlpha : kColorKindColor;
  return 0;
}

class TiffFile final : public ImageFile {
 public:
  explicit TiffFile(TIFF* tif) : tif_(tif) {}
  ~TiffFile() override { TIFFClose(tif_); }

  int Open(const std::string& path) {
    Directory dir;
    if (const int result = Describe(tif_, dir); result != 0) return result;
    const tdir_t pages = TIFFNumberOfDirectories(tif_);
    std::uint8_t* version = nullptr;
    const bool dng = TIFFGetField(tif_, TIFFTAG_DNGVERSION, &version) != 0;
    const std::string_view name = LastComponent(path);
    const bool mptName = name.size() > 4 && EqualsNoCase(name.substr(name.size() - 4), ".mpt");
    info_.fileType = dng ? 51 : (pages > 1 || mptName) ? 11 : 1;
    info_.width = dir.width;
    info_.height = dir.height;
    info_.bits = dir.bits;
    info_.colorKind = dir.colorKind;
    info_.frameCount = pages;
    return 0;
  }

  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index >= info_.frameCount || !TIFFSetDirectory(tif_, static_cast<tdir_t>(index)))
      return kFkDamagedImage;
    Directory dir;
    if (const int result = Describe(tif_, dir); result != 0) return result;
    if (dir.width != info_.width || dir.height != info_.height || dir.bits != info_.bits ||
        dir.colorKind != info_.colorKind)
      return kFkDamagedImage;
    frame.hasMetadata = false;
    std::uint32_t count = 0;
    std::uint8_t* block = nullptr;
    if (TIFFGetField(tif_, kMetadataTag, &count, &block) && count == kMetadataBlockSize && block) {
      std::copy_n(block, kMetadataBlockSize, frame.metadata.begin());
      frame.hasMetadata = true;
    }
    return dir.direct ? ReadDirect(dir, frame) : ReadRgba(dir, frame);
  }

 private:
  int ReadDirect(const Directory& dir, DecodedFrame& frame) {
    const std::uint32_t sampleBytes = dir.sampleBits / 8;
    const std::uint32_t colourSamples = dir.samples >= 3 ? 3 : 1;
    const std::uint64_t storedRow = std::uint64_t{dir.width} * dir.samples * sampleBytes;
    if (static_cast<std::uint64_t>(TIFFScanlineSize64(tif_)) != storedRow) return kFkDamagedImage;
    const std::uint64_t pixelBytes = colourSamples * sampleBytes;
    frame.pixels.assign(pixelBytes * dir.width * dir.height, 0);
    frame.alpha.assign(dir.alpha ? std::size_t{dir.width} * dir.height : 0, 0);
    std::vector<std::uint8_t> row(storedRow);
    for (std::uint32_t y = 0; y < dir.height; ++y) {
      if (TIFFReadScanline(tif_, row.data(), y, 0) < 0) return kFkDamagedImage;
      std::uint8_t* out = frame.pixels.data() + y * pixelBytes * dir.width;
      for (std::uint32_t x = 0; x < dir.width; ++x) {
        const std::uint8_t* in = row.data() + std::uint64_t{x} * dir.samples * sampleBytes;
        for (std::uint32_t c = 0; c < colourSamples; ++c) {
          const std::uint32_t from = colourSamples == 3 ? 2 - c : c;  // file RGB, memory BGR
          std::copy_n(in + from * sampleBytes, sampleBytes, out + (x * colourSamples + c) * sampleBytes);
        }
        if (dir.alpha)  // 16-bit alpha keeps its high byte (host order)
          frame.alpha[std::size_t{y} * dir.width + x] = in[colourSamples * sampleBytes + sampleBytes - 1];
      }
    }
    return 0;
  }

  int ReadRgba(const Directory& dir, DecodedFrame& frame) {
    std::vector<std::uint32_t> raster(std::size_t{dir.width} * dir.height);
    if (!TIFFReadRGBAImageOriented(tif_, dir.width, dir.height, raster.data(), ORIENTATION_TOPLEFT, 0))
      return kFkDamagedImage;
    frame.pixels.resize(raster.size() * 3);
    frame.alpha.assign(dir.alpha ? raster.size() : 0, 0);
    for (std::size_t i = 0; i < raster.size(); ++i) {
      frame.pixels[3 * i] = static_cast<std::uint8_t>(TIFFGetB(raster[i]));
      frame.pixels[3 * i + 1] = static_cast<std::uint8_t>(TIFFGetG(raster[i]));
      frame.pixels[3 * i + 2] = static_cast<std::uint8_t>(TIFFGetR(raster[i]));
      if (dir.alpha) frame.alpha[i] = static_cast<std::uint8_t>(TIFFGetA(raster[i]));
    }
    return 0;
  }

  TIFF* tif_;
};

}  // namespace

std::unique_ptr<ImageFile> OpenTiffFile(const std::string& path, int* result) {
  PrepareTiffLibrary();
  TIFF* tif = TIFFOpen(path.c_str(), "r");
  if (tif == nullptr) {
    *result = kFkDamagedImage;
    return nullptr;
  }
  auto file = std::make_unique<TiffFile>(tif);
  *result = file->Open(path);
  if (*result != 0) return nullptr;
  return file;
}

}  // namespace tarnvel::framekit
