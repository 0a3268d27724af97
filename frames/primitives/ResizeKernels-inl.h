// Resampling kernels, compiled once per vector level (see SimdTargets.h).

// Across first, every source row to the destination's width in float, then
// down over whole rows; every sample adds its products in tap order from 0.
template <class T, int C, std::uint32_t kTaps>
void ResizeRows(const ResizeDescription& desc, const void* src, std::size_t srb, void* dst, std::size_t drb,
                float* between) {
  constexpr std::uint32_t taps = kTaps;
  const std::size_t outSamples = static_cast<std::size_t>(desc.destinationWidth) * C;
  for (std::size_t y = 0; y < desc.sourceHeight; ++y) {
    const T* in = RowOf<T>(src, srb, y);
    float* out = between + y * outSamples;
    for (std::size_t x = 0; x < desc.destinationWidth; ++x) {
      const std::uint32_t* idx = &desc.columnIndex[x * taps];
      const float* w = &desc.columnWeight[x * taps];
      for (int c = 0; c < C; ++c) {
        float acc = 0;
        for (std::uint32_t t = 0; t < taps; ++t) acc += w[t] * static_cast<float>(in[idx[t] * C + c]);
        out[x * C + c] = acc;
      }
    }
  }
  // Rounded to the nearest value and limited.
  constexpr float kMax = static_cast<float>(std::numeric_limits<T>::max());
  float* acc = between + static_cast<std::size_t>(desc.sourceHeight) * outSamples;
  for (std::size_t y = 0; y < desc.destinationHeight; ++y) {
    const std::uint32_t* idx = &desc.rowIndex[y * taps];
    const float* w = &desc.rowWeight[y * taps];
    T* out = RowOf<T>(dst, drb, y);
    for (std::size_t s = 0; s < outSamples; ++s) acc[s] = 0;
    for (std::uint32_t t = 0; t < taps; ++t) {
      const float* in = between + idx[t] * outSamples;
      const float weight = w[t];
      for (std::size_t s = 0; s < outSamples; ++s) acc[s] += weight * in[s];
    }
    for (std::size_t s = 0; s < outSamples; ++s) {
      const float v = std::floor(acc[s] + 0.5f);
      out[s] = static_cast<T>(v <= 0 ? 0.0f : (v >= kMax ? kMax : v));
    }
  }
}

