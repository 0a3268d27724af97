// The plot of the analogue channels under each frame: a graph of all shown
// channels with grid, labels, legend and a cursor at the frame's time, drawn
// off-screen and copied into the last rows of the frame at its depth.
//
// One object serves one frame: the frame step makes it, sets it up, draws it
// and throws it away.
#pragma once

#include <cstdint>
#include <string>

#include "channels/ChannelData.h"
#include "platform/drawing/Canvas.h"
#include "platform/pixels/ImageView.h"

namespace tarnvel {

// The platform's rounded multiply-then-divide: a * b / c with a 64-bit
// intermediate, rounded half away from zero; -1 when c is 0 or the result
// does not fit 32 bits.
std::int32_t MulDiv(std::int32_t a, std::int32_t b, std::int32_t c);

// Pens of the curves on frames that are not colour, by the drawn channel's
// running number: styles repeat every 4, colours every 3.
Pen GreyPen(int row);

class CDataBmp {
 public:
  CDataBmp() = default;
  virtual ~CDataBmp() = default;

  void SetRect(const Rect& rect);
  void SetData(const std::uint16_t* samples, std::int32_t size, std::int32_t samplesPerFrame, std::int32_t t0,
               std::uint32_t rate, std::uint32_t channelMask);
  void ResetView();
  void SetColors(std::int32_t background, std::int32_t grid);
  void SetUnits(std::int32_t useUnits, const char* text);
  void SetScale(float factor);
  // With 0, the vertical view spans the data (widened when narrow).
  void SetValueRange(std::int32_t mode);
  void SetChannelColors(const std::int32_t (&colors)[kChannelCount]);
  void SetChannels(const ChannelEntry (&entries)[kChannelCount], std::int32_t showLegend);
  void SetShowDataPoints(std::int32_t flag);
  void SetSelectedChannel(std::int32_t position);

  // Draws the plot for frame `frameIndex` and copies it into the last rows of
  // `frame` (the plot's rows included), at the frame's layout and depth.
  // Rows or columns that do not fit the frame are left out. Returns 1.
  int Draw(std::int32_t frameIndex, ImageView frame);

  // What Draw worked out, for the frame step and for tests.
  const Rect& GraphRect() const { return m_PlotRect; }
  const Rect& LegendRect() const { return m_LegendRect; }
  std::int32_t CursorTime() const { return m_CursorTime; }
  // The column of a time inside the graph, as curves and cursor place it.
  int XOfTime(std::int32_t time) const;

 private:
  struct Layout;
  std::string ValueLabel(int i, std::int32_t divisor) const;
  bool Shown(int position) const { return m_SelectedChannel == -1 || m_SelectedChannel == position; }
  Pen ChannelPen(int position, int row, bool grey) const;
  void DrawCurves(Canvas& canvas, bool grey) const;
  void CopyInto(const Canvas& canvas, const ImageView& frame) const;

  const std::uint16_t* m_Samples = nullptr;
  std::int32_t m_Size = 0;
  std::int32_t m_SamplesPerFrame = 0;
  Rect m_PlotRect;
  Rect m_LegendRect;
  std::uint32_t m_ChannelMask = 0;
  std::int32_t m_ChannelCount = 0;
  std::int32_t m_SelectedChannel = -1;
  std::int32_t m_TimeStart = 0, m_TimeEnd = 1000000;
  std::int32_t m_ValueMin = -10000, m_ValueMax = 10000;
  std::int32_t m_ViewTimeStart = 0, m_ViewTimeEnd = 1000000, m_ViewMin = -10000, m_ViewMax = 10000;
  std::int32_t m_CursorTime = 0;
  float m_ScaleFactor = 1.0f;
  std::int32_t m_UseUnits = 0;
  std::int32_t m_ShowDataPoints = 0;
  std::string m_Units = "[V]";
  std::int32_t m_BackgroundColor = 8, m_GridColor = 4;
  std::int32_t m_ChannelColors[kChannelCount] = {3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3, 3};
  std::int32_t m_ShowLegend = 0;
  ChannelEntry m_Channels[kChannelCount] = {};
  std::string m_TimeLabel = "Time [s]";
};

}  // namespace tarnvel
