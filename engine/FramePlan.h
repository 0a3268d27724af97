// What the frame step does to every frame of a run, worked out once when the
// run starts: the depths, the rows of bars, picture and plot, which burn-ins
// apply to this file type and source, where the metadata block goes, and what
// the companion movie gets. The job's frame buffers are sized from it, once.
#pragma once

#include <cstddef>
#include <cstdint>
#include <vector>

#include "engine/FrameGeometry.h"
#include "engine/JobArgs.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameHeader.h"
#include "platform/pixels/ImageView.h"

namespace tarnvel {

// A cross (kind 1: column, row) or a grid (kind 2: rows, columns of cells).
struct MarkerPlan {
  std::int32_t kind = 0;
  std::int32_t low = 0;
  std::int32_t high = 0;
  std::uint32_t color = 0;  // a colour table word
};

struct FramePlan {
  std::int32_t fileType = 0;
  bool colourSource = false;
  // The frame passes as the source delivered it (the sensor's plane or a raw
  // frame file): no markers, overlay or plot.
  bool sensorPlane = false;
  // Bars and plot rows are part of the frame (else the frame is the picture alone).
  bool room = false;
  framekit::MetadataPlacement metadata = framekit::MetadataPlacement::kBeside;

  // Rows, top to bottom: top bar, picture, bottom bar, plot.
  std::uint32_t width = 0;
  std::uint32_t pictureTop = 0;
  std::uint32_t pictureHeight = 0;
  std::uint32_t barRows = 0;  // of each bar that is on
  bool bottomBar = false;
  std::uint32_t plotRows = 0;
  std::uint32_t height = 0;

  std::uint32_t sourceDepth = 8;  // of the delivered frame, the chain and the bars
  std::uint32_t outDepth = 8;     // of the pixels written
  std::uint32_t bitRange = 0;

  bool overlayOn = false;
  MarkerPlan marker;
  bool plotOn = false;        // a channel file was read: the plot is drawn
  std::uint32_t plotWidth = 0;  // wider than `width`: the frame is widened

  FrameHeader header;  // of the main output; model, serial and mosaic order are the source's

  bool movieOn = false;
  bool movieRefetch = false;       // the movie reads the processed frame anew (plain outputs)
  std::uint32_t movieDepth = 8;    // 8 or 24
  std::uint32_t movieSourceDepth = 8;
  std::uint32_t movieWidth = 0, movieHeight = 0;

  std::uint32_t PictureEnd() const { return pictureTop + pictureHeight; }
  std::uint32_t BottomBarTop() const { return PictureEnd(); }
  std::uint32_t PlotTop() const { return PictureEnd() + (bottomBar ? barRows : 0); }
  bool Widened() const { return plotOn && plotWidth > width; }
  bool Converted() const { return outDepth != sourceDepth; }
};

// What the plan is made from, besides the job's arguments.
struct PlanInputs {
  std::int32_t fileType = 0;
  const framekit::FileTypeDescriptor* type = nullptr;  // null: a type the library does not know
  FrameGeometry geometry;             // of the processed frames, after rotation
  std::uint32_t outputDepth = 0;      // the recording's output depth
  std::uint32_t bitRange = 0;         // the recording's PixelGain
  bool mosaicDelivery = false;        // the main output reads the sensor's plane
  std::uint32_t textBarHeight = 0;
  bool channelsOn = false;            // a channel path is set
  bool channelDataRead = false;       // and its file was read
  bool movieOpen = false;
  float playbackRate = 0.0f;
};

FramePlan MakeFramePlan(const JobArgs& args, const PlanInputs& in);

// The frame buffers of a job, sized once per run from its plan. Each stage
// reads a view of one and writes a view of another; nothing in them is
// handed out beyond the frame that uses it.
class FrameBuffers {
 public:
  // False, with nothing held, when the memory cannot be had.
  bool Size(const FramePlan& plan);
  void Release();
  // The memory held.
  std::size_t Bytes() const;

  // The frame as delivered, bars and plot rows included, at the source depth.
  ImageView Work() { return View(work_, plan_.width, plan_.height, plan_.sourceDepth); }
  // The frame at the output depth (the work buffer itself when no conversion is due).
  ImageView Output();
  // The frame widened for a plot wider than the picture.
  ImageView Wide() { return View(wide_, plan_.plotWidth, plan_.height, plan_.outDepth); }
  // The processed frame that a plain output's companion movie reads anew.
  ImageView MovieSource() { return View(movieSource_, plan_.movieWidth, plan_.movieHeight, plan_.movieSourceDepth); }
  // The companion movie's frame at 8 or 24 bits.
  ImageView Movie() { return View(movie_, plan_.movieWidth, plan_.movieHeight, plan_.movieDepth); }
  // Bytes behind the written frame: room for a block joined to the pixels.
  static constexpr std::size_t kSpare = kMetadataBlockSize;

 private:
  static ImageView View(std::vector<std::uint8_t>& buffer, std::uint32_t width, std::uint32_t height,
                        std::uint32_t depth);
  static void Fit(std::vector<std::uint8_t>& buffer, std::uint32_t width, std::uint32_t height, std::uint32_t depth,
                  bool used);

  FramePlan plan_;
  std::vector<std::uint8_t> work_, converted_, wide_, movieSource_, movie_;
};

}  // namespace tarnvel
