#include "platform/framekit/FrameKit.h"

#include <algorithm>
#include <array>
#include <cerrno>
#include <cstring>
#include <fcntl.h>
#include <memory>
#include <mutex>
#include <optional>
#include <string>
#include <unistd.h>
#include <vector>

#include "platform/cordage/TextField.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/framekit/PixelRows.h"
#include "platform/framekit/formats/Calendar.h"

namespace tarnvel {

using framekit::FileTypeDescriptor;
using framekit::FrameWriter;

struct OutputFile {
  const FileTypeDescriptor* type = nullptr;
  FrameOptions options;  // as the file was opened; its writer keeps them
  std::unique_ptr<FrameWriter> writer;
  bool ended = false;
  std::optional<CaptureInfo> capture;
};

namespace {

// Largest frame the library takes: 2^20 pixels a side and 4 GiB of pixels.
constexpr std::uint32_t kMaxSide = 1u << 20;
constexpr std::uint64_t kMaxFrameBytes = 1ull << 32;

struct OptionStore {
  std::mutex mutex;
  std::array<FrameOptions, 64> options{};  // indexed by type number
  std::array<bool, 64> set{};
};

OptionStore& Options() {
  static OptionStore store;
  return store;
}

std::uint32_t CapabilityBit(int code) { return 1u << (code - 1); }

int CheckFrame(const OutputFile& out, std::uint32_t index, std::uint32_t total,
               const FrameHeader* header, const void* pixels) {
  if (header == nullptr || pixels == nullptr || header->size != kFrameHeaderSize)
    return kFkBadArgument;
  if (total == 0 || index >= total) return kFkBadArgument;
  if (header->width == 0 || header->height == 0 || header->width > kMaxSide ||
      header->height > kMaxSide)
    return kFkBadArgument;
  if (header->mosaic != 0 &&
      (!Has(*out.type, framekit::kMosaic) || header->bits % 3 != 0 || header->mosaic != 1))
    return kFkBadArgument;
  const std::uint32_t depth = framekit::StoredDepth(*header);
  if (!framekit::DepthAllowed(depth, Has(*out.type, framekit::kDeep))) return kFkUnsupportedDepth;
  if (header->mosaic && depth > 16) return kFkUnsupportedDepth;
  const std::uint64_t bytes = std::uint64_t{header->width} * header->height *
                              FormatOfDepth(depth).bytesPerPixel;
  if (bytes > kMaxFrameBytes) return kFkBadArgument;
  return 0;
}

}  // namespace

void FillGreyPalette(FrameHeader& header) {
  for (std::uint32_t i = 0; i < 256; ++i) header.palette[i] = i | (i << 8) | (i << 16) | (1u << 24);
}

const char* FrameKitResultText(int result) {
  switch (result) {
    case 0: return "success";
    case kFkBadHandle: return "no open output";
    case kFkBadArgument: return "invalid frame or argument";
    case kFkUnsupportedDepth: return "depth not supported by this file type";
    case kFkTypeNotAvailable: return "type not available";
    case kFkFrameAfterEnd: return "frame after the end of the file";
    case kFkUnknownType: return "unknown file type";
    case kFkNoDialog: return "the compressor has no configuration dialog";
    case kFkCreateFailed: return "the file could not be created";
    case kFkWriteFailed: return "the file could not be written";
    case kFkCodecFailed: return "the encoder failed";
    case kFkReadFailed: return "the file could not be read";
    case kFkNotAnImage: return "not an image file of a known type";
    case kFkDamagedImage: return "the image file is damaged or truncated";
    case kFkImageTooLarge: return "the image is too large";
    case kFkOutOfMemory: return "out of memory";
    default: return "unknown result";
  }
}

int GetExtension(int fileType, char* text, std::size_t capacity) {
  if (text == nullptr || capacity == 0) return kFkBadArgument;
  text[0] = '\0';
  const FileTypeDescriptor* row = framekit::FindFileType(fileType);
  if (row == nullptr) return kFkUnknownType;
  return CopyText(text, capacity, row->extension) ? 0 : kFkBadArgument;
}

int OpenOutput(const char* path, int /*mode: the engine passes 1, which is the only mode*/,
               FrameHandle* handle, const FrameOptions* options) {
  if (handle == nullptr) return kFkBadArgument;
  *handle = nullptr;
  if (path == nullptr || path[0] == '\0') return kFkBadArgument;
  const std::string_view name = LastComponent(path);
  const std::size_t dot = name.rfind('.');
  if (dot == std::string_view::npos) return kFkUnknownType;
  const FileTypeDescriptor* type = framekit::FindFileTypeByExtension(name.substr(dot + 1));
  if (type == nullptr) return kFkUnknownType;
  if (type->writer == nullptr) return kFkTypeNotAvailable;
  if (options != nullptr && (options->size != kFrameOptionsSize || options->quality > 10000)) return kFkBadArgument;
  auto out = std::make_unique<OutputFile>();
  out->type = type;
  out->options = options != nullptr ? *options : framekit::OptionsInForce(type->optionsType);
  out->options.name[sizeof out->options.name - 1] = '\0';
  // libtiff reads back earlier directories to link a new page: read and write.
  const int fd = ::open(path, O_RDWR | O_CREAT | O_TRUNC | O_CLOEXEC, 0666);
  if (fd < 0) return kFkCreateFailed;
  int result = 0;
  const std::string file(path);
  out->writer = type->writer(framekit::WriterStart{fd, file, *type, out->options}, &result);
  if (!out->writer) return result != 0 ? result : kFkCreateFailed;
  *handle = out.release();
  return 0;
}

int CloseOutput(FrameHandle handle) {
  if (handle == nullptr) return kFkBadHandle;
  std::unique_ptr<OutputFile> out(handle);
  return out->ended ? 0 : out->writer->Finish();
}

int WriteFrame(FrameHandle handle, std::uint32_t index, std::uint32_t total,
               const FrameHeader* header, const void* metadata, const void* pixels) {
  if (handle == nullptr) return kFkBadHandle;
  OutputFile& out = *handle;
  if (out.ended) return kFkFrameAfterEnd;
  if (const int check = CheckFrame(out, index, total, header, pixels); check != 0) return check;
  framekit::FrameData frame;
  frame.index = index;
  frame.total = total;
  frame.header = header;
  frame.metadata = static_cast<const std::uint8_t*>(metadata);
  frame.pixels = static_cast<const std::uint8_t*>(pixels);
  frame.capture = out.capture ? &*out.capture : nullptr;
  const int result = out.writer->Write(frame);
  if (result != 0) return result;
  if (!Has(*out.type, framekit::kMultiFrame) || index + 1 == total) {
    out.ended = true;
    return out.writer->Finish();
  }
  return 0;
}

int SetCaptureInfo(FrameHandle handle, const CaptureInfo* info) {
  if (handle == nullptr) return kFkBadHandle;
  if (info == nullptr) {
    handle->capture.reset();
    return 0;
  }
  if (info->size != kCaptureInfoSize) return kFkBadArgument;
  // The writers trust what is kept: texts ended, a known time source with a
  // four-digit year, a rate that is a number.
  CaptureInfo copy = *info;
  copy.model[sizeof copy.model - 1] = '\0';
  copy.serial[sizeof copy.serial - 1] = '\0';
  const auto source = static_cast<std::uint32_t>(copy.timeSource);
  if (source > static_cast<std::uint32_t>(CaptureTime::kRecordingClock) ||
      copy.timeMicroseconds < framekit::kEarliestMicroseconds || copy.timeMicroseconds > framekit::kLatestMicroseconds)
    copy.timeSource = CaptureTime::kUnknown;
  if (!(copy.recordingRate > 0 && copy.recordingRate <= 1e7)) copy.recordingRate = 0;
  handle->capture = copy;
  return 0;
}

int FinishFile(const char* path, int /*mode*/, int /*flags*/) {
  if (path == nullptr) return kFkBadArgument;
  const int fd = ::open(path, O_RDONLY | O_CLOEXEC);
  if (fd < 0) return kFkReadFailed;
  const bool synced = ::fsync(fd) == 0;
  ::close(fd);
  return synced ? 0 : kFkWriteFailed;
}

int GetOptions(int fileType, FrameOptions* options) {
  if (options == nullptr) return kFkBadArgument;
  if (framekit::FindFileType(fileType) == nullptr) return kFkUnknownType;
  *options = framekit::OptionsInForce(fileType);
  return 0;
}

int SetOptions(int fileType, const FrameOptions* options) {
  if (options == nullptr || options->size != kFrameOptionsSize || options->quality > 10000)
    return kFkBadArgument;
  if (framekit::FindFileType(fileType) == nullptr) return kFkUnknownType;
  FrameOptions copy = *options;
  copy.name[sizeof copy.name - 1] = '\0';
  if (!framekit::HandlerKnown(fileType, copy.handler)) return kFkBadArgument;
  OptionStore& store = Options();
  std::lock_guard lock(store.mutex);
  store.options[static_cast<std::size_t>(fileType)] = copy;
  store.set[static_cast<std::size_t>(fileType)] = true;
  return 0;
}

int ListCodecs(int fileType, CodecEntry* entries, std::uint32_t* count) {
  if (count == nullptr) return kFkBadArgument;
  const FileTypeDescriptor* type = framekit::FindFileType(fileType);
  if (type == nullptr) {
    *count = 0;
    return kFkUnknownType;
  }
  if (type->writer == nullptr) {
    *count = 0;
    return kFkTypeNotAvailable;
  }
  std::vector<CodecEntry> list(type->codecs.begin(), type->codecs.end());
  for (CodecEntry& entry : list) entry.reserved = static_cast<std::uint32_t>(fileType);
  const std::uint32_t room = *count;
  if (entries == nullptr && room > 0) return kFkBadArgument;
  *count = static_cast<std::uint32_t>(std::min<std::size_t>(room, list.size()));
  std::copy_n(list.begin(), *count, entries);
  return 0;
}

int QueryCapability(int fileType, int code) {
  const FileTypeDescriptor* row = framekit::FindFileType(fileType);
  if (row == nullptr) return kFkUnknownType;
  if (code < kCapFileTypeOffered || code > kCapHasPlaybackRate) return kFkBadArgument;
  return (row->capabilities & CapabilityBit(code)) ? 0 : 1;
}

int ConfigureCodec(int fileType, CodecEntry* entry, void* /*owner*/) {
  if (entry == nullptr) return kFkBadArgument;
  const FileTypeDescriptor* type = framekit::FindFileType(fileType);
  if (type == nullptr) return kFkUnknownType;
  if (type->writer == nullptr) return kFkTypeNotAvailable;
  return kFkNoDialog;  // none of the compressors of this build has settings beyond the quality
}

namespace framekit {

FrameOptions OptionsInForce(int fileType) {
  const FileTypeDescriptor* type = FindFileType(fileType);
  if (type == nullptr) return FrameOptions{};
  OptionStore& store = Options();
  std::lock_guard lock(store.mutex);
  const auto i = static_cast<std::size_t>(fileType);
  return store.set[i] ? store.options[i] : DefaultOptions(*type);
}

}  // namespace framekit
}  // namespace tarnvel
