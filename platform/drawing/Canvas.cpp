#include "platform/drawing/Canvas.h"

#include <cairo-ft.h>
#include <cairo.h>
#include <fontconfig/fontconfig.h>

#include <algorithm>
#include <cmath>
#include <mutex>

namespace tarnvel {
namespace {

// Code page 1252's 0x80..0x9F; the rest of the upper half is Latin-1.
constexpr char16_t kCp1252High[32] = {0x20AC, 0xFFFD, 0x201A, 0x0192, 0x201E, 0x2026, 0x2020, 0x2021,
                                      0x02C6, 0x2030, 0x0160, 0x2039, 0x0152, 0xFFFD, 0x017D, 0xFFFD,
                                      0xFFFD, 0x2018, 0x2019, 0x201C, 0x201D, 0x2022, 0x2013, 0x2014,
                                      0x02DC, 0x2122, 0x0161, 0x203A, 0x0153, 0xFFFD, 0x017E, 0x0178};

void AppendUtf8(std::string& out, char32_t c) {
  if (c < 0x80) {
    out += static_cast<char>(c);
  } else if (c < 0x800) {
    out += static_cast<char>(0xC0 | (c >> 6));
    out += static_cast<char>(0x80 | (c & 0x3F));
  } else {
    out += static_cast<char>(0xE0 | (c >> 12));
    out += static_cast<char>(0x80 | ((c >> 6) & 0x3F));
    out += static_cast<char>(0x80 | (c & 0x3F));
  }
}

// fontconfig's matching is not safe to run from several threads at once.
std::mutex g_fontconfigMutex;

void SetSourceColor(cairo_t* cr, std::uint32_t color) {
  cairo_set_source_rgb(cr, (color & 0xFF) / 255.0, ((color >> 8) & 0xFF) / 255.0, ((color >> 16) & 0xFF) / 255.0);
}

}  // namespace

std::string SystemTextToUtf8(std::string_view text) {
  std::string out;
  out.reserve(text.size());
  for (char ch : text) {
    const auto b = static_cast<unsigned char>(ch);
    if (b == 0) break;
    AppendUtf8(out, b >= 0x80 && b < 0xA0 ? kCp1252High[b - 0x80] : b);
  }
  return out;
}

Font::Font(std::string_view face, int height, int weight) : height_(height > 0 ? height : 20) {
  cairo_font_face_t* fontFace;
  {
    std::lock_guard lock(g_fontconfigMutex);
    FcPattern* pattern = FcPatternCreate();
    const std::string wanted(face.empty() ? std::string_view("sans-serif") : face);
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>(wanted.c_str()));
    FcPatternAddString(pattern, FC_FAMILY, reinterpret_cast<const FcChar8*>("sans-serif"));
    FcPatternAddInteger(pattern, FC_WEIGHT, FcWeightFromOpenType(weight));
    FcPatternAddInteger(pattern, FC_SLANT, FC_SLANT_ROMAN);
    FcConfigSubstitute(nullptr, pattern, FcMatchPattern);
    FcDefaultSubstitute(pattern);
    FcResult result;
    FcPattern* match = FcFontMatch(nullptr, pattern, &result);
    fontFace = cairo_ft_font_face_create_for_pattern(match ? match : pattern);
    FcChar8* family = nullptr;
    if (match && FcPatternGetString(match, FC_FAMILY, 0, &family) == FcResultMatch && family)
      family_ = reinterpret_cast<const char*>(family);
    if (match) FcPatternDestroy(match);
    FcPatternDestroy(pattern);
  }
  // The cell height (ascent plus descent) is the requested height: find the
  // em size that gives it.
  cairo_matrix_t unit, identity;
  cairo_matrix_init_scale(&unit, 1, 1);
  cairo_matrix_init_identity(&identity);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_font_options_set_antialias(options, CAIRO_ANTIALIAS_NONE);
  cairo_font_options_set_hint_metrics(options, CAIRO_HINT_METRICS_ON);
  cairo_scaled_font_t* probe = cairo_scaled_font_create(fontFace, &unit, &identity, options);
  cairo_font_extents_t e;
  cairo_scaled_font_extents(probe, &e);
  cairo_scaled_font_destroy(probe);
  const double cell = e.ascent + e.descent > 0 ? e.ascent + e.descent : 1.0;
  const double size = height_ / cell;
  cairo_matrix_t scale;
  cairo_matrix_init_scale(&scale, size, size);
  scaled_ = cairo_scaled_font_create(fontFace, &scale, &identity, options);
  ascent_ = e.ascent * size;
  cairo_font_options_destroy(options);
  cairo_font_face_destroy(fontFace);  // the scaled font keeps its own reference
}

Font::~Font() { cairo_scaled_font_destroy(scaled_); }

TextExtent Font::Measure(std::string_view text) const {
  const std::string utf8 = SystemTextToUtf8(text);
  cairo_text_extents_t e;
  cairo_scaled_font_text_extents(scaled_, utf8.c_str(), &e);
  return {static_cast<int>(std::lround(e.x_advance)), height_};
}

Canvas::Canvas(int width, int height) : width_(std::max(width, 0)), height_(std::max(height, 0)) {
  surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, width_, height_);
  if (cairo_surface_status(surface_) != CAIRO_STATUS_SUCCESS) {
    // Larger than Cairo draws (32,767 a side) or than memory holds: an empty
    // canvas, on which every drawing is a no-op and which gives no pixels.
    cairo_surface_destroy(surface_);
    width_ = height_ = 0;
    surface_ = cairo_image_surface_create(CAIRO_FORMAT_RGB24, 0, 0);
  }
  cr_ = cairo_create(surface_);
  cairo_set_antialias(cr_, CAIRO_ANTIALIAS_NONE);
  Fill(0, 0, width_, height_, 0);
}

Canvas::~Canvas() {
  cairo_destroy(cr_);
  cairo_surface_destroy(surface_);
}

void Canvas::Fill(int x0, int y0, int x1, int y1, std::uint32_t color) {
  SetSourceColor(cr_, color);
  cairo_rectangle(cr_, x0, y0, x1 - x0, y1 - y0);
  cairo_fill(cr_);
}

void Canvas::DrawCentredText(const Font& font, std::string_view text, std::uint32_t color, int x0, int y0, int x1,
                             int y1) {
  const Rect box{x0, y0, x1, y1};
  DrawText(font, text, color, box, Align::Centre, Align::Centre, box);
}

namespace {

// Offset of a span of `size` within [start, end) by an alignment.
double Aligned(int start, int end, int size, Align align) {
  switch (align) {
    case Align::Start: return start;
    case Align::End: return end - size;
    case Align::Centre: break;
  }
  return start + std::floor((end - start - size) / 2.0);
}

void ClipTo(cairo_t* cr, const Rect& clip) {
  cairo_rectangle(cr, clip.left, clip.top, clip.Width(), clip.Height());
  cairo_clip(cr);
}

}  // namespace

void Canvas::DrawText(const Font& font, std::string_view text, std::uint32_t color, const Rect& box, Align across,
                      Align down, const Rect& clip) {
  const std::string utf8 = SystemTextToUtf8(text);
  const TextExtent extent = font.Measure(text);
  cairo_save(cr_);
  ClipTo(cr_, clip);
  cairo_set_scaled_font(cr_, font.scaled_);
  SetSourceColor(cr_, color);
  const double left = Aligned(box.left, box.right, extent.cx, across);
  const double top = Aligned(box.top, box.bottom, extent.cy, down);
  cairo_move_to(cr_, left, top + std::round(font.ascent_));
  cairo_show_text(cr_, utf8.c_str());
  cairo_restore(cr_);
}

void Canvas::DrawTextUpward(const Font& font, std::string_view text, std::uint32_t color, int left, int bottom,
                            const Rect& clip) {
  const std::string utf8 = SystemTextToUtf8(text);
  cairo_save(cr_);
  ClipTo(cr_, clip);
  cairo_translate(cr_, left + std::round(font.ascent_), bottom);
  cairo_rotate(cr_, -M_PI / 2);
  // The same face and size, turned with the context.
  cairo_matrix_t size;
  cairo_scaled_font_get_font_matrix(font.scaled_, &size);
  cairo_font_options_t* options = cairo_font_options_create();
  cairo_scaled_font_get_font_options(font.scaled_, options);
  cairo_set_font_face(cr_, cairo_scaled_font_get_font_face(font.scaled_));
  cairo_set_font_matrix(cr_, &size);
  cairo_set_font_options(cr_, options);
  cairo_font_options_destroy(options);
  SetSourceColor(cr_, color);
  cairo_move_to(cr_, 0, 0);
  cairo_show_text(cr_, utf8.c_str());
  cairo_restore(cr_);
}

void Canvas::Line(const Pen& pen, int x0, int y0, int x1, int y1) { Polyline(pen, {{x0, y0}, {x1, y1}}); }

void Canvas::Polyline(const Pen& pen, const std::vector<Point>& points) {
  if (points.empty()) return;
  static const double dot[] = {1, 1}, dashDot[] = {6, 3, 1, 3}, dashDotDot[] = {6, 2, 1, 2, 1, 2};
  cairo_save(cr_);
  SetSourceColor(cr_, pen.color);
  if (points.size() == 1 || (points.size() == 2 && points[0].x == points[1].x && points[0].y == points[1].y)) {
    cairo_rectangle(cr_, points[0].x, points[0].y, 1, 1);
    cairo_fill(cr_);
    cairo_restore(cr_);
    return;
  }
  cairo_set_line_width(cr_, 1.0);
  // Square caps cover both end pixels of a solid line; dashes keep their own length.
  cairo_set_line_cap(cr_, pen.style == PenStyle::Solid ? CAIRO_LINE_CAP_SQUARE : CAIRO_LINE_CAP_BUTT);
  cairo_set_line_join(cr_, CAIRO_LINE_JOIN_MITER);
  switch (pen.style) {
    case PenStyle::Dot: cairo_set_dash(cr_, dot, 2, 0); break;
    case PenStyle::DashDot: cairo_set_dash(cr_, dashDot, 4, 0); break;
    case PenStyle::DashDotDot: cairo_set_dash(cr_, dashDotDot, 6, 0); break;
    case PenStyle::Solid: break;
  }
  // Pixel centres, so that a one-pixel line covers exactly its pixels.
  cairo_move_to(cr_, points[0].x + 0.5, points[0].y + 0.5);
  for (std::size_t i = 1; i < points.size(); ++i) cairo_line_to(cr_, points[i].x + 0.5, points[i].y + 0.5);
  cairo_stroke(cr_);
  cairo_restore(cr_);
}

void Canvas::Rectangle(const Pen& pen, const Rect& r, const std::uint32_t* fill) {
  if (r.Width() <= 0 || r.Height() <= 0) return;
  if (fill) Fill(r.left + 1, r.top + 1, r.right - 1, r.bottom - 1, *fill);
  Line(pen, r.left, r.top, r.right - 1, r.top);
  Line(pen, r.right - 1, r.top, r.right - 1, r.bottom - 1);
  Line(pen, r.right - 1, r.bottom - 1, r.left, r.bottom - 1);
  Line(pen, r.left, r.bottom - 1, r.left, r.top);
}

std::vector<std::uint8_t> Canvas::Bgr24() const {
  cairo_surface_flush(surface_);
  const unsigned char* data = cairo_image_surface_get_data(surface_);
  const int stride = cairo_image_surface_get_stride(surface_);
  std::vector<std::uint8_t> out(static_cast<std::size_t>(width_) * height_ * 3);
  for (int y = 0; y < height_; ++y) {
    const auto* row = reinterpret_cast<const std::uint32_t*>(data + static_cast<std::ptrdiff_t>(y) * stride);
    std::uint8_t* o = out.data() + static_cast<std::size_t>(y) * width_ * 3;
    for (int x = 0; x < width_; ++x, o += 3) {
      const std::uint32_t p = row[x];  // 0x00RRGGBB in native order
      o[0] = static_cast<std::uint8_t>(p);
      o[1] = static_cast<std::uint8_t>(p >> 8);
      o[2] = static_cast<std::uint8_t>(p >> 16);
    }
  }
  return out;
}

}  // namespace tarnvel
