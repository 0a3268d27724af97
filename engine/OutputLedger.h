// Every file a job writes, kept so that the job can tell at its end whether
// its whole output set was written without error and is still where it was
// written: nothing moved, removed or replaced it meanwhile.
#pragma once

#include <sys/types.h>

#include <optional>
#include <string>
#include <vector>

namespace tarnvel {

class OutputLedger {
 public:
  // A file the job created and is writing; remembered with its identity on disk.
  void Created(const std::string& path);
  // A file that was removed on purpose (a frame file whose write failed).
  void Removed(const std::string& path);
  // An output that failed: could not be made, written or closed. The first
  // failure is kept for the message.
  void Failed(const std::string& path);

  bool HasFailure() const { return failed_.has_value(); }
  const std::string& FailedPath() const { return *failed_; }
  std::size_t Count() const { return entries_.size(); }

  // The first output that is no longer the file that was written (gone, or
  // another file in its place); nothing when all are in place.
  std::optional<std::string> FirstMissing() const;
  // Flushes every file system that holds an output to the disk; the path of
  // the first that failed, or nothing.
  std::optional<std::string> MakeDurable() const;

 private:
  struct Entry {
    std::string path;
    dev_t device = 0;
    ino_t inode = 0;
  };
  std::vector<Entry> entries_;
  std::optional<std::string> failed_;
};

}  // namespace tarnvel
