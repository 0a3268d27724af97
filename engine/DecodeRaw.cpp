#include "engine/DecodeRaw.h"

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <new>

#include "engine/ImageSink.h"
#include "engine/JobChecks.h"
#include "engine/JobRun.h"
#include "engine/OutputNaming.h"
#include "engine/OverlaySetup.h"
#include "frames/ReadImageOpList.h"
#include "frames/overlay/OverlayText.h"
#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "recording/ModelTable.h"
#include "recording/RecordingConfig.h"

namespace tarnvel {
namespace {

bool FolderExists(const std::string& path) {
  std::error_code ec;
  return !path.empty() && std::filesystem::is_directory(path, ec);
}

bool HasCapability(std::int32_t type, int code) { return QueryCapability(type, code) == 0; }

// Mosaic order of the sensor after the recording's rotation and flip.
std::uint32_t TurnedMosaicOrder(std::uint32_t order, std::uint32_t rotation, std::uint32_t flip) {
  static constexpr std::uint32_t kRotate[4][4] = {{0, 1, 2, 3}, {1, 3, 0, 2}, {3, 2, 1, 0}, {2, 0, 3, 1}};
  static constexpr std::uint32_t kFlipVertical[4] = {1, 0, 3, 2};    // flip bit 1
  static constexpr std::uint32_t kFlipHorizontal[4] = {2, 0, 3, 1};  // flip bit 0
  order &= 3;
  if (rotation < 4) order = kRotate[rotation][order];
  if (flip & 2) order = kFlipVertical[order];
  if (flip & 1) order = kFlipHorizontal[order];
  return order;
}

std::string ExtensionOf(std::int32_t type) {
  char text[16] = {};
  GetExtension(type, text, sizeof text);
  return text;
}

}  // namespace

CDecodeRaw::CDecodeRaw(std::string_view argsPath, std::uint32_t rowIndex, std::uint32_t sentBySuite)
    : rowIndex_(rowIndex),
      sentBySuite_(sentBySuite),
      args_(std::make_unique<JobArgs>()),
      overlay_(std::make_unique<OverlayConfig>()) {
  // A path that does not fit its field is kept out whole: the job then fails
  // on a missing folder instead of converting another recording.
  if (argsPath.size() < kPathField) CopyText(argsPath_, argsPath);
  geometry_.bits = 8;
}

CDecodeRaw::~CDecodeRaw() {
  if (thread_.joinable()) thread_.join();
}

void CDecodeRaw::SetReportTarget(void* drawWindow, ReportFunction report, void* context) {
  drawWindow_ = drawWindow;
  report_ = report;
  reportContext_ = context;
}

void CDecodeRaw::SetOverrides(const char* destFolder, const JobOverrides& overrides) {
  const std::string_view dest = destFolder ? destFolder : "";
  CopyText(destFolder_, dest.size() < kPathField ? dest : std::string_view{});
  overrides_ = overrides;
}

int CDecodeRaw::Start(bool onOwnThread) {
  if (onOwnThread) {
    runState_ = RunState::RunningOnThread;
    doneEvent_ = std::make_unique<ManualResetEvent>(false);
    if (thread_.joinable()) thread_.join();
    thread_ = std::thread([this] {
      ConvertJob();
      doneEvent_->Set();
    });
    return 0;
  }
  if (thread_.joinable()) thread_.join();
  doneEvent_.reset();
  return ConvertJob();
}

int CDecodeRaw::WaitDone(std::uint32_t milliseconds) {
  if (!doneEvent_) return 1;
  if (!doneEvent_->Wait(std::chrono::milliseconds(milliseconds))) return 0;
  if (thread_.joinable()) thread_.join();
  doneEvent_.reset();
  return 1;
}

void CDecodeRaw::Abort() {
  pauseEvent_.Set();  // a paused job wakes and sees the flag at once
  abortFlag_ = 1;
}

int CDecodeRaw::Fail(std::int32_t code, std::string_view text) {
  statusCode_ = code;
  CopyText(statusText_, text);
  return -1;
}

bool CDecodeRaw::WaitAtGate() {
  if (!pauseEvent_.Wait(pauseTimeout_)) pauseEvent_.Set();  // a forgotten pause ends by itself
  if (abortFlag_ == 0) return true;
  Fail(kMsgAborted, "");
  return false;
}

void CDecodeRaw::Report(const JobRun& run, const std::string& text, std::int32_t state, std::int32_t current) {
  if (report_) report_(reportContext_, rowIndex_, text.c_str(), run.startTicks, state, current, args_->frameCount);
}

void CDecodeRaw::LoadBackground() {
  args_->backgroundOn = 0;
  backgroundFrame_.clear();
  ImageInfo info{};
  if (GetImageInfo(args_->backgroundPath, &info) != 0 || info.width == 0 || info.height == 0) return;
  const std::uint32_t bits = info.bits;
  backgroundFrame_.assign(geometry_.frameBytes, 0);
  const std::uint64_t imageBytes = std::uint64_t{info.width} * info.height * BytesPerPixel(bits);
  if (info.width == geometry_.width && info.height == geometry_.height && bits == geometry_.bits) {
    if (LoadImage(args_->backgroundPath, 0, info.width * BytesPerPixel(bits), info.height, backgroundFrame_.data(), 0) != 0)
      return backgroundFrame_.clear();
  } else {
    std::vector<std::uint8_t> image(imageBytes);
    if (LoadImage(args_->backgroundPath, 0, info.width * BytesPerPixel(bits), info.height, image.data(), 0) != 0)
      return backgroundFrame_.clear();
    FitImage(PackedView(image.data(), info.width, info.height, bits),
             PackedView(backgroundFrame_.data(), geometry_.width, geometry_.height, geometry_.bits));
  }
  args_->backgroundOn = 1;
}

void CDecodeRaw::SetFinal(RowStatus status) {
  RowStatus waiting = RowStatus::Waiting;
  finalStatus_.compare_exchange_strong(waiting, status);  // a job ends once
}

void CDecodeRaw::WriteSidecarHead(JobRun& run) {
  const RecordingInfo& rec = *run.recording;
  if (!timeWriter_.Open(run.sidecarPath.c_str())) return run.outputs.Failed(run.sidecarPath);
  run.outputs.Created(run.sidecarPath);
  timeWriter_.OpenElement("Data");
  timeWriter_.OpenElement("Sequence");
  timeWriter_.WriteValue("UTCOffset", overlay_->items[kTimeCodeItem].format - 12);
  timeWriter_.WriteValue("LeapSeconds", overlay_->items[kTimeCodeItem].paramA);
  timeWriter_.WriteValue("Fps", TruncatedRate(rec.Rate));
  timeWriter_.WriteValue("Width", static_cast<std::int32_t>(rec.ROIW));
  timeWriter_.WriteValue("Height", static_cast<std::int32_t>(rec.ROIH));
  timeWriter_.WriteValue("FrameCount", args_->frameCount);
  timeWriter_.CloseElement("Sequence");
}

void CDecodeRaw::WriteSidecarFrame(JobRun& run, const RawFrame& raw, std::int32_t frameNumber) {
  if (!run.sidecarOn || !timeWriter_.IsOpen()) return;
  const CalendarTime t = DecodeTimeCode(raw.time, 0, 0);
  timeWriter_.OpenElement("Frame");
  timeWriter_.WriteValue("FrameIndex", frameNumber);
  timeWriter_.WriteValue("Year", t.year);
  timeWriter_.WriteValue("Month", t.month);
  timeWriter_.WriteValue("Day", t.day);
  timeWriter_.WriteValue("Hour", t.hour);
  timeWriter_.WriteValue("Minute", t.minute);
  timeWriter_.WriteValue("Second", t.second);
  timeWriter_.WriteValue("Millisecond", t.milliseconds);
  timeWriter_.WriteValue("Microseconds", t.microseconds);
  timeWriter_.CloseElement("Frame");
}

int CDecodeRaw::ConvertJob() {
  JobRun run;
  statusCode_ = 0;
  statusText_[0] = '\0';
  run.startTicks = TickCount();
  run.recording = std::make_unique<RecordingInfo>();
  std::memset(run.recording.get(), 0, sizeof *run.recording);
  try {
    if (Prepare(run) != 0) {
      // Nothing was written: no report, and the run state stays.
      rawSource_.Close();
      imageOps_.Clear();
      SetFinal(statusCode_ == kMsgAborted ? RowStatus::Abort : RowStatus::Error);
      return -1;
    }
    OpenCompanions(run);
    RunFrames(run);
  } catch (const std::exception& e) {
    // Memory that a setting asked for and the machine could not give: the
    // outputs are closed below like after any failure.
    if (statusCode_ == 0) Fail(kMsgOutOfMemory, e.what());
  }
  CommonEnd(run);
  return FinalStatus() == RowStatus::Done ? 0 : -1;
}

int CDecodeRaw::Prepare(JobRun& run) {
  RecordingInfo& rec = *run.recording;
  const std::string argsPath(FieldText(argsPath_));
  std::vector<std::string> refused;
  ReadJobArgs(argsPath, *args_, &refused);
  BuildOverlayConfig(*args_, *overlay_);
  run.recordingFolder = RecordingFolderOf(argsPath);
  if (!FolderExists(run.recordingFolder)) return Fail(kMsgArgsFolderMissing, run.recordingFolder);
  if (const std::string problem = ArgumentFileProblem(argsPath); !problem.empty())
    return Fail(kMsgJobSettingsUnusable, problem);
  if (!refused.empty()) return Fail(kMsgJobSettingsUnusable, argsPath + ": " + RefusedKeysProblem(refused));
  if (ReadRecordingConfig(run.recordingFolder, rec) == 0) return Fail(kMsgProfileUnreadable, "");

  OutputFolder output;
  if (SettleOutputFolder(run.recordingFolder, FieldText(destFolder_), output) != 0)
    return Fail(kMsgOutputFolderFailed, output.folder);
  run.outputFolder = output.folder;
  run.copyProfile = output.copyProfile;
  SettleOutputSettings(run);
  if (OpenSource(run) != 0) return -1;

  textBarHeight_ = MeasureTextBar(args_->overlayFlags, FieldText(args_->overlayFont));
  run.sidecarOn = rec.SyncInCfg >= 5 && rec.SyncInCfg <= 8;
  std::string problem = ValueProblem(*args_, *overlay_, rec, {geometry_, textBarHeight_, run.sidecarOn, args_->companionMovie != 0});
  if (problem.empty()) problem = OutputNameProblem(run);
  if (!problem.empty()) return Fail(kMsgJobSettingsUnusable, argsPath + ": " + problem);
  if (abortFlag_ != 0) return Fail(kMsgAborted, "");  // aborted before anything was written
  run.facts.argsRead = true;
  run.facts.deleteAsked = overrides_.deleteRaw != 0;
  run.facts.framesWanted = args_->frameCount;
  PrepareBuffersAndChannels(run);
  return 0;
}

void CDecodeRaw::SettleOutputSettings(JobRun& run) {
  RecordingInfo& rec = *run.recording;
  if (rec.FileType < 1) rec.FileType = framekit::FallbackFileType().number;
  run.extension = ExtensionOf(rec.FileType);
  const bool ownSettings = overrides_.fileType == kRecordingFileType || sentBySuite_ != 0;
  if (ownSettings) {
    overrides_.deleteRaw = static_cast<std::uint32_t>(args_->deleteRaw);
    rec.ResetNr = static_cast<std::uint32_t>(args_->resetNumbering);
    run.codec = CodecSettingsOf(*args_);
  } else {
    rec.FileType = overrides_.fileType;
    rec.ResetNr = overrides_.resetNumbering;
    rec.Output_Rate = static_cast<float>(overrides_.playbackRate);
    if (overrides_.outputDepth > 0) {
      rec.OutputPixelDepth = static_cast<std::uint32_t>(overrides_.outputDepth);
      if (overrides_.outputDepth == 8 || overrides_.outputDepth == 24) rec.PixelGain = static_cast<std::uint32_t>(overrides_.bitRange);
    }
    if (!HasCapability(rec.FileType, kCapDeepOutput)) {
      if (rec.OutputPixelDepth >= 9 && rec.OutputPixelDepth <= 16) rec.OutputPixelDepth = 8;
      if (rec.OutputPixelDepth > 24) rec.OutputPixelDepth = 24;
    }
    run.codec = overrides_.codec;
  }
  run.outputOptions = ApplyCodec(rec.FileType, run.codec);
  ReadImageOpList(run.recordingFolder.c_str(), imageOps_);
  if (args_->companionMovie != 0) run.movieOptions = ApplyCodec(framekit::CompanionMovieType().number, run.codec);
  if (!ownSettings) run.extension = ExtensionOf(rec.FileType);
}

int CDecodeRaw::OpenSource(JobRun& run) {
  RecordingInfo& rec = *run.recording;
  if (rawSource_.Open(run.recordingFolder.c_str()) != 0) return Fail(kMsgRawOpenFailed, run.recordingFolder);
  hasCameraBlock_ = rawSource_.HasCameraBlock();
  rawSource_.SetDeviceName(args_->deviceName, sizeof args_->deviceName);
  rawSource_.SetTemperature(args_->temperature);
  rec.PixelDepth = rawSource_.PixelDepth();
  if (rec.OutputPixelDepth == 0) rec.OutputPixelDepth = rec.PixelDepth;
  if (!rawSource_.Geometry(geometry_)) return Fail(kMsgRawOpenFailed, run.recordingFolder);
  // The frames come through handles of their own, in the delivery the main output takes.
  const framekit::FileTypeDescriptor* type = framekit::FindFileType(rec.FileType);
  run.mosaicMode = type && (type->source == framekit::FrameSource::kRawFrame ||
                            (framekit::Has(*type, framekit::kMosaic) && IsColour(geometry_.bits)));
  return 0;
}

// Every path the run will write, settled before anything is written: a base
// or device name that would leave its folder, or a path too long for its
// field, stops the job here instead of losing an output later.
std::string CDecodeRaw::OutputNameProblem(JobRun& run) {
  const RecordingInfo& rec = *run.recording;
  const std::string baseName(FieldText(args_->baseName));
  const std::string tooLong = " is no plain file name, or the path it makes is too long";
  OutputPlan& plan = run.outputPlan;
  plan.oneFile = HasCapability(rec.FileType, kCapMultiFrameFile);
  plan.folder = run.outputFolder;
  plan.baseName = baseName;
  plan.extension = run.extension;
  plan.total = args_->frameCount;
  if (plan.oneFile) {
    const auto path = MultiFrameOutputPath(run.outputFolder, baseName, run.extension);
    if (!path) return "the base name Arg02 \"" + baseName + "\"" + tooLong;
    plan.mainPath = *path;
  } else if (args_->frameCount > 0) {
    for (const std::int32_t i : {0, args_->frameCount - 1})
      if (!FrameOutputPath(run.outputFolder, baseName, OutputFrameNumber(rec, i), run.extension))
        return "the base name Arg02 \"" + baseName + "\"" + tooLong;
  }
  if (args_->companionMovie != 0) {
    const auto movie = CompanionMoviePath(run.outputFolder, FieldText(args_->moviePath), FieldText(args_->deviceName),
                                          rec.FileType, baseName, run.extension);
    if (!movie) return "the device name Arg22 \"" + std::string(FieldText(args_->deviceName)) + "\"" + tooLong;
    run.moviePath = *movie;
  }
  if (run.sidecarOn) {
    const auto sidecar = TimeSidecarPath(run.outputFolder, baseName);
    if (!sidecar) return "the base name Arg02 \"" + baseName + "\"" + tooLong;
    run.sidecarPath = *sidecar;
  }
  return {};
}

void CDecodeRaw::PrepareBuffersAndChannels(JobRun& run) {
  RecordingInfo& rec = *run.recording;
  recordings_.AddCopy(rec);
  recordings_.SetCurrent(0);
  if (args_->backgroundOn) LoadBackground();
  if (geometry_.bits > 16) whiteBalance_.SetRecordingWhiteBalance(rec);
  if (args_->channelsOn) {
    ReadPlotSettings(run.recordingFolder.c_str(), &run.plotSettings);
    run.channelPath = ChannelDataPath(run.recordingFolder, FieldText(args_->baseName), args_->channelFileType).value_or("");
    ReadChannelSettings(run.recordingFolder.c_str(), &run.channelSettings, run.plotSettings.AllUnitsChannels);
    run.channelDataLoaded = !run.channelPath.empty() && LoadChannelData(run.channelPath.c_str(), &run.channelData) == 1;
  }
}

void CDecodeRaw::OpenCompanions(JobRun& run) {
  const RecordingInfo& rec = *run.recording;
  if (args_->companionMovie != 0) {
    run.outputPlan.movieFrames = rec.StopAvi - rec.StartAvi + 1;
    EnsurePath(run.moviePath);
    if (OpenOutput(run.moviePath.c_str(), 1, &run.movieHandle, run.movieOptions ? &*run.movieOptions : nullptr) == 0)
      run.outputs.Created(run.moviePath);
    else
      run.outputs.Failed(run.moviePath);
  }
  const std::uint32_t logoFlags[2] = {kOverlayItemMask[kFirstLogoItem], kOverlayItemMask[kSecondLogoItem]};
  const char* logoPaths[2] = {args_->logoPath1, args_->logoPath2};
  for (int i = 0; i < 2; ++i)
    if ((args_->overlayFlags & logoFlags[i]) && logoPaths[i][0] != '\0') logos_[i].Load(logoPaths[i]);
  if (run.sidecarOn) WriteSidecarHead(run);
  PlanFrames(run);
  run.rowState = run.movieHandle ? 5 : 1;
  run.shownName = ShownName(FieldText(args_->baseName), run.extension);
}

void CDecodeRaw::PlanFrames(JobRun& run) {
  const RecordingInfo& rec = *run.recording;
  PlanInputs in;
  in.fileType = rec.FileType;
  in.type = framekit::FindFileType(rec.FileType);
  in.geometry = geometry_;
  in.outputDepth = rec.OutputPixelDepth;
  in.bitRange = rec.PixelGain;
  in.mosaicDelivery = run.mosaicMode;
  in.textBarHeight = static_cast<std::uint32_t>(std::max(textBarHeight_, 0));
  in.channelsOn = !run.channelPath.empty();
  in.channelDataRead = run.channelDataLoaded;
  in.movieOpen = run.movieHandle != nullptr;
  in.playbackRate = rec.Output_Rate;
  run.plan = MakeFramePlan(*args_, in);
  FrameHeader& header = run.plan.header;
  header.model = static_cast<std::uint32_t>(ModelIndexOf(rawSource_.ModelNumber())) | rawSource_.SubModel() << 16;
  header.serial = rawSource_.SerialNumber();
  if (header.mosaic) header.mosaicOrder = TurnedMosaicOrder(rawSource_.MosaicOrder(), rec.RotationAngle, rec.FlipCfg);
  DescribeSource(run);
}

void CDecodeRaw::DescribeSource(JobRun& run) {
  char text[kCameraTextBytes > RawSource::kDeviceNameBytes ? kCameraTextBytes : RawSource::kDeviceNameBytes] = {};
  rawSource_.DeviceName(text, RawSource::kDeviceNameBytes);
  run.deviceName = FieldText(text);
  std::memset(text, 0, sizeof text);
  rawSource_.CameraModelText(text);
  run.modelText = FieldText(text);
  run.temperature = (args_->overlayFlags & kOverlayItemMask[kTemperatureItem]) ? rawSource_.Temperature() : 0;
  run.sourceExposure = rawSource_.ExposureNs();
  MetadataSource& source = run.metadata;
  source.geometryBits = geometry_.bits;
  source.width = geometry_.width;
  source.height = geometry_.height;
  source.fileType = run.recording->FileType;
  source.hasCameraBlock = hasCameraBlock_;
  source.colorMatrix = whiteBalance_.Matrix();
  source.deviceName = run.deviceName;
  source.serial = run.plan.header.serial;
  source.subModel = rawSource_.SubModel();
  source.networkAddress = rawSource_.NetworkAddress();
  source.modelNumber = rawSource_.ModelNumber();
  source.modelIndex = static_cast<std::uint32_t>(ModelIndexOf(source.modelNumber));
  source.propertySix = rawSource_.PropertySix();
  source.cameraValue14 = rawSource_.CameraValue14();
  source.cameraValue15 = rawSource_.CameraValue15();
  source.modelText = run.modelText;
}

void CDecodeRaw::CloseCompanions(JobRun& run) {
  if (run.movieHandle && CloseOutput(run.movieHandle) != 0) run.outputs.Failed(run.moviePath);
  run.movieHandle = nullptr;
  if (timeWriter_.IsOpen()) {
    timeWriter_.CloseElement("Data");
    if (!timeWriter_.Close()) {
      // A sidecar cut by a full disk is no XML any more: it goes; the raw files
      // it came from stay, so it can be written again.
      run.outputs.Failed(run.sidecarPath);
      std::remove(run.sidecarPath.c_str());
      run.outputs.Removed(run.sidecarPath);
    }
  }
  if (run.copyProfile) {
    const CompanionCopies copies = CopyConfigCompanions(run.outputFolder, run.recordingFolder);
    for (const std::string& copied : copies.copied) run.outputs.Created(copied);
    for (const std::string& failed : copies.failed) run.outputs.Failed(failed);
  }
}

void CDecodeRaw::CommonEnd(JobRun& run) {
  if (run.outHandle) CloseOutput(run.outHandle);  // left open only by an exception
  run.outHandle = nullptr;
  CloseCompanions(run);
  logos_[0].Free();
  logos_[1].Free();
  slots_.clear();
  recordings_.Clear();
  imageOps_.Clear();
  rawSource_.Close();
  const RowStatus status = SettleEnd(run);
  runState_ = RunState::Finished;
  if (run.reported) Report(run, run.shownName, static_cast<std::int32_t>(status), args_->frameCount);
}

RowStatus CDecodeRaw::SettleEnd(JobRun& run) {
  RunFacts& facts = run.facts;
  facts.aborted = abortFlag_ != 0;
  if (facts.aborted && statusCode_ == 0) Fail(kMsgAborted, "");
  if (statusCode_ == 0 && run.outputs.HasFailure()) Fail(kMsgOutputIncomplete, run.outputs.FailedPath());
  if (statusCode_ == 0 && facts.deleteAsked) {
    // The raw files may be the only copy: the outputs reach the disk first.
    const auto unsynced = run.outputs.MakeDurable();
    facts.outputsOnDisk = !unsynced;
    if (unsynced) Fail(kMsgOutputIncomplete, *unsynced);
  }
  // The presence of every output is the last thing looked at before the
  // decision, so that nothing that went meanwhile passes unseen.
  if (statusCode_ == 0)
    if (const auto missing = run.outputs.FirstMissing()) Fail(kMsgOutputIncomplete, *missing + " (gone)");
  facts.statusCode = statusCode_;
  const bool rawFilesGo = RawFilesMayGo(facts, run.outputs);
  if (!rawFilesGo && statusCode_ == 0)
    if (const auto missing = run.outputs.FirstMissing()) Fail(kMsgOutputIncomplete, *missing + " (gone)");  // went meanwhile
  const RowStatus status = facts.aborted ? RowStatus::Abort : statusCode_ != 0 ? RowStatus::Error : RowStatus::Done;
  if (rawFilesGo) {
    const std::vector<std::string> kept = DeleteRawFiles(run.recordingFolder);
    std::string names;
    for (const std::string& name : kept) names += (names.empty() ? "" : ", ") + name;
    if (!kept.empty()) Fail(kMsgRawDeleteFailed, run.recordingFolder + ": " + names);  // a warning: still Done
  }
  SetFinal(status);
  return status;
}

}  // namespace tarnvel
