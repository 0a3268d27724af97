// The suite's programs talk over local sockets, one message at a time:
// a u32 command number, a u32 byte count, and the bytes, little-endian as the
// machine is. The receiver answers every message with the u32 1.
//
// The converter listens on $TARNVEL_SOCKET, else $XDG_RUNTIME_DIR/tarnvel.sock;
// the suite's main window on $TARNVEL_SUITE_SOCKET, else
// $XDG_RUNTIME_DIR/fathom-bureau.sock. Without XDG_RUNTIME_DIR the folder is
// ${XDG_CACHE_HOME:-$HOME/.cache}/tarnvel, never a shared one such as /tmp.
//
// Only the user who runs the converter can reach it: the socket's folder
// must belong to that user and be closed to everyone else (a folder the
// program makes is made so), the socket file is 0600, and a connection from
// another user is closed before a byte of it is read (docs/suite-socket.md).
#pragma once

#include <atomic>
#include <cstdint>
#include <functional>
#include <optional>
#include <span>
#include <string>
#include <thread>
#include <vector>

namespace tarnvel {

// A message larger than this is not read: its connection is closed unanswered.
constexpr std::uint32_t kMaxSuitePayload = 64 * 1024;
constexpr std::uint32_t kSuiteAnswer = 1;

// Empty when no place can be named (no variable set and no home folder).
std::string ConverterSocketPath();
std::string SuiteSocketPath();

// Why a socket cannot live at `path`, in words; empty when its folder is a
// real folder of this user that no one else can enter. A missing folder is
// made (mode 0700) first.
std::string SocketPathProblem(const std::string& path);

// Receives messages on a socket path on a thread of its own and hands each
// complete one to the handler, on that thread, before answering it. Clients
// are served side by side: one that stays idle or sends slowly is dropped
// after a few seconds without holding up the others, and when too many are
// connected the one closest to its time-out goes first. Short or oversized
// messages are dropped without a call.
class SuiteListener {
 public:
  using Handler = std::function<void(std::uint32_t command, std::span<const std::uint8_t> payload)>;

  SuiteListener() = default;
  ~SuiteListener();
  SuiteListener(const SuiteListener&) = delete;
  SuiteListener& operator=(const SuiteListener&) = delete;

  // 0 on success; otherwise an errno value (EADDRINUSE when another program
  // listens on the path; a stale socket file left by a dead one is replaced;
  // EACCES when SocketPathProblem finds the folder unsafe).
  int Start(const std::string& path, Handler handler);
  void Stop();

  // How long a client may take to complete a message; tests shorten it.
  void SetClientTimeout(int milliseconds) { clientTimeoutMs_ = milliseconds; }

 private:
  struct Client;
  void Run();
  void Accept(std::vector<Client>& clients);
  // Reads what arrived and answers every whole message; false to drop the client.
  bool Serve(Client& client);

  std::string path_;
  Handler handler_;
  int socket_ = -1;
  int wakePipe_[2] = {-1, -1};
  int clientTimeoutMs_ = 3000;
  std::thread thread_;
};

// Sends one message and waits for the answer; nothing when nobody listens,
// the listener belongs to another user, or no answer came within the time-out.
std::optional<std::uint32_t> SendSuiteMessage(const std::string& path, std::uint32_t command,
                                              std::span<const std::uint8_t> payload, int timeoutMs = 3000);

}  // namespace tarnvel
