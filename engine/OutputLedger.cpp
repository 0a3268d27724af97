#include "engine/OutputLedger.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <set>
#include <utility>

namespace tarnvel {

void OutputLedger::Created(const std::string& path) {
  struct stat st {};
  if (::stat(path.c_str(), &st) != 0) return Failed(path);
  entries_.push_back({path, st.st_dev, st.st_ino});
}

void OutputLedger::Removed(const std::string& path) {
  std::erase_if(entries_, [&](const Entry& e) { return e.path == path; });
}

void OutputLedger::Failed(const std::string& path) {
  if (!failed_) failed_ = path;
}

std::optional<std::string> OutputLedger::FirstMissing() const {
  for (const Entry& e : entries_) {
    struct stat st {};
    if (::stat(e.path.c_str(), &st) != 0 || !S_ISREG(st.st_mode) || st.st_dev != e.device || st.st_ino != e.inode)
      return e.path;
  }
  return std::nullopt;
}

std::optional<std::string> OutputLedger::MakeDurable() const {
  std::set<dev_t> synced;
  for (const Entry& e : entries_) {
    if (synced.contains(e.device)) continue;
    const int fd = ::open(e.path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
    const bool ok = fd >= 0 && ::syncfs(fd) == 0;
    if (fd >= 0) ::close(fd);
    if (!ok) return e.path;
    synced.insert(e.device);
  }
  return std::nullopt;
}

}  // namespace tarnvel
