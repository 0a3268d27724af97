// Decimal numbers inside texts that other programs wrote (lists of "%d,"
// values, "x,y" points).
#pragma once

#include <cstdint>
#include <string_view>

namespace tarnvel {

// The decimal number at the start of `text` (blanks before it and a sign are
// allowed; whatever follows the digits is ignored), as its 32-bit pattern the
// way the profile reader stores it. A text without a number, or a number
// outside -2^31 .. 2^32-1, gives 0.
std::int32_t LeadingDecimal(std::string_view text);

}  // namespace tarnvel
