#include "ui/Scheduler.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/cordage/Messages.h"
#include "platform/threads/Event.h"
#include "ui/Settings.h"

namespace tarnvel {

Scheduler::Scheduler(JobList& list, FrontEnd& frontEnd, JobFactory factory, ParallelSettings settings)
    : Scheduler(list, frontEnd, std::move(factory), settings, Timing{}) {}

Scheduler::Scheduler(JobList& list, FrontEnd& frontEnd, JobFactory factory, ParallelSettings settings,
                     Timing timing)
    : list_(list),
      frontEnd_(frontEnd),
      factory_(std::move(factory)),
      timing_(timing),
      parallelEnabled_(settings.enabled),
      parallelMaximum_(settings.maximum) {}

Scheduler::~Scheduler() {
  stopFlag_ = 1;
  WakeUp();
  if (thread_.joinable()) thread_.join();
}

void Scheduler::StartThread() { thread_ = std::thread([this] { ThreadMain(); }); }

void Scheduler::AddJob(const std::string& argsPath, const JobOverrides* overrides, const char* destFolder,
                       bool sentBySuite, const std::string& rowPath) {
  const std::uint32_t row = list_.AddRow(rowPath.empty() ? argsPath : rowPath);
  std::unique_ptr<ConversionJob> job = factory_(argsPath, row, sentBySuite);
  job->SetReportTarget(nullptr, &Scheduler::OnJobReport, this);
  if (overrides) job->SetOverrides(destFolder, *overrides);
  std::lock_guard lock(jobsMutex_);
  pendingJobs_.push_back({std::move(job), false});
}

void Scheduler::WakeUp() {
  {
    std::lock_guard lock(wakeMutex_);
    wakePending_ = true;
  }
  wakeSignal_.notify_one();
}

void Scheduler::ForEachJob(JobAction action) {
  std::lock_guard lock(jobsMutex_);
  for (Pending& pending : pendingJobs_) {
    switch (action) {
      case JobAction::Abort:
        if (pending.started) pending.job->Abort();
        break;
      case JobAction::Pause: pending.job->Pause(); break;
      case JobAction::Resume: pending.job->Resume(); break;
    }
  }
}

bool Scheduler::AbortJobs(bool all) {
  const int answer = frontEnd_.ShowMessage(kMsgConfirmAbort, kStyleYesNoQuestion, MessageText(kMsgConfirmAbort));
  if (answer != kAnswerYes) return false;
  if (all)
    AbortAll();
  else
    ForEachJob(JobAction::Abort);
  return true;
}

void Scheduler::AbortAll() {
  // Under the lock that guards every start: no job can start between the
  // flag and the aborts.
  std::lock_guard lock(jobsMutex_);
  abortAllFlag_ = 1;
  for (Pending& pending : pendingJobs_)
    if (pending.started) pending.job->Abort();
}

bool Scheduler::Close() {
  if (HasPendingJobs()) {
    frontEnd_.Hide();
    return false;
  }
  stopFlag_ = 1;
  WakeUp();
  // The thread is idle or ends its pass over an empty list at once; a
  // std::thread cannot be killed, so past the wait it is joined all the same.
  if (thread_.joinable()) thread_.join();
  return true;
}

void Scheduler::HandleSuiteCommand(std::uint32_t command, std::span<const std::uint8_t> payload) {
  switch (command) {
    case kAddJobCommand: {
      // The path ends at its first zero byte or with the payload; one that
      // would not fit the 1,024-byte buffer with its terminator is refused
      // rather than cut into another path.
      const std::size_t length = std::find(payload.begin(), payload.end(), 0) - payload.begin();
      if (length >= 1024) break;
      const std::string path(reinterpret_cast<const char*>(payload.data()), length);
      frontEnd_.RunOnMainThread([&] { AddJob(path, nullptr, nullptr, true); });
      WakeUp();
      ForEachJob(JobAction::Resume);
      break;
    }
    case kPauseCommand: ForEachJob(JobAction::Pause); break;
    case kResumeCommand: ForEachJob(JobAction::Resume); break;
    case kCloseCommand:
      if (!HasPendingJobs()) frontEnd_.RequestClose();
      break;
    case kOptionsCommand:
      if (payload.size() == 8) {
        std::int32_t words[2];
        std::memcpy(words, payload.data(), 8);
        if (ParallelSettingsValid({words[0], words[1]})) SetParallel({words[0], words[1]});
      }
      break;
    default: break;
  }
}

void Scheduler::SetParallel(const ParallelSettings& settings) {
  parallelEnabled_ = settings.enabled;
  parallelMaximum_ = settings.maximum;
}

bool Scheduler::HasPendingJobs() const {
  std::lock_guard lock(jobsMutex_);
  return !pendingJobs_.empty();
}

void Scheduler::OnJobReport(void* context, std::uint32_t rowIndex, const char* text, std::uint32_t startTicks,
                            std::int32_t state, std::int32_t current, std::int32_t total) {
  auto* self = static_cast<Scheduler*>(context);
  if (state == -1)
    self->list_.SetRowProgress(rowIndex, startTicks, current, total);
  else
    self->list_.SetRowStatus(rowIndex, text ? text : "", startTicks, state, current, total);
}

void Scheduler::ThreadMain() {
  while (stopFlag_ == 0) {
    if (parallelEnabled_ != 0)
      RunParallel();
    else
      RunSequential();
    std::unique_lock lock(wakeMutex_);
    wakeSignal_.wait(lock, [this] { return wakePending_; });
    wakePending_ = false;
  }
}

void Scheduler::SetBusy(bool busy) {
  busy_ = busy;
  frontEnd_.RunOnMainThread([&] { frontEnd_.SetBusy(busy); });
}

ConversionJob* Scheduler::StartNext(std::int32_t running, bool parallel) {
  std::lock_guard lock(jobsMutex_);
  const std::int32_t most = std::clamp(parallelMaximum_.load(), 1, kMostParallelJobs);  // whatever the store says
  if (abortAllFlag_ != 0 || (parallel && running >= most)) return nullptr;
  for (Pending& pending : pendingJobs_) {
    if (pending.started) continue;
    pending.started = true;
    if (parallel) pending.job->Start(true);  // returns at once; the sequential job runs outside the lock
    return pending.job.get();
  }
  return nullptr;
}

void Scheduler::Remove(const ConversionJob* job) {
  std::unique_ptr<ConversionJob> ended;  // deleted outside the lock
  std::lock_guard lock(jobsMutex_);
  for (auto it = pendingJobs_.begin(); it != pendingJobs_.end(); ++it)
    if (it->job.get() == job) {
      ended = std::move(it->job);
      pendingJobs_.erase(it);
      return;
    }
}

void Scheduler::ShowJobError(const ConversionJob& job) {
  const std::int32_t code = job.StatusCode();
  const std::string argument = job.StatusText();
  frontEnd_.ShowMessage(code, StyleOf(code), MessageText(code, argument.c_str()));
}

void Scheduler::EndJob(const ConversionJob& job) {
  switch (job.FinalStatus()) {
    case RowStatus::Done:
      if (job.StatusCode() != 0) ShowJobError(job);  // a warning of a job that succeeded
      break;
    case RowStatus::Abort: list_.SetRowStatus(job.RowIndex(), RowStatus::Abort); break;
    default:  // Error, or a job that ended without saying how
      list_.SetRowStatus(job.RowIndex(), RowStatus::Error);
      if (job.StatusCode() != 0 && job.StatusCode() != kMsgAborted) ShowJobError(job);
      break;
  }
}

void Scheduler::EndNeverStarted() {
  std::vector<std::unique_ptr<ConversionJob>> ended;
  {
    std::lock_guard lock(jobsMutex_);
    if (abortAllFlag_ == 0) return;
    for (auto it = pendingJobs_.begin(); it != pendingJobs_.end();) {
      if (it->started) {
        ++it;
        continue;
      }
      ended.push_back(std::move(it->job));
      it = pendingJobs_.erase(it);
    }
  }
  for (const auto& job : ended) list_.SetRowStatus(job->RowIndex(), RowStatus::Abort);
}

void Scheduler::RunSequential() {
  SetBusy(true);
  while (ConversionJob* job = StartNext(0, false)) {
    job->Start(false);
    EndJob(*job);
    Remove(job);
  }
  EndNeverStarted();
  abortAllFlag_ = 0;  // Abort all ends this pass only
  SetBusy(false);
}

void Scheduler::RunParallel() {
  SetBusy(true);
  std::int32_t running = 0;
  std::vector<ConversionJob*> started;
  for (;;) {
    while (ConversionJob* job = StartNext(running, true)) {
      started.push_back(job);
      ++running;
    }
    EndNeverStarted();
    if (started.empty()) break;
    for (auto it = started.begin(); it != started.end();) {
      if ((*it)->WaitDone(timing_.reapWait) == 0) {
        ++it;
        continue;
      }
      EndJob(**it);
      Remove(*it);
      it = started.erase(it);
      --running;
    }
  }
  abortAllFlag_ = 0;
  SetBusy(false);
}

}  // namespace tarnvel
