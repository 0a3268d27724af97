#include "engine/ImageSink.h"

#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"

namespace tarnvel {

namespace {

// Which fields of the codec block a type uses; one table for both directions.
struct CodecSlot {
  std::int32_t type;
  std::uint32_t CodecSettings::*handler;
  std::uint32_t CodecSettings::*quality;
  bool name;
};
constexpr CodecSlot kCodecSlots[] = {
    {kTypeAvi, &CodecSettings::handler, &CodecSettings::quality, true},
    {kTypeJpeg, nullptr, &CodecSettings::jpegQuality, false},
    {kTypeQuickTime, &CodecSettings::movCodec, nullptr, false},
    {kTypeMpeg, &CodecSettings::mpgCodec, nullptr, false},
    {kTypeMp4, &CodecSettings::mpgCodec, nullptr, false},
    {kTypeMultipageTiff, &CodecSettings::mptCodec, nullptr, false},
};

const CodecSlot* CodecSlotOf(std::int32_t type) {
  for (const CodecSlot& slot : kCodecSlots)
    if (slot.type == type) return &slot;
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

void ApplyCodec(std::int32_t type, const CodecSettings& codec) {
  FrameOptions options;
  if (!CodecOptionsOf(type, codec, options)) return;
  SetOptions(type == kTypeMp4 ? kTypeMpeg : type, &options);
}

}  // namespace tarnvel
