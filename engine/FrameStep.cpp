// The frame step: one frame from the raw source through the image chain,
// depth conversion, markers, overlay, plot and metadata to the image
// library, and to the companion movie.
#include <algorithm>
#include <cstring>

#include "channels/DataPlot.h"
#include "engine/CaptureInfo.h"
#include "engine/DecodeRaw.h"
#include "engine/FrameMetadata.h"
#include "engine/ImageSink.h"
#include "engine/JobRun.h"
#include "frames/overlay/Blend.h"
#include "frames/overlay/OverlayText.h"
#include "recording/ModelTable.h"

namespace tarnvel {
namespace {

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

}  // namespace

std::uint8_t* CDecodeRaw::FetchFrame(std::int32_t frameIndex, std::int32_t frameTotal, std::uint32_t bits, int* result,
                                     bool processed) {
  if (processed)
    ReadRawFrame(rawSource_, frameIndex, hasCameraBlock_, rawFrame_);
  else
    readAhead_.Take(frameIndex, frameIndex + 1 < frameTotal ? frameIndex + 1 : -1, rawFrame_);
  *result = rawFrame_.result;
  if (rawFrame_.result != 0) return nullptr;
  const std::uint8_t* raw = rawFrame_.pixels.data();
  const std::uint32_t depth = bits ? bits : geometry_.bits;
  const std::size_t pictureBytes = std::size_t{geometry_.width} * geometry_.height * BytesPerPixel(depth);
  // The delivery must hold the picture the geometry promises.
  if (rawFrame_.bytes < pictureBytes) {
    *result = -1;
    return nullptr;
  }
  std::uint8_t* picture = workBuffer_.data();
  if (args_->overlayFlags != 0 && (args_->topBar || args_->bottomBar)) {
    const std::size_t bar = std::size_t{geometry_.width} * static_cast<std::uint32_t>(textBarHeight_) * BytesPerPixel(depth);
    if (args_->topBar) {
      std::memset(workBuffer_.data(), 0, bar);
      picture += bar;
    }
    if (args_->bottomBar) std::memset(picture + pictureBytes, 0, bar);
  }
  imageProcessor_.SetGeometry(geometry_.width, geometry_.height, depth);
  if (args_->backgroundOn && backgroundFrame_.size() == pictureBytes)
    imageProcessor_.AddBackground(raw, backgroundFrame_.data(), picture);
  else
    std::memcpy(picture, raw, pictureBytes);
  ApplyImageChain(imageProcessor_, imageOps_, picture);
  imageProcessor_.SetGeometry(geometry_.width, geometry_.height, geometry_.bits);
  return workBuffer_.data();
}

int CDecodeRaw::ConvertFrame(JobRun& run, FrameHandle out, std::int32_t frameNumber, std::int32_t sequenceIndex,
                             const std::string& outputPath, std::int32_t frameIndex, std::int32_t frameTotal,
                             std::int32_t movieIndex, std::int32_t movieTotal) {
  RecordingInfo& rec = *run.recording;
  const std::int32_t type = rec.FileType;
  const bool isColor = geometry_.bits > 16;
  std::uint32_t sourceBits = geometry_.bits;
  std::uint32_t outBits = rec.OutputPixelDepth;
  std::uint32_t width = geometry_.width, height = geometry_.height;
  std::uint32_t pictureTop = 0;
  std::uint32_t plotRows = 0;
  bool plainFrame = true;
  FrameHeader header;
  FillGreyPalette(header);
  if (QueryCapability(type, kCapDeepOutput) != 0) {
    if (outBits > 24) outBits = 24;
    else if (outBits >= 9 && outBits <= 23) outBits = 8;
  }
  if (!run.channelPath.empty()) {
    plotRows = static_cast<std::uint32_t>(PlotRows(*args_));
    if (!isColor && args_->plotInColor) outBits *= 3;
  }
  const bool burnIns = !RawFrameType(type) && !(isColor && (type == kTypeFba || type == kTypeMrf || type == kTypeMcf));
  if (burnIns) {
    if (args_->overlayFlags != 0) {
      if (args_->topBar) height += textBarHeight_, pictureTop += textBarHeight_;
      if (args_->bottomBar) height += textBarHeight_;
    }
    height += plotRows;
    plainFrame = false;
  }
  // Bars, a tall plot and a deeper output must fit the work buffer; values
  // from the argument file can ask for more than its usual room.
  const std::size_t needed = std::size_t{width} * height * BytesPerPixel(std::max({outBits, sourceBits, geometry_.bits}));
  if (workBuffer_.size() < needed) workBuffer_.resize(needed, 0);
  const std::string fileName = std::string(LastComponent(outputPath)).substr(0, 127);
  header.width = width;
  header.height = height;
  header.bits = outBits;
  header.colorKind = outBits <= 16 ? 1 : 2;
  header.rate = rec.Output_Rate;
  header.model = static_cast<std::uint32_t>(ModelIndexOf(rawSource_.ModelNumber())) | rawSource_.SubModel() << 16;
  header.serial = rawSource_.SerialNumber();
  header.mosaic = QueryCapability(type, kCapMosaicOutput) == 0 && isColor ? 1 : 0;
  header.mosaicOrder = header.mosaic ? TurnedMosaicOrder(rawSource_.MosaicOrder(), rec.RotationAngle, rec.FlipCfg) : 0;
  char deviceName[RawSource::kDeviceNameBytes];
  rawSource_.DeviceName(deviceName, sizeof deviceName);
  const std::int32_t temperature = (args_->overlayFlags & kOverlayItemMask[kTemperatureItem]) ? rawSource_.Temperature() : 0;
  std::uint32_t exposure = 0;  // the frame's own when auto exposure ran
  const std::int32_t showState = frameIndex == 0 ? 1 : frameIndex == frameTotal - 1 ? 2 : frameNumber == 0 ? 3 : 0;

  alignas(8) std::uint8_t metaBlock[1024] = {};
  MetadataSource source;
  source.geometryBits = geometry_.bits;
  source.width = geometry_.width;
  source.height = geometry_.height;
  source.fileType = type;
  source.hasCameraBlock = hasCameraBlock_;
  source.colorMatrix = whiteBalance_.Matrix();
  source.deviceName = deviceName;
  source.serial = header.serial;
  source.subModel = rawSource_.SubModel();
  source.networkAddress = rawSource_.NetworkAddress();
  source.modelNumber = rawSource_.ModelNumber();
  source.modelIndex = static_cast<std::uint32_t>(ModelIndexOf(source.modelNumber));
  source.propertySix = rawSource_.PropertySix();
  source.cameraValue14 = rawSource_.CameraValue14();
  source.cameraValue15 = rawSource_.CameraValue15();
  char modelText[kCameraTextBytes] = {};
  rawSource_.CameraModelText(modelText);
  source.modelText = FieldText(modelText);
  // What the driver told about the frame just fetched.
  auto takeFrameRecords = [&] {
    const TimeStampBlock& t = rawFrame_.time;
    source.timeStatus = t.status, source.timeYear = t.year, source.timeDayOfYear = t.dayOfYear;
    source.timeHour = t.hour, source.timeMinute = t.minute, source.timeSecond = t.second;
    source.timeMicroseconds = t.microseconds;
    if (rawFrame_.hasCameraBlock) source.cameraBlock = rawFrame_.cameraBlock.data();
    exposure = rec.AEEnable ? rawFrame_.autoExposureNs : rawSource_.ExposureNs();
  };
  // The frame's block, and what the recording tells about it for the formats that record it.
  auto buildBlock = [&] {
    const CaptureInfo capture = DescribeCapture(rec, rawFrame_.time, frameNumber, sequenceIndex, exposure,
                                                source.modelText, FormatSerial(source.modelNumber, source.serial));
    SetCaptureInfo(out, &capture);
    if (type == kTypeChapter10) {
      source.gevValues = rawFrame_.gevValues.data();
      source.gevTime = rawFrame_.gevTime.data();
      BuildGevsBlock(source, *reinterpret_cast<GevsBlock*>(metaBlock), frameNumber, rec, frameIndex == 0,
                     static_cast<std::uint32_t>(frameTotal));
    } else {
      BuildFrameMetadata(source, *reinterpret_cast<FrameMetadataBlock*>(metaBlock), frameNumber, rec, temperature,
                         exposure, header.mosaicOrder);
    }
  };

  std::uint8_t* frame = nullptr;
  int result = 0;
  std::vector<std::uint8_t> wideFrame;
  if (RawFrameType(type) || (isColor && PlainMosaicType(type))) {
    // Cases A and B: the sensor's plane, at a third of the depth.
    if (isColor) sourceBits /= 3, outBits /= 3;
    if (!RawFrameType(type)) header.bits = outBits * (isColor ? 3 : 1);
    std::uint8_t* fetched = FetchFrame(frameIndex, frameTotal, sourceBits, &result);
    if (!fetched) return result;
    frame = outBits != sourceBits ? imageProcessor_.ConvertDepth(sourceBits, outBits, rec.PixelGain, geometry_.width,
                                                                 geometry_.height, fetched, nullptr)
                                  : fetched;
    takeFrameRecords();
    buildBlock();
    if (RawFrameType(type)) {
      // The block rides behind the pixels of the 8-bit frame.
      std::uint8_t* joined = frame == fetched ? fetched : (std::memcpy(fetched, frame, std::size_t{width} * height * BytesPerPixel(outBits)), fetched);
      std::memcpy(joined + std::size_t{width} * height, metaBlock, sizeof metaBlock);
      frame = joined;
      result = WriteFrame(out, static_cast<std::uint32_t>(frameIndex), static_cast<std::uint32_t>(frameTotal), &header, nullptr, frame);
    } else {
      result = WriteFrame(out, static_cast<std::uint32_t>(frameIndex), static_cast<std::uint32_t>(frameTotal), &header, metaBlock, frame);
    }
  } else {
    // Case C: processed frames with their burn-ins.
    std::uint8_t* fetched = FetchFrame(frameIndex, frameTotal, 0, &result);
    if (!fetched) return result;
    const std::uint32_t sourceDepth = run.mosaicMode && isColor ? geometry_.bits / 3 : geometry_.bits;
    frame = geometry_.bits != outBits && !(run.mosaicMode && isColor)
                ? imageProcessor_.ConvertDepth(sourceDepth, outBits, rec.PixelGain, width, height, fetched, nullptr)
                : fetched;
    if (!frame) return -1;
    takeFrameRecords();
    double channelValue = 0;
    if ((args_->overlayFlags & kOverlayItemMask[kChannelValueItem]) && run.channelDataLoaded)
      channelValue = ChannelValueAt(run.channelData, frameIndex);
    const std::uint32_t pictureEnd = pictureTop + geometry_.height;
    if (args_->markerKind != 0) {
      imageProcessor_.SetGeometry(width, height, outBits);
      const std::uint32_t color = ColorAt(args_->markerColor);
      const std::int32_t low = static_cast<std::int32_t>(args_->markerValue & 0xFFFF);
      const std::int32_t high = static_cast<std::int32_t>(args_->markerValue >> 16);
      if (args_->markerKind == 1)
        imageProcessor_.DrawCross(frame, low, high, static_cast<std::int32_t>(pictureTop), static_cast<std::int32_t>(pictureEnd), color);
      else if (args_->markerKind == 2)
        imageProcessor_.DrawGrid(frame, low, high, static_cast<std::int32_t>(pictureTop), static_cast<std::int32_t>(pictureEnd), color);
      imageProcessor_.SetGeometry(geometry_.width, geometry_.height, geometry_.bits);
    }
    if (args_->overlayFlags != 0) {
      OverlayFrameValues values;
      values.cameraBlock = source.cameraBlock;
      TimeStampBlock timeBlock = rawFrame_.time;  // the overlay fills in a missing receiver's time
      values.timeBlock = &timeBlock;
      values.frameNumber = frameNumber;
      values.sequenceIndex = sequenceIndex;
      values.irigMode = args_->irigMode;
      values.flagged = rawFrame_.frameFlag != 0;
      values.channelValue = channelValue;
      values.temperature = temperature;
      values.exposure = exposure;
      values.serial = header.serial;
      values.network = source.networkAddress;
      values.deviceName = deviceName;
      values.fileName = fileName.c_str();
      values.userText1 = args_->userText1;
      values.userText2 = args_->userText2;
      overlayRenderer_->UpdateItems(*overlay_, rec, values);
      overlayRenderer_->Place(*overlay_, showState);
      // Logos first; the second beside the first when they share a corner.
      std::int32_t extents[2] = {0, 0};
      const int items[2] = {kFirstLogoItem, kSecondLogoItem};
      for (int i = 0; i < 2; ++i) {
        const OverlayItem& item = overlay_->items[items[i]];
        if (!(overlay_->flags & item.mask) || !logos_[i].IsLoaded()) continue;
        if (item.showOn != 0 && item.showOn != showState) continue;
        const int percent = LogoScalePercent(item.format);
        extents[i] = static_cast<std::int32_t>(logos_[i].Width() * percent / 100);
        const std::int32_t offset = i == 1 && overlay_->items[kFirstLogoItem].position == item.position ? extents[0] : 0;
        DrawLogo(frame, width, height, outBits, item.position, percent, item.paramA, offset, logos_[i].Pixels(),
                 logos_[i].Width(), logos_[i].Height(), logos_[i].Alpha());
      }
      for (std::int32_t position = 0; position <= 5; ++position) {
        const char* text = overlayRenderer_->TextAt(position);
        if (text == nullptr || *text == '\0') continue;
        std::int32_t offset = 0;
        if (extents[0] && overlay_->items[kFirstLogoItem].position == position) offset += extents[0];
        if (extents[1] && overlay_->items[kSecondLogoItem].position == position) offset += extents[1];
        DrawOverlayText(frame, width, height, outBits, position, FieldText(args_->overlayFont), args_->overlayFontHeight,
                        args_->overlayTextColor, args_->overlayBackColor, offset, text);
      }
    }
    if (plotRows != 0 && run.channelDataLoaded) {
      const ChannelFileHeader& ch = run.channelData.header;
      const std::uint32_t plotWidth = std::max<std::uint32_t>(static_cast<std::uint32_t>(std::max(args_->plotWidth, 0)), width);
      CDataBmp plot;
      plot.SetRect({0, 0, static_cast<int>(plotWidth), static_cast<int>(plotRows)});
      const std::int32_t perFrame = ch.SamplesPerFrame != 0 ? static_cast<std::int32_t>(ch.SamplesPerFrame) : run.channelSettings.SamplesPerFrame;
      const std::uint32_t mask = run.channelData.EnabledMask();
      plot.SetData(run.channelData.codes.data(), static_cast<std::int32_t>(run.channelData.codes.size()), perFrame, ch.T0, ch.Rate, mask);
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
      if (plotWidth > width) {
        // The plot is wider than the picture: centre the frame in a wider one.
        const std::size_t bytes = BytesPerPixel(outBits);
        wideFrame.assign(std::size_t{plotWidth} * height * bytes, 0);
        const std::size_t offset = (std::size_t{plotWidth} - width) / 2 * bytes;
        for (std::uint32_t y = 0; y < height; ++y)
          std::memcpy(&wideFrame[y * plotWidth * bytes + offset], frame + std::size_t{y} * width * bytes, width * bytes);
        plot.Draw(frameIndex, wideFrame.data(), plotWidth, height, outBits);
        header.width = plotWidth;
      } else {
        plot.Draw(frameIndex, frame, width, height, outBits);
      }
    }
    buildBlock();
    result = WriteFrame(out, static_cast<std::uint32_t>(frameIndex), static_cast<std::uint32_t>(frameTotal), &header,
                        metaBlock, wideFrame.empty() ? frame : wideFrame.data());
  }

  // The companion movie: 8 or 24 bits, the picture of the main output
  // (widened with its plot when the plot is wider), or for plain frames the
  // processed frame fetched anew.
  if (run.movieHandle && movieIndex >= 0 && result == 0) {
    std::uint32_t movieBits = outBits;
    std::uint8_t* movieFrame = wideFrame.empty() ? frame : wideFrame.data();
    FrameHeader movieHeader = header;
    if (plainFrame) {
      int fetch = 0;
      movieFrame = FetchFrame(frameIndex, frameTotal, 0, &fetch, true);
      if (!movieFrame) return fetch;
      movieBits = geometry_.bits;
      movieHeader.width = geometry_.width;
      movieHeader.height = geometry_.height;
    }
    movieHeader.mosaic = 0;
    movieHeader.mosaicOrder = 0;
    const std::uint32_t target = movieBits <= 16 ? 8 : 24;
    if (movieBits != target)
      movieFrame = imageProcessor_.ConvertDepth(movieBits, target, rec.PixelGain, movieHeader.width, movieHeader.height,
                                                movieFrame, nullptr);
    movieHeader.bits = target;
    movieHeader.colorKind = target <= 16 ? 1 : 2;
    if (movieFrame)
      WriteFrame(run.movieHandle, static_cast<std::uint32_t>(movieIndex), static_cast<std::uint32_t>(movieTotal),
                 &movieHeader, nullptr, movieFrame);
  }
  return result;
}

}  // namespace tarnvel
