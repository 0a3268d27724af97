// The engine's side of the image library: the codec settings a file type
// takes, as the options its outputs open with.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/JobOverrides.h"
#include "platform/framekit/FrameHeader.h"

namespace tarnvel {

// The part of `codec` that a type uses, as the library's options record, by
// the codec setting its descriptor names: the companion movie's type its
// handler, quality and name; JPEG the quality; QuickTime, MPEG (and MP4 with
// it) and multipage TIFF their compressors. `options` starts cleared with its
// size set; the result is false for the types that take nothing (and those
// the library does not know).
bool CodecOptionsOf(std::int32_t type, const CodecSettings& codec, FrameOptions& options);
// The reverse, for a compressor chosen in a record of the same layout: the
// fields that `type` uses go back into `codec`; other types take nothing.
bool TakeCodecOptions(std::int32_t type, const FrameOptions& options, CodecSettings& codec);

// Hands the options of `codec` for `type` to the library as the options in
// force for the type whose options choose for it (MPEG's for MP4), and
// returns them (the type's default when the library refuses them), for the
// job to open its outputs with. A type that takes nothing: no call, no options.
std::optional<FrameOptions> ApplyCodec(std::int32_t type, const CodecSettings& codec);

}  // namespace tarnvel
