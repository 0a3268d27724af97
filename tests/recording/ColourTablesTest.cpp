#include "recording/ColourTables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace tarnvel {
namespace {

bool IsUnit(const double* m) {
  for (int i = 0; i < 9; ++i)
    if (m[i] != (i == 0 || i == 4 || i == 8 ? 1.0 : 0.0)) return false;
  return true;
}

bool IsZero(const ColourPreset& p) {
  ColourPreset zero;
  std::memset(&zero, 0, sizeof zero);
  return std::memcmp(&p, &zero, sizeof p) == 0;
}

TEST(ColourTables, DefaultPresets) {
  ColourTables t;
  for (int i = 0; i < 9; ++i) EXPECT_EQ(t.MatrixEntry(i), i % 4 == 0 ? 1.0 : 0.0) << i;
  EXPECT_EQ(t.MatrixEntry(-1), 0.0);
  EXPECT_EQ(t.MatrixEntry(9), 0.0);
  const char* userNames[] = {"User", "Default", "Preset 1", "Preset 2", "Preset 3", "Preset 4"};
  for (std::size_t i = 0; i < 6; ++i) {
    EXPECT_STREQ(t.User(i).Name, userNames[i]);
    EXPECT_EQ(t.User(i).Temperature, 5600);
    EXPECT_EQ(t.User(i).BR, 0.0);
    EXPECT_TRUE(IsUnit(t.User(i).Matrix)) << i;
  }
  for (std::size_t i = 6; i < kColourPresets; ++i) EXPECT_TRUE(IsZero(t.User(i))) << i;
  const struct {
    const char* name;
    int kelvin;
  } factory[] = {{"A", 2856}, {"F2", 4230}, {"D50", 5000}, {"D65", 6500}};
  for (std::size_t i = 0; i < 4; ++i) {
    EXPECT_STREQ(t.Factory(i).Name, factory[i].name);
    EXPECT_EQ(t.Factory(i).Temperature, factory[i].kelvin);
    EXPECT_EQ(t.Factory(i).BR, 1.0);
    EXPECT_TRUE(IsUnit(t.Factory(i).Matrix));
  }
  for (std::size_t i = 4; i < kColourPresets; ++i) EXPECT_TRUE(IsZero(t.Factory(i))) << i;
}

TEST(ColourTables, SetAndRecordingWhiteBalance) {
  ColourTables t;
  ColourPreset user[kColourPresets];
  std::memset(user, 0, sizeof user);
  std::strcpy(user[9].Name, "last");
  user[0].Matrix[2] = 0.25;
  t.Set(user, nullptr);
  EXPECT_STREQ(t.User(9).Name, "last");
  EXPECT_EQ(t.MatrixEntry(2), 0.25);
  for (std::size_t i = 0; i < kColourPresets; ++i) EXPECT_TRUE(IsZero(t.Factory(i))) << "no factory block given";

  auto rec = std::make_unique<RecordingInfo>();
  std::memset(rec.get(), 0, sizeof *rec);
  const std::uint32_t unit[9] = {65536, 0, 0, 0, 65536, 0, 0, 0, 65536};
  std::memcpy(rec->WhiteBal, unit, sizeof unit);
  t.SetRecordingWhiteBalance(*rec);
  EXPECT_TRUE(IsUnit(t.Matrix())) << "the default white balance is the unit matrix";
  EXPECT_STREQ(t.User(0).Name, "");

  // Only the diagonal counts; the other entries stay 0.
  const std::uint32_t gains[9] = {131072, 7, 7, 7, 32768, 7, 7, 7, 98304};
  std::memcpy(rec->WhiteBal, gains, sizeof gains);
  t.SetRecordingWhiteBalance(*rec);
  const double expected[9] = {2.0, 0, 0, 0, 0.5, 0, 0, 0, 1.5};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(t.MatrixEntry(i), expected[i]) << i;
  EXPECT_TRUE(IsZero(t.User(1)));
}

}  // namespace
}  // namespace tarnvel
