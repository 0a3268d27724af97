// Feeds whole argument files to a real job: the bytes become the args.ini of
// a small generated recording (a multipage TIFF with a plot, a time sidecar
// and a companion movie on offer), and the job reads them, checks them and
// converts what they ask for. Whatever the file holds, the process must not
// crash or reach past a buffer, and the raw files must stay byte for byte
// unless the job ended Done; a breach aborts, which the fuzzer reports.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <filesystem>
#include <fstream>
#include <sstream>
#include <string>
#include <string_view>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "platform/rawdrv/RawDriver.h"

namespace {

namespace fs = std::filesystem;

std::string ReadAll(const fs::path& path) {
  std::ifstream in(path, std::ios::binary);
  std::ostringstream text;
  text << in.rdbuf();
  return text.str();
}

// The raw files of the folder, names and bytes, as one text.
std::string RawFiles(const fs::path& folder) {
  std::string all;
  for (const char* name : {"args.ini", "rawfile.xml", "rawdata.00.raw"})
    if (fs::is_regular_file(folder / name)) all += std::string(name) + "\n" + ReadAll(folder / name);
  return all;
}

// The recording, written once per process; each input gets a fresh copy.
const fs::path& Fixture() {
  static const fs::path root = fs::path(fs::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") /
                               ("tarnvel-fuzz-args-" + std::to_string(::getpid()));
  static const bool made = [] {
    tarnvel::recgen::RecordingOptions o;
    o.folder = (root / "fixture").string();
    o.width = 24, o.height = 16, o.frames = 3, o.preTrigger = 1;
    o.fileType = 11;
    o.timeFromReceiver = true;
    o.channelForm = 1;
    o.deviceName = "cam";
    const bool written = tarnvel::recgen::WriteRecording(o).empty();
    if (written) tarnvel::DriverInit(0);
    std::atexit([] {
      std::error_code ec;
      fs::remove_all(root, ec);  // the fixture goes with the process
    });
    return written;
  }();
  if (!made) std::abort();
  return root;
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarnvel;
  static std::uint64_t run = 0;
  const fs::path root = Fixture();
  const fs::path folder = root / ("run" + std::to_string(run++)), recording = folder / "rec";
  fs::create_directories(folder);
  fs::copy(root / "fixture", recording, fs::copy_options::recursive);
  if (std::FILE* f = std::fopen((recording / "args.ini").c_str(), "wb")) {
    std::fwrite(data, 1, size, f);
    std::fclose(f);
  }
  const std::string before = RawFiles(recording);
  {
    CDecodeRaw job((recording / "args.ini").string(), 0, 0);
    job.SetPauseTimeout(std::chrono::milliseconds(1));
    const std::string out = (folder / "out").string();
    JobOverrides overrides;
    overrides.fileType = kRecordingFileType;
    job.SetOverrides(out.c_str(), overrides);
    job.Start(false);
    if (job.FinalStatus() != RowStatus::Done && RawFiles(recording) != before) std::abort();  // a raw byte lost
  }
  std::error_code ec;
  fs::remove_all(folder, ec);
  return 0;
}
