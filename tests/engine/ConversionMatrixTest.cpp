// Whole conversions over the combinations that meet in the frame step: each
// output depth x no bar, top, bottom, both x companion movie off and on x one
// burn-in (text, logo with alpha, cross, grid, plot). The written frame is
// checked pixel by pixel against references written out here: the source
// frame at the output depth, the burn-in's own pixels where the rules put
// them, and zeros in every row and column outside the picture that no
// burn-in owns. The companion movie (uncompressed) must hold the written
// frame at 8 or 24 bits. Built with AddressSanitizer, every buffer of the
// step is watched as well; the frames are small so the matrix stays quick.
#include <gtest/gtest.h>

#include <array>
#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "frames/overlay/Blend.h"
#include "platform/framekit/MovieCodecs.h"
#include "tests/engine/ConvertJobFixture.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

enum class BurnIn { kText, kLogo, kCross, kGrid, kPlot };
const char* NameOf(BurnIn b) {
  static const char* const kNames[] = {"text", "logo", "cross", "grid", "plot"};
  return kNames[static_cast<int>(b)];
}

constexpr std::uint32_t kWidth = 96, kHeight = 40, kBarRows = 32, kPlotRows = 24, kPlotWidth = 256;
constexpr std::int32_t kCrossX = 10, kCrossY = 12, kGridRows = 2, kGridColumns = 3, kMarkerColour = 13;  // 0xA0A000
constexpr std::uint32_t kLogoWidth = 16, kLogoHeight = 8;  // drawn at 250 percent: 40 x 20

// Storage as the layout table gives it, written out for the references.
bool Colour(std::uint32_t depth) { return depth > 16; }
std::uint32_t Channels(std::uint32_t depth) { return Colour(depth) ? 3 : 1; }
std::uint32_t ChannelBitsOf(std::uint32_t depth) { return Colour(depth) ? depth / 3 : depth; }
std::uint32_t SampleBytes(std::uint32_t depth) { return ChannelBitsOf(depth) > 8 ? 2 : 1; }
std::uint32_t Shift(std::uint32_t v, int by) { return by >= 0 ? v << by : v >> -by; }

// A frame as samples, channel by channel.
struct Samples {
  std::uint32_t width = 0, height = 0, depth = 8;
  std::vector<std::uint32_t> values;
  std::uint32_t At(std::uint32_t x, std::uint32_t y, std::uint32_t c) const {
    return values[(std::size_t{y} * width + x) * Channels(depth) + c];
  }
};

Samples FromBytes(const std::vector<std::uint8_t>& bytes, std::uint32_t width, std::uint32_t height, std::uint32_t depth) {
  Samples s{width, height, depth, {}};
  const std::size_t count = std::size_t{width} * height * Channels(depth);
  s.values.resize(count);
  for (std::size_t i = 0; i < count && (i + 1) * SampleBytes(depth) <= bytes.size(); ++i)
    s.values[i] = SampleBytes(depth) == 1 ? bytes[i] : bytes[2 * i] | bytes[2 * i + 1] << 8;
  return s;
}

// What the rules put where, for one combination.
struct Expectation {
  std::uint32_t depth = 8, top = 0, bottom = 0, plot = 0, left = 0, width = kWidth;
  BurnIn burnIn = BurnIn::kText;
  std::uint32_t PictureEnd() const { return top + kHeight; }
  std::uint32_t Height() const { return PictureEnd() + bottom + plot; }
  // The marker's colour word stored at the depth: each byte scaled to the full scale.
  std::uint32_t Marker(std::uint32_t c) const {
    const std::uint32_t word = ColorAt(kMarkerColour), full = (1u << ChannelBitsOf(depth)) - 1;
    const std::uint32_t r = word & 255, g = (word >> 8) & 255, b = (word >> 16) & 255;
    if (!Colour(depth)) return (r + 3 * b + 6 * g) / 10 * full / 255;
    return (c == 0 ? b : c == 1 ? g : r) * full / 255;
  }
  std::uint32_t White() const { return Colour(depth) ? Shift(255, int(ChannelBitsOf(depth)) - 8) : Shift(255, int(depth) - 8); }
  bool OnMarker(std::uint32_t x, std::uint32_t y) const {
    const bool inPicture = y >= top && y < PictureEnd();
    if (burnIn == BurnIn::kCross)
      return y == kCrossY || y == kCrossY + 1 || (inPicture && (x == kCrossX || x == kCrossX + 1));
    if (burnIn != BurnIn::kGrid) return false;
    const std::uint32_t cellHeight = kHeight / kGridRows, cellWidth = kWidth / kGridColumns;
    const bool row = y == cellHeight || y == cellHeight + 1;  // rows counted from the buffer's top
    const bool column = x % cellWidth <= 1 && x >= cellWidth;
    return row || (inPicture && column);
  }
};

class ConversionMatrix : public ::testing::TestWithParam<std::uint32_t> {
 protected:
  void SetUp() override {
    ASSERT_EQ(DriverInit(0), 0);
    logo_ = dir_.File("logo.png");
    ASSERT_EQ(recgen::WriteLogo(logo_, kLogoWidth, kLogoHeight), "");
  }
  void TearDown() override { DriverExit(); }

  recgen::RecordingOptions Options(const std::string& name, int bars, bool movie, BurnIn burnIn) {
    recgen::RecordingOptions o;
    o.folder = dir_.File(name);
    o.width = kWidth, o.height = kHeight, o.frames = 2, o.preTrigger = 0;
    o.colour = Colour(GetParam());
    o.baseName = "take", o.deviceName = "cam";
    o.topBar = bars & 1, o.bottomBar = bars & 2;
    o.companionMovie = movie ? 1 : 0;
    o.overlayFlags = 0x40000;  // an empty user text: the bars are there, nothing is written in them
    if (burnIn == BurnIn::kText) o.overlayFlags = 0x4;  // the frame number, top left
    if (burnIn == BurnIn::kLogo) o.overlayFlags = 0x400, o.logo1 = logo_;
    if (burnIn == BurnIn::kCross) o.markerKind = 1, o.markerValue = kCrossX | kCrossY << 16;
    if (burnIn == BurnIn::kGrid) o.markerKind = 2, o.markerValue = kGridRows | kGridColumns << 16;
    o.markerColor = kMarkerColour;
    if (burnIn == BurnIn::kPlot) o.channelForm = 1, o.plotHeight = kPlotRows, o.plotWidth = kPlotWidth;
    return o;
  }

  // The source's store frame 1 at the output depth: each channel shifted from its 12 bits.
  Samples Reference(const std::string& folder, std::uint32_t depth) {
    Samples s = FromBytes(test::SourceFrame(folder, 1), kWidth, kHeight, Colour(depth) ? 36 : 12);
    for (auto& v : s.values) v = Shift(v, int(ChannelBitsOf(depth)) - 12);
    s.depth = depth;
    return s;
  }

  void Run(int bars, bool movie, BurnIn burnIn);
  void CheckFrame(const Samples& got, const Samples& reference, const Expectation& e, const std::string& what);
  void CheckMovie(const std::string& path, const Samples& written, const std::string& what);

  test::TempDir dir_;
  std::string logo_;
};

void ConversionMatrix::Run(int bars, bool movie, BurnIn burnIn) {
  const std::uint32_t depth = GetParam();
  const std::string what = std::to_string(depth) + " bits, bars " + std::to_string(bars) + (movie ? ", movie, " : ", ") +
                           NameOf(burnIn);
  const recgen::RecordingOptions o = Options("d" + std::to_string(depth) + "b" + std::to_string(bars) +
                                                 (movie ? "m" : "") + NameOf(burnIn),
                                             bars, movie, burnIn);
  ASSERT_EQ(recgen::WriteRecording(o), "") << what;
  CDecodeRaw job(JoinPath(o.folder, "args.ini"), 0, 0);
  JobOverrides overrides;
  overrides.fileType = 1;
  overrides.outputDepth = static_cast<std::int32_t>(depth);
  overrides.deleteRaw = 0;
  overrides.codec.handler = framekit::kMovieRaw;  // the companion movie uncompressed, to compare exactly
  job.SetOverrides(nullptr, overrides);
  ASSERT_EQ(job.Start(false), 0) << what << ": " << job.StatusCode() << " " << job.StatusText();

  Expectation e;
  e.depth = depth, e.burnIn = burnIn;
  e.top = o.topBar ? kBarRows : 0, e.bottom = o.bottomBar ? kBarRows : 0;
  e.plot = burnIn == BurnIn::kPlot ? kPlotRows : 0;
  e.width = burnIn == BurnIn::kPlot ? kPlotWidth : kWidth;
  e.left = (e.width - kWidth) / 2;
  framekit::ImageFileInfo info;
  const framekit::DecodedFrame decoded = test::Decoded(JoinPath(o.folder, "take000001.tif"), 0, &info);
  ASSERT_EQ((std::array{info.width, info.height, info.bits}), (std::array{e.width, e.Height(), depth})) << what;
  const Samples got = FromBytes(decoded.pixels, e.width, e.Height(), depth);
  CheckFrame(got, Reference(o.folder, depth), e, what);
  if (movie) CheckMovie(JoinPath(o.folder, "cam.avi"), got, what);
}

void ConversionMatrix::CheckFrame(const Samples& got, const Samples& reference, const Expectation& e,
                                  const std::string& what) {
  std::size_t burnt = 0;
  for (std::uint32_t y = 0; y < got.height; ++y)
    for (std::uint32_t x = 0; x < got.width; ++x) {
      const bool inPicture = y >= e.top && y < e.PictureEnd() && x >= e.left && x < e.left + kWidth;
      const std::uint32_t px = x - e.left;
      for (std::uint32_t c = 0; c < Channels(e.depth); ++c) {
        const std::uint32_t v = got.At(x, y, c);
        const std::uint32_t plain = inPicture ? reference.At(px, y - e.top, c) : 0;
        if (y >= e.PictureEnd() + e.bottom) {  // the plot's rows
          burnt += v != 0;
          continue;
        }
        if (x < e.left || x >= e.left + kWidth) {
          ASSERT_EQ(v, 0u) << what << ": the widened frame's margin at " << x << "," << y;
          continue;
        }
        if (e.OnMarker(px, y)) {
          ASSERT_EQ(v, e.Marker(c)) << what << ": marker pixel " << px << "," << y;
          ++burnt;
          continue;
        }
        if (e.burnIn == BurnIn::kLogo && px < kLogoWidth * 5 / 2 && y < kLogoHeight * 5 / 2) {
          burnt += v != plain;
          continue;
        }
        if (e.burnIn == BurnIn::kText && v == e.White() && v != plain) {
          ++burnt;
          continue;
        }
        ASSERT_EQ(v, plain) << what << ": pixel " << px << "," << y << " channel " << c
                            << (inPicture ? " of the picture" : " of a bar");
      }
    }
  EXPECT_GT(burnt, 20u) << what << ": the burn-in is there";
}

// The movie's second frame, decoded by FFmpeg as 24-bit blue-green-red, is
// the written frame at 8 bits a channel (a grey frame in all three).
void ConversionMatrix::CheckMovie(const std::string& path, const Samples& written, const std::string& what) {
  const std::string raw = dir_.File("movie.bgr");
  ASSERT_EQ(test::RunCommand("ffmpeg -v error -y -i '" + path + "' -f rawvideo -pix_fmt bgr24 '" + raw + "'"), 0) << what;
  const std::string bytes = test::ReadFile(raw);
  const std::size_t frameBytes = std::size_t{written.width} * written.height * 3;
  ASSERT_EQ(bytes.size(), 2 * frameBytes) << what << ": two frames of the written frame's size";
  const int shift = 8 - static_cast<int>(ChannelBitsOf(written.depth));
  for (std::uint32_t y = 0; y < written.height; ++y)
    for (std::uint32_t x = 0; x < written.width; ++x)
      for (std::uint32_t k = 0; k < 3; ++k) {
        const std::uint32_t want = std::min(Shift(written.At(x, y, Colour(written.depth) ? k : 0), shift), 255u);
        const auto movie = static_cast<std::uint8_t>(bytes[frameBytes + (std::size_t{y} * written.width + x) * 3 + k]);
        ASSERT_EQ(movie, want) << what << ": movie pixel " << x << "," << y << " channel " << k;
      }
}

TEST_P(ConversionMatrix, EveryCombinationKeepsThePictureAndWhatIsAroundIt) {
  for (int bars = 0; bars < 4; ++bars)
    for (bool movie : {false, true})
      for (BurnIn burnIn : {BurnIn::kText, BurnIn::kLogo, BurnIn::kCross, BurnIn::kGrid, BurnIn::kPlot}) {
        Run(bars, movie, burnIn);
        if (HasFatalFailure()) return;
      }
}

INSTANTIATE_TEST_SUITE_P(OutputDepths, ConversionMatrix, ::testing::Values(8u, 10u, 12u, 16u, 21u, 24u, 30u, 36u, 48u));

}  // namespace
}  // namespace tarnvel
