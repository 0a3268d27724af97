#include "recording/MmeSidecars.h"

#include <gtest/gtest.h>

#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::ReadFile;
using test::TempDir;
using test::WriteFile;

MmeRecord Empty() {
  MmeRecord r;
  std::memset(&r, 0, sizeof r);
  return r;
}

std::vector<std::string> Lines(const std::string& text) {
  std::vector<std::string> lines;
  std::size_t start = 0;
  for (std::size_t end; (end = text.find("\r\n", start)) != std::string::npos; start = end + 2)
    lines.push_back(text.substr(start, end - start));
  EXPECT_EQ(start, text.size()) << "every line ends in CRLF";
  return lines;
}

TEST(MmeHeader, DefaultFileWrittenAndReadBack) {
  TempDir dir;
  MmeRecord r = Empty();
  std::strcpy(r.field[kMmeTitle], "Frontal impact 56 km/h");
  std::strcpy(r.field[kMmeLaboratory], "Crash Lab North");
  std::strcpy(r.field[kMmeEngineerMail], "eng@example.org");
  std::strcpy(r.field[kMmeMovieOrigin], "Camera left");
  ASSERT_TRUE(WriteMmeHeader(dir.path().string() + "/", "", r));
  const std::string text = ReadFile(dir.path() / "_default.mme");
  const auto lines = Lines(text);
  ASSERT_EQ(lines.size(), 28u);
  int unset = 0;
  for (const std::string& line : lines) {
    EXPECT_EQ(line.find(':'), kMmeKeyWidth - 1) << line;
    unset += line.ends_with(":NOVALUE");
  }
  EXPECT_EQ(unset, 23);
  EXPECT_EQ(lines[0], "Data format edition number  :1.6");
  EXPECT_EQ(lines[1], "Laboratory name             :Crash Lab North");
  EXPECT_EQ(lines[15], "Customer test engineer email:eng@example.org");
  EXPECT_EQ(lines[16], "Title                       :Frontal impact 56 km/h");
  EXPECT_EQ(lines[27], "MII Origin                  :Camera left");

  MmeRecord back = Empty();
  std::memset(back.field[kMmeRegulation], 'x', 20);  // a field the file clears with NOVALUE
  ASSERT_TRUE(ReadMmeHeader(dir.path().string(), "", back));
  EXPECT_EQ(std::memcmp(&back, &r, sizeof r), 0) << "every value comes back; NOVALUE reads as empty";

  // A value cannot open a line of its own.
  std::strcpy(r.field[kMmeTitle], "one\r\nRegulation                  :injected");
  ASSERT_TRUE(WriteMmeHeader(dir.path().string(), "", r));
  ASSERT_TRUE(ReadMmeHeader(dir.path().string(), "", back));
  EXPECT_STREQ(back.field[kMmeTitle], "one");
  EXPECT_STREQ(back.field[kMmeRegulation], "");
}

TEST(MmeHeader, RecordingFileHasNoMovieLinesAndDatesItself) {
  TempDir dir;
  const auto rec = dir.path() / "Test_12";
  std::filesystem::create_directories(rec);
  MmeRecord r = Empty();
  std::strcpy(r.field[kMmeMovieComment], "not written here");
  ASSERT_TRUE(WriteMmeHeader("", rec.string(), r));
  EXPECT_EQ(MmeHeaderWritePath("", rec.string()), (rec / "Test_12.mme").string());
  const std::string text = ReadFile(rec / "Test_12.mme");
  EXPECT_EQ(text.find("MII"), std::string::npos);
  EXPECT_TRUE(std::regex_search(text, std::regex("Timestamp                   :\\d{4}-\\d\\d-\\d\\d \\d\\d:\\d\\d:\\d\\d\r\n")));
  EXPECT_TRUE(std::regex_search(text, std::regex("Date of the test            :\\d{4}-\\d\\d-\\d\\d\r\n")));
  EXPECT_EQ(Lines(text).size(), 26u);
  // A path without a separator gives _config.mme inside it.
  EXPECT_EQ(MmeHeaderWritePath("/data", "Rec"), "Rec/_config.mme");
  EXPECT_EQ(MmeHeaderWritePath("/data/", ""), "/data/_default.mme");
  EXPECT_EQ(MmeHeaderReadPath("/data", "/x/Rec"), "/x/Rec/_config.mme");
  EXPECT_EQ(MiiPath("/x/Rec/"), "/x/Rec/Rec.mii");
  EXPECT_EQ(MiiPath("Rec"), "Rec/_config.mii");
  // An unwritable place or an overlong path: false, nothing thrown.
  EXPECT_FALSE(WriteMmeHeader("", (dir.path() / "missing" / "deeper").string(), r));
  EXPECT_FALSE(WriteMmeHeader(dir.path().string() + "/" + std::string(300, 'p'), "", r));
}

TEST(MmeHeader, ReadingDamagedAndHostileFiles) {
  TempDir dir;
  const auto rec = dir.path() / "rec";
  std::filesystem::create_directories(rec);
  MmeRecord r = Empty();
  std::strcpy(r.field[kMmeCustomer], "keep me");
  // A missing file leaves the record as it was.
  EXPECT_FALSE(ReadMmeHeader("", rec.string(), r));
  EXPECT_STREQ(r.field[kMmeCustomer], "keep me");

  const std::string longValue(2000, 'L');
  std::string text;
  text += "Unknown key of some kind    :ignored\r\n";
  text += "Title                       :First title\r\n";
  text += "  Laboratory name             :shifted\n";  // key inside the line: value from column 29 on
  text += "Regulation                  :NOVALUE\r\n";
  text += "Customer name               :" + longValue + "Title                       :inside a long line\r\n";
  static const char kWithNul[] = "Medium No./number of media  :with\0nul\r\n";
  text += std::string(kWithNul, sizeof kWithNul - 1);
  text += "Number of test objects      :3\r\r\n";
  text += "Short\r\n";
  text += "Timestamp                   :no line end";
  WriteFile(rec / "_config.mme", text);
  std::strcpy(r.field[kMmeRegulation], "old");
  ASSERT_TRUE(ReadMmeHeader("", rec.string(), r));
  EXPECT_STREQ(r.field[kMmeTitle], "First title") << "the tail of an overlong line is no line of its own";
  EXPECT_STREQ(r.field[kMmeLaboratory], " :shifted");
  EXPECT_STREQ(r.field[kMmeRegulation], "");
  EXPECT_EQ(std::string(r.field[kMmeCustomer]), longValue.substr(0, 127));
  EXPECT_STREQ(r.field[kMmeMedium], "with");
  EXPECT_STREQ(r.field[kMmeTestObjects], "3");
  EXPECT_STREQ(r.field[kMmeTimestamp], "no line end");

  // Binary noise: no crash, every field terminated.
  std::string noise(100000, '\0');
  unsigned state = 1;
  for (char& c : noise) c = static_cast<char>((state = state * 1103515245u + 12345u) >> 16);
  WriteFile(rec / "_config.mme", noise + "\nTitle                       :after noise\n");
  MmeRecord n = Empty();
  ASSERT_TRUE(ReadMmeHeader("", rec.string(), n));
  for (const auto& field : n.field) EXPECT_LT(std::strlen(field), sizeof field);
  EXPECT_STREQ(n.field[kMmeTitle], "after noise");

  // An enormous file is not read at all.
  WriteFile(rec / "_config.mme", "Title                       :huge\r\n");
  std::filesystem::resize_file(rec / "_config.mme", 200 << 20);
  MmeRecord h = Empty();
  EXPECT_FALSE(ReadMmeHeader("", rec.string(), h));
  EXPECT_STREQ(h.field[kMmeTitle], "");
}

// One line as the files print it: the key padded to the key width, a colon, the value, CRLF.
std::string Line(const std::string& key, const std::string& value) {
  return key + std::string(kMmeKeyWidth - 1 - key.size(), ' ') + ":" + value + "\r\n";
}

TEST(MiiFile, MovieBlocks) {
  TempDir dir;
  const auto rec = dir.path() / "Sled";
  std::filesystem::create_directories(rec);
  auto info = std::make_unique<RecordingInfo>();
  std::memset(info.get(), 0, sizeof *info);
  std::strcpy(info->Comment, "from the recording");
  std::strcpy(info->ImagePrefix, "Img");
  info->FileType = 13, info->Frames = 1500, info->Rate = 999.9f, info->ExposureNs = 250000, info->PerTrigFrms = 100;
  const MiiCamera camera{"CamLeft", 112345678, 6, "Kestrel 4", false};
  const MiiMovieFile avi{"avi", "x264vfw", 5000, true};
  ASSERT_TRUE(AddMovieToMii(rec.string(), "", "", *info, camera, 1280, 1024, 1, 2, avi));
  ASSERT_TRUE(AddMovieToMii(rec.string(), "second movie", "left side", *info, camera, 1280, 1024, 2, 2, avi));
  const std::string text = ReadFile(rec / "Sled.mii");
  EXPECT_EQ(text.rfind(Line("Number of movies", "2") + Line("Comments", "from the recording"), 0), 0u);
  const std::pair<const char*, const char*> lines[] = {
      {"ID-number 2", "2"}, {"Origin 1", "NOVALUE"}, {"Comments", "second movie"}, {"Origin 2", "left side"},
      {"Camera ID-number 1", "01-1234-5678"}, {"Number of images 1", "1500"}, {"Film speed 1", "999"},
      {"Shutter time 1", "0.000250"}, {"Time zero 1", "101"}, {"Aspect ratio of pixels 1", "1.25"}, {"Colour 1", "MONO"},
      {"Name of movie file 1", "Img.avi"}, {"Codec used 1", "x264vfw"}, {"Compression 1", "99.5%"},
      {"Image history filename 2", "NOVALUE"}};
  for (const auto& [key, value] : lines) EXPECT_NE(text.find(Line(key, value)), std::string::npos) << key;
  // Every key of a one-digit movie is 29 characters wide; 1 + 2 x 36 lines, each ending in CRLF.
  EXPECT_EQ(Lines(text).size(), 73u);
  for (const std::string& line : Lines(text)) EXPECT_EQ(line.find(':'), kMmeKeyWidth - 1) << line;

  // Movie 1 starts the file anew; movie 2 on a missing file gives a file without the count line.
  ASSERT_TRUE(AddMovieToMii(rec.string(), "", "", *info, camera, 1280, 1024, 1, 1, avi));
  EXPECT_EQ(ReadFile(rec / "Sled.mii").find(Line("Number of movies", "1")), 0u);
  EXPECT_EQ(ReadFile(rec / "Sled.mii").find("ID-number 2"), std::string::npos);
  const auto other = dir.path() / "Other";
  std::filesystem::create_directories(other);
  ASSERT_TRUE(AddMovieToMii(other.string(), "c", "o", *info, camera, 1280, 1024, 2, 2, avi));
  EXPECT_EQ(ReadFile(other / "Other.mii").rfind(Line("Comments", "c"), 0), 0u);
}

TEST(MiiFile, TypeDependentLinesAndOddValues) {
  TempDir dir;
  auto info = std::make_unique<RecordingInfo>();
  std::memset(info.get(), 0, sizeof *info);
  const MiiCamera colour{"dev\r\nTitle: injected", 4021, 12, "M", true};
  const struct {
    std::uint32_t fileType, frames;
    float rate;
    MiiMovieFile file;
    int height;
    std::vector<std::pair<const char*, const char*>> lines;
  } cases[] = {
      {13, 0, 0, {"avi", "MJPEG", 10000, true}, 480, {{"Compression 1", "100%"}, {"Camera ID-number 1", "4021"},
        {"Colour 1", "RGB"}, {"Description 1", "dev"} /* a value keeps to its line */, {"Aspect ratio of pixels 1", "1.33"}}},
      {13, 0, 0, {"avi", "MJPEG", 0, true}, 0, {{"Compression 1", "100.0%"}, {"Aspect ratio of pixels 1", "NOVALUE"}}},
      {1, 0, 0, {"tif", "ignored", 5000}, 480, {{"Keyframes 1", "NOVALUE"}, {"Codec used 1", "NOVALUE"},
        {"Compression 1", "NOVALUE"}, {"Name of movie file 1", ".tif"}}},
      {1, 0xFFFFFFFFu, 1e30f, {"tif", "", 0}, 480, {{"Film speed 1", "2147483647"}, {"Number of images 1", "-1"}}},
  };
  for (const auto& c : cases) {
    info->FileType = c.fileType, info->Frames = c.frames, info->Rate = c.rate;
    EXPECT_TRUE(AddMovieToMii(dir.path().string(), "", "", *info, colour, 640, c.height, 1, 1, c.file));
    const std::string text = ReadFile(dir.path() / (dir.path().filename().string() + ".mii"));
    for (const auto& [key, value] : c.lines) EXPECT_NE(text.find(Line(key, value)), std::string::npos) << key << " " << value;
  }
  EXPECT_FALSE(AddMovieToMii(dir.path().string() + "/none/x", "", "", *info, colour, 1, 1, 1, 1, {}));
}

}  // namespace
}  // namespace tarnvel
