// Movies written through the library, checked with FFmpeg's own tools:
// ffprobe for container, codec, frame count, rate and geometry, and ffmpeg
// decoding the first and last frame back to raw pixels.
#include <gmock/gmock.h>
#include <gtest/gtest.h>

#include <cmath>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <sstream>
#include <sys/resource.h>

#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using framekit::FourCc;

// A smooth picture that moves from frame to frame, so that lossy codecs keep
// it close and the first and last frames differ clearly.
std::uint8_t Triangle(std::uint32_t t) {
  t %= 512;
  return static_cast<std::uint8_t>(t < 256 ? t : 511 - t);
}

std::vector<std::uint8_t> Picture(std::uint32_t width, std::uint32_t height, bool colour, std::uint32_t frame) {
  std::vector<std::uint8_t> pixels(std::size_t{width} * height * (colour ? 3 : 1));
  std::size_t i = 0;
  for (std::uint32_t y = 0; y < height; ++y)
    for (std::uint32_t x = 0; x < width; ++x) {
      if (colour) {
        pixels[i++] = Triangle(x * 2 + frame * 41);       // blue
        pixels[i++] = Triangle(y * 2 + frame * 23);       // green
        pixels[i++] = Triangle(x + y + frame * 67 + 99);  // red
      } else {
        pixels[i++] = Triangle(x * 2 + y + frame * 41);
      }
    }
  return pixels;
}

FrameHeader Header(std::uint32_t width, std::uint32_t height, bool colour, float rate) {
  FrameHeader header;
  header.width = width;
  header.height = height;
  header.bits = colour ? 24 : 8;
  header.colorKind = colour ? 2 : 1;
  header.rate = rate;
  header.marker = 1;
  FillGreyPalette(header);
  return header;
}

struct Movie {
  std::uint32_t width = 64, height = 48;
  bool colour = false;
  float rate = 25.0f;
  std::uint32_t frames = 12;
};

// Writes the movie; returns the first failing result or 0.
int WriteMovie(const std::string& path, const Movie& movie, std::uint32_t stopAfter = ~0u) {
  FrameHandle handle = nullptr;
  if (const int opened = OpenOutput(path.c_str(), 1, &handle); opened != 0) return opened;
  const FrameHeader header = Header(movie.width, movie.height, movie.colour, movie.rate);
  int result = 0;
  for (std::uint32_t i = 0; i < movie.frames && i < stopAfter && result == 0; ++i) {
    const auto pixels = Picture(movie.width, movie.height, movie.colour, i);
    result = WriteFrame(handle, i, movie.frames, &header, nullptr, pixels.data());
  }
  const int closed = CloseOutput(handle);
  return result != 0 ? result : closed;
}

std::map<std::string, std::string> Probe(const std::string& path) {
  std::string output;
  const int status = test::RunCommand(
      "ffprobe -v error -count_frames -select_streams v:0 -show_entries "
      "stream=codec_name,width,height,r_frame_rate,nb_read_frames:format=format_name "
      "-of default=noprint_wrappers=1 '" + path + "'",
      &output);
  std::map<std::string, std::string> fields;
  if (status != 0) return fields;
  std::istringstream lines(output);
  for (std::string line; std::getline(lines, line);)
    if (const auto eq = line.find('='); eq != std::string::npos) fields[line.substr(0, eq)] = line.substr(eq + 1);
  return fields;
}

// Frame n of the movie, decoded by ffmpeg to grey or blue-green-red bytes.
std::vector<std::uint8_t> Decode(const std::string& path, std::uint32_t n, bool colour) {
  const std::string raw = path + ".frame.raw";
  std::filesystem::remove(raw);
  const std::string command = "ffmpeg -nostdin -v error -i '" + path + "' -vf 'select=eq(n\\," + std::to_string(n) +
                              ")' -frames:v 1 -f rawvideo -pix_fmt " + (colour ? "bgr24" : "gray") + " -y '" + raw +
                              "'";
  if (test::RunCommand(command) != 0 || !std::filesystem::exists(raw)) return {};
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

struct Case {
  const char* extension;
  int optionsType;
  std::uint32_t handler;
  const char* formatName;  // as ffprobe names the container
  const char* codecName;
  bool lossless;
};

// Every compressor of every movie type, in grey and in colour.
TEST(Movies, EveryCompressorWritesAMovieThatFfmpegReadsBack) {
  const Case cases[] = {
      {"avi", 13, FourCc("MJPG"), "avi", "mjpeg", false},
      {"avi", 13, FourCc("DIB "), "avi", "rawvideo", true},
      {"avi", 13, FourCc("FFV1"), "avi", "ffv1", true},
      {"avi", 13, FourCc("H264"), "avi", "h264", false},
      {"avi", 13, FourCc("X264"), "avi", "h264", false},
      {"mpg", 16, FourCc("MPG2"), "mpeg", "mpeg2video", false},
      {"mpg", 16, FourCc("MPG1"), "mpeg", "mpeg1video", false},
      {"mp4", 16, FourCc("H264"), "mov,mp4,m4a,3gp,3g2,mj2", "h264", false},
      {"mp4", 16, FourCc("X264"), "mov,mp4,m4a,3gp,3g2,mj2", "h264", false},
      {"mov", 20, FourCc("H264"), "mov,mp4,m4a,3gp,3g2,mj2", "h264", false},
      {"mov", 20, FourCc("MJPG"), "mov,mp4,m4a,3gp,3g2,mj2", "mjpeg", false},
      {"mov", 20, FourCc("APCN"), "mov,mp4,m4a,3gp,3g2,mj2", "prores", false},
      {"wmv", 17, FourCc("WMV2"), "asf", "wmv2", false},
  };
  test::TempDir dir;
  for (const Case& c : cases) {
    for (const bool colour : {false, true}) {
      SCOPED_TRACE(std::string(c.extension) + " " + c.codecName + (colour ? " colour" : " grey"));
      SetHandler(c.optionsType, c.handler, 9500);
      Movie movie;
      movie.colour = colour;
      const std::string path = dir.File(std::string("m-") + c.codecName + (colour ? "-c." : "-g.") + c.extension);
      ASSERT_EQ(WriteMovie(path, movie), 0);
      auto probe = Probe(path);
      EXPECT_EQ(probe["format_name"], c.formatName);
      EXPECT_EQ(probe["codec_name"], c.codecName);
      EXPECT_EQ(probe["width"], "64");
      EXPECT_EQ(probe["height"], "48");
      EXPECT_EQ(probe["r_frame_rate"], "25/1");
      EXPECT_EQ(probe["nb_read_frames"], std::to_string(movie.frames));
      for (const std::uint32_t n : {0u, movie.frames - 1}) {
        const auto written = Picture(movie.width, movie.height, colour, n);
        const auto other = Picture(movie.width, movie.height, colour, n == 0 ? movie.frames - 1 : 0);
        const auto decoded = Decode(path, n, colour);
        ASSERT_EQ(decoded.size(), written.size()) << "frame " << n;
        const double error = MeanDifference(decoded, written);
        if (c.lossless) {
          EXPECT_EQ(decoded, written) << "frame " << n;
        } else {
          EXPECT_LT(error, 5.0) << "frame " << n;
          EXPECT_GT(MeanDifference(decoded, other), 4 * error + 10) << "frame " << n << " is itself";
        }
      }
    }
  }
  SetHandler(13, 0, 9000);
  SetHandler(16, 0);
  SetHandler(20, 0);
}

TEST(Movies, RatesAndDefaultsAreThoseOfTheTypesAndHeader) {
  test::TempDir dir;
  // Handler 0: the type's default compressor.
  SetHandler(13, 0, 9000);
  SetHandler(16, 0);
  SetHandler(20, 0);
  const std::pair<const char*, const char*> defaults[] = {
      {"avi", "mjpeg"}, {"mpg", "mpeg2video"}, {"mp4", "h264"}, {"mov", "h264"}, {"wmv", "wmv2"}};
  for (const auto& [extension, codec] : defaults) {
    const std::string path = dir.File(std::string("default.") + extension);
    Movie movie;
    movie.rate = 30000.0f / 1001.0f;
    movie.frames = 5;
    ASSERT_EQ(WriteMovie(path, movie), 0) << extension;
    auto probe = Probe(path);
    EXPECT_EQ(probe["codec_name"], codec) << extension;
    if (std::string(extension) == "wmv") {
      // ASF keeps times in milliseconds: the rate comes back to within 0.1%.
      int num = 0, den = 1;
      ASSERT_EQ(std::sscanf(probe["r_frame_rate"].c_str(), "%d/%d", &num, &den), 2);
      EXPECT_NEAR(double(num) / den, 30000.0 / 1001.0, 0.03);
    } else {
      EXPECT_EQ(probe["r_frame_rate"], "30000/1001") << extension;
    }
    EXPECT_EQ(probe["nb_read_frames"], "5") << extension;
  }
  // MP4 takes its compressor from the MPEG options, as the converter sets them.
  SetHandler(16, FourCc("MPG2"));
  ASSERT_EQ(WriteMovie(dir.File("mpeg2.mp4"), Movie{}), 0);
  EXPECT_EQ(Probe(dir.File("mpeg2.mp4"))["codec_name"], "mpeg2video");
  SetHandler(16, 0);
  // A rate that is not a positive number plays at 25; odd rates are kept.
  for (const float rate : {0.0f, -3.0f, std::nanf(""), 12.5f, 1000.0f}) {
    Movie movie;
    movie.rate = rate;
    movie.frames = 4;
    const std::string path = dir.File("rate.mp4");
    ASSERT_EQ(WriteMovie(path, movie), 0) << rate;
    const std::string expected = rate == 12.5f ? "25/2" : rate == 1000.0f ? "1000/1" : "25/1";
    EXPECT_EQ(Probe(path)["r_frame_rate"], expected) << rate;
  }
}

TEST(Movies, QualityMovesTheEncoderMonotonically) {
  test::TempDir dir;
  Movie movie;
  movie.width = 160;
  movie.height = 120;
  for (const std::uint32_t handler : {FourCc("MJPG"), FourCc("H264")}) {
    double lastError = 1e9;
    std::uintmax_t lastSize = 0;
    for (const std::uint32_t quality : {0u, 3000u, 7000u, 10000u}) {
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
  SetHandler(13, 0, 9000);
}

TEST(Movies, OddSizesArePaddedForHalfResolutionColourAndKeptOtherwise) {
  test::TempDir dir;
  Movie movie;
  movie.width = 65;
  movie.height = 49;
  movie.frames = 3;
  SetHandler(20, FourCc("H264"));
  ASSERT_EQ(WriteMovie(dir.File("odd.mov"), movie), 0);
  auto probe = Probe(dir.File("odd.mov"));
  EXPECT_EQ(probe["width"], "66");
  EXPECT_EQ(probe["height"], "50");
  // The added column and row repeat the last ones.
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
  // The smallest frame still makes a movie.
  movie.width = movie.height = 1;
  ASSERT_EQ(WriteMovie(dir.File("one.mov"), movie), 0);
  EXPECT_EQ(Probe(dir.File("one.mov"))["nb_read_frames"], "3");
  SetHandler(13, 0, 9000);
  SetHandler(20, 0);
}

TEST(Movies, CodecListsNameRealEncodersWithStableHandlers) {
  auto list = [](int type) {
    std::vector<CodecEntry> entries(64);
    std::uint32_t count = 64;
    EXPECT_EQ(ListCodecs(type, entries.data(), &count), 0) << type;
    entries.resize(count);
    return entries;
  };
  auto handlers = [&](int type) {
    std::vector<std::uint32_t> h;
    for (const CodecEntry& e : list(type)) {
      h.push_back(e.handler);
      EXPECT_EQ(e.size, kFrameOptionsSize);
      EXPECT_EQ(e.reserved, static_cast<std::uint32_t>(type));
      EXPECT_EQ(e.flags & kCodecHasDialog, 0u) << "no compressor has a dialog here";
      EXPECT_GT(std::strlen(e.name), 2u);
    }
    return h;
  };
  using ::testing::IsSupersetOf;
  EXPECT_THAT(handlers(13), IsSupersetOf({FourCc("DIB "), FourCc("MJPG"), FourCc("FFV1"), FourCc("H264")}));
  EXPECT_THAT(handlers(16), IsSupersetOf({FourCc("MPG1"), FourCc("MPG2"), FourCc("H264")}));
  EXPECT_THAT(handlers(18), IsSupersetOf({FourCc("H264"), FourCc("MPG1"), FourCc("MPG2")}));
  EXPECT_THAT(handlers(20), IsSupersetOf({FourCc("MJPG"), FourCc("H264"), FourCc("APCN")}));
  EXPECT_THAT(handlers(11), IsSupersetOf({1u, 5u, 8u, 32773u}));
  EXPECT_THAT(handlers(3), ::testing::ElementsAre(0u));
  EXPECT_EQ(handlers(17), std::vector<std::uint32_t>{FourCc("WMV2")});
  // AVI's quality compressors say so; the lossless ones do not.
  for (const CodecEntry& e : list(13)) {
    const bool quality = e.handler == FourCc("MJPG") || e.handler == FourCc("H264") || e.handler == FourCc("X264");
    EXPECT_EQ(e.flags & kCodecHasQuality, quality ? 1u : 0u) << e.name;
  }
  // The room given is respected.
  std::vector<CodecEntry> two(3);
  std::uint32_t count = 2;
  EXPECT_EQ(ListCodecs(13, two.data(), &count), 0);
  EXPECT_EQ(count, 2u);
  EXPECT_EQ(two[2].size, kFrameOptionsSize);
  EXPECT_EQ(two[2].handler, 0u) << "untouched";
  // Unknown compressors are refused and the earlier setting stays.
  SetHandler(20, FourCc("MJPG"));
  FrameOptions bad;
  bad.handler = FourCc("MPG1");
  EXPECT_EQ(SetOptions(20, &bad), kFkBadArgument);
  FrameOptions now;
  ASSERT_EQ(GetOptions(20, &now), 0);
  EXPECT_EQ(now.handler, FourCc("MJPG"));
  SetHandler(20, 0);
  CodecEntry entry = list(13)[0];
  EXPECT_EQ(ConfigureCodec(13, &entry, nullptr), kFkNoDialog);
}

class FileSizeLimit {
 public:
  explicit FileSizeLimit(rlim_t bytes) {
    getrlimit(RLIMIT_FSIZE, &saved_);
    previous_ = std::signal(SIGXFSZ, SIG_IGN);
    rlimit limit = saved_;
    limit.rlim_cur = bytes;
    setrlimit(RLIMIT_FSIZE, &limit);
  }
  ~FileSizeLimit() {
    setrlimit(RLIMIT_FSIZE, &saved_);
    std::signal(SIGXFSZ, previous_);
  }

 private:
  rlimit saved_{};
  void (*previous_)(int) = nullptr;
};

TEST(Movies, AMovieCutShortStillPlays) {
  test::TempDir dir;
  Movie movie;
  movie.frames = 40;
  // Closed before its last frame (an abort): the frames written play.
  for (const char* extension : {"avi", "mpg", "mp4", "mov", "wmv"}) {
    const std::string path = dir.File(std::string("abort.") + extension);
    ASSERT_EQ(WriteMovie(path, movie, 17), 0) << extension;
    EXPECT_EQ(Probe(path)["nb_read_frames"], "17") << extension;
  }
  // A disk that fills up: a positive result, and the file plays up to the
  // frames that reached it (MP4 and QuickTime: to the last whole fragment,
  // which for H.264 is a key frame and what follows it, about a second).
  SetHandler(20, FourCc("MJPG"));
  SetHandler(13, FourCc("MJPG"), 9000);
  movie.frames = 100;
  for (const char* extension : {"avi", "mpg", "mp4", "mov"}) {
    SCOPED_TRACE(extension);
    const std::string whole = dir.File(std::string("whole.") + extension);
    ASSERT_EQ(WriteMovie(whole, movie), 0);
    const std::string path = dir.File(std::string("full.") + extension);
    int result = 0;
    {
      FileSizeLimit limit(std::filesystem::file_size(whole) / 2);
      result = WriteMovie(path, movie);
    }
    EXPECT_EQ(result, kFkWriteFailed);
    const int played = std::atoi(Probe(path)["nb_read_frames"].c_str());
    EXPECT_GE(played, 5);
    EXPECT_LT(played, 100);
  }
  SetHandler(20, 0);
  SetHandler(13, 0, 9000);
  // A full device from the start.
  if (std::filesystem::exists("/dev/full")) {
    for (const char* extension : {"avi", "mpg", "mp4", "mov", "wmv"}) {
      const std::string path = dir.File(std::string("devfull.") + extension);
      std::filesystem::create_symlink("/dev/full", path);
      EXPECT_GT(WriteMovie(path, movie), 0) << extension;
    }
  }
}

TEST(Movies, BadCallsAndAVanishedFolderFailClearly) {
  test::TempDir dir;
  std::filesystem::create_directory(dir.path() / "gone");
  const std::string path = dir.File("gone/movie.mp4");
  FrameHandle handle = nullptr;
  ASSERT_EQ(OpenOutput(path.c_str(), 1, &handle), 0);
  const FrameHeader header = Header(32, 32, false, 25);
  const auto pixels = Picture(32, 32, false, 0);
  EXPECT_EQ(WriteFrame(handle, 0, 4, &header, nullptr, pixels.data()), 0);
  // Another geometry inside one movie is refused; 16-bit frames do not fit a movie.
  const FrameHeader wider = Header(48, 32, false, 25);
  EXPECT_EQ(WriteFrame(handle, 1, 4, &wider, nullptr, Picture(48, 32, false, 1).data()), kFkBadArgument);
  FrameHeader deep = header;
  deep.bits = 12;
  EXPECT_EQ(WriteFrame(handle, 1, 4, &deep, nullptr, pixels.data()), kFkUnsupportedDepth);
  EXPECT_EQ(WriteFrame(handle, 1, 4, &header, nullptr, pixels.data()), 0);
  std::filesystem::remove_all(dir.path() / "gone");
  EXPECT_EQ(WriteFrame(handle, 2, 4, &header, nullptr, pixels.data()), 0);
  EXPECT_EQ(WriteFrame(handle, 3, 4, &header, nullptr, pixels.data()), kFkWriteFailed) << "the file is gone";
  EXPECT_EQ(WriteFrame(handle, 3, 4, &header, nullptr, pixels.data()), kFkFrameAfterEnd);
  EXPECT_EQ(CloseOutput(handle), 0);
  // A folder that does not exist: no handle, and the first write fails.
  EXPECT_EQ(OpenOutput(dir.File("none/movie.avi").c_str(), 1, &handle), kFkCreateFailed);
  EXPECT_EQ(WriteFrame(handle, 0, 1, &header, nullptr, pixels.data()), kFkBadHandle);
}

}  // namespace
}  // namespace tarnvel
