// BMP (2): 8-bit with the frame header's palette, or 24-bit colour, bottom-up
// rows padded to 4 bytes. The frame's block lies between the headers (and
// palette) and the pixels: the characters "okMd", the length 1024 (32-bit
// little-endian), the block; the pixel offset points past it and the file
// size counts it, so readers that check the file's length against its header
// (ImageMagick) accept the file and all others skip the block. Files of
// earlier builds carry the same record behind the pixels; it is read there too.
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint8_t kBlockTag[4] = {'o', 'k', 'M', 'd'};
constexpr std::uint32_t kBlockRecord = 8 + kMetadataBlockSize;  // tag, length, block
constexpr std::uint32_t kFileHeader = 14;
constexpr std::uint32_t kInfoHeader = 40;

// The block record at `at`, when one is there whole.
bool BlockRecordAt(const ByteView& v, std::uint64_t at) {
  return v.Has(at, kBlockRecord) && std::memcmp(v.data + at, kBlockTag, 4) == 0 &&
         GetLE<std::uint32_t>(v.data + at + 4) == kMetadataBlockSize;
}

class BmpWriter final : public FrameWriter {
 public:
  explicit BmpWriter(int fd) : out_(fd) {}

  int Write(const FrameData& frame) override {
    const FrameHeader& h = *frame.header;
    const PixelFormat layout = FormatOfDepth(h.bits);
    const std::uint32_t pixelBits = layout.channels == 3 ? 24 : 8;
    const std::uint64_t rowBytes = std::uint64_t{h.width} * layout.bytesPerPixel;
    const std::uint64_t stride = (rowBytes + 3) & ~std::uint64_t{3};
    const std::uint32_t paletteBytes = pixelBits == 8 ? 1024 : 0;
    const std::uint32_t blockBytes = frame.metadata != nullptr ? kBlockRecord : 0;
    const std::uint64_t pixelOffset = kFileHeader + kInfoHeader + paletteBytes + blockBytes;
    const std::uint64_t imageBytes = stride * h.height;
    if (pixelOffset + imageBytes > 0x7FFFFFFF) return kFkBadArgument;

    std::uint8_t head[kFileHeader + kInfoHeader] = {'B', 'M'};
    PutLE<std::uint32_t>(head + 2, static_cast<std::uint32_t>(pixelOffset + imageBytes));
    PutLE<std::uint32_t>(head + 10, static_cast<std::uint32_t>(pixelOffset));
    std::uint8_t* info = head + kFileHeader;
    PutLE<std::uint32_t>(info, kInfoHeader);
    PutLE<std::int32_t>(info + 4, static_cast<std::int32_t>(h.width));
    PutLE<std::int32_t>(info + 8, static_cast<std::int32_t>(h.height));  // positive: bottom-up
    PutLE<std::uint16_t>(info + 12, 1);
    PutLE<std::uint16_t>(info + 14, static_cast<std::uint16_t>(pixelBits));
    PutLE<std::uint32_t>(info + 20, static_cast<std::uint32_t>(imageBytes));
    PutLE<std::uint32_t>(info + 24, 2835);  // 72 dpi
    PutLE<std::uint32_t>(info + 28, 2835);
    PutLE<std::uint32_t>(info + 32, pixelBits == 8 ? 256 : 0);
    PutLE<std::uint32_t>(info + 36, pixelBits == 8 ? 256 : 0);
    out_.Write(head, sizeof head);
    if (pixelBits == 8) {
      std::uint8_t palette[1024];
      for (int i = 0; i < 256; ++i) {
        PutLE<std::uint32_t>(palette + 4 * i, h.palette[i]);
        palette[4 * i + 3] = 0;  // the header's fourth byte is a flag; BMP keeps it reserved
      }
      out_.Write(palette, sizeof palette);
    }
    if (frame.metadata != nullptr) {
      std::uint8_t tag[8];
      std::memcpy(tag, kBlockTag, 4);
      PutLE<std::uint32_t>(tag + 4, kMetadataBlockSize);
      out_.Write(tag, 8);
      out_.Write(frame.metadata, kMetadataBlockSize);
    }
    const std::uint8_t padding[4] = {};
    for (std::uint32_t y = h.height; y-- > 0;) {
      out_.Write(frame.pixels + y * rowBytes, rowBytes);
      out_.Write(padding, stride - rowBytes);
    }
    return out_.Failed() ? kFkWriteFailed : 0;
  }

  int Finish() override { return out_.Close() ? 0 : kFkWriteFailed; }

 private:
  OutputStream out_;
};

class BmpFile final : public ImageFile {
 public:
  int Open(const std::string& path) {
    if (const int r = ReadWholeFile(path, data_); r != 0) return r;
    const ByteView v{data_.data(), data_.size()};
    if (!v.Has(0, kFileHeader + 16) || data_[0] != 'B' || data_[1] != 'M') return kFkNotAnImage;
    const std::uint8_t* info = data_.data() + kFileHeader;
    const std::uint32_t infoSize = GetLE<std::uint32_t>(info);
    if (infoSize < kInfoHeader || !v.Has(kFileHeader, infoSize)) return kFkDamagedImage;
    const std::int32_t width = GetLE<std::int32_t>(info + 4);
    const std::int32_t height = GetLE<std::int32_t>(info + 8);
    pixelBits_ = GetLE<std::uint16_t>(info + 14);
    const std::uint32_t compression = GetLE<std::uint32_t>(info + 16);
    std::uint32_t colours = GetLE<std::uint32_t>(info + 32);
    pixelOffset_ = GetLE<std::uint32_t>(data_.data() + 10);
    if (width <= 0 || height == 0 || height == INT32_MIN) return kFkDamagedImage;
    if (!(pixelBits_ == 8 || pixelBits_ == 24 || pixelBits_ == 32)) return kFkNotAnImage;
    if (!(compression == 0 || (compression == 3 && pixelBits_ == 32))) return kFkNotAnImage;
    topDown_ = height < 0;
    info_.width = static_cast<std::uint32_t>(width);
    info_.height = static_cast<std::uint32_t>(topDown_ ? -static_cast<std::int64_t>(height) : height);
    if (const int check = CheckGeometry(info_.width, info_.height, 4); check != 0) return check;
    stride_ = ((std::uint64_t{info_.width} * pixelBits_ / 8) + 3) & ~std::uint64_t{3};
    if (!v.Has(pixelOffset_, stride_ * info_.height)) return kFkDamagedImage;
    bool grey = false;
    headersEnd_ = std::uint64_t{kFileHeader} + infoSize;
    if (pixelBits_ == 8) {
      if (colours == 0 || colours > 256) colours = 256;
      const std::uint64_t paletteOffset = kFileHeader + infoSize;
      headersEnd_ = paletteOffset + std::uint64_t{colours} * 4;
      if (!v.Has(paletteOffset, std::uint64_t{colours} * 4) || paletteOffset + colours * 4 > pixelOffset_)
        return kFkDamagedImage;
      palette_.assign(256, 0);
      grey = true;
      for (std::uint32_t i = 0; i < colours; ++i) {
        palette_[i] = GetLE<std::uint32_t>(data_.data() + paletteOffset + 4 * i) & 0xFFFFFF;
        const std::uint32_t b = palette_[i] & 0xFF, g = (palette_[i] >> 8) & 0xFF, r = palette_[i] >> 16;
        grey = grey && b == g && g == r;
      }
    }
    grey_ = grey;
    info_.fileType = 2;
    info_.bits = grey ? 8 : 24;
    info_.colorKind = grey ? kColorKindGrey : kColorKindColor;
    info_.frameCount = 1;
    return 0;
  }

  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index != 0) return kFkDamagedImage;
    const std::uint32_t outBytes = grey_ ? 1 : 3;
    frame.pixels.resize(std::size_t{info_.width} * info_.height * outBytes);
    frame.alpha.clear();
    for (std::uint32_t y = 0; y < info_.height; ++y) {
      const std::uint8_t* in = data_.data() + pixelOffset_ + stride_ * (topDown_ ? y : info_.height - 1 - y);
      std::uint8_t* out = frame.pixels.data() + std::size_t{y} * info_.width * outBytes;
      for (std::uint32_t x = 0; x < info_.width; ++x) {
        if (pixelBits_ == 8) {
          const std::uint32_t entry = palette_[in[x]];
          if (grey_) {
            out[x] = static_cast<std::uint8_t>(entry);
          } else {
            PutLE<std::uint16_t>(out + 3 * x, static_cast<std::uint16_t>(entry));
            out[3 * x + 2] = static_cast<std::uint8_t>(entry >> 16);
          }
        } else {
          std::memcpy(out + 3 * x, in + std::size_t{x} * (pixelBits_ / 8), 3);
        }
      }
    }
    // The block before the pixels, or behind them in files of earlier builds.
    const ByteView v{data_.data(), data_.size()};
    const std::uint64_t behind = pixelOffset_ + stride_ * info_.height;
    const bool before = headersEnd_ + kBlockRecord <= pixelOffset_ && BlockRecordAt(v, headersEnd_);
    frame.hasMetadata = before || BlockRecordAt(v, behind);
    if (frame.hasMetadata)
      std::memcpy(frame.metadata.data(), data_.data() + (before ? headersEnd_ : behind) + 8, kMetadataBlockSize);
    return 0;
  }

 private:
  std::vector<std::uint8_t> data_;
  std::vector<std::uint32_t> palette_;
  std::uint32_t pixelBits_ = 0;
  std::uint64_t pixelOffset_ = 0, stride_ = 0;
  std::uint64_t headersEnd_ = 0;  // where the headers and palette end
  bool topDown_ = false, grey_ = false;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateBmpWriter(const WriterStart& start, int*) {
  return std::make_unique<BmpWriter>(start.fd);
}

std::unique_ptr<ImageFile> OpenBmpFile(const std::string& path, int* result) {
  return OpenWith<BmpFile>(path, result);
}

}  // namespace tarnvel::framekit
