// Maps of sample values to sample values (brightness/contrast, gamma,
// equalisation), built once from their table and applied to whole frames.
//
// The table is the definition. When its entries lie on a clamped straight
// line in whole numbers, floor((multiplier * v + addend) / 2^shift) limited
// to 0..last, the map computes every sample in vector lanes from that line
// instead of looking it up; the line is accepted only after it reproduced
// every entry of the table.
#pragma once

#include <cstddef>
#include <cstdint>
#include <memory>
#include <optional>
#include <vector>

namespace tarnvel {

struct LinearForm {
  std::int32_t multiplier = 0;
  std::int32_t addend = 0;
  std::uint32_t shift = 0;
};

// A form whose value, limited to 0..last, equals table[v] for every v in
// 0..last, with every intermediate value in 32 bits; none when there is no
// such form (or an entry lies above `last`).
std::optional<LinearForm> FindLinearForm(const std::uint16_t* table, std::uint32_t last);

class SampleMap {
 public:
  // Byte samples: table[v] for each of the 256 values.
  static std::unique_ptr<SampleMap> ForBytes(const std::uint8_t* table, bool tryLinear);
  // 16-bit samples: table[v] for v in 0..last, each at most `last`; values
  // above `last` map like `last`.
  static std::unique_ptr<SampleMap> ForWords(const std::uint16_t* table, std::uint32_t last, bool tryLinear);

  // Maps `count` samples in place.
  void Apply(void* samples, std::size_t count) const;
  // Whether the map computes its values rather than looking them up.
  bool Linear() const { return linear_.has_value(); }

 private:
  SampleMap(bool bytes, std::uint32_t last) : bytes_(bytes), last_(last) {}
  void AcceptLinear(std::optional<LinearForm> form);

  bool bytes_;
  std::uint32_t last_;
  std::vector<std::uint8_t> byteTable_;   // 256 entries
  std::vector<std::uint16_t> wordTable_;  // 65,536 entries, those above `last` equal to entry `last`
  std::optional<LinearForm> linear_;
};

// The maps of the last few operations that a processor ran, so that an
// operation with the same values on the next frame does not rebuild its
// table.
class SampleMapCache {
 public:
  struct Key {
    std::int32_t code, value1, value2;
    std::uint32_t depth;
    bool operator==(const Key&) const = default;
  };
  // The cached map of `key`, else the one that `build` returns (kept unless null).
  template <class Build>
  const SampleMap* Find(const Key& key, Build&& build) {
    if (const SampleMap* found = Lookup(key)) return found;
    return Keep(key, build());
  }

 private:
  const SampleMap* Lookup(const Key& key);
  const SampleMap* Keep(const Key& key, std::unique_ptr<SampleMap> map);

  struct Entry {
    Key key;
    std::unique_ptr<SampleMap> map;
  };
  std::vector<Entry> entries_;  // most recently used last
};

}  // namespace tarnvel
