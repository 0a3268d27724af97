// Reading a recording's profile `_config.pgv` (section "Acquisition") into a
// RecordingInfo, and copying the profile files along with a conversion.
//
// A recording is one folder; the profile lies directly in it. Every key has a
// default, so the only sign of a folder that is no recording is an "Images"
// value of 0 (a missing file reads like an empty one).
#pragma once

#include <string>
#include <string_view>
#include <vector>

#include "recording/RecordingInfo.h"

namespace tarnvel {

inline constexpr const char* kConfigProfileName = "_config.pgv";
inline constexpr const char* kAcquisitionSection = "Acquisition";
// The longest recording folder that the reader takes: its working buffer is 261 characters.
constexpr std::size_t kMaxRecordingFolder = 260;

// The profile path of a recording folder: folder + "/_config.pgv".
std::string ProfilePathOf(std::string_view folder);

// Fills `record` (zero-filled by the caller) from the folder's profile.
// Returns 1 when the folder holds a usable recording, 0 when not: "Images" is
// 0 or missing (then only Name is set), or the folder path is longer than
// kMaxRecordingFolder (then nothing is set). One trailing separator of either
// kind is dropped. Name is the folder's last component, cut to its 127
// characters; a folder without any separator leaves Name empty.
int ReadRecordingConfig(std::string_view folder, RecordingInfo& record);

// The head of the reader: Name, Comment, and the date and time fields (each
// cut to 16 bits). `folder` as for ReadRecordingConfig.
void ReadRecordingHeaderFields(std::string_view folder, RecordingInfo& record);

// Copies `_config.pgv`, `_config.mme` and `_config.mii` from the recording
// folder into the destination folder, each only when the destination does not
// hold that file yet. A missing source is passed over; a copy that fails
// (a full disk, a missing folder) leaves no partial file behind and is
// named in `failed`.
struct CompanionCopies {
  std::vector<std::string> copied;  // paths of the copies made
  std::vector<std::string> failed;  // paths of the copies that could not be made
};
CompanionCopies CopyConfigCompanions(std::string_view destinationFolder, std::string_view recordingFolder);

}  // namespace tarnvel
