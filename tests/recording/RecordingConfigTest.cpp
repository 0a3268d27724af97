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

// Reads a profile of "[Acquisition]" with Images=100 and the given lines.
std::unique_ptr<RecordingInfo> Read(const TempDir& dir, const std::string& body, int expected = 1) {
  auto r = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "r", "[Acquisition]\r\nImages=100\r\n" + body), *r), expected) << body;
  return r;
}

bool AllZeroExceptName(const RecordingInfo& r) {
  auto copy = std::make_unique<RecordingInfo>(r);
  std::memset(copy->Name, 0, sizeof copy->Name);
  return std::memcmp(copy.get(), Zeroed().get(), sizeof r) == 0;
}

TEST(RecordingConfig, ReadsAProfileWrittenByTheSuite) {
  TempDir dir;
  SuiteProfile p;  // every key twice, as the suite writes it
  p.Section("Acquisition").Int("Images", 400).Text("Comment", "Sled test 7, left camera").Int("Year", 2024);
  p.Int("Microseconds", 654).Int("StartIdx", -100).Int("StopAvi", 250).Int("BROC Lenght", 4).Int("Frames", 400);
  p.Int("StartAddLo", 0x80000010u).Int("StartAddHi", 3).Int("Per-Trig-Frms", 30).Int("PixelDepth", 12);
  p.Float("Rate", 2000.0).Float("Output_Rate", 29.97).Int("ToFrameOffset", -3).Int("ExposureNs", 3000000000u);
  p.Int("ROIW", 640).Int("SyncInMutliplier", 4).Int("FlipCfg", 2).Int("AEROI_H", 77).Int("GevTiming_1", -1);
  for (int i = 0; i < 9; ++i) p.Int("WhiteBal_" + std::to_string(i), 70000 + i);
  p.Section("ImgOpList").Int("Count", 0);
  auto r = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "Sled_07", p.Render()), *r), 1);
  EXPECT_STREQ(r->Name, "Sled_07");
  EXPECT_STREQ(r->Comment, "Sled test 7, left camera");
  EXPECT_EQ(r->Year, 2024);
  EXPECT_EQ(r->Microseconds, 654);
  EXPECT_EQ(r->StartIdx, -100);
  EXPECT_EQ(r->StopIdx, 399) << "Images - 1";
  EXPECT_EQ(r->StartAvi, -100);
  EXPECT_EQ(r->StopAvi, 250);
  EXPECT_EQ(r->BrocLength, 4u);
  EXPECT_EQ(r->FirstFrame, -30);
  EXPECT_EQ(r->StartAdd, (3ull << 32) | 0x80000010ull);
  EXPECT_EQ(r->OutputPixelDepth, 12u);
  EXPECT_EQ(r->Rate, 2000.0f);
  EXPECT_FLOAT_EQ(r->Output_Rate, 29.97f);
  EXPECT_EQ(r->ToFrameOffset, -3);
  EXPECT_EQ(r->ExposureNs, 3000000000u) << "negative decimal of an unsigned word";
  EXPECT_EQ(r->ROIW, 640u);
  EXPECT_EQ(r->SyncInMutliplier, 4u);
  EXPECT_EQ(r->FlipCfg, 2u);
  EXPECT_EQ(r->AEROI_H, 77u);
  EXPECT_EQ(r->GevTiming[1], 0xFFFFFFFFu);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(r->WhiteBal[i], 70000u + i);
  EXPECT_EQ(r->ResetNr, 0u) << "nothing reads it: it stays as the caller left it";

  // Only Images: the values that follow from it, and unit white balance and a straight lookup line.
  auto d = Read(dir, "");
  EXPECT_EQ(d->StopIdx, 99);
  EXPECT_EQ(d->StopAvi, 99);
  EXPECT_EQ(d->Frames, 100u);
  EXPECT_EQ(d->OutputPixelDepth, d->PixelDepth);
  for (int i = 0; i < 9; ++i) EXPECT_EQ(d->WhiteBal[i], i % 4 ? 0u : 65536u) << i;
  for (int i = 0; i < 6; ++i) EXPECT_EQ(d->LookupTblPoint[i].x, 20 * i);
}

TEST(RecordingConfig, FoldersThatAreNoRecording) {
  TempDir dir;
  std::filesystem::create_directories(dir.path() / "empty");
  auto r = Zeroed();
  EXPECT_EQ(ReadRecordingConfig(dir.File("empty"), *r), 0);
  EXPECT_STREQ(r->Name, "empty");
  EXPECT_TRUE(AllZeroExceptName(*r));
  for (const char* text : {"[Acquisition]\r\nFrames=10\r\n", "[Acquisition]\r\nImages=0\r\nFrames=3\r\n",
                           "[Acquisition]\r\nImages=many\r\n", "[Other]\r\nImages=5\r\n"}) {
    auto n = Zeroed();
    EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "not", text), *n), 0) << text;
    EXPECT_TRUE(AllZeroExceptName(*n)) << text;
  }
  WriteFile(dir.path() / "plain.txt", "Images=3\n");
  EXPECT_EQ(ReadRecordingConfig(dir.File("plain.txt"), *Zeroed()), 0);
}

TEST(RecordingConfig, FolderPathForms) {
  TempDir dir;
  const std::string folder = MakeRecording(dir, "Rec_A", "[Acquisition]\r\nImages=5\r\nComment=c\r\n");
  for (const std::string& form : {folder, folder + "/", folder + "\\"}) {
    auto r = Zeroed();
    ASSERT_EQ(ReadRecordingConfig(form, *r), 1) << form;
    EXPECT_STREQ(r->Name, "Rec_A") << form;
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

  // A folder name longer than Name's 127 characters is cut to them.
  const std::string longName(150, 'n');
  auto l = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, longName, "[Acquisition]\r\nImages=2\r\n"), *l), 1);
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

  // The head alone: name, comment and date, no setting.
  auto h = Zeroed();
  ReadRecordingHeaderFields(folder + "\\", *h);
  EXPECT_STREQ(h->Name, "Rec_A");
  EXPECT_STREQ(h->Comment, "c");
  EXPECT_EQ(h->Month, 1);
  EXPECT_EQ(h->Frames, 0u);
}

TEST(RecordingConfig, RulesBetweenKeys) {
  TempDir dir;
  EXPECT_EQ(Read(dir, "Frames=5\r\nBROC Lenght=9\r\n")->BrocLength, 5u) << "cut to Frames";
  EXPECT_EQ(Read(dir, "Frames=0\r\nBROC Lenght=9\r\n")->BrocLength, 0u);
  EXPECT_EQ(Read(dir, "Per-Trig-Frms=30\r\n")->FirstFrame, -30) << "RecMode defaults to 1";
  EXPECT_EQ(Read(dir, "Per-Trig-Frms=30\r\nRecMode=0\r\n")->FirstFrame, 0);
  EXPECT_EQ(Read(dir, "StartAddLo=-1\r\nStartAddHi=0\r\n")->StartAdd, 4294967295ull);
  EXPECT_EQ(Read(dir, "StartAddLo=0\r\nStartAddHi=-1\r\n")->StartAdd, 0xFFFFFFFF00000000ull);
  for (const auto& [given, read] : {std::pair{10u, 40u}, std::pair{40u, 40u}, std::pair{41u, 41u}})
    EXPECT_EQ(Read(dir, "CompressionRatio=" + std::to_string(given) + "\r\n")->CompressionRatio, read);
  EXPECT_EQ(Read(dir, "ExposureNs=0\r\nExposure=500\r\n")->ExposureNs, 500000u);
  EXPECT_EQ(Read(dir, "Exposure=20\r\n")->ExposureNs, 20000u) << "a profile from before ExposureNs";
  EXPECT_EQ(Read(dir, "ExposureNs=7\r\nExposure=500\r\n")->ExposureNs, 7u);
  EXPECT_EQ(Read(dir, "Year=70000\r\n")->Year, 70000 & 0xFFFF) << "cut to 16 bits";
  EXPECT_EQ(Read(dir, "Month=-1\r\n")->Month, 0xFFFF);
  // Lookup points only with LookupTable 1; the sixth point always ends at the top corner.
  auto lut = Read(dir, "LookupTable=1\r\nLookupTblPoint_0=10,20\r\nLookupTblPoint_1= 30 , 45\r\nLookupTblPoint_2=55\r\n"
                       "LookupTblPoint_3=x,y\r\n");
  const LookupPoint expected[6] = {{10, 20}, {30, 45}, {0, 0}, {0, 0}, {0, 0}, {100, 100}};
  for (int i = 0; i < 6; ++i) {
    EXPECT_EQ(lut->LookupTblPoint[i].x, expected[i].x) << i;
    EXPECT_EQ(lut->LookupTblPoint[i].y, expected[i].y) << i;
  }
  EXPECT_EQ(Read(dir, "LookupTable=2\r\nLookupTblPoint_0=10,20\r\n")->LookupTblPoint[0].x, 0);

  // Burst times: at most 1023, only Frames / BrocLength of them, none for RecMode 1 or a length of 0.
  SuiteProfile p;
  p.Section("Acquisition").Int("Images", 5000).Int("Frames", 5000).Int("BROC Lenght", 2).Int("RecMode", 2);
  for (int i = 0; i < 2500; ++i) p.Int("BROC_Time_" + std::to_string(i), 1000 + i);
  auto b = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "burst", p.Render()), *b), 1);
  EXPECT_EQ(b->FirstFrame, 0);
  EXPECT_EQ(b->BrocTime[1022], 2022u);
  EXPECT_EQ(b->BrocTime[1023], 0u);
  auto s = Read(dir, "Frames=10\r\nBROC Lenght=4\r\nRecMode=2\r\nBROC_Time_0=11\r\nBROC_Time_2=33\r\n");
  EXPECT_EQ(s->BrocTime[0], 11u);
  EXPECT_EQ(s->BrocTime[2], 0u) << "10 / 4 is 2 bursts";
  for (const char* body : {"RecMode=2\r\nBROC Lenght=0\r\nBROC_Time_0=5\r\n", "RecMode=1\r\nBROC_Time_0=5\r\n"})
    EXPECT_EQ(Read(dir, body)->BrocTime[0], 0u) << body;
}

TEST(RecordingConfig, DamagedAndHostileProfiles) {
  TempDir dir;
  // Truncated in the middle of a line: the keys before the cut stand, the cut value is what is left.
  auto t = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "trunc", "[Acquisition]\r\nImages=50\r\nStartIdx=-5\r\nModel=1"), *t), 1);
  EXPECT_EQ(t->StartIdx, -5);
  EXPECT_EQ(t->Model, 1u);

  // Malformed numbers: the default where no number leads, the leading number otherwise.
  auto m = Read(dir, "Frames=12abc\r\nModel=x7\r\nPixelDepth=99999999999\r\nRate=nan\r\nOutput_Rate=1e99\r\n"
                     "ROIW= 640 px\r\nStartIdx=--3\r\n");
  auto defaults = Read(dir, "");
  EXPECT_EQ(m->Frames, 12u);
  EXPECT_EQ(m->Model, defaults->Model);
  EXPECT_EQ(m->PixelDepth, defaults->PixelDepth) << "out of 32-bit range takes the default";
  EXPECT_EQ(m->Rate, defaults->Rate);
  EXPECT_EQ(m->Output_Rate, defaults->Output_Rate);
  EXPECT_EQ(m->ROIW, 640u);
  EXPECT_EQ(m->StartIdx, 0);

  // Overlong values are cut to their field and never reach the next one.
  const std::string longComment(5000, 'C');
  auto o = Read(dir, "Comment=" + longComment + "\r\nLookupTable=1\r\nLookupTblPoint_0=" + std::string(4000, '7') + ",8\r\n");
  EXPECT_EQ(std::string(o->Comment), longComment.substr(0, 127));
  EXPECT_EQ(o->Day, defaults->Day);
  EXPECT_EQ(o->LookupTblPoint[0].x, 0) << "cut to 255 characters without a comma: (0,0)";

  // Binary noise, with and without a valid head.
  std::mt19937 rng(7);
  std::string noise(64 * 1024, '\0');
  for (char& c : noise) c = static_cast<char>(rng());
  EXPECT_EQ(ReadRecordingConfig(MakeRecording(dir, "noise", noise), *Zeroed()), 0);
  Read(dir, noise);

  // An enormous file reads as empty: no recording, nothing set.
  const std::string big = MakeRecording(dir, "big", "[Acquisition]\r\nImages=4\r\n");
  std::filesystem::resize_file(big + "/_config.pgv", kMaxProfileBytes + 10);
  EXPECT_EQ(ReadRecordingConfig(big, *Zeroed()), 0);

  // A huge burst count and the highest possible Frames stay within BrocTime.
  auto h = Zeroed();
  ASSERT_EQ(ReadRecordingConfig(MakeRecording(dir, "huge", "[Acquisition]\r\nImages=-1\r\nFrames=-1\r\nRecMode=2\r\n"
                                                           "BROC Lenght=1\r\nBROC_Time_1022=9\r\nBROC_Time_1023=9\r\n"), *h),
            1);
  EXPECT_EQ(h->BrocTime[1022], 9u);
  EXPECT_EQ(h->BrocTime[1023], 0u);
  EXPECT_EQ(h->StopIdx, -2) << "Images - 1";
}

TEST(RecordingConfig, CopyConfigCompanions) {
  TempDir dir;
  const auto rec = dir.path() / "rec", out = dir.path() / "out";
  std::filesystem::create_directories(rec);
  std::filesystem::create_directories(out);
  WriteFile(rec / "_config.pgv", "[Acquisition]\r\nImages=1\r\n");
  WriteFile(rec / "_config.mii", "movies");
  WriteFile(out / "_config.pgv", "kept");  // an existing destination is left alone
  const CompanionCopies first = CopyConfigCompanions(out.string(), rec.string());
  EXPECT_EQ(first.copied, std::vector<std::string>{(out / "_config.mii").string()});
  EXPECT_TRUE(first.failed.empty());
  EXPECT_EQ(test::ReadFile(out / "_config.pgv"), "kept");
  EXPECT_EQ(test::ReadFile(out / "_config.mii"), "movies");
  EXPECT_FALSE(std::filesystem::exists(out / "_config.mme")) << "a missing source is passed over";
  const CompanionCopies nowhere = CopyConfigCompanions((dir.path() / "no" / "such").string(), rec.string());
  EXPECT_TRUE(nowhere.copied.empty());
  EXPECT_EQ(nowhere.failed.size(), 2u) << "a copy into a folder that is gone fails, and says so";
  const CompanionCopies again = CopyConfigCompanions(out.string() + "/", rec.string() + "\\");
  EXPECT_TRUE(again.copied.empty() && again.failed.empty()) << "all present now";
}

}  // namespace
}  // namespace tarnvel
