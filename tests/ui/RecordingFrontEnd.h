// A front end for tests: its display thread is the caller, and it records
// what it was asked to show.
#pragma once

#include <atomic>
#include <functional>
#include <mutex>
#include <string>
#include <vector>

#include "platform/cordage/Messages.h"
#include "ui/FrontEnd.h"

namespace tarnvel::test {

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

}  // namespace tarnvel::test
