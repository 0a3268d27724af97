// The conversion options of one job file, without a toolkit: the lists,
// texts, enable rules and confirm rule of the "Raw Conversion Options"
// dialog. The desktop's dialog shows this model; the command line's choice
// flags set the same controls, so one set of choices gives one JobOverrides
// whichever way it came.
#pragma once

#include <cstddef>
#include <cstdint>
#include <string>
#include <string_view>
#include <vector>

#include "engine/JobOverrides.h"
#include "platform/framekit/FrameHeader.h"
#include "ui/RecordingSummary.h"

namespace tarnvel {

constexpr int kTextUpper = 260;   // "upper"
constexpr int kTextMiddle = 261;  // "middle"
constexpr int kTextLower = 262;   // "lower"

// What the dialog opens with.
struct OptionsStart {
  std::string argsPath;
  std::int32_t fileType = 1;
  std::uint32_t deleteRaw = 1;
  std::uint32_t resetNumbering = 0;
  std::int32_t playbackRate = -1;
  CodecSettings codec{};
  std::int32_t outputDepth = 0;  // 0: the recording's depth
  std::int32_t firstFrame = 0;
  std::int32_t frameCount = 0;
};

// The Add flow's start: delete-raw, numbering, frame count and codec from the
// argument file; file type, rate, depth and first frame from the recording's
// profile, or type 1, rate -1, depth 0 and frame 0 when it can't be read.
OptionsStart ReadOptionsStart(const std::string& argsPath);

struct FileTypeChoice {
  std::int32_t number;
  std::string text;       // "TIFF File (*.tif)"
  std::string extension;  // "tif"
};
// The offered file types, in the order of the table of file types.
std::vector<FileTypeChoice> OfferedFileTypes();

struct DepthChoice {
  std::int32_t depth;
  std::int32_t bitRange;  // 0 upper, 1 middle, 2 lower
  std::string text;       // "12 bit", "8 bit (middle)"
  // The depth in the low 16 bits, the range above.
  std::uint32_t ItemData() const { return static_cast<std::uint32_t>(depth & 0xFFFF) | static_cast<std::uint32_t>(bitRange) << 16; }
};
// The depths that file type `fileType` offers for a source of `sourceDepth`
// bits: deeper ones only where the type takes more than 8 bits a channel,
// and the three bit ranges of 8 (or 24) bits where more than a bit is lost.
std::vector<DepthChoice> DepthChoices(std::int32_t fileType, std::int32_t sourceDepth);
// The entry that a target depth selects: the first whose depth matches, else 0.
std::size_t DepthSelection(const std::vector<DepthChoice>& choices, std::int32_t targetDepth);

// Enable rules: the codec button and the playback rate follow the file type.
bool CodecButtonEnabled(std::int32_t fileType);
bool PlaybackRateEnabled(std::int32_t fileType);

// The rate field read as a signed number; 0, empty or unreadable gives 5.
std::int32_t PlaybackRateOf(std::string_view field);

class ConversionOptionsModel {
 public:
  ConversionOptionsModel(const OptionsStart& start, RecordingSummary summary);

  const std::string& Title() const { return folder_; }  // the job file's folder
  const RecordingSummary& Summary() const { return summary_; }
  std::int32_t SourceDepth() const { return summary_.sourceDepth; }
  std::int32_t TargetDepth() const { return targetDepth_; }

  const std::vector<FileTypeChoice>& FileTypes() const { return fileTypes_; }
  std::size_t FileTypeIndex() const { return fileTypeIndex_; }
  std::int32_t FileType() const;
  // Rebuilds the depth list for the new type with the target depth the
  // dialog opened with: a depth chosen before is not kept.
  void SelectFileType(std::size_t index);

  const std::vector<DepthChoice>& Depths() const { return depths_; }
  std::size_t DepthIndex() const { return depthIndex_; }
  void SelectDepth(std::size_t index);

  bool CodecEnabled() const { return CodecButtonEnabled(FileType()); }
  bool RateEnabled() const { return PlaybackRateEnabled(FileType()); }

  bool DeleteRaw() const { return deleteRaw_; }
  void SetDeleteRaw(bool on) { deleteRaw_ = on; }
  bool ResetNumbering() const { return resetNumbering_; }
  void SetResetNumbering(bool on) { resetNumbering_ = on; }
  const std::string& RateField() const { return rateField_; }
  void SetRateField(std::string text) { rateField_ = std::move(text); }

  // The Codec button: the compressor record of the selected type, filled
  // from the codec settings (zeroes for a type that keeps none) ...
  CodecEntry CodecEntryForType() const;
  // ... and what the codec dialog's OK gives back.
  void TakeCodecEntry(const CodecEntry& entry);
  const CodecSettings& Codec() const { return codec_; }

  // Convert: all seven choices; a rate of 0 becomes 5.
  JobOverrides Confirm() const;

 private:
  std::string folder_;
  RecordingSummary summary_;
  std::int32_t targetDepth_;
  std::vector<FileTypeChoice> fileTypes_;
  std::size_t fileTypeIndex_ = 0;
  std::vector<DepthChoice> depths_;
  std::size_t depthIndex_ = 0;
  bool deleteRaw_;
  bool resetNumbering_;
  std::string rateField_;
  CodecSettings codec_;
};

}  // namespace tarnvel
