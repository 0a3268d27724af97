// Frames per second of image sequences written by the image library, next to
// FFmpeg writing the same raw frames to the same formats in the same run:
// 1280 x 1024 16-bit grey TIFF and PNG (and PNG of 12 significant bits, which
// the library scales under sBIT), 8-bit grey JPEG. Settings match where
// the formats leave a choice: TIFF uncompressed, PNG deflate level 1 with the
// "up" filter (the library adds zlib's run-length strategy, which FFmpeg does
// not offer), JPEG at quality 90 (FFmpeg: -q:v 3; it stores grey as YUV 4:2:0). FFmpeg runs once with its
// own threading and once with -threads 1; each of its runs converts 32 frames
// and is timed as a whole, start-up included. Both sides report frames per
// second of wall time (fps) and of processor time (cpu_fps: user and system
// time of this process, or of the FFmpeg child), since the machine may be busy.
#include <benchmark/benchmark.h>

#include <algorithm>
#include <chrono>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench/BenchClock.h"
#include "platform/framekit/FrameKit.h"

namespace {

constexpr std::uint32_t kWidth = 1280, kHeight = 1024, kFrames = 32;

struct Format {
  const char* extension;
  std::uint32_t bits;
  const char* pixelFormat;  // of the raw input, for FFmpeg
  const char* ffmpegOptions;
};
const Format kTiff16{"tif", 16, "gray16le", "-compression_algo raw"};
const Format kPng16{"png", 16, "gray16le", "-pred up -compression_level 1"};
// 12 significant bits: stored scaled to 16 under sBIT. FFmpeg has no such
// choice and writes the values as they are, like png16.
const Format kPng12{"png", 12, "gray16le", "-pred up -compression_level 1"};
const Format kJpeg8{"jpg", 8, "gray", "-q:v 3"};

using tarnvel::bench::ProcessSeconds;

std::filesystem::path Folder() {
  static const auto folder = tarnvel::bench::ScratchFolder("tarnvel-bench-framekit");
  return folder;
}

// A camera-like picture: a smooth light field, texture and sensor noise, in
// 12 significant bits for the 16-bit formats.
std::vector<std::uint8_t> Picture(std::uint32_t bits, std::uint32_t frame) {
  std::mt19937 noise(frame);
  const std::size_t samples = std::size_t{kWidth} * kHeight;
  std::vector<std::uint8_t> pixels(samples * (bits > 8 ? 2 : 1));
  for (std::uint32_t y = 0; y < kHeight; ++y)
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const double light = 0.5 + 0.4 * ((x + frame * 8) % kWidth) / kWidth * (1.0 - 0.5 * y / kHeight);
      const double texture = ((x / 16 + y / 16) % 2) * 0.05;
      double v = (light + texture) * 4095.0 + static_cast<double>(noise() % 64) - 32.0;
      v = std::min(4095.0, std::max(0.0, v));
      const std::size_t i = std::size_t{y} * kWidth + x;
      if (bits > 8) {
        const auto w = static_cast<std::uint16_t>(v);
        std::memcpy(&pixels[2 * i], &w, 2);
      } else {
        pixels[i] = static_cast<std::uint8_t>(static_cast<unsigned>(v) >> 4);
      }
    }
  return pixels;
}

void BM_FrameKit(benchmark::State& state, const Format& format) {
  std::vector<std::vector<std::uint8_t>> frames;
  for (std::uint32_t i = 0; i < 4; ++i) frames.push_back(Picture(format.bits, i));
  tarnvel::FrameHeader header;
  header.width = kWidth;
  header.height = kHeight;
  header.bits = format.bits;
  header.colorKind = 1;
  tarnvel::FillGreyPalette(header);
  std::uint32_t index = 0;
  const double cpuStart = ProcessSeconds();
  for (auto _ : state) {
    const auto path = Folder() / ("fk" + std::to_string(index % kFrames) + "." + format.extension);
    tarnvel::FrameHandle handle = nullptr;
    tarnvel::OpenOutput(path.c_str(), 1, &handle);
    if (tarnvel::WriteFrame(handle, index, 1u << 30, &header, nullptr, frames[index % 4].data()) != 0) {
      state.SkipWithError("write failed");
      break;
    }
    tarnvel::CloseOutput(handle);
    ++index;
  }
  const double cpu = ProcessSeconds() - cpuStart;
  state.SetItemsProcessed(state.iterations());
  state.counters["fps"] = benchmark::Counter(static_cast<double>(state.iterations()), benchmark::Counter::kIsRate);
  state.counters["cpu_fps"] = static_cast<double>(state.iterations()) / cpu;
}

void BM_FFmpeg(benchmark::State& state, const Format& format, bool oneThread) {
  const auto raw = Folder() / (std::string("input-") + format.pixelFormat + ".raw");
  {
    std::ofstream out(raw, std::ios::binary | std::ios::trunc);
    for (std::uint32_t i = 0; i < kFrames; ++i) {
      const auto picture = Picture(format.bits, i % 4);
      out.write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.size()));
    }
  }
  const std::string command = "ffmpeg -nostdin -v error -y -f rawvideo -pix_fmt " + std::string(format.pixelFormat) +
                              " -s " + std::to_string(kWidth) + "x" + std::to_string(kHeight) + " -i " +
                              raw.string() + (oneThread ? " -threads 1 " : " ") + format.ffmpegOptions + " " +
                              (Folder() / ("ff%02d." + std::string(format.extension))).string();
  tarnvel::bench::TimeCommand(state, command, kFrames);
}

}  // namespace

BENCHMARK_CAPTURE(BM_FrameKit, tiff16, kTiff16)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, tiff16, kTiff16, false)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, tiff16_1thread, kTiff16, true)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FrameKit, png16, kPng16)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, png16, kPng16, false)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, png16_1thread, kPng16, true)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FrameKit, png12, kPng12)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FrameKit, jpeg8, kJpeg8)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, jpeg8, kJpeg8, false)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_CAPTURE(BM_FFmpeg, jpeg8_1thread, kJpeg8, true)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(2.0);
BENCHMARK_MAIN();
