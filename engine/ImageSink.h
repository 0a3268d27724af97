// The engine's side of the image library: the codec settings a file type
// takes, as the options its outputs open with.
#pragma once

#include <cstdint>
#include <optional>

#include "engine/JobOverrides.h"
#include "platform/framekit/FileTypes.h"

namespace tarnvel {

// The options that the codec settings give a type, by the setting its
// descriptor names: the companion movie's type takes handler, quality and
// name; JPEG its quality; QuickTime, MPEG (MP4 with it) and multipage TIFF
// their compressors. None for other types.
std::optional<FrameOptions> OptionsFromCodec(const framekit::FileTypeDescriptor& type, const CodecSettings& codec);

// Hands the options of `codec` for type `fileType` to the library as the
// options in force for the type whose options choose for it, and returns
// them (the type's default when the library refuses them), for the job to
// open its outputs with. A type without codec settings (or one the library
// does not know) takes nothing: no call, no options.
std::optional<FrameOptions> ApplyCodec(std::int32_t fileType, const CodecSettings& codec);

}  // namespace tarnvel
