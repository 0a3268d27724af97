// The engine's codec settings reach the movie writers: what ApplyCodec hands
// over decides the compressor that ffprobe then finds in the file, and an
// argument file that chose no compressor and no quality gets a good movie.
#include <gtest/gtest.h>

#include <cmath>
#include <cstring>
#include <optional>
#include <tuple>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "engine/ImageSink.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using framekit::FourCc;

// The codec that ffprobe finds in a movie of three grey frames, opened with
// `options` (null: the library's options in force).
std::string CodecOfMovie(const std::string& path, const std::optional<FrameOptions>& options = std::nullopt) {
  FrameHandle handle = nullptr;
  if (OpenOutput(path.c_str(), 1, &handle, options ? &*options : nullptr) != 0) return "not opened";
  FrameHeader header;
  header.width = 32;
  header.height = 24;
  header.bits = 8;
  header.colorKind = 1;
  header.rate = 25;
  FillGreyPalette(header);
  std::vector<std::uint8_t> pixels(32 * 24, 0x80);
  for (std::uint32_t i = 0; i < 3; ++i)
    if (WriteFrame(handle, i, 3, &header, nullptr, pixels.data()) != 0) return "not written";
  CloseOutput(handle);
  std::string output;
  test::RunCommand("ffprobe -v error -select_streams v:0 -show_entries stream=codec_name -of csv=p=0 '" + path + "'",
                   &output);
  return output.substr(0, output.find_first_of(",\n"));
}

TEST(ApplyCodecToMovies, EachTypeTakesItsOwnSetting) {
  test::TempDir dir;
  CodecSettings codec{};
  codec.handler = FourCc("FFV1");
  codec.quality = 4200;
  std::strcpy(codec.name, "FFV1 (lossless)");
  codec.movCodec = FourCc("APCN");
  codec.mpgCodec = FourCc("MPG1");
  const auto avi = ApplyCodec(13, codec), mov = ApplyCodec(20, codec), mp4 = ApplyCodec(18, codec);
  // The options in force, and the options each output opens with: the same compressors.
  EXPECT_EQ(CodecOfMovie(dir.File("a.avi")), "ffv1");
  EXPECT_EQ(CodecOfMovie(dir.File("a.mov")), "prores");
  EXPECT_EQ(CodecOfMovie(dir.File("a.mp4")), "mpeg1video") << "MP4 follows the MPEG setting";
  EXPECT_EQ(CodecOfMovie(dir.File("a.mpg")), "mpeg1video");
  ASSERT_TRUE(avi && mov && mp4);
  EXPECT_EQ(CodecOfMovie(dir.File("o.avi"), avi), "ffv1");
  EXPECT_EQ(CodecOfMovie(dir.File("o.mov"), mov), "prores");
  EXPECT_EQ(CodecOfMovie(dir.File("o.mp4"), mp4), "mpeg1video");
  EXPECT_FALSE(ApplyCodec(1, codec)) << "a TIFF takes no codec settings";
  EXPECT_FALSE(ApplyCodec(8, codec)) << "nor does a type the library does not know";
  FrameOptions inForce;
  ASSERT_EQ(GetOptions(13, &inForce), 0);
  EXPECT_EQ(std::tuple(inForce.quality, avi->quality), std::tuple(4200u, 4200u));
  EXPECT_STREQ(inForce.name, "FFV1 (lossless)");
  // A compressor the library does not have leaves a working default.
  codec.handler = FourCc("cvid");
  codec.movCodec = 0;
  codec.mpgCodec = 0;
  const auto refused = ApplyCodec(13, codec), byDefault = ApplyCodec(20, codec);
  ApplyCodec(16, codec);
  EXPECT_EQ(CodecOfMovie(dir.File("r.avi"), refused), "mjpeg") << "a refused compressor: the output opens with the default";
  EXPECT_EQ(CodecOfMovie(dir.File("r.mov"), byDefault), "h264");
  EXPECT_EQ(CodecOfMovie(dir.File("b.mov")), "h264");
  EXPECT_EQ(CodecOfMovie(dir.File("b.mp4")), "h264");
  EXPECT_EQ(CodecOfMovie(dir.File("b.mpg")), "mpeg2video");
  codec.handler = 0;
  ApplyCodec(13, codec);
  EXPECT_EQ(CodecOfMovie(dir.File("b.avi")), "mjpeg");
}

// Every frame of a movie decoded by ffmpeg to grey bytes.
std::string DecodedFrames(const std::string& path) {
  const std::string raw = path + ".gray";
  test::RunCommand("ffmpeg -nostdin -v error -i '" + path + "' -f rawvideo -pix_fmt gray -y '" + raw + "'");
  return test::ReadFile(raw);
}

double Psnr(const std::string& a, const std::string& reference) {
  if (a.size() != reference.size() || a.empty()) return 0.0;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) {
    const double d = static_cast<std::uint8_t>(a[i]) - static_cast<std::uint8_t>(reference[i]);
    sum += d * d;
  }
  return sum == 0 ? 99.0 : 10.0 * std::log10(255.0 * 255.0 * static_cast<double>(a.size()) / sum);
}

// The suite writes Arg20=0 and Arg21=0 when no compressor was chosen. Such a
// conversion's AVI, and an H.264 AVI whose quality was left at 0, are within
// 1 dB of the same compressor at quality 9000, measured against a lossless
// FFV1 conversion of the same recording; quality 1 is clearly worse.
TEST(ApplyCodecToMovies, AConversionWithoutQualityGetsTheDefaultOne) {
  ASSERT_EQ(DriverInit(0), 0);
  test::TempDir dir;
  auto convert = [&](const std::string& name, std::uint32_t handler, std::uint32_t quality) {
    recgen::RecordingOptions o;
    o.folder = dir.File(name);
    o.width = 160, o.height = 120, o.frames = 12, o.preTrigger = 0;
    o.fileType = 13;
    o.baseName = "take";
    EXPECT_EQ(recgen::WriteRecording(o), "");
    const std::string args = JoinPath(o.folder, "args.ini");
    std::string text = test::ReadFile(args);
    for (const auto& [key, value] : {std::pair{std::string("Arg20="), handler}, std::pair{std::string("Arg21="), quality}})
      text.replace(text.find(key), text.find('\n', text.find(key)) - text.find(key), key + std::to_string(value) + "\r");
    test::WriteFile(args, text);
    CDecodeRaw job(args, 0, 0);
    EXPECT_EQ(job.Start(false), 0) << name << ": " << job.StatusText();
    return DecodedFrames(JoinPath(o.folder, "take.avi"));
  };
  const std::string lossless = convert("ffv1", FourCc("FFV1"), 0);
  ASSERT_EQ(lossless.size(), std::size_t{160} * 120 * 12);
  for (const std::uint32_t handler : {0u, FourCc("H264")}) {
    const double asGiven = Psnr(convert("zero" + std::to_string(handler), handler, 0), lossless);
    const double at9000 = Psnr(convert("q9000" + std::to_string(handler), handler, 9000), lossless);
    const double at1 = Psnr(convert("q1" + std::to_string(handler), handler, 1), lossless);
    EXPECT_NEAR(asGiven, at9000, 1.0) << handler;
    EXPECT_GT(asGiven, at1 + 6.0) << handler;
    EXPECT_GT(at9000, 38.0) << handler;
  }
  DriverExit();
}

}  // namespace
}  // namespace tarnvel
