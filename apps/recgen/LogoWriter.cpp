// A logo for generated recordings: an RGBA PNG with a colour gradient, a
// transparent border and a half-transparent band, so that a converted frame
// shows the alpha at work.
#include <png.h>

#include <cstdio>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"

namespace tarnvel::recgen {

std::string WriteLogo(const std::string& path, std::uint32_t width, std::uint32_t height) {
  if (width == 0 || height == 0 || width > 4096 || height > 4096) return "a logo of 1 to 4096 pixels a side";
  std::vector<png_byte> rgba(std::size_t{width} * height * 4);
  for (std::uint32_t y = 0; y < height; ++y)
    for (std::uint32_t x = 0; x < width; ++x) {
      png_byte* p = &rgba[(std::size_t{y} * width + x) * 4];
      p[0] = static_cast<png_byte>(255 * x / width);
      p[1] = static_cast<png_byte>(255 * y / height);
      p[2] = 200;
      const bool border = x < width / 8 || x >= width - width / 8 || y < height / 8 || y >= height - height / 8;
      p[3] = border ? 0 : (y > height / 2 ? 128 : 255);
    }
  std::FILE* file = std::fopen(path.c_str(), "wb");
  if (!file) return "cannot create " + path;
  png_structp png = png_create_write_struct(PNG_LIBPNG_VER_STRING, nullptr, nullptr, nullptr);
  png_infop info = png ? png_create_info_struct(png) : nullptr;
  if (!png || !info || setjmp(png_jmpbuf(png))) {
    png_destroy_write_struct(&png, &info);
    std::fclose(file);
    return "cannot write " + path;
  }
  png_init_io(png, file);
  png_set_IHDR(png, info, width, height, 8, PNG_COLOR_TYPE_RGBA, PNG_INTERLACE_NONE, PNG_COMPRESSION_TYPE_DEFAULT,
               PNG_FILTER_TYPE_DEFAULT);
  png_write_info(png, info);
  for (std::uint32_t y = 0; y < height; ++y) png_write_row(png, &rgba[std::size_t{y} * width * 4]);
  png_write_end(png, nullptr);
  png_destroy_write_struct(&png, &info);
  return std::fclose(file) == 0 ? "" : "cannot write " + path;
}

}  // namespace tarnvel::recgen
