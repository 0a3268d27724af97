// Whole conversions by tarnvel-cli, side by side in one run:
//
// - Speed: a generated 1280 x 1024, 12-bit recording converted with the
//   frame pipeline sized to the machine, with the pipeline forced to one
//   worker (TARNVEL_FRAME_WORKERS=1), and the same decoded frames by the
//   ffmpeg command line. With the recording's image operations (5 x 5 median,
//   sharpen, brightness/contrast) into a 16-bit TIFF sequence and MP4/H.264;
//   without them into TIFF and PNG sequences, a multipage TIFF and MP4.
// - Memory: peak resident memory of one conversion of 100 frames and of
//   2,000 frames of the same recording; it must not grow with the frames.
//
// Every run is checked: a conversion that wrote another number of files or
// frames than asked for is reported as failed, not timed. Work happens on
// tmpfs when /dev/shm is one, so that the disk does not decide.
//
//   bench_convert [--quick] [--runs N] [--frames N] [--dir FOLDER] [--cli PROGRAM]
//
// By default 300 frames, each figure the fastest of two runs, and 2,000
// frames of 640 x 512 for the memory: about four minutes on two cores.
// --quick: 60 frames, one run, 1,000 frames of 320 x 256: about half a minute.
// --cli PROGRAM times another build's tarnvel-cli (this build's by default).
#include <linux/magic.h>
#include <sys/statfs.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <iterator>
#include <optional>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "bench/ChildRun.h"
#include "engine/RawSource.h"
#include "platform/rawdrv/RawDriver.h"

namespace fs = std::filesystem;
using tarnvel::bench::ChildRun;

namespace {

constexpr const char* kWorkersVariable = "TARNVEL_FRAME_WORKERS";
constexpr const char* kBaseName = "f";
constexpr const char* kWorkPrefix = "tarnvel-bench-convert-";
constexpr std::uint32_t kSpeedWidth = 1280, kSpeedHeight = 1024;

struct Settings {
  bool quick = false;
  int runs = 0;              // each figure is the fastest of this many runs; 0: as the mode has it
  std::uint32_t frames = 0;  // speed rows, as the mode or --frames has it
  std::uint32_t memoryWidth = 640, memoryHeight = 512;
  std::uint32_t memoryFrames = 2000, memoryFewFrames = 100;
  fs::path work;
  fs::path cli;
};

// ---- the recording ------------------------------------------------------

std::string ReadText(const fs::path& file) {
  std::ifstream in(file, std::ios::binary);
  return {std::istreambuf_iterator<char>(in), {}};
}

// Sets every line `key=...` of a profile or argument file (the profile
// repeats some keys in its second pass).
void SetKey(const fs::path& file, const std::string& key, const std::string& value) {
  const std::string text = ReadText(file);
  std::string out;
  std::size_t at = 0;
  while (at < text.size()) {
    const std::size_t end = text.find('\n', at);
    std::string line = text.substr(at, end == std::string::npos ? std::string::npos : end - at + 1);
    if (line.rfind(key + "=", 0) == 0) line = key + "=" + value + "\r\n";
    out += line;
    at = end == std::string::npos ? text.size() : end + 1;
  }
  std::ofstream(file, std::ios::binary) << out;
}

// The image operations the recording asks to replay: a 5 x 5 median against
// salt noise, a sharpening Laplacian (centre 5) and brightness +10 %, contrast
// +20 %, as users chain them; or none.
void SetImageOperations(const fs::path& profile, bool chain) {
  std::string text = ReadText(profile);
  const std::size_t section = text.find("[ImgOpList]");
  if (section != std::string::npos) text.erase(section, text.find("\n[", section) - section);
  constexpr const char* kChain =
      "[ImgOpList]\r\nCount=3\r\n"
      "ItemStr_00=Median 5x5\r\nItemVal_00=7 5 0 0\r\n"
      "ItemStr_01=Sharpen\r\nItemVal_01=1 3 0 0\r\n"
      "ItemStr_02=Brightness/contrast\r\nItemVal_02=21 10 20 0\r\n";
  text += chain ? kChain : "[ImgOpList]\r\nCount=0\r\n";
  std::ofstream(profile, std::ios::binary) << text;
}

bool MakeRecording(const fs::path& folder, std::uint32_t width, std::uint32_t height, std::uint32_t frames) {
  tarnvel::recgen::RecordingOptions o;
  o.folder = folder.string();
  o.width = width;
  o.height = height;
  o.frames = frames;
  o.preTrigger = std::min<std::uint32_t>(20, frames - 1);
  o.baseName = kBaseName;
  const std::string failure = tarnvel::recgen::WriteRecording(o);
  if (!failure.empty()) std::fprintf(stderr, "bench_convert: %s\n", failure.c_str());
  return failure.empty();
}

// The recording's frames as the raw driver decodes them (12-bit values in
// 16-bit words), ffmpeg's input.
bool WriteDecodedFrames(const fs::path& recording, std::uint32_t frames, const fs::path& out) {
  tarnvel::RawSource source;
  tarnvel::FrameGeometry g;
  if (source.Open(recording.string().c_str()) != 0 || !source.Geometry(g)) return false;
  std::vector<std::uint8_t> frame(g.frameBytes);
  std::ofstream raw(out, std::ios::binary);
  for (std::uint32_t i = 0; i < frames; ++i) {
    if (source.ReadFrame(static_cast<std::int32_t>(i), frame.data()) != 0) return false;
    raw.write(reinterpret_cast<const char*>(frame.data()), static_cast<std::streamsize>(frame.size()));
  }
  return static_cast<bool>(raw.flush());
}

// ---- what a run wrote -------------------------------------------------

enum class Written { kSequence, kMultipage, kMovie };

std::vector<fs::path> FilesWithExtension(const fs::path& folder, const std::string& extension) {
  std::vector<fs::path> files;
  for (const auto& entry : fs::directory_iterator(folder)) {
    if (entry.is_regular_file() && entry.path().extension() == "." + extension) files.push_back(entry.path());
  }
  return files;
}

void RemoveOutputs(const fs::path& folder, const std::string& extension) {
  for (const fs::path& file : FilesWithExtension(folder, extension)) fs::remove(file);
}

// The first number that a command prints, or -1.
long NumberPrintedBy(const std::string& command) {
  FILE* pipe = popen(command.c_str(), "r");
  if (!pipe) return -1;
  long number = -1;
  if (std::fscanf(pipe, "%ld", &number) != 1) number = -1;
  pclose(pipe);
  return number;
}

// Frames found in the output, counted by readers of our own choosing:
// files for a sequence, tiffinfo's directories for a multipage TIFF,
// ffprobe's decoded frames for a movie.
long FramesWritten(const fs::path& folder, const std::string& extension, Written kind) {
  const std::vector<fs::path> files = FilesWithExtension(folder, extension);
  if (kind == Written::kSequence) return static_cast<long>(files.size());
  if (files.size() != 1) return -1;
  const std::string quoted = "'" + files[0].string() + "'";
  const std::string countPages = "tiffinfo " + quoted + " 2>/dev/null | grep -c '^TIFF Directory'";
  const std::string countFrames =
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries stream=nb_read_frames -of csv=p=0 " + quoted;
  return NumberPrintedBy(kind == Written::kMultipage ? countPages : countFrames);
}

// ---- timed runs -------------------------------------------------------

struct Command {
  std::vector<std::string> argv;
  std::vector<std::string> environment;  // changes, as RunChild takes them
  fs::path outputFolder;
  std::string extension;
  Written kind;
};

// One run, checked for `frames` frames written; none when it failed or
// wrote another number. Its output is removed afterwards.
std::optional<ChildRun> RunChecked(const Command& command, long frames, const fs::path& work) {
  const fs::path log = work / "run.log";
  RemoveOutputs(command.outputFolder, command.extension);
  ::sync();  // on a disk, earlier runs' files must not be written back during this one
  const ChildRun result = tarnvel::bench::RunChild(command.argv, command.environment, log.string());
  const long written = result.succeeded ? FramesWritten(command.outputFolder, command.extension, command.kind) : -1;
  RemoveOutputs(command.outputFolder, command.extension);
  if (written == frames) return result;
  std::fprintf(stderr, "bench_convert: %s into %s %s, %ld of %ld frames found\n%s", command.argv[0].c_str(),
               command.outputFolder.c_str(), result.succeeded ? "ended well" : "failed", written, frames,
               ReadText(log).c_str());
  return std::nullopt;
}

// The fastest of a command's runs; a single failed run fails the column.
struct Column {
  std::optional<ChildRun> fastest;
  bool failed = false;

  void Add(const std::optional<ChildRun>& run) {
    failed = failed || !run;
    if (run && (!fastest || run->wallSeconds < fastest->wallSeconds)) fastest = run;
  }
  bool Ok() const { return !failed && fastest.has_value(); }
};

// ---- speed ---------------------------------------------------------------

constexpr const char* kFfmpegChain = "median=radius=2,unsharp,eq=brightness=0.1:contrast=1.2";

// A ratio aimed at: ours over "1 worker" or over "ffmpeg", at least `least`.
struct Aim {
  const char* against;
  double least;
};

// What tarnvel-cli is asked to write, in the profile's terms.
struct TarnvelOutput {
  int fileType;
  int depth;  // the profile's output depth
  const char* extension;
  Written kind;
};

constexpr TarnvelOutput kTiffSequence16{1, 12, "tif", Written::kSequence};
constexpr TarnvelOutput kPngSequence8{4, 8, "png", Written::kSequence};
constexpr TarnvelOutput kMultipageTiff16{11, 12, "mpt", Written::kMultipage};
constexpr TarnvelOutput kMp4{18, 8, "mp4", Written::kMovie};

// ffmpeg reads the frames as 12-bit samples wherever it changes them (so that
// it filters and scales the picture the recording holds) and as plain 16-bit
// words where it only stores them.
struct FfmpegOutput {
  const char* inputFormat;
  std::vector<std::string> options;  // after the input; the output file comes last
  const char* file;
  Written kind;
};

struct SpeedRow {
  const char* name;
  bool chain;
  TarnvelOutput ours;
  FfmpegOutput ffmpeg;
  std::vector<Aim> aims;
};

std::vector<SpeedRow> SpeedRows() {
  const std::string chain = kFfmpegChain;
  const std::vector<std::string> x264 = {"-c:v", "libx264", "-preset", "medium", "-crf", "17"};
  auto with = [](std::vector<std::string> a, const std::vector<std::string>& b) {
    a.insert(a.end(), b.begin(), b.end());
    return a;
  };
  const FfmpegOutput tiffRaw{"gray16le", {"-compression_algo", "raw"}, "f%06d.tif", Written::kSequence};
  const FfmpegOutput tiffChain{
      "gray12le", {"-vf", chain, "-compression_algo", "raw", "-pix_fmt", "gray16le"}, "f%06d.tif", Written::kSequence};
  const FfmpegOutput png{"gray12le", {"-pix_fmt", "gray"}, "f%06d.png", Written::kSequence};
  const FfmpegOutput mp4{"gray12le", with({"-pix_fmt", "yuv420p"}, x264), "f.mp4", Written::kMovie};
  const FfmpegOutput mp4Chain{"gray12le", with({"-vf", chain + ",format=yuv420p"}, x264), "f.mp4", Written::kMovie};
  return {
      {"chain, TIFF seq 16-bit", true, kTiffSequence16, tiffChain, {{"1 worker", 1.8}}},
      {"chain, MP4 H.264", true, kMp4, mp4Chain, {{"1 worker", 1.8}, {"ffmpeg", 1.0}}},
      {"TIFF seq 16-bit", false, kTiffSequence16, tiffRaw, {{"ffmpeg", 1.8}}},
      {"PNG seq 8-bit", false, kPngSequence8, png, {{"ffmpeg", 1.8}}},
      {"multipage TIFF 16-bit *", false, kMultipageTiff16, tiffRaw, {}},
      {"MP4 H.264", false, kMp4, mp4, {{"ffmpeg", 1.0}}},
  };
}

// The recording's profile set to write `output`, and the command that
// converts it with the pipeline sized to the machine.
Command PrepareConversion(const Settings& s, const TarnvelOutput& output, const fs::path& recording) {
  SetKey(recording / "_config.pgv", "FileType", std::to_string(output.fileType));
  SetKey(recording / "_config.pgv", "PixelDepth", std::to_string(output.depth));
  return {{s.cli.string(), (recording / "args.ini").string()},
          {kWorkersVariable},
          recording,
          output.extension,
          output.kind};
}

Command FfmpegCommand(const FfmpegOutput& output, const fs::path& frames, const fs::path& folder) {
  std::vector<std::string> argv = {"ffmpeg",     "-y",
                                   "-loglevel",  "error",
                                   "-f",         "rawvideo",
                                   "-pix_fmt",   output.inputFormat,
                                   "-s",         std::to_string(kSpeedWidth) + "x" + std::to_string(kSpeedHeight),
                                   "-framerate", "25",
                                   "-i",         frames.string(),
                                   "-threads",   "2"};
  argv.insert(argv.end(), output.options.begin(), output.options.end());
  argv.push_back((folder / output.file).string());
  return {argv, {}, folder, fs::path(output.file).extension().string().substr(1), output.kind};
}

// "fps (cores busy)" of a column.
std::string Cell(const Column& column, long frames) {
  if (!column.Ok()) return "failed";
  char text[48];
  const ChildRun& run = *column.fastest;
  std::snprintf(text, sizeof text, "%.1f (%.1f)", static_cast<double>(frames) / run.wallSeconds,
                run.cpuSeconds / run.wallSeconds);
  return text;
}

// How many times faster `ours` ran than `other`, or -1.
double Ratio(const Column& ours, const Column& other) {
  return ours.Ok() && other.Ok() ? other.fastest->wallSeconds / ours.fastest->wallSeconds : -1;
}

// Whether a measured ratio reached its aim (for `atLeast`) or stayed under
// it; "-" when nothing was measured.
const char* Verdict(double measured, double aim, bool atLeast) {
  if (measured < 0) return "-";
  return (atLeast ? measured >= aim : measured <= aim) ? "met" : "missed";
}

std::string RatioText(double ratio) {
  char text[24];
  std::snprintf(text, sizeof text, "%.2fx", ratio);
  return ratio < 0 ? "-" : text;
}

// "over ffmpeg >= 1.8: met" for each aim of a row.
std::string AimsText(const std::vector<Aim>& aims, double overOneWorker, double overFfmpeg) {
  std::string result;
  for (const Aim& aim : aims) {
    const double measured = std::string(aim.against) == "ffmpeg" ? overFfmpeg : overOneWorker;
    char text[64];
    std::snprintf(text, sizeof text, "%sover %s >= %.1f: %s", result.empty() ? "" : ", ", aim.against, aim.least,
                  Verdict(measured, aim.least, true));
    result += text;
  }
  return result;
}

// Converts with the pipeline, with one worker and with ffmpeg, `runs` times
// in turn, each run starting with the next of the three (so that a burst of
// load on a shared machine does not always hit the same one), and prints the
// row. False when a run failed.
bool SpeedLine(const Settings& s, const SpeedRow& row, const fs::path& recording, const fs::path& frames) {
  SetImageOperations(recording / "_config.pgv", row.chain);
  const Command pipeline = PrepareConversion(s, row.ours, recording);
  Command oneWorker = pipeline;
  oneWorker.environment = {std::string(kWorkersVariable) + "=1"};
  const fs::path ffmpegFolder = s.work / "ffmpeg";
  fs::create_directories(ffmpegFolder);
  const Command ffmpeg = FfmpegCommand(row.ffmpeg, frames, ffmpegFolder);
  Column columns[3];
  const Command* commands[3] = {&pipeline, &oneWorker, &ffmpeg};
  for (int run = 0; run < s.runs; ++run) {
    for (int i = 0; i < 3; ++i) {
      const int which = (run + i) % 3;
      columns[which].Add(RunChecked(*commands[which], s.frames, s.work));
    }
  }
  const double overOne = Ratio(columns[0], columns[1]), overFfmpeg = Ratio(columns[0], columns[2]);
  std::printf("%-24s %14s %14s %14s %8s %8s  %s\n", row.name, Cell(columns[0], s.frames).c_str(),
              Cell(columns[1], s.frames).c_str(), Cell(columns[2], s.frames).c_str(), RatioText(overOne).c_str(),
              RatioText(overFfmpeg).c_str(), AimsText(row.aims, overOne, overFfmpeg).c_str());
  std::fflush(stdout);
  return columns[0].Ok() && columns[1].Ok() && columns[2].Ok();
}

bool SpeedTable(const Settings& s) {
  const fs::path recording = s.work / "speed", frames = s.work / "frames.gray16";
  if (!MakeRecording(recording, kSpeedWidth, kSpeedHeight, s.frames) ||
      !WriteDecodedFrames(recording, s.frames, frames))
    return false;
  std::printf("Frames per second (cores busy), %u x %u 12-bit recording, %u frames, fastest of %d run%s\n", kSpeedWidth,
              kSpeedHeight, s.frames, s.runs, s.runs == 1 ? "" : "s");
  std::printf("chain: 5x5 median, sharpen, brightness/contrast; ffmpeg -threads 2 -vf %s\n", kFfmpegChain);
  std::printf("%-24s %14s %14s %14s %8s %8s  %s\n", "output", "pipeline", "1 worker", "ffmpeg", "pipe/1w", "pipe/ff",
              "aim");
  bool ok = true;
  const std::vector<SpeedRow> rows = SpeedRows();
  // The first conversion after the recording is written runs slower than all
  // that follow it (seen as up to 3x on this machine): one untimed run first.
  SetImageOperations(recording / "_config.pgv", rows[0].chain);
  RunChecked(PrepareConversion(s, rows[0].ours, recording), s.frames, s.work);
  for (const SpeedRow& row : rows) ok = SpeedLine(s, row, recording, frames) && ok;
  std::printf("* ffmpeg writes no multipage TIFF: its TIFF sequence stands beside ours.\n\n");
  fs::remove_all(recording);
  fs::remove(frames);
  return ok;
}

// ---- memory --------------------------------------------------------------

struct MemoryRow {
  const char* name;
  TarnvelOutput output;
};

// Peak resident memory of the pipeline converting the first `few` and then
// all frames of one recording into the same output.
bool MemoryLine(const Settings& s, const MemoryRow& row, const fs::path& recording) {
  const Command convert = PrepareConversion(s, row.output, recording);
  double peakMiB[2] = {-1, -1};
  std::string cells[2] = {"failed", "failed"};
  const std::uint32_t counts[2] = {s.memoryFewFrames, s.memoryFrames};
  for (int i = 0; i < 2; ++i) {
    SetKey(recording / "args.ini", "Arg03", std::to_string(counts[i]));
    const std::optional<ChildRun> run = RunChecked(convert, counts[i], s.work);
    if (!run) continue;
    peakMiB[i] = static_cast<double>(run->peakKiB) / 1024.0;
    char text[24];
    std::snprintf(text, sizeof text, "%.1f", peakMiB[i]);
    cells[i] = text;
  }
  const bool ok = peakMiB[0] > 0 && peakMiB[1] > 0;
  const double ratio = ok ? peakMiB[1] / peakMiB[0] : -1;
  std::printf("%-24s %12s %12s %8s  %s\n", row.name, cells[0].c_str(), cells[1].c_str(), RatioText(ratio).c_str(),
              Verdict(ratio, 1.10, false));
  std::fflush(stdout);
  return ok;
}

bool MemoryTable(const Settings& s) {
  const fs::path recording = s.work / "memory";
  if (!MakeRecording(recording, s.memoryWidth, s.memoryHeight, s.memoryFrames)) return false;
  SetImageOperations(recording / "_config.pgv", false);
  std::printf("Peak resident memory (MiB), %u x %u 12-bit recording, frame pipeline sized to the machine\n",
              s.memoryWidth, s.memoryHeight);
  std::printf("%-24s %12s %12s %8s  %s\n", "output", std::to_string(s.memoryFewFrames).append(" frames").c_str(),
              std::to_string(s.memoryFrames).append(" frames").c_str(), "ratio", "aim: ratio <= 1.10");
  const MemoryRow rows[] = {
      {"multipage TIFF 16-bit", kMultipageTiff16},
      {"MP4 H.264", kMp4},
      {"TIFF seq 16-bit", kTiffSequence16},
  };
  bool ok = true;
  for (const MemoryRow& row : rows) ok = MemoryLine(s, row, recording) && ok;
  fs::remove_all(recording);
  return ok;
}

// ---- settings ------------------------------------------------------------

// /dev/shm when it is a tmpfs, else the temporary folder, with a note.
fs::path DefaultScratch() {
  struct statfs info {};
  if (statfs("/dev/shm", &info) == 0 && info.f_type == TMPFS_MAGIC && access("/dev/shm", W_OK) == 0) {
    return "/dev/shm";
  }
  std::printf("note: /dev/shm is no writable tmpfs; working in %s, whose disk takes part in the figures\n",
              fs::temp_directory_path().c_str());
  return fs::temp_directory_path();
}

// Work folders of earlier runs that were interrupted (Ctrl-C, a closed
// pipe): on tmpfs they would hold gigabytes of memory until the next boot.
void RemoveLeftovers(const fs::path& parent) {
  std::error_code error;
  for (const auto& entry : fs::directory_iterator(parent, error)) {
    const std::string name = entry.path().filename().string();
    if (name.rfind(kWorkPrefix, 0) != 0) continue;
    const long pid = std::atol(name.c_str() + std::string(kWorkPrefix).size());
    if (pid > 0 && kill(static_cast<pid_t>(pid), 0) != 0 && errno == ESRCH) fs::remove_all(entry.path(), error);
  }
}

bool ParseSettings(int argc, char** argv, Settings& s) {
  std::optional<fs::path> folder, cli;
  std::optional<std::uint32_t> frames;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--quick") {
      s.quick = true;
    } else if (arg == "--runs" && hasValue) {
      s.runs = std::max(1, std::atoi(argv[++i]));
    } else if (arg == "--frames" && hasValue) {
      frames = static_cast<std::uint32_t>(std::clamp(std::atoi(argv[++i]), 2, 100000));
    } else if (arg == "--dir" && hasValue) {
      folder = argv[++i];
    } else if (arg == "--cli" && hasValue) {
      cli = fs::absolute(argv[++i]);
    } else {
      return false;
    }
  }
  // Two runs each at full size fit in about four minutes on two cores (the
  // ffmpeg chains take most of it).
  if (s.runs == 0) s.runs = s.quick ? 1 : 2;
  s.frames = frames.value_or(s.quick ? 60 : 300);
  if (s.quick) {
    s.memoryWidth = 320;
    s.memoryHeight = 256;
    s.memoryFrames = 1000;
  }
  s.work = folder.value_or(DefaultScratch()) / (kWorkPrefix + std::to_string(getpid()));
  s.cli = cli.value_or(fs::canonical("/proc/self/exe").parent_path().parent_path() / "apps/tarnvel-cli");
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  Settings s;
  if (!ParseSettings(argc, argv, s)) {
    std::fprintf(stderr, "usage: bench_convert [--quick] [--runs N] [--frames N] [--dir FOLDER] [--cli PROGRAM]\n");
    return 2;
  }
  RemoveLeftovers(s.work.parent_path());
  fs::create_directories(s.work);
  tarnvel::DriverInit(0);
  const bool speedOk = SpeedTable(s);
  const bool memoryOk = MemoryTable(s);
  tarnvel::DriverExit();
  fs::remove_all(s.work);
  return speedOk && memoryOk ? 0 : 1;
}
