// The suite's containers: TP2, FBA, MRF, MCF, BLD and T2C. One layout serves
// all six (docs/containers.md), as each descriptor says: a 64-byte header,
// then one record per frame, each the frame's pixels and its 1024-byte block;
// MCF stores the pixels row-delta coded and deflated. TP2 and T2C take the
// block from behind the 8-bit pixels, where the frame step put it, already
// in big-endian order.
#include <algorithm>
#include <cerrno>
#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>
#include <zlib.h>

#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "platform/framekit/OutputStream.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Bytes.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint32_t kHeaderSize = 64;
constexpr std::uint32_t kVersion = 1;
constexpr std::uint32_t kFlagMosaic = 1, kFlagCompressed = 2, kFlagBlockInPixels = 4;
constexpr std::uint32_t kCompressedRecordHead = 8;
// Header offsets.
constexpr std::size_t kOffHeaderSize = 8, kOffVersion = 12, kOffType = 16, kOffWidth = 20, kOffHeight = 24,
                      kOffBits = 28, kOffColorKind = 32, kOffFlags = 36, kOffMosaicOrder = 40,
                      kOffFrameCount = 44, kOffFrameBytes = 48, kOffRate = 56, kOffSerial = 60;

// A container type: its number goes into each file's header, its layout
// (magic, compression, block in the pixels) comes from its descriptor.
struct Layout {
  int type;
  const ContainerFormat& format;
};

// The container type whose magic the file starts with, or null.
const FileTypeDescriptor* ContainerOfMagic(const std::uint8_t* head) {
  for (const FileTypeDescriptor& type : FileTypes())
    if (type.container && std::memcmp(head, type.container->magic, 8) == 0) return &type;
  return nullptr;
}

// Each sample minus the one before it of the same channel in its row (and back).
template <typename T>
void DeltaRows(T* data, std::size_t width, std::size_t height, std::size_t channels, bool encode) {
  const std::size_t rowSamples = width * channels;
  for (std::size_t y = 0; y < height; ++y) {
    T* row = data + y * rowSamples;
    if (encode) {
      for (std::size_t i = rowSamples; i-- > channels;) row[i] = static_cast<T>(row[i] - row[i - channels]);
    } else {
      for (std::size_t i = channels; i < rowSamples; ++i) row[i] = static_cast<T>(row[i] + row[i - channels]);
    }
  }
}

void DeltaFrame(std::uint8_t* data, std::uint32_t width, std::uint32_t height, const PixelFormat& layout,
                bool encode) {
  if (layout.sampleBytes == 1)
    DeltaRows(data, width, height, layout.channels, encode);
  else
    DeltaRows(reinterpret_cast<std::uint16_t*>(data), width, height, layout.channels, encode);
}

class ContainerWriter final : public FrameWriter {
 public:
  ContainerWriter(int fd, const Layout& layout) : out_(fd), layout_(layout), fd_(fd) {}
  ~ContainerWriter() override { Finish(); }

  int Write(const FrameData& frame) override {
    const FrameHeader& h = *frame.header;
    const std::uint32_t depth = StoredDepth(h);
    const PixelFormat pixels = FormatOfDepth(depth);
    const std::uint64_t frameBytes = std::uint64_t{h.width} * h.height * pixels.bytesPerPixel;
    if (layout_.format.blockInPixels && pixels.bytesPerPixel != 1) return kFkUnsupportedDepth;
    if (!started_) {
      WriteHeader(h, frameBytes);
      started_ = true;
    } else if (h.width != header_.width || h.height != header_.height || h.bits != header_.bits ||
               h.mosaic != header_.mosaic) {
      return kFkBadArgument;  // one geometry per file
    }
    const std::uint8_t* block = layout_.format.blockInPixels ? frame.pixels + frameBytes : frame.metadata;
    static const std::uint8_t kNoBlock[kMetadataBlockSize] = {};
    if (block == nullptr) block = kNoBlock;
    if (layout_.format.compressed) {
      if (const int r = WriteCompressed(frame.pixels, frameBytes, h, pixels, block); r != 0) return r;
    } else if (layout_.format.blockInPixels) {
      out_.Write(frame.pixels, frameBytes + kMetadataBlockSize);
    } else {
      out_.Write(frame.pixels, frameBytes);
      out_.Write(block, kMetadataBlockSize);
    }
    // Each frame goes to the system at once, so that a full disk shows at the
    // frame that met it.
    if (!out_.Flush()) return kFkWriteFailed;
    frameEnds_.push_back(out_.Position());
    return 0;
  }

  int Finish() override {
    if (finished_) return 0;
    finished_ = true;
    if (!started_) return out_.Close() ? 0 : kFkWriteFailed;
    out_.Flush();
    // Count the frames that reached the file whole, so that a file cut short
    // by a failing disk still says what it holds.
    const std::uint64_t onDisk = out_.Failed() ? DurableSize() : out_.Position();
    const auto whole = static_cast<std::uint32_t>(
        std::upper_bound(frameEnds_.begin(), frameEnds_.end(), onDisk) - frameEnds_.begin());
    std::uint8_t count[4];
    PutLE<std::uint32_t>(count, whole);
    const bool failedBefore = out_.Failed();
    const bool patched = ::pwrite(fd_, count, sizeof count, kOffFrameCount) == sizeof count;
    struct stat info {};
    // A file whose folder vanished while it was written is gone with it.
    const bool unlinked = ::fstat(fd_, &info) == 0 && info.st_nlink == 0;
    const bool closed = out_.Close();
    return (failedBefore || !patched || unlinked || !closed) ? kFkWriteFailed : 0;
  }

 private:
  std::uint64_t DurableSize() const {
    const off_t end = ::lseek(fd_, 0, SEEK_END);
    return end < 0 ? 0 : static_cast<std::uint64_t>(end);
  }

  void WriteHeader(const FrameHeader& h, std::uint64_t frameBytes) {
    header_ = h;
    std::uint8_t head[kHeaderSize] = {};
    std::memcpy(head, layout_.format.magic, 8);
    PutLE<std::uint32_t>(head + kOffHeaderSize, kHeaderSize);
    PutLE<std::uint32_t>(head + kOffVersion, kVersion);
    PutLE<std::uint32_t>(head + kOffType, static_cast<std::uint32_t>(layout_.type));
    PutLE<std::uint32_t>(head + kOffWidth, h.width);
    PutLE<std::uint32_t>(head + kOffHeight, h.height);
    PutLE<std::uint32_t>(head + kOffBits, h.bits);
    PutLE<std::uint32_t>(head + kOffColorKind, h.bits > 16 ? kColorKindColor : kColorKindGrey);
    const std::uint32_t flags = (h.mosaic ? kFlagMosaic : 0) | (layout_.format.compressed ? kFlagCompressed : 0) |
                                (layout_.format.blockInPixels ? kFlagBlockInPixels : 0);
    PutLE<std::uint32_t>(head + kOffFlags, flags);
    PutLE<std::uint32_t>(head + kOffMosaicOrder, h.mosaic ? h.mosaicOrder : 0);
    PutLE<std::uint32_t>(head + kOffFrameCount, 0);
    PutLE<std::uint64_t>(head + kOffFrameBytes, frameBytes);
    std::memcpy(head + kOffRate, &h.rate, 4);
    PutLE<std::uint32_t>(head + kOffSerial, h.serial);
    out_.Write(head, sizeof head);
  }

  int WriteCompressed(const std::uint8_t* data, std::uint64_t frameBytes, const FrameHeader& h,
                      const PixelFormat& pixels, const std::uint8_t* block) {
    delta_.assign(data, data + frameBytes);
    DeltaFrame(delta_.data(), h.width, h.height, pixels, true);
    uLongf packedBytes = compressBound(static_cast<uLong>(frameBytes));
    packed_.resize(packedBytes);
    if (compress2(packed_.data(), &packedBytes, delta_.data(), static_cast<uLong>(frameBytes), 1) != Z_OK ||
        packedBytes > 0xFFFFFFFFu)
      return kFkCodecFailed;
    std::uint8_t head[kCompressedRecordHead];
    PutLE<std::uint32_t>(head, static_cast<std::uint32_t>(packedBytes));
    PutLE<std::uint32_t>(head + 4, static_cast<std::uint32_t>(adler32(1, data, static_cast<uInt>(frameBytes))));
    out_.Write(head, sizeof head);
    out_.Write(block, kMetadataBlockSize);
    out_.Write(packed_.data(), packedBytes);
    return 0;
  }

  OutputStream out_;
  Layout layout_;
  int fd_;  // owned by out_; used for the count at the end
  bool started_ = false, finished_ = false;
  FrameHeader header_;
  std::vector<std::uint64_t> frameEnds_;
  std::vector<std::uint8_t> delta_, packed_;
};

class ContainerFile final : public ImageFile {
 public:
  ~ContainerFile() override {
    if (fd_ >= 0) ::close(fd_);
  }

  int Open(const std::string& path) {
    fd_ = ::open(path.c_str(), O_RDONLY | O_CLOEXEC);
    if (fd_ < 0) return kFkReadFailed;
    const off_t end = ::lseek(fd_, 0, SEEK_END);
    if (end < 0) return kFkReadFailed;
    fileSize_ = static_cast<std::uint64_t>(end);
    std::uint8_t head[kHeaderSize];
    if (!ReadAt(0, head, sizeof head)) return kFkNotAnImage;
    layout_ = ContainerOfMagic(head);
    if (layout_ == nullptr) return kFkNotAnImage;
    const std::uint32_t flags = GetLE<std::uint32_t>(head + kOffFlags);
    info_.fileType = layout_->number;
    info_.width = GetLE<std::uint32_t>(head + kOffWidth);
    info_.height = GetLE<std::uint32_t>(head + kOffHeight);
    info_.bits = GetLE<std::uint32_t>(head + kOffBits);
    info_.colorKind = GetLE<std::uint32_t>(head + kOffColorKind);
    info_.mosaic = (flags & kFlagMosaic) ? 1 : 0;
    info_.mosaicOrder = GetLE<std::uint32_t>(head + kOffMosaicOrder);
    std::memcpy(&info_.rate, head + kOffRate, 4);
    const std::uint32_t depth = info_.mosaic ? info_.bits / 3 : info_.bits;
    if (GetLE<std::uint32_t>(head + kOffHeaderSize) != kHeaderSize || !DepthAllowed(depth, true) ||
        (info_.mosaic && (info_.bits % 3 != 0 || depth > 16)) ||
        ((flags & kFlagCompressed) != 0) != layout_->container->compressed)
      return kFkDamagedImage;
    if (const int check = CheckGeometry(info_.width, info_.height, 6); check != 0) return check;
    pixelLayout_ = FormatOfDepth(depth);
    frameBytes_ = std::uint64_t{info_.width} * info_.height * pixelLayout_.bytesPerPixel;
    if (GetLE<std::uint64_t>(head + kOffFrameBytes) != frameBytes_) return kFkDamagedImage;
    const std::uint32_t count = GetLE<std::uint32_t>(head + kOffFrameCount);
    // Index the records that the file holds whole; a cut file keeps its whole
    // frames, and a file never closed (count 0) all the records it has.
    std::uint64_t at = kHeaderSize;
    for (std::uint32_t i = 0; count == 0 ? i < UINT32_MAX : i < count; ++i) {
      std::uint64_t record = frameBytes_ + kMetadataBlockSize;
      std::uint64_t stored = frameBytes_;
      if (layout_->container->compressed) {
        std::uint8_t recordHead[kCompressedRecordHead];
        if (!ReadAt(at, recordHead, sizeof recordHead)) break;
        stored = GetLE<std::uint32_t>(recordHead);
        if (stored > compressBound(static_cast<uLong>(frameBytes_))) break;
        record = kCompressedRecordHead + kMetadataBlockSize + stored;
      }
      if (record > fileSize_ - std::min(at, fileSize_)) break;
      records_.push_back({at, stored});
      at += record;
    }
    info_.frameCount = static_cast<std::uint32_t>(records_.size());
    return 0;
  }

  int ReadFrame(std::uint32_t index, DecodedFrame& frame) override {
    if (index >= records_.size()) return kFkDamagedImage;
    const Record& r = records_[index];
    frame.pixels.resize(frameBytes_);
    frame.alpha.clear();
    if (!layout_->container->compressed) {
      if (!ReadAt(r.offset, frame.pixels.data(), frameBytes_) ||
          !ReadAt(r.offset + frameBytes_, frame.metadata.data(), kMetadataBlockSize))
        return kFkDamagedImage;
    } else {
      std::uint8_t recordHead[kCompressedRecordHead];
      std::vector<std::uint8_t> packed(r.stored);
      if (!ReadAt(r.offset, recordHead, sizeof recordHead) ||
          !ReadAt(r.offset + kCompressedRecordHead, frame.metadata.data(), kMetadataBlockSize) ||
          !ReadAt(r.offset + kCompressedRecordHead + kMetadataBlockSize, packed.data(), packed.size()))
        return kFkDamagedImage;
      uLongf unpacked = static_cast<uLongf>(frameBytes_);
      if (uncompress(frame.pixels.data(), &unpacked, packed.data(), static_cast<uLong>(packed.size())) != Z_OK ||
          unpacked != frameBytes_)
        return kFkDamagedImage;
      DeltaFrame(frame.pixels.data(), info_.width, info_.height, pixelLayout_, false);
      if (adler32(1, frame.pixels.data(), static_cast<uInt>(frameBytes_)) != GetLE<std::uint32_t>(recordHead + 4))
        return kFkDamagedImage;
    }
    frame.hasMetadata = std::any_of(frame.metadata.begin(), frame.metadata.end(), [](std::uint8_t b) { return b != 0; });
    return 0;
  }

 private:
  struct Record {
    std::uint64_t offset, stored;
  };

  bool ReadAt(std::uint64_t offset, void* data, std::size_t bytes) const {
    auto* p = static_cast<std::uint8_t*>(data);
    while (bytes > 0) {
      const ssize_t n = ::pread(fd_, p, bytes, static_cast<off_t>(offset));
      if (n < 0 && errno == EINTR) continue;
      if (n <= 0) return false;
      p += n;
      offset += static_cast<std::uint64_t>(n);
      bytes -= static_cast<std::size_t>(n);
    }
    return true;
  }

  int fd_ = -1;
  std::uint64_t fileSize_ = 0, frameBytes_ = 0;
  const FileTypeDescriptor* layout_ = nullptr;
  PixelFormat pixelLayout_;
  std::vector<Record> records_;
};

}  // namespace

std::unique_ptr<FrameWriter> CreateContainerWriter(const WriterStart& start, int* result) {
  if (start.type.container == nullptr) {
    ::close(start.fd);
    *result = kFkTypeNotAvailable;
    return nullptr;
  }
  return std::make_unique<ContainerWriter>(start.fd, Layout{start.type.number, *start.type.container});
}

std::unique_ptr<ImageFile> OpenContainerFile(const std::string& path, int* result) {
  return OpenWith<ContainerFile>(path, result);
}

}  // namespace tarnvel::framekit
