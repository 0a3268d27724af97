// Start-up: the command line, language catalogues, settings, the console front end.
#include "ui/StartUp.h"

#include <gtest/gtest.h>

#include <algorithm>
#include <cstdio>
#include <cstdlib>
#include <optional>
#include <string>
#include <utility>

#include "platform/cordage/Messages.h"
#include "platform/suitelink/SuiteLink.h"
#include "platform/threads/Event.h"
#include "tests/support/TestFiles.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/FrontEnd.h"
#include "ui/Settings.h"

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

// Everything written to a memory stream, as text.
struct Captured {
  char* data = nullptr;
  std::size_t size = 0;
  std::FILE* file = ::open_memstream(&data, &size);
  ~Captured() {
    std::fclose(file);
    std::free(data);
  }
  std::string Text() {
    std::fflush(file);
    return std::string(data, size);
  }
};

TEST(ConsoleFrontEnd, BarsRatesAndTimeLeft) {
  EXPECT_EQ(ConsoleFrontEnd::Bar(12, 10, 4) + ConsoleFrontEnd::Bar(3, 0, 4), "[####][....]");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(10, 7210, 1.0), "10.0 fps, 12:00 left");
  EXPECT_EQ(ConsoleFrontEnd::RateAndTimeLeft(0, 100, 2.0), "");
}

TEST(ConsoleFrontEnd, PlainLinesForALogAndOneLineForATerminal) {
  for (bool terminal : {false, true}) {
    Captured out, err;
    ConsoleFrontEnd console(out.file, err.file, terminal);
    JobList list(console);
    console.SetList(&list);
    list.AddRow("/data/rec/cam1/args.ini");
    const std::uint32_t start = TickCount();
    list.SetRowStatus(0, "frame.tif", start, 1, 1, 100);
    for (int i = 1; i <= 100; ++i) list.SetRowProgress(0, start, i, 100);
    list.SetRowStatus(0, "frame.tif", start, 2, 100, 100);
    const std::string text = out.Text();
    if (!terminal) {
      EXPECT_EQ(std::count(text.begin(), text.end(), '\n'), 1 + 1 + 10 + 1) << text;  // waiting, converting, tenths, done
      EXPECT_NE(text.find("job 1 rec/cam1: Waiting"), std::string::npos) << text;
      EXPECT_EQ(text.find('\r'), std::string::npos) << "no terminal control in a log";
    } else {
      EXPECT_NE(text.find("\r\033[K"), std::string::npos);
      EXPECT_NE(text.find("[############............] 50/100 50.0%"), std::string::npos) << text;
    }
  }
  Captured out, err;
  ConsoleFrontEnd console(out.file, err.file, true);
  EXPECT_EQ(console.ShowMessage(90, kStyleError, MessageText(90, "/a/b/c")), kAnswerOk);
  EXPECT_EQ(console.ShowMessage(1061, kStyleYesNoQuestion, MessageText(1061)), kAnswerYes);
  EXPECT_NE(err.Text().find("tarnvel-cli: error 90: "), std::string::npos);
  EXPECT_NE(err.Text().find("warning 1061"), std::string::npos);
}

}  // namespace
}  // namespace tarnvel
