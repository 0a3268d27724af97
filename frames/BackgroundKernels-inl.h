// The background addition, compiled once per vector level (see
// primitives/SimdTargets.h).

// destination = source + background / 4, limited; a plain loop that the
// compiler vectorises.
template <class T>
void AddQuarterOf(const std::uint8_t* source, const std::uint8_t* background, std::uint8_t* destination,
                  std::size_t count, std::uint32_t limit) {
  const T* s = reinterpret_cast<const T*>(source);
  const T* b = reinterpret_cast<const T*>(background);
  T* d = reinterpret_cast<T*>(destination);
  for (std::size_t i = 0; i < count; ++i)
    d[i] = static_cast<T>(std::min<std::uint32_t>(static_cast<std::uint32_t>(s[i]) + (b[i] >> 2), limit));
}
