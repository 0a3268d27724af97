#include "channels/gen/ChannelGen.h"

#include <gtest/gtest.h>

#include <cmath>
#include <string>
#include <tuple>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;

double IdealCode(double volts) { return 65535.0 * (volts + 10.0) / 20.0; }

// Every form written and read back: head and codes agree with what was written.
TEST(ChannelGen, EveryFormReadsBack) {
  TempDir dir;
  ChannelPlan plan;
  plan.channelMask = (1u << 0) | (1u << 3) | (1u << 9) | (1u << 15);
  plan.frameRate = 250, plan.samplesPerFrame = 8;  // 2000 samples per second and channel: 500 us apart
  plan.frameCount = 30, plan.startSeconds = -0.02, plan.amplitude = 9.5f;
  const ChannelRecording rec = MakeChannelRecording(plan);

  for (int type = 1; type <= 7; ++type) {
    const std::string path = ChannelFilePath(dir.path().string(), "run", type);
    ASSERT_TRUE(WriteChannelFile(path, type, rec)) << path;
    ChannelFileHeader header{}, head{};
    ChannelCodes codes;
    int readType = 0;
    ASSERT_EQ(ReadChannelData(path.c_str(), &readType, &header, &codes), 1) << path;
    ASSERT_EQ(ReadChannelHeader(path.c_str(), nullptr, &head), 1) << path;
    EXPECT_EQ(readType, type);
    for (const ChannelFileHeader* h : {&header, &head})
      EXPECT_EQ(std::tuple(h->Size, h->Rate, h->T0), std::tuple(rec.header.Size, rec.header.Rate, rec.header.T0)) << path;
    for (int c = 0; c < 16; ++c) EXPECT_EQ(header.Channels[c].Enable, rec.header.Channels[c].Enable) << path << c;
    if (type <= 3) {  // forms that carry the samples per frame keep it
      EXPECT_EQ(header.SamplesPerFrame, rec.header.SamplesPerFrame) << path;
    }
    ASSERT_EQ(codes.size(), rec.volts.size()) << path;
    int off = 0;
    for (std::size_t i = 0; i < codes.size(); ++i) off += std::fabs(codes[i] - IdealCode(rec.volts[i])) > 1.0;
    EXPECT_EQ(off, 0) << path;
  }
}

// Every form cut short: a read fails, or gives the rows that were whole (at
// most the cut row differs) and zero codes behind them, never other values.
TEST(ChannelGen, EveryFormCutShort) {
  TempDir dir;
  ChannelPlan plan;
  plan.channelMask = 0b1010'0110, plan.frameCount = 20, plan.samplesPerFrame = 5;
  const ChannelRecording rec = MakeChannelRecording(plan);
  int partial = 0;
  for (int type = 1; type <= 7; ++type) {
    const std::string path = ChannelFilePath(dir.path().string(), "cut", type);
    ASSERT_TRUE(WriteChannelFile(path, type, rec));
    const std::string whole = test::ReadFile(path);
    for (double part : {0.05, 0.3, 0.5, 0.9, 0.999}) {
      test::WriteFile(path, whole.substr(0, static_cast<std::size_t>(whole.size() * part)));
      ChannelFileHeader header{};
      ChannelCodes codes;
      const int ok = ReadChannelData(path.c_str(), nullptr, &header, &codes);
      ASSERT_EQ(codes.size(), ok ? header.Size : 0u) << path << part;
      if (!ok) continue;
      ++partial;
      EXPECT_LE(header.Size, rec.header.Size) << path << part;
      int other = 0;
      for (std::size_t i = 0; i < codes.size(); ++i)
        other += codes[i] != 0 && std::fabs(codes[i] - IdealCode(rec.volts[i])) > 1.0;
      EXPECT_LE(other, 4) << path << part;
    }
  }
  EXPECT_GE(partial, 15);  // the text forms read what they hold
}

}  // namespace
}  // namespace tarnvel
