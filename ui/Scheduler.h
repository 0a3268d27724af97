// The scheduler: one long-lived thread that runs the pending jobs one at a
// time on itself, or each on a thread of its own up to the parallel maximum,
// and the suite's commands that steer it.
#pragma once

#include <atomic>
#include <condition_variable>
#include <cstdint>
#include <functional>
#include <list>
#include <memory>
#include <mutex>
#include <span>
#include <string>
#include <thread>

#include "engine/ConversionJob.h"
#include "ui/FrontEnd.h"
#include "ui/JobList.h"
#include "ui/Settings.h"

namespace tarnvel {

enum class JobAction { Abort = 0, Pause = 1, Resume = 2 };

// Suite command numbers.
enum SuiteCommand : std::uint32_t { kAddJobCommand = 1, kPauseCommand = 2, kResumeCommand = 3, kCloseCommand = 4, kOptionsCommand = 5 };

class Scheduler {
 public:
  using JobFactory =
      std::function<std::unique_ptr<ConversionJob>(const std::string& argsPath, std::uint32_t row, bool sentBySuite)>;

  // Times in milliseconds; the tests shorten them.
  struct Timing {
    std::uint32_t reapWait = 2000;
    std::uint32_t closeWait = 1000;
  };

  Scheduler(JobList& list, FrontEnd& frontEnd, JobFactory factory, ParallelSettings settings);
  Scheduler(JobList& list, FrontEnd& frontEnd, JobFactory factory, ParallelSettings settings, Timing timing);
  ~Scheduler();
  Scheduler(const Scheduler&) = delete;
  Scheduler& operator=(const Scheduler&) = delete;

  // Creates the scheduler thread; it makes one pass at once.
  void StartThread();

  // A row and a job for it, appended to the pending jobs. The overrides and
  // destination folder go to the job when given. The row shows `rowPath`,
  // or the path itself when that is empty.
  void AddJob(const std::string& argsPath, const JobOverrides* overrides, const char* destFolder,
              bool sentBySuite, const std::string& rowPath = {});
  // Resumes the scheduler thread; a wake-up during a pass is never lost.
  void WakeUp();
  // Pause and resume reach every job; an abort reaches the jobs that have
  // started, since one that has not would run normally anyway.
  void ForEachJob(JobAction action);

  // Abort or Abort all: asks message 1061 first; true when the user said yes.
  bool AbortJobs(bool all);
  // Abort all without asking (a termination request): the running jobs end
  // with Abort, and no job that waits starts any more in this pass.
  void AbortAll();
  // The close operation: with jobs pending only hides and returns false; with
  // none stops the thread and returns true.
  bool Close();

  // A suite command with its payload; the caller answers 1 in every case.
  // Parallel settings outside what the Options dialog offers are ignored.
  void HandleSuiteCommand(std::uint32_t command, std::span<const std::uint8_t> payload);

  ParallelSettings Parallel() const { return {parallelEnabled_.load(), parallelMaximum_.load()}; }
  void SetParallel(const ParallelSettings& settings);
  bool HasPendingJobs() const;
  bool Busy() const { return busy_.load(); }

  // The job's report target: a row update on the display's thread.
  static void OnJobReport(void* context, std::uint32_t rowIndex, const char* text, std::uint32_t startTicks,
                          std::int32_t state, std::int32_t current, std::int32_t total);

 private:
  struct Pending {
    std::unique_ptr<ConversionJob> job;
    bool started = false;  // set under the lock, before the job starts
  };

  void ThreadMain();
  void RunSequential();
  void RunParallel();
  void SetBusy(bool busy);
  void ShowJobError(const ConversionJob& job);
  // The oldest job that has not started, marked started, unless Abort all
  // stands or (parallel) `running` has reached the maximum; null otherwise.
  ConversionJob* StartNext(std::int32_t running, bool parallel);
  // The row of an ended job takes its final status; errors and warnings are shown.
  void EndJob(const ConversionJob& job);
  void Remove(const ConversionJob* job);
  // After Abort all: the jobs that never started end as "Abort"; the flag is spent.
  void EndNeverStarted();

  JobList& list_;
  FrontEnd& frontEnd_;
  JobFactory factory_;
  Timing timing_;

  mutable std::mutex jobsMutex_;  // PendingJobs, and every use of a job by another thread
  std::list<Pending> pendingJobs_;

  std::mutex wakeMutex_;
  std::condition_variable wakeSignal_;
  bool wakePending_ = false;

  std::atomic<std::uint32_t> stopFlag_{0};
  std::atomic<std::uint32_t> abortAllFlag_{0};
  std::atomic<std::int32_t> parallelEnabled_;
  std::atomic<std::int32_t> parallelMaximum_;
  std::atomic<bool> busy_{false};
  std::thread thread_;
};

}  // namespace tarnvel
