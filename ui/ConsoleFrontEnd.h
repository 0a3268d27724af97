// The job list on a terminal or in a log: the headless converter's front
// end. On a terminal each change of a row rewrites one status line with a
// progress bar, frames, rate and time left; otherwise plain lines are written
// when a row changes its status and at every tenth of its progress. Messages
// go to the error stream with their number.
#pragma once

#include <chrono>
#include <cstdio>
#include <map>
#include <mutex>
#include <optional>
#include <string>

#include "ui/FrontEnd.h"
#include "ui/JobList.h"

namespace tarnvel {

class ConsoleFrontEnd : public FrontEnd {
 public:
  // `out` takes progress, `err` messages; `terminal` chooses the status line.
  ConsoleFrontEnd(std::FILE* out, std::FILE* err, bool terminal);
  void SetList(const JobList* list) { list_ = list; }

  void RunOnMainThread(const std::function<void()>& work) override;
  void RowChanged(std::uint32_t rowIndex) override;
  void SetBusy(bool busy) override;
  int ShowMessage(int number, int style, const std::string& text) override;
  void RequestClose() override;
  void Hide() override {}

  bool CloseRequested() const;

  // The last error or warning shown, questions aside: why a run failed.
  struct Shown {
    int number = 0;
    std::string text;
  };
  std::optional<Shown> LastProblem() const;

  // "[#####.....]" of `width` cells for done of total.
  static std::string Bar(std::int32_t done, std::int32_t total, int width);
  // Frames per second and seconds left from frames done, total and elapsed seconds.
  static std::string RateAndTimeLeft(std::int32_t done, std::int32_t total, double seconds);

 private:
  struct Seen {
    std::string status;
    int tenth = -1;
    std::chrono::steady_clock::time_point started;
  };

  std::FILE* out_;
  std::FILE* err_;
  bool terminal_;
  bool lineOpen_ = false;  // a status line waits to be overwritten
  const JobList* list_ = nullptr;
  mutable std::recursive_mutex mutex_;
  std::map<std::uint32_t, Seen> seen_;
  bool closeRequested_ = false;
  std::optional<Shown> lastProblem_;
};

}  // namespace tarnvel
