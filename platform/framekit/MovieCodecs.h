// The compressors of the movie types (AVI, MPEG, MP4, QuickTime, Windows
// Media), as the codec list shows them and the movie writer uses them.
#pragma once

#include <cstdint>
#include <vector>

#include "platform/framekit/FrameHeader.h"

namespace tarnvel::framekit {

// Handlers are four-character codes read as little-endian numbers, so a
// handler stays the same number in every build and names its encoder.
constexpr std::uint32_t FourCc(const char (&code)[5]) {
  return std::uint32_t(std::uint8_t(code[0])) | std::uint32_t(std::uint8_t(code[1])) << 8 |
         std::uint32_t(std::uint8_t(code[2])) << 16 | std::uint32_t(std::uint8_t(code[3])) << 24;
}

constexpr std::uint32_t kMovieRaw = FourCc("DIB ");
constexpr std::uint32_t kMovieMotionJpeg = FourCc("MJPG");
constexpr std::uint32_t kMovieFfv1 = FourCc("FFV1");
constexpr std::uint32_t kMovieH264 = FourCc("H264");
constexpr std::uint32_t kMovieH264Fast = FourCc("X264");
constexpr std::uint32_t kMovieMpeg1 = FourCc("MPG1");
constexpr std::uint32_t kMovieMpeg2 = FourCc("MPG2");
constexpr std::uint32_t kMovieProRes = FourCc("APCN");
constexpr std::uint32_t kMovieWmv = FourCc("WMV2");

// Whether a type is written by the movie writer.
bool IsMovieType(int fileType);
// The compressors of a movie type, in the order the list shows them; `reserved`
// holds the type. Empty for other types.
std::vector<CodecEntry> MovieCodecList(int fileType);
// Whether `handler` names one of the type's compressors; 0 always does (the default).
bool MovieHandlerKnown(int fileType, std::uint32_t handler);
// The options a movie type has before any SetOptions: handler 0 (the default
// compressor) and, for AVI, a quality.
FrameOptions MovieDefaultOptions(int fileType);

}  // namespace tarnvel::framekit
