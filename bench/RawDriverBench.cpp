// Frames per second of the raw driver's ReadFrame for 1280 x 1024 recordings
// (monochrome at 8, 12 in each packing and 16 bits; colour at 36 bits with
// interpolation), next to a memcpy of the same delivered bytes in the same run.
// The stores lie in the page cache, so this measures decoding, not the disk.
#include <benchmark/benchmark.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/rawdrv/RawDriver.h"

namespace {

using tarnvel::recgen::RecordingOptions;

constexpr std::uint32_t kFrames = 8;

std::string MakeRecording(std::uint32_t bits, std::uint32_t packing, bool colour) {
  RecordingOptions o;
  o.folder = (std::filesystem::temp_directory_path() /
              ("tarnvel-bench-raw-" + std::to_string(bits) + "-" + std::to_string(packing) + (colour ? "c" : "m")))
                 .string();
  o.sampleBits = bits;
  o.packing = packing;
  o.colour = colour;
  o.frames = kFrames;
  o.preTrigger = 0;
  if (!std::filesystem::exists(o.folder) && !tarnvel::recgen::WriteRecording(o).empty()) return "";
  return o.folder;
}

void BM_ReadFrame(benchmark::State& state, std::uint32_t bits, std::uint32_t packing, bool colour) {
  static bool initialised = tarnvel::DriverInit(0) == 0;
  (void)initialised;
  const std::string folder = MakeRecording(bits, packing, colour);
  tarnvel::RawHandle handle = 0;
  if (folder.empty() || tarnvel::OpenRecording(folder.c_str(), &handle) != 0) {
    state.SkipWithError("no recording");
    return;
  }
  std::vector<std::uint8_t> frame(tarnvel::FrameBytes(handle));
  std::int32_t index = 0;
  for (auto _ : state) {
    if (tarnvel::ReadFrame(handle, 0, 0, index, frame.data()) != 0) state.SkipWithError("read failed");
    benchmark::DoNotOptimize(frame.data());
    index = (index + 1) % kFrames;
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * frame.size()));
  state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  tarnvel::CloseRecording(handle);
}

void BM_Memcpy(benchmark::State& state, std::size_t bytesPerPixel) {
  const std::size_t bytes = 1280 * 1024 * bytesPerPixel;
  // As many sources as the driver cycles through, so the cache helps neither side more.
  std::vector<std::vector<std::uint8_t>> sources(kFrames, std::vector<std::uint8_t>(bytes, 1));
  std::vector<std::uint8_t> target(bytes);
  std::size_t index = 0;
  for (auto _ : state) {
    std::memcpy(target.data(), sources[index].data(), bytes);
    benchmark::DoNotOptimize(target.data());
    benchmark::ClobberMemory();
    index = (index + 1) % kFrames;
  }
  state.SetBytesProcessed(static_cast<std::int64_t>(state.iterations() * bytes));
  state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
}

BENCHMARK_CAPTURE(BM_Memcpy, bytes1, 1)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono8_words, 8, 0, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono8_bitstream, 8, 1, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memcpy, bytes2, 2)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono12_words, 12, 0, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono12_bitstream, 12, 1, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono12_pairs, 12, 2, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, mono16_words, 16, 0, false)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_Memcpy, bytes6, 6)->Unit(benchmark::kMillisecond);
BENCHMARK_CAPTURE(BM_ReadFrame, colour36_bitstream, 12, 1, true)->Unit(benchmark::kMillisecond);

}  // namespace

BENCHMARK_MAIN();
