// The stages of the frame step, in the order every frame passes them:
// placing (with the background), chain, depth, markers, logos and text, plot
// and widening, metadata, main output, companion movie. Each stage reads one
// view and writes another that the job owns (FrameBuffers); what a stage does
// to this run's frames is settled in the FramePlan.
#pragma once

#include <cstdint>
#include <string_view>

#include "channels/DataPlot.h"
#include "engine/FramePlan.h"
#include "frames/ImageProcessor.h"
#include "frames/overlay/LogoImage.h"
#include "frames/overlay/OverlayItems.h"
#include "platform/framekit/FrameKit.h"
#include "platform/pixels/ImageView.h"

namespace tarnvel {

// Placing: the delivered picture into `work` from row `pictureTop` on, plus
// a quarter of the background when one of the picture's size and depth is
// given; every other row (bars, plot) cleared. Returns the picture's rows, or
// an empty view when the picture does not fit `work` or has another depth.
ImageView PlacePicture(ConstImageView delivered, ConstImageView background, ImageView work, std::uint32_t pictureTop);

// Depth: the whole frame, bars included, at the output depth. Without a
// conversion due, `work` itself; else `output`, or an empty view when it
// could not be converted.
ImageView ConvertForOutput(const FramePlan& plan, ImageView work, ImageView output);

// Markers: the plan's cross or grid on the whole frame, the picture's rows bounding it.
void DrawMarker(const FramePlan& plan, ImageView frame);

// How the overlay's text looks.
struct OverlayStyle {
  std::string_view font;
  std::int32_t height = 20;
  std::int32_t textColor = 0;
  std::int32_t backColor = -1;
};

// Logos and text: the first logo, the second (beside the first when they
// share a corner), then the joined text of positions 0 to 5, each moved past
// the logos at its position. Logos that are off, not loaded or not due at
// `showState` are skipped.
void BurnInOverlay(ImageView frame, const OverlayConfig& config, const OverlayRenderer& renderer,
                   const LogoImage (&logos)[2], std::int32_t showState, const OverlayStyle& style);

// Plot and widening: the plot into the last rows of the frame; when the plot
// is wider than the picture, the frame first goes centred into `wide`.
// Returns the frame to write.
ImageView DrawPlotRows(const FramePlan& plan, CDataBmp& plot, std::int32_t frameIndex, ImageView frame, ImageView wide);

// Main output: writes the frame with the block where the plan puts it. A
// block joined to the pixels goes behind them, in the spare bytes of the
// frame's buffer. A frame that does not hold what the plan's header tells is
// refused (kFkBadArgument) before the library reads it.
int WriteMainFrame(const FramePlan& plan, FrameHandle out, std::uint32_t index, std::uint32_t total,
                   const std::uint8_t* block, ImageView frame);

// Companion movie: `shown` at 8 or 24 bits (converted into `movie` when it
// is neither) as frame `index` of `total`. The result is the library's.
int WriteMovieFrame(const FramePlan& plan, FrameHandle movie, std::uint32_t index, std::uint32_t total,
                    ConstImageView shown, ImageView converted);

// 1 on the first frame of the run, 2 on the last, 3 when the frame number is 0, else 0.
std::int32_t ShowState(std::int32_t frameIndex, std::int32_t frameTotal, std::int32_t frameNumber);

}  // namespace tarnvel
