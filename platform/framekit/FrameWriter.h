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

struct FileTypeDescriptor;

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

// What a writer starts from: `fd`, a freshly created file at `path` (the
// writer takes ownership), its type, and the options the output was opened
// with, which the writer keeps: it never asks for the options in force later.
struct WriterStart {
  int fd;
  const std::string& path;
  const FileTypeDescriptor& type;
  const FrameOptions& options;
};

// Returns null and sets *result when the writer cannot start.
using WriterFactory = std::unique_ptr<FrameWriter> (*)(const WriterStart& start, int* result);

std::unique_ptr<FrameWriter> CreateTiffWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreatePageTiffWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateDngWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateBmpWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateJpegWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreatePngWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateDpxWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateTgaWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateContainerWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateMovieWriter(const WriterStart&, int*);
std::unique_ptr<FrameWriter> CreateChapter10Writer(const WriterStart&, int*);

}  // namespace tarnvel::framekit
