// The raw store of a recording, as it lies on disk: the header at the start
// of every store file, the trailer at the end of every frame record, the
// calibration file, and the sample packings. The driver reads this layout and
// the recording generator writes it. All integers are little-endian (the
// byte order of every machine this runs on).
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnvel::rawstore {

inline constexpr char kStoreMagic[8] = {'O', 'K', 'N', '_', 'R', 'A', 'W', '\0'};
inline constexpr char kCalibrationMagic[8] = {'O', 'K', 'N', '_', 'C', 'A', 'L', '\0'};
inline constexpr std::uint32_t kStoreVersion = 1;
inline constexpr std::uint32_t kMinHeaderBytes = 256;
inline constexpr std::uint32_t kMinTrailerBytes = 48;
inline constexpr std::uint32_t kGevTrailerBytes = 240;      // trailer that holds the GEV records
inline constexpr std::uint32_t kCameraTrailerBytes = 1264;  // trailer that holds the camera block

enum Packing : std::uint32_t {
  kPackWords = 0,      // one sample per byte (8 bits) or per 16-bit word
  kPackBitstream = 1,  // sample i at bits i*sampleBits upward, LSB first
  kPackPairs12 = 2,    // 12-bit pairs in 3 bytes: a>>4, (a&15)<<4 | b>>8, b&255
};
enum SensorKind : std::uint32_t { kMonochrome = 0, kColourMosaic = 1 };
// Colour at the sensor's top-left 2 x 2.
enum MosaicOrder : std::uint32_t { kRGGB = 0, kGRBG = 1, kGBRG = 2, kBGGR = 3 };
enum TrailerFlags : std::uint32_t { kHasCameraBlock = 1, kHasGevRecords = 2 };

struct StoreHeader {
  char magic[8];
  std::uint32_t version;
  std::uint32_t headerSize;
  std::uint32_t width;   // sensor columns, before rotation
  std::uint32_t height;  // sensor rows, before rotation
  std::uint32_t sampleBits;
  std::uint32_t packing;
  std::uint32_t sensorKind;
  std::uint32_t mosaicOrder;
  std::uint32_t modelIndex;
  std::uint32_t subModel;
  std::uint32_t serialNumber;
  std::uint32_t networkAddress;  // IPv4, first octet in the top byte
  std::uint32_t rotation;        // quarter turns clockwise
  std::uint32_t exposureNs;
  std::uint32_t framePeriodNs;
  std::uint32_t sizeFactor;
  std::uint32_t resolutionSuffix;
  std::uint32_t propertySix;
  std::uint32_t cameraValue14;
  std::uint32_t cameraValue15;
  std::uint32_t trailerSize;
  std::uint32_t trailerFlags;
  std::uint32_t blackLevel;  // in sample units
  float gains[3];            // red, green, blue; 0.0 counts as 1.0
  std::uint32_t reserved[4];
  char cameraModelText[128];
};
static_assert(sizeof(StoreHeader) == 256);
static_assert(offsetof(StoreHeader, trailerSize) == 88 && offsetof(StoreHeader, gains) == 100);
static_assert(offsetof(StoreHeader, cameraModelText) == 128);

// The first 48 bytes of every trailer; the optional parts follow at fixed offsets.
struct TrailerHead {
  std::uint32_t timeBlock[8];  // status, year, dayOfYear, hour, minute, second, microseconds, controlField
  std::uint32_t autoExposureNs;
  std::uint32_t frameFlag;
  std::uint32_t storeIndex;
  std::uint32_t reserved;
};
static_assert(sizeof(TrailerHead) == 48);
inline constexpr std::uint32_t kGevRecord1At = 48, kGevRecord1Bytes = 32;
inline constexpr std::uint32_t kGevRecord2At = 80, kGevRecord2Bytes = 32;
inline constexpr std::uint32_t kGevRecord3At = 112, kGevRecord3Bytes = 128;
inline constexpr std::uint32_t kCameraBlockAt = 240, kTrailerCameraBytes = 1024;

struct CalibrationHeader {
  char magic[8];
  std::uint32_t width;
  std::uint32_t height;
  std::uint32_t kind;  // 1: black offsets
  std::uint32_t reserved;
};
static_assert(sizeof(CalibrationHeader) == 24);
inline constexpr std::uint32_t kCalibrationBlackOffsets = 1;

// Bytes of a frame's payload of `samples` samples; 0 for a combination that
// doesn't exist (packing 2 other than 12 bits, an unknown packing or depth).
std::uint64_t PayloadBytes(std::uint64_t samples, std::uint32_t sampleBits, std::uint32_t packing);

// Packs samples (each below 2^sampleBits) into `out`, which holds
// PayloadBytes(count, ...) bytes; unused bits of the last byte are 0.
void PackSamples(const std::uint16_t* samples, std::size_t count, std::uint32_t sampleBits,
                 std::uint32_t packing, std::uint8_t* out);

// Unpacks `count` samples starting at sample `first` of a payload, masked to sampleBits.
void UnpackSamples(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint32_t sampleBits,
                   std::uint32_t packing, std::uint16_t* out);

}  // namespace tarnvel::rawstore
