// The main window's behaviour without a toolkit: it owns the job list, the
// scheduler and the suite socket, and decides what start-up, each button,
// the context menu and the close do. The desktop's window draws it and
// forwards its events; everything here also runs in tests without a screen.
#pragma once

#include <cstdint>
#include <future>
#include <string>
#include <string_view>
#include <vector>

#include "platform/suitelink/SuiteLink.h"
#include "ui/AddFile.h"
#include "ui/FrontEnd.h"
#include "ui/JobList.h"
#include "ui/Scheduler.h"
#include "ui/Settings.h"
#include "ui/StartUp.h"

namespace tarnvel {

// What the Add file dialog shows: title, filters ("Raw Ini file (*.ini)"),
// the folder it starts in, the name it proposes and the extension it adds.
struct OpenFileRequest {
  std::string title;
  std::vector<std::string> filters;
  std::string folder;
  std::string defaultName = "args.ini";
  std::string defaultSuffix = "ini";
};

// "Description|pattern|..." pairs as filters of the form "Description (pattern)";
// a description that already names its pattern in brackets stays as it is.
std::vector<std::string> NameFiltersOf(std::string_view pairs);

class TarnvelDialog {
 public:
  enum class StartAction { None, OpenAddDialog };

  TarnvelDialog(FrontEnd& frontEnd, Scheduler::JobFactory factory, ParallelSettings settings,
                Scheduler::Timing timing = {});
  ~TarnvelDialog();
  TarnvelDialog(const TarnvelDialog&) = delete;
  TarnvelDialog& operator=(const TarnvelDialog&) = delete;

  JobList& List() { return list_; }
  Scheduler& Jobs() { return scheduler_; }

  // The end of the set-up: the scheduler thread starts, the suite socket
  // opens at `socketPath` (empty: none), and the job argument is acted on: a
  // path is added without the options dialog, the suite's marker waits for
  // the suite, no argument asks for the Add file dialog.
  StartAction SetUp(const JobArgument& argument, const std::string& socketPath);
  // 0, or the errno of a socket that could not be opened (EADDRINUSE when
  // another converter of this user listens): the window works without the
  // suite's commands then.
  int SocketError() const { return socketError_; }

  // The Add file dialog as the Add button opens it, in the image folder.
  static OpenFileRequest AddFileRequest();
  // A file chosen there: added with the options dialog, when one is plugged in.
  void Add(const std::string& path);
  void SetOptionsChooser(OptionsChooser chooser) { chooser_ = std::move(chooser); }

  // Options confirmed: the running program takes the values at once, the
  // settings store keeps them, and the suite is told (off this thread).
  void ConfirmOptions(const ParallelSettings& settings);

  ButtonStates Buttons() const { return ButtonsFor(scheduler_.Busy()); }
  // Clear List: every row goes, the pending jobs stay. Refused during a pass.
  void ClearList();
  // Abort or Abort all, after question 1061; true when the user said yes.
  bool Abort(bool all) { return scheduler_.AbortJobs(all); }

  // The companion movie of a row for its context menu; empty for none.
  std::string MovieOfRow(std::uint32_t row) const;

  // The close: with jobs pending the window hides and false comes back;
  // otherwise the socket and the scheduler stop and true means "end". It
  // waits for threads that may ask the display's thread for work meanwhile:
  // a desktop calls it where such requests are still served.
  bool Close();

 private:
  void Listen();

  FrontEnd& frontEnd_;
  JobList list_;
  Scheduler scheduler_;
  SuiteListener listener_;
  std::string socketPath_;
  int socketError_ = 0;
  OptionsChooser chooser_;
  std::future<void> notified_;
};

}  // namespace tarnvel
