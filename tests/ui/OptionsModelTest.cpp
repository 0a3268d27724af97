// The conversion options, codec choice and preview without a toolkit,
// against generated recordings and the image library's real lists.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/recgen/RecordingGenerator.h"
#include "engine/RawSource.h"
#include "platform/cordage/Messages.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/FrameKit.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/platform/rawdrv/IndependentStore.h"
#include "tests/support/TestFiles.h"
#include "tests/ui/PreviewReference.h"
#include "ui/CodecChoice.h"
#include "ui/ConversionOptions.h"
#include "ui/PreviewImage.h"
#include "ui/RecordingSummary.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;
using Texts = std::vector<std::string>;

class OptionsModelTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { DriverInit(0); }
  static void TearDownTestSuite() { DriverExit(); }

  recgen::RecordingOptions Recording(const std::string& name) {
    recgen::RecordingOptions o;
    o.folder = dir.File(name);
    o.width = 101, o.height = 37, o.frames = 3, o.preTrigger = 0;
    return o;
  }
  static ConversionOptionsModel Model(const std::string& argsPath, bool withFrame = false) {
    const OptionsStart start = ReadOptionsStart(argsPath);
    return ConversionOptionsModel(start, ReadRecordingSummary(std::string(FolderOf(argsPath)), start.firstFrame,
                                                             start.frameCount, withFrame));
  }
  static std::size_t IndexOfType(const ConversionOptionsModel& model, std::int32_t type) {
    for (std::size_t i = 0; i < model.FileTypes().size(); ++i)
      if (model.FileTypes()[i].number == type) return i;
    ADD_FAILURE() << "type " << type << " is not offered";
    return 0;
  }

  test::TempDir dir;
};

Texts DepthTexts(std::int32_t type, std::int32_t source) {
  Texts texts;
  for (const DepthChoice& d : DepthChoices(type, source)) texts.push_back(d.text);
  return texts;
}

TEST(DepthChoicesTest, ListsFollowTheSourceDepthAndWhetherTheTypeIsDeep) {
  const Texts mono8{"8 bit (upper)", "8 bit (middle)", "8 bit (lower)"};
  const Texts colour24{"24 bit (upper)", "24 bit (middle)", "24 bit (lower)"};
  const Texts deep12{"12 bit", "11 bit", "10 bit", "9 bit", "8 bit (upper)", "8 bit (middle)", "8 bit (lower)"};
  constexpr std::int32_t kTiff = 1, kBmp = 2;
  EXPECT_EQ(DepthTexts(kTiff, 8), Texts{"8 bit"});
  EXPECT_EQ(DepthTexts(kTiff, 9), (Texts{"9 bit", "8 bit"}));
  EXPECT_EQ(DepthTexts(kTiff, 10), (Texts{"10 bit", "9 bit", "8 bit (upper)", "8 bit (middle)", "8 bit (lower)"}));
  EXPECT_EQ(DepthTexts(kBmp, 10), mono8);
  EXPECT_EQ(DepthTexts(kTiff, 12), deep12);
  EXPECT_EQ(DepthTexts(kTiff, 16), deep12) << "nothing deeper than 12 bits is offered for a mono source";
  EXPECT_EQ(DepthTexts(kBmp, 16), mono8);
  EXPECT_EQ(DepthTexts(kTiff, 24), Texts{"24 bit"});
  EXPECT_EQ(DepthTexts(kTiff, 30), (Texts{"30 bit", "27 bit", "24 bit (upper)", "24 bit (middle)", "24 bit (lower)"}));
  EXPECT_EQ(DepthTexts(kTiff, 36), (Texts{"36 bit", "33 bit", "30 bit", "27 bit", "24 bit (upper)", "24 bit (middle)",
                                          "24 bit (lower)"}));
  EXPECT_EQ(DepthTexts(kBmp, 36), colour24);
  EXPECT_EQ(DepthTexts(kTiff, 0), Texts{"8 bit"}) << "a recording that could not be opened";

  // Item data: the depth below, the range above; the selection matches the
  // low 16 bits and so only ever an entry of range 0.
  const auto list = DepthChoices(kTiff, 12);
  EXPECT_EQ(list[5].ItemData(), 8u | 1u << 16);
  EXPECT_EQ(list[6].bitRange, 2);
  EXPECT_EQ(DepthSelection(list, 8), 4u);
  EXPECT_EQ(DepthSelection(list, 8 | 1 << 16), 4u);
  EXPECT_EQ(DepthSelection(list, 10), 2u);
  EXPECT_EQ(DepthSelection(list, 16), 0u);
  EXPECT_EQ(DepthSelection(DepthChoices(kBmp, 12), 12), 0u) << "a deep target on a type that isn't deep: the first entry";

  // A language catalogue names the ranges.
  SetStringCatalogue({{kTextMiddle, "Mitte"}});
  EXPECT_EQ(DepthTexts(kBmp, 12)[1], "8 bit (Mitte)");
  SetStringCatalogue({});
}

TEST(DepthChoicesTest, EnableRulesAndTheRateField) {
  // The codec button for the types whose compressor can be chosen, the rate for the movies.
  Texts codec, rate;
  for (const FileTypeChoice& type : OfferedFileTypes()) {
    if (CodecButtonEnabled(type.number)) codec.push_back(type.extension);
    if (PlaybackRateEnabled(type.number)) rate.push_back(type.extension);
  }
  EXPECT_EQ(codec, (Texts{"jpg", "mpt", "avi", "mpg", "mp4", "mov"}));
  EXPECT_EQ(rate, (Texts{"avi", "mpg", "mp4", "mov", "wmv"}));
  EXPECT_EQ(OfferedFileTypes().front().text, "TIFF File (*.tif)");
  EXPECT_EQ(OfferedFileTypes().size(), 20u);

  EXPECT_EQ(PlaybackRateOf("30"), 30);
  EXPECT_EQ(PlaybackRateOf("0"), 5);
  EXPECT_EQ(PlaybackRateOf(""), 5);
  EXPECT_EQ(PlaybackRateOf("-1"), -1) << "a -1 shown from a failed read stays";
  EXPECT_EQ(PlaybackRateOf("2147483647"), 2147483647);
  EXPECT_EQ(PlaybackRateOf("2147483648"), 5) << "a number that doesn't fit reads as none";
  EXPECT_EQ(PlaybackRateOf("12a"), 5);
  EXPECT_EQ(PlaybackRateOf("-"), 5);
  EXPECT_EQ(PlaybackRateOf(" 7"), 5);
}

TEST_F(OptionsModelTest, SummaryTextsOfARecording) {
  recgen::RecordingOptions o = Recording("rec");
  o.frames = 11, o.preTrigger = 5, o.rotation = 1, o.cameraText = "Fathom X-9", o.rate = 1000, o.exposureNs = 250999;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  ConversionOptionsModel model = Model(JoinPath(o.folder, "args.ini"));
  EXPECT_EQ(model.Title(), o.folder);
  const RecordingSummary& s = model.Summary();
  EXPECT_TRUE(s.opened);
  EXPECT_EQ(s.camera, "Fathom X-9");
  EXPECT_EQ(s.resolution, "37 x 101") << "a quarter turn swaps width and height";
  EXPECT_EQ(s.frames, "11 (-5 to 5)");
  EXPECT_EQ(s.speed, "1000 fps - 250 \xc2\xb5s");
  EXPECT_EQ(s.sourceDepth, 12);
  EXPECT_EQ(s.preview.bits, 0u) << "no frame read unless asked";

  // 333.8 frames a second is truncated after adding 0.5; the suffix letter
  // is D for models 34 and 35, U for the others.
  for (const auto& [number, letter] : {std::pair{34u, "D"}, std::pair{6u, "U"}}) {
    recgen::RecordingOptions p = Recording("rec" + std::to_string(number));
    p.rate = 1e9f / 3e6f, p.model = number, p.resolutionSuffix = 2;
    ASSERT_EQ(recgen::WriteRecording(p), "");
    const RecordingSummary t = ReadRecordingSummary(p.folder, 0, 1, false);
    EXPECT_EQ(t.speed, "333 fps - 500 \xc2\xb5s");
    EXPECT_EQ(t.resolution, std::string("101 x 37 (") + letter + ")");
  }

  // Translated patterns are filled without printf, whatever they hold.
  SetStringCatalogue({{kTextFrameRange, "%s frames %n%d%% from %d to %d %d"}});
  EXPECT_EQ(ReadRecordingSummary(o.folder, -5, 11, false).frames, "11 frames %n-5% from 5 to  ");
  SetStringCatalogue({});
  EXPECT_EQ(FillPattern("%c%", {"D"}), "D%");
}

TEST_F(OptionsModelTest, ARecordingThatCannotBeOpened) {
  recgen::RecordingOptions o = Recording("rec");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  fs::remove(fs::path(o.folder) / "rawfile.xml");
  OptionsStart start = ReadOptionsStart(JoinPath(o.folder, "args.ini"));
  start.outputDepth = 12;
  ConversionOptionsModel model(start, ReadRecordingSummary(o.folder, 0, 3, true));
  const RecordingSummary& s = model.Summary();
  EXPECT_FALSE(s.opened);
  for (const std::string* text : {&s.camera, &s.resolution, &s.frames, &s.speed}) EXPECT_EQ(*text, "N/A");
  EXPECT_EQ(s.preview.bits, 0u);
  EXPECT_EQ(model.TargetDepth(), 12) << "the target depth stays as it came";
  EXPECT_EQ(DepthTexts(model.FileType(), model.SourceDepth()), Texts{"8 bit"});
  EXPECT_EQ(model.Confirm().outputDepth, 8);

  // Without a profile the dialog starts as TIFF with rate -1 and frame 0.
  fs::remove(fs::path(o.folder) / "_config.pgv");
  const OptionsStart bare = ReadOptionsStart(JoinPath(o.folder, "args.ini"));
  EXPECT_EQ(bare.fileType, 1);
  EXPECT_EQ(bare.playbackRate, -1);
  EXPECT_EQ(bare.outputDepth, 0);
  EXPECT_EQ(bare.firstFrame, 0);
  const JobOverrides chosen = ConversionOptionsModel(bare, ReadRecordingSummary(o.folder, 0, 0, false)).Confirm();
  EXPECT_EQ(chosen.playbackRate, -1) << "a -1 left alone in a disabled field";
  EXPECT_EQ(chosen.fileType, 1);
}

TEST_F(OptionsModelTest, TargetDepthTypeChangesAndConfirm) {
  recgen::RecordingOptions o = Recording("rec");
  o.fileType = 11, o.outputRate = 30, o.deleteRaw = 1;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  const std::string args = JoinPath(o.folder, "args.ini");
  OptionsStart start = ReadOptionsStart(args);
  EXPECT_EQ(start.fileType, 11);
  EXPECT_EQ(start.playbackRate, 30);
  EXPECT_EQ(start.deleteRaw, 1u);
  const RecordingSummary summary = ReadRecordingSummary(o.folder, 0, 3, false);

  // An 8-bit output of a 12-bit recording opens on "8 bit (upper)".
  start.outputDepth = 8;
  ConversionOptionsModel model(start, summary);
  EXPECT_EQ(model.Depths()[model.DepthIndex()].text, "8 bit (upper)");
  JobOverrides chosen = model.Confirm();
  EXPECT_EQ(chosen.outputDepth, 8);
  EXPECT_EQ(chosen.bitRange, 0);
  EXPECT_EQ(chosen.fileType, 11);
  EXPECT_EQ(chosen.playbackRate, 30);
  EXPECT_EQ(chosen.deleteRaw, 1u);
  EXPECT_FALSE(model.RateEnabled());
  EXPECT_TRUE(model.CodecEnabled());

  // A depth chosen before a change of type is lost: the list is rebuilt with
  // the target the dialog opened with; a type without deep output selects
  // its first entry for a deep target.
  start.outputDepth = 0;
  ConversionOptionsModel keep(start, summary);
  EXPECT_EQ(keep.TargetDepth(), 12) << "0 takes the recording's depth";
  keep.SelectDepth(2);
  EXPECT_EQ(keep.Depths()[keep.DepthIndex()].text, "10 bit");
  keep.SelectFileType(IndexOfType(keep, 2));
  EXPECT_EQ(keep.Depths()[keep.DepthIndex()].text, "8 bit (upper)");
  keep.SelectFileType(IndexOfType(keep, 4));
  EXPECT_EQ(keep.Depths()[keep.DepthIndex()].text, "12 bit");
  keep.SelectFileType(IndexOfType(keep, 13));
  EXPECT_TRUE(keep.RateEnabled());
  keep.SelectDepth(2);
  keep.SetDeleteRaw(false);
  keep.SetResetNumbering(true);
  keep.SetRateField("0");
  chosen = keep.Confirm();
  EXPECT_EQ(chosen.fileType, 13);
  EXPECT_EQ(chosen.outputDepth, 8);
  EXPECT_EQ(chosen.bitRange, 2);
  EXPECT_EQ(chosen.deleteRaw, 0u);
  EXPECT_EQ(chosen.resetNumbering, 1u);
  EXPECT_EQ(chosen.playbackRate, 5);
  keep.SelectDepth(99);
  EXPECT_EQ(keep.DepthIndex(), 2u) << "an index beyond the list changes nothing";

  // A type that isn't offered, or isn't known, opens on the first row.
  start.fileType = 77;
  EXPECT_EQ(ConversionOptionsModel(start, summary).FileType(), 1);
}

TEST_F(OptionsModelTest, MonoNeverOffersColourDepthsNorColourMono) {
  recgen::RecordingOptions o = Recording("colour");
  o.colour = true, o.sampleBits = 8;
  ASSERT_EQ(recgen::WriteRecording(o), "");
  OptionsStart start = ReadOptionsStart(JoinPath(o.folder, "args.ini"));
  start.outputDepth = 8;
  ConversionOptionsModel colour(start, ReadRecordingSummary(o.folder, 0, 3, false));
  EXPECT_EQ(colour.SourceDepth(), 24);
  EXPECT_EQ(colour.TargetDepth(), 24);
  EXPECT_EQ(colour.Confirm().outputDepth, 24);

  recgen::RecordingOptions m = Recording("mono");
  ASSERT_EQ(recgen::WriteRecording(m), "");
  start = ReadOptionsStart(JoinPath(m.folder, "args.ini"));
  start.outputDepth = 36;
  ConversionOptionsModel mono(start, ReadRecordingSummary(m.folder, 0, 3, false));
  EXPECT_EQ(mono.TargetDepth(), 12);
}

TEST_F(OptionsModelTest, CodecButtonTakesAndGivesTheFieldsOfItsType) {
  recgen::RecordingOptions o = Recording("rec");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  OptionsStart start = ReadOptionsStart(JoinPath(o.folder, "args.ini"));
  start.codec = {11, 22, "Given", 33, 44, 55, 66};
  const RecordingSummary summary = ReadRecordingSummary(o.folder, 0, 3, false);
  struct Case {
    std::int32_t type;
    std::uint32_t handler, quality;
    const char* name;
  };
  for (const Case& c : {Case{13, 11, 22, "Given"}, Case{3, 0, 33, ""}, Case{20, 44, 0, ""}, Case{16, 55, 0, ""},
                        Case{18, 55, 0, ""}, Case{11, 66, 0, ""}, Case{1, 0, 0, ""}}) {
    SCOPED_TRACE(c.type);
    ConversionOptionsModel model(start, summary);
    model.SelectFileType(IndexOfType(model, c.type));
    const CodecEntry entry = model.CodecEntryForType();
    EXPECT_EQ(entry.size, 152u);
    EXPECT_EQ(entry.handler, c.handler);
    EXPECT_EQ(entry.quality, c.quality);
    EXPECT_EQ(entry.flags, 0u);
    EXPECT_STREQ(entry.name, c.name);
    CodecEntry back;
    back.handler = 901, back.quality = 902;
    CopyText(back.name, "Chosen");
    model.TakeCodecEntry(back);
    const CodecSettings& codec = model.Codec();
    const CodecSettings was = start.codec;
    EXPECT_EQ(codec.handler, c.type == 13 ? 901 : was.handler);
    EXPECT_EQ(codec.quality, c.type == 13 ? 902 : was.quality);
    EXPECT_STREQ(codec.name, c.type == 13 ? "Chosen" : "Given");
    EXPECT_EQ(codec.jpegQuality, c.type == 3 ? 902 : was.jpegQuality);
    EXPECT_EQ(codec.movCodec, c.type == 20 ? 901 : was.movCodec);
    EXPECT_EQ(codec.mpgCodec, c.type == 16 || c.type == 18 ? 901 : was.mpgCodec);
    EXPECT_EQ(codec.mptCodec, c.type == 11 ? 901 : was.mptCodec);
    const JobOverrides chosen = model.Confirm();
    EXPECT_EQ(std::memcmp(&chosen.codec, &codec, sizeof codec), 0);
  }
}

CodecEntry Entry(std::uint32_t handler, std::uint32_t quality, const char* name) {
  CodecEntry entry;
  entry.handler = handler, entry.quality = quality;
  CopyText(entry.name, name);
  return entry;
}

TEST(CodecChoiceTest, QualityHandlerMatchingAndTheSlider) {
  using framekit::kMovieMotionJpeg, framekit::kMovieRaw, framekit::kMovieH264;
  CodecChoiceModel avi(13, Entry(kMovieMotionJpeg, 7550, "Mine"));
  EXPECT_EQ(avi.Names().size(), 5u);
  EXPECT_EQ(avi.Names()[0], "Motion JPEG");
  EXPECT_EQ(avi.Index(), 0);
  EXPECT_EQ(avi.Readout(), "75");
  EXPECT_EQ(avi.SliderPosition(), 75);
  EXPECT_TRUE(avi.SliderEnabled());
  EXPECT_TRUE(avi.ListEnabled());
  EXPECT_FALSE(avi.ConfigureEnabled());
  avi.Confirm();
  EXPECT_EQ(avi.Selected().quality, 7550u) << "OK without moving the slider keeps the quality";
  EXPECT_EQ(avi.Selected().flags, kCodecHasQuality) << "the library's abilities";
  EXPECT_STREQ(avi.Selected().name, "Mine") << "the caller's name";

  avi.SliderMoving(40);
  EXPECT_EQ(avi.Readout(), "40");
  EXPECT_EQ(avi.TableEntry(0).quality, 7550u) << "only the end of a movement sets the quality";
  avi.SliderMoved(75);
  EXPECT_EQ(avi.TableEntry(0).quality, 7500u);

  // A compressor without a quality parks the slider at 100 and keeps its value.
  avi.Select(1);
  EXPECT_EQ(avi.TableEntry(1).handler, kMovieRaw);
  EXPECT_EQ(avi.Readout(), "N/A");
  EXPECT_EQ(avi.SliderPosition(), 100);
  EXPECT_FALSE(avi.SliderEnabled());
  avi.SliderMoved(20);
  EXPECT_EQ(avi.TableEntry(1).quality, 0u);
  // Each compressor keeps its own quality while the dialog runs.
  avi.Select(3);
  avi.SliderMoved(10);
  avi.Select(0);
  EXPECT_EQ(avi.Readout(), "75");
  avi.Select(3);
  EXPECT_EQ(avi.Readout(), "10");
  avi.Select(7);
  EXPECT_EQ(avi.Index(), 3) << "an index beyond the list changes nothing";
  avi.Configure(nullptr);  // no compressor here has a dialog of its own
  avi.Confirm();
  EXPECT_EQ(avi.Selected().handler, kMovieH264);
  EXPECT_EQ(avi.Selected().quality, 1000u);

  // A handler the library doesn't list gives way to its first compressor, with the library's values.
  CodecChoiceModel unknown(13, Entry(0xDEAD, 1234, "Gone"));
  EXPECT_EQ(unknown.Selected().handler, kMovieMotionJpeg);
  EXPECT_STREQ(unknown.Selected().name, "Motion JPEG");
  EXPECT_EQ(unknown.Selected().quality, 9000u);
  EXPECT_EQ(unknown.Index(), 0);

  EXPECT_EQ(CodecChoiceModel::kPageStep, -5);
  EXPECT_EQ(CodecChoiceModel::kSliderMaximum, 100);
}

TEST(CodecChoiceTest, EmptyFailedAndHostileLists) {
  // No compressor for the type: only Cancel does anything.
  const CodecEntry mine = Entry(7, 5000, "Mine");
  CodecChoiceModel none(1, mine);
  EXPECT_EQ(none.Count(), 0u);
  EXPECT_FALSE(none.ListEnabled());
  EXPECT_FALSE(none.ConfirmEnabled());
  EXPECT_FALSE(none.SliderEnabled());
  EXPECT_EQ(none.Index(), -1);
  none.Confirm();
  EXPECT_EQ(std::memcmp(&none.Selected(), &mine, sizeof mine), 0);

  // A library that fails and leaves the count: nothing is disabled, the
  // selection is the empty first entry, and OK changes nothing further.
  CodecChoiceModel failed(13, mine, [](int, CodecEntry*, std::uint32_t*) { return -1; });
  EXPECT_EQ(failed.Count(), 64u);
  EXPECT_TRUE(failed.ListEnabled());
  EXPECT_TRUE(failed.ConfirmEnabled());
  EXPECT_TRUE(failed.Names().empty());
  EXPECT_EQ(failed.Selected().handler, 0u);
  EXPECT_EQ(failed.Selected().size, 152u);
  EXPECT_EQ(failed.Readout(), "N/A");
  failed.SliderMoved(50);
  failed.Confirm();
  EXPECT_EQ(failed.Selected().quality, 0u);

  // A list that claims more than the table holds and names without an end.
  CodecChoiceModel hostile(13, mine, [](int, CodecEntry* entries, std::uint32_t* count) {
    for (std::uint32_t i = 0; i < *count; ++i) {
      entries[i].handler = i;
      entries[i].flags = 3;
      entries[i].quality = 20000;
      std::memset(entries[i].name, 'x', sizeof entries[i].name);
    }
    *count = 100000;
    return 0;
  });
  EXPECT_EQ(hostile.Names().size(), 128u);
  EXPECT_EQ(hostile.Names()[0].size(), 128u);
  EXPECT_EQ(hostile.Index(), 7);
  EXPECT_EQ(hostile.SliderPosition(), 50) << "the caller's quality on the matched entry";
  hostile.Select(8);
  EXPECT_EQ(hostile.SliderPosition(), 100) << "a quality above 10,000 parks the slider at its end";
  EXPECT_TRUE(hostile.ConfigureEnabled());
}

TEST(PreviewImageTest, RowsArePaddedToFourBytesOnlyWhereNeeded) {
  for (const auto& [width, bits, padded] : {std::tuple{1280u, 8u, false}, std::tuple{1281u, 8u, true},
                                            std::tuple{1280u, 24u, false}, std::tuple{1281u, 24u, true}}) {
    std::vector<std::uint8_t> pixels(std::size_t(width) * 3 * (bits / 8));
    for (std::size_t i = 0; i < pixels.size(); ++i) pixels[i] = std::uint8_t(i * 7 + 1);
    PreviewImage image;
    ASSERT_TRUE(image.SetImage(pixels.data(), width, 3, bits));
    EXPECT_EQ(image.Repacked(), padded) << width << " at " << bits;
    EXPECT_EQ(image.Rows() == pixels.data(), !padded);
    const std::size_t row = std::size_t(width) * bits / 8;
    EXPECT_EQ(image.RowBytes(), width == 1281 ? (bits == 8 ? 1284u : 3844u) : row);
    for (std::uint32_t y = 0; y < 3; ++y) {
      EXPECT_EQ(std::memcmp(image.Rows() + y * image.RowBytes(), pixels.data() + y * row, row), 0);
      for (std::size_t pad = row; pad < image.RowBytes(); ++pad) EXPECT_EQ(image.Rows()[y * image.RowBytes() + pad], 0);
    }
  }
  PreviewImage image;
  const std::uint8_t one = 0;
  EXPECT_FALSE(image.SetImage(&one, 1, 1, 16));
  EXPECT_FALSE(image.SetImage(&one, 0, 1, 8));
  EXPECT_FALSE(image.SetImage(nullptr, 1, 1, 8));
}

TEST(PreviewImageTest, FitCentreAndStretchAgainstAPlainLoop) {
  // Exactly the fit size: 100 percent, centred within the 2-pixel margin.
  PreviewPlacement at = FitPreview(105, 41, 101, 37);
  EXPECT_EQ(at.shownZoom, 100);
  EXPECT_EQ(at.left, 2);
  EXPECT_EQ(at.top, 2);
  EXPECT_EQ(at.width, 101);
  EXPECT_EQ(at.height, 37);
  // Less than a hundredth: 1 percent, never 0.
  at = FitPreview(50, 50, 10000, 8000);
  EXPECT_EQ(at.shownZoom, 1);
  EXPECT_EQ(at.width, 100);
  EXPECT_EQ(at.height, 80);
  EXPECT_EQ(at.left, 2 + (46 - 100) / 2);
  EXPECT_EQ(FitPreview(3, 3, 10, 10).shownZoom, 1) << "a client smaller than its margins";

  for (const std::uint32_t bits : {8u, 24u}) {
    const std::uint32_t w = 101, h = 37;
    std::vector<std::uint8_t> packed(std::size_t(w) * h * bits / 8);
    for (std::size_t i = 0; i < packed.size(); ++i) packed[i] = std::uint8_t((i * 2654435761u) >> 13);
    PreviewImage image;
    ASSERT_TRUE(image.SetImage(packed.data(), w, h, bits));
    for (const auto& [cw, ch] : {std::pair{400, 300}, std::pair{105, 41}, std::pair{60, 200}, std::pair{37, 19},
                                 std::pair{20, 20}, std::pair{5, 5}, std::pair{1, 1}}) {
      SCOPED_TRACE(std::to_string(bits) + " bits in " + std::to_string(cw) + " x " + std::to_string(ch));
      std::vector<std::uint32_t> surface(std::size_t(cw + 3) * ch, 0x12345678u);
      PaintPreview(image, cw, ch, surface.data(), cw + 3);
      const auto expected = test::ReferencePaint(packed, w, h, bits, cw, ch);
      for (int y = 0; y < ch; ++y) {
        ASSERT_EQ(std::memcmp(&surface[y * (cw + 3)], &expected[y * cw], cw * 4), 0) << "row " << y;
        for (int x = cw; x < cw + 3; ++x) ASSERT_EQ(surface[y * (cw + 3) + x], 0x12345678u) << "beyond the row";
      }
    }
  }
  std::vector<std::uint32_t> surface(16, 7);
  PaintPreview(PreviewImage{}, 4, 4, surface.data(), 4);
  EXPECT_EQ(surface, std::vector<std::uint32_t>(16, 0xFF000000u)) << "no picture: black";
}

// The first frame as the raw driver delivers it, each sample shifted down to 8 bits.
std::vector<std::uint8_t> ReferencePreview(const std::string& folder) {
  RawSource source;
  EXPECT_EQ(source.Open(folder.c_str()), 0);
  FrameGeometry g;
  EXPECT_TRUE(source.Geometry(g));
  std::vector<std::uint8_t> frame(g.frameBytes);
  EXPECT_EQ(source.ReadFrame(0, frame.data()), 0);
  const std::uint32_t bytes = g.frameBytes / (g.width * g.height);
  if (bytes == 1 || bytes == 3) return frame;
  const std::uint32_t shift = (bytes == 2 ? g.bits : g.bits / 3) - 8;
  std::vector<std::uint8_t> narrow(frame.size() / 2);
  for (std::size_t i = 0; i < narrow.size(); ++i) narrow[i] = std::uint8_t((frame[2 * i] | frame[2 * i + 1] << 8) >> shift);
  return narrow;
}

TEST_F(OptionsModelTest, PreviewOfTheFirstFrameInEveryLayout) {
  struct Case {
    std::uint32_t bits;
    bool colour;
    std::uint32_t rotation, previewBits;
  };
  for (const Case& c : {Case{12, false, 0, 8}, Case{8, false, 3, 8}, Case{16, false, 1, 8}, Case{8, true, 0, 24},
                        Case{12, true, 1, 24}}) {
    const std::string name = "rec" + std::to_string(c.bits) + (c.colour ? "c" : "m") + std::to_string(c.rotation);
    SCOPED_TRACE(name);
    recgen::RecordingOptions o = Recording(name);
    o.sampleBits = c.bits, o.colour = c.colour, o.rotation = c.rotation;
    ASSERT_EQ(recgen::WriteRecording(o), "");
    const RecordingSummary s = ReadRecordingSummary(o.folder, 0, 3, true);
    EXPECT_EQ(s.preview.bits, c.previewBits);
    EXPECT_EQ(s.preview.width, c.rotation % 2 ? 37u : 101u);
    EXPECT_EQ(s.preview.height, c.rotation % 2 ? 101u : 37u);
    const auto expected = ReferencePreview(o.folder);
    ASSERT_EQ(s.preview.pixels.size(), expected.size());
    EXPECT_EQ(s.preview.pixels, expected);
    if (!c.colour && c.bits == 12) {
      // Independently of the driver: the generator's samples, top 8 of 12 bits.
      const auto samples = recgen::SensorSamples(o, 0);
      for (std::size_t i = 0; i < samples.size(); ++i) ASSERT_EQ(s.preview.pixels[i], samples[i] >> 4) << i;
    }
  }
}

TEST_F(OptionsModelTest, DamagedStoresLeaveTheDialogWorking) {
  // A store cut short: the frame can't be read and the preview stays black.
  recgen::RecordingOptions o = Recording("short");
  ASSERT_EQ(recgen::WriteRecording(o), "");
  fs::resize_file(fs::path(o.folder) / "rawdata.00.raw", 300);
  RecordingSummary s = ReadRecordingSummary(o.folder, 0, 3, true);
  EXPECT_TRUE(s.opened);
  EXPECT_EQ(s.preview.bits, 8u);
  EXPECT_EQ(s.preview.pixels, std::vector<std::uint8_t>(101 * 37, 0));

  // Stores whose sizes no buffer can hold, or whose depth is no depth.
  for (const auto& [w, h, bits] : {std::tuple{70000u, 70000u, 16u}, std::tuple{65535u, 65535u, 12u}, std::tuple{8u, 6u, 0u}}) {
    test::StoreSpec spec;
    spec.width = w, spec.height = h, spec.bits = bits == 0 ? 12 : bits, spec.frames = 1;
    if (bits == 0) spec.descriptorDepth = 0;
    const std::string folder = dir.File("huge" + std::to_string(w) + "_" + std::to_string(bits));
    fs::create_directories(folder);
    test::WriteIndependentStore(folder, spec, [&](std::uint32_t) { return std::vector<std::uint16_t>(64, 1); });
    s = ReadRecordingSummary(folder, 0, 1, true);
    EXPECT_LE(s.preview.pixels.size(), std::size_t(w) * h) << folder;
    if (s.preview.bits != 0) {
      EXPECT_EQ(s.preview.pixels.size(), std::size_t(w) * h);
    }
  }
}

}  // namespace
}  // namespace tarnvel
