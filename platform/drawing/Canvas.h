// The drawing layer: fonts found by fontconfig, measured and drawn with
// Cairo into 24-bit canvases. It stands where the system drew text on
// memory device contexts; colours are the system's colour words, red in
// bits 0 to 7, green in 8 to 15, blue in 16 to 23.
//
// Texts are the system's 8-bit strings (Windows code page 1252): the degree
// sign 0xB0 and the micro sign 0xB5 are drawn as the characters they stand for.
#pragma once

#include <cstdint>
#include <memory>
#include <string>
#include <string_view>
#include <vector>

typedef struct _cairo cairo_t;
typedef struct _cairo_surface cairo_surface_t;
typedef struct _cairo_scaled_font cairo_scaled_font_t;

namespace tarnvel {

// The system's 8-bit text as UTF-8.
std::string SystemTextToUtf8(std::string_view text);

struct TextExtent {
  int cx = 0;  // advance width in pixels
  int cy = 0;  // cell height in pixels: the font's height
};

// A font by face name and cell height in pixels (0 means 20), weight 600.
// A face that is not installed falls back to what fontconfig matches.
class Font {
 public:
  Font(std::string_view face, int height);
  ~Font();
  Font(const Font&) = delete;
  Font& operator=(const Font&) = delete;

  int Height() const { return height_; }
  TextExtent Measure(std::string_view text) const;
  // The family that fontconfig chose, for diagnostics and tests.
  const std::string& ResolvedFamily() const { return family_; }

 private:
  friend class Canvas;
  int height_;
  double ascent_ = 0;
  std::string family_;
  cairo_scaled_font_t* scaled_ = nullptr;
};

// A 24-bit canvas, top-down rows.
class Canvas {
 public:
  Canvas(int width, int height);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  int Width() const { return width_; }
  int Height() const { return height_; }

  // Fills the rectangle [x0, x1) x [y0, y1) with a solid colour.
  void Fill(int x0, int y0, int x1, int y1, std::uint32_t color);
  // One line of text centred in the rectangle, both ways, on a transparent
  // background; drawn without anti-aliasing so that every text pixel carries
  // the text's colour exactly.
  void DrawCentredText(const Font& font, std::string_view text, std::uint32_t color, int x0, int y0, int x1, int y1);

  // The pixels as rows of Width() * 3 bytes, blue, green, red, top row first.
  std::vector<std::uint8_t> Bgr24() const;

 private:
  int width_, height_;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
};

}  // namespace tarnvel
