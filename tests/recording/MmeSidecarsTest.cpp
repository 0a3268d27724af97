#include "recording/MmeSidecars.h"

#include <gtest/gtest.h>

#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>
#include <regex>
#include <sstream>
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
  const std::vector<std::string> expected = {
      "Data format edition number  :1.6",
      "Laboratory name             :Crash Lab North",
      "Laboratory contact name     :NOVALUE",
      "Laboratory contact phone    :NOVALUE",
      "Laboratory contact fax      :NOVALUE",
      "Laboratory contact email    :NOVALUE",
      "Laboratory test ref. number :NOVALUE",
      "Customer name               :NOVALUE",
      "Customer test ref. number   :NOVALUE",
      "Customer project ref. number:NOVALUE",
      "Customer order number       :NOVALUE",
      "Customer cost unit          :NOVALUE",
      "Customer test engineer name :NOVALUE",
      "Customer test engineer phone:NOVALUE",
      "Customer test engineer fax  :NOVALUE",
      "Customer test engineer email:eng@example.org",
      "Title                       :Frontal impact 56 km/h",
      "Medium No./number of media  :NOVALUE",
      "Timestamp                   :NOVALUE",
      "Type of the test            :NOVALUE",
      "Subtype of the test         :NOVALUE",
      "Regulation                  :NOVALUE",
      "Reference temperature       :NOVALUE",
      "Relative air humidity       :NOVALUE",
      "Date of the test            :NOVALUE",
      "Number of test objects      :NOVALUE",
      "MII Comment                 :NOVALUE",
      "MII Origin                  :Camera left",
  };
  EXPECT_EQ(Lines(text), expected);

  MmeRecord back = Empty();
  std::memset(back.field[kMmeRegulation], 'x', 20);  // a field the file clears with NOVALUE
  ASSERT_TRUE(ReadMmeHeader(dir.path().string(), "", back));
  EXPECT_EQ(std::memcmp(&back, &r, sizeof r), 0) << "every value comes back; NOVALUE reads as empty";
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
  {
    std::FILE* f = std::fopen((rec / "_config.mme").c_str(), "wb");
    ASSERT_NE(f, nullptr);
    std::fputs("Title                       :huge\r\n", f);
    std::fseek(f, 200L << 20, SEEK_SET);
    std::fputc('\n', f);
    std::fclose(f);
  }
  MmeRecord h = Empty();
  EXPECT_FALSE(ReadMmeHeader("", rec.string(), h));
  EXPECT_STREQ(h.field[kMmeTitle], "");
}

TEST(MmeHeader, ValuesCannotOpenLinesOfTheirOwn) {
  TempDir dir;
  MmeRecord r = Empty();
  std::strcpy(r.field[kMmeTitle], "one\r\nRegulation                  :injected");
  ASSERT_TRUE(WriteMmeHeader(dir.path().string(), "", r));
  MmeRecord back = Empty();
  ASSERT_TRUE(ReadMmeHeader(dir.path().string(), "", back));
  EXPECT_STREQ(back.field[kMmeTitle], "one");
  EXPECT_STREQ(back.field[kMmeRegulation], "");
}

// One movie block as the suite's formats print it, written here from those formats.
std::string ExpectedBlock(int n, const char* comment, const char* origin) {
  std::string out;
  char line[512];
  auto add = [&](int written) {
    ASSERT_GT(written, 0);
    out += line;
  };
  std::snprintf(line, sizeof line, "Comments                    :%s\n", comment);
  out += line;
  add(std::snprintf(line, sizeof line, "ID-number %d                 :%d\n", n, n));
  add(std::snprintf(line, sizeof line, "Origin %d                    :%s\n", n, origin));
  add(std::snprintf(line, sizeof line, "Description %d               :%s\n", n, "CamLeft"));
  add(std::snprintf(line, sizeof line, "Camera ID-number %d          :%s\n", n, "01-1234-5678"));
  add(std::snprintf(line, sizeof line, "Camera type %d               :%s\n", n, "Kestrel 4"));
  add(std::snprintf(line, sizeof line, "Lens ID-number %d            :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Lens type %d                 :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Focus %d                     :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Lens focal length %d         :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Number of images %d          :%d\n", n, 1500));
  add(std::snprintf(line, sizeof line, "Film speed %d                :%d\n", n, 999));
  add(std::snprintf(line, sizeof line, "Shutter time %d              :%.06f\n", n, 250000 / 1e9));
  add(std::snprintf(line, sizeof line, "Aperture %d                  :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Time zero %d                 :%d\n", n, 101));
  add(std::snprintf(line, sizeof line, "Time vector filename %d      :%s\n", n, "NO"));
  add(std::snprintf(line, sizeof line, "Reference system %d          :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Location X %d                :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Location Y %d                :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Location Z %d                :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Theta X %d                   :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Theta Y %d                   :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Theta Z %d                   :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Width of image %d            :%d\n", n, 1280));
  add(std::snprintf(line, sizeof line, "Height of image %d           :%d\n", n, 1024));
  add(std::snprintf(line, sizeof line, "Aspect ratio of pixels %d    :%.02f\n", n, 1280.0f / 1024.0f));
  add(std::snprintf(line, sizeof line, "Colour %d                    :%s\n", n, "MONO"));
  add(std::snprintf(line, sizeof line, "Name of movie file %d        :%s\n", n, "Img.avi"));
  add(std::snprintf(line, sizeof line, "Format of movie file %d      :%s\n", n, "avi"));
  add(std::snprintf(line, sizeof line, "Keyframes %d                 :%s\n", n, "1"));
  add(std::snprintf(line, sizeof line, "Codec used %d                :%s\n", n, "x264vfw"));
  add(std::snprintf(line, sizeof line, "Compression %d               :%s\n", n, "99.5%"));
  add(std::snprintf(line, sizeof line, "Distortion index %d          :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Movie images corrected %d    :%s\n", n, "NO"));
  add(std::snprintf(line, sizeof line, "Correction parameter file %d :%s\n", n, "NOVALUE"));
  add(std::snprintf(line, sizeof line, "Image history filename %d    :%s\n", n, "NOVALUE"));
  return out;
}

std::string WithCrlf(const std::string& lf) {
  std::string out;
  for (char c : lf) {
    if (c == '\n') out += '\r';
    out += c;
  }
  return out;
}

TEST(MiiFile, MovieBlocks) {
  TempDir dir;
  const auto rec = dir.path() / "Sled";
  std::filesystem::create_directories(rec);
  auto info = std::make_unique<RecordingInfo>();
  std::memset(info.get(), 0, sizeof *info);
  std::strcpy(info->Comment, "from the recording");
  std::strcpy(info->ImagePrefix, "Img");
  info->FileType = 13;
  info->Frames = 1500;
  info->Rate = 999.9f;
  info->ExposureNs = 250000;
  info->PerTrigFrms = 100;
  const MiiCamera camera{"CamLeft", 112345678, 6, "Kestrel 4", false};
  const MiiMovieFile avi{"avi", "x264vfw", 5000};

  ASSERT_TRUE(AddMovieToMii(rec.string(), "", "", *info, camera, 1280, 1024, 1, 2, avi));
  ASSERT_TRUE(AddMovieToMii(rec.string(), "second movie", "left side", *info, camera, 1280, 1024, 2, 2, avi));
  const std::string text = ReadFile(rec / "Sled.mii");
  const std::string expected = WithCrlf("Number of movies            :2\n" +
                                        ExpectedBlock(1, "from the recording", "NOVALUE") +
                                        ExpectedBlock(2, "second movie", "left side"));
  EXPECT_EQ(text, expected);
  // Every key of a one-digit movie is 29 characters wide.
  std::istringstream lines(text);
  for (std::string line; std::getline(lines, line);) EXPECT_EQ(line.find(':'), kMmeKeyWidth - 1) << line;

  // Movie 1 starts the file anew.
  ASSERT_TRUE(AddMovieToMii(rec.string(), "", "", *info, camera, 1280, 1024, 1, 1, avi));
  EXPECT_EQ(ReadFile(rec / "Sled.mii").find("Number of movies            :1\r\n"), 0u);
  EXPECT_EQ(ReadFile(rec / "Sled.mii").find("ID-number 2"), std::string::npos);

  // Movie 2 on a missing file: a file without the count line.
  const auto other = dir.path() / "Other";
  std::filesystem::create_directories(other);
  ASSERT_TRUE(AddMovieToMii(other.string(), "c", "o", *info, camera, 1280, 1024, 2, 2, avi));
  EXPECT_EQ(ReadFile(other / "Other.mii").rfind("Comments                    :c\r\n", 0), 0u);
}

TEST(MiiFile, TypeDependentLinesAndOddValues) {
  TempDir dir;
  auto info = std::make_unique<RecordingInfo>();
  std::memset(info.get(), 0, sizeof *info);
  info->FileType = 13;
  const MiiCamera colour{"dev\r\nTitle: injected", 4021, 12, "M", true};
  auto blockOf = [&](const MiiMovieFile& file, int width, int height) {
    EXPECT_TRUE(AddMovieToMii(dir.path().string(), "", "", *info, colour, width, height, 1, 1, file));
    return ReadFile(dir.path() / (dir.path().filename().string() + ".mii"));
  };
  std::string text = blockOf({"avi", "MJPEG", 10000}, 640, 480);
  EXPECT_NE(text.find("Compression 1               :100%\r\n"), std::string::npos);
  EXPECT_NE(text.find("Camera ID-number 1          :4021\r\n"), std::string::npos);
  EXPECT_NE(text.find("Colour 1                    :RGB\r\n"), std::string::npos);
  EXPECT_NE(text.find("Description 1               :dev\r\n"), std::string::npos) << "a value keeps to its line";
  EXPECT_NE(text.find("Aspect ratio of pixels 1    :1.33\r\n"), std::string::npos);
  text = blockOf({"avi", "MJPEG", 0}, 640, 0);
  EXPECT_NE(text.find("Compression 1               :100.0%\r\n"), std::string::npos);
  EXPECT_NE(text.find("Aspect ratio of pixels 1    :NOVALUE\r\n"), std::string::npos) << "no division by a zero height";
  info->FileType = 1;
  text = blockOf({"tif", "ignored", 5000}, 640, 480);
  EXPECT_NE(text.find("Keyframes 1                 :NOVALUE\r\n"), std::string::npos);
  EXPECT_NE(text.find("Codec used 1                :NOVALUE\r\n"), std::string::npos);
  EXPECT_NE(text.find("Compression 1               :NOVALUE\r\n"), std::string::npos);
  EXPECT_NE(text.find("Name of movie file 1        :.tif\r\n"), std::string::npos);
  info->Rate = 1e30f;
  info->Frames = 0xFFFFFFFFu;
  text = blockOf({"tif", "", 0}, 640, 480);
  EXPECT_NE(text.find("Film speed 1                :2147483647\r\n"), std::string::npos);
  EXPECT_NE(text.find("Number of images 1          :-1\r\n"), std::string::npos);
  EXPECT_FALSE(AddMovieToMii(dir.path().string() + "/none/x", "", "", *info, colour, 1, 1, 1, 1, {}));
}

}  // namespace
}  // namespace tarnvel
