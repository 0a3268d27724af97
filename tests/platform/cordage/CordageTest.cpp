#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "platform/cordage/Profile.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <filesystem>
#include <random>
#include <string>
#include <thread>
#include <tuple>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

std::string ReadString(const std::string& path, const char* section, const char* key, const char* def = "default") {
  char buf[512];
  CgReadProfileString(section, key, def, buf, sizeof buf, path.c_str());
  return buf;
}

std::int32_t ReadInt(const std::string& path, const char* section, const char* key, std::int32_t def = -77) {
  std::int32_t v = 12345;
  CgReadProfileInteger(section, key, def, &v, path.c_str());
  return v;
}

float ReadFloat(const std::string& path, const char* key) {
  float v = 0;
  CgReadProfileFloat("S", key, 9.0f, &v, path.c_str());
  return v;
}

// The form the suite writes (CRLF, a second pass of the same keys, blanks
// round names, comments, a reopened section) and numbers of every shape.
TEST(Profile, SuiteFormNumbersAndDefaults) {
  TempDir dir;
  const std::string path = dir.File("_config.pgv");
  WriteFile(path,
            "[Acquisition]\r\nImages=100\r\nBROC Lenght=2\r\nComment=crash test 7 = left side\r\n"
            "StartAddLo=-1\r\n; a comment line\r\ngarbage without equal sign\r\n  Spaced Key  =  42  \r\nEmpty=\r\n"
            "[ ImgOpList ]\r\nCount=3\r\n[Acquisition]\r\nImages=999\r\nLate=7\r\n"
            "[S]\r\nneg=-2147483648\r\nbig=4294967295\r\nover=4294967296\r\nunder=-2147483649\r\nword=abc\r\n"
            "unit=12 px\r\nplus=+5\r\nhuge=999999999999999999999999999\r\nsign=-\r\n"
            "f1=-0.500000000000000\r\nf2=nan\r\nf3=1e60\r\nf4=x1\r\nf5=+2.5\r\n");
  struct Case {
    const char* section;
    const char* key;
    std::int32_t expected;
  };
  const Case cases[] = {
      {"acquisition", "images", 100},  // the first of two occurrences counts; names compare without case
      {"Acquisition", "Spaced Key", 42},
      {"ImgOpList", "Count", 3},
      {"Acquisition", "Late", 7},      // a reopened section adds its new keys
      {"ImgOpList", "Images", -77},    // key of another section
      {nullptr, "Images", -77},
      {"Acquisition", "StartAddLo", -1},  // handed back as its 32-bit pattern
      {"S", "neg", INT32_MIN},
      {"S", "big", -1},
      {"S", "over", -77},
      {"S", "word", -77},
      {"S", "unit", 12},
      {"S", "plus", 5},
      {"S", "huge", -77},
  };
  for (const Case& c : cases) EXPECT_EQ(ReadInt(path, c.section, c.key), c.expected) << c.key;
  EXPECT_EQ(ReadString(path, "Acquisition", "Comment"), "crash test 7 = left side");
  EXPECT_EQ(ReadString(path, "Acquisition", "Empty"), "") << "an empty value is a value";
  char buf[8] = "xxxxxxx";
  CgReadProfileString("Acquisition", "Missing", nullptr, buf, sizeof buf, path.c_str());
  EXPECT_STREQ(buf, "");
  for (auto [key, expected] : {std::pair{"f1", -0.5f}, {"f2", 9.0f}, {"f3", 9.0f}, {"f4", 9.0f}, {"f5", 2.5f}})
    EXPECT_EQ(ReadFloat(path, key), expected) << key;
  float f = 1;
  EXPECT_FALSE(CgReadProfileFloat("Acquisition", "Rate", 15.0f, &f, dir.File("missing.pgv").c_str()));
  EXPECT_EQ(f, 15.0f);
}

TEST(Profile, LongValuesAreCutAndHostileFilesReadAsDefaults) {
  TempDir dir;
  const std::string path = dir.File("long.ini");
  WriteFile(path, "[S]\nlong=" + std::string(10 << 20, 'v') + "\nafter=1\n");  // a 10 MB line
  char guard[32];
  std::memset(guard, '#', sizeof guard);
  CgReadProfileString("S", "long", "", guard + 8, 16, path.c_str());
  EXPECT_EQ(std::string(guard, 32), std::string(8, '#') + std::string(15, 'v') + '\0' + std::string(8, '#'));
  EXPECT_EQ(ReadInt(path, "S", "after"), 1);
  char untouched = '#';
  CgReadProfileString("S", "long", "", &untouched, 0, path.c_str());
  EXPECT_EQ(untouched, '#') << "a size of 0 writes nothing";

  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {  // random binary content, NUL bytes included
    std::string bytes(4096, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    WriteFile(dir.File("bin" + std::to_string(round)), bytes);
    EXPECT_EQ(ReadString(dir.File("bin" + std::to_string(round)), "Acquisition", "Comment", "d"), "d");
  }
  // Truncated in the middle of a line, a section header without its bracket.
  const std::string cut = dir.File("cut.pgv");
  WriteFile(cut, "[Acquisition]\nImages=12\n[Broken\nKey=5\nTail=3");
  EXPECT_EQ(std::tuple(ReadInt(cut, "Acquisition", "Images"), ReadInt(cut, "Broken", "Key"), ReadInt(cut, "Broken", "Tail")),
            std::tuple(12, 5, 3));
  // A file beyond the size limit (a 100 MB line) reads as empty; a folder is no profile.
  const std::string huge = dir.File("huge.pgv");
  WriteFile(huge, "[Acquisition]\nImages=5\nComment=" + std::string(100 << 20, 'x') + "\n");
  EXPECT_EQ(ReadInt(huge, "Acquisition", "Images", 0), 0);
  EXPECT_EQ(ReadInt(dir.path().string(), "Acquisition", "Images", 0), 0);
}

TEST(Profile, EachFileIsParsedOnceUntilItChanges) {
  TempDir dir;
  const std::string path = dir.File("_config.pgv");
  std::string text = "[Acquisition]\n";
  for (int i = 0; i < 1200; ++i) text += "Key" + std::to_string(i) + "=" + std::to_string(i) + "\n";
  WriteFile(path, text);
  const auto before = ProfileParseCount();
  for (int round = 0; round < 3; ++round)
    for (int i = 0; i < 1200; i += 7) EXPECT_EQ(ReadInt(path, "Acquisition", ("Key" + std::to_string(i)).c_str()), i);
  EXPECT_EQ(ProfileParseCount() - before, 1u);
  // A rewrite with other content (and size) is seen at the next read.
  WriteFile(path, "[Acquisition]\nKey7=70000\n");
  EXPECT_EQ(ReadInt(path, "Acquisition", "Key7"), 70000);
  EXPECT_EQ(ProfileParseCount() - before, 2u);
  std::filesystem::remove(path);
  EXPECT_EQ(ReadInt(path, "Acquisition", "Key7", -5), -5) << "a removed file reads as missing again";
}

TEST(Profile, ReadsFromManyThreadsWhileFilesChange) {
  TempDir dir;
  std::vector<std::string> paths;
  for (int i = 0; i < 80; ++i) {  // more files than the cache keeps
    paths.push_back(dir.File("p" + std::to_string(i) + ".ini"));
    WriteFile(paths.back(), "[S]\nv=" + std::to_string(i));
  }
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::thread writer([&] {
    for (int r = 0; r < 200; ++r) WriteFile(paths[r % 3], "[S]\nv=" + std::to_string(r % 3) + "\nw=" + std::to_string(r));
    stop = true;
  });
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t)
    readers.emplace_back([&, t] {
      for (int r = 0; !stop || r < 400; ++r) {
        const int i = (r * 7 + t) % 80;
        if (ReadInt(paths[i], "S", "v", i) != i) ++wrong;  // a half-written file gives the default
      }
    });
  writer.join();
  for (auto& r : readers) r.join();
  EXPECT_EQ(wrong.load(), 0);
}

TEST(Folders, CreateNestedExistingAndImpossible) {
  test::TempDir dir;
  const std::string nested = dir.File("a/b/c");
  EXPECT_EQ(CgCreateNewDirectory(nested.c_str()), 0);
  EXPECT_TRUE(std::filesystem::is_directory(nested));
  EXPECT_EQ(CgCreateNewDirectory(nested.c_str()), 0) << "an existing folder is left alone";
  test::WriteFile(dir.path() / "file", "x");
  EXPECT_EQ(CgCreateNewDirectory(dir.File("file/sub").c_str()), kCreateFolderFailed);
  EXPECT_EQ(CgCreateNewDirectory(nullptr), kCreateFolderFailed);
  if (::geteuid() != 0) {  // root writes anywhere
    std::filesystem::permissions(dir.path() / "a", std::filesystem::perms::owner_read | std::filesystem::perms::owner_exec);
    EXPECT_EQ(CgCreateNewDirectory(dir.File("a/new").c_str()), kCreateFolderFailed);
  }
}

TEST(Folders, EnumFilesSizeThenFill) {
  test::TempDir dir;
  for (const char* name : {"b.RAW", "a.raw", "c.cal", "d.txt", "noext"}) test::WriteFile(dir.path() / name, "x");
  std::filesystem::create_directory(dir.path() / "sub.raw");
  const char* extensions[] = {".raw", "CAL", nullptr};
  const int bytes = CgEnumFiles(dir.path().c_str(), "", extensions, nullptr, 0);
  EXPECT_EQ(bytes, 6 + 6 + 6);
  std::vector<char> buffer(bytes);
  EXPECT_EQ(CgEnumFiles(dir.path().c_str(), "", extensions, buffer.data(), bytes), 3);
  EXPECT_EQ(std::string(buffer.data(), bytes), std::string("a.raw\0b.RAW\0c.cal\0", 18));
  // Only whole names go into a short buffer.
  std::vector<char> shortBuffer(10, '#');
  EXPECT_EQ(CgEnumFiles(dir.path().c_str(), "", extensions, shortBuffer.data(), 10), 1);
  EXPECT_EQ(shortBuffer[6], '#');
  EXPECT_EQ(CgEnumFiles(dir.File("missing").c_str(), "", extensions, nullptr, 0), 0);
}

TEST(Messages, StylesTextsCatalogueAndHandler) {
  for (auto [number, style] : {std::pair{999, kStyleError}, {1000, kStyleWarning}, {1999, kStyleWarning},
                               {2000, kStyleInformation}})
    EXPECT_EQ(StyleOf(number), style) << number;
  EXPECT_NE(MessageText(33, "/data/out").find("/data/out"), std::string::npos);
  EXPECT_NE(MessageText(90, "%s%n%x").find("%s%n%x"), std::string::npos) << "a hostile argument is text, not a format";
  EXPECT_NE(MessageText(4242).find("4242"), std::string::npos);
  SetMessageCatalogue({{33, "Ordner %s geht nicht."}});
  EXPECT_EQ(MessageText(33, "x"), "Ordner x geht nicht.");
  EXPECT_NE(MessageText(90, "y").find("y"), std::string::npos) << "numbers the catalogue lacks stay English";
  SetMessageCatalogue({});

  // Display goes through the installed handler.
  std::pair<int, int> seen;
  SetMessageHandler([&](int number, int style, const std::string&) { return seen = {number, style}, kAnswerNo; });
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerNo);
  EXPECT_EQ(seen, std::pair(1061, 36));
  SetMessageHandler(nullptr);
  EXPECT_EQ(CgDisplayMsg(nullptr, kMsgConfirmAbort, kStyleYesNoQuestion, nullptr), kAnswerYes)
      << "without a front end a question is answered yes";
}

}  // namespace
}  // namespace tarnvel
