// Movies checked with FFmpeg's own tools: ffprobe for container, codec, frame
// count, rate and geometry, ffmpeg decoding frames back to raw pixels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <cstdio>
#include <filesystem>
#include <map>
#include <sstream>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
#include "tests/platform/framekit/FrameKitTestSupport.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using framekit::FourCc;

// A smooth picture that moves from frame to frame, so that lossy codecs keep
// it close and the first and last frames differ clearly.
std::vector<std::uint8_t> Picture(std::uint32_t width, std::uint32_t height, bool colour, std::uint32_t frame) {
  auto triangle = [](std::uint32_t t) { return static_cast<std::uint8_t>(t % 512 < 256 ? t % 512 : 511 - t % 512); };
  std::vector<std::uint8_t> pixels;
  for (std::uint32_t y = 0; y < height; ++y)
    for (std::uint32_t x = 0; x < width; ++x)
      if (colour) {  // blue, green, red
        for (const std::uint32_t v : {x * 2 + frame * 41, y * 2 + frame * 23, x + y + frame * 67 + 99})
          pixels.push_back(triangle(v));
      } else {
        pixels.push_back(triangle(x * 2 + y + frame * 41));
      }
  return pixels;
}

struct Movie {
  std::uint32_t width = 64, height = 48;
  bool colour = false;
  float rate = 25.0f;
  std::uint32_t frames = 12;
};

FrameHeader Header(const Movie& movie) {
  FrameHeader header = test::MakeHeader({movie.width, movie.height, movie.colour ? 24u : 8u, false, 0, movie.rate});
  header.marker = 1;
  return header;
}

// Writes the movie, closing it after `stopAfter` frames; returns the first failing result or 0.
int WriteMovie(const std::string& path, const Movie& movie, std::uint32_t stopAfter = ~0u) {
  FrameHandle handle = nullptr;
  if (const int opened = OpenOutput(path.c_str(), 1, &handle); opened != 0) return opened;
  const FrameHeader header = Header(movie);
  int result = 0;
  for (std::uint32_t i = 0; i < movie.frames && i < stopAfter && result == 0; ++i)
    result = WriteFrame(handle, i, movie.frames, &header, nullptr,
                        Picture(movie.width, movie.height, movie.colour, i).data());
  const int closed = CloseOutput(handle);
  return result != 0 ? result : closed;
}

std::map<std::string, std::string> Probe(const std::string& path) {
  std::string output;
  std::map<std::string, std::string> fields;
  if (test::RunCommand("ffprobe -v error -count_frames -select_streams v:0 -show_entries "
                       "stream=codec_name,width,height,r_frame_rate,nb_read_frames:format=format_name "
                       "-of default=noprint_wrappers=1 '" + path + "'", &output) != 0)
    return fields;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);)
    if (const auto eq = line.find('='); eq != std::string::npos) fields[line.substr(0, eq)] = line.substr(eq + 1);
  return fields;
}

// Frame n of the movie, decoded by ffmpeg to grey or blue-green-red bytes.
std::vector<std::uint8_t> Decode(const std::string& path, std::uint32_t n, bool colour) {
  const std::string raw = path + ".frame.raw";
  std::filesystem::remove(raw);
  const std::string format = colour ? "bgr24" : "gray";
  if (test::RunCommand("ffmpeg -nostdin -v error -i '" + path + "' -vf 'select=eq(n\\," + std::to_string(n) +
                       ")' -frames:v 1 -f rawvideo -pix_fmt " + format + " -y '" + raw + "'") != 0 ||
      !std::filesystem::exists(raw))
    return {};
  const std::string bytes = test::ReadFile(raw);
  return {bytes.begin(), bytes.end()};
}

double MeanDifference(const std::vector<std::uint8_t>& a, const std::vector<std::uint8_t>& b) {
  if (a.size() != b.size() || a.empty()) return 1e9;
  double sum = 0;
  for (std::size_t i = 0; i < a.size(); ++i) sum += std::abs(int(a[i]) - int(b[i]));
  return sum / static_cast<double>(a.size());
}

void SetHandler(int type, std::uint32_t handler, std::uint32_t quality = 0) {
  FrameOptions options;
  options.handler = handler;
  options.quality = quality;
  ASSERT_EQ(SetOptions(type, &options), 0);
}

// Back to the types' default compressors, as other tests expect them.
void ResetHandlers() {
  SetHandler(13, 0, 9000);
  SetHandler(16, 0);
  SetHandler(20, 0);
}

// Every compressor family of every movie type, in grey and in colour.
TEST(Movies, EveryCompressorWritesAMovieThatFfmpegReadsBack) {
  const char* const kMp4 = "mov,mp4,m4a,3gp,3g2,mj2";
  struct Case {
    const char* extension;
    int optionsType;
    std::uint32_t handler;
    const char *formatName, *codecName;  // as ffprobe names container and codec
    bool lossless;
  };
  const Case cases[] = {
      {"avi", 13, FourCc("MJPG"), "avi", "mjpeg", false},  {"avi", 13, FourCc("DIB "), "avi", "rawvideo", true},
      {"avi", 13, FourCc("FFV1"), "avi", "ffv1", true},    {"avi", 13, FourCc("X264"), "avi", "h264", false},
      {"mpg", 16, FourCc("MPG2"), "mpeg", "mpeg2video", false}, {"mpg", 16, FourCc("MPG1"), "mpeg", "mpeg1video", false},
      {"mp4", 16, FourCc("H264"), kMp4, "h264", false},    {"mov", 20, FourCc("MJPG"), kMp4, "mjpeg", false},
      {"mov", 20, FourCc("APCN"), kMp4, "prores", false},  {"wmv", 17, FourCc("WMV2"), "asf", "wmv2", false},
  };
  test::TempDir dir;
  for (const Case& c : cases)
    for (const bool colour : {false, true}) {
      SCOPED_TRACE(std::string(c.extension) + " " + c.codecName + (colour ? " colour" : " grey"));
      SetHandler(c.optionsType, c.handler, 9500);
      const Movie movie{64, 48, colour};
      const std::string path = dir.File(std::string("m-") + c.codecName + (colour ? "-c." : "-g.") + c.extension);
      ASSERT_EQ(WriteMovie(path, movie), 0);
      auto probe = Probe(path);
      EXPECT_EQ(probe["format_name"] + " " + probe["codec_name"], std::string(c.formatName) + " " + c.codecName);
      EXPECT_EQ(probe["width"] + "x" + probe["height"] + " " + probe["r_frame_rate"], "64x48 25/1");
      EXPECT_EQ(probe["nb_read_frames"], std::to_string(movie.frames));
      for (const std::uint32_t n : {0u, movie.frames - 1}) {
        const auto written = Picture(movie.width, movie.height, colour, n);
        const auto decoded = Decode(path, n, colour);
        ASSERT_EQ(decoded.size(), written.size()) << "frame " << n;
        if (c.lossless) {
          EXPECT_EQ(decoded, written) << "frame " << n;
          continue;
        }
        const double error = MeanDifference(decoded, written);
        EXPECT_LT(error, 5.0) << "frame " << n;
        const auto other = Picture(movie.width, movie.height, colour, n == 0 ? movie.frames - 1 : 0);
        EXPECT_GT(MeanDifference(decoded, other), 4 * error + 10) << "frame " << n << " is itself";
      }
    }
  ResetHandlers();
}

TEST(Movies, DefaultCompressorsAndRatesFollowTheTypesAndHeader) {
  test::TempDir dir;
  ResetHandlers();  // handler 0: the type's default compressor
  const std::pair<const char*, const char*> defaults[] = {
      {"avi", "mjpeg"}, {"mpg", "mpeg2video"}, {"mp4", "h264"}, {"mov", "h264"}, {"wmv", "wmv2"}};
  const Movie ntsc{64, 48, false, 30000.0f / 1001.0f, 5};
  for (const auto& [extension, codec] : defaults) {
    SCOPED_TRACE(extension);
    const std::string path = dir.File(std::string("default.") + extension);
    ASSERT_EQ(WriteMovie(path, ntsc), 0);
    auto probe = Probe(path);
    EXPECT_EQ(probe["codec_name"] + " " + probe["nb_read_frames"], std::string(codec) + " 5");
    int num = 0, den = 1;
    ASSERT_EQ(std::sscanf(probe["r_frame_rate"].c_str(), "%d/%d", &num, &den), 2);
    if (std::string(extension) == "wmv") {
      EXPECT_NEAR(double(num) / den, 30000.0 / 1001.0, 0.03) << "ASF keeps times in milliseconds";
    } else {
      EXPECT_EQ(probe["r_frame_rate"], "30000/1001");
    }
  }
  // MP4 takes its compressor from the MPEG options, as the converter sets them.
  SetHandler(16, FourCc("MPG2"));
  ASSERT_EQ(WriteMovie(dir.File("mpeg2.mp4"), Movie{}), 0);
  EXPECT_EQ(Probe(dir.File("mpeg2.mp4"))["codec_name"], "mpeg2video");
  SetHandler(16, 0);
  // A rate that is not a positive number plays at 25; odd rates are kept;
  // MPEG-1/2 code at most 240 frames per second and play faster rates at 240.
  const std::tuple<const char*, float, const char*> rates[] = {
      {"mp4", 0.0f, "25/1"}, {"mp4", std::nanf(""), "25/1"}, {"mp4", 12.5f, "25/2"}, {"mp4", 1000.0f, "1000/1"},
      {"mpg", 1000.0f, "240/1"}};
  for (const auto& [extension, rate, expected] : rates) {
    const Movie movie{64, 48, false, rate, 4};
    const std::string path = dir.File(std::string("rate.") + extension);
    ASSERT_EQ(WriteMovie(path, movie), 0) << extension << " " << rate;
    EXPECT_EQ(Probe(path)["r_frame_rate"], expected) << extension << " " << rate;
  }
}

TEST(Movies, QualityMovesTheEncoderMonotonically) {
  test::TempDir dir;
  const Movie movie{160, 120};
  for (const std::uint32_t handler : {FourCc("MJPG"), FourCc("H264")}) {
    double lastError = 1e9;
    std::uintmax_t lastSize = 0;
    for (const std::uint32_t quality : {1u, 5000u, 10000u}) {
      SetHandler(13, handler, quality);
      const std::string path = dir.File("q" + std::to_string(quality) + ".avi");
      ASSERT_EQ(WriteMovie(path, movie), 0);
      const double error = MeanDifference(Decode(path, 5, false), Picture(movie.width, movie.height, false, 5));
      const auto size = std::filesystem::file_size(path);
      EXPECT_LE(error, lastError + 0.05) << handler << " quality " << quality;
      EXPECT_GT(size, lastSize) << handler << " quality " << quality;
      lastError = error;
      lastSize = size;
    }
    EXPECT_LT(lastError, 1.5) << "the best quality is close";
  }
  ResetHandlers();
}

TEST(Movies, OddSizesArePaddedForHalfResolutionColourAndKeptOtherwise) {
  test::TempDir dir;
  Movie movie{65, 49, false, 25.0f, 3};
  SetHandler(20, FourCc("H264"));
  ASSERT_EQ(WriteMovie(dir.File("odd.mov"), movie), 0);
  auto probe = Probe(dir.File("odd.mov"));
  EXPECT_EQ(probe["width"] + "x" + probe["height"], "66x50");
  // The added column repeats the last one.
  const auto decoded = Decode(dir.File("odd.mov"), 0, false);
  ASSERT_EQ(decoded.size(), 66u * 50u);
  const auto written = Picture(65, 49, false, 0);
  double edge = 0;
  for (std::uint32_t y = 0; y < 49; ++y) edge += std::abs(int(decoded[y * 66 + 65]) - int(written[y * 65 + 64]));
  EXPECT_LT(edge / 49, 6.0);
  SetHandler(13, FourCc("FFV1"));
  ASSERT_EQ(WriteMovie(dir.File("odd.avi"), movie), 0);
  EXPECT_EQ(Probe(dir.File("odd.avi"))["width"], "65");
  EXPECT_EQ(Decode(dir.File("odd.avi"), 2, false), Picture(65, 49, false, 2));
  movie.width = movie.height = 1;  // the smallest frame still makes a movie
  ASSERT_EQ(WriteMovie(dir.File("one.mov"), movie), 0);
  EXPECT_EQ(Probe(dir.File("one.mov"))["nb_read_frames"], "3");
  ResetHandlers();
}

// MP4's list names the MPEG compressors; a refused compressor leaves the earlier one.
TEST(Movies, CodecListsNameRealEncodersAndRefuseOthers) {
  std::vector<CodecEntry> entries(64);
  std::uint32_t count = 64;
  ASSERT_EQ(ListCodecs(18, entries.data(), &count), 0);
  std::vector<std::uint32_t> handlers;
  for (std::uint32_t i = 0; i < count; ++i) handlers.push_back(entries[i].handler);
  EXPECT_THAT(handlers, ::testing::IsSupersetOf({FourCc("H264"), FourCc("MPG1"), FourCc("MPG2")}));
  SetHandler(20, FourCc("MJPG"));
  FrameOptions options;
  options.handler = FourCc("MPG1");
  EXPECT_EQ(SetOptions(20, &options), kFkBadArgument);
  ASSERT_EQ(GetOptions(20, &options), 0);
  EXPECT_EQ(options.handler, FourCc("MJPG")) << "the earlier setting stays";
  ResetHandlers();
}

TEST(Movies, AMovieCutShortStillPlays) {
  test::TempDir dir;
  Movie movie{64, 48, false, 25.0f, 40};
  // Closed before its last frame (an abort): the frames written play.
  for (const char* extension : {"avi", "mpg", "mp4", "mov", "wmv"}) {
    const std::string path = dir.File(std::string("abort.") + extension);
    ASSERT_EQ(WriteMovie(path, movie, 17), 0) << extension;
    EXPECT_EQ(Probe(path)["nb_read_frames"], "17") << extension;
  }
  // A disk that fills up: a positive result, and the file plays up to the frames
  // that reached it (MP4 and QuickTime: to the last whole fragment).
  SetHandler(20, FourCc("MJPG"));
  SetHandler(13, FourCc("MJPG"), 9000);
  movie.frames = 100;
  for (const char* extension : {"avi", "mpg", "mp4", "mov"}) {
    const std::string whole = dir.File(std::string("whole.") + extension), path = dir.File(std::string("full.") + extension);
    ASSERT_EQ(WriteMovie(whole, movie), 0);
    EXPECT_EQ(test::WriteWithSizeLimit(std::filesystem::file_size(whole) / 2, [&] { return WriteMovie(path, movie); }),
              kFkWriteFailed) << extension;
    const int played = std::stoi("0" + Probe(path)["nb_read_frames"]);
    EXPECT_TRUE(played >= 5 && played < 100) << extension << " plays " << played;
  }
  ResetHandlers();
}

// Uncreatable paths and a full device: in WriteFailureTest, for every type.
TEST(Movies, BadCallsAndAVanishedFolderFailClearly) {
  test::TempDir dir;
  std::filesystem::create_directory(dir.path() / "gone");
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("gone/movie.mp4").c_str(), 1, &handle), 0);
  const FrameHeader header = Header(Movie{32, 32});
  FrameHeader wider = header, deep = header;
  wider.width = 48;
  deep.bits = 12;
  const auto pixels = Picture(48, 32, false, 0);
  EXPECT_EQ(WriteFrame(handle, 0, 4, &header, nullptr, pixels.data()), 0);
  // Another geometry inside one movie is refused; deep frames do not fit a movie.
  EXPECT_EQ(WriteFrame(handle, 1, 4, &wider, nullptr, pixels.data()), kFkBadArgument);
  EXPECT_EQ(WriteFrame(handle, 1, 4, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(WriteFrame(handle, 1, 4, &header, nullptr, pixels.data()), 0);
  std::filesystem::remove_all(dir.path() / "gone");
  EXPECT_EQ(WriteFrame(handle, 2, 4, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 3, 4, &header, nullptr, pixels.data()), kFkWriteFailed) << "the file is gone";
  EXPECT_EQ(WriteFrame(handle, 3, 4, &header, nullptr, pixels.data()), kFkFrameAfterEnd);
  EXPECT_EQ(CloseOutput(handle), 0);
}

}  // namespace
}  // namespace tarnvel
