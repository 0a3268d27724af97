#include "tests/support/TestFiles.h"

#include <cstdio>
#include <cstdlib>
#include <fstream>
#include <functional>
#include <map>
#include <random>
#include <sstream>
#include <stdexcept>
#include <sys/wait.h>

namespace tarnvel::test {

TempDir::TempDir() {
  std::random_device rd;
  const auto base = std::filesystem::temp_directory_path();
  for (int attempt = 0; attempt < 100; ++attempt) {
    auto candidate = base / ("tarnvel-test-" + std::to_string(rd()));
    if (std::filesystem::create_directory(candidate)) {
      // Closed to other users, as the converter wants the folder of its socket.
      std::filesystem::permissions(candidate, std::filesystem::perms::owner_all);
      path_ = candidate;
      return;
    }
  }
  throw std::runtime_error("cannot create a temporary folder");
}

TempDir::~TempDir() {
  std::error_code ec;
  // Tests may leave read-only folders behind; make them writable again first.
  for (auto it = std::filesystem::recursive_directory_iterator(path_, ec);
       !ec && it != std::filesystem::recursive_directory_iterator(); it.increment(ec))
    std::filesystem::permissions(it->path(), std::filesystem::perms::owner_all,
                                 std::filesystem::perm_options::add, ec);
  std::filesystem::permissions(path_, std::filesystem::perms::owner_all,
                               std::filesystem::perm_options::add, ec);
  std::filesystem::remove_all(path_, ec);
}

std::string TempDir::File(std::string_view name) const { return (path_ / name).string(); }

void WriteFile(const std::filesystem::path& path, std::string_view content) {
  std::ofstream out(path, std::ios::binary | std::ios::trunc);
  out.write(content.data(), static_cast<std::streamsize>(content.size()));
  if (!out) throw std::runtime_error("cannot write " + path.string());
}

std::string ReadFile(const std::filesystem::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream s;
  s << in.rdbuf();
  return s.str();
}

std::string RawFilesFingerprint(const std::filesystem::path& folder) {
  std::map<std::string, std::uint64_t> files;
  std::error_code ec;
  for (const auto& entry : std::filesystem::directory_iterator(folder, ec)) {
    std::string name = entry.path().filename().string();
    std::string lower = name;
    for (char& c : lower) c = static_cast<char>(std::tolower(static_cast<unsigned char>(c)));
    const bool raw = lower.ends_with(".raw") || lower.ends_with(".cal") || lower == "args.ini" ||
                     lower == "rawfile.xml" || lower == "rawstats.xml";
    if (!raw) continue;
    if (!entry.is_regular_file(ec)) {  // a FIFO in a file's place is never opened
      files[name] = 0;
      continue;
    }
    const std::string bytes = ReadFile(entry.path());
    files[name] = std::hash<std::string>{}(bytes) ^ bytes.size();
  }
  std::string fingerprint;
  for (const auto& [name, hash] : files) fingerprint += name + ":" + std::to_string(hash) + " ";
  return fingerprint;
}

std::filesystem::path SourceDir() { return TARNVEL_SOURCE_DIR; }
std::filesystem::path BinaryDir() { return TARNVEL_BINARY_DIR; }

int RunCommand(const std::string& command, std::string* output) {
  FILE* pipe = ::popen((command + " 2>&1").c_str(), "r");
  if (pipe == nullptr) return -1;
  char chunk[4096];
  std::size_t n;
  while ((n = std::fread(chunk, 1, sizeof chunk, pipe)) > 0)
    if (output) output->append(chunk, n);
  const int status = ::pclose(pipe);
  return WIFEXITED(status) ? WEXITSTATUS(status) : -1;
}

ScopedVariable::ScopedVariable(const char* name, const char* value) : name_(name) {
  if (const char* before = std::getenv(name)) saved_ = before;
  ::setenv(name, value, 1);
}

ScopedVariable::~ScopedVariable() {
  if (saved_)
    ::setenv(name_.c_str(), saved_->c_str(), 1);
  else
    ::unsetenv(name_.c_str());
}

}  // namespace tarnvel::test
