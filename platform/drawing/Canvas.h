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

// A font by face name, cell height in pixels (0 means 20) and weight (400
// normal, 600 semi-bold, 700 bold). A face that is not installed falls back to
// what fontconfig matches.
class Font {
 public:
  static constexpr int kSemiBold = 600;
  static constexpr int kNormal = 400;
  Font(std::string_view face, int height, int weight = kSemiBold);
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

enum class PenStyle { Solid, Dot, DashDot, DashDotDot };

struct Pen {
  PenStyle style = PenStyle::Solid;
  std::uint32_t color = 0;
};

enum class Align { Start, Centre, End };

struct Rect {
  int left = 0, top = 0, right = 0, bottom = 0;  // right and bottom exclusive
  int Width() const { return right - left; }
  int Height() const { return bottom - top; }
};

// A 24-bit canvas, top-down rows. Everything is drawn without anti-aliasing,
// one pixel wide, so that every drawn pixel carries its colour exactly.
class Canvas {
 public:
  // A canvas Cairo cannot make (a side above 32,767, too little memory) is
  // empty: Width() and Height() are 0 and Bgr24() gives no pixels.
  Canvas(int width, int height);
  ~Canvas();
  Canvas(const Canvas&) = delete;
  Canvas& operator=(const Canvas&) = delete;

  int Width() const { return width_; }
  int Height() const { return height_; }

  // Fills the rectangle [x0, x1) x [y0, y1) with a solid colour.
  void Fill(int x0, int y0, int x1, int y1, std::uint32_t color);
  // One line of text centred in the rectangle, both ways, on a transparent
  // background, clipped to the rectangle.
  void DrawCentredText(const Font& font, std::string_view text, std::uint32_t color, int x0, int y0, int x1, int y1);
  // One line of text placed in `box` by the two alignments, clipped to `clip`.
  void DrawText(const Font& font, std::string_view text, std::uint32_t color, const Rect& box, Align across,
                Align down, const Rect& clip);
  // One line of text turned a quarter to the left (reading upward), its
  // start at the bottom: `left` is the column of the text's top, `bottom`
  // the row where it starts. Clipped to `clip`.
  void DrawTextUpward(const Font& font, std::string_view text, std::uint32_t color, int left, int bottom,
                      const Rect& clip);
  // A line from (x0, y0) to (x1, y1), both ends included, in the pen's style.
  void Line(const Pen& pen, int x0, int y0, int x1, int y1);
  // Connected lines through the points; a dashed pen's pattern runs on from
  // one segment to the next.
  struct Point {
    int x, y;
  };
  void Polyline(const Pen& pen, const std::vector<Point>& points);
  // The outline of [left, right) x [top, bottom) in the pen, its inside filled
  // with `fill` when given.
  void Rectangle(const Pen& pen, const Rect& r, const std::uint32_t* fill);

  // The pixels as rows of Width() * 3 bytes, blue, green, red, top row first.
  std::vector<std::uint8_t> Bgr24() const;

 private:
  int width_, height_;
  cairo_surface_t* surface_ = nullptr;
  cairo_t* cr_ = nullptr;
};

}  // namespace tarnvel
