// Colour-correction presets of a job: a user block and a factory block of ten
// presets each. The converter only sets up the defaults and, for a colour
// recording, puts the recording's white balance in the first user preset,
// whose matrix then travels with every frame's metadata block.
#pragma once

#include <cstddef>
#include <cstdint>
#include <type_traits>

#include "recording/RecordingInfo.h"

namespace tarnvel {

struct ColourPreset {
  char Name[64];
  std::int32_t Temperature;  // kelvin
  std::uint32_t reserved;
  double BR;
  double Matrix[9];  // row by row; the diagonal holds the red, green and blue gains
};
static_assert(std::is_trivially_copyable_v<ColourPreset>);
static_assert(offsetof(ColourPreset, Temperature) == 64);
static_assert(offsetof(ColourPreset, BR) == 72);
static_assert(offsetof(ColourPreset, Matrix) == 80);
static_assert(sizeof(ColourPreset) == 152);

constexpr std::size_t kColourPresets = 10;

class ColourTables {
 public:
  // User presets "User", "Default", "Preset 1" to "Preset 4" at 5600 K; factory
  // presets "A" 2856 K, "F2" 4230 K, "D50" 5000 K, "D65" 6500 K with BR 1.0;
  // all with the unit matrix, the rest empty.
  ColourTables();

  // Clears both blocks, then copies kColourPresets presets from `user` and,
  // when given, from `factory`.
  void Set(const ColourPreset* user, const ColourPreset* factory);

  // The white balance of a colour recording: a first preset with an empty name
  // and the diagonal matrix of WhiteBal entries 0, 4 and 8 over 65536, set as
  // the user block with no factory block.
  void SetRecordingWhiteBalance(const RecordingInfo& recording);

  const double* Matrix() const { return user_[0].Matrix; }
  // Entry 0 to 8 of Matrix(); 0.0 for any other index.
  double MatrixEntry(int index) const;

  const ColourPreset& User(std::size_t i) const { return user_[i]; }
  const ColourPreset& Factory(std::size_t i) const { return factory_[i]; }

 private:
  ColourPreset user_[kColourPresets];
  ColourPreset factory_[kColourPresets];
};

}  // namespace tarnvel
