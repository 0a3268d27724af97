// The desktop window's behaviour without a toolkit: texts and catalogues,
// the Options dialog's model, the Add file dialog's request, and the main
// dialog's start-up, socket, context menu, options and close.
#include "ui/TarnvelDialog.h"

#include <gtest/gtest.h>
#include <sys/stat.h>

#include <cerrno>
#include <cstdlib>
#include <filesystem>
#include <map>
#include <string>
#include <tuple>
#include <vector>

#include "platform/cordage/Messages.h"
#include "platform/cordage/Profile.h"
#include "platform/framekit/FileTypes.h"
#include "platform/registry/Registry.h"
#include "tests/support/TestFiles.h"
#include "tests/ui/FakeJobs.h"
#include "ui/ParallelOptions.h"
#include "ui/Texts.h"

namespace tarnvel {
namespace {

using namespace std::chrono_literals;
namespace fs = std::filesystem;

std::map<std::string, std::map<int, std::string>> CatalogueSections(const fs::path& file) {
  std::map<std::string, std::map<int, std::string>> sections;
  WalkProfileText(test::ReadFile(file), {nullptr, [&](std::string_view section, std::string_view key, std::string_view value) {
                                           sections[std::string(section)][std::stoi(std::string(key))] = value;
                                         }});
  return sections;
}

int Slots(const std::string& text) {
  int n = 0;
  for (std::size_t at = text.find("%s"); at != std::string::npos; at = text.find("%s", at + 2)) ++n;
  return n;
}

// Every text the program shows has its German text, with the same slots for arguments.
TEST(Texts, GermanCatalogueIsCompleteAndReplacesTheEnglish) {
  const fs::path german = test::SourceDir() / "ui/languages/tarnvel.de";
  auto sections = CatalogueSections(german);
  for (int id : UiTextIds()) {
    ASSERT_TRUE(sections["Strings"].count(id)) << "no German text " << id << " \"" << UiText(id) << "\"";
    EXPECT_FALSE(sections["Strings"][id].empty()) << id;
  }
  for (const framekit::FileTypeDescriptor& type : framekit::FileTypes())
    EXPECT_NE(sections["Strings"].count(type.stringId), 0u) << "no German name of " << type.text;
  for (int number : BuiltInMessageNumbers()) {
    ASSERT_TRUE(sections["Messages"].count(number)) << "no German message " << number << ": " << MessageText(number);
    EXPECT_EQ(Slots(sections["Messages"][number]), Slots(MessageText(number, "%s"))) << number;
  }

  // The installed form: the program in bin/, its catalogues in share/tarnvel/Languages.
  test::TempDir dir;
  fs::create_directories(dir.path() / "share/tarnvel/Languages");
  fs::copy_file(german, dir.path() / "share/tarnvel/Languages/tarnvel.de");
  fs::create_directories(dir.path() / "bin");
  ASSERT_TRUE(LoadLanguageCatalogue(dir.File("bin/tarnvel"), 1));
  EXPECT_EQ(StatusText(2) + "|" + StatusText(5), "Fertig|Konvertierung + AVI");
  EXPECT_EQ(UiText(kTextAdd), "Hinzuf\xc3\xbcgen...");
  EXPECT_EQ(MessageText(kMsgOutputFolderFailed, "/x"), "Der Ausgabeordner /x kann nicht angelegt werden.");
  SetStringCatalogue({});
  SetMessageCatalogue({});
  EXPECT_EQ(StatusText(2), "Done");
  EXPECT_EQ(UiText(99999), "");
}

TEST(Texts, HostileCataloguesLeaveTheEnglish) {
  test::TempDir dir;
  const std::string program = dir.File("tarnvel");
  fs::create_directory(dir.path() / "Languages");
  // A pipe would block the start if it were opened; a folder is no catalogue.
  ASSERT_EQ(::mkfifo(dir.File("Languages/tarnvel.de").c_str(), 0600), 0);
  fs::create_directory(dir.path() / "Languages/tarnvel.it");
  test::WriteFile(dir.path() / "Languages/tarnvel.fr", std::string("\0\xff[Strings\n=\n1\n", 16));
  test::WriteFile(dir.path() / "Languages/tarnvel.es",
                  "[Strings]\n-1=minus\n1234567=seven digits\n12a=letters\n240=Esperando\n240=twice\n");
  for (int language : {1, 2, 3}) EXPECT_FALSE(LoadLanguageCatalogue(program, language)) << language;
  EXPECT_EQ(UiText(kTextTrayTip), "Raw Converter");
  ASSERT_TRUE(LoadLanguageCatalogue(program, 4));
  EXPECT_EQ(StatusText(0), "Esperando") << "the first of two values counts";
  EXPECT_EQ(StatusText(1), "Converting") << "texts a catalogue lacks stay English";
  SetStringCatalogue({});
}

TEST(ParallelOptions, ListSelectionCheckBoxAndConfirm) {
  EXPECT_EQ(ParallelOptionsModel::Entries(),
            (std::vector<std::string>{"2", "3", "4", "5", "6", "7", "8", "9", "10", "11", "12"}));
  const ParallelOptionsModel standard({0, 4});
  EXPECT_EQ(std::tuple(standard.Checked(), standard.Selection(), standard.ListEnabled()), std::tuple(false, 2, false));
  EXPECT_EQ(ParallelOptionsModel({1, 12}).Selection(), 10) << "12 selects the last entry";

  // Off: the list is disabled but keeps its selection, and OK stores it.
  ParallelOptionsModel model({1, 7});
  EXPECT_TRUE(model.ListEnabled());
  model.SetChecked(false);
  EXPECT_FALSE(model.ListEnabled());
  EXPECT_EQ(std::pair(model.Confirm().enabled, model.Confirm().maximum), std::pair(0, 7));
  model.Select(11);
  EXPECT_EQ(model.Selection(), -1) << "no entry past the last";

  // A stored maximum above 12 selects nothing; OK then gives 1, and the next start reads 2.
  ParallelOptionsModel above({1, 13});
  EXPECT_EQ(above.Selection(), -1);
  const ParallelSettings confirmed = above.Confirm();
  EXPECT_EQ(std::pair(confirmed.enabled, confirmed.maximum), std::pair(1, 1));
  test::TempDir dir;
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("user.reg").c_str(), 1);
  ::setenv("TARNVEL_MACHINE_REGISTRY", dir.File("machine.reg").c_str(), 1);
  test::WriteFile(dir.path() / "user.reg", "[Software\\OKN\\FathomBureau\\Settings]\nUseJumboPackets=0\n");
  EXPECT_TRUE(WriteParallelSettings(confirmed));
  EXPECT_EQ(ReadParallelSettings().maximum, 2);
  ::unsetenv("TARNVEL_USER_REGISTRY");
  ::unsetenv("TARNVEL_MACHINE_REGISTRY");
}

TEST(OpenFileRequest, FiltersFromTheTextAndTheImageFolder) {
  EXPECT_EQ(NameFiltersOf(UiText(kTextOpenFilter)),
            (std::vector<std::string>{"Raw Ini file (*.ini)", "Raw Batch File (*.bat)"}));
  EXPECT_EQ(NameFiltersOf("Recordings|*.ini|Everything (*)|*|"),
            (std::vector<std::string>{"Recordings (*.ini)", "Everything (*)"}));
  EXPECT_EQ(NameFiltersOf("|*.x|Lonely"), std::vector<std::string>{"Lonely"}) << "damaged pairs give no empty filter";
  EXPECT_TRUE(NameFiltersOf("").empty());

  test::TempDir dir;
  ::setenv("TARNVEL_USER_REGISTRY", dir.File("user.reg").c_str(), 1);
  ::setenv("TARNVEL_MACHINE_REGISTRY", dir.File("machine.reg").c_str(), 1);
  ::setenv("XDG_DATA_HOME", dir.File("data").c_str(), 1);
  test::WriteFile(dir.path() / "user.reg", "[Software\\OKN\\FathomBureau\\Settings]\nImgPath=" + dir.File("shots") + "\n");
  const OpenFileRequest request = TarnvelDialog::AddFileRequest();
  EXPECT_EQ(request.folder, dir.File("shots") + "/");
  EXPECT_EQ(request.title, "Open Raw Image Header file");
  EXPECT_EQ(request.defaultName + " " + request.defaultSuffix, "args.ini ini");
  fs::remove(dir.path() / "user.reg");
  EXPECT_EQ(TarnvelDialog::AddFileRequest().folder, dir.File("data") + "/OKN/FathomBureau/")
      << "without an image folder the data folder serves";
  for (const char* v : {"TARNVEL_USER_REGISTRY", "TARNVEL_MACHINE_REGISTRY", "XDG_DATA_HOME"}) ::unsetenv(v);
}

class DialogTest : public ::testing::Test {
 protected:
  DialogTest() {
    ::setenv("TARNVEL_USER_REGISTRY", dir_.File("user.reg").c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", dir_.File("machine.reg").c_str(), 1);
    ::setenv("TARNVEL_SUITE_SOCKET", dir_.File("suite.sock").c_str(), 1);
  }
  ~DialogTest() override {
    dialog_.reset();
    for (const char* v : {"TARNVEL_USER_REGISTRY", "TARNVEL_MACHINE_REGISTRY", "TARNVEL_SUITE_SOCKET"}) ::unsetenv(v);
  }
  TarnvelDialog& Make(std::initializer_list<std::string> stepped = {}) {
    for (const std::string& p : stepped) plans_[p] = test::FakeJobPlan{4, true, 0, {}};
    dialog_ = std::make_unique<TarnvelDialog>(
        frontEnd_,
        [this](const std::string& path, std::uint32_t row, bool bySuite) {
          auto it = plans_.find(path);
          return std::make_unique<test::FakeJob>(world_, it != plans_.end() ? it->second : test::FakeJobPlan{}, row,
                                                 bySuite);
        },
        ParallelSettings{0, 4}, Scheduler::Timing{20, 1000});
    return *dialog_;
  }
  bool WaitUntil(const std::function<bool()>& condition) {
    for (auto end = std::chrono::steady_clock::now() + 5s; std::chrono::steady_clock::now() < end;) {
      if (condition()) return true;
      std::this_thread::sleep_for(1ms);
    }
    return condition();
  }
  std::string Status(std::uint32_t row) { return dialog_->List().Row(row).cells[kStatusColumn]; }

  test::TempDir dir_;
  test::RecordingFrontEnd frontEnd_;
  test::FakeJobWorld world_;
  std::map<std::string, test::FakeJobPlan> plans_;
  std::unique_ptr<TarnvelDialog> dialog_;
};

TEST_F(DialogTest, StartUpFormsAndTheSuiteSocket) {
  EXPECT_EQ(Make().SetUp({}, ""), TarnvelDialog::StartAction::OpenAddDialog) << "no argument: the Add file dialog";
  EXPECT_EQ(Make().SetUp({JobArgument::Kind::SuiteMarker, "*$$*"}, ""), TarnvelDialog::StartAction::None);
  EXPECT_EQ(dialog_->List().RowCount(), 0u) << "the marker waits for the suite";
  EXPECT_TRUE(dialog_->Close());

  // A path runs at once, and the suite's commands reach the dialog by the socket.
  const std::string socket = dir_.File("conv.sock");
  EXPECT_EQ(Make().SetUp({JobArgument::Kind::Path, "/r/a/cam/args.ini"}, socket), TarnvelDialog::StartAction::None);
  EXPECT_EQ(dialog_->SocketError(), 0);
  const std::string sent = "/r/b/cam/args.ini";
  EXPECT_EQ(SendSuiteMessage(socket, kAddJobCommand, {reinterpret_cast<const std::uint8_t*>(sent.data()), sent.size()}),
            std::optional(kSuiteAnswer));
  ASSERT_TRUE(WaitUntil([&] { return dialog_->List().RowCount() == 2 && Status(1) == "Done"; }));
  EXPECT_EQ(Status(0), "Done");

  // A second window of the same user cannot take the socket: it works without the suite's commands.
  test::RecordingFrontEnd secondFrontEnd;
  TarnvelDialog second(secondFrontEnd, [](const std::string&, std::uint32_t, bool) { return nullptr; }, {0, 4});
  second.SetUp({JobArgument::Kind::SuiteMarker, "*$$*"}, socket);
  EXPECT_EQ(second.SocketError(), EADDRINUSE);
  EXPECT_TRUE(second.Close());
  EXPECT_EQ(SendSuiteMessage(socket, kPauseCommand, {}), std::optional(kSuiteAnswer)) << "the first still listens";

  EXPECT_TRUE(dialog_->Close());
  EXPECT_FALSE(SendSuiteMessage(socket, kPauseCommand, {}, 200)) << "the socket closes with the window";

  // A command line too long for its buffer adds nothing and says why.
  EXPECT_EQ(Make().SetUp({JobArgument::Kind::TooLong, ""}, ""), TarnvelDialog::StartAction::None);
  ASSERT_FALSE(frontEnd_.messages.empty());
  EXPECT_EQ(frontEnd_.messages.back().number, kMsgPathTooLong);
  EXPECT_EQ(dialog_->List().RowCount(), 0u);
}

TEST_F(DialogTest, ClearListCloseAndOptions) {
  TarnvelDialog& dialog = Make({"/c/1/a/args.ini"});
  dialog.SetUp({JobArgument::Kind::Path, "/c/1/a/args.ini"}, "");
  ASSERT_TRUE(WaitUntil([&] { return Status(0) == "Converting"; }));
  EXPECT_FALSE(dialog.Buttons().clearList);
  dialog.ClearList();
  EXPECT_EQ(dialog.List().RowCount(), 1u) << "no Clear List during a pass";
  EXPECT_FALSE(dialog.Close()) << "a job pending: the window only hides";
  EXPECT_EQ(frontEnd_.hides, 1);

  // Options during the pass: the settings are kept and the suite hears of them.
  test::WriteFile(dir_.path() / "user.reg", "[Software\\OKN\\FathomBureau\\Settings]\nUseJumboPackets=0\n");
  std::vector<std::uint8_t> heard;
  ManualResetEvent told(false);
  SuiteListener suite;
  ASSERT_EQ(suite.Start(dir_.File("suite.sock"), [&](std::uint32_t command, std::span<const std::uint8_t> payload) {
    if (command == 2) heard.assign(payload.begin(), payload.end()), told.Set();
  }), 0);
  dialog.ConfirmOptions({1, 9});
  EXPECT_EQ(std::pair(dialog.Jobs().Parallel().enabled, dialog.Jobs().Parallel().maximum), std::pair(1, 9));
  EXPECT_EQ(std::pair(ReadParallelSettings().enabled, ReadParallelSettings().maximum), std::pair(1, 9));
  ASSERT_TRUE(told.Wait(5s));
  EXPECT_EQ(heard, (std::vector<std::uint8_t>{1, 0, 0, 0, 9, 0, 0, 0}));

  world_.frameRelease.release(4);
  ASSERT_TRUE(WaitUntil([&] { return Status(0) == "Done" && !dialog.Jobs().Busy(); }));
  EXPECT_TRUE(dialog.Buttons().clearList);
  dialog.ClearList();
  EXPECT_EQ(dialog.List().RowCount(), 0u);
  EXPECT_TRUE(dialog.Close()) << "an empty list ends the program";
}

TEST_F(DialogTest, ContextMenuMovieOfARow) {
  Make();
  const fs::path rec = dir_.path() / "data/rec/cam1";
  fs::create_directories(rec);
  test::WriteFile(rec / "args.ini", "[ArgSect]\r\nArg30=1\r\nArg22=Side camera\r\n");
  fs::create_directories(dir_.path() / "data/rec/cam2");
  fs::create_directories(dir_.path() / "data/rec/cam3");
  test::WriteFile(dir_.path() / "data/rec/cam2/args.ini", "[ArgSect]\r\nArg30=0\r\n");
  test::WriteFile(dir_.path() / "data/rec/cam3/args.ini", "[ArgSect]\r\nArg30=1\r\nArg22=../../escape\r\n");
  for (const char* cam : {"cam1", "cam2", "cam3", "gone"})
    dialog_->Jobs().AddJob(dir_.File(std::string("data/rec/") + cam + "/args.ini"), nullptr, nullptr, false);
  EXPECT_EQ(dialog_->MovieOfRow(0), (rec / "Side camera.avi").string());
  EXPECT_EQ(dialog_->MovieOfRow(1), "") << "a job without a companion movie has no menu";
  EXPECT_EQ(dialog_->MovieOfRow(2), "") << "a device name that is no plain file name";
  EXPECT_EQ(dialog_->MovieOfRow(3), "") << "an argument file that has gone";
  EXPECT_EQ(dialog_->MovieOfRow(4), "") << "no such row";
}

}  // namespace
}  // namespace tarnvel
