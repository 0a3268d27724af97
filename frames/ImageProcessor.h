// The per-job pixel engine and the frame operations around it. Every
// operation reads the view it is given and writes a view that the caller
// owns: nothing returns a pointer into memory of the engine.
//
// ImageProcessor holds what the chain's operations need between two calls
// and nothing of the frames themselves: the maps of the last point
// operations. One processor belongs to one job's worker thread.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <vector>

#include "frames/ImageOps.h"
#include "frames/primitives/SampleMap.h"
#include "platform/pixels/ImageView.h"

namespace tarnvel {

enum class RankKind { Median, Minimum, Maximum };

class ImageProcessor {
 public:
  ImageProcessor();
  ImageProcessor(const ImageProcessor&) = delete;
  ImageProcessor& operator=(const ImageProcessor&) = delete;

  // Runs one item of the chain on `frame`, in place. The chain works on
  // tightly packed frames; a view with padded rows is refused (false), as is
  // an empty one. Unknown codes and ImgOpDisabled do nothing.
  bool Apply(const ImageOpItem& item, ImageView frame);

  // Neighbourhood operations, in place: the result, or the zeros of a
  // refused filter, replaces the frame.
  void Convolve(const ConvolutionFilter& filter, ImageView frame);
  void RankFilter(RankKind kind, std::int32_t maskSize, ImageView frame);

 private:
  // The frame of the operation under way, and a view of it again.
  void Bind(const ImageView& frame);
  ImageView Bound(std::uint8_t* data) const { return PackedView(data, width_, height_, depth_); }
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

  // The frame of the operation under way (set by Bind).
  std::uint32_t width_ = 0;
  std::uint32_t height_ = 0;
  std::uint32_t depth_ = 8;
  std::size_t frameSize_ = 0;
  SampleMapCache maps_;
};

// Runs every item of the list from head to tail on the frame, leaving out
// those of ImgOpDisabled.
void ApplyImageChain(ImageProcessor& processor, const CImageOpList& list, ImageView frame);

// Depth conversion by shifts and saturation, from the source's depth to the
// destination's: both views have one size. Equal depths copy. False, with
// nothing written, when the sizes differ or a view is empty.
bool ConvertDepth(ConstImageView source, ImageView destination, std::uint32_t bitRange);

// destination = source + background / 4 per value, limited to the full
// scale (255 at depths 8 and 24); without a background (empty view) a plain
// copy. All three views have one size and depth; false, with nothing
// written, when they do not.
bool AddBackground(ConstImageView source, ConstImageView background, ImageView destination);

// Measuring aids on the whole buffer (top bar included); `top` and `bottom`
// bound the picture's rows in it. Row numbers of horizontal lines count from
// the top of the buffer; a grid's cells divide the picture's height. `color`
// is a table word: red in bits 0-7, green 8-15, blue 16-23. Nothing is
// written outside the buffer, whatever the numbers.
void DrawCross(ImageView buffer, std::int32_t x, std::int32_t y, std::int32_t top, std::int32_t bottom,
               std::uint32_t color);
void DrawGrid(ImageView buffer, std::int32_t rows, std::int32_t columns, std::int32_t top, std::int32_t bottom,
              std::uint32_t color);

// Cubic B-spline resampling of `source` onto the size of `destination`;
// both have one depth.
void ScaleFrame(ConstImageView source, ImageView destination);
// Brings an image of any size and depth to the size and depth of
// `destination`: converted first (bit range 0), then scaled when the sizes differ.
void FitImage(ConstImageView source, ImageView destination);

// The colour a marker stores in a pixel of `depth`, channel by channel in
// storage order (blue, green, red for colour; one value for grey).
struct MarkerColor {
  std::uint16_t value[3];
};
MarkerColor MarkerColorFor(std::uint32_t color, std::uint32_t depth);

}  // namespace tarnvel
