#include "ui/AddFile.h"

#include <algorithm>
#include <cctype>
#include <cstdio>

#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr const char* kListSection = "List";

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

// A text value of the batch file read in full, so that an overlong path is
// seen as overlong and never cut into another.
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

void ShowError(FrontEnd& frontEnd, int number, const std::string& argument) {
  frontEnd.ShowMessage(number, StyleOf(number), MessageText(number, argument.c_str()));
}

bool FitsJobPath(FrontEnd& frontEnd, const std::string& path) {
  if (path.size() < kPathField) return true;
  ShowError(frontEnd, kMsgPathTooLong, path);
  return false;
}

void AddBatch(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& file) {
  if (!EqualsNoCase(ReadListText("Signature", file), kBatchSignature)) return;
  JobOverrides overrides = AddFileOverrides();
  const std::string destination = ReadListText("DestinationFolder", file);
  overrides.fileType = ReadListInteger("FileType", -1, file);
  if (overrides.fileType != kRecordingFileType) {
    overrides.resetNumbering = static_cast<std::uint32_t>(ReadListInteger("ResetNr", 0, file));
    overrides.deleteRaw = static_cast<std::uint32_t>(ReadListInteger("DeleteRaw", 0, file));
    overrides.playbackRate = ReadListInteger("PlaybackRate", 0, file);
    CopyText(overrides.codec.name, ReadListText("CodecName", file));
    overrides.codec.handler = static_cast<std::uint32_t>(ReadListInteger("CodecHandler", 0, file));
    overrides.codec.quality = static_cast<std::uint32_t>(ReadListInteger("CodecQuality", 10000, file));
    overrides.codec.jpegQuality = static_cast<std::uint32_t>(ReadListInteger("CodecJpegQual", 10000, file));
    overrides.codec.movCodec = static_cast<std::uint32_t>(ReadListInteger("CodecMovCodec", 1, file));
    overrides.codec.mpgCodec = static_cast<std::uint32_t>(ReadListInteger("CodecMpgCodec", 0, file));
    overrides.codec.mptCodec = static_cast<std::uint32_t>(ReadListInteger("CodecMPTCodec", 0, file));
  }
  if (!destination.empty()) {
    if (destination.size() >= kPathField || CgCreateNewDirectory(destination.c_str()) == kCreateFolderFailed) {
      ShowError(frontEnd, kMsgOutputFolderFailed, destination);
      return;
    }
  }
  const std::int32_t count = std::min(ReadListInteger("Count", 0, file), kMaxBatchEntries);
  for (std::int32_t i = 0; i < count; ++i) {
    char key[32];
    std::snprintf(key, sizeof key, "File_%03d", i);
    const std::string entry = ReadListText(key, file);
    if (entry.empty() || !FitsJobPath(frontEnd, entry)) continue;
    scheduler.AddJob(entry, &overrides, destination.empty() ? nullptr : destination.c_str(), false, Lower(entry));
  }
  scheduler.WakeUp();
}

}  // namespace

JobOverrides AddFileOverrides() {
  JobOverrides overrides;
  overrides.fileType = kRecordingFileType;
  overrides.deleteRaw = 1;
  overrides.resetNumbering = 0;
  overrides.playbackRate = -1;
  overrides.outputDepth = 0;
  overrides.bitRange = 0;
  overrides.codec = {};
  return overrides;
}

bool IsBatchPath(const std::string& path) { return Lower(path).find(".bat") != std::string::npos; }

void AddFile(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& path, bool showOptions,
             const OptionsChooser& chooseOptions, const std::string& destination) {
  if (IsBatchPath(path)) {
    AddBatch(scheduler, frontEnd, path);
    return;
  }
  if (!FitsJobPath(frontEnd, path)) return;
  const char* folder = destination.empty() ? nullptr : destination.c_str();
  JobOverrides overrides = AddFileOverrides();
  if (showOptions && chooseOptions) {
    if (!chooseOptions(path, overrides)) return;
    scheduler.AddJob(path, &overrides, folder, false);
  } else {
    // Without options the job keeps its own settings; a destination still counts.
    scheduler.AddJob(path, folder ? &overrides : nullptr, folder, false);
  }
  scheduler.WakeUp();
}

}  // namespace tarnvel
