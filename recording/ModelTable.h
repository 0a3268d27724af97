// Camera model numbers and serial numbers as the suite shows them.
#pragma once

#include <cstdint>
#include <string>

namespace tarnvel {

constexpr int kModelTableSize = 71;

// Position of the first entry of the model table that holds `model`, or 0 when none does.
int ModelIndexOf(std::uint32_t model);
// The model number at a position, or 0 for a position outside the table.
std::uint32_t ModelAt(int index);

// True for the models that deliver their own metadata block and print their
// serial as a plain number: 11 to 13 and 20 to 22.
bool HasCameraBlock(std::uint32_t model);

// The serial number as text (at most 127 characters): a plain signed decimal
// for the models above, else "%02d-%04d-%04d" of the serial's groups.
std::string FormatSerial(std::uint32_t model, std::uint32_t serial);

}  // namespace tarnvel
