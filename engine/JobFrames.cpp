// The job's frames through its frame pipeline: each frame begun in order on
// the job's thread, read and put through its frame step on a worker, and
// finished in order on the job's thread again (the writes that need the
// order, sidecar, report). A frame that is a file of its own is written and
// closed on its worker. The pause gate stands before both ends: no frame
// begins and none is finished while it is closed, and after an abort the
// frames under way are dropped as if they had never begun.
#include <cstdio>
#include <new>

#include "engine/DecodeRaw.h"
#include "engine/FramePipeline.h"
#include "engine/JobRun.h"
#include "platform/cordage/Messages.h"

namespace tarnvel {
namespace {

// A frame that needs more memory than the machine gives fails like a refused
// frame instead of ending the process.
template <class Step>
int Safely(Step step) {
  try {
    return step();
  } catch (const std::bad_alloc&) {
    return kFkOutOfMemory;
  }
}

// One frame begun, one processed, one waiting for its turn to be written.
constexpr std::size_t kFewestSlots = 3;

bool MovieDue(const JobRun& run, const FrameTask& task) { return run.movieHandle && task.movieIndex >= 0; }

}  // namespace

void CDecodeRaw::RunFrames(JobRun& run) {
  const OutputPlan& outputs = run.outputPlan;
  if (outputs.oneFile) {
    const FrameOptions* options = run.outputOptions ? &*run.outputOptions : nullptr;
    if (OpenOutput(outputs.mainPath.c_str(), 1, &run.outHandle, options) == 0)
      run.outputs.Created(outputs.mainPath);
    else
      run.outputs.Failed(outputs.mainPath);
  }
  Report(run, run.shownName, run.rowState, 1);
  run.reported = true;
  const RunningFrameJob running;
  const unsigned wanted = FrameWorkerCount(running.JobsRunning(), outputs.oneFile);
  // Two frames more than workers: one being begun, one waiting for its turn to be written.
  RaiseDescriptorLimit();
  run.buffersReady = SizeSlots(run, wanted + 2, FrameMemoryBudget(running.JobsRunning()));
  const std::size_t slots = slots_.size();
  FramePipeline pipeline(slots > 2 ? static_cast<unsigned>(slots - 2) : 1u, slots);
  FrameStages stages;
  stages.mayBegin = [this] { return pauseEvent_.IsSet(); };
  stages.begin = [&](std::size_t slot, std::int32_t index) { return BeginFrame(run, *slots_[slot], index); };
  stages.process = [&](std::size_t slot) { ProcessSlot(run, *slots_[slot]); };
  stages.finish = [&](std::size_t slot) { return FinishFrame(run, *slots_[slot]); };
  stages.discard = [&](std::size_t slot) { DiscardFrame(run, *slots_[slot]); };
  pipeline.Run(outputs.total, stages);
  if (!outputs.oneFile) return;
  if (run.outHandle && CloseOutput(run.outHandle) != 0) run.outputs.Failed(outputs.mainPath);
  run.outHandle = nullptr;
  if (args_->channelsOn && FinishFile(outputs.mainPath.c_str(), 2, 1) != 0) run.outputs.Failed(outputs.mainPath);
}

bool CDecodeRaw::SizeSlots(const JobRun& run, std::size_t wanted, std::size_t memoryBudget) {
  slots_.clear();
  std::size_t held = 0;
  while (slots_.size() < wanted) {
    auto slot = std::make_unique<FrameSlot>(locale_);
    slot->overlay = *overlay_;
    const bool ready = slot->buffers.Size(run.plan) && slot->source.Open(run.recordingFolder.c_str()) == 0;
    if (!ready && slots_.empty()) {
      slots_.push_back(std::move(slot));  // the run's frames fail in it
      return false;
    }
    if (!ready) {
      // Fewer frames under way. A handle that could not be had mostly means
      // the process is short of file descriptors: the last slot's go back
      // for the files the frames write.
      if (slots_.size() > 1) slots_.pop_back();
      break;
    }
    if (run.mosaicMode) slot->source.SetMosaicDelivery(true);
    // Its buffers, and the raw frame read into it, at most the size of its work buffer.
    const ImageView work = slot->buffers.Work();
    const std::size_t bytes = slot->buffers.Bytes() + std::size_t{work.rowBytes} * work.height;
    // Three at least keep one worker busy; more only within the budget.
    if (slots_.size() >= kFewestSlots && held + bytes > memoryBudget) break;
    held += bytes;
    slots_.push_back(std::move(slot));
  }
  return true;
}

bool CDecodeRaw::BeginFrame(JobRun& run, FrameSlot& slot, std::int32_t index) {
  if (!WaitAtGate()) return false;
  slot.task = run.outputPlan.TaskFor(*run.recording, index);
  slot.result = StartFrame(run, slot);
  // The first frame's block settles the run's GEV timings that every later
  // block reads: it is read here, before any other frame can be.
  if (slot.result == 0 && index == 0) slot.result = Safely([&] { return ReadFrame(run, slot); });
  slot.readDue = slot.result == 0 && index != 0;
  return true;
}

void CDecodeRaw::ProcessSlot(JobRun& run, FrameSlot& slot) {
  if (slot.readDue) slot.result = Safely([&] { return ReadFrame(run, slot); });
  if (!run.outputPlan.oneFile) return WriteOwnFile(run, slot);
  slot.result = Safely([&] { return ConvertSlot(run, slot); });
  // Read ahead of its turn: the movie takes it once the main file has taken the frame.
  if (slot.result == 0 && MovieDue(run, slot.task))
    slot.movieResult = Safely([&] { return PrepareMovieFrame(run, slot); });
}

void CDecodeRaw::WriteOwnFile(JobRun& run, FrameSlot& slot) {
  const FrameTask& task = slot.task;
  FrameHandle handle = nullptr;
  const FrameOptions* options = run.outputOptions ? &*run.outputOptions : nullptr;
  slot.fileCreated = OpenOutput(task.path.c_str(), 1, &handle, options) == 0;
  int result = Safely([&] {
    int written = ConvertSlot(run, slot);
    if (written == 0) written = WriteMain(run, slot, handle);
    if (written == 0 && MovieDue(run, task)) written = PrepareMovieFrame(run, slot);
    slot.movieReady = written == 0 && MovieDue(run, task);
    return written;
  });
  if (handle && CloseOutput(handle) != 0 && result == 0) result = kFkWriteFailed;
  if (result == 0 && args_->channelsOn && FinishFile(task.path.c_str(), 2, 1) != 0) result = kFkWriteFailed;
  slot.result = result;
}

int CDecodeRaw::WriteInOrder(JobRun& run, FrameSlot& slot) {
  if (run.outputPlan.oneFile) {
    if (slot.result == 0) slot.result = Safely([&] { return WriteMain(run, slot, run.outHandle); });
    if (slot.result == 0 && MovieDue(run, slot.task)) slot.result = slot.movieResult;
    slot.movieReady = slot.result == 0 && MovieDue(run, slot.task);
  }
  if (slot.movieReady) WriteCompanion(run, slot);
  return slot.result;
}

bool CDecodeRaw::FinishFrame(JobRun& run, FrameSlot& slot) {
  // The gate holds the frame before anything of it shows: a paused job stays
  // at its next frame, an aborted one ends with the frames before it.
  if (!WaitAtGate()) {
    DiscardFrame(run, slot);
    return false;
  }
  const FrameTask& task = slot.task;
  const bool ownFile = !run.outputPlan.oneFile;
  if (ownFile && slot.fileCreated) run.outputs.Created(task.path);
  const int result = WriteInOrder(run, slot);
  WriteSidecarFrame(run, slot.raw, task.number);
  if (result != 0) {
    if (ownFile)
      DropOwnFile(run, slot);
    else
      CloseInGoodOrder(run, slot);
    Fail(result < 0 ? kMsgFrameFailedNegative : kMsgFrameFailedPositive, task.path);
    return false;
  }
  ++run.facts.framesWritten;
  Report(run, ownFile ? std::string(LastComponent(task.path)) : run.shownName, kProgressOnly, task.index + 1);
  return true;
}

void CDecodeRaw::DropOwnFile(JobRun& run, const FrameSlot& slot) {
  // The frame's file holds no whole frame: it goes.
  if (!slot.fileCreated) return;
  std::remove(slot.task.path.c_str());
  run.outputs.Removed(slot.task.path);
}

void CDecodeRaw::DiscardFrame(const JobRun& run, const FrameSlot& slot) {
  // The run stopped before this frame showed: as if it had never begun, so
  // the run's files end where its reports and sidecar end.
  if (!run.outputPlan.oneFile && slot.fileCreated) std::remove(slot.task.path.c_str());
}

void CDecodeRaw::CloseInGoodOrder(JobRun& run, FrameSlot& slot) {
  // A frame once more, as the file's last, so that the file stays readable.
  slot.task = ClosingTask(slot.task);
  slot.result = StartFrame(run, slot);
  slot.readDue = slot.result == 0;
  ProcessSlot(run, slot);
  WriteInOrder(run, slot);
  WriteSidecarFrame(run, slot.raw, slot.task.number);
}

}  // namespace tarnvel
