// What the job list and the scheduler need of whoever shows them: the
// desktop program and the headless converter each implement it.
#pragma once

#include <cstdint>
#include <functional>
#include <string>

namespace tarnvel {

// Which buttons of the job list can be pressed: Add and Options always,
// Clear List only while no pass runs, Abort and Abort all only during one.
struct ButtonStates {
  bool add = true, options = true, clearList = true, abort = false, abortAll = false;
};
inline ButtonStates ButtonsFor(bool busy) { return {true, true, !busy, busy, busy}; }

class FrontEnd {
 public:
  virtual ~FrontEnd() = default;
  // Runs `work` on the thread that owns the display and returns once it has
  // run: a reporting thread stands still until its row is written. Called on
  // the display's own thread too (and nested): then it runs `work` at once.
  virtual void RunOnMainThread(const std::function<void()>& work) = 0;
  // A row was added or changed (called through RunOnMainThread).
  virtual void RowChanged(std::uint32_t rowIndex) = 0;
  // A pass began (busy) or ended: the buttons follow ButtonsFor(busy), the
  // tray icon shows busy or idle.
  virtual void SetBusy(bool busy) = 0;
  // Shows a numbered message with its finished text and returns the answer
  // (6 for yes). May block the calling thread until the user answers.
  virtual int ShowMessage(int number, int style, const std::string& text) = 0;
  // The close message that the program sends itself (suite command 4).
  virtual void RequestClose() = 0;
  // The close found jobs pending: hide, or minimise where there is no tray.
  virtual void Hide() = 0;
};

}  // namespace tarnvel
