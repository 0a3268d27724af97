#include "recording/ModelTable.h"

#include <array>
#include <cstdio>

namespace tarnvel {
namespace {

// The order in which the suite lists its models; position 0 and the last stand for "none".
constexpr std::array<std::uint32_t, kModelTableSize> kModels = [] {
  std::array<std::uint32_t, kModelTableSize> table{};
  int at = 1;
  for (std::uint32_t m = 6; m <= 10; ++m) table[at++] = m;
  for (std::uint32_t m = 14; m <= 19; ++m) table[at++] = m;
  for (std::uint32_t m = 11; m <= 13; ++m) table[at++] = m;
  for (std::uint32_t m = 20; m <= 74; ++m) table[at++] = m;
  table[at++] = 0;
  return table;
}();

}  // namespace

int ModelIndexOf(std::uint32_t model) {
  for (int i = 0; i < kModelTableSize; ++i)
    if (kModels[static_cast<std::size_t>(i)] == model) return i;
  return 0;
}

std::uint32_t ModelAt(int index) {
  if (index < 0 || index >= kModelTableSize) return 0;
  return kModels[static_cast<std::size_t>(index)];
}

bool HasCameraBlock(std::uint32_t model) { return (model >= 11 && model <= 13) || (model >= 20 && model <= 22); }

std::string FormatSerial(std::uint32_t model, std::uint32_t serial) {
  char text[128];
  if (HasCameraBlock(model)) {
    std::snprintf(text, sizeof text, "%d", static_cast<std::int32_t>(serial));
  } else {
    const std::uint32_t first = serial / 100000000u;
    const std::uint32_t second = serial / 10000u - 10000u * first;
    std::snprintf(text, sizeof text, "%02u-%04u-%04u", first, second, serial % 10000u);
  }
  return text;
}

}  // namespace tarnvel
