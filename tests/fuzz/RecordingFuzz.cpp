// Feeds arbitrary bytes to the readers of a recording folder: the first half
// as `_config.pgv`, the second as `args.ini` (a "\n--\n" in the input moves the
// cut there), then reads the recording's profile, the job's arguments and the
// names that follow from them. Each input gets folders of its own, so the
// profile cache never serves an earlier input.
#include <unistd.h>

#include <cstdint>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <string_view>

#include "engine/JobArgs.h"
#include "engine/OutputNaming.h"
#include "recording/MmeSidecars.h"
#include "recording/RecordingConfig.h"

namespace {

void Write(const std::string& path, std::string_view bytes) {
  if (std::FILE* f = std::fopen(path.c_str(), "wb")) {
    std::fwrite(bytes.data(), 1, bytes.size(), f);
    std::fclose(f);
  }
}

}  // namespace

extern "C" int LLVMFuzzerTestOneInput(const std::uint8_t* data, std::size_t size) {
  using namespace tarnvel;
  // Memory-backed when the machine has it: the folders come and go with every input.
  static const std::string root = std::string(std::filesystem::is_directory("/dev/shm") ? "/dev/shm" : "/tmp") +
                                  "/tarnvel-fuzz-recording-" + std::to_string(::getpid());
  static std::uint64_t run = 0;
  const std::string folder = root + "/" + std::to_string(run++) + "/Rec";
  std::filesystem::create_directories(folder);

  const std::string_view input(reinterpret_cast<const char*>(data), size);
  std::size_t cut = input.find("\n--\n");
  const std::string_view profile = cut == std::string_view::npos ? input.substr(0, size / 2) : input.substr(0, cut);
  const std::string_view args = cut == std::string_view::npos ? input.substr(size / 2) : input.substr(cut + 4);
  Write(folder + "/_config.pgv", profile);
  Write(folder + "/args.ini", args);
  Write(folder + "/_config.mme", input);

  auto recording = std::make_unique<RecordingInfo>();
  std::memset(recording.get(), 0, sizeof *recording);
  ReadRecordingConfig(folder, *recording);
  JobArgs jobArgs;
  ReadJobArgs(folder + "/args.ini", jobArgs);
  CodecSettings codec;
  ReadCodecDefaults(folder + "/args.ini", codec);
  DialogDefaults defaults;
  ReadDialogDefaults(folder + "/args.ini", defaults);
  std::string movie;
  MoviePathOf(folder + "/args.ini", movie);
  MmeRecord mme;
  ReadMmeHeader("", folder, mme);

  const std::string_view base = FieldText(jobArgs.baseName);
  FrameOutputPath(folder, base, OutputFrameNumber(*recording, jobArgs.frameCount), "tif");
  CompanionMoviePath(folder, FieldText(jobArgs.moviePath), FieldText(jobArgs.deviceName), recording->FileType, base,
                     "avi");
  ChannelDataPath(folder, base, jobArgs.channelFileType);

  std::error_code ec;
  std::filesystem::remove_all(std::filesystem::path(folder).parent_path(), ec);
  return 0;
}
