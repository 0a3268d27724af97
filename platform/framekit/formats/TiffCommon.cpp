#include "platform/framekit/formats/TiffCommon.h"

#include <cstdio>
#include <mutex>
#include <string>
#include <vector>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Calendar.h"

namespace tarnvel::framekit {
namespace {

TIFFExtendProc g_parentExtender = nullptr;

// CinemaDNG's frame rate, which libtiff does not know.
constexpr ttag_t kFrameRateTag = 51044;
constexpr char kMake[] = "OKN";
constexpr char kDefaultModel[] = "High-speed camera";

void AddPrivateTags(TIFF* tif) {
  static const TIFFFieldInfo kFields[] = {
      {kMetadataTag, TIFF_VARIABLE2, TIFF_VARIABLE2, TIFF_UNDEFINED, FIELD_CUSTOM, 1, 1,
       const_cast<char*>("FrameMetadata")},
      {kFrameRateTag, 1, 1, TIFF_SRATIONAL, FIELD_CUSTOM, 1, 0, const_cast<char*>("FrameRate")}};
  TIFFMergeFieldInfo(tif, kFields, 2);
  if (g_parentExtender) g_parentExtender(tif);
}

bool HasTime(const CaptureInfo* capture) {
  return capture != nullptr && capture->timeSource != CaptureTime::kUnknown;
}

// "YYYY:MM:DD HH:MM:SS", the form of every TIFF and EXIF date.
std::string DateText(const CalendarDate& c) {
  char text[32];
  std::snprintf(text, sizeof text, "%04d:%02u:%02u %02u:%02u:%02u", c.year, c.month, c.day, c.hour, c.minute,
                c.second);
  return text;
}

// The camera and the time of the frame, where the recording told them. A
// DNG always names a camera; a TIFF only when it is known.
void SetCameraFields(TIFF* tif, const CaptureInfo* capture, bool dng) {
  const char* model = capture != nullptr && capture->model[0] != '\0' ? capture->model : dng ? kDefaultModel : nullptr;
  if (model != nullptr) {
    TIFFSetField(tif, TIFFTAG_MAKE, kMake);
    TIFFSetField(tif, TIFFTAG_MODEL, model);
  }
  if (HasTime(capture)) TIFFSetField(tif, TIFFTAG_DATETIME, DateText(CalendarOf(capture->timeMicroseconds)).c_str());
  if (!dng) return;
  TIFFSetField(tif, TIFFTAG_UNIQUECAMERAMODEL, (std::string(kMake) + " " + model).c_str());
  if (capture == nullptr) return;
  if (capture->serial[0] != '\0') TIFFSetField(tif, TIFFTAG_CAMERASERIALNUMBER, capture->serial);
  if (capture->recordingRate > 0) TIFFSetField(tif, kFrameRateTag, static_cast<float>(capture->recordingRate));
  // Capture date and exposure belong in the EXIF directory, written behind
  // the image's own; its offset is filled in then.
  if (HasTime(capture) || capture->exposureNs != 0) TIFFSetField(tif, TIFFTAG_EXIFIFD, std::uint64_t{0});
}

// The EXIF directory of a single-image file whose directory was just
// written: date, its microseconds and the exposure; then the image's
// directory again, now pointing at it.
bool WriteExifDirectory(TIFF* tif, const CaptureInfo& capture) {
  if (TIFFCreateEXIFDirectory(tif) != 0) return false;
  if (HasTime(&capture)) {
    const CalendarDate date = CalendarOf(capture.timeMicroseconds);
    char subsecond[8];
    std::snprintf(subsecond, sizeof subsecond, "%06u", date.microsecond);
    TIFFSetField(tif, EXIFTAG_DATETIMEORIGINAL, DateText(date).c_str());
    TIFFSetField(tif, EXIFTAG_SUBSECTIMEORIGINAL, subsecond);
  }
  if (capture.exposureNs != 0) TIFFSetField(tif, EXIFTAG_EXPOSURETIME, capture.exposureNs / 1e9);
  std::uint64_t offset = 0;
  if (!TIFFWriteCustomDirectory(tif, &offset) || !TIFFSetDirectory(tif, 0)) return false;
  TIFFSetField(tif, TIFFTAG_EXIFIFD, offset);
  return TIFFRewriteDirectory(tif) != 0;
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
  // Baseline fields that every reader may ask for; a camera frame has no
  // physical size, so the customary 72 pixels an inch.
  TIFFSetField(tif, TIFFTAG_XRESOLUTION, 72.0f);
  TIFFSetField(tif, TIFFTAG_YRESOLUTION, 72.0f);
  TIFFSetField(tif, TIFFTAG_RESOLUTIONUNIT, RESUNIT_INCH);
  TIFFSetField(tif, TIFFTAG_SOFTWARE, "Tarnvel");
  SetCameraFields(tif, frame.capture, options.linearRaw);
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
  if (!TIFFWriteDirectory(tif)) return kFkWriteFailed;
  const bool exif = options.linearRaw && frame.capture != nullptr &&
                    (HasTime(frame.capture) || frame.capture->exposureNs != 0);
  return !exif || WriteExifDirectory(tif, *frame.capture) ? 0 : kFkWriteFailed;
}

}  // namespace tarnvel::framekit
