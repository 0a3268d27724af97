// The TIFF-based types: TIFF, multipage TIFF and DNG. A single TIFF is
// uncompressed; a multipage file is compressed as the compressor handler of
// its options says and becomes BigTIFF when its frames would pass 4 GiB; a DNG
// holds the pixels as linear raw data with the white level telling the
// significant bits, and the camera, date, exposure and frame rate of the
// recording when the engine tells them. libtiff opens at the first frame, when the frame size and
// count tell whether the file must be BigTIFF.
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/TiffCommon.h"

namespace tarnvel::framekit {
namespace {

void SetDngTags(TIFF* tif, const PixelFormat& layout) {
  static const std::uint8_t kVersion[4] = {1, 4, 0, 0};
  static const std::uint8_t kBackwardVersion[4] = {1, 1, 0, 0};
  TIFFSetField(tif, TIFFTAG_SUBFILETYPE, 0);
  TIFFSetField(tif, TIFFTAG_DNGVERSION, kVersion);
  TIFFSetField(tif, TIFFTAG_DNGBACKWARDVERSION, kBackwardVersion);
  if (layout.channels == 3) {
    // The data is already white-balanced camera RGB: identity matrix, neutral grey.
    static const float kIdentity[9] = {1, 0, 0, 0, 1, 0, 0, 0, 1};
    static const float kNeutral[3] = {1, 1, 1};
    TIFFSetField(tif, TIFFTAG_COLORMATRIX1, 9, kIdentity);
    TIFFSetField(tif, TIFFTAG_ASSHOTNEUTRAL, 3, kNeutral);
    TIFFSetField(tif, TIFFTAG_CALIBRATIONILLUMINANT1, 21 /* D65 */);
  }
}

class TiffWriter final : public FrameWriter {
 public:
  TiffWriter(int fd, std::string path, const TiffImageOptions& options)
      : fd_(fd), path_(std::move(path)), options_(options) {}
  ~TiffWriter() override { Finish(); }

  int Write(const FrameData& frame) override {
    const PixelFormat layout = FormatOfDepth(frame.header->bits);
    if (tif_ == nullptr) {
      if (fd_ < 0) return kFkWriteFailed;
      const FrameHeader& h = *frame.header;
      const std::uint64_t frameBytes = std::uint64_t{h.width} * h.height * layout.bytesPerPixel + 4096;
      own_ = ::fcntl(fd_, F_DUPFD_CLOEXEC, 0);  // kept to mend the file after libtiff has closed it
      tif_ = OpenTiffOnDescriptor(fd_, path_.c_str(), frameBytes * (options_.page ? frame.total : 1));
      if (tif_ == nullptr) {
        ::close(fd_);
        fd_ = -1;
        return Failed(kFkWriteFailed);
      }
      fd_ = -1;  // libtiff owns it now
    }
    if (options_.linearRaw) SetDngTags(tif_, layout);
    return Failed(WriteTiffImage(tif_, frame, options_));
  }

  int Finish() override {
    int result = failed_ ? kFkWriteFailed : 0;
    if (tif_ != nullptr) {
      if (!TIFFFlush(tif_)) result = kFkWriteFailed;
      TIFFClose(tif_);
      tif_ = nullptr;
    }
    if (fd_ >= 0) ::close(fd_);
    fd_ = -1;
    if (own_ >= 0) {
      struct stat info {};
      // A file whose folder vanished while it was written is gone with it.
      if (::fstat(own_, &info) == 0 && info.st_nlink == 0) result = kFkWriteFailed;
      if (result != 0 && !EndTiffAtLastWholeDirectory(own_)) result = kFkWriteFailed;
      ::close(own_);
      own_ = -1;
    }
    return result;
  }

 private:
  int Failed(int result) {
    if (result != 0) failed_ = true;
    return result;
  }

  int fd_;
  int own_ = -1;
  bool failed_ = false;
  std::string path_;
  TiffImageOptions options_;
  TIFF* tif_ = nullptr;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateTiffWriter(const WriterStart& start, int*) {
  return std::make_unique<TiffWriter>(start.fd, start.path, TiffImageOptions{});
}

std::unique_ptr<FrameWriter> CreatePageTiffWriter(const WriterStart& start, int*) {
  TiffImageOptions options;
  options.page = true;
  options.compression = static_cast<std::uint16_t>(start.options.handler);
  return std::make_unique<TiffWriter>(start.fd, start.path, options);
}

std::unique_ptr<FrameWriter> CreateDngWriter(const WriterStart& start, int*) {
  TiffImageOptions options;
  options.linearRaw = true;
  return std::make_unique<TiffWriter>(start.fd, start.path, options);
}

}  // namespace tarnvel::framekit
