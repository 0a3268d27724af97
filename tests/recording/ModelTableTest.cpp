#include "recording/ModelTable.h"

#include <gtest/gtest.h>

#include <vector>

namespace tarnvel {
namespace {

TEST(ModelTable, PositionsAndNumbers) {
  // The table as the suite lists it: 0, 6 to 10, 14 to 19, 11 to 13, 20 to 74, 0.
  std::vector<std::uint32_t> expected{0};
  for (std::uint32_t m : {6, 7, 8, 9, 10, 14, 15, 16, 17, 18, 19, 11, 12, 13}) expected.push_back(m);
  for (std::uint32_t m = 20; m <= 74; ++m) expected.push_back(m);
  expected.push_back(0);
  ASSERT_EQ(expected.size(), static_cast<std::size_t>(kModelTableSize));
  for (int i = 0; i < kModelTableSize; ++i) EXPECT_EQ(ModelAt(i), expected[static_cast<std::size_t>(i)]) << i;
  EXPECT_EQ(ModelAt(71), 0u);
  EXPECT_EQ(ModelAt(1000), 0u);
  EXPECT_EQ(ModelAt(-1), 0u);

  EXPECT_EQ(ModelIndexOf(0), 0);
  EXPECT_EQ(ModelIndexOf(11), 12);
  EXPECT_EQ(ModelIndexOf(6), 1);
  EXPECT_EQ(ModelIndexOf(14), 6);
  EXPECT_EQ(ModelIndexOf(74), 69);
  EXPECT_EQ(ModelIndexOf(75), 0) << "not in the table";
  EXPECT_EQ(ModelIndexOf(1), 0);
  EXPECT_EQ(ModelIndexOf(0xFFFFFFFFu), 0);
  for (int i = 1; i < kModelTableSize - 1; ++i) EXPECT_EQ(ModelIndexOf(ModelAt(i)), i);
}

TEST(ModelTable, SerialNumbers) {
  EXPECT_EQ(FormatSerial(6, 112345678), "01-1234-5678");
  EXPECT_EQ(FormatSerial(12, 112345678), "112345678");
  for (std::uint32_t m : {11u, 13u, 20u, 21u, 22u}) EXPECT_EQ(FormatSerial(m, 4021), "4021") << m;
  for (std::uint32_t m : {10u, 14u, 19u, 23u, 0u}) EXPECT_EQ(FormatSerial(m, 4021), "00-0000-4021") << m;
  EXPECT_EQ(FormatSerial(8, 0), "00-0000-0000");
  EXPECT_EQ(FormatSerial(8, 4294967295u), "42-9496-7295");
  EXPECT_EQ(FormatSerial(20, 4294967295u), "-1") << "printed as a signed decimal";
  EXPECT_EQ(FormatSerial(7, 99999999), "00-9999-9999");
  EXPECT_TRUE(HasCameraBlock(12));
  EXPECT_FALSE(HasCameraBlock(14));
}

}  // namespace
}  // namespace tarnvel
