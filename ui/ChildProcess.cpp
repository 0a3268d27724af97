#include "ui/ChildProcess.h"

#include <fcntl.h>
#include <spawn.h>
#include <sys/wait.h>
#include <unistd.h>

#include <algorithm>
#include <cerrno>

extern char** environ;

namespace tarnvel {
namespace {

// Closes the descriptors of a pipe that are still open when it goes.
struct Pipe {
  int ends[2] = {-1, -1};
  ~Pipe() {
    for (int fd : ends)
      if (fd >= 0) ::close(fd);
  }
  void Close(int end) {
    ::close(ends[end]);
    ends[end] = -1;
  }
};

std::string ReadAll(int fd) {
  std::string text;
  char chunk[4096];
  for (;;) {
    const ssize_t n = ::read(fd, chunk, sizeof chunk);
    if (n < 0 && errno == EINTR) continue;
    if (n <= 0) return text;
    // What goes beyond the limit is read and dropped, so the program never stalls on a full pipe.
    if (text.size() < kMaxProgramOutput) text.append(chunk, std::min<std::size_t>(n, kMaxProgramOutput - text.size()));
  }
}

}  // namespace

ProgramRun RunProgram(const std::vector<std::string>& argv) {
  ProgramRun run;
  if (argv.empty()) return run.spawnError = EINVAL, run;
  Pipe out;
  if (::pipe2(out.ends, O_CLOEXEC) != 0) return run.spawnError = errno, run;
  posix_spawn_file_actions_t actions;
  posix_spawn_file_actions_init(&actions);
  posix_spawn_file_actions_addopen(&actions, STDIN_FILENO, "/dev/null", O_RDONLY, 0);
  posix_spawn_file_actions_adddup2(&actions, out.ends[1], STDOUT_FILENO);
  std::vector<char*> args;
  for (const std::string& arg : argv) args.push_back(const_cast<char*>(arg.c_str()));
  args.push_back(nullptr);
  pid_t child = 0;
  run.spawnError = ::posix_spawnp(&child, args[0], &actions, nullptr, args.data(), environ);
  posix_spawn_file_actions_destroy(&actions);
  out.Close(1);
  if (run.spawnError != 0) return run;
  run.output = ReadAll(out.ends[0]);
  int status = 0;
  while (::waitpid(child, &status, 0) < 0)
    if (errno != EINTR) return run;
  run.status = WIFEXITED(status) ? WEXITSTATUS(status) : WIFSIGNALED(status) ? 128 + WTERMSIG(status) : -1;
  return run;
}

}  // namespace tarnvel
