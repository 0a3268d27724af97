// tarnvel-cli's output choices: parsing of hostile command lines, the
// choices set on the options model, and conversions with them checked pixel
// by pixel through Pillow against the generator's samples.
#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <string>
#include <vector>

#include "apps/cli/CliArguments.h"
#include "apps/recgen/RecordingGenerator.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

std::string Cli() { return (test::BinaryDir() / "apps/tarnvel-cli").string(); }

CliParse Parse(std::vector<const char*> args) {
  args.insert(args.begin(), "tarnvel-cli");
  return ParseCliArguments(static_cast<int>(args.size()), args.data());
}

TEST(CliArgumentsTest, ValuesAndTheirRefusals) {
  CliParse p = Parse({"--type", "PNG", "--depth=8", "--bit-range", "Middle", "--rate", "0", "--codec", "MJPG",
                      "--quality", "75", "--reset-numbering", "--keep-raw", "--dest", "out", "--parallel", "3", "a/args.ini",
                      "--", "--odd"});
  ASSERT_EQ(p.error, "");
  const CliArguments& a = p.arguments;
  EXPECT_EQ(a.choices.fileType, "4") << "an extension becomes its number";
  EXPECT_EQ(a.choices.depth, "8");
  EXPECT_EQ(a.choices.bitRange, "Middle");
  EXPECT_EQ(a.choices.rate, "0");
  EXPECT_EQ(a.choices.codec, "MJPG");
  EXPECT_EQ(a.choices.quality, "75");
  EXPECT_EQ(a.choices.resetNumbering, true);
  EXPECT_EQ(a.choices.deleteRaw, false);
  EXPECT_EQ(a.parallel, 3);
  EXPECT_EQ(a.destination, (fs::current_path() / "out").string()) << "made whole like the paths";
  ASSERT_EQ(a.paths.size(), 2u);
  EXPECT_EQ(a.paths[1], (fs::current_path() / "--odd").string());
  EXPECT_TRUE(a.choices.Any());
  EXPECT_EQ(Parse({"--type", "1", "--type", ".mp4", "x"}).arguments.choices.fileType, "18") << "the last one counts";
  EXPECT_EQ(Parse({"--no-reset-numbering", "--delete-raw", "x"}).arguments.choices.deleteRaw, true);
  EXPECT_FALSE(Parse({"--dest", "d", "x"}).arguments.choices.Any());
  EXPECT_TRUE(Parse({"--help"}).arguments.help);
  EXPECT_TRUE(Parse({"-h", "--bogus"}).arguments.help) << "help before a wrong option still helps";

  const std::string longFolder(300, 'f');
  const struct {
    std::vector<const char*> args;
    const char* says;
  } wrong[] = {
      {{}, "no PATH"},
      {{"--type", "gif", "x"}, "offered: tif (1), bmp (2)"},
      {{"--type", "8", "x"}, "not a file type offered"},
      {{"--type", "", "x"}, "not a file type offered"},
      {{"--type"}, "--type needs a value"},
      {{"--depth", "0", "x"}, "--depth 0: bits per pixel"},
      {{"--depth", "12bit", "x"}, "bits per pixel"},
      {{"--depth", "99999999999999999999", "x"}, "bits per pixel"},
      {{"--bit-range", "top", "x"}, "one of upper, middle, lower"},
      {{"--rate", "-1", "x"}, "digits only"},
      {{"--rate", "2147483648", "x"}, "0 to 2147483647"},
      {{"--rate", "30fps", "x"}, "digits only"},
      {{"--quality", "101", "x"}, "from 0 to 100"},
      {{"--quality=", "x"}, "from 0 to 100"},
      {{"--codec=", "x"}, "--codec needs"},
      {{"--dest", "", "x"}, "--dest needs a folder"},
      {{"--dest", longFolder.c_str(), "x"}, "at most 259 characters"},
      {{"--parallel", "13", "x"}, "from 1 to 12"},
      {{"--frobnicate", "x"}, "unknown option --frobnicate"},
      {{"--typo=png", "x"}, "unknown option"},
      {{"--listen", "--depth", "8"}, "apply to the PATH arguments"},
  };
  for (const auto& w : wrong) {
    const CliParse bad = Parse(w.args);
    EXPECT_NE(bad.error.find(w.says), std::string::npos) << bad.error;
  }
  EXPECT_EQ(Parse({"--listen"}).error, "") << "listening alone needs no PATH";
}

class CliOptionsTest : public ::testing::Test {
 protected:
  static void SetUpTestSuite() { DriverInit(0); }
  static void TearDownTestSuite() { DriverExit(); }

  recgen::RecordingOptions Recording(const std::string& name, std::uint32_t bits = 12) {
    recgen::RecordingOptions o;
    o.folder = dir.File(name);
    o.width = 61, o.height = 23, o.frames = 3, o.preTrigger = 0, o.sampleBits = bits, o.baseName = "shot";
    EXPECT_EQ(recgen::WriteRecording(o), "");
    return o;
  }
  // The command's exit status; its output in `output`.
  int Run(const std::string& arguments) {
    output.clear();
    return test::RunCommand(Cli() + " " + arguments + " 2>&1", &output);
  }
  // Samples of an image file as Pillow reads them, one 16-bit value a sample.
  std::vector<std::uint16_t> ReadWithPillow(const fs::path& file) {
    const fs::path raw = dir.path() / "pillow.raw";
    const std::string script =
        "import sys, numpy; from PIL import Image; "
        "open(sys.argv[2], 'wb').write(numpy.asarray(Image.open(sys.argv[1])).astype('<u2').tobytes())";
    EXPECT_EQ(test::RunCommand("/usr/bin/python3 -c \"" + script + "\" '" + file.string() + "' '" + raw.string() + "'"), 0) << file;
    const std::string bytes = test::ReadFile(raw);
    std::vector<std::uint16_t> values(bytes.size() / 2);
    std::memcpy(values.data(), bytes.data(), values.size() * 2);
    return values;
  }

  test::TempDir dir;
  std::string output;
};

TEST_F(CliOptionsTest, ModelRefusesWhatTheDialogWouldNotAllow) {
  const recgen::RecordingOptions mono = Recording("mono");
  const std::string args = JoinPath(mono.folder, "args.ini");
  auto choose = [&](std::vector<const char*> flags) {
    flags.push_back(args.c_str());
    const CliParse p = Parse(flags);
    EXPECT_EQ(p.error, "");
    return ChooseJob(args, p.arguments.choices);
  };
  ChosenJob job = choose({"--type", "avi", "--depth", "8", "--bit-range", "lower", "--rate", "0", "--codec", "h.264 (X264, PRESET MEDIUM)",
                          "--quality", "40", "--reset-numbering", "--delete-raw"});
  ASSERT_EQ(job.error, "");
  EXPECT_EQ(job.overrides.fileType, 13);
  EXPECT_EQ(job.overrides.outputDepth, 8);
  EXPECT_EQ(job.overrides.bitRange, 2);
  EXPECT_EQ(job.overrides.playbackRate, 5) << "0 gives 5";
  EXPECT_EQ(job.overrides.codec.handler, framekit::kMovieH264);
  EXPECT_EQ(job.overrides.codec.quality, 4000u);
  EXPECT_STREQ(job.overrides.codec.name, "H.264 (x264, preset medium)");
  EXPECT_EQ(job.overrides.resetNumbering, 1u);
  EXPECT_EQ(job.overrides.deleteRaw, 1u);

  // Handlers by four-character code (padded) or number; the quality alone
  // keeps the listed default compressor.
  EXPECT_EQ(choose({"--type", "13", "--codec", "dib"}).overrides.codec.handler, framekit::kMovieRaw);
  EXPECT_EQ(choose({"--type", "mpt", "--codec", "5"}).overrides.codec.mptCodec, 5u);
  EXPECT_EQ(choose({"--type", "mov", "--codec", "apcn"}).overrides.codec.movCodec, framekit::kMovieProRes);
  EXPECT_EQ(choose({"--type", "jpg", "--quality", "85"}).overrides.codec.jpegQuality, 8500u);
  job = choose({"--type", "avi", "--quality", "55"});
  EXPECT_EQ(job.overrides.codec.handler, framekit::kMovieMotionJpeg);
  EXPECT_EQ(job.overrides.codec.quality, 5500u);
  // Without choices of depth, the dialog's own start: the profile's depth.
  job = choose({"--type", "png"});
  EXPECT_EQ(job.overrides.outputDepth, 12);
  EXPECT_EQ(job.overrides.playbackRate, 25) << "the profile's rate, read from the disabled field";
  EXPECT_EQ(choose({"--bit-range", "middle", "--depth", "8"}).overrides.bitRange, 1);

  const struct {
    std::vector<const char*> flags;
    const char* says;
  } refused[] = {
      {{"--depth", "16"}, "output depth 16 bit is not offered for a 12-bit recording, as TIFF File (*.tif); offered: 12 bit, 11 bit"},
      {{"--type", "bmp", "--depth", "12"}, "offered: 8 bit (upper), 8 bit (middle), 8 bit (lower)"},
      {{"--depth", "12", "--bit-range", "middle"}, "12 bit, range middle is not offered"},
      {{"--bit-range", "lower"}, "12 bit, range lower is not offered"},
      {{"--depth", "24"}, "is not offered"},
      {{"--type", "png", "--rate", "30"}, "PNG File (*.png) has no playback rate"},
      {{"--type", "png", "--codec", "LZW"}, "has no compressor choice"},
      {{"--type", "png", "--quality", "50"}, "has no compressor choice"},
      {{"--type", "avi", "--codec", "H265"}, "listed: \"Motion JPEG\" (MJPG), \"Uncompressed (24-bit RGB)\" (DIB )"},
      {{"--type", "mpt", "--codec", "6"}, "\"LZW\" (5)"},
      {{"--type", "mp4", "--quality", "50"}, "has no quality setting"},
      {{"--type", "avi", "--codec", "dib", "--quality", "50"}, "\"Uncompressed (24-bit RGB)\" of Audio Video Interleaved"},
  };
  for (const auto& r : refused) {
    job = choose(r.flags);
    EXPECT_NE(job.error.find(r.says), std::string::npos) << job.error;
  }

  // Choices that never went through the parser match nothing rather than crash.
  OutputChoices unparsed;
  unparsed.depth = "abc";
  EXPECT_NE(ChooseJob(args, unparsed).error.find("is not offered"), std::string::npos);
  unparsed = {};
  unparsed.fileType = "avi", unparsed.quality = "500";
  EXPECT_NE(ChooseJob(args, unparsed).error.find("from 0 to 100"), std::string::npos);
  unparsed = {};
  unparsed.fileType = "gif";
  EXPECT_NE(ChooseJob(args, unparsed).error.find("not a file type offered"), std::string::npos);

  // A recording that can't be opened offers 8 bits alone; its job fails when it runs.
  fs::remove(fs::path(mono.folder) / "rawfile.xml");
  EXPECT_EQ(choose({"--depth", "8"}).error, "");
  EXPECT_NE(choose({"--depth", "10"}).error.find("a recording that cannot be opened, as TIFF File (*.tif); offered: 8 bit"),
            std::string::npos);
}

TEST_F(CliOptionsTest, DepthAndBitRangeIntoPngPixelByPixel) {
  const recgen::RecordingOptions twelve = Recording("twelve");
  const recgen::RecordingOptions sixteen = Recording("sixteen", 16);
  const struct {
    const recgen::RecordingOptions* recording;
    const char* flags;
    std::uint32_t shift;  // the sample shifted right, clamped to the output's full scale
    std::uint32_t fullScale;
  } runs[] = {
      {&twelve, "--depth 8 --bit-range upper", 4, 255},
      {&twelve, "--depth 8 --bit-range lower", 2, 255},
      {&twelve, "--depth 12", 0, 4095},
      {&sixteen, "--depth 12", 4, 4095},
      {&sixteen, "--depth 8 --bit-range middle", 7, 255},
  };
  int n = 0;
  for (const auto& r : runs) {
    SCOPED_TRACE(r.flags);
    const std::string dest = dir.File("out" + std::to_string(n++));
    ASSERT_EQ(Run("--type png --keep-raw " + std::string(r.flags) + " --dest " + dest + " " +
                  JoinPath(r.recording->folder, "args.ini")), 0)
        << output;
    const fs::path folder = fs::path(dest) / fs::path(r.recording->folder).filename();
    for (std::uint32_t frame = 0; frame < 3; ++frame) {
      char name[32];
      std::snprintf(name, sizeof name, "shot%06u.png", frame);
      const auto pixels = ReadWithPillow(folder / name);
      const auto samples = recgen::SensorSamples(*r.recording, frame);
      ASSERT_EQ(pixels.size(), samples.size()) << name;
      // 12 significant bits may be kept as they are or scaled to 16 with sBIT.
      const bool scaled = r.fullScale == 4095 && *std::max_element(pixels.begin(), pixels.end()) > 4095;
      for (std::size_t i = 0; i < samples.size(); ++i)
        ASSERT_EQ(scaled ? pixels[i] >> 4 : pixels[i], std::min<std::uint32_t>(samples[i] >> r.shift, r.fullScale))
            << name << " sample " << i;
    }
    EXPECT_TRUE(fs::exists(fs::path(r.recording->folder) / "rawdata.00.raw")) << "--keep-raw";
  }
}

TEST_F(CliOptionsTest, AWrongChoiceForOnePathConvertsNothing) {
  const recgen::RecordingOptions twelve = Recording("twelve");
  const recgen::RecordingOptions eight = Recording("eight", 8);
  const std::string both = JoinPath(twelve.folder, "args.ini") + " " + JoinPath(eight.folder, "args.ini");
  EXPECT_EQ(Run("--depth 10 " + both), 2) << output;
  EXPECT_NE(output.find(JoinPath(eight.folder, "args.ini") + ": output depth 10 bit is not offered for a 8-bit recording"),
            std::string::npos)
      << output;
  EXPECT_EQ(output.find("twelve/args.ini:"), std::string::npos) << "the good path isn't named";
  EXPECT_FALSE(fs::exists(fs::path(twelve.folder) / "shot000000.tif")) << "nothing is converted";

  test::WriteFile(dir.path() / "jobs.bat", "[List]\nSignature=OKN Fathom Bureau Raw Batch File V 1.00\nCount=0\n");
  EXPECT_EQ(Run("--type png " + dir.File("jobs.bat")), 2);
  EXPECT_NE(output.find("a batch file carries its own output settings"), std::string::npos) << output;
  EXPECT_EQ(Run("--bogus " + both), 2);
  EXPECT_NE(output.find("Try 'tarnvel-cli --help'"), std::string::npos);

  // --help tells every option and the exit statuses.
  EXPECT_EQ(Run("--help"), 0);
  for (const char* option : {"--type", "--depth", "--bit-range", "--rate", "--codec", "--quality", "--reset-numbering",
                             "--no-reset-numbering", "--delete-raw", "--keep-raw", "--dest", "--parallel", "--listen",
                             "--help", "Exit status", "  2  ", "51  dng"})
    EXPECT_NE(output.find(option), std::string::npos) << option;

  // Only a destination: the job keeps its own settings and writes there.
  ASSERT_EQ(Run("--dest " + dir.File("elsewhere") + " " + JoinPath(twelve.folder, "args.ini")), 0) << output;
  EXPECT_TRUE(fs::exists(dir.path() / "elsewhere/twelve/shot000002.tif"));
  EXPECT_TRUE(fs::exists(dir.path() / "elsewhere/twelve/_config.pgv"));
}

}  // namespace
}  // namespace tarnvel
