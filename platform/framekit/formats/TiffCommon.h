// What the TIFF-based writers (TIFF, multipage TIFF, DNG) share: the private
// metadata tag, quiet error handling, and writing one frame as one directory.
#pragma once

#include <cstdint>
#include <tiffio.h>

#include "platform/framekit/FrameWriter.h"

namespace tarnvel::framekit {

// The frame's 1024-byte block: private tag, type UNDEFINED, count 1024.
constexpr ttag_t kMetadataTag = 65001;

// Once per process: register the private tag and silence libtiff's printing.
void PrepareTiffLibrary();

struct TiffImageOptions {
  std::uint16_t compression = COMPRESSION_NONE;
  bool page = false;  // a page of a multipage file: subfile type and page number
  bool linearRaw = false;  // DNG: photometric LinearRaw, white level instead of max sample value
};

// Writes the frame as the current directory and closes the directory: the
// pixels, the block, and what the capture record tells (camera and date; for
// a DNG also serial, frame rate and an EXIF directory with the capture date
// and exposure). Returns 0 or a FrameKit result.
int WriteTiffImage(TIFF* tif, const FrameData& frame, const TiffImageOptions& options);

// Opens libtiff on a created file: BigTIFF when the estimated size would pass 4 GiB.
TIFF* OpenTiffOnDescriptor(int fd, const char* path, std::uint64_t estimatedBytes);

// After a failed write: cuts the directory chain of the file behind the last
// directory that lies whole in the file with its strips, so that readers see
// the pages written before the failure; a file without such a directory is
// emptied. False when the file could not be mended.
bool EndTiffAtLastWholeDirectory(int fd);

}  // namespace tarnvel::framekit
