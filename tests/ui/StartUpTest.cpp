#include "ui/StartUp.h"

#include <gtest/gtest.h>

#include "platform/cordage/Messages.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using Kind = JobArgument::Kind;

TEST(StartUp, CommandLineRules) {
  const std::string program = "\"C:\\Program Files\\OKN\\Tarnvel.exe\"";
  const std::tuple<std::string, Kind, std::string> cases[] = {
      // Exactly 10 characters behind the last quote is no argument; 11 is one.
      {program + " \"/data/a.ini\"", Kind::Path, "/data/a.ini"},
      {program + " \"/dat/a.ini\"", Kind::None, ""},
      {program + " \"/data/b.ini\"\"\"\"", Kind::Path, "/data/b.ini"},  // further quotes change nothing
      {"tarnvel /data/rec/args.ini", Kind::None, ""},  // unquoted path after an unquoted program
      {program + " /data/rec/args.ini", Kind::Path, " /data/rec/args.ini"},  // keeps its leading blank
      {"tarnvel x*$$*y", Kind::SuiteMarker, ""},       // the marker counts even inside a word ...
      {program + " *$$*", Kind::None, ""},             // ... but the quote rule goes first
      {"\"\"\"\"", Kind::None, ""},
      {program + " \"/" + std::string(1100, 'a') + "\"", Kind::TooLong, ""},  // never cut into another path
  };
  for (const auto& [line, kind, path] : cases) {
    const JobArgument argument = ParseCommandLine(line);
    EXPECT_EQ(argument.kind, kind) << line.substr(0, 60);
    if (kind == Kind::Path) {
      EXPECT_EQ(argument.path, path) << line;
    }
  }
  // Rebuilt command lines give what the user meant.
  const char* withPath[] = {"/usr/bin/tarnvel", "/data/rec 1/args.ini"};
  EXPECT_EQ(ParseCommandLine(RawCommandLine(2, withPath)).path, "/data/rec 1/args.ini");
  const char* marker[] = {"/opt/my tools/tarnvel", "*$$*"};
  EXPECT_EQ(RawCommandLine(2, marker), "\"/opt/my tools/tarnvel\" *$$*");
}

TEST(StartUp, LanguageCatalogues) {
  test::TempDir dir;
  const std::string program = dir.File("tarnvel");
  EXPECT_FALSE(LanguageCataloguePath(program, 0)) << "English is built in; no file is touched";
  EXPECT_FALSE(LanguageCataloguePath(program, 8) || LanguageCataloguePath(program, -1));
  EXPECT_EQ(*LanguageCataloguePath(dir.File("Tarnvel.exe"), 3), dir.File("Languages/Tarnvel.fr"));

  EXPECT_FALSE(LoadLanguageCatalogue(program, 1)) << "missing file";
  std::filesystem::create_directory(dir.path() / "Languages");
  test::WriteFile(dir.path() / "Languages/tarnvel.de",
                  "[Messages]\r\n33=Der Ausgabeordner %s kann nicht angelegt werden.\r\nx1=nope\r\n"
                  "99999999999=overflow\r\n[Other]\r\n90=not a message\r\n");
  EXPECT_TRUE(LoadLanguageCatalogue(program, 1));
  EXPECT_EQ(MessageText(33, "/out"), "Der Ausgabeordner /out kann nicht angelegt werden.");
  EXPECT_EQ(MessageText(90, "/r").find("not a message"), std::string::npos);
  test::WriteFile(dir.path() / "Languages/tarnvel.it", std::string("\0\1\2garbage", 10));
  EXPECT_FALSE(LoadLanguageCatalogue(program, 2));
  SetMessageCatalogue({});
}

}  // namespace
}  // namespace tarnvel
