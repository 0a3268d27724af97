// Neighbourhood primitives: convolution and the median, minimum and maximum
// masks, in the four pixel layouts.
//
// All of them read `source` and write `destination` (of the source's size
// and layout), each channel by itself, and count every pixel outside the
// frame as 0
// in every channel: edges are neither repeated nor mirrored. They allocate
// the row memory they need for the one call and free it before returning.
// A refused call returns a negative status and leaves `destination` as it was.
// `destination` may be `source` itself (same rows and row length): every row
// is read before its result is written. Other overlaps are not allowed.
#pragma once

#include <cstddef>
#include <cstdint>

#include "frames/primitives/Primitives.h"

namespace tarnvel {

// For each pixel (x, y): the sum over j < kernelHeight, i < kernelWidth of
//   source(x + i - ax, y + j - ay) * kernel[(kernelHeight-1-j) * kernelWidth + (kernelWidth-1-i)]
// with ax = (kernelWidth - 1) / 2 and ay = (kernelHeight - 1) / 2: the kernel
// is turned by 180 degrees. 8-bit layouts form the sum in integers and cut
// the quotient by `divisor` toward zero. 16-bit layouts divide each
// coefficient by the divisor in double, keep it as a float, and add the
// products in float in the order above. The result is saturated to the
// storage range (0 to 255 or 0 to 65535) and negative results become 0.
// Refused: empty frame or kernel (kPrimitiveBadSize), divisor 0 (kPrimitiveBadDivisor).
int ConvolveBorder(ConstImageView source, ImageView destination, const std::int16_t* kernel, int kernelWidth,
                   int kernelHeight, int divisor);

// Rank masks of maskWidth by maskHeight. A mask of size n reaches (n - 1) / 2
// pixels left (up) and n - 1 - (n - 1) / 2 right (down), so an even mask
// reaches one pixel further right and down. The median is the value at index
// (n * m - 1) / 2 of the n * m values sorted, and accepts only odd sizes
// (kPrimitiveBadMask). Sizes below 1 are refused by all three.
int MedianBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight);
int MinimumBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight);
int MaximumBorder(ConstImageView source, ImageView destination, int maskWidth, int maskHeight);

}  // namespace tarnvel
