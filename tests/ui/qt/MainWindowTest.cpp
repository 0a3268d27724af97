// The desktop window driven as a user would, off screen: texts, columns,
// buttons through a pass, the abort question, the Options dialog, the row
// menu, the tray and the close, the German catalogue, row updates while the
// window itself waits for the jobs, and the window's end amid a pass.
#include <QAbstractButton>
#include <QCheckBox>
#include <QComboBox>
#include <QHeaderView>
#include <QLabel>
#include <QMessageBox>
#include <QPushButton>
#include <QSignalSpy>
#include <QTableView>
#include <QTest>
#include <QTimer>
#include <cstdlib>
#include <filesystem>
#include <map>

#include "platform/cordage/Messages.h"
#include "platform/suitelink/SuiteLink.h"
#include "tests/support/TestFiles.h"
#include "tests/ui/FakeJobs.h"
#include "ui/StartUp.h"
#include "ui/Texts.h"
#include "ui/qt/MainWindow.h"
#include "ui/qt/ParallelOptionsDialog.h"

namespace tarnvel::qt {
namespace {

namespace fs = std::filesystem;

// Presses the button of the next modal dialog whose text is `button`, once it opens.
void PressInNextDialog(const QString& button, const std::function<void(QWidget*)>& before = nullptr) {
  auto* poll = new QTimer;
  QObject::connect(poll, &QTimer::timeout, [poll, button, before] {
    QWidget* modal = QApplication::activeModalWidget();
    if (!modal) return;
    poll->stop();
    poll->deleteLater();
    if (before) before(modal);
    for (QAbstractButton* b : modal->findChildren<QAbstractButton*>())
      if (b->text() == button) return b->click();
    QFAIL(qPrintable("no button " + button));
  });
  poll->start(10);
}

QString Cell(const MainWindow& window, int row, int column) {
  return window.List()->model()->index(row, column).data().toString();
}

QImage Decoration(const MainWindow& window, int row) {
  const QIcon icon = window.List()->model()->index(row, 0).data(Qt::DecorationRole).value<QIcon>();
  return icon.pixmap(24, 24).toImage().convertToFormat(QImage::Format_ARGB32_Premultiplied);
}

// Image `n` of the status strip, drawn as it is stored.
QImage StatusImage(int n) {
  return QImage(":/tarnvel/status.png").convertToFormat(QImage::Format_ARGB32_Premultiplied).copy(n * 24, 0, 24, 24);
}

}  // namespace

class MainWindowTest : public QObject {
  Q_OBJECT

 private:
  // The window under test, with fake jobs; those named in `stepped` run
  // `frames` frames, each released by the test.
  MainWindow* Make(std::initializer_list<std::string> stepped = {}, int frames = 4,
                   ParallelSettings settings = {0, 4}) {
    for (const std::string& p : stepped) plans_[p] = test::FakeJobPlan{frames, true, 0, {}};
    window_ = std::make_unique<MainWindow>(
        [this](const std::string& path, std::uint32_t row, bool bySuite) {
          auto it = plans_.find(path);
          return std::make_unique<test::FakeJob>(*world_, it != plans_.end() ? it->second : test::FakeJobPlan{}, row,
                                                 bySuite);
        },
        settings, Scheduler::Timing{20, 1000});
    window_->openUrl = [this](const QUrl& url) { return opened_ = url, true; };
    return window_.get();
  }

  // The window with two jobs side by side, each reporting every one of its
  // `frames` frames without waiting for the test.
  MainWindow* MakeTwoReporting(int frames) {
    plans_["/w/a/b/args.ini"] = test::FakeJobPlan{frames, false, 0, {}};
    plans_["/w/a/c/args.ini"] = test::FakeJobPlan{frames, false, 0, {}};
    auto* window = Make();
    window->show();
    window->Dialog().Jobs().SetParallel({1, 2});
    window->SetUp({JobArgument::Kind::Path, "/w/a/b/args.ini"}, "");
    window->Dialog().Jobs().AddJob("/w/a/c/args.ini", nullptr, nullptr, false);
    window->Dialog().Jobs().WakeUp();
    return window;
  }

  std::unique_ptr<test::TempDir> dir_;
  std::unique_ptr<test::FakeJobWorld> world_;
  std::unique_ptr<MainWindow> window_;
  std::map<std::string, test::FakeJobPlan> plans_;
  QUrl opened_;

 private slots:
  void init() {
    dir_ = std::make_unique<test::TempDir>();
    ::setenv("TARNVEL_USER_REGISTRY", dir_->File("user.reg").c_str(), 1);
    ::setenv("TARNVEL_MACHINE_REGISTRY", dir_->File("machine.reg").c_str(), 1);
    ::setenv("TARNVEL_SUITE_SOCKET", dir_->File("suite.sock").c_str(), 1);
    ::setenv("XDG_DATA_HOME", dir_->File("data").c_str(), 1);
    plans_.clear();
    world_ = std::make_unique<test::FakeJobWorld>();
  }

  // A failed check leaves jobs waiting for frames: they are let go before the window ends.
  void cleanup() {
    world_->frameRelease.release(1000);
    window_.reset();
  }

  void layoutTextsAndStartWithoutArgument() {
    auto* window = Make();
    std::optional<OpenFileRequest> asked;
    window->chooseFile = [&](const OpenFileRequest& request) {
      asked = request;
      return std::nullopt;  // Cancel
    };
    window->show();
    window->SetUp({}, "");
    QVERIFY(QTest::qWaitForWindowExposed(window));
    QCOMPARE(window->windowTitle(), QString("Tarnvel (Raw Converter)"));
    QVERIFY(!(window->windowFlags() & Qt::WindowMaximizeButtonHint));
    QVERIFY(window->windowFlags() & Qt::WindowMinimizeButtonHint);
    QCOMPARE(window->minimumSize(), window->size());

    QTableView* list = window->List();
    const QStringList headings = {"Folder", "File", "Status", "Images", "Time", "Progress"};
    const int widths[] = {list->viewport()->width() - 450, 150, 100, 70, 70, 60};
    for (int c = 0; c < 6; ++c) {
      QCOMPARE(list->model()->headerData(c, Qt::Horizontal).toString(), headings[c]);
      QCOMPARE(list->columnWidth(c), widths[c]);
    }
    QVERIFY(!list->isSortingEnabled() && !list->horizontalHeader()->sectionsClickable());
    QCOMPARE(list->selectionBehavior(), QAbstractItemView::SelectRows);
    QVERIFY(list->showGrid());
    QCOMPARE(list->iconSize(), QSize(24, 24));
    QCOMPARE(window->AddButton()->text() + window->OptionsButton()->text() + window->ClearButton()->text() +
                 window->AbortButton()->text() + window->AbortAllButton()->text(),
             QString("Add...Options...Clear ListAbortAbort all"));
    QTRY_VERIFY(window->ClearButton()->isEnabled() && !window->AbortButton()->isEnabled());  // after the first, empty pass

    // No argument: the Add file dialog comes by itself, in the image folder;
    // Cancel leaves an empty list and a running program.
    QTRY_VERIFY(asked.has_value());
    QCOMPARE(asked->title, std::string("Open Raw Image Header file"));
    QCOMPARE(asked->folder, dir_->File("data") + "/OKN/FathomBureau/");
    QCOMPARE(list->model()->rowCount(), 0);
    QVERIFY(window->isVisible());

    // Resizing keeps the buttons at their edges.
    const int rightGap = window->width() - window->AbortAllButton()->geometry().right();
    const int bottomGap = window->height() - window->AddButton()->geometry().bottom();
    window->resize(window->width() + 200, window->height() + 120);
    QTRY_COMPARE(window->width() - window->AbortAllButton()->geometry().right(), rightGap);
    QCOMPARE(window->height() - window->AddButton()->geometry().bottom(), bottomGap);
    QCOMPARE(window->AddButton()->geometry().left(), 8);
    QVERIFY(window->close());
  }

  void rowsButtonsAndTheAbortQuestion() {
    auto* window = Make({"/r/shots/cam1/args.ini", "/r/shots/cam2/args.ini"});
    window->show();
    window->SetUp({JobArgument::Kind::Path, "/r/shots/cam1/args.ini"}, "");
    window->Dialog().Jobs().AddJob("/r/shots/cam2/args.ini", nullptr, nullptr, false);
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Converting"));
    world_->frameRelease.release(1);
    QTRY_COMPARE(Cell(*window, 0, 3), QString("1/4"));
    // A running row, and the buttons of a pass.
    QCOMPARE(Cell(*window, 0, 0) + "|" + Cell(*window, 0, 1) + "|" + Cell(*window, 0, 5), QString("shots/cam1|out.tif|25.0%"));
    QCOMPARE(Cell(*window, 1, 2) + Cell(*window, 1, 3), QString("Waiting-"));
    QVERIFY(!window->ClearButton()->isEnabled() && window->AbortButton()->isEnabled() &&
            window->AbortAllButton()->isEnabled() && window->AddButton()->isEnabled());
    QCOMPARE(Decoration(*window, 0), StatusImage(1));
    QCOMPARE(Decoration(*window, 1), StatusImage(0));

    // Question 1061: No leaves everything running, Yes aborts.
    PressInNextDialog("No", [](QWidget* box) {
      QCOMPARE(static_cast<QMessageBox*>(box)->text(), QString::fromStdString(MessageText(kMsgConfirmAbort)));
    });
    window->AbortButton()->click();
    QCOMPARE(Cell(*window, 0, 2), QString("Converting"));
    PressInNextDialog("Yes");
    window->AbortButton()->click();
    world_->frameRelease.release(1);
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Abort"));
    for (int c : {1, 3, 4, 5}) QCOMPARE(Cell(*window, 0, c), QString("-"));
    QCOMPARE(Decoration(*window, 0), StatusImage(3));
    // The second job ran on: a waiting job clears its abort flag when it starts.
    QTRY_COMPARE(Cell(*window, 1, 2), QString("Converting"));
    world_->frameRelease.release(4);
    QTRY_COMPARE(Cell(*window, 1, 2), QString("Done"));
    QCOMPARE(Cell(*window, 1, 3) + " " + Cell(*window, 1, 5), QString("4/4 100%"));
    QTRY_VERIFY(window->ClearButton()->isEnabled() && !window->AbortAllButton()->isEnabled());

    // The first Add's wake-up may have come during the pass and bring one more,
    // empty pass: that refuses the clear from its start on, a moment before
    // the display shows it busy.
    QTRY_VERIFY((window->ClearButton()->click(), window->List()->model()->rowCount() == 0));
    window->Dialog().Jobs().AddJob("/r/shots/cam3/args.ini", nullptr, nullptr, false);
    QTRY_COMPARE(window->List()->model()->rowCount(), 1);
    QCOMPARE(window->Dialog().List().Row(0).path, std::string("/r/shots/cam3/args.ini"));  // numbers start again at 0
    window->Dialog().Jobs().WakeUp();
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Done"));
    QTRY_VERIFY(window->close());
  }

  void optionsDialogWritesAndTellsTheSuite() {
    test::WriteFile(dir_->path() / "user.reg",
                    "[Software\\OKN\\FathomBureau\\Settings]\nUseJumboPackets=0\nMultiThreadMaxRawFiles=13\n");
    {
      // A stored maximum above 12 selects nothing; off keeps the list's selection but disables it.
      ParallelOptionsDialog options(ReadParallelSettings());
      QCOMPARE(options.MaximumList()->currentIndex(), -1);
      QCOMPARE(options.MaximumList()->count(), 11);
      QVERIFY(!options.MaximumList()->isEnabled() && !options.MaximumLabel()->isEnabled());
      options.EnableBox()->click();
      QVERIFY(options.MaximumList()->isEnabled() && options.MaximumLabel()->isEnabled());
      QCOMPARE(options.Result().maximum, 1);  // no selection confirms as 1
      options.MaximumList()->setCurrentIndex(3);
      options.EnableBox()->click();
      QCOMPARE(options.MaximumList()->currentIndex(), 3);
      QCOMPARE(std::pair(options.Result().enabled, options.Result().maximum), std::pair(0, 5));
    }
    std::mutex heardMutex;  // written on the socket's thread
    std::vector<std::uint8_t> heard;
    auto Heard = [&] {
      std::lock_guard lock(heardMutex);
      return heard;
    };
    SuiteListener suite;
    QCOMPARE(suite.Start(dir_->File("suite.sock"),
                         [&](std::uint32_t, std::span<const std::uint8_t> p) {
                           std::lock_guard lock(heardMutex);
                           heard.assign(p.begin(), p.end());
                         }),
             0);
    auto* window = Make({}, 4, ReadParallelSettings());
    window->show();
    window->SetUp({JobArgument::Kind::SuiteMarker, "*$$*"}, "");
    PressInNextDialog("Cancel", [](QWidget* dialog) { dialog->findChild<QCheckBox*>()->click(); });
    window->OptionsButton()->click();
    QCOMPARE(window->Dialog().Jobs().Parallel().enabled, 0);  // Cancel changes nothing
    QVERIFY(Heard().empty());
    PressInNextDialog("OK", [](QWidget* dialog) {
      QCOMPARE(dialog->windowTitle(), QString("Options"));
      dialog->findChild<QCheckBox*>()->click();
    });
    window->OptionsButton()->click();
    QCOMPARE(window->Dialog().Jobs().Parallel().maximum, 1);  // this run uses the 1 as it is
    QTRY_COMPARE(Heard(), (std::vector<std::uint8_t>{1, 0, 0, 0, 1, 0, 0, 0}));
    const ParallelSettings next = ReadParallelSettings();
    QCOMPARE(std::pair(next.enabled, next.maximum), std::pair(1, 2));  // the next start raises it to 2
    QVERIFY(window->close());
  }

  void rowMenuTrayAndClose() {
    const fs::path rec = dir_->path() / "rec/cam1";
    fs::create_directories(rec);
    test::WriteFile(rec / "args.ini", "[ArgSect]\r\nArg30=1\r\nArg22=Side\r\n");
    test::WriteFile(dir_->path() / "rec/args.ini", "[ArgSect]\r\nArg30=0\r\n");
    auto* window = Make({(rec / "args.ini").string()}, 2);
    window->show();
    window->SetUp({JobArgument::Kind::Path, (rec / "args.ini").string()}, "");
    window->Dialog().Jobs().AddJob(dir_->File("rec/args.ini"), nullptr, nullptr, false);
    QTRY_COMPARE(window->List()->model()->rowCount(), 2);
    QTableView* list = window->List();
    window->OnRowMenu(list->visualRect(list->model()->index(1, 2)).center());
    QVERIFY(!window->RowMenu().isVisible());  // no movie, no menu
    window->OnRowMenu(QPoint(5, list->viewport()->height() - 3));
    QVERIFY(!window->RowMenu().isVisible());  // nothing outside a row
    window->OnRowMenu(list->visualRect(list->model()->index(0, 2)).center());
    QTRY_VERIFY(window->RowMenu().isVisible());
    QCOMPARE(window->RowMenu().actions().front()->text(), QString("Open AVI"));
    window->RowMenu().actions().front()->trigger();
    QCOMPARE(opened_, QUrl::fromLocalFile(QString::fromStdString((rec / "Side.avi").string())));
    window->RowMenu().hide();

    // Close with a job pending: the window goes away (minimised without a
    // notification area) and the tray's click brings it back.
    QVERIFY(!window->close());
    QTRY_VERIFY(window->isMinimized() || window->isHidden());
    window->OnTrayActivated(QSystemTrayIcon::Context);
    QVERIFY(window->isMinimized() || window->isHidden());  // a right click does nothing
    window->OnTrayActivated(QSystemTrayIcon::Trigger);
    QTRY_VERIFY(window->isVisible() && !window->isMinimized());
    QVERIFY(!window->Ended());
    world_->frameRelease.release(2);
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Done"));
    QTRY_VERIFY(window->close());
    QVERIFY(window->Ended());
  }

  void germanCatalogueInTheWindow() {
    fs::create_directories(dir_->path() / "Languages");
    fs::copy_file(test::SourceDir() / "ui/languages/tarnvel.de", dir_->path() / "Languages/tarnvel.de");
    QVERIFY(LoadLanguageCatalogue(dir_->File("tarnvel"), 1));
    auto* window = Make();
    window->show();
    window->SetUp({JobArgument::Kind::Path, "/d/rec/cam1/args.ini"}, "");
    QCOMPARE(window->windowTitle(), QString("Tarnvel (Rohdatenkonverter)"));
    QCOMPARE(window->AddButton()->text() + "|" + window->ClearButton()->text() + "|" + window->AbortAllButton()->text(),
             QString::fromUtf8("Hinzufügen...|Liste leeren|Alle abbrechen"));
    QCOMPARE(window->List()->model()->headerData(0, Qt::Horizontal).toString(), QString("Ordner"));
    QCOMPARE(window->List()->model()->headerData(5, Qt::Horizontal).toString(), QString("Fortschritt"));
    QCOMPARE(window->Tray().toolTip(), QString("Rohdatenkonverter"));
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Fertig"));
    PressInNextDialog("Abbrechen", [](QWidget* dialog) {
      QCOMPARE(dialog->windowTitle(), QString("Optionen"));
      QCOMPARE(dialog->findChild<QCheckBox*>()->text(), QString("Parallele Rohdatenkonvertierung aktivieren."));
    });
    window->OptionsButton()->click();
    SetStringCatalogue({});
    SetMessageCatalogue({});
    QTRY_VERIFY(window->close());
  }

  // Jobs report every frame and wait for the window; the window meanwhile
  // waits for them. Neither may stand still.
  void reportsWhileTheWindowWaits() {
    auto* window = MakeTwoReporting(3000);
    window->Queue().RunWhileServing([&] {
      while (world_->deleted < 2) std::this_thread::sleep_for(std::chrono::milliseconds(1));
    });
    QCOMPARE(window->Dialog().List().Row(0).cells[kImagesColumn] + window->Dialog().List().Row(1).cells[kImagesColumn],
             std::string("3000/30003000/3000"));
    QTRY_COMPARE(Cell(*window, 1, 2), QString("Done"));
    QTRY_VERIFY(window->close());
  }

  // The window destroyed in the middle of a pass, without a close, while
  // the jobs wait for the display to take their reports: their requests are
  // dropped, they abort, and the window's end waits for their threads.
  void destroyedWhileJobsReport() {
    auto* window = MakeTwoReporting(1000000);
    QTRY_VERIFY(Cell(*window, 0, 2) == "Converting" && Cell(*window, 1, 2) == "Converting");
    QVERIFY(!window->Ended());
    window_.reset();
    QCOMPARE(world_->started.load(), 2);
    QCOMPARE(world_->deleted.load(), 2);
    QCOMPARE(world_->aborted.load(), 2);  // none ran on to its last frame without a display
    QCOMPARE(world_->running.load(), 0);
  }

  void terminationAbortsWithoutAsking() {
    auto* window = Make({"/t/a/b/args.ini", "/t/a/c/args.ini"});
    window->show();
    window->SetUp({JobArgument::Kind::Path, "/t/a/b/args.ini"}, "");
    window->Dialog().Jobs().AddJob("/t/a/c/args.ini", nullptr, nullptr, false);
    QTRY_COMPARE(Cell(*window, 0, 2), QString("Converting"));
    window->Terminate();
    world_->frameRelease.release(1);
    QTRY_VERIFY(window->Ended());
    QCOMPARE(Cell(*window, 0, 2) + Cell(*window, 1, 2), QString("AbortAbort"));  // the waiting job never started
  }
};

}  // namespace tarnvel::qt

QTEST_MAIN(tarnvel::qt::MainWindowTest)
#include "MainWindowTest.moc"
