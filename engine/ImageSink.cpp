#include "engine/ImageSink.h"

#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"

namespace tarnvel {

std::optional<FrameOptions> OptionsFromCodec(const framekit::FileTypeDescriptor& type, const CodecSettings& codec) {
  using framekit::CodecSetting;
  FrameOptions options{};
  switch (type.codecSetting) {
    case CodecSetting::kCompressorAndQuality:
      options.handler = codec.handler;
      options.quality = codec.quality;
      CopyText(options.name, FieldText(codec.name));
      break;
    case CodecSetting::kJpegQuality: options.quality = codec.jpegQuality; break;
    case CodecSetting::kQuickTimeCompressor: options.handler = codec.movCodec; break;
    case CodecSetting::kMpegCompressor: options.handler = codec.mpgCodec; break;
    case CodecSetting::kPageCompression: options.handler = codec.mptCodec; break;
    case CodecSetting::kNone: return std::nullopt;
  }
  return options;
}

std::optional<FrameOptions> ApplyCodec(std::int32_t fileType, const CodecSettings& codec) {
  const framekit::FileTypeDescriptor* type = framekit::FindFileType(fileType);
  if (type == nullptr) return std::nullopt;
  std::optional<FrameOptions> options = OptionsFromCodec(*type, codec);
  if (!options) return std::nullopt;
  // Options the library refuses (an unknown compressor, a quality past the
  // scale) leave its default in force, and the outputs open with that.
  if (SetOptions(type->optionsType, &*options) != 0) return framekit::DefaultOptions(*type);
  return options;
}

}  // namespace tarnvel
