// The "Raw Conversion Options" and "Video Compression" dialogs driven as a
// user drives them: their overrides equal those of the command line's flags,
// their preview equals a plain stretch of the first frame, and a job added
// through the dialog writes the very files that tarnvel-cli writes.
#include <QApplication>
#include <QCheckBox>
#include <QComboBox>
#include <QLabel>
#include <QLineEdit>
#include <QPushButton>
#include <QSlider>
#include <QTimer>
#include <QtTest>
#include <cstring>
#include <filesystem>
#include <functional>

#include "apps/cli/CliArguments.h"
#include "apps/recgen/RecordingGenerator.h"
#include "engine/DecodeRaw.h"
#include "engine/RawSource.h"
#include "platform/cordage/TextField.h"
#include "platform/framekit/MovieCodecs.h"
#include "platform/rawdrv/RawDriver.h"
#include "tests/support/TestFiles.h"
#include "tests/ui/PreviewReference.h"
#include "ui/AddFile.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/Scheduler.h"
#include "ui/qt/dialogs/CodecDialog.h"
#include "ui/qt/dialogs/ConversionOptionsDialog.h"
#include "ui/qt/dialogs/PreviewWidget.h"

namespace tarnvel {
namespace {

namespace fs = std::filesystem;

template <class T>
T* Child(QWidget* parent, const char* name) {
  T* child = parent->findChild<T*>(name);
  if (child == nullptr) qFatal("no child %s", name);
  return child;
}

QString Text(QWidget* parent, const char* name) { return Child<QLabel>(parent, name)->text(); }

QStringList Items(QComboBox* combo) {
  QStringList items;
  for (int i = 0; i < combo->count(); ++i) items << combo->itemText(i);
  return items;
}

void Choose(QComboBox* combo, const QString& text) {
  const int index = combo->findText(text);
  if (index < 0) qFatal("no entry %s", qPrintable(text));
  combo->setFocus();
  combo->setCurrentIndex(index);
}

void TypeInto(QLineEdit* edit, const QString& text) {
  edit->setFocus();
  edit->selectAll();
  QTest::keyClick(edit, Qt::Key_Backspace);
  QTest::keyClicks(edit, text);
}

// Runs `act` on the modal dialog of type T as soon as it is up.
template <class T>
void WhenModal(std::function<void(T*)> act) {
  QTimer::singleShot(0, [act] {
    for (int tries = 0; tries < 500; ++tries) {
      if (auto* dialog = qobject_cast<T*>(QApplication::activeModalWidget())) {
        act(dialog);
        return;
      }
      QTest::qWait(10);
    }
    qFatal("no modal dialog came up");
  });
}

bool SameOverrides(const JobOverrides& a, const JobOverrides& b) {
  return a.fileType == b.fileType && a.deleteRaw == b.deleteRaw && a.resetNumbering == b.resetNumbering &&
         a.playbackRate == b.playbackRate && a.outputDepth == b.outputDepth && a.bitRange == b.bitRange &&
         std::memcmp(&a.codec, &b.codec, sizeof a.codec) == 0;
}

}  // namespace

class OptionsDialogsTest : public QObject {
  Q_OBJECT

  test::TempDir dir_;

  recgen::RecordingOptions Recording(const std::string& name, std::uint32_t bits = 12, bool colour = false) {
    recgen::RecordingOptions o;
    o.folder = dir_.File(name);
    o.width = 101, o.height = 37, o.frames = 3, o.preTrigger = 0, o.sampleBits = bits, o.colour = colour;
    o.baseName = "shot";
    if (recgen::WriteRecording(o) != "") qFatal("cannot write %s", o.folder.c_str());
    return o;
  }
  static std::string Args(const recgen::RecordingOptions& o) { return JoinPath(o.folder, "args.ini"); }
  static JobOverrides FromFlags(const std::string& args, std::vector<const char*> flags) {
    flags.insert(flags.begin(), "tarnvel-cli");
    flags.push_back(args.c_str());
    const CliParse parse = ParseCliArguments(static_cast<int>(flags.size()), flags.data());
    if (!parse.error.empty()) qFatal("%s", parse.error.c_str());
    const ChosenJob job = ChooseJob(args, parse.arguments.choices);
    if (!job.error.empty()) qFatal("%s", job.error.c_str());
    return job.overrides;
  }

 private slots:
  void initTestCase() { DriverInit(0); }
  void cleanupTestCase() { DriverExit(); }

  void showsTheRecordingAndFollowsTheFileType() {
    recgen::RecordingOptions o;
    o.folder = dir_.File("shown");
    o.width = 101, o.height = 37, o.frames = 11, o.preTrigger = 5, o.cameraText = "Fathom X-9", o.fileType = 4;
    QCOMPARE(recgen::WriteRecording(o), std::string());
    ConversionOptionsDialog dialog(ReadOptionsStart(Args(o)));
    QCOMPARE(dialog.windowTitle(), QString("Raw Conversion Options"));
    QCOMPARE(Text(&dialog, "title"), QString::fromStdString(o.folder));
    QCOMPARE(Child<QLabel>(&dialog, "title")->font().weight(), QFont::DemiBold);
    QCOMPARE(Text(&dialog, "camera"), QString("Fathom X-9"));
    QCOMPARE(Text(&dialog, "resolution"), QString("101 x 37"));
    QCOMPARE(Text(&dialog, "frames"), QString("11 (-5 to 5)"));
    QCOMPARE(Text(&dialog, "speed"), QString::fromUtf8("1000 fps - 500 µs"));
    auto* types = Child<QComboBox>(&dialog, "fileType");
    auto* depth = Child<QComboBox>(&dialog, "depth");
    QCOMPARE(types->count(), 20);
    QCOMPARE(types->currentText(), QString("PNG File (*.png)"));
    QCOMPARE(Items(depth), QStringList({"12 bit", "11 bit", "10 bit", "9 bit", "8 bit (upper)", "8 bit (middle)", "8 bit (lower)"}));
    QCOMPARE(depth->currentText(), QString("12 bit"));
    QCOMPARE(depth->itemData(5).toUInt(), 8u | 1u << 16);
    auto* codec = Child<QPushButton>(&dialog, "codec");
    auto* rate = Child<QLineEdit>(&dialog, "rate");
    QVERIFY(!codec->isEnabled());
    QVERIFY(!rate->isEnabled());
    QCOMPARE(rate->text(), QString("25"));

    Choose(types, "Audio Video Interleaved - AVI (*.avi)");
    QVERIFY(codec->isEnabled());
    QVERIFY(rate->isEnabled());
    QCOMPARE(Items(depth), QStringList({"8 bit (upper)", "8 bit (middle)", "8 bit (lower)"}));
    // The rate field takes digits only.
    TypeInto(rate, "4x-2");
    QCOMPARE(rate->text(), QString("42"));
    Choose(types, "Multipage TIFF File (*.mpt)");
    QVERIFY(codec->isEnabled());
    QVERIFY(!rate->isEnabled());
    QCOMPARE(depth->currentText(), QString("12 bit"));
    QVERIFY(Child<QCheckBox>(&dialog, "reset")->isEnabled());
    QVERIFY(Child<QCheckBox>(&dialog, "delete")->isEnabled());

    QTest::mouseClick(Child<QPushButton>(&dialog, "cancel"), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Rejected));
  }

  void aRecordingThatCannotBeOpened() {
    const recgen::RecordingOptions o = Recording("gone");
    fs::remove(fs::path(o.folder) / "rawfile.xml");
    ConversionOptionsDialog dialog(ReadOptionsStart(Args(o)));
    for (const char* name : {"camera", "resolution", "frames", "speed"}) QCOMPARE(Text(&dialog, name), QString("N/A"));
    QVERIFY(dialog.Preview() == nullptr);
    QVERIFY(dialog.findChild<QFrame*>("previewFrame") != nullptr);
    QCOMPARE(Items(Child<QComboBox>(&dialog, "depth")), QStringList({"8 bit"}));
    QTest::mouseClick(Child<QPushButton>(&dialog, "convert"), Qt::LeftButton);
    QCOMPARE(dialog.result(), int(QDialog::Accepted));
    QCOMPARE(dialog.Overrides().outputDepth, 8);
  }

  void theDialogGivesWhatTheFlagsGive() {
    const recgen::RecordingOptions o = Recording("choices");
    const std::string args = Args(o);
    {
      ConversionOptionsDialog dialog(ReadOptionsStart(args));
      Choose(Child<QComboBox>(&dialog, "fileType"), "PNG File (*.png)");
      Choose(Child<QComboBox>(&dialog, "depth"), "8 bit (lower)");
      QTest::mouseClick(Child<QCheckBox>(&dialog, "reset"), Qt::LeftButton);
      QTest::mouseClick(Child<QCheckBox>(&dialog, "delete"), Qt::LeftButton);
      QTest::mouseClick(Child<QPushButton>(&dialog, "convert"), Qt::LeftButton);
      QCOMPARE(dialog.result(), int(QDialog::Accepted));
      QCOMPARE(dialog.Overrides().deleteRaw, 1u);
      QVERIFY(SameOverrides(dialog.Overrides(),
                            FromFlags(args, {"--type", "png", "--depth", "8", "--bit-range", "lower", "--reset-numbering", "--delete-raw"})));
    }
    {
      // The codec dialog: another compressor, its quality by the keyboard; a
      // cancelled second run changes nothing.
      ConversionOptionsDialog dialog(ReadOptionsStart(args));
      Choose(Child<QComboBox>(&dialog, "fileType"), "Audio Video Interleaved - AVI (*.avi)");
      Choose(Child<QComboBox>(&dialog, "depth"), "8 bit (middle)");
      TypeInto(Child<QLineEdit>(&dialog, "rate"), "0");
      WhenModal<CodecDialog>([](CodecDialog* codec) {
        Choose(Child<QComboBox>(codec, "compressor"), "H.264 (x264, preset medium)");
        auto* slider = Child<QSlider>(codec, "slider");
        slider->setFocus();
        QTest::keyClick(slider, Qt::Key_Home);
        for (int i = 0; i < 40; ++i) QTest::keyClick(slider, Qt::Key_Right);
        QCOMPARE(Text(codec, "quality"), QString("40"));
        QTest::mouseClick(Child<QPushButton>(codec, "ok"), Qt::LeftButton);
      });
      QTest::mouseClick(Child<QPushButton>(&dialog, "codec"), Qt::LeftButton);
      WhenModal<CodecDialog>([](CodecDialog* codec) {
        Choose(Child<QComboBox>(codec, "compressor"), "FFV1 (lossless)");
        QTest::mouseClick(Child<QPushButton>(codec, "cancel"), Qt::LeftButton);
      });
      QTest::mouseClick(Child<QPushButton>(&dialog, "codec"), Qt::LeftButton);
      QTest::mouseClick(Child<QPushButton>(&dialog, "convert"), Qt::LeftButton);
      const JobOverrides chosen = dialog.Overrides();
      QCOMPARE(chosen.codec.handler, framekit::kMovieH264);
      QCOMPARE(chosen.codec.quality, 4000u);
      QCOMPARE(chosen.playbackRate, 5);
      QVERIFY(SameOverrides(chosen, FromFlags(args, {"--type", "avi", "--depth", "8", "--bit-range", "middle", "--rate", "0",
                                                     "--codec", "H264", "--quality", "40"})));
    }
  }

  void codecDialogSlider() {
    CodecEntry mine;
    mine.handler = framekit::kMovieMotionJpeg, mine.quality = 7550;
    {
      CodecDialog dialog(13, mine);
      QCOMPARE(dialog.windowTitle(), QString("Video Compression"));
      QCOMPARE(Text(&dialog, "quality"), QString("75"));
      QTest::mouseClick(Child<QPushButton>(&dialog, "ok"), Qt::LeftButton);
      QCOMPARE(dialog.Selected().quality, 7550u);
    }
    {
      CodecDialog dialog(13, mine);
      auto* slider = Child<QSlider>(&dialog, "slider");
      slider->setFocus();
      QTest::keyClick(slider, Qt::Key_PageUp);
      QCOMPARE(slider->value(), 70);
      QTest::keyClick(slider, Qt::Key_PageDown);
      QTest::keyClick(slider, Qt::Key_PageDown);
      QCOMPARE(Text(&dialog, "quality"), QString("80"));
      Choose(Child<QComboBox>(&dialog, "compressor"), "Uncompressed (24-bit RGB)");
      QCOMPARE(Text(&dialog, "quality"), QString("N/A"));
      QVERIFY(!slider->isEnabled());
      QCOMPARE(slider->value(), 100);
      Choose(Child<QComboBox>(&dialog, "compressor"), "Motion JPEG");
      QCOMPARE(slider->value(), 80);
      QTest::mouseClick(Child<QPushButton>(&dialog, "ok"), Qt::LeftButton);
      QCOMPARE(dialog.Selected().quality, 8000u);
    }
    {
      CodecDialog none(1, mine);  // no compressor for TIFF: only Cancel does anything
      QVERIFY(!Child<QComboBox>(&none, "compressor")->isEnabled());
      QVERIFY(!Child<QPushButton>(&none, "ok")->isEnabled());
    }
  }

  void previewIsAPlainStretchOfTheFirstFrame() {
    const recgen::RecordingOptions mono = Recording("mono", 12);
    const recgen::RecordingOptions colour = Recording("colour", 12, true);
    for (const recgen::RecordingOptions* o : {&mono, &colour}) {
      ConversionOptionsDialog dialog(ReadOptionsStart(Args(*o)));
      dialog.show();
      QVERIFY(QTest::qWaitForWindowExposed(&dialog));
      PreviewWidget* preview = dialog.Preview();
      QVERIFY(preview != nullptr);
      // The frame as the generator wrote it (mono) or as the driver gives it
      // (colour), each sample cut to its top 8 bits.
      std::vector<std::uint8_t> frame;
      std::uint32_t bits = 8;
      if (!o->colour) {
        for (std::uint16_t v : recgen::SensorSamples(*o, 0)) frame.push_back(std::uint8_t(v >> 4));
      } else {
        RawSource source;
        QCOMPARE(source.Open(o->folder.c_str()), 0);
        FrameGeometry g;
        QVERIFY(source.Geometry(g));
        std::vector<std::uint8_t> raw(g.frameBytes);
        QCOMPARE(source.ReadFrame(0, raw.data()), 0);
        for (std::size_t i = 0; i < raw.size(); i += 2) frame.push_back(std::uint8_t((raw[i] | raw[i + 1] << 8) >> 4));
        bits = 24;
      }
      const QImage shown = preview->grab().toImage().convertToFormat(QImage::Format_RGB32);
      const QRect client = preview->contentsRect();
      const auto expected = test::ReferencePaint(frame, 101, 37, bits, client.width(), client.height());
      for (int y = 0; y < client.height(); ++y)
        for (int x = 0; x < client.width(); ++x)
          if (shown.pixel(client.x() + x, client.y() + y) != expected[std::size_t(y) * client.width() + x])
            QFAIL(qPrintable(QString("pixel %1, %2 of %3").arg(x).arg(y).arg(QString::fromStdString(o->folder))));
      QCOMPARE(preview->ShownZoom(), int((client.width() - 4) * 100.0 / 101));
    }
  }

  // The Add flow with the dialog writes, byte for byte, what tarnvel-cli
  // writes with the same choices as flags.
  void addFlowWritesWhatTheFlagsWrite() {
    const recgen::RecordingOptions o = Recording("same");
    const std::string cli = (test::BinaryDir() / "apps/tarnvel-cli").string();
    const struct {
      const char* flags;
      const char* depth;
    } runs[] = {{"--depth 8 --bit-range upper", "8 bit (upper)"}, {"--depth 12", "12 bit"}};
    int n = 0;
    for (const auto& run : runs) {
      const std::string byFlags = dir_.File("flags" + std::to_string(n)), byDialog = dir_.File("dialog" + std::to_string(n));
      ++n;
      const std::string command = cli + " --type png --keep-raw " + run.flags + " --dest " + byFlags + " " + Args(o);
      QCOMPARE(test::RunCommand(command + " >/dev/null 2>&1"), 0);

      std::FILE* quiet = std::fopen("/dev/null", "w");
      ConsoleFrontEnd console(quiet, quiet, false);
      JobList list(console);
      console.SetList(&list);
      Scheduler scheduler(list, console,
                          [](const std::string& path, std::uint32_t row, bool suite) {
                            return std::make_unique<CDecodeRaw>(path, row, suite ? 1 : 0);
                          },
                          ParallelSettings{0, 2});
      scheduler.StartThread();
      const char* depth = run.depth;
      WhenModal<ConversionOptionsDialog>([depth](ConversionOptionsDialog* dialog) {
        Choose(Child<QComboBox>(dialog, "fileType"), "PNG File (*.png)");
        Choose(Child<QComboBox>(dialog, "depth"), depth);
        auto* remove = Child<QCheckBox>(dialog, "delete");
        if (remove->isChecked()) QTest::mouseClick(remove, Qt::LeftButton);
        QTest::mouseClick(Child<QPushButton>(dialog, "convert"), Qt::LeftButton);
      });
      AddFile(scheduler, console, Args(o), true, DialogOptionsChooser(nullptr), byDialog);
      QTRY_VERIFY_WITH_TIMEOUT(list.RowCount() == 1 && !scheduler.HasPendingJobs() && !scheduler.Busy(), 60000);
      scheduler.Close();
      std::fclose(quiet);
      QCOMPARE(QString::fromStdString(list.Row(0).cells[kStatusColumn]), QString("Done"));

      const fs::path a = fs::path(byFlags) / "same", b = fs::path(byDialog) / "same";
      int files = 0;
      for (const auto& entry : fs::directory_iterator(a)) {
        const fs::path twin = b / entry.path().filename();
        QVERIFY2(fs::exists(twin), twin.c_str());
        QVERIFY2(test::ReadFile(entry.path()) == test::ReadFile(twin), twin.c_str());
        ++files;
      }
      QCOMPARE(files, int(std::distance(fs::directory_iterator(b), fs::directory_iterator())));
      QVERIFY(fs::exists(b / "shot000002.png"));
      QVERIFY(fs::exists(fs::path(o.folder) / "rawdata.00.raw"));
    }
  }
};

}  // namespace tarnvel

QTEST_MAIN(tarnvel::OptionsDialogsTest)
#include "OptionsDialogsTest.moc"
