// Images from outside (logos of other programs, damaged and hostile files) load
// with the right pixels or fail with a result, never out of bounds.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cstring>
#include <random>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

// Loads with a guard zone behind the buffer; fails the test if the guard is touched.
int LoadGuarded(const std::string& path, std::uint32_t rowLength, std::uint32_t rows, std::vector<std::uint8_t>& out) {
  constexpr std::size_t kGuard = 4096;
  std::vector<std::uint8_t> buffer(std::size_t{rowLength} * rows + kGuard, 0xCD);
  const int result = LoadImage(path.c_str(), 0, rowLength, rows, buffer.data(), 0);
  for (std::size_t i = buffer.size() - kGuard; i < buffer.size(); ++i)
    if (buffer[i] != 0xCD) {
      ADD_FAILURE() << path << ": written past the buffer at " << i;
      break;
    }
  buffer.resize(buffer.size() - kGuard);
  out = std::move(buffer);
  return result;
}

// Pillow makes logos of the kinds users bring: alpha, palettes, run-length TGA.
TEST(LogoImages, OtherProgramsImagesLoadWithTheirAlphaPlane) {
  test::TempDir dir;
  const std::string d = dir.path().string();
  std::string out;
  ASSERT_EQ(test::RunPython(
                "import numpy as np\nfrom PIL import Image\n"
                "w, h = 13, 7\n"
                "y, x = np.mgrid[0:h, 0:w]\n"
                "rgba = np.stack([x * 19 % 256, y * 37 % 256, (x * y * 5) % 256, (x + y) * 17 % 256], -1).astype(np.uint8)\n"
                "def save(name, im, **kw):\n"
                "    im.save('" + d + "/' + name, **kw)\n"
                "    a = np.array(im.convert('RGBA') if im.mode in ('RGBA', 'LA', 'P') else im)\n"
                "    open('" + d + "/' + name + '.expect', 'wb').write(a.tobytes())\n"
                "save('rgba.png', Image.fromarray(rgba, 'RGBA'))\n"
                "save('la.png', Image.fromarray(rgba[:, :, :4:3], 'LA'))\n"
                "save('rgb.bmp', Image.fromarray(rgba[:, :, :3], 'RGB'))\n"
                "save('rle.tga', Image.fromarray(rgba, 'RGBA'), compression='tga_rle')\n"
                "save('plain.tga', Image.fromarray(rgba[:, :, :3], 'RGB'))\n"
                "save('rgba.tif', Image.fromarray(rgba, 'RGBA'))\n"
                "save('grey.tif', Image.fromarray(rgba[:, :, 0], 'L'))\n"
                "p = Image.fromarray(rgba[:, :, :3], 'RGB').quantize(16)\n"
                "p.info['transparency'] = 3\n"
                "save('palette.png', p, transparency=3)\n"
                "save('palette.bmp', Image.fromarray(rgba[:, :, :3], 'RGB').quantize(16))\n",
                &out),
            0)
      << out;
  struct Logo {
    const char* name;
    std::uint32_t bits, kind, channelsInExpect;
  } const logos[] = {{"rgba.png", 24, kColorKindColorAlpha, 4}, {"la.png", 8, kColorKindGreyAlpha, 4},
                     {"rgb.bmp", 24, kColorKindColor, 3},       {"rle.tga", 24, kColorKindColorAlpha, 4},
                     {"plain.tga", 24, kColorKindColor, 3},     {"rgba.tif", 24, kColorKindColorAlpha, 4},
                     {"grey.tif", 8, kColorKindGrey, 1},        {"palette.png", 24, kColorKindColorAlpha, 4},
                     {"palette.bmp", 24, kColorKindColor, 4}};
  const std::uint32_t w = 13, h = 7;
  for (const Logo& logo : logos) {
    SCOPED_TRACE(logo.name);
    const std::string path = dir.File(logo.name);
    ImageInfo info{};
    ASSERT_EQ(GetImageInfo(path.c_str(), &info), 0);
    EXPECT_EQ(std::tuple(info.width, info.height, info.bits, info.colorKind), std::tuple(w, h, logo.bits, logo.kind));
    // As a logo is loaded: padded rows of (colour + alpha) bytes a pixel; the
    // alpha plane, unpadded, follows the colour rows.
    const bool alpha = logo.kind >= kColorKindGreyAlpha;
    const std::uint32_t colourBytes = logo.bits / 8, rowLength = (colourBytes + alpha) * ((w + 3) & ~3u);
    const std::uint32_t colourRow = rowLength - (alpha ? w : 0);
    std::vector<std::uint8_t> buffer;
    ASSERT_EQ(LoadGuarded(path, rowLength, h, buffer), 0);
    const std::string expect = test::ReadFile(path + ".expect");
    for (std::uint32_t y = 0; y < h; ++y)
      for (std::uint32_t x = 0; x < w; ++x) {
        const auto* e = reinterpret_cast<const std::uint8_t*>(expect.data()) + (y * w + x) * logo.channelsInExpect;
        const std::uint8_t* c = buffer.data() + y * colourRow + x * colourBytes;
        const std::vector<std::uint8_t> want = colourBytes == 3 ? std::vector{e[2], e[1], e[0]} : std::vector{e[0]};
        ASSERT_EQ(std::vector(c, c + colourBytes), want) << x << "," << y;
        ASSERT_TRUE(!alpha || buffer[colourRow * h + y * w + x] == e[3]) << "alpha " << x << "," << y;
      }
  }
}

// PNGs of other programs with sBIT: samples scaled to 16 bits under a shared
// sBIT are shifted back to it; an sBIT that is invalid, differs between the
// channels or describes samples of fewer than 8 bits leaves them as stored.
TEST(LogoImages, PngSignificantBitsAreHonouredOnlyWhereTheyAreConsistent) {
  test::TempDir dir;
  const std::string d = dir.path().string();
  std::string out;
  ASSERT_EQ(test::RunPython(
                "import struct, zlib\n"
                "def chunk(kind, data):\n"
                "    return struct.pack('>I', len(data)) + kind + data + struct.pack('>I', zlib.crc32(kind + data))\n"
                "def png(name, depth, colour, sbit, rows):\n"
                "    ihdr = struct.pack('>IIBBBBB', len(rows[0]), len(rows), depth, 2 if colour else 0, 0, 0, 0)\n"
                "    if colour: ihdr = struct.pack('>IIBBBBB', len(rows[0]) // 3, len(rows), depth, 2, 0, 0, 0)\n"
                "    def pack(row):\n"
                "        if depth == 16: return b''.join(struct.pack('>H', v) for v in row)\n"
                "        if depth == 8: return bytes(row)\n"
                "        return bytes((row[i] << 4) | row[i + 1] for i in range(0, len(row), 2))\n"
                "    raw = b''.join(b'\\0' + pack(r) for r in rows)\n"
                "    data = b'\\x89PNG\\r\\n\\x1a\\n' + chunk(b'IHDR', ihdr) + chunk(b'sBIT', bytes(sbit))\n"
                "    data += chunk(b'IDAT', zlib.compress(raw)) + chunk(b'IEND', b'')\n"
                "    open('" + d + "/' + name, 'wb').write(data)\n"
                "grey = [[0xFFFF, 0x8008, 0x0000, 0x1231], [0x4004, 0x0010, 0xFFF0, 0x7FF7]]\n"
                "png('grey12.png', 16, False, [12], grey)\n"
                "png('grey0.png', 16, False, [0], grey)\n"
                "png('grey17.png', 16, False, [17], grey)\n"
                "png('rgb.png', 16, True, [10, 12, 10], [[c for v in row for c in (v, v, v)] for row in grey])\n"
                "png('nibbles.png', 4, False, [3], [[15, 8, 0, 3], [1, 2, 4, 14]])\n",
                &out),
            0)
      << out;
  const std::uint16_t grey[8] = {0xFFFF, 0x8008, 0x0000, 0x1231, 0x4004, 0x0010, 0xFFF0, 0x7FF7};
  struct Case {
    const char* name;
    std::uint32_t bits, shift, samplesPerPixel;
  } const cases[] = {{"grey12.png", 12, 4, 1}, {"grey0.png", 16, 0, 1}, {"grey17.png", 16, 0, 1}, {"rgb.png", 48, 0, 3}};
  for (const Case& c : cases) {
    SCOPED_TRACE(c.name);
    ImageInfo info{};
    ASSERT_EQ(GetImageInfo(dir.File(c.name).c_str(), &info), 0);
    EXPECT_EQ(info.bits, c.bits);
    std::vector<std::uint8_t> buffer;
    ASSERT_EQ(LoadGuarded(dir.File(c.name), 4 * 2 * c.samplesPerPixel, 2, buffer), 0);
    for (std::size_t i = 0; i < 8; ++i) {
      std::uint16_t v;
      std::memcpy(&v, buffer.data() + i * 2 * c.samplesPerPixel, 2);
      EXPECT_EQ(v, grey[i] >> c.shift) << i;
    }
  }
  ImageInfo info{};
  ASSERT_EQ(GetImageInfo(dir.File("nibbles.png").c_str(), &info), 0);
  EXPECT_EQ(info.bits, 8u);
  std::vector<std::uint8_t> buffer;
  ASSERT_EQ(LoadGuarded(dir.File("nibbles.png"), 4, 2, buffer), 0);
  EXPECT_EQ(buffer, (std::vector<std::uint8_t>{255, 136, 0, 51, 17, 34, 68, 238}));
}

// Each reader, given its own files cut short, bent or lying about their size.
class DamagedImages : public ::testing::TestWithParam<const char*> {};

TEST_P(DamagedImages, FailWithAResultAndNeverCrash) {
  const std::string ext = GetParam();
  test::TempDir dir;
  const std::string good = dir.File("good." + ext);
  const test::FrameSpec spec{64, 40, ext == "jpg" || ext == "bmp" || ext == "tga" ? 24u : 16u};
  const std::uint32_t frames = ext == "mpt" || ext == "mrf" || ext == "mcf" || ext == "fba" || ext == "bld" ? 2 : 1;
  ASSERT_EQ(test::WritePatternFile(good, spec, frames), 0);
  const std::string bytes = test::ReadFile(good);
  const std::uint32_t rowLength = 64 * 6 + 64;  // room for any depth with alpha
  std::vector<std::uint8_t> buffer;
  ImageInfo info{};

  // Cut short: in the header, and in the pixels.
  for (std::size_t cut : {std::size_t{0}, std::size_t{5}, std::size_t{40}, bytes.size() / (2 * frames)}) {
    const std::string path = dir.File("cut" + std::to_string(cut) + "." + ext);
    test::WriteFile(path, bytes.substr(0, cut));
    const int infoResult = GetImageInfo(path.c_str(), &info);
    EXPECT_NE(LoadGuarded(path, rowLength, 40, buffer), 0) << "cut at " << cut;
    EXPECT_TRUE(cut >= 40 || infoResult > 0) << "cut at " << cut;
  }

  // Wrong magic (TGA has none: its header is still valid).
  const std::string wrongPath = dir.File("wrong." + ext);
  std::string wrong = bytes;
  for (int i : {0, 1}) wrong[i] = static_cast<char>(wrong[i] ^ 0x5A);
  test::WriteFile(wrongPath, wrong);
  if (ext != "tga") {
    EXPECT_EQ(GetImageInfo(wrongPath.c_str(), &info), kFkNotAnImage);
    EXPECT_NE(LoadGuarded(wrongPath, rowLength, 40, buffer), 0);
  }

  // Random damage anywhere: any result, but within bounds.
  std::mt19937 random(1234);
  for (int round = 0; round < 300; ++round) {
    std::string bent = bytes;
    for (int i = 0; i <= round % 8; ++i) bent[random() % bent.size()] = static_cast<char>(random());
    if (round % 3 == 0) bent.resize(random() % bent.size());
    const std::string path = dir.File("bent." + ext);
    test::WriteFile(path, bent);
    if (GetImageInfo(path.c_str(), &info) == 0 && std::uint64_t{info.width} * 7 <= rowLength &&
        info.height <= 4096) {
      LoadGuarded(path, rowLength, info.height, buffer);
    }
  }
}

INSTANTIATE_TEST_SUITE_P(AllReaders, DamagedImages,
                         ::testing::Values("png", "jpg", "tif", "bmp", "tga", "dpx", "mpt", "dng", "mrf", "mcf",
                                           "fba", "bld"));

void PutLE32(std::string& s, std::size_t at, std::uint32_t v) { std::memcpy(&s[at], &v, 4); }
void PutBE32(std::string& s, std::size_t at, std::uint32_t v) {
  for (int i = 0; i < 4; ++i) s[at + i] = static_cast<char>(v >> (24 - 8 * i));
}

TEST(HostileImages, HugeDimensionsAreRefusedBeforeAnyAllocation) {
  test::TempDir dir;
  const test::FrameSpec spec{16, 16, 8};
  std::vector<std::uint8_t> buffer;
  ImageInfo info{};
  struct Patch {
    const char* ext;
    void (*apply)(std::string&);
    bool headerReadable;  // the damage lies behind the header
  } const patches[] = {
      {"bmp", [](std::string& s) { PutLE32(s, 18, 0x7FFFFFFF); PutLE32(s, 22, 0x7FFFFFFF); }, false},
      {"bmp", [](std::string& s) { PutLE32(s, 22, 0x80000000u); }, false},
      {"tga", [](std::string& s) { s[12] = s[13] = s[14] = s[15] = '\xFF'; }, false},
      {"dpx", [](std::string& s) { PutBE32(s, 772, 0xFFFFFFFF); PutBE32(s, 776, 0xFFFFFFFF); }, false},
      {"dpx", [](std::string& s) { PutBE32(s, 808, 0xFFFFFFF0); }, false},
      {"mrf", [](std::string& s) { PutLE32(s, 20, 0x10000000); PutLE32(s, 24, 0x10000000); }, false},
      // A compressed record that claims 4 GiB: the file holds no whole frame.
      {"mcf", [](std::string& s) { PutLE32(s, 64, 0xFFFFFFF0); }, true},
      {"png", [](std::string& s) { PutBE32(s, 16, 0x7FFFFFFF); PutBE32(s, 20, 0x7FFFFFFF); }, false},
  };
  int n = 0;
  for (const Patch& patch : patches) {
    const std::string path = dir.File("huge" + std::to_string(n++) + "." + patch.ext);
    ASSERT_EQ(test::WritePatternFile(path, spec, 1), 0);
    std::string bytes = test::ReadFile(path);
    patch.apply(bytes);
    test::WriteFile(path, bytes);
    EXPECT_EQ(GetImageInfo(path.c_str(), &info) == 0, patch.headerReadable) << path;
    EXPECT_NE(LoadGuarded(path, 16, 16, buffer), 0) << path;
  }
  // A container that claims four billion frames holds the one it has.
  const std::string many = dir.File("many.mrf");
  ASSERT_EQ(test::WritePatternFile(many, spec, 1), 0);
  std::string bytes = test::ReadFile(many);
  PutLE32(bytes, 44, 0xFFFFFFFF);
  test::WriteFile(many, bytes);
  int result = 0;
  auto file = framekit::OpenImageFile(many, &result);
  ASSERT_TRUE(file);
  EXPECT_EQ(file->Info().frameCount, 1u);

  // A TIFF that claims 2^31 by 2^31 pixels.
  const std::string tiff = dir.File("huge.tif");
  ASSERT_EQ(test::RunPython("import struct\n"
                            "ifd = [(256, 4, 1, 0x7FFFFFFF), (257, 4, 1, 0x7FFFFFFF), (258, 3, 1, 8), (259, 3, 1, 1),"
                            " (262, 3, 1, 1), (273, 4, 1, 8), (277, 3, 1, 1), (278, 4, 1, 1), (279, 4, 1, 1)]\n"
                            "b = b'II*\\x00' + struct.pack('<I', 16) + b'\\x00' * 8 + struct.pack('<H', len(ifd))\n"
                            "for t, ty, c, v in ifd: b += struct.pack('<HHII', t, ty, c, v)\n"
                            "b += b'\\x00' * 4\nopen('" + tiff + "', 'wb').write(b)\n",
                            nullptr),
            0);
  EXPECT_GT(GetImageInfo(tiff.c_str(), &info), 0);
  EXPECT_NE(LoadGuarded(tiff, 16, 16, buffer), 0);
}

// Bad paths and buffers; an unpadded row length gives a tight buffer, fewer rows only those.
TEST(HostileImages, BadPathsAndBuffersFail) {
  test::TempDir dir;
  ImageInfo info{};
  std::vector<std::uint8_t> buffer(64);
  EXPECT_EQ(GetImageInfo(dir.File("missing.png").c_str(), &info), kFkReadFailed);
  EXPECT_NE(GetImageInfo(dir.path().string().c_str(), &info), 0);
  test::WriteFile(dir.File("empty.png"), "");
  EXPECT_GT(GetImageInfo(dir.File("empty.png").c_str(), &info), 0);
  test::WriteFile(dir.File("text.png"), "this is not an image at all");
  EXPECT_EQ(GetImageInfo(dir.File("text.png").c_str(), &info), kFkNotAnImage);
  EXPECT_EQ(LoadImage(dir.File("text.png").c_str(), 0, 8, 8, buffer.data(), 0), kFkNotAnImage);
  EXPECT_EQ(GetImageInfo(nullptr, &info), kFkBadArgument);
  EXPECT_EQ(LoadImage(dir.File("text.png").c_str(), 0, 8, 8, nullptr, 0), kFkBadArgument);
  const std::string path = dir.File("tight.png");
  const test::FrameSpec spec{13, 5, 16};
  ASSERT_EQ(test::WritePatternFile(path, spec, 1), 0);
  ASSERT_EQ(LoadGuarded(path, 13 * 2, 5, buffer), 0);
  EXPECT_TRUE(buffer == test::PatternFrame(spec, 0));
  EXPECT_EQ(LoadImage(path.c_str(), 0, 13 * 2 - 1, 5, buffer.data(), 0), kFkBadArgument) << "rows too short";
  ASSERT_EQ(LoadGuarded(path, 13 * 2, 2, buffer), 0) << "fewer rows than the image: only those";
}

}  // namespace
}  // namespace tarnvel
