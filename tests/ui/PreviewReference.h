// The oracle of the preview: a plain stretch of a picture into a client
// area, each target pixel taking the source pixel its left-top corner falls
// on, written apart from the code it checks.
#pragma once

#include <algorithm>
#include <cstdint>
#include <vector>

namespace tarnvel::test {

// `packed`: w x h pixels of 8-bit grey or 24-bit blue-green-red. Gives the
// cw x ch client area as 0xFFRRGGBB, black where the picture isn't.
inline std::vector<std::uint32_t> ReferencePaint(const std::vector<std::uint8_t>& packed, std::uint32_t w,
                                                 std::uint32_t h, std::uint32_t bits, int cw, int ch) {
  std::vector<std::uint32_t> out(std::size_t(cw) * ch, 0xFF000000u);
  const double scale = std::min(double(cw - 4) / w, double(ch - 4) / h);
  const int tw = int(w * scale + 0.5), th = int(h * scale + 0.5);
  const int left = 2 + (cw - 4 - tw) / 2, top = 2 + (ch - 4 - th) / 2;
  for (int y = 0; y < ch; ++y)
    for (int x = 0; x < cw; ++x) {
      if (x < left || x >= left + tw || y < top || y >= top + th) continue;
      const std::size_t sx = std::size_t(x - left) * w / tw, sy = std::size_t(y - top) * h / th;
      if (bits == 8) {
        const std::uint32_t v = packed[sy * w + sx];
        out[y * cw + x] = 0xFF000000u | v << 16 | v << 8 | v;
      } else {
        const std::uint8_t* p = &packed[(sy * w + sx) * 3];
        out[y * cw + x] = 0xFF000000u | std::uint32_t(p[2]) << 16 | std::uint32_t(p[1]) << 8 | p[0];
      }
    }
  return out;
}

}  // namespace tarnvel::test
