// A job's overlay settings, derived from its argument file at the start of
// every run.
#pragma once

#include "engine/JobArgs.h"
#include "frames/overlay/OverlayItems.h"

namespace tarnvel {

// Clears `config` and fills it from the argument file: flags, colours, font
// and bars; each item's id and bit; then per item position, show-on, format
// and parameters from the per-item lists when they are used, else one
// position for all and the four formats of the single keys.
void BuildOverlayConfig(const JobArgs& args, OverlayConfig& config);

}  // namespace tarnvel
