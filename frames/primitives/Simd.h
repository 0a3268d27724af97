// Vector levels of the pixel kernels.
//
// A kernel is written once over the vector width and compiled once per level
// (see SimdTargets.h); a call picks the copy of the best level that the
// processor has, or of the level that LimitLevel asked for. Every copy
// computes the same values: integer kernels are exact, and floating-point
// kernels keep each sample's order of operations (the library is built with
// -ffp-contract=off).
#pragma once

#include <cstddef>

namespace tarnvel::simd {

enum class Level : int {
  Base = 0,    // 16-byte vectors (SSE2 on x86-64)
  Avx2 = 1,    // 32-byte vectors
  Avx512 = 2,  // 64-byte vectors with the byte and word instructions and byte permutes (VBMI)
};

// The best level that this build and this processor offer.
Level SupportedLevel();
// The level that kernels run at: the supported one, or less after LimitLevel.
Level ActiveLevel();
// Runs the kernels at no more than `level` (tests and benchmarks compare the
// copies). Not meant to change while frames are being processed.
void LimitLevel(Level level);

const char* LevelName(Level level);

}  // namespace tarnvel::simd
