#include "ui/Settings.h"

#include <gtest/gtest.h>

#include <cstdlib>
#include <optional>
#include <utility>

#include "platform/suitelink/SuiteLink.h"
#include "tests/support/TestFiles.h"
#include "ui/FrontEnd.h"

namespace tarnvel {
namespace {

class Settings : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TARNVEL_USER_REGISTRY", dir_.File("user.reg").c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", dir_.File("machine.reg").c_str(), 1);
  }
  void User(const std::string& values) {
    test::WriteFile(dir_.path() / "user.reg", "[Software\\OKN\\FathomBureau\\Settings]\n" + values);
  }
  void Machine(const std::string& values) {
    test::WriteFile(dir_.path() / "machine.reg", "[Software\\OKN\\Kestrelite\\CurrentVersion]\n" + values);
  }
  static std::pair<int, int> Parallel() {
    const ParallelSettings s = ReadParallelSettings();
    return {s.enabled, s.maximum};
  }
  test::TempDir dir_;
};

TEST_F(Settings, LanguageSearchOrder) {
  EXPECT_EQ(ReadLanguageId(), 0);
  Machine("Language=3\n");
  User("Language=-1\n");
  EXPECT_EQ(ReadLanguageId(), 3) << "-1 in the current key counts as nothing";
  User("Language=1\n");
  EXPECT_EQ(ReadLanguageId(), 1);
}

TEST_F(Settings, ParallelSettingsComeFromTheMigratedKeyOnly) {
  EXPECT_EQ(ReadParallelSettings().maximum, 4);
  Machine("MultiThreadRawConversion=1\nMultiThreadMaxRawFiles=8\n");
  User("MultiThreadRawConversion=0\nMultiThreadMaxRawFiles=3\n");
  EXPECT_EQ(Parallel(), std::pair(1, 8)) << "a current key without UseJumboPackets is not migrated";
  User("UseJumboPackets=0\nMultiThreadMaxRawFiles=1\n");
  EXPECT_EQ(Parallel(), std::pair(0, 2)) << "below 2 reads as 2";

  // Writes go to the current key even when reads do not.
  User("MultiThreadMaxRawFiles=3\n");
  WriteParallelSettings({1, 6});
  EXPECT_EQ(ReadParallelSettings().maximum, 8) << "read back only through UseJumboPackets";
  auto key = RegistryKey::Open(RegistryRoot::CurrentUser, kCurrentSettingsKey);
  EXPECT_EQ(std::pair(key->ReadWord("MultiThreadMaxRawFiles"), key->ReadWord("MultiThreadRawConversion")),
            std::pair(std::optional(6u), std::optional(1u)));
  std::filesystem::remove(dir_.path() / "user.reg");
  WriteParallelSettings({1, 6});
  EXPECT_FALSE(std::filesystem::exists(dir_.path() / "user.reg")) << "no key is ever created";
}

TEST_F(Settings, NotifySuiteOptions) {
  ::setenv("TARNVEL_SUITE_SOCKET", dir_.File("suite.sock").c_str(), 1);
  EXPECT_FALSE(NotifySuiteOptions({1, 6})) << "no suite window";
  std::vector<std::uint8_t> got;
  std::uint32_t command = 0;
  SuiteListener suite;
  ASSERT_EQ(suite.Start(dir_.File("suite.sock"), [&](std::uint32_t c, std::span<const std::uint8_t> p) {
    command = c;
    got.assign(p.begin(), p.end());
  }), 0);
  EXPECT_TRUE(NotifySuiteOptions({1, 6}));
  EXPECT_EQ(command, 2u);
  EXPECT_EQ(got, (std::vector<std::uint8_t>{1, 0, 0, 0, 6, 0, 0, 0}));
}

}  // namespace
}  // namespace tarnvel
