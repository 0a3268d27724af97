// Writes complete recording folders as the suite's acquisition leaves them:
// profile, argument file, raw descriptor, raw store (with calibration and
// trailers) and the test sidecars. The pictures move and show where they
// are: gradients, a bar that moves with the frame number, and the frame
// number in large digits, drawn upright as the converted frame shows it.
#pragma once

#include <cstdint>
#include <string>
#include <vector>

namespace tarnvel::recgen {

enum class GevTimeForm { kCounter, kIrig, kIeee1588 };

struct RecordingOptions {
  std::string folder;         // created when missing
  std::string stem = "rawdata";  // store file names: <stem>.raw, <stem>.00.raw, <stem>.cal
  // Sensor and store.
  std::uint32_t width = 1280;
  std::uint32_t height = 1024;
  std::uint32_t sampleBits = 12;
  std::uint32_t packing = 1;      // 0 words, 1 bitstream, 2 12-bit pairs
  bool colour = false;
  std::uint32_t mosaicOrder = 0;  // 0 RGGB, 1 GRBG, 2 GBRG, 3 BGGR
  std::uint32_t frames = 100;
  std::uint32_t preTrigger = 20;
  std::uint32_t framesPerSegment = 0;  // 0: one store file
  std::uint32_t rotation = 0;          // quarter turns clockwise
  std::uint32_t blackLevel = 0;
  bool calibration = false;            // writes <stem>.cal with black offsets
  float gains[3] = {1.0f, 1.0f, 1.0f};  // red, green, blue
  std::uint32_t headerBytes = 256;
  std::uint32_t frameAlign = 0;  // frame records padded to a multiple of this, 0 none
  // Camera.
  std::uint32_t model = 6;  // model number; the store holds its table index
  std::uint32_t subModel = 0;
  std::uint32_t serial = 112345678;
  std::uint32_t networkAddress = 0xC0A80164;  // 192.168.1.100
  std::string cameraText = "Fathom HS-6";
  std::uint32_t exposureNs = 500000;
  float rate = 1000.0f;
  std::uint32_t sizeFactor = 0;
  std::uint32_t resolutionSuffix = 0;
  std::uint32_t propertySix = 0;
  std::uint32_t cameraValue14 = 0;
  std::uint32_t cameraValue15 = 0;
  // Trailers.
  bool timeCode = true;           // time blocks with a valid year
  bool timeFromReceiver = false;  // controlField 0, else 0x55555555 (no receiver)
  int year = 2024, month = 6, day = 14, hour = 10, minute = 30, second = 0;
  std::uint32_t microseconds = 0;
  bool autoExposure = false;
  std::uint32_t flagEvery = 0;            // every n-th store frame flagged, 0 none
  std::vector<std::uint32_t> flagged;     // further flagged store frames
  bool gevRecords = false;
  GevTimeForm gevTime = GevTimeForm::kIeee1588;
  int cameraBlock = -1;  // 1 on, 0 off, -1 as the model has it (11-13, 20-22)
  // Profile and arguments.
  std::string comment = "Generated recording";
  std::string deviceName = "Camera 1";
  std::string baseName = "frame";
  std::int32_t fileType = 1;
  float outputRate = 25.0f;
  std::uint32_t overlayFlags = 0;
  std::int32_t deleteRaw = 0;
  // Burn-ins of the argument file.
  std::int32_t overlayPosition = 0;
  std::int32_t textColor = 0;
  std::int32_t backColor = -1;  // -1: transparent text
  std::int32_t fontHeight = 20;
  std::string fontFace = "DejaVu Sans";
  bool topBar = false;
  bool bottomBar = false;
  std::string logo1, logo2;  // images of the two logo items
  std::string userText1, userText2;
  std::int32_t markerKind = 0;  // 1 cross, 2 grid
  std::uint32_t markerValue = 0;
  std::int32_t markerColor = 0;
  std::int32_t companionMovie = 0;  // non-zero: an AVI beside the output
  // Analogue channels: a channel file in one of the seven forms (1 .DAT to
  // 7 .CSV; -1 none) with sine, step, ramp and noise on the first channels.
  std::int32_t channelForm = -1;
  std::uint32_t channelMask = 0x000F;
  std::uint32_t samplesPerFrame = 10;
  std::int32_t plotHeight = 0;  // 0: 256 rows
  std::int32_t plotWidth = 256;
  std::int32_t plotMode = 1;    // the legend
};

bool WantsCameraBlock(const RecordingOptions& options);

// Checks the options; returns an empty text when they can be written, else what is wrong.
std::string CheckOptions(const RecordingOptions& options);

// The stored samples of store frame `index`, sensor order, row after row
// (black level and calibration offsets included, gains divided out).
std::vector<std::uint16_t> SensorSamples(const RecordingOptions& options, std::uint32_t index);
// The calibration offsets that the generator writes (empty without calibration).
std::vector<std::uint16_t> CalibrationOffsets(const RecordingOptions& options);

// Writes the whole folder. Returns an empty text on success, else the failure.
std::string WriteRecording(const RecordingOptions& options);

// The pieces of WriteRecording, for callers that want only some.
std::string WriteProfile(const RecordingOptions& options);
std::string WriteArguments(const RecordingOptions& options);
std::string WriteStore(const RecordingOptions& options);
std::string WriteSidecars(const RecordingOptions& options);
std::string WriteChannels(const RecordingOptions& options);
// An RGBA PNG logo: colour gradient, transparent border, a half-transparent band.
std::string WriteLogo(const std::string& path, std::uint32_t width, std::uint32_t height);

}  // namespace tarnvel::recgen
