#include "apps/recgen/RecordingGenerator.h"

#include <algorithm>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string_view>

#include "channels/gen/ChannelGen.h"
#include "platform/cordage/Folders.h"
#include "platform/cordage/TextField.h"
#include "platform/rawdrv/RawStoreFormat.h"
#include "recording/ModelTable.h"
#include "platform/rawdrv/RawFileDescriptor.h"

namespace tarnvel::recgen {
namespace {

using namespace rawstore;

struct FileCloser {
  void operator()(std::FILE* f) const { std::fclose(f); }
};
using File = std::unique_ptr<std::FILE, FileCloser>;

constexpr std::uint32_t kCalibrationSpread = 32;  // offsets run 0 .. 31

std::uint32_t FullScale(const RecordingOptions& o) { return (1u << o.sampleBits) - 1; }

// Scene values may use this much of the range, so that black level and
// calibration offsets on top never clip and the delivered frame is the scene.
std::uint32_t SceneScale(const RecordingOptions& o) {
  const std::uint32_t reserve = o.blackLevel + (o.calibration ? kCalibrationSpread - 1 : 0);
  return FullScale(o) > reserve ? FullScale(o) - reserve : 0;
}

// ---- the picture -----------------------------------------------------------

// Seven-segment digits: bits a b c d e f g from bit 0.
constexpr std::uint8_t kDigitSegments[10] = {0x3F, 0x06, 0x5B, 0x4F, 0x66, 0x6D, 0x7D, 0x07, 0x7F, 0x6F};
constexpr std::uint8_t kMinusSegments = 0x40;

bool SegmentLit(std::uint8_t segments, int x, int y, int w, int h, int t) {
  const int mid = h / 2;
  const bool top = y < t, bottom = y >= h - t, middle = y >= mid - t / 2 && y < mid - t / 2 + t;
  const bool left = x < t, right = x >= w - t, upper = y < mid, lower = y >= mid;
  return ((segments & 0x01) && top) || ((segments & 0x02) && right && upper) ||
         ((segments & 0x04) && right && lower) || ((segments & 0x08) && bottom) ||
         ((segments & 0x10) && left && lower) || ((segments & 0x20) && left && upper) ||
         ((segments & 0x40) && middle);
}

struct Picture {
  std::uint32_t width, height;  // as displayed, after the quarter turns
  std::string number;           // the frame number relative to the trigger
  std::uint32_t barLeft, barWidth;
  int digitsLeft, digitsTop, digitW, digitH, stroke, pitch;

  Picture(const RecordingOptions& o, std::uint32_t index) {
    width = o.rotation % 2 ? o.height : o.width;
    height = o.rotation % 2 ? o.width : o.height;
    number = std::to_string(static_cast<std::int64_t>(index) - o.preTrigger);
    barWidth = std::max<std::uint32_t>(1, width / 16);
    barLeft = static_cast<std::uint32_t>((std::uint64_t{index} * std::max<std::uint32_t>(1, width / 50)) % width);
    digitH = std::max(5, static_cast<int>(height / 4));
    digitW = digitH / 2;
    stroke = std::max(1, digitH / 10);
    pitch = digitW + digitW / 3;
    digitsLeft = static_cast<int>(width / 20);
    digitsTop = static_cast<int>(height / 20);
  }

  // Red, green, blue of the scene at a displayed position, each 0 .. 1.
  void At(std::uint32_t x, std::uint32_t y, double rgb[3]) const {
    const double fx = width > 1 ? double(x) / (width - 1) : 0.0;
    const double fy = height > 1 ? double(y) / (height - 1) : 0.0;
    rgb[0] = 0.1 + 0.7 * fx;
    rgb[1] = 0.1 + 0.7 * fy;
    rgb[2] = 0.8 - 0.6 * fx;
    if (x >= barLeft && x < barLeft + barWidth) rgb[0] = rgb[1] = rgb[2] = 0.95;
    const int dx = static_cast<int>(x) - digitsLeft + stroke, dy = static_cast<int>(y) - digitsTop + stroke;
    const int boxW = static_cast<int>(number.size()) * pitch + stroke, boxH = digitH + 2 * stroke;
    if (dx < 0 || dy < 0 || dx >= boxW || dy >= boxH) return;
    rgb[0] = rgb[1] = rgb[2] = 0.0;  // black plate behind the digits
    const int cx = dx - stroke, cy = dy - stroke;
    if (cx < 0 || cy < 0 || cy >= digitH) return;
    const std::size_t cell = static_cast<std::size_t>(cx / pitch);
    const int inCell = cx % pitch;
    if (cell >= number.size() || inCell >= digitW) return;
    const char c = number[cell];
    const std::uint8_t segments = c == '-' ? kMinusSegments : kDigitSegments[c - '0'];
    if (SegmentLit(segments, inCell, cy, digitW, digitH, stroke)) rgb[0] = rgb[1] = rgb[2] = 1.0;
  }
};

// Where sensor (x, y) appears once the frame is turned clockwise.
void Displayed(const RecordingOptions& o, std::uint32_t x, std::uint32_t y, std::uint32_t* dx, std::uint32_t* dy) {
  switch (o.rotation) {
    case 1: *dx = o.height - 1 - y; *dy = x; break;
    case 2: *dx = o.width - 1 - x; *dy = o.height - 1 - y; break;
    case 3: *dx = y; *dy = o.width - 1 - x; break;
    default: *dx = x; *dy = y; break;
  }
}

constexpr int kMosaicColour[4][2][2] = {{{0, 1}, {1, 2}}, {{1, 0}, {2, 1}}, {{1, 2}, {0, 1}}, {{2, 1}, {1, 0}}};

// ---- time -------------------------------------------------------------------

std::int64_t DaysFromCivil(std::int64_t y, unsigned m, unsigned d) {
  y -= m <= 2;
  const std::int64_t era = (y >= 0 ? y : y - 399) / 400;
  const unsigned yoe = static_cast<unsigned>(y - era * 400);
  const unsigned doy = (153 * (m + (m > 2 ? -3 : 9)) + 2) / 5 + d - 1;
  const unsigned doe = yoe * 365 + yoe / 4 - yoe / 100 + doy;
  return era * 146097 + static_cast<std::int64_t>(doe) - 719468;
}

void CivilFromDays(std::int64_t z, int* year, unsigned* month, unsigned* day) {
  z += 719468;
  const std::int64_t era = (z >= 0 ? z : z - 146096) / 146097;
  const unsigned doe = static_cast<unsigned>(z - era * 146097);
  const unsigned yoe = (doe - doe / 1460 + doe / 36524 - doe / 146096) / 365;
  const unsigned doy = doe - (365 * yoe + yoe / 4 - yoe / 100);
  const unsigned mp = (5 * doy + 2) / 153;
  *day = doy - (153 * mp + 2) / 5 + 1;
  *month = mp < 10 ? mp + 3 : mp - 9;
  *year = static_cast<int>(yoe + era * 400 + (*month <= 2));
}

struct FrameTime {
  std::int64_t unixMicroseconds;
  std::uint32_t year, dayOfYear, hour, minute, second, microseconds;
};

FrameTime TimeOfFrame(const RecordingOptions& o, std::uint32_t index) {
  const std::int64_t startDays = DaysFromCivil(o.year, static_cast<unsigned>(o.month), static_cast<unsigned>(o.day));
  const std::int64_t startUs =
      (startDays * 86400 + o.hour * 3600 + o.minute * 60 + o.second) * 1000000 + o.microseconds;
  const double periodUs = o.rate > 0 ? 1e6 / o.rate : 0.0;
  FrameTime t{};
  t.unixMicroseconds = startUs + static_cast<std::int64_t>(std::llround(index * periodUs));
  const std::int64_t days = t.unixMicroseconds / 86400000000LL;
  const std::int64_t inDay = t.unixMicroseconds % 86400000000LL;
  int year = 0;
  unsigned month = 0, day = 0;
  CivilFromDays(days, &year, &month, &day);
  t.year = static_cast<std::uint32_t>(year);
  t.dayOfYear = static_cast<std::uint32_t>(days - DaysFromCivil(year, 1, 1) + 1);
  t.hour = static_cast<std::uint32_t>(inDay / 3600000000LL);
  t.minute = static_cast<std::uint32_t>(inDay / 60000000LL % 60);
  t.second = static_cast<std::uint32_t>(inDay / 1000000 % 60);
  t.microseconds = static_cast<std::uint32_t>(inDay % 1000000);
  return t;
}

// ---- store ------------------------------------------------------------------

std::uint32_t DepthOf(const RecordingOptions& o) { return o.colour ? 3 * o.sampleBits : o.sampleBits; }

std::uint32_t TrailerBytes(const RecordingOptions& o) {
  if (WantsCameraBlock(o)) return kCameraTrailerBytes;
  return o.gevRecords ? kGevTrailerBytes : kMinTrailerBytes;
}

std::uint64_t PayloadOf(const RecordingOptions& o) {
  return PayloadBytes(std::uint64_t{o.width} * o.height, o.sampleBits, o.packing);
}

std::uint32_t RecordBytes(const RecordingOptions& o) {
  std::uint64_t bytes = PayloadOf(o) + TrailerBytes(o);
  if (o.frameAlign > 1) bytes = (bytes + o.frameAlign - 1) / o.frameAlign * o.frameAlign;
  return static_cast<std::uint32_t>(bytes);
}

StoreHeader HeaderOf(const RecordingOptions& o) {
  StoreHeader h{};
  std::memcpy(h.magic, kStoreMagic, sizeof h.magic);
  h.version = kStoreVersion;
  h.headerSize = o.headerBytes;
  h.width = o.width;
  h.height = o.height;
  h.sampleBits = o.sampleBits;
  h.packing = o.packing;
  h.sensorKind = o.colour ? kColourMosaic : kMonochrome;
  h.mosaicOrder = o.colour ? o.mosaicOrder : 0;
  h.modelIndex = ModelIndexOf(o.model);
  h.subModel = o.subModel;
  h.serialNumber = o.serial;
  h.networkAddress = o.networkAddress;
  h.rotation = o.rotation;
  h.exposureNs = o.exposureNs;
  h.framePeriodNs = o.rate > 0 ? static_cast<std::uint32_t>(std::llround(1e9 / o.rate)) : 0;
  h.sizeFactor = o.sizeFactor;
  h.resolutionSuffix = o.resolutionSuffix;
  h.propertySix = o.propertySix;
  h.cameraValue14 = o.cameraValue14;
  h.cameraValue15 = o.cameraValue15;
  h.trailerSize = TrailerBytes(o);
  h.trailerFlags = (WantsCameraBlock(o) ? std::uint32_t{kHasCameraBlock} : 0u) | (o.gevRecords ? std::uint32_t{kHasGevRecords} : 0u);
  h.blackLevel = o.blackLevel;
  for (int c = 0; c < 3; ++c) h.gains[c] = o.colour ? o.gains[c] : 0.0f;
  CopyText(h.cameraModelText, o.cameraText);
  return h;
}

void PutWord(std::uint8_t* at, std::uint32_t v) { std::memcpy(at, &v, 4); }
void PutBigEndian(std::uint8_t* at, std::uint64_t v, int bytes) {
  for (int i = bytes - 1; i >= 0; --i, v >>= 8) at[i] = static_cast<std::uint8_t>(v);
}

bool FlagsFrame(const RecordingOptions& o, std::uint32_t index) {
  if (o.flagEvery != 0 && index % o.flagEvery == 0) return true;
  return std::find(o.flagged.begin(), o.flagged.end(), index) != o.flagged.end();
}

// Models whose IEEE 1588 fraction counts nanoseconds; the others count 8 ns.
bool FractionInNanoseconds(std::uint32_t model) {
  constexpr std::uint32_t kModels[] = {42, 44, 46, 47, 48, 49, 50, 64, 65, 66, 70};
  return std::find(std::begin(kModels), std::end(kModels), model) != std::end(kModels);
}

std::vector<std::uint8_t> TrailerOf(const RecordingOptions& o, std::uint32_t index) {
  std::vector<std::uint8_t> trailer(TrailerBytes(o), 0);
  TrailerHead head{};
  const FrameTime t = TimeOfFrame(o, index);
  if (o.timeCode) {
    const std::uint32_t block[8] = {1, t.year, t.dayOfYear, t.hour, t.minute, t.second, t.microseconds,
                                    o.timeFromReceiver ? 0u : 0x55555555u};
    std::memcpy(head.timeBlock, block, sizeof block);
  }
  head.autoExposureNs = o.autoExposure ? o.exposureNs - (index % 10) * (o.exposureNs / 20) : 0;
  head.frameFlag = FlagsFrame(o, index) ? 1 : 0;
  head.storeIndex = index;
  std::memcpy(trailer.data(), &head, sizeof head);

  if (o.gevRecords) {
    std::uint8_t* first = trailer.data() + kGevRecord1At;
    PutWord(first, index);
    PutWord(first + 4, o.serial);
    std::uint8_t* values = trailer.data() + kGevRecord2At;
    const std::uint32_t words[7] = {index, index & 0xFFFF, o.exposureNs / 1000, o.width, o.height, o.sampleBits, index};
    std::memcpy(values, words, sizeof words);
    std::uint8_t* time = trailer.data() + kGevRecord3At;
    const std::int64_t micro = t.unixMicroseconds;
    switch (o.gevTime) {
      case GevTimeForm::kIeee1588: {
        std::memcpy(time, " 1588", 5);
        time[5] = 1;  // locked
        const std::uint64_t nanos = static_cast<std::uint64_t>(micro % 1000000) * 1000;
        PutBigEndian(time + 7, static_cast<std::uint64_t>(micro / 1000000), 5);
        PutBigEndian(time + 12, FractionInNanoseconds(o.model) ? nanos : nanos / 8, 4);
        time[20] = 20;  // quality
        break;
      }
      case GevTimeForm::kIrig:
        std::memcpy(time, "IRIG", 4);
        PutWord(time + 4, static_cast<std::uint32_t>(micro / 1000000));
        PutWord(time + 8, static_cast<std::uint32_t>(micro % 1000000));
        break;
      case GevTimeForm::kCounter: {
        const std::uint64_t count = static_cast<std::uint64_t>(micro) * 100;  // units of 10 ns
        std::memcpy(time + 64, &count, sizeof count);
        break;
      }
    }
  }
  if (WantsCameraBlock(o)) {
    // The camera's own metadata block: a recognisable subset of its fields.
    std::uint8_t* block = trailer.data() + kCameraBlockAt;
    std::memcpy(block, "OKN_BD1", 8);
    const std::uint16_t w = static_cast<std::uint16_t>(o.width), h = static_cast<std::uint16_t>(o.height);
    std::memcpy(block + 235, &w, 2);
    std::memcpy(block + 237, &h, 2);
    PutWord(block + 280, index);
    std::memcpy(block + 1020, "EoBD", 4);
  }
  return trailer;
}

std::string SegmentPath(const RecordingOptions& o, std::uint32_t k, bool segmented) {
  // The descriptor names a single file "<stem>.00.raw" too when its
  // FramesPerSegment is 0.
  if (!segmented) return JoinPath(o.folder, o.stem + (o.framesPerSegment < o.frames ? ".00.raw" : ".raw"));
  char number[16];
  std::snprintf(number, sizeof number, ".%02u.raw", k);
  return JoinPath(o.folder, o.stem + number);
}

bool Segmented(const RecordingOptions& o) { return o.framesPerSegment != 0 && o.framesPerSegment < o.frames; }

std::string WriteCalibration(const RecordingOptions& o) {
  const std::string path = JoinPath(o.folder, o.stem + ".cal");
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return "cannot write " + path;
  CalibrationHeader cal{};
  std::memcpy(cal.magic, kCalibrationMagic, sizeof cal.magic);
  cal.width = o.width;
  cal.height = o.height;
  cal.kind = kCalibrationBlackOffsets;
  const std::vector<std::uint16_t> offsets = CalibrationOffsets(o);
  std::fwrite(&cal, sizeof cal, 1, file.get());
  std::fwrite(offsets.data(), 2, offsets.size(), file.get());
  return std::fflush(file.get()) == 0 && !std::ferror(file.get()) ? "" : "cannot write " + path;
}

// ---- profile and arguments --------------------------------------------------

// Lines of a profile section as the suite writes them: CRLF, words by "%d"
// (a word with its top bit set prints negative), floats by "%.15f".
class ProfileWriter {
 public:
  void Integer(const char* key, std::uint32_t value) {
    char text[32];
    std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(value));
    Text(key, text);
  }
  void Signed(const char* key, std::int64_t value) { Integer(key, static_cast<std::uint32_t>(value)); }
  void Float(const char* key, float value) {
    char text[64];
    std::snprintf(text, sizeof text, "%.15f", static_cast<double>(value));
    Text(key, text);
  }
  void Text(const char* key, std::string_view value) {
    lines_ += key;
    lines_ += '=';
    lines_ += value;
    lines_ += "\r\n";
  }
  const std::string& Lines() const { return lines_; }

 private:
  std::string lines_;
};

std::string WriteTextFile(const std::string& path, const std::string& content) {
  File file(std::fopen(path.c_str(), "wb"));
  if (!file) return "cannot write " + path;
  std::fwrite(content.data(), 1, content.size(), file.get());
  return std::fflush(file.get()) == 0 && !std::ferror(file.get()) ? "" : "cannot write " + path;
}

// Camera settings: written in both passes of the suite, with the same values.
void CameraSettings(const RecordingOptions& o, ProfileWriter& w) {
  const std::uint32_t periodNs = HeaderOf(o).framePeriodNs;
  w.Integer("PixelDepth", DepthOf(o));
  w.Integer("PixelFormat", o.sampleBits);
  w.Integer("Model", o.model);
  w.Integer("SensorGain", 0);
  w.Integer("GammaCorrection", 10);
  w.Integer("GammaCorrection1", 10);
  w.Integer("GammaLevel1", 64);
  w.Integer("GammaLevel", 768);
  for (const char* key : {"Sharpen", "SharpenThreshold", "DynamicNR", "DynamicNR2", "StreamingT", "JpegEnconding"}) {
    w.Integer(key, 0);
  }
  w.Integer("JpegQuality", 90);
  w.Integer("Contrast", 10);
  w.Integer("Brightness", 25);
  w.Integer("Hue", 180);
  w.Integer("Saturation", 10);
  w.Integer("CompressionRatio", 70);
  w.Float("Rate", o.rate);
  w.Integer("ExternalRate", 0);
  w.Float("Output_Rate", o.outputRate);
  w.Integer("ToFrameOffset", 0);
  w.Integer("TimeOut", 5000);
  w.Integer("SyncInCfg", o.timeFromReceiver ? 5 : 0);
  w.Integer("Binning", 0);
  w.Integer("PixelGain", 0);
  w.Integer("ExposureNs", o.exposureNs);
  w.Integer("Exposure", o.exposureNs / 1000);
  w.Integer("ExposureMode", 0);
  w.Integer("TriggerInCfg", 0);
  w.Integer("ROIX", 0);
  w.Integer("ROIY", 0);
  w.Integer("ROIW", o.width);
  w.Integer("ROIH", o.height);
  w.Integer("SyncOutCfg", 0);
  w.Integer("SyncOutAlignment", 0);
  w.Integer("TrigInDebounce", 3);
  w.Integer("TrigInDelay", 0);
  w.Integer("SyncInDebounce", 3);
  for (const char* key : {"SyncInDelay", "SyncInInverted", "SyncInJitter"}) w.Integer(key, 0);
  w.Integer("SyncInMutliplier", 1);
  w.Integer("SyncInPTPMode", 0);
  w.Integer("SyncInPTPDelay", 0);
  w.Integer("SyncOutWidth", 5);
  for (const char* key : {"SyncOutDelay", "HubDelay", "MarkerCfg"}) w.Integer(key, 0);
  w.Integer("NoiseReduction", 1);
  w.Integer("NoisePSC", 1);
  w.Integer("DarkColumns", 1);
  w.Integer("NoiseAuto", 0);
  w.Integer("NoiseAutoPSC", 0);
  w.Integer("AEEnable", o.autoExposure ? 1 : 0);
  w.Integer("AEReference", 70);
  w.Integer("AEROI_X", 0);
  w.Integer("AEROI_Y", 0);
  w.Integer("AEROI_W", o.width);
  w.Integer("AEROI_H", o.height);
  w.Integer("AESpeed", 7);
  w.Integer("AEMinExp", o.exposureNs / 20);
  w.Integer("AEMaxExp", periodNs != 0 ? periodNs : o.exposureNs);
  for (const char* key : {"AEExpStep", "AEMinIris", "AEMaxIris", "MTCondition", "MTThreshold", "MTROI_X", "MTROI_Y",
                          "MTROI_W", "MTROI_H", "VideoMode"}) {
    w.Integer(key, 0);
  }
  w.Integer("NetworkPerformance", 2500);
  for (const char* key : {"PlusMode", "HDMIMode", "HDMIOverlay", "PreviewMode", "PostRecordingOperation"}) {
    w.Integer(key, 0);
  }
  w.Integer("ColorIntFilter", 255);
  for (const char* key : {"GaussianFilter", "HDROIIndex", "HDZoom", "HDZoomX", "HDZoomY", "HDZoom2Roi"}) {
    w.Integer(key, 0);
  }
  w.Integer("RotationAngle", o.rotation);
  w.Integer("FlipCfg", 0);
  w.Integer("LookupTable", 0);
  char key[32];
  for (int i = 0; i < 9; ++i) {
    const bool diagonal = i % 4 == 0;
    const float gain = o.colour && diagonal ? o.gains[i / 4] : (diagonal ? 1.0f : 0.0f);
    std::snprintf(key, sizeof key, "WhiteBal_%d", i);
    w.Integer(key, static_cast<std::uint32_t>(std::lround(gain * 65536.0)));
  }
  for (int i = 0; i < 6; ++i) {
    std::snprintf(key, sizeof key, "Paint_%d", i);
    w.Integer(key, i < 3 ? 100 : 250);
  }
  for (int i = 0; i < 6; ++i) {
    std::snprintf(key, sizeof key, "GevTiming_%d", i);
    w.Integer(key, 0);
  }
}

std::string RecordingName(const RecordingOptions& o) {
  std::string_view folder(o.folder);
  while (!folder.empty() && IsSeparator(folder.back())) folder.remove_suffix(1);
  return std::string(LastComponent(folder));
}

}  // namespace


bool WantsCameraBlock(const RecordingOptions& o) {
  return o.cameraBlock < 0 ? HasCameraBlock(o.model) : o.cameraBlock != 0;
}

std::string CheckOptions(const RecordingOptions& o) {
  if (o.folder.empty()) return "no output folder";
  if (o.stem.empty() || o.stem.find_first_of("/\\") != std::string::npos) return "the stem must be a bare name";
  if (o.width == 0 || o.height == 0 || std::uint64_t{o.width} * o.height > (1u << 26)) return "bad frame size";
  if (o.colour && (o.width < 2 || o.height < 2)) return "a colour sensor needs at least 2 x 2 pixels";
  if (PayloadBytes(1, o.sampleBits, o.packing) == 0) return "packing and sample bits don't go together";
  if (o.mosaicOrder > 3 || o.rotation > 3) return "mosaic order and rotation run 0 to 3";
  if (o.frames == 0 || o.frames > 0x7FFFFFFFu) return "bad frame count";
  if (o.preTrigger > o.frames) return "more frames before the trigger than frames";
  if (o.headerBytes < kMinHeaderBytes) return "the header holds at least 256 bytes";
  if (ModelIndexOf(o.model) == 0 && o.model != 0) return "unknown model number";
  if (o.rate < 0 || !std::isfinite(o.rate)) return "bad rate";
  for (float gain : o.gains) {
    if (!(gain > 0.0f) || !std::isfinite(gain)) return "gains must be positive";
  }
  if (o.month < 1 || o.month > 12 || o.day < 1 || o.day > 31 || o.hour < 0 || o.hour > 23 || o.minute < 0 ||
      o.minute > 59 || o.second < 0 || o.second > 59 || o.microseconds > 999999 || o.year < 1970) {
    return "bad start time";
  }
  if (SceneScale(o) == 0) return "black level and calibration leave no room for the picture";
  return "";
}

std::vector<std::uint16_t> CalibrationOffsets(const RecordingOptions& o) {
  std::vector<std::uint16_t> offsets;
  if (!o.calibration) return offsets;
  offsets.resize(std::size_t{o.width} * o.height);
  for (std::uint32_t y = 0; y < o.height; ++y) {
    for (std::uint32_t x = 0; x < o.width; ++x) {
      offsets[std::size_t{y} * o.width + x] = static_cast<std::uint16_t>((x * 7 + y * 13) % kCalibrationSpread);
    }
  }
  return offsets;
}

std::vector<std::uint16_t> SensorSamples(const RecordingOptions& o, std::uint32_t index) {
  const Picture picture(o, index);
  const std::vector<std::uint16_t> offsets = CalibrationOffsets(o);
  const double scale = SceneScale(o);
  const std::uint32_t full = FullScale(o);
  std::vector<std::uint16_t> samples(std::size_t{o.width} * o.height);
  double rgb[3];
  for (std::uint32_t y = 0; y < o.height; ++y) {
    for (std::uint32_t x = 0; x < o.width; ++x) {
      std::uint32_t dx = 0, dy = 0;
      Displayed(o, x, y, &dx, &dy);
      picture.At(dx, dy, rgb);
      double value;
      if (o.colour) {
        const int c = kMosaicColour[o.mosaicOrder][y & 1][x & 1];
        value = std::min(scale, std::floor(rgb[c] * scale / o.gains[c] + 0.5));
      } else {
        value = std::floor((0.3 * rgb[0] + 0.5 * rgb[1] + 0.2 * rgb[2]) * scale + 0.5);
      }
      const std::size_t at = std::size_t{y} * o.width + x;
      const std::uint32_t stored = static_cast<std::uint32_t>(value) + o.blackLevel + (offsets.empty() ? 0 : offsets[at]);
      samples[at] = static_cast<std::uint16_t>(std::min(stored, full));
    }
  }
  return samples;
}

std::string WriteStore(const RecordingOptions& o) {
  const bool segmented = Segmented(o);
  const std::uint32_t perSegment = segmented ? o.framesPerSegment : o.frames;
  const std::uint32_t segments = (o.frames + perSegment - 1) / perSegment;
  const StoreHeader header = HeaderOf(o);
  std::vector<std::uint8_t> headerBytes(o.headerBytes, 0);
  std::memcpy(headerBytes.data(), &header, sizeof header);
  const std::uint32_t recordBytes = RecordBytes(o);
  std::vector<std::uint8_t> record(recordBytes);

  for (std::uint32_t k = 0; k < segments; ++k) {
    const std::string path = SegmentPath(o, k, segmented);
    File file(std::fopen(path.c_str(), "wb"));
    if (!file) return "cannot write " + path;
    std::fwrite(headerBytes.data(), 1, headerBytes.size(), file.get());
    const std::uint32_t end = std::min(o.frames, (k + 1) * perSegment);
    for (std::uint32_t index = k * perSegment; index < end; ++index) {
      std::fill(record.begin(), record.end(), 0);
      const std::vector<std::uint16_t> samples = SensorSamples(o, index);
      PackSamples(samples.data(), samples.size(), o.sampleBits, o.packing, record.data());
      const std::vector<std::uint8_t> trailer = TrailerOf(o, index);
      std::memcpy(record.data() + recordBytes - trailer.size(), trailer.data(), trailer.size());
      if (std::fwrite(record.data(), 1, record.size(), file.get()) != record.size()) return "cannot write " + path;
    }
    if (std::fflush(file.get()) != 0 || std::ferror(file.get())) return "cannot write " + path;
  }
  if (o.calibration) {
    if (std::string failed = WriteCalibration(o); !failed.empty()) return failed;
  }
  RawFileInfo info{};
  info.HeaderOffset = o.headerBytes;
  info.FrameSize = recordBytes;
  info.FrameCount = o.frames;
  info.FramesPerSegment = o.framesPerSegment;
  info.PixelDepth = DepthOf(o);
  info.PreTrigger = static_cast<std::int32_t>(o.preTrigger);
  info.CalibrationType = o.calibration ? 1 : 0;
  info.ThreadsPerVolume = 1;
  info.VolumesCount = 1;
  const std::string rawPath = JoinPath(o.folder, o.stem);
  if (WriteRawFileInfo(rawPath.c_str(), info, segmented) != 1) return "cannot write the raw descriptor";
  return "";
}

std::string WriteProfile(const RecordingOptions& o) {
  const std::int32_t startIdx = -static_cast<std::int32_t>(o.preTrigger);
  const std::int32_t stopIdx = startIdx + static_cast<std::int32_t>(o.frames) - 1;
  ProfileWriter w;
  w.Text("Name", RecordingName(o));
  w.Integer("Done", 1);
  w.Text("Comment", o.comment);
  w.Integer("Year", static_cast<std::uint32_t>(o.year));
  w.Integer("Month", static_cast<std::uint32_t>(o.month));
  w.Integer("Day", static_cast<std::uint32_t>(o.day));
  w.Integer("Hour", static_cast<std::uint32_t>(o.hour));
  w.Integer("Minute", static_cast<std::uint32_t>(o.minute));
  w.Integer("Second", static_cast<std::uint32_t>(o.second));
  w.Integer("Milliseconds", o.microseconds / 1000);
  w.Integer("Microseconds", o.microseconds % 1000);
  w.Integer("Images", o.frames);
  w.Signed("StartIdx", startIdx);
  w.Signed("StopIdx", stopIdx);
  w.Signed("StartAvi", startIdx);
  w.Signed("StopAvi", stopIdx);
  w.Integer("Frames", o.frames);
  w.Integer("BROC Lenght", 1);
  w.Integer("Per-Trig-Frms", o.preTrigger);
  w.Integer("RecMode", 1);
  w.Integer("StartAddLo", o.headerBytes);
  w.Integer("StartAddHi", 0);
  w.Integer("FrameSize", RecordBytes(o));
  w.Signed("FileType", o.fileType);
  w.Integer("XDRContrast", 21);
  w.Integer("XDRRatio", 2);
  w.Integer("Pre-Start", 0);
  w.Integer("TriggerTime", 0);
  w.Integer("TotSyncCount", o.frames);
  CameraSettings(o, w);
  w.Integer("ConvertRaw", 0);
  w.Integer("DeleteRaw", 0);
  w.Integer("UTCOffset", 0);
  // The suite's second pass writes the camera settings again.
  CameraSettings(o, w);
  return WriteTextFile(JoinPath(o.folder, "_config.pgv"), "[Acquisition]\r\n" + w.Lines());
}

std::string WriteArguments(const RecordingOptions& o) {
  ProfileWriter w;
  w.Text("Arg02", o.baseName);
  w.Integer("Arg03", o.frames);
  w.Integer("Arg04", 0);
  w.Integer("Arg05", o.overlayFlags);
  w.Text("Arg06", o.fontFace);
  w.Signed("Arg07", o.overlayPosition);
  const bool channels = o.channelForm > 0;
  const struct {
    const char* key;
    std::int32_t value;
  } integers[] = {{"Arg12", o.textColor}, {"Arg13", o.topBar ? 1 : 0}, {"Arg14", channels ? o.channelForm : 0},
                  {"Arg15", channels ? 1 : 0}, {"Arg16", 0}, {"Arg17", o.fontHeight}};
  for (const auto& [key, value] : integers) w.Signed(key, value);
  w.Text("Arg18", o.logo1);
  w.Text("Arg19", "");
  w.Integer("Arg20", 0);
  w.Integer("Arg21", 0);
  w.Text("Arg22", o.deviceName);
  w.Integer("Arg23", 6);
  w.Integer("Arg24", 0);
  w.Integer("Arg25", 0);
  w.Signed("Arg26", o.deleteRaw);
  w.Integer("Arg27", 10000);
  w.Integer("Arg28", 1);
  w.Integer("Arg29", 3);
  w.Signed("Arg30", o.companionMovie);
  w.Integer("Arg31", 12);
  w.Text("Arg32", "");
  w.Signed("Arg33", o.plotHeight);
  w.Integer("Arg34", 0);
  w.Signed("Arg35", o.plotMode);
  w.Signed("Arg36", o.markerKind);
  w.Integer("Arg37", o.markerValue);
  w.Signed("Arg38", o.markerColor);
  for (const char* key : {"Arg39", "Arg40", "Arg41"}) w.Text(key, "");
  w.Integer("Arg42", o.bottomBar ? 1 : 0);
  w.Signed("Arg43", o.backColor);
  w.Text("Arg44", o.userText1);
  w.Signed("Arg45", o.plotWidth);
  w.Integer("Arg46", 1);
  w.Text("Arg47", "");
  w.Text("Arg48", "");
  w.Text("Arg49", o.userText2);
  w.Text("Arg50", o.logo2);
  w.Integer("Arg51", 0);
  w.Text("Arg52", "");
  w.Integer("Arg53", 0);
  return WriteTextFile(JoinPath(o.folder, "args.ini"), "[ArgSect]\r\n" + w.Lines());
}

std::string WriteChannels(const RecordingOptions& o) {
  if (o.channelForm <= 0) return "";
  ChannelPlan plan;
  plan.channelMask = o.channelMask & 0xFFFF;
  plan.frameRate = o.rate;
  plan.samplesPerFrame = o.samplesPerFrame;
  plan.frameCount = o.frames;
  plan.startSeconds = -static_cast<double>(o.preTrigger) / o.rate;
  const ChannelRecording channels = MakeChannelRecording(plan);
  const std::string path = ChannelFilePath(o.folder, o.baseName, o.channelForm);
  return WriteChannelFile(path, o.channelForm, channels) ? "" : "cannot write the channel file " + path;
}

std::string WriteRecording(const RecordingOptions& o) {
  if (std::string bad = CheckOptions(o); !bad.empty()) return bad;
  if (CgCreateNewDirectory(o.folder.c_str()) != 0) return "cannot create " + o.folder;
  for (const auto step : {WriteStore, WriteProfile, WriteArguments, WriteSidecars, WriteChannels}) {
    if (std::string failed = step(o); !failed.empty()) return failed;
  }
  return "";
}

}  // namespace tarnvel::recgen
