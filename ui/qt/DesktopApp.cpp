#include "ui/qt/DesktopApp.h"

#include <QApplication>
#include <QLibraryInfo>
#include <QLocale>
#include <QTimer>
#include <QTranslator>
#include <atomic>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <filesystem>
#include <memory>

#include "engine/DecodeRaw.h"
#include "platform/cordage/Messages.h"
#include "platform/rawdrv/RawDriver.h"
#include "platform/suitelink/SuiteLink.h"
#include "ui/Settings.h"
#include "ui/StartUp.h"
#include "ui/qt/MainWindow.h"
#include "ui/qt/dialogs/ConversionOptionsDialog.h"

namespace tarnvel::qt {
namespace {

std::atomic<int> g_endRequested{0};

void OnEndSignal(int) { g_endRequested = 1; }

// Qt's own dialogs (the file dialog's labels) in the chosen language, when
// Qt's translations are installed.
void LoadToolkitTexts(QApplication& app, int language) {
  if (language <= 0 || language >= static_cast<int>(std::size(kLanguages))) return;
  auto* translator = new QTranslator(&app);
  if (translator->load(QString("qtbase") + QString(kLanguages[language].suffix).replace('.', '_'),
                       QLibraryInfo::path(QLibraryInfo::TranslationsPath)))
    QCoreApplication::installTranslator(translator);
}

// A path given relative to where the program was started names a file there.
JobArgument WholePath(JobArgument argument) {
  if (argument.kind != JobArgument::Kind::Path || argument.path.empty() || argument.path.front() == '/' ||
      argument.path.front() == ' ')
    return argument;
  std::error_code error;
  const auto whole = std::filesystem::absolute(argument.path, error);
  if (!error) argument.path = whole.string();
  return argument;
}

}  // namespace

int RunDesktop(int argc, char** argv) {
  const JobArgument argument = WholePath(ParseCommandLine(RawCommandLine(argc, argv)));
  QApplication app(argc, argv);
  QApplication::setApplicationName("tarnvel");
  QGuiApplication::setDesktopFileName("tarnvel");
  // The window may hide in the tray while a message box closes: the program
  // ends only by its own close.
  QApplication::setQuitOnLastWindowClosed(false);

  const int language = ReadLanguageId();
  LoadLanguageCatalogue(QCoreApplication::applicationFilePath().toStdString(), language);
  LoadToolkitTexts(app, language);
  DriverInit(0);

  int status = 0;
  {
    MainWindow window([](const std::string& path, std::uint32_t row, bool sentBySuite) {
      return std::make_unique<CDecodeRaw>(path, row, sentBySuite ? 1 : 0);
    }, ReadParallelSettings());
    // A job file chosen with the Add button goes through the conversion options.
    window.Dialog().SetOptionsChooser(DialogOptionsChooser(&window));
    SetMessageHandler([&window](int number, int style, const std::string& text) {
      return window.ShowMessage(number, style, text);
    });
    for (int signal : {SIGTERM, SIGINT, SIGHUP}) std::signal(signal, OnEndSignal);
    QTimer endWatch;
    QObject::connect(&endWatch, &QTimer::timeout, &window, [&window] {
      if (g_endRequested) window.Terminate();
    });
    endWatch.start(100);

    const std::string socket = ConverterSocketPath();
    window.show();
    window.SetUp(argument, socket);
    if (const int error = window.Dialog().SocketError(); error != 0)
      std::fprintf(stderr, "tarnvel: no suite commands on %s: %s\n", socket.c_str(), std::strerror(error));
    status = QApplication::exec();
    SetMessageHandler(nullptr);
  }
  DriverExit();
  return status;
}

}  // namespace tarnvel::qt
