#include "platform/framekit/FileTypes.h"

#include <array>

#include "platform/cordage/TextField.h"

namespace tarnvel::framekit {
namespace {

constexpr std::uint32_t kMovie = kOffered | kMultiFrame | kCodecDialog | kPlaybackRate;

// Capabilities: single-image types write one file per frame; the suite's
// containers keep a colour source's mosaic; TP2 and T2C join an 8-bit frame
// and its block in one buffer, so they are never deep. Movies are 8 bits a
// channel. The movie and Chapter 10 writers are not part of this build yet:
// their slot is empty and opening such a file fails with "type not available".
constexpr std::array<FileTypeRow, 20> kTypes{{
    {1, 200, "TIFF File (*.tif)", "tif", kOffered | kDeep, CreateTiffWriter},
    {2, 201, "BITMAP File (*.bmp)", "bmp", kOffered, CreateBmpWriter},
    {3, 202, "JPEG File (*.jpg)", "jpg", kOffered | kCodecDialog, CreateJpegWriter},
    {4, 203, "PNG File (*.png)", "png", kOffered | kDeep, CreatePngWriter},
    {5, 204, "TP2 File (*.tp2)", "tp2", kOffered | kMosaic, CreateContainerWriter},
    {6, 205, "Falcon eXtra File (*.fba)", "fba", kOffered | kMultiFrame | kDeep | kMosaic,
     CreateContainerWriter},
    {7, 206, "Digital Picture Exchange File (*.dpx)", "dpx", kOffered | kDeep, CreateDpxWriter},
    {9, 220, "Truevision TGA (*.tga)", "tga", kOffered, CreateTgaWriter},
    {51, 207, "Digital Negative File (*.dng)", "dng", kOffered | kDeep, CreateTiffWriter},
    {11, 210, "Multipage TIFF File (*.mpt)", "mpt", kOffered | kMultiFrame | kDeep | kCodecDialog,
     CreateTiffWriter},
    {12, 211, "Multipage Bayer File (*.mrf)", "mrf", kOffered | kMultiFrame | kDeep | kMosaic,
     CreateContainerWriter},
    {14, 213, "Multipage Compressed File (*.mcf)", "mcf", kOffered | kMultiFrame | kDeep | kMosaic,
     CreateContainerWriter},
    {13, 216, "Audio Video Interleaved - AVI (*.avi)", "avi", kMovie, nullptr},
    {15, 214, "Weinberger Sequence File (*.bld)", "bld", kOffered | kMultiFrame | kDeep,
     CreateContainerWriter},
    {16, 215, "Moving Picture Experts Group (*.mpg)", "mpg", kMovie, nullptr},
    {18, 217, "H.264 MPEG (*.mp4)", "mp4", kMovie, nullptr},
    {20, 218, "Apple Quick Time (*.mov)", "mov", kMovie, nullptr},
    {17, 222, "Windows Media Video 9 File (*.wmv)", "wmv", kOffered | kMultiFrame | kPlaybackRate,
     nullptr},
    {34, 221, "IRIG 106 Chapter 10 File (*.ch10)", "ch10", kOffered | kMultiFrame | kDeep | kMosaic,
     nullptr},
    {21, 219, "Type-2 Continuous (*.t2c)", "t2c", kOffered | kMultiFrame | kMosaic,
     CreateContainerWriter},
}};

}  // namespace

std::span<const FileTypeRow> FileTypes() { return kTypes; }

const FileTypeRow* FindFileType(int number) {
  for (const auto& row : kTypes)
    if (row.number == number) return &row;
  return nullptr;
}

const FileTypeRow* FindFileTypeByExtension(std::string_view extension) {
  for (const auto& row : kTypes)
    if (EqualsNoCase(row.extension, extension)) return &row;
  return nullptr;
}

}  // namespace tarnvel::framekit
