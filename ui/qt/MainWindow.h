// The job list window: the table of jobs, the five buttons, the context menu
// of a row and the tray icon. It draws what TarnvelDialog decides and
// forwards the user's events to it; as the scheduler's front end it carries
// the jobs' row updates and messages onto the display's thread.
#pragma once

#include <QIcon>
#include <QMenu>
#include <QSystemTrayIcon>
#include <QUrl>
#include <QWidget>
#include <atomic>
#include <functional>
#include <optional>
#include <string>

#include "ui/TarnvelDialog.h"
#include "ui/qt/JobListModel.h"
#include "ui/qt/MainThreadQueue.h"

class QPushButton;
class QTableView;

namespace tarnvel::qt {

class MainWindow : public QWidget, public FrontEnd {
  Q_OBJECT

 public:
  MainWindow(Scheduler::JobFactory factory, ParallelSettings settings, Scheduler::Timing timing = {});
  ~MainWindow() override;

  // The end of the set-up: scheduler, suite socket, tray icon, and the job
  // argument; without one the Add file dialog opens 100 ms later.
  void SetUp(const JobArgument& argument, const std::string& socketPath);
  TarnvelDialog& Dialog() { return dialog_; }

  // The file dialog and the desktop's opener; tests put their own in place.
  std::function<std::optional<std::string>(const OpenFileRequest&)> chooseFile;
  std::function<bool(const QUrl&)> openUrl;

  // A termination request (SIGTERM, SIGINT, SIGHUP): every job aborts
  // without a question, and the program ends once the list is empty.
  void Terminate();
  bool Ended() const { return ended_; }

  // FrontEnd
  void RunOnMainThread(const std::function<void()>& work) override { queue_.Run(work); }
  void RowChanged(std::uint32_t rowIndex) override;
  void SetBusy(bool busy) override;
  int ShowMessage(int number, int style, const std::string& text) override;
  void RequestClose() override;
  void Hide() override;

  // The controls, for the window's tests.
  QTableView* List() const { return list_; }
  QPushButton* AddButton() const { return add_; }
  QPushButton* OptionsButton() const { return options_; }
  QPushButton* ClearButton() const { return clear_; }
  QPushButton* AbortButton() const { return abort_; }
  QPushButton* AbortAllButton() const { return abortAll_; }
  QSystemTrayIcon& Tray() { return tray_; }
  QMenu& RowMenu() { return rowMenu_; }
  MainThreadQueue& Queue() { return queue_; }

  void OnAdd();
  void OnOptions();
  void OnRowMenu(const QPoint& position);
  void OnTrayActivated(QSystemTrayIcon::ActivationReason reason);

 protected:
  void closeEvent(QCloseEvent* event) override;
  void showEvent(QShowEvent* event) override;

 private:
  void ShowButtons(const ButtonStates& states);
  static std::optional<std::string> ChooseFileWithDialog(QWidget* parent, const OpenFileRequest& request);

  MainThreadQueue queue_;  // before the dialog: its threads are ended while the queue still serves
  TarnvelDialog dialog_;
  JobListModel model_;
  QTableView* list_;
  QPushButton *add_, *options_, *clear_, *abort_, *abortAll_;
  QSystemTrayIcon tray_;
  QIcon idleIcon_, busyIcon_;
  QMenu rowMenu_;
  std::string moviePath_;  // the row menu's target
  bool sized_ = false;
  bool ended_ = false;
  std::atomic<bool> terminating_{false};
};

}  // namespace tarnvel::qt
