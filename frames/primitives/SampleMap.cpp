#include "frames/primitives/SampleMap.h"

#include <algorithm>
#include <bit>
#include <iterator>
#include <limits>

#define TARNVEL_SIMD_KERNELS "frames/primitives/SampleMapKernels-inl.h"
#include "frames/primitives/SimdTargets.h"

namespace tarnvel {
namespace {

constexpr std::size_t kCachedMaps = 8;

template <class T>
void MapLinear(T* samples, std::size_t count, const LinearForm& f, std::uint32_t last) {
  TARNVEL_SIMD_RETURN(MapLinear(samples, count, f.multiplier, f.addend, f.shift, last));
}

void MapBytes(const std::uint8_t* table, std::uint8_t* samples, std::size_t count) {
  TARNVEL_SIMD_RETURN(MapBytes(table, samples, count));
}

// Word tables are too large for registers; four lookups share one load and
// one store of the samples.
void MapWords(const std::uint16_t* table, std::uint16_t* samples, std::size_t count) {
  std::size_t i = 0;
  for (; i + 4 <= count; i += 4) {
    std::uint64_t in;
    std::memcpy(&in, samples + i, 8);
    const std::uint64_t out = std::uint64_t{table[in & 0xFFFF]} | std::uint64_t{table[(in >> 16) & 0xFFFF]} << 16 |
                              std::uint64_t{table[(in >> 32) & 0xFFFF]} << 32 | std::uint64_t{table[in >> 48]} << 48;
    std::memcpy(samples + i, &out, 8);
  }
  for (; i < count; ++i) samples[i] = table[samples[i]];
}

// The range of addends that keeps floor((m * v + a) / q) on table[v] for
// every v in 0..last (the ends clamped), with m * v + a in 32 bits. Empty
// when low > high.
struct AddendRange {
  std::int64_t low, high;
};
AddendRange AddendsFor(const std::uint16_t* table, std::uint32_t last, std::int64_t q, std::int64_t m) {
  constexpr std::int64_t kLow = std::numeric_limits<std::int32_t>::min();
  constexpr std::int64_t kHigh = std::numeric_limits<std::int32_t>::max();
  AddendRange r{kLow, kHigh};
  for (std::uint32_t v = 0; v <= last; ++v) {
    const std::int64_t t = table[v];
    const std::int64_t below = t == 0 ? kLow : t * q;                 // 0 takes every value below q
    const std::int64_t above = t == last ? kHigh : t * q + q - 1;    // last takes every value from last * q
    r.low = std::max(r.low, below - m * static_cast<std::int64_t>(v));
    r.high = std::min(r.high, above - m * static_cast<std::int64_t>(v));
  }
  return r;
}

}  // namespace

std::optional<LinearForm> FindLinearForm(const std::uint16_t* table, std::uint32_t last) {
  if (last == 0 || last > 65535 || std::any_of(table, table + last + 1, [&](std::uint16_t t) { return t > last; }))
    return std::nullopt;
  // The finest steps that leave the values of the line a spare bit in 32 bits.
  const std::uint32_t shift = 30 - static_cast<std::uint32_t>(std::bit_width(last));
  const std::int64_t q = std::int64_t{1} << shift;
  // The width of the addend range is a concave function of the multiplier
  // (a minimum of lines minus a maximum of lines): a ternary search finds
  // its top, and the line exists when the top is not negative.
  auto width = [&](std::int64_t m) {
    const AddendRange r = AddendsFor(table, last, q, m);
    return r.high - r.low;
  };
  std::int64_t low = -std::int64_t{std::numeric_limits<std::int32_t>::max()} / last;
  std::int64_t high = -low;
  // Two entries t1 at v1 and t2 at v2 inside the range are within one below
  // the line's values, so its slope lies between (t2 - t1 - 1) / (v2 - v1)
  // and (t2 - t1 + 1) / (v2 - v1): a short search for long lines.
  const auto inside = [&](std::uint16_t t) { return t > 0 && t < last; };
  const auto first = std::find_if(table, table + last + 1, inside);
  const auto final = std::find_if(std::make_reverse_iterator(table + last + 1), std::make_reverse_iterator(table), inside);
  if (first != table + last + 1 && &*final > first) {
    const std::int64_t dv = &*final - first, dt = std::int64_t{*final} - *first;
    low = std::max(low, (dt - 1) * q / dv - 1);
    high = std::min(high, (dt + 1) * q / dv + 1);
  }
  while (high - low > 2) {
    const std::int64_t a = low + (high - low) / 3, b = high - (high - low) / 3;
    const std::int64_t wa = width(a), wb = width(b);
    if (wa < wb) low = a + 1;
    else if (wa > wb) high = b - 1;
    else low = a, high = b;
  }
  for (std::int64_t m = low; m <= high; ++m) {
    const AddendRange r = AddendsFor(table, last, q, m);
    if (r.low <= r.high)
      return LinearForm{static_cast<std::int32_t>(m), static_cast<std::int32_t>(r.low), shift};
  }
  return std::nullopt;
}

std::unique_ptr<SampleMap> SampleMap::ForBytes(const std::uint8_t* table, bool tryLinear) {
  std::unique_ptr<SampleMap> map(new SampleMap(true, 255));
  map->byteTable_.assign(table, table + 256);
  if (tryLinear) {
    const std::vector<std::uint16_t> words(table, table + 256);
    map->AcceptLinear(FindLinearForm(words.data(), 255));
  }
  return map;
}

std::unique_ptr<SampleMap> SampleMap::ForWords(const std::uint16_t* table, std::uint32_t last, bool tryLinear) {
  last = std::min<std::uint32_t>(last, 65535);
  std::unique_ptr<SampleMap> map(new SampleMap(false, last));
  map->wordTable_.assign(table, table + last + 1);
  map->wordTable_.resize(65536, table[last]);
  if (tryLinear) map->AcceptLinear(FindLinearForm(table, last));
  return map;
}

void SampleMap::AcceptLinear(std::optional<LinearForm> form) {
  if (!form) return;
  // The line is kept only when the vector kernel reproduces the whole table.
  linear_ = form;
  if (bytes_) {
    std::vector<std::uint8_t> ramp(256);
    for (std::uint32_t v = 0; v < 256; ++v) ramp[v] = static_cast<std::uint8_t>(v);
    MapLinear(ramp.data(), ramp.size(), *form, last_);
    if (ramp != byteTable_) linear_.reset();
  } else {
    std::vector<std::uint16_t> ramp(last_ + 1);
    for (std::uint32_t v = 0; v <= last_; ++v) ramp[v] = static_cast<std::uint16_t>(v);
    MapLinear(ramp.data(), ramp.size(), *form, last_);
    if (!std::equal(ramp.begin(), ramp.end(), wordTable_.begin())) linear_.reset();
  }
}

void SampleMap::Apply(void* samples, std::size_t count) const {
  if (bytes_) {
    auto* bytes = static_cast<std::uint8_t*>(samples);
    // Byte permutes look a byte up as fast as the line computes it.
    if (linear_ && simd::ActiveLevel() != simd::Level::Avx512) MapLinear(bytes, count, *linear_, last_);
    else MapBytes(byteTable_.data(), bytes, count);
    return;
  }
  auto* words = static_cast<std::uint16_t*>(samples);
  if (linear_) MapLinear(words, count, *linear_, last_);
  else MapWords(wordTable_.data(), words, count);
}

const SampleMap* SampleMapCache::Lookup(const Key& key) {
  auto found = std::find_if(entries_.begin(), entries_.end(), [&](const Entry& e) { return e.key == key; });
  if (found == entries_.end()) return nullptr;
  std::rotate(found, found + 1, entries_.end());
  return entries_.back().map.get();
}

const SampleMap* SampleMapCache::Keep(const Key& key, std::unique_ptr<SampleMap> map) {
  if (!map) return nullptr;
  if (entries_.size() == kCachedMaps) entries_.erase(entries_.begin());
  entries_.push_back(Entry{key, std::move(map)});
  return entries_.back().map.get();
}

}  // namespace tarnvel
