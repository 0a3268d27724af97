// tarnvel-recgen: writes a complete recording folder for tests and demos.
// Usage: tarnvel-recgen --out FOLDER [--option value | --option=value ...]
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <functional>
#include <map>
#include <stdexcept>
#include <strings.h>
#include <string>

#include "apps/recgen/RecordingGenerator.h"

namespace {

using tarnvel::recgen::GevTimeForm;
using tarnvel::recgen::RecordingOptions;

const char kUsage[] =
    "usage: tarnvel-recgen --out FOLDER [options]\n"
    "  store:   --width N (1280) --height N (1024) --bits 8|10|12|14|16 (12)\n"
    "           --packing words|bitstream|pairs or 0|1|2 (bitstream) --sensor mono|colour\n"
    "           --mosaic RGGB|GRBG|GBRG|BGGR (RGGB) --frames N (100) --pretrigger N (20)\n"
    "           --segment N (frames per segment file, 0: one file) --rotation 0..3\n"
    "           --black N --calibration --gains R,G,B --header-bytes N (256) --frame-align N\n"
    "           --stem NAME (rawdata)\n"
    "  camera:  --model N (6) --submodel N --serial N --ip A.B.C.D --camera-text TEXT\n"
    "           --exposure-ns N (500000) --rate FPS (1000) --size-factor N --resolution-suffix N\n"
    "           --property-six N --camera-value14 N --camera-value15 N\n"
    "  trailer: --start 'YYYY-MM-DD HH:MM:SS[.micro]' --no-timecode --time-receiver\n"
    "           --auto-exposure --flag-every N --flag I,J,... --gev --gev-time 1588|irig|counter\n"
    "           --camera-block on|off (as the model has it)\n"
    "  profile: --comment TEXT --device TEXT --base-name TEXT --file-type N --output-rate FPS\n"
    "           --overlay MASK --delete-raw 0|1\n"
    "  burn-in: --position 0..6 --text-color N --back-color N --font FACE --font-height N\n"
    "           --top-bar --bottom-bar --logo1 PATH --logo2 PATH --user-text1 TEXT --user-text2 TEXT\n"
    "           --marker cross|grid --marker-value LOW,HIGH --marker-color N --companion-movie N\n"
    "           --make-logo PATH[,WxH] writes an RGBA PNG logo (200x100) and uses it as the first logo\n"
    "  channels: --channels dat|asc|plt|lvm|xml|xls|csv --channel-mask MASK --samples-per-frame N\n"
    "           --plot-height N --plot-width N --plot-legend 0|1\n";

std::uint32_t Number(const std::string& text) {
  char* end = nullptr;
  const unsigned long long value = std::strtoull(text.c_str(), &end, 0);
  if (text.empty() || *end != '\0' || value > 0xFFFFFFFFull) throw std::invalid_argument(text);
  return static_cast<std::uint32_t>(value);
}

float Decimal(const std::string& text) {
  char* end = nullptr;
  const float value = std::strtof(text.c_str(), &end);
  if (text.empty() || *end != '\0') throw std::invalid_argument(text);
  return value;
}

std::uint32_t Choice(const std::string& text, std::initializer_list<const char*> names) {
  std::uint32_t i = 0;
  for (const char* name : names) {
    if (strcasecmp(text.c_str(), name) == 0) return i;
    ++i;
  }
  const std::uint32_t n = Number(text);
  if (n >= names.size()) throw std::invalid_argument(text);
  return n;
}

void ParseStart(const std::string& text, RecordingOptions& o) {
  unsigned micro = 0;
  const int got = std::sscanf(text.c_str(), "%d-%d-%d %d:%d:%d.%u", &o.year, &o.month, &o.day, &o.hour, &o.minute,
                              &o.second, &micro);
  if (got < 6) throw std::invalid_argument(text);
  o.microseconds = micro;
}

}  // namespace

int main(int argc, char** argv) {
  RecordingOptions o;
  using Setter = std::function<void(const std::string&)>;
  const std::map<std::string, Setter> valued = {
      {"out", [&](const std::string& v) { o.folder = v; }},
      {"stem", [&](const std::string& v) { o.stem = v; }},
      {"width", [&](const std::string& v) { o.width = Number(v); }},
      {"height", [&](const std::string& v) { o.height = Number(v); }},
      {"bits", [&](const std::string& v) { o.sampleBits = Number(v); }},
      {"packing", [&](const std::string& v) { o.packing = Choice(v, {"words", "bitstream", "pairs"}); }},
      {"sensor", [&](const std::string& v) { o.colour = Choice(v, {"mono", "colour"}) == 1; }},
      {"mosaic", [&](const std::string& v) { o.mosaicOrder = Choice(v, {"RGGB", "GRBG", "GBRG", "BGGR"}); }},
      {"frames", [&](const std::string& v) { o.frames = Number(v); }},
      {"pretrigger", [&](const std::string& v) { o.preTrigger = Number(v); }},
      {"segment", [&](const std::string& v) { o.framesPerSegment = Number(v); }},
      {"rotation", [&](const std::string& v) { o.rotation = Number(v); }},
      {"black", [&](const std::string& v) { o.blackLevel = Number(v); }},
      {"gains",
       [&](const std::string& v) {
         if (std::sscanf(v.c_str(), "%f,%f,%f", &o.gains[0], &o.gains[1], &o.gains[2]) != 3) {
           throw std::invalid_argument(v);
         }
       }},
      {"header-bytes", [&](const std::string& v) { o.headerBytes = Number(v); }},
      {"frame-align", [&](const std::string& v) { o.frameAlign = Number(v); }},
      {"model", [&](const std::string& v) { o.model = Number(v); }},
      {"submodel", [&](const std::string& v) { o.subModel = Number(v); }},
      {"serial", [&](const std::string& v) { o.serial = Number(v); }},
      {"ip",
       [&](const std::string& v) {
         unsigned a, b, c, d;
         if (std::sscanf(v.c_str(), "%u.%u.%u.%u", &a, &b, &c, &d) != 4 || (a | b | c | d) > 255) {
           throw std::invalid_argument(v);
         }
         o.networkAddress = a << 24 | b << 16 | c << 8 | d;
       }},
      {"camera-text", [&](const std::string& v) { o.cameraText = v; }},
      {"exposure-ns", [&](const std::string& v) { o.exposureNs = Number(v); }},
      {"rate", [&](const std::string& v) { o.rate = Decimal(v); }},
      {"size-factor", [&](const std::string& v) { o.sizeFactor = Number(v); }},
      {"resolution-suffix", [&](const std::string& v) { o.resolutionSuffix = Number(v); }},
      {"property-six", [&](const std::string& v) { o.propertySix = Number(v); }},
      {"camera-value14", [&](const std::string& v) { o.cameraValue14 = Number(v); }},
      {"camera-value15", [&](const std::string& v) { o.cameraValue15 = Number(v); }},
      {"start", [&](const std::string& v) { ParseStart(v, o); }},
      {"flag-every", [&](const std::string& v) { o.flagEvery = Number(v); }},
      {"flag",
       [&](const std::string& v) {
         std::size_t at = 0;
         while (at <= v.size()) {
           const std::size_t comma = std::min(v.find(',', at), v.size());
           o.flagged.push_back(Number(v.substr(at, comma - at)));
           at = comma + 1;
         }
       }},
      {"gev-time",
       [&](const std::string& v) {
         o.gevTime = static_cast<GevTimeForm>(Choice(v, {"counter", "irig", "1588"}));
       }},
      {"camera-block", [&](const std::string& v) { o.cameraBlock = static_cast<int>(Choice(v, {"off", "on"})); }},
      {"comment", [&](const std::string& v) { o.comment = v; }},
      {"device", [&](const std::string& v) { o.deviceName = v; }},
      {"base-name", [&](const std::string& v) { o.baseName = v; }},
      {"file-type", [&](const std::string& v) { o.fileType = static_cast<std::int32_t>(Number(v)); }},
      {"output-rate", [&](const std::string& v) { o.outputRate = Decimal(v); }},
      {"overlay", [&](const std::string& v) { o.overlayFlags = Number(v); }},
      {"delete-raw", [&](const std::string& v) { o.deleteRaw = static_cast<std::int32_t>(Number(v)); }},
      {"position", [&](const std::string& v) { o.overlayPosition = static_cast<std::int32_t>(Number(v)); }},
      {"text-color", [&](const std::string& v) { o.textColor = static_cast<std::int32_t>(Number(v)); }},
      {"back-color", [&](const std::string& v) { o.backColor = static_cast<std::int32_t>(std::stol(v)); }},
      {"font", [&](const std::string& v) { o.fontFace = v; }},
      {"font-height", [&](const std::string& v) { o.fontHeight = static_cast<std::int32_t>(Number(v)); }},
      {"logo1", [&](const std::string& v) { o.logo1 = v; }},
      {"make-logo", [&](const std::string& v) {
         const std::size_t comma = v.find(',');
         unsigned w = 200, h = 100;
         if (comma != std::string::npos && std::sscanf(v.c_str() + comma + 1, "%ux%u", &w, &h) != 2)
           throw std::invalid_argument(v);
         o.logo1 = v.substr(0, comma);
         if (const std::string failed = tarnvel::recgen::WriteLogo(o.logo1, w, h); !failed.empty()) throw std::invalid_argument(failed);
       }},
      {"logo2", [&](const std::string& v) { o.logo2 = v; }},
      {"user-text1", [&](const std::string& v) { o.userText1 = v; }},
      {"user-text2", [&](const std::string& v) { o.userText2 = v; }},
      {"marker", [&](const std::string& v) { o.markerKind = v == "cross" ? 1 : v == "grid" ? 2 : 0; }},
      {"marker-value", [&](const std::string& v) {
         const std::size_t comma = v.find(',');
         o.markerValue = Number(v.substr(0, comma)) | (comma == std::string::npos ? 0u : Number(v.substr(comma + 1)) << 16);
       }},
      {"marker-color", [&](const std::string& v) { o.markerColor = static_cast<std::int32_t>(Number(v)); }},
      {"companion-movie", [&](const std::string& v) { o.companionMovie = static_cast<std::int32_t>(Number(v)); }},
      {"channels", [&](const std::string& v) {
         o.channelForm = static_cast<std::int32_t>(Choice(v, {"none", "dat", "asc", "plt", "lvm", "xml", "xls", "csv"}));
       }},
      {"channel-mask", [&](const std::string& v) { o.channelMask = Number(v); }},
      {"samples-per-frame", [&](const std::string& v) { o.samplesPerFrame = Number(v); }},
      {"plot-height", [&](const std::string& v) { o.plotHeight = static_cast<std::int32_t>(Number(v)); }},
      {"plot-width", [&](const std::string& v) { o.plotWidth = static_cast<std::int32_t>(Number(v)); }},
      {"plot-legend", [&](const std::string& v) { o.plotMode = static_cast<std::int32_t>(Number(v)); }},
  };
  const std::map<std::string, std::function<void()>> switches = {
      {"calibration", [&] { o.calibration = true; }},     {"no-timecode", [&] { o.timeCode = false; }},
      {"time-receiver", [&] { o.timeFromReceiver = true; }}, {"auto-exposure", [&] { o.autoExposure = true; }},
      {"gev", [&] { o.gevRecords = true; }},
      {"top-bar", [&] { o.topBar = true; }},               {"bottom-bar", [&] { o.bottomBar = true; }},
  };

  for (int i = 1; i < argc; ++i) {
    std::string arg = argv[i];
    if (arg == "--help" || arg == "-h") {
      std::fputs(kUsage, stdout);
      return 0;
    }
    if (arg.rfind("--", 0) != 0) {
      std::fprintf(stderr, "tarnvel-recgen: unexpected argument '%s'\n%s", arg.c_str(), kUsage);
      return 2;
    }
    arg.erase(0, 2);
    std::string value;
    const std::size_t equals = arg.find('=');
    const bool inlineValue = equals != std::string::npos;
    if (inlineValue) {
      value = arg.substr(equals + 1);
      arg.erase(equals);
    }
    try {
      if (const auto s = switches.find(arg); s != switches.end() && !inlineValue) {
        s->second();
      } else if (const auto v = valued.find(arg); v != valued.end()) {
        if (!inlineValue) {
          if (i + 1 >= argc) throw std::invalid_argument("missing value");
          value = argv[++i];
        }
        v->second(value);
      } else {
        std::fprintf(stderr, "tarnvel-recgen: unknown option --%s\n%s", arg.c_str(), kUsage);
        return 2;
      }
    } catch (const std::exception&) {
      std::fprintf(stderr, "tarnvel-recgen: bad value for --%s: '%s'\n", arg.c_str(), value.c_str());
      return 2;
    }
  }
  const std::string failed = tarnvel::recgen::WriteRecording(o);
  if (!failed.empty()) {
    std::fprintf(stderr, "tarnvel-recgen: %s\n", failed.c_str());
    return 1;
  }
  return 0;
}
