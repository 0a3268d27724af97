#include "platform/rawdrv/RawDriver.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <array>
#include <atomic>
#include <cerrno>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <map>
#include <memory>
#include <mutex>
#include <utility>
#include <string>
#include <vector>

#include "platform/cordage/TextField.h"
#include "platform/rawdrv/FrameDecoder.h"
#include "platform/rawdrv/RawStoreFormat.h"
#include "platform/rawdrv/RawFileDescriptor.h"

namespace tarnvel {
namespace {

using namespace rawstore;

// Largest sensor the driver accepts, so that a damaged header can't make it
// allocate without bound.
constexpr std::uint64_t kMaxSamples = std::uint64_t{1} << 28;
constexpr std::uint32_t kMaxSegments = 100000;

// Info block words: size, loaded parts, then the header (part A) and the
// store geometry of the descriptor (part B).
constexpr std::uint32_t kInfoLoadedA = 1, kInfoLoadedB = 2;
constexpr std::size_t kInfoHeaderAt = 16;
constexpr std::size_t kInfoStoreAt = kInfoHeaderAt + sizeof(StoreHeader);
struct InfoStore {
  std::uint32_t frameCount, frameSize, headerOffset, framesPerSegment, pixelDepth;
  std::int32_t preTrigger;
};
static_assert(kInfoStoreAt + sizeof(InfoStore) <= kInfoBlockBytes);

class FileDescriptor {
 public:
  FileDescriptor() = default;
  explicit FileDescriptor(int fd) : fd_(fd) {}
  FileDescriptor(FileDescriptor&& other) noexcept : fd_(std::exchange(other.fd_, -1)) {}
  FileDescriptor& operator=(FileDescriptor&& other) noexcept {
    std::swap(fd_, other.fd_);
    return *this;
  }
  ~FileDescriptor() {
    if (fd_ >= 0) ::close(fd_);
  }
  int get() const { return fd_; }
  bool valid() const { return fd_ >= 0; }

 private:
  int fd_ = -1;
};

// Reads exactly `size` bytes at `offset`: 0, kRawShortStore when the file
// ends first, kRawIoError when the read fails.
int ReadAt(int fd, void* buffer, std::size_t size, std::uint64_t offset) {
  auto* at = static_cast<std::uint8_t*>(buffer);
  while (size > 0) {
    const ssize_t got = ::pread(fd, at, size, static_cast<off_t>(offset));
    if (got < 0) {
      if (errno == EINTR) continue;
      return kRawIoError;
    }
    if (got == 0) return kRawShortStore;
    at += got;
    size -= static_cast<std::size_t>(got);
    offset += static_cast<std::uint64_t>(got);
  }
  return kRawOk;
}

FileDescriptor OpenRead(const std::string& path) { return FileDescriptor(::open(path.c_str(), O_RDONLY | O_CLOEXEC)); }

std::uint64_t FileBytes(const FileDescriptor& file) {
  struct stat status {};
  return ::fstat(file.get(), &status) == 0 ? static_cast<std::uint64_t>(status.st_size) : 0;
}

bool BareName(std::string_view name) {
  return !name.empty() && name != "." && name != ".." && name.find_first_of("/\\") == std::string_view::npos;
}

struct Recording {
  std::string folder;
  RawFileInfo descriptor{};
  StoreHeader header{};
  std::string imageName;  // name of the single store file, or of segment 0
  bool segmented = false;
  std::uint64_t payloadBytes = 0;
  std::vector<FileDescriptor> segments;  // opened when first needed
  std::vector<std::uint64_t> segmentBytes;
  std::vector<bool> segmentChecked;
  std::unique_ptr<FrameDecoder> decoder;
  std::vector<std::uint8_t> payload;
  std::vector<std::uint8_t> trailer;                    // trailer of the record being read
  std::array<std::uint8_t, kCameraTrailerBytes> last{};  // trailer of the last frame read
  bool haveFrame = false;
  bool mosaic = false;

  std::uint32_t DepthOf() const {
    return header.sensorKind == kColourMosaic ? 3 * header.sampleBits : header.sampleBits;
  }
  std::string SegmentName(std::uint32_t k) const {
    if (!segmented) return imageName;
    char number[16];
    std::snprintf(number, sizeof number, "%02u", k);
    return imageName.substr(0, imageName.size() - 6) + number + ".raw";  // replaces "00.raw"
  }
};

int ValidateHeader(const StoreHeader& h) {
  if (std::memcmp(h.magic, kStoreMagic, sizeof kStoreMagic) != 0 || h.version != kStoreVersion) return kRawBadHeader;
  if (h.headerSize < kMinHeaderBytes || h.width == 0 || h.height == 0) return kRawBadHeader;
  if (std::uint64_t{h.width} * h.height > kMaxSamples) return kRawBadHeader;
  if (PayloadBytes(1, h.sampleBits, h.packing) == 0) return kRawBadHeader;
  if (h.sensorKind > kColourMosaic || h.mosaicOrder > kBGGR || h.rotation > 3) return kRawBadHeader;
  if (h.sensorKind == kColourMosaic && (h.width < 2 || h.height < 2)) return kRawBadHeader;
  std::uint32_t trailerNeeds = kMinTrailerBytes;
  if (h.trailerFlags & kHasGevRecords) trailerNeeds = kGevTrailerBytes;
  if (h.trailerFlags & kHasCameraBlock) trailerNeeds = kCameraTrailerBytes;
  if (h.trailerSize < trailerNeeds) return kRawBadHeader;
  for (float gain : h.gains) {
    if (!std::isfinite(gain) || gain < 0.0f) return kRawBadHeader;
  }
  return kRawOk;
}

int LoadCalibration(const Recording& rec, const std::string& calName, std::vector<std::uint16_t>* offsets) {
  if (!BareName(calName)) return kRawNoCalibration;
  FileDescriptor file = OpenRead(JoinPath(rec.folder, calName));
  if (!file.valid()) return kRawNoCalibration;
  CalibrationHeader cal{};
  if (ReadAt(file.get(), &cal, sizeof cal, 0) != kRawOk) return kRawNoCalibration;
  if (std::memcmp(cal.magic, kCalibrationMagic, sizeof kCalibrationMagic) != 0 || cal.width != rec.header.width ||
      cal.height != rec.header.height || cal.kind != kCalibrationBlackOffsets) {
    return kRawNoCalibration;
  }
  const std::size_t count = std::size_t{cal.width} * cal.height;
  if (FileBytes(file) < sizeof cal + 2 * std::uint64_t{count}) return kRawNoCalibration;
  offsets->resize(count);
  if (ReadAt(file.get(), offsets->data(), offsets->size() * 2, sizeof cal) != kRawOk) return kRawNoCalibration;
  return kRawOk;
}

int OpenStore(Recording& rec) {
  const std::string descriptorPath = JoinPath(rec.folder, kRawFileDescriptorName);
  char imageName[kPathField] = {}, secondName[kPathField] = {}, calName[kPathField] = {};
  if (ReadRawFileNames(descriptorPath.c_str(), imageName, secondName, calName) != 1) return kRawNoDescriptor;
  if (ReadRawFileInfo(descriptorPath.c_str(), 0, &rec.descriptor) != 1) return kRawNoDescriptor;
  const RawFileInfo& d = rec.descriptor;
  rec.imageName = imageName;
  if (!BareName(rec.imageName) || rec.imageName.size() >= kPathField - 1) return kRawBadDescriptor;
  if (d.CalibrationType > 1 || d.FrameCount > 0x7FFFFFFFu) return kRawBadDescriptor;
  rec.segmented = d.FramesPerSegment != 0 && d.FramesPerSegment < d.FrameCount;
  std::uint32_t segmentCount = 1;
  if (rec.segmented) {
    const std::string_view name(rec.imageName);
    if (name.size() < 7 || name.substr(name.size() - 7) != ".00.raw") return kRawBadDescriptor;
    segmentCount = (d.FrameCount + d.FramesPerSegment - 1) / d.FramesPerSegment;
    if (segmentCount > kMaxSegments) return kRawBadDescriptor;
  }

  FileDescriptor first = OpenRead(JoinPath(rec.folder, rec.imageName));
  if (!first.valid()) return kRawNoStore;
  if (ReadAt(first.get(), &rec.header, sizeof rec.header, 0) != kRawOk) return kRawBadHeader;
  if (const int bad = ValidateHeader(rec.header); bad != kRawOk) return bad;
  const StoreHeader& h = rec.header;
  rec.payloadBytes = PayloadBytes(std::uint64_t{h.width} * h.height, h.sampleBits, h.packing);
  if (d.HeaderOffset != h.headerSize || d.PixelDepth != rec.DepthOf() ||
      std::uint64_t{d.FrameSize} < rec.payloadBytes + h.trailerSize) {
    return kRawMismatch;
  }

  std::vector<std::uint16_t> offsets;
  if (d.CalibrationType == 1) {
    if (const int bad = LoadCalibration(rec, calName, &offsets); bad != kRawOk) return bad;
  }
  rec.segments.resize(segmentCount);
  rec.segmentBytes.assign(segmentCount, 0);
  rec.segmentChecked.assign(segmentCount, false);
  rec.segmentBytes[0] = FileBytes(first);
  rec.segments[0] = std::move(first);
  rec.segmentChecked[0] = true;
  rec.decoder = std::make_unique<FrameDecoder>(h, std::move(offsets));
  rec.trailer.resize(h.trailerSize);
  return kRawOk;
}

// Opens segment k on first use and checks that it starts with the same header.
int SegmentFile(Recording& rec, std::uint32_t k, int* fd) {
  if (!rec.segmentChecked[k]) {
    FileDescriptor file = OpenRead(JoinPath(rec.folder, rec.SegmentName(k)));
    if (!file.valid()) return kRawIoError;
    StoreHeader header{};
    if (const int bad = ReadAt(file.get(), &header, sizeof header, 0); bad != kRawOk) return bad;
    if (std::memcmp(&header, &rec.header, sizeof header) != 0) return kRawSegmentMismatch;
    rec.segmentBytes[k] = FileBytes(file);
    rec.segments[k] = std::move(file);
    rec.segmentChecked[k] = true;
  }
  *fd = rec.segments[k].get();
  return kRawOk;
}

int ReadRecord(Recording& rec, std::uint32_t index, void* buffer) {
  const RawFileInfo& d = rec.descriptor;
  const std::uint32_t perSegment = rec.segmented ? d.FramesPerSegment : d.FrameCount;
  const std::uint32_t k = rec.segmented ? index / perSegment : 0;
  const std::uint64_t position = rec.segmented ? index % perSegment : index;
  int fd = -1;
  if (const int bad = SegmentFile(rec, k, &fd); bad != kRawOk) return bad;
  const std::uint64_t recordAt = d.HeaderOffset + position * d.FrameSize;
  // A record that the file can't hold fails before anything is read or made.
  if (recordAt + d.FrameSize > rec.segmentBytes[k]) return kRawShortStore;
  rec.payload.resize(rec.payloadBytes);
  const std::uint32_t trailerSize = rec.header.trailerSize;
  if (const int bad = ReadAt(fd, rec.trailer.data(), trailerSize, recordAt + d.FrameSize - trailerSize);
      bad != kRawOk) {
    return bad;
  }
  TrailerHead head{};
  std::memcpy(&head, rec.trailer.data(), sizeof head);
  if (head.storeIndex != index) return kRawWrongStoreIndex;
  if (const int bad = ReadAt(fd, rec.payload.data(), rec.payload.size(), recordAt); bad != kRawOk) return bad;
  rec.decoder->Decode(rec.payload.data(), rec.mosaic, buffer);

  // Parts the trailer doesn't carry read as zeros.
  rec.last.fill(0);
  std::uint32_t keep = kMinTrailerBytes;
  if (rec.header.trailerFlags & kHasGevRecords) keep = kGevTrailerBytes;
  std::memcpy(rec.last.data(), rec.trailer.data(), keep);
  if (rec.header.trailerFlags & kHasCameraBlock) {
    std::memcpy(rec.last.data() + kCameraBlockAt, rec.trailer.data() + kCameraBlockAt, kTrailerCameraBytes);
  }
  return kRawOk;
}

struct Driver {
  std::mutex mutex;
  int initCount = 0;
  std::map<RawHandle, std::shared_ptr<Recording>> open;
  std::atomic<RawHandle> nextHandle{1};
};

Driver& TheDriver() {
  static Driver driver;
  return driver;
}

std::shared_ptr<Recording> Find(RawHandle handle) {
  Driver& driver = TheDriver();
  std::lock_guard lock(driver.mutex);
  const auto it = driver.open.find(handle);
  return it == driver.open.end() ? nullptr : it->second;
}

std::uint32_t LastWord(const Recording& rec, std::size_t offset) {
  std::uint32_t word = 0;
  std::memcpy(&word, rec.last.data() + offset, sizeof word);
  return word;
}

}  // namespace

int DriverInit(std::uint16_t) {
  Driver& driver = TheDriver();
  std::lock_guard lock(driver.mutex);
  ++driver.initCount;
  return kRawOk;
}

int DriverExit() {
  Driver& driver = TheDriver();
  std::lock_guard lock(driver.mutex);
  if (driver.initCount == 0) return kRawNotInitialised;
  if (--driver.initCount == 0) driver.open.clear();
  return kRawOk;
}

int OpenRecording(const char* folder, RawHandle* handle) {
  if (!folder || !handle) return kRawBadArgument;
  *handle = 0;
  {
    Driver& driver = TheDriver();
    std::lock_guard lock(driver.mutex);
    if (driver.initCount == 0) return kRawNotInitialised;
  }
  auto rec = std::make_shared<Recording>();
  rec->folder = folder;
  if (const int bad = OpenStore(*rec); bad != kRawOk) return bad;
  Driver& driver = TheDriver();
  std::lock_guard lock(driver.mutex);
  if (driver.initCount == 0) return kRawNotInitialised;
  const RawHandle fresh = driver.nextHandle++;
  driver.open.emplace(fresh, std::move(rec));
  *handle = fresh;
  return kRawOk;
}

int CloseRecording(RawHandle handle) {
  Driver& driver = TheDriver();
  std::lock_guard lock(driver.mutex);
  return driver.open.erase(handle) == 1 ? kRawOk : kRawBadHandle;
}

int GetCameraValue(RawHandle handle, std::uint32_t id, void* first, std::uint32_t* second) {
  if (second) *second = 0;
  if (!first) return kRawBadArgument;
  const auto rec = Find(handle);
  if (id == kCamModelText) {
    auto* text = static_cast<char*>(first);
    text[0] = '\0';
    if (!rec) return kRawBadHandle;
    CopyText(text, kCameraTextBytes, FieldText(rec->header.cameraModelText));
    return kRawOk;
  }
  std::uint32_t value = 0;
  int result = rec ? kRawOk : kRawBadHandle;
  if (rec) {
    const StoreHeader& h = rec->header;
    switch (id) {
      case kCamModelIndex: value = h.modelIndex; break;
      case kCamSerialNumber: value = h.serialNumber; break;
      case kCamValue14: value = h.cameraValue14; break;
      case kCamValue15: value = h.cameraValue15; break;
      case kCamMosaicOrder: value = h.mosaicOrder; break;
      case kCamSubModel: value = h.subModel; break;
      case kCamNetworkAddress: value = h.networkAddress; break;
      default: result = kRawBadArgument; break;
    }
  }
  std::memcpy(first, &value, sizeof value);
  return result;
}

namespace {
int LoadInfoPart(RawHandle handle, void* infoBlock, std::uint32_t part) {
  if (!infoBlock) return kRawBadArgument;
  auto* block = static_cast<std::uint8_t*>(infoBlock);
  std::uint32_t size = 0;
  std::memcpy(&size, block, sizeof size);
  if (size != kInfoBlockBytes) return kRawBadArgument;
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  std::uint32_t loaded = 0;
  std::memcpy(&loaded, block + 4, sizeof loaded);
  if (part == kInfoLoadedA) {
    std::memset(block + 8, 0, kInfoBlockBytes - 8);
    loaded = 0;
    std::memcpy(block + kInfoHeaderAt, &rec->header, sizeof rec->header);
  } else {
    const RawFileInfo& d = rec->descriptor;
    const InfoStore store{d.FrameCount, d.FrameSize, d.HeaderOffset, d.FramesPerSegment, rec->DepthOf(), d.PreTrigger};
    std::memcpy(block + kInfoStoreAt, &store, sizeof store);
  }
  loaded |= part;
  std::memcpy(block + 4, &loaded, sizeof loaded);
  return kRawOk;
}
}  // namespace

int LoadInfoA(RawHandle handle, void* infoBlock) { return LoadInfoPart(handle, infoBlock, kInfoLoadedA); }
int LoadInfoB(RawHandle handle, void* infoBlock) { return LoadInfoPart(handle, infoBlock, kInfoLoadedB); }

int GetProperty(RawHandle handle, const void* infoBlock, std::uint32_t id, std::uint32_t* result) {
  if (!result) return kRawBadArgument;
  *result = 0;
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  if (id == kPropAutoExposureNs || id == kPropFrameFlag) {
    if (!rec->haveFrame) return kRawNoFrameRead;
    *result = LastWord(*rec, id == kPropAutoExposureNs ? offsetof(TrailerHead, autoExposureNs)
                                                       : offsetof(TrailerHead, frameFlag));
    return kRawOk;
  }
  if (!infoBlock) return kRawBadArgument;
  const auto* block = static_cast<const std::uint8_t*>(infoBlock);
  std::uint32_t size = 0, loaded = 0;
  std::memcpy(&size, block, sizeof size);
  std::memcpy(&loaded, block + 4, sizeof loaded);
  if (size != kInfoBlockBytes) return kRawBadArgument;
  if (loaded != (kInfoLoadedA | kInfoLoadedB)) return kRawInfoNotLoaded;
  StoreHeader h{};
  InfoStore store{};
  std::memcpy(&h, block + kInfoHeaderAt, sizeof h);
  std::memcpy(&store, block + kInfoStoreAt, sizeof store);
  switch (id) {
    case kPropExposureNs: *result = h.exposureNs; break;
    case kPropPixelDepth: *result = store.pixelDepth; break;
    case kPropSix: *result = h.propertySix; break;
    case kPropSizeFactor: *result = h.sizeFactor; break;
    case kPropFrameWidth: *result = h.width; break;
    case kPropFrameHeight: *result = h.height; break;
    case kPropFramePeriodNs: *result = h.framePeriodNs; break;
    case kPropResolutionSuffix: *result = h.resolutionSuffix; break;
    case kPropRotation: *result = h.rotation; break;
    default: return kRawBadArgument;
  }
  return kRawOk;
}

int ReadFrame(RawHandle handle, int, int, std::int32_t frameIndex, void* buffer) {
  if (!buffer) return kRawBadArgument;
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  rec->haveFrame = false;
  rec->last.fill(0);
  int result = kRawFrameOutOfRange;
  if (frameIndex >= 0 && static_cast<std::uint32_t>(frameIndex) < rec->descriptor.FrameCount) {
    result = ReadRecord(*rec, static_cast<std::uint32_t>(frameIndex), buffer);
  }
  if (result != kRawOk) {
    rec->last.fill(0);
    std::memset(buffer, 0, rec->decoder->DeliveredBytes(rec->mosaic));
    return result;
  }
  rec->haveFrame = true;
  return kRawOk;
}

int GetFrameTime(RawHandle handle, int, TimeStampBlock* timeBlock) {
  if (!timeBlock) return kRawBadArgument;
  *timeBlock = TimeStampBlock{};
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  std::memcpy(timeBlock, rec->last.data(), 8 * sizeof(std::uint32_t));
  return rec->haveFrame ? kRawOk : kRawNoFrameRead;
}

int SetMosaicDelivery(RawHandle handle, int on) {
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  if (on != 0 && on != 1) return kRawBadArgument;
  rec->mosaic = on == 1;
  return kRawOk;
}

int GetCameraBlock(RawHandle handle, void* buffer, std::uint32_t size) {
  if (!buffer || size != kCameraBlockBytes) return kRawBadArgument;
  std::memset(buffer, 0, size);
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  if (!(rec->header.trailerFlags & kHasCameraBlock)) return kRawNoCameraBlock;
  std::memcpy(buffer, rec->last.data() + kCameraBlockAt, kTrailerCameraBytes);
  return rec->haveFrame ? kRawOk : kRawNoFrameRead;
}

int GetGevRecords(RawHandle handle, void* first, void* second, void* third) {
  if (!first || !second || !third) return kRawBadArgument;
  std::memset(first, 0, kGevRecord1Bytes);
  std::memset(second, 0, kGevRecord2Bytes);
  std::memset(third, 0, kGevRecord3Bytes);
  const auto rec = Find(handle);
  if (!rec) return kRawBadHandle;
  std::memcpy(first, rec->last.data() + kGevRecord1At, kGevRecord1Bytes);
  std::memcpy(second, rec->last.data() + kGevRecord2At, kGevRecord2Bytes);
  std::memcpy(third, rec->last.data() + kGevRecord3At, kGevRecord3Bytes);
  return rec->haveFrame ? kRawOk : kRawNoFrameRead;
}

std::uint64_t FrameBytes(RawHandle handle) {
  const auto rec = Find(handle);
  return rec ? rec->decoder->DeliveredBytes(rec->mosaic) : 0;
}

}  // namespace tarnvel
