#include "engine/OverlaySetup.h"

#include <cstring>

#include "platform/cordage/TextField.h"

namespace tarnvel {

void BuildOverlayConfig(const JobArgs& args, OverlayConfig& config) {
  std::memset(&config, 0, sizeof config);
  config.flags = args.overlayFlags;
  config.textColor = args.overlayTextColor;
  config.fontHeight = args.overlayFontHeight;
  // The face ends in the platform's font record: at most 31 characters.
  CopyText(config.fontFace, 32, FieldText(args.overlayFont));
  config.topBar = static_cast<std::uint32_t>(args.topBar);
  config.bottomBar = static_cast<std::uint32_t>(args.bottomBar);
  config.backColor = args.overlayBackColor;
  for (int i = 0; i < kOverlayItemCount; ++i) {
    config.items[i].id = i;
    config.items[i].mask = kOverlayItemMask[i];
  }
  if (args.itemPosition[0] != -1) {
    for (int i = 0; i < kOverlayItemCount; ++i) {
      OverlayItem& item = config.items[i];
      item.position = args.itemPosition[i];
      item.showOn = args.itemShowOn[i];
      item.format = args.itemFormat[i];
      item.paramA = args.itemParamA[i];
      item.paramB = args.itemParamB[i];
    }
    return;
  }
  for (int i = 0; i < kOverlayItemCount; ++i) config.items[i].position = args.overlayPosition;
  config.items[kTriggerTimeItem].format = args.timeFormat;
  config.items[kTemperatureItem].format = args.temperatureUnit;
  config.items[kChannelValueItem].format = args.channelDecimals;
  config.items[kTimeCodeItem].format = args.utcOffsetIndex;
}

}  // namespace tarnvel
