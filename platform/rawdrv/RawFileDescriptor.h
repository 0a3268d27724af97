// rawfile.xml: the descriptor of a recording's raw store.
//
// Plain text, one element a line, no XML declaration; a file may hold several
// "<RawFile>" blocks. Block 0 describes the image store.
#pragma once

#include <cstdint>

#include "platform/cordage/TextField.h"

namespace tarnvel {

inline constexpr const char* kRawFileSignature = "OKN Fathom Bureau Raw Ini File V 2.00";
inline constexpr const char* kRawFileDescriptorName = "rawfile.xml";

struct RawFileInfo {
  std::uint32_t HeaderOffset;      // bytes in front of the first frame
  std::uint32_t FrameSize;         // bytes of a frame record
  std::uint32_t FrameCount;        // frames of the recording
  std::uint32_t FramesPerSegment;  // frames in one file of a segmented store
  std::uint32_t PixelDepth;        // bits per pixel
  std::int32_t PreTrigger;         // frames before the trigger, -1 when unknown
  std::uint32_t CalibrationType;   // 0 none, 1 black offsets
  std::uint32_t MulFirstFrame;
  std::uint32_t VolumesCount;
  std::uint32_t ThreadsPerVolume;
  std::uint32_t Boards;
  char Volumes[8];  // drive letters of the volumes, terminated
};

// `rawPath` is the raw file's path without extension ('/' or '\' separated);
// the descriptor goes to rawfile.xml beside it, with the image name
// "<stem>.00.raw" when the store is split into segments (FramesPerSegment
// below FrameCount, or `segmented`), else "<stem>.raw", and "<stem>.cal".
// Returns 1 when the file was written, 0 when the path has no separator or
// the file can't be written.
int WriteRawFileInfo(const char* rawPath, const RawFileInfo& info, bool segmented);

// Fills `info` from block `blockIndex` (from 0); elements the block lacks keep
// their defaults (PreTrigger -1, ThreadsPerVolume 1, all else 0). Returns 1
// when the file opens and its first line holds "<RawFile>", else 0.
int ReadRawFileInfo(const char* path, std::uint32_t blockIndex, RawFileInfo* info);

// The image and calibration names of block 0 and the image name of block 1,
// each into a buffer of kPathField characters (empty when absent). Returns 1
// when the file's signature is right (case ignored), else 0.
int ReadRawFileNames(const char* path, char* imageName, char* secondImageName, char* calName);

}  // namespace tarnvel
