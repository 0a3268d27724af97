// Written files opened by the standard tools of the field (tiffinfo, Pillow,
// dcraw, FFmpeg, ImageMagick, pngcheck, exiftool, pypng), pixels compared
// where the tool keeps them exact.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <limits>
#include <sstream>
#include <vector>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/ImageReader.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::FrameSpec;

// Writes one pattern file and its raw pixels beside it (path + ".raw").
std::string WriteWithRaw(const test::TempDir& dir, const std::string& name, const FrameSpec& spec,
                         std::uint32_t frames = 1) {
  const std::string path = dir.File(name);
  EXPECT_EQ(test::WritePatternFile(path, spec, frames), 0) << name;
  const auto pixels = test::PatternFrame(spec, frames - 1);
  test::WriteFile(path + ".raw", std::string(pixels.begin(), pixels.end()));
  return path;
}

TEST(StandardReaders, TiffinfoOpensEveryTiffDngAndMultipageFile) {
  test::TempDir dir;
  for (std::uint32_t bits : {8u, 12u, 48u})
    for (const std::string ext : {"tif", "dng", "mpt"}) {
      const std::uint32_t pages = ext == "mpt" ? 3 : 1;
      const std::string path = WriteWithRaw(dir, "t" + std::to_string(bits) + "." + ext, {37, 23, bits}, pages);
      std::string out, count;
      ASSERT_EQ(test::RunCommand("tiffinfo " + path, &out), 0) << path << out;
      EXPECT_THAT(out, ::testing::HasSubstr("Image Width: 37 Image Length: 23")) << path;
      EXPECT_THAT(out, ::testing::Not(::testing::HasSubstr("Error"))) << path << out;
      ASSERT_EQ(test::RunCommand("tiffinfo " + path + " | grep -c 'TIFF Directory'", &count), 0);
      EXPECT_EQ(std::stoul(count), pages) << path;
      if (bits == 12 && ext == "tif") {
        EXPECT_THAT(out, ::testing::HasSubstr("Max Sample Value: 4095"));
      }
    }
}

// Pillow opens the TIFF, PNG, JPEG, BMP and TGA the library writes; where it keeps
// the values (8-bit grey and colour, 16-bit grey) they must be ours. Our JPEG
// reader decodes a smooth picture as Pillow does.
TEST(StandardReaders, PillowOpensAndAgreesPixelForPixel) {
  test::TempDir dir;
  const std::tuple<const char*, std::uint32_t, bool> items[] = {
      {"tif", 12, true}, {"tif", 24, true}, {"png", 16, true}, {"png", 48, false}, {"bmp", 8, true},
      {"tga", 24, true}, {"jpg", 8, false}, {"mpt", 16, true}};
  std::string script =
      "import sys, numpy as np\nfrom PIL import Image\nbad = 0\n"
      "def check(path, w, h, bits, exact):\n"
      "    global bad\n"
      "    im = Image.open(path); im.load()\n"
      "    if im.size != (w, h): print('size', path, im.size); bad += 1; return\n"
      "    if not exact: return\n"
      "    raw = open(path + '.raw', 'rb').read()\n"
      "    if bits <= 8: want = np.frombuffer(raw, np.uint8).reshape(h, w)\n"
      "    elif bits <= 16: want = np.frombuffer(raw, '<u2').reshape(h, w)\n"
      "    else: want = np.frombuffer(raw, np.uint8).reshape(h, w, 3)[:, :, ::-1]\n"
      "    got = np.array(im)\n"
      "    if got.shape != want.shape or not (got.astype(np.int64) == want.astype(np.int64)).all():\n"
      "        print('pixels differ', path, im.mode, got.shape, want.shape); bad += 1\n";
  for (const auto& [ext, bits, exact] : items) {
    const std::string path = WriteWithRaw(dir, "p" + std::to_string(bits) + "." + ext, {37, 23, bits});
    script += "check('" + path + "', 37, 23, " + std::to_string(bits) + ", " + (exact ? "True" : "False") + ")\n";
  }
  // The smooth JPEG: our decoding beside the file, compared within one level.
  const std::string jpeg = dir.File("smooth.jpg");
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(jpeg.c_str(), 1, &handle), 0);
  const FrameHeader header = test::MakeHeader({64, 48, 24});
  std::vector<std::uint8_t> pixels(64 * 48 * 3), ours(pixels.size());
  for (std::size_t i = 0; i < pixels.size(); ++i)
    pixels[i] = static_cast<std::uint8_t>((i / 3 % 64) + (i / (64 * 3)) * 2 + (i % 3) * 30);
  ASSERT_EQ(WriteFrame(handle, 0, 1, &header, nullptr, pixels.data()), 0);
  ASSERT_EQ(CloseOutput(handle), 0);
  ASSERT_EQ(LoadImage(jpeg.c_str(), 0, 64 * 3, 48, ours.data(), 0), 0);
  int worst = 0;
  for (std::size_t i = 0; i < pixels.size(); ++i) worst = std::max(worst, std::abs(ours[i] - pixels[i]));
  EXPECT_LE(worst, 12) << "quality 90 keeps a smooth picture close";
  test::WriteFile(jpeg + ".ours", std::string(ours.begin(), ours.end()));
  script += "a = np.array(Image.open('" + jpeg + "').convert('RGB'))[:, :, ::-1].astype(int)\n"
            "b = np.frombuffer(open('" + jpeg + ".ours', 'rb').read(), np.uint8).reshape(48, 64, 3)\n"
            "if abs(a - b).max() > 1: print('jpeg differs', abs(a - b).max()); bad += 1\n"
            "print('bad', bad)\nsys.exit(1 if bad else 0)\n";
  std::string out;
  EXPECT_EQ(test::RunPython(script, &out), 0) << out;
  EXPECT_THAT(out, ::testing::HasSubstr("bad 0"));
}

// Every depth of every still type, with its block, opened by ImageMagick;
// pngcheck passes every PNG and exiftool finds nothing wrong with the TIFF
// files beyond the private block tag (which it knows as another maker's
// "SerialNumber" and calls non-standard).
TEST(StandardReaders, ImageMagickPngcheckAndExiftoolAcceptEveryFile) {
  test::TempDir dir;
  const std::pair<const char*, std::vector<std::uint32_t>> types[] = {
      {"bmp", {5, 8, 18, 24}},          {"tga", {8, 24}},  {"jpg", {8, 24}},
      {"png", {5, 8, 12, 16, 21, 24, 36, 48}}, {"tif", {1, 8, 12, 16, 24, 36, 48}},
      {"dpx", {8, 10, 12, 16, 24, 30, 48}},    {"mpt", {8, 12, 48}}, {"dng", {8, 12, 48}}};
  std::string pngs, tiffs;
  for (const auto& [ext, depths] : types)
    for (const std::uint32_t bits : depths) {
      const std::string name = "i" + std::to_string(bits) + "." + ext;
      const std::uint32_t pages = std::string(ext) == "mpt" ? 2 : 1;
      const std::string path = WriteWithRaw(dir, name, {37, 23, bits}, pages);
      if (std::string(ext) == "png") pngs += " " + path;
      if (std::string(ext) == "tif" || std::string(ext) == "mpt" || std::string(ext) == "dng") tiffs += " " + path;
      if (std::string(ext) == "dng") continue;  // ImageMagick hands DNG to a raw delegate not installed here
      std::string out;
      EXPECT_EQ(test::RunCommand("identify " + path, &out), 0) << out;
      EXPECT_THAT(out, ::testing::Not(::testing::ContainsRegex("[Ee]rror"))) << out;
      for (std::uint32_t page = 0; page < pages; ++page)
        EXPECT_THAT(out, ::testing::HasSubstr(name + (pages > 1 ? "[" + std::to_string(page) + "]" : "") + " "))
            << out;
      EXPECT_THAT(out, ::testing::HasSubstr(" 37x23 ")) << out;
    }
  std::string out;
  EXPECT_EQ(test::RunCommand("pngcheck -q" + pngs, &out), 0) << out;
  out.clear();
  ASSERT_EQ(test::RunCommand("exiftool -validate -warning -error -a" + tiffs, &out), 0) << out;
  EXPECT_THAT(out, ::testing::Not(::testing::HasSubstr("Error"))) << out;
  std::istringstream lines(out);
  for (std::string line; std::getline(lines, line);) {
    if (line.rfind("Warning", 0) == 0) {
      EXPECT_THAT(line, ::testing::HasSubstr("[minor] Non-standard IFD")) << line;
    }
  }
}

// PNG depths that do not fill their samples are stored scaled by bit
// replication under sBIT: pypng reads the stored samples as that scaling
// makes them, its sBIT-aware decode gives the written values back, and so
// does our own reader.
TEST(StandardReaders, PngSignificantBitsScaleTheSamplesAndReadBackExactly) {
  test::TempDir dir;
  std::string script =
      "import png\nbad = 0\n"
      "def grow(v, s, n):\n"
      "    out, shift = 0, n - s\n"
      "    while shift > -s:\n"
      "        out |= v << shift if shift >= 0 else v >> -shift\n"
      "        shift -= s\n"
      "    return out & ((1 << n) - 1)\n"
      "def check(path, s):\n"
      "    global bad\n"
      "    raw = open(path + '.raw', 'rb').read()\n"
      "    n = 16 if s > 8 else 8\n"
      "    want = list(raw) if n == 8 else [raw[i] | raw[i + 1] << 8 for i in range(0, len(raw), 2)]\n"
      "    w, h, rows, info = png.Reader(path).read()\n"
      "    stored = [v for row in rows for v in row]\n"
      "    w, h, rows, info = png.Reader(path).asDirect()\n"
      "    direct = [v for row in rows for v in row]\n"
      "    colour = not info['greyscale']\n"
      "    if colour: want = [want[i + 2 - 2 * (i % 3)] for i in range(len(want))]\n"
      "    if info['bitdepth'] != s: print(path, 'sBIT depth', info['bitdepth']); bad += 1\n"
      "    if direct != want: print(path, 'asDirect differs'); bad += 1\n"
      "    if stored != [grow(v, s, n) for v in want]: print(path, 'samples not scaled'); bad += 1\n";
  for (const std::uint32_t bits : {1u, 5u, 7u, 10u, 12u, 15u, 21u, 30u, 36u}) {
    const std::string path = WriteWithRaw(dir, "s" + std::to_string(bits) + ".png", {37, 23, bits});
    script += "check('" + path + "', " + std::to_string(bits > 16 ? bits / 3 : bits) + ")\n";
    ImageInfo info{};
    ASSERT_EQ(GetImageInfo(path.c_str(), &info), 0);
    EXPECT_EQ(info.bits, bits);
    const std::string raw = test::ReadFile(path + ".raw");
    std::string ours(raw.size(), '\0');
    ASSERT_EQ(LoadImage(path.c_str(), 0, static_cast<std::uint32_t>(raw.size() / 23), 23, ours.data(), 0), 0);
    EXPECT_TRUE(ours == raw) << bits;
  }
  script += "print('bad', bad)\nexit(1 if bad else 0)\n";
  std::string out;
  EXPECT_EQ(test::RunPython(script, &out), 0) << out;
}

// One frame written with a capture record: what the recording tells about it.
std::string WriteCaptured(const test::TempDir& dir, const std::string& name, const CaptureInfo& capture,
                          std::uint32_t bits = 12) {
  const std::string path = dir.File(name);
  FrameHandle handle = nullptr;
  EXPECT_EQ(OpenOutput(path.c_str(), 1, &handle), 0);
  EXPECT_EQ(SetCaptureInfo(handle, &capture), 0);
  const test::FrameSpec spec{37, 23, bits};
  const auto pixels = test::PatternFrame(spec, 0);
  const auto block = test::PatternBlock(0);
  const FrameHeader header = test::MakeHeader(spec);
  EXPECT_EQ(WriteFrame(handle, 0, 1, &header, block.data(), pixels.data()), 0);
  CloseOutput(handle);
  return path;
}

CaptureInfo SampleCapture() {
  CaptureInfo capture;
  capture.timeSource = CaptureTime::kTimeCode;
  // 2024-02-29 23:59:58.654321
  capture.timeMicroseconds = 1709251198654321;
  capture.recordingRate = 2500;
  capture.exposureNs = 250000;
  capture.frameNumber = -3;
  std::strcpy(capture.model, "Fathom HS-6");
  std::strcpy(capture.serial, "11-2345-6789");
  return capture;
}

// The recording's camera, capture date and exposure reach the DNG where raw
// tools look for them (IFD0, the EXIF directory, CinemaDNG's frame rate), and
// the TIFF types carry camera and date in their baseline fields; exiftool
// still finds nothing wrong, dcraw shows the date and the shutter, and the
// block and pixels come back. A damaged record leaves the fields out.
TEST(StandardReaders, DngAndTiffCarryTheRecordingsCameraDateAndExposure) {
  test::TempDir dir;
  const std::string dng = WriteCaptured(dir, "c.dng", SampleCapture());
  const std::string tif = WriteCaptured(dir, "c.tif", SampleCapture());
  std::string out;
  ASSERT_EQ(test::RunCommand("exiftool -validate -warning -a -G1 -s -Make -Model -UniqueCameraModel "
                             "-CameraSerialNumber -DateTime -DateTimeOriginal -SubSecTimeOriginal -ExposureTime "
                             "-FrameRate -ModifyDate " + dng + " " + tif, &out), 0) << out;
  for (const char* line : {"[IFD0]          Make                            : OKN",
                           "[IFD0]          Model                           : Fathom HS-6",
                           "[IFD0]          UniqueCameraModel               : OKN Fathom HS-6",
                           "[IFD0]          CameraSerialNumber              : 11-2345-6789",
                           "[IFD0]          ModifyDate                      : 2024:02:29 23:59:58",
                           "[ExifIFD]       DateTimeOriginal                : 2024:02:29 23:59:58",
                           "[ExifIFD]       SubSecTimeOriginal              : 654321",
                           "[ExifIFD]       ExposureTime                    : 1/4000",
                           "[IFD0]          FrameRate                       : 2500"})
    EXPECT_THAT(out, ::testing::HasSubstr(line)) << out;
  const std::string tifPart = out.substr(out.find("c.tif"));
  EXPECT_THAT(tifPart, ::testing::HasSubstr("Model                           : Fathom HS-6"));
  EXPECT_THAT(tifPart, ::testing::HasSubstr("ModifyDate                      : 2024:02:29 23:59:58"));
  EXPECT_THAT(tifPart, ::testing::Not(::testing::HasSubstr("ExifIFD")));
  EXPECT_THAT(out, ::testing::ContainsRegex("c.dng\n.*Validate +: 1 Warning \\(minor\\)\n.*0xfde9"));
  EXPECT_THAT(tifPart, ::testing::ContainsRegex("Validate +: 1 Warning \\(minor\\)\n.*0xfde9"));
  out.clear();
  ASSERT_EQ(test::RunCommand("dcraw -i -v " + dng, &out), 0) << out;
  EXPECT_THAT(out, ::testing::HasSubstr("Camera: OKN Fathom HS-6"));
  EXPECT_THAT(out, ::testing::HasSubstr("Timestamp: Thu Feb 29 23:59:58 2024"));
  EXPECT_THAT(out, ::testing::HasSubstr("Shutter: 1/4000.0 sec"));
  for (const std::string& path : {dng, tif}) {
    int result = 0;
    auto file = framekit::OpenImageFile(path, &result);
    framekit::DecodedFrame frame;
    ASSERT_TRUE(file && file->ReadFrame(0, frame) == 0) << path;
    EXPECT_TRUE(frame.pixels == test::PatternFrame({37, 23, 12}, 0) && frame.metadata == test::PatternBlock(0)) << path;
  }

  CaptureInfo damaged = SampleCapture();
  damaged.timeSource = static_cast<CaptureTime>(77);
  damaged.recordingRate = std::nan("");
  damaged.exposureNs = 0;
  const std::string odd = WriteCaptured(dir, "odd.dng", damaged);
  damaged = SampleCapture();
  damaged.timeMicroseconds = std::numeric_limits<std::int64_t>::min();
  std::memset(damaged.model, 'x', sizeof damaged.model);  // no end
  const std::string far = WriteCaptured(dir, "far.dng", damaged);
  out.clear();
  ASSERT_EQ(test::RunCommand("exiftool -a -G1 -s -Model -DateTimeOriginal -ModifyDate -FrameRate -ExposureTime " +
                             odd + " " + far, &out), 0) << out;
  EXPECT_THAT(out, ::testing::Not(::testing::HasSubstr("Date"))) << out;
  EXPECT_THAT(out.substr(0, out.find("far.dng")), ::testing::Not(::testing::HasSubstr("FrameRate"))) << out;
  EXPECT_THAT(out, ::testing::HasSubstr("Model                           : " + std::string(63, 'x') + "\n")) << out;
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("size.dng").c_str(), 1, &handle), 0);
  damaged.size = 100;
  EXPECT_EQ(SetCaptureInfo(handle, &damaged), kFkBadArgument);
  EXPECT_EQ(SetCaptureInfo(nullptr, &damaged), kFkBadHandle);
  EXPECT_EQ(SetCaptureInfo(handle, nullptr), 0);
  CloseOutput(handle);
}

TEST(StandardReaders, DcrawIdentifiesDngAndReadsTheRawValues) {
  test::TempDir dir;
  for (std::uint32_t bits : {8u, 12u, 16u, 48u}) {
    const std::string path = WriteWithRaw(dir, "n" + std::to_string(bits) + ".dng", {37, 23, bits});
    std::string out;
    ASSERT_EQ(test::RunCommand("dcraw -i -v " + path, &out), 0) << out;
    EXPECT_THAT(out, ::testing::HasSubstr("Image size:    37 x 23")) << out;
    if (bits != 12 && bits != 16) continue;
    // Document mode: the stored values, unscaled, as a 16-bit big-endian PGM.
    ASSERT_EQ(test::RunPython(
                  "import subprocess, numpy as np\n"
                  "pgm = subprocess.run(['dcraw', '-D', '-4', '-c', '" + path + "'], capture_output=True).stdout\n"
                  "head = pgm.split(b'\\n', 3)\n"
                  "got = np.frombuffer(head[3], '>u2').reshape(23, 37)\n"
                  "want = np.frombuffer(open('" + path + ".raw', 'rb').read(), '<u2').reshape(23, 37)\n"
                  "print(head[:3]); exit(0 if (got == want).all() else 1)\n",
                  &out),
              0)
        << out;
  }
}

TEST(StandardReaders, FfmpegDecodesDpxToTheSameValues) {
  test::TempDir dir;
  const std::pair<std::uint32_t, const char*> depths[] = {{8, "gray"}, {10, "gray16le"}, {24, "bgr24"}, {48, "bgr48le"}};
  for (const auto& [bits, format] : depths) {
    const std::string path = WriteWithRaw(dir, "d" + std::to_string(bits) + ".dpx", {37, 23, bits});
    const std::string decoded = path + ".ffmpeg";
    std::string out;
    ASSERT_EQ(test::RunCommand("ffmpeg -v error -y -i " + path + " -f rawvideo -pix_fmt " + format + " " + decoded, &out), 0)
        << out;
    EXPECT_TRUE(test::ReadFile(decoded) == test::ReadFile(path + ".raw")) << bits;
  }
}

}  // namespace
}  // namespace tarnvel
