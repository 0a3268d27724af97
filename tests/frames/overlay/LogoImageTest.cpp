#include "frames/overlay/LogoImage.h"

#include <gtest/gtest.h>

#include <vector>

#include "frames/overlay/Blend.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// Pillow writes the logos, as another program would.
void MakePng(const std::string& path, const std::string& mode, int w, int h) {
  const std::string script =
      "from PIL import Image\n"
      "im = Image.new('" + mode + "', (" + std::to_string(w) + ", " + std::to_string(h) + "))\n"
      "for y in range(" + std::to_string(h) + "):\n"
      "  for x in range(" + std::to_string(w) + "):\n"
      "    v = (x * 37 + y * 11) % 256\n"
      "    im.putpixel((x, y), {'RGBA': (v, 255 - v, 77, (x * 60) % 256), 'RGB': (v, 255 - v, 77), 'L': v}['" + mode + "'])\n"
      "im.save('" + path + "')\n";
  test::WriteFile(path + ".py", script);
  ASSERT_EQ(test::RunCommand("/usr/bin/python3 " + path + ".py"), 0);
}

TEST(LogoImage, LoadsColourAlphaAndGreyPadded) {
  test::TempDir dir;
  const std::string rgba = dir.File("logo.png");
  MakePng(rgba, "RGBA", 10, 6);
  LogoImage logo;
  ASSERT_EQ(logo.Load(rgba.c_str()), 1);
  EXPECT_EQ(logo.Width(), 12u) << "rounded up to a multiple of 4";
  EXPECT_EQ(logo.Height(), 6u);
  ASSERT_NE(logo.Alpha(), nullptr);
  const int x = 3, y = 2, v = (x * 37 + y * 11) % 256;
  const std::uint8_t* p = logo.Pixels() + (y * 12 + x) * 3;
  EXPECT_EQ(p[0], 77) << "blue";
  EXPECT_EQ(p[1], 255 - v) << "green";
  EXPECT_EQ(p[2], v) << "red";
  EXPECT_EQ(logo.Alpha()[y * 12 + x], (x * 60) % 256);
  EXPECT_EQ(logo.Pixels()[(y * 12 + 11) * 3], 0) << "padding columns are black";
  EXPECT_EQ(logo.Alpha()[y * 12 + 10], 0);

  const std::string grey = dir.File("grey.png");
  MakePng(grey, "L", 5, 3);
  ASSERT_EQ(logo.Load(grey.c_str()), 1);
  EXPECT_EQ(logo.Width(), 8u);
  EXPECT_EQ(logo.Alpha(), nullptr);
  const std::uint8_t* g = logo.Pixels() + (1 * 8 + 2) * 3;
  EXPECT_EQ(g[0], g[2]) << "grey comes out as three equal channels";
  EXPECT_EQ(g[1], (2 * 37 + 11) % 256);

  test::WriteFile(dir.path() / "bad.png", "\x89PNG\r\n\x1a\n garbage");
  EXPECT_EQ(logo.Load(dir.File("bad.png").c_str()), 0);
  EXPECT_FALSE(logo.IsLoaded());
  EXPECT_EQ(logo.Load(dir.File("none.png").c_str()), 0);
  logo.Free();
  logo.Free();
}

TEST(LogoImage, DrawnAtItsScaleAndTransparency) {
  EXPECT_EQ(LogoScalePercent(6), 100);
  EXPECT_EQ(LogoScalePercent(0), 250);
  EXPECT_EQ(LogoScalePercent(16), 5);
  EXPECT_EQ(LogoScalePercent(17), 100);
  std::vector<std::uint8_t> logo(8 * 8 * 3, 200);
  // At 100 percent the logo goes through the blend unscaled.
  std::vector<std::uint16_t> a(40 * 30, 100), b(40 * 30, 100);
  DrawLogo(a.data(), 40, 30, 12, kTopRight, 100, 4, 3, logo.data(), 8, 8, nullptr);
  BlendBitmap(b.data(), 40, 30, 12, kTopRight, false, 3, 0, 4, logo.data(), 8, 8, nullptr);
  EXPECT_EQ(a, b);
  // At 50 percent: 4 columns, and 4 rows (rounded up to a multiple of 4).
  std::vector<std::uint8_t> frame(40 * 30, 0);
  DrawLogo(frame.data(), 40, 30, 8, kTopLeft, 50, 0, 0, logo.data(), 8, 8, nullptr);
  int touched = 0, right = 0, bottom = 0;
  for (int y = 0; y < 30; ++y)
    for (int x = 0; x < 40; ++x)
      if (frame[y * 40 + x]) ++touched, right = std::max(right, x), bottom = std::max(bottom, y);
  EXPECT_EQ(touched, 16);
  EXPECT_EQ(right, 3);
  EXPECT_EQ(bottom, 3);
  // A logo far larger than the frame is clipped, never written outside.
  std::vector<std::uint8_t> big(400 * 400 * 3, 255), small(20 * 10 + 64, 0x33);
  DrawLogo(small.data() + 32, 20, 10, 8, kCentre, 250, 0, 0, big.data(), 400, 400, nullptr);
  for (int i = 0; i < 32; ++i) {
    EXPECT_EQ(small[i], 0x33);
    EXPECT_EQ(small[32 + 200 + i], 0x33);
  }
}

}  // namespace
}  // namespace tarnvel
