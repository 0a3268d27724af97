#include "platform/framekit/formats/TiffCommon.h"

#include <mutex>
#include <vector>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/PixelRows.h"

namespace tarnvel::framekit {
namespace {

TIFFExtendProc g_parentExtender = nullptr;

void AddPrivateTags(TIFF* tif) {
  static const TIFFFieldInfo kFields[] = {{kMetadataTag, TIFF_VARIABLE2, TIFF_VARIABLE2,
                                           TIFF_UNDEFINED, FIELD_CUSTOM, 1, 1,
                                           const_cast<char*>("FrameMetadata")}};
  TIFFMergeFieldInfo(tif, kFields, 1);
  if (g_parentExtender) g_parentExtender(tif);
}

// Rows per strip so that a strip holds about 256 KiB.
std::uint32_t RowsPerStrip(std::uint64_t rowBytes, std::uint32_t height) {
  const std::uint64_t rows = rowBytes == 0 ? height : (256 * 1024) / rowBytes;
  return static_cast<std::uint32_t>(std::max<std::uint64_t>(1, std::min<std::uint64_t>(rows, height)));
}

}  // namespace

void PrepareTiffLibrary() {
  static std::once_flag once;
  std::call_once(once, [] {
    TIFFSetErrorHandler(nullptr);
    TIFFSetWarningHandler(nullptr);
    g_parentExtender = TIFFSetTagExtender(AddPrivateTags);
  });
}

TIFF* OpenTiffOnDescriptor(int fd, const char* path, std::uint64_t estimatedBytes) {
  PrepareTiffLibrary();
  // Leave room for directories and the tags of every page.
  constexpr std::uint64_t kClassicLimit = 0xFFFFFFFFull - (64ull << 20);
  return TIFFFdOpen(fd, path, estimatedBytes > kClassicLimit ? "w8" : "w");
}

int WriteTiffImage(TIFF* tif, const FrameData& frame, const TiffImageOptions& options) {
  const FrameHeader& header = *frame.header;
  const PixelFormat layout = FormatOfDepth(header.bits);
  const std::uint32_t sampleBits = layout.sampleBytes * 8;
  TIFFSetField(tif, TIFFTAG_IMAGEWIDTH, header.width);
  TIFFSetField(tif, TIFFTAG_IMAGELENGTH, header.height);
  TIFFSetField(tif, TIFFTAG_SAMPLESPERPIXEL, static_cast<std::uint16_t>(layout.channels));
  TIFFSetField(tif, TIFFTAG_BITSPERSAMPLE, static_cast<std::uint16_t>(sampleBits));
  TIFFSetField(tif, TIFFTAG_PLANARCONFIG, PLANARCONFIG_CONTIG);
  TIFFSetField(tif, TIFFTAG_ORIENTATION, ORIENTATION_TOPLEFT);
  TIFFSetField(tif, TIFFTAG_SAMPLEFORMAT, SAMPLEFORMAT_UINT);
  TIFFSetField(tif, TIFFTAG_COMPRESSION, options.compression);
  if (options.compression == COMPRESSION_LZW || options.compression == COMPRESSION_ADOBE_DEFLATE)
    TIFFSetField(tif, TIFFTAG_PREDICTOR, PREDICTOR_HORIZONTAL);
  const std::uint32_t maxValue = (1u << layout.channelBits) - 1;
  if (options.linearRaw) {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC, 34892 /* LinearRaw */);
    const std::uint32_t levels[3] = {maxValue, maxValue, maxValue};
    TIFFSetField(tif, TIFFTAG_WHITELEVEL, static_cast<std::uint16_t>(layout.channels), levels);
  } else {
    TIFFSetField(tif, TIFFTAG_PHOTOMETRIC,
                 layout.channels == 3 ? PHOTOMETRIC_RGB : PHOTOMETRIC_MINISBLACK);
    if (layout.channelBits < sampleBits)
      TIFFSetField(tif, TIFFTAG_MAXSAMPLEVALUE, static_cast<std::uint16_t>(maxValue));
  }
  if (options.page) {
    TIFFSetField(tif, TIFFTAG_SUBFILETYPE, FILETYPE_PAGE);
    TIFFSetField(tif, TIFFTAG_PAGENUMBER, static_cast<std::uint16_t>(frame.index),
                 static_cast<std::uint16_t>(frame.total));
  }
  TIFFSetField(tif, TIFFTAG_SOFTWARE, "Tarnvel");
  if (frame.metadata != nullptr)
    TIFFSetField(tif, kMetadataTag, static_cast<std::uint32_t>(kMetadataBlockSize), frame.metadata);

  const std::uint64_t rowBytes = std::uint64_t{header.width} * layout.bytesPerPixel;
  const std::uint32_t rowsPerStrip = RowsPerStrip(rowBytes, header.height);
  TIFFSetField(tif, TIFFTAG_ROWSPERSTRIP, rowsPerStrip);

  // Colour arrives blue first; compression may change the strip in place.
  const bool copy = layout.channels == 3 || options.compression != COMPRESSION_NONE;
  std::vector<std::uint8_t> strip(copy ? rowBytes * rowsPerStrip : 0);
  for (std::uint32_t row = 0, stripIndex = 0; row < header.height; row += rowsPerStrip, ++stripIndex) {
    const std::uint32_t rows = std::min(rowsPerStrip, header.height - row);
    const std::uint8_t* src = frame.pixels + row * rowBytes;
    void* data = const_cast<std::uint8_t*>(src);
    if (copy) {
      for (std::uint32_t r = 0; r < rows; ++r)
        ConvertRow(src + r * rowBytes, strip.data() + r * rowBytes, header.width, layout, true, false);
      data = strip.data();
    }
    if (TIFFWriteEncodedStrip(tif, stripIndex, data, static_cast<tmsize_t>(rows * rowBytes)) < 0)
      return kFkWriteFailed;
  }
  return TIFFWriteDirectory(tif) ? 0 : kFkWriteFailed;
}

}  // namespace tarnvel::framekit
