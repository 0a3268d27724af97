#include "engine/ImageSink.h"

#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"

namespace tarnvel {

void ApplyCodec(std::int32_t type, const CodecSettings& codec) {
  FrameOptions options{};
  std::int32_t target = type;
  switch (type) {
    case kTypeAvi:
      options.handler = codec.handler;
      options.quality = codec.quality;
      CopyText(options.name, FieldText(codec.name));
      break;
    case kTypeJpeg: options.quality = codec.jpegQuality; break;
    case kTypeQuickTime: options.handler = codec.movCodec; break;
    case kTypeMpeg:
    case kTypeMp4:
      options.handler = codec.mpgCodec;
      target = kTypeMpeg;
      break;
    case kTypeMultipageTiff: options.handler = codec.mptCodec; break;
    default: return;
  }
  SetOptions(target, &options);
}

}  // namespace tarnvel
