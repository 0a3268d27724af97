#include "engine/OutputPlan.h"

#include <gtest/gtest.h>

#include <cstring>

namespace tarnvel {
namespace {

RecordingInfo Recording(std::int32_t firstFrame, std::int32_t startIdx, std::int32_t startAvi, std::int32_t stopAvi) {
  RecordingInfo rec;
  std::memset(&rec, 0, sizeof rec);
  rec.FirstFrame = firstFrame;
  rec.StartIdx = startIdx;
  rec.StartAvi = startAvi;
  rec.StopAvi = stopAvi;
  return rec;
}

TEST(OutputPlan, EachFrameKnowsItsNumberFileAndMoviePlace) {
  // Frames -5..4 of a recording starting at -10; the movie takes -3..0.
  RecordingInfo rec = Recording(-10, -5, -3, 0);
  OutputPlan plan;
  plan.folder = "/o";
  plan.baseName = "Run";
  plan.extension = "tif";
  plan.total = 10;
  plan.movieFrames = 4;
  const FrameTask first = plan.TaskFor(rec, 0);
  EXPECT_EQ(first.number, -5);
  EXPECT_EQ(first.sequenceIndex, 5);
  EXPECT_EQ(first.movieIndex, -1) << "before the movie's range";
  EXPECT_EQ(first.path, "/o/Run-000005.tif");
  const FrameTask inMovie = plan.TaskFor(rec, 3);
  EXPECT_EQ(inMovie.number, -2);
  EXPECT_EQ(inMovie.movieIndex, 1);
  EXPECT_EQ(inMovie.movieTotal, 4);
  EXPECT_EQ(inMovie.total, 10);
  EXPECT_EQ(plan.TaskFor(rec, 5).movieIndex, 3);
  EXPECT_EQ(plan.TaskFor(rec, 6).movieIndex, -1) << "past the movie's range";
  plan.movieFrames = 0;
  EXPECT_EQ(plan.TaskFor(rec, 3).movieIndex, -1) << "no companion movie";

  rec.ResetNr = 1;
  EXPECT_EQ(plan.TaskFor(rec, 3).number, 3) << "numbering from 0";
  EXPECT_EQ(plan.TaskFor(rec, 3).path, "/o/Run000003.tif");
  plan.oneFile = true;
  plan.mainPath = "/o/Run.mpt";
  EXPECT_EQ(plan.TaskFor(rec, 7).path, "/o/Run.mpt") << "every frame goes to the one file";
}

TEST(OutputPlan, AFailedFrameIsFollowedByOneThatClosesTheFile) {
  RecordingInfo rec = Recording(0, 10, 10, 19);
  OutputPlan plan;
  plan.oneFile = true;
  plan.mainPath = "/o/Run.mpt";
  plan.total = 8;
  plan.movieFrames = 10;
  // In the middle: the next place, as the last of the file and of the movie.
  const FrameTask middle = ClosingTask(plan.TaskFor(rec, 3));
  EXPECT_EQ(middle.index, 4);
  EXPECT_EQ(middle.total, 5);
  EXPECT_EQ(middle.sequenceIndex, 4);
  EXPECT_EQ(middle.number, 13) << "the failed frame's number";
  EXPECT_EQ(middle.movieIndex, 4);
  EXPECT_EQ(middle.movieTotal, 5);
  EXPECT_EQ(middle.path, "/o/Run.mpt");
  // The last frame failed: the same place once more.
  const FrameTask last = ClosingTask(plan.TaskFor(rec, 7));
  EXPECT_EQ(last.index, 7);
  EXPECT_EQ(last.total, 8);
  EXPECT_EQ(last.movieIndex, 8);
  // A frame outside the movie leaves the movie alone.
  plan.movieFrames = 0;
  const FrameTask noMovie = ClosingTask(plan.TaskFor(rec, 2));
  EXPECT_EQ(noMovie.movieIndex, -1);
  EXPECT_EQ(noMovie.movieTotal, 0);
}

}  // namespace
}  // namespace tarnvel
