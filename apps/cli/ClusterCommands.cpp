#include "apps/cli/ClusterCommands.h"

#include <unistd.h>

#include <cerrno>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <vector>

#include "apps/cli/CliArguments.h"
#include "platform/cordage/Folders.h"
#include "platform/cordage/Messages.h"
#include "ui/ClusterBatch.h"

namespace tarnvel {
namespace {

struct ClusterOptions {
  std::string submitBatch;  // --slurm
  std::string reportJob, reportBatch;  // --slurm-report
  ArraySubmission submission;
};

int Usage(const std::string& problem) {
  std::fprintf(stderr, "tarnvel-cli: %s\nTry 'tarnvel-cli --help'.\n", problem.c_str());
  return kExitUsage;
}

// Reads the options; an error text for a command line that cannot be run.
std::string ParseOptions(int argc, const char* const* argv, ClusterOptions& o) {
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    const bool hasValue = i + 1 < argc;
    if (arg == "--slurm" && hasValue) {
      o.submitBatch = WholePath(argv[++i]);
    } else if (arg == "--slurm-report" && i + 2 < argc) {
      o.reportJob = argv[++i];
      o.reportBatch = WholePath(argv[++i]);
      if (!IsJobId(o.reportJob)) return "not a job id: " + o.reportJob;
    } else if (arg == "--partition" && hasValue) {
      o.submission.partition = argv[++i];
    } else if (arg == "--max-tasks" && hasValue) {
      char* end = nullptr;
      errno = 0;
      const long n = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || errno != 0 || n < 1 || n > kMaxBatchEntries) return "--max-tasks takes a number from 1 up";
      o.submission.maxTasks = static_cast<int>(n);
    } else if (arg == "--sbatch-arg" && hasValue) {
      const std::string value = argv[++i];
      if (const auto refused = RefusedSbatchArgument(value))
        return "--sbatch-arg " + value + ": tarnvel-cli sets " + *refused + " itself (the array, its logs and its script)";
      o.submission.sbatchArgs.push_back(value);
    } else {
      return "unexpected argument for --slurm or --slurm-report: " + arg;
    }
  }
  if (o.submitBatch.empty() == o.reportBatch.empty()) return "give either --slurm or --slurm-report";
  const bool submitOptions = !o.submission.partition.empty() || o.submission.maxTasks != 0 || !o.submission.sbatchArgs.empty();
  if (!o.reportBatch.empty() && submitOptions) return "--slurm-report takes no submission options";
  return {};
}

std::optional<BatchFile> ReadBatch(const std::string& path) {
  std::optional<BatchFile> batch = IsBatchPath(path) ? ReadBatchFile(path) : std::nullopt;
  if (!batch) std::fprintf(stderr, "tarnvel-cli: %s is not a batch file (a .bat of section List with the batch signature)\n", path.c_str());
  return batch;
}

std::string ThisProgram() {
  std::error_code error;
  const std::filesystem::path self = std::filesystem::read_symlink("/proc/self/exe", error);
  return error ? std::string("tarnvel-cli") : self.string();
}

int Submit(ClusterOptions& o) {
  const std::optional<BatchFile> batch = ReadBatch(o.submitBatch);
  if (!batch) return kExitFailed;
  if (batch->entries.empty()) {
    std::fprintf(stderr, "tarnvel-cli: %s lists no job files; nothing was submitted\n", o.submitBatch.c_str());
    return kExitFailed;
  }
  // A task runs in another folder, on another machine: a relative path
  // would name another recording there, or none.
  for (const BatchEntry& entry : batch->entries)
    if (entry.path.front() != '/') {
      std::fprintf(stderr, "tarnvel-cli: entry %d (%s) is not a whole path; nothing was submitted\n", entry.number,
                   entry.path.c_str());
      return kExitFailed;
    }
  ConsoleFrontEnd console(stdout, stderr, false);
  if (!MakeBatchDestination(console, *batch)) return kExitFailed;
  const std::string logFolder = TaskLogFolder(o.submitBatch);
  if (CgCreateNewDirectory(logFolder.c_str()) == kCreateFolderFailed) {
    std::fprintf(stderr, "tarnvel-cli: the log folder %s cannot be created\n", logFolder.c_str());
    return kExitFailed;
  }
  ArraySubmission& s = o.submission;
  s.cliPath = ThisProgram();
  s.batchPath = o.submitBatch;
  for (const BatchEntry& entry : batch->entries) s.entries.push_back(entry.number);
  std::string error;
  const std::optional<std::string> jobId = SubmitArray(s, error);
  if (!jobId) {
    std::fprintf(stderr, "tarnvel-cli: %s\n", error.c_str());
    return kExitFailed;
  }
  std::printf("%s\n", jobId->c_str());
  std::fprintf(stderr, "tarnvel-cli: %zu entries submitted as job array %s, logs in %s; "
                       "tarnvel-cli --slurm-report %s %s tells how they ended\n",
               s.entries.size(), jobId->c_str(), logFolder.c_str(), jobId->c_str(), o.submitBatch.c_str());
  return kExitDone;
}

int Report(const ClusterOptions& o) {
  const std::optional<BatchFile> batch = ReadBatch(o.reportBatch);
  if (!batch) return kExitFailed;
  std::size_t done = 0;
  const std::vector<EntryReport> reports = ReadArrayReport(*batch, o.reportBatch, o.reportJob);
  for (const EntryReport& report : reports) {
    std::printf("%s\n", ReportLine(report).c_str());
    if (report.end && report.end->state == StatusText(static_cast<std::int32_t>(RowStatus::Done))) ++done;
  }
  std::printf("%zu of %zu entries Done\n", done, reports.size());
  return done == reports.size() ? kExitDone : kExitFailed;
}

}  // namespace

std::optional<int> RunClusterCommand(int argc, const char* const* argv) {
  bool asked = false;
  for (int i = 1; i < argc; ++i) asked = asked || std::strcmp(argv[i], "--slurm") == 0 || std::strcmp(argv[i], "--slurm-report") == 0;
  if (!asked) return std::nullopt;
  ClusterOptions options;
  if (const std::string problem = ParseOptions(argc, argv, options); !problem.empty()) return Usage(problem);
  return options.submitBatch.empty() ? Report(options) : Submit(options);
}

void PrintEntryEnd(std::FILE* out, const std::string& batchPath, std::int32_t entry, EntryAdded added,
                   const JobList& list, const ConsoleFrontEnd& console) {
  EntryEnd end{entry, StatusText(static_cast<std::int32_t>(RowStatus::Error)), 0, {}};
  if (added == EntryAdded::NotABatch) {
    end.text = batchPath + " is not a batch file";
  } else if (added == EntryAdded::NoSuchEntry) {
    end.text = "the batch " + batchPath + " has no entry " + std::to_string(entry);
  } else {
    const RowStatus status = list.RowCount() > 0 ? list.Row(0).status : RowStatus::Error;
    const std::string shown = StatusText(static_cast<std::int32_t>(status));
    const auto problem = console.LastProblem();
    if (status == RowStatus::Done) {
      end.state = shown;
    } else if (status == RowStatus::Abort) {
      end = {entry, shown, kMsgAborted, MessageText(kMsgAborted)};
    } else if (problem) {
      end.message = problem->number;
      end.text = problem->text;
    }
  }
  std::fprintf(out, "%s\n", FormatEntryEnd(end).c_str());
  std::fflush(out);
}

}  // namespace tarnvel
