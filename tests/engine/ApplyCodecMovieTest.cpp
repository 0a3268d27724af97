// The engine's codec settings reach the movie writers: what ApplyCodec hands
// over decides the compressor that ffprobe then finds in the file.
#include <gtest/gtest.h>

#include <cstring>
#include <optional>
#include <tuple>
#include <string>
#include <vector>

#include "engine/ImageSink.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
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

}  // namespace
}  // namespace tarnvel
