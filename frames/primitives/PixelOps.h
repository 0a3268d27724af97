// In-place pixel primitives in the four pixel layouts.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/primitives/Primitives.h"

namespace tarnvel {

// Replaces every value by its exclusive or with the mask of its channel:
// mask[0] for grey, mask[0..2] for the blue, green and red channels of colour.
int InvertInPlace(ImageView frame, const std::uint16_t mask[3]);

// Axis 0 mirrors about the horizontal axis (the top row becomes the bottom
// row), axis 1 about the vertical axis (the first column becomes the last).
// A pixel moves as a whole, its channels keep their order.
int MirrorInPlace(ImageView frame, int axis);

}  // namespace tarnvel
