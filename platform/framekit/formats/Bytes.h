// Fields of fixed byte order in headers that the small formats build and parse.
#pragma once

#include <cstddef>
#include <cstdint>
#include <cstring>
#include <vector>

namespace tarnvel::framekit {

template <typename T>
void PutLE(std::uint8_t* p, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i) p[i] = static_cast<std::uint8_t>(std::uint64_t(value) >> (8 * i));
}
template <typename T>
void PutBE(std::uint8_t* p, T value) {
  for (std::size_t i = 0; i < sizeof(T); ++i)
    p[sizeof(T) - 1 - i] = static_cast<std::uint8_t>(std::uint64_t(value) >> (8 * i));
}
template <typename T>
T GetLE(const std::uint8_t* p) {
  std::uint64_t v = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) v |= std::uint64_t{p[i]} << (8 * i);
  return static_cast<T>(v);
}
template <typename T>
T GetBE(const std::uint8_t* p) {
  std::uint64_t v = 0;
  for (std::size_t i = 0; i < sizeof(T); ++i) v = (v << 8) | p[i];
  return static_cast<T>(v);
}

// A bounds-checked view of a whole file in memory.
struct ByteView {
  const std::uint8_t* data = nullptr;
  std::size_t size = 0;
  bool Has(std::uint64_t offset, std::uint64_t bytes) const {
    return offset <= size && bytes <= size - offset;
  }
};

}  // namespace tarnvel::framekit
