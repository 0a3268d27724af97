// What a job checks before it writes anything: that its argument file is an
// argument file, and that the numbers it takes from that file and from the
// recording's profile fit what a frame and the program can hold. A value out
// of range ends the job with a clear message instead of a crash or an
// allocation that can never succeed. Each check returns an empty text when
// all is well, else the reason, for message 91.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/FrameGeometry.h"
#include "engine/JobArgs.h"
#include "frames/overlay/OverlayItems.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {

// The drawing layer's largest canvas side: the data plot is drawn at full
// width and height on one canvas.
constexpr std::int32_t kMaxDrawnSide = 32767;
// The largest frame that burn-ins (bars, a plot) may grow a frame to, in bytes
// at the deepest layout.
constexpr std::uint64_t kMaxGrownFrameBytes = 1ull << 31;
// Overlay font heights from 1 to this; 0 and below stand for the default 20.
constexpr std::int32_t kMaxFontHeight = 1024;
// Formats of the time-code item: 0 to 24 are the offset from UTC plus 12, 25 the
// machine's own offset.
constexpr std::int32_t kMaxUtcOffsetFormat = 25;
// Leap seconds that the time code may be corrected by, either way.
constexpr std::int32_t kMaxLeapSeconds = 3600;

// Whether `argsPath` names an argument file: an existing, regular, readable
// file of at most kMaxProfileBytes with a section "ArgSect". A folder, a
// FIFO, a device, an unreadable or oversized file, or one without the
// section is none.
std::string ArgumentFileProblem(std::string_view argsPath);

// The keys that ReadJobArgs refused, as a reason; empty when there are none.
std::string RefusedKeysProblem(const std::vector<std::string>& refusedKeys);

// What the values are checked against.
struct JobShape {
  FrameGeometry geometry;      // the source frame
  std::int32_t textBarHeight;  // rows of one text bar
  bool sidecarOn;              // a time sidecar is written
  bool movieOn;                // a companion movie is asked for
};

// The numbers of the argument file, of the overlay built from it and of the
// recording's profile that the run uses: frame count and frame numbers, plot
// height and width, font height, the time-code offsets, the channel file
// type, the movie's frame range.
std::string ValueProblem(const JobArgs& args, const OverlayConfig& overlay, const RecordingInfo& recording,
                         const JobShape& shape);

}  // namespace tarnvel
