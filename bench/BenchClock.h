// What the benchmarks that race the ffmpeg command line share: the CPU time
// of this process and of its finished children, and a scratch folder.
#pragma once

#include <sys/resource.h>
#include <time.h>

#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
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

// Runs an ffmpeg command line once per iteration, timed by the wall clock,
// and reports frames per second of wall time (fps) and of its CPU time.
inline void TimeCommand(benchmark::State& state, const std::string& command, double framesPerRun) {
  const double cpuStart = ChildSeconds();
  for (auto _ : state) {
    const auto start = std::chrono::steady_clock::now();
    if (std::system(command.c_str()) != 0) {
      state.SkipWithError("ffmpeg failed");
      break;
    }
    state.SetIterationTime(std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count());
  }
  const double frames = static_cast<double>(state.iterations()) * framesPerRun;
  state.SetItemsProcessed(static_cast<std::int64_t>(frames));
  state.counters["fps"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
  state.counters["cpu_fps"] = frames / (ChildSeconds() - cpuStart);
}

}  // namespace tarnvel::bench
