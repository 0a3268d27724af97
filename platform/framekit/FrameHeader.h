// The records that cross the boundary of the image library: the header that
// goes with every frame, the description of an image file, and the option
// record that is also one entry of a compressor list. Their layouts are fixed.
#pragma once

#include <cstddef>
#include <cstdint>

namespace tarnvel {

constexpr std::uint32_t kFrameHeaderSize = 1072;
constexpr std::uint32_t kFrameOptionsSize = 152;
constexpr std::size_t kMetadataBlockSize = 1024;

// colorKind values. 3 and 4 occur only in ImageInfo: the image has an alpha plane.
constexpr std::uint32_t kColorKindGrey = 1;
constexpr std::uint32_t kColorKindColor = 2;
constexpr std::uint32_t kColorKindGreyAlpha = 3;
constexpr std::uint32_t kColorKindColorAlpha = 4;

struct FrameHeader {
  std::uint32_t size = kFrameHeaderSize;
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bits = 0;       // bits per pixel over all channels
  std::uint32_t colorKind = 0;  // 1 up to 16 bits, 2 above
  std::uint32_t reserved = 0;
  float rate = 0.0f;            // playback rate
  std::uint32_t model = 0;      // low 16 bits table index, high 16 bits sub-model
  std::uint32_t serial = 0;
  std::uint32_t mosaic = 0;     // 1: one plane of a colour sensor's mosaic, of bits / 3 depth
  std::uint32_t mosaicOrder = 0;
  std::uint32_t marker = 1;
  std::uint32_t palette[256] = {};  // entry i: bytes i, i, i, 1 (blue, green, red, flag)
};

static_assert(sizeof(FrameHeader) == kFrameHeaderSize);
static_assert(offsetof(FrameHeader, size) == 0);
static_assert(offsetof(FrameHeader, width) == 4);
static_assert(offsetof(FrameHeader, height) == 8);
static_assert(offsetof(FrameHeader, bits) == 12);
static_assert(offsetof(FrameHeader, colorKind) == 16);
static_assert(offsetof(FrameHeader, reserved) == 20);
static_assert(offsetof(FrameHeader, rate) == 24);
static_assert(offsetof(FrameHeader, model) == 28);
static_assert(offsetof(FrameHeader, serial) == 32);
static_assert(offsetof(FrameHeader, mosaic) == 36);
static_assert(offsetof(FrameHeader, mosaicOrder) == 40);
static_assert(offsetof(FrameHeader, marker) == 44);
static_assert(offsetof(FrameHeader, palette) == 48);

// The palette that the frame step puts into every header: grey ramp.
void FillGreyPalette(FrameHeader& header);

// The library's description of an image file: the layout of FrameHeader, with
// colorKind 3 (grey) or 4 (colour) for an image that has an alpha plane. `bits`
// counts the colour channels only.
struct ImageInfo : FrameHeader {};
static_assert(sizeof(ImageInfo) == kFrameHeaderSize);
static_assert(offsetof(ImageInfo, colorKind) == 16);
static_assert(offsetof(ImageInfo, palette) == 48);

// What the recording tells about a frame beyond its pixels, for the formats
// that have a place for it (DNG's capture tags, a TIFF's date, a Chapter 10
// file's clock and setup record). Handed over per output with SetCaptureInfo
// before the frame it describes; a file written without it keeps what the
// frame header and block say. Times are microseconds since 1970-01-01 00:00 of
// the time's own calendar: the time code's or the recording's, in whatever
// zone the camera kept it, never converted.
constexpr std::uint32_t kCaptureInfoSize = 128;

enum class CaptureTime : std::uint32_t {
  kUnknown = 0,
  kTimeCode = 1,        // the frame's time block, from a time-code receiver
  kCameraClock = 2,     // the frame's time block, from the camera's own clock
  kRecordingClock = 3,  // the recording's start plus the frame's place in it
};

struct CaptureInfo {
  std::uint32_t size = kCaptureInfoSize;
  CaptureTime timeSource = CaptureTime::kUnknown;
  std::int64_t timeMicroseconds = 0;
  double recordingRate = 0;      // frames a second at which the camera recorded; 0 unknown
  std::uint32_t exposureNs = 0;  // 0 unknown
  std::int32_t frameNumber = 0;  // from the trigger, negative before it
  char model[64] = {};           // the camera's model text
  char serial[32] = {};          // the serial number as the suite shows it
};

static_assert(sizeof(CaptureInfo) == kCaptureInfoSize);
static_assert(offsetof(CaptureInfo, timeSource) == 4);
static_assert(offsetof(CaptureInfo, timeMicroseconds) == 8);
static_assert(offsetof(CaptureInfo, recordingRate) == 16);
static_assert(offsetof(CaptureInfo, exposureNs) == 24);
static_assert(offsetof(CaptureInfo, frameNumber) == 28);
static_assert(offsetof(CaptureInfo, model) == 32);
static_assert(offsetof(CaptureInfo, serial) == 96);

// Options of one file type, and one entry of a compressor list.
struct CodecEntry {
  std::uint32_t size = kFrameOptionsSize;
  std::uint32_t reserved = 0;
  std::uint32_t handler = 0;   // compressor or variant number
  std::uint32_t flags = 0;     // in a list: bit 0 has a quality, bit 1 has a configuration dialog
  std::uint32_t quality = 0;   // 0 to 10000
  std::uint32_t reserved2 = 0;
  char name[128] = {};
};
using FrameOptions = CodecEntry;

constexpr std::uint32_t kCodecHasQuality = 1;
constexpr std::uint32_t kCodecHasDialog = 2;

static_assert(sizeof(CodecEntry) == kFrameOptionsSize);
static_assert(offsetof(CodecEntry, reserved) == 4);
static_assert(offsetof(CodecEntry, handler) == 8);
static_assert(offsetof(CodecEntry, flags) == 12);
static_assert(offsetof(CodecEntry, quality) == 16);
static_assert(offsetof(CodecEntry, reserved2) == 20);
static_assert(offsetof(CodecEntry, name) == 24);

}  // namespace tarnvel
