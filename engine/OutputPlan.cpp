#include "engine/OutputPlan.h"

#include "engine/OutputNaming.h"

namespace tarnvel {

FrameTask OutputPlan::TaskFor(const RecordingInfo& recording, std::int32_t index) const {
  FrameTask task;
  task.index = index;
  task.total = total;
  task.number = OutputFrameNumber(recording, index);
  task.sequenceIndex = SourceFramePosition(recording, index);
  if (movieFrames != 0 && InMovieRange(recording, index))
    task.movieIndex = recording.StartIdx + index - recording.StartAvi;
  task.movieTotal = movieFrames;
  // Both ends of the range were checked before the run: every number between fits.
  task.path = oneFile ? mainPath : FrameOutputPath(folder, baseName, task.number, extension).value_or("");
  return task;
}

FrameTask ClosingTask(const FrameTask& failed) {
  FrameTask closing = failed;
  if (failed.index < failed.total - 1) ++closing.index;
  closing.sequenceIndex = closing.index;
  closing.total = closing.index + 1;
  if (failed.movieIndex != -1) {
    closing.movieIndex = failed.movieIndex + 1;
    closing.movieTotal = closing.movieIndex + 1;
  }
  return closing;
}

}  // namespace tarnvel
