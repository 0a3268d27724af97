#include "ui/ConversionOptions.h"

#include <algorithm>
#include <charconv>

#include "engine/ImageSink.h"
#include "engine/JobArgs.h"
#include "platform/cordage/Messages.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"
#include "platform/pixels/PixelLayout.h"

namespace tarnvel {
namespace {

bool TypeHas(std::int32_t fileType, int capability) { return QueryCapability(fileType, capability) == 0; }

std::string RangeName(std::int32_t range) {
  static constexpr const char* kNames[] = {"upper", "middle", "lower"};
  return CatalogueText(kTextUpper + range, kNames[range]);
}

// The deep entries (each `step` below the one before, down to `base` +
// `step`), the plain `base`, and where more than one bit is lost the base's
// three bit ranges.
void AddDepths(std::vector<DepthChoice>& list, std::int32_t source, std::int32_t base, std::int32_t step,
               std::int32_t rangesAbove, bool deep) {
  if (deep)
    for (std::int32_t depth = base + 4 * step; depth > base; depth -= step)
      if (source > depth - step) list.push_back({depth, 0, std::to_string(depth) + " bit"});
  if (source <= rangesAbove) {
    list.push_back({base, 0, std::to_string(base) + " bit"});
    return;
  }
  for (std::int32_t range = 0; range < 3; ++range)
    list.push_back({base, range, std::to_string(base) + " bit (" + RangeName(range) + ")"});
}

}  // namespace

OptionsStart ReadOptionsStart(const std::string& argsPath) {
  DialogDefaults defaults;
  ReadDialogDefaults(argsPath, defaults);
  OptionsStart start;
  start.argsPath = argsPath;
  start.fileType = defaults.fileType;
  start.deleteRaw = static_cast<std::uint32_t>(defaults.deleteRaw);
  start.resetNumbering = static_cast<std::uint32_t>(defaults.resetNumbering);
  start.playbackRate = defaults.playbackRate;
  start.outputDepth = defaults.outputDepth;
  start.firstFrame = defaults.startIndex;
  start.frameCount = defaults.frameCount;
  ReadCodecDefaults(argsPath, start.codec);
  return start;
}

std::vector<FileTypeChoice> OfferedFileTypes() {
  std::vector<FileTypeChoice> list;
  for (const framekit::FileTypeDescriptor& row : framekit::FileTypes())
    if (TypeHas(row.number, kCapFileTypeOffered))
      list.push_back({row.number, CatalogueText(row.stringId, row.text), row.extension});
  return list;
}

std::vector<DepthChoice> DepthChoices(std::int32_t fileType, std::int32_t sourceDepth) {
  std::vector<DepthChoice> list;
  const bool deep = TypeHas(fileType, kCapDeepOutput);
  if (sourceDepth < 17)
    AddDepths(list, sourceDepth, 8, 1, 9, deep);
  else
    AddDepths(list, sourceDepth, 24, 3, 27, deep);
  return list;
}

std::size_t DepthSelection(const std::vector<DepthChoice>& choices, std::int32_t targetDepth) {
  const std::uint32_t wanted = static_cast<std::uint32_t>(targetDepth) & 0xFFFF;
  for (std::size_t i = 0; i < choices.size(); ++i)
    if (choices[i].ItemData() == wanted) return i;
  return 0;
}

bool CodecButtonEnabled(std::int32_t fileType) { return TypeHas(fileType, kCapHasCodecDialog); }
bool PlaybackRateEnabled(std::int32_t fileType) { return TypeHas(fileType, kCapHasPlaybackRate); }

std::int32_t PlaybackRateOf(std::string_view field) {
  std::int32_t rate = 0;
  const bool negative = !field.empty() && field.front() == '-';
  const std::string_view digits = negative ? field.substr(1) : field;
  const bool plain = !digits.empty() && std::all_of(digits.begin(), digits.end(), [](char c) { return c >= '0' && c <= '9'; });
  if (plain) {
    const std::string whole(field);
    const auto [end, error] = std::from_chars(whole.data(), whole.data() + whole.size(), rate);
    if (error != std::errc() || end != whole.data() + whole.size()) rate = 0;
  }
  return rate == 0 ? 5 : rate;
}

ConversionOptionsModel::ConversionOptionsModel(const OptionsStart& start, RecordingSummary summary)
    : folder_(FolderOf(start.argsPath)),
      summary_(std::move(summary)),
      targetDepth_(start.outputDepth),
      fileTypes_(OfferedFileTypes()),
      deleteRaw_(start.deleteRaw != 0),
      resetNumbering_(start.resetNumbering != 0),
      rateField_(std::to_string(start.playbackRate)),
      codec_(start.codec) {
  // A mono recording never offers a colour depth, nor a colour one a mono depth.
  if (summary_.opened) {
    const std::int32_t source = summary_.sourceDepth;
    if (targetDepth_ == 0) targetDepth_ = source;
    const bool colour = source > 0 && IsColour(static_cast<std::uint32_t>(source));
    if (colour ? targetDepth_ < 24 : targetDepth_ >= 24) targetDepth_ = source;
  }
  for (std::size_t i = 0; i < fileTypes_.size(); ++i)
    if (fileTypes_[i].number == start.fileType) {
      fileTypeIndex_ = i;
      break;
    }
  SelectFileType(fileTypeIndex_);
}

std::int32_t ConversionOptionsModel::FileType() const {
  return fileTypes_.empty() ? 1 : fileTypes_[fileTypeIndex_].number;
}

void ConversionOptionsModel::SelectFileType(std::size_t index) {
  if (index < fileTypes_.size()) fileTypeIndex_ = index;
  depths_ = DepthChoices(FileType(), summary_.sourceDepth);
  depthIndex_ = DepthSelection(depths_, targetDepth_);
}

void ConversionOptionsModel::SelectDepth(std::size_t index) {
  if (index < depths_.size()) depthIndex_ = index;
}

CodecEntry ConversionOptionsModel::CodecEntryForType() const {
  CodecEntry entry;
  CodecOptionsOf(FileType(), codec_, entry);
  return entry;
}

void ConversionOptionsModel::TakeCodecEntry(const CodecEntry& entry) { TakeCodecOptions(FileType(), entry, codec_); }

JobOverrides ConversionOptionsModel::Confirm() const {
  JobOverrides overrides;
  const DepthChoice& depth = depths_[depthIndex_];
  overrides.outputDepth = depth.depth;
  overrides.bitRange = depth.bitRange;
  overrides.deleteRaw = deleteRaw_ ? 1 : 0;
  overrides.resetNumbering = resetNumbering_ ? 1 : 0;
  overrides.fileType = FileType();
  overrides.playbackRate = PlaybackRateOf(rateField_);
  overrides.codec = codec_;
  return overrides;
}

}  // namespace tarnvel
