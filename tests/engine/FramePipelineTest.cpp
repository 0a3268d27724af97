#include "engine/FramePipeline.h"

#include <sched.h>

#include <gtest/gtest.h>

#include <algorithm>
#include <atomic>
#include <chrono>
#include <cstdlib>
#include <mutex>
#include <stdexcept>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// Stages that record what happened, on which slot, in which order.
struct Recorder {
  std::mutex mutex;
  std::vector<std::int32_t> frameOfSlot;
  std::vector<std::int32_t> finished, discarded;
  std::atomic<int> processing{0}, mostProcessing{0};
  std::int32_t underWay = 0, mostUnderWay = 0;
  std::int32_t stopAt = -1, endBefore = -1, throwAt = -1;

  explicit Recorder(std::size_t slots) : frameOfSlot(slots, -1) {}

  FrameStages Stages() {
    FrameStages s;
    s.mayBegin = [] { return true; };
    s.begin = [this](std::size_t slot, std::int32_t index) {
      if (index == endBefore) return false;
      EXPECT_EQ(frameOfSlot[slot], -1) << "a slot is handed out again before its frame ended";
      frameOfSlot[slot] = index;
      mostUnderWay = std::max(mostUnderWay, ++underWay);
      return true;
    };
    s.process = [this](std::size_t slot) {
      const int now = ++processing;
      int most = mostProcessing;
      while (now > most && !mostProcessing.compare_exchange_weak(most, now)) {
      }
      std::this_thread::sleep_for(std::chrono::milliseconds(1 + frameOfSlot[slot] % 3));  // out of order
      --processing;
      if (frameOfSlot[slot] == throwAt) throw std::runtime_error("process failed");
    };
    s.finish = [this](std::size_t slot) { return End(slot, finished) != stopAt; };
    s.discard = [this](std::size_t slot) { End(slot, discarded); };
    return s;
  }
  std::int32_t End(std::size_t slot, std::vector<std::int32_t>& into) {
    const std::int32_t frame = frameOfSlot[slot];
    into.push_back(frame);
    frameOfSlot[slot] = -1;
    --underWay;
    return frame;
  }
};

std::vector<std::int32_t> Range(std::int32_t from, std::int32_t to) {
  std::vector<std::int32_t> v;
  for (std::int32_t i = from; i < to; ++i) v.push_back(i);
  return v;
}

TEST(FramePipeline, FinishesInFrameOrderWithBoundedFramesUnderWay) {
  for (const unsigned workers : {1u, 3u}) {
    SCOPED_TRACE(workers);
    FramePipeline pipeline(workers, workers + 2);
    Recorder r(pipeline.Slots());
    pipeline.Run(40, r.Stages());
    EXPECT_EQ(r.finished, Range(0, 40));
    EXPECT_TRUE(r.discarded.empty());
    EXPECT_LE(r.mostUnderWay, static_cast<std::int32_t>(workers + 2));
    EXPECT_LE(r.mostProcessing, static_cast<int>(workers));
    // A second run on the same pipeline starts from a clean state.
    Recorder again(pipeline.Slots());
    pipeline.Run(5, again.Stages());
    EXPECT_EQ(again.finished, Range(0, 5));
  }
}

TEST(FramePipeline, AStoppedRunDiscardsWhatBeganAfterItsLastFrame) {
  FramePipeline pipeline(3, 5);
  Recorder stop(pipeline.Slots());
  stop.stopAt = 7;
  pipeline.Run(40, stop.Stages());
  EXPECT_EQ(stop.finished, Range(0, 8)) << "the stopping frame is finished, none after it";
  ASSERT_FALSE(stop.discarded.empty()) << "frames were under way when frame 7 stopped the run";
  EXPECT_EQ(stop.discarded, Range(8, 8 + static_cast<std::int32_t>(stop.discarded.size()))) << "in order";
  EXPECT_LE(stop.discarded.size(), 4u);
  EXPECT_EQ(stop.underWay, 0);

  Recorder end(pipeline.Slots());
  end.endBefore = 6;
  pipeline.Run(40, end.Stages());
  EXPECT_EQ(end.finished, Range(0, 6)) << "a frame that may not begin ends the run after the frames under way";
  EXPECT_TRUE(end.discarded.empty());

  Recorder thrown(pipeline.Slots());
  thrown.throwAt = 4;
  EXPECT_THROW(pipeline.Run(40, thrown.Stages()), std::runtime_error);
  EXPECT_EQ(thrown.finished, Range(0, 4));
  EXPECT_EQ(thrown.underWay, 0) << "every frame begun is finished or discarded before the exception goes on";
}

TEST(FramePipeline, AClosedGateFinishesTheFramesUnderWayBeforeWaiting) {
  FramePipeline pipeline(2, 4);
  Recorder r(pipeline.Slots());
  FrameStages stages = r.Stages();
  std::int32_t begun = 0;
  std::vector<std::int32_t> finishedAtGate;
  const auto begin = stages.begin;
  stages.begin = [&](std::size_t slot, std::int32_t index) {
    ++begun;
    return begin(slot, index);
  };
  // The gate closes after the tenth frame began: nothing more begins until
  // every frame under way is finished.
  stages.mayBegin = [&] { return begun < 10; };
  const auto finish = stages.finish;
  stages.finish = [&](std::size_t slot) {
    if (begun >= 10) finishedAtGate.push_back(r.frameOfSlot[slot]);
    return finish(slot);
  };
  pipeline.Run(20, stages);
  EXPECT_EQ(r.finished, Range(0, 20));
  ASSERT_FALSE(finishedAtGate.empty());
  // Frame 10 can only begin (at the closed gate) once frames 6 to 9 are finished.
  EXPECT_EQ(std::vector<std::int32_t>(finishedAtGate.begin(), finishedAtGate.begin() + 4), Range(6, 10));
}

// The processors this process may run on, as nproc counts them.
unsigned Processors() {
  std::string out;
  return test::RunCommand("nproc", &out) == 0 ? static_cast<unsigned>(std::stoul(out)) : 0u;
}

TEST(FramePipeline, WorkerCountFromTheProcessorsOrForced) {
  const unsigned machine = Processors();
  ASSERT_GE(machine, 1u);
  {
    const test::ScopedVariable unset("TARNVEL_FRAME_WORKERS", "");
    ::unsetenv("TARNVEL_FRAME_WORKERS");
    EXPECT_EQ(FrameWorkerCount(1, false), machine);
    EXPECT_EQ(FrameWorkerCount(1, true), std::max(machine - 1, 1u)) << "the job's thread writes: one worker less";
    EXPECT_EQ(FrameWorkerCount(machine * 2, false), 1u) << "at least one worker per job";
    EXPECT_EQ(FrameWorkerCount(machine * 2, true), 1u);
    EXPECT_EQ(FrameWorkerCount(2, false), std::max(machine / 2, 1u)) << "jobs share the machine";

    // A task given one processor (a cluster's share, taskset) gets one worker.
    cpu_set_t all, one;
    ASSERT_EQ(::sched_getaffinity(0, sizeof all, &all), 0);
    CPU_ZERO(&one);
    for (int cpu = 0; cpu < CPU_SETSIZE; ++cpu)
      if (CPU_ISSET(cpu, &all)) {
        CPU_SET(cpu, &one);
        break;
      }
    ASSERT_EQ(::sched_setaffinity(0, sizeof one, &one), 0);
    EXPECT_EQ(FrameWorkerCount(1, false), 1u);
    ASSERT_EQ(::sched_setaffinity(0, sizeof all, &all), 0);
  }
  for (const auto& [text, expected] : std::vector<std::pair<const char*, unsigned>>{
           {"1", 1}, {"3", 3}, {"0", machine}, {"-2", machine}, {"2x", machine}, {"", machine}, {" 2", machine},
           {"99999999999999999999", machine}, {"100000", 256}}) {
    const test::ScopedVariable forced("TARNVEL_FRAME_WORKERS", text);
    EXPECT_EQ(FrameWorkerCount(1, false), expected) << '"' << text << '"';
    EXPECT_EQ(FrameWorkerCount(1, true), expected == machine ? std::max(machine - 1, 1u) : expected)
        << "a forced count holds for every output";
  }
  {
    const RunningFrameJob first;
    const RunningFrameJob second;
    EXPECT_EQ(second.JobsRunning(), first.JobsRunning() + 1);
  }
  const RunningFrameJob alone;
  EXPECT_EQ(alone.JobsRunning(), 1u) << "a job that ended is no longer counted";
}

}  // namespace
}  // namespace tarnvel
