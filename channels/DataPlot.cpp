#include "channels/DataPlot.h"

#include <algorithm>
#include <bit>
#include <cmath>
#include <cstdio>
#include <cstring>
#include <limits>
#include <vector>

#include "frames/overlay/Blend.h"
#include "platform/cordage/TextField.h"

namespace tarnvel {
namespace {

constexpr std::uint32_t kGreyLines = 0x505050;  // grid and labels on frames that are not colour

std::int32_t Saturated(long long v) {
  return static_cast<std::int32_t>(std::clamp<long long>(v, std::numeric_limits<std::int32_t>::min(),
                                                         std::numeric_limits<std::int32_t>::max()));
}

template <typename... Args>
std::string Format(const char* format, Args... args) {
  char text[64];
  std::snprintf(text, sizeof text, format, args...);
  return text;
}

}  // namespace

std::int32_t MulDiv(std::int32_t a, std::int32_t b, std::int32_t c) {
  if (c == 0) return -1;
  const long long product = static_cast<long long>(a) * b;
  const long long magnitude = (std::llabs(product) + std::llabs(static_cast<long long>(c)) / 2) / std::llabs(static_cast<long long>(c));
  const long long result = (product < 0) != (c < 0) ? -magnitude : magnitude;
  if (result < std::numeric_limits<std::int32_t>::min() || result > std::numeric_limits<std::int32_t>::max()) return -1;
  return static_cast<std::int32_t>(result);
}

Pen GreyPen(int row) {
  static constexpr PenStyle styles[4] = {PenStyle::Solid, PenStyle::Dot, PenStyle::DashDot, PenStyle::DashDotDot};
  static constexpr std::uint32_t colours[3] = {0xFFFFFF, 0xCCCCCC, 0xAAAAAA};
  const int n = std::max(row, 0);
  return {styles[n % 4], colours[n % 3]};
}

void CDataBmp::SetRect(const Rect& rect) { m_PlotRect = rect; }

void CDataBmp::SetData(const std::uint16_t* samples, std::int32_t size, std::int32_t samplesPerFrame, std::int32_t t0,
                       std::uint32_t rate, std::uint32_t channelMask) {
  m_Samples = samples;
  m_Size = samples ? std::max(size, 0) : 0;
  m_SamplesPerFrame = samplesPerFrame;
  m_ChannelMask = channelMask & 0xFFFF;
  m_ChannelCount = std::popcount(m_ChannelMask);
  m_TimeStart = m_CursorTime = t0;
  const long long period = rate == 0 ? 0 : 1000000 / rate;
  m_TimeEnd = Saturated(period * m_Size + t0);
  m_SelectedChannel = -1;
}

void CDataBmp::ResetView() {
  m_ViewTimeStart = m_TimeStart;
  m_ViewTimeEnd = m_TimeEnd;
  m_ViewMin = m_ValueMin;
  m_ViewMax = m_ValueMax;
  m_CursorTime = m_ViewTimeStart;
}

void CDataBmp::SetColors(std::int32_t background, std::int32_t grid) {
  m_BackgroundColor = background;
  m_GridColor = grid;
}

void CDataBmp::SetUnits(std::int32_t useUnits, const char* text) {
  m_UseUnits = useUnits;
  m_Units = text ? std::string(text).substr(0, 255) : std::string();
}

void CDataBmp::SetScale(float factor) { m_ScaleFactor = factor; }

void CDataBmp::SetValueRange(std::int32_t mode) {
  if (mode != 0 || m_Samples == nullptr) return;
  std::uint16_t low = 65535, high = 0;
  for (std::int32_t i = 0; i < m_Size; ++i) {
    const std::uint16_t code = m_Samples[i];
    if (code < low) low = code;
    else if (code > high) high = code;
  }
  if (high < low) return;
  m_ViewMin = static_cast<std::int32_t>(std::trunc(20000.0f * low / 65535.0f)) + m_ValueMin;
  m_ViewMax = static_cast<std::int32_t>(std::trunc(20000.0f * high / 65535.0f)) + m_ValueMin;
  switch (m_ViewMax - m_ViewMin) {
    case 0: m_ViewMin -= 2, m_ViewMax += 2; break;
    case 1: m_ViewMin -= 1, m_ViewMax += 2; break;
    case 2: m_ViewMin -= 1, m_ViewMax += 1; break;
    case 3: m_ViewMax += 1; break;
    default: break;
  }
}

void CDataBmp::SetChannelColors(const std::int32_t (&colors)[kChannelCount]) {
  std::copy(std::begin(colors), std::end(colors), m_ChannelColors);
}

void CDataBmp::SetChannels(const ChannelEntry (&entries)[kChannelCount], std::int32_t showLegend) {
  std::copy(std::begin(entries), std::end(entries), m_Channels);
  m_ShowLegend = showLegend;
}

void CDataBmp::SetShowDataPoints(std::int32_t flag) { m_ShowDataPoints = flag; }
void CDataBmp::SetSelectedChannel(std::int32_t position) { m_SelectedChannel = position; }

std::string CDataBmp::ValueLabel(int i, std::int32_t divisor) const {
  const long long span = static_cast<long long>(m_ViewMax) - m_ViewMin;
  float v = static_cast<float>(m_ViewMax - static_cast<long long>(i * span / 4)) / static_cast<float>(divisor) + 0.0001f;
  if (m_UseUnits) v *= m_ScaleFactor;
  return Format(m_UseUnits || divisor != 1 ? "%.3f" : "%.1f", v);
}

Pen CDataBmp::ChannelPen(int position, int row, bool grey) const {
  if (grey) return GreyPen(row);
  // The position-th enabled channel gives the colour.
  int seen = 0;
  for (int channel = 0; channel < kChannelCount; ++channel)
    if (m_ChannelMask & (1u << channel)) {
      if (seen++ == position) return {PenStyle::Solid, ColorAt(m_ChannelColors[channel])};
    }
  return {PenStyle::Solid, ColorAt(3)};
}

int CDataBmp::XOfTime(std::int32_t time) const {
  return m_PlotRect.left + MulDiv(time - m_ViewTimeStart, m_PlotRect.Width(), m_ViewTimeEnd - m_ViewTimeStart);
}

void CDataBmp::DrawCurves(Canvas& canvas, bool grey) const {
  const Rect& g = m_PlotRect;
  const std::int32_t count = m_Size / m_ChannelCount;
  int row = 0;
  for (int position = 0; position < m_ChannelCount; ++position) {
    if (!Shown(position)) continue;
    const Pen pen = ChannelPen(position, row++, grey);
    bool started = false;
    int lastX = 0, lastY = 0;
    // Segments that meet form one run, so that a dashed pen's pattern runs on.
    std::vector<Canvas::Point> run;
    auto flush = [&] {
      canvas.Polyline(pen, run);
      run.clear();
    };
    for (std::int32_t k = 0; k < count; ++k) {
      const std::int32_t t = MulDiv(k, m_TimeEnd - m_TimeStart, count) + m_TimeStart;
      if (t < m_ViewTimeStart || t > m_ViewTimeEnd) continue;
      const std::uint16_t code = m_Samples[static_cast<std::size_t>(k) * m_ChannelCount + position];
      const std::int32_t value = MulDiv(code, m_ValueMax - m_ValueMin, 65535) + m_ValueMin;
      const int x = XOfTime(t);
      const int y = g.bottom - MulDiv(value - m_ViewMin, g.Height(), m_ViewMax - m_ViewMin);
      if (started) {
        const bool bothAbove = lastY < g.top && y < g.top, bothBelow = lastY > g.bottom && y > g.bottom;
        if (!bothAbove && !bothBelow) {
          const Canvas::Point from{lastX, std::clamp(lastY, g.top, g.bottom)}, to{x, std::clamp(y, g.top, g.bottom)};
          if (run.empty() || run.back().x != from.x || run.back().y != from.y) {
            flush();
            run.push_back(from);
          }
          run.push_back(to);
        }
        if (m_ShowDataPoints && y >= g.top && y <= g.bottom) {
          const std::uint32_t fill = pen.color;
          canvas.Rectangle(pen, {x - 2, y - 2, x + 2, y + 2}, &fill);
        }
      }
      started = true;
      lastX = x, lastY = y;
    }
    flush();
  }
}

int CDataBmp::Draw(std::int32_t frameIndex, ImageView frame) {
  const Rect whole = m_PlotRect;
  Canvas canvas(whole.Width(), whole.Height());
  const bool grey = !IsColour(frame.depth);
  const Font font("Tahoma", 13, Font::kNormal);
  const std::uint32_t background = grey ? ColorAt(8) : ColorAt(m_BackgroundColor);
  const std::uint32_t lines = grey ? kGreyLines : ColorAt(m_GridColor);
  const Pen dotted{PenStyle::Dot, lines};

  const std::int32_t span = m_ViewMax - m_ViewMin;
  std::string unit = m_Units;
  std::int32_t divisor = 1000;
  if (!m_UseUnits) {
    if (span / 4 < 1000) unit = "[mV]", divisor = 1;
    else unit = "[V]";
  }
  canvas.Fill(whole.left, whole.top, whole.right, whole.bottom, background);

  // Layout: margins around the graph, the legend on the left.
  const TextExtent w6 = font.Measure("WWWWWW");
  const int cy = w6.cy;
  int leftMargin = font.Measure("0").cx + cy + 4;
  if (m_Size != 0) {
    int widest = 0;
    for (int i = 0; i <= 4; ++i) widest = std::max(widest, font.Measure(ValueLabel(i, divisor)).cx);
    leftMargin = widest + 4 + cy;
  }
  const bool legend = m_ShowLegend != 0 && m_ChannelCount > 0;
  Rect g = whole;
  m_LegendRect = {};
  if (legend) {
    int widest = 0;
    for (int i = 0; i < m_ChannelCount; ++i) widest = std::max(widest, font.Measure(FieldText(m_Channels[i].Label)).cx);
    m_LegendRect = {whole.left, whole.top + cy, whole.left + widest + 8, whole.bottom - (cy * 2 + 4)};
    g.left = m_LegendRect.right + leftMargin;
  } else {
    g.left += leftMargin;
  }
  g.right -= w6.cx / 2 + 4;
  g.top += cy;
  g.bottom -= cy * 2 + 4;
  const int column = g.Width() * 2 / 16, rowHeight = g.Height() * 2 / 8;
  g.left = g.right - 8 * column;
  g.bottom = g.top + 4 * rowHeight;
  m_PlotRect = g;

  if (legend) {
    canvas.Rectangle(dotted, m_LegendRect, &background);
    const int h = font.Measure(FieldText(m_Channels[0].Label)).cy;
    const int pitch = std::min(h + 12, m_LegendRect.Height() / m_ChannelCount);
    int row = 0;
    for (int position = 0; position < m_ChannelCount; ++position) {
      if (!Shown(position)) continue;
      const int top = m_LegendRect.top + row * pitch + 4;
      canvas.DrawText(font, FieldText(m_Channels[position].Label), lines,
                      {m_LegendRect.left + 4, top, m_LegendRect.right - 4, top + h}, Align::Start, Align::Start,
                      {m_LegendRect.left + 4, top, m_LegendRect.right - 4, top + h});
      ++row;
    }
    row = 0;
    for (int position = 0; position < m_ChannelCount; ++position) {
      if (!Shown(position)) continue;
      const int y = m_LegendRect.top + row * pitch + h + 8;
      canvas.Line(ChannelPen(position, row, grey), m_LegendRect.left + 8, y, m_LegendRect.right - 9, y);
      ++row;
    }
  }
  canvas.Rectangle(dotted, g, &background);
  for (int i = 1; i <= 7; ++i) canvas.Line(dotted, g.left + i * column, g.top + 1, g.left + i * column, g.bottom - 2);
  for (int i = 1; i <= 3; ++i) canvas.Line(dotted, g.left + 1, g.top + i * rowHeight, g.right - 2, g.top + i * rowHeight);

  const Rect all{0, 0, whole.Width(), whole.Height()};
  if (m_Size != 0) {
    const std::int32_t timeSpan = m_ViewTimeEnd - m_ViewTimeStart;
    for (int i = 0; i <= 8; ++i) {
      const auto product = static_cast<std::int32_t>(static_cast<std::uint32_t>(i) * static_cast<std::uint32_t>(timeSpan));
      const std::string text = Format("%.06f", (m_ViewTimeStart + product / 8.0) / 1000000.0);
      const int x = g.left + i * column, wText = font.Measure(text).cx;
      canvas.DrawText(font, text, lines, {x - wText / 2, g.bottom + 2, x - wText / 2 + wText, g.bottom + 2 + cy},
                      Align::Start, Align::Start, all);
    }
    const int titleWidth = font.Measure(m_TimeLabel).cx, middle = (g.left + g.right) / 2;
    canvas.DrawText(font, m_TimeLabel, lines, {middle - titleWidth / 2, g.bottom + cy + 3, middle - titleWidth / 2 + titleWidth, g.bottom + 2 * cy + 3},
                    Align::Start, Align::Start, all);
    for (int i = 0; i <= 4; ++i) {
      const std::string text = ValueLabel(i, divisor);
      const int y = i == 0 ? g.top : i == 4 ? g.bottom - cy : g.top + i * rowHeight - cy / 2;
      canvas.DrawText(font, text, lines, {0, y, g.left - 2, y + cy}, Align::End, Align::Start, all);
    }
    const int unitLeft = legend ? m_LegendRect.right + 1 : 1;
    const int unitWidth = font.Measure(unit).cx;
    canvas.DrawTextUpward(font, unit, lines, unitLeft, (g.top + g.bottom) / 2 + (unitWidth + 2) / 2, all);
  }
  if (m_Size != 0 && m_ChannelCount != 0 && m_Samples != nullptr) DrawCurves(canvas, grey);

  std::int32_t perFrame = m_SamplesPerFrame, points = m_Size;
  if (m_ChannelCount != 0) perFrame /= m_ChannelCount, points /= m_ChannelCount;
  const std::int32_t scaled = Saturated(static_cast<long long>(frameIndex) * perFrame);
  m_CursorTime = points == 0 ? m_TimeStart : MulDiv(scaled, m_TimeEnd - m_TimeStart, points) + m_TimeStart;
  if (m_Size != 0 && m_CursorTime >= m_ViewTimeStart && m_CursorTime <= m_ViewTimeEnd) {
    const int x = XOfTime(m_CursorTime);
    canvas.Line({PenStyle::Solid, grey ? ColorAt(9) : ColorAt(2)}, x, g.top, x, g.bottom - 1);
  }
  CopyInto(canvas, frame);
  return 1;
}

namespace {

// One pixel of the 24-bit plot (blue, green, red) at the frame's layout:
// grey frames take the weighted sum (11 red, 18 green, 3 blue, over 32),
// colour frames each channel, all at the frame's channel depth.
template <class T, int C>
void StorePlotPixel(T* out, std::uint32_t b, std::uint32_t g, std::uint32_t r, std::uint32_t depth) {
  if constexpr (C == 1) {
    out[0] = static_cast<T>((11 * FromEightBits(r, depth) + 18 * FromEightBits(g, depth) + 3 * FromEightBits(b, depth)) >> 5);
  } else {
    out[0] = static_cast<T>(FromEightBits(b, depth));
    out[1] = static_cast<T>(FromEightBits(g, depth));
    out[2] = static_cast<T>(FromEightBits(r, depth));
  }
}

}  // namespace

void CDataBmp::CopyInto(const Canvas& canvas, const ImageView& frame) const {
  if (frame.Empty()) return;
  const auto bgr = canvas.Bgr24();
  const long long plotWidth = canvas.Width(), plotHeight = canvas.Height(), height = frame.height;
  const long long columns = std::min<long long>(plotWidth, frame.width);
  // The plot fills the last rows; a plot taller than the frame loses its top.
  const long long firstFrameRow = std::max<long long>(0, height - plotHeight);
  const long long firstPlotRow = plotHeight - (height - firstFrameRow);
  DispatchLayout(frame.Layout(), [&]<class T, int C>() {
    for (long long r = firstPlotRow; r < plotHeight; ++r) {
      const std::uint8_t* in = &bgr[static_cast<std::size_t>(r * plotWidth * 3)];
      T* out = frame.RowAs<T>(static_cast<std::size_t>(firstFrameRow + (r - firstPlotRow)));
      for (long long x = 0; x < columns; ++x, in += 3, out += C) StorePlotPixel<T, C>(out, in[0], in[1], in[2], frame.depth);
    }
  });
}

}  // namespace tarnvel
