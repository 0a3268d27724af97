#include "ui/AddFile.h"

#include <algorithm>
#include <cctype>
#include <optional>

#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

std::string Lower(std::string text) {
  for (char& c : text) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
  return text;
}

void ShowError(FrontEnd& frontEnd, int number, const std::string& argument) {
  frontEnd.ShowMessage(number, StyleOf(number), MessageText(number, argument.c_str()));
}

bool FitsJobPath(FrontEnd& frontEnd, const std::string& path) {
  if (path.size() < kPathField) return true;
  ShowError(frontEnd, kMsgPathTooLong, path);
  return false;
}

bool AddEntryJob(Scheduler& scheduler, FrontEnd& frontEnd, const BatchFile& batch, const BatchEntry& entry) {
  if (!FitsJobPath(frontEnd, entry.path)) return false;
  scheduler.AddJob(entry.path, &batch.overrides, batch.destination.empty() ? nullptr : batch.destination.c_str(), false,
                   Lower(entry.path));
  return true;
}

AddOutcome AddBatch(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& file) {
  const std::optional<BatchFile> batch = ReadBatchFile(file);
  if (!batch) return AddOutcome::NotABatchFile;
  if (!MakeBatchDestination(frontEnd, *batch)) return AddOutcome::Refused;
  for (const BatchEntry& entry : batch->entries) AddEntryJob(scheduler, frontEnd, *batch, entry);
  scheduler.WakeUp();
  return AddOutcome::Added;
}

}  // namespace

bool MakeBatchDestination(FrontEnd& frontEnd, const BatchFile& batch) {
  const std::string& destination = batch.destination;
  if (destination.empty()) return true;
  if (destination.size() < kPathField && CgCreateNewDirectory(destination.c_str()) != kCreateFolderFailed) return true;
  ShowError(frontEnd, kMsgOutputFolderFailed, destination);
  return false;
}

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

AddOutcome AddFile(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& path, bool showOptions,
                   const OptionsChooser& chooseOptions, const std::string& destination) {
  if (IsBatchPath(path)) return AddBatch(scheduler, frontEnd, path);
  if (!FitsJobPath(frontEnd, path)) return AddOutcome::Refused;
  const char* folder = destination.empty() ? nullptr : destination.c_str();
  JobOverrides overrides = AddFileOverrides();
  if (showOptions && chooseOptions) {
    if (!chooseOptions(path, overrides)) return AddOutcome::Refused;
    scheduler.AddJob(path, &overrides, folder, false);
  } else {
    // Without options the job keeps its own settings; a destination still counts.
    scheduler.AddJob(path, folder ? &overrides : nullptr, folder, false);
  }
  scheduler.WakeUp();
  return AddOutcome::Added;
}

EntryAdded AddBatchEntry(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& batchPath, std::int32_t number) {
  const std::optional<BatchFile> batch = IsBatchPath(batchPath) ? ReadBatchFile(batchPath) : std::nullopt;
  if (!batch) return EntryAdded::NotABatch;
  const auto entry = std::find_if(batch->entries.begin(), batch->entries.end(),
                                  [number](const BatchEntry& e) { return e.number == number; });
  if (entry == batch->entries.end()) return EntryAdded::NoSuchEntry;
  if (!MakeBatchDestination(frontEnd, *batch) || !AddEntryJob(scheduler, frontEnd, *batch, *entry))
    return EntryAdded::Refused;
  scheduler.WakeUp();
  return EntryAdded::Added;
}

}  // namespace tarnvel
