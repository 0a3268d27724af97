// Frames of known content, and disks that refuse bytes, for the image library's tests.
#pragma once

#include <array>
#include <cstdint>
#include <functional>
#include <string>
#include <vector>

#include "platform/framekit/FrameKit.h"

namespace tarnvel::test {

struct FrameSpec {
  std::uint32_t width = 0, height = 0, bits = 8;
  bool mosaic = false;
  std::uint32_t mosaicOrder = 0;
  float rate = 250.0f;
};

FrameHeader MakeHeader(const FrameSpec& spec);  // as the frame step fills it
std::size_t FrameBytes(const FrameSpec& spec);  // a mosaic: one plane of bits / 3
// Pixels over the depth's whole range, differing per frame, row, column and channel.
std::vector<std::uint8_t> PatternFrame(const FrameSpec& spec, std::uint32_t frame);
// A metadata block that names its frame, so that blocks cannot be mixed up;
// its frame index is big-endian for the types that store the block so (5, 21).
std::array<std::uint8_t, kMetadataBlockSize> PatternBlock(std::uint32_t frame, bool bigEndian = false);
// Whether a path's type joins a big-endian block to its pixels (TP2, T2C).
bool JoinsBlock(const std::string& path);

// Writes `frames` frames of the pattern (and blocks) to `path`; the first failing result or 0.
int WritePatternFile(const std::string& path, const FrameSpec& spec, std::uint32_t frames, bool withBlocks = true);

// Runs `write` as on a disk that fills up after `bytes` bytes of any one file (a
// file-size limit fails writes past it as a full disk does, without privileges).
int WriteWithSizeLimit(std::uintmax_t bytes, const std::function<int()>& write);
// Makes `path` a link to /dev/full, which accepts the open and refuses every byte
// with "no space left"; false where the system has no /dev/full.
bool LinkToFullDevice(const std::string& path);

std::string InspectProgram();  // the built tarnvel-inspect
int RunPython(const std::string& script, std::string* output);  // /usr/bin/python3: exit status, output

}  // namespace tarnvel::test
