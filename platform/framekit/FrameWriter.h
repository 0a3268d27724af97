// The one interface behind which every file type's writer sits. A writer is
// made when its output opens, gets the frames in order, and is finished once:
// after the file's last frame, or when the output closes early. A movie or
// packet-stream writer fits the same shape: it keeps its encoder between frames.
#pragma once

#include <cstdint>
#include <memory>
#include <string>

#include "platform/framekit/FrameHeader.h"

namespace tarnvel::framekit {

struct FileTypeRow;

struct FrameData {
  std::uint32_t index = 0;
  std::uint32_t total = 0;
  const FrameHeader* header = nullptr;  // checked: size, geometry and a depth the type takes
  const std::uint8_t* metadata = nullptr;  // 1024 bytes, or null
  const std::uint8_t* pixels = nullptr;
  const CaptureInfo* capture = nullptr;  // what SetCaptureInfo last gave, or null
};

class FrameWriter {
 public:
  virtual ~FrameWriter() = default;
  // Writes one frame; returns 0 or a FrameKit result.
  virtual int Write(const FrameData& frame) = 0;
  // Ends the file (trailers, counts, close); returns 0 or a FrameKit result.
  virtual int Finish() = 0;
};

// Takes ownership of `fd`, a freshly created file at `path`. Returns null and
// sets *result when the writer cannot start.
using WriterFactory = std::unique_ptr<FrameWriter> (*)(int fd, const std::string& path,
                                                        const FileTypeRow& type, int* result);

std::unique_ptr<FrameWriter> CreateTiffWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateBmpWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateJpegWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreatePngWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateDpxWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateTgaWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateContainerWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateMovieWriter(int, const std::string&, const FileTypeRow&, int*);
std::unique_ptr<FrameWriter> CreateChapter10Writer(int, const std::string&, const FileTypeRow&, int*);

}  // namespace tarnvel::framekit
