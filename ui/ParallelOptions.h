// The Options dialog without a toolkit: a check box that enables parallel
// conversion, and a list of the numbers 2 to 12 for the maximum of jobs at
// once, whose label and list follow the check box.
#pragma once

#include <string>
#include <vector>

#include "ui/Settings.h"

namespace tarnvel {

class ParallelOptionsModel {
 public:
  static constexpr int kFirstEntry = 2;
  static constexpr int kLastEntry = 12;

  // Set up from the settings in use. A maximum outside the list selects nothing.
  explicit ParallelOptionsModel(const ParallelSettings& present);

  // "2" to "12".
  static std::vector<std::string> Entries();
  bool Checked() const { return checked_; }
  // The selected entry's index, -1 for none.
  int Selection() const { return selection_; }
  // The label and the list are enabled while the box is checked; the list
  // keeps its selection either way.
  bool ListEnabled() const { return checked_; }

  void SetChecked(bool checked) { checked_ = checked; }
  void Select(int index);

  // What OK gives: enabled from the box, maximum the selection's number. With
  // no selection that is 1, which the running program uses as it is and the
  // next start reads as 2.
  ParallelSettings Confirm() const;

 private:
  bool checked_;
  int selection_;
};

}  // namespace tarnvel
