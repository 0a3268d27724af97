#include "ui/Scheduler.h"

#include <algorithm>
#include <cstring>
#include <vector>

#include "platform/cordage/Messages.h"
#include "platform/threads/Event.h"

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
  pendingJobs_.push_back(std::move(job));
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
  for (auto& job : pendingJobs_) {
    switch (action) {
      case JobAction::Abort: job->Abort(); break;
      case JobAction::Pause: job->Pause(); break;
      case JobAction::Resume: job->Resume(); break;
    }
  }
}

bool Scheduler::AbortJobs(bool all) {
  const int answer = frontEnd_.ShowMessage(kMsgConfirmAbort, kStyleYesNoQuestion, MessageText(kMsgConfirmAbort));
  if (answer != kAnswerYes) return false;
  if (all) abortAllFlag_ = 1;
  ForEachJob(JobAction::Abort);
  return true;
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
        SetParallel({words[0], words[1]});
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

ConversionJob* Scheduler::Front() {
  std::lock_guard lock(jobsMutex_);
  return pendingJobs_.empty() ? nullptr : pendingJobs_.front().get();
}

void Scheduler::RemoveFront() {
  std::unique_ptr<ConversionJob> job;
  {
    std::lock_guard lock(jobsMutex_);
    job = std::move(pendingJobs_.front());
    pendingJobs_.pop_front();
  }
}

void Scheduler::ShowJobError(const ConversionJob& job) {
  const std::int32_t code = job.StatusCode();
  const std::string argument = job.StatusText();
  frontEnd_.ShowMessage(code, StyleOf(code), MessageText(code, argument.c_str()));
}

void Scheduler::RunSequential() {
  SetBusy(true);
  abortAllFlag_ = 0;
  while (ConversionJob* job = Front()) {
    if (job->Start(false) == -1) {
      if (job->AbortRequested()) {
        if (abortAllFlag_ != 0) break;
        list_.SetRowStatus(job->RowIndex(), "", 0, static_cast<std::int32_t>(RowStatus::Abort), 1, 1);
      } else {
        list_.SetRowStatus(job->RowIndex(), "", 0, static_cast<std::int32_t>(RowStatus::Error), 1, 1);
        ShowJobError(*job);
      }
    }
    RemoveFront();
  }
  // After Abort all: the rest never ran.
  while (ConversionJob* job = Front()) {
    list_.SetRowStatus(job->RowIndex(), "", 0, static_cast<std::int32_t>(RowStatus::Abort), 1, 1);
    RemoveFront();
  }
  SetBusy(false);
}

void Scheduler::RunParallel() {
  SetBusy(true);
  std::int32_t running = 0;
  std::vector<ConversionJob*> round;
  auto snapshot = [&] {
    std::lock_guard lock(jobsMutex_);
    round.clear();
    for (auto& job : pendingJobs_) round.push_back(job.get());
  };
  for (snapshot(); !round.empty(); snapshot()) {
    for (ConversionJob* job : round)
      if (job->GetRunState() == RunState::NotStarted && running < parallelMaximum_) {
        job->Start(true);
        ++running;
      }
    for (ConversionJob* job : round) {
      if (job->GetRunState() == RunState::NotStarted || job->WaitDone(timing_.reapWait) == 0) continue;
      // A job that failed in a parallel pass ends as it would in a sequential
      // one: its row shows Abort or Error, and its message is shown.
      if (job->StatusCode() != 0 && job->StatusCode() != kMsgAborted) {
        list_.SetRowStatus(job->RowIndex(), "", 0, static_cast<std::int32_t>(RowStatus::Error), 1, 1);
        ShowJobError(*job);
      } else if (job->AbortRequested()) {
        list_.SetRowStatus(job->RowIndex(), "", 0, static_cast<std::int32_t>(RowStatus::Abort), 1, 1);
      }
      std::unique_ptr<ConversionJob> ended;
      {
        std::lock_guard lock(jobsMutex_);
        for (auto it = pendingJobs_.begin(); it != pendingJobs_.end(); ++it)
          if (it->get() == job) {
            ended = std::move(*it);
            pendingJobs_.erase(it);
            break;
          }
      }
      if (running > 0) --running;
    }
  }
  SetBusy(false);
}

}  // namespace tarnvel
