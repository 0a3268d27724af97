// One program run as a child of a benchmark, with what wait4 tells of that
// one child: wall time, CPU time and peak resident memory. (getrusage with
// RUSAGE_CHILDREN would give the largest of all children so far, not this
// run's.)
#pragma once

#include <fcntl.h>
#include <spawn.h>
#include <sys/resource.h>
#include <sys/wait.h>

#include <chrono>
#include <cstring>
#include <string>
#include <vector>

extern char** environ;

namespace tarnvel::bench {

struct ChildRun {
  bool succeeded = false;  // ran and exited with status 0
  double wallSeconds = 0;
  double cpuSeconds = 0;  // user + system
  long peakKiB = 0;       // ru_maxrss: the child's largest resident set
};

// This process's environment with `changes` applied: "NAME=VALUE" sets NAME,
// "NAME" alone removes it.
inline std::vector<std::string> ChangedEnvironment(const std::vector<std::string>& changes) {
  std::vector<std::string> result;
  auto nameOf = [](const std::string& entry) { return entry.substr(0, entry.find('=')); };
  for (char** entry = environ; *entry; ++entry) {
    const std::string text = *entry;
    bool changed = false;
    for (const std::string& change : changes) changed = changed || nameOf(change) == nameOf(text);
    if (!changed) result.push_back(text);
  }
  for (const std::string& change : changes) {
    if (change.find('=') != std::string::npos) result.push_back(change);
  }
  return result;
}

// Runs `argv` (the program is looked up on PATH) with standard output
// discarded and standard error into `errorLog`, and waits for it.
inline ChildRun RunChild(const std::vector<std::string>& argv, const std::vector<std::string>& environmentChanges,
                         const std::string& errorLog) {
  std::vector<std::string> environment = ChangedEnvironment(environmentChanges);
  auto pointers = [](std::vector<std::string>& texts) {
    std::vector<char*> result;
    for (std::string& text : texts) result.push_back(text.data());
    result.push_back(nullptr);
    return result;
  };
  std::vector<std::string> arguments = argv;
  std::vector<char*> argumentPointers = pointers(arguments), environmentPointers = pointers(environment);

  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, 1, "/dev/null", O_WRONLY, 0);
  posix_spawn_file_actions_addopen(&actions, 2, errorLog.c_str(), O_WRONLY | O_CREAT | O_TRUNC, 0644);
  ChildRun run;
  const auto start = std::chrono::steady_clock::now();
  pid_t child = 0;
  const int spawned =
      posix_spawnp(&child, argumentPointers[0], &actions, nullptr, argumentPointers.data(), environmentPointers.data());
  posix_spawn_file_actions_destroy(&actions);
  if (spawned != 0) return run;
  int status = 0;
  rusage usage{};
  if (wait4(child, &status, 0, &usage) != child) return run;
  run.wallSeconds = std::chrono::duration<double>(std::chrono::steady_clock::now() - start).count();
  auto seconds = [](const timeval& v) { return static_cast<double>(v.tv_sec) + static_cast<double>(v.tv_usec) * 1e-6; };
  run.cpuSeconds = seconds(usage.ru_utime) + seconds(usage.ru_stime);
  run.peakKiB = usage.ru_maxrss;
  run.succeeded = WIFEXITED(status) && WEXITSTATUS(status) == 0;
  return run;
}

}  // namespace tarnvel::bench
