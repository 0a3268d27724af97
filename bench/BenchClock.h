// What the benchmarks that race the ffmpeg command line share: the CPU time
// of this process and of its finished children, and a scratch folder.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <filesystem>
#include <string>

namespace tarnvel::bench {

inline double ProcessSeconds() {
  timespec t{};
  clock_gettime(CLOCK_PROCESS_CPUTIME_ID, &t);
  return static_cast<double>(t.tv_sec) + static_cast<double>(t.tv_nsec) * 1e-9;
}

inline double ChildSeconds() {
  rusage usage{};
  getrusage(RUSAGE_CHILDREN, &usage);
  auto seconds = [](const timeval& v) { return static_cast<double>(v.tv_sec) + static_cast<double>(v.tv_usec) * 1e-6; };
  return seconds(usage.ru_utime) + seconds(usage.ru_stime);
}

// A folder under the temporary directory, made once.
inline std::filesystem::path ScratchFolder(const std::string& name) {
  auto folder = std::filesystem::temp_directory_path() / name;
  std::filesystem::create_directories(folder);
  return folder;
}

}  // namespace tarnvel::bench
