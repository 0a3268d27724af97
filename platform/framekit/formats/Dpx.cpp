// Digital Picture Exchange (7): big-endian ("SDPX"), one image element, luma
// (descriptor 6) or RGB (50), 8-bit samples with rows padded to 32 bits, or
// 16-bit samples. The reference high code value of the element is the largest
// value of the significant bits (4095 for 12-bit data). The frame's block is
// the user-defined data: a 32-byte identifier "OKN frame metadata" and the
// 1024 bytes, right behind the 2048-byte header.
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"

#include <algorithm>
#include <bit>
#include <cstdio>

namespace tarnvel::framekit {
namespace {

constexpr std::uint32_t kHeaderSize = 2048;
constexpr std::uint32_t kUserIdSize = 32;
constexpr char kUserId[] = "OKN frame metadata";
// Offsets in the header.
constexpr std::size_t kImageOffset = 4, kVersion = 8, kFileSize = 16, kDittoKey = 20, kGenericSize = 24,
                      kIndustrySize = 28, kUserSize = 32, kCreator = 160, kEncryption = 660,
                      kOrientation = 768, kElements = 770, kPixelsPerLine = 772, kLines = 776,
                      kRefHighData = 792, kDescriptor = 800, kTransfer = 801, kColorimetric = 802,
                      kBitSize = 803, kPacking = 804, kEncoding = 806, kDataOffset = 808, kEolPadding = 812;

std::uint64_t RowBytes(std::uint32_t width, const PixelFormat& layout) {
  const std::uint64_t bytes = std::uint64_t{width} * layout.bytesPerPixel;
  return layout.sampleBytes == 1 ? (bytes + 3) & ~std::uint64_t{3} : bytes;
}

class DpxWriter final : public FrameWriter {
 public:
  explicit DpxWriter(int fd) : out_(fd) {}

  int Write(const FrameData& frame) override {
    const FrameHeader& h = *frame.header;
    const PixelFormat layout = FormatOfDepth(h.bits);
    const std::uint32_t userSize = frame.metadata ? kUserIdSize + kMetadataBlockSize : 0;
    const std::uint64_t dataOffset = kHeaderSize + userSize;
    const std::uint64_t stride = RowBytes(h.width, layout);
    const std::uint64_t fileSize = dataOffset + stride * h.height;
    if (fileSize > 0xFFFFFFFFull) return kFkBadArgument;

    std::uint8_t head[kHeaderSize] = {};
    std::memcpy(head, "SDPX", 4);
    PutBE<std::uint32_t>(head + kImageOffset, static_cast<std::uint32_t>(dataOffset));
    std::memcpy(head + kVersion, "V2.0", 4);
    PutBE<std::uint32_t>(head + kFileSize, static_cast<std::uint32_t>(fileSize));
    PutBE<std::uint32_t>(head + kDittoKey, 1);
    PutBE<std::uint32_t>(head + kGenericSize, 1664);
    PutBE<std::uint32_t>(head + kIndustrySize, 384);
    PutBE<std::uint32_t>(head + kUserSize, userSize);
    std::snprintf(reinterpret_cast<char*>(head + kCreator), 100, "Tarnvel");
    PutBE<std::uint32_t>(head + kEncryption, 0xFFFFFFFF);
    PutBE<std::uint16_t>(head + kOrientation, 0);
    PutBE<std::uint16_t>(head + kElements, 1);
    PutBE<std::uint32_t>(head + kPixelsPerLine, h.width);
    PutBE<std::uint32_t>(head + kLines, h.height);
    PutBE<std::uint32_t>(head + kRefHighData, (1u << layout.channelBits) - 1);
    head[kDescriptor] = layout.channels == 3 ? 50 : 6;
    head[kTransfer] = 2;      // linear
    head[kColorimetric] = 2;  // linear
    head[kBitSize] = static_cast<std::uint8_t>(layout.sampleBytes * 8);
    PutBE<std::uint16_t>(head + kPacking, layout.sampleBytes == 1 ? 1 : 0);
    PutBE<std::uint16_t>(head + kEncoding, 0);
    PutBE<std::uint32_t>(head + kDataOffset, static_cast<std::uint32_t>(dataOffset));
    PutBE<std::uint32_t>(head + kEolPadding,
                         static_cast<std::uint32_t>(stride - std::uint64_t{h.width} * layout.bytesPerPixel));
    out_.Write(head, sizeof head);
    if (frame.metadata != nullptr) {
      char id[kUserIdSize] = {};
      std::memcpy(id, kUserId, sizeof kUserId);
      out_.Write(id, sizeof id);
      out_.Write(frame.metadata, kMetadataBlockSize);
    }
    std::vector<std::uint8_t> row(stride, 0);
    const std::size_t inRow = std::size_t{h.width} * layout.bytesPerPixel;
    for (std::uint32_t y = 0; y < h.height; ++y) {
      ConvertRow(frame.pixels + y * inRow, row.data(), h.width, layout, true, true);
      out_.Write(row.data(), row.size());
    }
    return out_.Failed() ? kFkWriteFailed : 0;
  }

  int Finish() override { return out_.Close() ? 0 : kFkWriteFailed; }

 private:
  OutputStream out_;
};

class DpxFile final : public ImageFile {
 public:
  int Open(const std::string& path) {
    if (const int r = ReadWholeFile(path, data_); r != 0) return r;
    const ByteView v{data_.data(), data_.size()};
    if (!v.Has(0, kHeaderSize)) return kFkNotAnImage;
    if (std::memcmp(data_.data(), "SDPX", 4) == 0) bigEndian_ = true;
    else if (std::memcmp(data_.data(), "XPDS", 4) == 0) bigEndian_ = false;
    else return kFkNotAnImage;
    const std::uint8_t* h = data_.data();
    const std::uint8_t descriptor = h[kDescriptor];
    const std::uint8_t bitSize = h[kBitSize];
    if (U16(h + kElements) < 1 || !(descriptor == 6 || descriptor == 50) || !(bitSize == 8 || bitSize == 16) ||
        U16(h + kEncoding) != 0)
      return kFkNotAnImage;
    info_.width = U32(h + kPixelsPerLine);
    info_.height = U32(h + kLines);
    if (info_.width == 0 || info_.height == 0) return kFkDamagedImage;
    if (const int check = CheckGeometry(info_.width, info_.height, 6); check != 0) return check;
    layout_ = FormatOfDepth(descriptor == 50 ? (bitSize == 8 ? 24 : 48) : bitSize);
    offset_ = U32(h + kDataOffset);
    if (offset_ == 0 || offset_ == 0xFFFFFFFF) offset_ = U32(h + kImageOffset);
    stride_ = RowBytes(info_.width, layout_);
    if (const std::uint32_t eol = U32(h + kEolPadding); eol != 0xFFFFFFFF && eol < (1u << 20))
      stride_ = std::uint64_t{info_.width} * layout_.bytesPerPixel + eol;
    if (!v.Has(offset_, stride_ * info_.height)) return kFkDamagedImage;
    std::uint32_t sig = bitSize;
    if (const std::uint32_t high = U32(h + kRefHighData); high != 0 && std::has_single_bit(std::uint64_t{high} + 1))
      sig = std::min<std::uint32_t>(std::bit_width(high), bitSize);
    info_.fileType = 7;
    info_.bits = layout_.channels == 3 ? 3 * sig : sig;
    info_.colorKind = layout_.channels == 3 ? kColorKindColor : kColorKindGrey;
    info_.frameCount = 1;
    return 0;
  }

  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index != 0) return kFkDamagedImage;
    const std::size_t outRow = std::size_t{info_.width} * layout_.bytesPerPixel;
    frame.pixels.resize(outRow * info_.height);
    frame.alpha.clear();
    for (std::uint32_t y = 0; y < info_.height; ++y)
      ConvertRow(data_.data() + offset_ + y * stride_, frame.pixels.data() + y * outRow, info_.width, layout_,
                 true, bigEndian_);
    const std::uint8_t* h = data_.data();
    const ByteView v{data_.data(), data_.size()};
    frame.hasMetadata = U32(h + kUserSize) == kUserIdSize + kMetadataBlockSize &&
                        v.Has(kHeaderSize, kUserIdSize + kMetadataBlockSize) &&
                        std::memcmp(h + kHeaderSize, kUserId, sizeof kUserId) == 0;
    if (frame.hasMetadata)
      std::memcpy(frame.metadata.data(), h + kHeaderSize + kUserIdSize, kMetadataBlockSize);
    return 0;
  }

 private:
  std::uint16_t U16(const std::uint8_t* p) const { return bigEndian_ ? GetBE<std::uint16_t>(p) : GetLE<std::uint16_t>(p); }
  std::uint32_t U32(const std::uint8_t* p) const { return bigEndian_ ? GetBE<std::uint32_t>(p) : GetLE<std::uint32_t>(p); }

  std::vector<std::uint8_t> data_;
  bool bigEndian_ = true;
  PixelFormat layout_;
  std::uint64_t offset_ = 0, stride_ = 0;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateDpxWriter(const WriterStart& start, int*) {
  return std::make_unique<DpxWriter>(start.fd);
}

std::unique_ptr<ImageFile> OpenDpxFile(const std::string& path, int* result) {
  return OpenWith<DpxFile>(path, result);
}

}  // namespace tarnvel::framekit
