// Output settings that a dialog or a batch file puts over a job's argument file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

namespace tarnvel {

// The codec block that goes to the image library with a file type: 152 bytes.
struct CodecSettings {
  std::uint32_t handler;
  std::uint32_t quality;
  char name[128];
  std::uint32_t jpegQuality;
  std::uint32_t movCodec;
  std::uint32_t mpgCodec;
  std::uint32_t mptCodec;
};
static_assert(std::is_trivially_copyable_v<CodecSettings> && std::is_standard_layout_v<CodecSettings>);
static_assert(offsetof(CodecSettings, quality) == 4);
static_assert(offsetof(CodecSettings, name) == 8);
static_assert(offsetof(CodecSettings, jpegQuality) == 136);
static_assert(offsetof(CodecSettings, mptCodec) == 148);
static_assert(sizeof(CodecSettings) == 152);

constexpr std::int32_t kRecordingFileType = -1;  // JobOverrides::fileType: the recording's own type stands

struct JobOverrides {
  std::int32_t fileType = kRecordingFileType;
  std::uint32_t deleteRaw = 1;       // delete the raw files after a conversion without error
  std::uint32_t resetNumbering = 0;  // output numbers count from 0
  std::int32_t playbackRate = 24;    // frames per second written to a movie
  std::int32_t outputDepth = 8;      // bits per pixel; 0 or less keeps the recording's depth
  std::int32_t bitRange = 0;         // bits kept by a reduction to 8 or 24: 0 upper, 1 middle, 2 lower
  CodecSettings codec{};
};

}  // namespace tarnvel
