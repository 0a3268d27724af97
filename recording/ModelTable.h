// The table of 71 camera model numbers that the raw driver and the records
// index. Position 0 and 70 hold model 0.
#pragma once

#include <cstdint>

namespace tarnvel {

inline constexpr std::uint32_t kModelTableSize = 71;

// The model number at a table position, 0 for a position of 71 or more.
std::uint32_t ModelAt(std::uint32_t index);
// The first position that holds the model number, 0 when none does.
std::uint32_t ModelIndexOf(std::uint32_t model);

}  // namespace tarnvel
