#include "channels/DataPlot.h"

#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <set>
#include <string>
#include <tuple>
#include <vector>

#include "channels/ChannelSettings.h"
#include "frames/overlay/Blend.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

constexpr int W = 640, H = 256;

// Colour words of a 24-bit frame pixel (blue, green, red bytes).
std::uint32_t At(const std::vector<std::uint8_t>& frame, int x, int y) {
  const std::uint8_t* p = &frame[(static_cast<std::size_t>(y) * W + x) * 3];
  return p[2] | p[1] << 8 | p[0] << 16;
}

struct Plot {
  std::vector<std::uint16_t> codes;
  CDataBmp bmp;
  std::vector<std::uint8_t> frame = std::vector<std::uint8_t>(static_cast<std::size_t>(W) * H * 3, 0x77);
};

// Channels 0, 2 and 5 over 100 frames of 10 instants each: a sine, a ramp and a constant.
void MakePlot(Plot& p, int legend, int selected) {
  const std::uint32_t mask = 0b100101;
  const int channels = 3, instants = 1000;
  p.codes.resize(static_cast<std::size_t>(instants) * channels);
  for (int k = 0; k < instants; ++k)
    for (int c = 0; c < channels; ++c)
      p.codes[k * channels + c] = static_cast<std::uint16_t>(
          c == 0 ? 32768 + 20000 * std::sin(k / 50.0) : c == 1 ? k * 60 : 40000);
  p.bmp.SetRect({0, 0, W, H});
  p.bmp.SetData(p.codes.data(), static_cast<std::int32_t>(p.codes.size()), 10 * channels, 0, 1000 * channels, mask);
  p.bmp.ResetView();
  p.bmp.SetColors(8, 4), p.bmp.SetUnits(0, "[V]"), p.bmp.SetScale(1.0f), p.bmp.SetValueRange(0);
  std::int32_t colours[kChannelCount];
  for (int i = 0; i < kChannelCount; ++i) colours[i] = 10 + i % 8;  // channel 0: 10, 2: 12, 5: 15
  p.bmp.SetChannelColors(colours);
  ChannelEntry entries[kChannelCount] = {};
  for (int i = 0; i < kChannelCount; ++i) std::snprintf(entries[i].Label, sizeof entries[i].Label, "Channel_%d", i + 1);
  p.bmp.SetChannels(entries, legend);
  p.bmp.SetShowDataPoints(0);
  p.bmp.SetSelectedChannel(selected);
}

TEST(DataPlot, MulDivRoundsLikeThePlatform) {
  EXPECT_EQ(MulDiv(-5, 3, 2), -8) << "-7.5 rounds away from zero";
  EXPECT_EQ(MulDiv(1, 1, 0), -1);
  EXPECT_EQ(MulDiv(2000000000, 4, 1), -1) << "a result beyond 32 bits";
  EXPECT_EQ(MulDiv(2000000000, 4, 8), 1000000000) << "a 64-bit intermediate";
}

TEST(DataPlot, GraphGridCursorAndCurvesOnAColourFrame) {
  for (std::int32_t frameIndex : {0, 99}) {
    Plot p;
    MakePlot(p, 1, -1);
    EXPECT_EQ(p.bmp.Draw(frameIndex, p.frame.data(), W, H, 24), 1);
    const Rect g = p.bmp.GraphRect();
    EXPECT_EQ(g.Width() % 8 + g.Height() % 4, 0) << "whole cells";
    EXPECT_GT(g.left, p.bmp.LegendRect().right) << "the graph stands right of the legend";
    // The cursor: a full column in colour 2 at the frame's time; the data's span
    // is the whole sample period (1e6 / 3000, cut) times the samples.
    EXPECT_EQ(p.bmp.CursorTime(), MulDiv(frameIndex * 10, 1000000 / 3000 * 3000, 1000));
    const int x = p.bmp.XOfTime(p.bmp.CursorTime());
    if (frameIndex == 0) {
      EXPECT_EQ(x, g.left) << "frame 0 sits on the graph's left edge";
    }
    for (int y = g.top; y < g.bottom; ++y) ASSERT_EQ(At(p.frame, x, y), ColorAt(2)) << "row " << y;
    // Every curve pixel lies inside the graph; all three curves are there.
    std::set<std::uint32_t> seen;
    for (int y = 0; y < H; ++y)
      for (int xx = 0; xx < W; ++xx) {
        const std::uint32_t c = At(p.frame, xx, y);
        if (c == ColorAt(10) || c == ColorAt(12) || c == ColorAt(15)) {
          seen.insert(c);
          const bool inLegend = xx >= p.bmp.LegendRect().left && xx < p.bmp.LegendRect().right;
          ASSERT_TRUE(inLegend || (xx >= g.left && xx < g.right && y >= g.top && y <= g.bottom)) << xx << "," << y;
        }
      }
    EXPECT_EQ(seen.size(), 3u);
    // Grid lines: dotted in colour 4 on columns 1 to 7 and rows 1 to 3.
    const int column = g.Width() / 8;
    int gridDots = 0;
    for (int y = g.top + 1; y < g.bottom - 1; ++y) gridDots += At(p.frame, g.left + 3 * column, y) == ColorAt(4);
    EXPECT_GT(gridDots, g.Height() / 4);
  }
}

TEST(DataPlot, SelectedChannelLegendAndGreyPens) {
  Plot p;
  MakePlot(p, 0, 1);  // position 1 is channel 2
  p.bmp.Draw(0, p.frame.data(), W, H, 24);
  std::set<std::uint32_t> seen;
  for (int y = 0; y < H; ++y)
    for (int x = 0; x < W; ++x) seen.insert(At(p.frame, x, y));
  EXPECT_EQ(std::tuple(seen.count(ColorAt(10)), seen.count(ColorAt(12)), seen.count(ColorAt(15))), std::tuple(0u, 1u, 0u))
      << "only the selected channel is drawn";
  EXPECT_EQ(p.bmp.LegendRect().Width(), 0) << "legend off";

  // A grey frame takes its pens from the grey table whatever the colours say.
  Plot grey;
  MakePlot(grey, 1, -1);
  std::vector<std::uint16_t> frame(static_cast<std::size_t>(W) * H, 9999);
  grey.bmp.Draw(0, frame.data(), W, H, 12);
  auto greyOf = [](std::uint32_t c) {
    const std::uint32_t r = (c & 255) << 4, g = ((c >> 8) & 255) << 4, b = ((c >> 16) & 255) << 4;
    return static_cast<std::uint16_t>((11 * r + 18 * g + 3 * b) >> 5);
  };
  std::set<std::uint16_t> values(frame.begin(), frame.end());
  for (std::uint32_t c : {0xFFFFFFu, 0xCCCCCCu, 0xAAAAAAu, ColorAt(8)})  // grey pens and background entry 8
    EXPECT_TRUE(values.count(greyOf(c))) << std::hex << c;
  EXPECT_FALSE(values.count(9999)) << "the plot fills all its rows";
}

TEST(DataPlot, AutoRangeWidensAConstantChannel) {
  Plot constant;
  constant.codes.assign(100, 40000);
  constant.bmp.SetRect({0, 0, W, H});
  constant.bmp.SetData(constant.codes.data(), 100, 10, 0, 1000, 1);
  constant.bmp.ResetView();
  constant.bmp.SetValueRange(0);
  // A constant channel widens by 2 mV on each side; the curve lies in the middle.
  constant.bmp.Draw(5, constant.frame.data(), W, H, 24);
  const Rect g = constant.bmp.GraphRect();
  int curveRow = -1;
  for (int y = g.top; y <= g.bottom; ++y)
    if (At(constant.frame, g.left + g.Width() / 3, y) == ColorAt(3)) curveRow = y;
  EXPECT_NEAR(curveRow, (g.top + g.bottom) / 2, 1);
}

TEST(DataPlot, PlotsLargerThanTheFrameAreCut) {
  Plot p;
  MakePlot(p, 1, -1);
  std::vector<std::uint8_t> small(static_cast<std::size_t>(100) * 50 + 64, 0x5A);
  p.bmp.Draw(10, small.data() + 32, 100, 50, 8);  // a 640 x 256 plot into a 100 x 50 frame
  for (int i = 0; i < 32; ++i) ASSERT_TRUE(small[i] == 0x5A && small[32 + 5000 + i] == 0x5A) << i;
}

TEST(PlotSettings, MissingProfileResetsAndKeysAreRead) {
  test::TempDir dir;
  PlotSettings plot;
  plot.GridColor = 77;
  EXPECT_EQ(ReadPlotSettings(dir.path().c_str(), &plot), 1);  // no profile at all
  const PlotSettings defaults;
  EXPECT_EQ(std::memcmp(&plot, &defaults, sizeof plot), 0);

  test::WriteFile(dir.path() / "_config.pgv",
                  "[Acquisition]\nDisplayChannel=9\n[DAGraph]\nDisplayChannel=2\nYResolution=-3\nGridColor=5\n"
                  "ChannelColor_00=10\nChannelColor_15=18\nChannelColor_5=99\n");
  ReadPlotSettings(dir.path().c_str(), &plot);
  EXPECT_EQ(plot.DisplayChannel, 2) << "from its own section";
  EXPECT_EQ(std::tuple(plot.YResolution, plot.GridColor, plot.ChannelColor[0], plot.ChannelColor[15]),
            std::tuple(-3, 5, 10, 18));
  EXPECT_EQ(plot.ChannelColor[5], defaults.ChannelColor[5]) << "the key needs two digits";
}

TEST(ChannelSettings, RulesAndSectionNumber) {
  test::TempDir dir;
  ChannelSettings settings;
  test::WriteFile(dir.path() / "_config.pgv",
                  "[DaGeneral_0]\nSamplingRate=99999\n"
                  "[DaGeneral_2]\nStatus=5\nSamplingRate=50\nSamplesPerFrame=1\nTriggerInToChannel1=1\n"
                  "[DaChannel_2_0]\nEnable=1\nLabel=Pressure left\nUnits=[bar]\nScaleFactor=2.500000000000000\nGain=7\n"
                  "[DaChannel_2_1]\nEnable=1\nScaleFactor=0\nGain=-1\nUnits=" + std::string(40, 'u') +
                  "\n[DaChannel_2_2]\nGain=2\nLabel=" + std::string(200, 'l') +
                  "\n[DaChannel_0_4]\nLabel=wrong section\n");
  ReadChannelSettings(dir.path().c_str(), &settings, 2);
  EXPECT_EQ(std::tuple(settings.Status, settings.SamplingRate, settings.SamplesPerFrame, settings.TriggerInToChannel1),
            std::tuple(5, 100, 2, 1));
  const ChannelEntry* c = settings.Channels;
  EXPECT_EQ(std::string(c[0].Label) + "|" + c[0].Units, "Pressure left|[bar]");
  EXPECT_EQ(std::tuple(c[0].ScaleFactor, c[0].Gain, c[1].ScaleFactor, c[1].Gain, c[2].Gain),
            std::tuple(2.5f, 3u, 1.0f, 0u, 2u));
  EXPECT_EQ(std::string(c[1].Units) + std::string(c[2].Label), std::string(31, 'u') + std::string(127, 'l'));
  EXPECT_STREQ(c[4].Label, "Channel_5");

  ReadChannelSettings(dir.path().c_str(), &settings, 0);
  EXPECT_EQ(settings.SamplingRate, 99999);
  EXPECT_STREQ(settings.Channels[4].Label, "wrong section");
  EXPECT_EQ(settings.Channels[0].Enable, 0u) << "a second read starts from the defaults";
}

}  // namespace
}  // namespace tarnvel
