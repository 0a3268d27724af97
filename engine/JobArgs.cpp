#include "engine/JobArgs.h"

#include <algorithm>
#include <cstring>
#include <filesystem>

#include "engine/OutputNaming.h"
#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"
#include "recording/DecimalText.h"
#include "recording/RecordingConfig.h"

namespace tarnvel {
namespace {

// Working size of a value read from outside; longer values are cut to it,
// which is still long enough to tell that they don't fit any field.
constexpr std::uint32_t kValueBuffer = kOuterPath;

class ArgsReader {
 public:
  ArgsReader(std::string_view path, std::vector<std::string>* refusedKeys) : path_(path), refused_(refusedKeys) {}

  bool ok() const { return ok_; }

  std::int32_t Integer(const char* key, std::int32_t defaultValue) const {
    std::int32_t value = 0;
    CgReadProfileInteger(kArgsSection, key, defaultValue, &value, path_.c_str());
    return value;
  }

  // A number that decides what happens to the recording (how many frames,
  // whether the raw files go): present but not a number is refused rather
  // than replaced by its default.
  std::int32_t CheckedInteger(const char* key, std::int32_t defaultValue) {
    std::int32_t value = 0;
    const bool present = CgReadProfileString(kArgsSection, key, "", nullptr, 0, path_.c_str());
    if (CgReadProfileInteger(kArgsSection, key, defaultValue, &value, path_.c_str()) || !present) return value;
    Refuse(key);
    return defaultValue;
  }

  // A text that is shown or passed on: cut to its field.
  template <std::size_t N>
  void Text(const char* key, char (&field)[N]) const {
    CgReadProfileString(kArgsSection, key, "", field, N, path_.c_str());
  }

  // A text that becomes a path: refused rather than cut.
  template <std::size_t N>
  void PathText(const char* key, char (&field)[N]) {
    char value[kValueBuffer];
    CgReadProfileString(kArgsSection, key, "", value, sizeof value, path_.c_str());
    if (CopyText(field, value)) return;
    field[0] = '\0';
    Refuse(key);
  }

  // The raw text of a list; empty when the key is missing.
  std::string ListText(const char* key) const {
    char value[kValueBuffer];
    CgReadProfileString(kArgsSection, key, "", value, sizeof value, path_.c_str());
    return value;
  }

 private:
  void Refuse(const char* key) {
    if (refused_ != nullptr) refused_->emplace_back(key);
    ok_ = false;
  }

  std::string path_;
  std::vector<std::string>* refused_;
  bool ok_ = true;
};

// Each comma ends one value; a text without any comma is one value; text
// behind the last comma is not read; values past the array's end are dropped.
void ParseList(std::string_view text, std::int32_t (&list)[kItemListEntries]) {
  std::memset(list, 0, sizeof list);
  if (text.find(',') == std::string_view::npos) {
    list[0] = LeadingDecimal(text);
    return;
  }
  std::size_t entry = 0;
  for (std::size_t comma; (comma = text.find(',')) != std::string_view::npos && entry < kItemListEntries;) {
    list[entry++] = LeadingDecimal(text.substr(0, comma));
    text.remove_prefix(comma + 1);
  }
}

// A list of which an empty value means "not used": -1 in entry 0.
void ReadMarkedList(const ArgsReader& in, const char* key, std::int32_t (&list)[kItemListEntries]) {
  const std::string text = in.ListText(key);
  if (text.empty()) {
    std::memset(list, 0, sizeof list);
    list[0] = -1;
  } else {
    ParseList(text, list);
  }
}

// A list that an empty value leaves untouched.
void ReadPlainList(const ArgsReader& in, const char* key, std::int32_t (&list)[kItemListEntries]) {
  const std::string text = in.ListText(key);
  if (!text.empty()) ParseList(text, list);
}

}  // namespace

bool ReadJobArgs(std::string_view argsPath, JobArgs& a, std::vector<std::string>* refusedKeys) {
  std::memset(&a, 0, sizeof a);
  if (refusedKeys != nullptr) refusedKeys->clear();
  ArgsReader in(argsPath, refusedKeys);
  in.PathText("Arg02", a.baseName);
  a.frameCount = in.CheckedInteger("Arg03", 0);
  a.resetNumbering = in.Integer("Arg04", 0);
  a.overlayFlags = static_cast<std::uint32_t>(in.Integer("Arg05", 0));
  in.Text("Arg06", a.overlayFont);
  a.overlayPosition = in.Integer("Arg07", 0);
  a.overlayTextColor = in.Integer("Arg12", 0);
  a.topBar = in.Integer("Arg13", 0);
  a.channelFileType = in.Integer("Arg14", 0);
  a.channelsOn = in.Integer("Arg15", 0);
  a.irigMode = in.Integer("Arg16", 0);
  a.overlayFontHeight = in.Integer("Arg17", 20);
  in.PathText("Arg18", a.logoPath1);
  in.Text("Arg19", a.codecName);
  a.codecHandler = in.Integer("Arg20", 0);
  a.codecQuality = in.Integer("Arg21", 0);
  in.PathText("Arg22", a.deviceName);
  a.timeFormat = in.Integer("Arg23", 6);
  a.temperature = in.Integer("Arg24", 0);
  a.temperatureUnit = in.Integer("Arg25", 0);
  a.deleteRaw = in.CheckedInteger("Arg26", 1);
  a.jpegQuality = in.Integer("Arg27", 10000);
  a.movCodec = in.Integer("Arg28", 1);
  a.channelDecimals = in.Integer("Arg29", 3);
  a.companionMovie = in.Integer("Arg30", 3);
  a.utcOffsetIndex = in.Integer("Arg31", 0);
  in.PathText("Arg32", a.moviePath);
  a.plotHeight = in.Integer("Arg33", 0);
  a.plotInColor = in.Integer("Arg34", 0);
  a.plotMode = in.Integer("Arg35", 0);
  a.markerKind = in.Integer("Arg36", 0);
  a.markerValue = static_cast<std::uint32_t>(in.Integer("Arg37", 0));
  a.markerColor = in.Integer("Arg38", 0);
  ReadMarkedList(in, "Arg39", a.itemPosition);
  ReadMarkedList(in, "Arg40", a.itemFormat);
  ReadMarkedList(in, "Arg41", a.itemShowOn);
  a.bottomBar = in.Integer("Arg42", 0);
  a.overlayBackColor = in.Integer("Arg43", -1);
  in.Text("Arg44", a.userText1);
  a.plotWidth = in.Integer("Arg45", 256);
  a.mpgCodec = in.Integer("Arg46", 1);
  ReadPlainList(in, "Arg47", a.itemParamA);
  ReadPlainList(in, "Arg48", a.itemParamB);
  in.Text("Arg49", a.userText2);
  in.PathText("Arg50", a.logoPath2);
  a.backgroundOn = in.Integer("Arg51", 0);
  in.PathText("Arg52", a.backgroundPath);
  a.mptCodec = in.Integer("Arg53", 0);
  return in.ok();
}

const char* RefusalReason(std::string_view key) {
  return key == "Arg03" || key == "Arg26" ? "is not a number" : "is longer than its field";
}

std::int32_t PlotRows(const JobArgs& args) { return args.plotHeight == 0 ? 256 : args.plotHeight; }

const char* ChannelFileExtension(std::int32_t channelFileType) {
  static constexpr const char* kExtensions[] = {".ASC", ".DAT", ".ASC", ".PLT", ".LVM", ".XML", ".XLS", ".CSV"};
  if (channelFileType < 0 || channelFileType >= static_cast<std::int32_t>(std::size(kExtensions))) return nullptr;
  return kExtensions[channelFileType];
}

CodecSettings CodecSettingsOf(const JobArgs& args) {
  CodecSettings codec{};
  codec.handler = static_cast<std::uint32_t>(args.codecHandler);
  codec.quality = static_cast<std::uint32_t>(args.codecQuality);
  CopyText(codec.name, FieldText(args.codecName));
  codec.jpegQuality = static_cast<std::uint32_t>(args.jpegQuality);
  codec.movCodec = static_cast<std::uint32_t>(args.movCodec);
  codec.mpgCodec = static_cast<std::uint32_t>(args.mpgCodec);
  codec.mptCodec = static_cast<std::uint32_t>(args.mptCodec);
  return codec;
}

void ReadCodecDefaults(std::string_view argsPath, CodecSettings& codec) {
  JobArgs args;
  ReadJobArgs(argsPath, args);
  codec = CodecSettingsOf(args);
}

bool ReadDialogDefaults(std::string_view argsPath, DialogDefaults& defaults) {
  JobArgs args;
  ReadJobArgs(argsPath, args);
  defaults.deleteRaw = args.deleteRaw;
  defaults.resetNumbering = args.resetNumbering;
  defaults.frameCount = args.frameCount;
  RecordingInfo recording{};
  if (ReadRecordingConfig(RecordingFolderOf(argsPath), recording) == 0) {
    defaults.fileType = framekit::FallbackFileType().number;
    return false;
  }
  defaults.fileType = recording.FileType;
  defaults.playbackRate = TruncatedRate(recording.Output_Rate);
  defaults.outputDepth = static_cast<std::int32_t>(recording.OutputPixelDepth);
  defaults.startIndex = recording.StartIdx;
  return true;
}

bool MoviePathOf(std::string_view argsPath, std::string& path) {
  path.clear();
  // A row whose argument file has gone has no movie to open.
  std::error_code error;
  if (!std::filesystem::is_regular_file(std::filesystem::path(argsPath), error)) return true;
  JobArgs args;
  std::vector<std::string> refused;
  ReadJobArgs(argsPath, args, &refused);
  if (args.companionMovie == 0) return true;
  for (const std::string& key : refused)
    if (key == "Arg22" || key == "Arg32") return false;
  // The menu shows the movie beside the recording; no main type can clash with it here.
  const auto movie = CompanionMoviePath(RecordingFolderOf(argsPath), FieldText(args.moviePath),
                                        FieldText(args.deviceName), 0, {}, {});
  if (!movie) return false;
  path = *movie;
  return true;
}

}  // namespace tarnvel
