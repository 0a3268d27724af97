#include "platform/framekit/FileTypes.h"

#include <algorithm>
#include <array>

#include "platform/cordage/TextField.h"
#include "platform/framekit/MovieCodecs.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint32_t kMovie = kOffered | kMultiFrame | kCodecDialog | kPlaybackRate;

constexpr CodecEntry Codec(std::uint32_t handler, std::uint32_t flags, std::uint32_t quality, const char* name) {
  CodecEntry entry;
  entry.handler = handler;
  entry.flags = flags;
  entry.quality = quality;
  for (std::size_t i = 0; name[i] != '\0' && i + 1 < sizeof entry.name; ++i) entry.name[i] = name[i];
  return entry;
}

// Names of the movie compressors, as every list shows them.
constexpr const char* kMotionJpeg = "Motion JPEG";
constexpr const char* kH264 = "H.264 (x264, preset medium)";
constexpr const char* kH264Fast = "H.264 (x264, preset ultrafast)";
constexpr const char* kMpeg1 = "MPEG-1 video";
constexpr const char* kMpeg2 = "MPEG-2 video";

constexpr CodecEntry kJpegCodecs[] = {Codec(0, kCodecHasQuality, kDefaultJpegQuality, "JPEG baseline (libjpeg-turbo)")};
constexpr CodecEntry kPageCodecs[] = {Codec(kTiffNoCompression, 0, 0, "Uncompressed"), Codec(kTiffLzw, 0, 0, "LZW"),
                                      Codec(kTiffDeflate, 0, 0, "Deflate (zip)"), Codec(kTiffPackBits, 0, 0, "PackBits")};
// Only AVI takes a quality from its options; the other movie types run at a fixed one.
constexpr CodecEntry kAviCodecs[] = {Codec(kMovieMotionJpeg, kCodecHasQuality, kDefaultAviQuality, kMotionJpeg),
                                     Codec(kMovieRaw, 0, 0, "Uncompressed (24-bit RGB)"),
                                     Codec(kMovieFfv1, 0, 0, "FFV1 (lossless)"),
                                     Codec(kMovieH264, kCodecHasQuality, kDefaultAviQuality, kH264),
                                     Codec(kMovieH264Fast, kCodecHasQuality, kDefaultAviQuality, kH264Fast)};
constexpr CodecEntry kMpegCodecs[] = {Codec(kMovieMpeg2, 0, 0, kMpeg2), Codec(kMovieMpeg1, 0, 0, kMpeg1),
                                      Codec(kMovieH264, 0, 0, kH264), Codec(kMovieH264Fast, 0, 0, kH264Fast)};
constexpr CodecEntry kMp4Codecs[] = {Codec(kMovieH264, 0, 0, kH264), Codec(kMovieH264Fast, 0, 0, kH264Fast),
                                     Codec(kMovieMpeg2, 0, 0, kMpeg2), Codec(kMovieMpeg1, 0, 0, kMpeg1)};
constexpr CodecEntry kQuickTimeCodecs[] = {Codec(kMovieH264, 0, 0, kH264), Codec(kMovieH264Fast, 0, 0, kH264Fast),
                                           Codec(kMovieMotionJpeg, 0, 0, kMotionJpeg),
                                           Codec(kMovieProRes, 0, 0, "Apple ProRes 422")};
constexpr CodecEntry kWmvCodecs[] = {Codec(kMovieWmv, 0, 0, "Windows Media Video 8")};

constexpr ContainerFormat kTp2{"OKN-TP2", false, true}, kFba{"OKN-FBA", false, false},
    kMrf{"OKN-MRF", false, false}, kMcf{"OKN-MCF", true, false}, kBld{"OKN-BLD", false, false},
    kT2c{"OKN-T2C", false, true};

constexpr MovieFormat kAvi{"avi", true, false}, kMpeg{"mpeg", false, false}, kMp4{"mp4", false, true},
    kQuickTime{"mov", false, true}, kAsf{"asf", false, false};

using enum FrameSource;
using enum MetadataPlacement;
using enum CodecSetting;

// Capabilities: single-image types write one file per frame; the suite's
// containers keep a colour source's mosaic; TP2 and T2C join an 8-bit frame
// and its block in one buffer, so they are never deep. Movies are 8 bits a
// channel; Chapter 10 keeps whatever depth comes, mosaic or not. The metadata
// block names the suite's raw frame files 1, JPEG 2, TIFF 3 and AVI 4.
// clang-format off
constexpr std::array<FileTypeDescriptor, 20> kTypes{{
    {1, 200, "TIFF File (*.tif)", "tif", kOffered | kDeep, kProcessed, kBeside, 3, false, kNone, 1, {}, CreateTiffWriter},
    {2, 201, "BITMAP File (*.bmp)", "bmp", kOffered, kProcessed, kBeside, 0, false, kNone, 2, {}, CreateBmpWriter},
    {3, 202, "JPEG File (*.jpg)", "jpg", kOffered | kCodecDialog, kProcessed, kBeside, 2, false, kJpegQuality, 3,
     kJpegCodecs, CreateJpegWriter},
    {4, 203, "PNG File (*.png)", "png", kOffered | kDeep, kProcessed, kBeside, 0, false, kNone, 4, {}, CreatePngWriter},
    {5, 204, "TP2 File (*.tp2)", "tp2", kOffered | kMosaic, kRawFrame, kInPixelsBigEndian, 1, false, kNone, 5, {},
     CreateContainerWriter, &kTp2},
    {6, 205, "Falcon eXtra File (*.fba)", "fba", kOffered | kMultiFrame | kDeep | kMosaic, kColourPlane, kBeside, 0,
     false, kNone, 6, {}, CreateContainerWriter, &kFba},
    {7, 206, "Digital Picture Exchange File (*.dpx)", "dpx", kOffered | kDeep, kProcessed, kBeside, 0, false, kNone, 7,
     {}, CreateDpxWriter},
    {9, 220, "Truevision TGA (*.tga)", "tga", kOffered, kProcessed, kBeside, 0, false, kNone, 9, {}, CreateTgaWriter},
    {51, 207, "Digital Negative File (*.dng)", "dng", kOffered | kDeep, kProcessed, kBeside, 0, false, kNone, 51, {},
     CreateDngWriter},
    {11, 210, "Multipage TIFF File (*.mpt)", "mpt", kOffered | kMultiFrame | kDeep | kCodecDialog, kProcessed, kBeside,
     3, false, kPageCompression, 11, kPageCodecs, CreatePageTiffWriter},
    {12, 211, "Multipage Bayer File (*.mrf)", "mrf", kOffered | kMultiFrame | kDeep | kMosaic, kColourPlane, kBeside, 0,
     false, kNone, 12, {}, CreateContainerWriter, &kMrf},
    {14, 213, "Multipage Compressed File (*.mcf)", "mcf", kOffered | kMultiFrame | kDeep | kMosaic, kColourPlane,
     kBeside, 0, false, kNone, 14, {}, CreateContainerWriter, &kMcf},
    {13, 216, "Audio Video Interleaved - AVI (*.avi)", "avi", kMovie, kProcessed, kBeside, 4, true,
     kCompressorAndQuality, 13, kAviCodecs, CreateMovieWriter, nullptr, &kAvi},
    {15, 214, "Weinberger Sequence File (*.bld)", "bld", kOffered | kMultiFrame | kDeep, kProcessed, kBeside, 0, false,
     kNone, 15, {}, CreateContainerWriter, &kBld},
    {16, 215, "Moving Picture Experts Group (*.mpg)", "mpg", kMovie, kProcessed, kBeside, 0, false, kMpegCompressor, 16,
     kMpegCodecs, CreateMovieWriter, nullptr, &kMpeg},
    {18, 217, "H.264 MPEG (*.mp4)", "mp4", kMovie, kProcessed, kBeside, 0, false, kMpegCompressor, 16, kMp4Codecs,
     CreateMovieWriter, nullptr, &kMp4},
    {20, 218, "Apple Quick Time (*.mov)", "mov", kMovie, kProcessed, kBeside, 0, false, kQuickTimeCompressor, 20,
     kQuickTimeCodecs, CreateMovieWriter, nullptr, &kQuickTime},
    {17, 222, "Windows Media Video 9 File (*.wmv)", "wmv", kOffered | kMultiFrame | kPlaybackRate, kProcessed, kBeside,
     0, false, kNone, 17, kWmvCodecs, CreateMovieWriter, nullptr, &kAsf},
    {34, 221, "IRIG 106 Chapter 10 File (*.ch10)", "ch10", kOffered | kMultiFrame | kDeep | kMosaic, kColourPlaneInRoom,
     kGevsBlock, 0, false, kNone, 34, {}, CreateChapter10Writer},
    {21, 219, "Type-2 Continuous (*.t2c)", "t2c", kOffered | kMultiFrame | kMosaic, kRawFrame, kInPixelsBigEndian, 1,
     false, kNone, 21, {}, CreateContainerWriter, &kT2c},
}};
// clang-format on

// A type that lists compressors other than the default takes only those.
bool ChoosesCompressor(const FileTypeDescriptor& type) {
  return std::any_of(type.codecs.begin(), type.codecs.end(), [](const CodecEntry& c) { return c.handler != 0; });
}

}  // namespace

std::span<const FileTypeDescriptor> FileTypes() { return kTypes; }

const FileTypeDescriptor* FindFileType(int number) {
  for (const auto& type : kTypes)
    if (type.number == number) return &type;
  return nullptr;
}

const FileTypeDescriptor* FindFileTypeByExtension(std::string_view extension) {
  for (const auto& type : kTypes)
    if (EqualsNoCase(type.extension, extension)) return &type;
  return nullptr;
}

const FileTypeDescriptor& FallbackFileType() { return kTypes.front(); }

const FileTypeDescriptor& CompanionMovieType() {
  return *std::find_if(kTypes.begin(), kTypes.end(), [](const FileTypeDescriptor& t) { return t.companionMovie; });
}

FrameOptions DefaultOptions(const FileTypeDescriptor& type) {
  FrameOptions options;
  if (type.codecs.empty()) return options;
  const CodecEntry& first = type.codecs.front();
  options.handler = type.movie ? 0 : first.handler;  // a movie's handler 0 is its default compressor
  options.quality = first.quality;
  CopyText(options.name, FieldText(first.name));
  return options;
}

bool HandlerKnown(int optionsType, std::uint32_t handler) {
  bool choosing = false;
  for (const auto& type : kTypes) {
    if (type.optionsType != optionsType || !ChoosesCompressor(type)) continue;
    choosing = true;
    if (type.movie && handler == 0) return true;  // the movie's default compressor
    for (const CodecEntry& codec : type.codecs)
      if (codec.handler == handler) return true;
  }
  return !choosing;
}

}  // namespace tarnvel::framekit
