// One descriptor per file type: every fact that the engine and the image
// library ask about a type lives in its row of the table, and nothing else
// tells types apart by their numbers.
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

// What frames a type takes from the raw source.
enum class FrameSource {
  kProcessed,     // processed frames with their burn-ins (a mosaic type with a colour source gets the mosaic)
  kColourPlane,   // from a colour source the sensor's plane, unprocessed: no bars, overlay or plot
  kColourPlaneInRoom,  // the same, in a frame that keeps the rows of bars and plot (left empty)
  kRawFrame,      // always the sensor's plane, unprocessed, from every source
};

// Where a frame's 1024-byte metadata block goes.
enum class MetadataPlacement {
  kBeside,           // handed to the writer beside the pixels
  kInPixelsBigEndian,  // behind the 8-bit pixels in the same buffer, in big-endian order
  kGevsBlock,        // the GEVS block takes the metadata block's place
};

// Which of a job's codec settings a type takes (the engine holds them).
enum class CodecSetting {
  kNone,
  kCompressorAndQuality,  // compressor, quality and name: the companion movie's type
  kJpegQuality,
  kQuickTimeCompressor,
  kMpegCompressor,
  kPageCompression,
};

// The suite's container layouts (docs/containers.md).
struct ContainerFormat {
  char magic[8];
  bool compressed;     // pixels row-delta coded and deflated
  bool blockInPixels;  // the block comes behind the pixels in the frame's buffer
};

// The movie types written through FFmpeg.
struct MovieFormat {
  const char* muxer;
  bool qualityFromOptions;  // else the encoders run at a fixed quality
  // Written as fragments, each with its own index, so a file cut short (a
  // full disk, a crash) still plays up to its last fragment.
  bool fragmented;
};

struct FileTypeDescriptor {
  int number;
  int stringId;
  const char* text;
  const char* extension;
  std::uint32_t capabilities;
  FrameSource source;
  MetadataPlacement metadata;
  std::uint8_t metadataFormatCode;  // the file format the metadata block names
  bool companionMovie;              // the type of the companion movie
  CodecSetting codecSetting;
  int optionsType;                      // the type whose options choose for this one
  std::span<const CodecEntry> codecs;   // the compressors the codec dialog lists; the first is the default
  WriterFactory writer;                 // null: the type is not available in this build
  const ContainerFormat* container = nullptr;
  const MovieFormat* movie = nullptr;
};

// In the order in which the options dialog offers them.
std::span<const FileTypeDescriptor> FileTypes();
const FileTypeDescriptor* FindFileType(int number);
// By extension, without regard to case; null when none matches.
const FileTypeDescriptor* FindFileTypeByExtension(std::string_view extension);
// The type that a recording without a valid type falls back to: the first.
const FileTypeDescriptor& FallbackFileType();
// The type of the companion movie.
const FileTypeDescriptor& CompanionMovieType();

inline bool Has(const FileTypeDescriptor& type, std::uint32_t capability) {
  return (type.capabilities & capability) != 0;
}

// The options a type has before any SetOptions: the first compressor of its
// list (handler 0, the default, for the movie types), or none.
FrameOptions DefaultOptions(const FileTypeDescriptor& type);
// The options in force for a type (SetOptions, else the default).
FrameOptions OptionsInForce(int fileType);
// Whether the options of `optionsType` may name `handler`: a type that
// chooses among compressors takes those that a type with these options lists
// (and 0, the default, for a movie type); other types take any handler.
bool HandlerKnown(int optionsType, std::uint32_t handler);

// TIFF compression numbers double as the handlers of the multipage type's compressors.
constexpr std::uint32_t kTiffNoCompression = 1;
constexpr std::uint32_t kTiffLzw = 5;
constexpr std::uint32_t kTiffDeflate = 8;
constexpr std::uint32_t kTiffPackBits = 32773;
constexpr std::uint32_t kDefaultJpegQuality = 9000;
constexpr std::uint32_t kDefaultAviQuality = 9000;

}  // namespace tarnvel::framekit
