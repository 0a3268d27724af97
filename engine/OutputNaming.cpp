#include "engine/OutputNaming.h"

#include <cstdio>
#include <filesystem>
#include <system_error>

#include "engine/JobArgs.h"
#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "platform/framekit/FileTypes.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {
namespace {

bool Exists(const std::string& path) {
  std::error_code ec;
  return std::filesystem::exists(path, ec);
}

// A stem that stays inside its folder.
bool IsPlainName(std::string_view name) {
  if (name == "." || name == "..") return false;
  for (char c : name)
    if (IsSeparator(c)) return false;
  return true;
}

std::optional<std::string> Fits(std::string path, std::size_t limit) {
  if (path.size() > limit) return std::nullopt;
  return path;
}

// Comparison of two path texts without regard to case or separator kind.
bool SamePathText(std::string_view a, std::string_view b) {
  if (a.size() != b.size()) return false;
  for (std::size_t i = 0; i < a.size(); ++i) {
    if (IsSeparator(a[i]) && IsSeparator(b[i])) continue;
    if (!EqualsNoCase(a.substr(i, 1), b.substr(i, 1))) return false;
  }
  return true;
}

std::string Dotted(std::string_view stem, std::string_view extension) {
  std::string name(stem);
  name += '.';
  name += extension;
  return name;
}

// The destination plus the recording folder's last component; a recording
// folder given as a bare relative name is its own last component.
std::string PlainOutputFolder(std::string_view recordingFolder, std::string_view destFolder) {
  return JoinPath(destFolder, LastComponent(recordingFolder));
}

// The plain folder for 0, "<plain>(001)" to "<plain>(999)" for 1 to 999.
std::string NumberedFolder(const std::string& plain, int n) {
  if (n == 0) return plain;
  char suffix[8];
  std::snprintf(suffix, sizeof suffix, "(%03d)", n);
  return plain + suffix;
}

}  // namespace

std::string RecordingFolderOf(std::string_view argsPath) { return std::string(FolderOf(argsPath)); }

int ChooseOutputFolder(std::string_view recordingFolder, std::string_view destFolder, OutputFolder& out) {
  out.copyProfile = false;
  if (destFolder.empty()) {
    out.folder.assign(recordingFolder);
    return out.folder.size() > kMaxFolderPath ? kMsgOutputFolderFailed : 0;
  }
  const std::string plain = PlainOutputFolder(recordingFolder, destFolder);
  out.folder = plain;
  for (int n = 1; n <= kFolderNumbers && Exists(out.folder); ++n) out.folder = NumberedFolder(plain, n);
  if (Exists(out.folder)) out.folder = plain;  // every number taken
  if (out.folder.size() > kMaxFolderPath) return kMsgOutputFolderFailed;
  out.copyProfile = !EqualsNoCase(out.folder, recordingFolder);
  return 0;
}

int SettleOutputFolder(std::string_view recordingFolder, std::string_view destFolder, OutputFolder& out) {
  if (destFolder.empty()) return ChooseOutputFolder(recordingFolder, destFolder, out);
  out.copyProfile = false;
  const std::string plain = PlainOutputFolder(recordingFolder, destFolder);
  out.folder = plain;
  if (plain.size() > kMaxFolderPath) return kMsgOutputFolderFailed;
  if (CgCreateNewDirectory(std::string(FolderOf(plain)).c_str()) == kCreateFolderFailed) return kMsgOutputFolderFailed;
  // Each name is claimed by making it, never tested first: jobs of other
  // processes, on other machines too, may be choosing in this folder now.
  for (int n = 0; n <= kFolderNumbers; ++n) {
    std::string candidate = NumberedFolder(plain, n);
    if (candidate.size() > kMaxFolderPath) {
      out.folder = std::move(candidate);
      return kMsgOutputFolderFailed;
    }
    const FolderClaim claim = ClaimNewDirectory(candidate.c_str());
    if (claim == FolderClaim::Taken) continue;
    out.folder = std::move(candidate);
    if (claim == FolderClaim::Failed) return kMsgOutputFolderFailed;
    out.copyProfile = !EqualsNoCase(out.folder, recordingFolder);
    return 0;
  }
  // Every number is taken: the plain folder serves as it is.
  std::error_code ec;
  if (!std::filesystem::is_directory(plain, ec)) return kMsgOutputFolderFailed;
  out.copyProfile = !EqualsNoCase(plain, recordingFolder);
  return 0;
}

std::optional<std::string> MultiFrameOutputPath(std::string_view outputFolder, std::string_view baseName,
                                                std::string_view extension) {
  if (!IsPlainName(baseName)) return std::nullopt;
  std::string path = JoinPath(outputFolder, Dotted(baseName, extension));
  if (Exists(path)) path = JoinPath(outputFolder, Dotted(std::string(baseName) + "(00)", extension));
  return Fits(std::move(path), kMaxFilePath);
}

std::optional<std::string> FrameFileName(std::string_view baseName, std::int32_t frameNumber,
                                         std::string_view extension) {
  if (!IsPlainName(baseName)) return std::nullopt;
  char digits[16];
  std::snprintf(digits, sizeof digits, frameNumber < 0 ? "%07d" : "%06d", frameNumber);
  return Fits(Dotted(std::string(baseName) + digits, extension), kMaxFileName);
}

std::optional<std::string> FrameOutputPath(std::string_view outputFolder, std::string_view baseName,
                                           std::int32_t frameNumber, std::string_view extension) {
  const auto name = FrameFileName(baseName, frameNumber, extension);
  if (!name) return std::nullopt;
  return Fits(JoinPath(outputFolder, *name), kMaxFilePath);
}

std::optional<std::string> CompanionMoviePath(std::string_view outputFolder, std::string_view moviePath,
                                              std::string_view deviceName, std::int32_t mainFileType,
                                              std::string_view baseName, std::string_view extension) {
  std::string path;
  if (!moviePath.empty()) {
    path.assign(moviePath);
  } else {
    if (!IsPlainName(deviceName)) return std::nullopt;
    path = JoinPath(outputFolder, Dotted(deviceName, "avi"));
  }
  if (mainFileType == framekit::CompanionMovieType().number &&
      SamePathText(path, JoinPath(outputFolder, Dotted(baseName, extension)))) {
    path.resize(path.rfind('.'));
    path += "(01).avi";
  }
  return Fits(std::move(path), kMaxFolderPath);
}

std::optional<std::string> TimeSidecarPath(std::string_view outputFolder, std::string_view baseName) {
  if (!IsPlainName(baseName)) return std::nullopt;
  std::string path = JoinPath(outputFolder, std::string(baseName) + ".time.xml");
  if (Exists(path)) path = JoinPath(outputFolder, std::string(baseName) + "_t.time.xml");
  return Fits(std::move(path), kMaxFilePath);
}

std::optional<std::string> ChannelDataPath(std::string_view recordingFolder, std::string_view baseName,
                                           std::int32_t channelFileType) {
  const char* extension = ChannelFileExtension(channelFileType);
  if (extension == nullptr || !IsPlainName(baseName)) return std::nullopt;
  return Fits(JoinPath(recordingFolder, std::string(baseName) + extension), kMaxFilePath);
}

std::string ShownName(std::string_view baseName, std::string_view extension) {
  return Dotted(baseName, extension);
}

void EnsurePath(std::string_view path) {
  const std::string folder(FolderOf(path));
  if (!folder.empty() && !Exists(folder)) CgCreateNewDirectory(folder.c_str());
}

}  // namespace tarnvel
