// A writer of raw stores made from the store's format description alone, byte
// by byte, without the project's own format code: the independent oracle of
// the driver tests.
#pragma once

#include <cstdint>
#include <functional>
#include <string>
#include <vector>

namespace tarnvel::test {

struct StoreSpec {
  std::uint32_t width = 8, height = 6, bits = 12, packing = 0;
  bool colour = false;
  std::uint32_t order = 0, rotation = 0, black = 0;
  float gains[3] = {0, 0, 0};
  std::uint32_t frames = 3, framesPerSegment = 0;
  std::uint32_t headerBytes = 256, trailerBytes = 48, trailerFlags = 0, padding = 0;
  std::vector<std::uint16_t> calibration;  // empty: CalibrationType 0
  std::uint32_t modelIndex = 1, subModel = 0, serial = 0, network = 0, exposure = 0, period = 0;
  std::uint32_t sizeFactor = 0, suffix = 0, six = 0, value14 = 0, value15 = 0;
  std::string modelText = "Model";
  std::string imageName;  // default: "img.raw", or "img.00.raw" when segmented
  std::int32_t descriptorDepth = -1;  // -1: the right depth
};

std::uint32_t Depth(const StoreSpec& spec);
std::uint64_t Payload(const StoreSpec& spec);
std::uint32_t RecordBytes(const StoreSpec& spec);

// Samples of sensor frame i, row after row.
using SampleSource = std::function<std::vector<std::uint16_t>(std::uint32_t)>;
// Trailer bytes beyond the 48-byte head, filled per frame (may be empty).
using TrailerSource = std::function<void(std::uint32_t index, std::vector<std::uint8_t>& trailer)>;

// Writes rawfile.xml, the store (segments as asked) and the calibration file.
void WriteIndependentStore(const std::string& folder, const StoreSpec& spec, const SampleSource& samples,
                           const TrailerSource& trailer = nullptr);

// Packs samples as the format says, bit by bit.
std::vector<std::uint8_t> PackIndependently(const std::vector<std::uint16_t>& samples, std::uint32_t bits,
                                            std::uint32_t packing);

}  // namespace tarnvel::test
