#include "recording/DecimalText.h"

#include <charconv>

namespace tarnvel {

std::int32_t LeadingDecimal(std::string_view text) {
  while (!text.empty() && (text.front() == ' ' || text.front() == '\t')) text.remove_prefix(1);
  bool negative = false;
  if (!text.empty() && (text.front() == '-' || text.front() == '+')) {
    negative = text.front() == '-';
    text.remove_prefix(1);
  }
  std::uint64_t magnitude = 0;
  auto [end, ec] = std::from_chars(text.data(), text.data() + text.size(), magnitude);
  if (ec != std::errc{} || end == text.data()) return 0;
  if (negative ? magnitude > (1ull << 31) : magnitude > 0xFFFFFFFFull) return 0;
  const std::uint32_t pattern = static_cast<std::uint32_t>(negative ? (~magnitude + 1) : magnitude);
  return static_cast<std::int32_t>(pattern);
}

}  // namespace tarnvel
