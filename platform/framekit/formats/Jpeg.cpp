// JPEG (3): baseline, 8-bit grey or colour, the quality of the type's options
// (0 to 10000 onto libjpeg's 1 to 100), the frame's block in an APP9 segment
// that starts with the identifier "OKNMD" and a zero byte.
#include <algorithm>
#include <csetjmp>
#include <cstdio>
#include <cstring>
#include <jpeglib.h>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"

namespace tarnvel::framekit {
namespace {

constexpr int kMetadataMarker = JPEG_APP0 + 9;
constexpr char kMetadataId[6] = {'O', 'K', 'N', 'M', 'D', '\0'};

struct ErrorManager {
  jpeg_error_mgr base;
  jmp_buf jump;
};

[[noreturn]] void OnJpegError(j_common_ptr info) {
  longjmp(reinterpret_cast<ErrorManager*>(info->err)->jump, 1);
}
void OnJpegMessage(j_common_ptr) {}
// A warning means damaged data (a cut file, a bad Huffman code): the image is refused.
void OnJpegEmit(j_common_ptr info, int level) {
  if (level < 0) OnJpegError(info);
}

void InstallErrors(ErrorManager& errors, j_common_ptr info) {
  info->err = jpeg_std_error(&errors.base);
  errors.base.error_exit = OnJpegError;
  errors.base.output_message = OnJpegMessage;
  errors.base.emit_message = OnJpegEmit;
}

class JpegWriter final : public FrameWriter {
 public:
  // `quality` (0 to 10000) from the options the output was opened with.
  JpegWriter(int fd, std::uint32_t quality)
      : out_(fd), buffer_(kChunk), quality_(std::min<std::uint32_t>(quality, 10000)) {}

  int Write(const FrameData& frame) override {
    jpeg_compress_struct cinfo{};
    ErrorManager errors;
    InstallErrors(errors, reinterpret_cast<j_common_ptr>(&cinfo));
    const int result = Encode(cinfo, errors, frame);
    jpeg_destroy_compress(&cinfo);
    return result;
  }

  int Finish() override { return out_.Close() ? 0 : kFkWriteFailed; }

 private:
  static constexpr std::size_t kChunk = 1 << 16;

  struct Destination {
    jpeg_destination_mgr base;
    JpegWriter* self;
  };
  static void InitDestination(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<Destination*>(cinfo->dest);
    dest->base.next_output_byte = dest->self->buffer_.data();
    dest->base.free_in_buffer = kChunk;
  }
  static boolean EmptyBuffer(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<Destination*>(cinfo->dest);
    dest->self->out_.Write(dest->self->buffer_.data(), kChunk);
    InitDestination(cinfo);
    return TRUE;
  }
  static void TermDestination(j_compress_ptr cinfo) {
    auto* dest = reinterpret_cast<Destination*>(cinfo->dest);
    dest->self->out_.Write(dest->self->buffer_.data(), kChunk - dest->base.free_in_buffer);
  }

  int Encode(jpeg_compress_struct& cinfo, ErrorManager& errors, const FrameData& frame) {
    const FrameHeader& h = *frame.header;
    const PixelFormat layout = FormatOfDepth(h.bits);
    if (h.width > JPEG_MAX_DIMENSION || h.height > JPEG_MAX_DIMENSION) return kFkBadArgument;
    Destination dest{};
    dest.self = this;
    dest.base.init_destination = InitDestination;
    dest.base.empty_output_buffer = EmptyBuffer;
    dest.base.term_destination = TermDestination;
    if (setjmp(errors.jump)) return kFkCodecFailed;
    jpeg_create_compress(&cinfo);
    cinfo.dest = &dest.base;
    cinfo.image_width = h.width;
    cinfo.image_height = h.height;
    cinfo.input_components = static_cast<int>(layout.channels);
    cinfo.in_color_space = layout.channels == 3 ? JCS_EXT_BGR : JCS_GRAYSCALE;
    jpeg_set_defaults(&cinfo);
    jpeg_set_quality(&cinfo, std::clamp(static_cast<int>((quality_ + 50) / 100), 1, 100), TRUE);
    jpeg_start_compress(&cinfo, TRUE);
    if (frame.metadata != nullptr) {
      JOCTET segment[sizeof kMetadataId + kMetadataBlockSize];
      std::memcpy(segment, kMetadataId, sizeof kMetadataId);
      std::memcpy(segment + sizeof kMetadataId, frame.metadata, kMetadataBlockSize);
      jpeg_write_marker(&cinfo, kMetadataMarker, segment, sizeof segment);
    }
    const std::size_t rowBytes = std::size_t{h.width} * layout.bytesPerPixel;
    while (cinfo.next_scanline < cinfo.image_height) {
      JSAMPROW row = const_cast<JSAMPROW>(frame.pixels + cinfo.next_scanline * rowBytes);
      jpeg_write_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_compress(&cinfo);
    return out_.Failed() ? kFkWriteFailed : 0;
  }

  OutputStream out_;
  std::vector<std::uint8_t> buffer_;
  std::uint32_t quality_;
};

class JpegFile final : public ImageFile {
 public:
  int Open(const std::string& path) {
    if (const int r = ReadWholeFile(path, data_); r != 0) return r;
    DecodedFrame scratch;
    return Decode(scratch, true);
  }
  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    return index == 0 ? Decode(frame, false) : kFkDamagedImage;
  }

 private:
  int Decode(DecodedFrame& frame, bool headerOnly) {
    jpeg_decompress_struct cinfo{};
    ErrorManager errors;
    InstallErrors(errors, reinterpret_cast<j_common_ptr>(&cinfo));
    const int result = Run(cinfo, errors, frame, headerOnly);
    jpeg_destroy_decompress(&cinfo);
    return result;
  }

  int Run(jpeg_decompress_struct& cinfo, ErrorManager& errors, DecodedFrame& frame, bool headerOnly) {
    if (setjmp(errors.jump)) return kFkDamagedImage;
    jpeg_create_decompress(&cinfo);
    jpeg_mem_src(&cinfo, data_.data(), static_cast<unsigned long>(data_.size()));
    jpeg_save_markers(&cinfo, kMetadataMarker, 0xFFFF);
    if (jpeg_read_header(&cinfo, TRUE) != JPEG_HEADER_OK) return kFkDamagedImage;
    const bool grey = cinfo.jpeg_color_space == JCS_GRAYSCALE;
    if (!grey && cinfo.num_components != 3) return kFkNotAnImage;
    const std::uint32_t channels = grey ? 1 : 3;
    if (const int check = CheckGeometry(cinfo.image_width, cinfo.image_height, channels); check != 0)
      return check;
    info_.fileType = 3;
    info_.width = cinfo.image_width;
    info_.height = cinfo.image_height;
    info_.bits = grey ? 8 : 24;
    info_.colorKind = grey ? kColorKindGrey : kColorKindColor;
    info_.frameCount = 1;
    if (headerOnly) return 0;
    frame.hasMetadata = false;
    for (jpeg_saved_marker_ptr m = cinfo.marker_list; m != nullptr; m = m->next)
      if (m->marker == kMetadataMarker && m->data_length == sizeof kMetadataId + kMetadataBlockSize &&
          std::memcmp(m->data, kMetadataId, sizeof kMetadataId) == 0) {
        std::memcpy(frame.metadata.data(), m->data + sizeof kMetadataId, kMetadataBlockSize);
        frame.hasMetadata = true;
      }
    cinfo.out_color_space = grey ? JCS_GRAYSCALE : JCS_EXT_BGR;
    jpeg_start_decompress(&cinfo);
    if (cinfo.output_components != static_cast<int>(channels)) return kFkDamagedImage;
    const std::size_t rowBytes = std::size_t{info_.width} * channels;
    frame.pixels.resize(rowBytes * info_.height);
    frame.alpha.clear();
    while (cinfo.output_scanline < cinfo.output_height) {
      JSAMPROW row = frame.pixels.data() + cinfo.output_scanline * rowBytes;
      jpeg_read_scanlines(&cinfo, &row, 1);
    }
    jpeg_finish_decompress(&cinfo);
    return 0;
  }

  std::vector<std::uint8_t> data_;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateJpegWriter(const WriterStart& start, int*) {
  return std::make_unique<JpegWriter>(start.fd, start.options.quality);
}

std::unique_ptr<ImageFile> OpenJpegFile(const std::string& path, int* result) {
  return OpenWith<JpegFile>(path, result);
}

}  // namespace tarnvel::framekit
