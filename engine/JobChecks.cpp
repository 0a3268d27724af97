#include "engine/JobChecks.h"

#include <fcntl.h>
#include <sys/stat.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>
#include <cstring>

#include "platform/cordage/Profile.h"

namespace tarnvel {
namespace {

std::string OutOfRange(const char* what, std::int64_t value, std::int64_t low, std::int64_t high) {
  return std::string(what) + " " + std::to_string(value) + " is outside " + std::to_string(low) + " to " +
         std::to_string(high);
}

bool Within(std::int64_t value, std::int64_t low, std::int64_t high) { return value >= low && value <= high; }

// Frame numbers and store positions of the whole range must stay 32-bit numbers.
std::string FrameRangeProblem(const JobArgs& args, const RecordingInfo& rec) {
  if (args.frameCount < 0) return OutOfRange("the frame count Arg03", args.frameCount, 0, INT32_MAX);
  const std::int64_t last = std::int64_t{args.frameCount} - 1;
  const std::int64_t firstPosition = std::int64_t{rec.StartIdx} - rec.FirstFrame;
  if (std::int64_t{rec.StartIdx} + last > INT32_MAX || firstPosition < 0 || firstPosition + last > INT32_MAX)
    return "the frame count Arg03 " + std::to_string(args.frameCount) + " from the first frame " +
           std::to_string(rec.StartIdx) + " goes past the frame numbers a recording can have";
  return {};
}

// The plot under the picture and the text bars grow the frame.
std::string PlotProblem(const JobArgs& args, const JobShape& shape) {
  if (args.channelsOn == 0) return {};
  if (ChannelFileExtension(args.channelFileType) == nullptr)
    return OutOfRange("the channel file type Arg14", args.channelFileType, 0, 7);
  if (!Within(args.plotHeight, 0, kMaxDrawnSide)) return OutOfRange("the plot height Arg33", args.plotHeight, 0, kMaxDrawnSide);
  if (!Within(args.plotWidth, 0, kMaxDrawnSide)) return OutOfRange("the plot width Arg45", args.plotWidth, 0, kMaxDrawnSide);
  const std::int64_t width = std::max<std::int64_t>(shape.geometry.width, args.plotWidth);
  if (width > kMaxDrawnSide)
    return "the frame width " + std::to_string(width) + " is too wide for a data plot (at most " +
           std::to_string(kMaxDrawnSide) + ")";
  const std::int64_t bars = args.overlayFlags != 0 ? std::int64_t{shape.textBarHeight} * ((args.topBar != 0) + (args.bottomBar != 0)) : 0;
  const std::int64_t height = std::int64_t{shape.geometry.height} + bars + PlotRows(args);
  if (height > kMaxDrawnSide)
    return "the frame with its bars and the plot height Arg33 " + std::to_string(PlotRows(args)) + " is " +
           std::to_string(height) + " rows high (at most " + std::to_string(kMaxDrawnSide) + ")";
  if (static_cast<std::uint64_t>(width * height) * 6 > kMaxGrownFrameBytes)
    return "the frame with the data plot would be " + std::to_string(width) + " x " + std::to_string(height) +
           " pixels, more than a frame can hold";
  return {};
}

std::string TimeCodeProblem(const OverlayConfig& overlay, const JobShape& shape) {
  const OverlayItem& item = overlay.items[kTimeCodeItem];
  if (!shape.sidecarOn && (overlay.flags & item.mask) == 0) return {};
  if (!Within(item.format, 0, kMaxUtcOffsetFormat))
    return OutOfRange("the time-code offset (Arg31, or Arg40 of item 14)", item.format, 0, kMaxUtcOffsetFormat);
  if (!Within(item.paramA, -kMaxLeapSeconds, kMaxLeapSeconds))
    return OutOfRange("the leap seconds (Arg47 of item 14)", item.paramA, -kMaxLeapSeconds, kMaxLeapSeconds);
  return {};
}

std::string MovieRangeProblem(const RecordingInfo& rec, const JobShape& shape) {
  if (!shape.movieOn) return {};
  const std::int64_t frames = std::int64_t{rec.StopAvi} - rec.StartAvi + 1;
  if (!Within(frames, 0, INT32_MAX))
    return "the companion movie's frames " + std::to_string(rec.StartAvi) + " to " + std::to_string(rec.StopAvi) +
           " of the profile are no range";
  return {};
}

}  // namespace

std::string ArgumentFileProblem(std::string_view argsPath) {
  const std::string path(argsPath);
  struct stat st {};
  if (path.empty()) return "no argument file was named";
  if (::stat(path.c_str(), &st) != 0) return path + " does not exist (" + std::strerror(errno) + ")";
  if (S_ISDIR(st.st_mode)) return path + " is a folder, not an argument file (name its args.ini)";
  if (!S_ISREG(st.st_mode)) return path + " is not a regular file";
  if (static_cast<std::uint64_t>(st.st_size) > kMaxProfileBytes)
    return path + " is too large for an argument file (" + std::to_string(st.st_size) + " bytes)";
  const int fd = ::open(path.c_str(), O_RDONLY | O_CLOEXEC | O_NONBLOCK);
  if (fd < 0) return path + " cannot be read (" + std::strerror(errno) + ")";
  ::close(fd);
  if (!CgProfileHasSection(kArgsSection, path.c_str())) return path + " has no section [" + kArgsSection + "]";
  return {};
}

std::string RefusedKeysProblem(const std::vector<std::string>& refusedKeys) {
  std::string problem;
  for (const std::string& key : refusedKeys) {
    if (!problem.empty()) problem += "; ";
    problem += key + " " + RefusalReason(key);
  }
  return problem;
}

std::string ValueProblem(const JobArgs& args, const OverlayConfig& overlay, const RecordingInfo& recording,
                         const JobShape& shape) {
  if (std::string problem = FrameRangeProblem(args, recording); !problem.empty()) return problem;
  if (std::string problem = PlotProblem(args, shape); !problem.empty()) return problem;
  if (args.overlayFlags != 0 && args.overlayFontHeight > kMaxFontHeight)
    return OutOfRange("the font height Arg17", args.overlayFontHeight, 1, kMaxFontHeight);
  if (std::string problem = TimeCodeProblem(overlay, shape); !problem.empty()) return problem;
  return MovieRangeProblem(recording, shape);
}

}  // namespace tarnvel
