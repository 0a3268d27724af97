#include "platform/cordage/Folders.h"

#include <gtest/gtest.h>

#include <filesystem>
#include <string>
#include <vector>

#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

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

}  // namespace
}  // namespace tarnvel
