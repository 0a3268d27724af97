#include "frames/overlay/OverlayItems.h"

#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <memory>

namespace tarnvel {
namespace {

// A camera block of 13:05:09 on 29 February 2024, in BCD.
const std::uint8_t* BcdBlock() {
  static std::uint8_t block[1024] = {};
  block[38] = 0x24, block[37] = 0x02, block[36] = 0x29, block[35] = 0x13, block[34] = 0x05, block[33] = 0x09;
  return block;
}

class OverlayItems : public ::testing::Test {
 protected:
  void SetUp() override {
    rec_ = std::make_unique<RecordingInfo>();  // zeroed
    rec_->Rate = 1000.0f;
    rec_->Year = 2023, rec_->Month = 12, rec_->Day = 31, rec_->Hour = 23, rec_->Minute = 30;
    std::memset(&config_, 0, sizeof config_);
    for (int i = 0; i < kOverlayItemCount; ++i) config_.items[i].id = i, config_.items[i].mask = kOverlayItemMask[i];
  }
  // The text of item i with only its bit on.
  std::string Text(int i, int format = 0, int paramA = 0, int paramB = 0) {
    config_.flags = config_.items[i].mask;
    config_.items[i].format = format, config_.items[i].paramA = paramA, config_.items[i].paramB = paramB;
    renderer_.UpdateItems(config_, *rec_, values_);
    return config_.items[i].text;
  }

  std::unique_ptr<RecordingInfo> rec_;
  OverlayConfig config_;
  OverlayFrameValues values_;
  OverlayRenderer renderer_{LocaleFormat('/', ':', false, true, 2)};
};

// Each row changes the recording or the frame's values, then checks one
// item's text; the rows run in order on the same state.
using R = RecordingInfo;
using V = OverlayFrameValues;
struct Row {
  void (*set)(R&, V&);
  int item, format, paramA;
  const char* want;
};

TEST_F(OverlayItems, TextsAtTheirBoundaries) {
  const Row rows[] = {
      {[](R&, V& v) { v.frameNumber = -5; }, kFrameNumberItem, 0, 0, "-000005"},
      {[](R&, V& v) { v.serial = 112345678; }, kSerialItem, 0, 0, "01-1234-5678"},
      {[](R&, V& v) { v.network = 0xC0A8010Au; }, kNetworkItem, 0, 0, "[192.168.1.10]"},
      {[](R& r, V&) { r.ExposureNs = 999; }, kExposureItem, 0, 0, "N/A"},
      {[](R& r, V&) { r.ExposureNs = 1005000; }, kExposureItem, 1, 0, "1.5 ms"},  // the fraction is not padded
      {[](R& r, V&) { r.ExposureNs = 2500000000u; }, kExposureItem, 2, 0, "2.500 s"},
      {[](R& r, V& v) { r.AEEnable = 1, v.exposure = 40000; }, kExposureItem, 0, 0, "40 \xB5s"},  // the frame's own
      {[](R&, V& v) { v.temperature = -1250; }, kTemperatureItem, 0, 0, "-12.50 \xB0" "C"},
      {[](R&, V&) {}, kTemperatureItem, 1, 0, "9.50 \xB0" "F"},
      {[](R&, V& v) { v.channelValue = 1.23456; }, kChannelValueItem, 3, 0, "1.235"},
      {[](R&, V&) {}, kRateItem, 0, 0, "1000 fps"},
      {[](R& r, V&) { r.SyncInCfg = 2, r.ExternalRate = 750; }, kRateItem, 1, 0, "750 Hz"},  // external sync wins
      {[](R&, V& v) { v.fileName = nullptr; }, kFileNameItem, 0, 0, ""},                     // an absent source
      // Time from the trigger, with and without the trigger delay (3 ms debounce, 5 ms trigger).
      {[](R& r, V& v) { r.RecMode = 1, r.PerTrigFrms = 20, v.sequenceIndex = 1520; }, kTriggerTimeItem, 3, 0, "1.500 s"},
      {[](R&, V& v) { v.sequenceIndex = 0; }, kTriggerTimeItem, 3, 0, "-0.020 s"},
      {[](R& r, V&) { r.TriggerTime = 5000, r.TrigInDebounce = 3000000; }, kTriggerTimeItem, 3, 0, "-0.022 s"},
      {[](R&, V&) {}, kTriggerTimeItem, 3, 1, "-0.020 s"},
      {[](R&, V& v) { v.sequenceIndex = 2000; }, kElapsedItem, 0, 0, "2.000000 s"},
      {[](R& r, V&) { r.Rate = 0; }, kElapsedItem, 0, 0, "0.000000 s"},  // no rate: a value, not a fault
      {[](R&, V&) {}, kTriggerTimeItem, 3, 0, "0.000 s"},
      // The recording's clock: 23:30 on 31 December plus one hour; a camera block gives the date in BCD.
      {[](R& r, V& v) { r.Rate = 1000, v.sequenceIndex = 3600 * 1000; }, kDateItem, 0, 0, "1/1/2024"},
      {[](R&, V&) {}, kTimeItem, 0, 0, "00:30:00"},
      {[](R&, V& v) { v.cameraBlock = BcdBlock(); }, kDateItem, 0, 0, "2/29/24"},
      {[](R&, V&) {}, kTimeItem, 0, 0, "13:05:09"},
  };
  for (const Row& row : rows) {
    row.set(*rec_, values_);
    EXPECT_EQ(Text(row.item, row.format, row.paramA), row.want) << "item " << row.item << " format " << row.format;
  }
}

TEST_F(OverlayItems, TimeCodeMarksAndReceivers) {
  static TimeStampBlock block;
  block = {};
  values_.timeBlock = &block;
  const std::string day = "(1/1/2024) 23:30:00:123:456";
  struct TimeRow {
    void (*set)(R&, V&);
    int format, paramA, paramB;
    std::string want;
  } rows[] = {
      {[](R&, V&) {}, 12, 0, 0, "(NO IRIG/GPS/PTP DATA)"},
      {[](R&, V&) { block = {0, 2023, 365, 23, 30, 0, 123456, 0, {}}; }, 13, 0, 0, "(1/1/2024) 00:30:00:123:456"},  // UTC + 1
      {[](R&, V&) {}, 12, 18, 0, "(12/31/2023) 23:30:18:123:456"},                                                  // leap seconds
      {[](R&, V&) { block.dayOfYear = 366; }, 12, 0, 0, day},  // day 366 of a year of 365
      {[](R&, V&) {}, 25, 0, 0, "(1/2/2024) 01:30:00:123:456"},  // 25 takes the machine's offset
      {[](R&, V&) { block.status = 0x80000000u; }, 12, 0, 0, day + "M"},
      {[](R&, V&) { block.status = 0x00010000u; }, 12, 0, 0, day + "-"},
      {[](R&, V&) { block.status = 3; }, 12, 0, 0, day + "***"},
      {[](R&, V&) { block.status = 7; }, 12, 0, 0, day + "*"},
      {[](R& r, V&) { r.ExposureNs = 200000, block.status = 0; }, 12, 0, 2, "(1/1/2024) 23:30:00:123:656"},  // the exposure added
      // A receiver's control field: microseconds from the frame number, and the field shown.
      {[](R&, V& v) { block.controlField = 0x12, v.frameNumber = 250; }, 12, 0, 0, "(1/1/2024) 23:30:00:250:000 (CF = 0x00000012)"},
      {[](R&, V& v) { v.frameNumber = -3, v.irigMode = 5; }, 12, 0, 0, "(1/1/2024) 23:30:00:992:000 (CF = 0x00000012)"},
      // Without a receiver the block takes the recording's clock.
      {[](R&, V&) { block = {0, 0, 0, 0, 0, 0, 0, kNoTimeCodeReceiver, {}}; }, 12, 0, 0, "(12/31/2023) 23:30:00:000:000"},
  };
  for (const TimeRow& row : rows) {
    row.set(*rec_, values_);
    EXPECT_EQ(Text(kTimeCodeItem, row.format, row.paramA, row.paramB), row.want);
  }
  EXPECT_EQ((std::array{block.year, block.dayOfYear}), (std::array{2023u, 365u}));
  // Day first with the locale's separators.
  OverlayRenderer european(LocaleFormat('.', ':', true, true, 0));
  block = {0, 2024, 60, 8, 9, 10, 5, 0, {}};
  Text(kTimeCodeItem, 12);
  european.UpdateItems(config_, *rec_, values_);
  EXPECT_STREQ(config_.items[kTimeCodeItem].text, "(29.02.2024) 08:09:10:000:005");
}

TEST_F(OverlayItems, PlaceJoinsPerPositionAndShowState) {
  auto show = [&](int item, int position, int showOn = 0) {
    config_.flags |= config_.items[item].mask, config_.items[item].position = position, config_.items[item].showOn = showOn;
  };
  values_.frameNumber = 7, values_.userText1 = "left", values_.userText2 = "also left";
  show(kFrameNumberItem, 3), show(kUserText1Item, 0), show(kUserText2Item, 0, 1), show(kFirstLogoItem, 1);
  show(kFlaggedItem, 9);  // outside 0 to 6: placed nowhere
  renderer_.UpdateItems(config_, *rec_, values_);
  renderer_.Place(config_, 1);
  EXPECT_STREQ(renderer_.TextAt(0), "left also left");
  EXPECT_STREQ(renderer_.TextAt(3), "000007");
  EXPECT_STREQ(renderer_.TextAt(1), "") << "a logo adds only its blank, which is cut";
  EXPECT_EQ((std::array{renderer_.TextAt(7), renderer_.TextAt(-1)}), (std::array<const char*, 2>{nullptr, nullptr}));
  renderer_.Place(config_, 2);
  EXPECT_STREQ(renderer_.TextAt(0), "left") << "shown on the first frame only";
  // Long texts, and a comment without a terminator, stop at the slot's end.
  const std::string longText(127, 'x');
  values_.userText1 = values_.userText2 = values_.fileName = values_.deviceName = longText.c_str();
  show(kCommentItem, 0), show(kFileNameItem, 0), show(kDeviceNameItem, 0);
  std::memset(rec_->Comment, 'c', sizeof rec_->Comment);
  renderer_.UpdateItems(config_, *rec_, values_);
  renderer_.Place(config_, 1);
  EXPECT_EQ(std::strlen(renderer_.TextAt(0)), kOverlaySlotBytes - 1);
}

}  // namespace
}  // namespace tarnvel
