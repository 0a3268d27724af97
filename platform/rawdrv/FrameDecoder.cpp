#include "platform/rawdrv/FrameDecoder.h"

#include <algorithm>
#include <cmath>
#include <cstring>

namespace tarnvel::rawstore {
namespace {

enum Colour : int { kRed = 0, kGreen = 1, kBlue = 2 };

// Filter colour at (x & 1, y & 1) for each mosaic order.
constexpr int kMosaic[4][2][2] = {
    {{kRed, kGreen}, {kGreen, kBlue}},
    {{kGreen, kRed}, {kBlue, kGreen}},
    {{kGreen, kBlue}, {kRed, kGreen}},
    {{kBlue, kGreen}, {kGreen, kRed}},
};

// Site kinds of the interpolation: which filters stand around a sample.
enum Site : int { kRedSite, kBlueSite, kGreenInRedRow, kGreenInBlueRow };

Site SiteAt(std::uint32_t order, std::uint32_t x, std::uint32_t y) {
  const int colour = kMosaic[order][y & 1][x & 1];
  if (colour == kRed) return kRedSite;
  if (colour == kBlue) return kBlueSite;
  const int rowColour = kMosaic[order][y & 1][(x + 1) & 1];
  return rowColour == kRed ? kGreenInRedRow : kGreenInBlueRow;
}

// Mirror an index into [0, n) about the edge samples; keeps the parity, so
// the mirrored sample has the same filter colour. Needs n >= 2.
inline int Mirror(int i, int n) {
  while (i < 0 || i >= n) {
    if (i < 0) i = -i;
    if (i >= n) i = 2 * (n - 1) - i;
  }
  return i;
}

// Gradient-corrected bilinear interpolation: the bilinear estimate of a
// missing colour plus a share of the measured colour's Laplacian. Weights are
// in sixteenths and sum to 16, so a flat field stays exactly flat.
// `at(dx, dy)` gives the mosaic sample at that offset from the site.
template <typename At>
inline void InterpolateSite(Site site, const At& at, int limit, int bgr[3]) {
  const int c = at(0, 0);
  const int axis1 = at(0, -1) + at(0, 1) + at(-1, 0) + at(1, 0);
  const int axis2h = at(-2, 0) + at(2, 0);
  const int axis2v = at(0, -2) + at(0, 2);
  const int finish = 8;
  const auto done = [limit](int sum) { return std::clamp((sum + finish) >> 4, 0, limit); };
  if (site == kRedSite || site == kBlueSite) {
    const int diagonal = at(-1, -1) + at(1, -1) + at(-1, 1) + at(1, 1);
    const int green = done(8 * c + 4 * axis1 - 2 * (axis2h + axis2v));
    const int other = done(12 * c + 4 * diagonal - 3 * (axis2h + axis2v));
    bgr[1] = green;
    bgr[site == kRedSite ? 2 : 0] = c;
    bgr[site == kRedSite ? 0 : 2] = other;
  } else {
    const int diagonal = at(-1, -1) + at(1, -1) + at(-1, 1) + at(1, 1);
    const int horizontal = done(10 * c + 8 * (at(-1, 0) + at(1, 0)) - 2 * axis2h + axis2v - 2 * diagonal);
    const int vertical = done(10 * c + 8 * (at(0, -1) + at(0, 1)) - 2 * axis2v + axis2h - 2 * diagonal);
    bgr[1] = c;
    bgr[site == kGreenInRedRow ? 2 : 0] = horizontal;
    bgr[site == kGreenInRedRow ? 0 : 2] = vertical;
  }
}

// The inside of a row, columns 2 to width - 3, where every neighbour lies
// inside the mosaic: the sites alternate, so each pair of columns is one
// even and one odd site of known kinds.
template <Site EvenSite, Site OddSite, typename Sample>
void InterpolateRow(const std::uint16_t* row, int w, int limit, Sample* out) {
  int px[3];
  const auto one = [&](int x, Site site) {
    const std::uint16_t* centre = row + x;
    const auto at = [centre, w](int dx, int dy) { return int{centre[dy * w + dx]}; };
    InterpolateSite(site, at, limit, px);
    Sample* p = out + 3 * static_cast<std::size_t>(x);
    p[0] = static_cast<Sample>(px[0]);
    p[1] = static_cast<Sample>(px[1]);
    p[2] = static_cast<Sample>(px[2]);
  };
  int x = 2;
  for (; x + 1 < w - 2; x += 2) {
    one(x, EvenSite);
    one(x + 1, OddSite);
  }
  if (x < w - 2) one(x, EvenSite);
}

// Turns a plane of Bytes-sized pixels by quarter turns clockwise; the source
// is width x height, the result height x width for odd turns.
template <std::size_t Bytes>
void Rotate(const std::uint8_t* src, std::uint32_t width, std::uint32_t height, std::uint32_t turns,
            std::uint8_t* dst) {
  const std::uint32_t outWidth = turns % 2 ? height : width;
  constexpr std::uint32_t kTile = 32;
  for (std::uint32_t ty = 0; ty < height; ty += kTile) {
    for (std::uint32_t tx = 0; tx < width; tx += kTile) {
      const std::uint32_t yEnd = std::min(height, ty + kTile), xEnd = std::min(width, tx + kTile);
      for (std::uint32_t y = ty; y < yEnd; ++y) {
        for (std::uint32_t x = tx; x < xEnd; ++x) {
          std::uint32_t ox = x, oy = y;
          if (turns == 1) { ox = height - 1 - y; oy = x; }
          else if (turns == 2) { ox = width - 1 - x; oy = height - 1 - y; }
          else if (turns == 3) { ox = y; oy = width - 1 - x; }
          std::memcpy(dst + (static_cast<std::size_t>(oy) * outWidth + ox) * Bytes,
                      src + (static_cast<std::size_t>(y) * width + x) * Bytes, Bytes);
        }
      }
    }
  }
}

void RotateAny(std::size_t pixelBytes, const std::uint8_t* src, std::uint32_t width, std::uint32_t height,
               std::uint32_t turns, std::uint8_t* dst) {
  switch (pixelBytes) {
    case 1: Rotate<1>(src, width, height, turns, dst); break;
    case 2: Rotate<2>(src, width, height, turns, dst); break;
    case 3: Rotate<3>(src, width, height, turns, dst); break;
    default: Rotate<6>(src, width, height, turns, dst); break;
  }
}

}  // namespace

FrameDecoder::FrameDecoder(const StoreHeader& header, std::vector<std::uint16_t> offsets)
    : width_(header.width),
      height_(header.height),
      bits_(header.sampleBits),
      packing_(header.packing),
      rotation_(header.rotation),
      black_(header.blackLevel),
      order_(header.mosaicOrder),
      colour_(header.sensorKind == kColourMosaic),
      offsets_(std::move(offsets)) {
  if (!colour_) return;
  const std::uint32_t full = (1u << bits_) - 1;
  unitGains_ = true;
  for (int c = 0; c < 3; ++c) {
    const double gain = header.gains[c] == 0.0f ? 1.0 : header.gains[c];
    unitGains_ = unitGains_ && gain == 1.0;
    gainTable_[c].resize(full + 1);
    for (std::uint32_t v = 0; v <= full; ++v) {
      gainTable_[c][v] = static_cast<std::uint16_t>(std::min<double>(full, std::floor(v * gain + 0.5)));
    }
  }
}

std::uint32_t FrameDecoder::DeliveredBits(bool mosaic) const { return colour_ && !mosaic ? 3 * bits_ : bits_; }

std::uint64_t FrameDecoder::DeliveredBytes(bool mosaic) const {
  const std::uint64_t sampleBytes = bits_ > 8 ? 2 : 1;
  return std::uint64_t{width_} * height_ * sampleBytes * (colour_ && !mosaic ? 3 : 1);
}

template <typename Sample>
void FrameDecoder::DecodePlane(const std::uint8_t* payload, Sample* plane) {
  const std::size_t width = width_;
  const int black = static_cast<int>(std::min<std::uint32_t>(black_, 65536));
  for (std::size_t y = 0; y < height_; ++y) {
    Sample* out = plane + y * width;
    if (offsets_.empty() && black == 0) {  // nothing to subtract: unpack straight into the plane
      if constexpr (sizeof(Sample) == 2) {
        UnpackSamples(payload, y * width, width, bits_, packing_, out);
        continue;
      } else {
        std::memcpy(out, payload + y * width, width);  // 8 bits: words and bitstream are plain bytes
        continue;
      }
    }
    UnpackSamples(payload, y * width, width, bits_, packing_, row_.data());
    const std::uint16_t* in = row_.data();
    if (!offsets_.empty()) {
      const std::uint16_t* offset = offsets_.data() + y * width;
      for (std::size_t x = 0; x < width; ++x) {
        out[x] = static_cast<Sample>(std::max(0, int{in[x]} - black - int{offset[x]}));
      }
    } else if (black != 0) {
      for (std::size_t x = 0; x < width; ++x) out[x] = static_cast<Sample>(std::max(0, int{in[x]} - black));
    } else {
      for (std::size_t x = 0; x < width; ++x) out[x] = static_cast<Sample>(in[x]);
    }
  }
}

void FrameDecoder::ApplyGains(std::uint16_t* plane) const {
  if (unitGains_) return;
  for (std::uint32_t y = 0; y < height_; ++y) {
    const std::uint16_t* even = gainTable_[kMosaic[order_][y & 1][0]].data();
    const std::uint16_t* odd = gainTable_[kMosaic[order_][y & 1][1]].data();
    std::uint16_t* row = plane + static_cast<std::size_t>(y) * width_;
    std::uint32_t x = 0;
    for (; x + 1 < width_; x += 2) {
      row[x] = even[row[x]];
      row[x + 1] = odd[row[x + 1]];
    }
    if (x < width_) row[x] = even[row[x]];
  }
}

template <typename Sample>
void FrameDecoder::Interpolate(const std::uint16_t* mosaic, Sample* bgr) const {
  const int w = static_cast<int>(width_), h = static_cast<int>(height_);
  const int limit = static_cast<int>((1u << bits_) - 1);
  int px[3];
  const auto store = [&](int x, int y) {
    Sample* p = bgr + 3 * (static_cast<std::size_t>(y) * width_ + x);
    p[0] = static_cast<Sample>(px[0]);
    p[1] = static_cast<Sample>(px[1]);
    p[2] = static_cast<Sample>(px[2]);
  };
  const auto edgePixel = [&](int x, int y) {
    const auto at = [&](int dx, int dy) {
      return int{mosaic[static_cast<std::size_t>(Mirror(y + dy, h)) * width_ + Mirror(x + dx, w)]};
    };
    InterpolateSite(SiteAt(order_, x, y), at, limit, px);
    store(x, y);
  };
  for (int y = 0; y < h; ++y) {
    if (y < 2 || y >= h - 2 || w < 5) {
      for (int x = 0; x < w; ++x) edgePixel(x, y);
      continue;
    }
    edgePixel(0, y);
    edgePixel(1, y);
    const std::uint16_t* row = mosaic + static_cast<std::size_t>(y) * width_;
    Sample* out = bgr + 3 * static_cast<std::size_t>(y) * width_;
    switch (SiteAt(order_, 0, y)) {
      case kRedSite: InterpolateRow<kRedSite, kGreenInRedRow>(row, w, limit, out); break;
      case kGreenInRedRow: InterpolateRow<kGreenInRedRow, kRedSite>(row, w, limit, out); break;
      case kBlueSite: InterpolateRow<kBlueSite, kGreenInBlueRow>(row, w, limit, out); break;
      case kGreenInBlueRow: InterpolateRow<kGreenInBlueRow, kBlueSite>(row, w, limit, out); break;
    }
    edgePixel(w - 2, y);
    edgePixel(w - 1, y);
  }
}

void FrameDecoder::Decode(const std::uint8_t* payload, bool mosaic, void* out) {
  auto* target = static_cast<std::uint8_t*>(out);
  const bool wide = bits_ > 8;
  const std::size_t sampleBytes = wide ? 2 : 1;
  const std::size_t samples = std::size_t{width_} * height_;
  row_.resize(width_);  // scratch is made on the first read, not when a store is merely opened

  if (!colour_ || mosaic) {
    std::uint8_t* plane = target;
    if (rotation_ != 0) {
      plane_.resize(samples);
      plane = reinterpret_cast<std::uint8_t*>(plane_.data());
    }
    if (wide) DecodePlane(payload, reinterpret_cast<std::uint16_t*>(plane));
    else DecodePlane(payload, plane);
    if (rotation_ != 0) RotateAny(sampleBytes, plane, width_, height_, rotation_, target);
    return;
  }

  plane_.resize(samples);
  std::uint16_t* plane = plane_.data();
  DecodePlane(payload, plane);
  ApplyGains(plane);
  std::uint8_t* bgr = target;
  if (rotation_ != 0) {
    turned_.resize(samples * 3);
    bgr = reinterpret_cast<std::uint8_t*>(turned_.data());
  }
  if (wide) Interpolate(plane, reinterpret_cast<std::uint16_t*>(bgr));
  else Interpolate(plane, bgr);
  if (rotation_ != 0) RotateAny(3 * sampleBytes, bgr, width_, height_, rotation_, target);
}

}  // namespace tarnvel::rawstore
