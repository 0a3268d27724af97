// Every path that a conversion creates: the output folder, the main output,
// the companion movie and the time sidecar, from a destination and what
// already exists on disk.
//
// Paths are built with '/'; paths from outside may use '\' too. Each path has
// the width of the field it travels in; a path that would be longer is
// refused (an empty result), never cut into another path. A stem (base name
// or device name) that holds a separator or is "." or ".." is refused as well:
// it would put output outside its folder.
#pragma once

#include <cstddef>
#include <cstdint>
#include <optional>
#include <string>
#include <string_view>

#include "platform/cordage/TextField.h"

namespace tarnvel {

constexpr std::size_t kMaxFolderPath = kPathField - 1;  // output folder and movie path
constexpr std::size_t kMaxFilePath = kFileField - 1;    // a file path
constexpr std::size_t kMaxFileName = 255;                // a file name
constexpr int kFolderNumbers = 999;                      // "(001)" to "(999)"

// The folder of a job: argsPath less its last component (empty without separator).
std::string RecordingFolderOf(std::string_view argsPath);

struct OutputFolder {
  std::string folder;
  bool copyProfile = false;  // the output goes elsewhere: the profile files follow it
};

// Where the output of a recording goes. With no destination, the recording's
// own folder. Otherwise the destination plus the recording folder's last
// component; when that exists, the first free "(001)" to "(999)" behind it;
// when all exist, the plain name. Nothing is created. Returns 0, or
// kMsgOutputFolderFailed when the folder would be longer than kMaxFolderPath
// (`out.folder` then holds the overlong text for the message).
int ChooseOutputFolder(std::string_view recordingFolder, std::string_view destFolder, OutputFolder& out);

// Where the output of a recording goes, by the rule of ChooseOutputFolder,
// and with a destination the folder made: the destination with its parents,
// then the first of the plain name and "(001)" to "(999)" that this call
// could create itself. Jobs in other processes or on other machines that
// settle folders of the same name in one destination at once each get a
// folder of their own. Returns 0 or kMsgOutputFolderFailed.
int SettleOutputFolder(std::string_view recordingFolder, std::string_view destFolder, OutputFolder& out);

// A multi-frame file: "<folder>/<base>.<ext>", or "<folder>/<base>(00).<ext>"
// when the first exists (that one is overwritten).
std::optional<std::string> MultiFrameOutputPath(std::string_view outputFolder, std::string_view baseName,
                                                std::string_view extension);

// The file name of one frame: "<base>%06d.<ext>", or "<base>%07d.<ext>" for a
// negative number (the sign takes one of the seven places).
std::optional<std::string> FrameFileName(std::string_view baseName, std::int32_t frameNumber,
                                         std::string_view extension);
// "<folder>/<frame file name>"; an existing file is overwritten.
std::optional<std::string> FrameOutputPath(std::string_view outputFolder, std::string_view baseName,
                                           std::int32_t frameNumber, std::string_view extension);

// The companion movie: `moviePath` (Arg32) unchanged when set, else
// "<folder>/<device>.avi". With the companion movie's type as the main type, a movie
// path equal to the plain main path (case and separator kind aside) ends in
// "(01).avi" instead.
std::optional<std::string> CompanionMoviePath(std::string_view outputFolder, std::string_view moviePath,
                                              std::string_view deviceName, std::int32_t mainFileType,
                                              std::string_view baseName, std::string_view extension);

// The time sidecar: "<folder>/<base>.time.xml", or "<base>_t.time.xml" when
// the first exists (that one is overwritten).
std::optional<std::string> TimeSidecarPath(std::string_view outputFolder, std::string_view baseName);

// The channel-data input: "<recording folder>/<base>" plus the extension of
// Arg14; empty for a type outside the table.
std::optional<std::string> ChannelDataPath(std::string_view recordingFolder, std::string_view baseName,
                                           std::int32_t channelFileType);

// The name that reports and the job list show: "<base>.<ext>".
std::string ShownName(std::string_view baseName, std::string_view extension);

// Creates each missing folder on the way to a file path (both separators
// count). Failures are left to the file's own opening.
void EnsurePath(std::string_view path);

}  // namespace tarnvel
