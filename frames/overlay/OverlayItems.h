// The 21 overlay items: which are on and where they go, their texts for one
// frame, and the texts joined per position.
#pragma once

#include <array>
#include <cstdint>
#include <string>

#include "frames/overlay/LocaleFormat.h"
#include "frames/overlay/TimeCode.h"
#include "recording/RecordingInfo.h"

namespace tarnvel {

constexpr int kOverlayItemCount = 21;
constexpr int kOverlaySlots = 7;
constexpr std::size_t kOverlaySlotBytes = 512;

// Item numbers with a meaning of their own.
enum OverlayItemId : int {
  kFirstLogoItem = 0, kFrameNumberItem = 1, kCommentItem = 2, kFileNameItem = 3, kDeviceNameItem = 4,
  kSerialItem = 5, kNetworkItem = 6, kDateItem = 7, kTimeItem = 8, kTriggerTimeItem = 9, kElapsedItem = 10,
  kRateItem = 11, kExposureItem = 12, kTemperatureItem = 13, kTimeCodeItem = 14, kChannelValueItem = 15,
  kFlaggedItem = 16, kResolutionItem = 17, kUserText1Item = 18, kUserText2Item = 19, kSecondLogoItem = 20
};

// Each item's bit in OverlayConfig::flags (and in a job's overlay flags).
inline constexpr std::uint32_t kOverlayItemMask[kOverlayItemCount] = {
    0x400, 0x4,  0x40,  0x2000, 0x800, 0x8000, 0x10000, 0x1,     0x2,     0x8,     0x20,
    0x100, 0x200, 0x1000, 0x10, 0x80,  0x4000, 0x20000, 0x40000, 0x80000, 0x100000};
// The items that need the frame's date and time: date, time and time code.
constexpr std::uint32_t kClockItemsMask = 0x1 | 0x2 | 0x10;

struct OverlayItem {
  std::int32_t id;
  std::uint32_t mask;
  std::int32_t position;
  std::int32_t showOn;  // 0 every frame, else the frame's show state (1 first, 2 last, 3 number 0)
  std::int32_t format;
  std::int32_t paramA;
  std::int32_t paramB;
  char text[128];
};

struct OverlayConfig {
  std::uint32_t flags;
  std::uint32_t topBar;
  std::uint32_t bottomBar;
  char fontFace[64];  // at most 31 characters are used
  std::int32_t textColor;
  std::int32_t fontHeight;  // 0 means 20
  std::int32_t backColor;   // -1: transparent text
  OverlayItem items[40];
};

// The values of one frame that the items show.
struct OverlayFrameValues {
  const std::uint8_t* cameraBlock = nullptr;  // the model's own 1024-byte block, or none
  TimeStampBlock* timeBlock = nullptr;         // may be filled in from the recording's clock
  std::int32_t frameNumber = 0;
  std::int32_t sequenceIndex = 0;
  std::int32_t irigMode = 0;
  bool flagged = false;
  double channelValue = 0;
  std::int32_t temperature = 0;  // hundredths of a degree Celsius
  std::uint32_t exposure = 0;    // nanoseconds, the frame's own (automatic exposure)
  std::uint32_t serial = 0;
  std::uint32_t network = 0;
  const char* deviceName = nullptr;
  const char* fileName = nullptr;
  const char* userText1 = nullptr;
  const char* userText2 = nullptr;
};

// Seconds of the recording at a frame, with 0.0000001 added.
double ElapsedSeconds(std::int32_t sequenceIndex, const RecordingInfo& recording);
// Adds the whole seconds of ElapsedSeconds to a date and time, with carries.
void FrameClock(const RecordingInfo& recording, std::int32_t sequenceIndex, CalendarTime& time);

class OverlayRenderer {
 public:
  OverlayRenderer() = default;
  explicit OverlayRenderer(const LocaleFormat& locale) : locale_(locale) {}

  // Forms the text of every item whose bit is on.
  void UpdateItems(OverlayConfig& config, const RecordingInfo& recording, const OverlayFrameValues& values);
  // Joins the texts of the items that show on this frame, per position.
  void Place(const OverlayConfig& config, std::int32_t showState);
  // The joined text of a position, or null outside 0 to 6.
  const char* TextAt(std::int32_t position) const;

  const LocaleFormat& Locale() const { return locale_; }

 private:
  std::string TimeCodeText(const OverlayItem& item, const RecordingInfo& recording, const OverlayFrameValues& values,
                           const TimeStampBlock& block) const;

  LocaleFormat locale_;
  std::array<std::array<char, kOverlaySlotBytes>, kOverlaySlots> slots_{};
};

}  // namespace tarnvel
