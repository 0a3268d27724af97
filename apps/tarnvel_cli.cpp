// tarnvel-cli: the converter without a window. Each path is added as the
// desktop adds a path from its command line (job files and batch files);
// the jobs run one after another, or in parallel when the settings or
// --parallel allow; progress goes to standard output, failures to standard
// error with their message number. The exit status is 0 only when every job
// ended "Done", 2 when the command line is wrong and nothing was converted.
//
// The command line and its output choices are apps/cli/CliArguments; --help
// tells them. --listen also takes the suite's commands on the converter's
// socket and stays until command 4 finds the list empty; a socket that cannot
// be made safe or bound ends the program at once. Ctrl-C asks once; a second
// Ctrl-C aborts all jobs, which end through their normal tear-down and keep
// their raw files, and no waiting job starts. SIGTERM, SIGHUP and SIGPIPE
// (the reader of the output went away) do the same without asking, then end
// the program. --parallel N --save keeps N in the settings, as the desktop's
// Options dialog does (1 turns parallel conversion off).
// --batch-entry converts one entry of a batch alone and ends with a line
// that tells how; --slurm and --slurm-report spread a batch over a Slurm
// cluster (apps/cli/ClusterCommands).
#include <unistd.h>

#include <atomic>
#include <chrono>
#include <csignal>
#include <cstdio>
#include <cstring>
#include <memory>
#include <string>
#include <thread>

#include "apps/cli/CliArguments.h"
#include "apps/cli/ClusterCommands.h"
#include "engine/DecodeRaw.h"
#include "platform/cordage/Messages.h"
#include "platform/rawdrv/RawDriver.h"
#include "platform/suitelink/SuiteLink.h"
#include "ui/ConsoleFrontEnd.h"
#include "ui/Scheduler.h"
#include "ui/Settings.h"

namespace {

std::atomic<int> g_interrupts{0};
std::atomic<bool> g_terminate{false};

void OnInterrupt(int) { ++g_interrupts; }
void OnTerminate(int) { g_terminate = true; }

// The handlers only set flags; the main loop acts on them. SA_RESTART keeps
// the writes of running jobs from being cut by a signal.
void InstallSignalHandlers() {
  struct sigaction action {};
  sigemptyset(&action.sa_mask);
  action.sa_flags = SA_RESTART;
  action.sa_handler = OnInterrupt;
  sigaction(SIGINT, &action, nullptr);
  action.sa_handler = OnTerminate;
  for (int signal : {SIGTERM, SIGHUP, SIGPIPE}) sigaction(signal, &action, nullptr);
}

// Shows a numbered message through the console and returns the exit status 1.
int Refuse(tarnvel::ConsoleFrontEnd& console, int number, const std::string& argument) {
  console.ShowMessage(number, tarnvel::StyleOf(number), tarnvel::MessageText(number, argument.c_str()));
  return 1;
}

// Stores `parallel` jobs at once as the settings of every later run: 0 when
// saved, 1 when the settings could not be written.
int SaveParallel(int parallel) {
  using namespace tarnvel;
  const ParallelSettings saved = parallel > 1 ? ParallelSettings{1, parallel} : ParallelSettings{0, ReadParallelSettings().maximum};
  const std::string file = RegistryFileOf(RegistryRoot::CurrentUser);
  if (!WriteParallelSettings(saved)) {
    std::fprintf(stderr, "tarnvel-cli: nothing saved: %s has no writable key [%s]\n", file.c_str(), kCurrentSettingsKey);
    return 1;
  }
  const ParallelSettings read = ReadParallelSettings();
  if (read.enabled != saved.enabled || read.maximum != saved.maximum)
    std::fprintf(stderr,
                 "tarnvel-cli: saved in %s, but the settings are read from [%s] of %s until the current key "
                 "holds UseJumboPackets\n",
                 file.c_str(), kOlderSettingsKey, RegistryFileOf(RegistryRoot::LocalMachine).c_str());
  return 0;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tarnvel;
  if (const std::optional<int> status = RunClusterCommand(argc, argv)) return *status;
  const CliParse parse = ParseCliArguments(argc, argv);
  if (parse.arguments.help) {
    std::fputs(CliHelpText().c_str(), stdout);
    return kExitDone;
  }
  if (!parse.error.empty()) {
    std::fprintf(stderr, "tarnvel-cli: %s\nTry 'tarnvel-cli --help'.\n", parse.error.c_str());
    return kExitUsage;
  }
  const CliArguments& arguments = parse.arguments;
  const int parallel = arguments.parallel;
  const bool listen = arguments.listen;
  if (arguments.save) {
    if (const int status = SaveParallel(parallel); status != 0 || (arguments.paths.empty() && !listen)) return status;
  }

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
  InstallSignalHandlers();
  SuiteListener listener;
  if (listen) {
    const std::string socket = ConverterSocketPath();
    if (const int error = listener.Start(socket, [&](std::uint32_t command, std::span<const std::uint8_t> payload) {
          scheduler.HandleSuiteCommand(command, payload);
        });
        error != 0) {
      const std::string problem = SocketPathProblem(socket);
      DriverExit();
      return Refuse(console, kMsgSocketUnusable, problem.empty() ? socket + ": " + std::strerror(error) : problem);
    }
  }
  EntryAdded entryAdded = EntryAdded::Added;
  if (arguments.batchEntry) {
    entryAdded = AddBatchEntry(scheduler, console, arguments.paths.front(), *arguments.batchEntry);
  } else if (const std::string wrong = AddCliJobs(scheduler, console, arguments); !wrong.empty()) {
    std::fprintf(stderr, "%s", wrong.c_str());
    listener.Stop();
    scheduler.Close();
    DriverExit();
    return kExitUsage;
  }
  // The first pass finds every job of the command line: in parallel they start together.
  scheduler.StartThread();

  int askedAt = 0;
  bool terminating = false;
  for (;;) {
    std::this_thread::sleep_for(std::chrono::milliseconds(50));
    // A termination request (a service stop, a shutdown) aborts every job
    // without asking; the jobs close their outputs and keep the raw files.
    if (g_terminate && !terminating) {
      listener.Stop();  // no job comes in any more
      scheduler.AbortAll();
      terminating = true;
    }
    const int interrupts = g_interrupts.load();
    if (interrupts > askedAt) {
      if (askedAt == 0) {
        std::fprintf(stderr, "\ntarnvel-cli: %s Press Ctrl-C again to abort all jobs.\n", MessageText(kMsgConfirmAbort).c_str());
        askedAt = interrupts;
      } else if (askedAt > 0) {
        scheduler.AbortAll();
        askedAt = -1;  // asked and aborted
      }
    }
    const bool idle = !scheduler.HasPendingJobs() && !scheduler.Busy();
    if (listen && !terminating ? console.CloseRequested() && idle : idle) break;
  }
  listener.Stop();
  scheduler.Close();
  DriverExit();
  if (arguments.batchEntry)
    PrintEntryEnd(stdout, arguments.paths.front(), *arguments.batchEntry, entryAdded, list, console);

  int failed = 0;
  for (std::uint32_t row = 0; row < list.RowCount(); ++row)
    if (list.Row(row).status != RowStatus::Done) ++failed;
  if (list.RowCount() == 0 && !listen) failed = 1;  // nothing was converted
  return failed == 0 ? kExitDone : kExitFailed;
}
