#include "recording/RecordingConfig.h"

#include <gtest/gtest.h>
#include <unistd.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <random>
#include <string>

#include "platform/cordage/Profile.h"
#include "tests/recording/SuiteProfile.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::SuiteProfile;
using test::TempDir;
using test::WriteFile;

std::unique_ptr<RecordingInfo> Zeroed() {
  auto r = std::make_unique<RecordingInfo>();
  std::memset(r.get(), 0, sizeof *r);
  return r;
}

// A recording folder with a profile of the given text.
std::string MakeRecording(const TempDir& dir, const std::string& name, const std::string& profile) {
  const auto folder = dir.path() / name;
  std::filesystem::create_directories(folder);
  WriteFile(folder / "_config.pgv", profile);
  return folder.string();
}

bool AllZeroExceptName(const RecordingInfo& r) {
  auto copy = std::make_unique<RecordingInfo>(r);
  std::memset(copy->Name, 0, sizeof copy->Name);
  const auto zero = Zeroed();
  return std::memcmp(copy.get(), zero.get(), sizeof r) == 0;
}

// The plain 32-bit keys after the head and the fields they fill.
struct WordKey {
  const char* key;
  std::uint32_t RecordingInfo::*field;
};
#define WORD(key, field) \
  WordKey { key, &RecordingInfo::field }
const WordKey kWordKeys[] = {
    WORD("Frames", Frames), WORD("Per-Trig-Frms", PerTrigFrms), WORD("FrameSize", FrameSize),
    WORD("XDRContrast", XDRContrast), WORD("XDRRatio", XDRRatio), WORD("TriggerTime", TriggerTime),
    WORD("TotSyncCount", TotSyncCount), WORD("PixelFormat", PixelFormat), WORD("Model", Model),
    WORD("SensorGain", SensorGain), WORD("GammaCorrection", GammaCorrection),
    WORD("GammaCorrection1", GammaCorrection1), WORD("GammaLevel1", GammaLevel1), WORD("GammaLevel", GammaLevel),
    WORD("Sharpen", Sharpen), WORD("SharpenThreshold", SharpenThreshold), WORD("DynamicNR", DynamicNR),
    WORD("DynamicNR2", DynamicNR2), WORD("StreamingT", StreamingT), WORD("JpegEnconding", JpegEnconding),
    WORD("JpegQuality", JpegQuality), WORD("Contrast", Contrast), WORD("Brightness", Brightness),
    WORD("Hue", Hue), WORD("Saturation", Saturation), WORD("CompressionRatio", CompressionRatio),
    WORD("ExternalRate", ExternalRate), WORD("TimeOut", TimeOut), WORD("SyncInCfg", SyncInCfg),
    WORD("Binning", Binning), WORD("PixelGain", PixelGain), WORD("ExposureNs", ExposureNs),
    WORD("ExposureMode", ExposureMode), WORD("TriggerInCfg", TriggerInCfg), WORD("ROIX", ROIX),
    WORD("ROIY", ROIY), WORD("ROIW", ROIW), WORD("ROIH", ROIH), WORD("SyncOutCfg", SyncOutCfg),
    WORD("SyncOutAlignment", SyncOutAlignment), WORD("TrigInDebounce", TrigInDebounce),
    WORD("TrigInDelay", TrigInDelay), WORD("SyncInDebounce", SyncInDebounce), WORD("SyncInDelay", SyncInDelay),
    WORD("SyncInInverted", SyncInInverted), WORD("SyncInJitter", SyncInJitter),
    WORD("SyncInMutliplier", SyncInMutliplier), WORD("SyncInPTPMode", SyncInPTPMode),
    WORD("SyncInPTPDelay", SyncInPTPDelay), WORD("SyncOutWidth", SyncOutWidth), WORD("SyncOutDelay", SyncOutDelay),
    WORD("HubDelay", HubDelay), WORD("MarkerCfg", MarkerCfg), WORD("NoiseReduction", NoiseReduction),
    WORD("NoisePSC", NoisePSC), WORD("DarkColumns", DarkColumns), WORD("NoiseAuto", NoiseAuto),
    WORD("NoiseAutoPSC", NoiseAutoPSC), WORD("AEEnable", AEEnable), WORD("AEReference", AEReference),
    WORD("AEROI_X", AEROI_X), WORD("AEROI_Y", AEROI_Y), WORD("AEROI_W", AEROI_W), WORD("AEROI_H", AEROI_H),
    WORD("AESpeed", AESpeed), WORD("AEMinExp", AEMinExp), WORD("AEMaxExp", AEMaxExp),
    WORD("AEExpStep", AEExpStep), WORD("AEMinIris", AEMinIris), WORD("AEMaxIris", AEMaxIris),
    WORD("MTCondition", MTCondition), WORD("MTThreshold", MTThreshold), WORD("MTROI_X", MTROI_X),
    WORD("MTROI_Y", MTROI_Y), WORD("MTROI_W", MTROI_W), WORD("MTROI_H", MTROI_H), WORD("VideoMode", VideoMode),
    WORD("NetworkPerformance", NetworkPerformance), WORD("PlusMode", PlusMode), WORD("HDMIMode", HDMIMode),
    WORD("HDMIOverlay", HDMIOverlay), WORD("PreviewMode", PreviewMode),
    WORD("PostRecordingOperation", PostRecordingOperation), WORD("ColorIntFilter", ColorIntFilter),
    WORD("GaussianFilter", GaussianFilter), WORD("HDROIIndex", HDROIIndex), WORD("HDZoom", HDZoom),
    WORD("HDZoomX", HDZoomX), WORD("HDZoomY", HDZoomY), WORD("HDZoom2Roi", HDZoom2Roi),
    WORD("RotationAngle", RotationAngle), WORD("FlipCfg", FlipCfg),
};
#undef WORD

TEST(RecordingConfig, ReadsEveryKeyOfAProfileWrittenByTheSuite) {
  TempDir dir;
  SuiteProfile p;
  p.Section("Acquisition").Int("Images", 400).Text("Comment", "Sled test 7, left camera");
  p.Int("Year", 2024).Int("Month", 11).Int("Day", 23).Int("Hour", 14).Int("Minute", 5).Int("Second", 59);
  p.Int("Milliseconds", 321).Int("Microseconds", 654);
  p.Int("StartIdx", -100).Int("StopIdx", 299).Int("StartAvi", -50).Int("StopAvi", 250);
  p.Int("BROC Lenght", 4).Int("RecMode", 1).Int("StartAddLo", 0x80000010u).Int("StartAddHi", 3);
  p.Int("FileType", 13).Int("Pre-Start", 77).Int("PixelDepth", 12).Float("Rate", 2000.0);
  p.Float("Output_Rate", 29.97).Int("ToFrameOffset", -3).Int("LookupTable", 0);
  std::uint32_t value = 1000;
  for (const WordKey& k : kWordKeys) p.Int(k.key, k.key == std::string("Frames") ? 400 : value++);
  for (int i = 0; i < 9; ++i) p.Int("WhiteBal_" + std::to_string(i), 70000 + i);
  for (int i = 0; i < 6; ++i) p.Int("Paint_" + std::to_string(i), 300 + i);
  for (int i = 0; i < 6; ++i) p.Int("GevTiming_" + std::to_string(i), i == 1 ? -1 : 5000 + i);
  p.Section("ImgOpList").Int("Count", 0);
  const std::string folder = MakeRecording(dir, "Sled_07", p.Render());

  auto r = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(folder, *r), 1);
  EXPECT_STREQ(r->Name, "Sled_07");
  EXPECT_STREQ(r->Comment, "Sled test 7, left camera");
  EXPECT_EQ(r->Year, 2024);
  EXPECT_EQ(r->Month, 11);
  EXPECT_EQ(r->Day, 23);
  EXPECT_EQ(r->Hour, 14);
  EXPECT_EQ(r->Minute, 5);
  EXPECT_EQ(r->Second, 59);
  EXPECT_EQ(r->Milliseconds, 321);
  EXPECT_EQ(r->Microseconds, 654);
  EXPECT_EQ(r->StartIdx, -100);
  EXPECT_EQ(r->StopIdx, 299);
  EXPECT_EQ(r->StartAvi, -50);
  EXPECT_EQ(r->StopAvi, 250);
  EXPECT_EQ(r->BrocLength, 4u);
  EXPECT_EQ(r->RecMode, 1u);
  EXPECT_EQ(r->FirstFrame, -static_cast<std::int32_t>(r->PerTrigFrms));
  EXPECT_EQ(r->StartAdd, (3ull << 32) | 0x80000010ull);
  EXPECT_EQ(r->FileType, 13);
  EXPECT_EQ(r->PreStart[0], 77u);
  EXPECT_EQ(r->PixelDepth, 12u);
  EXPECT_EQ(r->OutputPixelDepth, 12u);
  EXPECT_EQ(r->Rate, 2000.0f);
  EXPECT_FLOAT_EQ(r->Output_Rate, 29.97f);
  EXPECT_EQ(r->ToFrameOffset, -3);
  EXPECT_EQ(r->SyncInDivider, 1u);
  value = 1000;
  for (const WordKey& k : kWordKeys) {
    if (k.key == std::string("Frames")) {
      EXPECT_EQ(r.get()->*k.field, 400u);
      continue;
    }
    EXPECT_EQ(r.get()->*k.field, value++) << k.key;
  }
  for (int i = 0; i < 9; ++i) EXPECT_EQ(r->WhiteBal[i], 70000u + i);
  for (int i = 0; i < 6; ++i) EXPECT_EQ(r->Paint[i], 300u + i);
  EXPECT_EQ(r->GevTiming[0], 5000u);
  EXPECT_EQ(r->GevTiming[1], 0xFFFFFFFFu) << "negative decimal of an unsigned word";
  EXPECT_EQ(r->GevTiming[5], 5005u);
  // Nothing reads these: they stay as the caller left them.
  EXPECT_EQ(r->CameraFlag, 0u);
  EXPECT_EQ(r->ResetNr, 0u);
  EXPECT_EQ(r->Magic[0], 0);
}

TEST(RecordingConfig, DefaultsOfAProfileWithOnlyImages) {
  TempDir dir;
  const std::string folder = MakeRecording(dir, "r", "[Acquisition]\r\nImages=10\r\n");
  auto r = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(folder, *r), 1);
  EXPECT_EQ(r->Year, 2005);
  EXPECT_EQ(r->Month, 1);
  EXPECT_EQ(r->Day, 1);
  EXPECT_EQ(r->Hour, 12);
  EXPECT_EQ(r->StartIdx, 0);
  EXPECT_EQ(r->StopIdx, 9);
  EXPECT_EQ(r->StartAvi, 0);
  EXPECT_EQ(r->StopAvi, 9);
  EXPECT_EQ(r->Frames, 10u);
  EXPECT_EQ(r->BrocLength, 1u);
  EXPECT_EQ(r->RecMode, 1u);
  EXPECT_EQ(r->FirstFrame, 0);
  EXPECT_EQ(r->XDRContrast, 21u);
  EXPECT_EQ(r->XDRRatio, 2u);
  EXPECT_EQ(r->PixelDepth, 8u);
  EXPECT_EQ(r->OutputPixelDepth, 8u);
  EXPECT_EQ(r->PixelFormat, 8u);
  EXPECT_EQ(r->Model, 6u);
  EXPECT_EQ(r->GammaCorrection, 10u);
  EXPECT_EQ(r->GammaCorrection1, 10u);
  EXPECT_EQ(r->GammaLevel1, 64u);
  EXPECT_EQ(r->GammaLevel, 768u);
  EXPECT_EQ(r->JpegQuality, 90u);
  EXPECT_EQ(r->Contrast, 10u);
  EXPECT_EQ(r->Brightness, 25u);
  EXPECT_EQ(r->Hue, 180u);
  EXPECT_EQ(r->Saturation, 10u);
  EXPECT_EQ(r->CompressionRatio, 70u);
  EXPECT_EQ(r->Rate, 0.0f);
  EXPECT_EQ(r->Output_Rate, 15.0f);
  EXPECT_EQ(r->TimeOut, 5000u);
  EXPECT_EQ(r->ExposureNs, 10000000u);
  EXPECT_EQ(r->ROIW, 1270u);
  EXPECT_EQ(r->ROIH, 1024u);
  EXPECT_EQ(r->TrigInDebounce, 3u);
  EXPECT_EQ(r->SyncInDebounce, 3u);
  EXPECT_EQ(r->SyncInMutliplier, 1u);
  EXPECT_EQ(r->SyncInDivider, 1u);
  EXPECT_EQ(r->SyncOutWidth, 5u);
  EXPECT_EQ(r->NoiseReduction, 1u);
  EXPECT_EQ(r->NoisePSC, 1u);
  EXPECT_EQ(r->DarkColumns, 1u);
  EXPECT_EQ(r->AEReference, 70u);
  EXPECT_EQ(r->AESpeed, 7u);
  EXPECT_EQ(r->NetworkPerformance, 2500u);
  EXPECT_EQ(r->ColorIntFilter, 255u);
  const std::uint32_t unit[9] = {65536, 0, 0, 0, 65536, 0, 0, 0, 65536};
  for (int i = 0; i < 9; ++i) EXPECT_EQ(r->WhiteBal[i], unit[i]) << i;
  const std::uint32_t paint[6] = {100, 100, 100, 250, 250, 250};
  for (int i = 0; i < 6; ++i) EXPECT_EQ(r->Paint[i], paint[i]) << i;
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(r->LookupTblPoint[i].x, 20 * i);
    EXPECT_EQ(r->LookupTblPoint[i].y, 20 * i);
  }
  EXPECT_EQ(r->StartAdd, 0u);
  EXPECT_EQ(r->BrocTime[0], 0u);
}

TEST(RecordingConfig, FolderThatIsNoRecording) {
  TempDir dir;
  // A missing profile: result 0 and nothing but Name.
  std::filesystem::create_directories(dir.path() / "empty");
  auto r = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(dir.File("empty"), *r), 0);
  EXPECT_STREQ(r->Name, "empty");
  EXPECT_TRUE(AllZeroExceptName(*r));
  // A profile without "Images", or with 0, or with a value that is no number.
  for (const char* text : {"[Acquisition]\r\nFrames=10\r\n", "[Acquisition]\r\nImages=0\r\nFrames=3\r\n",
                           "[Acquisition]\r\nImages=many\r\n", "[Other]\r\nImages=5\r\n"}) {
    const std::string folder = MakeRecording(dir, "not", text);
    auto n = Zeroed();
    EXPECT_EQ(ReadRecordingConfig(folder, *n), 0) << text;
    EXPECT_TRUE(AllZeroExceptName(*n)) << text;
  }
  // A path that is a file, not a folder.
  auto f = Zeroed();
  WriteFile(dir.path() / "plain.txt", "Images=3\n");
  EXPECT_EQ(ReadRecordingConfig(dir.File("plain.txt"), *f), 0);
}

TEST(RecordingConfig, FolderPathForms) {
  TempDir dir;
  const std::string folder = MakeRecording(dir, "Rec_A", "[Acquisition]\r\nImages=5\r\nComment=c\r\n");
  for (const std::string& form : {folder, folder + "/", folder + "\\"}) {
    auto r = Zeroed();
    ASSERT_EQ(ReadRecordingConfig(form, *r), 1) << form;
    EXPECT_STREQ(r->Name, "Rec_A") << form;
    EXPECT_EQ(r->Frames, 5u);
  }
  // Without any separator Name stays empty, and the profile is still found relative to the working folder.
  const auto cwd = std::filesystem::current_path();
  std::filesystem::current_path(dir.path());
  auto r = Zeroed();
  const int result = ReadRecordingConfig("Rec_A", *r);
  std::filesystem::current_path(cwd);
  EXPECT_EQ(result, 1);
  EXPECT_STREQ(r->Name, "");
  EXPECT_STREQ(r->Comment, "c");
  EXPECT_EQ(ProfilePathOf("Rec_A"), "Rec_A/_config.pgv");

  // A folder name longer than Name's 127 characters is cut to them.
  const std::string longName(150, 'n');
  const std::string longFolder = MakeRecording(dir, longName, "[Acquisition]\r\nImages=2\r\n");
  auto l = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(longFolder, *l), 1);
  EXPECT_EQ(std::string(l->Name), longName.substr(0, 127));
  EXPECT_EQ(l->Comment[0], '\0') << "Name never runs into Comment";

  // A folder path longer than the reader's buffer is refused: nothing is set.
  std::string deep = dir.path().string();
  while (deep.size() <= kMaxRecordingFolder) deep += "/" + std::string(40, 'd');
  std::filesystem::create_directories(deep);
  WriteFile(deep + "/_config.pgv", "[Acquisition]\r\nImages=2\r\n");
  auto d = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(deep, *d), 0);
  EXPECT_TRUE(AllZeroExceptName(*d));
  EXPECT_EQ(d->Name[0], '\0');
}

TEST(RecordingConfig, RulesBetweenKeys) {
  TempDir dir;
  auto read = [&](const std::string& body) {
    auto r = Zeroed();
    EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "r", "[Acquisition]\r\nImages=100\r\n" + body), *r), 1);
    return r;
  };
  EXPECT_EQ(read("Frames=5\r\nBROC Lenght=9\r\n")->BrocLength, 5u) << "cut to Frames";
  EXPECT_EQ(read("Frames=0\r\nBROC Lenght=9\r\n")->BrocLength, 0u);
  EXPECT_EQ(read("Per-Trig-Frms=30\r\nRecMode=1\r\n")->FirstFrame, -30);
  EXPECT_EQ(read("Per-Trig-Frms=30\r\n")->FirstFrame, -30) << "RecMode defaults to 1";
  EXPECT_EQ(read("Per-Trig-Frms=30\r\nRecMode=0\r\n")->FirstFrame, 0);
  EXPECT_EQ(read("StartAddLo=-1\r\nStartAddHi=0\r\n")->StartAdd, 4294967295ull);
  EXPECT_EQ(read("StartAddLo=0\r\nStartAddHi=-1\r\n")->StartAdd, 0xFFFFFFFF00000000ull);
  EXPECT_EQ(read("CompressionRatio=10\r\n")->CompressionRatio, 40u);
  EXPECT_EQ(read("CompressionRatio=40\r\n")->CompressionRatio, 40u);
  EXPECT_EQ(read("CompressionRatio=41\r\n")->CompressionRatio, 41u);
  EXPECT_EQ(read("ExposureNs=0\r\nExposure=500\r\n")->ExposureNs, 500000u);
  EXPECT_EQ(read("Exposure=20\r\n")->ExposureNs, 20000u) << "a profile from before ExposureNs";
  EXPECT_EQ(read("ExposureNs=7\r\nExposure=500\r\n")->ExposureNs, 7u);
  EXPECT_EQ(read("")->ExposureNs, 10000000u);
  EXPECT_EQ(read("StartIdx=7\r\nStopIdx=20\r\n")->StartAvi, 7);
  EXPECT_EQ(read("StartIdx=7\r\nStopIdx=20\r\n")->StopAvi, 20);
  EXPECT_EQ(read("Year=70000\r\nMonth=-1\r\n")->Year, 70000 & 0xFFFF) << "cut to 16 bits";
  EXPECT_EQ(read("Month=-1\r\n")->Month, 0xFFFF);
  // Lookup points only with LookupTable 1; the sixth point always ends at the top corner.
  auto lut = read(
      "LookupTable=1\r\nLookupTblPoint_0=10,20\r\nLookupTblPoint_1= 30 , 45\r\nLookupTblPoint_2=55\r\n"
      "LookupTblPoint_3=x,y\r\n");
  const LookupPoint expected[6] = {{10, 20}, {30, 45}, {0, 0}, {0, 0}, {0, 0}, {100, 100}};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(lut->LookupTblPoint[i].x, expected[i].x) << i;
    EXPECT_EQ(lut->LookupTblPoint[i].y, expected[i].y) << i;
  }
  auto straight = read("LookupTable=2\r\nLookupTblPoint_0=10,20\r\n");
  EXPECT_EQ(straight->LookupTblPoint[0].x, 0);
  EXPECT_EQ(straight->LookupTblPoint[3].y, 60);
}

TEST(RecordingConfig, BurstTimes) {
  TempDir dir;
  SuiteProfile p;
  p.Section("Acquisition").Int("Images", 5000).Int("Frames", 5000).Int("BROC Lenght", 2).Int("RecMode", 2);
  for (int i = 0; i < 2500; ++i) p.Int("BROC_Time_" + std::to_string(i), 1000 + i);
  auto r = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "burst", p.Render()), *r), 1);
  EXPECT_EQ(r->FirstFrame, 0);
  EXPECT_EQ(r->BrocTime[0], 1000u);
  EXPECT_EQ(r->BrocTime[1022], 2022u) << "1023 burst times, not 2500";
  EXPECT_EQ(r->BrocTime[1023], 0u);

  // Fewer bursts than keys: only Frames / BrocLength are read; missing ones are 0.
  SuiteProfile q;
  q.Section("Acquisition").Int("Images", 10).Int("Frames", 10).Int("BROC Lenght", 4).Int("RecMode", 2);
  q.Int("BROC_Time_0", 11).Int("BROC_Time_2", 33).Int("BROC_Time_3", 44);
  auto s = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "short", q.Render()), *s), 1);
  EXPECT_EQ(s->BrocTime[0], 11u);
  EXPECT_EQ(s->BrocTime[1], 0u);
  EXPECT_EQ(s->BrocTime[2], 0u) << "10 / 4 is 2 bursts";

  // A burst length of 0 reads no time and divides by nothing; RecMode 1 reads none either.
  for (const char* body : {"RecMode=2\r\nBROC Lenght=0\r\nBROC_Time_0=5\r\n", "RecMode=1\r\nBROC_Time_0=5\r\n"}) {
    auto z = Zeroed();
    ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "z", std::string("[Acquisition]\r\nImages=9\r\n") + body), *z), 1);
    EXPECT_EQ(z->BrocTime[0], 0u) << body;
  }
}

TEST(RecordingConfig, HeaderFieldsAlone) {
  TempDir dir;
  const std::string folder =
      MakeRecording(dir, "Head", "[Acquisition]\r\nComment=hello\r\nYear=1999\r\nFrames=4\r\n");
  auto r = Zeroed();
  ReadRecordingHeaderFields(folder + "\\", *r);
  EXPECT_STREQ(r->Name, "Head");
  EXPECT_STREQ(r->Comment, "hello");
  EXPECT_EQ(r->Year, 1999);
  EXPECT_EQ(r->Month, 1);
  EXPECT_EQ(r->Frames, 0u) << "the head reads no setting";
}

TEST(RecordingConfig, DamagedAndHostileProfiles) {
  TempDir dir;
  // Truncated in the middle of a line: the keys before the cut stand, the cut value is what is left.
  SuiteProfile p;
  p.Section("Acquisition").Int("Images", 50).Int("StartIdx", -5).Text("Comment", "abc").Int("Model", 12);
  std::string full = p.Render(false);
  const std::string cut = full.substr(0, full.size() - 3);  // "Model=1" without its line end
  auto t = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "trunc", cut), *t), 1);
  EXPECT_EQ(t->StartIdx, -5);
  EXPECT_EQ(t->Model, 1u);

  // Malformed numbers: the default where no number leads, the leading number otherwise.
  auto m = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "malformed",
                                              "[Acquisition]\r\nImages=12abc\r\nModel=x7\r\nPixelDepth=99999999999\r\n"
                                              "Rate=nan\r\nOutput_Rate=1e99\r\nROIW= 640 px\r\nStartIdx=--3\r\n"),
                                *m),
            1);
  EXPECT_EQ(m->Frames, 12u);
  EXPECT_EQ(m->Model, 6u);
  EXPECT_EQ(m->PixelDepth, 8u) << "out of 32-bit range takes the default";
  EXPECT_EQ(m->Rate, 0.0f);
  EXPECT_EQ(m->Output_Rate, 15.0f);
  EXPECT_EQ(m->ROIW, 640u);
  EXPECT_EQ(m->StartIdx, 0);

  // Overlong values are cut to their field and never reach the next one.
  const std::string longComment(5000, 'C');
  auto o = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "long", "[Acquisition]\r\nImages=3\r\nComment=" + longComment +
                                                                 "\r\nLookupTable=1\r\nLookupTblPoint_0=" +
                                                                 std::string(4000, '7') + "," + "8\r\n"),
                                *o),
            1);
  EXPECT_EQ(std::string(o->Comment), longComment.substr(0, 127));
  EXPECT_EQ(o->Day, 1);
  EXPECT_EQ(o->LookupTblPoint[0].x, 0) << "cut to 255 characters without a comma: (0,0)";

  // Binary noise, with and without a valid head.
  std::mt19937 rng(7);
  std::string noise(64 * 1024, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  auto b = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "noise", noise), *b), 0);
  auto b2 = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "noise2", "[Acquisition]\r\nImages=4\r\n" + noise), *b2), 1);

  // An enormous file reads as empty: no recording, nothing set.
  const std::string big = MakeRecording(dir, "big", "");
  {
    std::FILE* f = std::fopen((big + "/_config.pgv").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("[Acquisition]\r\nImages=4\r\n", f);
    std::fseek(f, static_cast<long>(kMaxProfileBytes + 10), SEEK_SET);
    std::fputc('\n', f);
    std::fclose(f);
  }
  auto e = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(big, *e), 0);

  // Burst keys with a huge burst count and the highest possible Frames stay within BrocTime.
  auto h = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "huge", "[Acquisition]\r\nImages=-1\r\nFrames=-1\r\nRecMode=2\r\n"
                                                           "BROC Lenght=1\r\nBROC_Time_1022=9\r\nBROC_Time_1023=9\r\n"),
                                *h),
            1);
  EXPECT_EQ(h->BrocTime[1022], 9u);
  EXPECT_EQ(h->BrocTime[1023], 0u);
  EXPECT_EQ(h->StopIdx, -2) << "Images - 1";
}

TEST(RecordingConfig, CopyConfigCompanions) {
  TempDir dir;
  const auto rec = dir.path() / "rec";
  const auto out = dir.path() / "out";
  std::filesystem::create_directories(rec);
  std::filesystem::create_directories(out);
  WriteFile(rec / "_config.pgv", "[Acquisition]\r\nImages=1\r\n");
  WriteFile(rec / "_config.mii", "movies");
  WriteFile(out / "_config.pgv", "kept");  // an existing destination is left alone
  EXPECT_EQ(CopyConfigCompanions(out.string(), rec.string()), 1);
  EXPECT_EQ(test::ReadFile(out / "_config.pgv"), "kept");
  EXPECT_EQ(test::ReadFile(out / "_config.mii"), "movies");
  EXPECT_FALSE(std::filesystem::exists(out / "_config.mme")) << "a missing source is passed over";
  // A destination that cannot be written to: nothing copied, nothing thrown.
  EXPECT_EQ(CopyConfigCompanions((dir.path() / "no" / "such").string(), rec.string()), 0);
  EXPECT_EQ(CopyConfigCompanions(out.string() + "/", rec.string() + "\\"), 0) << "all present now";
}

}  // namespace
}  // namespace tarnvel
