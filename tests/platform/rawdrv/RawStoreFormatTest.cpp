#include "platform/rawdrv/RawStoreFormat.h"

#include <gtest/gtest.h>

#include <random>

#include "tests/platform/rawdrv/IndependentStore.h"

namespace tarnvel::rawstore {
namespace {

TEST(RawStoreFormat, PackingMatchesTheFormatAndUnpacksAnyRange) {
  std::mt19937 random(7);
  for (std::uint32_t packing : {0u, 1u, 2u}) {
    for (std::uint32_t bits : {8u, 10u, 12u, 14u, 16u}) {
      if (packing == 2 && bits != 12) {
        EXPECT_EQ(PayloadBytes(10, bits, packing), 0u);
        continue;
      }
      SCOPED_TRACE(testing::Message() << "packing " << packing << " bits " << bits);
      for (std::size_t count : {1u, 2u, 7u, 8u, 9u, 61u}) {
        std::vector<std::uint16_t> samples(count);
        for (auto& v : samples) v = static_cast<std::uint16_t>(random() & ((1u << bits) - 1));
        const auto oracle = test::PackIndependently(samples, bits, packing);
        ASSERT_EQ(PayloadBytes(count, bits, packing), oracle.size());
        std::vector<std::uint8_t> packed(oracle.size(), 0xFF);
        PackSamples(samples.data(), count, bits, packing, packed.data());
        EXPECT_EQ(packed, oracle);
        for (std::size_t first = 0; first < count; first += 3) {
          const std::size_t n = count - first;
          std::vector<std::uint16_t> back(n);
          UnpackSamples(oracle.data(), first, n, bits, packing, back.data());
          EXPECT_EQ(back, std::vector<std::uint16_t>(samples.begin() + first, samples.end())) << first;
        }
      }
    }
  }
  EXPECT_EQ(PayloadBytes(10, 9, 0), 0u);
  EXPECT_EQ(PayloadBytes(10, 12, 3), 0u);
}

TEST(RawStoreFormat, WordPackingMasksBitsAboveTheDepth) {
  const std::uint8_t words[4] = {0xFF, 0xFF, 0x34, 0x12};
  std::uint16_t out[2];
  UnpackSamples(words, 0, 2, 12, kPackWords, out);
  EXPECT_EQ(out[0], 0x0FFF);
  EXPECT_EQ(out[1], 0x0234);
}

}  // namespace
}  // namespace tarnvel::rawstore
