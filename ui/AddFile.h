// The one door through which a path chosen by the user, given on the command
// line or sent by the suite becomes jobs: a job file (args.ini) makes one job,
// a batch file (.bat, section "List") a job per entry with one set of output
// settings and an optional destination folder.
#pragma once

#include <functional>
#include <string>

#include "engine/JobOverrides.h"
#include "ui/BatchFile.h"
#include "ui/FrontEnd.h"
#include "ui/Scheduler.h"

namespace tarnvel {

// The options dialog of a job file: fills `overrides` and returns true on
// Convert, false on Cancel. The desktop shows its dialog; other front ends
// never ask.
using OptionsChooser = std::function<bool(const std::string& argsPath, JobOverrides& overrides)>;

enum class AddOutcome {
  Added,          // the job, or the batch's entries, are in the list
  Refused,        // nothing added; the reason was shown (33, 1062) or the user cancelled
  NotABatchFile,  // a ".bat" path whose signature is wrong: nothing added, nothing shown
};

// Adds the jobs of `path` and wakes the scheduler. A batch file with a wrong
// signature adds nothing and wakes nothing; the desktop stays silent then,
// the headless converter says so. A destination folder that cannot be made
// shows message 33 and adds nothing. Batch entries show in lower case in the
// list, while the job opens the path as written. A path that would not fit a
// job's 260-character field is refused with message 1062. A job file writes
// into `destination` when one is given (a batch names its own).
AddOutcome AddFile(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& path, bool showOptions,
                   const OptionsChooser& chooseOptions = nullptr, const std::string& destination = {});

// The job of one entry of a batch file, added exactly as AddFile adds it
// among the others: the destination made first (message 33 when it cannot
// be), the same settings, message 1062 for an overlong path; then the
// scheduler is woken. A batch spread over a cluster runs each entry in a
// process of its own this way.
enum class EntryAdded { Added, NotABatch, NoSuchEntry, Refused };
EntryAdded AddBatchEntry(Scheduler& scheduler, FrontEnd& frontEnd, const std::string& batchPath, std::int32_t number);

// Makes the batch's destination folder, with its parents, as AddFile does
// before it adds any job of the batch: false, with message 33 shown, when it
// cannot be made. True without a destination.
bool MakeBatchDestination(FrontEnd& frontEnd, const BatchFile& batch);

// The start values of the overrides that AddFile hands on.
JobOverrides AddFileOverrides();

}  // namespace tarnvel
