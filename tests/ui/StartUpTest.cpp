#include "ui/StartUp.h"

#include <gtest/gtest.h>

#include "platform/cordage/Messages.h"
#include "tests/support/TestFiles.h"

namespace tarnvel {
namespace {

using Kind = JobArgument::Kind;

TEST(StartUp, CommandLineRules) {
  const std::string program = "\"C:\\Program Files\\OKN\\Tarnvel.exe\"";
  // Exactly 10 characters behind the last quote is no argument; 11 is one.
  EXPECT_EQ(ParseCommandLine(program + " \"/data/a.ini\"").kind, Kind::Path);
  EXPECT_EQ(ParseCommandLine(program + " \"/dat/a.ini\"").kind, Kind::None);
  EXPECT_EQ(ParseCommandLine(program + " \"/data/b.ini\"").path, "/data/b.ini");
  // Further quotes behind the path change nothing.
  EXPECT_EQ(ParseCommandLine(program + " \"/data/b.ini\"\"\"\"").path, "/data/b.ini");
  // An unquoted path after an unquoted program name is no argument.
  EXPECT_EQ(ParseCommandLine("tarnvel /data/rec/args.ini").kind, Kind::None);
  // An unquoted path after a quoted program name keeps its leading blank.
  EXPECT_EQ(ParseCommandLine(program + " /data/rec/args.ini").path, " /data/rec/args.ini");
  // The marker counts anywhere in an unquoted line, even inside a word ...
  EXPECT_EQ(ParseCommandLine("tarnvel x*$$*y").kind, Kind::SuiteMarker);
  // ... but not once a quote is there: the quote rule goes first.
  EXPECT_EQ(ParseCommandLine(program + " *$$*").kind, Kind::None);
  EXPECT_EQ(ParseCommandLine("").kind, Kind::None);
  EXPECT_EQ(ParseCommandLine("\"\"\"\"").kind, Kind::None);
  // Too long for the buffer: refused, never cut into another path.
  EXPECT_EQ(ParseCommandLine(program + " \"/" + std::string(1100, 'a') + "\"").kind, Kind::TooLong);
}

TEST(StartUp, RebuiltCommandLinesGiveWhatTheUserMeant) {
  const char* withPath[] = {"/usr/bin/tarnvel", "/data/rec 1/args.ini"};
  EXPECT_EQ(RawCommandLine(2, withPath), "/usr/bin/tarnvel \"/data/rec 1/args.ini\"");
  EXPECT_EQ(ParseCommandLine(RawCommandLine(2, withPath)).path, "/data/rec 1/args.ini");
  const char* marker[] = {"/opt/my tools/tarnvel", "*$$*"};
  EXPECT_EQ(RawCommandLine(2, marker), "\"/opt/my tools/tarnvel\" *$$*");
  // A quoted program name puts a quote in the line, so the marker is not seen:
  // the same as a quoted program name with the marker behind it.
  EXPECT_EQ(ParseCommandLine(RawCommandLine(2, marker)).kind, Kind::None);
  const char* plainMarker[] = {"tarnvel", "*$$*"};
  EXPECT_EQ(ParseCommandLine(RawCommandLine(2, plainMarker)).kind, Kind::SuiteMarker);
  const char* alone[] = {"tarnvel"};
  EXPECT_EQ(ParseCommandLine(RawCommandLine(1, alone)).kind, Kind::None);
}

TEST(StartUp, LanguageCatalogues) {
  test::TempDir dir;
  const std::string program = dir.File("tarnvel");
  EXPECT_FALSE(LanguageCataloguePath(program, 0)) << "English is built in; no file is touched";
  EXPECT_FALSE(LanguageCataloguePath(program, 8));
  EXPECT_FALSE(LanguageCataloguePath(program, -1));
  EXPECT_EQ(*LanguageCataloguePath(program, 1), dir.File("Languages/tarnvel.de"));
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
