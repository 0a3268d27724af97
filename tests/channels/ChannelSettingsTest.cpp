#include "channels/ChannelSettings.h"

#include <gtest/gtest.h>

#include <cstring>
#include <string>

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
  EXPECT_EQ(plot.YResolution, -3);
  EXPECT_EQ(plot.GridColor, 5);
  EXPECT_EQ(plot.ChannelColor[0], 10);
  EXPECT_EQ(plot.ChannelColor[15], 18);
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
  EXPECT_EQ(settings.Status, 5);
  EXPECT_EQ(settings.SamplingRate, 100);
  EXPECT_EQ(settings.SamplesPerFrame, 2);
  EXPECT_EQ(settings.TriggerInToChannel1, 1);
  EXPECT_STREQ(settings.Channels[0].Label, "Pressure left");
  EXPECT_STREQ(settings.Channels[0].Units, "[bar]");
  EXPECT_EQ(settings.Channels[0].ScaleFactor, 2.5f);
  EXPECT_EQ(settings.Channels[0].Gain, 3u);
  EXPECT_EQ(settings.Channels[1].ScaleFactor, 1.0f);
  EXPECT_EQ(settings.Channels[1].Gain, 0u);
  EXPECT_EQ(std::string(settings.Channels[1].Units), std::string(31, 'u'));
  EXPECT_EQ(settings.Channels[2].Gain, 2u);
  EXPECT_EQ(std::string(settings.Channels[2].Label), std::string(127, 'l'));
  EXPECT_STREQ(settings.Channels[4].Label, "Channel_5");

  ReadChannelSettings(dir.path().c_str(), &settings, 0);
  EXPECT_EQ(settings.SamplingRate, 99999);
  EXPECT_STREQ(settings.Channels[4].Label, "wrong section");
  EXPECT_EQ(settings.Channels[0].Enable, 0u) << "a second read starts from the defaults";
}

}  // namespace
}  // namespace tarnvel
