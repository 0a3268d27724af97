// tarnvel-send: sends one suite command to a running converter, for scripts
// and tests.
//
//   tarnvel-send [--socket PATH] add ARGS_INI        command 1: add a job
//   tarnvel-send [--socket PATH] pause|resume        commands 2 and 3
//   tarnvel-send [--socket PATH] close               command 4: end when idle
//   tarnvel-send [--socket PATH] options ENABLED MAX command 5: parallel settings
//   tarnvel-send [--socket PATH] raw NUMBER [TEXT]   any command with a text payload
#include <cstdio>
#include <cstdlib>
#include <cstring>
#include <string>
#include <string_view>
#include <vector>

#include "platform/suitelink/SuiteLink.h"

namespace {

int Usage() {
  std::fprintf(stderr,
               "usage: tarnvel-send [--socket PATH] add ARGS_INI | pause | resume | close |\n"
               "                    options ENABLED MAXIMUM | raw NUMBER [TEXT]\n");
  return 2;
}

bool ParseWord(const char* text, std::uint32_t* value) {
  char* end = nullptr;
  const long long v = std::strtoll(text, &end, 10);
  if (end == text || *end != '\0' || v < INT32_MIN || v > UINT32_MAX) return false;
  *value = static_cast<std::uint32_t>(v);
  return true;
}

}  // namespace

int main(int argc, char** argv) {
  std::string socket = tarnvel::ConverterSocketPath();
  int i = 1;
  if (i + 1 < argc && std::strcmp(argv[i], "--socket") == 0) {
    socket = argv[i + 1];
    i += 2;
  }
  if (i >= argc) return Usage();
  const std::string_view verb = argv[i++];
  const int rest = argc - i;
  std::uint32_t command = 0;
  std::vector<std::uint8_t> payload;
  auto text = [&](const char* t) { payload.assign(t, t + std::strlen(t)); };
  if (verb == "add" && rest == 1) {
    command = 1;
    text(argv[i]);
  } else if ((verb == "pause" || verb == "resume" || verb == "close") && rest == 0) {
    command = verb == "pause" ? 2 : verb == "resume" ? 3 : 4;
  } else if (verb == "options" && rest == 2) {
    std::uint32_t words[2];
    if (!ParseWord(argv[i], &words[0]) || !ParseWord(argv[i + 1], &words[1])) return Usage();
    command = 5;
    payload.resize(8);
    std::memcpy(payload.data(), words, 8);
  } else if (verb == "raw" && (rest == 1 || rest == 2)) {
    if (!ParseWord(argv[i], &command)) return Usage();
    if (rest == 2) text(argv[i + 1]);
  } else {
    return Usage();
  }
  if (socket.empty()) {
    std::fprintf(stderr, "tarnvel-send: %s\n", tarnvel::SocketPathProblem(socket).c_str());
    return 1;
  }
  const auto answer = tarnvel::SendSuiteMessage(socket, command, payload);
  if (!answer) {
    std::fprintf(stderr, "tarnvel-send: no converter of this user answered on %s\n", socket.c_str());
    return 1;
  }
  std::printf("%u\n", *answer);
  return *answer == tarnvel::kSuiteAnswer ? 0 : 1;
}
