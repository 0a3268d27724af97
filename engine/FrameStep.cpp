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

int CDecodeRaw::ConvertFrame(JobRun& run, FrameHandle out, std::int32_t frameNumber, std::int32_t sequenceIndex,
                             const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal,
                             std::int32_t movieIndex, std::int32_t movieTotal) {
  const FramePlan& plan = run.plan;
  if (!run.buffersReady) return -1;  // the run's frame buffers could not be had
  readAhead_.Take(frameIndex, frameIndex + 1 < frameTotal ? frameIndex + 1 : -1, rawFrame_);
  if (rawFrame_.result != 0) return rawFrame_.result;
  ImageView frame = ProcessFrame(plan, rawFrame_, buffers_.Work(), buffers_.Output());
  if (frame.Empty()) return -1;  // the delivery does not hold the picture the geometry promises
  if (!plan.sensorPlane) frame = BurnIn(run, frame, frameNumber, sequenceIndex, outputPath, frameIndex, frameTotal);
  alignas(8) std::uint8_t block[kMetadataBlockSize] = {};
  BuildBlock(run, block, frameNumber, frameIndex, frameTotal);
  DescribeCaptureOf(run, out, frameNumber, sequenceIndex);
  const int result = WriteMainFrame(plan, out, static_cast<std::uint32_t>(frameIndex),
                                    static_cast<std::uint32_t>(frameTotal), block, frame);
  if (result != 0 || !run.movieHandle || movieIndex < 0) return result;
  return WriteCompanion(run, frame, frameIndex, movieIndex, movieTotal);
}

ImageView CDecodeRaw::ProcessFrame(const FramePlan& plan, const RawFrame& raw, ImageView work, ImageView output) {
  const ConstImageView delivered = PackedView(raw.pixels.data(), work.width, plan.pictureHeight, work.depth);
  if (raw.bytes < delivered.Span()) return {};
  const ImageView picture = PlacePicture(delivered, Background(delivered), work, plan.pictureTop);
  if (picture.Empty()) return {};
  ApplyImageChain(imageProcessor_, imageOps_, picture);
  return ConvertForOutput(plan, work, output);
}

ConstImageView CDecodeRaw::Background(const ConstImageView& picture) const {
  if (!args_->backgroundOn || backgroundFrame_.size() != picture.Span()) return {};
  return PackedView(backgroundFrame_.data(), picture.width, picture.height, picture.depth);
}

ImageView CDecodeRaw::BurnIn(JobRun& run, ImageView frame, std::int32_t frameNumber, std::int32_t sequenceIndex,
                             const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal) {
  const FramePlan& plan = run.plan;
  DrawMarker(plan, frame);
  if (plan.overlayOn) {
    const std::int32_t showState = ShowState(frameIndex, frameTotal, frameNumber);
    PlaceOverlayTexts(run, frameNumber, sequenceIndex, outputPath, frameIndex, showState);
    const OverlayStyle style{FieldText(args_->overlayFont), args_->overlayFontHeight, args_->overlayTextColor,
                             args_->overlayBackColor};
    BurnInOverlay(frame, *overlay_, *overlayRenderer_, logos_, showState, style);
  }
  if (!plan.plotOn) return frame;
  CDataBmp plot;
  SetUpPlot(run, plot);
  return DrawPlotRows(plan, plot, frameIndex, frame, buffers_.Wide());
}

void CDecodeRaw::PlaceOverlayTexts(JobRun& run, std::int32_t frameNumber, std::int32_t sequenceIndex,
                                   const std::string& outputPath, std::int32_t frameIndex, std::int32_t showState) {
  const std::string fileName = std::string(LastComponent(outputPath)).substr(0, 127);
  OverlayFrameValues values;
  values.cameraBlock = rawFrame_.hasCameraBlock ? rawFrame_.cameraBlock.data() : nullptr;
  TimeStampBlock timeBlock = rawFrame_.time;  // the overlay fills in a missing receiver's time
  values.timeBlock = &timeBlock;
  values.frameNumber = frameNumber;
  values.sequenceIndex = sequenceIndex;
  values.irigMode = args_->irigMode;
  values.flagged = rawFrame_.frameFlag != 0;
  if ((args_->overlayFlags & kOverlayItemMask[kChannelValueItem]) && run.channelDataLoaded)
    values.channelValue = ChannelValueAt(run.channelData, frameIndex);
  values.temperature = run.temperature;
  values.exposure = FrameExposure(run);
  values.serial = run.metadata.serial;
  values.network = run.metadata.networkAddress;
  values.deviceName = run.deviceName.c_str();
  values.fileName = fileName.c_str();
  values.userText1 = args_->userText1;
  values.userText2 = args_->userText2;
  overlayRenderer_->UpdateItems(*overlay_, *run.recording, values);
  overlayRenderer_->Place(*overlay_, showState);
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

std::uint32_t CDecodeRaw::FrameExposure(const JobRun& run) const {
  return run.recording->AEEnable ? rawFrame_.autoExposureNs : run.sourceExposure;
}

void CDecodeRaw::BuildBlock(JobRun& run, std::uint8_t* block, std::int32_t frameNumber, std::int32_t frameIndex,
                            std::int32_t frameTotal) {
  MetadataSource source = run.metadata;
  const TimeStampBlock& t = rawFrame_.time;
  source.timeStatus = t.status, source.timeYear = t.year, source.timeDayOfYear = t.dayOfYear;
  source.timeHour = t.hour, source.timeMinute = t.minute, source.timeSecond = t.second;
  source.timeMicroseconds = t.microseconds;
  if (rawFrame_.hasCameraBlock) source.cameraBlock = rawFrame_.cameraBlock.data();
  if (run.plan.metadata == framekit::MetadataPlacement::kGevsBlock) {
    source.gevValues = rawFrame_.gevValues.data();
    source.gevTime = rawFrame_.gevTime.data();
    BuildGevsBlock(source, *reinterpret_cast<GevsBlock*>(block), frameNumber, *run.recording, frameIndex == 0,
                   static_cast<std::uint32_t>(frameTotal));
  } else {
    BuildFrameMetadata(source, *reinterpret_cast<FrameMetadataBlock*>(block), frameNumber, *run.recording,
                       run.temperature, FrameExposure(run), run.plan.header.mosaicOrder);
  }
}

void CDecodeRaw::DescribeCaptureOf(const JobRun& run, FrameHandle out, std::int32_t frameNumber,
                                   std::int32_t sequenceIndex) const {
  // What the recording tells about the frame, for the formats that record it.
  const CaptureInfo capture = DescribeCapture(*run.recording, rawFrame_.time, frameNumber, sequenceIndex,
                                              FrameExposure(run), run.modelText,
                                              FormatSerial(run.metadata.modelNumber, run.metadata.serial));
  SetCaptureInfo(out, &capture);
}

int CDecodeRaw::WriteCompanion(JobRun& run, ImageView shown, std::int32_t frameIndex, std::int32_t movieIndex,
                               std::int32_t movieTotal) {
  const FramePlan& plan = run.plan;
  if (plan.movieRefetch) {
    // The main output holds the sensor's plane: the movie reads the processed frame itself.
    ReadRawFrame(rawSource_, frameIndex, hasCameraBlock_, movieFrame_);
    if (movieFrame_.result != 0) return movieFrame_.result;
    const ImageView source = buffers_.MovieSource();
    const ConstImageView delivered = PackedView(movieFrame_.pixels.data(), source.width, source.height, source.depth);
    if (movieFrame_.bytes < delivered.Span() || PlacePicture(delivered, Background(delivered), source, 0).Empty())
      return -1;
    ApplyImageChain(imageProcessor_, imageOps_, source);
    shown = source;
  }
  // A movie that fails to take a frame does not stop the main output; the job
  // ends with the movie's failure and keeps the raw files.
  if (WriteMovieFrame(plan, run.movieHandle, static_cast<std::uint32_t>(movieIndex),
                      static_cast<std::uint32_t>(movieTotal), shown, buffers_.Movie()) != 0)
    run.outputs.Failed(run.moviePath);
  return 0;
}

}  // namespace tarnvel
