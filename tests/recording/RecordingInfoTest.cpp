#include "recording/RecordingInfo.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <memory>

namespace tarnvel {
namespace {

std::unique_ptr<RecordingInfo> Record(std::int32_t startIdx) {
  auto r = std::make_unique<RecordingInfo>();
  std::memset(r.get(), 0, sizeof *r);
  r->StartIdx = startIdx;
  return r;
}

TEST(RecordingInfo, FrameNumbersOfARun) {
  auto r = Record(-40);
  r->FirstFrame = -40;
  EXPECT_EQ(SourceFramePosition(*r, 0), 0) << "a negative FirstFrame and the same StartIdx start at the source's 0";
  EXPECT_EQ(SourceFramePosition(*r, 5), 5);
  EXPECT_EQ(OutputFrameNumber(*r, 0), -40);
  EXPECT_EQ(OutputFrameNumber(*r, 41), 1);
  r->ResetNr = 1;
  EXPECT_EQ(OutputFrameNumber(*r, 41), 41);
  r->StartIdx = 10;
  r->FirstFrame = 0;
  EXPECT_EQ(SourceFramePosition(*r, 2), 12);
  r->StartAvi = 12;
  r->StopAvi = 14;
  EXPECT_FALSE(InMovieRange(*r, 1));
  EXPECT_TRUE(InMovieRange(*r, 2));
  EXPECT_TRUE(InMovieRange(*r, 4)) << "both ends included";
  EXPECT_FALSE(InMovieRange(*r, 5));
  r->StartIdx = std::numeric_limits<std::int32_t>::max();
  r->StopAvi = std::numeric_limits<std::int32_t>::max();
  EXPECT_FALSE(InMovieRange(*r, 1)) << "no wrap into the range";
}

TEST(RecordingInfo, TruncatedRate) {
  EXPECT_EQ(TruncatedRate(29.97f), 29);
  EXPECT_EQ(TruncatedRate(-1.5f), -1);
  EXPECT_EQ(TruncatedRate(0.0f), 0);
  EXPECT_EQ(TruncatedRate(1e30f), std::numeric_limits<std::int32_t>::max());
  EXPECT_EQ(TruncatedRate(-1e30f), std::numeric_limits<std::int32_t>::min());
  EXPECT_EQ(TruncatedRate(std::nanf("")), 0);
  EXPECT_EQ(TruncatedRate(INFINITY), std::numeric_limits<std::int32_t>::max());
}

TEST(RecordingList, CopiesListsAndCurrent) {
  RecordingList list;
  EXPECT_EQ(list.CurrentIndex(), -1);
  EXPECT_EQ(list.Current(), nullptr);
  auto r = Record(5);
  std::strcpy(r->Name, "first");
  list.AddCopy(*r);
  r->StartIdx = 99;  // the list holds a copy, not the caller's record
  std::strcpy(r->Name, "second");
  list.AddCopy(*r);
  list.SetCurrent(0);
  ASSERT_NE(list.Current(), nullptr);
  EXPECT_EQ(list.Current()->StartIdx, 5);
  EXPECT_STREQ(list.Current()->Name, "first");
  list.SetCurrent(1);
  EXPECT_EQ(list.Current()->StartIdx, 99);
  list.SetCurrent(2);
  EXPECT_EQ(list.Current(), nullptr);

  list.SelectList(1);
  list.AddCopy(*r);
  EXPECT_EQ(list.Count(0), 2u);
  EXPECT_EQ(list.Count(1), 1u);
  list.Clear();
  EXPECT_EQ(list.Count(0), 0u);
  EXPECT_EQ(list.Count(1), 0u);
  EXPECT_EQ(list.CurrentIndex(), 0);
  EXPECT_EQ(list.ActiveList(), 1) << "the active list is kept";
  EXPECT_EQ(list.Current(), nullptr);
}

}  // namespace
}  // namespace tarnvel
