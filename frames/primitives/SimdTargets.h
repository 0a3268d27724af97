// Compiles a file of kernels once per vector level.
//
// A source file names its kernel file and includes this header after all its
// other includes:
//   #define TARNVEL_SIMD_KERNELS "frames/primitives/PointKernels-inl.h"
//   #include "frames/primitives/SimdTargets.h"
// The kernel file (no include guard, no includes of its own) is compiled in
// the namespaces tarnvel::simd_base, tarnvel::simd_avx2 and
// tarnvel::simd_avx512, each with the processor options of its level, after
// the helpers of SimdOps-inl.h. Inside it, TARNVEL_SIMD_LEVEL is 0, 1 or 2
// for the few instructions that only one level has.
// TARNVEL_SIMD_RETURN(Kernel<T>(a, b)) returns that call of the copy of the
// active level.
//
// Builds other than GCC on x86-64 (the clang fuzzing build) compile the base
// copy only.
#ifndef TARNVEL_FRAMES_PRIMITIVES_SIMD_TARGETS_H
#define TARNVEL_FRAMES_PRIMITIVES_SIMD_TARGETS_H

#include <cstddef>
#include <cstdint>
#include <cstring>

#include "frames/primitives/Simd.h"

#if defined(__GNUC__) && !defined(__clang__) && defined(__x86_64__)
#include <immintrin.h>
#define TARNVEL_SIMD_LEVELS 3
#else
#define TARNVEL_SIMD_LEVELS 1
#endif

// Helpers that take vectors are forced inline, so that they are compiled
// with the options of the copy that calls them.
#define TARNVEL_INLINE inline __attribute__((always_inline))

namespace tarnvel::simd {
template <class T, std::size_t kBytes>
struct VectorOf {
  typedef T type __attribute__((vector_size(kBytes)));
};
}  // namespace tarnvel::simd

#if TARNVEL_SIMD_LEVELS > 1
#define TARNVEL_SIMD_RETURN(...)                                                        \
  do {                                                                                  \
    switch (::tarnvel::simd::ActiveLevel()) {                                           \
      case ::tarnvel::simd::Level::Avx512: return ::tarnvel::simd_avx512::__VA_ARGS__; \
      case ::tarnvel::simd::Level::Avx2: return ::tarnvel::simd_avx2::__VA_ARGS__;     \
      case ::tarnvel::simd::Level::Base: break;                                         \
    }                                                                                   \
    return ::tarnvel::simd_base::__VA_ARGS__;                                           \
  } while (0)
#else
#define TARNVEL_SIMD_RETURN(...) return ::tarnvel::simd_base::__VA_ARGS__
#endif

#endif  // TARNVEL_FRAMES_PRIMITIVES_SIMD_TARGETS_H

#ifdef TARNVEL_SIMD_KERNELS

#define TARNVEL_SIMD_LEVEL 0
namespace tarnvel::simd_base {
#include "frames/primitives/SimdOps-inl.h"
#include TARNVEL_SIMD_KERNELS
}  // namespace tarnvel::simd_base
#undef TARNVEL_SIMD_LEVEL

#if TARNVEL_SIMD_LEVELS > 1
#pragma GCC push_options
#pragma GCC target("avx2,bmi,bmi2,lzcnt,popcnt")
#define TARNVEL_SIMD_LEVEL 1
namespace tarnvel::simd_avx2 {
#include "frames/primitives/SimdOps-inl.h"
#include TARNVEL_SIMD_KERNELS
}  // namespace tarnvel::simd_avx2
#undef TARNVEL_SIMD_LEVEL
#pragma GCC pop_options

#pragma GCC push_options
#pragma GCC target("avx2,bmi,bmi2,lzcnt,popcnt,avx512f,avx512bw,avx512vl,avx512dq,avx512vbmi")
#define TARNVEL_SIMD_LEVEL 2
namespace tarnvel::simd_avx512 {
#include "frames/primitives/SimdOps-inl.h"
#include TARNVEL_SIMD_KERNELS
}  // namespace tarnvel::simd_avx512
#undef TARNVEL_SIMD_LEVEL
#pragma GCC pop_options
#endif

#undef TARNVEL_SIMD_KERNELS
#endif  // TARNVEL_SIMD_KERNELS
