// One conversion job: a recording, named by its argument file, turned into
// its output set. The job owns everything a conversion needs, so jobs on
// different threads share nothing but the libraries.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <mutex>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "channels/DataPlot.h"
#include "engine/ConversionJob.h"
#include "engine/FrameGeometry.h"
#include "engine/FramePlan.h"
#include "engine/FrameSlot.h"
#include "engine/JobArgs.h"
#include "engine/JobOverrides.h"
#include "engine/OutputPlan.h"
#include "engine/RawFrame.h"
#include "engine/RawSource.h"
#include "engine/XmlFileWriter.h"
#include "frames/ImageOps.h"
#include "frames/ImageProcessor.h"
#include "frames/overlay/LocaleFormat.h"
#include "frames/overlay/LogoImage.h"
#include "frames/overlay/OverlayItems.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"
#include "platform/threads/Event.h"
#include "recording/ColourTables.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {

struct JobRun;

class CDecodeRaw final : public ConversionJob {
 public:
  CDecodeRaw(std::string_view argsPath, std::uint32_t rowIndex, std::uint32_t sentBySuite);
  ~CDecodeRaw() override;
  CDecodeRaw(const CDecodeRaw&) = delete;
  CDecodeRaw& operator=(const CDecodeRaw&) = delete;

  void SetReportTarget(void* drawWindow, ReportFunction report, void* context) override;
  void SetOverrides(const char* destFolder, const JobOverrides& overrides) override;
  int Start(bool onOwnThread) override;
  int WaitDone(std::uint32_t milliseconds) override;
  void Pause() override { pauseEvent_.Reset(); }
  void Resume() override { pauseEvent_.Set(); }
  void Abort() override;
  std::uint32_t RowIndex() const override { return rowIndex_; }
  bool AbortRequested() const override { return abortFlag_ != 0; }
  RunState GetRunState() const override { return runState_.load(); }
  std::int32_t StatusCode() const override { return statusCode_; }
  std::string StatusText() const override { return std::string(FieldText(statusText_)); }
  RowStatus FinalStatus() const override { return finalStatus_.load(); }

  // The conversion itself: 0 when it ended Done, else -1 with the reason in
  // StatusCode() and StatusText(). An abort asked for at any time before the
  // end (also before the start) ends it as Abort.
  int ConvertJob();

  // How long a closed pause gate holds a frame before it opens by itself
  // (eight minutes); tests shorten it.
  void SetPauseTimeout(std::chrono::milliseconds timeout) { pauseTimeout_ = timeout; }

 private:
  int Fail(std::int32_t code, std::string_view text);
  // The frame step of one frame, in the stages of FrameStep.h with this
  // run's plan. A clean slot for the frame; -1 when the run has no buffers.
  int StartFrame(const JobRun& run, FrameSlot& slot) const;
  // The raw frame on the slot's own handle, its block and capture record;
  // 0 or the frame's failure.
  int ReadFrame(JobRun& run, FrameSlot& slot);
  // Placing, chain, depth and burn-ins into the slot's buffers (on a worker).
  int ConvertSlot(JobRun& run, FrameSlot& slot);
  // Placing, chain and depth: an empty view when the delivery is short.
  ImageView ProcessFrame(const FramePlan& plan, FrameSlot& slot);
  // The background image for a picture of that size and depth, or none.
  ConstImageView Background(const ConstImageView& picture) const;
  // Markers, logos and text, plot: returns the frame to write.
  ImageView BurnIn(const JobRun& run, FrameSlot& slot, ImageView frame) const;
  void PlaceOverlayTexts(const JobRun& run, FrameSlot& slot, std::int32_t showState) const;
  void SetUpPlot(const JobRun& run, CDataBmp& plot) const;
  std::uint32_t FrameExposure(const JobRun& run, const RawFrame& raw) const;
  void BuildBlock(JobRun& run, FrameSlot& slot);
  int WriteMain(const JobRun& run, FrameSlot& slot, FrameHandle out) const;
  // The companion movie's frame read and processed anew when the plan says so.
  int PrepareMovieFrame(const JobRun& run, FrameSlot& slot);
  void WriteCompanion(JobRun& run, FrameSlot& slot);
  // Works out this run's plan and what the source tells once per run, and
  // sizes the frame buffers.
  void PlanFrames(JobRun& run);
  void DescribeSource(JobRun& run);
  // Everything before the first output opens; -1 with the status set when
  // the job cannot run. Nothing is written before it succeeds.
  int Prepare(JobRun& run);
  void SettleOutputSettings(JobRun& run);
  int OpenSource(JobRun& run);
  std::string OutputNameProblem(JobRun& run);
  void PrepareBuffersAndChannels(JobRun& run);
  // The companion movie, logos and time sidecar; a movie or sidecar that
  // cannot be made is an output failure, and the job goes on without it.
  void OpenCompanions(JobRun& run);
  // The frames into the outputs of the run's output plan, through a frame
  // pipeline (FramePipeline.h) whose stages are the four below.
  void RunFrames(JobRun& run);
  // Up to `wanted` slots for frames under way, each with buffers for the plan
  // and a driver handle, fewer when they would hold more than `memoryBudget`
  // or a handle cannot be had; false, with one slot, when not even the first
  // can be had.
  bool SizeSlots(const JobRun& run, std::size_t wanted, std::size_t memoryBudget);
  // Gate, task and raw frame; false when the run ends before the frame.
  bool BeginFrame(JobRun& run, FrameSlot& slot, std::int32_t index);
  // The frame step; a frame that is a file of its own is written and closed here.
  void ProcessSlot(JobRun& run, FrameSlot& slot);
  void WriteOwnFile(JobRun& run, FrameSlot& slot);
  // The writes that follow the frame order (the multi-frame file, the companion movie).
  int WriteInOrder(JobRun& run, FrameSlot& slot);
  // Writes in order, sidecar entry, report; false, with the status set, when
  // the run stops at this frame.
  bool FinishFrame(JobRun& run, FrameSlot& slot);
  void DropOwnFile(JobRun& run, const FrameSlot& slot);
  void DiscardFrame(const JobRun& run, const FrameSlot& slot);
  void CloseInGoodOrder(JobRun& run, FrameSlot& slot);
  void CommonEnd(JobRun& run);
  void CloseCompanions(JobRun& run);
  // The job's final status, decided once, with the deletion of the raw files.
  RowStatus SettleEnd(JobRun& run);
  void SetFinal(RowStatus status);
  void LoadBackground();
  void WriteSidecarHead(JobRun& run);
  void WriteSidecarFrame(JobRun& run, const RawFrame& raw, std::int32_t frameNumber);
  // Waits while paused; false, with status 107, when the job was aborted.
  bool WaitAtGate();
  void Report(const JobRun& run, const std::string& text, std::int32_t state, std::int32_t current);

  std::int32_t statusCode_ = 0;
  char statusText_[kPathField] = {};
  RawSource rawSource_;
  FrameGeometry geometry_;
  char argsPath_[kPathField] = {};
  std::uint32_t rowIndex_;
  std::uint32_t sentBySuite_;
  bool hasCameraBlock_ = false;
  std::vector<std::unique_ptr<FrameSlot>> slots_;  // the frames under way
  std::mutex movieSourceMutex_;                     // rawSource_ while frames are under way
  std::vector<std::uint8_t> backgroundFrame_;
  CImageOpList imageOps_;
  RecordingList recordings_;
  std::unique_ptr<JobArgs> args_;
  std::int32_t textBarHeight_ = 0;
  ColourTables whiteBalance_;
  LogoImage logos_[2];
  std::unique_ptr<OverlayConfig> overlay_;
  LocaleFormat locale_;  // the user's date and time format, read once when the job is made
  CXmlFileWriter timeWriter_;
  ReportFunction report_ = nullptr;
  void* reportContext_ = nullptr;
  ManualResetEvent pauseEvent_{true};
  std::unique_ptr<ManualResetEvent> doneEvent_;
  std::atomic<std::uint32_t> abortFlag_{0};
  void* drawWindow_ = nullptr;
  std::atomic<RunState> runState_{RunState::NotStarted};
  std::atomic<RowStatus> finalStatus_{RowStatus::Waiting};
  char destFolder_[kPathField] = {};
  JobOverrides overrides_;
  std::chrono::milliseconds pauseTimeout_{480000};
  std::thread thread_;
};

}  // namespace tarnvel
