// The job as the job list and the scheduler see it. The converter's job
// object implements it; tests put a conversion of their own behind it.
#pragma once

#include <cstdint>
#include <string>

namespace tarnvel {

struct JobOverrides;

// A job's report: the text of the File column, the job's start in ticks,
// a row status (0 Waiting, 1 Converting, 2 Done, 3 Abort, 4 Error,
// 5 Converting + AVI) or -1 for progress only, frames done and frames in all.
// Called on the job's own thread.
using ReportFunction = void (*)(void* context, std::uint32_t rowIndex, const char* text, std::uint32_t startTicks,
                                std::int32_t state, std::int32_t current, std::int32_t total);

enum class RunState : std::uint32_t { NotStarted = 0, RunningOnThread = 1, Finished = 2 };

// The status of a job and of its row, as the list shows it; a report's
// `state` is one of these or kProgressOnly. Done, Abort and Error are final:
// a job and a row take one of them once and keep it.
enum class RowStatus : std::int32_t { Waiting = 0, Converting = 1, Done = 2, Abort = 3, Error = 4, ConvertingWithMovie = 5 };
inline constexpr std::int32_t kProgressOnly = -1;
inline constexpr bool IsFinal(RowStatus status) {
  return status == RowStatus::Done || status == RowStatus::Abort || status == RowStatus::Error;
}

class ConversionJob {
 public:
  virtual ~ConversionJob() = default;

  // Must be called before Start: the job reports at its end without testing it.
  virtual void SetReportTarget(void* drawWindow, ReportFunction report, void* context) = 0;
  // destFolder may be null: the output goes beside the recording.
  virtual void SetOverrides(const char* destFolder, const JobOverrides& overrides) = 0;

  // On the caller's thread returns the conversion's result (0, or -1 on
  // failure or abort); on a thread of its own returns 0 at once.
  virtual int Start(bool onOwnThread) = 0;
  // 1 when the job has no thread or its thread has ended, 0 on time-out.
  virtual int WaitDone(std::uint32_t milliseconds) = 0;
  virtual void Pause() = 0;
  virtual void Resume() = 0;
  virtual void Abort() = 0;

  virtual std::uint32_t RowIndex() const = 0;
  virtual bool AbortRequested() const = 0;
  virtual RunState GetRunState() const = 0;
  // The message of a failed job, or the warning of one that ended Done
  // (0 when there is none), and its argument.
  virtual std::int32_t StatusCode() const = 0;
  virtual std::string StatusText() const = 0;
  // Waiting until the job has ended, then Done, Abort or Error, set once.
  virtual RowStatus FinalStatus() const = 0;
};

}  // namespace tarnvel
