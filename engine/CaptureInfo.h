// What the recording tells about a written frame beyond its pixels and its
// block: the camera, the recording's rate and exposure, and the frame's time
// -- for the output formats that have a place for them (DNG, TIFF, Chapter 10).
#pragma once

#include <cstdint>
#include <string_view>

#include "platform/framekit/FrameHeader.h"
#include "recording/RecordingInfo.h"
#include "platform/rawdrv/TimeStampBlock.h"

namespace tarnvel {

// The frame's time is its time block's when that holds a time code (a year
// from 2000), else the recording's start (Year to Microseconds of the
// profile) plus the frame's place in the recording, as the overlay's clock
// counts it. Both are taken as they are, in the zone the camera kept them.
CaptureInfo DescribeCapture(const RecordingInfo& recording, const TimeStampBlock& time, std::int32_t frameNumber,
                            std::int32_t sequenceIndex, std::uint32_t exposureNs, std::string_view model,
                            std::string_view serial);

}  // namespace tarnvel
