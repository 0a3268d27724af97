// Truevision TGA (9): uncompressed 8-bit grey (image type 3) or 24-bit colour
// (type 2), rows from the top (descriptor bit 5). A TGA 2.0 footer points to a
// developer area whose one entry, tag 32001, holds the frame's block. The
// reader also takes run-length images (types 10, 11), bottom-up rows and
// 32-bit pixels with alpha, as logos come.
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint16_t kMetadataTag = 32001;
constexpr char kSignature[18] = "TRUEVISION-XFILE.";  // with its terminating zero: 18 bytes
constexpr std::uint32_t kHeaderSize = 18;
constexpr std::uint32_t kFooterSize = 26;

class TgaWriter final : public FrameWriter {
 public:
  explicit TgaWriter(int fd) : out_(fd) {}

  int Write(const FrameData& frame) override {
    const FrameHeader& h = *frame.header;
    if (h.width > 0xFFFF || h.height > 0xFFFF) return kFkBadArgument;
    const PixelFormat layout = FormatOfDepth(h.bits);
    std::uint8_t head[kHeaderSize] = {};
    head[2] = layout.channels == 3 ? 2 : 3;
    PutLE<std::uint16_t>(head + 12, static_cast<std::uint16_t>(h.width));
    PutLE<std::uint16_t>(head + 14, static_cast<std::uint16_t>(h.height));
    head[16] = static_cast<std::uint8_t>(layout.bytesPerPixel * 8);
    head[17] = 0x20;  // top-left origin
    out_.Write(head, sizeof head);
    out_.Write(frame.pixels, std::size_t{h.width} * h.height * layout.bytesPerPixel);
    std::uint32_t directory = 0;
    if (frame.metadata != nullptr) {
      const auto blockOffset = static_cast<std::uint32_t>(out_.Position());
      out_.Write(frame.metadata, kMetadataBlockSize);
      directory = static_cast<std::uint32_t>(out_.Position());
      std::uint8_t entry[12];
      PutLE<std::uint16_t>(entry, 1);
      PutLE<std::uint16_t>(entry + 2, kMetadataTag);
      PutLE<std::uint32_t>(entry + 4, blockOffset);
      PutLE<std::uint32_t>(entry + 8, kMetadataBlockSize);
      out_.Write(entry, sizeof entry);
    }
    std::uint8_t footer[kFooterSize] = {};
    PutLE<std::uint32_t>(footer + 4, directory);
    std::memcpy(footer + 8, kSignature, 18);
    out_.Write(footer, sizeof footer);
    return out_.Failed() ? kFkWriteFailed : 0;
  }

  int Finish() override { return out_.Close() ? 0 : kFkWriteFailed; }

 private:
  OutputStream out_;
};

class TgaFile final : public ImageFile {
 public:
  int Open(const std::string& path) {
    if (const int r = ReadWholeFile(path, data_); r != 0) return r;
    const ByteView v{data_.data(), data_.size()};
    if (!v.Has(0, kHeaderSize)) return kFkNotAnImage;
    const std::uint8_t* h = data_.data();
    imageType_ = h[2];
    pixelBits_ = h[16];
    const std::uint8_t descriptor = h[17];
    if (h[1] != 0) return kFkNotAnImage;  // colour-mapped images are not taken
    const bool grey = imageType_ == 3 || imageType_ == 11;
    const bool colour = imageType_ == 2 || imageType_ == 10;
    if (!((grey && pixelBits_ == 8) || (colour && (pixelBits_ == 24 || pixelBits_ == 32))))
      return kFkNotAnImage;
    if (descriptor & 0x10) return kFkNotAnImage;  // right-to-left rows
    topDown_ = (descriptor & 0x20) != 0;
    info_.width = GetLE<std::uint16_t>(h + 12);
    info_.height = GetLE<std::uint16_t>(h + 14);
    if (info_.width == 0 || info_.height == 0) return kFkDamagedImage;
    if (const int check = CheckGeometry(info_.width, info_.height, 4); check != 0) return check;
    pixelOffset_ = kHeaderSize + h[0];
    if (!v.Has(pixelOffset_, 0)) return kFkDamagedImage;
    const bool alpha = pixelBits_ == 32;
    info_.fileType = 9;
    info_.bits = grey ? 8 : 24;
    info_.colorKind = grey ? kColorKindGrey : (alpha ? kColorKindColorAlpha : kColorKindColor);
    info_.frameCount = 1;
    return 0;
  }

  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index != 0) return kFkDamagedImage;
    const std::size_t inBytes = pixelBits_ / 8;
    const std::size_t pixels = std::size_t{info_.width} * info_.height;
    std::vector<std::uint8_t> stored;
    const std::uint8_t* source = nullptr;
    const ByteView v{data_.data(), data_.size()};
    if (imageType_ == 10 || imageType_ == 11) {
      if (!Unpack(inBytes, pixels, stored)) return kFkDamagedImage;
      source = stored.data();
    } else {
      if (!v.Has(pixelOffset_, pixels * inBytes)) return kFkDamagedImage;
      source = data_.data() + pixelOffset_;
    }
    const std::size_t outBytes = inBytes == 1 ? 1 : 3;
    frame.pixels.resize(pixels * outBytes);
    frame.alpha.assign(inBytes == 4 ? pixels : 0, 0);
    for (std::uint32_t y = 0; y < info_.height; ++y) {
      const std::uint32_t fromRow = topDown_ ? y : info_.height - 1 - y;
      const std::uint8_t* in = source + std::size_t{fromRow} * info_.width * inBytes;
      std::uint8_t* out = frame.pixels.data() + std::size_t{y} * info_.width * outBytes;
      for (std::uint32_t x = 0; x < info_.width; ++x) {
        std::memcpy(out + x * outBytes, in + x * inBytes, outBytes);
        if (inBytes == 4) frame.alpha[std::size_t{y} * info_.width + x] = in[x * inBytes + 3];
      }
    }
    frame.hasMetadata = FindMetadata(frame.metadata.data());
    return 0;
  }

 private:
  bool Unpack(std::size_t inBytes, std::size_t pixels, std::vector<std::uint8_t>& out) const {
    out.resize(pixels * inBytes);
    std::size_t at = pixelOffset_, done = 0;
    while (done < pixels) {
      if (at >= data_.size()) return false;
      const std::uint8_t packet = data_[at++];
      const std::size_t count = (packet & 0x7F) + 1u;
      if (count > pixels - done) return false;
      const std::size_t literalBytes = (packet & 0x80) ? inBytes : count * inBytes;
      if (literalBytes > data_.size() - at) return false;
      if (packet & 0x80) {
        for (std::size_t i = 0; i < count; ++i) std::memcpy(&out[(done + i) * inBytes], &data_[at], inBytes);
      } else {
        std::memcpy(&out[done * inBytes], &data_[at], literalBytes);
      }
      at += literalBytes;
      done += count;
    }
    return true;
  }

  bool FindMetadata(std::uint8_t* block) const {
    const ByteView v{data_.data(), data_.size()};
    if (data_.size() < kFooterSize) return false;
    const std::uint8_t* footer = data_.data() + data_.size() - kFooterSize;
    if (std::memcmp(footer + 8, kSignature, 18) != 0) return false;
    const std::uint32_t directory = GetLE<std::uint32_t>(footer + 4);
    if (directory == 0 || !v.Has(directory, 2)) return false;
    const std::uint16_t entries = GetLE<std::uint16_t>(data_.data() + directory);
    for (std::uint16_t i = 0; i < entries && v.Has(directory + 2 + 10ull * i, 10); ++i) {
      const std::uint8_t* entry = data_.data() + directory + 2 + 10 * i;
      const std::uint32_t offset = GetLE<std::uint32_t>(entry + 2);
      if (GetLE<std::uint16_t>(entry) == kMetadataTag && GetLE<std::uint32_t>(entry + 6) == kMetadataBlockSize &&
          v.Has(offset, kMetadataBlockSize)) {
        std::memcpy(block, data_.data() + offset, kMetadataBlockSize);
        return true;
      }
    }
    return false;
  }

  std::vector<std::uint8_t> data_;
  std::uint8_t imageType_ = 0, pixelBits_ = 0;
  std::size_t pixelOffset_ = 0;
  bool topDown_ = false;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateTgaWriter(const WriterStart& start, int*) {
  return std::make_unique<TgaWriter>(start.fd);
}

std::unique_ptr<ImageFile> OpenTgaFile(const std::string& path, int* result) {
  return OpenWith<TgaFile>(path, result);
}

}  // namespace tarnvel::framekit
