#include "engine/DecodeRaw.h"

#include <cstdio>
#include <cstring>
#include <filesystem>

#include "engine/ImageSink.h"
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

// Deletes the raw files of a recording: its argument file, the descriptors,
// and every .RAW and .CAL file; nothing else, not the folder.
void DeleteRawFiles(const std::string& folder) {
  for (const char* name : {"args.ini", "rawfile.xml", "rawstats.xml"}) std::remove(JoinPath(folder, name).c_str());
  const char* extensions[] = {".RAW", ".CAL", nullptr};
  const int bytes = CgEnumFiles(folder.c_str(), "", extensions, nullptr, 0);
  if (bytes <= 0) return;
  std::vector<char> names(static_cast<std::size_t>(bytes));
  const int count = CgEnumFiles(folder.c_str(), "", extensions, names.data(), static_cast<std::uint32_t>(bytes));
  const char* name = names.data();
  for (int i = 0; i < count; ++i, name += std::strlen(name) + 1) std::remove(JoinPath(folder, name).c_str());
}

}  // namespace

CDecodeRaw::CDecodeRaw(std::string_view argsPath, std::uint32_t rowIndex, std::uint32_t sentBySuite)
    : rowIndex_(rowIndex),
      sentBySuite_(sentBySuite),
      args_(std::make_unique<JobArgs>()),
      overlayRenderer_(std::make_unique<OverlayRenderer>()),
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
  return abortFlag_ == 0;
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

void CDecodeRaw::WriteSidecarFrame(JobRun&, std::int32_t frameNumber) {
  const CalendarTime t = DecodeTimeCode(rawFrame_.time, 0, 0);
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
  abortFlag_ = 0;
  statusCode_ = 0;
  statusText_[0] = '\0';
  run.startTicks = TickCount();
  run.recording = std::make_unique<RecordingInfo>();
  RecordingInfo& rec = *run.recording;
  std::memset(&rec, 0, sizeof rec);

  std::vector<std::string> refused;
  ReadJobArgs(FieldText(argsPath_), *args_, &refused);
  BuildOverlayConfig(*args_, *overlay_);
  run.recordingFolder = RecordingFolderOf(FieldText(argsPath_));
  if (!FolderExists(run.recordingFolder)) return Fail(kMsgArgsFolderMissing, run.recordingFolder);
  if (!refused.empty()) return Fail(kMsgArgsFolderMissing, run.recordingFolder + " (" + refused.front() + ")");
  if (ReadRecordingConfig(run.recordingFolder, rec) == 0) return Fail(kMsgProfileUnreadable, "");

  OutputFolder output;
  if (SettleOutputFolder(run.recordingFolder, FieldText(destFolder_), output) != 0)
    return Fail(kMsgOutputFolderFailed, output.folder);
  run.outputFolder = output.folder;
  run.copyProfile = output.copyProfile;

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

  if (rawSource_.Open(run.recordingFolder.c_str()) != 0) {
    imageOps_.Clear();
    return Fail(kMsgRawOpenFailed, run.recordingFolder);
  }
  hasCameraBlock_ = rawSource_.HasCameraBlock();
  rawSource_.SetDeviceName(args_->deviceName, sizeof args_->deviceName);
  rawSource_.SetTemperature(args_->temperature);
  rec.PixelDepth = rawSource_.PixelDepth();
  if (rec.OutputPixelDepth == 0) rec.OutputPixelDepth = rec.PixelDepth;
  bool sourceReady = rawSource_.Geometry(geometry_);
  if (sourceReady) {
    // The frames come through a second handle, in the delivery the main output takes.
    const framekit::FileTypeDescriptor* type = framekit::FindFileType(rec.FileType);
    run.mosaicMode = type && (type->source == framekit::FrameSource::kRawFrame ||
                              (framekit::Has(*type, framekit::kMosaic) && IsColour(geometry_.bits)));
    sourceReady = readAhead_.Start(run.recordingFolder.c_str(), run.mosaicMode, hasCameraBlock_) == 0;
  }
  if (!sourceReady) {
    rawSource_.Close();
    imageOps_.Clear();
    return Fail(kMsgRawOpenFailed, run.recordingFolder);
  }
  recordings_.AddCopy(rec);
  recordings_.SetCurrent(0);
  if (args_->backgroundOn) LoadBackground();
  if (geometry_.bits > 16) whiteBalance_.SetRecordingWhiteBalance(rec);

  textBarHeight_ = MeasureTextBar(args_->overlayFlags, FieldText(args_->overlayFont));

  if (args_->channelsOn) {
    ReadPlotSettings(run.recordingFolder.c_str(), &run.plotSettings);
    run.channelPath = ChannelDataPath(run.recordingFolder, FieldText(args_->baseName), args_->channelFileType).value_or("");
    ReadChannelSettings(run.recordingFolder.c_str(), &run.channelSettings, run.plotSettings.AllUnitsChannels);
    run.channelDataLoaded = !run.channelPath.empty() && LoadChannelData(run.channelPath.c_str(), &run.channelData) == 1;
  }

  if (args_->companionMovie != 0) {
    const auto moviePath = CompanionMoviePath(run.outputFolder, FieldText(args_->moviePath), FieldText(args_->deviceName),
                                              rec.FileType, FieldText(args_->baseName), run.extension);
    run.movieFrames = rec.StopAvi - rec.StartAvi + 1;
    if (moviePath) {
      EnsurePath(*moviePath);
      OpenOutput(moviePath->c_str(), 1, &run.movieHandle, run.movieOptions ? &*run.movieOptions : nullptr);
    }
  }
  const std::uint32_t logoFlags[2] = {kOverlayItemMask[kFirstLogoItem], kOverlayItemMask[kSecondLogoItem]};
  const char* logoPaths[2] = {args_->logoPath1, args_->logoPath2};
  for (int i = 0; i < 2; ++i)
    if ((args_->overlayFlags & logoFlags[i]) && logoPaths[i][0] != '\0') logos_[i].Load(logoPaths[i]);

  run.sidecarOn = rec.SyncInCfg >= 5 && rec.SyncInCfg <= 8;
  if (run.sidecarOn) {
    const auto sidecar = TimeSidecarPath(run.outputFolder, FieldText(args_->baseName));
    if (sidecar && timeWriter_.Open(sidecar->c_str())) {
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
  }
  PlanFrames(run);
  run.rowState = run.movieHandle ? 5 : 1;
  run.shownName = ShownName(FieldText(args_->baseName), run.extension);
  RunFrames(run);
  readAhead_.Stop();
  CommonEnd(run);
  if (statusCode_ != 0) return -1;
  if (overrides_.deleteRaw) DeleteRawFiles(run.recordingFolder);
  return 0;
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
  run.buffersReady = buffers_.Size(run.plan);
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

int CDecodeRaw::RunFrames(JobRun& run) {
  RecordingInfo& rec = *run.recording;
  const std::int32_t total = args_->frameCount;
  const std::string baseName(FieldText(args_->baseName));
  auto frameNumberOf = [&](std::int32_t i) { return OutputFrameNumber(rec, i); };
  auto movieIndexOf = [&](std::int32_t i) {
    return run.movieFrames != 0 && InMovieRange(rec, i) ? rec.StartIdx + i - rec.StartAvi : -1;
  };
  if (HasCapability(rec.FileType, kCapMultiFrameFile)) {
    const auto path = MultiFrameOutputPath(run.outputFolder, baseName, run.extension);
    const std::string mainPath = path.value_or("");
    if (path) OpenOutput(path->c_str(), 1, &run.outHandle, run.outputOptions ? &*run.outputOptions : nullptr);
    Report(run, run.shownName, run.rowState, 1);
    for (std::int32_t i = 0; i < total; ++i) {
      if (!WaitAtGate()) {
        Fail(kMsgAborted, "");
        break;
      }
      const std::int32_t frameNumber = frameNumberOf(i);
      const std::int32_t sequenceIndex = SourceFramePosition(rec, i);
      std::int32_t movieIndex = movieIndexOf(i);
      const int result = ConvertFrame(run, run.outHandle, frameNumber, sequenceIndex, mainPath, i, total, movieIndex,
                                      run.movieFrames);
      if (run.sidecarOn && timeWriter_.IsOpen()) WriteSidecarFrame(run, frameNumber);
      if (result != 0) {
        // Close the file in good order: this frame once more, as the last of i + 1.
        if (i < total - 1) ++i;
        if (movieIndex != -1) run.movieFrames = ++movieIndex + 1;
        ConvertFrame(run, run.outHandle, frameNumber, i, mainPath, i, i + 1, movieIndex, run.movieFrames);
        if (run.sidecarOn && timeWriter_.IsOpen()) WriteSidecarFrame(run, frameNumber);
        Fail(result < 0 ? kMsgFrameFailedNegative : kMsgFrameFailedPositive, mainPath);
        break;
      }
      Report(run, run.shownName, -1, i + 1);
    }
    if (run.outHandle) CloseOutput(run.outHandle);
    run.outHandle = nullptr;
    if (args_->channelsOn && path) FinishFile(path->c_str(), 2, 1);
    return 0;
  }
  Report(run, run.shownName, run.rowState, 1);
  for (std::int32_t i = 0; i < total; ++i) {
    if (!WaitAtGate()) {
      Fail(kMsgAborted, "");
      break;
    }
    const std::int32_t frameNumber = frameNumberOf(i);
    const auto path = FrameOutputPath(run.outputFolder, baseName, frameNumber, run.extension);
    const std::string framePath = path.value_or("");
    FrameHandle handle = nullptr;
    if (path) OpenOutput(path->c_str(), 1, &handle, run.outputOptions ? &*run.outputOptions : nullptr);
    const int result = ConvertFrame(run, handle, frameNumber, SourceFramePosition(rec, i), framePath, i, total,
                                    movieIndexOf(i), run.movieFrames);
    if (run.sidecarOn && timeWriter_.IsOpen()) WriteSidecarFrame(run, frameNumber);
    if (handle) CloseOutput(handle);
    if (result != 0) {
      Fail(result < 0 ? kMsgFrameFailedNegative : kMsgFrameFailedPositive, framePath);
      break;
    }
    if (args_->channelsOn && path) FinishFile(path->c_str(), 2, 1);
    Report(run, std::string(LastComponent(framePath)), -1, i + 1);
  }
  return 0;
}

void CDecodeRaw::CommonEnd(JobRun& run) {
  if (run.movieHandle) CloseOutput(run.movieHandle);
  run.movieHandle = nullptr;
  if (run.sidecarOn && timeWriter_.IsOpen()) {
    timeWriter_.CloseElement("Data");
    timeWriter_.Close();
  }
  Report(run, run.shownName, abortFlag_ ? 3 : 2, args_->frameCount);
  if (run.copyProfile) CopyConfigCompanions(run.outputFolder, run.recordingFolder);
  logos_[0].Free();
  logos_[1].Free();
  rawFrame_ = {};
  movieFrame_ = {};
  buffers_.Release();
  recordings_.Clear();
  imageOps_.Clear();
  rawSource_.Close();
  runState_ = RunState::Finished;
}

}  // namespace tarnvel
