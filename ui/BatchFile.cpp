#include "ui/BatchFile.h"

#include <algorithm>
#include <cstdio>

#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"
#include "ui/AddFile.h"

namespace tarnvel {
namespace {

constexpr const char* kListSection = "List";

// A text value read in full, so that an overlong path is seen as overlong
// and never cut into another.
std::string ReadListText(const char* key, const std::string& file) {
  char value[kOuterPath];
  CgReadProfileString(kListSection, key, "", value, sizeof value, file.c_str());
  return value;
}

std::int32_t ReadListInteger(const char* key, std::int32_t defaultValue, const std::string& file) {
  std::int32_t value = 0;
  CgReadProfileInteger(kListSection, key, defaultValue, &value, file.c_str());
  return value;
}

std::uint32_t ReadListWord(const char* key, std::int32_t defaultValue, const std::string& file) {
  return static_cast<std::uint32_t>(ReadListInteger(key, defaultValue, file));
}

void ReadTypeSettings(const std::string& file, JobOverrides& overrides) {
  overrides.resetNumbering = ReadListWord("ResetNr", 0, file);
  overrides.deleteRaw = ReadListWord("DeleteRaw", 0, file);
  overrides.playbackRate = ReadListInteger("PlaybackRate", 0, file);
  CopyText(overrides.codec.name, ReadListText("CodecName", file));
  overrides.codec.handler = ReadListWord("CodecHandler", 0, file);
  overrides.codec.quality = ReadListWord("CodecQuality", 10000, file);
  overrides.codec.jpegQuality = ReadListWord("CodecJpegQual", 10000, file);
  overrides.codec.movCodec = ReadListWord("CodecMovCodec", 1, file);
  overrides.codec.mpgCodec = ReadListWord("CodecMpgCodec", 0, file);
  overrides.codec.mptCodec = ReadListWord("CodecMPTCodec", 0, file);
}

}  // namespace

bool IsBatchPath(std::string_view path) {
  constexpr std::string_view kMark = ".bat";
  for (std::size_t i = 0; i + kMark.size() <= path.size(); ++i)
    if (EqualsNoCase(path.substr(i, kMark.size()), kMark)) return true;
  return false;
}

std::string BatchEntryKey(std::int32_t number) {
  char key[32];
  std::snprintf(key, sizeof key, "File_%03d", number);
  return key;
}

std::optional<BatchFile> ReadBatchFile(const std::string& path) {
  if (!EqualsNoCase(ReadListText("Signature", path), kBatchSignature)) return std::nullopt;
  BatchFile batch;
  batch.overrides = AddFileOverrides();
  batch.destination = ReadListText("DestinationFolder", path);
  batch.overrides.fileType = ReadListInteger("FileType", -1, path);
  if (batch.overrides.fileType != kRecordingFileType) ReadTypeSettings(path, batch.overrides);
  const std::int32_t count = std::min(ReadListInteger("Count", 0, path), kMaxBatchEntries);
  for (std::int32_t n = 0; n < count; ++n) {
    std::string entry = ReadListText(BatchEntryKey(n).c_str(), path);
    if (!entry.empty()) batch.entries.push_back({n, std::move(entry)});
  }
  return batch;
}

}  // namespace tarnvel
