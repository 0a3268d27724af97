// Running another program and taking its output: the cluster's submission
// command, for one.
#pragma once

#include <string>
#include <vector>

namespace tarnvel {

struct ProgramRun {
  int spawnError = 0;  // errno of a program that could not be started, else 0
  int status = -1;     // exit status; 128 + signal number for a program killed by a signal
  std::string output;  // standard output, at most kMaxProgramOutput bytes of it
};

constexpr std::size_t kMaxProgramOutput = 1 << 20;

// Runs `argv[0]`, looked up on PATH, with these arguments; standard input
// reads nothing, standard error goes where ours goes. Waits for its end.
ProgramRun RunProgram(const std::vector<std::string>& argv);

}  // namespace tarnvel
