#include "engine/FramePlan.h"

#include <algorithm>
#include <new>

#include "frames/overlay/Blend.h"

namespace tarnvel {
namespace {

using framekit::FrameSource;

// The plot's rows and least width as the argument file asks, held to what a
// frame can carry: a negative value is none, a huge one is cut here.
constexpr std::int32_t kMaxPlotSide = 16384;

// Output depth as the type takes it: without deep output 9 to 23 bits
// become 8 and more than 24 become 24.
std::uint32_t TypeDepth(std::uint32_t depth, bool deep) {
  if (deep) return depth;
  if (depth > 24) return 24;
  return depth >= 9 && depth <= 23 ? 8 : depth;
}

void PlanRows(const JobArgs& args, const PlanInputs& in, FramePlan& plan) {
  plan.width = in.geometry.width;
  plan.pictureHeight = in.geometry.height;
  if (plan.room) {
    if (args.overlayFlags != 0) {
      plan.barRows = in.textBarHeight;
      plan.pictureTop = args.topBar ? plan.barRows : 0;
      plan.bottomBar = args.bottomBar != 0;
    }
    if (in.channelsOn) plan.plotRows = static_cast<std::uint32_t>(std::clamp(PlotRows(args), 0, kMaxPlotSide));
  }
  plan.height = plan.PlotTop() + plan.plotRows;
}

void PlanDepths(const JobArgs& args, const PlanInputs& in, FramePlan& plan, std::uint32_t& headerBits) {
  const bool deep = in.type && framekit::Has(*in.type, framekit::kDeep);
  std::uint32_t outBits = TypeDepth(in.outputDepth, deep);
  if (in.channelsOn && !plan.colourSource && args.plotInColor) outBits *= 3;
  plan.sourceDepth = in.geometry.bits;
  plan.bitRange = in.bitRange;
  if (plan.sensorPlane && plan.colourSource) {
    // One plane of the sensor, at a third of the colour depth; the header
    // still tells the colour depth.
    plan.sourceDepth /= 3;
    outBits /= 3;
    headerBits = outBits * 3;
  } else if (plan.colourSource && in.mosaicDelivery) {
    // A mosaic type that takes processed frames gets the mosaic as it comes.
    plan.sourceDepth /= 3;
    outBits = plan.sourceDepth;
    headerBits = outBits * 3;
  } else {
    headerBits = outBits;
  }
  plan.outDepth = outBits;
}

void PlanHeader(const PlanInputs& in, FramePlan& plan, std::uint32_t headerBits) {
  FrameHeader& h = plan.header;
  FillGreyPalette(h);
  h.width = plan.Widened() ? plan.plotWidth : plan.width;
  h.height = plan.height;
  h.bits = headerBits;
  h.colorKind = headerBits <= 16 ? kColorKindGrey : kColorKindColor;
  h.rate = in.playbackRate;
  h.mosaic = in.type && framekit::Has(*in.type, framekit::kMosaic) && plan.colourSource ? 1 : 0;
}

void PlanMovie(const PlanInputs& in, FramePlan& plan) {
  plan.movieOn = in.movieOpen;
  // A plain output (the sensor's plane, no room for burn-ins) gives the movie
  // nothing to show: the movie reads the processed frame itself. Otherwise
  // it shows what the main output got, widened with its plot.
  plan.movieRefetch = !plan.room;
  plan.movieSourceDepth = plan.movieRefetch ? in.geometry.bits : plan.outDepth;
  plan.movieWidth = plan.movieRefetch ? in.geometry.width : plan.header.width;
  plan.movieHeight = plan.movieRefetch ? in.geometry.height : plan.height;
  plan.movieDepth = IsColour(plan.movieSourceDepth) ? 24 : 8;
}

}  // namespace

FramePlan MakeFramePlan(const JobArgs& args, const PlanInputs& in) {
  FramePlan plan;
  plan.fileType = in.fileType;
  plan.colourSource = IsColour(in.geometry.bits);
  const FrameSource source = in.type ? in.type->source : FrameSource::kProcessed;
  plan.sensorPlane = source == FrameSource::kRawFrame ||
                     (plan.colourSource && (source == FrameSource::kColourPlane || source == FrameSource::kColourPlaneInRoom));
  plan.room = !plan.sensorPlane || source == FrameSource::kColourPlaneInRoom;
  plan.metadata = in.type ? in.type->metadata : framekit::MetadataPlacement::kBeside;
  PlanRows(args, in, plan);
  std::uint32_t headerBits = 0;
  PlanDepths(args, in, plan, headerBits);
  plan.overlayOn = !plan.sensorPlane && args.overlayFlags != 0;
  if (!plan.sensorPlane && (args.markerKind == 1 || args.markerKind == 2))
    plan.marker = {args.markerKind, static_cast<std::int32_t>(args.markerValue & 0xFFFF),
                   static_cast<std::int32_t>(args.markerValue >> 16), ColorAt(args.markerColor)};
  plan.plotOn = !plan.sensorPlane && plan.plotRows != 0 && in.channelDataRead;
  plan.plotWidth = std::max(static_cast<std::uint32_t>(std::clamp(args.plotWidth, 0, kMaxPlotSide)), plan.width);
  PlanHeader(in, plan, headerBits);
  PlanMovie(in, plan);
  return plan;
}

ImageView FrameBuffers::View(std::vector<std::uint8_t>& buffer, std::uint32_t width, std::uint32_t height,
                             std::uint32_t depth) {
  if (buffer.empty()) return ImageView{nullptr, 0, width, height, depth};
  return PackedView(buffer.data(), width, height, depth);
}

void FrameBuffers::Fit(std::vector<std::uint8_t>& buffer, std::uint32_t width, std::uint32_t height,
                       std::uint32_t depth, bool used) {
  if (!used) return buffer.clear();
  buffer.assign(PackedBytes(width, height, depth) + kSpare, 0);
}

bool FrameBuffers::Size(const FramePlan& plan) {
  plan_ = plan;
  try {
    Fit(work_, plan.width, plan.height, plan.sourceDepth, true);
    Fit(converted_, plan.width, plan.height, plan.outDepth, plan.Converted());
    Fit(wide_, plan.plotWidth, plan.height, plan.outDepth, plan.Widened());
    Fit(movieSource_, plan.movieWidth, plan.movieHeight, plan.movieSourceDepth, plan.movieOn && plan.movieRefetch);
    Fit(movie_, plan.movieWidth, plan.movieHeight, plan.movieDepth,
        plan.movieOn && plan.movieDepth != plan.movieSourceDepth);
  } catch (const std::bad_alloc&) {
    Release();
    return false;
  }
  return true;
}

void FrameBuffers::Release() {
  for (auto* buffer : {&work_, &converted_, &wide_, &movieSource_, &movie_}) *buffer = {};
}

std::size_t FrameBuffers::Bytes() const {
  std::size_t bytes = 0;
  for (const auto* buffer : {&work_, &converted_, &wide_, &movieSource_, &movie_}) bytes += buffer->capacity();
  return bytes;
}

ImageView FrameBuffers::Output() {
  return plan_.Converted() ? View(converted_, plan_.width, plan_.height, plan_.outDepth) : Work();
}

}  // namespace tarnvel
