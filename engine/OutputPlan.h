// Where a run's frames go, worked out once before the first frame: one
// multi-frame file that stays open for the whole run, or a file of its own
// for every frame. For each frame of the run the plan gives the task that the
// frame step gets: its place in the run and in the companion movie, its
// number, and the file it goes to.
#pragma once

#include <cstdint>
#include <string>

#include "recording/RecordingInfo.h"

namespace tarnvel {

struct FrameTask {
  std::int32_t index = 0;          // in the run, from 0
  std::int32_t total = 0;          // the frames the output is to hold
  std::int32_t number = 0;         // the frame number written and shown
  std::int32_t sequenceIndex = 0;  // the frame's place in the recording, for its clock
  std::int32_t movieIndex = -1;    // in the companion movie; -1 when not in it
  std::int32_t movieTotal = 0;
  std::string path;                // the file the frame goes to
};

struct OutputPlan {
  bool oneFile = false;   // one multi-frame file, else a file per frame
  std::string mainPath;   // the multi-frame file
  std::string folder;     // a file per frame: "<folder>/<base><number>.<extension>"
  std::string baseName;
  std::string extension;
  std::int32_t total = 0;        // frames of the run
  std::int32_t movieFrames = 0;  // of the companion movie; 0 without one

  // The task of frame `index` of the run.
  FrameTask TaskFor(const RecordingInfo& recording, std::int32_t index) const;
};

// The frame that closes a multi-frame file in good order after frame
// `failed` failed: the next frame (the same one when it was the last) as
// the file's last, in the movie too when the failed frame was in it.
FrameTask ClosingTask(const FrameTask& failed);

}  // namespace tarnvel
