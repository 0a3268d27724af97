// Helpers that the tests share: a scratch folder per test and whole-file I/O.
#pragma once

#include <filesystem>
#include <optional>
#include <string>
#include <string_view>

namespace tarnvel::test {

// A fresh folder under the system's temporary folder, open to its owner only
// (mode 0700), removed with its contents when the object goes.
class TempDir {
 public:
  TempDir();
  ~TempDir();
  TempDir(const TempDir&) = delete;
  TempDir& operator=(const TempDir&) = delete;

  const std::filesystem::path& path() const { return path_; }
  // path() / name, as a string for the C-style interfaces.
  std::string File(std::string_view name) const;

 private:
  std::filesystem::path path_;
};

void WriteFile(const std::filesystem::path& path, std::string_view content);
std::string ReadFile(const std::filesystem::path& path);

// A fingerprint of a recording's raw files (args.ini, the descriptors, every
// .raw and .cal file): their names and bytes. Equal fingerprints before and
// after a run mean that no raw byte was lost.
std::string RawFilesFingerprint(const std::filesystem::path& folder);

// The checkout's root, for fixtures and scripts.
std::filesystem::path SourceDir();
// The build folder, for the programs under test (BinaryDir() / "apps/tarnvel-send").
std::filesystem::path BinaryDir();

// Runs a shell command and returns its exit status; its output goes to `output` when given.
int RunCommand(const std::string& command, std::string* output = nullptr);

// An environment variable set while it lives, then as it was before.
class ScopedVariable {
 public:
  ScopedVariable(const char* name, const char* value);
  ~ScopedVariable();
  ScopedVariable(const ScopedVariable&) = delete;
  ScopedVariable& operator=(const ScopedVariable&) = delete;

 private:
  std::string name_;
  std::optional<std::string> saved_;
};

}  // namespace tarnvel::test
