// A front end that records what it is asked to show, and a job that the test
// steers behind the job interface: the ui tests and the desktop window's tests share them.
#pragma once

#include <atomic>
#include <functional>
#include <memory>
#include <mutex>
#include <semaphore>
#include <string>
#include <thread>
#include <vector>

#include "engine/ConversionJob.h"
#include "engine/JobOverrides.h"
#include "platform/cordage/Messages.h"
#include "platform/threads/Event.h"
#include "ui/FrontEnd.h"

namespace tarnvel::test {

// A front end for tests: its display thread is the caller, and it records
// what it was asked to show.
class RecordingFrontEnd : public FrontEnd {
 public:
  void RunOnMainThread(const std::function<void()>& work) override {
    std::lock_guard lock(mutex_);  // one display thread at a time
    work();
  }
  void RowChanged(std::uint32_t) override {}
  void SetBusy(bool) override { ++busyFlips; }
  int ShowMessage(int number, int style, const std::string& text) override {
    std::lock_guard lock(messageMutex);
    messages.push_back({number, style, text});
    return answer;
  }
  void RequestClose() override { ++closeRequests; }
  void Hide() override { ++hides; }

  struct Shown {
    int number, style;
    std::string text;
  };
  std::mutex messageMutex;
  std::vector<Shown> messages;
  std::atomic<int> busyFlips{0};
  std::atomic<int> closeRequests{0}, hides{0};
  int answer = kAnswerYes;

 private:
  std::recursive_mutex mutex_;
};

// A conversion the test controls behind the job interface: a given number of
// frames, each released by the test or at once, with a real job's pause gate,
// abort flag and reports.
struct FakeJobPlan {
  std::int32_t frames = 3;
  bool stepByStep = false;    // each frame waits for a release by the test
  std::int32_t failCode = 0;  // non-zero: fail before the first report with this status
  std::string failText;
};

// What all fake jobs of a test share: releases, counters, the running high-water mark.
struct FakeJobWorld {
  std::counting_semaphore<1000> frameRelease{0};
  std::atomic<int> running{0}, mostRunning{0}, started{0}, deleted{0};
  std::atomic<int> aborted{0};  // jobs that stopped on their abort flag before their last frame
};

class FakeJob : public ConversionJob {
 public:
  FakeJob(FakeJobWorld& world, FakeJobPlan plan, std::uint32_t row, bool bySuite)
      : sentBySuite(bySuite), world_(world), plan_(plan), row_(row) {}
  ~FakeJob() override {
    if (thread_.joinable()) thread_.join();
    ++world_.deleted;
  }

  void SetReportTarget(void*, ReportFunction report, void* context) override { report_ = report, context_ = context; }
  void SetOverrides(const char* folder, const JobOverrides& given) override {
    hasOverrides = true, destFolder = folder ? folder : "", overrides = given;
  }
  int Start(bool onOwnThread) override {
    ++world_.started;
    if (!onOwnThread) return Convert();
    done_ = std::make_unique<ManualResetEvent>(false);
    runState_ = RunState::RunningOnThread;
    thread_ = std::thread([this] { Convert(), done_->Set(); });
    return 0;
  }
  int WaitDone(std::uint32_t ms) override {
    if (!done_) return 1;
    if (!done_->Wait(std::chrono::milliseconds(ms))) return 0;
    thread_.join();
    done_.reset();
    return 1;
  }
  void Pause() override { gate_.Reset(); }
  void Resume() override { gate_.Set(); }
  void Abort() override { gate_.Set(), abortFlag_ = 1; }
  std::uint32_t RowIndex() const override { return row_; }
  bool AbortRequested() const override { return abortFlag_ != 0; }
  RunState GetRunState() const override { return runState_; }
  std::int32_t StatusCode() const override { return statusCode_; }
  std::string StatusText() const override { return statusText_; }
  RowStatus FinalStatus() const override { return final_; }

  const bool sentBySuite;
  bool hasOverrides = false;
  std::string destFolder;
  JobOverrides overrides;

 private:
  int Convert() {
    const int now = ++world_.running;
    for (int most = world_.mostRunning; now > most && !world_.mostRunning.compare_exchange_weak(most, now);) {}
    const int result = Run();
    --world_.running;
    return result;
  }
  int Run() {
    if (plan_.failCode != 0) return statusCode_ = plan_.failCode, statusText_ = plan_.failText, final_ = RowStatus::Error, -1;
    const std::uint32_t start = TickCount();
    report_(context_, row_, "out.tif", start, 1, 1, plan_.frames);
    for (std::int32_t i = 0; i < plan_.frames; ++i) {
      gate_.Wait();
      if (abortFlag_) { statusCode_ = 107, ++world_.aborted; break; }
      if (plan_.stepByStep) world_.frameRelease.acquire();
      report_(context_, row_, "out.tif", start, -1, i + 1, plan_.frames);
    }
    runState_ = RunState::Finished;
    final_ = abortFlag_ ? RowStatus::Abort : RowStatus::Done;
    report_(context_, row_, "out.tif", start, static_cast<std::int32_t>(final_.load()), plan_.frames, plan_.frames);
    return statusCode_ == 0 ? 0 : -1;
  }

  FakeJobWorld& world_;
  FakeJobPlan plan_;
  std::uint32_t row_;
  ReportFunction report_ = nullptr;
  void* context_ = nullptr;
  ManualResetEvent gate_{true};
  std::atomic<std::uint32_t> abortFlag_{0};
  std::atomic<RunState> runState_{RunState::NotStarted};
  std::atomic<RowStatus> final_{RowStatus::Waiting};
  std::int32_t statusCode_ = 0;
  std::string statusText_;
  std::unique_ptr<ManualResetEvent> done_;
  std::thread thread_;
};

}  // namespace tarnvel::test
