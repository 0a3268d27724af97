#include "ui/qt/MainThreadQueue.h"

#include <algorithm>

namespace tarnvel::qt {

MainThreadQueue::MainThreadQueue(QObject* parent) : QObject(parent), displayThread_(std::this_thread::get_id()) {}

MainThreadQueue::~MainThreadQueue() { Shut(); }

void MainThreadQueue::Run(const std::function<void()>& work) {
  if (OnDisplayThread()) {
    work();
    return;
  }
  Request request{&work};
  {
    std::lock_guard lock(mutex_);
    if (shut_) return;
    queue_.push_back(&request);
  }
  // Served from the event loop, or by a RunWhileServing that waits for this.
  changed_.notify_all();
  QMetaObject::invokeMethod(this, [this] { Drain(); }, Qt::QueuedConnection);
  std::unique_lock lock(mutex_);
  changed_.wait(lock, [&] { return request.state == State::Done || (shut_ && request.state == State::Queued); });
  // Shut before the display took it: the work never runs, and nothing refers to it any more.
  if (request.state == State::Queued) queue_.erase(std::find(queue_.begin(), queue_.end(), &request));
}

void MainThreadQueue::Drain() {
  for (;;) {
    Request* request;
    {
      std::lock_guard lock(mutex_);
      if (queue_.empty()) return;
      request = queue_.front();
      queue_.pop_front();
      request->state = State::Running;
    }
    (*request->work)();
    {
      std::lock_guard lock(mutex_);
      request->state = State::Done;
    }
    changed_.notify_all();
  }
}

void MainThreadQueue::RunWhileServing(const std::function<void()>& blocking) {
  bool finished = false;
  std::thread helper([&] {
    blocking();
    {
      std::lock_guard lock(mutex_);
      finished = true;
    }
    changed_.notify_all();
  });
  for (;;) {
    Drain();
    std::unique_lock lock(mutex_);
    changed_.wait(lock, [&] { return finished || !queue_.empty(); });
    if (finished && queue_.empty()) break;
  }
  helper.join();
}

void MainThreadQueue::Shut() {
  {
    std::lock_guard lock(mutex_);
    shut_ = true;
  }
  changed_.notify_all();
}

}  // namespace tarnvel::qt
