// tarnvel-cli: the converter without a window. Each path is added as the
// desktop adds a path from its command line (job files and batch files);
// the jobs run one after another, or in parallel when the settings or
// --parallel allow; progress goes to standard output, failures to standard
// error with their message number. The exit status is 0 only when every job
// ended "Done".
//
//   tarnvel-cli [--parallel N] [--listen] PATH...
//   tarnvel-cli --batch-entry K BATCH.bat
//   tarnvel-cli --slurm BATCH.bat [--partition P] [--max-tasks N] [--sbatch-arg ARG]...
//   tarnvel-cli --slurm-report JOBID BATCH.bat
//
// --listen also takes the suite's commands on the converter's socket and
// stays until command 4 finds the list empty. Ctrl-C asks once; a second
// Ctrl-C aborts all jobs, which end through their normal tear-down.
// --batch-entry converts entry K of a batch alone, as a run of the whole
// batch would, and ends with a line that tells how; --slurm and
// --slurm-report spread a batch over a Slurm cluster (ClusterCommands.h).
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <filesystem>
#include <memory>
#include <string>
#include <thread>
#include <vector>

#include "apps/ClusterCommands.h"
#include "engine/DecodeRaw.h"
#include "platform/cordage/Messages.h"
#include "platform/rawdrv/RawDriver.h"
#include "platform/suitelink/SuiteLink.h"
#include "ui/AddFile.h"
#include "ui/ClusterBatch.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/Scheduler.h"
#include "ui/Settings.h"

namespace {

std::atomic<int> g_interrupts{0};
std::atomic<bool> g_terminate{false};

void OnInterrupt(int) { ++g_interrupts; }
void OnTerminate(int) { g_terminate = true; }

int Usage() {
  std::fprintf(stderr, "usage: tarnvel-cli [--parallel N] [--listen] PATH...\n"
                       "       tarnvel-cli --batch-entry K BATCH.bat\n"
                       "       tarnvel-cli --slurm BATCH.bat [--partition P] [--max-tasks N] [--sbatch-arg ARG]...\n"
                       "       tarnvel-cli --slurm-report JOBID BATCH.bat\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tarnvel;
  if (const std::optional<int> status = RunClusterCommand(argc, argv)) return *status;
  int parallel = -1;
  bool listen = false;
  std::optional<std::int32_t> entry;  // --batch-entry
  std::vector<std::string> paths;
  for (int i = 1; i < argc; ++i) {
    const std::string arg = argv[i];
    if (arg == "--parallel" && i + 1 < argc) {
      char* end = nullptr;
      const long n = std::strtol(argv[++i], &end, 10);
      if (*end != '\0' || n < 1 || n > 12) return Usage();
      parallel = static_cast<int>(n);
    } else if (arg == "--listen") {
      listen = true;
    } else if (arg == "--batch-entry" && i + 1 < argc) {
      if (!(entry = ParseEntryNumber(argv[++i]))) return Usage();
    } else if (arg.rfind("--", 0) == 0) {
      return Usage();
    } else {
      // The job works from the recording's folder, so a name given relative
      // to where the command runs is made whole here.
      std::error_code error;
      const std::filesystem::path whole = std::filesystem::absolute(arg, error);
      paths.push_back(error ? arg : whole.string());
    }
  }
  if (paths.empty() && !listen) return Usage();
  if (entry && (paths.size() != 1 || listen)) return Usage();

  DriverInit(0);
  ConsoleFrontEnd console(stdout, stderr, ::isatty(STDOUT_FILENO) != 0);
  SetMessageHandler([&console](int number, int style, const std::string& text) {
    return console.ShowMessage(number, style, text);
  });
  JobList list(console);
  console.SetList(&list);
  ParallelSettings settings = ReadParallelSettings();
  if (parallel > 0) settings = {parallel > 1 ? 1 : 0, std::max(parallel, 2)};
  Scheduler scheduler(list, console,
                      [](const std::string& path, std::uint32_t row, bool sentBySuite) {
                        return std::make_unique<CDecodeRaw>(path, row, sentBySuite ? 1 : 0);
                      },
                      settings);
  std::signal(SIGINT, OnInterrupt);
  std::signal(SIGTERM, OnTerminate);
  scheduler.StartThread();

  SuiteListener listener;
  if (listen) {
    const std::string socket = ConverterSocketPath();
    if (const int error = listener.Start(socket, [&](std::uint32_t command, std::span<const std::uint8_t> payload) {
          scheduler.HandleSuiteCommand(command, payload);
        });
        error != 0)
      std::fprintf(stderr, "tarnvel-cli: cannot listen on %s: %s\n", socket.c_str(), std::strerror(error));
  }
  EntryAdded entryAdded = EntryAdded::Added;
  if (entry) entryAdded = AddBatchEntry(scheduler, console, paths.front(), *entry);
  else for (const std::string& path : paths) AddFile(scheduler, console, path, false);

  int askedAt = 0;
  bool terminating = false;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // A termination request (a service stop, a shutdown) aborts every job
    // without asking; the jobs close their outputs and keep the raw files.
    if (g_terminate && !terminating) {
      scheduler.AbortJobs(true);
      terminating = true;
    }
    const int interrupts = g_interrupts.load();
    if (interrupts > askedAt) {
      if (askedAt == 0) {
        std::fprintf(stderr, "\ntarnvel-cli: %s Press Ctrl-C again to abort all jobs.\n", MessageText(kMsgConfirmAbort).c_str());
        askedAt = interrupts;
      } else if (askedAt > 0) {
        scheduler.AbortJobs(true);
        askedAt = -1;  // asked and aborted
      }
    }
    const bool idle = !scheduler.HasPendingJobs() && !scheduler.Busy();
    if (listen && !terminating ? console.CloseRequested() && idle : idle) break;
  }
  listener.Stop();
  scheduler.Close();
  DriverExit();
  if (entry) PrintEntryEnd(stdout, paths.front(), *entry, entryAdded, list, console);

  int failed = 0;
  for (std::uint32_t row = 0; row < list.RowCount(); ++row)
    if (list.Row(row).cells[kStatusColumn] != "Done") ++failed;
  if (list.RowCount() == 0 && !listen) failed = 1;  // nothing was converted
  return failed == 0 ? 0 : 1;
}
