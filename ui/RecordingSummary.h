// What the conversion options show about a recording before it is
// converted: camera, size, frames and speed as texts, the depth of its
// pixels, and its first frame narrowed to 8-bit grey or 24-bit colour for
// the preview. The recording is opened, read and closed again in one call.
#pragma once

#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

namespace tarnvel {

// Numbered texts of the options dialog.
constexpr int kTextNotAvailable = 250;   // "N/A"
constexpr int kTextFrameRange = 251;     // "%d (%d to %d)"
constexpr int kTextSpeed = 252;          // "%d fps - %d µs"

// A picture for the preview: rows tightly packed, top row first; 24 bits are
// blue, green, red a pixel, in the order the raw source delivers them.
struct PreviewFrame {
  std::uint32_t width = 0;
  std::uint32_t height = 0;
  std::uint32_t bits = 0;  // 8 or 24; 0: no picture
  std::vector<std::uint8_t> pixels;
};

struct RecordingSummary {
  bool opened = false;
  std::string camera, resolution, frames, speed;  // "N/A" each when the recording can't be opened
  std::int32_t sourceDepth = 0;                   // bits per pixel; 0 when not opened
  PreviewFrame preview;
};

// Opens the raw store in `folder`, fills the texts (frames from `firstFrame`
// and `frameCount`), and with `readFirstFrame` reads store frame 0 into the
// preview, each sample shifted down to 8 bits. A frame whose buffers can't be
// had leaves the preview out; a read that fails leaves it black.
RecordingSummary ReadRecordingSummary(const std::string& folder, std::int32_t firstFrame, std::int32_t frameCount,
                                      bool readFirstFrame);

// A numbered text with its "%d", "%c" and "%s" replaced by `values` in turn,
// whatever the catalogue wrote: a missing value leaves nothing, a surplus is
// dropped, "%%" is a percent sign, and no pattern is ever given to printf.
std::string FillPattern(std::string_view pattern, const std::vector<std::string>& values);

}  // namespace tarnvel
