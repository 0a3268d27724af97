// Reading a recording's record and a job's arguments, as the worker and the
// dialogs do at every job start, next to reading the same file's bytes once.
// The profile of a burst recording (1,023 burst times, keys in two passes) is
// the largest that the suite writes.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <memory>
#include <string>

#include "engine/JobArgs.h"
#include "recording/RecordingConfig.h"

namespace {

namespace fs = std::filesystem;

const fs::path& Folder() {
  static const fs::path folder = [] {
    const fs::path f = fs::temp_directory_path() / "tarnvel-bench-recording" / "Burst";
    fs::create_directories(f);
    std::string pass;
    pass += "Images=5000\r\nFrames=5000\r\nBROC Lenght=4\r\nRecMode=2\r\nRate=20000.000000000000000\r\n";
    for (int i = 0; i < 1250; ++i) pass += "BROC_Time_" + std::to_string(i) + "=" + std::to_string(i * 7) + "\r\n";
    std::ofstream(f / "_config.pgv", std::ios::binary) << "[Acquisition]\r\n" << pass << pass;
    std::string args = "[ArgSect]\r\nArg02=Burst_\r\nArg03=5000\r\nArg39=";
    for (int i = 0; i < 21; ++i) args += std::to_string(i) + ",";
    std::ofstream(f / "args.ini", std::ios::binary) << args << "\r\n";
    return f;
  }();
  return folder;
}

void BM_ReadFileBytes(benchmark::State& state) {
  const std::string path = (Folder() / "_config.pgv").string();
  for (auto _ : state) {
    std::ifstream in(path, std::ios::binary);
    std::string bytes((std::istreambuf_iterator<char>(in)), std::istreambuf_iterator<char>());
    benchmark::DoNotOptimize(bytes.data());
  }
}

void BM_ReadRecordingConfig(benchmark::State& state) {
  const std::string folder = Folder().string();
  auto record = std::make_unique<tarnvel::RecordingInfo>();
  for (auto _ : state) {
    std::memset(record.get(), 0, sizeof *record);
    benchmark::DoNotOptimize(tarnvel::ReadRecordingConfig(folder, *record));
  }
}

void BM_ReadJobArgs(benchmark::State& state) {
  const std::string path = (Folder() / "args.ini").string();
  tarnvel::JobArgs args;
  for (auto _ : state) benchmark::DoNotOptimize(tarnvel::ReadJobArgs(path, args));
}

BENCHMARK(BM_ReadFileBytes);
BENCHMARK(BM_ReadRecordingConfig);
BENCHMARK(BM_ReadJobArgs);

}  // namespace

BENCHMARK_MAIN();
