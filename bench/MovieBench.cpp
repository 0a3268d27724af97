// Frames per second of movies written by the image library, next to the
// ffmpeg command line making the same movie from the same raw frames in the
// same run: 1280 x 1024 8-bit grey into MP4/H.264 (x264 presets medium and
// ultrafast, CRF 17 -- the library's fixed quality) and into AVI/Motion
// JPEG (quantiser 3 -- the library's quality 9500). Both sides convert grey to
// 4:2:0 and let the encoder use its own threads. A library run writes one
// 64-frame movie per iteration; an ffmpeg run does the same from a raw file,
// start-up included. fps counts frames per second of wall time, cpu_fps per
// second of processor time (this process, or the ffmpeg child).
#include <benchmark/benchmark.h>

#include <chrono>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <random>
#include <string>
#include <vector>

#include "bench/BenchClock.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"

namespace {

constexpr std::uint32_t kWidth = 1280, kHeight = 1024, kFrames = 64;

struct Target {
  const char* extension;
  int optionsType;
  std::uint32_t handler;
  std::uint32_t quality;
  const char* ffmpegOptions;
};
const Target kMp4Medium{"mp4", 16, tarnvel::framekit::kMovieH264, 0,
                        "-c:v libx264 -preset medium -crf 17 -pix_fmt yuv420p"};
const Target kMp4Ultrafast{"mp4", 16, tarnvel::framekit::kMovieH264Fast, 0,
                           "-c:v libx264 -preset ultrafast -crf 17 -pix_fmt yuv420p"};
const Target kAviMjpeg{"avi", 13, tarnvel::framekit::kMovieMotionJpeg, 9500,
                       "-c:v mjpeg -q:v 3 -qmin 3 -qmax 3 -pix_fmt yuvj420p"};

using tarnvel::bench::ProcessSeconds;

std::filesystem::path Folder() {
  static const auto folder = tarnvel::bench::ScratchFolder("tarnvel-bench-movie");
  return folder;
}

// A camera-like picture that moves: a light field, texture and sensor noise.
std::vector<std::uint8_t> Picture(std::uint32_t frame) {
  std::mt19937 noise(frame);
  std::vector<std::uint8_t> pixels(std::size_t{kWidth} * kHeight);
  for (std::uint32_t y = 0; y < kHeight; ++y)
    for (std::uint32_t x = 0; x < kWidth; ++x) {
      const double light = 0.5 + 0.4 * ((x + frame * 8) % kWidth) / kWidth * (1.0 - 0.5 * y / kHeight);
      const double texture = (((x + frame * 3) / 16 + y / 16) % 2) * 0.05;
      const double v = (light + texture) * 255.0 + static_cast<double>(noise() % 8) - 4.0;
      pixels[std::size_t{y} * kWidth + x] = static_cast<std::uint8_t>(std::min(255.0, std::max(0.0, v)));
    }
  return pixels;
}

const std::vector<std::vector<std::uint8_t>>& Pictures() {
  static const auto pictures = [] {
    std::vector<std::vector<std::uint8_t>> p;
    for (std::uint32_t i = 0; i < kFrames; ++i) p.push_back(Picture(i));
    return p;
  }();
  return pictures;
}

void BM_Library(benchmark::State& state, const Target& target) {
  tarnvel::FrameOptions options;
  options.handler = target.handler;
  options.quality = target.quality;
  tarnvel::SetOptions(target.optionsType, &options);
  tarnvel::FrameHeader header;
  header.width = kWidth;
  header.height = kHeight;
  header.bits = 8;
  header.colorKind = 1;
  header.rate = 25;
  tarnvel::FillGreyPalette(header);
  const auto& pictures = Pictures();
  const auto path = Folder() / (std::string("library.") + target.extension);
  const double cpuStart = ProcessSeconds();
  for (auto _ : state) {
    tarnvel::FrameHandle handle = nullptr;
    tarnvel::OpenOutput(path.c_str(), 1, &handle);
    for (std::uint32_t i = 0; i < kFrames; ++i)
      if (tarnvel::WriteFrame(handle, i, kFrames, &header, nullptr, pictures[i].data()) != 0) {
        state.SkipWithError("write failed");
        break;
      }
    tarnvel::CloseOutput(handle);
  }
  const double frames = static_cast<double>(state.iterations() * kFrames);
  state.counters["fps"] = benchmark::Counter(frames, benchmark::Counter::kIsRate);
  state.counters["cpu_fps"] = frames / (ProcessSeconds() - cpuStart);
}

void BM_FFmpeg(benchmark::State& state, const Target& target) {
  const auto raw = Folder() / "input-gray.raw";
  if (!std::filesystem::exists(raw) || std::filesystem::file_size(raw) != std::uintmax_t{kWidth} * kHeight * kFrames) {
    std::ofstream out(raw, std::ios::binary | std::ios::trunc);
    for (const auto& picture : Pictures())
      out.write(reinterpret_cast<const char*>(picture.data()), static_cast<std::streamsize>(picture.size()));
  }
  const std::string command = "ffmpeg -nostdin -v error -y -f rawvideo -pix_fmt gray -s " + std::to_string(kWidth) +
                              "x" + std::to_string(kHeight) + " -r 25 -i " + raw.string() + " " +
                              target.ffmpegOptions + " " +
                              (Folder() / (std::string("ffmpeg.") + target.extension)).string();
  tarnvel::bench::TimeCommand(state, command, kFrames);
}

}  // namespace

BENCHMARK_CAPTURE(BM_Library, mp4_h264_medium, kMp4Medium)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK_CAPTURE(BM_FFmpeg, mp4_h264_medium, kMp4Medium)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);
BENCHMARK_CAPTURE(BM_Library, mp4_h264_ultrafast, kMp4Ultrafast)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK_CAPTURE(BM_FFmpeg, mp4_h264_ultrafast, kMp4Ultrafast)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);
BENCHMARK_CAPTURE(BM_Library, avi_mjpeg, kAviMjpeg)->Unit(benchmark::kMillisecond)->UseRealTime()->MinTime(3.0);
BENCHMARK_CAPTURE(BM_FFmpeg, avi_mjpeg, kAviMjpeg)->Unit(benchmark::kMillisecond)->UseManualTime()->MinTime(3.0);
BENCHMARK_MAIN();
