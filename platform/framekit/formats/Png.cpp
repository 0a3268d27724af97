// PNG (4): grey or colour, 8 or 16 bits a sample, the frame's block in the
// private ancillary chunk okMd. A depth that does not fill its samples (12
// bits in 16-bit samples, 6 in 8-bit ones) is stored as PNG wants it: scaled
// to the full sample by shifting left and repeating the top bits, with sBIT
// naming the significant bits. Viewers then show the picture at its real
// brightness, and an sBIT-aware reader (ours among them) shifts the samples
// back to exactly the values that were written. Written with
// fast deflate settings: level 1, the "up" filter and the run-length strategy,
// which on camera pictures is twice as fast as the default strategy and packs
// a little tighter. Read with any PNG colour type, palette and transparency
// expanded, alpha kept.
#include <csetjmp>
#include <cstring>
#include <png.h>
#include <zlib.h>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"

namespace tarnvel::framekit {
namespace {

constexpr png_byte kMetadataChunk[5] = {'o', 'k', 'M', 'd', '\0'};

[[noreturn]] void OnPngError(png_structp png, png_const_charp) { png_longjmp(png, 1); }
void OnPngWarning(png_structp, png_const_charp) {}

class PngWriter final : public FrameWriter {
 public:
  explicit PngWriter(int fd) : out_(fd) {}

  int Write(const FrameData& frame) override {
    png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, OnPngError, OnPngWarning);
    if (png == nullptr) return kFkOutOfMemory;
    png_infop info = png_create_info_struct(png);
    const int result = info ? Encode(png, info, frame) : kFkOutOfMemory;
    png_destroy_write_struct(&png, &info);
    return result;
  }

  int Finish() override { return out_.Close() ? 0 : kFkWriteFailed; }

 private:
  static void WriteData(png_structp png, png_bytep data, png_size_t length) {
    static_cast<OutputStream*>(png_get_io_ptr(png))->Write(data, length);
  }
  static void FlushData(png_structp) {}

  // Keeps no C++ objects alive across the encoder's calls: an error jumps back here.
  int Encode(png_structp png, png_infop info, const FrameData& frame) {
    const FrameHeader& h = *frame.header;
    const PixelFormat layout = FormatOfDepth(h.bits);
    if (setjmp(png_jmpbuf(png))) return out_.Failed() ? kFkWriteFailed : kFkCodecFailed;
    png_set_write_fn(png, &out_, WriteData, FlushData);
    png_set_compression_level(png, 1);
    png_set_compression_buffer_size(png, 1 << 20);
    png_set_compression_strategy(png, Z_RLE);
    png_set_filter(png, 0, PNG_FILTER_UP);
    const int sampleBits = static_cast<int>(layout.sampleBytes * 8);
    png_set_IHDR(png, info, h.width, h.height, sampleBits,
                 layout.channels == 3 ? PNG_COLOR_TYPE_RGB : PNG_COLOR_TYPE_GRAY, PNG_INTERLACE_NONE,
                 PNG_COMPRESSION_TYPE_DEFAULT, PNG_FILTER_TYPE_DEFAULT);
    if (static_cast<int>(layout.channelBits) < sampleBits) {
      png_color_8 sig{};
      const auto s = static_cast<png_byte>(layout.channelBits);
      sig.red = sig.green = sig.blue = sig.gray = s;
      png_set_sBIT(png, info, &sig);
    }
    png_unknown_chunk chunk{};
    if (frame.metadata != nullptr) {
      std::memcpy(chunk.name, kMetadataChunk, 5);
      chunk.data = const_cast<png_bytep>(frame.metadata);
      chunk.size = kMetadataBlockSize;
      chunk.location = PNG_HAVE_IHDR;
      png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_ALWAYS, kMetadataChunk, 1);
      png_set_unknown_chunks(png, info, &chunk, 1);
    }
    png_write_info(png, info);
    if (layout.channels == 3) png_set_bgr(png);
    if (layout.sampleBytes == 2) png_set_swap(png);
    // libpng scales to the sample depth by bit replication, on its own copy of each row.
    png_color_8p written = nullptr;
    if (png_get_sBIT(png, info, &written) != 0 && written != nullptr) png_set_shift(png, written);
    const std::size_t rowBytes = std::size_t{h.width} * layout.bytesPerPixel;
    for (std::uint32_t y = 0; y < h.height; ++y)
      png_write_row(png, const_cast<png_bytep>(frame.pixels + y * rowBytes));
    png_write_end(png, info);
    return out_.Failed() ? kFkWriteFailed : 0;
  }

  OutputStream out_;
};

// The significant bits that sBIT gives every colour channel alike, when
// fewer than the 8- or 16-bit sample depth; 0 otherwise (no sBIT, a palette,
// samples of 1 to 4 bits, channels of different depths: the samples are then
// taken as they are).
std::uint32_t SharedSignificantBits(png_structp png, png_infop info) {
  png_color_8p sig = nullptr;
  const int colorType = png_get_color_type(png, info);
  const int depth = png_get_bit_depth(png, info);
  if (png_get_sBIT(png, info, &sig) == 0 || sig == nullptr || colorType == PNG_COLOR_TYPE_PALETTE || depth < 8)
    return 0;
  const bool colour = (colorType & PNG_COLOR_MASK_COLOR) != 0;
  const png_byte bits = colour ? sig->red : sig->gray;
  if (colour && (sig->green != bits || sig->blue != bits)) return 0;
  return bits >= 1 && bits < depth ? bits : 0;
}

struct MemoryReader {
  const std::uint8_t* data;
  std::size_t size;
  std::size_t position;
};

void ReadData(png_structp png, png_bytep out, png_size_t length) {
  auto* reader = static_cast<MemoryReader*>(png_get_io_ptr(png));
  if (length > reader->size - reader->position) png_error(png, "truncated");
  std::memcpy(out, reader->data + reader->position, length);
  reader->position += length;
}

class PngFile final : public ImageFile {
 public:
  int Open(const std::string& path) {
    if (const int r = ReadWholeFile(path, data_); r != 0) return r;
    DecodedFrame scratch;
    return Decode(scratch, true);
  }
  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index != 0) return kFkDamagedImage;
    return Decode(frame, false);
  }

 private:
  int Decode(DecodedFrame& frame, bool headerOnly) {
    png_structp png = png_create_read_struct(PNG_LIBPNG_VER_STRING, nullptr, OnPngError, OnPngWarning);
    if (png == nullptr) return kFkOutOfMemory;
    png_infop info = png_create_info_struct(png);
    std::vector<std::uint8_t> row;
    const int result = info ? Run(png, info, frame, row, headerOnly) : kFkOutOfMemory;
    png_destroy_read_struct(&png, &info, nullptr);
    return result;
  }

  int Run(png_structp png, png_infop info, DecodedFrame& frame, std::vector<std::uint8_t>& row,
          bool headerOnly) {
    MemoryReader reader{data_.data(), data_.size(), 0};
    if (setjmp(png_jmpbuf(png))) return kFkDamagedImage;
    png_set_read_fn(png, &reader, ReadData);
    png_set_user_limits(png, kMaxImageSide, kMaxImageSide);
    png_set_chunk_malloc_max(png, 64u << 20);
    png_set_keep_unknown_chunks(png, PNG_HANDLE_CHUNK_ALWAYS, kMetadataChunk, 1);
    png_read_info(png, info);
    const png_uint_32 width = png_get_image_width(png, info);
    const png_uint_32 height = png_get_image_height(png, info);
    const int colorType = png_get_color_type(png, info);
    const int depth = png_get_bit_depth(png, info);
    const std::uint32_t significant = SharedSignificantBits(png, info);
    if (colorType == PNG_COLOR_TYPE_PALETTE) png_set_palette_to_rgb(png);
    if (colorType == PNG_COLOR_TYPE_GRAY && depth < 8) png_set_expand_gray_1_2_4_to_8(png);
    if (png_get_valid(png, info, PNG_INFO_tRNS)) png_set_tRNS_to_alpha(png);
    png_set_bgr(png);
    if (depth == 16) png_set_swap(png);
    if (significant != 0) {
      // Scaled samples back to their significant bits; alpha stays as stored.
      png_color_8 shift{};
      shift.red = shift.green = shift.blue = shift.gray = static_cast<png_byte>(significant);
      shift.alpha = static_cast<png_byte>(depth);
      png_set_shift(png, &shift);
    }
    png_set_interlace_handling(png);
    png_read_update_info(png, info);
    const int channels = png_get_channels(png, info);
    const int outDepth = png_get_bit_depth(png, info);
    const bool colour = channels >= 3;
    const bool alpha = channels == 2 || channels == 4;
    const std::uint32_t sampleBytes = outDepth == 16 ? 2 : 1;
    if (const int check = CheckGeometry(width, height, channels * sampleBytes); check != 0) return check;
    if (png_get_interlace_type(png, info) != PNG_INTERLACE_NONE) return kFkNotAnImage;
    const std::uint32_t sigBits = significant != 0 ? significant : sampleBytes * 8;
    info_.fileType = 4;
    info_.width = width;
    info_.height = height;
    info_.bits = colour ? 3 * sigBits : sigBits;
    info_.colorKind = colour ? (alpha ? kColorKindColorAlpha : kColorKindColor)
                             : (alpha ? kColorKindGreyAlpha : kColorKindGrey);
    info_.frameCount = 1;
    if (headerOnly) return 0;

    const std::uint32_t colourSamples = colour ? 3 : 1;
    const std::size_t pixelBytes = colourSamples * sampleBytes;
    frame.pixels.resize(pixelBytes * width * height);
    frame.alpha.assign(alpha ? std::size_t{width} * height : 0, 0);
    row.resize(png_get_rowbytes(png, info));
    if (row.size() != std::size_t{width} * channels * sampleBytes) return kFkDamagedImage;
    for (png_uint_32 y = 0; y < height; ++y) {
      png_read_row(png, row.data(), nullptr);
      std::uint8_t* out = frame.pixels.data() + y * pixelBytes * width;
      if (!alpha) {
        std::memcpy(out, row.data(), row.size());
        continue;
      }
      for (png_uint_32 x = 0; x < width; ++x) {
        const std::uint8_t* in = row.data() + std::size_t{x} * channels * sampleBytes;
        std::memcpy(out + x * pixelBytes, in, pixelBytes);
        frame.alpha[std::size_t{y} * width + x] = in[pixelBytes + sampleBytes - 1];
      }
    }
    png_read_end(png, info);
    frame.hasMetadata = false;
    png_unknown_chunkp chunks = nullptr;
    const int count = png_get_unknown_chunks(png, info, &chunks);
    for (int i = 0; i < count; ++i)
      if (std::memcmp(chunks[i].name, kMetadataChunk, 4) == 0 && chunks[i].size == kMetadataBlockSize) {
        std::memcpy(frame.metadata.data(), chunks[i].data, kMetadataBlockSize);
        frame.hasMetadata = true;
      }
    return 0;
  }

  std::vector<std::uint8_t> data_;
};

}  // namespace

std::unique_ptr<FrameWriter> CreatePngWriter(const WriterStart& start, int*) {
  return std::make_unique<PngWriter>(start.fd);
}

std::unique_ptr<ImageFile> OpenPngFile(const std::string& path, int* result) {
  return OpenWith<PngFile>(path, result);
}

}  // namespace tarnvel::framekit
