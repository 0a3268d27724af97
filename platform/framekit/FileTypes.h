// The table of file types: number, text, extension, capabilities and writer.
#pragma once

#include <cstdint>
#include <span>
#include <string_view>

#include "platform/framekit/FrameWriter.h"

namespace tarnvel::framekit {

// Capability bits, one per query code (bit code - 1).
constexpr std::uint32_t kOffered = 1u << 0;
constexpr std::uint32_t kMultiFrame = 1u << 1;
constexpr std::uint32_t kDeep = 1u << 2;
constexpr std::uint32_t kCodecDialog = 1u << 3;
constexpr std::uint32_t kMosaic = 1u << 4;
constexpr std::uint32_t kPlaybackRate = 1u << 5;

struct FileTypeRow {
  int number;
  int stringId;
  const char* text;
  const char* extension;
  std::uint32_t capabilities;
  WriterFactory writer;  // null: the type is not available in this build
};

// In the order in which the options dialog offers them.
std::span<const FileTypeRow> FileTypes();
const FileTypeRow* FindFileType(int number);
// By extension, without regard to case; null when none matches.
const FileTypeRow* FindFileTypeByExtension(std::string_view extension);

inline bool Has(const FileTypeRow& row, std::uint32_t capability) {
  return (row.capabilities & capability) != 0;
}

}  // namespace tarnvel::framekit

namespace tarnvel::framekit {

// The options in force for a type (SetOptions, else the library's default).
FrameOptions OptionsInForce(int fileType);

// TIFF compression numbers double as the handlers of the multipage type's compressors.
constexpr std::uint32_t kTiffNoCompression = 1;
constexpr std::uint32_t kTiffLzw = 5;
constexpr std::uint32_t kTiffDeflate = 8;
constexpr std::uint32_t kTiffPackBits = 32773;
constexpr std::uint32_t kDefaultJpegQuality = 9000;

}  // namespace tarnvel::framekit
