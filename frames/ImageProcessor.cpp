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

bool EightBitSamples(std::uint32_t depth) { return SampleBytesOf(LayoutOfDepth(depth)) == 1; }

}  // namespace

ImageProcessor::ImageProcessor() = default;

void ImageProcessor::Bind(const ImageView& frame) {
  width_ = frame.width;
  height_ = frame.height;
  depth_ = frame.depth;
  frameSize_ = frame.Span();
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
  int status = kPrimitiveBadSize;
  const std::int32_t w = filter.sizeX, h = filter.sizeY;
  // Kernels that the record cannot hold (sizes below 1, more than 100
  // coefficients) are refused like any failing filter: the frame turns black.
  if (w >= 1 && h >= 1 && static_cast<std::int64_t>(w) * h <= static_cast<std::int64_t>(kFilterCoefficients)) {
    std::int16_t kernel[kFilterCoefficients];
    for (std::int32_t t = 0; t < w * h; ++t)
      kernel[t] = static_cast<std::int16_t>(static_cast<std::uint16_t>(filter.coefficients[t] & 0xFFFF));
    // In place: the primitive reads every row before it writes over it.
    status = ConvolveBorder(frame, frame, kernel, w, h, filter.divisor);
  }
  if (status != kPrimitiveOk) std::memset(frame.data, 0, frameSize_);
}

void ImageProcessor::RankFilter(RankKind kind, std::int32_t maskSize, ImageView frame) {
  if (frame.Empty() || !frame.Packed()) return;
  Bind(frame);
  auto* primitive = kind == RankKind::Median    ? &MedianBorder
                    : kind == RankKind::Minimum ? &MinimumBorder
                                                : &MaximumBorder;
  // In place: the primitives read every row before they write over it.
  if (primitive(frame, frame, maskSize, maskSize) != kPrimitiveOk) std::memset(frame.data, 0, frameSize_);
}

// ------------------------------------------------------------ point operations

template <class Entry>
void ImageProcessor::MapThroughTable(const SampleMapCache::Key& key, std::uint8_t* frame, Entry entry) {
  const bool bytes = EightBitSamples(depth_);
  const SampleMap* map = maps_.Find(key, [&] {
    if (bytes) {
      std::uint8_t table[256];
      for (std::uint32_t i = 0; i < 256; ++i) table[i] = static_cast<std::uint8_t>(entry(i, 255u));
      return SampleMap::ForBytes(table, true);
    }
    const std::uint32_t m = FullScale(depth_);
    std::vector<std::uint16_t> table(m + 1);
    for (std::uint32_t i = 0; i <= m; ++i) table[i] = static_cast<std::uint16_t>(entry(i, m));
    return SampleMap::ForWords(table.data(), m, true);
  });
  map->Apply(frame, bytes ? frameSize_ : frameSize_ / 2);
}

void ImageProcessor::BrightnessContrast(std::int32_t brightness, std::int32_t contrast, std::uint8_t* frame) {
  if (brightness == 0 && contrast == 0) return;
  const float factorSingle = 1.0f + static_cast<float>(contrast) / 100.0f;
  const double factor = factorSingle;
  const SampleMapCache::Key key{ImgOpBrightnessContrast, brightness, contrast, depth_};
  MapThroughTable(key, frame, [&](std::uint32_t i, std::uint32_t m) -> std::uint32_t {
    const double v = factor * i + static_cast<double>(m) * brightness / 100.0;
    if (v < 0) return 0;
    if (v > m) return m;
    return static_cast<std::uint32_t>(v);
  });
}

void ImageProcessor::Gamma(std::int32_t gammaTimes1000, std::uint8_t* frame) {
  const float g = static_cast<float>(gammaTimes1000 / 1000.0);
  if (g == 0.0f) return;
  const SampleMapCache::Key key{ImgOpGamma, gammaTimes1000, 0, depth_};
  MapThroughTable(key, frame, [&](std::uint32_t i, std::uint32_t m) -> std::uint32_t {
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
    if constexpr (sizeof(Sample) == 1) SampleMap::ForBytes(table.data(), false)->Apply(samples, pixels);
    else SampleMap::ForWords(table.data(), static_cast<std::uint32_t>(levels - 1), false)->Apply(samples, pixels);
  };
  if (depth_ <= 8) equalise(frame);
  else equalise(reinterpret_cast<std::uint16_t*>(frame));
}

void ImageProcessor::RowOffset(std::int32_t mode, std::int32_t column, std::uint8_t* frame) {
  SubtractRowReferenceInPlace(Bound(frame), mode, column);
}

}  // namespace tarnvel
