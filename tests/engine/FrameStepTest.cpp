// The frame step's plan and its stages one by one, and the whole-job faults
// that the old shape of the step hid.
#include "engine/FrameStep.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <array>
#include <chrono>
#include <condition_variable>
#include <cstring>
#include <mutex>
#include <random>

#include "frames/overlay/Blend.h"
#include "platform/framekit/MovieCodecs.h"
#include "tests/engine/ConvertJobFixture.h"

namespace tarnvel {
namespace {

using test::ConvertJob;
using test::Decoded;
using test::SourceFrame;

JobArgs NoArgs() {
  JobArgs args;
  std::memset(&args, 0, sizeof args);
  return args;
}

PlanInputs Inputs(std::int32_t type, std::uint32_t bits, std::uint32_t outputDepth) {
  PlanInputs in;
  in.fileType = type;
  in.type = framekit::FindFileType(type);
  in.geometry = {64, 48, bits, 0};
  in.outputDepth = outputDepth;
  in.textBarHeight = 32;
  return in;
}

TEST(FramePlan, RowsDepthsAndBurnInsByTypeAndSource) {
  JobArgs args = NoArgs();
  args.overlayFlags = 0x4, args.topBar = 1, args.bottomBar = 1, args.plotHeight = 100, args.plotWidth = 256;
  args.markerKind = 2, args.markerValue = 2 | 3 << 16;
  PlanInputs tiff = Inputs(1, 12, 16);
  tiff.channelsOn = tiff.channelDataRead = true;
  FramePlan p = MakeFramePlan(args, tiff);
  EXPECT_EQ((std::array{p.pictureTop, p.PictureEnd(), p.PlotTop(), p.height}), (std::array{32u, 80u, 112u, 212u}));
  EXPECT_EQ((std::array{p.sourceDepth, p.outDepth, p.header.width, p.header.height, p.header.bits}),
            (std::array{12u, 16u, 256u, 212u, 16u}));
  EXPECT_TRUE(p.room && p.overlayOn && p.plotOn && p.Widened() && p.Converted() && !p.sensorPlane);
  EXPECT_EQ(p.marker.kind, 2);

  // Types without deep output: 16 becomes 8, 20 becomes 8, 48 becomes 24.
  for (auto [asked, got] : {std::pair{16u, 8u}, {20u, 8u}, {48u, 24u}, {24u, 24u}})
    EXPECT_EQ(MakeFramePlan(NoArgs(), Inputs(3, asked > 16 ? 36 : 12, asked)).outDepth, got) << asked;
  // A plot in colour from a monochrome source triples the depth.
  args.plotInColor = 1;
  EXPECT_EQ(MakeFramePlan(args, tiff).outDepth, 48u);

  // A raw frame file of a colour source: the sensor's plane, no room for bars
  // or plot, no burn-ins; the header tells the colour depth of the mosaic.
  PlanInputs tp2 = Inputs(5, 36, 24);
  tp2.channelsOn = tp2.channelDataRead = tp2.mosaicDelivery = tp2.movieOpen = true;
  p = MakeFramePlan(args, tp2);
  EXPECT_TRUE(p.sensorPlane && !p.room && !p.overlayOn && !p.plotOn && p.marker.kind == 0);
  EXPECT_EQ((std::array{p.height, p.pictureTop, p.sourceDepth, p.outDepth, p.header.bits, p.header.mosaic}),
            (std::array{48u, 0u, 12u, 8u, 24u, 1u}));
  EXPECT_EQ(p.metadata, framekit::MetadataPlacement::kInPixelsBigEndian);
  EXPECT_TRUE(p.movieRefetch) << "the movie reads the processed frame itself";
  EXPECT_EQ((std::array{p.movieSourceDepth, p.movieDepth, p.movieWidth, p.movieHeight}), (std::array{36u, 24u, 64u, 48u}));
  // The mosaic containers: a colour source's plane without room, a monochrome one processed.
  EXPECT_FALSE(MakeFramePlan(args, Inputs(6, 36, 36)).room);
  EXPECT_TRUE(MakeFramePlan(args, Inputs(6, 12, 12)).overlayOn);
  // Chapter 10 of a colour source keeps the rows of bars and plot, empty, and takes the GEVS block.
  PlanInputs ch10 = Inputs(34, 36, 36);
  ch10.channelsOn = true;
  p = MakeFramePlan(args, ch10);
  EXPECT_TRUE(p.sensorPlane && p.room && !p.overlayOn && !p.plotOn);
  EXPECT_EQ(p.height, 32u + 48 + 32 + 100);
  EXPECT_EQ(p.metadata, framekit::MetadataPlacement::kGevsBlock);

  // Plot sizes from a hostile argument file stay within what a frame can carry.
  args.plotInColor = 0, args.plotHeight = -5, args.plotWidth = -1;
  p = MakeFramePlan(args, tiff);
  EXPECT_EQ((std::array{p.plotRows, p.plotWidth}), (std::array{0u, 64u}));
  args.plotHeight = INT32_MAX, args.plotWidth = INT32_MAX;
  p = MakeFramePlan(args, tiff);
  EXPECT_EQ((std::array{p.plotRows, p.plotWidth}), (std::array{16384u, 16384u}));
  // A type the library does not know: processed frames, no deep output.
  EXPECT_EQ(MakeFramePlan(NoArgs(), Inputs(8, 12, 16)).outDepth, 8u);
}

TEST(FrameStages, PlacingClearsAllButThePictureAndAddsTheBackground) {
  std::mt19937 rng(5);
  std::vector<std::uint8_t> picture(5 * 3 * 2), background(picture.size()), work(5 * 8 * 2, 0xAB);
  for (auto& b : picture) b = static_cast<std::uint8_t>(rng() & 0x0F);  // well within 12 bits
  for (auto& b : background) b = static_cast<std::uint8_t>(rng() & 0x0F);
  const ImageView workView = PackedView(work.data(), 5, 8, 12);
  const ImageView placed = PlacePicture(PackedView(picture.data(), 5, 3, 12), {}, workView, 2);
  ASSERT_EQ(placed.data, work.data() + 2 * 10);
  for (std::size_t i = 0; i < work.size(); ++i) {
    const std::size_t row = i / 10;
    ASSERT_EQ(work[i], row >= 2 && row < 5 ? picture[i - 20] : 0) << i;
  }
  PlacePicture(PackedView(picture.data(), 5, 3, 12), PackedView(background.data(), 5, 3, 12), workView, 5);
  for (std::size_t k = 0; k < picture.size() / 2; ++k) {
    std::uint16_t p, b, w;
    std::memcpy(&p, &picture[2 * k], 2), std::memcpy(&b, &background[2 * k], 2), std::memcpy(&w, &work[50 + 2 * k], 2);
    ASSERT_EQ(w, p + (b >> 2)) << k;
  }
  // A picture that does not fit below the bar, or of another depth or width, is refused untouched.
  const std::vector<std::uint8_t> before = work;
  EXPECT_TRUE(PlacePicture(PackedView(picture.data(), 5, 3, 12), {}, workView, 6).data == nullptr);
  EXPECT_TRUE(PlacePicture(PackedView(picture.data(), 5, 3, 8), {}, workView, 0).data == nullptr);
  EXPECT_TRUE(PlacePicture(PackedView(picture.data(), 3, 3, 12), {}, workView, 0).data == nullptr);
  EXPECT_EQ(work, before);
}

TEST(FrameStages, DepthMarkersAndPlotOnTheWholeFrame) {
  JobArgs args = NoArgs();
  args.overlayFlags = 0x4, args.bottomBar = 1, args.markerKind = 2, args.markerValue = 2 | 1 << 16;
  const FramePlan plan = MakeFramePlan(args, Inputs(1, 12, 8));
  ASSERT_EQ(plan.height, 80u);
  std::vector<std::uint16_t> work(64 * 80, 0x0FF0);
  std::vector<std::uint8_t> output(64 * 80, 0x11);
  const ImageView workView = PackedView(reinterpret_cast<std::uint8_t*>(work.data()), 64, 80, 12);
  const ImageView frame = ConvertForOutput(plan, workView, PackedView(output.data(), 64, 80, 8));
  ASSERT_EQ(frame.data, output.data());
  EXPECT_EQ(std::count(output.begin(), output.end(), 0xFF), 64 * 80) << "bars converted with the picture";
  // The example: a 64 x 48 picture, 2 rows, a bottom bar: the pair at rows 24 and 25.
  std::fill(output.begin(), output.end(), 0);
  DrawMarker(plan, frame);
  for (std::uint32_t y = 0; y < 80; ++y)
    EXPECT_EQ(std::count(output.begin() + y * 64, output.begin() + (y + 1) * 64, 0xFF), y == 24 || y == 25 ? 64 : 0) << y;

  // A plot wider than the frame: the frame centred in the wide one, the plot in the last rows.
  args = NoArgs();
  args.plotHeight = 20, args.plotWidth = 100;
  PlanInputs in = Inputs(1, 12, 8);
  in.channelsOn = in.channelDataRead = true;
  const FramePlan wide = MakeFramePlan(args, in);
  ASSERT_TRUE(wide.Widened());
  std::vector<std::uint8_t> narrow(64 * 68, 7), widened(100 * 68 + 1024, 0xEE);
  CDataBmp plot;
  plot.SetRect({0, 0, 100, 20});
  const ImageView out = DrawPlotRows(wide, plot, 0, PackedView(narrow.data(), 64, 68, 8), PackedView(widened.data(), 100, 68, 8));
  ASSERT_EQ(out.data, widened.data());
  for (std::uint32_t y = 0; y < 48; ++y)
    for (std::uint32_t x = 0; x < 100; ++x) ASSERT_EQ(widened[y * 100 + x], x >= 18 && x < 82 ? 7 : 0) << x << "," << y;
  EXPECT_NE(widened[60 * 100 + 5], 0xEE) << "the plot fills its rows";
  EXPECT_EQ(widened[100 * 68], 0xEE) << "nothing behind the frame";
}

TEST(FrameStages, LogosStackAndTextMovesPastThem) {
  test::TempDir dir;
  ASSERT_EQ(recgen::WriteLogo(dir.File("a.png"), 16, 8), "");
  LogoImage logos[2];
  ASSERT_EQ(logos[0].Load(dir.File("a.png").c_str()), 1);
  ASSERT_EQ(logos[1].Load(dir.File("a.png").c_str()), 1);
  OverlayConfig config{};
  for (int i = 0; i < kOverlayItemCount; ++i) config.items[i].id = i, config.items[i].mask = kOverlayItemMask[i];
  config.flags = kOverlayItemMask[kFirstLogoItem] | kOverlayItemMask[kSecondLogoItem] | kOverlayItemMask[kUserText1Item];
  for (int item : {kFirstLogoItem, kSecondLogoItem}) config.items[item].format = 6;  // 100 percent
  config.items[kSecondLogoItem].showOn = 2;  // on the last frame only
  auto recording = std::make_unique<RecordingInfo>();
  OverlayRenderer renderer;
  OverlayFrameValues values;
  values.userText1 = "T";
  renderer.UpdateItems(config, *recording, values);
  // Columns that the burn-in changed, per show state.
  auto burnt = [&](std::int32_t showState) {
    renderer.Place(config, showState);
    std::vector<std::uint8_t> frame(200 * 40, 0);
    BurnInOverlay(PackedView(frame.data(), 200, 40, 8), config, renderer, logos, showState, {"DejaVu Sans", 20, 0, -1});
    std::vector<bool> columns(200);
    for (std::size_t i = 0; i < frame.size(); ++i) columns[i % 200] = columns[i % 200] || frame[i] != 0;
    return columns;
  };
  const auto first = burnt(1), last = burnt(2);
  // The logos are 16 columns with a transparent border of 2; the text starts
  // behind the logos at its position and its margin of 5.
  const auto firstFrom = [](const std::vector<bool>& c, int from) { return std::find(c.begin() + from, c.end(), true) - c.begin(); };
  EXPECT_TRUE(first[5] && !last[1]) << "the first logo, its border see-through";
  EXPECT_EQ(firstFrom(first, 14), firstFrom(first, 16 + 5)) << "no second logo before its last frame";
  EXPECT_LT(firstFrom(first, 16 + 5), 200) << "the text is there";
  EXPECT_TRUE(last[16 + 5] && !last[16 + 1]) << "the second beside the first";
  EXPECT_EQ(firstFrom(last, 30), firstFrom(last, 32 + 5)) << "the text moves past both";
}

TEST(FrameStages, OutputsGetWhatTheHeaderTells) {
  test::TempDir dir;
  // A raw frame file: the block behind the pixels, in the buffer's spare bytes.
  FramePlan plan = MakeFramePlan(NoArgs(), Inputs(5, 8, 8));
  std::vector<std::uint8_t> frame(64 * 48 + FrameBuffers::kSpare), block(kMetadataBlockSize);
  for (std::size_t i = 0; i < frame.size(); ++i) frame[i] = static_cast<std::uint8_t>(i * 7);
  for (std::size_t i = 0; i < block.size(); ++i) block[i] = static_cast<std::uint8_t>(i * 3 + 1);
  FrameHandle out = nullptr;
  ASSERT_EQ(OpenOutput(dir.File("f.tp2").c_str(), 1, &out), 0);
  // A frame that holds less than the header tells is refused before the library reads it.
  EXPECT_EQ(WriteMainFrame(plan, out, 0, 1, block.data(), PackedView(frame.data(), 64, 47, 8)), kFkBadArgument);
  EXPECT_EQ(WriteMainFrame(plan, out, 0, 1, block.data(), PackedView(frame.data(), 32, 48, 16)), kFkBadArgument);
  ASSERT_EQ(WriteMainFrame(plan, out, 0, 1, block.data(), PackedView(frame.data(), 64, 48, 8)), 0);
  CloseOutput(out);
  const framekit::DecodedFrame decoded = Decoded(dir.File("f.tp2"));
  EXPECT_TRUE(std::equal(decoded.pixels.begin(), decoded.pixels.end(), frame.begin()));
  EXPECT_TRUE(std::equal(block.begin(), block.end(), decoded.metadata.begin()));
  // The companion movie converts what it is shown into its own buffer.
  plan = MakeFramePlan(NoArgs(), Inputs(1, 12, 16));
  plan.movieDepth = 8;
  std::vector<std::uint16_t> shown(64 * 48, 0xABCD);
  std::vector<std::uint8_t> movie(64 * 48);
  ASSERT_EQ(OpenOutput(dir.File("m.avi").c_str(), 1, &out), 0);
  EXPECT_EQ(WriteMovieFrame(plan, out, 0, 1, PackedView(reinterpret_cast<std::uint8_t*>(shown.data()), 64, 48, 16),
                            PackedView(movie.data(), 64, 48, 8)),
            0);
  CloseOutput(out);
  EXPECT_EQ(std::count(movie.begin(), movie.end(), 0xAB), 64 * 48);
  EXPECT_EQ((std::array{ShowState(0, 1, 5), ShowState(3, 4, 0), ShowState(2, 4, 0), ShowState(2, 4, 7)}),
            (std::array{1, 2, 3, 0}));
}

// Faults of the old frame step, each through a whole job.

TEST_F(ConvertJob, GridCellsDivideThePictureNotTheFrameGrownByABar) {
  auto o = Options("grid", 4);
  o.overlayFlags = 0x40000;  // an empty user text: a bar without text
  o.bottomBar = true;
  o.markerKind = 2, o.markerValue = 2 | 1 << 16, o.markerColor = 0;
  CDecodeRaw job(Write(o), 0, 0);
  ASSERT_EQ(Run(job), 0) << job.StatusText();
  framekit::ImageFileInfo info;
  const auto decoded = Decoded(JoinPath(o.folder, "take-000003.tif"), 0, &info);
  ASSERT_EQ(info.height, 48u + 32);
  const auto source = SourceFrame(o.folder, 0);
  for (std::uint32_t y = 0; y < 48; ++y) {
    const bool line = y == 24 || y == 25;
    for (std::uint32_t x = 0; x < 64; ++x) {
      const std::size_t i = (y * 64 + x) * 2;
      const std::uint32_t v = decoded.pixels[i] | decoded.pixels[i + 1] << 8;
      ASSERT_EQ(v, line ? 4095u : (source[i] | source[i + 1] << 8)) << x << "," << y;
    }
  }
}

TEST_F(ConvertJob, CompanionMovieOfADeeperOutputHoldsTheWrittenFrame) {
  // 12 bits converted to 16 for the TIFFs, then to 8 for the movie: the movie's
  // conversion must not free the frame the main output is reading.
  auto o = Options("deeper", 3);
  o.companionMovie = 1;
  CDecodeRaw job(Write(o), 0, 0);
  JobOverrides overrides;
  overrides.fileType = 1, overrides.outputDepth = 16, overrides.deleteRaw = 0;
  overrides.codec.handler = framekit::kMovieRaw;
  job.SetOverrides(nullptr, overrides);
  ASSERT_EQ(Run(job), 0) << job.StatusText();
  const std::string grey = dir_.File("movie.grey");
  ASSERT_EQ(test::RunCommand("ffmpeg -v error -y -i '" + JoinPath(o.folder, "cam.avi") + "' -f rawvideo -pix_fmt gray '" +
                             grey + "'"),
            0);
  const std::string movie = test::ReadFile(grey);
  ASSERT_EQ(movie.size(), 3u * 64 * 48);
  for (int n = -3; n <= -1; ++n) {
    char name[32];
    std::snprintf(name, sizeof name, "take%07d.tif", n);
    const auto frame = Decoded(JoinPath(o.folder, name));
    ASSERT_EQ(frame.pixels.size(), 64u * 48 * 2);
    for (std::size_t p = 0; p < 64 * 48; ++p)
      ASSERT_EQ(static_cast<std::uint8_t>(movie[(n + 3) * 64 * 48 + p]), frame.pixels[2 * p + 1]) << name << " " << p;
  }
}

// Two jobs at once with different settings for one file type: each output
// keeps its own job's. The first job waits at its first frame until the
// second has set its options and written all of its frames.
struct FirstReport {
  std::mutex mutex;
  std::condition_variable seen;
  bool reported = false;
  static void Report(void* context, std::uint32_t, const char*, std::uint32_t, std::int32_t state, std::int32_t,
                     std::int32_t) {
    auto* self = static_cast<FirstReport*>(context);
    if (state == -1) return;
    std::lock_guard lock(self->mutex);
    self->reported = true;
    self->seen.notify_all();
  }
};

TEST_F(ConvertJob, ParallelJobsKeepTheirOwnCodecSettings) {
  struct Setting {
    std::int32_t type;
    CodecSettings codec;
  };
  auto jpeg = [](std::uint32_t q) { CodecSettings c{}; c.jpegQuality = q; return Setting{3, c}; };
  auto mp4 = [](std::uint32_t handler) { CodecSettings c{}; c.mpgCodec = handler; return Setting{18, c}; };
  auto avi = [](std::uint32_t q) { CodecSettings c{}; c.handler = framekit::kMovieH264; c.quality = q; return Setting{13, c}; };
  const std::pair<Setting, Setting> pairs[] = {{jpeg(3000), jpeg(9500)}, {mp4(framekit::kMovieH264), mp4(framekit::kMovieMpeg2)}, {avi(5000), avi(9000)}};
  std::vector<std::string> folders;
  for (const auto& [first, second] : pairs) {
    const std::string stem = "t" + std::to_string(first.type) + "_";
    auto a = Options(stem + "a", 3), b = Options(stem + "b", 3);
    CDecodeRaw jobA(Write(a), 0, 0), jobB(Write(b), 1, 0);
    for (auto [job, setting] : {std::pair{&jobA, &first}, {&jobB, &second}}) {
      JobOverrides overrides;
      overrides.fileType = setting->type, overrides.deleteRaw = 0, overrides.codec = setting->codec;
      job->SetOverrides(nullptr, overrides);
    }
    FirstReport reported;
    jobA.SetReportTarget(nullptr, &FirstReport::Report, &reported);
    jobA.Pause();
    ASSERT_EQ(jobA.Start(true), 0);
    {
      std::unique_lock lock(reported.mutex);
      // codec applied, output open
      ASSERT_TRUE(reported.seen.wait_for(lock, std::chrono::minutes(2), [&] { return reported.reported; }));
    }
    ASSERT_EQ(Run(jobB), 0) << jobB.StatusText();
    jobA.Resume();
    while (jobA.WaitDone(100) == 0) {
    }
    ASSERT_EQ(jobA.StatusCode(), 0) << jobA.StatusText();
    folders.push_back(a.folder), folders.push_back(b.folder);
  }
  // JPEG: the luminance table's first entry, read by Pillow: 27 at quality 30, 2 at 95.
  std::string dc;
  ASSERT_EQ(test::RunCommand("/usr/bin/python3 -c \"from PIL import Image\nimport glob\nfor f in sorted(glob.glob('" +
                                 folders[0] + "/*.jpg')) + sorted(glob.glob('" + folders[1] +
                                 "/*.jpg')): print(Image.open(f).quantization[0][0], end=' ')\"",
                             &dc),
            0);
  EXPECT_EQ(dc, "27 27 27 2 2 2 ");
  // MP4: the compressor in each stream, as ffprobe names it.
  auto codecOf = [](const std::string& path) {
    std::string out;
    test::RunCommand("ffprobe -v error -select_streams v:0 -show_entries stream=codec_name -of csv=p=0 '" + path + "'", &out);
    return out.substr(0, out.find_first_of(",\n"));
  };
  EXPECT_EQ(codecOf(JoinPath(folders[2], "take.mp4")), "h264");
  EXPECT_EQ(codecOf(JoinPath(folders[3], "take.mp4")), "mpeg2video");
  // AVI with H.264: x264 writes its constant rate factor into the stream.
  EXPECT_NE(test::ReadFile(JoinPath(folders[4], "take.avi")).find("crf=27.5"), std::string::npos);
  EXPECT_NE(test::ReadFile(JoinPath(folders[5], "take.avi")).find("crf=13.5"), std::string::npos);
}

}  // namespace
}  // namespace tarnvel
