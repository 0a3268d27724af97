// A job's argument file `args.ini` (section "ArgSect"), as the suite writes it:
// one line per key, lists as values each followed by a comma ("%d,").
// Nothing here writes the file.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/JobOverrides.h"
#include "platform/framekit/FileTypes.h"

namespace tarnvel {

inline constexpr const char* kArgsSection = "ArgSect";
constexpr std::size_t kItemListEntries = 40;  // entries of a per-item list

struct JobArgs {
  char baseName[128];               // Arg02: stem of every output name
  std::int32_t frameCount;          // Arg03: frames to convert from StartIdx on
  std::int32_t resetNumbering;      // Arg04
  std::uint32_t overlayFlags;       // Arg05: mask of the overlay items that are on
  char overlayFont[260];            // Arg06
  std::int32_t overlayPosition;     // Arg07: position of all items when itemPosition is not used
  std::int32_t overlayTextColor;    // Arg12
  std::int32_t topBar;              // Arg13
  std::int32_t channelFileType;     // Arg14: index into ChannelFileExtension
  std::int32_t channelsOn;          // Arg15
  std::int32_t irigMode;            // Arg16
  std::int32_t overlayFontHeight;   // Arg17
  char logoPath1[260];              // Arg18
  char codecName[128];              // Arg19
  std::int32_t codecHandler;        // Arg20
  std::int32_t codecQuality;        // Arg21
  char deviceName[128];             // Arg22: also the stem of the companion movie
  std::int32_t timeFormat;          // Arg23
  std::int32_t temperature;         // Arg24: hundredths of a degree Celsius
  std::int32_t temperatureUnit;     // Arg25
  std::int32_t deleteRaw;           // Arg26
  std::int32_t jpegQuality;         // Arg27
  std::int32_t movCodec;            // Arg28
  std::int32_t channelDecimals;     // Arg29
  std::int32_t companionMovie;      // Arg30: non-zero makes a movie beside the main output
  std::int32_t utcOffsetIndex;      // Arg31: offset from UTC in hours plus 12
  char moviePath[260];              // Arg32: full path of the companion movie; empty derives it
  std::int32_t plotHeight;          // Arg33: rows of the data plot; 0 means 256
  std::int32_t plotInColor;         // Arg34
  std::int32_t plotMode;            // Arg35
  std::int32_t markerKind;          // Arg36: 0 none, 1 cross, 2 grid
  std::uint32_t markerValue;        // Arg37: low 16 bits first number, high 16 bits second
  std::int32_t markerColor;         // Arg38
  std::int32_t itemPosition[kItemListEntries];  // Arg39: entry 0 is -1 when not used
  std::int32_t itemFormat[kItemListEntries];    // Arg40: entry 0 is -1 when empty
  std::int32_t itemShowOn[kItemListEntries];    // Arg41: entry 0 is -1 when empty
  std::int32_t bottomBar;           // Arg42
  std::int32_t overlayBackColor;    // Arg43: -1 for transparent text
  char userText1[128];              // Arg44
  std::int32_t plotWidth;           // Arg45: least width of the data plot
  std::int32_t mpgCodec;            // Arg46
  std::int32_t itemParamA[kItemListEntries];    // Arg47
  std::int32_t itemParamB[kItemListEntries];    // Arg48
  char userText2[128];              // Arg49
  char logoPath2[260];              // Arg50
  std::int32_t backgroundOn;        // Arg51
  char backgroundPath[260];         // Arg52
  std::int32_t mptCodec;            // Arg53
};

// Clears `args` and fills it from the file; a missing file, section or key
// gives the key's default. Texts that don't fit their field are cut, except
// those that become paths (Arg02, Arg18, Arg22, Arg32, Arg50, Arg52): such a
// value is refused, its field left empty. The frame count (Arg03) and the
// delete flag (Arg26) are refused when present but not a number, and keep
// their defaults. With any refusal the result is false, with the refused
// keys in `refusedKeys`.
bool ReadJobArgs(std::string_view argsPath, JobArgs& args, std::vector<std::string>* refusedKeys = nullptr);

// Why ReadJobArgs refused a key: "is not a number" or "is longer than its field".
const char* RefusalReason(std::string_view key);

// Rows of the data plot: Arg33, where 0 means 256.
std::int32_t PlotRows(const JobArgs& args);

// Extension of a channel-data file by Arg14 (".ASC", ".DAT", ...), or null
// for an index outside 0 to 7.
const char* ChannelFileExtension(std::int32_t channelFileType);

// The codec block as the argument file gives it.
CodecSettings CodecSettingsOf(const JobArgs& args);

// The codec block of an argument file, for the dialogs before a job exists.
void ReadCodecDefaults(std::string_view argsPath, CodecSettings& codec);

// What the options dialog starts from.
struct DialogDefaults {
  std::int32_t deleteRaw = 1;
  std::int32_t resetNumbering = 0;
  std::int32_t frameCount = 0;
  std::int32_t fileType = framekit::FallbackFileType().number;
  std::int32_t playbackRate = -1;
  std::int32_t outputDepth = 0;
  std::int32_t startIndex = 0;
};

// Fills delete-raw, reset numbering and frame count from the argument file,
// then, when the recording's profile beside it can be read, file type,
// playback rate (truncated), output depth and first frame from it. Without a
// readable profile the file type is the library's fallback (TIFF) and the
// other profile values stay.
// Returns whether the profile was read.
bool ReadDialogDefaults(std::string_view argsPath, DialogDefaults& defaults);

// The companion movie that the menu entry "Open AVI" opens: empty when the
// argument file is not there or Arg30 is 0; else Arg32 when set; else "<recording folder>/<Arg22>.avi". Returns
// false, with `path` empty, when that path is refused (too long, or a device
// name that is no plain file name).
bool MoviePathOf(std::string_view argsPath, std::string& path);

}  // namespace tarnvel
