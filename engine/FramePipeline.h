// Frames through three stages at once: each frame is begun on the calling
// thread in frame order (its raw frame taken, its records read), processed
// on one of a pool of workers in any order, and finished on the calling
// thread in frame order again (written where the output needs the order,
// reported). At most `slots` frames are under way; a frame keeps its slot
// from its beginning to its end, so the caller's per-slot state (buffers,
// processor, overlay texts) is never shared between two frames at a time.
#pragma once

#include <condition_variable>
#include <cstddef>
#include <cstdint>
#include <exception>
#include <functional>
#include <mutex>
#include <thread>
#include <vector>

namespace tarnvel {

struct FrameStages {
  // False when no frame may begin now without waiting (a closed pause
  // gate): the frames under way are finished first.
  std::function<bool()> mayBegin;
  // Fills `slot` for frame `index`; false ends the run before that frame.
  std::function<bool(std::size_t slot, std::int32_t index)> begin;
  // The frame's heavy work, on a worker.
  std::function<void(std::size_t slot)> process;
  // In frame order; false stops the run at this frame: the frames begun
  // after it are discarded, in order.
  std::function<bool(std::size_t slot)> finish;
  std::function<void(std::size_t slot)> discard;
};

class FramePipeline {
 public:
  FramePipeline(unsigned workers, std::size_t slots);
  ~FramePipeline();
  FramePipeline(const FramePipeline&) = delete;
  FramePipeline& operator=(const FramePipeline&) = delete;

  std::size_t Slots() const { return slots_.size(); }
  // Frames 0 to total - 1 through the stages. An exception from a stage
  // stops the run; once no worker holds a frame any more, the frames begun
  // are discarded and the first exception goes on to the caller.
  void Run(std::int32_t total, const FrameStages& stages);

 private:
  enum class SlotState { kFree, kQueued, kProcessing, kDone };
  struct Slot {
    SlotState state = SlotState::kFree;
    std::exception_ptr failure;
  };

  void Work();
  // Waits until the slot's frame is processed; rethrows what its processing threw.
  void AwaitProcessed(std::size_t slot);
  void Submit(std::size_t slot);
  // After an exception: waits for the workers, then discards frames [first, end).
  void DrainAfterFailure(std::int32_t first, std::int32_t end, const FrameStages& stages);

  std::vector<Slot> slots_;
  std::vector<std::size_t> queue_;  // slots waiting for a worker, oldest first
  const FrameStages* stages_ = nullptr;
  std::mutex mutex_;
  std::condition_variable workToDo_, slotDone_;
  bool stopping_ = false;
  std::vector<std::thread> workers_;
};

// How many workers a job's frames get: TARNVEL_FRAME_WORKERS when it holds a
// whole number from 1 on, else the processors this process may run on (a
// cluster task's share, a taskset, else the machine's) shared evenly
// between the jobs converting at the moment (at least one each). A job whose
// own thread writes every frame (one multi-frame file or movie, encoded in
// frame order) counts that thread as one of its share.
unsigned FrameWorkerCount(unsigned jobsRunning, bool writesOnJobThread);

// The memory a job's frames under way may hold: a quarter of the machine's,
// shared evenly between the jobs converting at the moment.
std::size_t FrameMemoryBudget(unsigned jobsRunning);

// Lets the process open as many files as its hard limit allows (once): every
// frame under way reads on a driver handle of its own, with the store's
// files open, and frames of their own files are written at once.
void RaiseDescriptorLimit();

// Counts the jobs converting frames while it lives, for FrameWorkerCount.
class RunningFrameJob {
 public:
  RunningFrameJob();
  ~RunningFrameJob();
  RunningFrameJob(const RunningFrameJob&) = delete;
  RunningFrameJob& operator=(const RunningFrameJob&) = delete;
  // The jobs converting now, this one included.
  unsigned JobsRunning() const { return running_; }

 private:
  unsigned running_;
};

}  // namespace tarnvel
