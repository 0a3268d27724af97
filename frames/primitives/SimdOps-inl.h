// Helpers of the vector kernels, compiled once per level inside the level's
// namespace (see SimdTargets.h); no include guard on purpose.

constexpr std::size_t kVectorBytes = TARNVEL_SIMD_LEVEL == 2 ? 64 : TARNVEL_SIMD_LEVEL == 1 ? 32 : 16;

// A vector of T filling kBytes (one register of the level by default).
template <class T, std::size_t kBytes = kVectorBytes>
using Vec = typename ::tarnvel::simd::VectorOf<T, kBytes>::type;
template <class T>
constexpr std::size_t kLanes = kVectorBytes / sizeof(T);

// Unaligned loads and stores: frames and rows have no particular alignment.
template <class V, class T>
TARNVEL_INLINE V LoadAs(const T* p) {
  V v;
  std::memcpy(&v, p, sizeof v);
  return v;
}
template <class T>
TARNVEL_INLINE Vec<T> Load(const T* p) {
  return LoadAs<Vec<T>>(p);
}
// The first `count` samples at p, the other lanes zero, for the end of a row.
template <class T>
TARNVEL_INLINE Vec<T> LoadPart(const T* p, std::size_t count) {
  Vec<T> v{};
  std::memcpy(&v, p, count * sizeof(T));
  return v;
}
template <class T, class V>
TARNVEL_INLINE void Store(T* p, const V& v) {
  std::memcpy(p, &v, sizeof v);
}
// The first `count` lanes of v, for the end of a row.
template <class T, class V>
TARNVEL_INLINE void StorePart(T* p, const V& v, std::size_t count) {
  std::memcpy(p, &v, count * sizeof(T));
}

template <class V>
TARNVEL_INLINE V Min(const V& a, const V& b) {
  return a < b ? a : b;
}
template <class V>
TARNVEL_INLINE V Max(const V& a, const V& b) {
  return a < b ? b : a;
}

// The high 16 bits of the 32-bit products of unsigned 16-bit lanes.
template <class U>
TARNVEL_INLINE U MulHighU16(const U& a, const U& b) {
#if TARNVEL_SIMD_LEVELS > 1
  if constexpr (sizeof(U) == 16) return reinterpret_cast<U>(_mm_mulhi_epu16(reinterpret_cast<__m128i>(a), reinterpret_cast<__m128i>(b)));
#if TARNVEL_SIMD_LEVEL >= 1
  if constexpr (sizeof(U) == 32)
    return reinterpret_cast<U>(_mm256_mulhi_epu16(reinterpret_cast<__m256i>(a), reinterpret_cast<__m256i>(b)));
#endif
#if TARNVEL_SIMD_LEVEL == 2
  if constexpr (sizeof(U) == 64)
    return reinterpret_cast<U>(_mm512_mulhi_epu16(reinterpret_cast<__m512i>(a), reinterpret_cast<__m512i>(b)));
#endif
#endif
  using Wide = Vec<std::uint32_t, sizeof(U) * 2>;
  return __builtin_convertvector((__builtin_convertvector(a, Wide) * __builtin_convertvector(b, Wide)) >> 16, U);
}
