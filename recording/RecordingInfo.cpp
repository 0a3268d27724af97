#include "recording/RecordingInfo.h"

#include <cmath>
#include <limits>

namespace tarnvel {

std::int32_t TruncatedRate(float rate) {
  if (std::isnan(rate)) return 0;
  constexpr float kHigh = 2147483520.0f;  // largest float below 2^31
  if (rate >= kHigh) return std::numeric_limits<std::int32_t>::max();
  if (rate <= -2147483648.0f) return std::numeric_limits<std::int32_t>::min();
  return static_cast<std::int32_t>(rate);
}

namespace {

std::int32_t Wrapped(std::int64_t value) { return static_cast<std::int32_t>(static_cast<std::uint32_t>(value)); }

}  // namespace

std::int32_t OutputFrameNumber(const RecordingInfo& recording, std::int32_t i) {
  return recording.ResetNr != 0 ? i : Wrapped(std::int64_t{recording.StartIdx} + i);
}

std::int32_t SourceFramePosition(const RecordingInfo& recording, std::int32_t i) {
  return Wrapped(std::int64_t{recording.StartIdx} - recording.FirstFrame + i);
}

bool InMovieRange(const RecordingInfo& recording, std::int32_t i) {
  const std::int64_t number = std::int64_t{recording.StartIdx} + i;
  return number >= recording.StartAvi && number <= recording.StopAvi;
}

void RecordingList::AddCopy(const RecordingInfo& record) {
  lists_[active_].push_back(std::make_unique<RecordingInfo>(record));
}

void RecordingList::Clear() {
  for (auto& list : lists_) list.clear();
  current_ = 0;
}

const RecordingInfo* RecordingList::Current() const {
  const auto& list = lists_[active_];
  if (current_ < 0 || static_cast<std::size_t>(current_) >= list.size()) return nullptr;
  return list[static_cast<std::size_t>(current_)].get();
}

}  // namespace tarnvel
