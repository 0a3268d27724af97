#include "recording/ModelTable.h"

#include <array>

namespace tarnvel {
namespace {

// 0, 6 to 10, 14 to 19, 11 to 13, 20 to 74, 0.
constexpr std::array<std::uint32_t, kModelTableSize> BuildTable() {
  std::array<std::uint32_t, kModelTableSize> table{};
  std::uint32_t at = 1;
  for (std::uint32_t m = 6; m <= 10; ++m) table[at++] = m;
  for (std::uint32_t m = 14; m <= 19; ++m) table[at++] = m;
  for (std::uint32_t m = 11; m <= 13; ++m) table[at++] = m;
  for (std::uint32_t m = 20; m <= 74; ++m) table[at++] = m;
  table[at++] = 0;
  return table;
}
constexpr auto kModels = BuildTable();
static_assert(kModels[70] == 0 && kModels[69] == 74 && kModels[12] == 11);

}  // namespace

std::uint32_t ModelAt(std::uint32_t index) { return index < kModelTableSize ? kModels[index] : 0; }

std::uint32_t ModelIndexOf(std::uint32_t model) {
  for (std::uint32_t i = 0; i < kModelTableSize; ++i) {
    if (kModels[i] == model) return i;
  }
  return 0;
}

}  // namespace tarnvel
