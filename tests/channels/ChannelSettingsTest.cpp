#include "channels/ChannelSettings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>
#include <tuple>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

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
