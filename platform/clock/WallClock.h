// The time that outputs record as the moment they were written (the local
// time of a Chapter 10 camera block, the clock of a Chapter 10 file whose
// frames tell no time, the sidecars' dates). Where SOURCE_DATE_EPOCH holds a
// whole number of seconds since 1970 (the reproducible-builds convention),
// that moment stands instead of the machine's clock, so that two conversions
// of one recording give the same bytes; any other value is ignored.
#pragma once

#include <cerrno>
#include <chrono>
#include <cstdlib>
#include <ctime>
#include <optional>

namespace tarnvel {

// Seconds since 1970 from a SOURCE_DATE_EPOCH text: digits only, up to the
// year 9999; none for anything else.
inline std::optional<std::time_t> EpochFromText(const char* text) {
  if (text == nullptr || *text < '0' || *text > '9') return std::nullopt;
  char* end = nullptr;
  errno = 0;
  const unsigned long long seconds = std::strtoull(text, &end, 10);
  constexpr unsigned long long kYear10000 = 253402300800ULL;
  if (errno != 0 || *end != '\0' || seconds >= kYear10000) return std::nullopt;
  return static_cast<std::time_t>(seconds);
}

inline std::chrono::system_clock::time_point WrittenAt() {
  if (const auto epoch = EpochFromText(std::getenv("SOURCE_DATE_EPOCH")))
    return std::chrono::system_clock::from_time_t(*epoch);
  return std::chrono::system_clock::now();
}

inline std::time_t WrittenAtSeconds() { return std::chrono::system_clock::to_time_t(WrittenAt()); }

}  // namespace tarnvel
