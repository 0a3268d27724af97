#include "platform/cordage/Folders.h"

#include <sys/stat.h>

#include <algorithm>
#include <cerrno>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>
#include <vector>

#include "platform/cordage/TextField.h"

namespace tarnvel {

int CgCreateNewDirectory(const char* path) {
  if (path == nullptr || *path == '\0') return kCreateFolderFailed;
  std::error_code ec;
  std::filesystem::create_directories(path, ec);
  return std::filesystem::is_directory(path, ec) ? 0 : kCreateFolderFailed;
}

FolderClaim ClaimNewDirectory(const char* path) {
  if (path == nullptr || *path == '\0') return FolderClaim::Failed;
  for (;;) {
    if (::mkdir(path, 0777) == 0) return FolderClaim::Claimed;
    if (errno == EEXIST) return FolderClaim::Taken;
    if (errno != EINTR) return FolderClaim::Failed;
  }
}

namespace {

bool ExtensionMatches(const std::string& name, const char* const* extensions) {
  const std::size_t dot = name.rfind('.');
  if (dot == std::string::npos || extensions == nullptr) return false;
  const std::string_view ext = std::string_view(name).substr(dot + 1);
  for (const char* const* e = extensions; *e != nullptr; ++e) {
    std::string_view wanted = *e;
    if (!wanted.empty() && wanted.front() == '.') wanted.remove_prefix(1);
    if (EqualsNoCase(ext, wanted)) return true;
  }
  return false;
}

}  // namespace

int CgEnumFiles(const char* folder, const char* /*text*/, const char* const* extensions,
                char* buffer, std::uint32_t bufferSize) {
  std::vector<std::string> names;
  std::error_code ec;
  if (folder != nullptr) {
    for (std::filesystem::directory_iterator it(folder, ec), end; !ec && it != end; it.increment(ec)) {
      std::error_code typeError;
      if (!it->is_regular_file(typeError)) continue;
      std::string name = it->path().filename().string();
      if (ExtensionMatches(name, extensions)) names.push_back(std::move(name));
    }
  }
  std::sort(names.begin(), names.end());
  if (buffer == nullptr) {
    std::size_t bytes = 0;
    for (const auto& n : names) bytes += n.size() + 1;
    return static_cast<int>(std::min<std::size_t>(bytes, 0x7FFFFFFF));
  }
  std::size_t used = 0;
  int written = 0;
  for (const auto& n : names) {
    if (used + n.size() + 1 > bufferSize) break;
    std::memcpy(buffer + used, n.c_str(), n.size() + 1);
    used += n.size() + 1;
    ++written;
  }
  return written;
}

}  // namespace tarnvel
