#include "recording/ModelTable.h"

#include <gtest/gtest.h>

namespace tarnvel {
namespace {

TEST(ModelTable, IndexesSerialNumbersAndBlocks) {
  // Every listed model finds its own position; anything else, and any position outside, is 0.
  for (int i = 1; i < kModelTableSize - 1; ++i) EXPECT_EQ(ModelIndexOf(ModelAt(i)), i);
  EXPECT_EQ(ModelIndexOf(11), 12) << "11 to 13 follow 19";
  for (int i : {-1, 71, 1000}) EXPECT_EQ(ModelAt(i), 0u) << i;
  for (std::uint32_t m : {0u, 1u, 75u, 0xFFFFFFFFu}) EXPECT_EQ(ModelIndexOf(m), 0) << m;

  const struct {
    std::uint32_t model, serial;
    const char* text;
  } serials[] = {{6, 112345678, "01-1234-5678"}, {12, 112345678, "112345678"}, {11, 4021, "4021"},
                 {22, 4021, "4021"},           {10, 4021, "00-0000-4021"}, {23, 4021, "00-0000-4021"},
                 {0, 4021, "00-0000-4021"},    {8, 4294967295u, "42-9496-7295"}, {20, 4294967295u, "-1"}};
  for (const auto& s : serials) EXPECT_EQ(FormatSerial(s.model, s.serial), s.text) << s.model;
  EXPECT_TRUE(HasCameraBlock(12));
  EXPECT_FALSE(HasCameraBlock(14));
}

}  // namespace
}  // namespace tarnvel
