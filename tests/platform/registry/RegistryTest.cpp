#include "platform/registry/Registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TARNVEL_USER_REGISTRY", user_.c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", machine_.c_str(), 1);
  }
  std::optional<RegistryKey> Key(const char* name, RegistryRoot root = RegistryRoot::CurrentUser) {
    return RegistryKey::Open(root, name);
  }
  test::TempDir dir_;
  std::string user_ = dir_.File("user.reg"), machine_ = dir_.File("machine.reg");
};

TEST_F(Registry, KeysAndValuesAreFoundWithoutRegardToCaseHostileFilesAreSafe) {
  EXPECT_FALSE(Key("Software\\OKN\\FathomBureau\\Settings")) << "no file, no key";
  test::WriteFile(user_,
                  "[Software\\OKN\\FathomBureau\\Settings]\r\n"
                  "Language=1\r\nImgPath=/data/images with blanks/\r\nNeg=-1\r\nBad=12x\r\nEmpty=\r\n"
                  "Language=5\r\n[Other]\r\nLanguage=9\r\n");
  EXPECT_FALSE(Key("Software\\OKN\\Missing"));
  auto key = Key("software\\okn\\fathombureau\\SETTINGS");
  ASSERT_TRUE(key);
  EXPECT_EQ(key->ReadWord("language"), 1u) << "the first of two lines counts";
  EXPECT_EQ(key->ReadText("ImgPath"), "/data/images with blanks/");
  EXPECT_EQ(key->ReadWord("Neg"), 0xFFFFFFFFu);
  EXPECT_FALSE(key->ReadWord("Bad") || key->ReadWord("Empty"));
  EXPECT_EQ(key->ReadText("Empty"), "");

  // Garbage behind a key leaves the key readable; a file far too large is no registry.
  std::mt19937 rng(3);
  std::string garbage(8192, '\0');
  for (char& c : garbage) c = static_cast<char>(rng());
  test::WriteFile(user_, "[K]\nv=1\n" + garbage);
  ASSERT_TRUE(Key("K"));
  EXPECT_EQ(Key("K")->ReadWord("v"), 1u);
  test::WriteFile(machine_, "[K]\nv=1\n" + std::string(5 << 20, 'x'));
  EXPECT_FALSE(Key("K", RegistryRoot::LocalMachine));
}

TEST_F(Registry, WritesReplaceInPlaceAndKeepEverythingElse) {
  test::WriteFile(user_, "; kept comment\n[A]\nx=1\nMultiThreadMaxRawFiles=3\n\n[B]\nMultiThreadMaxRawFiles=7\n");
  auto key = Key("A");
  ASSERT_TRUE(key);
  EXPECT_TRUE(key->WriteWord("MultiThreadMaxRawFiles", 6) && key->WriteWord("MultiThreadRawConversion", 1) &&
              key->WriteText("ImgPath", "/img/"));
  EXPECT_EQ(test::ReadFile(user_),
            "; kept comment\n[A]\nx=1\nMultiThreadMaxRawFiles=6\n\nMultiThreadRawConversion=1\nImgPath=/img/\n"
            "[B]\nMultiThreadMaxRawFiles=7\n");
  EXPECT_EQ(Key("A")->ReadWord("MultiThreadMaxRawFiles"), 6u);
  EXPECT_EQ(key->ReadWord("MultiThreadRawConversion"), 1u) << "the key's own view follows its writes";
  // Values that would break the file are refused and change nothing.
  const std::string before = test::ReadFile(user_);
  EXPECT_FALSE(key->WriteText("ImgPath", "a\n[Injected]\nx=1") || key->WriteWord("bad=name", 1));
  EXPECT_EQ(test::ReadFile(user_), before);
  std::filesystem::remove(user_);
  EXPECT_FALSE(key->WriteWord("x", 2));
  EXPECT_FALSE(std::filesystem::exists(user_)) << "a file removed meanwhile is not created again";
}

TEST_F(Registry, ConcurrentWritersLoseNothing) {
  test::WriteFile(user_, "[K]\n");
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t)
    writers.emplace_back([this, t] {
      auto key = Key("K");
      for (int i = 0; i < 25; ++i) key->WriteWord("v" + std::to_string(t), static_cast<std::uint32_t>(i));
    });
  for (auto& w : writers) w.join();
  auto key = Key("K");
  for (int t = 0; t < 4; ++t) EXPECT_EQ(key->ReadWord("v" + std::to_string(t)), 24u);
}

}  // namespace
}  // namespace tarnvel
