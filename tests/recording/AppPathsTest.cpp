#include "recording/AppPaths.h"

#include <gtest/gtest.h>

#include <cstdlib>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

class AppPathsTest : public ::testing::Test {
 protected:
  void SetUp() override {
    ::setenv("TARNVEL_USER_REGISTRY", dir_.File("user.reg").c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", dir_.File("machine.reg").c_str(), 1);
    ::setenv("XDG_DATA_HOME", dir_.File("share").c_str(), 1);
  }
  void Registry(const char* file, const std::string& text) { test::WriteFile(dir_.path() / file, text); }
  test::TempDir dir_;
};

TEST_F(AppPathsTest, DefaultsMakeTheSuitesFolders) {
  AppPaths paths;
  EXPECT_EQ(paths.DataFolder, dir_.File("share/OKN/FathomBureau/"));
  EXPECT_EQ(paths.ImageFolder, paths.DataFolder) << "no ImgPath anywhere";
  for (const char* made : {"share/OKN/CameraFiles", "share/OKN/FathomBureau/Configurations",
                           "share/OKN/FathomBureau/Trace"})
    EXPECT_TRUE(std::filesystem::is_directory(dir_.path() / made)) << made;
}

TEST_F(AppPathsTest, ConfiguredFoldersAndTheirSearchOrder) {
  std::filesystem::create_directory(dir_.path() / "data");
  Registry("machine.reg",
           "[Software\\OKN\\Kestrelite\\CurrentVersion]\nAppDataPath=" + dir_.File("missing") +
               "\nImgPath=/machine/images\n");
  AppPaths fallback;
  EXPECT_EQ(fallback.DataFolder, dir_.File("share/OKN/FathomBureau/")) << "an AppDataPath that does not exist is passed over";
  EXPECT_EQ(fallback.ImageFolder, "/machine/images/");

  Registry("machine.reg", "[Software\\OKN\\Kestrelite\\CurrentVersion]\nAppDataPath=" + dir_.File("data") +
                              "\nImgPath=/machine/images\n");
  Registry("user.reg", "[Software\\OKN\\FathomBureau\\Settings]\nImgPath=/user/images/\n");
  AppPaths configured;
  EXPECT_EQ(configured.DataFolder, dir_.File("data/"));
  EXPECT_EQ(configured.ImageFolder, "/user/images/") << "exactly one trailing separator";
  EXPECT_TRUE(std::filesystem::is_directory(dir_.path() / "data/Configurations"));

  // An empty or overlong user value counts as none.
  Registry("user.reg", "[Software\\OKN\\FathomBureau\\Settings]\nImgPath=" + std::string(300, 'x') + "\n");
  EXPECT_EQ(AppPaths().ImageFolder, "/machine/images/");
}

TEST_F(AppPathsTest, ShellFolderGivesTheBase) {
  Registry("machine.reg",
           "[Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders]\nCommon Documents=" +
               dir_.File("docs") + "/\n");
  EXPECT_EQ(AppPaths().DataFolder, dir_.File("docs/OKN/FathomBureau/"));
  // A base that cannot be made falls back to the program's folder.
  test::WriteFile(dir_.path() / "blocker", "x");
  Registry("machine.reg",
           "[Software\\Microsoft\\Windows\\CurrentVersion\\Explorer\\Shell Folders]\nCommon Documents=" +
               dir_.File("blocker") + "\n");
  EXPECT_EQ(AppPaths().DataFolder, ProgramFolder() + "/");
}

}  // namespace
}  // namespace tarnvel
