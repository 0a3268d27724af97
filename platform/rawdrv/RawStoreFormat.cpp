#include "platform/rawdrv/RawStoreFormat.h"

#include <algorithm>
#include <cstring>

#include <tmmintrin.h>

namespace tarnvel::rawstore {
namespace {

bool KnownDepth(std::uint32_t bits) { return bits == 8 || bits == 10 || bits == 12 || bits == 14 || bits == 16; }

// One sample of a bitstream, read from exactly the bytes that hold its bits.
inline std::uint16_t BitstreamSample(const std::uint8_t* payload, std::size_t index, std::uint32_t bits) {
  const std::uint64_t bit = static_cast<std::uint64_t>(index) * bits;
  const std::size_t firstByte = bit >> 3;
  const std::size_t lastByte = (bit + bits - 1) >> 3;
  std::uint32_t value = 0;
  for (std::size_t b = lastByte + 1; b-- > firstByte;) value = (value << 8) | payload[b];
  return static_cast<std::uint16_t>((value >> (bit & 7)) & ((1u << bits) - 1));
}

// Four samples of an even depth fill Bits / 2 whole bytes, so groups of four
// starting at a multiple of four decode from one 64-bit load with constant
// shifts. A group is only loaded when all eight bytes lie inside the range
// asked for; the rest goes sample by sample.
template <std::uint32_t Bits>
void UnpackBitstreamGroups(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint16_t* out) {
  std::size_t i = 0;
  while (i < count && (first + i) % 4 != 0) {
    out[i] = BitstreamSample(payload, first + i, Bits);
    ++i;
  }
  constexpr std::uint64_t kMask = (1u << Bits) - 1;
  const std::uint64_t endByte = ((first + count) * std::uint64_t{Bits} + 7) / 8;
  for (; i + 4 <= count; i += 4) {
    const std::uint64_t at = (first + i) / 4 * (Bits / 2);
    if (at + 8 > endByte) break;
    std::uint64_t word;
    std::memcpy(&word, payload + at, sizeof word);
    out[i] = static_cast<std::uint16_t>(word & kMask);
    out[i + 1] = static_cast<std::uint16_t>(word >> Bits & kMask);
    out[i + 2] = static_cast<std::uint16_t>(word >> 2 * Bits & kMask);
    out[i + 3] = static_cast<std::uint16_t>(word >> 3 * Bits & kMask);
  }
  for (; i < count; ++i) out[i] = BitstreamSample(payload, first + i, Bits);
}

// One sample per byte, or per little-endian 16-bit word; also what a
// bitstream of 8 or 16 bits is.
void UnpackWords(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint32_t sampleBits,
                 std::uint16_t* out) {
  if (sampleBits == 8) {
    for (std::size_t i = 0; i < count; ++i) out[i] = payload[first + i];
  } else if (sampleBits == 16) {
    std::memcpy(out, payload + 2 * first, 2 * count);
  } else {
    const std::uint16_t mask = static_cast<std::uint16_t>((1u << sampleBits) - 1);
    const std::uint8_t* p = payload + 2 * first;
    for (std::size_t i = 0; i < count; ++i) out[i] = static_cast<std::uint16_t>((p[2 * i] | p[2 * i + 1] << 8) & mask);
  }
}

inline std::uint16_t PairSample(const std::uint8_t* payload, std::size_t index) {
  const std::uint8_t* p = payload + index / 2 * 3;
  return index % 2 == 0 ? static_cast<std::uint16_t>(p[0] << 4 | p[1] >> 4)
                        : static_cast<std::uint16_t>((p[1] & 15) << 8 | p[2]);
}

// 12-bit pairs: big-endian 24-bit words, so four samples are the top 48 bits
// of one byte-swapped 64-bit load.
void UnpackPairs(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint16_t* out) {
  std::size_t i = 0;
  while (i < count && (first + i) % 4 != 0) {
    out[i] = PairSample(payload, first + i);
    ++i;
  }
  const std::uint64_t endByte = ((first + count) * std::uint64_t{12} + 7) / 8;
  for (; i + 4 <= count; i += 4) {
    const std::uint64_t at = (first + i) / 4 * 6;
    if (at + 8 > endByte) break;
    std::uint64_t word;
    std::memcpy(&word, payload + at, sizeof word);
    word = __builtin_bswap64(word);
    out[i] = static_cast<std::uint16_t>(word >> 52);
    out[i + 1] = static_cast<std::uint16_t>(word >> 40 & 0xFFF);
    out[i + 2] = static_cast<std::uint16_t>(word >> 28 & 0xFFF);
    out[i + 3] = static_cast<std::uint16_t>(word >> 16 & 0xFFF);
  }
  for (; i < count; ++i) out[i] = PairSample(payload, first + i);
}

// 12-bit samples, eight at a time from twelve bytes with one byte shuffle
// (SSSE3): each 16-bit lane gets the two bytes that hold its sample, then
// one of the two lanes of a pair is shifted down by four and the other
// masked. Works from a multiple of eight samples while sixteen bytes lie
// inside the range; returns the samples done.
template <bool BigEndianPairs>
__attribute__((target("ssse3"))) std::size_t Unpack12Vector(const std::uint8_t* payload, std::size_t first,
                                                            std::size_t count, std::uint16_t* out) {
  const std::uint64_t endByte = ((first + count) * std::uint64_t{12} + 7) / 8;
  const __m128i shuffle = BigEndianPairs ? _mm_setr_epi8(1, 0, 2, 1, 4, 3, 5, 4, 7, 6, 8, 7, 10, 9, 11, 10)
                                         : _mm_setr_epi8(0, 1, 1, 2, 3, 4, 4, 5, 6, 7, 7, 8, 9, 10, 10, 11);
  // Lanes shifted down by four: the odd ones of a bitstream, the even ones of big-endian pairs.
  const __m128i shifted = BigEndianPairs ? _mm_setr_epi16(-1, 0, -1, 0, -1, 0, -1, 0)
                                         : _mm_setr_epi16(0, -1, 0, -1, 0, -1, 0, -1);
  const __m128i low12 = _mm_set1_epi16(0x0FFF);
  std::size_t i = 0;
  for (; i + 8 <= count; i += 8) {
    const std::uint64_t at = (first + i) / 8 * 12;
    if (at + 16 > endByte) break;
    const __m128i bytes = _mm_shuffle_epi8(_mm_loadu_si128(reinterpret_cast<const __m128i*>(payload + at)), shuffle);
    const __m128i down = _mm_and_si128(_mm_srli_epi16(bytes, 4), shifted);
    const __m128i kept = _mm_andnot_si128(shifted, _mm_and_si128(bytes, low12));
    _mm_storeu_si128(reinterpret_cast<__m128i*>(out + i), _mm_or_si128(down, kept));
  }
  return i;
}

bool HasSsse3() {
  static const bool has = __builtin_cpu_supports("ssse3");
  return has;
}

// 12-bit samples of a bitstream or of big-endian pairs: the vector path from
// the first multiple of eight, the scalar one for what is left.
template <bool BigEndianPairs, typename Scalar>
void Unpack12(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint16_t* out,
              const Scalar& scalar) {
  std::size_t head = std::min<std::size_t>(count, (8 - first % 8) % 8);
  std::size_t done = head;
  if (HasSsse3() && head < count) {
    scalar(first, head, out);
    done += Unpack12Vector<BigEndianPairs>(payload, first + head, count - head, out + head);
    scalar(first + done, count - done, out + done);
  } else {
    scalar(first, count, out);
  }
}

}  // namespace

std::uint64_t PayloadBytes(std::uint64_t samples, std::uint32_t sampleBits, std::uint32_t packing) {
  if (!KnownDepth(sampleBits)) return 0;
  switch (packing) {
    case kPackWords: return samples * (sampleBits > 8 ? 2 : 1);
    case kPackBitstream: return (samples * sampleBits + 7) / 8;
    case kPackPairs12: return sampleBits == 12 ? (samples * 12 + 7) / 8 : 0;
    default: return 0;
  }
}

void PackSamples(const std::uint16_t* samples, std::size_t count, std::uint32_t sampleBits, std::uint32_t packing,
                 std::uint8_t* out) {
  const std::uint32_t mask = (1u << sampleBits) - 1;
  switch (packing) {
    case kPackWords:
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint32_t v = samples[i] & mask;
        if (sampleBits > 8) {
          out[2 * i] = static_cast<std::uint8_t>(v);
          out[2 * i + 1] = static_cast<std::uint8_t>(v >> 8);
        } else {
          out[i] = static_cast<std::uint8_t>(v);
        }
      }
      break;
    case kPackBitstream: {
      std::memset(out, 0, PayloadBytes(count, sampleBits, packing));
      for (std::size_t i = 0; i < count; ++i) {
        const std::uint64_t bit = static_cast<std::uint64_t>(i) * sampleBits;
        const std::uint32_t v = (samples[i] & mask) << (bit & 7);
        for (std::size_t b = 0; b * 8 < sampleBits + (bit & 7); ++b) out[(bit >> 3) + b] |= static_cast<std::uint8_t>(v >> (8 * b));
      }
      break;
    }
    case kPackPairs12:
      for (std::size_t i = 0; i < count; i += 2) {
        const std::uint32_t a = samples[i] & 0xFFF;
        const std::uint32_t b = i + 1 < count ? samples[i + 1] & 0xFFF : 0;
        std::uint8_t* p = out + i / 2 * 3;
        p[0] = static_cast<std::uint8_t>(a >> 4);
        p[1] = static_cast<std::uint8_t>((a & 15) << 4 | b >> 8);
        if (i + 1 < count) p[2] = static_cast<std::uint8_t>(b & 255);
      }
      break;
    default: break;
  }
}

void UnpackSamples(const std::uint8_t* payload, std::size_t first, std::size_t count, std::uint32_t sampleBits,
                   std::uint32_t packing, std::uint16_t* out) {
  switch (packing) {
    case kPackWords:
      UnpackWords(payload, first, count, sampleBits, out);
      break;
    case kPackBitstream:
      switch (sampleBits) {
        case 10: UnpackBitstreamGroups<10>(payload, first, count, out); break;
        case 12:
          Unpack12<false>(payload, first, count, out, [payload](std::size_t f, std::size_t n, std::uint16_t* o) {
            UnpackBitstreamGroups<12>(payload, f, n, o);
          });
          break;
        case 14: UnpackBitstreamGroups<14>(payload, first, count, out); break;
        default: UnpackWords(payload, first, count, sampleBits, out); break;  // bytes or little-endian words
      }
      break;
    case kPackPairs12:
      Unpack12<true>(payload, first, count, out, [payload](std::size_t f, std::size_t n, std::uint16_t* o) {
        UnpackPairs(payload, f, n, o);
      });
      break;
    default: break;
  }
}

}  // namespace tarnvel::rawstore
