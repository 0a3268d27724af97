// tarnvel-info: shows what a recording folder holds and where its conversion
// would write, without writing anything.
//
//   tarnvel-info RECORDING [--dest FOLDER] [--extension EXT] [--serial N]
//
// RECORDING is the recording's folder or the path of its args.ini. The file
// type's extension comes from the image library in a conversion; here it is
// given with --extension (default "tif"). The camera's serial number lives in
// the raw store; --serial shows how the suite prints it for this model.
#include <cstdint>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <optional>
#include <string>
#include <vector>

#include "engine/JobArgs.h"
#include "engine/OutputNaming.h"
#include "frames/overlay/OverlayItems.h"
#include "platform/cordage/TextField.h"
#include "recording/ModelTable.h"
#include "recording/RecordingConfig.h"

namespace {

using namespace tarnvel;

int Usage() {
  std::fprintf(stderr, "usage: tarnvel-info RECORDING [--dest FOLDER] [--extension EXT] [--serial N]\n");
  return 2;
}

void Show(const char* label, const std::string& value) { std::printf("  %-22s %s\n", label, value.c_str()); }
void Show(const char* label, long long value) { Show(label, std::to_string(value)); }
void ShowPath(const char* label, const std::optional<std::string>& path) {
  Show(label, path ? *path : std::string("(refused: too long or not a plain name)"));
}

std::string List(const std::int32_t (&list)[kItemListEntries]) {
  if (list[0] == -1) return "not used";
  std::string text;
  for (std::size_t i = 0; i < kOverlayItemCount; ++i) text += std::to_string(list[i]) + (i + 1 < kOverlayItemCount ? "," : "");
  return text;
}

}  // namespace

int main(int argc, char** argv) {
  if (argc < 2) return Usage();
  std::string target = argv[1];
  std::string dest;
  std::string extension = "tif";
  std::optional<std::uint32_t> serial;
  for (int i = 2; i < argc; ++i) {
    const std::string option = argv[i];
    if (i + 1 >= argc) return Usage();
    const char* value = argv[++i];
    if (option == "--dest") {
      dest = value;
    } else if (option == "--extension") {
      extension = value;
    } else if (option == "--serial") {
      serial = static_cast<std::uint32_t>(std::strtoul(value, nullptr, 10));
    } else {
      return Usage();
    }
  }

  std::error_code ec;
  const std::string argsPath =
      std::filesystem::is_directory(target, ec) ? JoinPath(target, "args.ini") : target;
  const std::string folder = RecordingFolderOf(argsPath);

  auto recording = std::make_unique<RecordingInfo>();
  const bool usable = ReadRecordingConfig(folder, *recording) == 1;
  const RecordingInfo& r = *recording;
  std::printf("Recording %s\n", folder.c_str());
  if (!usable) {
    std::printf("  no recording: %s has no \"Images\" in section \"Acquisition\"\n", ProfilePathOf(folder).c_str());
    return 1;
  }
  char when[64];
  std::snprintf(when, sizeof when, "%04u-%02u-%02u %02u:%02u:%02u.%03u", r.Year, r.Month, r.Day, r.Hour, r.Minute,
                r.Second, r.Milliseconds);
  Show("Name", std::string(FieldText(r.Name)));
  Show("Comment", std::string(FieldText(r.Comment)));
  Show("Recorded", when);
  Show("File type", r.FileType);
  Show("Frames stored", r.Frames);
  Show("Selection", std::to_string(r.StartIdx) + " to " + std::to_string(r.StopIdx));
  Show("Movie selection", std::to_string(r.StartAvi) + " to " + std::to_string(r.StopAvi));
  Show("First frame", r.FirstFrame);
  Show("Frames before trigger", r.PerTrigFrms);
  Show("Recording mode", r.RecMode);
  if (r.RecMode == 2) Show("Burst length", r.BrocLength);
  Show("Pixel depth", r.PixelDepth);
  Show("Output depth", r.OutputPixelDepth);
  char rate[64];
  std::snprintf(rate, sizeof rate, "%.3f fps, output %.3f fps", r.Rate, r.Output_Rate);
  Show("Rate", rate);
  Show("Exposure", std::to_string(r.ExposureNs) + " ns");
  Show("Region", std::to_string(r.ROIW) + "x" + std::to_string(r.ROIH) + " at " + std::to_string(r.ROIX) + "," +
                     std::to_string(r.ROIY));
  Show("Model", std::to_string(r.Model) + " (position " + std::to_string(ModelIndexOf(r.Model)) + " of the table)");
  if (serial) Show("Serial", FormatSerial(r.Model, *serial));
  Show("Sync input", r.SyncInCfg);

  JobArgs args;
  std::vector<std::string> refused;
  ReadJobArgs(argsPath, args, &refused);
  std::printf("Job %s\n", argsPath.c_str());
  for (const std::string& key : refused) Show("Refused", key + " " + RefusalReason(key));
  const std::string base(FieldText(args.baseName));
  Show("Base name", base);
  Show("Device name", std::string(FieldText(args.deviceName)));
  Show("Frames to convert", args.frameCount);
  Show("Reset numbering", args.resetNumbering);
  Show("Delete raw files", args.deleteRaw);
  char flags[16];
  std::snprintf(flags, sizeof flags, "0x%X", args.overlayFlags);
  Show("Overlay flags", flags);
  Show("Item positions", List(args.itemPosition));
  Show("Companion movie", args.companionMovie);
  std::string movie;
  Show("Movie (Open AVI)", MoviePathOf(argsPath, movie) ? (movie.empty() ? "none" : movie) : "(refused)");
  const CodecSettings codec = CodecSettingsOf(args);
  const std::string codecName = codec.name[0] != '\0' ? std::string(FieldText(codec.name)) : "(none named)";
  Show("Codec", codecName + ", handler " + std::to_string(codec.handler) + ", quality " + std::to_string(codec.quality));

  std::printf("Output (extension %s)\n", extension.c_str());
  OutputFolder output;
  if (ChooseOutputFolder(folder, dest, output) != 0) {
    Show("Output folder", "(refused: longer than " + std::to_string(kMaxFolderPath) + " characters)");
    return 1;
  }
  Show("Output folder", output.folder);
  Show("Profile copied", output.copyProfile ? "yes" : "no");
  const std::int32_t first = args.resetNumbering != 0 ? 0 : r.StartIdx;
  ShowPath("Multi-frame file", MultiFrameOutputPath(output.folder, base, extension));
  ShowPath("First frame file", FrameOutputPath(output.folder, base, first, extension));
  const std::int64_t last = std::int64_t{first} + args.frameCount - 1;
  if (args.frameCount > 0 && last <= INT32_MAX)
    ShowPath("Last frame file", FrameOutputPath(output.folder, base, static_cast<std::int32_t>(last), extension));
  if (args.companionMovie != 0)
    ShowPath("Companion movie", CompanionMoviePath(output.folder, FieldText(args.moviePath),
                                                   FieldText(args.deviceName), r.FileType, base, extension));
  ShowPath("Time sidecar", TimeSidecarPath(output.folder, base));
  if (args.channelsOn != 0) ShowPath("Channel data", ChannelDataPath(folder, base, args.channelFileType));
  return 0;
}
