// The frame step: one frame from the raw source through its stages to the
// image library, and to the companion movie. The stages are the functions of
// FrameStep.h; the job's ConvertFrame runs them in order with this run's plan.
#include "engine/FrameStep.h"

#include <algorithm>
#include <bit>
#include <cstring>

#include "engine/CaptureInfo.h"
#include "engine/DecodeRaw.h"
#include "engine/FrameMetadata.h"
#include "engine/JobRun.h"
#include "frames/overlay/Blend.h"
#include "frames/overlay/OverlayText.h"
#include "recording/ModelTable.h"

namespace tarnvel {

ImageView PlacePicture(ConstImageView delivered, ConstImageView background, ImageView work, std::uint32_t pictureTop) {
  if (work.Empty() || delivered.data == nullptr || delivered.width != work.width || delivered.depth != work.depth ||
      pictureTop > work.height || delivered.height > work.height - pictureTop)
    return {};
  const std::uint32_t pictureEnd = pictureTop + delivered.height;
  std::memset(work.data, 0, work.rowBytes * pictureTop);
  std::memset(work.Row(pictureEnd), 0, work.rowBytes * (work.height - pictureEnd));
  const ImageView picture = work.Rows(pictureTop, delivered.height);
  AddBackground(delivered, background, picture);
  return picture;
}

ImageView ConvertForOutput(const FramePlan& plan, ImageView work, ImageView output) {
  if (!plan.Converted()) return work;
  return ConvertDepth(work, output, plan.bitRange) ? output : ImageView{};
}

void DrawMarker(const FramePlan& plan, ImageView frame) {
  const MarkerPlan& m = plan.marker;
  const auto top = static_cast<std::int32_t>(plan.pictureTop), bottom = static_cast<std::int32_t>(plan.PictureEnd());
  if (m.kind == 1) DrawCross(frame, m.low, m.high, top, bottom, m.color);
  if (m.kind == 2) DrawGrid(frame, m.low, m.high, top, bottom, m.color);
}

void BurnInOverlay(ImageView frame, const OverlayConfig& config, const OverlayRenderer& renderer,
                   const LogoImage (&logos)[2], std::int32_t showState, const OverlayStyle& style) {
  // Logos first; the second beside the first when they share a corner.
  std::int32_t extents[2] = {0, 0};
  const OverlayItem* items[2] = {&config.items[kFirstLogoItem], &config.items[kSecondLogoItem]};
  for (int i = 0; i < 2; ++i) {
    const OverlayItem& item = *items[i];
    if (!(config.flags & item.mask) || !logos[i].IsLoaded()) continue;
    if (item.showOn != 0 && item.showOn != showState) continue;
    const int percent = LogoScalePercent(item.format);
    extents[i] = static_cast<std::int32_t>(logos[i].Width() * percent / 100);
    const std::int32_t offset = i == 1 && items[0]->position == item.position ? extents[0] : 0;
    DrawLogo(frame, logos[i].View(), logos[i].Alpha(), item.position, percent, item.paramA, offset);
  }
  for (std::int32_t position = 0; position <= 5; ++position) {
    const char* text = renderer.TextAt(position);
    if (text == nullptr || *text == '\0') continue;
    std::int32_t offset = 0;
    for (int i = 0; i < 2; ++i)
      if (extents[i] && items[i]->position == position) offset += extents[i];
    DrawOverlayText(frame, position, style.font, style.height, style.textColor, style.backColor, offset, text);
  }
}

ImageView DrawPlotRows(const FramePlan& plan, CDataBmp& plot, std::int32_t frameIndex, ImageView frame, ImageView wide) {
  if (!plan.Widened() || wide.Empty() || wide.height != frame.height || wide.depth != frame.depth) {
    plot.Draw(frameIndex, frame);
    return frame;
  }
  // The plot is wider than the picture: the frame goes centred into a wider one.
  const std::size_t offset = (std::size_t{wide.width} - frame.width) / 2 * frame.PixelBytes();
  for (std::uint32_t y = 0; y < frame.height; ++y) {
    std::memset(wide.Row(y), 0, wide.PackedRowBytes());
    std::memcpy(wide.Row(y) + offset, frame.Row(y), frame.PackedRowBytes());
  }
  plot.Draw(frameIndex, wide);
  return wide;
}

int WriteMainFrame(const FramePlan& plan, FrameHandle out, std::uint32_t index, std::uint32_t total,
                   const std::uint8_t* block, ImageView frame) {
  // The library reads as many pixels as the header tells: the frame must hold them.
  const FrameHeader& h = plan.header;
  if (frame.Empty() || !frame.Packed() || frame.width != h.width || frame.height != h.height ||
      frame.PixelBytes() != BytesPerPixel(h.mosaic ? h.bits / 3 : h.bits))
    return kFkBadArgument;
  if (plan.metadata != framekit::MetadataPlacement::kInPixelsBigEndian)
    return WriteFrame(out, index, total, &plan.header, block, frame.data);
  // The block rides behind the pixels of the frame, in the buffer's spare bytes.
  std::memcpy(frame.data + PackedBytes(frame.width, frame.height, frame.depth), block, kMetadataBlockSize);
  return WriteFrame(out, index, total, &plan.header, nullptr, frame.data);
}

int WriteMovieFrame(const FramePlan& plan, FrameHandle movie, std::uint32_t index, std::uint32_t total,
                    ConstImageView shown, ImageView converted) {
  FrameHeader header = plan.header;
  header.width = shown.width;
  header.height = shown.height;
  header.bits = plan.movieDepth;
  header.colorKind = plan.movieDepth <= 16 ? kColorKindGrey : kColorKindColor;
  header.mosaic = 0;
  header.mosaicOrder = 0;
  if (shown.depth == plan.movieDepth) return WriteFrame(movie, index, total, &header, nullptr, shown.data);
  if (!ConvertDepth(shown, converted, plan.bitRange)) return kFkBadArgument;
  return WriteFrame(movie, index, total, &header, nullptr, converted.data);
}

std::int32_t ShowState(std::int32_t frameIndex, std::int32_t frameTotal, std::int32_t frameNumber) {
  if (frameIndex == 0) return 1;
  if (frameIndex == frameTotal - 1) return 2;
  return frameNumber == 0 ? 3 : 0;
}

// ------------------------------------------------------------------ the job's side

int CDecodeRaw::StartFrame(const JobRun& run, FrameSlot& slot) const {
  slot.frame = slot.shown = {};
  slot.movieResult = 0;
  slot.movieReady = slot.fileCreated = slot.readDue = false;
  return run.buffersReady ? 0 : -1;  // the run's frame buffers (and handles) could not be had
}

int CDecodeRaw::ReadFrame(JobRun& run, FrameSlot& slot) {
  const FrameTask& task = slot.task;
  slot.readDue = false;
  ReadRawFrame(slot.source, task.index, hasCameraBlock_, slot.raw);
  if (slot.raw.result != 0) return slot.raw.result;
  BuildBlock(run, slot);
  slot.capture = DescribeCapture(*run.recording, slot.raw.time, task.number, task.sequenceIndex,
                                 FrameExposure(run, slot.raw), run.modelText,
                                 FormatSerial(run.metadata.modelNumber, run.metadata.serial));
  return 0;
}

int CDecodeRaw::ConvertSlot(JobRun& run, FrameSlot& slot) {
  if (slot.result != 0) return slot.result;
  const FramePlan& plan = run.plan;
  ImageView frame = ProcessFrame(plan, slot);
  if (frame.Empty()) return -1;  // the delivery does not hold the picture the geometry promises
  if (!plan.sensorPlane) frame = BurnIn(run, slot, frame);
  slot.frame = slot.shown = frame;
  return 0;
}

ImageView CDecodeRaw::ProcessFrame(const FramePlan& plan, FrameSlot& slot) {
  const ImageView work = slot.buffers.Work();
  const ConstImageView delivered = PackedView(slot.raw.pixels.data(), work.width, plan.pictureHeight, work.depth);
  if (slot.raw.bytes < delivered.Span()) return {};
  const ImageView picture = PlacePicture(delivered, Background(delivered), work, plan.pictureTop);
  if (picture.Empty()) return {};
  ApplyImageChain(slot.processor, imageOps_, picture);
  return ConvertForOutput(plan, work, slot.buffers.Output());
}

ConstImageView CDecodeRaw::Background(const ConstImageView& picture) const {
  if (!args_->backgroundOn || backgroundFrame_.size() != picture.Span()) return {};
  return PackedView(backgroundFrame_.data(), picture.width, picture.height, picture.depth);
}

ImageView CDecodeRaw::BurnIn(const JobRun& run, FrameSlot& slot, ImageView frame) const {
  const FramePlan& plan = run.plan;
  const FrameTask& task = slot.task;
  DrawMarker(plan, frame);
  if (plan.overlayOn) {
    const std::int32_t showState = ShowState(task.index, task.total, task.number);
    PlaceOverlayTexts(run, slot, showState);
    const OverlayStyle style{FieldText(args_->overlayFont), args_->overlayFontHeight, args_->overlayTextColor,
                             args_->overlayBackColor};
    BurnInOverlay(frame, slot.overlay, slot.renderer, logos_, showState, style);
  }
  if (!plan.plotOn) return frame;
  CDataBmp plot;
  SetUpPlot(run, plot);
  return DrawPlotRows(plan, plot, task.index, frame, slot.buffers.Wide());
}

void CDecodeRaw::PlaceOverlayTexts(const JobRun& run, FrameSlot& slot, std::int32_t showState) const {
  const FrameTask& task = slot.task;
  const RawFrame& raw = slot.raw;
  const std::string fileName = std::string(LastComponent(task.path)).substr(0, 127);
  OverlayFrameValues values;
  values.cameraBlock = raw.hasCameraBlock ? raw.cameraBlock.data() : nullptr;
  TimeStampBlock timeBlock = raw.time;  // the overlay fills in a missing receiver's time
  values.timeBlock = &timeBlock;
  values.frameNumber = task.number;
  values.sequenceIndex = task.sequenceIndex;
  values.irigMode = args_->irigMode;
  values.flagged = raw.frameFlag != 0;
  if ((args_->overlayFlags & kOverlayItemMask[kChannelValueItem]) && run.channelDataLoaded)
    values.channelValue = ChannelValueAt(run.channelData, task.index);
  values.temperature = run.temperature;
  values.exposure = FrameExposure(run, raw);
  values.serial = run.metadata.serial;
  values.network = run.metadata.networkAddress;
  values.deviceName = run.deviceName.c_str();
  values.fileName = fileName.c_str();
  values.userText1 = args_->userText1;
  values.userText2 = args_->userText2;
  slot.renderer.UpdateItems(slot.overlay, *run.recording, values);
  slot.renderer.Place(slot.overlay, showState);
}

void CDecodeRaw::SetUpPlot(const JobRun& run, CDataBmp& plot) const {
  const ChannelFileHeader& ch = run.channelData.header;
  plot.SetRect({0, 0, static_cast<int>(std::max(run.plan.plotWidth, run.plan.width)), static_cast<int>(run.plan.plotRows)});
  const std::int32_t perFrame =
      ch.SamplesPerFrame != 0 ? static_cast<std::int32_t>(ch.SamplesPerFrame) : run.channelSettings.SamplesPerFrame;
  const std::uint32_t mask = run.channelData.EnabledMask();
  plot.SetData(run.channelData.codes.data(), static_cast<std::int32_t>(run.channelData.codes.size()), perFrame, ch.T0,
               ch.Rate, mask);
  plot.ResetView();
  plot.SetColors(run.plotSettings.BackgroundColor, run.plotSettings.GridColor);
  const int unitsChannel = std::clamp(run.plotSettings.AllUnitsChannels, 0, kChannelCount - 1);
  plot.SetUnits(run.plotSettings.UseUnits, run.channelSettings.Channels[unitsChannel].Units);
  plot.SetScale(run.channelSettings.Channels[unitsChannel].ScaleFactor);
  plot.SetValueRange(0);
  plot.SetChannelColors(run.plotSettings.ChannelColor);
  plot.SetChannels(run.channelSettings.Channels, args_->plotMode);
  plot.SetShowDataPoints(run.plotSettings.ShowDataPoints);
  std::int32_t selected = -1;
  const std::int32_t display = run.plotSettings.DisplayChannel;
  if (display >= 0 && display < kChannelCount && (mask & (1u << display)))
    selected = std::popcount(mask & ((1u << display) - 1));
  plot.SetSelectedChannel(selected);
}

std::uint32_t CDecodeRaw::FrameExposure(const JobRun& run, const RawFrame& raw) const {
  return run.recording->AEEnable ? raw.autoExposureNs : run.sourceExposure;
}

void CDecodeRaw::BuildBlock(JobRun& run, FrameSlot& slot) {
  const RawFrame& raw = slot.raw;
  MetadataSource source = run.metadata;
  const TimeStampBlock& t = raw.time;
  source.timeStatus = t.status, source.timeYear = t.year, source.timeDayOfYear = t.dayOfYear;
  source.timeHour = t.hour, source.timeMinute = t.minute, source.timeSecond = t.second;
  source.timeMicroseconds = t.microseconds;
  if (raw.hasCameraBlock) source.cameraBlock = raw.cameraBlock.data();
  std::uint8_t* block = slot.block.data();
  if (run.plan.metadata == framekit::MetadataPlacement::kGevsBlock) {
    source.gevValues = raw.gevValues.data();
    source.gevTime = raw.gevTime.data();
    BuildGevsBlock(source, *reinterpret_cast<GevsBlock*>(block), slot.task.number, *run.recording,
                   slot.task.index == 0, static_cast<std::uint32_t>(slot.task.total));
  } else {
    BuildFrameMetadata(source, *reinterpret_cast<FrameMetadataBlock*>(block), slot.task.number, *run.recording,
                       run.temperature, FrameExposure(run, raw), run.plan.header.mosaicOrder);
  }
}

int CDecodeRaw::WriteMain(const JobRun& run, FrameSlot& slot, FrameHandle out) const {
  // What the recording tells about the frame, for the formats that record it.
  SetCaptureInfo(out, &slot.capture);
  return WriteMainFrame(run.plan, out, static_cast<std::uint32_t>(slot.task.index),
                        static_cast<std::uint32_t>(slot.task.total), slot.block.data(), slot.frame);
}

int CDecodeRaw::PrepareMovieFrame(const JobRun& run, FrameSlot& slot) {
  if (!run.plan.movieRefetch) return 0;
  // The main output holds the sensor's plane: the movie reads the processed frame itself,
  // on the job's own handle, which serves one reader at a time.
  {
    const std::lock_guard lock(movieSourceMutex_);
    ReadRawFrame(rawSource_, slot.task.index, hasCameraBlock_, slot.movieRaw);
  }
  if (slot.movieRaw.result != 0) return slot.movieRaw.result;
  const ImageView source = slot.buffers.MovieSource();
  const ConstImageView delivered = PackedView(slot.movieRaw.pixels.data(), source.width, source.height, source.depth);
  if (slot.movieRaw.bytes < delivered.Span() || PlacePicture(delivered, Background(delivered), source, 0).Empty())
    return -1;
  ApplyImageChain(slot.processor, imageOps_, source);
  slot.shown = source;
  return 0;
}

void CDecodeRaw::WriteCompanion(JobRun& run, FrameSlot& slot) {
  // A movie that fails to take a frame does not stop the main output; the job
  // ends with the movie's failure and keeps the raw files.
  if (WriteMovieFrame(run.plan, run.movieHandle, static_cast<std::uint32_t>(slot.task.movieIndex),
                      static_cast<std::uint32_t>(slot.task.movieTotal), slot.shown, slot.buffers.Movie()) != 0)
    run.outputs.Failed(run.moviePath);
}

}  // namespace tarnvel
