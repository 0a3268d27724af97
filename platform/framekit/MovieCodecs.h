// The handlers of the movie types' compressors (AVI, MPEG, MP4, QuickTime,
// Windows Media): the descriptors list them, the movie writer drives them.
#pragma once

#include <cstdint>

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

}  // namespace tarnvel::framekit
