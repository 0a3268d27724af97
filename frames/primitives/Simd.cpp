#include "frames/primitives/Simd.h"

#include <atomic>

#include "frames/primitives/SimdTargets.h"

namespace tarnvel::simd {
namespace {

Level Detect() {
#if TARNVEL_SIMD_LEVELS > 1
  __builtin_cpu_init();
  const bool avx512 = __builtin_cpu_supports("avx512f") && __builtin_cpu_supports("avx512bw") &&
                      __builtin_cpu_supports("avx512vl") && __builtin_cpu_supports("avx512dq") &&
                      __builtin_cpu_supports("avx512vbmi");
  if (avx512) return Level::Avx512;
  if (__builtin_cpu_supports("avx2") && __builtin_cpu_supports("bmi2")) return Level::Avx2;
#endif
  return Level::Base;
}

std::atomic<int> limit{static_cast<int>(Level::Avx512)};

}  // namespace

Level SupportedLevel() {
  static const Level supported = Detect();
  return supported;
}

Level ActiveLevel() {
  const int supported = static_cast<int>(SupportedLevel());
  const int limited = limit.load(std::memory_order_relaxed);
  return static_cast<Level>(limited < supported ? limited : supported);
}

void LimitLevel(Level level) { limit.store(static_cast<int>(level), std::memory_order_relaxed); }

const char* LevelName(Level level) {
  switch (level) {
    case Level::Avx512: return "avx512";
    case Level::Avx2: return "avx2";
    case Level::Base: break;
  }
  return "base";
}

}  // namespace tarnvel::simd
