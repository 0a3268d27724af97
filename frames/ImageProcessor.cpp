#include "frames/ImageProcessor.h"

#include <algorithm>
#include <cmath>
#include <cstring>
#include <limits>
#include <new>

#include "frames/primitives/Neighbourhood.h"
#include "frames/primitives/PixelOps.h"

namespace tarnvel {
namespace {

constexpr std::size_t kLookupWords = 262144 / 2;
// The reference of a row offset never exceeds this, whatever the depth.
constexpr std::uint32_t kRowOffsetCeiling = 1000;

bool EightBitSamples(std::uint32_t depth) { return SampleBytesOf(LayoutOfDepth(depth)) == 1; }

// Subtracts each row's reference from the row: its smallest value, never
// above kRowOffsetCeiling, for mode 0, else the value at `column` (a column
// outside the row leaves the row as it is).
template <class T>
TARNVEL_VECTOR_CLONES void OffsetRows(T* samples, std::size_t width, std::size_t height, std::int32_t mode,
                                      std::int32_t column) {
  for (std::size_t y = 0; y < height; ++y) {
    T* row = samples + y * width;
    T reference;
    if (mode == 0) {
      reference = static_cast<T>(std::min<std::uint32_t>(kRowOffsetCeiling, std::numeric_limits<T>::max()));
      for (std::size_t x = 0; x < width; ++x) reference = std::min(reference, row[x]);
    } else {
      reference = column >= 0 && static_cast<std::size_t>(column) < width ? row[column] : 0;
    }
    for (std::size_t x = 0; x < width; ++x) row[x] = static_cast<T>(std::max(row[x], reference) - reference);
  }
}

template <class T>
void MapSamples(const T* __restrict table, T* __restrict samples, std::size_t count) {
  for (std::size_t i = 0; i < count; ++i) samples[i] = table[samples[i]];
}

}  // namespace

ImageProcessor::ImageProcessor() : lookup_(kLookupWords, 0) {}

void ImageProcessor::Bind(const ImageView& frame) {
  width_ = frame.width;
  height_ = frame.height;
  depth_ = frame.depth;
  frameSize_ = frame.Span();
}

std::uint8_t* ImageProcessor::Working(std::size_t size, bool cleared) {
  if (!working_ || size > workingSize_) {
    working_.reset();
    workingSize_ = 0;
    working_.reset(new (std::nothrow) std::uint8_t[size]);
    if (!working_) return nullptr;
    workingSize_ = size;
  }
  if (cleared) std::memset(working_.get(), 0, size);
  return working_.get();
}

void ApplyImageChain(ImageProcessor& processor, const CImageOpList& list, ImageView frame) {
  for (const auto& item : list)
    if (item && item->code != ImgOpDisabled) processor.Apply(*item, frame);
}

bool ImageProcessor::Apply(const ImageOpItem& item, ImageView frame) {
  if (frame.Empty() || !frame.Packed()) return false;
  Bind(frame);
  // An operation that cannot get its working memory leaves the frame as it stands.
  try {
    ApplyCode(item, frame.data);
  } catch (const std::bad_alloc&) {
  }
  return true;
}

void ImageProcessor::ApplyCode(const ImageOpItem& item, std::uint8_t* frame) {
  switch (item.code) {
    case ImgOpLaplacian:
    case ImgOpPrewitt:
    case ImgOpSobel:
    case ImgOpAverage:
    case ImgOpGaussian:
      // A row outside the family's table is an entry without effect.
      if (const ConvolutionFilter* filter = BuiltInFilter(item.code, item.value1)) Convolve(*filter, Bound(frame));
      break;
    case ImgOpBox: {
      // A box beyond 10 x 10 does not fit the record; the convolution refuses it.
      ConvolutionFilter box{};
      box.sizeX = box.sizeY = item.value1;
      box.anchorX = box.anchorY = item.value1 / 2;
      if (item.value1 >= 1 && item.value1 * item.value1 <= static_cast<std::int32_t>(kFilterCoefficients)) {
        box.divisor = item.value1 * item.value1;
        std::fill_n(box.coefficients, box.divisor, 1);
      }
      Convolve(box, Bound(frame));
      break;
    }
    case ImgOpMedian: RankFilter(RankKind::Median, item.value1, Bound(frame)); break;
    case ImgOpMinimum: RankFilter(RankKind::Minimum, item.value1, Bound(frame)); break;
    case ImgOpMaximum: RankFilter(RankKind::Maximum, item.value1, Bound(frame)); break;
    case ImgOpUserFilter:
      if (item.filter) Convolve(*item.filter, Bound(frame));
      break;
    case ImgOpBrightnessContrast: BrightnessContrast(item.value1, item.value2, frame); break;
    case ImgOpGamma: Gamma(item.value1, frame); break;
    case ImgOpNegative: Negative(frame); break;
    case ImgOpEqualize: Equalize(frame); break;
    case ImgOpFlipVertical:
    case ImgOpFlipHorizontal:
      MirrorInPlace(Bound(frame), item.code == ImgOpFlipVertical ? 0 : 1);
      break;
    case ImgOpRowOffset: RowOffset(item.value1, item.value2, frame); break;
    default: break;
  }
}

void ImageProcessor::Convolve(const ConvolutionFilter& filter, ImageView frame) {
  if (frame.Empty() || !frame.Packed()) return;
  Bind(frame);
  std::uint8_t* working = Working(frameSize_, false);
  if (!working) return;
  int status = kPrimitiveBadSize;
  const std::int32_t w = filter.sizeX, h = filter.sizeY;
  // Kernels that the record cannot hold (sizes below 1, more than 100
  // coefficients) are refused like any failing filter: the zeros stay.
  if (w >= 1 && h >= 1 && static_cast<std::int64_t>(w) * h <= static_cast<std::int64_t>(kFilterCoefficients)) {
    std::int16_t kernel[kFilterCoefficients];
    for (std::int32_t t = 0; t < w * h; ++t)
      kernel[t] = static_cast<std::int16_t>(static_cast<std::uint16_t>(filter.coefficients[t] & 0xFFFF));
    status = ConvolveBorder(frame, PackedView(working, width_, height_, depth_), kernel, w, h, filter.divisor);
  }
  if (status != kPrimitiveOk) std::memset(working, 0, frameSize_);
  std::memcpy(frame.data, working, frameSize_);
}

void ImageProcessor::RankFilter(RankKind kind, std::int32_t maskSize, ImageView frame) {
  if (frame.Empty() || !frame.Packed()) return;
  Bind(frame);
  std::uint8_t* working = Working(frameSize_, false);
  if (!working) return;
  auto* primitive = kind == RankKind::Median    ? &MedianBorder
                    : kind == RankKind::Minimum ? &MinimumBorder
                                                : &MaximumBorder;
  if (primitive(frame, PackedView(working, width_, height_, depth_), maskSize, maskSize) != kPrimitiveOk)
    std::memset(working, 0, frameSize_);
  std::memcpy(frame.data, working, frameSize_);
}

// ------------------------------------------------------------ point operations

template <class Entry>
void ImageProcessor::MapThroughTable(std::uint8_t* frame, Entry entry) {
  if (EightBitSamples(depth_)) {
    std::uint8_t table[256];
    for (std::uint32_t i = 0; i < 256; ++i) table[i] = static_cast<std::uint8_t>(entry(i, 255u));
    std::memcpy(lookup_.data(), table, sizeof table);
    MapBytes(table, frame, frameSize_);
    return;
  }
  const std::uint32_t m = FullScale(depth_);
  std::uint16_t* table = lookup_.data();
  for (std::uint32_t i = 0; i <= m; ++i) table[i] = static_cast<std::uint16_t>(entry(i, m));
  // A value above the depth's full scale (a filter may leave one) maps like the full scale.
  std::fill(table + m + 1, table + 65536, table[m]);
  MapSamples(table, reinterpret_cast<std::uint16_t*>(frame), frameSize_ / 2);
}

void ImageProcessor::MapBytes(const std::uint8_t* table, std::uint8_t* frame, std::size_t count) {
  // Large frames go two bytes at a time through a table of all byte pairs,
  // which fills the lookup area's first 131,072 bytes.
  if (count < (std::size_t{1} << 20)) {
    MapSamples(table, frame, count);
    return;
  }
  std::uint16_t* pairs = lookup_.data();
  for (std::uint32_t high = 0; high < 256; ++high)
    for (std::uint32_t low = 0; low < 256; ++low)
      pairs[high << 8 | low] = static_cast<std::uint16_t>(table[high] << 8 | table[low]);
  // Eight bytes at a time, as four pairs; the frame need not be aligned.
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    std::uint64_t in;
    std::memcpy(&in, frame + i, 8);
    const std::uint64_t out = std::uint64_t{pairs[in & 0xFFFF]} | std::uint64_t{pairs[(in >> 16) & 0xFFFF]} << 16 |
                              std::uint64_t{pairs[(in >> 32) & 0xFFFF]} << 32 | std::uint64_t{pairs[in >> 48]} << 48;
    std::memcpy(frame + i, &out, 8);
  }
  for (; i < count; ++i) frame[i] = table[frame[i]];
}

void ImageProcessor::BrightnessContrast(std::int32_t brightness, std::int32_t contrast, std::uint8_t* frame) {
  if (brightness == 0 && contrast == 0) return;
  const float factorSingle = 1.0f + static_cast<float>(contrast) / 100.0f;
  const double factor = factorSingle;
  MapThroughTable(frame, [&](std::uint32_t i, std::uint32_t m) -> std::uint32_t {
    const double v = factor * i + static_cast<double>(m) * brightness / 100.0;
    if (v < 0) return 0;
    if (v > m) return m;
    return static_cast<std::uint32_t>(v);
  });
}

void ImageProcessor::Gamma(std::int32_t gammaTimes1000, std::uint8_t* frame) {
  const float g = static_cast<float>(gammaTimes1000 / 1000.0);
  if (g == 0.0f) return;
  MapThroughTable(frame, [&](std::uint32_t i, std::uint32_t m) -> std::uint32_t {
    double x = i;
    if (x > 0 && g != 1.0f) x = m * std::pow(x / m, 1.0 / g);
    if (x < 0) return 0;
    if (x > m) return m;
    return static_cast<std::uint32_t>(x);
  });
}

void ImageProcessor::Negative(std::uint8_t* frame) {
  const std::uint16_t full = EightBitSamples(depth_) ? 255 : static_cast<std::uint16_t>(FullScale(depth_));
  const std::uint16_t mask[3] = {full, full, full};
  InvertInPlace(Bound(frame), mask);
}

void ImageProcessor::Equalize(std::uint8_t* frame) {
  // Grey only. Depths 13 to 16 get tables of their full size.
  if (depth_ > 16 || depth_ == 0) return;
  const std::size_t levels = std::size_t{1} << depth_;
  const std::size_t pixels = static_cast<std::size_t>(width_) * height_;
  auto equalise = [&](auto* samples) {
    using Sample = std::remove_reference_t<decltype(*samples)>;
    // Values above the full scale count and map as the full scale.
    std::vector<std::uint32_t> count(std::size_t{1} << (8 * sizeof(Sample)), 0);
    if constexpr (sizeof(Sample) == 1) {
      // Four histograms side by side, so that equal neighbours do not wait on each other.
      std::uint32_t part[4][256] = {};
      std::size_t p = 0;
      for (; p + 4 <= pixels; p += 4) {
        ++part[0][samples[p]];
        ++part[1][samples[p + 1]];
        ++part[2][samples[p + 2]];
        ++part[3][samples[p + 3]];
      }
      for (; p < pixels; ++p) ++part[0][samples[p]];
      for (std::size_t v = 0; v < 256; ++v) count[v] = part[0][v] + part[1][v] + part[2][v] + part[3][v];
    } else {
      for (std::size_t p = 0; p < pixels; ++p) ++count[samples[p]];
    }
    for (std::size_t v = levels; v < count.size(); ++v) count[levels - 1] += count[v];
    std::vector<Sample> table(count.size());
    double s = 0;
    for (std::size_t i = 0; i < levels; ++i) {
      s += static_cast<double>(count[i]) / static_cast<double>(pixels);
      table[i] = static_cast<Sample>(static_cast<std::uint32_t>(s * static_cast<double>(levels - 1) + 0.5));
    }
    std::fill(table.begin() + static_cast<std::ptrdiff_t>(levels), table.end(), table[levels - 1]);
    if constexpr (sizeof(Sample) == 1) MapBytes(table.data(), samples, pixels);
    else MapSamples(table.data(), samples, pixels);
  };
  if (depth_ <= 8) equalise(frame);
  else equalise(reinterpret_cast<std::uint16_t*>(frame));
}

void ImageProcessor::RowOffset(std::int32_t mode, std::int32_t column, std::uint8_t* frame) {
  if (depth_ <= 8) OffsetRows(frame, width_, height_, mode, column);
  else if (depth_ <= 16) OffsetRows(reinterpret_cast<std::uint16_t*>(frame), width_, height_, mode, column);
}

}  // namespace tarnvel
