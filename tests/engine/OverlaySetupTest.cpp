#include "engine/OverlaySetup.h"

#include <gtest/gtest.h>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

OverlayConfig ConfigOf(const std::string& argsText) {
  test::TempDir dir;
  test::WriteFile(dir.path() / "args.ini", "[ArgSect]\r\n" + argsText);
  auto args = std::make_unique<JobArgs>();
  ReadJobArgs(dir.File("args.ini"), *args);
  OverlayConfig config;
  BuildOverlayConfig(*args, config);
  return config;
}

TEST(OverlaySetup, SingleKeysGiveOnePositionAndFourFormats) {
  const OverlayConfig c = ConfigOf(
      "Arg05=4\r\nArg06=A face name that is much longer than thirty-one characters\r\nArg07=3\r\nArg12=2\r\n"
      "Arg13=1\r\nArg17=0\r\nArg23=4\r\nArg25=1\r\nArg29=2\r\nArg31=25\r\nArg42=1\r\nArg43=8\r\n");
  EXPECT_EQ(c.flags, 4u);
  EXPECT_EQ(c.textColor, 2);
  EXPECT_EQ(c.fontHeight, 0);
  EXPECT_EQ(c.topBar, 1u);
  EXPECT_EQ(c.bottomBar, 1u);
  EXPECT_EQ(c.backColor, 8);
  EXPECT_EQ(std::string(c.fontFace), "A face name that is much longer") << "31 characters at most";
  for (int i = 0; i < kOverlayItemCount; ++i) {
    EXPECT_EQ(c.items[i].id, i);
    EXPECT_EQ(c.items[i].mask, kOverlayItemMask[i]);
    EXPECT_EQ(c.items[i].position, 3);
  }
  EXPECT_EQ(c.items[kTriggerTimeItem].format, 4);
  EXPECT_EQ(c.items[kTemperatureItem].format, 1);
  EXPECT_EQ(c.items[kChannelValueItem].format, 2);
  EXPECT_EQ(c.items[kTimeCodeItem].format, 25);
  EXPECT_EQ(c.items[kFrameNumberItem].format, 0);
  EXPECT_EQ(c.items[21].mask, 0u) << "entries past the 21 items stay clear";
}

TEST(OverlaySetup, PerItemListsWinEvenWithAnEmptyFormatList) {
  const OverlayConfig c = ConfigOf("Arg05=1\r\nArg07=3\r\nArg23=4\r\nArg39=1,2,0,5,\r\nArg40=\r\nArg41=0,1,\r\nArg47=7,\r\n");
  EXPECT_EQ(c.items[0].position, 1);
  EXPECT_EQ(c.items[1].position, 2);
  EXPECT_EQ(c.items[3].position, 5);
  EXPECT_EQ(c.items[4].position, 0) << "the list is cleared before it is filled";
  EXPECT_EQ(c.items[0].format, -1) << "an empty format list marks entry 0 with -1";
  EXPECT_EQ(c.items[kTriggerTimeItem].format, 0) << "the single keys do not count then";
  EXPECT_EQ(c.items[1].showOn, 1);
  EXPECT_EQ(c.items[0].paramA, 7);
}

}  // namespace
}  // namespace tarnvel
