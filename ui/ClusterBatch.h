// A batch file spread over a cluster: one Slurm job array with a task per
// entry, each task converting its entry in a process of its own with
// `tarnvel-cli --batch-entry K BATCH.bat`, and the end of every entry read
// back from the tasks' logs. Nothing is kept on the submitting machine: the
// task finds all it needs in its command line and the batch file, and the
// logs lie in a folder beside the batch file, named after it.
#pragma once

#include <cstdint>
#include <optional>
#include <string>
#include <string_view>
#include <vector>

#include "ui/BatchFile.h"

namespace tarnvel {

// How a task's conversion of its entry ended: the last line of its log.
struct EntryEnd {
  std::int32_t entry = 0;
  std::string state;          // a row status: "Done", "Abort", "Error"
  std::int32_t message = 0;   // the message number of a failure, 0 for none
  std::string text;           // the message's text, or why the entry never became a job
};

// "tarnvel-cli: entry K ended STATE[, message N][: TEXT]" on one line
// (control characters in the text become '?').
std::string FormatEntryEnd(const EntryEnd& end);
// The line read back, control characters in its text made '?' as when
// written; nothing for any line of another form.
std::optional<EntryEnd> ParseEntryEnd(std::string_view line);

// "<batch folder>/<batch name less its extension>-logs".
std::string TaskLogFolder(const std::string& batchPath);
// "<log folder>/<job id>_<entry>.log", the name that sbatch gives it.
std::string TaskLogPath(const std::string& batchPath, std::string_view jobId, std::int32_t entry);
// The last end line of `entry` in a log, read from its last kLogTail bytes;
// nothing when the log is missing, not a plain file, or holds none.
constexpr std::size_t kLogTail = 64 * 1024;
std::optional<EntryEnd> ReadEntryEnd(const std::string& logPath, std::int32_t entry);

// A job id as sbatch prints it: decimal digits only.
bool IsJobId(std::string_view text);
// A decimal entry number from 0 to kMaxBatchEntries - 1, nothing else.
std::optional<std::int32_t> ParseEntryNumber(std::string_view text);

// The array's index list, "0-5" or "0-2,4,7-9", with "%N" when at most N
// tasks may run at once.
std::string ArraySpec(const std::vector<std::int32_t>& entries, int maxTasks);

struct ArraySubmission {
  std::string cliPath;    // this program, where every node finds it
  std::string batchPath;  // whole
  std::vector<std::int32_t> entries;
  std::string partition;  // empty: the cluster's default
  int maxTasks = 0;       // 0: as many at once as the cluster gives
  std::vector<std::string> sbatchArgs;  // passed on after our own
};

// An sbatch option that would take the array, its logs or its script out
// of our hands (--array, --output, --error, --wrap and their short forms);
// nothing for one that may pass.
std::optional<std::string> RefusedSbatchArgument(std::string_view arg);
// sh's single quotes round any text.
std::string ShellQuoted(std::string_view text);
// The task's script: runs the entry of its array index.
std::string TaskScript(const ArraySubmission& submission);
// sbatch's arguments, the script file last. False, with `error` set, when a
// log path cannot be written as an sbatch file pattern.
bool SbatchArguments(const ArraySubmission& submission, const std::string& scriptPath,
                     std::vector<std::string>& args, std::string& error);

// Submits the array through `sbatch` and returns its job id, or nothing with
// `error` set (sbatch's own complaints go to standard error as it writes them).
std::optional<std::string> SubmitArray(const ArraySubmission& submission, std::string& error);

// An entry with what its task's log says.
struct EntryReport {
  BatchEntry entry;
  std::string logPath;
  bool logFound = false;
  std::optional<EntryEnd> end;
};
std::vector<EntryReport> ReadArrayReport(const BatchFile& batch, const std::string& batchPath, std::string_view jobId);
// One line of the report for an entry.
std::string ReportLine(const EntryReport& report);

}  // namespace tarnvel
