// Work that other threads hand to the display's thread and wait for: a job's
// row update, a message box, the busy state of a pass. The display's thread
// runs it from its event loop, and also while it waits for other threads
// itself (RunWhileServing), so a thread that waits for the display is never
// left waiting on a display that waits for it.
#pragma once

#include <QObject>
#include <condition_variable>
#include <deque>
#include <functional>
#include <mutex>
#include <thread>

namespace tarnvel::qt {

class MainThreadQueue : public QObject {
  Q_OBJECT

 public:
  // Made on the display's thread, which it serves.
  explicit MainThreadQueue(QObject* parent = nullptr);
  ~MainThreadQueue() override;

  bool OnDisplayThread() const { return std::this_thread::get_id() == displayThread_; }

  // Runs `work` on the display's thread and returns once it has run; on the
  // display's thread itself it runs at once. After Shut, work that has not
  // begun is dropped.
  void Run(const std::function<void()>& work);

  // On the display's thread: runs `blocking` on a helper thread and serves
  // requests until it returns.
  void RunWhileServing(const std::function<void()>& blocking);

  // From now on requests from other threads are dropped instead of waited for.
  void Shut();

 private:
  enum class State { Queued, Running, Done };
  struct Request {
    const std::function<void()>* work;
    State state = State::Queued;
  };

  // Runs every queued request; requests may nest (a message box serves more).
  void Drain();

  std::thread::id displayThread_;
  std::mutex mutex_;
  std::condition_variable changed_;
  std::deque<Request*> queue_;
  bool shut_ = false;
};

}  // namespace tarnvel::qt
