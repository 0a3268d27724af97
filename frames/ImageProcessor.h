// The per-job pixel engine: the frame's geometry, the maps of the last point
// operations and the scratch buffer of the depth conversion. A pointer that
// ConvertDepth returns into the scratch buffer is valid until its next
// call. One processor belongs to one job's worker thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "frames/ImageOps.h"
#include "frames/primitives/SampleMap.h"

namespace tarnvel {

enum class RankKind { Median, Minimum, Maximum };

class ImageProcessor {
 public:
  // 256 by 256 at depth 8, no scratch buffer.
  ImageProcessor();
  ImageProcessor(const ImageProcessor&) = delete;
  ImageProcessor& operator=(const ImageProcessor&) = delete;

  // Frame size = width * bytes a pixel of the depth * height.
  void SetGeometry(std::uint32_t width, std::uint32_t height, std::uint32_t depth);
  std::uint32_t Width() const { return width_; }
  std::uint32_t Height() const { return height_; }
  std::uint32_t Depth() const { return depth_; }
  std::size_t FrameSize() const { return frameSize_; }

  // A buffer of at least `size` bytes whose first `size` bytes are zero.
  // The same size keeps the buffer and clears it; another size replaces it
  // (with 4,096 bytes to spare). Null when the memory cannot be had.
  std::uint8_t* EnsureScratch(std::size_t size);
  std::uint8_t* Scratch() const { return scratch_.get(); }
  std::size_t ScratchSize() const { return scratchSize_; }

  // Runs one item of the chain on `frame` (Frame size bytes in the
  // processor's geometry), in place. Unknown codes and ImgOpDisabled do nothing.
  void Apply(const ImageOpItem& item, std::uint8_t* frame);

  // Neighbourhood operations, in place: the result, or the zeros of a
  // refused filter, replaces the frame.
  void Convolve(const ConvolutionFilter& filter, std::uint8_t* frame);
  void RankFilter(RankKind kind, std::int32_t maskSize, std::uint8_t* frame);

  // Depth conversion by shifts and saturation. `destination` null: the
  // result goes to the scratch buffer. Equal depths return `source` when
  // `destination` is null, else copy Frame size bytes to it.
  std::uint8_t* ConvertDepth(std::uint32_t sourceDepth, std::uint32_t targetDepth, std::uint32_t bitRange,
                             std::uint32_t width, std::uint32_t height, const std::uint8_t* source,
                             std::uint8_t* destination);

  // destination = source + background / 4 per value, limited to the full
  // scale (255 at depths 8 and 24). The three buffers have the processor's geometry.
  void AddBackground(const std::uint8_t* source, const std::uint8_t* background, std::uint8_t* destination);

  // Measuring aids on the whole buffer (top bar included); `top` and
  // `bottom` bound the picture's rows in it. `color` is a table word: red in
  // bits 0-7, green 8-15, blue 16-23.
  void DrawCross(std::uint8_t* frame, std::int32_t x, std::int32_t y, std::int32_t top, std::int32_t bottom,
                 std::uint32_t color);
  void DrawGrid(std::uint8_t* frame, std::int32_t rows, std::int32_t columns, std::int32_t top, std::int32_t bottom,
                std::uint32_t color);

  // Cubic B-spline resampling at the processor's depth.
  void ScaleFrame(std::uint32_t sourceWidth, std::uint32_t sourceHeight, std::uint32_t destinationWidth,
                  std::uint32_t destinationHeight, const std::uint8_t* source, std::uint8_t* destination);
  // Brings an image of any size and depth to the processor's geometry.
  void FitImage(std::uint32_t width, std::uint32_t height, std::uint32_t depth, const std::uint8_t* source,
                std::uint8_t* destination);

 private:
  void ApplyCode(const ImageOpItem& item, std::uint8_t* frame);
  void BrightnessContrast(std::int32_t brightness, std::int32_t contrast, std::uint8_t* frame);
  void Gamma(std::int32_t gammaTimes1000, std::uint8_t* frame);
  // Maps the frame through the table that `entry` gives for 0..full scale,
  // built once for the item's code, values and the depth.
  template <class Entry>
  void MapThroughTable(const SampleMapCache::Key& key, std::uint8_t* frame, Entry entry);
  void Negative(std::uint8_t* frame);
  void Equalize(std::uint8_t* frame);
  void RowOffset(std::int32_t mode, std::int32_t column, std::uint8_t* frame);

  std::uint32_t width_ = 256;
  std::uint32_t height_ = 256;
  std::uint32_t depth_ = 8;
  std::size_t frameSize_ = 65536;
  SampleMapCache maps_;
  std::unique_ptr<std::uint8_t[]> scratch_;
  std::size_t scratchSize_ = 0;
};

// Runs every item of the list from head to tail on the frame, leaving out
// those of ImgOpDisabled.
void ApplyImageChain(ImageProcessor& processor, const CImageOpList& list, std::uint8_t* frame);

// The colour a marker stores in a pixel of `depth`, channel by channel in
// storage order (blue, green, red for colour; one value for grey).
struct MarkerColor {
  std::uint16_t value[3];
};
MarkerColor MarkerColorFor(std::uint32_t color, std::uint32_t depth);

}  // namespace tarnvel
