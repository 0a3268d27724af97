#include "engine/ImageSink.h"

#include "platform/cordage/TextField.h"
#include "platform/framekit/FileTypes.h"
#include "platform/framekit/FrameKit.h"

namespace tarnvel {

namespace {

using framekit::CodecSetting;

// Which fields of the codec block each codec setting uses; one table for both directions.
struct CodecSlot {
  CodecSetting setting;
  std::uint32_t CodecSettings::*handler;
  std::uint32_t CodecSettings::*quality;
  bool name;
};
constexpr CodecSlot kCodecSlots[] = {
    {CodecSetting::kCompressorAndQuality, &CodecSettings::handler, &CodecSettings::quality, true},
    {CodecSetting::kJpegQuality, nullptr, &CodecSettings::jpegQuality, false},
    {CodecSetting::kQuickTimeCompressor, &CodecSettings::movCodec, nullptr, false},
    {CodecSetting::kMpegCompressor, &CodecSettings::mpgCodec, nullptr, false},
    {CodecSetting::kPageCompression, &CodecSettings::mptCodec, nullptr, false},
};

const CodecSlot* CodecSlotOf(std::int32_t type) {
  const framekit::FileTypeDescriptor* descriptor = framekit::FindFileType(type);
  if (descriptor == nullptr) return nullptr;
  for (const CodecSlot& slot : kCodecSlots)
    if (slot.setting == descriptor->codecSetting) return &slot;
  return nullptr;
}

}  // namespace

bool CodecOptionsOf(std::int32_t type, const CodecSettings& codec, FrameOptions& options) {
  options = FrameOptions{};
  const CodecSlot* slot = CodecSlotOf(type);
  if (slot == nullptr) return false;
  if (slot->handler) options.handler = codec.*slot->handler;
  if (slot->quality) options.quality = codec.*slot->quality;
  if (slot->name) CopyText(options.name, FieldText(codec.name));
  return true;
}

bool TakeCodecOptions(std::int32_t type, const FrameOptions& options, CodecSettings& codec) {
  const CodecSlot* slot = CodecSlotOf(type);
  if (slot == nullptr) return false;
  if (slot->handler) codec.*slot->handler = options.handler;
  if (slot->quality) codec.*slot->quality = options.quality;
  if (slot->name) CopyText(codec.name, FieldText(options.name));
  return true;
}

std::optional<FrameOptions> ApplyCodec(std::int32_t type, const CodecSettings& codec) {
  FrameOptions options;
  if (!CodecOptionsOf(type, codec, options)) return std::nullopt;
  const framekit::FileTypeDescriptor& descriptor = *framekit::FindFileType(type);
  // Options the library refuses (an unknown compressor, a quality past the
  // scale) leave its default in force, and the outputs open with that.
  if (SetOptions(descriptor.optionsType, &options) != 0) return framekit::DefaultOptions(descriptor);
  return options;
}

}  // namespace tarnvel
