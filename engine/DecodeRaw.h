// One conversion job: a recording, named by its argument file, turned into
// its output set. The job owns everything a conversion needs, so jobs on
// different threads share nothing but the libraries.
#pragma once

#include <atomic>
#include <chrono>
#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <thread>
#include <vector>

#include "channels/DataPlot.h"
#include "engine/ConversionJob.h"
#include "engine/FrameGeometry.h"
#include "engine/FramePlan.h"
#include "engine/FrameReadAhead.h"
#include "engine/JobArgs.h"
#include "engine/JobOverrides.h"
#include "engine/RawSource.h"
#include "engine/XmlFileWriter.h"
#include "frames/ImageOps.h"
#include "frames/ImageProcessor.h"
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
  // One frame from source to sink, and to the companion movie: the stages of
  // the frame step (FrameStep.h) with this run's plan.
  int ConvertFrame(JobRun& run, FrameHandle out, std::int32_t frameNumber, std::int32_t sequenceIndex,
                   const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal,
                   std::int32_t movieIndex, std::int32_t movieTotal);
  // Placing, chain and depth: the delivered frame into `work`, converted into
  // `output` when due. An empty view when the delivery is short.
  ImageView ProcessFrame(const FramePlan& plan, const RawFrame& raw, ImageView work, ImageView output);
  // The background image for a picture of that size and depth, or none.
  ConstImageView Background(const ConstImageView& picture) const;
  // Markers, logos and text, plot: returns the frame to write.
  ImageView BurnIn(JobRun& run, ImageView frame, std::int32_t frameNumber, std::int32_t sequenceIndex,
                   const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal);
  void PlaceOverlayTexts(JobRun& run, std::int32_t frameNumber, std::int32_t sequenceIndex,
                         const std::string& outputPath, std::int32_t frameIndex, std::int32_t showState);
  void SetUpPlot(const JobRun& run, CDataBmp& plot) const;
  std::uint32_t FrameExposure(const JobRun& run) const;
  void BuildBlock(JobRun& run, std::uint8_t* block, std::int32_t frameNumber, std::int32_t frameIndex,
                  std::int32_t frameTotal);
  void DescribeCaptureOf(const JobRun& run, FrameHandle out, std::int32_t frameNumber,
                         std::int32_t sequenceIndex) const;
  int WriteCompanion(JobRun& run, ImageView shown, std::int32_t frameIndex, std::int32_t movieIndex,
                     std::int32_t movieTotal);
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
  int RunFrames(JobRun& run);
  void RunMultiFrameFile(JobRun& run);
  void RunFrameFiles(JobRun& run);
  // One frame through ConvertFrame; a frame that needs more memory than the
  // machine gives fails like a refused frame instead of ending the process.
  int ConvertFrameSafely(JobRun& run, FrameHandle out, std::int32_t frameNumber, std::int32_t sequenceIndex,
                         const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal,
                         std::int32_t movieIndex, std::int32_t movieTotal);
  void CommonEnd(JobRun& run);
  void CloseCompanions(JobRun& run);
  // The job's final status, decided once, with the deletion of the raw files.
  RowStatus SettleEnd(JobRun& run);
  void SetFinal(RowStatus status);
  void LoadBackground();
  void WriteSidecarHead(JobRun& run);
  void WriteSidecarFrame(JobRun& run, std::int32_t frameNumber);
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
  FrameReadAhead readAhead_;  // the delivery of the main output
  RawFrame rawFrame_;          // the frame being converted
  RawFrame movieFrame_;        // the processed frame a plain output's companion movie reads
  FrameBuffers buffers_;
  std::vector<std::uint8_t> backgroundFrame_;
  CImageOpList imageOps_;
  ImageProcessor imageProcessor_;
  RecordingList recordings_;
  std::unique_ptr<JobArgs> args_;
  std::int32_t textBarHeight_ = 0;
  ColourTables whiteBalance_;
  LogoImage logos_[2];
  std::unique_ptr<OverlayRenderer> overlayRenderer_;
  std::unique_ptr<OverlayConfig> overlay_;
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
