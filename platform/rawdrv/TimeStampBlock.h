// The time that the raw source delivers with each frame. A year below 2000
// means no valid time code; a controlField of kNoTimeCodeReceiver marks a time
// that came from no time-code receiver. The driver fills 256 bytes; the eight
// words in front are all that is defined.
#pragma once

#include <cstdint>

namespace tarnvel {

struct TimeStampBlock {
  std::uint32_t status;
  std::uint32_t year;
  std::uint32_t dayOfYear;
  std::uint32_t hour;
  std::uint32_t minute;
  std::uint32_t second;
  std::uint32_t microseconds;
  std::uint32_t controlField;
  std::uint32_t reserved[56];
};
static_assert(sizeof(TimeStampBlock) == 256);

constexpr std::uint32_t kNoTimeCodeReceiver = 0x55555555;

}  // namespace tarnvel
