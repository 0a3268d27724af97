#include "recording/RecordingConfig.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <string>
#include <system_error>

#include "platform/cordage/Profile.h"
#include "platform/cordage/TextField.h"
#include "recording/DecimalText.h"

namespace tarnvel {
namespace {

// The folder as the reader works with it: one trailing separator dropped.
// Empty optional-like result (false) when the folder is too long.
bool SettleFolder(std::string_view folder, std::string& out) {
  if (folder.size() > kMaxRecordingFolder) return false;
  if (!folder.empty() && IsSeparator(folder.back())) folder.remove_suffix(1);
  out.assign(folder);
  return true;
}

void SetName(std::string_view folder, RecordingInfo& record) {
  const std::size_t cut = LastSeparator(folder);
  if (cut != std::string_view::npos) CopyText(record.Name, folder.substr(cut + 1));
}

// Reads the profile of one recording; every read names section "Acquisition".
class AcquisitionReader {
 public:
  explicit AcquisitionReader(const std::string& path) : path_(path) {}

  std::uint32_t Word(const char* key, std::int32_t defaultValue) const {
    std::uint32_t value = 0;
    CgReadProfileInteger(kAcquisitionSection, key, defaultValue, &value, path_.c_str());
    return value;
  }
  std::int32_t Signed(const char* key, std::int32_t defaultValue) const {
    return static_cast<std::int32_t>(Word(key, defaultValue));
  }
  float Float(const char* key, float defaultValue) const {
    float value = 0;
    CgReadProfileFloat(kAcquisitionSection, key, defaultValue, &value, path_.c_str());
    return value;
  }
  template <std::size_t N>
  void Text(const char* key, const char* defaultText, char (&field)[N]) const {
    CgReadProfileString(kAcquisitionSection, key, defaultText, field, N, path_.c_str());
  }
  // A numbered key: "WhiteBal_%d" and its kin.
  std::uint32_t Numbered(const char* format, int index, std::int32_t defaultValue) const {
    char key[64];
    std::snprintf(key, sizeof key, format, index);
    return Word(key, defaultValue);
  }

 private:
  const std::string& path_;
};

void ReadHead(const AcquisitionReader& in, std::string_view folder, RecordingInfo& r) {
  SetName(folder, r);
  in.Text("Comment", "", r.Comment);
  r.Year = static_cast<std::uint16_t>(in.Word("Year", 2005));
  r.Month = static_cast<std::uint16_t>(in.Word("Month", 1));
  r.Day = static_cast<std::uint16_t>(in.Word("Day", 1));
  r.Hour = static_cast<std::uint16_t>(in.Word("Hour", 12));
  r.Minute = static_cast<std::uint16_t>(in.Word("Minute", 0));
  r.Second = static_cast<std::uint16_t>(in.Word("Second", 0));
  r.Milliseconds = static_cast<std::uint16_t>(in.Word("Milliseconds", 0));
  r.Microseconds = static_cast<std::uint16_t>(in.Word("Microseconds", 0));
}

// "x,y": each side a decimal; a text without a comma is (0,0).
LookupPoint ParsePoint(std::string_view text) {
  const std::size_t comma = text.find(',');
  if (comma == std::string_view::npos) return {0, 0};
  return {LeadingDecimal(text.substr(0, comma)), LeadingDecimal(text.substr(comma + 1))};
}

// The keys after the head, in the order the suite reads them; rules between
// keys stand at their place, since later defaults depend on earlier values.
void ReadSettings(const AcquisitionReader& in, std::int32_t images, RecordingInfo& r) {
  r.StartIdx = in.Signed("StartIdx", 0);
  r.StopIdx = in.Signed("StopIdx", static_cast<std::int32_t>(static_cast<std::uint32_t>(images) - 1u));
  r.StartAvi = in.Signed("StartAvi", r.StartIdx);
  r.StopAvi = in.Signed("StopAvi", r.StopIdx);
  r.Frames = in.Word("Frames", images);
  r.BrocLength = in.Word("BROC Lenght", 1);
  if (r.BrocLength > r.Frames) r.BrocLength = r.Frames;
  r.PerTrigFrms = in.Word("Per-Trig-Frms", 0);
  r.RecMode = in.Word("RecMode", 1);
  r.FirstFrame = r.RecMode == 1 ? static_cast<std::int32_t>(0u - r.PerTrigFrms) : 0;
  const std::uint32_t startLow = in.Word("StartAddLo", 0);
  const std::uint32_t startHigh = in.Word("StartAddHi", 0);
  r.StartAdd = (static_cast<std::uint64_t>(startHigh) << 32) | startLow;
  r.FrameSize = in.Word("FrameSize", 0);
  r.FileType = in.Signed("FileType", 0);
  r.XDRContrast = in.Word("XDRContrast", 21);
  r.XDRRatio = in.Word("XDRRatio", 2);
  r.PreStart[0] = in.Word("Pre-Start", 0);
  if (r.RecMode == 2 && r.BrocLength != 0) {
    std::uint32_t bursts = r.Frames / r.BrocLength;
    if (bursts > kBurstTimes - 1) bursts = kBurstTimes - 1;
    for (std::uint32_t i = 0; i < bursts; ++i)
      r.BrocTime[i] = in.Numbered("BROC_Time_%d", static_cast<int>(i), 0);
  }
  r.TriggerTime = in.Word("TriggerTime", 0);
  r.TotSyncCount = in.Word("TotSyncCount", 0);
  r.PixelDepth = in.Word("PixelDepth", 8);
  r.OutputPixelDepth = r.PixelDepth;
  r.PixelFormat = in.Word("PixelFormat", 8);
  r.Model = in.Word("Model", 6);
  r.SensorGain = in.Word("SensorGain", 0);
  r.GammaCorrection = in.Word("GammaCorrection", 10);
  r.GammaCorrection1 = in.Word("GammaCorrection1", 10);
  r.GammaLevel1 = in.Word("GammaLevel1", 64);
  r.GammaLevel = in.Word("GammaLevel", 768);
  r.Sharpen = in.Word("Sharpen", 0);
  r.SharpenThreshold = in.Word("SharpenThreshold", 0);
  r.DynamicNR = in.Word("DynamicNR", 0);
  r.DynamicNR2 = in.Word("DynamicNR2", 0);
  r.StreamingT = in.Word("StreamingT", 0);
  r.JpegEnconding = in.Word("JpegEnconding", 0);
  r.JpegQuality = in.Word("JpegQuality", 90);
  r.Contrast = in.Word("Contrast", 10);
  r.Brightness = in.Word("Brightness", 25);
  r.Hue = in.Word("Hue", 180);
  r.Saturation = in.Word("Saturation", 10);
  r.CompressionRatio = in.Word("CompressionRatio", 70);
  if (r.CompressionRatio < 40) r.CompressionRatio = 40;
  r.Rate = in.Float("Rate", 0.0f);
  r.ExternalRate = in.Word("ExternalRate", 0);
  r.Output_Rate = in.Float("Output_Rate", 15.0f);
  r.ToFrameOffset = in.Signed("ToFrameOffset", 0);
  r.TimeOut = in.Word("TimeOut", 5000);
  r.SyncInCfg = in.Word("SyncInCfg", 0);
  r.Binning = in.Word("Binning", 0);
  r.PixelGain = in.Word("PixelGain", 0);
  // Recordings made before "ExposureNs" existed give microseconds in "Exposure".
  const std::uint32_t exposureNs = in.Word("ExposureNs", 0);
  r.ExposureNs = exposureNs != 0 ? exposureNs : 1000u * in.Word("Exposure", 10000);
  r.ExposureMode = in.Word("ExposureMode", 0);
  r.TriggerInCfg = in.Word("TriggerInCfg", 0);
  r.ROIX = in.Word("ROIX", 0);
  r.ROIY = in.Word("ROIY", 0);
  r.ROIW = in.Word("ROIW", 1270);
  r.ROIH = in.Word("ROIH", 1024);
  r.SyncOutCfg = in.Word("SyncOutCfg", 0);
  r.SyncOutAlignment = in.Word("SyncOutAlignment", 0);
  r.TrigInDebounce = in.Word("TrigInDebounce", 3);
  r.TrigInDelay = in.Word("TrigInDelay", 0);
  r.SyncInDebounce = in.Word("SyncInDebounce", 3);
  r.SyncInDelay = in.Word("SyncInDelay", 0);
  r.SyncInInverted = in.Word("SyncInInverted", 0);
  r.SyncInJitter = in.Word("SyncInJitter", 0);
  r.SyncInMutliplier = in.Word("SyncInMutliplier", 1);
  r.SyncInDivider = 1;
  r.SyncInPTPMode = in.Word("SyncInPTPMode", 0);
  r.SyncInPTPDelay = in.Word("SyncInPTPDelay", 0);
  r.SyncOutWidth = in.Word("SyncOutWidth", 5);
  r.SyncOutDelay = in.Word("SyncOutDelay", 0);
  r.HubDelay = in.Word("HubDelay", 0);
  r.MarkerCfg = in.Word("MarkerCfg", 0);
  r.NoiseReduction = in.Word("NoiseReduction", 1);
  r.NoisePSC = in.Word("NoisePSC", 1);
  r.DarkColumns = in.Word("DarkColumns", 1);
  r.NoiseAuto = in.Word("NoiseAuto", 0);
  r.NoiseAutoPSC = in.Word("NoiseAutoPSC", 0);
  r.AEEnable = in.Word("AEEnable", 0);
  r.AEReference = in.Word("AEReference", 70);
  r.AEROI_X = in.Word("AEROI_X", 0);
  r.AEROI_Y = in.Word("AEROI_Y", 0);
  r.AEROI_W = in.Word("AEROI_W", 0);
  r.AEROI_H = in.Word("AEROI_H", 0);
  r.AESpeed = in.Word("AESpeed", 7);
  r.AEMinExp = in.Word("AEMinExp", 0);
  r.AEMaxExp = in.Word("AEMaxExp", 0);
  r.AEExpStep = in.Word("AEExpStep", 0);
  r.AEMinIris = in.Word("AEMinIris", 0);
  r.AEMaxIris = in.Word("AEMaxIris", 0);
  r.MTCondition = in.Word("MTCondition", 0);
  r.MTThreshold = in.Word("MTThreshold", 0);
  r.MTROI_X = in.Word("MTROI_X", 0);
  r.MTROI_Y = in.Word("MTROI_Y", 0);
  r.MTROI_W = in.Word("MTROI_W", 0);
  r.MTROI_H = in.Word("MTROI_H", 0);
  r.VideoMode = in.Word("VideoMode", 0);
  r.NetworkPerformance = in.Word("NetworkPerformance", 2500);
  r.PlusMode = in.Word("PlusMode", 0);
  r.HDMIMode = in.Word("HDMIMode", 0);
  r.HDMIOverlay = in.Word("HDMIOverlay", 0);
  r.PreviewMode = in.Word("PreviewMode", 0);
  r.PostRecordingOperation = in.Word("PostRecordingOperation", 0);
  r.ColorIntFilter = in.Word("ColorIntFilter", 255);
  r.GaussianFilter = in.Word("GaussianFilter", 0);
  r.HDROIIndex = in.Word("HDROIIndex", 0);
  r.HDZoom = in.Word("HDZoom", 0);
  r.HDZoomX = in.Word("HDZoomX", 0);
  r.HDZoomY = in.Word("HDZoomY", 0);
  r.HDZoom2Roi = in.Word("HDZoom2Roi", 0);
  r.RotationAngle = in.Word("RotationAngle", 0);
  r.FlipCfg = in.Word("FlipCfg", 0);
  r.LookupTable = in.Word("LookupTable", 0);
  if (r.LookupTable != 1) {
    for (std::size_t i = 0; i < kLookupPoints; ++i) {
      const auto v = static_cast<std::int32_t>(20 * i);
      r.LookupTblPoint[i] = {v, v};
    }
  } else {
    for (int i = 0; i < 5; ++i) {
      char key[32], text[256];
      std::snprintf(key, sizeof key, "LookupTblPoint_%d", i);
      in.Text(key, "0,0", text);
      r.LookupTblPoint[i] = ParsePoint(text);
    }
    // The curve always ends at the top corner: the sixth point has no key.
    LookupPoint& last = r.LookupTblPoint[kLookupPoints - 1];
    if (last.x == 0 && last.y == 0) last = {100, 100};
  }
  for (int i = 0; i < 9; ++i) r.WhiteBal[i] = in.Numbered("WhiteBal_%d", i, i % 4 == 0 ? 65536 : 0);
  for (int i = 0; i < 6; ++i) r.Paint[i] = in.Numbered("Paint_%d", i, i < 3 ? 100 : 250);
  for (int i = 0; i < 6; ++i) r.GevTiming[i] = in.Numbered("GevTiming_%d", i, 0);
}

}  // namespace

std::string ProfilePathOf(std::string_view folder) { return JoinPath(folder, kConfigProfileName); }

void ReadRecordingHeaderFields(std::string_view folder, RecordingInfo& record) {
  std::string settled;
  if (!SettleFolder(folder, settled)) return;
  const std::string path = ProfilePathOf(settled);
  ReadHead(AcquisitionReader(path), settled, record);
}

int ReadRecordingConfig(std::string_view folder, RecordingInfo& record) {
  std::string settled;
  if (!SettleFolder(folder, settled)) return 0;
  const std::string path = ProfilePathOf(settled);
  const AcquisitionReader in(path);
  SetName(settled, record);
  const std::int32_t images = in.Signed("Images", 0);
  if (images == 0) return 0;
  ReadHead(in, settled, record);
  ReadSettings(in, images, record);
  return 1;
}

CompanionCopies CopyConfigCompanions(std::string_view destinationFolder, std::string_view recordingFolder) {
  namespace fs = std::filesystem;
  CompanionCopies result;
  for (const char* name : {kConfigProfileName, "_config.mme", "_config.mii"}) {
    const std::string source = JoinPath(recordingFolder, name);
    const std::string target = JoinPath(destinationFolder, name);
    std::error_code ec;
    if (!fs::is_regular_file(source, ec)) continue;
    if (fs::exists(target, ec)) continue;
    // skip_existing never replaces a file that appeared meanwhile.
    if (!ec && fs::copy_file(source, target, fs::copy_options::skip_existing, ec)) {
      result.copied.push_back(target);
    } else if (ec) {
      fs::remove(target, ec);
      result.failed.push_back(target);
    }
  }
  return result;
}

}  // namespace tarnvel
