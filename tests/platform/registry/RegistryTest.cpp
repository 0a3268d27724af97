#include "platform/registry/Registry.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <random>
#include <thread>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

class Registry : public ::testing::Test {
 protected:
  void SetUp() override {
    user_ = dir_.File("user.reg");
    machine_ = dir_.File("machine.reg");
    ::setenv("TARNVEL_USER_REGISTRY", user_.c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", machine_.c_str(), 1);
  }
  test::TempDir dir_;
  std::string user_, machine_;
};

TEST_F(Registry, RootFilesFollowTheEnvironment) {
  EXPECT_EQ(RegistryFileOf(RegistryRoot::CurrentUser), user_);
  EXPECT_EQ(RegistryFileOf(RegistryRoot::LocalMachine), machine_);
  ::unsetenv("TARNVEL_USER_REGISTRY");
  ::unsetenv("TARNVEL_MACHINE_REGISTRY");
  ::setenv("XDG_CONFIG_HOME", "/cfg", 1);
  EXPECT_EQ(RegistryFileOf(RegistryRoot::CurrentUser), "/cfg/tarnvel/user.reg");
  ::unsetenv("XDG_CONFIG_HOME");
  ::setenv("HOME", "/home/op", 1);
  EXPECT_EQ(RegistryFileOf(RegistryRoot::CurrentUser), "/home/op/.config/tarnvel/user.reg");
  EXPECT_EQ(RegistryFileOf(RegistryRoot::LocalMachine), "/etc/tarnvel/machine.reg");
}

TEST_F(Registry, KeysAndValuesAreFoundWithoutRegardToCase) {
  EXPECT_FALSE(RegistryKey::Open(RegistryRoot::CurrentUser, "Software\\OKN\\FathomBureau\\Settings"))
      << "no file, no key";
  test::WriteFile(user_,
                  "[Software\\OKN\\FathomBureau\\Settings]\r\n"
                  "Language=1\r\nImgPath=/data/images with blanks/\r\nNeg=-1\r\nBad=12x\r\nEmpty=\r\n"
                  "Language=5\r\n"
                  "[Other]\r\nLanguage=9\r\n");
  EXPECT_FALSE(RegistryKey::Open(RegistryRoot::CurrentUser, "Software\\OKN\\Missing"));
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "software\\okn\\fathombureau\\SETTINGS");
  ASSERT_TRUE(key);
  EXPECT_EQ(key->ReadWord("language"), 1u) << "the first of two lines counts";
  EXPECT_EQ(key->ReadText("ImgPath"), "/data/images with blanks/");
  EXPECT_EQ(key->ReadWord("Neg"), 0xFFFFFFFFu);
  EXPECT_FALSE(key->ReadWord("Bad"));
  EXPECT_FALSE(key->ReadWord("Empty"));
  EXPECT_EQ(key->ReadText("Empty"), "");
  EXPECT_FALSE(key->Has("Missing"));
}

TEST_F(Registry, WritesReplaceInPlaceAndKeepEverythingElse) {
  test::WriteFile(user_,
                  "; kept comment\n[A]\nx=1\nMultiThreadMaxRawFiles=3\n\n[B]\nMultiThreadMaxRawFiles=7\n");
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "A");
  ASSERT_TRUE(key);
  EXPECT_TRUE(key->WriteWord("MultiThreadMaxRawFiles", 6));
  EXPECT_TRUE(key->WriteWord("MultiThreadRawConversion", 1));
  EXPECT_TRUE(key->WriteText("ImgPath", "/img/"));
  EXPECT_EQ(test::ReadFile(user_),
            "; kept comment\n[A]\nx=1\nMultiThreadMaxRawFiles=6\n\nMultiThreadRawConversion=1\nImgPath=/img/\n"
            "[B]\nMultiThreadMaxRawFiles=7\n");
  auto again = RegistryKey::Open(RegistryRoot::CurrentUser, "A");
  EXPECT_EQ(again->ReadWord("MultiThreadMaxRawFiles"), 6u);
  EXPECT_EQ(key->ReadWord("MultiThreadRawConversion"), 1u) << "the key's own view follows its writes";
  // Values that would break the file are refused and change nothing.
  const std::string before = test::ReadFile(user_);
  EXPECT_FALSE(key->WriteText("ImgPath", "a\n[Injected]\nx=1"));
  EXPECT_FALSE(key->WriteWord("bad=name", 1));
  EXPECT_EQ(test::ReadFile(user_), before);
  // A file removed meanwhile is not created again.
  std::filesystem::remove(user_);
  EXPECT_FALSE(key->WriteWord("x", 2));
  EXPECT_FALSE(std::filesystem::exists(user_));
}

TEST_F(Registry, HostileFilesReadAsMissingOrAsText) {
  std::mt19937 rng(3);
  std::string garbage(8192, '\0');
  for (char& c : garbage) c = static_cast<char>(rng());
  test::WriteFile(user_, "[K]\nv=1\n" + garbage);
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "K");
  ASSERT_TRUE(key);
  EXPECT_EQ(key->ReadWord("v"), 1u);
  test::WriteFile(machine_, "[K]\nv=1\n" + std::string(5 << 20, 'x'));
  EXPECT_FALSE(RegistryKey::Open(RegistryRoot::LocalMachine, "K")) << "a file far too large is not a registry";
}

TEST_F(Registry, ConcurrentWritersLoseNothing) {
  test::WriteFile(user_, "[K]\n");
  std::vector<std::thread> writers;
  for (int t = 0; t < 4; ++t)
    writers.emplace_back([t] {
      auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "K");
      for (int i = 0; i < 25; ++i) key->WriteWord("v" + std::to_string(t), static_cast<std::uint32_t>(i));
    });
  for (auto& w : writers) w.join();
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, "K");
  for (int t = 0; t < 4; ++t) EXPECT_EQ(key->ReadWord("v" + std::to_string(t)), 24u);
}

}  // namespace
}  // namespace tarnvel
