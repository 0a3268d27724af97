#include "ui/RecordingSummary.h"

#include <algorithm>
#include <cstring>
#include <new>

#include "engine/RawSource.h"
#include "platform/cordage/Messages.h"
#include "platform/pixels/PixelLayout.h"

namespace tarnvel {
namespace {

constexpr const char* kNotAvailable = "N/A";

std::string Number(std::int64_t value) { return std::to_string(value); }

std::string ResolutionText(RawSource& source, std::uint32_t width, std::uint32_t height) {
  std::string text = Number(width) + " x " + Number(height);
  if (source.ResolutionSuffix() >= 2) {
    const std::uint32_t model = source.ModelNumber();
    text += model == 34 || model == 35 ? " (D)" : " (U)";
  }
  return text;
}

std::string SpeedText(RawSource& source) {
  const std::uint32_t period = source.FramePeriodNs();
  if (period == 0) return CatalogueText(kTextNotAvailable, kNotAvailable);
  const auto fps = static_cast<std::int64_t>(1000000000.0 / period + 0.5);
  return FillPattern(CatalogueText(kTextSpeed, "%d fps - %d \xc2\xb5s"), {Number(fps), Number(source.ExposureNs() / 1000)});
}

// Buffers that may be refused: a hostile store can ask for more than there is.
bool TryResize(std::vector<std::uint8_t>& buffer, std::uint64_t bytes) {
  if (bytes > buffer.max_size()) return false;
  try {
    buffer.assign(static_cast<std::size_t>(bytes), 0);
  } catch (const std::bad_alloc&) {
    return false;
  }
  return true;
}

// Each 16-bit sample shifted down to 8 bits; a sample with stray bits above
// the depth shows white rather than wrapping round.
void NarrowSamples(const std::uint8_t* source, std::size_t samples, std::uint32_t shift, std::uint8_t* target) {
  for (std::size_t i = 0; i < samples; ++i) {
    std::uint16_t value;
    std::memcpy(&value, source + 2 * i, 2);
    target[i] = static_cast<std::uint8_t>(std::min<std::uint32_t>(value >> shift, 255));
  }
}

// Store frame 0 as 8-bit grey or 24-bit colour.
void ReadPreview(RawSource& source, std::uint32_t depth, PreviewFrame& preview) {
  FrameGeometry geometry;
  if (depth == 0 || depth > 48 || !source.Geometry(geometry) || geometry.width == 0 || geometry.height == 0) return;
  const PixelLayout layout = LayoutOfDepth(depth);
  const std::uint32_t channels = ChannelsOf(layout);
  const bool wide = SampleBytesOf(layout) == 2;
  const std::uint64_t samples = std::uint64_t{geometry.width} * geometry.height * channels;
  // What the driver delivers, which may be more than the geometry says.
  const std::uint64_t delivered = std::max<std::uint64_t>(geometry.frameBytes, FrameBytes(source.Handle()));
  if (!TryResize(preview.pixels, wide ? samples : std::max(samples, delivered))) return;
  preview.width = geometry.width;
  preview.height = geometry.height;
  preview.bits = channels == 3 ? 24 : 8;
  if (!wide) {
    if (source.ReadFrame(0, preview.pixels.data()) != 0) std::fill(preview.pixels.begin(), preview.pixels.end(), 0);
    preview.pixels.resize(static_cast<std::size_t>(samples));
    return;
  }
  std::vector<std::uint8_t> frame;
  if (!TryResize(frame, std::max(2 * samples, delivered))) return;  // the preview stays black
  if (source.ReadFrame(0, frame.data()) != 0) return;
  NarrowSamples(frame.data(), static_cast<std::size_t>(samples), ChannelBits(depth) - 8, preview.pixels.data());
}

}  // namespace

std::string FillPattern(std::string_view pattern, const std::vector<std::string>& values) {
  std::string text;
  std::size_t next = 0;
  for (std::size_t i = 0; i < pattern.size(); ++i) {
    const char c = pattern[i];
    if (c == '%' && i + 1 < pattern.size()) {
      const char kind = pattern[i + 1];
      if (kind == '%') {
        text += '%';
        ++i;
        continue;
      }
      if (kind == 'd' || kind == 'c' || kind == 's') {
        if (next < values.size()) text += values[next];
        ++next;
        ++i;
        continue;
      }
    }
    text += c;
  }
  return text;
}

RecordingSummary ReadRecordingSummary(const std::string& folder, std::int32_t firstFrame, std::int32_t frameCount,
                                      bool readFirstFrame) {
  RecordingSummary summary;
  RawSource source;
  if (source.Open(folder.c_str()) != 0) {
    const std::string none = CatalogueText(kTextNotAvailable, kNotAvailable);
    summary.camera = summary.resolution = summary.frames = summary.speed = none;
    return summary;
  }
  summary.opened = true;
  char camera[kCameraTextBytes + 1] = {};
  source.CameraModelText(camera);
  camera[kCameraTextBytes] = '\0';
  summary.camera = camera;
  std::uint32_t width = source.FrameWidth(), height = source.FrameHeight();
  if (const std::uint32_t rotation = source.Rotation(); rotation == 1 || rotation == 3) std::swap(width, height);
  summary.sourceDepth = static_cast<std::int32_t>(std::min<std::uint32_t>(source.PixelDepth(), INT32_MAX));
  summary.resolution = ResolutionText(source, width, height);
  summary.frames = FillPattern(CatalogueText(kTextFrameRange, "%d (%d to %d)"),
                               {Number(frameCount), Number(firstFrame), Number(std::int64_t{firstFrame} + frameCount - 1)});
  summary.speed = SpeedText(source);
  if (readFirstFrame) ReadPreview(source, static_cast<std::uint32_t>(summary.sourceDepth), summary.preview);
  return summary;
}

}  // namespace tarnvel
