#include "recording/ColourTables.h"

#include <cstdio>
#include <cstring>

#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

void SetUnitMatrix(ColourPreset& preset) {
  for (int i = 0; i < 9; ++i) preset.Matrix[i] = i % 4 == 0 ? 1.0 : 0.0;
}

}  // namespace

ColourTables::ColourTables() {
  std::memset(user_, 0, sizeof user_);
  for (int i = 0; i < 6; ++i) {
    ColourPreset& p = user_[i];
    if (i == 0) {
      CopyText(p.Name, "User");
    } else if (i == 1) {
      CopyText(p.Name, "Default");
    } else {
      std::snprintf(p.Name, sizeof p.Name, "Preset %d", i - 1);
    }
    p.Temperature = 5600;
    p.BR = 0.0;
    SetUnitMatrix(p);
  }
  std::memset(factory_, 0, sizeof factory_);
  const struct {
    const char* name;
    std::int32_t kelvin;
  } illuminants[] = {{"A", 2856}, {"F2", 4230}, {"D50", 5000}, {"D65", 6500}};
  for (std::size_t i = 0; i < 4; ++i) {
    ColourPreset& p = factory_[i];
    CopyText(p.Name, illuminants[i].name);
    p.Temperature = illuminants[i].kelvin;
    p.BR = 1.0;
    SetUnitMatrix(p);
  }
}

void ColourTables::Set(const ColourPreset* user, const ColourPreset* factory) {
  std::memset(user_, 0, sizeof user_);
  std::memset(factory_, 0, sizeof factory_);
  if (user != nullptr) std::memcpy(user_, user, sizeof user_);
  if (factory != nullptr) std::memcpy(factory_, factory, sizeof factory_);
}

void ColourTables::SetRecordingWhiteBalance(const RecordingInfo& recording) {
  ColourPreset block[kColourPresets];
  std::memset(block, 0, sizeof block);
  for (int i = 0; i < 9; i += 4) block[0].Matrix[i] = recording.WhiteBal[i] / 65536.0;
  Set(block, nullptr);
}

double ColourTables::MatrixEntry(int index) const {
  return index >= 0 && index < 9 ? user_[0].Matrix[index] : 0.0;
}

}  // namespace tarnvel
