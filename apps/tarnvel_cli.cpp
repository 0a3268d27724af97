// tarnvel-cli: the converter without a window. Each path is added as the
// desktop adds a path from its command line (job files and batch files);
// the jobs run one after another, or in parallel when the settings or
// --parallel allow; progress goes to standard output, failures to standard
// error with their message number. The exit status is 0 only when every job
// ended "Done".
//
//   tarnvel-cli [--parallel N] [--listen] PATH...
//
// --listen also takes the suite's commands on the converter's socket and
// stays until command 4 finds the list empty; a socket that cannot be made
// safe or bound ends the program at once. Ctrl-C asks once; a second Ctrl-C
// aborts all jobs, which end through their normal tear-down and keep their
// raw files, and no waiting job starts. SIGTERM, SIGHUP and SIGPIPE (the
// reader of the output went away) do the same without asking, then end the
// program.
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

#include "engine/DecodeRaw.h"
#include "platform/cordage/Messages.h"
#include "platform/rawdrv/RawDriver.h"
#include "platform/suitelink/SuiteLink.h"
#include "ui/AddFile.h"
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

int Usage() {
  std::fprintf(stderr, "usage: tarnvel-cli [--parallel N] [--listen] PATH...\n");
  return 2;
}

}  // namespace

int main(int argc, char** argv) {
  using namespace tarnvel;
  int parallel = -1;
  bool listen = false;
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
  for (const std::string& path : paths)
    if (AddFile(scheduler, console, path, false) == AddOutcome::NotABatchFile) Refuse(console, kMsgNotABatchFile, path);
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

  int failed = 0;
  for (std::uint32_t row = 0; row < list.RowCount(); ++row)
    if (list.Row(row).status != RowStatus::Done) ++failed;
  if (list.RowCount() == 0 && !listen) failed = 1;  // nothing was converted
  return failed == 0 ? 0 : 1;
}
