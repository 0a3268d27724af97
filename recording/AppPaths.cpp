#include "recording/AppPaths.h"

#include <unistd.h>

#include <cstdlib>
#include <filesystem>
#include <optional>

#include "platform/cordage/Folders.h"
#include "platform/cordage/TextField.h"
#include "platform/registry/Registry.h"

namespace tarnvel {
namespace {

constexpr const char* kShellFoldersKey = "Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders";

// Folders travel in 261-character fields: a longer one counts as none.
std::optional<std::string> ReadFolderValue(RegistryRoot root, const char* key, const char* name) {
  const auto opened = RegistryKey::Open(root, key);
  if (!opened) return std::nullopt;
  auto value = opened->ReadText(name);
  if (!value || value->empty() || value->size() >= kFileField) return std::nullopt;
  return value;
}

bool IsFolder(const std::string& path) {
  std::error_code ec;
  return std::filesystem::is_directory(path, ec);
}

std::string WithSeparator(std::string folder) {
  if (!folder.empty() && !IsSeparator(folder.back())) folder += '/';
  return folder;
}

std::string DefaultDocumentsBase() {
  if (auto shell = ReadFolderValue(RegistryRoot::LocalMachine, kShellFoldersKey, "Common Documents")) return *shell;
  const char* data = std::getenv("XDG_DATA_HOME");
  if (data && *data) return data;
  const char* home = std::getenv("HOME");
  return home && *home ? JoinPath(home, ".local/share") : std::string();
}

std::string FindDataFolder() {
  if (auto configured = ReadFolderValue(RegistryRoot::LocalMachine, kOlderSettingsKey, "AppDataPath");
      configured && IsFolder(*configured))
    return *configured;
  std::string base = DefaultDocumentsBase();
  if (base.empty()) return ProgramFolder();
  if (IsSeparator(base.back())) base.pop_back();
  const std::string okn = base + "/OKN";
  CgCreateNewDirectory(okn.c_str());
  CgCreateNewDirectory((okn + "/CameraFiles").c_str());
  const std::string suite = okn + "/FathomBureau";
  CgCreateNewDirectory(suite.c_str());
  return IsFolder(suite) && suite.size() < kFileField - 1 ? suite : ProgramFolder();
}

}  // namespace

std::string ProgramFolder() {
  std::error_code ec;
  const auto program = std::filesystem::read_symlink("/proc/self/exe", ec);
  return ec ? std::string(".") : program.parent_path().string();
}

AppPaths::AppPaths() {
  DataFolder = WithSeparator(FindDataFolder());
  auto image = ReadFolderValue(RegistryRoot::CurrentUser, kCurrentSettingsKey, "ImgPath");
  if (!image) image = ReadFolderValue(RegistryRoot::LocalMachine, kOlderSettingsKey, "ImgPath");
  ImageFolder = image ? WithSeparator(*image) : DataFolder;
  CgCreateNewDirectory((DataFolder + "Configurations").c_str());
  CgCreateNewDirectory((DataFolder + "Trace").c_str());
}

}  // namespace tarnvel
