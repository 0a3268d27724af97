// Whole conversions against FFmpeg, in one run: a generated 1280 x 1024,
// 12-bit recording of 500 frames converted by tarnvel-cli to a 16-bit TIFF
// sequence, a multipage TIFF, an 8-bit PNG sequence and MP4/H.264 (x264,
// preset medium, CRF 17 as our writer uses); the same decoded frames
// converted by the ffmpeg command line to the same outputs. Prints frames per
// second and the ratio.
//
//   bench_convert [FRAMES]      (run from the build folder's bench/)
#include <chrono>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/RawSource.h"
#include "platform/rawdrv/RawDriver.h"

namespace fs = std::filesystem;
using tarnvel::recgen::RecordingOptions;

namespace {

double Seconds(const std::string& command) {
  // Each run starts with the page cache written back: the copy of the
  // recording and the previous run's output must not slow the next one down.
  if (std::system("sync") != 0) return -1;
  const auto start = std::chrono::steady_clock::now();
  const int status = std::system((command + " > /dev/null 2>&1").c_str());
  const double seconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  return status == 0 ? seconds : -1;
}

void SetKey(const fs::path& file, const std::string& key, const std::string& value) {
  std::ifstream in(file, std::ios::binary);
  std::string text((std::istreambuf_iterator<char>(in)), {}), out;
  std::size_t at = 0;
  while (at < text.size()) {
    std::size_t end = text.find('\n', at);
    std::string line = text.substr(at, end == std::string::npos ? std::string::npos : end - at + 1);
    if (line.rfind(key + "=", 0) == 0) line = key + "=" + value + "\r\n";
    out += line;
    at = end == std::string::npos ? text.size() : end + 1;
  }
  std::ofstream(file, std::ios::binary) << out;
}

}  // namespace

int main(int argc, char** argv) {
  const std::uint32_t frames = argc > 1 ? static_cast<std::uint32_t>(std::atoi(argv[1])) : 500;
  const fs::path work = fs::temp_directory_path() / "tarnvel-bench-convert";
  fs::remove_all(work);
  const fs::path self = fs::canonical("/proc/self/exe").parent_path();
  const std::string cli = (self.parent_path() / "apps/tarnvel-cli").string();

  // The decoded frames once, as FFmpeg's input.
  RecordingOptions o;
  o.folder = (work / "master").string();
  o.frames = frames;
  o.baseName = "f";
  if (!tarnvel::recgen::WriteRecording(o).empty()) return 1;
  tarnvel::DriverInit(0);
  {
    tarnvel::RawSource source;
    source.Open(o.folder.c_str());
    tarnvel::FrameGeometry g;
    source.Geometry(g);
    std::vector<std::uint8_t> frame(g.frameBytes);
    std::ofstream raw(work / "frames.gray16", std::ios::binary);
    for (std::uint32_t i = 0; i < frames; ++i) {
      source.ReadFrame(static_cast<std::int32_t>(i), frame.data());
      raw.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
    }
  }
  tarnvel::DriverExit();
  const std::string input = "ffmpeg -y -loglevel error -f rawvideo -pix_fmt gray16le -s 1280x1024 -framerate 25 -i " +
                            (work / "frames.gray16").string();

  struct Row {
    const char* name;
    int fileType;
    int depth;  // the profile's output depth
    std::string ffmpeg;
  };
  const std::vector<Row> rows = {
      {"TIFF sequence, 16-bit", 1, 12, input + " " + (work / "ff-tif/f%06d.tif").string()},
      // FFmpeg writes no multipage TIFF: its TIFF sequence stands beside ours.
      {"multipage TIFF, 16-bit *", 11, 12, input + " " + (work / "ff-mpt/f%06d.tif").string()},
      {"PNG sequence, 8-bit", 4, 8, input + " -vf format=gray " + (work / "ff-png/f%06d.png").string()},
      {"MP4/H.264, 8-bit", 18, 8, input + " -c:v libx264 -preset medium -crf 17 -pix_fmt yuv420p " + (work / "ff-mp4/f.mp4").string()},
  };
  std::printf("%-26s %12s %12s %8s\n", "output", "tarnvel fps", "ffmpeg fps", "ratio");
  for (const Row& row : rows) {
    const fs::path rec = work / ("rec-" + std::to_string(row.fileType));
    fs::copy(o.folder, rec, fs::copy_options::recursive);
    SetKey(rec / "_config.pgv", "FileType", std::to_string(row.fileType));
    SetKey(rec / "_config.pgv", "PixelDepth", std::to_string(row.depth));
    for (const char* dir : {"ff-tif", "ff-mpt", "ff-png", "ff-mp4"}) fs::create_directories(work / dir);
    const double ours = Seconds(cli + " " + (rec / "args.ini").string());
    const double theirs = Seconds(row.ffmpeg);
    if (ours < 0) {
      std::printf("%-26s %12s %12.1f %8s\n", row.name, "n/a", frames / theirs, "");
      continue;
    }
    std::printf("%-26s %12.1f %12.1f %7.2fx\n", row.name, frames / ours, frames / theirs, theirs / ours);
    fs::remove_all(rec);
  }
  std::printf("* FFmpeg has no multipage TIFF writer; its TIFF sequence is the comparison.\n");
  fs::remove_all(work);
  return 0;
}
