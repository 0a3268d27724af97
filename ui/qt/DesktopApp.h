// The desktop program's start and end: language, raw driver, command line,
// the job list window as the one window of the run, and the tear-down.
#pragma once

namespace tarnvel::qt {

// Runs the program and returns its exit status.
int RunDesktop(int argc, char** argv);

}  // namespace tarnvel::qt
