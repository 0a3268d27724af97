// Sample maps against their tables: every value of every sample type, at
// every vector level, by lookup and by the straight line found for it.
#include <gtest/gtest.h>

#include <algorithm>
#include <cmath>
#include <random>
#include <vector>

#include "frames/primitives/SampleMap.h"
#include "tests/frames/FrameSamples.h"

namespace tarnvel {
namespace {

// Brightness/contrast as the processor defines it, for 0..last.
std::vector<std::uint16_t> BrightnessContrastTable(int b, int c, std::uint32_t last) {
  const double factor = static_cast<float>(1.0f + static_cast<float>(c) / 100.0f);
  std::vector<std::uint16_t> table(last + 1);
  for (std::uint32_t i = 0; i <= last; ++i) {
    const double v = factor * i + static_cast<double>(last) * b / 100.0;
    table[i] = static_cast<std::uint16_t>(v < 0 ? 0 : v > last ? last : static_cast<std::uint32_t>(v));
  }
  return table;
}

// Every byte, or every word from 0 to 65,535, then random ones; `count`
// of them (the vector loops meet every length of tail).
template <class T>
std::vector<T> Samples(std::size_t count, std::mt19937& rng) {
  std::vector<T> s(count);
  for (std::size_t i = 0; i < count; ++i)
    s[i] = static_cast<T>(i < (std::size_t{1} << (8 * sizeof(T))) ? i : rng());
  return s;
}

// The map applied at every level equals the table, values above `last`
// mapped like `last`. Returns whether the map computes its values.
bool ExpectMapsLikeTable(const std::vector<std::uint16_t>& table, bool bytes, bool tryLinear, std::mt19937& rng) {
  const std::uint32_t last = static_cast<std::uint32_t>(table.size() - 1);
  std::unique_ptr<SampleMap> map;
  if (bytes) {
    std::vector<std::uint8_t> narrow(table.begin(), table.end());
    map = SampleMap::ForBytes(narrow.data(), tryLinear);
  } else {
    map = SampleMap::ForWords(table.data(), last, tryLinear);
  }
  test::AtEveryLevel([&] {
    // Every value once, then lengths that leave every kind of tail.
    for (std::size_t count : {std::size_t{70000}, std::size_t{0}, std::size_t{1}, std::size_t{31}, std::size_t{65}}) {
      auto check = [&](auto samples) {
        const auto before = samples;
        map->Apply(samples.data(), samples.size());
        for (std::size_t i = 0; i < samples.size(); ++i)
          ASSERT_EQ(samples[i], table[std::min<std::uint32_t>(before[i], last)])
              << "value " << before[i] << " of " << count << ", last " << last << (map->Linear() ? ", line" : "");
      };
      if (bytes) check(Samples<std::uint8_t>(count, rng));
      else check(Samples<std::uint16_t>(count, rng));
      if (::testing::Test::HasFatalFailure()) return;
    }
  });
  return map->Linear();
}

TEST(SampleMap, BrightnessContrastLinesAndTablesMatchTheTable) {
  std::mt19937 rng(51);
  int lines = 0, maps = 0;
  for (std::uint32_t last : {255u, 511u, 4095u, 65535u})
    for (int b : {-100, 0, 13, 250})
      for (int c : {-250, -60, -1, 0, 30, 57, 333}) {
        if (last == 65535 && (b + c) % 3 != 0) continue;  // the largest tables take long to search
        const auto table = BrightnessContrastTable(b, c, last);
        const bool bytes = last == 255;
        lines += ExpectMapsLikeTable(table, bytes, true, rng);
        ++maps;
        if (HasFatalFailure()) return;
      }
  // Most operator settings take the vector line; the lookup is the rare case.
  EXPECT_GT(lines, maps * 3 / 4) << lines << " of " << maps;
  // Contrasts such as 30 % are a hair below their decimal value as floats,
  // which moves every tenth step down by one: the line must follow.
  for (std::uint32_t last : {255u, 4095u})
    for (auto [b, c] : {std::pair{0, 30}, {10, 20}, {-20, 35}, {13, 57}})
      EXPECT_TRUE(FindLinearForm(BrightnessContrastTable(b, c, last).data(), last)) << b << " " << c << " " << last;
}

TEST(SampleMap, TablesWithoutALineAndHostileTables) {
  std::mt19937 rng(52);
  // Random tables and a gamma curve have no line and are looked up.
  for (std::uint32_t last : {255u, 4095u, 65535u}) {
    std::vector<std::uint16_t> random(last + 1), gamma(last + 1);
    for (std::uint32_t i = 0; i <= last; ++i) {
      random[i] = static_cast<std::uint16_t>(rng() % (last + 1));
      gamma[i] = static_cast<std::uint16_t>(last * std::pow(double(i) / last, 1 / 2.2));
    }
    EXPECT_FALSE(FindLinearForm(random.data(), last));
    EXPECT_FALSE(FindLinearForm(gamma.data(), last));
    ExpectMapsLikeTable(random, last == 255, true, rng);
    ExpectMapsLikeTable(gamma, last == 255, true, rng);
    if (HasFatalFailure()) return;
  }
  // An entry above the last value, an empty range, a line that would need
  // more than 32 bits: no form, and any form found is exact in 64-bit arithmetic.
  std::vector<std::uint16_t> above = BrightnessContrastTable(0, 0, 4095);
  above[17] = 4096;
  EXPECT_FALSE(FindLinearForm(above.data(), 4095));
  const std::uint16_t zero[1] = {0};
  EXPECT_FALSE(FindLinearForm(zero, 0));
  for (int round = 0; round < 200; ++round) {
    const std::uint32_t last = 1 + rng() % 600;
    std::vector<std::uint16_t> steps(last + 1);
    // Staircases of random steps: sometimes a line, mostly not.
    std::uint32_t v = rng() % 3;
    for (auto& s : steps) s = static_cast<std::uint16_t>(std::min(v += rng() % 3, last));
    if (const auto f = FindLinearForm(steps.data(), last))
      for (std::uint32_t i = 0; i <= last; ++i) {
        const std::int64_t y = (std::int64_t{f->multiplier} * i + f->addend) >> f->shift;
        ASSERT_EQ(std::clamp<std::int64_t>(y, 0, last), steps[i]) << round << " at " << i;
        ASSERT_LE(std::abs(std::int64_t{f->multiplier} * i + f->addend), std::int64_t{INT32_MAX});
      }
  }
}

}  // namespace
}  // namespace tarnvel
