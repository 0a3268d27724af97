#include "recording/DecimalText.h"

#include "platform/cordage/TextField.h"

namespace tarnvel {

std::int32_t LeadingDecimal(std::string_view text) {
  std::uint32_t pattern = 0;
  return LeadingDecimalPattern(text, &pattern) ? static_cast<std::int32_t>(pattern) : 0;
}

}  // namespace tarnvel
