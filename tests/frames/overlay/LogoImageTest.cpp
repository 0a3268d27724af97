#include "frames/overlay/LogoImage.h"

#include <gtest/gtest.h>

#include <array>
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
  EXPECT_EQ((std::array{logo.Width(), logo.Height()}), (std::array{12u, 6u})) << "rounded up to a multiple of 4";
  ASSERT_NE(logo.Alpha(), nullptr);
  const int x = 3, y = 2, v = (x * 37 + y * 11) % 256;
  const std::uint8_t* p = logo.Pixels() + (y * 12 + x) * 3;
  EXPECT_EQ((std::array<int, 4>{p[0], p[1], p[2], logo.Alpha()[y * 12 + x]}), (std::array{77, 255 - v, v, x * 60 % 256}))
      << "blue, green, red, alpha";
  EXPECT_EQ((std::array<int, 2>{logo.Pixels()[(y * 12 + 11) * 3], logo.Alpha()[y * 12 + 10]}), (std::array{0, 0}))
      << "padding columns are black and clear";

  MakePng(dir.File("grey.png"), "L", 5, 3);
  ASSERT_EQ(logo.Load(dir.File("grey.png").c_str()), 1);
  const std::uint8_t* g = logo.Pixels() + (1 * 8 + 2) * 3;
  EXPECT_EQ((std::array<int, 5>{int(logo.Width()), logo.Alpha() == nullptr, g[0], g[1], g[2]}), (std::array{8, 1, 85, 85, 85}))
      << "grey as three equal channels, no alpha";
}

TEST(LogoImage, DamagedImagesAreRefused) {
  test::TempDir dir;
  MakePng(dir.File("good.png"), "RGBA", 40, 30);
  const std::string good = test::ReadFile(dir.path() / "good.png");
  LogoImage logo;
  for (const std::string& bytes : {std::string("\x89PNG\r\n\x1a\n garbage"), good.substr(0, good.size() / 2),
                                   good.substr(0, 40), std::string()}) {
    test::WriteFile(dir.path() / "bad.png", bytes);
    EXPECT_EQ(logo.Load(dir.File("bad.png").c_str()), 0) << bytes.size();
    EXPECT_FALSE(logo.IsLoaded());
  }
  EXPECT_EQ(logo.Load(dir.File("none.png").c_str()), 0);
  logo.Free();  // freeing an empty logo twice is harmless
  logo.Free();
}

TEST(LogoImage, DrawnAtItsScaleAndTransparency) {
  EXPECT_EQ((std::array{LogoScalePercent(0), LogoScalePercent(6), LogoScalePercent(16), LogoScalePercent(17)}),
            (std::array{250, 100, 5, 100}));
  std::vector<std::uint8_t> logo(8 * 8 * 3, 200);
  // At 100 percent the logo goes through the blend unscaled.
  std::vector<std::uint16_t> a(40 * 30, 100), b(40 * 30, 100);
  const ConstImageView logoView = PackedView(logo.data(), 8, 8, 24);
  auto grey12 = [](std::vector<std::uint16_t>& f) {
    return PackedView(reinterpret_cast<std::uint8_t*>(f.data()), 40, 30, 12);
  };
  DrawLogo(grey12(a), logoView, nullptr, kTopRight, 100, 4, 3);
  BlendBitmap(grey12(b), kTopRight, false, 3, 0, 4, logoView, nullptr);
  EXPECT_EQ(a, b);
  // At 50 percent: 4 columns, and 4 rows (rounded up to a multiple of 4).
  std::vector<std::uint8_t> frame(40 * 30, 0);
  DrawLogo(PackedView(frame.data(), 40, 30, 8), logoView, nullptr, kTopLeft, 50, 0, 0);
  int touched = 0, outside = 0;
  for (int i = 0; i < 40 * 30; ++i)
    if (frame[i]) ++touched, outside += i % 40 > 3 || i / 40 > 3;
  EXPECT_EQ((std::array{touched, outside}), (std::array{16, 0}));
  // A logo far larger than the frame is clipped, never written outside.
  std::vector<std::uint8_t> big(400 * 400 * 3, 255), small(20 * 10 + 64, 0x33);
  DrawLogo(PackedView(small.data() + 32, 20, 10, 8), PackedView(big.data(), 400, 400, 24), nullptr, kCentre, 250, 0, 0);
  for (int i = 0; i < 32; ++i) ASSERT_TRUE(small[i] == 0x33 && small[32 + 200 + i] == 0x33) << i;
}

}  // namespace
}  // namespace tarnvel
