// The engine's side of the image library: codec settings handed over per
// file type.
#pragma once

#include <cstdint>

#include "engine/JobOverrides.h"
#include "platform/framekit/FrameHeader.h"

namespace tarnvel {

// File types the engine treats apart.
constexpr std::int32_t kTypeTiff = 1;
constexpr std::int32_t kTypeJpeg = 3;
constexpr std::int32_t kTypeTp2 = 5;
constexpr std::int32_t kTypeFba = 6;
constexpr std::int32_t kTypeMultipageTiff = 11;
constexpr std::int32_t kTypeMrf = 12;
constexpr std::int32_t kTypeAvi = 13;
constexpr std::int32_t kTypeMcf = 14;
constexpr std::int32_t kTypeMpeg = 16;
constexpr std::int32_t kTypeMp4 = 18;
constexpr std::int32_t kTypeQuickTime = 20;
constexpr std::int32_t kTypeT2c = 21;
constexpr std::int32_t kTypeChapter10 = 34;

// Raw frame files: read as a mosaic, the block joined to the pixels.
inline bool RawFrameType(std::int32_t type) { return type == kTypeTp2 || type == kTypeT2c; }
// Types whose frames from a colour source pass unprocessed.
inline bool PlainMosaicType(std::int32_t type) {
  return type == kTypeFba || type == kTypeMrf || type == kTypeMcf || type == kTypeChapter10;
}

// The part of `codec` that a type uses, as the library's options record:
// type 13 its handler, quality and name; 3 the JPEG quality; 20 the
// QuickTime codec; 16 and 18 the MPEG codec; 11 the multipage TIFF
// compression. `options` starts cleared with its size set; the result is
// false for the types that take nothing.
bool CodecOptionsOf(std::int32_t type, const CodecSettings& codec, FrameOptions& options);
// The reverse, for a compressor chosen in a record of the same layout: the
// fields that `type` uses go back into `codec`; other types take nothing.
bool TakeCodecOptions(std::int32_t type, const FrameOptions& options, CodecSettings& codec);

// Hands the part of `codec` that a type uses to the library; 16 and 18 both
// set the options of type 16.
void ApplyCodec(std::int32_t type, const CodecSettings& codec);

}  // namespace tarnvel
