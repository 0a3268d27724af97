#include "engine/FramePipeline.h"

#include <sched.h>
#include <sys/resource.h>
#include <unistd.h>

#include <algorithm>
#include <atomic>
#include <cerrno>
#include <cstdlib>
#include <mutex>

namespace tarnvel {
namespace {

std::atomic<unsigned> g_frameJobs{0};

// More workers than this gain nothing on any machine and only cost memory.
constexpr unsigned long kMostWorkers = 256;

unsigned UsableProcessors() {
  cpu_set_t allowed;
  CPU_ZERO(&allowed);
  if (::sched_getaffinity(0, sizeof allowed, &allowed) == 0 && CPU_COUNT(&allowed) > 0)
    return static_cast<unsigned>(CPU_COUNT(&allowed));
  return std::max(std::thread::hardware_concurrency(), 1u);
}

}  // namespace

FramePipeline::FramePipeline(unsigned workers, std::size_t slots) : slots_(std::max<std::size_t>(slots, 1)) {
  workers = std::max(workers, 1u);
  workers_.reserve(workers);
  for (unsigned i = 0; i < workers; ++i) workers_.emplace_back([this] { Work(); });
}

FramePipeline::~FramePipeline() {
  {
    std::lock_guard lock(mutex_);
    stopping_ = true;
  }
  workToDo_.notify_all();
  for (std::thread& worker : workers_) worker.join();
}

void FramePipeline::Run(std::int32_t total, const FrameStages& stages) {
  {
    std::lock_guard lock(mutex_);
    stages_ = &stages;
  }
  const auto count = static_cast<std::int32_t>(slots_.size());
  std::int32_t begun = 0, finished = 0;
  bool beginning = true, stopped = false;
  try {
    while (finished < begun || (beginning && begun < total)) {
      const bool mayBegin = beginning && begun < total && begun - finished < count;
      // An empty pipeline begins even at a closed gate: begin waits there.
      if (mayBegin && (begun == finished || stages.mayBegin())) {
        const auto slot = static_cast<std::size_t>(begun % count);
        if (!stages.begin(slot, begun)) {
          beginning = false;
          continue;
        }
        ++begun;
        Submit(slot);
        continue;
      }
      const auto slot = static_cast<std::size_t>(finished % count);
      AwaitProcessed(slot);
      if (stopped) {
        stages.discard(slot);
      } else if (!stages.finish(slot)) {
        stopped = true;
        beginning = false;
      }
      ++finished;
    }
  } catch (...) {
    DrainAfterFailure(finished, begun, stages);
    throw;
  }
}

void FramePipeline::Submit(std::size_t slot) {
  {
    std::lock_guard lock(mutex_);
    slots_[slot].state = SlotState::kQueued;
    queue_.push_back(slot);
  }
  workToDo_.notify_one();
}

void FramePipeline::AwaitProcessed(std::size_t slot) {
  std::exception_ptr failure;
  {
    std::unique_lock lock(mutex_);
    // A slot awaited once already (its finish threw) is free: nothing to wait for.
    slotDone_.wait(lock, [&] { return slots_[slot].state == SlotState::kDone || slots_[slot].state == SlotState::kFree; });
    slots_[slot].state = SlotState::kFree;
    std::swap(failure, slots_[slot].failure);
  }
  if (failure) std::rethrow_exception(failure);
}

void FramePipeline::DrainAfterFailure(std::int32_t first, std::int32_t end, const FrameStages& stages) {
  const auto count = static_cast<std::int32_t>(slots_.size());
  for (std::int32_t i = first; i < end; ++i) {
    const auto slot = static_cast<std::size_t>(i % count);
    try {
      AwaitProcessed(slot);
    } catch (...) {
      // The first failure is the one that goes on; this frame is dropped anyway.
    }
    try {
      stages.discard(slot);
    } catch (...) {
    }
  }
}

void FramePipeline::Work() {
  std::unique_lock lock(mutex_);
  for (;;) {
    workToDo_.wait(lock, [this] { return stopping_ || !queue_.empty(); });
    if (stopping_) return;
    const std::size_t slot = queue_.front();
    queue_.erase(queue_.begin());
    slots_[slot].state = SlotState::kProcessing;
    const FrameStages& stages = *stages_;
    lock.unlock();
    std::exception_ptr failure;
    try {
      stages.process(slot);
    } catch (...) {
      failure = std::current_exception();
    }
    lock.lock();
    slots_[slot].failure = failure;
    slots_[slot].state = SlotState::kDone;
    slotDone_.notify_all();
  }
}

unsigned FrameWorkerCount(unsigned jobsRunning, bool writesOnJobThread) {
  if (const char* forced = std::getenv("TARNVEL_FRAME_WORKERS"); forced && *forced >= '0' && *forced <= '9') {
    char* end = nullptr;
    errno = 0;
    const unsigned long count = std::strtoul(forced, &end, 10);
    if (errno == 0 && *end == '\0' && count >= 1) return static_cast<unsigned>(std::min(count, kMostWorkers));
  }
  const unsigned machine = UsableProcessors();
  const unsigned share = machine / std::max(jobsRunning, 1u);
  return std::max(writesOnJobThread ? share - std::min(share, 1u) : share, 1u);
}

std::size_t FrameMemoryBudget(unsigned jobsRunning) {
  const long pages = ::sysconf(_SC_PHYS_PAGES), pageBytes = ::sysconf(_SC_PAGESIZE);
  const std::uint64_t machine = pages > 0 && pageBytes > 0 ? std::uint64_t(pages) * std::uint64_t(pageBytes) : 1ull << 32;
  return static_cast<std::size_t>(machine / 4 / std::max(jobsRunning, 1u));
}

void RaiseDescriptorLimit() {
  static std::once_flag once;
  std::call_once(once, [] {
    rlimit limit{};
    if (::getrlimit(RLIMIT_NOFILE, &limit) != 0 || limit.rlim_cur >= limit.rlim_max) return;
    limit.rlim_cur = limit.rlim_max;
    ::setrlimit(RLIMIT_NOFILE, &limit);  // where it is refused, slots stop at the descriptors there are
  });
}

RunningFrameJob::RunningFrameJob() : running_(++g_frameJobs) {}

RunningFrameJob::~RunningFrameJob() { --g_frameJobs; }

}  // namespace tarnvel
