// What the job and the scheduler use of the system's thread primitives: the
// manual-reset event and the millisecond tick counter.
#pragma once

#include <chrono>
#include <condition_variable>
#include <cstdint>
#include <mutex>

namespace tarnvel {

// Stays signalled until reset; every waiter passes while it is signalled.
class ManualResetEvent {
 public:
  explicit ManualResetEvent(bool signalled) : signalled_(signalled) {}
  ManualResetEvent(const ManualResetEvent&) = delete;
  ManualResetEvent& operator=(const ManualResetEvent&) = delete;

  void Set() {
    {
      std::lock_guard lock(mutex_);
      signalled_ = true;
    }
    changed_.notify_all();
  }
  void Reset() {
    std::lock_guard lock(mutex_);
    signalled_ = false;
  }
  bool IsSet() const {
    std::lock_guard lock(mutex_);
    return signalled_;
  }
  // True when the event was or became signalled within the time; false on time-out.
  bool Wait(std::chrono::milliseconds timeout) {
    std::unique_lock lock(mutex_);
    return changed_.wait_for(lock, timeout, [this] { return signalled_; });
  }
  void Wait() {
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [this] { return signalled_; });
  }

 private:
  mutable std::mutex mutex_;
  std::condition_variable changed_;
  bool signalled_;
};

// Milliseconds of a monotonic clock in 32 bits; differences wrap as the
// system's tick counter does, so (now - start) stays right across a wrap.
inline std::uint32_t TickCount() {
  using namespace std::chrono;
  return static_cast<std::uint32_t>(duration_cast<milliseconds>(steady_clock::now().time_since_epoch()).count());
}

}  // namespace tarnvel
