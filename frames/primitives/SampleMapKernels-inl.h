// Kernels of SampleMap, compiled once per vector level (see SimdTargets.h).

// floor((m * v + a) / 2^shift) limited to 0..last, for one vector of samples
// (16-bit samples first limited to `last`). The products and sums wrap in
// 32 bits; the form was chosen so that they never need to.
template <class T>
struct LinearLanes {
  static constexpr std::size_t kCount = kLanes<T>;
  using V = Vec<T>;
  using Words = Vec<std::uint16_t, kCount * 2>;
  using Unsigned = Vec<std::uint32_t, kCount * 4>;
  using Signed = Vec<std::int32_t, kCount * 4>;

  LinearLanes(std::int32_t m, std::int32_t a, std::uint32_t s, std::uint32_t last)
      : multiplier(Unsigned{} + static_cast<std::uint32_t>(m)),
        addend(Unsigned{} + static_cast<std::uint32_t>(a)),
        shift(s),
        limit(Signed{} + static_cast<std::int32_t>(last)),
        input(V{} + static_cast<T>(last)) {}

  TARNVEL_INLINE V operator()(V v) const {
    Unsigned x;
    // Bytes widen in two steps, which the compiler turns into whole-register
    // conversions; one step of four would go sample by sample.
    if constexpr (sizeof(T) == 1) {
      x = __builtin_convertvector(__builtin_convertvector(v, Words), Unsigned);
    } else {
      x = __builtin_convertvector(Min(v, input), Unsigned);
    }
    Signed y = reinterpret_cast<Signed>(x * multiplier + addend) >> shift;
#if TARNVEL_SIMD_LEVEL >= 1
    if constexpr (sizeof(T) == 2) return Min(PackSaturated(y), input);
#endif
    y = Min(Max(y, Signed{}), limit);
    if constexpr (sizeof(T) == 1) return __builtin_convertvector(__builtin_convertvector(y, Words), V);
    return __builtin_convertvector(y, V);
  }

#if TARNVEL_SIMD_LEVEL >= 1
  // Two registers of 32-bit values to one of 16-bit values, each limited to
  // 0..65,535 by the pack itself; the pack works per 128-bit lane, the
  // permute restores the order.
  static TARNVEL_INLINE V PackSaturated(const Signed& y) {
    using Half = Vec<std::int32_t>;
    Half low, high;
    std::memcpy(&low, &y, sizeof low);
    std::memcpy(&high, reinterpret_cast<const char*>(&y) + sizeof low, sizeof high);
#if TARNVEL_SIMD_LEVEL == 2
    const __m512i packed = _mm512_packus_epi32(reinterpret_cast<__m512i>(low), reinterpret_cast<__m512i>(high));
    return reinterpret_cast<V>(_mm512_maskz_permutexvar_epi64(0xFF, _mm512_setr_epi64(0, 2, 4, 6, 1, 3, 5, 7), packed));
#else
    const __m256i packed = _mm256_packus_epi32(reinterpret_cast<__m256i>(low), reinterpret_cast<__m256i>(high));
    return reinterpret_cast<V>(_mm256_permute4x64_epi64(packed, 0xD8));
#endif
  }
#endif

  Unsigned multiplier, addend;
  std::uint32_t shift;
  Signed limit;
  V input;
};

template <class T>
void MapLinear(T* samples, std::size_t count, std::int32_t m, std::int32_t a, std::uint32_t shift,
               std::uint32_t last) {
  const LinearLanes<T> lanes(m, a, shift, last);
  constexpr std::size_t n = LinearLanes<T>::kCount;
  std::size_t i = 0;
  for (; i + n <= count; i += n) Store(samples + i, lanes(Load(samples + i)));
  if (i < count) {
    T part[n] = {};
    std::memcpy(part, samples + i, (count - i) * sizeof(T));
    StorePart(samples + i, lanes(LoadAs<Vec<T>>(part)), count - i);
  }
}

// table[v] for every byte v, in place.
inline void MapBytes(const std::uint8_t* table, std::uint8_t* samples, std::size_t count) {
#if TARNVEL_SIMD_LEVEL == 2
  // Two permutes of 128 entries each, the top bit of the sample picks one.
  const __m512i t0 = _mm512_loadu_si512(table), t1 = _mm512_loadu_si512(table + 64);
  const __m512i t2 = _mm512_loadu_si512(table + 128), t3 = _mm512_loadu_si512(table + 192);
  for (std::size_t i = 0; i < count; i += 64) {
    const __mmask64 in = count - i >= 64 ? ~__mmask64{0} : (__mmask64{1} << (count - i)) - 1;
    const __m512i x = _mm512_maskz_loadu_epi8(in, samples + i);
    const __m512i low = _mm512_permutex2var_epi8(t0, x, t1), high = _mm512_permutex2var_epi8(t2, x, t3);
    _mm512_mask_storeu_epi8(samples + i, in, _mm512_mask_blend_epi8(_mm512_movepi8_mask(x), low, high));
  }
#elif TARNVEL_SIMD_LEVEL == 1
  // Sixteen lookups of 16 entries. Entry block k sees v - 16k plus 0x70,
  // saturated: below 0x80, with v's low four bits, only for v in that block;
  // the shuffle gives 0 for every index of 0x80 and above.
  __m256i block[16];
  for (int k = 0; k < 16; ++k)
    block[k] = _mm256_broadcastsi128_si256(_mm_loadu_si128(reinterpret_cast<const __m128i*>(table + 16 * k)));
  const __m256i bias = _mm256_set1_epi8(0x70), step = _mm256_set1_epi8(16);
  auto look = [&](__m256i x) {
    __m256i result = _mm256_setzero_si256();
    for (int k = 0; k < 16; ++k) {
      result = _mm256_or_si256(result, _mm256_shuffle_epi8(block[k], _mm256_adds_epu8(x, bias)));
      x = _mm256_sub_epi8(x, step);
    }
    return result;
  };
  std::size_t i = 0;
  for (; i + 32 <= count; i += 32) Store(samples + i, look(LoadAs<__m256i>(samples + i)));
  for (; i < count; ++i) samples[i] = table[samples[i]];
#else
  for (std::size_t i = 0; i < count; ++i) samples[i] = table[samples[i]];
#endif
}
