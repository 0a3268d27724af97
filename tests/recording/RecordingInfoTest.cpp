#include "recording/RecordingInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace tarnvel {
namespace {

TEST(RecordingInfo, FrameNumbersOfARunAndTruncatedRates) {
  auto r = std::make_unique<RecordingInfo>();
  std::memset(r.get(), 0, sizeof *r);
  r->StartIdx = r->FirstFrame = -40;
  EXPECT_EQ(SourceFramePosition(*r, 5), 5) << "a negative FirstFrame and the same StartIdx start at the source's 0";
  EXPECT_EQ(OutputFrameNumber(*r, 41), 1);
  r->ResetNr = 1;
  EXPECT_EQ(OutputFrameNumber(*r, 41), 41);
  r->StartIdx = 10, r->FirstFrame = 0, r->StartAvi = 12, r->StopAvi = 14;
  EXPECT_EQ(SourceFramePosition(*r, 2), 12);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(InMovieRange(*r, i), i >= 2 && i <= 4) << i;
  r->StartIdx = r->StopAvi = std::numeric_limits<std::int32_t>::max();
  EXPECT_FALSE(InMovieRange(*r, 1)) << "no wrap into the range";

  constexpr auto kMax = std::numeric_limits<std::int32_t>::max(), kMin = std::numeric_limits<std::int32_t>::min();
  const std::pair<float, std::int32_t> rates[] = {{29.97f, 29}, {-1.5f, -1}, {1e30f, kMax}, {-1e30f, kMin},
                                                  {std::nanf(""), 0}, {INFINITY, kMax}};
  for (const auto& [rate, truncated] : rates) EXPECT_EQ(TruncatedRate(rate), truncated) << rate;
}

TEST(RecordingList, CopiesListsAndCurrent) {
  RecordingList list;
  EXPECT_EQ(list.Current(), nullptr);
  auto r = std::make_unique<RecordingInfo>();
  std::memset(r.get(), 0, sizeof *r);
  r->StartIdx = 5;
  list.AddCopy(*r);
  r->StartIdx = 99;  // the list holds a copy, not the caller's record
  list.AddCopy(*r);
  list.SetCurrent(0);
  ASSERT_NE(list.Current(), nullptr);
  EXPECT_EQ(list.Current()->StartIdx, 5);
  list.SetCurrent(2);
  EXPECT_EQ(list.Current(), nullptr);
  list.SelectList(1);
  list.AddCopy(*r);
  EXPECT_EQ(list.Count(0), 2u);
  EXPECT_EQ(list.Count(1), 1u);
  list.Clear();
  EXPECT_EQ(list.Count(0) + list.Count(1), 0u);
  EXPECT_EQ(list.ActiveList(), 1) << "the active list is kept";
  EXPECT_EQ(list.Current(), nullptr);
}

}  // namespace
}  // namespace tarnvel
