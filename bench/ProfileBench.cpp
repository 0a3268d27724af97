// Reading a `_config.pgv` of 1,200 keys a thousand times must cost one parse.
// The benchmark reports the parses it saw next to the reads it made.
#include <benchmark/benchmark.h>

#include <cstdio>
#include <filesystem>
#include <fstream>
#include <string>

#include "platform/cordage/Profile.h"

namespace {

std::string WriteProfile() {
  const auto path = std::filesystem::temp_directory_path() / "tarnvel-bench-config.pgv";
  std::ofstream out(path, std::ios::binary);
  out << "[Acquisition]\r\n";
  for (int i = 0; i < 1200; ++i) out << "Key_" << i << '=' << i * 3 << "\r\n";
  return path.string();
}

void BM_ReadAllKeysOfProfile(benchmark::State& state) {
  const std::string path = WriteProfile();
  std::string keys[1200];
  for (int i = 0; i < 1200; ++i) keys[i] = "Key_" + std::to_string(i);
  const auto parsesBefore = tarnvel::ProfileParseCount();
  std::int64_t reads = 0;
  for (auto _ : state) {
    for (const auto& key : keys) {
      std::int32_t v = 0;
      tarnvel::CgReadProfileInteger("Acquisition", key.c_str(), 0, &v, path.c_str());
      benchmark::DoNotOptimize(v);
    }
    reads += 1200;
  }
  state.counters["parses"] = static_cast<double>(tarnvel::ProfileParseCount() - parsesBefore);
  state.counters["key_reads"] = static_cast<double>(reads);
  state.SetItemsProcessed(reads);
  std::filesystem::remove(path);
}
BENCHMARK(BM_ReadAllKeysOfProfile)->Iterations(1000)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
