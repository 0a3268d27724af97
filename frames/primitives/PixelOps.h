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

// Grey layouts only: subtracts from every value of a row the row's
// reference, values below it becoming 0. The reference is the row's
// smallest value, never above 1,000, for mode 0; otherwise the value at
// `column`, or 0 (the row stays) when the column lies outside the row.
// Colour layouts are refused and stay as they are.
int SubtractRowReferenceInPlace(ImageView frame, std::int32_t mode, std::int32_t column);

}  // namespace tarnvel
