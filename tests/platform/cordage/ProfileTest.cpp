#include "platform/cordage/Profile.h"

#include <gtest/gtest.h>

#include <atomic>
#include <cstring>
#include <random>
#include <string>
#include <thread>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using test::TempDir;
using test::WriteFile;

std::string ReadString(const std::string& path, const char* section, const char* key,
                       const char* def = "default") {
  char buf[512];
  CgReadProfileString(section, key, def, buf, sizeof buf, path.c_str());
  return buf;
}

std::int32_t ReadInt(const std::string& path, const char* section, const char* key, std::int32_t def = -77) {
  std::int32_t v = 12345;
  CgReadProfileInteger(section, key, def, &v, path.c_str());
  return v;
}

TEST(Profile, MissingFileSectionOrKeyGiveDefaults) {
  TempDir dir;
  const std::string missing = dir.File("nothing.pgv");
  EXPECT_EQ(ReadString(missing, "Acquisition", "Comment", "none"), "none");
  EXPECT_EQ(ReadInt(missing, "Acquisition", "Images", 0), 0);
  float f = 1;
  EXPECT_FALSE(CgReadProfileFloat("Acquisition", "Rate", 15.0f, &f, missing.c_str()));
  EXPECT_EQ(f, 15.0f);

  const std::string path = dir.File("p.pgv");
  WriteFile(path, "[Acquisition]\nImages=10\n[Other]\nRate=5\n");
  EXPECT_EQ(ReadInt(path, "Acquisition", "Rate", 3), 3) << "key of another section";
  EXPECT_EQ(ReadInt(path, "Nope", "Images", 4), 4);
  EXPECT_EQ(ReadInt(path, "Acquisition", "Images"), 10);
  // A null default text copies an empty string; a null section or key reads as missing.
  char buf[8] = "xxxxxxx";
  CgReadProfileString("Acquisition", "Missing", nullptr, buf, sizeof buf, path.c_str());
  EXPECT_STREQ(buf, "");
  EXPECT_EQ(ReadInt(path, nullptr, "Images", 9), 9);
}

TEST(Profile, FormAsTheSuiteWritesItAndTolerances) {
  TempDir dir;
  const std::string path = dir.File("_config.pgv");
  // CRLF lines, a first pass and a second pass of the same keys, blanks round
  // names, a comment, a line without '=', a section repeated later.
  WriteFile(path,
            "[Acquisition]\r\n"
            "Images=100\r\n"
            "BROC Lenght=2\r\n"
            "Per-Trig-Frms=20\r\n"
            "Comment=crash test 7 = left side\r\n"
            "Rate=1000.000000000000000\r\n"
            "StartAddLo=-1\r\n"
            "; a comment line\r\n"
            "garbage without equal sign\r\n"
            "  Spaced Key  =  42  \r\n"
            "Empty=\r\n"
            "[ ImgOpList ]\r\n"
            "Count=3\r\n"
            "[Acquisition]\r\n"
            "Images=999\r\n"
            "Late=7\r\n");
  EXPECT_EQ(ReadInt(path, "Acquisition", "Images"), 100) << "the first of two occurrences counts";
  EXPECT_EQ(ReadInt(path, "Acquisition", "BROC Lenght"), 2);
  EXPECT_EQ(ReadInt(path, "Acquisition", "Per-Trig-Frms"), 20);
  EXPECT_EQ(ReadString(path, "Acquisition", "Comment"), "crash test 7 = left side");
  EXPECT_EQ(ReadInt(path, "Acquisition", "Spaced Key"), 42);
  EXPECT_EQ(ReadString(path, "Acquisition", "Empty", "def"), "") << "an empty value is a value";
  EXPECT_EQ(ReadInt(path, "ImgOpList", "Count"), 3);
  EXPECT_EQ(ReadInt(path, "Acquisition", "Late"), 7) << "a reopened section adds its new keys";
  EXPECT_EQ(ReadInt(path, "acquisition", "images"), 100) << "names compare without case";
  float rate = 0;
  EXPECT_TRUE(CgReadProfileFloat("Acquisition", "Rate", 0.0f, &rate, path.c_str()));
  EXPECT_EQ(rate, 1000.0f);
  std::uint32_t lo = 0;
  CgReadProfileInteger("Acquisition", "StartAddLo", 0, &lo, path.c_str());
  EXPECT_EQ(lo, 4294967295u) << "a negative decimal is handed back as its 32-bit pattern";
}

TEST(Profile, NumbersMalformedOrOutOfRangeTakeTheDefault) {
  TempDir dir;
  const std::string path = dir.File("n.ini");
  WriteFile(path,
            "[S]\nneg=-2147483648\nbig=4294967295\nover=4294967296\nunder=-2147483649\n"
            "word=abc\nunit=12 px\nplus=+5\nhuge=999999999999999999999999999\nsign=-\n"
            "f1=-0.500000000000000\nf2=nan\nf3=1e60\nf4=x1\nf5=+2.5\n");
  EXPECT_EQ(ReadInt(path, "S", "neg"), INT32_MIN);
  EXPECT_EQ(ReadInt(path, "S", "big"), -1);
  EXPECT_EQ(ReadInt(path, "S", "over"), -77);
  EXPECT_EQ(ReadInt(path, "S", "under"), -77);
  EXPECT_EQ(ReadInt(path, "S", "word"), -77);
  EXPECT_EQ(ReadInt(path, "S", "unit"), 12);
  EXPECT_EQ(ReadInt(path, "S", "plus"), 5);
  EXPECT_EQ(ReadInt(path, "S", "huge"), -77);
  EXPECT_EQ(ReadInt(path, "S", "sign"), -77);
  auto readFloat = [&](const char* key) {
    float v = 0;
    CgReadProfileFloat("S", key, 9.0f, &v, path.c_str());
    return v;
  };
  EXPECT_EQ(readFloat("f1"), -0.5f);
  EXPECT_EQ(readFloat("f2"), 9.0f);
  EXPECT_EQ(readFloat("f3"), 9.0f) << "beyond float range";
  EXPECT_EQ(readFloat("f4"), 9.0f);
  EXPECT_EQ(readFloat("f5"), 2.5f);
}

TEST(Profile, LongValuesAreCutAndNothingIsWrittenPastTheBuffer) {
  TempDir dir;
  const std::string path = dir.File("long.ini");
  const std::string value(10 << 20, 'v');  // a 10 MB line
  WriteFile(path, "[S]\nlong=" + value + "\nafter=1\n");
  char guard[32];
  std::memset(guard, '#', sizeof guard);
  CgReadProfileString("S", "long", "", guard + 8, 16, path.c_str());
  EXPECT_EQ(std::string(guard + 8), std::string(15, 'v'));
  for (int i = 0; i < 8; ++i) EXPECT_EQ(guard[i], '#');
  for (int i = 24; i < 32; ++i) EXPECT_EQ(guard[i], '#');
  EXPECT_EQ(ReadInt(path, "S", "after"), 1);
  // A size of 0 writes nothing at all.
  char untouched = '#';
  CgReadProfileString("S", "long", "", &untouched, 0, path.c_str());
  EXPECT_EQ(untouched, '#');
}

TEST(Profile, HostileFilesReadAsDefaults) {
  TempDir dir;
  // Random binary content, NUL bytes included.
  std::mt19937 rng(7);
  for (int round = 0; round < 20; ++round) {
    std::string bytes(4096, '\0');
    for (char& c : bytes) c = static_cast<char>(rng());
    const std::string path = dir.File("bin" + std::to_string(round));
    WriteFile(path, bytes);
    EXPECT_EQ(ReadInt(path, "Acquisition", "Images", 0), 0);
    EXPECT_EQ(ReadString(path, "Acquisition", "Comment", "d"), "d");
  }
  // Truncated in the middle of a line, a section header without its bracket.
  const std::string cut = dir.File("cut.pgv");
  WriteFile(cut, "[Acquisition]\nImages=12\n[Broken\nKey=5\nTail=3");
  EXPECT_EQ(ReadInt(cut, "Acquisition", "Images"), 12);
  EXPECT_EQ(ReadInt(cut, "Broken", "Key"), 5);
  EXPECT_EQ(ReadInt(cut, "Broken", "Tail"), 3);
  // A file beyond the size limit (a 100 MB line) reads as empty.
  const std::string huge = dir.File("huge.pgv");
  WriteFile(huge, "[Acquisition]\nImages=5\nComment=" + std::string(100 << 20, 'x') + "\n");
  EXPECT_EQ(ReadInt(huge, "Acquisition", "Images", 0), 0);
  // A folder is no profile.
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
  EXPECT_EQ(ReadInt(path, "Acquisition", "Key8", -1), -1);
  EXPECT_EQ(ProfileParseCount() - before, 2u);
  // A removed file reads as missing again.
  std::filesystem::remove(path);
  EXPECT_EQ(ReadInt(path, "Acquisition", "Key7", -5), -5);
}

TEST(Profile, ReadsFromManyThreadsWhileFilesChange) {
  TempDir dir;
  std::vector<std::string> paths;
  for (int i = 0; i < 80; ++i) {  // more files than the cache keeps
    paths.push_back(dir.File("p" + std::to_string(i) + ".ini"));
    WriteFile(paths.back(), std::string("[S]\nv=") + std::to_string(i));
  }
  std::atomic<bool> stop{false};
  std::atomic<int> wrong{0};
  std::thread writer([&] {
    for (int r = 0; r < 200; ++r) {
      std::string text = "[S]\nv=";
      text += std::to_string(r % 3);
      text += "\nw=";
      text += std::to_string(r);
      WriteFile(paths[r % 3], text);
    }
    stop = true;
  });
  std::vector<std::thread> readers;
  for (int t = 0; t < 4; ++t)
    readers.emplace_back([&, t] {
      for (int r = 0; !stop || r < 400; ++r) {
        const int i = (r * 7 + t) % 80;
        const std::int32_t v = ReadInt(paths[i], "S", "v", i);  // a half-written file gives the default
        if (v != i) ++wrong;
      }
    });
  writer.join();
  for (auto& r : readers) r.join();
  EXPECT_EQ(wrong.load(), 0);
}

}  // namespace
}  // namespace tarnvel
