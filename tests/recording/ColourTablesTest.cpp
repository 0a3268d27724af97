#include "recording/ColourTables.h"

#include <gtest/gtest.h>

#include <cstring>
#include <memory>

namespace tarnvel {
namespace {

bool IsZero(const ColourPreset& p) {
  ColourPreset zero;
  std::memset(&zero, 0, sizeof zero);
  return std::memcmp(&p, &zero, sizeof p) == 0;
}

TEST(ColourTables, SetAndRecordingWhiteBalance) {
  ColourTables t;
  EXPECT_EQ(t.MatrixEntry(-1), 0.0);
  EXPECT_EQ(t.MatrixEntry(9), 0.0);
  ColourPreset user[kColourPresets];
  std::memset(user, 0, sizeof user);
  std::strcpy(user[9].Name, "last");
  user[0].Matrix[2] = 0.25;
  t.Set(user, nullptr);
  EXPECT_STREQ(t.User(9).Name, "last");
  EXPECT_EQ(t.MatrixEntry(2), 0.25);
  for (std::size_t i = 0; i < kColourPresets; ++i) EXPECT_TRUE(IsZero(t.Factory(i))) << "no factory block given";

  // 65536 is a gain of 1; only the diagonal counts, the other entries stay 0.
  auto rec = std::make_unique<RecordingInfo>();
  std::memset(rec.get(), 0, sizeof *rec);
  const std::uint32_t gains[9] = {131072, 7, 7, 7, 32768, 7, 7, 7, 98304};
  std::memcpy(rec->WhiteBal, gains, sizeof gains);
  t.SetRecordingWhiteBalance(*rec);
  const double expected[9] = {2.0, 0, 0, 0, 0.5, 0, 0, 0, 1.5};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(t.MatrixEntry(i), expected[i]) << i;
  EXPECT_STREQ(t.User(0).Name, "");
  EXPECT_TRUE(IsZero(t.User(1)));
}

}  // namespace
}  // namespace tarnvel
