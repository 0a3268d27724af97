#include "recording/MmeSidecars.h"

#include <cstdio>
#include <cstring>
#include <ctime>
#include <filesystem>
#include <system_error>
#include <memory>

#include "platform/clock/WallClock.h"
#include "platform/cordage/TextField.h"
#include "recording/ModelTable.h"

namespace tarnvel {
namespace {

constexpr const char* kKeys[kMmeFieldCount] = {
    "Title                       :", "Medium No./number of media  :", "Timestamp                   :",
    "Type of the test            :", "Subtype of the test         :", "Regulation                  :",
    "Reference temperature       :", "Relative air humidity       :", "Date of the test            :",
    "Number of test objects      :", "Laboratory name             :", "Laboratory contact name     :",
    "Laboratory contact phone    :", "Laboratory contact fax      :", "Laboratory contact email    :",
    "Laboratory test ref. number :", "Customer name               :", "Customer test ref. number   :",
    "Customer project ref. number:", "Customer order number       :", "Customer cost unit          :",
    "Customer test engineer name :", "Customer test engineer phone:", "Customer test engineer fax  :",
    "Customer test engineer email:", "MII Comment                 :", "MII Origin                  :",
};

constexpr const char* kNoValue = "NOVALUE";
constexpr const char* kLineEnd = "\r\n";
constexpr std::size_t kMaxFilePath = 260;
constexpr std::size_t kLineBuffer = 512;
// A header is a few dozen lines; a larger file is no header of the suite.
constexpr std::uintmax_t kMaxHeaderBytes = 1u << 20;

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

std::string_view DropTrailingSeparator(std::string_view path) {
  if (!path.empty() && IsSeparator(path.back())) path.remove_suffix(1);
  return path;
}

// "<path>/<last component>.<ext>", or "<path>/_config.<ext>" without a separator.
std::string SidecarPath(std::string_view recordingPath, const char* extension) {
  const std::string_view path = DropTrailingSeparator(recordingPath);
  const std::string stem =
      LastSeparator(path) == std::string_view::npos ? std::string("_config") : std::string(LastComponent(path));
  return JoinPath(path, stem + "." + extension);
}

// A value as it may stand in a line: up to its first line end.
std::string_view OneLine(std::string_view value) { return value.substr(0, value.find_first_of("\r\n")); }

void AppendLine(std::string& out, std::string_view key, std::string_view value) {
  out.append(key);
  out.append(OneLine(value));
  out.append(kLineEnd);
}

// A numbered key of a movie block: the label, the number, and blanks up to the colon,
// in the layout of the suite's "Label %d     :" formats.
std::string MovieKey(std::string_view label, int number) {
  std::string key(label);
  key += ' ';
  key += std::to_string(number);
  const std::size_t blanks = label.size() < 26 ? 26 - label.size() : 1;
  key.append(blanks, ' ');
  key += ':';
  return key;
}

bool WriteWhole(const std::string& path, const char* mode, const std::string& text) {
  if (path.size() > kMaxFilePath) return false;
  File f(std::fopen(path.c_str(), mode));
  if (!f) return false;
  const bool written = std::fwrite(text.data(), 1, text.size(), f.get()) == text.size();
  return std::fclose(f.release()) == 0 && written;
}

std::tm LocalNow() {
  const std::time_t now = WrittenAtSeconds();
  std::tm local{};
  localtime_r(&now, &local);
  return local;
}

std::string Fixed(double value, int decimals) {
  char text[64];
  std::snprintf(text, sizeof text, "%.*f", decimals, value);
  return text;
}

}  // namespace

const char* MmeKey(MmeField field) { return field >= 0 && field < kMmeFieldCount ? kKeys[field] : ""; }

std::string MmeHeaderReadPath(std::string_view dataFolder, std::string_view recordingFolder) {
  if (recordingFolder.empty()) return JoinPath(dataFolder, "_default.mme");
  return JoinPath(recordingFolder, "_config.mme");
}

std::string MmeHeaderWritePath(std::string_view dataFolder, std::string_view recordingPath) {
  if (recordingPath.empty()) return JoinPath(dataFolder, "_default.mme");
  return SidecarPath(recordingPath, "mme");
}

std::string MiiPath(std::string_view recordingPath) { return SidecarPath(recordingPath, "mii"); }

bool ReadMmeHeader(std::string_view dataFolder, std::string_view recordingFolder, MmeRecord& record) {
  const std::string path = MmeHeaderReadPath(dataFolder, recordingFolder);
  std::error_code ec;
  const std::uintmax_t bytes = std::filesystem::file_size(path, ec);
  if (path.size() > kMaxFilePath || ec || bytes > kMaxHeaderBytes) return false;
  File f(std::fopen(path.c_str(), "rb"));
  if (!f) return false;
  std::string line;
  for (int c = 0; c != EOF;) {
    line.clear();
    bool any = false;
    // The rest of an overlong line is read over: it is no line of its own.
    while ((c = std::fgetc(f.get())) != EOF) {
      any = true;
      if (c == '\n') break;
      if (line.size() < kLineBuffer - 1) line.push_back(static_cast<char>(c));
    }
    if (!any) break;
    for (int i = 0; i < kMmeFieldCount; ++i) {
      if (line.find(kKeys[i]) == std::string::npos) continue;
      std::string_view value = std::string_view(line).substr(kMmeKeyWidth);
      while (!value.empty() && (value.back() == '\r' || value.back() == '\n')) value.remove_suffix(1);
      if (value == kNoValue) value = {};
      std::memset(record.field[i], 0, sizeof record.field[i]);
      CopyText(record.field[i], sizeof record.field[i], value);
      break;
    }
  }
  return true;
}

bool WriteMmeHeader(std::string_view dataFolder, std::string_view recordingPath, const MmeRecord& record) {
  const bool forRecording = !recordingPath.empty();
  const std::tm now = LocalNow();
  auto valueOf = [&](int i) -> std::string {
    const std::string_view text = FieldText(record.field[i]);
    if (!text.empty()) return std::string(text);
    char stamp[64];
    if (forRecording && i == kMmeTimestamp) {
      std::snprintf(stamp, sizeof stamp, "%d-%02d-%02d %02d:%02d:%02d", now.tm_year + 1900, now.tm_mon + 1,
                    now.tm_mday, now.tm_hour, now.tm_min, now.tm_sec);
      return stamp;
    }
    if (forRecording && i == kMmeTestDate) {
      std::snprintf(stamp, sizeof stamp, "%d-%02d-%02d", now.tm_year + 1900, now.tm_mon + 1, now.tm_mday);
      return stamp;
    }
    return kNoValue;
  };
  std::string text;
  AppendLine(text, "Data format edition number  :", "1.6");
  for (int i = kMmeLaboratory; i <= kMmeEngineerMail; ++i) AppendLine(text, kKeys[i], valueOf(i));
  for (int i = kMmeTitle; i <= kMmeTestObjects; ++i) AppendLine(text, kKeys[i], valueOf(i));
  if (!forRecording)
    for (int i = kMmeMovieComment; i <= kMmeMovieOrigin; ++i) AppendLine(text, kKeys[i], valueOf(i));
  return WriteWhole(MmeHeaderWritePath(dataFolder, recordingPath), "wb", text);
}

bool AddMovieToMii(std::string_view recordingPath, std::string_view comment, std::string_view origin,
                   const RecordingInfo& recording, const MiiCamera& camera, int width, int height,
                   int movieNumber, int movieCount, const MiiMovieFile& file) {
  const int n = movieNumber;
  const bool isMovie = file.compressed;
  std::string text;
  if (n == 1) AppendLine(text, "Number of movies            :", std::to_string(movieCount));
  AppendLine(text, "Comments                    :", comment.empty() ? FieldText(recording.Comment) : comment);
  auto line = [&](std::string_view label, std::string_view value) { AppendLine(text, MovieKey(label, n), value); };
  auto number = [&](std::string_view label, std::int64_t value) { line(label, std::to_string(value)); };
  number("ID-number", n);
  line("Origin", origin.empty() ? std::string_view(kNoValue) : origin);
  line("Description", camera.deviceName);
  line("Camera ID-number", FormatSerial(camera.model, camera.serial));
  line("Camera type", camera.modelText);
  for (const char* label : {"Lens ID-number", "Lens type", "Focus", "Lens focal length"}) line(label, kNoValue);
  number("Number of images", static_cast<std::int32_t>(recording.Frames));
  number("Film speed", TruncatedRate(recording.Rate));
  line("Shutter time", Fixed(recording.ExposureNs / 1e9, 6));
  line("Aperture", kNoValue);
  number("Time zero", static_cast<std::int32_t>(recording.PerTrigFrms + 1u));
  line("Time vector filename", "NO");
  for (const char* label : {"Reference system", "Location X", "Location Y", "Location Z", "Theta X", "Theta Y",
                            "Theta Z"})
    line(label, kNoValue);
  number("Width of image", width);
  number("Height of image", height);
  line("Aspect ratio of pixels",
       height != 0 ? Fixed(static_cast<float>(width) / static_cast<float>(height), 2) : kNoValue);
  line("Colour", camera.colour ? "RGB" : "MONO");
  line("Name of movie file", std::string(FieldText(recording.ImagePrefix)) + "." + file.extension);
  line("Format of movie file", file.extension);
  line("Keyframes", isMovie ? "1" : kNoValue);
  line("Codec used", isMovie ? std::string_view(file.compressorName) : std::string_view(kNoValue));
  std::string compression = kNoValue;
  if (isMovie)
    compression = file.compressorQuality == 10000 ? std::string("100%")
                                                  : Fixed(100.0 - file.compressorQuality / 10000.0, 1) + "%";
  line("Compression", compression);
  line("Distortion index", kNoValue);
  line("Movie images corrected", "NO");
  line("Correction parameter file", kNoValue);
  line("Image history filename", kNoValue);
  return WriteWhole(MiiPath(recordingPath), n == 1 ? "wb" : "ab", text);
}

}  // namespace tarnvel
