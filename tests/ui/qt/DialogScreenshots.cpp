// Takes the screenshots of the conversion dialogs for docs/: a generated
// recording in "Raw Conversion Options", then "Video Compression" of AVI, each
// grabbed from the screen of the display it runs on (Xvfb in
// scripts/screenshots.sh).
//
//   tarnvel-dialog-shots OUTPUT_FOLDER
#include <QApplication>
#include <QComboBox>
#include <QPushButton>
#include <QScreen>
#include <QTimer>
#include <QtTest>
#include <filesystem>
#include <string>

#include "apps/recgen/RecordingGenerator.h"
#include "platform/cordage/TextField.h"
#include "platform/rawdrv/RawDriver.h"
#include "ui/qt/dialogs/CodecDialog.h"
#include "ui/qt/dialogs/ConversionOptionsDialog.h"

namespace {

// The window with its frame, as the screen shows it.
bool Shoot(QWidget* window, const QString& file) {
  window->activateWindow();
  QTest::qWait(300);
  const QRect frame = window->frameGeometry();
  const QPixmap shot = window->screen()->grabWindow(0, frame.x(), frame.y(), frame.width(), frame.height());
  return !shot.isNull() && shot.save(file);
}

}  // namespace

int main(int argc, char** argv) {
  QApplication app(argc, argv);
  if (argc != 2) {
    std::fprintf(stderr, "usage: tarnvel-dialog-shots OUTPUT_FOLDER\n");
    return 2;
  }
  const QString out = QString::fromLocal8Bit(argv[1]);
  const std::filesystem::path folder = std::filesystem::temp_directory_path() / "tarnvel-shots" / "Crash test 0042";
  std::filesystem::remove_all(folder.parent_path());
  tarnvel::recgen::RecordingOptions o;
  o.folder = folder.string();
  o.width = 640, o.height = 512, o.frames = 50, o.preTrigger = 10, o.fileType = 13;
  if (tarnvel::recgen::WriteRecording(o) != "") return 1;
  tarnvel::DriverInit(0);
  int failures = 0;
  tarnvel::ConversionOptionsDialog options(tarnvel::ReadOptionsStart(tarnvel::JoinPath(o.folder, "args.ini")));
  options.move(40, 40);
  options.show();
  if (!QTest::qWaitForWindowExposed(&options)) return 1;
  failures += !Shoot(&options, out + "/options-dialog.png");
  QTimer::singleShot(0, [&] {
    QTest::qWait(100);
    auto* codec = qobject_cast<tarnvel::CodecDialog*>(QApplication::activeModalWidget());
    if (codec == nullptr) {
      ++failures;
      return;
    }
    codec->move(80, 120);
    failures += !QTest::qWaitForWindowExposed(codec) || !Shoot(codec, out + "/codec-dialog.png");
    codec->reject();
  });
  options.findChild<QPushButton*>("codec")->click();
  options.reject();
  tarnvel::DriverExit();
  std::filesystem::remove_all(folder.parent_path());
  return failures == 0 ? 0 : 1;
}
